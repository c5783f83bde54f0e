// camwifi-sim's TV side as its users run it: the TV story of scripts/sim.sh
// against gmediarender in network namespaces, the shell's tv commands piped
// in against the same kind of TV, and the clear errors of bad tv commands
// (these need no TV and run everywhere). The real DLNA stack throughout:
// the TV is a real renderer nobody here wrote.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "sim/sim_process.h"
#include "support/netns.h"
#include "support/test_support.h"

using simtest::Process;
using testsupport::NetNamespace;
using testsupport::NsProcess;

namespace {

const int kRunMs = 90000;  // bound on any one program run
const char* const kTvName = "Sim Test TV";
const char* const kTvUdn = "uuid:5eb1c0de-0000-4000-8000-00000000c0de";

bool haveGmediarender() { return std::system("command -v gmediarender >/dev/null 2>&1") == 0; }

class SimTv : public testing::Test {
protected:
    void SetUp() override {
        simtest::isolateNetwork();
        m_log = m_dir.path() + "/camwifi.log";
    }
    void TearDown() override {
        // What the library logged (and any sanitizer report) helps.
        if (HasFailure()) simtest::printLibraryLog(m_log, 300);
        m_renderer.reset();
        m_cam.reset();
        m_tv.reset();
    }

    // The TV (gmediarender, 198.51.100.1) and the camera (198.51.100.2) in
    // namespaces of their own, joined by a veth pair. "" when ready, else
    // why this machine cannot.
    std::string makeTvNetwork() {
        std::string why = testsupport::netnsUnavailableReason();
        if (!why.empty()) return why;
        if (!haveGmediarender()) return "gmediarender is not installed (scripts/setup.sh --upnp installs it)";
        m_tv.reset(new NetNamespace("cw-simtv"));
        m_cam.reset(new NetNamespace("cw-simcam"));
        if (!m_tv->ok() || !m_cam->ok()) return "ip netns add failed";
        // IPv6 off before the links come up (libupnp would race the
        // link-local address); multicast needs a route on the veth.
        const bool ok = m_tv->exec("ip link add tv0 type veth peer name cam0 netns " + m_cam->name()) == 0 &&
                        m_tv->exec("sysctl -qw net.ipv6.conf.tv0.disable_ipv6=1") == 0 &&
                        m_cam->exec("sysctl -qw net.ipv6.conf.cam0.disable_ipv6=1") == 0 &&
                        m_tv->exec("ip addr add 198.51.100.1/24 dev tv0") == 0 &&
                        m_cam->exec("ip addr add 198.51.100.2/24 dev cam0") == 0 &&
                        m_tv->exec("ip link set tv0 up") == 0 && m_cam->exec("ip link set cam0 up") == 0 &&
                        m_tv->exec("ip route add 239.0.0.0/8 dev tv0") == 0 &&
                        m_cam->exec("ip route add 239.0.0.0/8 dev cam0") == 0;
        if (!ok) return "could not set up the veth pair between the namespaces";
        m_renderer.reset(new NsProcess(*m_tv, {"gmediarender", "-I", "tv0", "-p", "49494", "-u",
                                               std::string(kTvUdn + 5), "-f", kTvName, "--gstout-audiopipe",
                                               "fakesink sync=true", "--gstout-videopipe", "fakesink sync=true"}));
        return "";
    }

    // camwifi-sim --interactive in the camera's namespace on its veth, on the
    // real DLNA stack, once the camera says it is ready.
    bool cameraShell(Process& p) {
        return p.start("/usr/bin/env", {"CAMWIFI_DLNA_STACK=upnp", "ip", "netns", "exec", m_cam->name(), CAMWIFI_SIM,
                                        "--interactive", "--iface", "cam0", "--log", m_log}) &&
               p.waitOutput("type help for the commands", 15000);
    }

    // The TV's own Master volume, asked by a SOAP request of curl's.
    std::string tvVolume() {
        const std::string body =
            "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
            "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body><u:GetVolume "
            "xmlns:u=\"urn:schemas-upnp-org:service:RenderingControl:1\"><InstanceID>0</InstanceID>"
            "<Channel>Master</Channel></u:GetVolume></s:Body></s:Envelope>";
        const std::string answer = m_cam->output(
            "curl -s -m 5 -X POST http://198.51.100.1:49494/upnp/control/rendercontrol1 -H 'SOAPACTION: "
            "\"urn:schemas-upnp-org:service:RenderingControl:1#GetVolume\"' -H 'Content-Type: text/xml; "
            "charset=\"utf-8\"' -d '" + body + "'");
        const size_t start = answer.find("<CurrentVolume>");
        const size_t end = answer.find("</CurrentVolume>");
        if (start == std::string::npos || end == std::string::npos) return "no answer: " + answer;
        return answer.substr(start + 15, end - start - 15);
    }

