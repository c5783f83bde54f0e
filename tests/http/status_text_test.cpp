// The reason texts of the status lines the push server writes.
#include <gtest/gtest.h>

#include <climits>
#include <utility>
#include <vector>

#include "SP/http.h"

namespace {

TEST(StatusText, EveryKnownCodeHasItsOwnText) {
    const std::vector<std::pair<int, const char*>> table = {
        {100, "Continue"},
        {101, "Switching Protocols"},
        {200, "OK"},
        {201, "Created"},
        {202, "Accepted"},
        {203, "Non Authoritative Information"},
        {204, "No Content"},
        {205, "Reset Content"},
        {206, "Partial Content"},
        {300, "Multiple Choises"},
        {301, "Moved Permanently"},
        {302, "Found"},
        {303, "See Other"},
        {304, "Not Modified"},
        {305, "Use Proxy"},
        {306, "Unused"},
        {307, "Temporary Redirect"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {402, "Payment Required"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {406, "Not Acceptable"},
        {407, "Proxy Authentication Required"},
        {408, "Request Timeout"},
        {409, "Conflict"},
        {410, "Gone"},
        {411, "Length Required"},
        {412, "Precondition Failed"},
        {413, "Request Entity Too Large"},
        {414, "Request-URI Too Long"},
        {415, "Unsupported Media Type"},
        {416, "Request Range Not Satisfiable"},
        {417, "Expectation Failed"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Timeout"},
        {505, "Version Not Supported"},
    };
    for (const auto& [code, text] : table)
        EXPECT_STREQ(http::ResToStr(static_cast<http::RESULT>(code)), text) << code;

    // Every other code from 0 to 999 is unknown.
    int known = 0;
    for (int code = 0; code < 1000; ++code) {
        bool inTable = false;
        for (const auto& entry : table) inTable = inTable || entry.first == code;
        if (inTable) {
            ++known;
            continue;
        }
        EXPECT_STREQ(http::ResToStr(static_cast<http::RESULT>(code)), "Unknown Status Code") << code;
    }
    EXPECT_EQ(known, 41);
}

TEST(StatusText, MultipleChoicesKeepsItsHistoricSpelling) {
    EXPECT_STREQ(http::ResToStr(http::RES_MULTIPLE_CHOICES), "Multiple Choises");
}

TEST(StatusText, TeapotIsUnknown) { EXPECT_STREQ(http::ResToStr(static_cast<http::RESULT>(418)), "Unknown Status Code"); }

TEST(StatusText, OutOfRangeCodesAreUnknown) {
    for (int code : {-1, -200, 1000, 1200, INT_MAX, INT_MIN})
        EXPECT_STREQ(http::ResToStr(static_cast<http::RESULT>(code)), "Unknown Status Code") << code;
}

TEST(StatusText, NamedCodesCarryTheirNumbers) {
    EXPECT_EQ(http::RES_CONTINUE, 100);
    EXPECT_EQ(http::RES_OK, 200);
    EXPECT_EQ(http::RES_BAD_REQUEST, 400);
    EXPECT_EQ(http::RES_UNAUTHORIZED, 401);
    EXPECT_EQ(http::RES_NOT_IMPLEMENTED, 501);
    EXPECT_EQ(http::RES_SERVICE_UNAVAILABLE, 503);
}

}  // namespace
