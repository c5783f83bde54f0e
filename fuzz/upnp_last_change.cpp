// A GENA NOTIFY body from a renderer: its property set, the LastChange text
// inside it, and the times it carries. Variables with plain names (as every
// state variable has) survive being written out again in the plain form the
// control point hands on and read back.
#include <cctype>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_support.h"
#include "upnp_xml.h"

using namespace camwifi::upnp;

namespace {

// A name without a namespace prefix: letters, digits, '_', '-', '.'.
bool plainName(const std::string& name) {
    if (name.empty() || !std::isalpha(static_cast<unsigned char>(name[0]))) return false;
    for (char c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-' && c != '.') return false;
    return true;
}

void readLastChange(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> variables;
    if (!parseLastChange(text, &variables)) return;
    bool allPlain = true;
    for (auto& v : variables) {
        FUZZ_CHECK(parseUpnpTime(v.second) >= -1);
        allPlain = allPlain && plainName(v.first);
    }
    if (!allPlain) return;
    const std::string plain = lastChangeText("urn:schemas-upnp-org:metadata-1-0/AVT/", variables);
    std::vector<std::pair<std::string, std::string>> again;
    FUZZ_CHECK(parseLastChange(plain, &again));
    FUZZ_CHECK(again == variables);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string body(reinterpret_cast<const char*>(data), size);
    std::vector<std::pair<std::string, std::string>> properties;
    if (parsePropertySet(body, &properties)) {
        for (auto& p : properties)
            if (p.first == "LastChange") readLastChange(p.second);
    }
    readLastChange(body);
    FUZZ_CHECK(parseUpnpTime(body) >= -1);
    return 0;
}
