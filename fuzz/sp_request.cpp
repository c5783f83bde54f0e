// SP_HTTP_Request::parse on any bytes: a phone's request to the push server.
// Besides the sanitizers, the record must come out self-consistent.
#include <cstdint>
#include <string>

#include "SP/SP_HTTP_Request.h"
#include "SP/http.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    SP_HTTP_Request request;
    const int rc = request.parse(text);
    FUZZ_CHECK(rc == 0 || rc == 1);
    FUZZ_CHECK(request.m_nMethod >= 0 && request.m_nMethod <= 2);
    FUZZ_CHECK(request.m_nVersion == 0 || request.m_nVersion == 1);
    // Only a GET or HEAD request line can fail, and a failure reads no header.
    if (rc == 0) {
        FUZZ_CHECK(request.m_nMethod != SP_HTTP_Request::METHOD_OTHER);
        FUZZ_CHECK(request.m_Headers.empty());
    }
    const uint64_t known = http::FLAG_CONNECTION | http::FLAG_NTS_ALIVE | http::FLAG_NTS_BYEBYE;
    FUZZ_CHECK((request.m_uFlags & ~known) == 0);
    FUZZ_CHECK(request.m_nAccessMethod == 0 || request.m_nAccessMethod == 1);
    // Other methods keep no target; the connection flag needs HTTP/1.1.
    if (request.m_nMethod == SP_HTTP_Request::METHOD_OTHER) FUZZ_CHECK(request.m_sUrl.empty());
    if (request.m_uFlags & http::FLAG_CONNECTION) FUZZ_CHECK(request.m_nVersion == 1);
    if (request.m_bKeepAlive) FUZZ_CHECK(request.m_nVersion == 1);
    // Everything kept came from the text.
    size_t kept = request.m_sMethod.size() + request.m_sUrl.size();
    for (const SP_HTTP_entity& h : request.m_Headers) kept += h.m_sName.size() + h.m_sValue.size();
    FUZZ_CHECK(kept <= text.size());

    // A second parse on the same record starts from a clean state.
    SP_HTTP_Request fresh;
    FUZZ_CHECK(request.parse(text) == rc);
    FUZZ_CHECK(fresh.parse(text) == rc && fresh.m_Headers.size() == request.m_Headers.size() &&
               fresh.m_uFlags == request.m_uFlags && fresh.m_sUserAgent == request.m_sUserAgent &&
               fresh.m_sHostPNumber == request.m_sHostPNumber && fresh.m_nDataServerPort == request.m_nDataServerPort);

    // The status texts take any number.
    if (size >= 2) {
        const int code = (data[0] << 8) | data[1];
        FUZZ_CHECK(http::ResToStr(static_cast<http::RESULT>(code)) != nullptr);
    }
    return 0;
}
