// What a renderer sends when the control point fetches the description its
// SSDP advertisement points at: the advertised location (the input up to the
// first NUL) and the HTTP response (the rest), read by the HTTP client's
// response parser and then as a device description. Every URL the
// description yields is absolute and parses again as an http URL.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "http_client.h"
#include "upnp_xml.h"

using namespace camwifi::upnp;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    const size_t nul = all.find('\0');
    const std::string location = nul == std::string::npos ? "http://198.51.100.1:49494/description.xml"
                                                           : all.substr(0, nul);
    const std::string response = nul == std::string::npos ? all : all.substr(nul + 1);

    HttpUrl url;
    if (parseHttpUrl(location, &url)) FUZZ_CHECK(!url.path.empty() && url.path[0] == '/');

    HttpResult result;
    if (parseHttpResponse(response, &result)) {
        FUZZ_CHECK(result.body.size() <= kMaxHttpBody);
        for (auto& h : result.headers) {
            const std::string* found = findHeader(result.headers, h.first);
            FUZZ_CHECK(found != nullptr);
        }
    }
    // The body alone as well, so the XML reader sees every input directly.
    for (const std::string* text : {static_cast<const std::string*>(&result.body), &response}) {
        std::vector<DeviceInfo> devices, again;
        const bool ok = parseDeviceDescription(*text, location, &devices);
        FUZZ_CHECK(parseDeviceDescription(*text, location, &again) == ok);
        FUZZ_CHECK(again.size() == devices.size());
        for (size_t i = 0; i < devices.size(); ++i) {
            FUZZ_CHECK(devices[i].udn == again[i].udn);
            FUZZ_CHECK(devices[i].services.size() == again[i].services.size());
            for (auto& s : devices[i].services) {
                const ServiceInfo* first = devices[i].service(s.serviceType);
                FUZZ_CHECK(first != nullptr);
                if (s.controlUrl.compare(0, 7, "http://") == 0) {
                    // An absolute URL resolves to itself.
                    FUZZ_CHECK(resolveUrl(location, s.controlUrl) == s.controlUrl);
                }
            }
        }
        if (text == &response) break;
    }
    return 0;
}
