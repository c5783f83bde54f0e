// camwifi-sim and phone-sim as their users run them: the default story end
// to end, its clear failures, the interactive shell fed through standard
// input, and phone-sim's steps against camwifi-sim.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "sim/sim_process.h"
#include "support/test_support.h"

using simtest::Process;

namespace {

const int kRunMs = 60000;  // bound on any one program run

class Sim : public testing::Test {
protected:
    void SetUp() override {
        simtest::isolateNetwork();
        m_log = m_dir.path() + "/camwifi.log";
    }
    void TearDown() override {
        // What the library logged (and any sanitizer report) helps.
        if (HasFailure()) simtest::printLibraryLog(m_log, 400);
    }

    // The story with extra arguments; returns its exit status.
    int story(Process& p, std::vector<std::string> args = {}) {
        args.insert(args.end(), {"--log", m_log});
        if (!p.start(CAMWIFI_SIM, args)) return -2;
        const int status = p.waitExit(kRunMs);
        return status;
    }

    // camwifi-sim --interactive, once the camera says it is ready.
    bool shell(Process& p, std::vector<std::string> args = {}) {
        args.insert(args.begin(), "--interactive");
        args.insert(args.end(), {"--log", m_log});
        return p.start(CAMWIFI_SIM, args) && p.waitOutput("type help for the commands", 15000);
    }

    // phone-sim as phone 127.0.0.n, storing into its own folder.
    bool phone(Process& p, int n, std::vector<std::string> args) {
        const std::vector<std::string> base = {"--ip", "127.0.0." + std::to_string(n), "--store", store(n),
                                               "--timeout", "20"};
        args.insert(args.begin(), base.begin(), base.end());
        return p.start(PHONE_SIM, args);
    }
    std::string store(int n) { return m_dir.path() + "/phone" + std::to_string(n); }

    // A program standing in for phone-sim that never answers anything.
    std::string silentPhone() {
        const std::string path = m_dir.path() + "/silent-phone";
        std::ofstream(path) << "#!/bin/sh\nexec sleep 30\n";
        chmod(path.c_str(), 0755);
        return path;
    }

