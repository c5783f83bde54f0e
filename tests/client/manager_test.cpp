// The client manager: the singleton's life, transfers by phone, resizing once
// per picture, the stop walks (every second transfer passed over by design)
// and reaping what is left when the manager goes.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <map>
#include <thread>

#include "SP/SPDeviceName.h"
#include "SP/client/SPClientManager.h"
#include "SP/client/SPHTTPClientHandler.h"
#include "client_support.h"
#include "host_jpeg.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"

using namespace clienttest;
using testsupport::countLogged;
using testsupport::logged;

namespace {

const char* const kMacs[] = {"02:00:7f:00:00:01", "02:00:7f:00:00:02", "02:00:7f:00:00:03"};

std::string bytesOf(size_t n, int seed = 1) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 31 + seed * 11 + (i >> 10)) & 0xFF);
    return s;
}

int64_t msSince(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
}

// Waits (bounded) until the process is back to `threads` threads: a thread
// that deleted its own handler ends a moment after its last event.
bool threadsBackTo(int threads) {
    for (int i = 0; i < 200; ++i) {
        if (testsupport::threadCount() == threads) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return testsupport::threadCount() == threads;
}

class Manager : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        strcpy(gDeviceName, "Camera");
        callbackLog().clear();
        m_threads = baselineThreadCount();
        m_live = host::jpeg::liveResizeBuffers();
        m_mgr = SPClientManager::getInstance();
        m_mgr->setCallback(recordCallback);
    }
    void TearDown() override {
        SPClientManager::destroyInstance();
        // Nothing left running, every resized buffer released exactly once.
        EXPECT_TRUE(threadsBackTo(m_threads));
        EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_live);
        EXPECT_EQ(host::jpeg::strayResizeFrees(), 0u);
    }
    std::string file(const std::string& name, const std::string& bytes) {
        const std::string path = m_dir.path() + "/" + name;
        writeFile(path, bytes);
        return path;
    }
    void push(const std::string& path, const Receiver& phone, const char* mac) {
        m_mgr->createFileTransfer(path.c_str(), "127.0.0.1", mac, phone.port());
    }
    // Pushes bytes as name to one phone and waits for the end; returns what
    // the phone received.
    Received pushOne(const std::string& name, const std::string& bytes) {
        Received got;
        Receiver phone(acceptingPhone(&got));
        push(file(name, bytes), phone, kMacs[0]);
        EXPECT_TRUE(callbackLog().waitFinals(1, 30000));
        phone.wait();
        return got;
    }
    size_t resizeCalls() { return host::journalEntries("NASLWifi_jpegResizeInMemory").size(); }

    testsupport::TempDir m_dir;
    SPClientManager* m_mgr = nullptr;
    int m_threads = 0;
    size_t m_live = 0;
};

TEST_F(Manager, GetInstanceGivesTheSameManagerUntilItIsDestroyed) {
    EXPECT_EQ(SPClientManager::getInstance(), m_mgr);
    m_mgr->setImageTransferSize(1);
    SPClientManager::destroyInstance();
    SPClientManager* fresh = SPClientManager::getInstance();
    EXPECT_EQ(fresh->getImageTransferSize(), 0);
    EXPECT_EQ(fresh->transferCount(), 0u);
    SPClientManager::destroyInstance();
    SPClientManager::destroyInstance();  // nothing to destroy: harmless
}

