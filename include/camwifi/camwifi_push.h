/**
 * @file camwifi_push.h
 * @brief Pushing photos and videos to phones.
 *
 * Single-phone push (DlnaSelectivePush_*): the camera runs the push server
 * (port 8100, else 8101, else 8102); one phone announces itself there; the UI
 * accepts it; the camera then POSTs each file to the phone's own receiver,
 * shrinking JPEGs first when the camera's transfer size (DlnaSetTransferSize())
 * is 0. Multi-phone push (DlnaSelective_NPush_*): the same server admits up
 * to ten phones; the UI picks a phone by its MAC text for each file. Only one
 * of the two runs at a time. Register the callback with
 * DlnaSelectivePushSetCallback() (camwifi_frame.h) or through the start call.
 *
 * Events reach the callback as (event, value, length). Where an event's
 * "first parameter" is a number, value carries it as (void*)(intptr_t)n; where
 * it is a text, value points to it. The "second parameter" travels in length:
 * a number, or a text pointer cast to intptr_t. Texts live only during the
 * call. MAC addresses are lower-case colon-separated hex ("0a:1b:2c:3d:4e:5f").
 *
 * Threads: the UI calls these functions from its own thread. Events about
 * phones and the server (60 to 63, 69; 70 to 72, 78, 79) arrive on the push
 * server's thread ("SPServerThread"), events about a transfer (64 to 68;
 * 73 to 77) on that transfer's own thread ("SPClientThread"); a start that
 * fails before the server runs (60, 70) reports on the calling thread.
 * Start and terminate must not run concurrently with other calls of the
 * feature.
 *
 * | id | single-phone event | value | length |
 * | --- | --- | --- | --- |
 * | 60 | the push server failed, or the start found no model name | 0 | 0 |
 * | 61 | a phone announced itself | MAC text | phone number text |
 * | 62 | a phone announced itself, having come by NFC | MAC text | phone number text |
 * | 63 | the phone left | 0 | 0 |
 * | 64 | file transfer complete | 0 | 0 |
 * | 65 | file transfer progress: 1 at start, then the percentage | n | 0 |
 * | 66 | file transfer failed (also after a stop) | 0 | 0 |
 * | 67 | the phone's storage is full | 0 | 0 |
 * | 68 | the phone does not take this file type | 0 | 0 |
 * | 69 | the push server is ready | 0 | 0 |
 *
 * | id | multi-phone event | value | length |
 * | --- | --- | --- | --- |
 * | 70 | server failed, or the start failed | 0 | 0 |
 * | 71 | a phone announced itself and is the only one | MAC text | phone number text |
 * | 78 | a phone announced itself while others are registered | MAC text | phone number text |
 * | 72 | a phone was removed and none remain | MAC text | 0 |
 * | 79 | a phone was removed and others remain | MAC text | 0 |
 * | 73 | transfer complete | 100 | MAC text |
 * | 74 | transfer progress: 1 at start, then the percentage | n | MAC text |
 * | 75 | transfer failed | 0 | MAC text |
 * | 76 | the phone does not take this file type | 0 | MAC text |
 * | 77 | the phone's storage is full | 0 | MAC text |
 */
#ifndef CAMWIFI_CAMWIFI_PUSH_H
#define CAMWIFI_CAMWIFI_PUSH_H

#include <stdbool.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Single-phone push: the UI's entry points ------------------------------ */

/**
 * Starts the single-phone push: sets the share mode to 3, stores callback,
 * reads the model name set with DlnaSetModelName() and starts the push server.
 * Event 69 follows on the server's thread when it listens (60 if it cannot).
 * Without a model name, event 60 is sent on the calling thread and nothing
 * starts.
 * @param callback the callback of events 60 to 69.
 * @return 1, or 0 when no model name is set.
 */
CAMWIFI_API int DlnaSelectivePush_ServerStart(ZEB_UI_CALLBACK callback);
/**
 * Sends the file at path to the accepted phone: events 65 (progress) then one
 * of 64, 66, 67, 68 follow on the transfer's thread. A new file replaces a
 * running transfer.
 * @param path the file to send.
 * @return 1 (also when no phone is there yet; then nothing is sent).
 */
