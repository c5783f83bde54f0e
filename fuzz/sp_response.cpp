// SP_HTTP_Response::parse on any bytes: a phone's reply to the push client.
// It never fails, keeps at most its bound of header text, and reads the same
// way again on the same object.
#include <cstdint>
#include <string>

#include "SP/SP_HTTP_Response.h"
#include "SP/http.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    SP_HTTP_Response response;
    FUZZ_CHECK(response.parse(text));
    FUZZ_CHECK(response.m_nMethod == 2);
    FUZZ_CHECK((response.m_uFlags & ~(http::FLAG_CONNECTION | http::FLAG_SUB_ERRORCODE)) == 0);
    if (!(response.m_uFlags & http::FLAG_SUB_ERRORCODE)) FUZZ_CHECK(response.m_nSubErrorCode == 0);
    // The status line's pieces come from the text; without any CR LF nothing is read.
    FUZZ_CHECK(response.m_sHttpVersion.size() + response.m_sStatusCode.size() + response.m_sStatusString.size() <=
               text.size());
    if (text.find("\r\n") == std::string::npos) {
        FUZZ_CHECK(response.m_sHttpVersion.empty() && response.m_sStatusCode.empty() && response.m_Headers.empty());
    }
    size_t kept = 0;
    for (const SP_HTTP_entity& h : response.m_Headers) kept += h.m_sName.size() + h.m_sValue.size();
    FUZZ_CHECK(kept <= SP_HTTP_Response::kMaxHeaderBytes);

    const std::string code = response.m_sStatusCode;
    const size_t headers = response.m_Headers.size();
    const int sub = response.m_nSubErrorCode;
    FUZZ_CHECK(response.parse(text));
    FUZZ_CHECK(response.m_sStatusCode == code && response.m_Headers.size() == headers &&
               response.m_nSubErrorCode == sub);
    response.clear();
    FUZZ_CHECK(response.m_Headers.empty() && response.m_sStatusCode.empty() && response.m_uFlags == 0);
    return 0;
}
