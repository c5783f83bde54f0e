// phone-sim: the phone's side of the camera's push and mode protocols, as a
// program of its own, for camwifi-sim or a real camera.
//
// It runs a data server (files the camera pushes land in a folder) and an
// event receiver (the camera's mode-change NOTIFYs) for its whole life, and
// performs the steps named on its command line in order. See usage() below.
#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "camera_link.h"
#include "data_server.h"
#include "notify_receiver.h"
#include "output.h"

using namespace phonesim;

namespace {

void usage(FILE* to) {
    fprintf(to,
            "usage: phone-sim [OPTIONS] STEP...\n"
            "\n"
            "Plays a phone for a camera's push and mode servers. Its data server (files\n"
            "pushed by the camera) and its event receiver (the camera's NOTIFYs) run\n"
            "while the steps are performed in order.\n"
            "\n"
            "Steps:\n"
            "  query           ask the mode server for the camera's operation mode\n"
            "  register        announce to the mode server with a CALLBACK to our event\n"
            "                  receiver (waits while the camera's user decides)\n"
            "  goodbye         tell the mode server that we leave\n"
            "  alive           announce to the push server with our data server's address\n"
            "                  (waits while the camera's user decides)\n"
            "  byebye          leave the push server\n"
            "  wait-mode NAME  wait for a NOTIFY whose CurrentMode is NAME\n"
            "  wait-files N    wait until N files have been stored\n"
            "  serve [SEC]     keep serving for SEC seconds (default: until Ctrl-C)\n"
            "  follow          behave like a companion app: register, then on each NOTIFY:\n"
            "                  SelectivePush -> alive at the SPServerPort it names;\n"
            "                  IDLE after another mode -> goodbye, and finish\n"
            "\n"
            "Options:\n"
            "  --camera ADDR      the camera's IPv4 address (127.0.0.1)\n"
            "  --ip ADDR          the phone's own address: its requests come from it, its\n"
            "                     servers listen on it (127.0.0.5; on a real network the\n"
            "                     address of this machine's interface)\n"
            "  --mode-port N      the camera's mode server port (7788)\n"
            "  --push-port N      the camera's push server port (8100)\n"
            "  --data-port N      our data server's port (0: any free one)\n"
            "  --notify-port N    our event receiver's port (0: any free one)\n"
            "  --store DIR        where received files go (./phone-sim-files)\n"
            "  --refuse full      answer every push with 500, Sub-ErrorCode 2502 (storage full)\n"
            "  --refuse unsupported   ... with Sub-ErrorCode 2503 (file type not supported)\n"
            "  --name NAME        user agent suffix: ORB_MODE_NAME, ORB_SP_NAME (PhoneSim)\n"
            "  --number NUMBER    phone number sent as HOST-PNumber (01000000000)\n"
            "  --nfc              announce to the push server with Access-Method: nfc\n"
            "  --timeout SEC      longest wait of any one step (30)\n"
            "\n"
            "Exit status: 0 when every step succeeded, 1 when one failed, 2 for a usage\n"
            "error, 130/143 after SIGINT/SIGTERM.\n");
}

struct Options {
    std::string camera = "127.0.0.1";
    std::string ip = "127.0.0.5";
    int modePort = 7788;
    int pushPort = 8100;
    int dataPort = 0;
    int notifyPort = 0;
    std::string store = "phone-sim-files";
    DataServer::Refusal refusal = DataServer::Refusal::None;
    std::string name = "PhoneSim";
    std::string number = "01000000000";
    bool nfc = false;
    int timeoutMs = 30000;
    std::vector<std::string> steps;
};

bool parseInt(const char* text, int low, int high, int* out) {
    char* end = nullptr;
    errno = 0;
    const long v = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || v < low || v > high) return false;
    *out = static_cast<int>(v);
    return true;
}

