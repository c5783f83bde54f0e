#include "camera_ui.h"

#include <strings.h>

#include <chrono>
#include <thread>

#include "camwifi/camwifi.h"
#include "media.h"
#include "ports.h"

namespace camsim {

namespace {

using Clock = std::chrono::steady_clock;

const int kModeServerPort = 7788;

const char* const kModeNames[] = {"IDLE", "PhonePull", "RVF", "InstantSend", "SelectivePush", "CrowdSend",
                                  "PhoneArchive"};

std::string textAt(const void* p) { return p ? static_cast<const char*>(p) : ""; }

std::string macOrUnknown(const std::string& mac) { return mac.empty() ? "(MAC not known)" : mac; }

bool isProgress(int id) { return id == 65 || id == 74; }

// Push events that end a transfer, and the word for their outcome.
const char* transferOutcome(int id) {
    switch (id) {
        case 64: case 73: return "complete";
        case 66: case 75: return "failed";
        case 67: case 77: return "refused: storage full";
        case 68: case 76: return "refused: type not supported";
        default: return nullptr;
    }
}

}  // namespace

const char* modeName(int mode) { return mode >= 0 && mode <= 6 ? kModeNames[mode] : ""; }

int modeByName(const std::string& name) {
    for (int i = 0; i <= 6; ++i)
        if (strcasecmp(kModeNames[i], name.c_str()) == 0) return i;
    if (!name.empty() && name.find_first_not_of("0123456789") == std::string::npos && name.size() < 3) {
        const int v = std::stoi(name);
        if (v <= 6) return v;
    }
    return -1;
}

CameraUi& CameraUi::instance() {
    static CameraUi* ui = new CameraUi;  // lives as long as the library may call back
    return *ui;
}

void CameraUi::sayUi(const std::string& text) {
    if (m_log) m_log->line("ui", text);
}

void CameraUi::sim(const std::string& text) {
    if (m_log) m_log->line("sim", text);
}

// ---- callbacks ---------------------------------------------------------------

void CameraUi::onPush(int event, void* value, intptr_t length) {
    UiEvent e;
    e.feature = Feature::Push;
    e.id = event;
    switch (event) {
        case 61: case 62: case 71: case 78:
            e.mac = textAt(value);
            e.detail = textAt(reinterpret_cast<const void*>(length));
            break;
        case 72: case 79:
            e.mac = textAt(value);
            break;
        case 73: case 74: case 75: case 76: case 77:
            e.number = static_cast<long>(reinterpret_cast<intptr_t>(value));
            e.mac = textAt(reinterpret_cast<const void*>(length));
            break;
        default:
            e.number = static_cast<long>(reinterpret_cast<intptr_t>(value));
            break;
    }
    instance().record(e);
}

void CameraUi::onMode(int event, void* mac, intptr_t userAgent) {
    UiEvent e;
    e.feature = Feature::Mode;
    e.id = event;
    e.mac = textAt(mac);
    if (event == 1) e.detail = textAt(reinterpret_cast<const void*>(userAgent));
    instance().record(e);
}

void CameraUi::onTv(int event, void* value, intptr_t length) {
    UiEvent e;
    e.feature = Feature::Tv;
    e.id = event;
    if (event == EVT_MRCP_REFRESH_DMR_LIST || event == EVT_MRCP_SELECTED_DMR_BYEBYE) {
        e.detail = textAt(value);
    } else if (event == EVT_MRCP_PLAY_POSITION) {
        // The record lives only during the call: copied out here.
        const MrcpPlayPosition* p = static_cast<const MrcpPlayPosition*>(value);
        e.number = p ? p->position : static_cast<long>(length);
        e.duration = p ? p->duration : 0;
    }
    instance().record(e);
}

void CameraUi::record(const UiEvent& in) {
    UiEvent e = in;
    bool ask = false;
    std::string sending;
    {
        std::lock_guard<std::mutex> g(m_lock);
        e.seq = m_nextSeq++;
        const std::string key = m_multi ? e.mac : "";
        auto s = m_sending.find(key);
        if (s != m_sending.end()) sending = s->second;
        if (e.feature == Feature::Tv) {
            // Nothing to keep: the TV's state is the library's to tell.
        } else if (e.feature == Feature::Mode) {
            if (e.id == 1) {
                m_questions.push_back({Feature::Mode, e.mac, e.detail});
                ask = true;
            } else if (e.id == 2 && m_registered.load() > 0) {
                --m_registered;
            }
        } else {
            switch (e.id) {
                case 61: case 62: case 71: case 78: {
                    // Once the single-phone server has an accepted phone, it
                    // admits later ones without a question (event for
                    // information only); the files still go to the first.
                    PushPhone& p = m_phones[e.mac];
                    p.mac = e.mac;
                    p.number = e.detail;
                    p.nfc = e.id == 62;
                    if (m_multi || m_dataPhone.empty()) {
                        p.state = "asking";
                        m_questions.push_back({Feature::Push, e.mac, e.detail});
                        ask = true;
                    } else {
                        p.state = "admitted";
                    }
                    break;
                }
                case 63:
                    for (auto& p : m_phones)
                        if (p.second.state == "accepted") p.second.state = "left";
                    break;
                case 72: case 79:
                    m_phones[e.mac].mac = e.mac;
                    m_phones[e.mac].state = "left";
                    break;
                default:
                    break;
            }
            if (const char* outcome = transferOutcome(e.id)) {
                const std::string phone = m_multi ? e.mac : m_dataPhone;
                if (m_phones.count(phone)) m_phones[phone].transfer = sending + ": " + outcome;
                m_sending.erase(key);
            }
        }
    }
    // Logged before anyone waiting for it wakes up, so that the log shows the
    // event before what the UI does about it.
    describe(e);
    if (isProgress(e.id) && m_log) m_log->progress(sending.empty() ? "(file)" : sending, static_cast<int>(e.number));
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_events.push_back(e);
        m_consumed.push_back(false);
    }
    m_changed.notify_all();
    if (ask && m_autoAccept.load()) {
        // The question this event asked, by feature as well as MAC: a mode
        // server phone's MAC is often unknown (empty), and an empty MAC
        // alone would take the oldest question of any feature, leaving
        // this one (and the server thread waiting on it) unanswered.
        std::string said;
        answerFor(e.feature, e.mac, true, &said);
    }
}

