// camwifi-sim: the camera on a PC. It loads libcamwifi.so as the camera's
// UI process does (the public header and the exported functions only) over
// the host stand-ins of the camera's closed libraries, and either plays the
// push story with phone-sim as the phone, or gives a person a command line.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "camera_ui.h"
#include "card.h"
#include "media.h"
#include "shell.h"
#include "sim_log.h"
#include "story.h"
#include "tv.h"
#include "tv_story.h"

using namespace camsim;

namespace {

std::atomic<int> gStopSignal{0};
int gWakePipe[2] = {-1, -1};

void onSignal(int sig) {
    gStopSignal.store(sig);
    const char c = static_cast<char>(sig);
    ssize_t ignored = write(gWakePipe[1], &c, 1);
    (void)ignored;
}

std::string besideThisProgram(const std::string& name) {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return name;
    self[n] = '\0';
    std::string dir(self);
    return dir.substr(0, dir.find_last_of('/') + 1) + name;
}

// An installed camwifi-sim finds the samples installed with it
// (<bindir>/../share/camwifi/samples); one run from its build tree finds
// them in the source tree.
std::string defaultSamples() {
    const std::string installed = besideThisProgram(CAMWIFI_SIM_INSTALLED_SAMPLES_DIR);
    struct stat st;
    if (stat((installed + "/SAM_0001.JPG").c_str(), &st) == 0) return installed;
    return CAMWIFI_SIM_SAMPLES_DIR;
}

void usage(FILE* to) {
    fprintf(to,
            "usage: camwifi-sim [OPTIONS]                 play the push story (phone-sim is the phone)\n"
            "       camwifi-sim --story tv [OPTIONS]      play the TV story on a TV of the network\n"
            "       camwifi-sim --interactive [OPTIONS]   run the camera at a command line\n"
            "\n"
            "The story: the mode server starts; phone-sim registers with it and is\n"
            "accepted; the camera switches to the push mode and phone-sim, told by a\n"
            "NOTIFY, announces itself to the push server and is accepted; the camera\n"
            "pushes a photo (shrunk to a 1920-pixel long side) and a video with a progress\n"
            "bar; the camera goes back to idle and everything ends. Exit status 0 only\n"
            "when every received file matches what was sent.\n"
            "\n"
            "The TV story: the renderer control point starts on the network (--iface);\n"
            "the camera lists the TVs (DLNA renderers), chooses one (--tv NAME, or the\n"
            "first), shows the photo on it, waits until the TV has stopped, and plays the\n"
            "video to its end. Exit status 0 only when the TV reported the photo shown\n"
            "and the video played out, and the interface sent at least each file's size.\n"
            "scripts/sim.sh --story tv plays it against gmediarender in network\n"
            "namespaces of its own.\n"
            "\n"
            "Options:\n"
            "  --photo FILE       the JPEG to push (default: the sample SAM_0001.JPG)\n"
            "  --video FILE       the MP4 to push (default: the sample SAM_0002.MP4)\n"
            "  --samples DIR      where the samples are (%s)\n"
            "  --phone-sim PATH   the phone-sim program (default: beside camwifi-sim)\n"
            "  --timeout SEC      longest wait of any one step of the story (20)\n"
            "  --story push|tv    the push story (default) or the TV story\n"
            "  --iface NAME       the network interface of the TVs (sets CAMWIFI_IFACE for the\n"
            "                     library; default: the last one with an IPv4 address)\n"
            "  --tv NAME          TV story: the TV to choose by its name (default: the first)\n"
            "  --interactive      the command line instead of the story\n"
            "  --multi            interactive: start the multi-phone push server\n"
            "  --auto-accept      interactive: say yes to every phone at once\n"
            "  --log FILE         the library's log (default: in the temporary card tree)\n"
            "  --keep             keep the temporary card tree (it is kept after a failure)\n"
            "  --library-output   leave what the library prints on standard output and\n"
            "                     error on the terminal (default: into its log file)\n"
            "\n"
            "The mode server needs port 7788, the push server one of 8100 to 8102, the\n"
            "TV commands port %d for the streaming server that TVs fetch files from.\n",
            defaultSamples().c_str(), kStreamingPort);
}

struct Args {
    bool interactive = false;
    bool multi = false;
    bool autoAccept = false;
    bool keep = false;
    bool libraryOutput = false;
    std::string samples = defaultSamples();
    std::string photo, video, phoneSim, log;
    std::string story = "push";
    std::string iface, tvName;
    int timeoutSeconds = 20;
};

// 0 parsed, else the exit status.
int parse(int argc, char** argv, Args* a) {
    for (int i = 1; i < argc; ++i) {
        const std::string o = argv[i];
        auto value = [&](std::string* out) {
            if (i + 1 >= argc) {
                fprintf(stderr, "camwifi-sim: %s needs a value\n", o.c_str());
                return false;
            }
            *out = argv[++i];
            return true;
        };
        std::string v;
        if (o == "-h" || o == "--help") {
            usage(stdout);
            exit(0);
        } else if (o == "--interactive" || o == "-i") {
            a->interactive = true;
        } else if (o == "--multi") {
            a->multi = true;
        } else if (o == "--auto-accept") {
            a->autoAccept = true;
        } else if (o == "--keep") {
            a->keep = true;
        } else if (o == "--library-output") {
            a->libraryOutput = true;
        } else if (o == "--photo") {
            if (!value(&a->photo)) return 2;
        } else if (o == "--video") {
            if (!value(&a->video)) return 2;
        } else if (o == "--samples") {
            if (!value(&a->samples)) return 2;
        } else if (o == "--phone-sim") {
            if (!value(&a->phoneSim)) return 2;
        } else if (o == "--log") {
            if (!value(&a->log)) return 2;
        } else if (o == "--story") {
            if (!value(&a->story)) return 2;
            if (a->story != "push" && a->story != "tv") {
                fprintf(stderr, "camwifi-sim: --story takes push or tv\n");
                return 2;
            }
        } else if (o == "--iface") {
            if (!value(&a->iface)) return 2;
        } else if (o == "--tv") {
            if (!value(&a->tvName)) return 2;
        } else if (o == "--timeout") {
            if (!value(&v)) return 2;
            char* end = nullptr;
            a->timeoutSeconds = static_cast<int>(strtol(v.c_str(), &end, 10));
            if (*end != '\0' || a->timeoutSeconds < 1 || a->timeoutSeconds > 3600) {
                fprintf(stderr, "camwifi-sim: --timeout takes a number of seconds from 1 to 3600\n");
                return 2;
            }
        } else {
            fprintf(stderr, "camwifi-sim: unknown argument %s (see --help)\n", o.c_str());
            return 2;
        }
    }
    if (a->interactive && a->story != "push") {
        fprintf(stderr, "camwifi-sim: --story and --interactive do not go together\n");
        return 2;
    }
    // Checked before anything starts: the library would only log it.
    if (!a->iface.empty() && interfaceAddress(a->iface).empty()) {
        fprintf(stderr, "camwifi-sim: --iface %s: no such network interface with an IPv4 address\n",
                a->iface.c_str());
        return 2;
    }
    if (a->photo.empty()) a->photo = a->samples + "/SAM_0001.JPG";
    if (a->video.empty()) a->video = a->samples + "/SAM_0002.MP4";
    if (a->phoneSim.empty()) {
        const char* env = getenv("CAMWIFI_PHONE_SIM");
        a->phoneSim = env && *env ? env : besideThisProgram("phone-sim");
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Args a;
    if (const int rc = parse(argc, argv, &a)) return rc;
    if (!a.iface.empty()) setenv("CAMWIFI_IFACE", a.iface.c_str(), 1);

    // Files named on the command line are checked before anything starts.
    if (!a.interactive) {
        for (const std::string* f : {&a.photo, &a.video}) {
            MediaKind kind;
            std::string why;
            if (!checkPushable(*f, &kind, &why)) {
                fprintf(stderr, "camwifi-sim: %s\n", why.c_str());
                return 1;
            }
        }
    }

    if (pipe2(gWakePipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        fprintf(stderr, "camwifi-sim: pipe: %s\n", strerror(errno));
        return 1;
    }
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    CardTree card;
    std::string why;
    if (!card.create(a.log, &why)) {
        fprintf(stderr, "camwifi-sim: %s\n", why.c_str());
        return 1;
    }
    if (a.keep) card.keep();

    // The event log goes where standard output went. What the library itself
    // prints on standard output and error (its own copies of error lines,
    // such as a loopback phone's unknown MAC) joins its log file, unless
    // asked for: the UI events already say what went wrong.
    const int outFd = dup(1);
    FILE* out = outFd >= 0 ? fdopen(outFd, "w") : nullptr;
    const int logFd = open(card.logPath().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (out == nullptr || logFd < 0) {
        fprintf(stderr, "camwifi-sim: cannot open the log %s: %s\n", card.logPath().c_str(), strerror(errno));
        return 1;
    }
    if (!a.libraryOutput) {
        fflush(stdout);
        fflush(stderr);
        dup2(logFd, 1);
        dup2(logFd, 2);
        setvbuf(stdout, nullptr, _IOLBF, 0);
    }
    close(logFd);

    SimLog log(out);
    CameraUi::instance().attach(&log);
    int status;
    if (a.interactive) {
        ShellOptions so;
        so.multi = a.multi;
        so.autoAccept = a.autoAccept;
        so.samplesDir = a.samples;
        status = runShell(log, card, so, gWakePipe[0], gStopSignal);
    } else if (a.story == "tv") {
        TvStoryOptions so;
        so.photo = a.photo;
        so.video = a.video;
        so.tvName = a.tvName;
        so.stepTimeoutMs = a.timeoutSeconds * 1000;
        status = runTvStory(log, card, so, gStopSignal);
    } else {
        StoryOptions so;
        so.photo = a.photo;
        so.video = a.video;
        so.phoneSim = a.phoneSim;
        so.stepTimeoutMs = a.timeoutSeconds * 1000;
        status = runStory(log, card, so, gStopSignal);
    }
    if (card.kept()) log.line("sim", "card tree kept at " + card.root());
    log.flush();
    CameraUi::instance().attach(nullptr);
    fclose(out);
    return status;
}
