// The mode server's request parser: one request head in, the record out.
#include <gtest/gtest.h>

#include "ModeServer/ModeHttpRequest.h"
#include "support/test_support.h"

namespace {

class ModeRequest : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    ModeHttpRequest r;
};

TEST_F(ModeRequest, NewRecordHoldsTheInitialValues) {
    EXPECT_EQ(r.m_iMethod, 2);
    EXPECT_EQ(r.m_iVersionMinor, 0);
    EXPECT_TRUE(r.m_sUrl.empty());
    EXPECT_TRUE(r.m_vHeaders.empty());
    EXPECT_FALSE(r.m_bKeepAlive);
    EXPECT_EQ(r.m_uFlags, 0u);
    EXPECT_EQ(r.m_iDataServerPort, 0);
    EXPECT_EQ(r.m_iAccessMethod, 0);
}

TEST_F(ModeRequest, AnnouncementOverHttp11IsAKeptAliveGetWithTheAliveBit) {
    ASSERT_TRUE(r.parse("GET /mode/control HTTP/1.1\r\nNTS: alive\r\n\r\n"));
    EXPECT_EQ(r.m_iMethod, 0);
    EXPECT_EQ(r.m_sMethodText, "GET");
    EXPECT_EQ(r.m_sUrl, "/mode/control");
    EXPECT_EQ(r.m_iVersionMinor, 1);
    EXPECT_TRUE(r.m_bKeepAlive);
    EXPECT_EQ(r.m_uFlags, 0x10000000u);
}

TEST_F(ModeRequest, ParseLogsTheRecordLineByLine) {
    ASSERT_TRUE(r.parse("HEAD /mode/control HTTP/1.1\r\nNTS: alive\r\nX-A:  b \r\n\r\n"));
    std::vector<std::string> expected = {"\nReponse has been parsed:", "HTTP version =1.1", "HEAD /mode/control",
                                         "NTS:alive", "X-A:b "};
    EXPECT_EQ(testsupport::messages("DLNA_MS"), expected);
}

TEST_F(ModeRequest, UserAgentLosesItsPrefixAndIsLowerCased) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nUser-Agent: ORB_MODE_PhoneApp/2.0\r\n\r\n"));
    EXPECT_EQ(r.m_sUserAgent, "phoneapp/2.0");
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nUser-Agent: Android PhoneApp\r\n\r\n"));
    EXPECT_EQ(r.m_sUserAgent, "android phoneapp");
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nUser-Agent: Dalvik ORB_MODE_Pixel ORB_MODE_X\r\n\r\n"));
    EXPECT_EQ(r.m_sUserAgent, "pixel orb_mode_x") << "the text after the first prefix is kept";
}

TEST_F(ModeRequest, DataServerIsSplitAtItsLastColon) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nData-Server: 192.168.107.20:8080\r\n\r\n"));
    EXPECT_EQ(r.m_sDataServerHost, "192.168.107.20");
    EXPECT_EQ(r.m_iDataServerPort, 8080);
    EXPECT_TRUE(testsupport::logged("Data Server INFO[192.168.107.20:8080]", "DLNA_MS"));
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nData-Server: a:b:90x\r\n\r\n"));
    EXPECT_EQ(r.m_sDataServerHost, "a:b");
    EXPECT_EQ(r.m_iDataServerPort, 90);
}

TEST_F(ModeRequest, DataServerWithoutColonIsRejectedWithAWarning) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nData-Server: abc\r\n\r\n"));
    EXPECT_TRUE(r.m_sDataServerHost.empty());
    EXPECT_EQ(r.m_iDataServerPort, 0);
    EXPECT_TRUE(testsupport::logged("invalid Data-Server Header", "DLNA_MS"));
}

TEST_F(ModeRequest, ConnectionCloseOnHttp11SetsTheBitAndEndsKeepAlive) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nConnection: CLOSE\r\n\r\n"));
    EXPECT_FALSE(r.m_bKeepAlive);
    EXPECT_EQ(r.m_uFlags, 0x1u);
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\n"));
    EXPECT_TRUE(r.m_bKeepAlive);
    EXPECT_EQ(r.m_uFlags, 0x1u);
}

TEST_F(ModeRequest, ConnectionOnHttp10IsOnlyWarnedAbout) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.0\r\nConnection: close\r\n\r\n"));
    EXPECT_EQ(r.m_iVersionMinor, 0);
    EXPECT_FALSE(r.m_bKeepAlive) << "HTTP/1.0 is not kept alive";
    EXPECT_EQ(r.m_uFlags, 0u);
    EXPECT_TRUE(testsupport::logged("WARNING: \"Connection\" field is ignored for HTTP 1.0", "DLNA_MS"));
}

