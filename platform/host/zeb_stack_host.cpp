// Host stand-in of the DLNA stack.
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

StackState& stack() {
    static StackState* s = new StackState;
    return *s;
}

void resetStack() {
    StackState& s = stack();
    std::lock_guard<std::mutex> g(s.lock);
    s.hasModelName = false;
    s.modelName.clear();
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
    return 0;
}
