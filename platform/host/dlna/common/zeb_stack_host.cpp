// Host stand-in of the DLNA stack.
#include <cstring>
#include <mutex>
#include <string>

#include "host_internal.h"
#include "zeb_stack.h"

namespace {

struct StackState {
    std::mutex lock;
    bool hasModelName = false;
    std::string modelName;
};

}  // namespace

// The stack's text object: the model name lives in the one stack state.
struct ZEBString_s {
    std::string text;
};

namespace {

ZEBString_s& modelNameString() {
    static ZEBString_s* s = new ZEBString_s;
    return *s;
}

StackState& stack() {
    static StackState* s = new StackState;
    return *s;
}

void resetStack() {
    StackState& s = stack();
    std::lock_guard<std::mutex> g(s.lock);
    s.hasModelName = false;
    s.modelName.clear();
    modelNameString().text.clear();
}

const bool registered = (host::addResetHook(resetStack), true);

}  // namespace

extern "C" ZEB_ERROR_CODE ZEBSetModelName(const char* modelName) {
    host::journal("ZEBSetModelName(%s)", modelName ? modelName : "(null)");
    long long scripted;
    if (host::takeScriptedResult("ZEBSetModelName", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (modelName == nullptr) return 1;
    StackState& s = stack();
    std::lock_guard<std::mutex> g(s.lock);
    s.hasModelName = true;
    s.modelName = modelName;
    modelNameString().text = modelName;
    return 0;
}

extern "C" const ZEBString* ZEBGetModelName(void) {
    host::journal("ZEBGetModelName()");
    StackState& s = stack();
    std::lock_guard<std::mutex> g(s.lock);
    return s.hasModelName ? &modelNameString() : nullptr;
}

extern "C" int ZEBString_ReadString(const ZEBString* str, char* out, unsigned int size) {
    host::journal("ZEBString_ReadString()");
    if (str == nullptr || out == nullptr || size == 0) return -1;
    StackState& s = stack();
    std::lock_guard<std::mutex> g(s.lock);
    const size_t n = str->text.size() < size - 1 ? str->text.size() : size - 1;
    memcpy(out, str->text.data(), n);
    out[n] = '\0';
    return static_cast<int>(n);
}
