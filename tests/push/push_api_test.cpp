// The push API as the UI uses it: single-phone and multi-phone pushes from
// start to terminate, with the phones played by the test.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "camwifi/camwifi.h"
#include "SP/SPDeviceName.h"
#include "camwifi/camwifi_push.h"
#include "client_support.h"
#include "host_jpeg.h"
#include "support/tcp_peer.h"
#include "support/test_support.h"
#include "test_phone.h"

using pushtest::TestPhone;

namespace {

struct UiEvent {
    int id;
    intptr_t number;    // a number parameter, where the event has one
    std::string mac;    // the MAC text, where the event has one
    std::string phone;  // the phone number text of new-phone events
};

std::mutex gLock;
std::condition_variable gChanged;
std::vector<UiEvent> gEvents;

std::string textAt(const void* p) { return p ? static_cast<const char*>(p) : ""; }

void onPushEvent(ZEB_CALLBACK_EVENT id, void* value, intptr_t length) {
    UiEvent e{id, 0, "", ""};
    switch (id) {
        case 61: case 62: case 71: case 78:
            e.mac = textAt(value);
            e.phone = textAt(reinterpret_cast<const void*>(length));
            break;
        case 72: case 79:
            e.mac = textAt(value);
            break;
        case 73: case 74: case 75: case 76: case 77:
            e.number = reinterpret_cast<intptr_t>(value);
            e.mac = textAt(reinterpret_cast<const void*>(length));
            break;
        default:
            e.number = reinterpret_cast<intptr_t>(value);
            break;
    }
    std::lock_guard<std::mutex> g(gLock);
    gEvents.push_back(e);
    gChanged.notify_all();
}

std::vector<UiEvent> events() {
    std::lock_guard<std::mutex> g(gLock);
    return gEvents;
}

// Waits for the count-th event with this id (and MAC, when given).
bool waitFor(int id, int timeoutMs = 8000, const std::string& mac = "", int count = 1) {
    std::unique_lock<std::mutex> g(gLock);
    return gChanged.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] {
        int n = 0;
        for (auto& e : gEvents)
            if (e.id == id && (mac.empty() || e.mac == mac)) ++n;
        return n >= count;
    });
}

int countOf(int id, const std::string& mac = "") {
    int n = 0;
    for (auto& e : events())
        if (e.id == id && (mac.empty() || e.mac == mac)) ++n;
    return n;
}

const std::string kOk =
    "HTTP/1.1 200 OK\r\nServer: ORB_SP_EX2F\r\nContent-Type: text/xml;charset=utf-8 \r\n"
    "Cache-Control: no-cache\r\n\r\n";

// The multi-phone push keeps the camera name the last single-phone push set
// ("Camera" in a process that never ran one).
std::string currentOk() {
    return std::string("HTTP/1.1 200 OK\r\nServer: ORB_SP_") + gDeviceName +
           "\r\nContent-Type: text/xml;charset=utf-8 \r\nCache-Control: no-cache\r\n\r\n";
}

class PushApi : public testing::Test {
protected:
    void SetUp() override {
        host::reset();
        {
            std::lock_guard<std::mutex> g(gLock);
            gEvents.clear();
        }
        DlnaSetModelName("EX2F");
        DlnaSetTransferSize(1);  // files unchanged unless a test asks for resizing
    }
    void TearDown() override {
        DlnaSelectivePush_Terminate();
        DlnaSelective_NPush_Terminate();
    }
    std::string writePicture(const std::string& name, int w, int h) {
        const std::string path = m_dir.path() + "/" + name;
        clienttest::writeFile(path, clienttest::makeJpeg(w, h));
        return path;
    }
    // Starts the single-phone push and brings phone in, accepted by the user.
    void acceptedPhone(TestPhone& phone) {
        ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
        ASSERT_TRUE(waitFor(69));
        ASSERT_TRUE(phone.announce());
        ASSERT_TRUE(waitFor(61));
        DlnaSelectivePush_SendUserStartEvent(1);
        ASSERT_EQ(phone.answer(), kOk);
    }

