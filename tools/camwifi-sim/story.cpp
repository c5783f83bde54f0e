#include "story.h"

#include <map>
#include <vector>

#include "camera_ui.h"
#include "camwifi/camwifi.h"
#include "media.h"
#include "phone_process.h"

namespace camsim {

namespace {

const char* kModelName = "SIM-CAMERA";
const char* kPhoneName = "PhoneSim";
const char* kPhoneNumber = "01012345678";

struct Pushed {
    std::string source;    // the file on the card
    MediaKind kind;
    int width = 0, height = 0;  // photo size
    std::string verdict;   // what the check found
    bool ok = false;
};

class Story {
public:
    Story(SimLog& log, CardTree& card, const StoryOptions& o, const std::atomic<int>& stop)
        : m_log(log), m_card(card), m_o(o), m_stop(stop), m_ui(CameraUi::instance()), m_phone(log) {}

    int run() {
        const bool played = play();
        cleanup();
        const bool verified = played && verify();
        summary(played && verified);
        if (m_stop.load() != 0) return 128 + m_stop.load();
        return played && verified ? 0 : 1;
    }

private:
    bool fail(const std::string& why) {
        if (m_failure.empty()) m_failure = m_stop.load() != 0 ? "interrupted (" + why + ")" : why;
        m_log.line("sim", "FAILED: " + m_failure);
        return false;
    }
    void step(const std::string& text) { m_log.line("sim", text); }
    int seconds() const { return m_o.stepTimeoutMs / 1000; }
    std::string timedOut(const std::string& what) const {
        return "timed out after " + std::to_string(seconds()) + " s waiting for " + what;
    }

    bool waitUi(Feature f, int id, const std::string& what, UiEvent* out = nullptr) {
        if (m_ui.waitEvent(f, id, m_o.stepTimeoutMs, m_stop, out)) return true;
        return fail(timedOut(what));
    }
    bool waitPhone(const std::string& line, const std::string& what) {
        if (m_phone.waitLine(line, m_o.stepTimeoutMs, m_stop)) return true;
        return fail(timedOut(what));
    }

    bool prepareCard() {
        for (const std::string* src : {&m_o.photo, &m_o.video}) {
            Pushed p;
            std::string why;
            if (!checkPushable(*src, &p.kind, &why)) return fail(why);
            if (!m_card.addPicture(*src, &p.source, &why)) return fail(why);
            if (p.kind == MediaKind::Photo && !decodeJpegSize(p.source, &p.width, &p.height))
                return fail("the photo " + *src + " does not decode as a JPEG");
            m_pushed.push_back(p);
        }
        if (m_pushed[0].kind != MediaKind::Photo) return fail("the photo " + m_o.photo + " is a video, not a JPEG");
        if (m_pushed[1].kind != MediaKind::Video) return fail("the video " + m_o.video + " is not an MP4 video");
        step("card " + m_card.root() + ": " + baseName(m_pushed[0].source) + " (" +
             std::to_string(m_pushed[0].width) + "x" + std::to_string(m_pushed[0].height) + ", " +
             groupDigits(fileSize(m_pushed[0].source)) + " bytes), " + baseName(m_pushed[1].source) + " (" +
             groupDigits(fileSize(m_pushed[1].source)) + " bytes); library log " + m_card.logPath());
        return true;
    }

    bool play() {
        if (!prepareCard()) return false;
        std::string why;
        DlnaSetModelName(kModelName);
        DlnaSetTransferSize(0);
        step(std::string("camera ") + kModelName + ": photos are shrunk to a 1920-pixel long side (transfer size 0)");

        // 1. The mode server, and the phone that registers with it.
        if (!m_ui.startModeServer(0, &why)) return fail(why);
        const std::vector<std::string> args = {
            "--camera", "127.0.0.1",    "--ip",       m_o.phoneIp,  "--store",   m_card.phoneDir(),
            "--name",   kPhoneName,     "--number",   kPhoneNumber, "--timeout", std::to_string(seconds()),
            "follow"};
        if (!m_phone.start(m_o.phoneSim, args, &why)) return fail(why);
        step("phone-sim started (pid " + std::to_string(m_phone.pid()) + ") as phone " + m_o.phoneIp);
        UiEvent e;
        if (!waitUi(Feature::Mode, 1, "the phone to register with the mode server (MODE_NEW_PHONE)", &e)) return false;
        m_ui.answer(true, e.mac, &why);
        if (!waitPhone("mode server answered 200", "the phone's registration to be answered")) return false;

        // 2. The camera goes into the push mode; the phone hears of it.
        if (!m_ui.startPush(false, m_o.stepTimeoutMs, &why)) return fail(why);
        m_pushPort = m_ui.pushPort();
        if (m_ui.changeMode(4) != 1) return fail("the phone did not take the SelectivePush NOTIFY");
        if (!waitPhone("CurrentMode=SelectivePush", "the phone to report the SelectivePush NOTIFY")) return false;

        // 3. The phone announces itself to the push server; the user accepts.
        if (!m_ui.waitEvent(
                [](const UiEvent& x) { return x.feature == Feature::Push && (x.id == 61 || x.id == 62); },
                m_o.stepTimeoutMs, m_stop, &e))
            return fail(timedOut("the phone to announce itself to the push server (PUSH_NEW_PHONE)"));
        m_phoneMac = e.mac;
        m_ui.answer(true, e.mac, &why);
        if (!waitPhone("push server answered 200", "the phone's announcement to be answered")) return false;

        // 4. The photo and the video, one after the other.
        for (Pushed& p : m_pushed) {
            if (!m_ui.send(p.source, "", &why)) return fail(why);
            if (!m_ui.waitEvent(
                    [](const UiEvent& x) { return x.feature == Feature::Push && x.id >= 64 && x.id <= 68 && x.id != 65; },
                    m_o.stepTimeoutMs, m_stop, &e))
                return fail(timedOut("the transfer of " + baseName(p.source) + " to end"));
            if (e.id != 64) return fail("the transfer of " + baseName(p.source) + " ended with " +
                                        eventLabel(Feature::Push, e.id));
            if (!waitPhone("stored " + baseName(p.source), "the phone to store " + baseName(p.source))) return false;
        }

        // 5. Back to idle: the push ends (the phone is turned down), the
        // phone hears the mode change and leaves the mode server.
        m_ui.stopPush();
        if (!waitPhone("turned down by the camera", "the phone to get the turn-down request")) return false;
        if (m_ui.changeMode(0) != 1) return fail("the phone did not take the IDLE NOTIFY");
        if (!waitUi(Feature::Mode, 2, "the phone to leave the mode server (MODE_PHONE_LEFT)")) return false;
        const int status = m_phone.waitExit(m_o.stepTimeoutMs, m_stop);
        if (status < 0) return fail(timedOut("phone-sim to finish"));
        if (status != 0) return fail("phone-sim ended with status " + std::to_string(status));
        step("phone-sim finished (status 0)");
        m_ui.stopModeServer();
        return true;
    }

