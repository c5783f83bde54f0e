// The control point's playback state machine. A photo: STOP answer ->
// SetAVTransportURI -> its answer -> Play -> Play answer starts the state
// poll -> PLAYING makes show-ready true and sends SHOW_READY. A video:
// SetAVTransportURI -> Play -> PLAYING sends PLAY_STARTED and starts the
// position poll every 2 seconds; PAUSED sends PLAY_PAUSED, the next PLAYING
// PLAY_RESUMED; STOPPED sends PLAY_COMPLETE and ends both timers; a stop the
// UI ordered is answered with PLAY_STOP.
//
// No handler holds a lock while it calls the UI or the stack (DlnaMrcp.h
// says why). Each one settles the state first (busy flags, show-ready, the
// timers it stops) and tells the UI afterwards: a UI that answers an event
// at once, from another thread, finds the control point ready for its next
// call. Polls that bring new events (the position) start after the event
// that announces them.
#include "Dlna/Dlna_response.h"

#include <strings.h>

#include <cstring>
#include <mutex>
#include <string>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaMrcp.h"

std::atomic<bool> gFirstPlayFlag{false};
std::atomic<bool> gPlayResumeFlag{false};
std::atomic<bool> gMrcpContentIsVideo{false};
std::atomic<int> gMrcpTransportStatus{0};

namespace {

// Polling period of both timers.
constexpr int kPollSeconds = 2;

// Guarded by MrcpLock(). A timer handle is taken out of its slot under the
// lock and deleted after it; a new one is put in only while the callbacks
// are open, so no timer outlives a terminate.
MediaRendererState gPlayerState = STOPPED;
int gMrcpTimerHandle = 0;           // "MrcpTimer"
int gTransportInfoTimerHandle = 0;  // "GetTransportInfoTimer"

using TimerHandler = void (*)(void*);

// Action names are compared without regard to case over the keyword's length.
bool isAction(const char* action, const char* keyword) {
    return strncasecmp(action, keyword, strlen(keyword)) == 0;
}

// The context names a content kind by its first five letters.
bool contextIs(const char* context, const char* kind) { return context != nullptr && strncmp(context, kind, 5) == 0; }

// A busy flag that was "sent" becomes "done".
void finish(std::atomic<int>& flag) {
    int sent = kMrcpActionSent;
    flag.compare_exchange_strong(sent, kMrcpActionDone);
}

// Arms the timer handle of slot for seconds. The failures are reported as
// the position timer's set-up reports them; a handle that left its slot
// meanwhile (the timer was stopped) fails quietly.
void startTimer(int& slot, int handle, int seconds, TimerHandler handler) {
    if (handle == 0) {
        DlnaLogPrint(DLNA_LOG_ERROR, false, DLNA_TAG, __FILE__, "MrcpTimerInitialize", __LINE__,
                     "[MRCP ERR] Error !!! Invalid Timer Handler.. Unable to create Timer !!! ");
        return;
    }
    if (DMSAppStartTimer(handle, static_cast<unsigned int>(seconds) * 1000u, handler, nullptr) == 0) return;
    bool current;
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        current = slot == handle;
    }
    if (current)
        DlnaLogPrint(DLNA_LOG_ERROR, false, DLNA_TAG, __FILE__, "MrcpTimerInitialize", __LINE__,
                     "[MRCP ERR] Error !!! Failed to Start Timer !!! ");
}

int timerIn(const int& slot) {
    std::lock_guard<std::mutex> g(MrcpLock());
    return slot;
}

void deleteTimer(int& slot) {
    int handle;
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        handle = slot;
        slot = 0;
    }
    if (handle == 0) return;
    if (DMSAppDeleteTimer(handle) != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] Failed to Delete Timer !!! ");
}

