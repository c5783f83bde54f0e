// The camera UI as camwifi-sim plays it: it registers the callbacks, calls
// the library's exported functions (and nothing else), and keeps what the
// events told it: which phones asked, which were accepted, what is being
// sent. One instance per process, since the library's callbacks are plain
// functions.
#ifndef CAMWIFI_SIM_CAMERA_UI_H
#define CAMWIFI_SIM_CAMERA_UI_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sim_log.h"
#include "ui_events.h"

namespace camsim {

// One event the UI received, copied out of the callback.
struct UiEvent {
    long seq = 0;
    Feature feature = Feature::Push;
    int id = 0;
    long number = 0;     // the event's number (percentage, TV position in s, ...), where it has one
    long duration = 0;   // PLAY_POSITION: the video's length in seconds
    std::string mac;     // the phone's MAC text, where the event names one
    std::string detail;  // phone number (push), user agent (mode server) or the TV's UDN
};

// A question the UI has not answered yet: may this phone connect?
struct Question {
    Feature feature;    // Mode: the mode server asks; Push: the push server
    std::string mac;
    std::string detail;
};

// A phone as the push features reported it.
struct PushPhone {
    std::string mac;
    std::string number;
    bool nfc = false;
    std::string state;     // "asking", "accepted", "refused", "left"
    std::string transfer;  // file being sent, or the last one with its outcome
};

class CameraUi {
public:
    static CameraUi& instance();
    void attach(SimLog* log) { m_log = log; }
    // Answer every question as soon as it is asked (yes).
    void setAutoAccept(bool on) { m_autoAccept.store(on); }

    // ---- the library's features -------------------------------------
    bool startModeServer(int mode, std::string* why);
    void stopModeServer();
    bool modeServerRunning() const { return m_modeRunning; }
    int mode() const { return m_mode; }
    // Tells the mode server (and through it every registered phone).
    int changeMode(int mode);

    // Single-phone or multi-phone push server; waits for it to listen.
    bool startPush(bool multi, int timeoutMs, std::string* why);
    void stopPush();
    bool pushRunning() const { return m_pushRunning; }
    bool multi() const { return m_multi; }
    int pushPort() const;

    // Pushes path to the accepted phone (single) or to mac (multi).
    bool send(const std::string& path, const std::string& mac, std::string* why);
    bool stopTransfer(const std::string& mac, std::string* why);
    bool disconnect(const std::string& mac, std::string* why);
    bool allowNewPhones(bool allow, std::string* why);

    // Answers the oldest question (or the one for mac). False when none.
    bool answer(bool yes, const std::string& mac, std::string* said);

    // ---- what the events told ----------------------------------------
    std::vector<UiEvent> events();
    std::vector<Question> questions();
    std::vector<PushPhone> pushPhones();
    int registeredPhones() const { return m_registered; }
    // Waits for the first event not yet consumed that satisfies match,
    // consumes it and copies it to *out. False on time-out or cancel.
    bool waitEvent(const std::function<bool(const UiEvent&)>& match, int timeoutMs, const std::atomic<int>& cancel,
                   UiEvent* out);
    bool waitEvent(Feature feature, int id, int timeoutMs, const std::atomic<int>& cancel, UiEvent* out = nullptr);

    static void onPush(int event, void* value, intptr_t length);
    static void onMode(int event, void* mac, intptr_t userAgent);
    // The renderer control point's callback (events 15..25).
    static void onTv(int event, void* value, intptr_t length);

private:
    CameraUi() = default;
    void record(const UiEvent& e);
    void describe(const UiEvent& e);
    void sayUi(const std::string& text);
    void sim(const std::string& text);
    bool answerLocked(std::unique_lock<std::mutex>& g, size_t index, bool yes, std::string* said);
    // Answers the oldest question of feature for mac (auto-accept). False when none.
    bool answerFor(Feature feature, const std::string& mac, bool yes, std::string* said);

    SimLog* m_log = nullptr;
    std::atomic<bool> m_autoAccept{false};
    bool m_modeRunning = false;
    int m_mode = 0;
    std::atomic<bool> m_pushRunning{false};
    bool m_multi = false;
    std::atomic<int> m_registered{0};

    std::mutex m_lock;
    std::condition_variable m_changed;
    long m_nextSeq = 1;
    std::vector<UiEvent> m_events;
    std::vector<bool> m_consumed;
    std::vector<Question> m_questions;
    std::map<std::string, PushPhone> m_phones;
    std::map<std::string, std::string> m_sending;  // phone MAC ("" single) -> file name
    std::string m_dataPhone;                       // single-phone push: the phone files go to
};

// The mode's name as the mode server announces it, or "" for none; and back.
const char* modeName(int mode);
int modeByName(const std::string& name);  // -1 when unknown

}  // namespace camsim

#endif
