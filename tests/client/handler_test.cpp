// One file push over loopback: the test plays the phone's receiver, checks
// the announcement byte for byte and answers as phones do (or do not).
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "SP/SPDeviceName.h"
#include "SP/client/SPHTTPClientHandler.h"
#include "SP/osal/SPGenericSocket.h"
#include "client_support.h"
#include "nasl_wifi.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using namespace clienttest;
using testsupport::countLogged;
using testsupport::logged;
using testsupport::recvUntil;
using testsupport::sendAll;

namespace {

const char kMac[] = "02:00:7f:00:00:09";

std::string announcement(const std::string& name, const std::string& type, const std::string& length,
                         const std::string& video = "") {
    return "POST /mnt/sdcard/DCIM/Camera/TessalyLensmate/" + name + " HTTP/1.1 \r\n" +
           "Host: 192.168.104.1:18100\r\n"
           "User-Agent: ORB_SP_Camera\r\n"
           "Content-Type: " +
           type + "\r\nContent-Length: " + length + "\r\nConnection: Close\r\nExpect: 100-continue\r\n" + video + "\r\n";
}

int64_t msSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
}

std::string bytesOf(size_t n, int seed = 1) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 131 + seed * 7 + (i >> 9)) & 0xFF);
    return s;
}

class Push : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        strcpy(gDeviceName, "Camera");
        m_threads = baselineThreadCount();
        m_fds = testsupport::openDescriptorCount();
    }
    void TearDown() override {
        // Every path releases its socket and file and leaves no thread.
        EXPECT_EQ(testsupport::threadCount(), m_threads);
        EXPECT_EQ(testsupport::openDescriptorCount(), m_fds);
    }

    std::string file(const std::string& name, const std::string& bytes) {
        const std::string path = m_dir.path() + "/" + name;
        writeFile(path, bytes);
        return path;
    }
    std::unique_ptr<SPHTTPClientHandler> handler(const std::string& path, uint16_t port) {
        return std::make_unique<SPHTTPClientHandler>(&m_notifier, path.c_str(), "127.0.0.1", port, kMac);
    }
    // Starts h, waits for its final event and deletes it (joining its thread).
    void run(std::unique_ptr<SPHTTPClientHandler> h, int timeoutMs = 30000) {
        h->start();
        EXPECT_TRUE(m_events.waitFinals(1, timeoutMs)) << "no final event";
        h.reset();
    }
    // Pushes a small file to a phone that answers the announcement with
    // reply and then waits for the camera to close; returns what the phone
    // received after its answer (body bytes, if any were sent).
    std::string announceTo(const std::string& reply) {
        const std::string path = file("x.jpg", bytesOf(5000));
        std::string extra;
        Receiver phone([&](int fd) {
            recvUntil(fd, "\r\n\r\n", 10000);
            sendAll(fd, reply);
            extra = testsupport::recvAll(fd, 10000);
        });
        run(handler(path, phone.port()));
        phone.wait();
        return extra;
    }
    void pushEmptyFileAnsweredWith(const std::vector<std::string>& answers, int gapMs);
    std::vector<eSPNotifyClntEvent> kinds() {
        std::vector<eSPNotifyClntEvent> out;
        for (const Event& e : m_events.all()) out.push_back(e.event);
        return out;
    }

    testsupport::TempDir m_dir;
    EventLog m_events;
    RecordingNotifier m_notifier{&m_events};
    int m_threads = 0;
    int m_fds = 0;
};

TEST_F(Push, JpegIsAnnouncedByteForByteAndDeliveredWhole) {
    const std::string bytes = bytesOf(100000);
    const std::string path = file("DSC0001.JPG", bytes);
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_EQ(got.head, announcement("DSC0001.JPG", "image/jpeg", "100000"));
    EXPECT_EQ(got.body, bytes);
    const std::vector<Event> events = m_events.all();
    expectOneTransfer(events, EVENT_CLIENT_TRANSFER_COMPLETE);
    EXPECT_EQ(events.front().event, EVENT_CLIENT_TRANSFER_START);
    EXPECT_EQ(events.front().value, 0);
    EXPECT_EQ(events.back().value, 100);
    for (const Event& e : events) EXPECT_EQ(e.mac, kMac);
    EXPECT_EQ(m_notifier.reservedNonZero.load(), 0);
    EXPECT_TRUE(logged(">>>>>>>>>>  Starting Streaming connection with 02:00:7f:00:00:09", "DLNA_SP"));
    EXPECT_TRUE(logged("m_sMimetype=[image/jpeg]", "DLNA_SP"));
    EXPECT_TRUE(logged("Response is OK: 200 Received ", "DLNA_SP"));
}