// 0 parsed, 2 usage error (already reported).
int parseOptions(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](const char** out) {
            if (i + 1 >= argc) {
                complain(a + " needs a value");
                return false;
            }
            *out = argv[++i];
            return true;
        };
        const char* v = nullptr;
        auto port = [&](int* out) {
            if (!value(&v)) return false;
            if (!parseInt(v, 0, 65535, out)) {
                complain(a + ": not a port: " + v);
                return false;
            }
            return true;
        };
        if (a == "-h" || a == "--help") {
            usage(stdout);
            exit(0);
        } else if (a == "--camera") {
            if (!value(&v)) return 2;
            o->camera = v;
        } else if (a == "--ip") {
            if (!value(&v)) return 2;
            o->ip = v;
        } else if (a == "--mode-port") {
            if (!port(&o->modePort)) return 2;
        } else if (a == "--push-port") {
            if (!port(&o->pushPort)) return 2;
        } else if (a == "--data-port") {
            if (!port(&o->dataPort)) return 2;
        } else if (a == "--notify-port") {
            if (!port(&o->notifyPort)) return 2;
        } else if (a == "--store") {
            if (!value(&v)) return 2;
            o->store = v;
        } else if (a == "--refuse") {
            if (!value(&v)) return 2;
            if (std::string(v) == "full") {
                o->refusal = DataServer::Refusal::StorageFull;
            } else if (std::string(v) == "unsupported") {
                o->refusal = DataServer::Refusal::Unsupported;
            } else {
                complain("--refuse takes full or unsupported, not " + std::string(v));
                return 2;
            }
        } else if (a == "--name") {
            if (!value(&v)) return 2;
            o->name = v;
        } else if (a == "--number") {
            if (!value(&v)) return 2;
            o->number = v;
        } else if (a == "--nfc") {
            o->nfc = true;
        } else if (a == "--timeout") {
            int s = 0;
            if (!value(&v) || !parseInt(v, 1, 86400, &s)) {
                complain("--timeout takes a number of seconds");
                return 2;
            }
            o->timeoutMs = s * 1000;
        } else if (!a.empty() && a[0] == '-') {
            complain("unknown option " + a + " (see --help)");
            return 2;
        } else {
            o->steps.push_back(a);
        }
    }
    if (o->steps.empty()) {
        usage(stderr);
        return 2;
    }
    return 0;
}

void onSignal(int sig) { gStopSignal.store(sig); }

class Phone {
public:
    explicit Phone(const Options& o) : m_o(o), m_data(o.store, o.refusal) {}

    bool start() {
        if (mkdir(m_o.store.c_str(), 0755) != 0 && errno != EEXIST) {
            complain("cannot make the store folder " + m_o.store + ": " + strerror(errno));
            return false;
        }
        std::string error;
        if (!m_data.start(m_o.ip, m_o.dataPort, &error) || !m_events.start(m_o.ip, m_o.notifyPort, &error)) {
            complain(error);
            return false;
        }
        say("phone " + m_o.ip + " ready: data server " + m_o.ip + ":" + std::to_string(m_data.port()) +
            ", event receiver " + m_o.ip + ":" + std::to_string(m_events.port()) + ", files go to " + m_o.store);
        return true;
    }

    void stop() {
        m_data.stop();
        m_events.stop();
    }

    // Runs the steps in order; false at the first that fails.
    bool run() {
        const auto& s = m_o.steps;
        for (size_t i = 0; i < s.size(); ++i) {
            if (stopRequested()) return false;
            const std::string& step = s[i];
            // Steps with an argument take the next word.
            const bool hasArg = i + 1 < s.size() && isdigitText(s[i + 1]);
            bool ok = false;
            if (step == "query") {
                ok = modeRequest("query", "");
            } else if (step == "register") {
                ok = registerForEvents();
            } else if (step == "goodbye") {
                ok = modeRequest("goodbye", "NTS: byebye\r\n");
            } else if (step == "alive") {
                ok = alive(m_o.pushPort);
            } else if (step == "byebye") {
                ok = byebye(m_o.pushPort);
            } else if (step == "wait-mode") {
                if (i + 1 >= s.size()) return usageError("wait-mode needs a mode name");
                ok = waitMode(s[++i]);
            } else if (step == "wait-files") {
                if (!hasArg) return usageError("wait-files needs a number");
                ok = waitFiles(static_cast<size_t>(atoi(s[++i].c_str())));
            } else if (step == "serve") {
                ok = serve(hasArg ? atoi(s[++i].c_str()) : -1);
            } else if (step == "follow") {
                ok = follow();
            } else {
                return usageError("unknown step " + step + " (see --help)");
            }
            if (!ok) return false;
        }
        return true;
    }

    bool usageFailed() const { return m_usageError; }

private:
    static bool isdigitText(const std::string& t) {
        return !t.empty() && t.find_first_not_of("0123456789") == std::string::npos;
    }

    bool usageError(const std::string& text) {
        complain(text);
        m_usageError = true;
        return false;
    }

    std::string modeRequestText(const std::string& extra) const {
        return "GET /mode/control HTTP/1.1\r\nHOST: " + m_o.camera + ":" + std::to_string(m_o.modePort) +
               "\r\nUser-Agent: ORB_MODE_" + m_o.name + "\r\n" + extra + "\r\n";
    }

    bool modeRequest(const std::string& what, const std::string& extra) {
        say("mode server " + m_o.camera + ":" + std::to_string(m_o.modePort) + ": " + what);
        const Reply r = exchange(m_o.ip, m_o.camera, m_o.modePort, modeRequestText(extra), m_o.timeoutMs);
        if (!r.complete) {
            complain(what + " failed: " + (r.error.empty() ? "the camera closed the connection" : r.error));
            return false;
        }
        say("mode server answered " + r.statusLine() + ", Operation-Mode: " + r.header("operation-mode"));
        if (r.status != 200) complain(what + " refused: " + r.statusLine());
        return r.status == 200;
    }