void createTimer(int& slot, const char* name, int seconds, TimerHandler handler) {
    deleteTimer(slot);
    if (seconds <= 0) return;
    int handle = DMSAppCreateTimer(name);
    if (handle != 0) {
        bool kept = false;
        {
            std::lock_guard<std::mutex> g(MrcpLock());
            // Another handler may have made one meanwhile, or terminate closed
            // the control point: this one is not needed then.
            if (gMrcpCallbacksOpen && slot == 0) {
                slot = handle;
                kept = true;
            }
        }
        if (!kept) {
            DMSAppDeleteTimer(handle);
            return;
        }
    }
    startTimer(slot, handle, seconds, handler);
}

// The player state stored for status, and whether that changed it.
MediaRendererState storePlayerState(ZEB_MRCP_DEVICE_STATUS status, bool* changed) {
    MediaRendererState next;
    switch (status) {
        case ZEB_MRCP_STATE_PLAYING:
            DLNA_LOG_I(DLNA_TAG, "Player playing. ");
            next = PLAYING;
            break;
        case ZEB_MRCP_STATE_STOPPED:
            DLNA_LOG_I(DLNA_TAG, "Player Stopped. ");
            next = STOPPED;
            break;
        case ZEB_MRCP_STATE_PAUSED_PLAYBACK:
            DLNA_LOG_I(DLNA_TAG, "Player Paused. ");
            next = PAUSED;
            break;
        case ZEB_MRCP_STATE_TRANSITIONING:
            DLNA_LOG_I(DLNA_TAG, "Player Buffering ");
            next = TRANSITIONING;
            break;
        default:
            DLNA_LOG_I(DLNA_TAG, "Invalid Status ");
            next = UNKNOWN;
            break;
    }
    MediaRendererState before;
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        before = gPlayerState;
        gPlayerState = next;
    }
    if (changed != nullptr) *changed = next != before;
    return next;
}

// Common reactions to a new player state, from the poll or from an event.
void onStopped() {
    finish(gMrcpStopActionFlag);
    MrcpTimerTerminate();
    TransportInfoTimerTerminate();
    if (gFirstPlayFlag.exchange(false)) {
        DLNA_LOG_I(DLNA_TAG, "** Send EVT_MRCP_PLAY_COMPLETE Event to UI");
        MrcpSendEventToUI(EVT_MRCP_PLAY_COMPLETE, nullptr, 0);
    }
}

void onPaused() {
    MrcpTimerTerminate();
    if (gFirstPlayFlag) {
        gPlayResumeFlag = true;
        DLNA_LOG_I(DLNA_TAG, "[ProcessPlaybackCommandResponse]** Send EVT_MRCP_PLAY_PAUSED Event to UI");
        MrcpSendEventToUI(EVT_MRCP_PLAY_PAUSED, nullptr, 0);
    }
}

void sendStartedAndResumed() {
    if (!gFirstPlayFlag.exchange(true)) {
        DLNA_LOG_I(DLNA_TAG, "[ProcessPlaybackCommandResponse]** Send EVT_MRCP_PLAY_STARTED Event to UI");
        MrcpSendEventToUI(EVT_MRCP_PLAY_STARTED, nullptr, 0);
    }
    if (gPlayResumeFlag.exchange(false)) {
        DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_PLAY_RESUMED Event to UI");
        MrcpSendEventToUI(EVT_MRCP_PLAY_RESUMED, nullptr, 0);
    }
}

// Show-ready true; true when it was false (SHOW_READY is then due).
bool becomeShowReady() { return !MrcpExchangeShowReadyFlag(true); }

void startPositionPolling() {
    MrcpTimerInitialize(kPollSeconds);
    DlnaMrcpGetPositionInfo();
}

// PLAYING as the state poll reports it.
void onPlayingPolled() {
    finish(gMrcpPlayActionFlag);
    if (becomeShowReady()) {
        DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_SHOW_READY Event to UI");
        MrcpSendEventToUI(EVT_MRCP_SHOW_READY, nullptr, 0);
    }
    DLNA_LOG_I(DLNA_TAG, "Player_state == PLAYING ");
    sendStartedAndResumed();
    if (gMrcpContentIsVideo) startPositionPolling();
}

