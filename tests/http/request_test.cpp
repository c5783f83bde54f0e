// Parsing of the requests phones send to the push server.
#include <gtest/gtest.h>

#include <climits>
#include <initializer_list>
#include <string>
#include <vector>

#include "SP/SP_HTTP_Request.h"
#include "support/test_support.h"

using testsupport::logged;
using testsupport::messages;

namespace {

// Lines joined by CR LF, closed by the empty line.
std::string request(std::initializer_list<const char*> lines) {
    std::string s;
    for (const char* l : lines) s += std::string(l) + "\r\n";
    return s + "\r\n";
}

std::vector<std::pair<std::string, std::string>> headersOf(const SP_HTTP_Request& r) {
    std::vector<std::pair<std::string, std::string>> out;
    for (const auto& h : r.m_Headers) out.emplace_back(h.m_sName, h.m_sValue);
    return out;
}

using Headers = std::vector<std::pair<std::string, std::string>>;

void expectCleared(const SP_HTTP_Request& r) {
    EXPECT_EQ(r.m_nMethod, 2);
    EXPECT_EQ(r.m_nVersion, 0);
    EXPECT_EQ(r.m_sMethod, "");
    EXPECT_EQ(r.m_sUrl, "");
    EXPECT_EQ(r.m_sUserAgent, "");
    EXPECT_EQ(r.m_sHostPNumber, "");
    EXPECT_EQ(r.m_sDataServerAddr, "");
    EXPECT_EQ(r.m_nDataServerPort, 0);
    EXPECT_EQ(r.m_nAccessMethod, 0);
    EXPECT_TRUE(r.m_Headers.empty());
    EXPECT_EQ(r.m_uReserved, 0u);
    EXPECT_FALSE(r.m_bKeepAlive);
    EXPECT_EQ(r.m_uFlags, 0u);
}

class Request : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    SP_HTTP_Request req;
};

TEST_F(Request, ConstructedRequestIsCleared) { expectCleared(req); }

TEST_F(Request, GetRequestLineGivesMethodUrlAndVersionAndIsLogged) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.1", "NTS: alive"})), 1);
    EXPECT_EQ(req.m_nMethod, 0);
    EXPECT_EQ(req.m_sMethod, "GET");
    EXPECT_EQ(req.m_sUrl, "/sp/control");
    EXPECT_EQ(req.m_nVersion, 1);
    EXPECT_TRUE(req.m_bKeepAlive) << "HTTP/1.1 keeps the connection by default";
    EXPECT_EQ(messages("DLNA_SP"), (std::vector<std::string>{"Reponse has been parsed:", "HTTP version =1.1",
                                                             "Method \"GET\", url=\"/sp/control\"", "NTS:alive"}));
}

TEST_F(Request, HeadRequestGivesMethodOne) {
    ASSERT_EQ(req.parse(request({"HEAD /sp/control HTTP/1.0"})), 1);
    EXPECT_EQ(req.m_nMethod, 1);
    EXPECT_EQ(req.m_nVersion, 0);
    EXPECT_FALSE(req.m_bKeepAlive) << "HTTP/1.0 does not keep the connection";
    EXPECT_TRUE(logged("HTTP version =1.0", "DLNA_SP"));
}

TEST_F(Request, MethodIsMatchedWithoutRegardToCaseAndKeptAsReceived) {
    ASSERT_EQ(req.parse(request({"get /x HTTP/1.1"})), 1);
    EXPECT_EQ(req.m_nMethod, 0);
    EXPECT_EQ(req.m_sMethod, "get");
}

TEST_F(Request, BlanksAndTabsSeparateTheRequestLineTokens) {
    ASSERT_EQ(req.parse(request({"GET\t \t/sp/control\tHTTP/1.1"})), 1);
    EXPECT_EQ(req.m_sUrl, "/sp/control");
    EXPECT_EQ(req.m_nVersion, 1);
}

TEST_F(Request, PostRequestSkipsTargetAndVersionButParsesHeaders) {
    ASSERT_EQ(req.parse(request({"POST /sp/control HTTP/1.1", "NTS: alive", "Data-Server: 10.0.0.2:9000"})), 1);
    EXPECT_EQ(req.m_nMethod, 2);
    EXPECT_EQ(req.m_sMethod, "POST");
    EXPECT_EQ(req.m_sUrl, "");
    EXPECT_EQ(req.m_nVersion, 0);
    EXPECT_FALSE(req.m_bKeepAlive);
    EXPECT_EQ(req.m_uFlags, 0x10000000u);
    EXPECT_EQ(req.m_sDataServerAddr, "10.0.0.2");
    EXPECT_EQ(req.m_nDataServerPort, 9000);
    EXPECT_TRUE(logged("Method \"POST\", url=\"\"", "DLNA_SP"));
}