TEST_F(Push, ProgressIsPostedOnlyWhenThePercentageChanges) {
    const std::string path = file("p.jpg", bytesOf(300 * 1024));
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    const std::vector<Event> events = m_events.all();
    expectOneTransfer(events, EVENT_CLIENT_TRANSFER_COMPLETE);
    std::vector<int> percents;
    for (const Event& e : events)
        if (e.event == EVENT_CLIENT_TRANSFER_PROGRESS) percents.push_back(e.value);
    // 15 chunks of 20 KiB out of 300 KiB: 6, 13, 20, ... 100.
    ASSERT_EQ(percents.size(), 15u);
    EXPECT_EQ(percents.front(), 6);
    EXPECT_EQ(percents.back(), 100);
    for (size_t i = 1; i < percents.size(); ++i) EXPECT_GT(percents[i], percents[i - 1]);
}

TEST_F(Push, PngIsAnnouncedWithAnEmptyContentType) {
    const std::string path = file("shot.png", bytesOf(3000));
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_EQ(got.head, announcement("shot.png", "", "3000"));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Push, FourLetterJpegExtensionIsNotTakenForJpg) {
    const std::string path = file("a.jpeg", bytesOf(10));
    SPHTTPClientHandler h(&m_notifier, path.c_str(), "127.0.0.1", 1, kMac);
    EXPECT_EQ(h.mimeType(), "");
    EXPECT_EQ(h.fileName(), "a.jpeg");
}

TEST_F(Push, VideoAnnouncementCarriesItsAttributesAndTheLettersLdAsDuration) {
    const std::string path = file("MOV0001.MP4", makeMp4());
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    phone.wait();
    const std::string length = std::to_string(readFile(path).size());
    EXPECT_EQ(got.head, announcement("MOV0001.MP4", "video/mp4", length,
                                     "Resolution: 1920X1080\r\nFramerate: 30.000000\r\nDuration: ld\r\n"));
    EXPECT_TRUE(logged("nWidth = 1920, m_nHeight = 1080, m_ulDuration = 10010l, m_fps = 30.000000", "DLNA_SP"));
    EXPECT_TRUE(logged("nResolution = 1920X1080", "DLNA_SP"));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Push, UnreadableVideoIsStillPushedWithZeroAttributes) {
    const std::string path = file("bad.mp4", "not a video");
    host::scriptResult("NASLWifi_getVideoAttribute", 0);
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_TRUE(logged("ASLWifi_getVideoAttribute Error!!!", "DLNA_SP"));
    EXPECT_EQ(got.head,
              announcement("bad.mp4", "video/mp4", "11", "Resolution: 0X0\r\nFramerate: 0.000000\r\nDuration: ld\r\n"));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Push, StorageFullRefusalGivesItsOwnEventAndNoStart) {
    EXPECT_EQ(announceTo("HTTP/1.1 500 Internal Server Error\r\nSub-ErrorCode: 2502\r\n\r\n"), "");
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_VOLUME_STORTAGE});
    EXPECT_EQ(m_events.all().front().value, 0);
    EXPECT_TRUE(logged("STREAM_EXCEED_STORAGE_SPACE", "DLNA_SP"));
}

TEST_F(Push, UnsupportedFileRefusalGivesItsOwnEvent) {
    EXPECT_EQ(announceTo("HTTP/1.1 500 Error\r\nsub-errorcode: 2503\r\n\r\n"), "");
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_NOT_SUPPORTED_FILE});
    EXPECT_TRUE(logged("NOT Supported File", "DLNA_SP"));
}

