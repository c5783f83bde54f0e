#include "SP/SP_HTTP_Response.h"

#include "Dlna/DlnaLog.h"

SP_HTTP_Response::SP_HTTP_Response() {
    clear();
    DLNA_LOG_I(DLNA_SP_TAG, "SP_HTTP_Response()");
}

SP_HTTP_Response::~SP_HTTP_Response() = default;

void SP_HTTP_Response::clear() {
    m_nMethod = 2;
    m_sHttpVersion.clear();
    m_sStatusCode.clear();
    m_sStatusString.clear();
    m_nSubErrorCode = 0;
    m_Headers.clear();
    m_uFlags = 0;
}

void SP_HTTP_Response::parseStatusLine(const std::string& line) {
    // A line that begins with a blank has no version; its code follows the blanks.
    size_t pos = 0;
    if (!line.empty() && line[0] != ' ' && line[0] != '\t') {
        pos = http::skipToken(line, 0);
        m_sHttpVersion.assign(line, 0, pos);
    }
    if (m_sHttpVersion == "HTTP/1.1") DLNA_LOG_I(DLNA_SP_TAG, "HTTP/1.1");
    else if (m_sHttpVersion == "HTTP/1.0") DLNA_LOG_I(DLNA_SP_TAG, "HTTP/1.0");

    pos = http::skipBlanks(line, pos);
    const size_t codeEnd = http::skipToken(line, pos);
    m_sStatusCode.assign(line, pos, codeEnd - pos);
    m_sStatusString = line.substr(codeEnd);  // the blank ending the code leads it
    DLNA_LOG_I(DLNA_SP_TAG, "m_sStatusString = %s", m_sStatusString.c_str());
}

void SP_HTTP_Response::interpretHeaders() {
    m_uFlags = 0;
    for (const SP_HTTP_entity& h : m_Headers) {
        if (http::equalsNoCase(h.m_sName, "Connection")) {
            m_uFlags |= http::FLAG_CONNECTION;
        } else if (http::equalsNoCase(h.m_sName, "Sub-ErrorCode")) {
            m_uFlags |= http::FLAG_SUB_ERRORCODE;
            const int i = http::scanDecimal(h.m_sValue);
            DLNA_LOG_I(DLNA_SP_TAG, " i =%d", i);
            m_nSubErrorCode = i;
        }
    }
}

bool SP_HTTP_Response::parse(const std::string& text) {
    clear();
    DLNA_LOG_I(DLNA_SP_TAG, "parse [%s]", text.c_str());

    http::LineReader reader(text);
    size_t begin, end;
    if (reader.next(&begin, &end)) {
        parseStatusLine(text.substr(begin, end - begin));
        // The name's colon is searched from the line start through the rest
        // of the whole text, not only within the line: a line without a colon
        // takes the following lines up to the next colon into its name, with
        // an empty value. Phones have always been answered with this reading,
        // so it stays. The next colon is remembered so that the walk stays
        // linear however many lines lack one.
        size_t colon = 0;
        bool colonKnown = false;
        size_t storedBytes = 0;
        while (reader.next(&begin, &end)) {
            if (!colonKnown || (colon != std::string::npos && colon < begin)) {
                colon = text.find(':', begin);
                colonKnown = true;
            }
            if (colon == std::string::npos) continue;  // no colon left anywhere: line dropped
            std::string name = http::trimEndBlanks(text.substr(begin, colon - begin));
            std::string value;
            if (colon < end) {
                const size_t valueStart = http::skipBlanks(text, colon + 1);
                if (valueStart < end) value.assign(text, valueStart, end - valueStart);
            }
            // Such names overlap one another, so a reply of many short lines
            // without colons would need memory growing with the square of
            // its size; past kMaxHeaderBytes of header text the rest is
            // dropped. Real replies hold a few short headers.
            storedBytes += name.size() + value.size();
            if (storedBytes > kMaxHeaderBytes) {
                DLNA_LOG_E(DLNA_SP_TAG, "Reply headers beyond %zu bytes: the rest is dropped", kMaxHeaderBytes);
                break;
            }
            m_Headers.emplace_back(std::move(name), std::move(value));
        }
    }
    interpretHeaders();

    DLNA_LOG_I(DLNA_SP_TAG, "\nRequest has been parsed:\n");
    DLNA_LOG_I(DLNA_SP_TAG, "m_sHttpVersion \"%s\", m_sStatusCode=\"%s\"", m_sHttpVersion.c_str(),
               m_sStatusCode.c_str());
    for (const SP_HTTP_entity& h : m_Headers) DLNA_LOG_I(DLNA_SP_TAG, "%s:%s", h.m_sName.c_str(), h.m_sValue.c_str());
    return true;
}