    testsupport::TempDir m_dir;
};

// ---- single phone ------------------------------------------------------------

TEST_F(PushApi, PushOfOnePhotoFromStartToTerminate) {
    TestPhone phone(5);
    const int threadsBefore = testsupport::threadCount();
    const int fdsBefore = testsupport::openDescriptorCount();

    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    EXPECT_EQ(GetAllShareMode(), 3u);
    ASSERT_TRUE(waitFor(69));
    EXPECT_EQ(SPGetServerPort(), 8100);

    ASSERT_TRUE(phone.announce());
    ASSERT_TRUE(waitFor(61));
    UiEvent announced = events().back();
    EXPECT_EQ(announced.mac, phone.mac());
    EXPECT_EQ(announced.phone, "01099991005");
    DlnaSelectivePush_SendUserStartEvent(1);
    EXPECT_EQ(phone.answer(), kOk);

    const std::string path = writePicture("SAM_0001.JPG", 1600, 1200);
    const std::string original = clienttest::readFile(path);
    EXPECT_EQ(DlnaSelectivePush_SendFile(path.c_str()), 1);
    ASSERT_TRUE(waitFor(64, 15000));

    // 65 with 1 first, then percentages that only rise, then 64 last.
    std::vector<intptr_t> progress;
    for (auto& e : events())
        if (e.id == 65) progress.push_back(e.number);
    ASSERT_GE(progress.size(), 2u);
    EXPECT_EQ(progress.front(), 1);
    for (size_t i = 2; i < progress.size(); ++i) EXPECT_GT(progress[i], progress[i - 1]);
    EXPECT_LE(progress.back(), 100);
    EXPECT_EQ(events().back().id, 64);
    EXPECT_EQ(countOf(66), 0);

    ASSERT_EQ(phone.files().size(), 1u);
    EXPECT_TRUE(phone.files()[0] == original) << "the phone received the file unchanged";
    EXPECT_EQ(phone.heads()[0].rfind("POST /mnt/sdcard/DCIM/Camera/TessalyLensmate/SAM_0001.JPG HTTP/1.1 \r\n", 0), 0u);

    EXPECT_EQ(DlnaSelectivePush_Terminate(), 1);
    ASSERT_TRUE(phone.waitHeads(2, 5000)) << "terminate sends the turn-down request";
    EXPECT_EQ(phone.heads()[1], "HEAD /sp/AppControl HTTP/1.1 \r\nHost: 127.0.0.5:" + std::to_string(phone.dataPort()) +
                                    "\r\nUser-Agent: ORB_SP_EX2F\r\nConnection: Close\r\nCommand: Getout\r\n"
                                    "HOST-Pnumber:none\r\n\r\n");
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_EQ(SPGetServerPort(), 0);
    EXPECT_EQ(testsupport::threadCount(), threadsBefore);
    // The phone's own announcement connection is the one descriptor more.
    EXPECT_LE(testsupport::openDescriptorCount(), fdsBefore + 1);
}

TEST_F(PushApi, PhoneThatCameByNfcIsReportedAs62) {
    TestPhone phone(6);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69));
    ASSERT_TRUE(phone.announce(true));
    ASSERT_TRUE(waitFor(62));
    EXPECT_EQ(events().back().mac, phone.mac());
    EXPECT_EQ(countOf(61), 0);
}