    testsupport::TempDir m_dir;
    std::string m_log;
};

bool processGone(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

// The text between before and after in out ("" when absent).
std::string between(const std::string& out, const std::string& before, const std::string& after) {
    const size_t start = out.find(before);
    if (start == std::string::npos) return "";
    const size_t end = out.find(after, start + before.size());
    return end == std::string::npos ? "" : out.substr(start + before.size(), end - start - before.size());
}

// The pid camwifi-sim reports for the phone-sim it started.
pid_t phonePid(const std::string& out) {
    const std::string pid = between(out, "phone-sim started (pid ", ")");
    return pid.empty() ? -1 : static_cast<pid_t>(atol(pid.c_str()));
}

// The temporary card tree the story reports.
std::string cardTree(const std::string& out) { return between(out, "sim    card ", ": SAM_0001"); }

// After camwifi-sim ended: the phone-sim it started is gone and the fixed
// ports are free again.
void expectNothingLeftRunning(const std::string& out) {
    const pid_t pid = phonePid(out);
    EXPECT_GT(pid, 0) << out;
    if (pid > 0) {
        EXPECT_TRUE(processGone(pid));
    }
    EXPECT_TRUE(simtest::portFree(7788));
    EXPECT_TRUE(simtest::portFree(8100));
}

// A failed story keeps its card tree for a look; the test removes it.
void removeKeptCard(const std::string& out) {
    const std::string card = cardTree(out);
    if (!card.empty()) {
        EXPECT_EQ(system(("rm -rf '" + card + "'").c_str()), 0);
    }
}

// ---- the default story --------------------------------------------------------

TEST_F(Sim, StoryPushesTheShrunkPhotoAndTheIdenticalVideoAndExitsZero) {
    Process sim;
    ASSERT_EQ(story(sim), 0) << sim.output();
    const std::string out = sim.output();
    // The summary: both files checked on the phone's side.
    EXPECT_NE(out.find("SAM_0001.JPG  OK    3000x2000 sent as 1920x1280"), std::string::npos) << out;
    EXPECT_NE(out.find("SAM_0002.MP4  OK    36,320 of 36,320 bytes received, identical"), std::string::npos) << out;
    EXPECT_NE(out.find("result        PASS"), std::string::npos) << out;
    // The story in the event log, UI events by name.
    for (const char* step :
         {"ui     MODE_NEW_PHONE (1)", "phone  mode server answered 200 OK, Operation-Mode: IDLE",
          "ui     PUSH_SERVER_READY (69)", "CurrentMode=SelectivePush SPServerPort=8100",
          "ui     PUSH_NEW_PHONE (61): a phone announced itself - phone 02:00:7f:00:00:05, number 01012345678",
          "phone  push server answered 200 OK (accepted)", "phone  POST SAM_0001.JPG: image/jpeg",
          "phone  POST SAM_0002.MP4: video/mp4, 36320 bytes, Resolution 240X160, Framerate 8.000000, Duration ld",
          "ui     PUSH_TRANSFER_COMPLETE (64)", "turned down by the camera: HEAD /sp/AppControl, Command: Getout",
          "CurrentMode=IDLE", "ui     MODE_PHONE_LEFT (2)", "phone-sim finished (status 0)"})
        EXPECT_NE(out.find(step), std::string::npos) << "missing: " << step << "\n" << out;
    // The progress bar reached its end for both files.
    EXPECT_NE(out.find("SAM_0001.JPG   [##############################] 100%"), std::string::npos) << out;
    EXPECT_NE(out.find("SAM_0002.MP4   [##############################] 100%"), std::string::npos) << out;
    // Nothing left behind: no phone process, no listening port, no card tree.
    expectNothingLeftRunning(out);
    const std::string card = cardTree(out);
    ASSERT_FALSE(card.empty()) << out;
    struct stat st {};
    EXPECT_NE(stat(card.c_str(), &st), 0) << "the temporary card tree is removed";
    // What the library printed itself went to its log, not into the story.
    EXPECT_EQ(out.find("ModeServerStart() Start"), std::string::npos);
    EXPECT_NE(simtest::readFile(m_log).find("ModeServerStart() Start: 0"), std::string::npos);
}

TEST_F(Sim, StoryPhoneFollowsThePushServerToTheNextPortWhen8100IsBusy) {
    simtest::PortHolder busy(8100);
    ASSERT_TRUE(busy.ok()) << "8100 is taken by something else";
    Process sim;
    ASSERT_EQ(story(sim), 0) << sim.output();
    const std::string out = sim.output();
    EXPECT_NE(out.find("single-phone push server listening on port 8101"), std::string::npos) << out;
    EXPECT_NE(out.find("CurrentMode=SelectivePush SPServerPort=8101"), std::string::npos) << out;
    EXPECT_NE(out.find("push server 127.0.0.1:8101: alive"), std::string::npos) << out;
}

TEST_F(Sim, StoryStopsWithAClearErrorWhenTheModeServerPortIsBusy) {
    simtest::PortHolder busy(7788);
    ASSERT_TRUE(busy.ok());
    Process sim;
    EXPECT_EQ(story(sim), 1);
    const std::string out = sim.output();
    EXPECT_NE(out.find("FAILED: port 7788 is busy"), std::string::npos) << out;
    EXPECT_NE(out.find("result        FAIL: port 7788 is busy"), std::string::npos) << out;
    EXPECT_EQ(out.find("phone-sim started"), std::string::npos) << "nothing starts after the failure";
}

TEST_F(Sim, StoryRefusesAMissingPhotoBeforeStartingAnything) {
    Process sim;
    EXPECT_EQ(story(sim, {"--photo", m_dir.path() + "/nope.jpg"}), 1);
    EXPECT_NE(sim.output().find("camwifi-sim: no such file: " + m_dir.path() + "/nope.jpg"), std::string::npos)
        << sim.output();
    EXPECT_EQ(sim.output().find("mode server started"), std::string::npos);
}

TEST_F(Sim, StoryRefusesAFileThatIsNotAPicture) {
    const std::string notes = m_dir.path() + "/notes.jpg";
    std::ofstream(notes) << "shopping list\n";
    Process sim;
    EXPECT_EQ(story(sim, {"--photo", notes}), 1);
    EXPECT_NE(sim.output().find("camwifi-sim: not a picture or video: " + notes), std::string::npos) << sim.output();
}

TEST_F(Sim, StoryTimesOutClearlyWhenThePhoneNeverRegisters) {
    Process sim;
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(story(sim, {"--phone-sim", silentPhone(), "--timeout", "1"}), 1);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0);
    EXPECT_GE(took.count(), 1000);
    EXPECT_LT(took.count(), 20000);
    const std::string out = sim.output();
    EXPECT_NE(out.find("FAILED: timed out after 1 s waiting for the phone to register with the mode server"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("ending phone-sim"), std::string::npos) << out;
    EXPECT_NE(out.find("card tree     kept at "), std::string::npos) << "kept for a look after a failure";
    expectNothingLeftRunning(out);
    removeKeptCard(out);
}

TEST_F(Sim, StoryInterruptedByCtrlCShutsDownCleanly) {
    Process sim;
    ASSERT_TRUE(sim.start(CAMWIFI_SIM, {"--phone-sim", silentPhone(), "--log", m_log}));
    ASSERT_TRUE(sim.waitOutput("phone-sim started", 15000)) << sim.output();
    sim.signal(SIGINT);
    EXPECT_EQ(sim.waitExit(15000), 130) << sim.output();
    const std::string out = sim.output();
    EXPECT_NE(out.find("FAILED: interrupted"), std::string::npos) << out;
    EXPECT_NE(out.find("mode server terminated"), std::string::npos) << out;
    expectNothingLeftRunning(out);
    removeKeptCard(out);
}

// ---- the interactive shell ------------------------------------------------------

TEST_F(Sim, ShellSaysWhichPortsAreOpenAndGivesClearErrors) {
    const std::string notes = m_dir.path() + "/notes.txt";
    std::ofstream(notes) << "not a picture\n";
    Process sim;
    ASSERT_TRUE(shell(sim)) << sim.output();
    sim.write("help\nstatus\nsend " + m_dir.path() + "/nope.jpg\nsend " + notes +
              "\nsend SAM_0001.JPG\nmode Holiday\nwait PUSH_NEW_PHONE 1\nfly away\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 1) << "failed commands make the exit status 1\n" << sim.output();
    const std::string out = sim.output();
    for (const char* text :
         {"mode server  port 7788/tcp", "push server  port 8100/tcp", "pictures on the card: SAM_0001.JPG SAM_0002.MP4",
          "  accept [MAC]", "  send FILE [MAC]", "single-phone on port 8100", "error: no such file: ",
          "error: not a picture or video: ", "error: no phone is accepted yet: nothing would be sent",
          "error: mode takes one of IDLE", "error: no PUSH_NEW_PHONE came within 1 s",
          "error: unknown command fly (help lists them)", "push server terminated", "mode server terminated",
          "camera stopped"})
        EXPECT_NE(out.find(text), std::string::npos) << "missing: " << text << "\n" << out;
    EXPECT_TRUE(simtest::portFree(7788));
    EXPECT_TRUE(simtest::portFree(8100));
}

TEST_F(Sim, ShellEndsLikeQuitAtTheEndOfItsInput) {
    Process sim;
    ASSERT_TRUE(shell(sim)) << sim.output();
    sim.write("status\n");
    sim.closeInput();
    EXPECT_EQ(sim.waitExit(kRunMs), 0) << sim.output();
    EXPECT_NE(sim.output().find("end of input: quitting"), std::string::npos);
    EXPECT_NE(sim.output().find("camera stopped"), std::string::npos);
}

TEST_F(Sim, ShellInterruptedByCtrlCTerminatesTheServers) {
    Process sim;
    ASSERT_TRUE(shell(sim)) << sim.output();
    sim.signal(SIGTERM);
    EXPECT_EQ(sim.waitExit(15000), 143) << sim.output();
    EXPECT_NE(sim.output().find("interrupted: shutting down"), std::string::npos) << sim.output();
    EXPECT_NE(sim.output().find("push server terminated"), std::string::npos);
    EXPECT_TRUE(simtest::portFree(7788));
    EXPECT_TRUE(simtest::portFree(8100));
}

// ---- phone-sim against camwifi-sim -------------------------------------------------

TEST_F(Sim, PhoneSimIsAcceptedReceivesAShrunkPhotoAndLeaves) {
    Process sim, ph;
    ASSERT_TRUE(shell(sim)) << sim.output();
    ASSERT_TRUE(phone(ph, 6, {"alive", "wait-files", "1", "byebye"}));
    sim.write("wait PUSH_NEW_PHONE 20\nphones\naccept\nsend SAM_0001.JPG\nwait PUSH_TRANSFER_COMPLETE 20\n"
              "wait PUSH_PHONE_LEFT 20\nphones\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 0) << sim.output();
    EXPECT_EQ(ph.waitExit(kRunMs), 0) << ph.output();
    const std::string out = sim.output();
    EXPECT_NE(out.find("02:00:7f:00:00:06  number 01000000000  asking"), std::string::npos) << out;
    EXPECT_NE(out.find("accepted the phone 02:00:7f:00:00:06 (number 01000000000) at the push server"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("ui     PUSH_PHONE_LEFT (63)"), std::string::npos) << out;
    EXPECT_NE(out.find("02:00:7f:00:00:06  number 01000000000  left  SAM_0001.JPG: complete"), std::string::npos)
        << out;
    EXPECT_NE(ph.output().find("push server closed the connection (left)"), std::string::npos) << ph.output();
    int w = 0, h = 0;
    ASSERT_TRUE(simtest::jpegFrameSize(simtest::readFile(store(6) + "/SAM_0001.JPG"), &w, &h));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(h, 1280);
}

TEST_F(Sim, PhoneSimStorageFullRefusalReachesTheUi) {
    Process sim, ph;
    ASSERT_TRUE(shell(sim)) << sim.output();
    ASSERT_TRUE(phone(ph, 7, {"--refuse", "full", "--nfc", "alive", "serve", "20"}));
    sim.write("wait PUSH_NEW_PHONE_NFC 20\naccept\nsend SAM_0002.MP4\nwait PUSH_STORAGE_FULL 20\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 0) << sim.output();
    ph.signal(SIGINT);
    EXPECT_EQ(ph.waitExit(kRunMs), 130) << ph.output();
    EXPECT_NE(ph.output().find("POST SAM_0002.MP4: video/mp4, 36320 bytes"), std::string::npos) << ph.output();
    EXPECT_NE(ph.output().find("answered 500, Sub-ErrorCode 2502 (storage full)"), std::string::npos);
    EXPECT_EQ(ph.output().find("stored "), std::string::npos) << "the body is never taken";
    EXPECT_NE(ph.output().find("turned down by the camera"), std::string::npos) << ph.output();
}

TEST_F(Sim, PhoneSimUnsupportedFileRefusalReachesTheUi) {
    Process sim, ph;
    ASSERT_TRUE(shell(sim)) << sim.output();
    ASSERT_TRUE(phone(ph, 8, {"--refuse", "unsupported", "alive", "serve", "20"}));
    sim.write("wait PUSH_NEW_PHONE 20\naccept\nsend SAM_0001.JPG\nwait PUSH_NOT_SUPPORTED 20\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 0) << sim.output();
    ph.signal(SIGTERM);
    EXPECT_EQ(ph.waitExit(kRunMs), 143);
    EXPECT_NE(ph.output().find("answered 500, Sub-ErrorCode 2503 (file type not supported)"), std::string::npos)
        << ph.output();
}

TEST_F(Sim, PhoneSimQueriesRegistersHearsTheModeChangeAndSaysGoodbye) {
    Process sim, ph;
    ASSERT_TRUE(shell(sim)) << sim.output();
    ASSERT_TRUE(phone(ph, 9, {"--name", "Tester", "query", "register", "wait-mode", "SelectivePush", "goodbye"}));
    sim.write("wait MODE_NEW_PHONE 20\naccept\n");
    // The mode change goes to registered phones only: wait for the answer.
    ASSERT_TRUE(ph.waitOutput("mode server answered 200 OK, Operation-Mode: IDLE\nwaiting for mode", 20000))
        << ph.output();
    sim.write("mode SelectivePush\nwait MODE_PHONE_LEFT 20\nphones\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 0) << sim.output();
    EXPECT_EQ(ph.waitExit(kRunMs), 0) << ph.output();
    const std::string po = ph.output(), so = sim.output();
    EXPECT_NE(po.find("mode server 127.0.0.1:7788: query\nmode server answered 200 OK, Operation-Mode: IDLE"),
              std::string::npos)
        << po;
    EXPECT_NE(po.find("event NOTIFY /eventCallback HTTP/1.1: CurrentMode=SelectivePush SPServerPort=8100"),
              std::string::npos)
        << po;
    EXPECT_NE(po.find("mode server 127.0.0.1:7788: goodbye\nmode server answered 200 OK, Operation-Mode: "
                      "SelectivePush"),
              std::string::npos)
        << po;
    EXPECT_NE(so.find("user agent \"tester\""), std::string::npos) << so;
    EXPECT_NE(so.find("mode is now SelectivePush: every registered phone took the NOTIFY"), std::string::npos) << so;
    EXPECT_NE(so.find("mode server: 0 registered phone(s)"), std::string::npos) << so;
}

TEST_F(Sim, PhoneSimRefusedByTheUserFailsItsRegistration) {
    Process sim, ph;
    ASSERT_TRUE(shell(sim)) << sim.output();
    ASSERT_TRUE(phone(ph, 10, {"register"}));
    sim.write("wait MODE_NEW_PHONE 20\ndeny\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 0) << sim.output();
    EXPECT_EQ(ph.waitExit(kRunMs), 1) << ph.output();
    EXPECT_NE(ph.output().find("mode server answered 401 Unauthorized"), std::string::npos) << ph.output();
    EXPECT_NE(ph.output().find("register (the camera's user decides) refused: 401 Unauthorized"), std::string::npos);
}

TEST_F(Sim, MultiPhoneShellSendsEachPhoneItsOwnFileByMac) {
    Process sim, first, second;
    ASSERT_TRUE(shell(sim, {"--multi"})) << sim.output();
    ASSERT_TRUE(phone(first, 11, {"alive", "wait-files", "1"}));
    sim.write("wait NPUSH_FIRST_PHONE 20\naccept 02:00:7f:00:00:0b\n");
    ASSERT_TRUE(first.waitOutput("push server answered 200 OK", 20000)) << first.output();
    ASSERT_TRUE(phone(second, 12, {"alive", "wait-files", "1"}));
    sim.write("wait NPUSH_ANOTHER_PHONE 20\naccept 02:00:7f:00:00:0c\n");
    ASSERT_TRUE(second.waitOutput("push server answered 200 OK", 20000)) << second.output();
    sim.write("phones\nsend SAM_0001.JPG 02:00:7f:00:00:0b\nsend SAM_0002.MP4 02:00:7f:00:00:0c\n"
              "send SAM_0001.JPG 02:00:7f:00:00:99\nwait NPUSH_TRANSFER_COMPLETE 20\nwait NPUSH_TRANSFER_COMPLETE 20\n"
              "quit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 1) << "the unknown MAC is an error\n" << sim.output();
    EXPECT_EQ(first.waitExit(kRunMs), 0) << first.output();
    EXPECT_EQ(second.waitExit(kRunMs), 0) << second.output();
    const std::string out = sim.output();
    EXPECT_NE(out.find("multi-phone push server listening on port 8100"), std::string::npos) << out;
    EXPECT_NE(out.find("ui     NPUSH_ANOTHER_PHONE (78)"), std::string::npos) << out;
    EXPECT_NE(out.find("error: the push server knows no phone 02:00:7f:00:00:99"), std::string::npos) << out;
    EXPECT_EQ(out.find("no NPUSH_TRANSFER_COMPLETE came"), std::string::npos) << out;
    int w = 0, h = 0;
    ASSERT_TRUE(simtest::jpegFrameSize(simtest::readFile(store(11) + "/SAM_0001.JPG"), &w, &h));
    EXPECT_EQ(w, 1920);
    EXPECT_EQ(simtest::readFile(store(12) + "/SAM_0002.MP4"), simtest::readFile(SIM_SAMPLES "/SAM_0002.MP4"));
}

}  // namespace
