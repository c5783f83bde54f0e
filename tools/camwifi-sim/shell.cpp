#include "shell.h"

#include <dirent.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <vector>

#include "camera_ui.h"
#include "camwifi/camwifi.h"
#include "media.h"
#include "ports.h"
#include "tv.h"

namespace camsim {

namespace {

const char* kModelName = "SIM-CAMERA";
const int kDefaultWaitSeconds = 30;

const char* kHelp =
    "commands:\n"
    "  help                   this list\n"
    "  status                 mode, servers, ports, resize setting\n"
    "  phones                 phones the servers reported, and questions waiting\n"
    "  accept [MAC]           say yes to the phone waiting for an answer (the oldest,\n"
    "                         or the one with MAC)\n"
    "  deny [MAC]             say no to it\n"
    "  mode NAME|N            change the camera's mode; registered phones get a NOTIFY\n"
    "                         (IDLE PhonePull RVF InstantSend SelectivePush CrowdSend\n"
    "                         PhoneArchive, or 0..6)\n"
    "  push single|multi|off  start the single- or multi-phone push server, or stop it\n"
    "  send FILE [MAC]        push FILE (a path, or a name on the card) to the accepted\n"
    "                         phone, or in multi-phone mode to the phone MAC\n"
    "  stop [MAC]             stop the running transfer (of MAC in multi-phone mode)\n"
    "  disconnect [MAC]       drop the phone from the push server's list\n"
    "  allow on|off           multi-phone: open or close the group to new phones\n"
    "  resize on|off          shrink photos to a 1920-pixel long side (next push start)\n"
    "  tv list                the TVs (DLNA renderers) on the network, numbered\n"
    "  tv use N|NAME          choose the TV of row N (or by name or UDN)\n"
    "  tv show FILE           show a photo (a path, or a name on the card) on the TV\n"
    "  tv play FILE           play a video (or a photo) on the TV\n"
    "  tv pause | tv resume   pause the video, play it on\n"
    "  tv seek HH:MM:SS       jump to that time of the video\n"
    "  tv volume N            set the TV's volume, 0..100\n"
    "  tv stop                stop what the TV plays\n"
    "  tv state               what the chosen TV last reported (playing, stopped, ...)\n"
    "  tv off                 stop the renderer control point (the next tv command\n"
    "                         starts it again)\n"
    "  wait EVENT [SECONDS]   wait for a UI event not waited for before (a name such as\n"
    "                         PUSH_NEW_PHONE or SHOW_READY, or a number; default 30 s)\n"
    "  events                 the names of the UI events\n"
    "  quit                   terminate everything and exit (also: end of input, Ctrl-C)";

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> out;
    std::string w;
    while (in >> w) out.push_back(w);
    return out;
}

class Shell {
public:
    Shell(SimLog& log, CardTree& card, const ShellOptions& o, int wakeFd, const std::atomic<int>& stop)
        : m_log(log), m_card(card), m_o(o), m_wakeFd(wakeFd), m_stop(stop), m_ui(CameraUi::instance()),
          m_tv(log, card) {}

    int run() {
        if (!start()) {
            m_ui.stopPush();
            m_ui.stopModeServer();
            return 1;
        }
        loop();
        if (m_stop.load() != 0) m_log.line("sim", "interrupted: shutting down");
        m_tv.stop();
        m_ui.stopPush();
        m_ui.stopModeServer();
        m_log.line("sim", "camera stopped");
        if (m_stop.load() != 0) return 128 + m_stop.load();
        return m_failures == 0 ? 0 : 1;
    }

private:
    void say(const std::string& text) { m_log.line("sim", text); }
    bool error(const std::string& text) {
        m_log.line("sim", "error: " + text);
        ++m_failures;
        return false;
    }

