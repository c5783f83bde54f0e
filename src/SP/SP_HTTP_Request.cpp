#include "SP/SP_HTTP_Request.h"

#include "Dlna/DlnaLog.h"

namespace {

// The push client and server put this before the device name in their user
// agents; what follows it is the name the UI shows for a phone.
constexpr char kAgentMarker[] = "ORB_SP_";

std::string toLower(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return s;
}

}  // namespace

SP_HTTP_Request::SP_HTTP_Request() { clear(); }

void SP_HTTP_Request::clear() {
    m_nMethod = METHOD_OTHER;
    m_nVersion = 0;
    m_sMethod.clear();
    m_sUrl.clear();
    m_sUserAgent.clear();
    m_sHostPNumber.clear();
    m_sDataServerAddr.clear();
    m_nDataServerPort = 0;
    m_nAccessMethod = 0;
    m_Headers.clear();
    m_uReserved = 0;
    m_bKeepAlive = false;
    m_uFlags = 0;
}

bool SP_HTTP_Request::parseRequestLine(const std::string& line) {
    size_t pos = http::skipToken(line, 0);
    m_sMethod.assign(line, 0, pos);
    if (http::equalsNoCase(m_sMethod, "GET")) {
        m_nMethod = METHOD_GET;
    } else if (http::equalsNoCase(m_sMethod, "HEAD")) {
        m_nMethod = METHOD_HEAD;
    } else {
        // Only GET and HEAD are served; the rest of the line is not needed.
        m_nMethod = METHOD_OTHER;
        return true;
    }
    pos = http::skipBlanks(line, pos);
    const size_t urlEnd = http::skipToken(line, pos);
    m_sUrl.assign(line, pos, urlEnd - pos);
    const std::string rest = line.substr(urlEnd);
    if (rest.find("HTTP/1.1") != std::string::npos) {
        m_nVersion = 1;
    } else if (rest.find("HTTP/1.0") != std::string::npos) {
        m_nVersion = 0;
    } else {
        DLNA_LOG_E(DLNA_SP_TAG, "Error  parsing HTTP version!");
        return false;
    }
    return true;
}

void SP_HTTP_Request::applyDataServer(const std::string& value) {
    const size_t colon = value.rfind(':');
    if (colon == std::string::npos) {
        DLNA_LOG_I(DLNA_SP_TAG, "invalid Data-Server Header");
        return;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "strTemp=[%s]", value.c_str());
    m_sDataServerAddr = value.substr(0, colon);
    m_nDataServerPort = http::scanDecimal(value.substr(colon + 1));
    DLNA_LOG_I(DLNA_SP_TAG, "Data Server INFO[%s:%d]", m_sDataServerAddr.c_str(), m_nDataServerPort);
}

void SP_HTTP_Request::interpretHeaders() {
    m_bKeepAlive = (m_nVersion == 1);
    for (const SP_HTTP_entity& h : m_Headers) {
        const std::string& name = h.m_sName;
        const std::string& value = h.m_sValue;
        if (http::equalsNoCase(name, "Range")) {
            continue;  // nothing here serves ranges
        } else if (http::equalsNoCase(name, "NTS")) {
            if (http::equalsNoCase(value, "alive")) m_uFlags |= http::FLAG_NTS_ALIVE;
            else if (http::equalsNoCase(value, "byebye")) m_uFlags |= http::FLAG_NTS_BYEBYE;
        } else if (http::equalsNoCase(name, "User-Agent")) {
            const size_t marker = value.find(kAgentMarker);
            m_sUserAgent = toLower(marker == std::string::npos ? value : value.substr(marker + sizeof kAgentMarker - 1));
        } else if (http::equalsNoCase(name, "Data-Server")) {
            applyDataServer(value);
        } else if (http::equalsNoCase(name, "Connection")) {
            if (m_nVersion == 1) {
                m_uFlags |= http::FLAG_CONNECTION;
                if (http::startsWithNoCase(value, "close")) m_bKeepAlive = false;
            } else {
                DLNA_LOG_I(DLNA_SP_TAG, "WARNING: \"Connection\" field is ignored for HTTP 1.0");
            }
        } else if (http::equalsNoCase(name, "HOST-PNumber")) {
            // A phone without a number of its own gives "none"; its user
            // agent (as far as the headers before this one set it) names it.
            m_sHostPNumber = (value == "none") ? m_sUserAgent : value;
        } else if (http::equalsNoCase(name, "Access-Method")) {
            m_nAccessMethod = http::equalsNoCase(value, "nfc") ? 1 : 0;
            DLNA_LOG_I(DLNA_SP_TAG, "Access-Method INFO[%d]", m_nAccessMethod);
        }
    }
}

int SP_HTTP_Request::parse(const std::string& text) {
    clear();
    http::LineReader reader(text);
    std::string line;
    if (reader.next(&line)) {
        if (!parseRequestLine(line)) return 0;
        // Header lines are read where they stand in text: name up to the
        // first colon less trailing blanks, value after the leading ones.
        size_t begin, end;
        std::string name, value;
        while (reader.next(&begin, &end)) {
            // A line without a colon is not a header line.
            if (http::splitHeaderLine(text, begin, end, &name, &value))
                m_Headers.emplace_back(std::move(name), std::move(value));
        }
    }
    interpretHeaders();

    DLNA_LOG_I(DLNA_SP_TAG, "Reponse has been parsed:");
    DLNA_LOG_I(DLNA_SP_TAG, "HTTP version =1.%d", m_nVersion);
    DLNA_LOG_I(DLNA_SP_TAG, "Method \"%s\", url=\"%s\"", m_sMethod.c_str(), m_sUrl.c_str());
    for (const SP_HTTP_entity& h : m_Headers) DLNA_LOG_I(DLNA_SP_TAG, "%s:%s", h.m_sName.c_str(), h.m_sValue.c_str());
    return 1;
}