TEST_F(Push, OtherServerErrorFailsWithItsSubErrorLogged) {
    EXPECT_EQ(announceTo("HTTP/1.1 500 Error\r\nSub-ErrorCode: 7\r\n\r\n"), "");
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged("STREAM_FAIL 1...7", "DLNA_SP"));
}

TEST_F(Push, FinalAnswerInsteadOf100FailsWithoutStart) {
    EXPECT_EQ(announceTo("HTTP/1.1 200 OK\r\n\r\n"), "");
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged("STREAM_FAIL 2...0", "DLNA_SP"));
}

TEST_F(Push, ReplyArrivingInPiecesIsGathered) {
    const std::string bytes = bytesOf(2000);
    const std::string path = file("x.jpg", bytes);
    std::string body;
    Receiver phone([&](int fd) {
        recvUntil(fd, "\r\n\r\n", 10000);
        sendAll(fd, "HTTP/1.1 10");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        sendAll(fd, "0 Continue\r\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        sendAll(fd, "\r\n");
        body = recvExactly(fd, bytes.size(), 10000);
        sendAll(fd, "HTTP/1.1 200 OK\r\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        sendAll(fd, "Content-Length: 0\r\n\r\n");
        testsupport::peerClosed(fd, 5000);
    });
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_EQ(body, bytes);
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Push, FinalAnswerOtherThan200Fails) {
    const std::string path = file("x.jpg", bytesOf(2000));
    Received got;
    Receiver phone(acceptingPhone(&got, "HTTP/1.1 404 Not Found\r\n\r\n"));
    run(handler(path, phone.port()));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_TRUE(logged("error response: 404", "DLNA_SP"));
}

TEST_F(Push, SilentPhoneFailsAfterThreeReplyPeriods) {
    const std::string path = file("x.jpg", bytesOf(2000));
    Receiver phone([](int fd) {
        recvUntil(fd, "\r\n\r\n", 10000);
        testsupport::peerClosed(fd, 60000);
    });
    const auto t0 = std::chrono::steady_clock::now();
    run(handler(path, phone.port()), 60000);
    const int64_t took = msSince(t0);
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged("Timedout.. No response", "DLNA_SP"));
    EXPECT_TRUE(logged("HTTP Connection Timeout - thread will be stopped!", "DLNA_SP"));
    EXPECT_TRUE(logged("Error: can't receive HTTP reply", "DLNA_SP"));
    EXPECT_GE(took, 3 * 7000 - 50);
    EXPECT_LT(took, 45000);
}

TEST_F(Push, StopIsSeenWithinASecondWhileASilentPhonesReplyIsAwaited) {
    // Without the stop, each of the three reply periods waits 7 s for a
    // phone that says nothing; a stop must not wait for a period to end.
    const std::string path = file("x.jpg", bytesOf(2000));
    Receiver phone([](int fd) {
        recvUntil(fd, "\r\n\r\n", 10000);
        testsupport::peerClosed(fd, 30000);
    });
    auto h = handler(path, phone.port());
    h->start();
    EXPECT_FALSE(m_events.waitFinals(1, 1500)) << "still waiting for the reply";
    const auto t0 = std::chrono::steady_clock::now();
    h.reset();  // stop and join
    EXPECT_LT(msSince(t0), 3000);
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged(" Exiting from readResponse: No Data Read", "DLNA_SP"));
    EXPECT_FALSE(logged("Timedout.. No response", "DLNA_SP"));
    phone.wait();
}

TEST_F(Push, PhoneClosingWithoutAnswerFailsWithoutWaitingOut) {
    const std::string path = file("x.jpg", bytesOf(2000));
    Receiver phone([](int fd) { recvUntil(fd, "\r\n\r\n", 10000); });
    const auto t0 = std::chrono::steady_clock::now();
    run(handler(path, phone.port()));
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged(" Exiting from readResponse: No Data Read", "DLNA_SP"));
    EXPECT_LT(msSince(t0), 6000);
}