TEST_F(Request, GetWithoutVersionFailsWithRedVersionError) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(req.parse(request({"GET /sp/control", "NTS: alive"})), 0);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "[DLNA_SP   ] \x1b[31mError  parsing HTTP version!\x1b[m\n");
    auto lines = host::logLinesContaining("Error  parsing HTTP version!");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].priority, 6);
    EXPECT_EQ(lines[0].tag, "DLNA_SP");
    EXPECT_FALSE(logged("Reponse has been parsed:", "DLNA_SP"));
    EXPECT_EQ(req.m_nMethod, 0);
    EXPECT_EQ(req.m_sUrl, "/sp/control");
}

TEST_F(Request, HeadWithUnknownVersionFails) {
    EXPECT_EQ(req.parse(request({"HEAD /sp/control HTTP/2.0"})), 0);
    EXPECT_TRUE(logged("Error  parsing HTTP version!", "DLNA_SP"));
}

TEST_F(Request, VersionIsLookedForOnlyAfterTheTarget) {
    // The target swallows the only version text: nothing is left to find it in.
    EXPECT_EQ(req.parse(request({"GET HTTP/1.1"})), 0);
    EXPECT_EQ(req.m_sUrl, "HTTP/1.1");
}

TEST_F(Request, Http11IsPreferredWhenBothVersionsAppear) {
    ASSERT_EQ(req.parse(request({"GET /x HTTP/1.0 HTTP/1.1"})), 1);
    EXPECT_EQ(req.m_nVersion, 1);
}

TEST_F(Request, Http10ConnectionCloseIsIgnoredWithWarning) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.0", "Connection: close"})), 1);
    EXPECT_FALSE(req.m_bKeepAlive);
    EXPECT_EQ(req.m_uFlags & 0x1u, 0u);
    EXPECT_TRUE(logged("WARNING: \"Connection\" field is ignored for HTTP 1.0", "DLNA_SP"));
}

TEST_F(Request, Http11ConnectionCloseClearsKeepAliveAndSetsFlagBitZero) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.1", "Connection: CLOSE, foo"})), 1);
    EXPECT_FALSE(req.m_bKeepAlive);
    EXPECT_EQ(req.m_uFlags, 0x1u);
    EXPECT_FALSE(logged("WARNING: \"Connection\" field is ignored for HTTP 1.0", "DLNA_SP"));
}

TEST_F(Request, Http11ConnectionKeepAliveSetsFlagBitZeroAndKeepsConnection) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.1", "Connection: keep-alive"})), 1);
    EXPECT_TRUE(req.m_bKeepAlive);
    EXPECT_EQ(req.m_uFlags, 0x1u);
}

TEST_F(Request, DataServerGivesAddressAndPort) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.1", "Data-Server: 192.168.1.7:8080"})), 1);
    EXPECT_EQ(req.m_sDataServerAddr, "192.168.1.7");
    EXPECT_EQ(req.m_nDataServerPort, 8080);
    EXPECT_TRUE(logged("strTemp=[192.168.1.7:8080]", "DLNA_SP"));
    EXPECT_TRUE(logged("Data Server INFO[192.168.1.7:8080]", "DLNA_SP"));
}

TEST_F(Request, DataServerWithoutColonIsIgnored) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.1", "Data-Server: 192.168.1.7"})), 1);
    EXPECT_EQ(req.m_sDataServerAddr, "");
    EXPECT_EQ(req.m_nDataServerPort, 0);
    EXPECT_TRUE(logged("invalid Data-Server Header", "DLNA_SP"));
    EXPECT_FALSE(logged("Data Server INFO[:0]", "DLNA_SP"));
}

TEST_F(Request, DataServerIsSplitAtItsLastColon) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "data-server: [fe80::1]:7000"})), 1);
    EXPECT_EQ(req.m_sDataServerAddr, "[fe80::1]");
    EXPECT_EQ(req.m_nDataServerPort, 7000);
}

