// Bytes from phones the camera does not control: whatever arrives, both
// parsers stay inside the text, never crash and give the documented result.
// Run under ASan/UBSan these cases also prove that nothing is read out of
// bounds.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "SP/SP_HTTP_Request.h"
#include "SP/SP_HTTP_Response.h"
#include "support/test_support.h"

namespace {

using namespace std::string_literals;

constexpr uint64_t kKnownRequestFlags = 0x1 | 0x10000000 | 0x20000000;
constexpr uint64_t kKnownResponseFlags = 0x1 | 0x200000;

size_t countCrLf(const std::string& s) {
    size_t n = 0;
    for (size_t p = s.find("\r\n"); p != std::string::npos; p = s.find("\r\n", p + 2)) ++n;
    return n;
}

std::string manyHeaders(int n) {
    std::string s = "GET /sp/control HTTP/1.1\r\n";
    for (int i = 0; i < n; ++i) s += "X-H" + std::to_string(i) + ": v" + std::to_string(i) + "\r\n";
    return s + "NTS: alive\r\n\r\n";
}

std::string randomBytes(std::mt19937& rng, size_t n) {
    std::uniform_int_distribution<int> byte(0, 255);
    std::string s(n, '\0');
    for (char& c : s) c = static_cast<char>(byte(rng));
    return s;
}

// What a request must satisfy whatever the input.
void expectSaneRequest(const SP_HTTP_Request& r, int result, const std::string& text) {
    EXPECT_TRUE(result == 0 || result == 1);
    EXPECT_TRUE(r.m_nMethod >= 0 && r.m_nMethod <= 2);
    EXPECT_TRUE(r.m_nVersion == 0 || r.m_nVersion == 1);
    if (result == 0) {
        EXPECT_NE(r.m_nMethod, 2) << "only a GET or HEAD line can fail";
    }
    EXPECT_LE(r.m_Headers.size(), countCrLf(text));
    EXPECT_EQ(r.m_uFlags & ~kKnownRequestFlags, 0u);
    EXPECT_TRUE(r.m_nAccessMethod == 0 || r.m_nAccessMethod == 1);
    EXPECT_LE(r.m_sUrl.size(), text.size());
}

void expectSaneResponse(const SP_HTTP_Response& r, const std::string& text) {
    EXPECT_LE(r.m_Headers.size(), countCrLf(text));
    EXPECT_EQ(r.m_uFlags & ~kKnownResponseFlags, 0u);
    EXPECT_LE(r.m_sHttpVersion.size() + r.m_sStatusCode.size() + r.m_sStatusString.size(), text.size());
    EXPECT_EQ(r.m_nMethod, 2);
}

class HostileInput : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

struct RequestCase {
    const char* name;
    std::string text;
    int result;          // parse's result
    int method;          // m_nMethod afterwards
    size_t headerCount;  // m_Headers.size() afterwards
};

TEST_F(HostileInput, MalformedRequestsParseToTheirDocumentedResult) {
    const std::vector<RequestCase> cases = {
        {"empty", "", 1, 2, 0},
        {"only the empty line", "\r\n", 1, 2, 0},
        {"two empty lines", "\r\n\r\n", 1, 2, 0},
        {"lone CR", "\r", 1, 2, 0},
        {"CR LF CR at the end", "GET / HTTP/1.1\r\nA: b\r\n\r", 1, 0, 1},
        {"LF-only lines", "GET / HTTP/1.1\nNTS: alive\n\n", 1, 2, 0},
        {"method only", "GET\r\n\r\n", 0, 0, 0},
        {"blank request line", "   \r\nNTS: alive\r\n\r\n", 1, 2, 1},
        {"NUL in the method", "G\0ET / HTTP/1.1\r\n\r\n"s, 1, 2, 0},
        {"NUL in the target", "GET /a\0b HTTP/1.1\r\n\r\n"s, 1, 0, 0},
        {"NUL before the version", "GET / \0HTTP/1.1\r\n\r\n"s, 1, 0, 0},
        {"NUL in a header name", "GET / HTTP/1.1\r\nN\0TS: alive\r\n\r\n"s, 1, 0, 1},
        {"NUL in a header value", "GET / HTTP/1.1\r\nNTS: ali\0ve\r\n\r\n"s, 1, 0, 1},
        {"colon only", "GET / HTTP/1.1\r\n:\r\n\r\n", 1, 0, 1},
        {"colons only", "GET / HTTP/1.1\r\n::::\r\n\r\n", 1, 0, 1},
        {"no colon anywhere", "GET / HTTP/1.1\r\nabc\r\ndef\r\n\r\n", 1, 0, 0},
        {"Data-Server colon only", "GET / HTTP/1.1\r\nData-Server: :\r\n\r\n", 1, 0, 1},
        {"Data-Server empty", "GET / HTTP/1.1\r\nData-Server:\r\n\r\n", 1, 0, 1},
        {"User-Agent marker only", "GET / HTTP/1.1\r\nUser-Agent: ORB_SP_\r\n\r\n", 1, 0, 1},
        {"high bytes", "GET /\xff\xfe HTTP/1.1\r\n\x80\x81: \xc3\xa9\r\n\r\n", 1, 0, 1},
        {"version text inside target only", "HEAD /HTTP/1.1\r\n\r\n", 0, 1, 0},
        {"request line without CR LF", "GET / HTTP/1.1", 1, 2, 0},
    };
    for (const RequestCase& c : cases) {
        SCOPED_TRACE(c.name);
        SP_HTTP_Request r;
        const int result = r.parse(c.text);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(r.m_nMethod, c.method);
        EXPECT_EQ(r.m_Headers.size(), c.headerCount);
        expectSaneRequest(r, result, c.text);
    }
}

TEST_F(HostileInput, RequestWithNulInNtsValueSetsNoFlag) {
    SP_HTTP_Request r;
    ASSERT_EQ(r.parse("GET / HTTP/1.1\r\nNTS: alive\0\r\n\r\n"s), 1);
    EXPECT_EQ(r.m_uFlags, 0u) << "\"alive\\0\" is not \"alive\"";
}

TEST_F(HostileInput, RequestWith64KiBHeaderLineKeepsItWholeAndCutsOnlyTheLogLine) {
    const std::string big(64 * 1024, 'x');
    SP_HTTP_Request r;
    ASSERT_EQ(r.parse("GET / HTTP/1.1\r\nX-Big: " + big + "\r\nUser-Agent: ORB_SP_" + big + "\r\n\r\n"), 1);
    ASSERT_EQ(r.m_Headers.size(), 2u);
    EXPECT_EQ(r.m_Headers.front().m_sValue, big);
    EXPECT_EQ(r.m_sUserAgent, big);
    auto lines = host::logLinesContaining("X-Big:");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_LE(testsupport::messageOf(lines[0]).size(), 248u);
}

TEST_F(HostileInput, RequestWith64KiBTargetAndVersionAfterIt) {
    const std::string url = "/" + std::string(64 * 1024, 'u');
    SP_HTTP_Request r;
    ASSERT_EQ(r.parse("GET " + url + " HTTP/1.1\r\n\r\n"), 1);
    EXPECT_EQ(r.m_sUrl, url);
    EXPECT_EQ(r.m_nVersion, 1);
}

TEST_F(HostileInput, RequestWithThousandsOfHeadersKeepsThemAllInOrder) {
    SP_HTTP_Request r;
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_EQ(r.parse(manyHeaders(5000)), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(30));
    ASSERT_EQ(r.m_Headers.size(), 5001u);
    EXPECT_EQ(r.m_Headers.front().m_sName, "X-H0");
    EXPECT_EQ(r.m_Headers.back().m_sName, "NTS");
    EXPECT_EQ(r.m_uFlags, 0x10000000u);
}

TEST_F(HostileInput, RandomBytesNeverBreakTheRequestParser) {
    std::mt19937 rng(20240601);
    std::uniform_int_distribution<size_t> len(0, 600);
    for (int i = 0; i < 1500; ++i) {
        std::string text = randomBytes(rng, len(rng));
        if (i % 3 == 0) text = "GET / HTTP/1.1\r\n" + text;  // get past the request line too
        if (i % 5 == 0) text += "\r\n\r\n";
        SP_HTTP_Request r;
        expectSaneRequest(r, r.parse(text), text);
        if (HasFailure()) {
            ADD_FAILURE() << "iteration " << i;
            break;
        }
    }
}

TEST_F(HostileInput, MutatedAnnouncementsNeverBreakTheRequestParser) {
    const std::string base =
        "GET /sp/control HTTP/1.1\r\nNTS: alive\r\nUser-Agent: ORB_SP_Phone\r\nHOST-PNumber: none\r\n"
        "Data-Server: 192.168.0.5:8080\r\nAccess-Method: nfc\r\nConnection: close\r\n\r\n";
    const char alphabet[] = {'\r', '\n', ':', ' ', '\t', '\0', 'A', '9', '\xff', '/'};
    std::mt19937 rng(7);
    std::uniform_int_distribution<size_t> pick(0, sizeof alphabet - 1);
    std::uniform_int_distribution<int> edits(1, 8);
    for (int i = 0; i < 2000; ++i) {
        std::string text = base;
        for (int e = edits(rng); e > 0; --e) {
            std::uniform_int_distribution<size_t> at(0, text.size());
            const size_t p = at(rng);
            switch (rng() % 3) {
                case 0: text.insert(p, 1, alphabet[pick(rng)]); break;
                case 1: if (p < text.size()) text.erase(p, 1); break;
                default: if (p < text.size()) text[p] = alphabet[pick(rng)]; break;
            }
        }
        SP_HTTP_Request r;
        expectSaneRequest(r, r.parse(text), text);
        if (HasFailure()) {
            ADD_FAILURE() << "iteration " << i;
            break;
        }
    }
}

struct ResponseCase {
    const char* name;
    std::string text;
    std::string version;
    std::string code;
    size_t headerCount;
};

TEST_F(HostileInput, MalformedResponsesParseToTheirDocumentedResult) {
    const std::vector<ResponseCase> cases = {
        {"empty", "", "", "", 0},
        {"lone CR", "\r", "", "", 0},
        {"only the empty line", "\r\n", "", "", 0},
        {"LF-only lines", "HTTP/1.1 200 OK\nA: b\n\n", "", "", 0},
        {"status line only, no CR LF", "HTTP/1.1 200 OK", "", "", 0},
        {"blank status line", "   \r\n\r\n", "", "", 0},
        {"tab status line", "\t\r\nA: 1\r\n\r\n", "", "", 1},
        {"NUL in the version", "HT\0TP/1.1 200 OK\r\n\r\n"s, "HT\0TP/1.1"s, "200", 0},
        {"NUL in the code", "HTTP/1.1 2\0\x30\x30 OK\r\n\r\n"s, "HTTP/1.1", "2\0\x30\x30"s, 0},
        {"NUL in a header", "HTTP/1.1 200 OK\r\nA\0: \0b\r\n\r\n"s, "HTTP/1.1", "200", 1},
        {"colon only", "HTTP/1.1 200 OK\r\n:\r\n\r\n", "HTTP/1.1", "200", 1},
        {"no colon anywhere", "HTTP/1.1 200 OK\r\nabc\r\ndef\r\n\r\n", "HTTP/1.1", "200", 0},
        {"CR LF CR at the end", "HTTP/1.1 200 OK\r\nA: b\r\n\r", "HTTP/1.1", "200", 1},
        {"high bytes", "\xff\xfe \x80 \x81\r\n\xc3: \xa9\r\n\r\n", "\xff\xfe", "\x80", 1},
    };
    for (const ResponseCase& c : cases) {
        SCOPED_TRACE(c.name);
        SP_HTTP_Response r;
        EXPECT_TRUE(r.parse(c.text));
        EXPECT_EQ(r.m_sHttpVersion, c.version);
        EXPECT_EQ(r.m_sStatusCode, c.code);
        EXPECT_EQ(r.m_Headers.size(), c.headerCount);
        expectSaneResponse(r, c.text);
    }
}

TEST_F(HostileInput, HugeSubErrorCodeStopsAtTheLimitsOfInt) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nSub-ErrorCode: 123456789012345678901234567890\r\n\r\n");
    EXPECT_EQ(r.m_nSubErrorCode, INT_MAX);
    r.parse("HTTP/1.1 200 OK\r\nSub-ErrorCode: -123456789012345678901234567890\r\n\r\n");
    EXPECT_EQ(r.m_nSubErrorCode, INT_MIN);
    r.parse("HTTP/1.1 200 OK\r\nSub-ErrorCode:    +42xyz\r\n\r\n");
    EXPECT_EQ(r.m_nSubErrorCode, 42);
}

