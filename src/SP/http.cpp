#include "SP/http.h"

#include <climits>
#include <cstring>

namespace http {

const char* ResToStr(RESULT code) {
    switch (code) {
        case RES_CONTINUE: return "Continue";
        case RES_SWITCHING_PROTOCOLS: return "Switching Protocols";
        case RES_OK: return "OK";
        case RES_CREATED: return "Created";
        case RES_ACCEPTED: return "Accepted";
        case RES_NON_AUTHORITATIVE_INFORMATION: return "Non Authoritative Information";
        case RES_NO_CONTENT: return "No Content";
        case RES_RESET_CONTENT: return "Reset Content";
        case RES_PARTIAL_CONTENT: return "Partial Content";
        case RES_MULTIPLE_CHOICES: return "Multiple Choises";
        case RES_MOVED_PERMANENTLY: return "Moved Permanently";
        case RES_FOUND: return "Found";
        case RES_SEE_OTHER: return "See Other";
        case RES_NOT_MODIFIED: return "Not Modified";
        case RES_USE_PROXY: return "Use Proxy";
        case RES_UNUSED: return "Unused";
        case RES_TEMPORARY_REDIRECT: return "Temporary Redirect";
        case RES_BAD_REQUEST: return "Bad Request";
        case RES_UNAUTHORIZED: return "Unauthorized";
        case RES_PAYMENT_REQUIRED: return "Payment Required";
        case RES_FORBIDDEN: return "Forbidden";
        case RES_NOT_FOUND: return "Not Found";
        case RES_METHOD_NOT_ALLOWED: return "Method Not Allowed";
        case RES_NOT_ACCEPTABLE: return "Not Acceptable";
        case RES_PROXY_AUTHENTICATION_REQUIRED: return "Proxy Authentication Required";
        case RES_REQUEST_TIMEOUT: return "Request Timeout";
        case RES_CONFLICT: return "Conflict";
        case RES_GONE: return "Gone";
        case RES_LENGTH_REQUIRED: return "Length Required";
        case RES_PRECONDITION_FAILED: return "Precondition Failed";
        case RES_REQUEST_ENTITY_TOO_LARGE: return "Request Entity Too Large";
        case RES_REQUEST_URI_TOO_LONG: return "Request-URI Too Long";
        case RES_UNSUPPORTED_MEDIA_TYPE: return "Unsupported Media Type";
        case RES_REQUEST_RANGE_NOT_SATISFIABLE: return "Request Range Not Satisfiable";
        case RES_EXPECTATION_FAILED: return "Expectation Failed";
        case RES_INTERNAL_SERVER_ERROR: return "Internal Server Error";
        case RES_NOT_IMPLEMENTED: return "Not Implemented";
        case RES_BAD_GATEWAY: return "Bad Gateway";
        case RES_SERVICE_UNAVAILABLE: return "Service Unavailable";
        case RES_GATEWAY_TIMEOUT: return "Gateway Timeout";
        case RES_VERSION_NOT_SUPPORTED: return "Version Not Supported";
    }
    return "Unknown Status Code";
}

namespace {
char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool isScanSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }
}  // namespace

bool equalsNoCase(const std::string& a, const char* b) {
    const size_t n = std::strlen(b);
    return a.size() == n && startsWithNoCase(a, b);
}

bool startsWithNoCase(const std::string& text, const char* prefix) {
    const size_t n = std::strlen(prefix);
    if (text.size() < n) return false;
    for (size_t i = 0; i < n; ++i)
        if (lowerAscii(text[i]) != lowerAscii(prefix[i])) return false;
    return true;
}

int scanDecimal(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && isScanSpace(text[i])) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    // Accumulate towards the sign so that INT_MIN itself is reachable.
    long long value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const int digit = text[i] - '0';
        value = negative ? value * 10 - digit : value * 10 + digit;
        if (value > INT_MAX) return INT_MAX;
        if (value < INT_MIN) return INT_MIN;
    }
    return static_cast<int>(value);
}

size_t skipBlanks(const std::string& text, size_t pos) {
    const size_t p = text.find_first_not_of(" \t", pos);
    return p == std::string::npos ? text.size() : p;
}

size_t skipToken(const std::string& text, size_t pos) {
    const size_t p = text.find_first_of(" \t", pos);
    return p == std::string::npos ? text.size() : p;
}

std::string trimEndBlanks(const std::string& text) {
    const size_t last = text.find_last_not_of(" \t");
    return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

bool splitHeaderLine(const std::string& text, size_t begin, size_t end, std::string* name, std::string* value) {
    const void* at = std::memchr(text.data() + begin, ':', end - begin);
    if (at == nullptr) return false;
    const size_t colon = static_cast<size_t>(static_cast<const char*>(at) - text.data());
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    size_t nameEnd = colon;
    while (nameEnd > begin && blank(text[nameEnd - 1])) --nameEnd;
    size_t valueBegin = colon + 1;
    while (valueBegin < end && blank(text[valueBegin])) ++valueBegin;
    name->assign(text, begin, nameEnd - begin);
    value->assign(text, valueBegin, end - valueBegin);
    return true;
}

bool LineReader::next(size_t* begin, size_t* end) {
    if (m_pos >= m_text.size()) return false;
    const size_t crlf = m_text.find("\r\n", m_pos);
    if (crlf == std::string::npos || crlf == m_pos) return false;
    *begin = m_pos;
    *end = crlf;
    m_pos = crlf + 2;
    return true;
}

bool LineReader::next(std::string* line) {
    size_t begin, end;
    if (!next(&begin, &end)) return false;
    line->assign(m_text, begin, end - begin);
    return true;
}

}  // namespace http
