// What arrives at the control point's event receiver: a NOTIFY head and body
// (split at the first empty line), the property set inside, and a
// subscription's TIMEOUT value (the input's first line).
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "event_receiver.h"
#include "fuzz_support.h"
#include "upnp_xml.h"

using namespace camwifi::upnp;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const size_t split = text.find("\r\n\r\n");
    const std::string head = split == std::string::npos ? text : text.substr(0, split + 4);
    const std::string body = split == std::string::npos ? "" : text.substr(split + 4);
    EventMessage message;
    const int status = parseEventRequest(head, body, &message);
    FUZZ_CHECK(status == 0 || status == 400);
    if (status == 0) {
        FUZZ_CHECK(!message.sid.empty());
        std::vector<std::pair<std::string, std::string>> variables;
        (void)parsePropertySet(message.body, &variables);
    }
    const int seconds = parseSubscriptionTimeout(text.substr(0, text.find("\r\n")));
    FUZZ_CHECK(seconds >= -1 && seconds <= 999999999);
    return 0;
}