TEST_F(HostileInput, ResponseWith64KiBHeaderLineKeepsItWhole) {
    const std::string big(64 * 1024, 'y');
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 " + big + "\r\nX-Big: " + big + "\r\n\r\n");
    EXPECT_EQ(r.m_sStatusString, " " + big);
    ASSERT_EQ(r.m_Headers.size(), 1u);
    EXPECT_EQ(r.m_Headers.front().m_sValue, big);
}

TEST_F(HostileInput, ResponseWithThousandsOfHeadersKeepsThemAll) {
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 5000; ++i) text += "X-H" + std::to_string(i) + ": v\r\n";
    text += "Sub-ErrorCode: 5\r\n\r\n";
    SP_HTTP_Response r;
    r.parse(text);
    EXPECT_EQ(r.m_Headers.size(), 5001u);
    EXPECT_EQ(r.m_nSubErrorCode, 5);
}

TEST_F(HostileInput, ThousandsOfLinesWithoutColonStayFastAndBounded) {
    // Each such line takes the text up to the next colon into its name, so
    // the names overlap; the kept text stops at its limit instead of growing
    // with the square of the reply, and the walk stays linear.
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 100000; ++i) text += "junk\r\n";
    text += "A: b\r\n\r\n";
    SP_HTTP_Response r;
    const auto t0 = std::chrono::steady_clock::now();
    r.parse(text);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(30));
    ASSERT_EQ(r.m_Headers.size(), 1u) << "a second 600 kB name would pass the 1 MiB limit";
    EXPECT_EQ(r.m_Headers.front().m_sName.size(), 100000u * 6 + 1) << "junk lines up to the colon of A";
    EXPECT_EQ(r.m_Headers.front().m_sValue, "");
    EXPECT_TRUE(testsupport::logged("Reply headers beyond 1048576 bytes: the rest is dropped", "DLNA_SP"));
}