TEST_F(ModeRequest, OtherMethodParsesWithAnEmptyUrlAndItsHeaders) {
    ASSERT_TRUE(r.parse("POST /mode/control HTTP/1.1\r\nNTS: byebye\r\n\r\n"));
    EXPECT_EQ(r.m_iMethod, 2);
    EXPECT_EQ(r.m_sMethodText, "POST");
    EXPECT_TRUE(r.m_sUrl.empty());
    EXPECT_EQ(r.m_uFlags, 0x20000000u);
    EXPECT_TRUE(r.parse("get /mode/control HTTP/1.1\r\n\r\n"));
    EXPECT_EQ(r.m_iMethod, 2) << "methods are compared case-sensitively";
}

TEST_F(ModeRequest, UnknownHttpVersionFailsBeforeTheHeaders) {
    EXPECT_FALSE(r.parse("GET /mode/control HTTP/2.0\r\nNTS: alive\r\n\r\n"));
    EXPECT_TRUE(testsupport::logged("Error  parsing HTTP version!", "DLNA_MS"));
    EXPECT_EQ(r.m_uFlags, 0u);
    EXPECT_TRUE(r.m_vHeaders.empty());
    EXPECT_FALSE(r.parse("GET /mode/control\r\n\r\n"));
    EXPECT_FALSE(r.parse(""));
}

TEST_F(ModeRequest, HeaderNamesAreMatchedWithoutRegardToCase) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nnts: ALIVE\r\ncallback: <http://1.2.3.4:5/x>\r\n\r\n"));
    EXPECT_EQ(r.m_uFlags, 0x10000000u);
    EXPECT_EQ(r.m_sCallbackUrl, "<http://1.2.3.4:5/x>");
}

TEST_F(ModeRequest, AliveAndByebyeTogetherSetBothBits) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nNTS: alive\r\nNTS: byebye\r\n\r\n"));
    EXPECT_EQ(r.m_uFlags, 0x30000000u);
}

TEST_F(ModeRequest, NtsValueWithTrailingBlanksStillCounts) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nNTS:   alive \t\r\n\r\n"));
    EXPECT_EQ(r.m_uFlags, 0x10000000u);
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nNTS: alive-ish\r\n\r\n"));
    EXPECT_EQ(r.m_uFlags, 0u);
}

TEST_F(ModeRequest, HeaderLinesKeepNameAndValueAsTheyCame) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nX-Name \t:\t value with blank  \r\nno colon here\r\nRange: bytes=0-\r\n"
                        "CALLBACK: <a>\r\n\r\nAfter: blank line\r\n"));
    ASSERT_EQ(r.m_vHeaders.size(), 3u);
    EXPECT_EQ(r.m_vHeaders[0].m_sName, "X-Name");
    EXPECT_EQ(r.m_vHeaders[0].m_sValue, "value with blank  ");
    EXPECT_EQ(r.m_vHeaders[1].m_sName, "Range");
    EXPECT_EQ(r.m_vHeaders[2].m_sValue, "<a>");
}

TEST_F(ModeRequest, AccessMethodNfcIsOne) {
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nAccess-Method: NFC\r\n\r\n"));
    EXPECT_EQ(r.m_iAccessMethod, 1);
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nAccess-Method: wifi\r\n\r\n"));
    EXPECT_EQ(r.m_iAccessMethod, 0);
}

TEST_F(ModeRequest, RequestLineMayUseTabsAndALastLineWithoutCrLf) {
    ASSERT_TRUE(r.parse("HEAD\t/mode/control\tHTTP/1.0"));
    EXPECT_EQ(r.m_iMethod, 1);
    EXPECT_EQ(r.m_sUrl, "/mode/control");
    EXPECT_EQ(r.m_iVersionMinor, 0);
    ASSERT_TRUE(r.parse("GET / HTTP/1.1\r\nNTS: byebye"));
    EXPECT_EQ(r.m_uFlags, 0x20000000u);
}

TEST_F(ModeRequest, EachParseStartsFromACleanRecord) {
    ASSERT_TRUE(r.parse("GET /a HTTP/1.1\r\nNTS: alive\r\nCALLBACK: <x>\r\nUser-Agent: ORB_MODE_A\r\n\r\n"));
    ASSERT_TRUE(r.parse("HEAD /b HTTP/1.0\r\n\r\n"));
    EXPECT_EQ(r.m_sUrl, "/b");
    EXPECT_EQ(r.m_uFlags, 0u);
    EXPECT_TRUE(r.m_sCallbackUrl.empty());
    EXPECT_TRUE(r.m_sUserAgent.empty());
    EXPECT_TRUE(r.m_vHeaders.empty());
    r.clear();
    EXPECT_EQ(r.m_iMethod, 2);
    EXPECT_TRUE(r.m_sUrl.empty());
}

TEST_F(ModeRequest, GarbageNeverCrashesTheParser) {
    std::string junk;
    for (int i = 0; i < 4096; ++i) junk += static_cast<char>((i * 131 + 7) % 256);
    r.parse(junk);
    r.parse(junk + "\r\n\r\n");
    r.parse("GET " + junk + " HTTP/1.1\r\n" + junk + ":" + junk + "\r\n\r\n");
    EXPECT_TRUE(r.parse(":\r\n:\r\n\r\n")) << "an unknown method with odd headers is not a failure";
}

}  // namespace