TEST_F(PushApi, ResizeModeSendsTheShrunkPicture) {
    DlnaSetTransferSize(0);
    TestPhone phone(7);
    acceptedPhone(phone);
    const std::string path = writePicture("SAM_0002.JPG", 3000, 2000);
    DlnaSelectivePush_SendFile(path.c_str());
    ASSERT_TRUE(waitFor(64, 15000));
    ASSERT_EQ(phone.files().size(), 1u);
    int w = 0, h = 0;
    ASSERT_TRUE(clienttest::jpegSize(phone.files()[0], &w, &h));
    const int longSide = host::jpeg::longSideOf(0);
    ASSERT_GT(longSide, 0);
    EXPECT_EQ(w, longSide);
    EXPECT_NEAR(h, 2000 * longSide / 3000, 1);
    EXPECT_TRUE(testsupport::logged("Set to RESIZE MODE ", "DLNA_SP"));
}

TEST_F(PushApi, UnchangedModeSendsTheFileAsItIs) {
    TestPhone phone(8);
    acceptedPhone(phone);
    const std::string path = writePicture("SAM_0003.JPG", 3000, 2000);
    DlnaSelectivePush_SendFile(path.c_str());
    ASSERT_TRUE(waitFor(64, 15000));
    ASSERT_EQ(phone.files().size(), 1u);
    EXPECT_TRUE(phone.files()[0] == clienttest::readFile(path));
    EXPECT_TRUE(testsupport::logged("Set to DEFAULT MODE file transfer ", "DLNA_SP"));
}

TEST_F(PushApi, StorageFullAndUnsupportedFileReachTheUi) {
    TestPhone phone(9);
    acceptedPhone(phone);
    const std::string path = writePicture("SAM_0004.JPG", 64, 64);
    phone.setAnswer(TestPhone::Answer::StorageFull);
    DlnaSelectivePush_SendFile(path.c_str());
    ASSERT_TRUE(waitFor(67));
    phone.setAnswer(TestPhone::Answer::Unsupported);
    DlnaSelectivePush_SendFile(path.c_str());
    ASSERT_TRUE(waitFor(68));
    EXPECT_EQ(countOf(65), 0) << "a refused file never starts";
    EXPECT_EQ(countOf(64), 0);
}

TEST_F(PushApi, StartWithoutModelNameSends60AndReturns0) {
    host::reset();  // forgets the model name
    EXPECT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 0);
    ASSERT_TRUE(waitFor(60, 1000));
    EXPECT_TRUE(testsupport::logged("ERR: no model name!", "DLNA_SP"));
    EXPECT_EQ(SPGetServerPort(), 0) << "no server was started";
}

TEST_F(PushApi, CloseBeforeAnyFileWasSentReturns0) {
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    EXPECT_EQ(DlnaSelectivePush_Close(), 0);
    EXPECT_TRUE(testsupport::logged("SPStopFile() was already called... return !!!", "DLNA_SP"));
    EXPECT_TRUE(testsupport::logged("DlnaSelectivePush_Close Failed.. ", "DLNA_SP"));
}

TEST_F(PushApi, SendFileBeforeAPhoneRegisteredReturns1AndSendsNothing) {
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69));
    const std::string path = writePicture("SAM_0005.JPG", 64, 64);
    EXPECT_EQ(DlnaSelectivePush_SendFile(path.c_str()), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(countOf(65) + countOf(66) + countOf(64), 0);
    EXPECT_TRUE(host::journalEntries("NASLWifi_jpegResizeInMemory").empty());
}

TEST_F(PushApi, DeviceNameOfFortyCharactersIsCutTo31) {
    const std::string longName = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789abcd";
    ASSERT_EQ(longName.size(), 40u);
    DlnaSetModelName(longName.c_str());
    TestPhone phone(11);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69));
    ASSERT_TRUE(phone.announce());
    ASSERT_TRUE(waitFor(61));
    DlnaSelectivePush_SendUserStartEvent(1);
    const std::string reply = phone.answer();
    EXPECT_NE(reply.find("\r\nServer: ORB_SP_" + longName.substr(0, 31) + "\r\n"), std::string::npos) << reply;
    const std::string path = writePicture("SAM_0006.JPG", 64, 64);
    DlnaSelectivePush_SendFile(path.c_str());
    ASSERT_TRUE(waitFor(64));
    EXPECT_NE(phone.heads()[0].find("\r\nUser-Agent: ORB_SP_" + longName.substr(0, 31) + "\r\n"), std::string::npos);
}