    bool start() {
        std::string why;
        DlnaSetModelName(kModelName);
        DlnaSetTransferSize(m_resize ? 0 : 1);
        m_ui.setAutoAccept(m_o.autoAccept);
        copySamples();
        if (!m_ui.startModeServer(0, &why)) return error(why);
        if (!m_ui.startPush(m_o.multi, 10000, &why)) return error(why);
        m_log.plain("");
        m_log.plain("camwifi-sim: the camera is ready (model " + std::string(kModelName) + ", library log " +
                    m_card.logPath() + ")");
        m_log.plain("  mode server  port 7788/tcp  GET /mode/control (NTS: alive with CALLBACK registers)");
        m_log.plain("  push server  port " + std::to_string(m_ui.pushPort()) +
                    "/tcp  GET /sp/control (NTS: alive with Data-Server announces)");
        const std::vector<std::string> addresses = networkAddresses();
        std::string where = "127.0.0.1 (this machine)";
        for (auto& a : addresses) where += ", " + a;
        m_log.plain("  reachable at " + where);
        m_log.plain("  pictures on the card: " + (m_cardFiles.empty() ? std::string("none") : m_cardFiles));
        m_log.plain("  type help for the commands" +
                    std::string(m_o.autoAccept ? "; every phone is accepted at once" : ""));
        m_log.plain("");
        return true;
    }

    void copySamples() {
        if (m_o.samplesDir.empty()) return;
        DIR* d = opendir(m_o.samplesDir.c_str());
        if (d == nullptr) return;
        while (dirent* e = readdir(d)) {
            const std::string path = m_o.samplesDir + "/" + e->d_name;
            MediaKind kind;
            std::string why, cardPath;
            if (e->d_name[0] == '.' || !checkPushable(path, &kind, &why)) continue;
            if (m_card.addPicture(path, &cardPath, &why))
                m_cardFiles += (m_cardFiles.empty() ? "" : " ") + std::string(e->d_name);
        }
        closedir(d);
    }

