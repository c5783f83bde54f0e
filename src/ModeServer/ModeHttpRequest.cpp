#include "ModeServer/ModeHttpRequest.h"

#include <cctype>

#include "Dlna/DlnaLog.h"
#include "SP/http.h"

namespace {

const char kUserAgentPrefix[] = "ORB_MODE_";

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Walks the lines of a text, split at each CR LF; a last piece without CR LF
// counts as a line too. Lines are handed out as [begin, end) of the text.
class Lines {
public:
    explicit Lines(const std::string& text) : m_text(text) {}
    bool next(size_t* begin, size_t* end) {
        if (m_pos >= m_text.size()) return false;
        const size_t crlf = m_text.find("\r\n", m_pos);
        *begin = m_pos;
        *end = crlf == std::string::npos ? m_text.size() : crlf;
        m_pos = crlf == std::string::npos ? m_text.size() : crlf + 2;
        return true;
    }

private:
    const std::string& m_text;
    size_t m_pos = 0;
};

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

void ModeHttpRequest::clear() { *this = ModeHttpRequest(); }

bool ModeHttpRequest::parse(const std::string& text) {
    clear();
    Lines lines(text);
    size_t begin, end;
    if (!lines.next(&begin, &end) || !parseRequestLine(text.substr(begin, end - begin))) return false;
    // The headers end at the first empty line.
    while (lines.next(&begin, &end) && end > begin) addHeaderLine(text, begin, end);
    interpretHeaders();

    DLNA_LOG_I(DLNA_MS_TAG, "\nReponse has been parsed:\n");
    DLNA_LOG_I(DLNA_MS_TAG, "HTTP version =1.%d", m_iVersionMinor);
    DLNA_LOG_I(DLNA_MS_TAG, "%s %s", m_sMethodText.c_str(), m_sUrl.c_str());
    for (const MODE_HTTP_entity& h : m_vHeaders) DLNA_LOG_I(DLNA_MS_TAG, "%s:%s", h.m_sName.c_str(), h.m_sValue.c_str());
    return true;
}

bool ModeHttpRequest::parseRequestLine(const std::string& line) {
    size_t pos = 0;
    while (pos < line.size() && !isBlank(line[pos])) ++pos;
    m_sMethodText = line.substr(0, pos);
    if (m_sMethodText == "GET") {
        m_iMethod = METHOD_GET;
    } else if (m_sMethodText == "HEAD") {
        m_iMethod = METHOD_HEAD;
    } else {
        // Answered 501 by the handler; the rest of the line does not matter.
        m_iMethod = METHOD_OTHER;
        return true;
    }
    while (pos < line.size() && isBlank(line[pos])) ++pos;
    const size_t urlStart = pos;
    while (pos < line.size() && !isBlank(line[pos])) ++pos;
    m_sUrl = line.substr(urlStart, pos - urlStart);

    const std::string rest = line.substr(pos);
    if (rest.find("HTTP/1.1") != std::string::npos) {
        m_iVersionMinor = 1;
    } else if (rest.find("HTTP/1.0") != std::string::npos) {
        m_iVersionMinor = 0;
    } else {
        DLNA_LOG_E(DLNA_MS_TAG, "Error  parsing HTTP version!");
        return false;
    }
    return true;
}

void ModeHttpRequest::addHeaderLine(const std::string& text, size_t begin, size_t end) {
    std::string name, value;
    if (http::splitHeaderLine(text, begin, end, &name, &value)) m_vHeaders.emplace_back(std::move(name), std::move(value));
}

void ModeHttpRequest::interpretHeaders() {
    m_bKeepAlive = (m_iVersionMinor == 1);
    m_uFlags = 0;
    for (const MODE_HTTP_entity& h : m_vHeaders) {
        const std::string& name = h.m_sName;
        const std::string& value = h.m_sValue;
        if (http::equalsNoCase(name, "Range")) {
            continue;
        } else if (http::equalsNoCase(name, "NTS")) {
            // Trailing blanks are forgiven: "alive " is still an announcement,
            // which is what a phone that pads its header means.
            const std::string word = http::trimEndBlanks(value);
            if (http::equalsNoCase(word, "alive")) m_uFlags |= FLAG_NTS_ALIVE;
            else if (http::equalsNoCase(word, "byebye")) m_uFlags |= FLAG_NTS_BYEBYE;
        } else if (http::equalsNoCase(name, "User-Agent")) {
            const size_t at = value.find(kUserAgentPrefix);
            m_sUserAgent = lowerCase(at == std::string::npos ? value : value.substr(at + sizeof kUserAgentPrefix - 1));
        } else if (http::equalsNoCase(name, "CALLBACK")) {
            m_sCallbackUrl = value;
        } else if (http::equalsNoCase(name, "Data-Server")) {
            const size_t colon = value.rfind(':');
            if (colon == std::string::npos) {
                DLNA_LOG_E(DLNA_MS_TAG, "invalid Data-Server Header");
                continue;
            }
            m_sDataServerHost = value.substr(0, colon);
            m_iDataServerPort = http::scanDecimal(value.substr(colon + 1));
            DLNA_LOG_I(DLNA_MS_TAG, "Data Server INFO[%s:%d]", m_sDataServerHost.c_str(), m_iDataServerPort);
        } else if (http::equalsNoCase(name, "Connection")) {
            if (m_iVersionMinor == 1) {
                m_uFlags |= FLAG_CONNECTION;
                if (http::startsWithNoCase(value, "close")) m_bKeepAlive = false;
            } else {
                DLNA_LOG_I(DLNA_MS_TAG, "WARNING: \"Connection\" field is ignored for HTTP 1.0");
            }
        } else if (http::equalsNoCase(name, "Access-Method")) {
            m_iAccessMethod = http::equalsNoCase(value, "nfc") ? 1 : 0;
        }
    }
}
