// Parsing of the replies a phone's push receiver sends to the push client.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "SP/SP_HTTP_Response.h"
#include "support/test_support.h"

using testsupport::logged;
using testsupport::messages;

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

Headers headersOf(const SP_HTTP_Response& r) {
    Headers out;
    for (const auto& h : r.m_Headers) out.emplace_back(h.m_sName, h.m_sValue);
    return out;
}

void expectCleared(const SP_HTTP_Response& r) {
    EXPECT_EQ(r.m_nMethod, 2);
    EXPECT_EQ(r.m_sHttpVersion, "");
    EXPECT_EQ(r.m_sStatusCode, "");
    EXPECT_EQ(r.m_sStatusString, "");
    EXPECT_EQ(r.m_nSubErrorCode, 0);
    EXPECT_TRUE(r.m_Headers.empty());
    EXPECT_EQ(r.m_uFlags, 0u);
}

class Response : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
};

TEST_F(Response, ConstructorLogsAndLeavesAClearedObject) {
    SP_HTTP_Response r;
    expectCleared(r);
    EXPECT_EQ(messages("DLNA_SP"), std::vector<std::string>{"SP_HTTP_Response()"});
}

TEST_F(Response, ContinueStatusLineGivesVersionCodeAndLeadingBlankReason) {
    SP_HTTP_Response r;
    host::clearLog();
    const std::string text = "HTTP/1.1 100 Continue\r\n\r\n";
    EXPECT_TRUE(r.parse(text));
    EXPECT_EQ(r.m_sHttpVersion, "HTTP/1.1");
    EXPECT_EQ(r.m_sStatusCode, "100");
    EXPECT_EQ(r.m_sStatusString, " Continue");
    EXPECT_TRUE(r.m_Headers.empty());
    EXPECT_EQ(r.m_uFlags, 0u);
    EXPECT_EQ(messages("DLNA_SP"),
              (std::vector<std::string>{"parse [" + text + "]", "HTTP/1.1", "m_sStatusString =  Continue",
                                        "\nRequest has been parsed:",
                                        "m_sHttpVersion \"HTTP/1.1\", m_sStatusCode=\"100\""}));
}

TEST_F(Response, SubErrorCodeHeaderIsReadAndFlagged) {
    SP_HTTP_Response r;
    EXPECT_TRUE(r.parse("HTTP/1.1 200 OK\r\nSub-ErrorCode: 7\r\n\r\n"));
    EXPECT_EQ(r.m_sStatusCode, "200");
    EXPECT_EQ(r.m_nSubErrorCode, 7);
    EXPECT_EQ(r.m_uFlags, 0x200000u);
    EXPECT_TRUE(logged(" i =7", "DLNA_SP"));
    EXPECT_TRUE(logged("Sub-ErrorCode:7", "DLNA_SP"));
}

TEST_F(Response, ReasonPhraseKeepsTwoBlanksInARow) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 404 Not  Found\r\n\r\n");
    EXPECT_EQ(r.m_sStatusString, " Not  Found");
}

TEST_F(Response, LowerCaseSubErrorCodeHeaderCounts) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 500 Err\r\nsub-errorcode: -3\r\n\r\n");
    EXPECT_EQ(r.m_nSubErrorCode, -3);
    EXPECT_EQ(r.m_uFlags, 0x200000u);
}

TEST_F(Response, HeaderNameTrimmedAtItsEndAndValueAtItsStartOnly) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\n X-Name \t: \t value \t\r\n\r\n");
    EXPECT_EQ(headersOf(r), (Headers{{" X-Name", "value \t"}}));
}

TEST_F(Response, TextWithoutEmptyLineYieldsEveryCompleteLineAndDropsTheLast) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nA: 1\r\nB: 2\r\nSub-ErrorCode: 9");
    EXPECT_EQ(headersOf(r), (Headers{{"A", "1"}, {"B", "2"}}));
    EXPECT_EQ(r.m_nSubErrorCode, 0);
    EXPECT_EQ(r.m_uFlags, 0u);
}

TEST_F(Response, AnotherParseStartsFromAClearedState) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nConnection: close\r\nSub-ErrorCode: 4\r\n\r\n");
    ASSERT_EQ(r.m_uFlags, 0x200001u);
    r.parse("HTTP/1.0 100\r\n\r\n");
    EXPECT_EQ(r.m_sHttpVersion, "HTTP/1.0");
    EXPECT_EQ(r.m_sStatusCode, "100");
    EXPECT_EQ(r.m_sStatusString, "");
    EXPECT_EQ(r.m_nSubErrorCode, 0);
    EXPECT_TRUE(r.m_Headers.empty());
    EXPECT_EQ(r.m_uFlags, 0u);
    EXPECT_EQ(r.m_nMethod, 2);
}

TEST_F(Response, ClearReturnsToTheConstructedState) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nConnection: close\r\nSub-ErrorCode: 4\r\n\r\n");
    r.clear();
    expectCleared(r);
}

TEST_F(Response, ConnectionHeaderSetsBitZeroWithoutReadingItsValue) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nCONNECTION: whatever\r\n\r\n");
    EXPECT_EQ(r.m_uFlags, 0x1u);
}