    void cleanup() {
        // Whatever happened: no phone process, no server, no thread left.
        if (m_phone.running()) {
            step("ending phone-sim");
            m_phone.terminate();
        }
        m_ui.stopPush();
        m_ui.stopModeServer();
    }

    bool verify() {
        bool all = true;
        for (Pushed& p : m_pushed) {
            const std::string received = m_card.phoneDir() + "/" + baseName(p.source);
            if (p.kind == MediaKind::Photo) {
                int w = 0, h = 0, ew = 0, eh = 0;
                resizedSize(p.width, p.height, &ew, &eh);
                if (!decodeJpegSize(received, &w, &h)) {
                    p.verdict = "received copy missing or not a JPEG";
                } else {
                    p.ok = w == ew && (h - eh <= 1 && eh - h <= 1);
                    p.verdict = std::to_string(p.width) + "x" + std::to_string(p.height) + " sent as " +
                                std::to_string(w) + "x" + std::to_string(h) + " (" +
                                groupDigits(fileSize(received)) + " bytes), expected " + std::to_string(ew) + "x" +
                                std::to_string(eh);
                }
            } else {
                std::string a, b;
                const bool read = readWholeFile(p.source, &a) && readWholeFile(received, &b);
                p.ok = read && a == b;
                p.verdict = !read ? "received copy missing"
                                  : groupDigits(b.size()) + " of " + groupDigits(a.size()) + " bytes received, " +
                                        (p.ok ? "identical" : "different");
            }
            all = all && p.ok;
        }
        if (!all) fail("a received file does not match what was sent");
        return all;
    }

    void summary(bool ok) {
        m_log.plain("");
        m_log.plain("summary");
        m_log.plain("  push server   port " + (m_pushPort ? std::to_string(m_pushPort) : std::string("-")) +
                    ", phone " + (m_phoneMac.empty() ? std::string("-") : m_phoneMac));
        std::vector<SummaryRow> rows;
        for (const Pushed& p : m_pushed) rows.push_back({baseName(p.source), p.ok, p.verdict});
        printSummaryEnd(m_log, m_card, rows, ok, m_failure);
    }

    SimLog& m_log;
    CardTree& m_card;
    const StoryOptions& m_o;
    const std::atomic<int>& m_stop;
    CameraUi& m_ui;
    PhoneProcess m_phone;
    std::vector<Pushed> m_pushed;
    std::string m_failure;
    std::string m_phoneMac;
    int m_pushPort = 0;
};

}  // namespace

void printSummaryEnd(SimLog& log, CardTree& card, const std::vector<SummaryRow>& rows, bool ok,
                     const std::string& failure) {
    std::map<std::string, int> counts;
    size_t total = 0;
    for (const UiEvent& e : CameraUi::instance().events()) {
        const EventName* n = eventName(e.feature, e.id);
        ++counts[n ? n->name : eventLabel(e.feature, e.id)];
        ++total;
    }
    std::string events;
    for (auto& c : counts) events += (events.empty() ? "" : ", ") + c.first + " x" + std::to_string(c.second);
    for (const SummaryRow& r : rows)
        log.plain("  " + r.name + std::string(14 - std::min<size_t>(13, r.name.size()), ' ') +
                  (r.ok ? "OK    " : "FAIL  ") + (r.verdict.empty() ? "not checked" : r.verdict));
    log.plain("  UI events     " + std::to_string(total) + ": " + events);
    if (!card.kept() && !ok) card.keep();
    if (card.kept()) log.plain("  card tree     kept at " + card.root());
    char took[32];
    snprintf(took, sizeof took, "%.1f", log.elapsed());
    log.plain(std::string("  result        ") + (ok ? "PASS" : "FAIL: " + failure) + " (" + took + " s)");
}

int runStory(SimLog& log, CardTree& card, const StoryOptions& options, const std::atomic<int>& stopSignal) {
    Story story(log, card, options, stopSignal);
    return story.run();
}

}  // namespace camsim