TEST_F(Push, PhoneResettingInsteadOfTheFinalAnswerFailsAtOnce) {
    const std::string bytes = bytesOf(30000);
    const std::string path = file("x.jpg", bytes);
    Receiver phone([&](int fd) {
        const std::string head = recvUntil(fd, "\r\n\r\n", 10000);
        sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
        recvExactly(fd, bytes.size(), 10000);
        const linger reset = {1, 0};  // close with a reset instead of an answer
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    });
    const auto t0 = std::chrono::steady_clock::now();
    run(handler(path, phone.port()));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_TRUE(logged("Error: can't receive HTTP reply", "DLNA_SP"));
    EXPECT_LT(msSince(t0), 6000);
}

TEST_F(Push, EndlessReplyHeadIsGivenUp) {
    const std::string path = file("x.jpg", bytesOf(2000));
    Receiver phone([](int fd) {
        recvUntil(fd, "\r\n\r\n", 10000);
        sendAll(fd, "HTTP/1.1 100 Continue\r\n" + std::string(200 * 1024, 'x'));
        testsupport::peerClosed(fd, 10000);
    });
    run(handler(path, phone.port()));
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    bool corrupted = false;
    for (const std::string& m : testsupport::messages("DLNA_SP"))
        if (m.rfind("HTTP Connection: received corrupted HTTP header:\n", 0) == 0) corrupted = true;
    EXPECT_TRUE(corrupted);
}

TEST_F(Push, PhoneClosingMidBodyFailsTheTransfer) {
    const std::string path = file("big.jpg", bytesOf(4 * 1024 * 1024));
    Receiver phone([](int fd) {
        recvUntil(fd, "\r\n\r\n", 10000);
        sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
        recvExactly(fd, 100 * 1024, 10000);
        // Close with unread data: the camera's next sends meet a reset.
    });
    run(handler(path, phone.port()));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(m_events.all().front().event, EVENT_CLIENT_TRANSFER_START);
    EXPECT_TRUE(logged("Error while sending HTTP stream", "DLNA_SP"));
}

TEST_F(Push, StopDuringTheBodyEndsWithFailNeverComplete) {
    const std::string path = file("big.jpg", bytesOf(4 * 1024 * 1024));
    Received got;
    Receiver phone(acceptingPhone(&got));
    auto h = handler(path, phone.port());
    h->start();
    ASSERT_TRUE(m_events.waitFor(EVENT_CLIENT_TRANSFER_PROGRESS, 20000));
    EXPECT_EQ(countThreadsNamed("SPClientThread"), 1);
    h->requestExit();
    ASSERT_TRUE(m_events.waitFinals(1, 10000));
    h.reset();
    phone.wait();
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_TRUE(got.closedEarly);
    EXPECT_LT(got.body.size(), 4u * 1024 * 1024);
}

TEST_F(Push, DeletingARunningTransferStopsAndJoinsItFirst) {
    const std::string path = file("big.jpg", bytesOf(4 * 1024 * 1024));
    Received got;
    Receiver phone(acceptingPhone(&got));
    auto h = handler(path, phone.port());
    h->start();
    ASSERT_TRUE(m_events.waitFor(EVENT_CLIENT_TRANSFER_PROGRESS, 20000));
    h.reset();  // must not return before the thread is over
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_TRUE(logged("SPHTTPClientHandler destruct !!!", "DLNA_SP"));
}

TEST_F(Push, FileSmallerThanOneKilobyteCompletesWithoutProgress) {
    const std::string bytes = bytesOf(700);
    const std::string path = file("tiny.jpg", bytes);
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_EQ(got.body, bytes);
    // The percentage base is 0: no division, every percentage stays 0.
    EXPECT_EQ(kinds(), (std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_START, EVENT_CLIENT_TRANSFER_COMPLETE}));
}

// Pushes an empty file to a phone that sends `answers` after the
// announcement, the pieces `gapMs` apart; the empty body leaves nothing
// between the 100 and the final answer. Checks the whole exchange completes.
void Push::pushEmptyFileAnsweredWith(const std::vector<std::string>& answers, int gapMs) {
    const std::string path = file("empty.jpg", "");
    std::string head, extra;
    Receiver phone([&](int fd) {
        head = recvUntil(fd, "\r\n\r\n", 10000);
        for (size_t i = 0; i < answers.size(); ++i) {
            if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(gapMs));
            sendAll(fd, answers[i]);
        }
        extra = testsupport::recvAll(fd, 10000);
    });
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_EQ(head, announcement("empty.jpg", "image/jpeg", "0"));
    EXPECT_EQ(extra, "");
    EXPECT_EQ(kinds(), (std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_START, EVENT_CLIENT_TRANSFER_COMPLETE}));
    EXPECT_TRUE(logged("Response is OK: 200 Received ", "DLNA_SP"));
}