CAMWIFI_API int DlnaSelectivePush_SendFile(const char* path);
/**
 * Stops the current transfer; event 66 follows on the transfer's thread.
 * @return 1, or 0 when nothing was sent since the last stop of the feature,
 *         or no server runs.
 */
CAMWIFI_API int DlnaSelectivePush_Close(void);
/**
 * Drops the accepted phone from the permitted list.
 * @return 1 when it was there, else 0.
 */
CAMWIFI_API int DlnaSelectivePush_Disconnect(void);
/**
 * The user's answer for the phone of event 61/62: non-zero accepts (the
 * phone gets 200), 0 refuses (401; the next phone that announces itself is
 * asked about again).
 * @param answer non-zero to accept, 0 to refuse.
 * @return 1.
 */
CAMWIFI_API int DlnaSelectivePush_SendUserStartEvent(int answer);
/**
 * Blocks the caller until a phone announces itself (answer 1 = a phone asks
 * to start; its event 61/62 has been sent) or the push is terminated or fails
 * (answer stays 65535). The push server posts it on each announcement, so a
 * UI may run this on a thread of its own instead of using event 61/62; an
 * announcement made before the call is not lost. A signal does not end the
 * wait.
 * @param[out] answer receives 1 or 65535.
 * @return 0, or -1 when the push was never started (answer untouched).
 */
CAMWIFI_API int DlnaSelectivePush_WaitingUserStartEvent(int* answer);
/**
 * Stops transfers, sends the turn-down request to an accepted phone, stops
 * the server, wakes a waiter, sets the share mode to 0. No event follows.
 * @return 1.
 */
CAMWIFI_API int DlnaSelectivePush_Terminate(void);

/* ---- Single-phone push: the layer below (1 success, 0 failure) ------------- */
/**
 * Starts the push server (the layer below DlnaSelectivePush_ServerStart())
 * and waits briefly for it to listen; event 69 or 60 follows on its thread.
 * @param deviceName the camera's name sent in the push's user agent (at most
 *                   31 characters are kept), or NULL to keep the current one.
 * @return 1, or 0 when a push server already runs.
 */
CAMWIFI_API int SPStart(const char* deviceName);
/**
 * Stops the transfer, sends the turn-down request to an accepted phone and
 * stops the push server.
 * @return 1.
 */
CAMWIFI_API int SPTerminate(void);
/**
 * Sends the file at path to the accepted phone (events 65, then 64, 66, 67 or
 * 68 on the transfer's thread).
 * @param path the file to send.
 * @return 1 when the transfer was created, 0 when no server runs, no phone
 *         is accepted or path is NULL.
 */
CAMWIFI_API int SPTransferFile(const char* path);
/**
 * Stops the accepted phone's transfer (event 66 follows).
 * @return 1, or 0 when nothing was sent since the last stop of the feature
 *         or no server runs.
 */
CAMWIFI_API int SPStopFile(void);
/**
 * Drops the accepted phone from the permitted list.
 * @return 1 when it was there, else 0 (also when no server runs).
 */
CAMWIFI_API int SPDisconnectClient(void);
/**
 * The user's answer for the waiting phone; nothing when no server runs.
 * @param answer non-zero accepts (200), 0 refuses (401).
 */
CAMWIFI_API void SPSendUserStartEvent(int answer);
/**
 * Chooses whether JPEGs are shrunk before sending. Takes effect at the next
 * start.
 * @param mode non-zero: resize JPEGs before sending; 0: send files unchanged.
 */
CAMWIFI_API void SPSetImageTransferSize(int mode);
/**
 * The push server's port.
 * @return 8100, 8101 or 8102, or 0 when no server runs.
 */
CAMWIFI_API int SPGetServerPort(void);

/* ---- Multi-phone push: the UI's entry points -------------------------------- */

/**
 * Starts the multi-phone push: sets the share mode to 4, stores callback and
 * starts the server open to phones (events 70 to 79 follow on the server's
 * and the transfers' threads).
 * @param callback the callback of events 70 to 79.
 * @return 1, or 0 (with event 70 on the calling thread) when it cannot start
 *         or no model name is set.
 */