TEST_F(Manager, PushReportsStartProgressAndCompletionThroughTheCallback) {
    const std::string bytes = bytesOf(200 * 1024);
    EXPECT_EQ(pushOne("a.jpg", bytes).body, bytes);
    const std::vector<Event> events = callbackLog().all();
    expectOneTransfer(events, EVENT_CLIENT_TRANSFER_COMPLETE);
    EXPECT_EQ(events.back().value, 100);
    for (const Event& e : events) {
        EXPECT_EQ(e.mac, kMacs[0]);
        if (e.event == EVENT_CLIENT_TRANSFER_PROGRESS) {
            EXPECT_NE(e.value, 0);
        }
    }
    EXPECT_TRUE(logged(" !! No Resize required !! ", "DLNA_SP"));
    EXPECT_TRUE(logged("SPClientManager Event : EVENT_CLIENT_TRANSFER_START!!", "DLNA_SP"));
    EXPECT_TRUE(logged("SPClientManager Event : !!", "DLNA_SP"));
    EXPECT_EQ(resizeCalls(), 0u);
    // A finished transfer stays until it is replaced, stopped or deleted.
    EXPECT_NE(m_mgr->getHTTPClientHandlerbyMac(kMacs[0]), nullptr);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
}

TEST_F(Manager, SamePictureToTwoPhonesIsResizedOnce) {
    m_mgr->setImageTransferSize(1);
    const std::string path = file("DSC0100.JPG", makeJpeg(4000, 3000));
    Received one, two;
    Receiver phone1(acceptingPhone(&one)), phone2(acceptingPhone(&two));
    push(path, phone1, kMacs[0]);
    push(path, phone2, kMacs[1]);
    ASSERT_TRUE(callbackLog().waitFinals(2, 30000));
    phone1.wait();
    phone2.wait();
    EXPECT_EQ(resizeCalls(), 1u);
    EXPECT_EQ(countLogged("Calling resize function ASLWifi_jpegResizeInMemory ", "DLNA_SP"), 1);
    EXPECT_EQ(countLogged("This image file should be rezied before transfer ", "DLNA_SP"), 2);
    EXPECT_EQ(one.body, two.body);
    int w = 0, h = 0;
    ASSERT_TRUE(jpegSize(one.body, &w, &h));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(h, 1440);
    expectOneTransfer(callbackLog().of(kMacs[0]), EVENT_CLIENT_TRANSFER_COMPLETE);
    expectOneTransfer(callbackLog().of(kMacs[1]), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Manager, FourLetterJpegExtensionIsSentUnchangedInResizeMode) {
    m_mgr->setImageTransferSize(1);
    const std::string bytes = makeJpeg(4000, 3000);
    EXPECT_EQ(pushOne("DSC0101.jpeg", bytes).body, bytes);
    EXPECT_EQ(resizeCalls(), 0u);
    EXPECT_TRUE(logged(" [" + m_dir.path() + "/DSC0101.jpeg]THIS IS NOT A JPG FILE ", "DLNA_SP"));
}

TEST_F(Manager, JpegIsSentUnchangedOutsideResizeMode) {
    const std::string bytes = makeJpeg(3000, 2000);
    EXPECT_EQ(pushOne("DSC0102.JPG", bytes).body, bytes);
    EXPECT_EQ(resizeCalls(), 0u);
}

TEST_F(Manager, FailedResizeReportsFailAndCreatesNoTransfer) {
    m_mgr->setImageTransferSize(1);
    host::scriptResult("NASLWifi_jpegResizeInMemory", 0);
    Receiver phone([](int) {});
    push(file("DSC0103.JPG", makeJpeg(3000, 2000)), phone, kMacs[0]);
    const std::vector<Event> events = callbackLog().all();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].event, EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(events[0].value, 0);
    EXPECT_EQ(events[0].mac, kMacs[0]);
    EXPECT_TRUE(logged("[SP: ERR] Failed to resize the image file", "DLNA_SP"));
    EXPECT_EQ(m_mgr->getHTTPClientHandlerbyMac(kMacs[0]), nullptr);
    EXPECT_EQ(m_mgr->transferCount(), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(phone.accepted(), 0);
}

TEST_F(Manager, SecondTransferToTheSamePhoneReplacesTheFirst) {
    const std::string first = bytesOf(4 * 1024 * 1024, 1), second = bytesOf(30000, 2);
    std::vector<Received> got(2);
    int served = 0;
    Receiver phone([&](int fd) { acceptingPhone(&got[served++])(fd); }, 2);
    push(file("one.jpg", first), phone, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFor(EVENT_CLIENT_TRANSFER_PROGRESS, 20000));
    push(file("two.jpg", second), phone, kMacs[0]);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
    ASSERT_TRUE(callbackLog().waitFinals(2, 30000));
    phone.wait();
    EXPECT_TRUE(got[0].closedEarly);
    EXPECT_EQ(got[1].body, second);
    // The first transfer's story ends with its FAIL before the second starts.
    const std::vector<Event> events = callbackLog().all();
    size_t cut = 0;
    while (cut < events.size() && !isFinal(events[cut].event)) ++cut;
    ASSERT_LT(cut, events.size());
    expectOneTransfer(std::vector<Event>(events.begin(), events.begin() + static_cast<long>(cut) + 1),
                      EVENT_CLIENT_TRANSFER_FAIL);
    expectOneTransfer(std::vector<Event>(events.begin() + static_cast<long>(cut) + 1, events.end()),
                      EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Manager, LookupByEmptyMacFindsNothingEvenWhenSuchATransferExists) {
    Received got;
    Receiver phone(acceptingPhone(&got));
    m_mgr->createFileTransfer(file("nomac.jpg", bytesOf(5000)).c_str(), "127.0.0.1", phone.port());
    bool logged_ = false;
    for (const std::string& m : testsupport::messages("DLNA_SP"))
        if (m.rfind("**StreamServer : THREAD_Start received!... 0x", 0) == 0) logged_ = true;
    EXPECT_TRUE(logged_);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
    EXPECT_EQ(m_mgr->getHTTPClientHandlerbyMac(""), nullptr);
    EXPECT_EQ(m_mgr->getHTTPClientHandlerbyMac(nullptr), nullptr);
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000));
    EXPECT_EQ(callbackLog().all().back().mac, "");
}