TEST_F(Request, DataServerPortThatIsNotANumberReadsAsZero) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Data-Server: 10.1.1.1:http"})), 1);
    EXPECT_EQ(req.m_sDataServerAddr, "10.1.1.1");
    EXPECT_EQ(req.m_nDataServerPort, 0);
}

TEST_F(Request, HugeDataServerPortStopsAtTheLargestInt) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Data-Server: 10.1.1.1:99999999999999999999"})), 1);
    EXPECT_EQ(req.m_nDataServerPort, INT_MAX);
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Data-Server: 10.1.1.1:-99999999999999999999"})), 1);
    EXPECT_EQ(req.m_nDataServerPort, INT_MIN);
}

TEST_F(Request, UserAgentAfterMarkerIsStoredInLowerCase) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "User-Agent: Android ORB_SP_Galaxy S"})), 1);
    EXPECT_EQ(req.m_sUserAgent, "galaxy s");
}

TEST_F(Request, UserAgentWithoutMarkerIsStoredWholeInLowerCase) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "user-agent: Some Phone/1.0 orb_sp_x"})), 1);
    EXPECT_EQ(req.m_sUserAgent, "some phone/1.0 orb_sp_x") << "the marker is matched with its case";
}

TEST_F(Request, HostPNumberNoneAfterUserAgentStoresTheAgent) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "User-Agent: ORB_SP_Phone", "HOST-PNumber: none"})), 1);
    EXPECT_EQ(req.m_sHostPNumber, "phone");
}

TEST_F(Request, HostPNumberNoneBeforeUserAgentStoresEmptyText) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "HOST-PNumber: none", "User-Agent: ORB_SP_Phone"})), 1);
    EXPECT_EQ(req.m_sHostPNumber, "");
    EXPECT_EQ(req.m_sUserAgent, "phone");
}

TEST_F(Request, HostPNumberValueIsStoredAsReceived) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "host-pnumber: +81 90 1234"})), 1);
    EXPECT_EQ(req.m_sHostPNumber, "+81 90 1234");
}

TEST_F(Request, NtsAliveInCapitalsSetsAliveFlag) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "NTS: ALIVE"})), 1);
    EXPECT_EQ(req.m_uFlags, 0x10000000u);
}

TEST_F(Request, NtsByebyeSetsByebyeFlag) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "nts: ByeBye"})), 1);
    EXPECT_EQ(req.m_uFlags, 0x20000000u);
}

TEST_F(Request, NtsWithAnotherValueSetsNoFlag) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "NTS: alive-ish", "NTS: "})), 1);
    EXPECT_EQ(req.m_uFlags, 0u);
}

TEST_F(Request, AccessMethodNfcSetsOneAndIsLogged) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Access-Method: NFC"})), 1);
    EXPECT_EQ(req.m_nAccessMethod, 1);
    EXPECT_TRUE(logged("Access-Method INFO[1]", "DLNA_SP"));
}

TEST_F(Request, AccessMethodOtherThanNfcSetsZeroAndIsLogged) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Access-Method: nfc", "Access-Method: wifi"})), 1);
    EXPECT_EQ(req.m_nAccessMethod, 0) << "the last header wins";
    EXPECT_TRUE(logged("Access-Method INFO[1]", "DLNA_SP"));
    EXPECT_TRUE(logged("Access-Method INFO[0]", "DLNA_SP"));
}

TEST_F(Request, HeaderNameLosesTrailingBlanksAndValueLeadingBlanks) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "X-Name \t : \t value  "})), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"X-Name", "value  "}}));
}

TEST_F(Request, ValueRunsFromTheFirstColon) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Host: 10.0.0.1:8100"})), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"Host", "10.0.0.1:8100"}}));
}

TEST_F(Request, LineWithoutColonIsSkipped) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "garbage line", "NTS: alive"})), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"NTS", "alive"}}));
}

TEST_F(Request, EmptyHeaderNameIsKept) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", ": orphan"})), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"", "orphan"}}));
}

TEST_F(Request, HeadersAreKeptInArrivalOrderWithRangeAndUnknownOnes) {
    ASSERT_EQ(req.parse(request({"GET / HTTP/1.1", "Range: bytes=0-1", "X-A: 1", "X-A: 2", "NTS: alive"})), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"Range", "bytes=0-1"}, {"X-A", "1"}, {"X-A", "2"}, {"NTS", "alive"}}));
    EXPECT_TRUE(logged("Range:bytes=0-1", "DLNA_SP"));
    EXPECT_TRUE(logged("X-A:2", "DLNA_SP"));
}

