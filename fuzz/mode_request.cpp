// ModeHttpRequest::parse on any bytes: a phone's request to the mode server.
#include <cstdint>
#include <string>

#include "ModeServer/ModeHttpRequest.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    ModeHttpRequest request;
    const bool ok = request.parse(text);
    FUZZ_CHECK(request.m_iMethod >= 0 && request.m_iMethod <= 2);
    FUZZ_CHECK(request.m_iVersionMinor == 0 || request.m_iVersionMinor == 1);
    if (!ok) {
        // Only a GET or HEAD request line fails, before any header is read.
        // (An empty text has no request line at all.)
        FUZZ_CHECK(text.empty() || request.m_iMethod != ModeHttpRequest::METHOD_OTHER);
        FUZZ_CHECK(request.m_vHeaders.empty() && request.m_uFlags == 0);
    }
    const uint64_t known =
        ModeHttpRequest::FLAG_CONNECTION | ModeHttpRequest::FLAG_NTS_ALIVE | ModeHttpRequest::FLAG_NTS_BYEBYE;
    FUZZ_CHECK((request.m_uFlags & ~known) == 0);
    FUZZ_CHECK(request.m_iAccessMethod == 0 || request.m_iAccessMethod == 1);
    if (request.m_iMethod == ModeHttpRequest::METHOD_OTHER) FUZZ_CHECK(request.m_sUrl.empty());
    if (request.m_uFlags & ModeHttpRequest::FLAG_CONNECTION) FUZZ_CHECK(request.m_iVersionMinor == 1);
    if (request.m_bKeepAlive) FUZZ_CHECK(request.m_iVersionMinor == 1);
    size_t kept = request.m_sMethodText.size() + request.m_sUrl.size();
    for (const MODE_HTTP_entity& h : request.m_vHeaders) kept += h.m_sName.size() + h.m_sValue.size();
    FUZZ_CHECK(kept <= text.size());
    FUZZ_CHECK(request.m_sCallbackUrl.size() <= text.size());

    // Reusing the record gives the same reading as a new one.
    ModeHttpRequest fresh;
    FUZZ_CHECK(request.parse(text) == ok && fresh.parse(text) == ok);
    FUZZ_CHECK(fresh.m_vHeaders.size() == request.m_vHeaders.size() && fresh.m_uFlags == request.m_uFlags &&
               fresh.m_sCallbackUrl == request.m_sCallbackUrl && fresh.m_sUserAgent == request.m_sUserAgent &&
               fresh.m_iDataServerPort == request.m_iDataServerPort);
    request.clear();
    FUZZ_CHECK(request.m_vHeaders.empty() && request.m_iMethod == ModeHttpRequest::METHOD_OTHER);
    return 0;
}