void CameraUi::describe(const UiEvent& e) {
    if (isProgress(e.id)) return;  // the progress bar shows them
    const EventName* n = eventName(e.feature, e.id);
    std::string text = eventLabel(e.feature, e.id);
    if (n) text += ": " + std::string(n->meaning);
    if (e.feature == Feature::Tv) {
        if (e.id == EVT_MRCP_REFRESH_DMR_LIST || e.id == EVT_MRCP_SELECTED_DMR_BYEBYE) text += " - " + e.detail;
        if (e.id == EVT_MRCP_PLAY_POSITION)
            text += " - " + std::to_string(e.number) + " s of " + std::to_string(e.duration) + " s";
    } else if (e.feature == Feature::Mode) {
        if (e.id == 1)
            text += " - phone " + macOrUnknown(e.mac) + ", user agent \"" + e.detail +
                    "\"; answer with accept or deny";
        if (e.id == 1 && m_autoAccept.load()) text = text.substr(0, text.find("; answer")) + "; accepting";
    } else {
        switch (e.id) {
            case 61: case 62: case 71: case 78:
                text += " - phone " + e.mac + ", number " + e.detail;
                break;
            case 72: case 79:
                text += " - phone " + e.mac;
                break;
            case 73: case 75: case 76: case 77:
                text += " - phone " + e.mac;
                break;
            default:
                break;
        }
    }
    sayUi(text);
}

// ---- the features --------------------------------------------------------------