// ---- Answers ----------------------------------------------------------------------

void onSetAVTransportURIAnswer(ZEB_ERROR_CODE error, const char* context) {
    DLNA_LOG_I(DLNA_TAG, "SetAVTransportURI response is received.!!");
    if (error == ZEB_MRCP_ACTION_FAILED) {
        if (becomeShowReady()) {
            DLNA_LOG_I(DLNA_TAG, "MrcpSetShowReadyFlag TRUE");
            DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_SHOW_READY Event to UI and Return ");
            MrcpSendEventToUI(EVT_MRCP_SHOW_READY, nullptr, 0);
            return;
        }
        DLNA_LOG_I(DLNA_TAG, "MrcpSetShowReadyFlag is FALSE ");
    }
    DLNA_LOG_I(DLNA_TAG, "pContext = %s", context ? context : "UNKNOWN_Context");
    const char* kind = "Unknown";
    if (contextIs(context, "image")) {
        kind = "image";
        DLNA_LOG_I(DLNA_TAG, "image Context  in SetAVTransportURI response");
    } else if (contextIs(context, "video")) {
        kind = "video";
        DLNA_LOG_I(DLNA_TAG, "video Context  in SetAVTransportURI response");
    } else {
        DLNA_LOG_I(DLNA_TAG, "Unknown Content  in SetAVTransportURI response");
    }
    // Marked before the Play goes out: its answer may arrive before the send
    // returns, and must find the Play pending.
    const int playBefore = gMrcpPlayActionFlag.exchange(kMrcpActionSent);
    ZEB_ERROR_CODE r = MrcpSendAction(ZEBMRCPAVPlay, "Play", kind,
                                      [](stZEBAppList* rq) { return HZebMRCPRQSetPlaySpeed(rq, 1); });
    if (r == 0) return;
    int sent = kMrcpActionSent;
    gMrcpPlayActionFlag.compare_exchange_strong(sent, playBefore);
    // Nothing will answer a Play that was never sent: the UI learns it now
    // instead of waiting for SHOWREADY forever.
    DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] ZEBMRCPAVPlay() failed!!!- %d", r);
    MrcpSetShowReadyFlag(true);
    MrcpSendEventToUI(EVT_MRCP_PLAY_FAILED, nullptr, 0);
}

void onPlayAnswer(ZEB_ERROR_CODE error, const char* context) {
    DLNA_LOG_I(DLNA_TAG, "PLAY response is received.!!");
    DLNA_LOG_I(DLNA_TAG, "pContext = %s", context ? context : "UNKNOWN_Context");
    if (error == ZEB_MRCP_ACTION_FAILED && becomeShowReady()) {
        DLNA_LOG_I(DLNA_TAG, "MrcpSetShowReadyFlag TRUE as Play command failed.");
        finish(gMrcpPlayActionFlag);
        DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_SHOW_READY Event to UI");
        MrcpSendEventToUI(EVT_MRCP_SHOW_READY, nullptr, 0);
        return;
    }
    if (error == ZEB_MRCP_ACTION_FAILED) DLNA_LOG_I(DLNA_TAG, "MrcpSetShowReadyFlag is FALSE ");
    if (contextIs(context, "image")) {
        gMrcpContentIsVideo = false;
        DLNA_LOG_I(DLNA_TAG, "Image Context  in Play response");
        TransportInfoTimerInitialize(kPollSeconds);
    } else if (contextIs(context, "video")) {
        gMrcpContentIsVideo = true;
        DLNA_LOG_I(DLNA_TAG, "video Context  in Play response");
        TransportInfoTimerInitialize(kPollSeconds);
    } else {
        DLNA_LOG_I(DLNA_TAG, "Unknown Content  in Play response");
    }
    finish(gMrcpPlayActionFlag);
}

// The photo's Stop is over: its flags are done and the word says stopped.
void finishPhotoStop() {
    gMrcpStopActionFlag = kMrcpActionDone;
    gMrcpTransportStatus = 4;
    gMrcpShowActionFlag = kMrcpActionDone;
}

