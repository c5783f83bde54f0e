#include "tv_story.h"

#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

#include "camera_ui.h"
#include "camwifi/camwifi.h"
#include "media.h"
#include "story.h"
#include "tv.h"

namespace camsim {

namespace {

using Clock = std::chrono::steady_clock;

struct Shown {
    std::string source;       // the file given
    std::string cardPath;     // its copy on the card
    MediaKind kind = MediaKind::Photo;
    unsigned long long size = 0;
    std::string verdict;
    bool ok = false;
};

bool isTv(const UiEvent& e, std::initializer_list<int> ids) {
    if (e.feature != Feature::Tv) return false;
    for (int id : ids)
        if (e.id == id) return true;
    return false;
}

class TvStory {
public:
    TvStory(SimLog& log, CardTree& card, const TvStoryOptions& o, const std::atomic<int>& stop)
        : m_log(log), m_card(card), m_o(o), m_stop(stop), m_ui(CameraUi::instance()), m_tv(log, card) {}

    int run() {
        bool ok = play();
        m_tv.stop();
        ok = summary(ok);
        if (m_stop.load() != 0) return 128 + m_stop.load();
        return ok ? 0 : 1;
    }

private:
    bool fail(const std::string& why) {
        if (m_failure.empty()) m_failure = m_stop.load() != 0 ? "interrupted (" + why + ")" : why;
        m_log.line("sim", "FAILED: " + m_failure);
        return false;
    }
    void step(const std::string& text) { m_log.line("sim", text); }
    std::string timedOut(const std::string& what, int ms) const {
        return "timed out after " + std::to_string(ms / 1000) + " s waiting for " + what;
    }

    bool prepareCard() {
        for (const std::string* src : {&m_o.photo, &m_o.video}) {
            Shown s;
            s.source = *src;
            std::string why;
            if (!checkPushable(*src, &s.kind, &why)) return fail(why);
            if (!m_card.addPicture(*src, &s.cardPath, &why)) return fail(why);
            s.size = fileSize(s.cardPath);
            m_files.push_back(s);
        }
        int w = 0, h = 0;
        if (m_files[0].kind != MediaKind::Photo || !decodeJpegSize(m_files[0].cardPath, &w, &h))
            return fail("the photo " + m_o.photo + " does not decode as a JPEG");
        if (m_files[1].kind != MediaKind::Video) return fail("the video " + m_o.video + " is not an MP4 video");
        step("card " + m_card.root() + ": " + baseName(m_files[0].cardPath) + " (" + std::to_string(w) + "x" +
             std::to_string(h) + ", " + groupDigits(m_files[0].size) + " bytes), " + baseName(m_files[1].cardPath) +
             " (" + groupDigits(m_files[1].size) + " bytes); library log " + m_card.logPath());
        return true;
    }

    // Lists the TVs until the wanted one (or any) answers, and chooses it.
    bool chooseTv() {
        const auto deadline = Clock::now() + std::chrono::milliseconds(m_o.stepTimeoutMs);
        std::string why;
        for (;;) {
            if (!m_tv.list(&why)) return fail(why);
            for (const TvRow& r : m_tv.rows()) {
                m_log.line("sim", "  TV " + std::to_string(r.index) + ": " + r.name + " at " +
                                      (r.ip.empty() ? "-" : r.ip) + ", " + (r.model.empty() ? "-" : r.model) + ", " +
                                      r.udn);
            }
            for (const TvRow& r : m_tv.rows()) {
                if (!m_o.tvName.empty() && r.name != m_o.tvName) continue;
                if (!m_tv.use(std::to_string(r.index), &why)) return fail(why);
                step("TV chosen: " + r.name + " (" + r.udn + ")");
                return true;
            }
            if (m_stop.load() != 0 || Clock::now() >= deadline)
                return fail(timedOut(m_o.tvName.empty() ? "a TV to answer" : "the TV " + m_o.tvName + " to answer",
                                     m_o.stepTimeoutMs));
            step("no " + (m_o.tvName.empty() ? std::string("TV") : m_o.tvName) + " yet: listing again");
        }
    }

    bool bytesSent(unsigned long long* bytes) {
        if (m_tv.bytesSent(bytes)) return true;
        return fail("cannot read what " + m_tv.interface() + " sent (/proc/net/dev)");
    }

    // The TV had the whole file when the interface sent at least its size
    // since before: what it did with it (how) becomes the file's verdict.
    bool fetchedWhole(Shown& f, unsigned long long before, const std::string& how, const char* what) {
        unsigned long long now = 0;
        if (!bytesSent(&now)) return false;
        const unsigned long long sent = now - before;
        f.ok = sent >= f.size;
        f.verdict = how + "; " + m_tv.interface() + " sent " + groupDigits(sent) + " bytes for the " +
                    groupDigits(f.size) + "-byte file";
        if (f.ok) return true;
        return fail(std::string("the TV did not fetch the whole ") + what + ": " + m_tv.interface() +
                    " sent only " + groupDigits(sent) + " bytes");
    }