std::string gInstantPath;
std::atomic<int> gInstantTransfer{-1};

// A UI that accepts the phone and sends a file from inside its event callback.
void acceptAndSendAtOnce(ZEB_CALLBACK_EVENT id, void* value, intptr_t length) {
    onPushEvent(id, value, length);
    if (id != 61) return;
    DlnaSelectivePush_SendUserStartEvent(1);
    gInstantTransfer.store(SPTransferFile(gInstantPath.c_str()));
}

TEST_F(PushApi, FileSentRightAfterTheAnswerFindsThePhone) {
    TestPhone phone(18);
    gInstantPath = writePicture("SAM_0008.JPG", 64, 64);
    gInstantTransfer.store(-1);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(acceptAndSendAtOnce), 1);
    ASSERT_TRUE(waitFor(69));
    ASSERT_TRUE(phone.announce());
    EXPECT_EQ(phone.answer(), kOk);
    ASSERT_TRUE(waitFor(64));
    EXPECT_EQ(gInstantTransfer.load(), 1) << "the accepted phone is the data server at once";
    ASSERT_EQ(phone.files().size(), 1u);
    EXPECT_TRUE(phone.files()[0] == clienttest::readFile(gInstantPath));
}

TEST_F(PushApi, RefusedPhoneGets401AndReopensTheServerToTheNextPhone) {
    // A phone's announcement closes the server to other phones while it is
    // served. A refusal ends that service, and the refused phone never sends
    // a bye-bye that would reopen it (it was never accepted): without the
    // reopening, one refusal would lock every phone out until the push is
    // restarted.
    TestPhone first(12), second(13), meanwhile(43);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69));
    ASSERT_TRUE(first.announce());
    ASSERT_TRUE(waitFor(61));
    ASSERT_TRUE(meanwhile.announce());
    EXPECT_EQ(meanwhile.answer(), "HTTP/1.1 503 Service Unavailable\r\nServer: ORB_SP_EX2F\r\n\r\n");
    DlnaSelectivePush_SendUserStartEvent(0);
    EXPECT_EQ(first.answer(), "HTTP/1.1 401 Unauthorized\r\nServer: ORB_SP_EX2F\r\n\r\n");
    ASSERT_TRUE(second.announce());
    ASSERT_TRUE(waitFor(61, 8000, second.mac()));
    DlnaSelectivePush_SendUserStartEvent(1);
    EXPECT_EQ(second.answer(), kOk);
    EXPECT_EQ(countOf(61, meanwhile.mac()), 0);
}

TEST_F(PushApi, AnswerGoesToThePhoneOfTheLatestNewPhoneEvent) {
    // The answer is for the phone the UI was just asked about, which need not
    // be the data server: here the first phone was accepted and left, and the
    // next one is admitted without taking its place.
    TestPhone first(41), second(42);
    acceptedPhone(first);
    EXPECT_TRUE(first.leave());
    ASSERT_TRUE(waitFor(63));
    ASSERT_TRUE(second.announce());
    ASSERT_TRUE(waitFor(61, 8000, second.mac()));
    DlnaSelectivePush_SendUserStartEvent(1);
    EXPECT_EQ(second.answer(), kOk);
    EXPECT_FALSE(testsupport::logged("[SP] Entry Not found ", "DLNA_SP"));
}

TEST_F(PushApi, WaitingForAPhoneEndsWhenOneAnnouncesItself) {
    TestPhone phone(14);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    int answer = 0, result = -1;
    std::thread ui([&] { result = DlnaSelectivePush_WaitingUserStartEvent(&answer); });
    ASSERT_TRUE(phone.announce());
    ui.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(answer, 1);
}