void onStopAnswer(ZEB_ERROR_CODE error) {
    DLNA_LOG_I(DLNA_TAG, "STOP response is received.!!");
    if (gMrcpStopActionFlag != kMrcpActionSent && gMrcpShowActionFlag != kMrcpActionSent) {
        // A stop the UI ordered.
        if (gMrcpStopActionFlag == kMrcpActionIdle) {
            DLNA_LOG_I(DLNA_TAG, "STOP response is received. Sending STOPEvent to UI");
            MrcpSetShowReadyFlag(true);
            gMrcpTransportStatus = 4;
            DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_PLAY_STOP Event to UI");
            MrcpSendEventToUI(EVT_MRCP_PLAY_STOP, nullptr, 0);
        }
        return;
    }
    // The stop that clears the way for the next photo.
    DLNA_LOG_I(DLNA_TAG, "STOP response is received. Calling SetAVTransportURL!!");
    if (error == ZEB_MRCP_ACTION_FAILED) {
        if (MrcpGetShowReadyFlag()) {
            DLNA_LOG_I(DLNA_TAG,
                       "MrcpSetShowReadyFlag is TRUE .. Dont send the next action until TV is in Stopped state. ");
            return;
        }
        DLNA_LOG_I(DLNA_TAG, "MrcpSetShowReadyFlag TRUE as Play command failed.");
        MrcpSetShowReadyFlag(true);
        finishPhotoStop();
        MrcpSendEventToUI(EVT_MRCP_SHOW_READY, nullptr, 0);
        return;
    }
    // Done before the photo goes out: its answers may come back, up to the
    // SHOW_READY that lets the UI show the next photo, before the send returns.
    finishPhotoStop();
    if (Mrcp_SetAvtransportUrl() == 0) {
        MrcpSetShowReadyFlag(true);
        MrcpSendEventToUI(EVT_MRCP_PLAY_FAILED, nullptr, 0);
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "SetAVTransportURL Failed. Send EVT_MRCP_PLAY_FAILED to UI");
    }
}

// The state poll's answer.
void onTransportInfoAnswer(ZEB_ERROR_CODE error, stZEBAppList* response) {
    if (error != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "GetTransportInfo Action returned error.!!");
        return;
    }
    ZEB_MRCP_DEVICE_STATUS status = ZEB_MRCP_STATE_UNKNOWN;
    int transportStatus = ZEB_MRCP_TRANSPORT_STATUS_OK;
    if (HZebMRCPRQGetTransportInfo(response, &status, &transportStatus) != 0) {
        MrcpSetShowReadyFlag(true);
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "HZebMRCPRQGetTransportInfo failed !! Send EVT_MRCP_PLAY_FAILED to UI  !!");
        MrcpSendEventToUI(EVT_MRCP_PLAY_FAILED, nullptr, 0);
        return;
    }
    if (transportStatus == ZEB_MRCP_TRANSPORT_STATUS_ERROR) {
        DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_UNSUPPORTED_FILE Event to UI");
        MrcpSendEventToUI(EVT_MRCP_UNSUPPORTED_FILE, nullptr, 0);
        return;
    }
    bool changed = false;
    const MediaRendererState state = storePlayerState(status, &changed);
    if (!changed) {
        if (state == PLAYING) onPlayingPolled();
    } else {
        switch (state) {
            case STOPPED:
                DLNA_LOG_I(DLNA_TAG, "Player_state == STOPPED ");
                onStopped();
                return;  // polling ends with the content
            case TRANSITIONING:
                DLNA_LOG_I(DLNA_TAG, "Player_state == TRANSITIONING ");
                break;
            case PLAYING:
                onPlayingPolled();
                break;
            case PAUSED:
                DLNA_LOG_I(DLNA_TAG, "Player_state == PAUSED ");
                onPaused();
                break;
            default:
                DLNA_LOG_I(DLNA_TAG, "Player_state == UNKNOWN ");
                break;
        }
    }
    TransportInfoTimerInitialize(kPollSeconds);
}