TEST_F(Push, EmptyFileGoesFrom100StraightToTheFinalAnswer) {
    // Both answers in one segment (phones often answer an empty body so): the
    // final answer after the 100 must be read from what came with it.
    pushEmptyFileAnsweredWith({"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n\r\n"}, 0);
}

TEST_F(Push, EmptyFileWhose100AndFinalAnswerComeApartCompletes) {
    // The two answers in two segments: the final answer is waited for after
    // the 100.
    pushEmptyFileAnsweredWith({"HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 200 OK\r\n\r\n"}, 300);
}

TEST_F(Push, SparseFileOfThreeGibibytesAnnouncesItsFull64BitLength) {
    const std::string path = m_dir.path() + "/long.mp4";
    ASSERT_TRUE(makeSparseFile(path, 3ull << 30));
    host::scriptResult("NASLWifi_getVideoAttribute", 0);  // zeros: no movie box in it
    std::string head;
    std::atomic<bool> bodyFlowing{false};
    Receiver phone([&](int c) {
        head = recvUntil(c, "\r\n\r\n", 10000);
        sendAll(c, "HTTP/1.1 100 Continue\r\n\r\n");
        recvExactly(c, 200 * 1024, 10000);
        bodyFlowing = true;
        testsupport::recvAll(c, 20000);
    });
    auto h = handler(path, phone.port());
    h->start();
    for (int i = 0; i < 200 && !bodyFlowing; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(bodyFlowing);
    h->requestExit();
    ASSERT_TRUE(m_events.waitFinals(1, 10000));
    h.reset();
    phone.wait();
    EXPECT_EQ(head, announcement("long.mp4", "video/mp4", "3221225472",
                                 "Resolution: 0X0\r\nFramerate: 0.000000\r\nDuration: ld\r\n"));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_FAIL);
}

TEST_F(Push, ResizedBufferIsSentInsteadOfTheFile) {
    std::string path = file("DSC0002.JPG", makeJpeg(4000, 3000));
    char* buffer = nullptr;
    int length = 0;
    ASSERT_EQ(NASLWifi_jpegResizeInMemory(&path[0], WIFI_RESIZE_PIXEL_1920, buffer, length), 1);
    Received got;
    Receiver phone(acceptingPhone(&got));
    auto h = handler(path, phone.port());
    h->setResizeParams(true, buffer, static_cast<unsigned int>(length));
    run(std::move(h));
    phone.wait();
    EXPECT_EQ(got.head, announcement("DSC0002.JPG", "image/jpeg", std::to_string(length)));
    EXPECT_EQ(got.body, std::string(buffer, static_cast<size_t>(length)));
    int w = 0, hgt = 0;
    ASSERT_TRUE(jpegSize(got.body, &w, &hgt));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(hgt, 1440);
    EXPECT_TRUE(logged("Send resized file with length " + std::to_string(length), "DLNA_SP"));
    expectOneTransfer(m_events.all(), EVENT_CLIENT_TRANSFER_COMPLETE);
    NASLWifi_jpegResizeFree(buffer);
}

TEST_F(Push, InvalidResizedBufferFailsBeforeConnecting) {
    const std::string path = file("x.jpg", bytesOf(10));
    Receiver phone([](int) {});
    auto h = handler(path, phone.port());
    h->setResizeParams(true, nullptr, 0);
    run(std::move(h));
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged("Invalid Resized File size or Buffer ", "DLNA_SP"));
    EXPECT_EQ(phone.accepted(), 0);
}

TEST_F(Push, MissingFileFailsBeforeConnecting) {
    Receiver phone([](int) {});
    run(handler(m_dir.path() + "/gone.jpg", phone.port()));
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged("file open error", "DLNA_SP"));
    EXPECT_EQ(phone.accepted(), 0);
}