TEST_F(Request, ParsingStopsAtTheEmptyLine) {
    ASSERT_EQ(req.parse("GET / HTTP/1.1\r\nNTS: alive\r\n\r\nNTS: byebye\r\n\r\n"), 1);
    EXPECT_EQ(req.m_uFlags, 0x10000000u);
    EXPECT_EQ(req.m_Headers.size(), 1u);
}

TEST_F(Request, LastLineWithoutCrLfIsNotRead) {
    ASSERT_EQ(req.parse("GET / HTTP/1.1\r\nNTS: alive\r\nAccess-Method: nfc"), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"NTS", "alive"}}));
    EXPECT_EQ(req.m_nAccessMethod, 0);
}

TEST_F(Request, BareLineFeedDoesNotEndALine) {
    ASSERT_EQ(req.parse("GET / HTTP/1.1\r\nNTS: alive\nAccess-Method: nfc\r\n\r\n"), 1);
    EXPECT_EQ(headersOf(req), (Headers{{"NTS", "alive\nAccess-Method: nfc"}}));
    EXPECT_EQ(req.m_uFlags, 0u);
}

TEST_F(Request, RequestLineWithoutCrLfLeavesAClearedRecordThatParsed) {
    // Nothing was read, so there is no version to complain about; the handler
    // sees method 2 and answers 501.
    EXPECT_EQ(req.parse("GET /sp/control HTTP/1.1"), 1);
    expectCleared(req);
    EXPECT_FALSE(logged("Error  parsing HTTP version!", "DLNA_SP"));
}

TEST_F(Request, EmptyTextLeavesAClearedRecord) {
    EXPECT_EQ(req.parse(""), 1);
    expectCleared(req);
    EXPECT_TRUE(logged("Reponse has been parsed:", "DLNA_SP"));
}

TEST_F(Request, AnotherParseStartsFromAClearedRecord) {
    ASSERT_EQ(req.parse(request({"GET /a HTTP/1.1", "NTS: alive", "User-Agent: ORB_SP_A", "HOST-PNumber: 1",
                                 "Data-Server: 1.2.3.4:5", "Access-Method: nfc"})),
              1);
    ASSERT_EQ(req.parse(request({"HEAD /b HTTP/1.0"})), 1);
    EXPECT_EQ(req.m_nMethod, 1);
    EXPECT_EQ(req.m_sUrl, "/b");
    EXPECT_EQ(req.m_nVersion, 0);
    EXPECT_EQ(req.m_sUserAgent, "");
    EXPECT_EQ(req.m_sHostPNumber, "");
    EXPECT_EQ(req.m_sDataServerAddr, "");
    EXPECT_EQ(req.m_nDataServerPort, 0);
    EXPECT_EQ(req.m_nAccessMethod, 0);
    EXPECT_TRUE(req.m_Headers.empty());
    EXPECT_EQ(req.m_uFlags, 0u);
}

TEST_F(Request, ClearResetsEveryField) {
    ASSERT_EQ(req.parse(request({"GET /a HTTP/1.1", "NTS: alive", "Data-Server: 1.2.3.4:5", "Connection: x"})), 1);
    req.m_uReserved = 7;
    req.clear();
    expectCleared(req);
}

TEST_F(Request, FullAnnouncementFillsEveryField) {
    ASSERT_EQ(req.parse(request({"GET /sp/control HTTP/1.1", "HOST: 192.168.0.1:8100", "NTS: alive",
                                 "User-Agent: ORB_SP_MyPhone", "HOST-PNumber: 09012345678",
                                 "Data-Server: 192.168.0.5:8080", "Access-Method: nfc", "Connection: close"})),
              1);
    EXPECT_EQ(req.m_nMethod, 0);
    EXPECT_EQ(req.m_nVersion, 1);
    EXPECT_EQ(req.m_sUrl, "/sp/control");
    EXPECT_EQ(req.m_sUserAgent, "myphone");
    EXPECT_EQ(req.m_sHostPNumber, "09012345678");
    EXPECT_EQ(req.m_sDataServerAddr, "192.168.0.5");
    EXPECT_EQ(req.m_nDataServerPort, 8080);
    EXPECT_EQ(req.m_nAccessMethod, 1);
    EXPECT_FALSE(req.m_bKeepAlive);
    EXPECT_EQ(req.m_uFlags, 0x10000001u);
    EXPECT_EQ(req.m_Headers.size(), 7u);
}

}  // namespace