void onPlaybackAnswer(const char* action, ZEB_ERROR_CODE error, const char* context, stZEBAppList* response) {
    if (isAction(action, "SetAVTransportURI")) {
        onSetAVTransportURIAnswer(error, context);
    } else if (isAction(action, "Play")) {
        onPlayAnswer(error, context);
    } else if (isAction(action, "Stop")) {
        onStopAnswer(error);
    } else if (isAction(action, "Pause")) {
        DLNA_LOG_I(DLNA_TAG, "PAUSE response is received.!!");
    } else if (isAction(action, "Resume")) {
        DLNA_LOG_I(DLNA_TAG, "RESUME response is received.!!");
    } else if (isAction(action, "Seek")) {
        DLNA_LOG_I(DLNA_TAG, "SEEK response is received.!!");
    } else if (isAction(action, "GetTransportInfo")) {
        onTransportInfoAnswer(error, response);
    }
}

void onPositionAnswer(stZEBAppList* response) {
    DLNA_LOG_I(DLNA_TAG, "[ProcessGetPositionInfoResponse] ProcessGetPositionInfoResponse() Enter!!");
    int durationMs = -1, positionMs = -1;
    if (HZebMRCPCRGetTrackDuration(response, &durationMs) != 0) durationMs = -1;
    if (HZebMRCPCRGetRelTime(response, &positionMs) != 0) positionMs = -1;
    int duration = durationMs / 1000;
    int position = positionMs / 1000;
    if (duration == 0 || position == duration) {
        DLNA_LOG_I(DLNA_TAG, "[ProcessGetPositionInfoResponse] !!!  Terminate MRCP Timer !!!");
        MrcpTimerTerminate();
    }
    if (duration != 0 && position <= duration) {
        DLNA_LOG_I(DLNA_TAG, "** Send EVT_MRCP_PLAY_POSITION Event to UI - Duration = %d , PlayPosition = %d",
                   duration, position);
        MrcpPlayPosition record;
        record.duration = duration;
        record.position = position;
        record.percent = duration > 0 && position >= 0 ? static_cast<int32_t>(position * 100LL / duration) : 0;
        MrcpSendEventToUI(EVT_MRCP_PLAY_POSITION, &record, position);
    }
}

void onProtocolInfoAnswer(stZEBAppList* response) {
    DLNA_LOG_I(DLNA_TAG, "Get Protocol Info Response ");
    const char* udn = nullptr;
    if (HZebMRCPCRGetTCharContext(response, &udn) != 0) udn = nullptr;
    DLNA_LOG_I(DLNA_TAG, "Get Protocol Info Response for DMR - %s", udn ? udn : "");
    const char* sink = nullptr;
    if (udn != nullptr && HZebMRCPCRGetSinkProtocolInfo(response, &sink) == 0 && sink != nullptr)
        ZEBMRCPstoreRendererProtocolInfo(udn, sink);
}

// A TransportState value from a LastChange text: the value of the
// TransportState element's val attribute, quoted or (when the stack passes
// the text still escaped) &quot;-quoted.
bool lastChangeTransportState(const char* lastChange, std::string* state) {
    const char* element = strstr(lastChange, "TransportState");
    if (element == nullptr) return false;
    const char* val = strstr(element, "val=");
    if (val == nullptr) return false;
    val += 4;
    if (*val == '"' || *val == '\'') ++val;
    else if (strncmp(val, "&quot;", 6) == 0) val += 6;
    else return false;
    size_t n = strspn(val, "ABCDEFGHIJKLMNOPQRSTUVWXYZ_");
    state->assign(val, n);
    return n > 0;
}

}  // namespace

void UpdateTransportStatus(ZEB_MRCP_DEVICE_STATUS status, bool* changed) { storePlayerState(status, changed); }