// Three phones, each receiving a file long enough to be running when the
// test acts (about 1.5 s at the paced rate).
class ThreePhones : public Manager {
protected:
    void SetUp() override {
        Manager::SetUp();
        for (int i = 0; i < 3; ++i) {
            m_bytes[i] = bytesOf(3 * 1024 * 1024, i);
            m_phones[i].reset(new Receiver(acceptingPhone(&m_got[i])));
        }
    }
    void startAll() {
        for (int i = 0; i < 3; ++i)
            push(file("f" + std::to_string(i) + ".jpg", m_bytes[i]), *m_phones[i], kMacs[i]);
        for (int i = 0; i < 3; ++i) ASSERT_TRUE(callbackLog().waitFor(EVENT_CLIENT_TRANSFER_START, 20000, kMacs[i]));
    }
    void TearDown() override {
        // The manager first (it may wait for transfers), then the phones.
        SPClientManager::destroyInstance();
        for (auto& phone : m_phones) phone.reset();
        Manager::TearDown();
    }
    int lastProgress(const std::string& mac) {
        int last = 0;
        for (const Event& e : callbackLog().of(mac))
            if (e.event == EVENT_CLIENT_TRANSFER_PROGRESS) last = e.value;
        return last;
    }
    // True once mac's transfer has posted nothing for 1.5 s (a transfer that
    // cannot send more), polling for at most timeoutMs.
    bool progressSettles(const std::string& mac, int timeoutMs) {
        size_t seen = callbackLog().of(mac).size();
        int quiet = 0;
        for (int waited = 0; waited < timeoutMs && quiet < 1500; waited += 100) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            const size_t now = callbackLog().of(mac).size();
            quiet = now == seen ? quiet + 100 : 0;
            seen = now;
        }
        return quiet >= 1500;
    }
    eSPNotifyClntEvent finalOf(int i) {
        for (const Event& e : callbackLog().of(kMacs[i]))
            if (isFinal(e.event)) return e.event;
        return EVENT_CLIENT_TRANSFER_START;  // none yet
    }
    std::string m_bytes[3];
    Received m_got[3];
    std::unique_ptr<Receiver> m_phones[3];
};