    testsupport::TempDir m_dir;
    std::string m_log;
    std::unique_ptr<NetNamespace> m_tv, m_cam;
    std::unique_ptr<NsProcess> m_renderer;
};

std::string dirOf(const std::string& path) { return path.substr(0, path.find_last_of('/')); }

// ---- the TV story ---------------------------------------------------------------

// scripts/sim.sh --story tv as a person runs it (with the programs already
// built): gmediarender in a namespace of its own is found, chosen, shows
// the sample photo, stops, and plays the sample video to its end; the
// camera's interface sent each file whole. Nothing is left behind.
TEST_F(SimTv, TvStoryShowsThePhotoAndPlaysTheVideoOnGmediarender) {
    Process story;
    ASSERT_TRUE(story.start("/usr/bin/env", {"CAMWIFI_SIM_BUILD=" + dirOf(CAMWIFI_SIM), "CAMWIFI_SIM_NO_BUILD=1",
                                             "bash", SIM_SCRIPT, "--story", "tv", "--log", m_log}));
    const int status = story.waitExit(kRunMs);
    const std::string out = story.output();
    if (status == 77) GTEST_SKIP() << out;
    ASSERT_EQ(status, 0) << out;
    for (const char* text :
         {"TV \"camwifi-sim TV\" (gmediarender, pid ", "renderer control point started on cam0 (198.51.100.2)",
          "ui     REFRESH_DMR_LIST (15)", "TV 0: camwifi-sim TV at 198.51.100.1, gmediarender",
          "ui     SHOW_READY (24)", "the TV stopped after the photo", "ui     PLAY_STARTED (17)",
          "ui     PLAY_COMPLETE (20)", "SAM_0001.JPG  OK    shown (SHOW_READY), the TV stopped after it; cam0 sent ",
          "bytes for the 59,833-byte file", "SAM_0002.MP4  OK    played (PLAY_STARTED, PLAY_COMPLETE ",
          "bytes for the 36,320-byte file", "result        PASS"})
        EXPECT_NE(out.find(text), std::string::npos) << "missing: " << text << "\n" << out;
    EXPECT_EQ(out.find("PLAY_FAILED"), std::string::npos) << out;
    // The story's namespaces are gone with it.
    const std::string pid = std::to_string(story.pid());
    FILE* p = popen("ip netns list 2>/dev/null", "r");
    ASSERT_NE(p, nullptr);
    std::string list;
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) list.append(buf, n);
    pclose(p);
    EXPECT_EQ(list.find("cwsim-tv-" + pid), std::string::npos) << list;
    EXPECT_EQ(list.find("cwsim-cam-" + pid), std::string::npos) << list;
}

// ---- the shell's tv commands against a real TV --------------------------------------