TEST_F(Push, RefusedConnectionFails) {
    const std::string path = file("x.jpg", bytesOf(10));
    ClosedLoopbackPort nobody;
    run(handler(path, nobody.port()));
    EXPECT_EQ(kinds(), std::vector<eSPNotifyClntEvent>{EVENT_CLIENT_TRANSFER_FAIL});
    EXPECT_TRUE(logged("connect error", "DLNA_SP"));
}

// ---- Turn-down request -----------------------------------------------------------

TEST_F(Push, TurnDownRequestArrivesByteForByte) {
    std::string got;
    Receiver phone([&](int fd) { got = testsupport::recvAll(fd, 10000); });
    SPHTTPClientHandler h("127.0.0.1", phone.port());
    EXPECT_TRUE(h.turnDownRequestHandler());
    phone.wait();
    EXPECT_EQ(got, "HEAD /sp/AppControl HTTP/1.1 \r\nHost: 127.0.0.1:" + std::to_string(phone.port()) +
                       "\r\nUser-Agent: ORB_SP_Camera\r\nConnection: Close\r\nCommand: Getout\r\n"
                       "HOST-Pnumber:none\r\n\r\n");
    EXPECT_TRUE(logged("connection IP        : [127.0.0.1]", "DLNA_SP"));
}

TEST_F(Push, TurnDownGivesUpAfterThreeFailedSends) {
    Receiver phone([](int fd) { testsupport::recvAll(fd, 10000); });
    SPHTTPClientHandler h("127.0.0.1", phone.port());
    h.requestExit();  // every send is refused as cancelled
    EXPECT_FALSE(h.turnDownRequestHandler());
    EXPECT_EQ(countLogged("[SPHTTPClientHandler::sendData] Sending operaition is cancelled!", "DLNA_SP"), 3);
    EXPECT_EQ(countLogged("[SP] can't send HTTP Turn down request ", "DLNA_SP"), 3);
    EXPECT_EQ(countLogged("[SP] Maximum retries attempted ", "DLNA_SP"), 1);
}

TEST_F(Push, TurnDownToNobodyReportsConnectError) {
    ClosedLoopbackPort nobody;
    SPHTTPClientHandler h("127.0.0.1", nobody.port());
    EXPECT_FALSE(h.turnDownRequestHandler());
    EXPECT_TRUE(logged("[SP] connect error", "DLNA_SP"));
}

// ---- Small operations ----------------------------------------------------------

TEST_F(Push, UnfoldRequestJoinsFoldedHeaderLines) {
    SPHTTPClientHandler h;
    std::string text = "A: one\r\n two\r\n\tthree\r\nB: x\r\n\r\n";
    h.unfoldRequest(text);
    EXPECT_EQ(text, "A: one two\tthree\r\nB: x\r\n\r\n");
}

TEST_F(Push, RequestPendingTellsWhetherTheSocketIsReadable) {
    uint16_t port = 0;
    const int lfd = testsupport::listenLoopback(&port);
    ASSERT_GE(lfd, 0);
    const int peer = testsupport::connectFrom("", "127.0.0.1", port);
    const int cfd = accept(lfd, nullptr, nullptr);
    close(lfd);
    ASSERT_GT(cfd, 0);
    {
        SPHTTPClientHandler h(new SPTCPSocket(static_cast<unsigned int>(cfd)));
        EXPECT_FALSE(h.isRequestPending());
        sendAll(peer, "x");
        bool pending = false;
        for (int i = 0; i < 100 && !pending; ++i) {
            pending = h.isRequestPending();
            if (!pending) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_TRUE(pending);
    }  // the adopted socket goes with the handler
    close(peer);
}

TEST_F(Push, DeviceNameIsTheUserAgentSuffix) {
    strcpy(gDeviceName, "X-T5");
    const std::string path = file("n.jpg", bytesOf(10));
    Received got;
    Receiver phone(acceptingPhone(&got));
    run(handler(path, phone.port()));
    phone.wait();
    EXPECT_NE(got.head.find("\r\nUser-Agent: ORB_SP_X-T5\r\n"), std::string::npos);
}

}  // namespace
