// The reply a phone's push receiver sends back to the camera's push client:
// status line and headers only (the push client never reads a reply body).
#ifndef CAMWIFI_SP_HTTP_RESPONSE_H
#define CAMWIFI_SP_HTTP_RESPONSE_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

#include "SP/http.h"

class SP_HTTP_Response {
public:
    // Most header text (names and values) kept from one reply.
    static constexpr size_t kMaxHeaderBytes = 1024 * 1024;

    SP_HTTP_Response();
    ~SP_HTTP_Response();

    // Back to the constructed state.
    void clear();

    // Parses a status line and header block (everything up to the first
    // empty line). Never fails: a malformed text leaves fields empty, and
    // any bytes are safe to hand in. Clears the object first. Headers past
    // kMaxHeaderBytes of kept text are dropped (logged).
    bool parse(const std::string& text);

    // All fields are written by parse() and read by the push client.
    int m_nMethod;                        // mirrors the request's method field: always 2 ("other")
    std::string m_sHttpVersion;           // first token of the status line, e.g. HTTP/1.1
    std::string m_sStatusCode;            // token after the version, kept as text (e.g. 100, 200)
    std::string m_sStatusString;          // rest of the status line from the blank after the code, blanks kept
    int m_nSubErrorCode;                  // Sub-ErrorCode header read as "%d"; 0 when absent
    std::list<SP_HTTP_entity> m_Headers;  // every header line in arrival order, duplicates kept
    uint64_t m_uFlags;                    // http::FLAG_CONNECTION, http::FLAG_SUB_ERRORCODE

private:
    void parseStatusLine(const std::string& line);
    void interpretHeaders();
};

#endif