TEST_F(ThreePhones, StopAllWithTwoTransfersStopsOnlyTheFirst) {
    push(file("f0.jpg", m_bytes[0]), *m_phones[0], kMacs[0]);
    push(file("f1.jpg", m_bytes[1]), *m_phones[1], kMacs[1]);
    ASSERT_TRUE(callbackLog().waitFor(EVENT_CLIENT_TRANSFER_START, 20000, kMacs[1]));
    m_mgr->stopAllFileTransfer();
    EXPECT_TRUE(logged("Total Size... 2", "DLNA_SP"));
    EXPECT_EQ(finalOf(0), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
    EXPECT_NE(m_mgr->getHTTPClientHandlerbyMac(kMacs[1]), nullptr);
    // The one passed over keeps running and reports later.
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000, kMacs[1]));
    EXPECT_EQ(finalOf(1), EVENT_CLIENT_TRANSFER_COMPLETE);
    m_phones[1]->wait();
    EXPECT_EQ(m_got[1].body, m_bytes[1]);
}

TEST_F(ThreePhones, StopAllWithThreeTransfersStopsTheFirstAndTheThird) {
    startAll();
    m_mgr->stopAllFileTransfer();
    EXPECT_EQ(finalOf(0), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(finalOf(2), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000, kMacs[1]));
    for (int i = 0; i < 3; ++i)
        expectOneTransfer(callbackLog().of(kMacs[i]), i == 1 ? EVENT_CLIENT_TRANSFER_COMPLETE : EVENT_CLIENT_TRANSFER_FAIL);
}

