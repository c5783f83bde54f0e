// The real stack's HTTP streaming server, over loopback with raw sockets.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "http_client.h"
#include "streaming_server.h"
#include "support/test_support.h"

using camwifi::upnp::HttpResult;
using camwifi::upnp::HttpStreamingServer;
using camwifi::upnp::httpRequest;
using camwifi::upnp::parseRequestHead;
using camwifi::upnp::StreamingRequest;

namespace {

void writeFile(const std::string& path, const std::string& data) {
    std::ofstream out(path, std::ios::binary);
    out << data;
}

std::string pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i % 26);
    return s;
}

class StreamingServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        media = dir.path() + "/DCIM";
        mkdir(media.c_str(), 0755);
        writeFile(media + "/photo.JPG", pattern(100000));
        writeFile(media + "/clip.mp4", pattern(5000));
        writeFile(dir.path() + "/secret.txt", "secret");
        // Port 0 is refused; find a free one by binding and releasing it.
        for (int p = 18200; p < 18300 && port == 0; ++p)
            if (server.start(p, {media}) == 0) port = p;
        ASSERT_NE(port, 0);
    }
    std::string url(const std::string& path) { return "http://127.0.0.1:" + std::to_string(port) + path; }
    HttpResult get(const std::string& path, std::vector<std::pair<std::string, std::string>> headers = {},
                   const std::string& method = "GET") {
        return httpRequest(method, url(path), headers, "", 5000);
    }
    testsupport::TempDir dir;
    std::string media;
    HttpStreamingServer server;
    int port = 0;
};

std::string header(const HttpResult& r, const std::string& name) {
    const std::string* v = camwifi::upnp::findHeader(r.headers, name);
    return v ? *v : "(none)";
}

}  // namespace

TEST_F(StreamingServerTest, ServesAWholeFileWithTypeLengthAndDlnaHeaders) {
    HttpResult r = get(media + "/photo.JPG");
    ASSERT_EQ(r.outcome, HttpResult::kOk) << r.error;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, pattern(100000));
    EXPECT_EQ(header(r, "Content-Type"), "image/jpeg");
    EXPECT_EQ(header(r, "Content-Length"), "100000");
    EXPECT_EQ(header(r, "Accept-Ranges"), "bytes");
    EXPECT_EQ(header(r, "transferMode.dlna.org"), "Interactive");
    EXPECT_NE(header(r, "contentFeatures.dlna.org").find("DLNA.ORG_OP=01"), std::string::npos);
    // The server counts a chunk after sending it: give its thread a moment.
    for (int i = 0; i < 200 && server.bytesSent() < 100000u; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(server.bytesSent(), 100000u);
}