TEST_F(PushApi, PhoneAnnouncedBeforeTheUiWaitsIsNotLostToTheWait) {
    // The UI may start waiting only after the phone announced itself; the
    // wait must find that announcement, not "no answer" (65535).
    TestPhone phone(49);
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69));
    ASSERT_TRUE(phone.announce());
    ASSERT_TRUE(waitFor(61));
    // Logged once the UI callback (and the post that follows it) returned.
    for (int i = 0; i < 500 && !testsupport::logged("SPServer confirmed from UI", "DLNA_SP"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(testsupport::logged("SPServer confirmed from UI", "DLNA_SP"));
    std::atomic<bool> returned{false};
    int answer = 0, result = -1;
    std::thread ui([&] {
        result = DlnaSelectivePush_WaitingUserStartEvent(&answer);
        returned = true;
    });
    for (int i = 0; i < 300 && !returned; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const bool atOnce = returned;
    if (!atOnce) DlnaSelectivePush_Terminate();  // wakes the wait
    ui.join();
    EXPECT_TRUE(atOnce) << "the wait did not find the announcement";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(answer, 1);
}

TEST_F(PushApi, TerminateWakesAUiWaitingForAPhone) {
    ASSERT_EQ(DlnaSelectivePush_ServerStart(onPushEvent), 1);
    ASSERT_TRUE(waitFor(69));
    int answer = 0, result = -1;
    std::thread ui([&] { result = DlnaSelectivePush_WaitingUserStartEvent(&answer); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    DlnaSelectivePush_Terminate();
    ui.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(answer, 65535);
}

TEST_F(PushApi, WaitingWithoutAStartedPushReturnsAtOnce) {
    int answer = 7;
    EXPECT_EQ(DlnaSelectivePush_WaitingUserStartEvent(&answer), -1);
    EXPECT_EQ(answer, 7);
    DlnaSelectivePush_SendUserStartEvent(1);  // nothing runs: logged, no crash
    EXPECT_TRUE(testsupport::logged("[SP] Server is either already terminated or not Started yet ", "DLNA_SP"));
}

TEST_F(PushApi, CloseStopsTheRunningTransferWith66) {
    TestPhone phone(15);
    acceptedPhone(phone);
    phone.setDelayBeforeContinue(3000);
    const std::string path = writePicture("SAM_0007.JPG", 64, 64);
    DlnaSelectivePush_SendFile(path.c_str());
    ASSERT_TRUE(phone.waitHeads(1, 5000));
    EXPECT_EQ(DlnaSelectivePush_Close(), 1);
    ASSERT_TRUE(waitFor(66));
    EXPECT_EQ(countOf(64), 0);
}

TEST_F(PushApi, DisconnectDropsTheAcceptedPhone) {
    TestPhone phone(16);
    acceptedPhone(phone);
    EXPECT_EQ(DlnaSelectivePush_Disconnect(), 1);
    EXPECT_EQ(DlnaSelectivePush_Disconnect(), 0) << "it is gone";
    EXPECT_TRUE(testsupport::logged("[SP] Unable to Disconnect the client ", "DLNA_SP"));
}

TEST_F(PushApi, PhoneThatLeavesIsReportedAs63) {
    TestPhone phone(17);
    acceptedPhone(phone);
    EXPECT_TRUE(phone.leave());
    ASSERT_TRUE(waitFor(63));
}

// ---- several phones -------------------------------------------------------------

class MultiPush : public PushApi {
protected:
    void admit(TestPhone& phone, int expectedEvent) {
        ASSERT_TRUE(phone.announce());
        ASSERT_TRUE(waitFor(expectedEvent, 8000, phone.mac()));
        UiEvent e;
        for (auto& x : events())
            if (x.mac == phone.mac() && x.id == expectedEvent) e = x;
        EXPECT_EQ(e.phone, "0109999" + std::to_string(1000 + std::stoi(phone.ip().substr(8))));
        DlnaSelective_NPush_SendUserStartEvent(phone.mac().c_str(), 1);
        ASSERT_EQ(phone.answer(), currentOk());
    }
};

TEST_F(MultiPush, TenPhonesGetOnePictureResizedOnceAndLeaveOneByOne) {
    DlnaSetTransferSize(0);
    std::vector<std::unique_ptr<TestPhone>> phones;
    for (int n = 20; n < 30; ++n) phones.emplace_back(new TestPhone(n));
    ASSERT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 1);
    EXPECT_EQ(GetAllShareMode(), 4u);
    for (size_t i = 0; i < phones.size(); ++i) admit(*phones[i], i == 0 ? 71 : 78);
    EXPECT_EQ(countOf(71), 1);
    EXPECT_EQ(countOf(78), 9);

    TestPhone& slow = *phones.back();
    slow.setDelayBeforeContinue(4000);
    const std::string path = writePicture("SAM_0100.JPG", 2400, 1600);
    for (auto& p : phones)
        EXPECT_EQ(DlnaSelective_NPush_StartFileTransfer(p->mac().c_str(), path.c_str()), 1);
    ASSERT_TRUE(slow.waitHeads(1, 5000));
    EXPECT_EQ(DlnaSelective_NPush_StopFileTransfer(slow.mac().c_str()), 1);
    ASSERT_TRUE(waitFor(75, 8000, slow.mac()));
    for (size_t i = 0; i + 1 < phones.size(); ++i) {
        ASSERT_TRUE(waitFor(73, 15000, phones[i]->mac())) << phones[i]->mac();
        EXPECT_EQ(countOf(75, phones[i]->mac()), 0);
    }
    for (auto& e : events()) {
        if (e.id == 73) {
            EXPECT_EQ(e.number, 100);
        }
    }
    EXPECT_EQ(countOf(73, slow.mac()), 0);
    EXPECT_EQ(host::journalEntries("NASLWifi_jpegResizeInMemory").size(), 1u) << "resized once for ten phones";
    const std::string sent = phones[0]->files().at(0);
    for (size_t i = 1; i + 1 < phones.size(); ++i) EXPECT_TRUE(phones[i]->files().at(0) == sent);
    int w = 0, h = 0;
    ASSERT_TRUE(clienttest::jpegSize(sent, &w, &h));
    EXPECT_EQ(w, host::jpeg::longSideOf(0));

    EXPECT_TRUE(phones[0]->leave());
    ASSERT_TRUE(waitFor(79, 8000, phones[0]->mac()));
    for (size_t i = 1; i < phones.size(); ++i) EXPECT_TRUE(phones[i]->leave());
    ASSERT_TRUE(waitFor(72, 8000, phones.back()->mac()));
    EXPECT_EQ(countOf(79), 9);
    EXPECT_EQ(countOf(72), 1);

    EXPECT_EQ(DlnaSelective_NPush_Terminate(), 1);
    EXPECT_EQ(GetAllShareMode(), 0u);
    EXPECT_EQ(SPGetServerPort(), 0);
}

TEST_F(MultiPush, TerminateIsNotHeldByAPhoneThatStoppedReading) {
    // Three transfers run; the second phone (the one the stop-all walk of the
    // terminate passes over) stopped reading mid-body, so its transfer could
    // wait to send for 100 hours. Terminate asks it to stop and returns.
    TestPhone a(46), b(47), c(48);
    ASSERT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 1);
    admit(a, 71);
    admit(b, 78);
    admit(c, 78);
    b.setAnswer(TestPhone::Answer::StopReading);
    const std::string path = m_dir.path() + "/SAM_0104.JPG";
    clienttest::writeFile(path, std::string(16 * 1024 * 1024, 'x'));
    for (TestPhone* p : {&a, &b, &c})
        ASSERT_EQ(DlnaSelective_NPush_StartFileTransfer(p->mac().c_str(), path.c_str()), 1);
    ASSERT_TRUE(b.waitStoppedReading(10000));
    ASSERT_TRUE(waitFor(74, 8000, a.mac()));
    ASSERT_TRUE(waitFor(74, 8000, c.mac()));
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(DlnaSelective_NPush_Terminate(), 1);
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
    // Each transfer sees its stop within about a second; the server's loop
    // another second at most.
    EXPECT_LT(took, 8000);
    EXPECT_EQ(countOf(75, b.mac()), 1);
    EXPECT_EQ(countOf(73, b.mac()), 0);
    EXPECT_EQ(clienttest::countThreadsNamed("SPClientThread"), 0);
}

TEST_F(MultiPush, StorageFullAndUnsupportedNameThePhone) {
    TestPhone a(31), b(32);
    ASSERT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 1);
    admit(a, 71);
    admit(b, 78);
    a.setAnswer(TestPhone::Answer::StorageFull);
    b.setAnswer(TestPhone::Answer::Unsupported);
    const std::string path = writePicture("SAM_0101.JPG", 64, 64);
    DlnaSelective_NPush_StartFileTransfer(a.mac().c_str(), path.c_str());
    DlnaSelective_NPush_StartFileTransfer(b.mac().c_str(), path.c_str());
    ASSERT_TRUE(waitFor(77, 8000, a.mac()));
    ASSERT_TRUE(waitFor(76, 8000, b.mac()));
    EXPECT_EQ(countOf(74), 0);
}

TEST_F(MultiPush, UnknownPhoneGetsNothingAndNoEvent) {
    ASSERT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 1);
    const std::string path = writePicture("SAM_0102.JPG", 64, 64);
    EXPECT_EQ(DlnaSelective_NPush_StartFileTransfer("02:00:7f:00:00:99", path.c_str()), 0);
    EXPECT_EQ(DlnaSelective_NPush_StartFileTransfer(nullptr, path.c_str()), 0);
    EXPECT_TRUE(testsupport::logged("Invalid Client Selected !!!", "DLNA_SP"));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (auto& e : events()) EXPECT_TRUE(e.id < 73 || e.id > 77) << e.id;
}