void GetPlayerState(MediaRendererState& state) {
    std::lock_guard<std::mutex> g(MrcpLock());
    state = gPlayerState;
}

void MrcpResetPlaybackState() {
    {
        std::lock_guard<std::mutex> g(MrcpLock());
        gPlayerState = STOPPED;
    }
    gFirstPlayFlag = false;
    gPlayResumeFlag = false;
    gMrcpContentIsVideo = false;
}

void MrcpCommandResponse(int /*id*/, const char* action, ZEB_ERROR_CODE error, stZEBAppList* response) {
    MrcpCallbackScope scope;
    if (gMrcpCallbacksOpen && action != nullptr) {
        if (error != 0)
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MrcpCommandResponse] Error in sending action == %s , ErrorCode = %d ",
                               action, error);
        static const char* const kPlayback[] = {"Play", "Stop", "Pause", "Resume", "Seek", "GetTransportInfo",
                                                "SetAVTransportURI"};
        bool playback = false;
        for (const char* keyword : kPlayback) playback = playback || isAction(action, keyword);
        if (playback) {
            const char* context = nullptr;
            if (HZebMRCPCRGetTCharContext(response, &context) != 0) context = nullptr;
            onPlaybackAnswer(action, error, context, response);
        } else if (isAction(action, "GetVolume")) {
            DLNA_LOG_I(DLNA_TAG, "Get Volume Response ");
            int volume = -1;
            if (HZebMRCPRQGetVolume(response, &volume) != 0) volume = -1;
            DLNA_LOG_I(DLNA_TAG, "Volume : %d", volume);
        } else if (isAction(action, "GetPositionInfo")) {
            onPositionAnswer(response);
        } else if (isAction(action, "GetProtocolInfo")) {
            onProtocolInfoAnswer(response);
        } else if (isAction(action, "COMMAND_ERROR")) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] Command Error Reponse ");
        }
    }
    if (response != nullptr) HZebMRCPReleaseResponseResources(response);
}

