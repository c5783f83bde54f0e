// A renderer's answer to a SOAP action: the action name (the input up to the
// first NUL) and the HTTP response (the rest), read by the HTTP client's
// response parser and then as a SOAP answer or fault. The answer's arguments
// are found again by name; a fault's UPnP code is never invented when the
// answer is not a fault.
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "http_client.h"
#include "upnp_xml.h"

using namespace camwifi::upnp;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    const size_t nul = all.find('\0');
    const std::string action = nul == std::string::npos ? "GetTransportInfo" : all.substr(0, nul);
    const std::string response = nul == std::string::npos ? all : all.substr(nul + 1);

    HttpResult result;
    const bool http = parseHttpResponse(response, &result);
    for (const std::string* body : {static_cast<const std::string*>(&result.body), &response}) {
        if (body == &result.body && !http) continue;
        SoapAnswer answer;
        if (!parseSoapAnswer(*body, action, &answer)) continue;
        if (!answer.fault) FUZZ_CHECK(answer.upnpErrorCode == 0 && answer.errorDescription.empty());
        for (auto& a : answer.arguments) {
            const std::string* found = answer.argument(a.first);
            FUZZ_CHECK(found != nullptr);
        }
    }
    return 0;
}