    // Reads standard input line by line until quit, its end, or a signal.
    void loop() {
        const bool tty = m_tty;
        std::string pending;
        for (;;) {
            if (tty) m_log.prompt("camwifi> ");
            size_t nl;
            while ((nl = pending.find('\n')) == std::string::npos) {
                pollfd fds[2] = {{0, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
                const int rc = poll(fds, 2, -1);
                if (rc < 0 && errno == EINTR) continue;
                if (m_stop.load() != 0 || rc < 0) return;
                if (fds[1].revents != 0) return;
                char buf[1024];
                const ssize_t n = read(0, buf, sizeof buf);
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) {
                    // The end of the input ends the session like quit.
                    if (!pending.empty() && !command(pending)) return;
                    say("end of input: quitting");
                    return;
                }
                pending.append(buf, static_cast<size_t>(n));
            }
            const std::string line = pending.substr(0, nl);
            pending.erase(0, nl + 1);
            if (tty) m_log.promptAnswered();
            if (!command(line)) return;
            if (m_stop.load() != 0) return;
        }
    }

    // Runs one command line; false for quit.
    bool command(const std::string& line) {
        const std::vector<std::string> w = words(line);
        if (w.empty() || w[0][0] == '#') return true;
        // Commands from a script or pipe are echoed, so the log reads in order;
        // a person sees what they typed.
        if (!m_tty) say("> " + line);
        const std::string& c = w[0];
        const std::string a1 = w.size() > 1 ? w[1] : "", a2 = w.size() > 2 ? w[2] : "";
        std::string why;
        if (c == "quit" || c == "exit") return false;
        if (c == "help" || c == "?") {
            m_log.plain(kHelp);
        } else if (c == "events") {
            size_t n = 0;
            const EventName* all = allEvents(&n);
            for (size_t i = 0; i < n; ++i)
                m_log.plain("  " + std::string(featureWord(all[i].feature)) + " " +
                            std::to_string(all[i].id) + "  " + all[i].name + "  " + all[i].meaning);
        } else if (c == "status") {
            status();
        } else if (c == "phones") {
            phones();
        } else if (c == "accept" || c == "deny") {
            if (!m_ui.answer(c == "accept", a1, &why)) error(why);
        } else if (c == "mode") {
            const int mode = modeByName(a1);
            if (mode < 0) return error("mode takes one of IDLE PhonePull RVF InstantSend SelectivePush CrowdSend "
                                       "PhoneArchive, or 0..6"), true;
            if (!m_ui.modeServerRunning()) return error("the mode server is not running"), true;
            m_ui.changeMode(mode);
        } else if (c == "push") {
            push(a1);
        } else if (c == "send") {
            if (a1.empty()) return error("send FILE [MAC]"), true;
            if (!m_ui.send(resolve(a1), a2, &why)) error(why);
        } else if (c == "stop" || c == "cancel") {
            if (!m_ui.stopTransfer(a1, &why)) error(why);
            else say("transfer stopped");
        } else if (c == "disconnect") {
            if (!m_ui.disconnect(a1, &why)) error(why);
            else say("phone dropped from the push server's list");
        } else if (c == "allow") {
            if (a1 != "on" && a1 != "off") return error("allow on|off"), true;
            if (!m_ui.allowNewPhones(a1 == "on", &why)) error(why);
            else say(a1 == "on" ? "new phones may join" : "no new phones may join");
        } else if (c == "resize") {
            if (a1 != "on" && a1 != "off") return error("resize on|off"), true;
            m_resize = a1 == "on";
            DlnaSetTransferSize(m_resize ? 0 : 1);
            say(std::string("photos ") + (m_resize ? "shrunk to a 1920-pixel long side" : "sent unchanged") +
                " from the next push start on");
        } else if (c == "wait") {
            wait(a1, a2);
        } else if (c == "tv") {
            tv(w);
        } else {
            error("unknown command " + c + " (help lists them)");
        }
        return true;
    }

    // A FILE argument: as given, else a name on the card's picture folder.
    std::string resolve(const std::string& file) {
        if (access(file.c_str(), F_OK) == 0 || file.find('/') != std::string::npos) return file;
        const std::string onCard = m_card.pictureDir() + "/" + file;
        return access(onCard.c_str(), F_OK) == 0 ? onCard : file;
    }

    void status() {
        m_log.plain("  mode         " + std::string(modeName(m_ui.mode())) + " (mode server " +
                    (m_ui.modeServerRunning() ? "on port 7788, " + std::to_string(m_ui.registeredPhones()) +
                                                    " registered phone(s))"
                                              : "stopped)"));
        m_log.plain("  push server  " + (m_ui.pushRunning() ? std::string(m_ui.multi() ? "multi-phone" : "single-phone") +
                                                                " on port " + std::to_string(m_ui.pushPort())
                                                          : std::string("stopped")));
        m_log.plain(std::string("  resize       ") + (m_resize ? "on (1920-pixel long side)" : "off"));
        m_log.plain("  card         " + m_card.pictureDir());
        if (!m_tv.running()) {
            m_log.plain("  TV           renderer control point not started (any tv command starts it)");
        } else {
            m_log.plain("  TV           renderer control point on " + m_tv.interface() + ", " +
                        (m_tv.chosen() ? m_tv.choice().name + " chosen, " + TvControl::stateName(m_tv.state())
                                       : std::string("no TV chosen")));
        }
    }

    // The renderer control point is started by the first tv command, not
    // with the shell: it brings the DLNA stack up on a network interface
    // with an IPv4 address (multicast search, the streaming server's port),
    // which a session that only pushes to phones over loopback neither needs
    // nor always has.
    void tv(const std::vector<std::string>& w) {
        const std::string sub = w.size() > 1 ? w[1] : "";
        // The rest of the line: a TV's name may hold blanks.
        std::string arg;
        for (size_t i = 2; i < w.size(); ++i) arg += (arg.empty() ? "" : " ") + w[i];
        if (arg.size() >= 2 && (arg[0] == '"' || arg[0] == '\'') && arg.back() == arg[0])
            arg = arg.substr(1, arg.size() - 2);
        std::string why, cardPath;
        MediaKind kind;
        if (sub == "list") {
            if (!m_tv.list(&why)) {
                error(why);
                return;
            }
            if (m_tv.rows().empty()) m_log.plain("  no TV answered on " + m_tv.interface());
            for (const TvRow& r : m_tv.rows())
                m_log.plain("  " + std::to_string(r.index) + "  " + r.name + "  " + (r.ip.empty() ? "-" : r.ip) +
                            "  " + (r.model.empty() ? "-" : r.model) + "  " + r.udn);
        } else if (sub == "use") {
            if (!m_tv.use(arg, &why)) {
                error(why);
                return;
            }
            say("TV chosen: " + m_tv.choice().name + " (" + m_tv.choice().udn + ")" +
                (m_tv.choice().ip.empty() ? "" : " at " + m_tv.choice().ip));
        } else if (sub == "show" || sub == "play") {
            if (arg.empty()) {
                error("tv " + sub + " FILE (a path, or a name on the card)");
            } else if (!m_tv.chosen()) {
                error("no TV chosen (tv list, then tv use N|NAME)");
            } else if (!m_tv.cardFile(arg, &cardPath, &kind, &why)) {
                error(why);
            } else if (sub == "show" && kind != MediaKind::Photo) {
                error(baseName(cardPath) + " is a video: tv play plays it");
            } else if (!(sub == "show" ? m_tv.show(cardPath, &why) : m_tv.play(cardPath, &why))) {
                error(why);
            } else {
                say((sub == "show" ? "showing " : "playing ") + baseName(cardPath) + " on " + m_tv.choice().name);
            }
        } else if (sub == "pause" || sub == "resume" || sub == "stop") {
            const bool ok = sub == "pause" ? m_tv.pause(&why) : sub == "resume" ? m_tv.resume(&why)
                                                                                : m_tv.stopPlayback(&why);
            if (!ok) error(why);
            else say(sub + " sent to " + m_tv.choice().name);
        } else if (sub == "seek") {
            if (!m_tv.seek(arg, &why)) error(why);
            else say("seek to " + arg + " sent to " + m_tv.choice().name);
        } else if (sub == "volume") {
            const bool number = !arg.empty() && arg.size() <= 3 && arg.find_first_not_of("0123456789") == std::string::npos;
            if (!number) {
                error("tv volume takes a level from 0 to 100");
            } else if (!m_tv.volume(atoi(arg.c_str()), &why)) {
                error(why);
            } else {
                say("volume " + arg + " sent to " + m_tv.choice().name);
            }
        } else if (sub == "state") {
            if (!m_tv.chosen()) error("no TV chosen (tv list, then tv use N|NAME)");
            else say(m_tv.choice().name + " is " + TvControl::stateName(m_tv.state()));
        } else if (sub == "off") {
            if (!m_tv.running()) error("the renderer control point is not running");
            else m_tv.stop();
        } else {
            error("tv takes list, use N|NAME, show FILE, play FILE, pause, resume, seek HH:MM:SS, volume N, "
                  "stop, state or off");
        }
    }

    void phones() {
        const std::vector<PushPhone> list = m_ui.pushPhones();
        if (list.empty()) m_log.plain("  no phone has announced itself to the push server");
        for (auto& p : list)
            m_log.plain("  " + p.mac + "  number " + p.number + (p.nfc ? " (NFC)" : "") + "  " + p.state +
                        (p.transfer.empty() ? "" : "  " + p.transfer));
        m_log.plain("  mode server: " + std::to_string(m_ui.registeredPhones()) + " registered phone(s)");
        for (auto& q : m_ui.questions())
            m_log.plain(std::string("  waiting for an answer: ") +
                        (q.feature == Feature::Mode ? "mode server, phone " : "push server, phone ") +
                        (q.mac.empty() ? "(MAC not known)" : q.mac) + " \"" + q.detail + "\"");
    }

    void push(const std::string& what) {
        std::string why;
        if (what == "off") {
            if (!m_ui.pushRunning()) {
                error("no push server runs");
                return;
            }
            m_ui.stopPush();
        } else if (what == "single" || what == "multi") {
            if (!m_ui.startPush(what == "multi", 10000, &why)) error(why);
        } else {
            error("push single|multi|off");
        }
    }

    void wait(const std::string& name, const std::string& secondsText) {
        const EventName* e = findEvent(name);
        if (e == nullptr) {
            error("no UI event is called " + name + " (events lists them)");
            return;
        }
        int seconds = kDefaultWaitSeconds;
        if (!secondsText.empty()) {
            char* end = nullptr;
            seconds = static_cast<int>(strtol(secondsText.c_str(), &end, 10));
            if (*end != '\0' || seconds <= 0 || seconds > 3600) {
                error("wait takes a number of seconds from 1 to 3600");
                return;
            }
        }
        if (m_ui.waitEvent(e->feature, e->id, seconds * 1000, m_stop)) {
            say(std::string("got ") + e->name);
        } else if (m_stop.load() == 0) {
            error(std::string("no ") + e->name + " came within " + std::to_string(seconds) + " s");
        }
    }

    SimLog& m_log;
    CardTree& m_card;
    const ShellOptions& m_o;
    int m_wakeFd;
    const std::atomic<int>& m_stop;
    CameraUi& m_ui;
    TvControl m_tv;
    const bool m_tty = isatty(0) == 1;
    bool m_resize = true;
    int m_failures = 0;
    std::string m_cardFiles;
};

}  // namespace

int runShell(SimLog& log, CardTree& card, const ShellOptions& options, int wakeFd,
             const std::atomic<int>& stopSignal) {
    Shell shell(log, card, options, wakeFd, stopSignal);
    return shell.run();
}

}  // namespace camsim