TEST_F(ThreePhones, StopWithoutClearingHistoryWalksTheSameWay) {
    startAll();
    m_mgr->stopFileTransfer(static_cast<void*>(nullptr));
    EXPECT_TRUE(logged(" size... 3", "DLNA_SP"));
    EXPECT_EQ(finalOf(0), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(finalOf(2), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
}

TEST_F(ThreePhones, StopByMacStopsOnlyThatPhone) {
    startAll();
    m_mgr->stopFileTransfer(kMacs[1]);
    EXPECT_EQ(finalOf(1), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_TRUE(logged("with 02:00:7f:00:00:02 ", "DLNA_SP"));
    EXPECT_TRUE(logged("**stopFileTransfer(void *path) : Going to stop file for MAC 02:00:7f:00:00:02 ", "DLNA_SP"));
    // The first entry is looked at and passed; the one after the match is not looked at.
    EXPECT_EQ(countLogged("**stopFileTransfer : MAC 02:00:7f:00:00:02  Not found to stop transfer", "DLNA_SP"), 1);
    EXPECT_EQ(m_mgr->transferCount(), 2u);
    ASSERT_TRUE(callbackLog().waitFinals(3, 30000));
    EXPECT_EQ(finalOf(0), EVENT_CLIENT_TRANSFER_COMPLETE);
    EXPECT_EQ(finalOf(2), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(ThreePhones, DestroyingTheManagerStopsEveryRunningTransfer) {
    startAll();
    EXPECT_EQ(countThreadsNamed("SPClientThread"), 3);
    SPClientManager::destroyInstance();
    // Each transfer was asked to stop, ended with FAIL and was reaped before
    // the manager went.
    for (int i = 0; i < 3; ++i) EXPECT_EQ(finalOf(i), EVENT_CLIENT_TRANSFER_FAIL) << i;
    for (int i = 0; i < 3; ++i) expectOneTransfer(callbackLog().of(kMacs[i]), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(countThreadsNamed("SPClientThread"), 0);
    for (int i = 0; i < 3; ++i) {
        m_phones[i]->wait();
        EXPECT_TRUE(m_got[i].closedEarly) << i;
    }
    EXPECT_EQ(testsupport::threadCount(), m_threads);
}

TEST_F(ThreePhones, TerminatingAfterStopAllStopsThePassedOverTransfer) {
    startAll();
    m_mgr->stopAllFileTransfer();
    EXPECT_EQ(finalOf(1), EVENT_CLIENT_TRANSFER_START);  // still running
    SPClientManager::destroyInstance();
    EXPECT_EQ(finalOf(1), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(countThreadsNamed("SPClientThread"), 0);
    for (int i = 0; i < 3; ++i) m_phones[i]->wait();
    EXPECT_EQ(testsupport::threadCount(), m_threads);
    EXPECT_TRUE(m_got[1].closedEarly);
}

TEST_F(ThreePhones, PhoneThatStoppedReadingDoesNotHoldTheTerminate) {
    // The second phone (the one the stop-all walk passes over) takes 64 KiB of
    // a 16 MB body and then reads nothing more: its transfer can neither
    // finish nor fail on its own (a send may wait 100 hours).
    std::atomic<bool> stalled{false}, release{false};
    m_phones[1].reset(new Receiver(stallingPhone(64 * 1024, &stalled, &release)));
    m_bytes[1] = bytesOf(16 * 1024 * 1024, 1);
    startAll();
    for (int i = 0; i < 1000 && !stalled; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(stalled);
    // The camera fills what the connection takes, then waits to send more:
    // its progress stops short of 100 %.
    ASSERT_TRUE(progressSettles(kMacs[1], 30000));
    EXPECT_EQ(finalOf(1), EVENT_CLIENT_TRANSFER_START);
    EXPECT_LT(lastProgress(kMacs[1]), 100);
    const auto t0 = std::chrono::steady_clock::now();
    m_mgr->stopAllFileTransfer();
    SPClientManager::destroyInstance();
    // A stopped transfer sees the stop within about a second; without it
    // the terminate would not return at all.
    EXPECT_LT(msSince(t0), 8000);
    release = true;
    EXPECT_EQ(finalOf(1), EVENT_CLIENT_TRANSFER_FAIL);
    expectOneTransfer(callbackLog().of(kMacs[1]), EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_EQ(countThreadsNamed("SPClientThread"), 0);
    for (int i = 0; i < 3; ++i) m_phones[i]->wait();
}

TEST_F(Manager, StopByMacClearsTheHistorySoTheSamePictureIsResizedAgain) {
    m_mgr->setImageTransferSize(1);
    const std::string path = file("DSC0200.JPG", makeJpeg(3000, 2000));
    Received a, b;
    Receiver phone1(acceptingPhone(&a)), phone2(acceptingPhone(&b));
    push(path, phone1, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000));
    m_mgr->stopFileTransfer(kMacs[0]);
    EXPECT_EQ(m_mgr->transferCount(), 0u);
    push(path, phone2, kMacs[1]);
    ASSERT_TRUE(callbackLog().waitFinals(2, 30000));
    EXPECT_EQ(resizeCalls(), 2u);
}

TEST_F(Manager, StopWithoutClearingHistoryKeepsTheResizedPicture) {
    m_mgr->setImageTransferSize(1);
    const std::string path = file("DSC0201.JPG", makeJpeg(3000, 2000));
    Received a, b;
    Receiver phone1(acceptingPhone(&a)), phone2(acceptingPhone(&b));
    push(path, phone1, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000));
    m_mgr->stopFileTransfer(static_cast<void*>(nullptr));
    push(path, phone2, kMacs[1]);
    ASSERT_TRUE(callbackLog().waitFinals(2, 30000));
    EXPECT_EQ(resizeCalls(), 1u);
    phone2.wait();
    EXPECT_EQ(a.body, b.body);
}

TEST_F(Manager, ResizedBufferOutlivesAClearedHistoryWhileATransferSendsIt) {
    m_mgr->setImageTransferSize(1);
    const std::string path = file("DSC0300.JPG", makeJpeg(4000, 3000));
    std::string body;
    std::atomic<bool> go{false};
    Receiver phone([&](int fd) {
        const std::string head = testsupport::recvUntil(fd, "\r\n\r\n", 10000);
        testsupport::sendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
        for (int i = 0; i < 500 && !go; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        body = recvExactly(fd, static_cast<size_t>(contentLength(head)), 20000);
        testsupport::sendAll(fd, "HTTP/1.1 200 OK\r\n\r\n");
        testsupport::peerClosed(fd, 5000);
    });
    push(path, phone, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFor(EVENT_CLIENT_TRANSFER_START, 20000));
    m_mgr->ClearResizeHistory();
    // The history let go; the transfer still holds the picture.
    EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_live + 1);
    EXPECT_TRUE(host::journalEntries("NASLWifi_jpegResizeFree").empty());
    go = true;
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000));
    phone.wait();
    int w = 0, h = 0;
    ASSERT_TRUE(jpegSize(body, &w, &h));
    EXPECT_EQ(w, 1920);
    // Released by the transfer when it was done, once.
    EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_live);
    EXPECT_EQ(host::journalEntries("NASLWifi_jpegResizeFree").size(), 1u);
    expectOneTransfer(callbackLog().all(), EVENT_CLIENT_TRANSFER_COMPLETE);
}

TEST_F(Manager, AnotherPictureReplacesTheHistoryAndFreesTheOldBuffer) {
    m_mgr->setImageTransferSize(1);
    const std::string a = file("A.JPG", makeJpeg(3000, 2000)), b = file("B.JPG", makeJpeg(2500, 2000));
    std::vector<Received> got(2);
    int served = 0;
    Receiver phone([&](int fd) { acceptingPhone(&got[served++])(fd); }, 2);
    push(a, phone, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFinals(1, 30000));
    EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_live + 1);  // the history keeps A's
    push(b, phone, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFinals(2, 30000));
    EXPECT_EQ(host::jpeg::liveResizeBuffers(), m_live + 1);  // now B's only
    EXPECT_EQ(host::journalEntries("NASLWifi_jpegResizeFree").size(), 1u);
    EXPECT_EQ(resizeCalls(), 2u);
}

TEST_F(Manager, PictureSentAgainAfterAnotherFileIsStillResized) {
    m_mgr->setImageTransferSize(1);
    const std::string a = file("A.JPG", makeJpeg(3000, 2000)), b = file("B.png", bytesOf(5000));
    std::vector<Received> got(3);
    int served = 0;
    Receiver phone([&](int fd) { acceptingPhone(&got[served++])(fd); }, 3);
    const std::string order[] = {a, b, a};
    for (int k = 0; k < 3; ++k) {
        push(order[k], phone, kMacs[0]);
        ASSERT_TRUE(callbackLog().waitFinals(k + 1, 30000)) << k;
    }
    phone.wait();
    int w = 0, h = 0;
    ASSERT_TRUE(jpegSize(got[2].body, &w, &h));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(h, 1280);
}

TEST_F(Manager, EventsAreTranslatedAndFilteredForTheCallback) {
    SvcClientNotifyInfo info = {0, kMacs[2]};
    m_mgr->notifyServiceStatus(EVENT_CLIENT_TRANSFER_PROGRESS, 0, &info);  // 0 %: not forwarded
    info.value = 42;
    m_mgr->notifyServiceStatus(EVENT_CLIENT_TRANSFER_PROGRESS, 0, &info);
    m_mgr->notifyServiceStatus(EVENT_CLIENT_VOLUME_STORTAGE, 0, nullptr);  // no information: ignored
    info.value = 0;
    m_mgr->notifyServiceStatus(EVENT_CLIENT_VOLUME_STORTAGE, 0, &info);
    m_mgr->notifyServiceStatus(EVENT_CLIENT_NOT_SUPPORTED_FILE, 0, &info);
    m_mgr->notifyServiceStatus(EVENT_CLIENT_TRANSFER_FAIL, 0, &info);
    const std::vector<Event> events = callbackLog().all();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].event, EVENT_CLIENT_TRANSFER_PROGRESS);
    EXPECT_EQ(events[0].value, 42);
    EXPECT_EQ(events[0].mac, kMacs[2]);
    EXPECT_EQ(events[1].event, EVENT_CLIENT_VOLUME_STORTAGE);
    EXPECT_EQ(events[2].event, EVENT_CLIENT_NOT_SUPPORTED_FILE);
    EXPECT_EQ(events[3].event, EVENT_CLIENT_TRANSFER_FAIL);
    EXPECT_TRUE(logged("SPClientManager Event : EVENT_CLIENT_VOLUME_STORTAGE!!", "DLNA_SP"));
    EXPECT_TRUE(logged("SPClientManager Event : EVENT_CLIENT_NOT_SUPPORTED_FILE!!", "DLNA_SP"));
    EXPECT_TRUE(logged("SPClientManager Event : EVENT_CLIENT_TRANSFER_FAIL!!", "DLNA_SP"));
    m_mgr->setCallback(nullptr);
    m_mgr->notifyServiceStatus(EVENT_CLIENT_TRANSFER_FAIL, 0, &info);  // dropped
    EXPECT_EQ(callbackLog().all().size(), 4u);
}

TEST_F(Manager, TurnDownRequestIsSentOnTheCallingThread) {
    std::string got;
    Receiver phone([&](int fd) { got = testsupport::recvAll(fd, 10000); });
    std::string address = "127.0.0.1";
    EXPECT_EQ(m_mgr->sendTurnDownRequest(&address[0], phone.port()), 1);
    phone.wait();
    EXPECT_EQ(got.rfind("HEAD /sp/AppControl HTTP/1.1 \r\n", 0), 0u);
    ClosedLoopbackPort nobody;
    EXPECT_EQ(m_mgr->sendTurnDownRequest(&address[0], nobody.port()), 0);
}

// ---- Callbacks that call back into the manager ------------------------------------

std::atomic<int> gStopOnFail{0};
std::string gNextFile, gNextAddress;
std::atomic<int> gNextPort{0};

// Records; on the first FAIL of a phone stops that phone's transfers (as a
// UI would from its event handler), while a creation for it is in progress.
void stopOnFailCallback(eSPNotifyClntEvent event, stSPClntInfo* info) {
    recordCallback(event, info);
    if (event == EVENT_CLIENT_TRANSFER_FAIL && gStopOnFail.exchange(0) == 1)
        SPClientManager::getInstance()->stopFileTransfer(info->mac);
}

std::string gRetryFile, gRetryAddress;
std::atomic<int> gRetryPort{0};
std::atomic<SPClientManager*> gRetriedOn{nullptr};

std::mutex gRetryLock;
std::string gRetriedMac;

// Records; on the first FAIL pushes a file again to the same phone, through
// whatever manager getInstance gives at that moment.
void retryOnFailCallback(eSPNotifyClntEvent event, stSPClntInfo* info) {
    recordCallback(event, info);
    std::string next;
    {
        std::lock_guard<std::mutex> g(gRetryLock);
        if (event != EVENT_CLIENT_TRANSFER_FAIL || gRetryFile.empty()) return;
        next.swap(gRetryFile);
        gRetriedMac = info->mac;
    }
    SPClientManager* manager = SPClientManager::getInstance();
    gRetriedOn = manager;
    manager->createFileTransfer(next.c_str(), gRetryAddress.c_str(), info->mac, gRetryPort.load());
}

// Records; on the first COMPLETE sends the next file to the same phone from
// inside the event, which replaces (deletes) the reporting transfer itself.
void nextFileCallback(eSPNotifyClntEvent event, stSPClntInfo* info) {
    recordCallback(event, info);
    if (event == EVENT_CLIENT_TRANSFER_COMPLETE && !gNextFile.empty()) {
        const std::string next = gNextFile;
        gNextFile.clear();
        SPClientManager::getInstance()->createFileTransfer(next.c_str(), gNextAddress.c_str(), info->mac,
                                                           gNextPort.load());
    }
}

TEST_F(Manager, StopArrivingWhileATransferIsCreatedCancelsIt) {
    m_mgr->setCallback(stopOnFailCallback);
    std::vector<Received> got(2);
    int served = 0;
    Receiver phone([&](int fd) { acceptingPhone(&got[served++])(fd); }, 2);
    push(file("slow.jpg", bytesOf(4 * 1024 * 1024)), phone, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFor(EVENT_CLIENT_TRANSFER_PROGRESS, 20000));
    // Replacing the running transfer makes it report FAIL; the callback then
    // stops the phone while the new transfer is being created.
    gStopOnFail = 1;
    push(file("next.jpg", bytesOf(1000)), phone, kMacs[0]);
    const std::vector<Event> events = callbackLog().all();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[events.size() - 2].event, EVENT_CLIENT_TRANSFER_FAIL);  // the replaced transfer
    EXPECT_EQ(events.back().event, EVENT_CLIENT_TRANSFER_FAIL);              // the cancelled creation
    EXPECT_EQ(events.back().value, 0);
    EXPECT_EQ(m_mgr->transferCount(), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(phone.accepted(), 1);
}

TEST_F(Manager, EventCallbackMaySendTheNextFileToTheSamePhone) {
    m_mgr->setCallback(nextFileCallback);
    const std::string first = bytesOf(50000, 3), second = bytesOf(70000, 4);
    std::vector<Received> got(2);
    int served = 0;
    Receiver phone([&](int fd) { acceptingPhone(&got[served++])(fd); }, 2);
    gNextFile = file("second.jpg", second);
    gNextAddress = "127.0.0.1";
    gNextPort = phone.port();
    push(file("first.jpg", first), phone, kMacs[0]);
    ASSERT_TRUE(callbackLog().waitFinals(2, 30000));
    phone.wait();
    EXPECT_EQ(got[0].body, first);
    EXPECT_EQ(got[1].body, second);
    EXPECT_EQ(m_mgr->transferCount(), 1u);
}

TEST_F(ThreePhones, PushAskedForFromAnEventWhileTheManagerGoesIsRefused) {
    // A UI that pushes again when a push fails gets the dying manager (not a
    // fresh one whose transfer no terminate would stop) and a FAIL at once.
    m_mgr->setCallback(retryOnFailCallback);
    gRetryAddress = "127.0.0.1";
    gRetryPort = m_phones[1]->port();
    {
        std::lock_guard<std::mutex> g(gRetryLock);
        gRetryFile = file("retry.jpg", bytesOf(1000));
    }
    startAll();
    SPClientManager* dying = m_mgr;
    SPClientManager::destroyInstance();
    EXPECT_EQ(gRetriedOn.load(), dying);
    std::string mac;
    {
        std::lock_guard<std::mutex> g(gRetryLock);
        mac = gRetriedMac;
    }
    ASSERT_FALSE(mac.empty());
    EXPECT_TRUE(logged("Transfer refused while the push is terminating, MAC " + mac, "DLNA_SP"));
    const std::vector<Event> events = callbackLog().of(mac);
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[events.size() - 2].event, EVENT_CLIENT_TRANSFER_FAIL);  // the stopped transfer
    EXPECT_EQ(events.back().event, EVENT_CLIENT_TRANSFER_FAIL);              // the refused retry
    EXPECT_EQ(countThreadsNamed("SPClientThread"), 0);
    EXPECT_EQ(SPClientManager::m_Instance, nullptr);
}

}  // namespace