TEST_F(MultiPush, ClosedGroupRefusesNewPhonesUntilReopened) {
    TestPhone a(33), b(34);
    ASSERT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 1);
    admit(a, 71);
    EXPECT_EQ(DlnaSelective_Npush_AllowNewConnection(false), 1);
    ASSERT_TRUE(b.announce());
    EXPECT_EQ(b.answer(), std::string("HTTP/1.1 503 Service Unavailable\r\nServer: ORB_SP_") + gDeviceName + "\r\n\r\n");
    DlnaSelective_Npush_AllowNewConnection(true);
    admit(b, 78);
}

TEST_F(MultiPush, RemovingAPhoneFromTheAccessList) {
    TestPhone a(35);
    ASSERT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 1);
    admit(a, 71);
    EXPECT_EQ(DlnaSelective_Npush_RemoveUserAgent(a.mac().c_str()), 1);
    EXPECT_EQ(DlnaSelective_Npush_RemoveUserAgent(a.mac().c_str()), 0);
    EXPECT_EQ(DlnaSelective_Npush_RemoveUserAgent(nullptr), 0);
    const std::string path = writePicture("SAM_0103.JPG", 64, 64);
    EXPECT_EQ(DlnaSelective_NPush_StartFileTransfer(a.mac().c_str(), path.c_str()), 0) << "no longer known";
}

TEST_F(MultiPush, StartWithoutModelNameSends70AndReturns0) {
    host::reset();
    EXPECT_EQ(DlnaSelective_NPush_Initialize(onPushEvent), 0);
    ASSERT_TRUE(waitFor(70, 1000));
    EXPECT_TRUE(testsupport::logged(" No MODEL Name Set!! ", "DLNA_SP"));
    EXPECT_EQ(SPGetServerPort(), 0);
}

}  // namespace