TEST_F(HostileInput, HeaderTextUpToTheLimitIsKeptWhole) {
    // 15 headers of 64 KiB values stay under 1 MiB; the 16th would not.
    const std::string big(64 * 1024, 'z');
    std::string text = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 17; ++i) text += "H: " + big + "\r\n";
    text += "\r\n";
    SP_HTTP_Response r;
    r.parse(text);
    EXPECT_EQ(r.m_Headers.size(), 15u);
    EXPECT_EQ(r.m_Headers.back().m_sValue, big);
    EXPECT_TRUE(testsupport::logged("Reply headers beyond 1048576 bytes: the rest is dropped", "DLNA_SP"));
}

TEST_F(HostileInput, RandomBytesNeverBreakTheResponseParser) {
    std::mt19937 rng(99);
    std::uniform_int_distribution<size_t> len(0, 600);
    SP_HTTP_Response r;  // reused: every parse starts from a cleared state
    for (int i = 0; i < 1500; ++i) {
        std::string text = randomBytes(rng, len(rng));
        if (i % 3 == 0) text = "HTTP/1.1 200 OK\r\n" + text;
        if (i % 5 == 0) text += "\r\n\r\n";
        EXPECT_TRUE(r.parse(text));
        expectSaneResponse(r, text);
        if (HasFailure()) {
            ADD_FAILURE() << "iteration " << i;
            break;
        }
    }
}

}  // namespace