    bool registerForEvents() {
        const std::string callback =
            "<http://" + m_o.ip + ":" + std::to_string(m_events.port()) + "/eventCallback>";
        return modeRequest("register (the camera's user decides)", "NTS: alive\r\nCALLBACK: " + callback + "\r\n");
    }

    bool alive(int port) {
        const std::string request =
            "GET /sp/control HTTP/1.1\r\nHOST: " + m_o.camera + ":" + std::to_string(port) +
            "\r\nNTS: alive\r\nUser-Agent: Android ORB_SP_" + m_o.name + "\r\nHOST-PNumber: " + m_o.number +
            "\r\nData-Server: " + m_o.ip + ":" + std::to_string(m_data.port()) + "\r\n" +
            (m_o.nfc ? "Access-Method: nfc\r\n" : "") + "\r\n";
        say("push server " + m_o.camera + ":" + std::to_string(port) + ": alive" + (m_o.nfc ? " (NFC)" : "") +
            " (the camera's user decides)");
        const Reply r = exchange(m_o.ip, m_o.camera, port, request, m_o.timeoutMs);
        if (!r.complete) {
            complain("alive failed: " + (r.error.empty() ? "the camera closed the connection" : r.error));
            return false;
        }
        say("push server answered " + r.statusLine() + (r.status == 200 ? " (accepted)" : ""));
        if (r.status != 200) complain("alive refused: " + r.statusLine());
        return r.status == 200;
    }

    bool byebye(int port) {
        const std::string request = "GET /sp/control HTTP/1.1\r\nHOST: " + m_o.camera + ":" + std::to_string(port) +
                                    "\r\nNTS: byebye\r\nData-Server: " + m_o.ip + ":" +
                                    std::to_string(m_data.port()) + "\r\n\r\n";
        say("push server " + m_o.camera + ":" + std::to_string(port) + ": byebye");
        const Reply r = exchange(m_o.ip, m_o.camera, port, request, m_o.timeoutMs);
        // The camera closes the connection without a reply.
        if (r.closed || r.complete) {
            say(r.complete ? "push server answered " + r.statusLine() : "push server closed the connection (left)");
            return true;
        }
        complain("byebye failed: " + r.error);
        return false;
    }

    bool waitMode(const std::string& mode) {
        say("waiting for mode " + mode);
        Notice n;
        while (m_events.next(&n, m_o.timeoutMs)) {
            noteMode(n);
            if (n.property("CurrentMode") == mode) return true;
        }
        complain("no NOTIFY with CurrentMode " + mode + " came in time");
        return false;
    }

    bool waitFiles(size_t count) {
        if (m_data.waitStored(count, m_o.timeoutMs)) return true;
        complain("waited for " + std::to_string(count) + " files, have " + std::to_string(m_data.stored().size()));
        return false;
    }

    bool serve(int seconds) {
        say(seconds < 0 ? "serving until Ctrl-C" : "serving for " + std::to_string(seconds) + " s");
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds < 0 ? 0 : seconds);
        while (!stopRequested() && (seconds < 0 || std::chrono::steady_clock::now() < end))
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return !stopRequested();
    }

    void noteMode(const Notice& n) {
        const std::string mode = n.property("CurrentMode");
        if (!mode.empty()) m_lastMode = mode;
    }

    // The companion app: registered, it does what each mode change asks.
    // Every wait is bounded by the time-out, counted from the last NOTIFY.
    bool follow() {
        if (!registerForEvents()) return false;
        say("following the camera's mode");
        bool leftIdle = false;
        Notice n;
        while (m_events.next(&n, m_o.timeoutMs)) {
            noteMode(n);
            const std::string mode = n.property("CurrentMode");
            if (mode == "SelectivePush") {
                leftIdle = true;
                const std::string portText = n.property("SPServerPort");
                int port = m_o.pushPort;
                if (!portText.empty() && !parseInt(portText.c_str(), 1, 65535, &port)) {
                    complain("SelectivePush with a bad SPServerPort " + portText);
                    return false;
                }
                if (!alive(port)) return false;
            } else if (mode == "IDLE") {
                if (leftIdle) {
                    const bool ok = modeRequest("goodbye", "NTS: byebye\r\n");
                    say("done: " + std::to_string(m_data.stored().size()) + " files received");
                    return ok;
                }
            } else {
                leftIdle = true;
            }
        }
        complain(stopRequested() ? "stopped" : "no NOTIFY came within the time-out; last mode " + m_lastMode);
        return false;
    }

    const Options& m_o;
    DataServer m_data;
    NotifyReceiver m_events;
    std::string m_lastMode = "unknown";
    bool m_usageError = false;
};

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (const int rc = parseOptions(argc, argv, &o)) return rc;

    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    Phone phone(o);
    if (!phone.start()) {
        phone.stop();
        return 1;
    }
    const bool ok = phone.run();
    phone.stop();
    if (const int sig = gStopSignal.load()) {
        say("stopped by signal " + std::to_string(sig));
        return 128 + sig;
    }
    if (phone.usageFailed()) return 2;
    return ok ? 0 : 1;
}
