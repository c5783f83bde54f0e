// What a renderer sends the streaming server: the request head, its target
// path and its Range header, against a file size taken from the input's
// first bytes. A part a Range selects always lies inside the file.
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "http_client.h"
#include "streaming_server.h"

using namespace camwifi::upnp;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint64_t fileSize = 0;
    size_t used = size < 4 ? size : 4;
    for (size_t i = 0; i < used; ++i) fileSize = (fileSize << 8) | data[i];
    const std::string head(reinterpret_cast<const char*>(data + used), size - used);

    StreamingRequest request;
    std::string range = head;  // the raw bytes as a Range value too
    if (parseRequestHead(head, &request)) {
        FUZZ_CHECK(request.method.find(' ') == std::string::npos);
        std::string path;
        if (decodeTargetPath(request.target, &path)) {
            FUZZ_CHECK(!path.empty() && path[0] == '/');
            FUZZ_CHECK(path.find('\0') == std::string::npos);
        }
        if (const std::string* r = findHeader(request.headers, "Range")) range = *r;
        (void)contentTypeFor(path);
    }
    for (uint64_t fileSizeTried : {fileSize, static_cast<uint64_t>(0), ~static_cast<uint64_t>(0)}) {
        uint64_t first = 0, last = 0;
        RangeKind kind = parseRange(range, fileSizeTried, &first, &last);
        if (kind == RangeKind::kPart) {
            FUZZ_CHECK(first <= last);
            FUZZ_CHECK(last < fileSizeTried);
        }
    }
    return 0;
}
