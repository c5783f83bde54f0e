// MSDeviceInfo on any CALLBACK value (and user agent and MAC texts): the
// phone's event receiver as the mode server takes it from the header.
#include <cstdint>
#include <string>

#include "ModeServer/MSDeviceInfo.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The input is the callback URL; a NUL byte, when there is one, ends it
    // and the rest is the user agent (the MAC text is its first 17 bytes).
    const std::string all(reinterpret_cast<const char*>(data), size);
    const size_t cut = all.find('\0');
    const std::string url = all.substr(0, cut);
    const std::string agent = cut == std::string::npos ? "" : all.substr(cut + 1);
    MSDeviceInfo device(agent, url, agent.substr(0, 17));
    FUZZ_CHECK(device.m_sCallbackUrl == url && device.m_sUserAgent == agent);
    const size_t open = url.find('<');
    const bool bracketed = open != std::string::npos && url.find('>', open + 1) != std::string::npos;
    if (!bracketed) {
        // Without <...> the receiver stays unset.
        FUZZ_CHECK(device.m_sHost.empty() && device.m_iPort == 0);
    } else {
        // The host comes from the bracketed text (less its "http://"), or
        // is the any-address when that text names no port.
        FUZZ_CHECK(device.m_sHost == "0.0.0.0" || device.m_sHost.size() + 2 <= url.size());
        FUZZ_CHECK(device.m_sHost.find('>') == std::string::npos);
        std::string inner = url.substr(open + 1, url.find('>', open + 1) - open - 1);
        const size_t scheme = inner.find("http://");
        if (scheme != std::string::npos) inner.erase(scheme, 7);
        if (inner.find(':') == std::string::npos) FUZZ_CHECK(device.m_sHost == "0.0.0.0" && device.m_iPort == 0);
        else FUZZ_CHECK(device.m_sHost == inner.substr(0, inner.find(':')));
    }
    MSDeviceInfo noMac(agent, url);
    FUZZ_CHECK(noMac.m_sMacAddr.empty() && noMac.m_sHost == device.m_sHost && noMac.m_iPort == device.m_iPort);
    std::string text = url;
    const int port = device.getPort(text);
    FUZZ_CHECK(text == url);
    (void)port;
    return 0;
}