TEST_F(StreamingServerTest, CountsEachFileSentToItsLastByte) {
    EXPECT_EQ(server.wholeFilesSent(media + "/photo.JPG"), 0u);
    ASSERT_EQ(get(media + "/photo.JPG").status, 200);
    ASSERT_EQ(get(media + "/photo.JPG", {{"Range", "bytes=0-"}}).status, 206);
    // Neither a part nor the headers alone is the whole file.
    ASSERT_EQ(get(media + "/photo.JPG", {{"Range", "bytes=10-"}}).status, 206);
    ASSERT_EQ(get(media + "/photo.JPG", {}, "HEAD").status, 200);
    for (int i = 0; i < 200 && server.wholeFilesSent(media + "/photo.JPG") < 2u; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(server.wholeFilesSent(media + "/photo.JPG"), 2u);
    EXPECT_EQ(server.wholeFilesSent(media + "/clip.mp4"), 0u);
}

TEST_F(StreamingServerTest, VideoIsServedAsMp4Streaming) {
    HttpResult r = get(media + "/clip.mp4");
    ASSERT_EQ(r.status, 200);
    EXPECT_EQ(header(r, "Content-Type"), "video/mp4");
    EXPECT_EQ(header(r, "transferMode.dlna.org"), "Streaming");
}

TEST_F(StreamingServerTest, HeadAnswersHeadersWithoutBody) {
    HttpResult r = get(media + "/photo.JPG", {}, "HEAD");
    ASSERT_EQ(r.outcome, HttpResult::kOk) << r.error;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(header(r, "Content-Length"), "100000");
    EXPECT_EQ(server.bytesSent(), 0u);
}

TEST_F(StreamingServerTest, SingleByteRangeGets206WithContentRange) {
    HttpResult r = get(media + "/photo.JPG", {{"Range", "bytes=10-19"}});
    ASSERT_EQ(r.status, 206);
    EXPECT_EQ(r.body, pattern(100000).substr(10, 10));
    EXPECT_EQ(header(r, "Content-Range"), "bytes 10-19/100000");
    EXPECT_EQ(header(r, "Content-Length"), "10");

    r = get(media + "/photo.JPG", {{"Range", "bytes=99990-"}});
    EXPECT_EQ(r.status, 206);
    EXPECT_EQ(header(r, "Content-Range"), "bytes 99990-99999/100000");
    r = get(media + "/photo.JPG", {{"Range", "bytes=-5"}});
    EXPECT_EQ(r.status, 206);
    EXPECT_EQ(r.body, pattern(100000).substr(99995));
}

TEST_F(StreamingServerTest, RangePastTheEndGets416) {
    HttpResult r = get(media + "/photo.JPG", {{"Range", "bytes=100000-"}});
    EXPECT_EQ(r.status, 416);
    EXPECT_EQ(header(r, "Content-Range"), "bytes */100000");
}

TEST_F(StreamingServerTest, DotDotSegmentsAreForbidden) {
    EXPECT_EQ(get(media + "/../secret.txt").status, 403);
    EXPECT_EQ(get(media + "/%2e%2e/secret.txt").status, 403);
}

TEST_F(StreamingServerTest, FilesOutsideTheMediaFoldersAreForbidden) {
    EXPECT_EQ(get(dir.path() + "/secret.txt").status, 403);
    EXPECT_EQ(get("/etc/passwd").status, 403);
}

TEST_F(StreamingServerTest, SymlinkLeavingTheMediaFolderIsForbidden) {
    ASSERT_EQ(symlink((dir.path() + "/secret.txt").c_str(), (media + "/link.jpg").c_str()), 0);
    EXPECT_EQ(get(media + "/link.jpg").status, 403);
}

TEST_F(StreamingServerTest, MissingFileIsNotFound) { EXPECT_EQ(get(media + "/none.jpg").status, 404); }

TEST_F(StreamingServerTest, OtherMethodsAreRefused) {
    EXPECT_EQ(httpRequest("POST", url(media + "/photo.JPG"), {}, "x", 5000).status, 405);
}

TEST_F(StreamingServerTest, ManyClientsAtOnceEachGetTheWholeFile) {
    std::vector<std::thread> clients;
    std::atomic<int> whole{0};
    for (int i = 0; i < 12; ++i)
        clients.emplace_back([&] {
            HttpResult r = get(media + "/photo.JPG");
            if (r.status == 200 && r.body.size() == 100000) ++whole;
        });
    for (auto& t : clients) t.join();
    EXPECT_EQ(whole, 12);
}

TEST_F(StreamingServerTest, ClientLeavingMidFileCostsNothing) {
    // A big file, a client that reads a little and closes; the server stays
    // able to serve and stops at once.
    writeFile(media + "/big.mp4", pattern(20 * 1024 * 1024));
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    std::string req = "GET " + media + "/big.mp4 HTTP/1.1\r\nHost: x\r\n\r\n";
    ASSERT_EQ(send(fd, req.data(), req.size(), 0), static_cast<ssize_t>(req.size()));
    char buf[4096];
    ASSERT_GT(recv(fd, buf, sizeof buf, 0), 0);
    close(fd);
    EXPECT_EQ(get(media + "/photo.JPG").status, 200);
    auto t0 = std::chrono::steady_clock::now();
    server.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
    EXPECT_LT(server.bytesSent(), 20u * 1024 * 1024 + 100000u);
}

TEST_F(StreamingServerTest, ClientThatNeverSendsARequestDoesNotHoldStop) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    auto t0 = std::chrono::steady_clock::now();
    server.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(3));
    close(fd);
}