bool CameraUi::startModeServer(int mode, std::string* why) {
    // Phones look for the mode server on its first port; the server would
    // move to the next one, where no phone asks.
    if (!portFree(kModeServerPort, why)) {
        *why += " (the mode server needs it: is another camwifi-sim or a test running?)";
        return false;
    }
    if (ModeServerStart(onMode, mode) != 1) {
        *why = "ModeServerStart refused (a mode server runs already)";
        return false;
    }
    m_modeRunning = true;
    m_mode = mode;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (!portListening(kModeServerPort)) {
        if (Clock::now() >= deadline) {
            *why = "the mode server did not listen on port 7788 within 5 s";
            stopModeServer();
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    sim("mode server started in mode " + std::string(modeName(mode)) + ", listening on port " +
        std::to_string(kModeServerPort));
    return true;
}

void CameraUi::stopModeServer() {
    if (!m_modeRunning) return;
    ModeServerTerminate();
    m_modeRunning = false;
    std::lock_guard<std::mutex> g(m_lock);
    for (size_t i = m_questions.size(); i-- > 0;)
        if (m_questions[i].feature == Feature::Mode) m_questions.erase(m_questions.begin() + static_cast<long>(i));
    m_registered.store(0);
    sim("mode server terminated");
}

int CameraUi::changeMode(int mode) {
    m_mode = mode;
    // Counted before: a phone may leave as soon as it hears of the change.
    const int registered = m_registered.load();
    const int r = ModeServerSendEventToModule(MS_EVENT_KIND_MODE_CHANGE, mode, modeName(mode));
    sim(std::string("mode is now ") + (modeName(mode)[0] ? modeName(mode) : std::to_string(mode).c_str()) +
        (registered > 0 ? (r == 1 ? ": every registered phone took the NOTIFY"
                          : ": a registered phone did not take the NOTIFY")
                        : ": no phone is registered"));
    return r;
}

int CameraUi::pushPort() const { return m_pushRunning.load() ? SPGetServerPort() : 0; }

bool CameraUi::startPush(bool multi, int timeoutMs, std::string* why) {
    if (m_pushRunning.load()) {
        *why = "the push server runs already (push off first)";
        return false;
    }
    {
        std::lock_guard<std::mutex> g(m_lock);
        m_multi = multi;
        m_dataPhone.clear();
        m_phones.clear();
        m_sending.clear();
    }
    const int failId = multi ? 70 : 60;
    UiEvent e;
    std::atomic<int> never{0};
    if (multi) {
        if (DlnaSelective_NPush_Initialize(onPush) != 1) {
            *why = "DlnaSelective_NPush_Initialize failed";
            DlnaSelective_NPush_Terminate();
            return false;
        }
        m_pushRunning.store(true);
        // The multi-phone start does not wait for the server: wait for its port.
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (SPGetServerPort() == 0 || !portListening(SPGetServerPort())) {
            if (waitEvent(Feature::Push, failId, 0, never, &e) || Clock::now() >= deadline) {
                *why = "the multi-phone push server did not start (ports 8100 to 8102 busy?)";
                stopPush();
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    } else {
        if (DlnaSelectivePush_ServerStart(onPush) != 1) {
            *why = "DlnaSelectivePush_ServerStart failed (no model name?)";
            DlnaSelectivePush_Terminate();
            return false;
        }
        m_pushRunning.store(true);
        if (!waitEvent([&](const UiEvent& x) { return x.feature == Feature::Push && (x.id == 69 || x.id == 60); },
                       timeoutMs, never, &e) ||
            e.id != 69) {
            *why = "the push server did not become ready (ports 8100 to 8102 busy?)";
            stopPush();
            return false;
        }
    }
    sim(std::string(multi ? "multi-phone" : "single-phone") + " push server listening on port " +
        std::to_string(SPGetServerPort()));
    return true;
}

void CameraUi::stopPush() {
    if (!m_pushRunning.load()) return;
    if (m_multi) {
        DlnaSelective_NPush_Terminate();
    } else {
        DlnaSelectivePush_Terminate();
    }
    m_pushRunning.store(false);
    std::lock_guard<std::mutex> g(m_lock);
    for (size_t i = m_questions.size(); i-- > 0;)
        if (m_questions[i].feature == Feature::Push) m_questions.erase(m_questions.begin() + static_cast<long>(i));
    m_sending.clear();
    if (m_log) m_log->line("sim", "push server terminated");
}

bool CameraUi::send(const std::string& path, const std::string& mac, std::string* why) {
    if (!m_pushRunning.load()) {
        *why = "no push server runs (push single, or push multi)";
        return false;
    }
    MediaKind kind;
    if (!checkPushable(path, &kind, why)) return false;
    std::string target = mac;
    {
        std::lock_guard<std::mutex> g(m_lock);
        if (!m_multi) {
            if (m_dataPhone.empty()) {
                *why = "no phone is accepted yet: nothing would be sent";
                return false;
            }
            target = "";
        } else if (mac.empty()) {
            *why = "the multi-phone push needs the phone's MAC: send FILE MAC";
            return false;
        }
        m_sending[target] = baseName(path);
    }
    int r;
    if (m_multi) {
        r = DlnaSelective_NPush_StartFileTransfer(mac.c_str(), path.c_str());
    } else {
        // DlnaSelectivePush_SendFile answers 1 even when the server has no
        // phone to send to, and the server records the accepted phone only
        // after the UI callback of its announcement has returned: a file sent
        // right after "accept" could be dropped without a word. The layer
        // below says whether it sent, so the UI uses it, and tries again for
        // a moment while an acceptance is on its way.
        const auto deadline = Clock::now() + std::chrono::seconds(2);
        while ((r = SPTransferFile(path.c_str())) != 1 && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (r != 1) {
        std::lock_guard<std::mutex> g(m_lock);
        m_sending.erase(target);
        *why = m_multi ? "the push server knows no phone " + mac
                       : std::string("the push server has no accepted phone to send to");
        return false;
    }
    sim("sending " + baseName(path) + " (" + groupDigits(fileSize(path)) + " bytes) to " +
        (m_multi ? mac : "the accepted phone"));
    return true;
}

bool CameraUi::stopTransfer(const std::string& mac, std::string* why) {
    if (!m_pushRunning.load()) {
        *why = "no push server runs";
        return false;
    }
    const int r = m_multi ? DlnaSelective_NPush_StopFileTransfer(mac.empty() ? nullptr : mac.c_str())
                          : DlnaSelectivePush_Close();
    if (r != 1) *why = m_multi && mac.empty() ? "the multi-phone push needs the phone's MAC" : "nothing to stop";
    return r == 1;
}

bool CameraUi::disconnect(const std::string& mac, std::string* why) {
    if (!m_pushRunning.load()) {
        *why = "no push server runs";
        return false;
    }
    const int r = m_multi ? DlnaSelective_Npush_RemoveUserAgent(mac.empty() ? nullptr : mac.c_str())
                          : DlnaSelectivePush_Disconnect();
    if (r != 1) *why = "the push server has no such phone";
    return r == 1;
}

bool CameraUi::allowNewPhones(bool allow, std::string* why) {
    if (!m_pushRunning.load() || !m_multi) {
        *why = "only the multi-phone push opens and closes its group (push multi)";
        return false;
    }
    DlnaSelective_Npush_AllowNewConnection(allow);
    return true;
}

bool CameraUi::answer(bool yes, const std::string& mac, std::string* said) {
    std::unique_lock<std::mutex> g(m_lock);
    for (size_t i = 0; i < m_questions.size(); ++i)
        if (mac.empty() || m_questions[i].mac == mac) return answerLocked(g, i, yes, said);
    *said = mac.empty() ? "no phone is waiting for an answer" : "no phone " + mac + " is waiting for an answer";
    return false;
}

bool CameraUi::answerFor(Feature feature, const std::string& mac, bool yes, std::string* said) {
    std::unique_lock<std::mutex> g(m_lock);
    for (size_t i = 0; i < m_questions.size(); ++i)
        if (m_questions[i].feature == feature && m_questions[i].mac == mac) return answerLocked(g, i, yes, said);
    *said = "no phone " + macOrUnknown(mac) + " is waiting for an answer";
    return false;
}

bool CameraUi::answerLocked(std::unique_lock<std::mutex>& g, size_t index, bool yes, std::string* said) {
    const Question q = m_questions[index];
    m_questions.erase(m_questions.begin() + static_cast<long>(index));
    const bool multi = m_multi;
    if (q.feature == Feature::Push) {
        m_phones[q.mac].state = yes ? "accepted" : "refused";
        // The single-phone push sends to the phone accepted first.
        if (yes && !multi && m_dataPhone.empty()) m_dataPhone = q.mac;
    }
    if (q.feature == Feature::Mode && yes) ++m_registered;
    // Never call into the library while holding the lock: it may call back.
    g.unlock();
    if (q.feature == Feature::Mode) {
        ModeServerSendEventToModule(MS_EVENT_KIND_CONFIRM, yes ? 1 : 0, yes ? "accept" : "deny");
        *said = std::string(yes ? "accepted" : "refused") + " the phone " + macOrUnknown(q.mac) + " (\"" +
                q.detail + "\") at the mode server";
    } else {
        if (multi) {
            DlnaSelective_NPush_SendUserStartEvent(q.mac.c_str(), yes ? 1 : 0);
        } else {
            DlnaSelectivePush_SendUserStartEvent(yes ? 1 : 0);
        }
        *said = std::string(yes ? "accepted" : "refused") + " the phone " + q.mac + " (number " + q.detail +
                ") at the push server";
    }
    sim(*said);
    return true;
}

// ---- what the events told ---------------------------------------------------

std::vector<UiEvent> CameraUi::events() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_events;
}

std::vector<Question> CameraUi::questions() {
    std::lock_guard<std::mutex> g(m_lock);
    return m_questions;
}

std::vector<PushPhone> CameraUi::pushPhones() {
    std::lock_guard<std::mutex> g(m_lock);
    std::vector<PushPhone> out;
    for (auto& p : m_phones) {
        out.push_back(p.second);
        auto s = m_sending.find(m_multi ? p.first : "");
        if (s != m_sending.end() && (m_multi || p.first == m_dataPhone)) out.back().transfer = s->second + ": sending";
    }
    return out;
}

bool CameraUi::waitEvent(const std::function<bool(const UiEvent&)>& match, int timeoutMs,
                         const std::atomic<int>& cancel, UiEvent* out) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> g(m_lock);
    for (;;) {
        for (size_t i = 0; i < m_events.size(); ++i) {
            if (m_consumed[i] || !match(m_events[i])) continue;
            m_consumed[i] = true;
            if (out) *out = m_events[i];
            return true;
        }
        if (cancel.load() != 0 || Clock::now() >= deadline) return false;
        m_changed.wait_for(g, std::chrono::milliseconds(50));
    }
}

bool CameraUi::waitEvent(Feature feature, int id, int timeoutMs, const std::atomic<int>& cancel, UiEvent* out) {
    return waitEvent([&](const UiEvent& e) { return e.feature == feature && e.id == id; }, timeoutMs, cancel, out);
}

}  // namespace camsim
