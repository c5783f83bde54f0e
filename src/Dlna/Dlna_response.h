// The control point's playback state machine: the stack's answers to the
// requests, the renderers' evented variables and the two 2-second polling
// timers ("MrcpTimer" for the playing position, "GetTransportInfoTimer" for
// the transport state), turned into the next request and into UI events.
#ifndef CAMWIFI_DLNA_RESPONSE_H
#define CAMWIFI_DLNA_RESPONSE_H

#include <atomic>

#include "zeb_stack.h"

// Player state as the control point keeps it.
enum MediaRendererState { STOPPED = 0, TRANSITIONING = 1, PLAYING = 2, PAUSED = 3, UNKNOWN = 4 };

// PLAY_STARTED was sent for the current content (cleared with PLAY_COMPLETE).
extern std::atomic<bool> gFirstPlayFlag;
// PLAY_PAUSED was sent (cleared with PLAY_RESUMED).
extern std::atomic<bool> gPlayResumeFlag;
// The content playing is a video (from the Play answer's context).
extern std::atomic<bool> gMrcpContentIsVideo;
// Transport status word: 4 after every STOP answer handled.
extern std::atomic<int> gMrcpTransportStatus;

// The stack's callbacks.
void MrcpCommandResponse(int id, const char* action, ZEB_ERROR_CODE error, stZEBAppList* response);
void MrcpDeviceStatusNotificationCallback(int id, ZEB_ERROR_CODE error, stZEBAppList* info);

// Stores the player state for status; *changed tells whether it differs
// from the one stored before.
void UpdateTransportStatus(ZEB_MRCP_DEVICE_STATUS status, bool* changed);
void GetPlayerState(MediaRendererState& state);

// Position polling: (re)creates "MrcpTimer" to fire after seconds (none for
// 0); each firing asks for the position and re-arms it for 2 seconds.
void MrcpTimerInitialize(int seconds);
void MrcpTimerTimeout(void* unused);
void MrcpTimerTerminate();
// State polling: (re)creates "GetTransportInfoTimer"; its firing sends one
// GetTransportInfo, whose answer re-arms it until the renderer stops.
void TransportInfoTimerInitialize(int seconds);
void TransportInfoTimeout(void* unused);
void TransportInfoTimerTerminate();

// Back to a renderer that plays nothing (at each start of the control point).
void MrcpResetPlaybackState();

#endif