TEST(StreamingRange, MalformedOrMultipleRangesServeTheWholeFile) {
    uint64_t a = 0, b = 0;
    using camwifi::upnp::RangeKind;
    using camwifi::upnp::parseRange;
    EXPECT_EQ(parseRange("bytes=0-1,5-6", 100, &a, &b), RangeKind::kWhole);
    EXPECT_EQ(parseRange("items=0-1", 100, &a, &b), RangeKind::kWhole);
    EXPECT_EQ(parseRange("bytes=9-2", 100, &a, &b), RangeKind::kWhole);
    EXPECT_EQ(parseRange("bytes=x-", 100, &a, &b), RangeKind::kWhole);
    EXPECT_EQ(parseRange("bytes=99999999999999999999-", 100, &a, &b), RangeKind::kWhole);
    EXPECT_EQ(parseRange("bytes=0-1000", 100, &a, &b), RangeKind::kPart);
    EXPECT_EQ(b, 99u);
    EXPECT_EQ(parseRange("bytes=-0", 100, &a, &b), RangeKind::kUnsatisfiable);
}

TEST(StreamingPaths, BadEscapesAndNulAreRejected) {
    std::string p;
    EXPECT_FALSE(camwifi::upnp::decodeTargetPath("/a%2", &p));
    EXPECT_FALSE(camwifi::upnp::decodeTargetPath("/a%zz", &p));
    EXPECT_FALSE(camwifi::upnp::decodeTargetPath("/a%00b", &p));
    EXPECT_FALSE(camwifi::upnp::decodeTargetPath("a", &p));
    ASSERT_TRUE(camwifi::upnp::decodeTargetPath("/mnt/mmc/DCIM/a%20b.jpg?x=1", &p));
    EXPECT_EQ(p, "/mnt/mmc/DCIM/a b.jpg");
}

TEST(StreamingRequestHead, ReadsMethodTargetAndTrimmedHeaders) {
    StreamingRequest r;
    ASSERT_TRUE(parseRequestHead("GET /DCIM/a.jpg HTTP/1.1\r\nRange:  bytes=1-2 \r\nHost: x\r\n\r\n", &r));
    EXPECT_EQ(r.method, "GET");
    EXPECT_EQ(r.target, "/DCIM/a.jpg");
    ASSERT_EQ(r.headers.size(), 2u);
    EXPECT_EQ(r.headers[0].first, "Range");
    EXPECT_EQ(r.headers[0].second, "bytes=1-2");
    ASSERT_TRUE(parseRequestHead("HEAD / HTTP/1.0\r\n\r\n", &r));
    EXPECT_TRUE(r.headers.empty());
}

TEST(StreamingRequestHead, MalformedHeadsAreRefused) {
    StreamingRequest r;
    EXPECT_FALSE(parseRequestHead("GET /a HTTP/1.1\r\n", &r));              // no end of head
    EXPECT_FALSE(parseRequestHead("GET /a\r\n\r\n", &r));                    // no version
    EXPECT_FALSE(parseRequestHead("GET /a FTP/1.0\r\n\r\n", &r));            // not HTTP
    EXPECT_FALSE(parseRequestHead("GET /a HTTP/1.1\r\nNoColon\r\n\r\n", &r));  // header without ':'
    EXPECT_FALSE(parseRequestHead("GET /a HTTP/1.1\r\n: x\r\n\r\n", &r));        // header without a name
}