TEST_F(Response, SubErrorCodeThatDoesNotScanGivesZeroButSetsTheFlag) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nSub-ErrorCode: abc\r\n\r\n");
    EXPECT_EQ(r.m_nSubErrorCode, 0);
    EXPECT_EQ(r.m_uFlags, 0x200000u);
    EXPECT_TRUE(logged(" i =0", "DLNA_SP"));
}

TEST_F(Response, LastOfRepeatedSubErrorCodesWinsAndBothAreKept) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nSub-ErrorCode: 1\r\nSub-ErrorCode: 2\r\n\r\n");
    EXPECT_EQ(r.m_nSubErrorCode, 2);
    EXPECT_EQ(headersOf(r), (Headers{{"Sub-ErrorCode", "1"}, {"Sub-ErrorCode", "2"}}));
}

TEST_F(Response, LineWithoutColonTakesFollowingTextUpToTheNextColonIntoItsName) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nJunk\r\nA: b\r\n\r\n");
    EXPECT_EQ(headersOf(r), (Headers{{"Junk\r\nA", ""}, {"A", "b"}}));
}

TEST_F(Response, ColonSearchReachesPastTheEmptyLine) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nJunk\r\n\r\nbody: x");
    EXPECT_EQ(headersOf(r), (Headers{{"Junk\r\n\r\nbody", ""}}));
}

TEST_F(Response, LineIsDroppedWhenNoColonFollowsAnywhere) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nA: 1\r\nJunk\r\nMore junk\r\n\r\n");
    EXPECT_EQ(headersOf(r), (Headers{{"A", "1"}}));
}

TEST_F(Response, ValueOfBlanksOnlyIsEmpty) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1 200 OK\r\nX:   \t\r\n\r\n");
    EXPECT_EQ(headersOf(r), (Headers{{"X", ""}}));
}

TEST_F(Response, StatusLineStartingWithABlankHasNoVersion) {
    SP_HTTP_Response r;
    r.parse("  200 OK\r\n\r\n");
    EXPECT_EQ(r.m_sHttpVersion, "");
    EXPECT_EQ(r.m_sStatusCode, "200");
    EXPECT_EQ(r.m_sStatusString, " OK");
}

TEST_F(Response, StatusLineWithoutBlankAfterTheCodeHasNoReason) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1\t200\r\n\r\n");
    EXPECT_EQ(r.m_sStatusCode, "200");
    EXPECT_EQ(r.m_sStatusString, "");
    EXPECT_TRUE(logged("m_sStatusString = ", "DLNA_SP"));
}

TEST_F(Response, StatusLineOfVersionOnlyHasNoCode) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.1   \r\n\r\n");
    EXPECT_EQ(r.m_sHttpVersion, "HTTP/1.1");
    EXPECT_EQ(r.m_sStatusCode, "");
    EXPECT_EQ(r.m_sStatusString, "");
}

TEST_F(Response, Http10IsLoggedAndOtherVersionsAreAcceptedSilently) {
    SP_HTTP_Response r;
    r.parse("HTTP/1.0 200 OK\r\n\r\n");
    EXPECT_TRUE(logged("HTTP/1.0", "DLNA_SP"));
    host::clearLog();
    r.parse("RTSP/1.0 abc Fine\r\n\r\n");
    EXPECT_EQ(r.m_sHttpVersion, "RTSP/1.0");
    EXPECT_EQ(r.m_sStatusCode, "abc") << "the code is kept as text, numeric or not";
    EXPECT_FALSE(logged("HTTP/1.0", "DLNA_SP"));
    EXPECT_FALSE(logged("HTTP/1.1", "DLNA_SP"));
}

TEST_F(Response, EmptyTextLeavesTheObjectCleared) {
    SP_HTTP_Response r;
    EXPECT_TRUE(r.parse(""));
    expectCleared(r);
    EXPECT_TRUE(logged("parse []", "DLNA_SP"));
    EXPECT_TRUE(logged("m_sHttpVersion \"\", m_sStatusCode=\"\"", "DLNA_SP"));
}

TEST_F(Response, TextWithoutCrLfLeavesTheObjectCleared) {
    SP_HTTP_Response r;
    EXPECT_TRUE(r.parse("HTTP/1.1 200 OK\nSub-ErrorCode: 3\n\n"));
    expectCleared(r);
}

TEST_F(Response, EmptyFirstLineEndsTheWalkAtOnce) {
    SP_HTTP_Response r;
    EXPECT_TRUE(r.parse("\r\nHTTP/1.1 200 OK\r\n\r\n"));
    expectCleared(r);
}

TEST_F(Response, EveryHeaderIsLoggedAfterTheSummary) {
    SP_HTTP_Response r;
    host::clearLog();
    r.parse("HTTP/1.1 200 OK\r\nA: 1\r\nConnection: close\r\n\r\n");
    const auto m = messages("DLNA_SP");
    ASSERT_GE(m.size(), 3u);
    EXPECT_EQ(std::vector<std::string>(m.end() - 3, m.end()),
              (std::vector<std::string>{"m_sHttpVersion \"HTTP/1.1\", m_sStatusCode=\"200\"", "A:1",
                                        "Connection:close"}));
}

}  // namespace