void MrcpDeviceStatusNotificationCallback(int /*id*/, ZEB_ERROR_CODE error, stZEBAppList* info) {
    MrcpCallbackScope scope;
    if (gMrcpCallbacksOpen && info != nullptr) {
        DLNA_LOG_I(DLNA_TAG, "MrcpDeviceStatusNotificationCallback() Enter");
        if (error != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "Renderer MRCPDeviceStatusNotificationCallback error !!");
        const char* udn = nullptr;
        const char* serviceType = nullptr;
        int count = 0;
        if (HZebMRCPDIGetDeviceUDN(info, &udn) != 0) udn = nullptr;
        if (HZebMRCPDIGetServiceType(info, &serviceType) != 0) serviceType = nullptr;
        if (HZebMRCPDIGetNumOfArgument(info, &count) != 0) count = 0;
        bool haveState = false;
        ZEB_MRCP_DEVICE_STATUS status = ZEB_MRCP_STATE_UNKNOWN;
        for (int i = 0; i < count; ++i) {
            const char* name = nullptr;
            const char* value = nullptr;
            if (HZebMRCPDIGetStateVariable(info, i, &name, &value) != 0 || name == nullptr || value == nullptr)
                continue;
            DLNA_LOG_I(DLNA_TAG, "type = %s , value = %s ", name, value);
            std::string state;
            if (strcmp(name, "LastChange") != 0 || !lastChangeTransportState(value, &state)) continue;
            static const struct {
                const char* prefix;
                ZEB_MRCP_DEVICE_STATUS status;
                const char* log;
            } kStates[] = {
                {"PLAYING", ZEB_MRCP_STATE_PLAYING, "NOTIFY : PLAYING"},
                {"STOPPED", ZEB_MRCP_STATE_STOPPED, "NOTIFY : STOPPED"},
                {"PAUSED", ZEB_MRCP_STATE_PAUSED_PLAYBACK, "NOTIFY : PAUSED"},  // PAUSED_PLAYBACK
                {"TRANSITIONING", ZEB_MRCP_STATE_TRANSITIONING, "NOTIFY : TRANSITIONING"},
            };
            for (auto& s : kStates) {
                if (state.compare(0, strlen(s.prefix), s.prefix) != 0) continue;
                DLNA_LOG_I(DLNA_TAG, "%s", s.log);
                status = s.status;
                haveState = true;
                break;
            }
        }
        // Every renderer that appeared is subscribed to, so its events arrive
        // here too; only the chosen one's state drives the playback. Another
        // TV stopping must not end the video playing on the chosen one.
        const std::string chosen = MrcpChosenUdn();
        const bool fromChosen = udn != nullptr && !chosen.empty() && strcasecmp(udn, chosen.c_str()) == 0;
        bool changed = false;
        MediaRendererState state = UNKNOWN;
        if (haveState && fromChosen) state = storePlayerState(status, &changed);
        if (changed) {
            switch (state) {
                case STOPPED:
                    DLNA_LOG_I(DLNA_TAG, "Player_state == STOPPED ");
                    onStopped();
                    break;
                case PAUSED:
                    DLNA_LOG_I(DLNA_TAG, "Player_state == PAUSED ");
                    onPaused();
                    break;
                case PLAYING:
                    DLNA_LOG_I(DLNA_TAG, "Player_state == PLAYING ");
                    finish(gMrcpPlayActionFlag);
                    // A photo needs no more polling (stopped before the UI
                    // hears of it and shows the next one); a video's position
                    // is polled after PLAY_STARTED went out.
                    if (!gMrcpContentIsVideo) TransportInfoTimerTerminate();
                    if (becomeShowReady()) {
                        DLNA_LOG_I(DLNA_TAG, "Send EVT_MRCP_SHOW_READY Event to UI");
                        MrcpSendEventToUI(EVT_MRCP_SHOW_READY, nullptr, 0);
                    } else {
                        sendStartedAndResumed();
                    }
                    if (gMrcpContentIsVideo) startPositionPolling();
                    break;
                case TRANSITIONING:
                    DLNA_LOG_I(DLNA_TAG, "Player_state == TRANSITIONING ");
                    break;
                default:
                    break;
            }
        }
    }
    if (info != nullptr) HZebMRCPReleaseInfoResources(info);
}

// ---- Timers ---------------------------------------------------------------------------

void MrcpTimerInitialize(int seconds) { createTimer(gMrcpTimerHandle, "MrcpTimer", seconds, MrcpTimerTimeout); }

void MrcpTimerTimeout(void* /*unused*/) {
    MrcpCallbackScope scope;
    if (!gMrcpCallbacksOpen) return;
    const int handle = timerIn(gMrcpTimerHandle);
    if (handle == 0) {
        DLNA_LOG_I(DLNA_TAG, " Invalid Timer Id ... Dont send Getposition Info command ");
        return;
    }
    DlnaMrcpGetPositionInfo();
    startTimer(gMrcpTimerHandle, handle, kPollSeconds, MrcpTimerTimeout);
}

void MrcpTimerTerminate() { deleteTimer(gMrcpTimerHandle); }

void TransportInfoTimerInitialize(int seconds) {
    createTimer(gTransportInfoTimerHandle, "GetTransportInfoTimer", seconds, TransportInfoTimeout);
}

void TransportInfoTimeout(void* /*unused*/) {
    MrcpCallbackScope scope;
    if (!gMrcpCallbacksOpen) return;
    deleteTimer(gTransportInfoTimerHandle);
    ZEB_ERROR_CODE r = MrcpSendAction(ZEBMRCPGetPlayState, "GetTransportInfo", "GetPlayStateAction");
    if (r != 0) DLNA_LOG_E_LOGONLY(DLNA_TAG, "[MRCP ERR] GetTransportInfo failed!!!- %d", r);
}

void TransportInfoTimerTerminate() { deleteTimer(gTransportInfoTimerHandle); }