CAMWIFI_API int DlnaSelective_NPush_Initialize(ZEB_UI_CALLBACK callback);
/**
 * Stops all transfers and the server; share mode 0. No turn-down request is
 * sent in this variant, and no event follows.
 * @return 1.
 */
CAMWIFI_API int DlnaSelective_NPush_Terminate(void);
/**
 * Sends path to the phone mac: events 74 (progress), then one of 73, 75, 76,
 * 77 on the transfer's thread.
 * @param mac  the phone's MAC text.
 * @param path the file to send.
 * @return 1, or 0 for a null argument or a phone the server does not know
 *         (no event).
 */
CAMWIFI_API int DlnaSelective_NPush_StartFileTransfer(const char* mac, const char* path);
/**
 * Stops one phone's transfer; the others go on.
 * @param mac the phone's MAC text.
 * @return 1, or 0 for a null MAC.
 */
CAMWIFI_API int DlnaSelective_NPush_StopFileTransfer(const char* mac);
/**
 * Drops a phone from the access list.
 * @param mac the phone's MAC text.
 * @return 1 when it was there, else 0.
 */
CAMWIFI_API int DlnaSelective_Npush_RemoveUserAgent(const char* mac);
/**
 * Closes the group to new phones, or opens it again.
 * @param allow false closes, true opens.
 * @return 1.
 */
CAMWIFI_API int DlnaSelective_Npush_AllowNewConnection(bool allow);
/**
 * The user's answer for the phone mac (of event 71 or 78).
 * @param mac     the phone's MAC text.
 * @param confirm non-zero accepts (200), 0 refuses (401).
 * @return 1.
 */
CAMWIFI_API int DlnaSelective_NPush_SendUserStartEvent(const char* mac, int confirm);

/* ---- Multi-phone push: the layer below -------------------------------------- */
/**
 * Prepares the multi-phone push (state 0, its handshake semaphore).
 * @return 1, or 0 when the semaphore cannot be had.
 */
CAMWIFI_API int SNPushInitialize(void);
/**
 * Starts the push server for several phones, open to new ones (state 1).
 * @return 1, or 0 when a push server already runs.
 */
CAMWIFI_API int SNPushStart(void);
/**
 * Stops all transfers and the push server (state 0).
 * @return 1.
 */
CAMWIFI_API int SNPushTerminate(void);
/**
 * Sends path to the phone mac (events 74, then 73, 75, 76 or 77 on the
 * transfer's thread). A new file to the same phone replaces its running
 * transfer; transfers to different phones run side by side.
 * @param mac  the phone's MAC text.
 * @param path the file to send.
 * @return 1, or 0 when no server runs, an argument is NULL or the phone is
 *         unknown.
 */
CAMWIFI_API int SNPushTransferFile(const char* mac, const char* path);
/**
 * Stops the transfer to the phone mac.
 * @param mac the phone's MAC text.
 * @return 1, or 0 for a null MAC.
 */
CAMWIFI_API int SNPushStopFile(const char* mac);
/**
 * The user's answer for the phone mac; nothing when no server runs.
 * @param mac    the phone's MAC text.
 * @param answer non-zero accepts, 0 refuses.
 */
CAMWIFI_API void SNPushSendUserStartEvent(const char* mac, int answer);
/**
 * Opens the group to new phones (state 2) or closes it (state 3).
 * @param allow true opens, false closes.
 * @return 1.
 */
CAMWIFI_API int SNPushAllowNewConnection(bool allow);
/**
 * Drops the phone mac from the access list.
 * @param mac the phone's MAC text.
 * @return 1 when it was there, else 0 (also when no server runs).
 */
CAMWIFI_API int SNPushRemoveClientFromAccessList(const char* mac);
/**
 * Sets the multi-phone push state.
 * @param state 0 idle, 1 started, 2 open to new phones, 3 closed to new
 *              phones.
 */
CAMWIFI_API void SNPushChangeState(int state);

#ifdef __cplusplus
}
#endif

#endif