    // SHOW_READY, then the TV stopped by itself (a TV that shows a photo
    // for a moment, as gmediarender does, drops a new URI sent before).
    bool showPhoto(Shown& f) {
        std::string why;
        unsigned long long before = 0;
        if (!bytesSent(&before)) return false;
        if (!m_tv.show(f.cardPath, &why)) return fail(why);
        step("showing " + baseName(f.cardPath) + " on the TV");
        UiEvent e;
        if (!m_ui.waitEvent([](const UiEvent& x) { return isTv(x, {24, 23, 25}); }, m_o.stepTimeoutMs, m_stop, &e))
            return fail(timedOut("SHOW_READY", m_o.stepTimeoutMs));
        if (e.id != 24) return fail("the TV answered the photo with " + eventLabel(Feature::Tv, e.id));
        const auto deadline = Clock::now() + std::chrono::milliseconds(m_o.stepTimeoutMs);
        while (m_tv.state() != 0) {
            if (m_stop.load() != 0 || Clock::now() >= deadline)
                return fail(timedOut("the TV to stop after the photo (it is " +
                                         std::string(TvControl::stateName(m_tv.state())) + ")",
                                     m_o.stepTimeoutMs));
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        step("the TV stopped after the photo");
        return fetchedWhole(f, before, "shown (SHOW_READY), the TV stopped after it", "photo");
    }

    // PLAY_STARTED, then PLAY_COMPLETE at the video's end. The wait for the
    // end starts again with every position report, so a long video may
    // play out while a TV that stopped reporting is given up on.
    bool playVideo(Shown& f) {
        std::string why;
        unsigned long long before = 0;
        if (!bytesSent(&before)) return false;
        if (!m_tv.play(f.cardPath, &why)) return fail(why);
        step("playing " + baseName(f.cardPath) + " on the TV");
        UiEvent e;
        if (!m_ui.waitEvent([](const UiEvent& x) { return isTv(x, {17, 20, 23, 25}); }, m_o.stepTimeoutMs, m_stop,
                            &e))
            return fail(timedOut("PLAY_STARTED", m_o.stepTimeoutMs));
        if (e.id != 17 && e.id != 20) return fail("the TV answered the video with " + eventLabel(Feature::Tv, e.id));
        const auto started = Clock::now();
        long lastPosition = -1, duration = 0;
        while (e.id != 20) {
            if (!m_ui.waitEvent([](const UiEvent& x) { return isTv(x, {20, 22, 23, 25}); }, m_o.stepTimeoutMs, m_stop,
                                &e))
                return fail(timedOut("PLAY_COMPLETE", m_o.stepTimeoutMs));
            if (e.id == 23 || e.id == 25)
                return fail("the TV answered the video with " + eventLabel(Feature::Tv, e.id));
            if (e.id == 22) {
                lastPosition = e.number;
                duration = e.duration;
            }
        }
        const double took = std::chrono::duration<double>(Clock::now() - started).count();
        char secs[32];
        snprintf(secs, sizeof secs, "%.1f", took);
        return fetchedWhole(f, before,
                            std::string("played (PLAY_STARTED, PLAY_COMPLETE ") + secs + " s later" +
                                (lastPosition >= 0 ? ", last position " + std::to_string(lastPosition) + " s of " +
                                                         std::to_string(duration) + " s"
                                                   : std::string()) +
                                ")",
                            "video");
    }

    bool play() {
        if (!prepareCard()) return false;
        std::string why;
        if (!m_tv.start(&why)) return fail(why);
        if (!chooseTv()) return false;
        if (!showPhoto(m_files[0])) return false;
        return playVideo(m_files[1]);
    }

    // Prints the summary; false when the story failed after all.
    bool summary(bool ok) {
        bool failed = false;
        for (const UiEvent& e : m_ui.events()) failed = failed || isTv(e, {23, 25});
        if (ok && failed) {
            // A failure the story's own waits did not stop at still fails it.
            ok = false;
            fail("the TV reported PLAY_FAILED or UNSUPPORTED_FILE");
        }
        m_log.plain("");
        m_log.plain("summary");
        m_log.plain("  TV            " + (m_tv.chosen() ? m_tv.choice().name + " (" + m_tv.choice().udn + ")" +
                                                             (m_tv.choice().ip.empty() ? "" : " at " + m_tv.choice().ip)
                                                       : std::string("-")));
        std::vector<SummaryRow> rows;
        for (const Shown& f : m_files) rows.push_back({baseName(f.cardPath), f.ok, f.verdict});
        printSummaryEnd(m_log, m_card, rows, ok, m_failure);
        return ok;
    }

    SimLog& m_log;
    CardTree& m_card;
    const TvStoryOptions& m_o;
    const std::atomic<int>& m_stop;
    CameraUi& m_ui;
    TvControl m_tv;
    std::vector<Shown> m_files;
    std::string m_failure;
};

}  // namespace

int runTvStory(SimLog& log, CardTree& card, const TvStoryOptions& options, const std::atomic<int>& stopSignal) {
    TvStory story(log, card, options, stopSignal);
    return story.run();
}

}  // namespace camsim