// Piped commands: the TV is listed with its name, address and model, chosen
// by name, shows a card photo (SHOW_READY), takes a volume (the TV itself
// then reports it), and shows a photo from outside the card (copied onto
// it, the card's database built again, the control point restarted and the
// chosen TV found again); bad inputs each give a clear error and make the
// exit status 1.
TEST_F(SimTv, ShellListsChoosesShowsAPhotoAndSetsTheVolumeOfARealTv) {
    const std::string why = makeTvNetwork();
    if (!why.empty()) GTEST_SKIP() << why;
    Process sim;
    ASSERT_TRUE(cameraShell(sim)) << sim.output();
    sim.write("tv show SAM_0001.JPG\ntv list\nwait REFRESH_DMR_LIST 20\ntv list\ntv use 5\ntv use \"sim test tv\"\ntv show nope.jpg\n"
              "tv show SAM_0002.MP4\ntv show SAM_0001.JPG\nwait SHOW_READY 30\ntv volume 101\ntv volume 30\n"
              "tv seek 1:2\ntv state\nstatus\n");
    ASSERT_TRUE(sim.waitOutput("  TV           renderer control point on cam0, Sim Test TV chosen", 60000))
        << sim.output();
    // The volume request has gone out: the TV's answer to it comes later.
    std::string volume;
    for (int i = 0; i < 50 && (volume = tvVolume()) != "30"; ++i) usleep(100 * 1000);
    EXPECT_EQ(volume, "30") << "the TV's own volume";
    const std::string outside = m_dir.path() + "/OUTSIDE.JPG";
    ASSERT_EQ(std::system(("cp " SIM_SAMPLES "/SAM_0001.JPG " + outside).c_str()), 0);
    sim.write("tv show " + outside + "\nwait SHOW_READY 30\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 1) << "failed commands make the exit status 1\n" << sim.output();
    const std::string out = sim.output();
    for (const std::string& text : std::vector<std::string>{
         "error: no TV chosen (tv list, then tv use N|NAME)",
          "  0  Sim Test TV  198.51.100.1  gmediarender  uuid:5eb1c0de-0000-4000-8000-00000000c0de",
          "error: no TV 5 in the list (1 TV(s); tv list shows it again)",
          "TV chosen: Sim Test TV (uuid:5eb1c0de-0000-4000-8000-00000000c0de) at 198.51.100.1",
          "error: no such file: nope.jpg (a path, or a name on the card)",
          "error: SAM_0002.MP4 is a video: tv play plays it", "showing SAM_0001.JPG on Sim Test TV",
          "ui     SHOW_READY (24)", "got SHOW_READY", "error: tv volume takes a level from 0 to 100",
          "volume 30 sent to Sim Test TV", "error: tv seek takes a time H:MM:SS or HH:MM:SS (such as 0:01:30), not 1:2",
          "Sim Test TV is ", "copied " + outside + " onto the card as ", "card's media database built: 3 file(s)",
          "showing OUTSIDE.JPG on Sim Test TV", "renderer control point terminated", "camera stopped"})
        EXPECT_NE(out.find(text), std::string::npos) << "missing: " << text << "\n" << out;
    const size_t firstShown = out.find("got SHOW_READY");
    EXPECT_NE(out.find("got SHOW_READY", firstShown + 1), std::string::npos) << "the second photo\n" << out;
    EXPECT_EQ(out.find("PLAY_FAILED"), std::string::npos) << out;
    EXPECT_TRUE(m_renderer->alive()) << "gmediarender has ended";
}

// ---- errors that need no TV -------------------------------------------------------

// tv commands with bad arguments or before a TV is chosen: each says what
// is wrong and what to do, nothing starts the renderer control point, and
// the exit status is 1.
TEST_F(SimTv, ShellTvCommandsGiveClearErrorsBeforeATvIsChosen) {
    Process sim;
    ASSERT_TRUE(sim.start(CAMWIFI_SIM, {"--interactive", "--log", m_log}) &&
                sim.waitOutput("type help for the commands", 15000))
        << sim.output();
    sim.write("help\nevents\ntv show SAM_0001.JPG\ntv play\ntv pause\ntv volume loud\ntv volume 30\n"
              "tv seek 90\ntv seek 0:61:00\ntv state\ntv off\ntv fly\ntv\nwait SHOW_READY 1\nwait 24 1\n"
              "wait TV_SHOW 1\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 1) << sim.output();
    const std::string out = sim.output();
    for (const char* text :
         {"  tv list ", "  tv use N|NAME ", "  tv show FILE ", "  tv seek HH:MM:SS ", "  tv volume N ",
          "  tv 24  SHOW_READY  the TV shows the photo", "  tv 15  REFRESH_DMR_LIST",
          "> tv show SAM_0001.JPG\n", "error: tv play FILE (a path, or a name on the card)",
          "error: tv volume takes a level from 0 to 100",
          "error: tv seek takes a time H:MM:SS or HH:MM:SS (such as 0:01:30), not 90",
          "error: tv seek takes a time H:MM:SS or HH:MM:SS (such as 0:01:30), not 0:61:00",
          "error: the renderer control point is not running",
          "error: tv takes list, use N|NAME, show FILE, play FILE, pause, resume, seek HH:MM:SS, volume N, stop, "
          "state or off",
          "error: no SHOW_READY came within 1 s", "error: no UI event is called TV_SHOW"})
        EXPECT_NE(out.find(text), std::string::npos) << "missing: " << text << "\n" << out;
    // "tv show", "tv pause", "tv volume 30" and "tv state" without a TV.
    size_t noTv = 0;
    for (size_t at = out.find("error: no TV chosen (tv list, then tv use N|NAME)"); at != std::string::npos;
         at = out.find("error: no TV chosen", at + 1))
        ++noTv;
    EXPECT_EQ(noTv, 4u) << out;
    EXPECT_EQ(out.find("renderer control point started"), std::string::npos) << out;
    EXPECT_EQ(out.find("media database built"), std::string::npos) << out;
}

// Without a network interface other than loopback (this test's own empty
// namespace) the first tv command that needs the network says so.
TEST_F(SimTv, TvListWithoutANetworkSaysWhichInterfaceItNeeds) {
    if (!simtest::isolateNetwork()) GTEST_SKIP() << "needs a network namespace of its own (root)";
    Process sim;
    ASSERT_TRUE(sim.start("/usr/bin/env", {"CAMWIFI_DLNA_STACK=upnp", CAMWIFI_SIM, "--interactive", "--log", m_log}) &&
                sim.waitOutput("type help for the commands", 15000))
        << sim.output();
    sim.write("tv list\nquit\n");
    EXPECT_EQ(sim.waitExit(kRunMs), 1) << sim.output();
    EXPECT_NE(sim.output().find("error: no network interface with an IPv4 address other than loopback: the TV "
                                "commands need the network the TV is on (--iface NAME)"),
              std::string::npos)
        << sim.output();
}

// An --iface that does not exist is refused before anything starts.
TEST_F(SimTv, UnknownInterfaceIsRefusedAtStart) {
    Process sim;
    ASSERT_TRUE(sim.start(CAMWIFI_SIM, {"--interactive", "--iface", "nosuch0", "--log", m_log}));
    EXPECT_EQ(sim.waitExit(kRunMs), 2) << sim.output();
    EXPECT_NE(sim.output().find("camwifi-sim: --iface nosuch0: no such network interface with an IPv4 address"),
              std::string::npos)
        << sim.output();
    EXPECT_EQ(sim.output().find("mode server started"), std::string::npos);
}

}  // namespace
