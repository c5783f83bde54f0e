/*
 * camwifi: pushing photos and videos to phones.
 *
 * Single-phone push (DlnaSelectivePush_*): the camera runs the push server
 * (port 8100, else 8101, else 8102); one phone announces itself there; the UI
 * accepts it; the camera then POSTs each file to the phone's own receiver,
 * shrinking JPEGs first when the camera's transfer size (DlnaSetTransferSize)
 * is 0. Multi-phone push (DlnaSelective_NPush_*): the same server admits up
 * to ten phones; the UI picks a phone by its MAC text for each file. Only one
 * of the two runs at a time. Register the callback with
 * DlnaSelectivePushSetCallback (camwifi_frame.h) or through the start call.
 *
 * Events reach the callback as (event, value, length). Where an event's
 * "first parameter" is a number, value carries it as (void*)(intptr_t)n; where
 * it is a text, value points to it. The "second parameter" travels in length:
 * a number, or a text pointer cast to intptr_t. Texts live only during the
 * call. MAC addresses are lower-case colon-separated hex ("0a:1b:2c:3d:4e:5f").
 *
 * Single-phone events:
 *   60  the push server failed, or the start found no model name   0, 0
 *   61  a phone announced itself                                   MAC text, phone number text
 *   62  a phone announced itself, having come by NFC               MAC text, phone number text
 *   63  the phone left                                             0, 0
 *   64  file transfer complete                                     0, 0
 *   65  file transfer progress: 1 at start, then the percentage    n, 0
 *   66  file transfer failed (also after a stop)                   0, 0
 *   67  the phone's storage is full                                0, 0
 *   68  the phone does not take this file type                     0, 0
 *   69  the push server is ready                                   0, 0
 * Multi-phone events:
 *   70  server failed, or the start failed                         0, 0
 *   71  a phone announced itself and is the only one               MAC text, phone number text
 *   78  a phone announced itself while others are registered       MAC text, phone number text
 *   72  a phone was removed and none remain                        MAC text, 0
 *   79  a phone was removed and others remain                      MAC text, 0
 *   73  transfer complete                                          100, MAC text
 *   74  transfer progress: 1 at start, then the percentage         n, MAC text
 *   75  transfer failed                                            0, MAC text
 *   76  the phone does not take this file type                     0, MAC text
 *   77  the phone's storage is full                                0, MAC text
 */
#ifndef CAMWIFI_CAMWIFI_PUSH_H
#define CAMWIFI_CAMWIFI_PUSH_H

#include <stdbool.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Single-phone push: the UI's entry points ------------------------------ */

/* Sets the share mode to 3, stores callback, reads the model name set with
 * DlnaSetModelName (none: event 60, returns 0) and starts the push server;
 * event 69 follows when it listens (60 if it cannot). Returns 1. */
CAMWIFI_API int DlnaSelectivePush_ServerStart(ZEB_UI_CALLBACK callback);
/* Sends the file at path to the accepted phone: events 65 then one of 64, 66,
 * 67, 68. A new file replaces a running transfer. Returns 1 (also when no
 * phone is there yet; then nothing is sent). */
CAMWIFI_API int DlnaSelectivePush_SendFile(const char* path);
/* Stops the current transfer (66 follows). 0 when nothing was sent since the
 * last stop of the feature, or no server runs. */
CAMWIFI_API int DlnaSelectivePush_Close(void);
/* Drops the accepted phone from the permitted list; 1 when it was there. */
CAMWIFI_API int DlnaSelectivePush_Disconnect(void);
/* The user's answer for the phone of event 61/62: non-zero accepts (the phone
 * gets 200), 0 refuses (401; the next phone that announces itself is asked
 * about again). Returns 1. */
CAMWIFI_API int DlnaSelectivePush_SendUserStartEvent(int answer);
/*
 * Blocks the caller until a phone announces itself (answer 1 = a phone asks
 * to start; its event 61/62 has been sent) or the push is terminated or fails
 * (answer stays 65535). The push server posts it on each announcement, so a
 * UI may run this on a thread of its own instead of using event 61/62; an
 * announcement made before the call is not lost. A signal does not end the
 * wait. Returns 0, or -1 when the push was never started (answer untouched).
 */
CAMWIFI_API int DlnaSelectivePush_WaitingUserStartEvent(int* answer);
/* Stops transfers, sends the turn-down request to an accepted phone, stops
 * the server, wakes a waiter, sets the share mode to 0. Returns 1. */
CAMWIFI_API int DlnaSelectivePush_Terminate(void);

/* ---- Single-phone push: the layer below (1 success, 0 failure) ------------- */
CAMWIFI_API int SPStart(const char* deviceName);
CAMWIFI_API int SPTerminate(void);
CAMWIFI_API int SPTransferFile(const char* path);
CAMWIFI_API int SPStopFile(void);
CAMWIFI_API int SPDisconnectClient(void);
CAMWIFI_API void SPSendUserStartEvent(int answer);
/* Non-zero: resize JPEGs before sending. Takes effect at the next start. */
CAMWIFI_API void SPSetImageTransferSize(int mode);
/* The push server's port, or 0 when none runs. */
CAMWIFI_API int SPGetServerPort(void);

/* ---- Multi-phone push: the UI's entry points -------------------------------- */

/* Sets the share mode to 4, stores callback and starts the server open to
 * phones; 0 (with event 70) when it cannot start or no model name is set. */
CAMWIFI_API int DlnaSelective_NPush_Initialize(ZEB_UI_CALLBACK callback);
/* Stops all transfers and the server; share mode 0. Returns 1. No turn-down
 * request is sent in this variant. */
CAMWIFI_API int DlnaSelective_NPush_Terminate(void);
/* Sends path to the phone mac (events 74, then one of 73, 75, 76, 77); 0 for
 * a null argument or a phone the server does not know (no event). */
CAMWIFI_API int DlnaSelective_NPush_StartFileTransfer(const char* mac, const char* path);
/* Stops one phone's transfer; the others go on. */
CAMWIFI_API int DlnaSelective_NPush_StopFileTransfer(const char* mac);
/* Drops a phone from the access list; 1 when it was there. */
CAMWIFI_API int DlnaSelective_Npush_RemoveUserAgent(const char* mac);
/* false closes the group to new phones, true opens it again. Returns 1. */
CAMWIFI_API int DlnaSelective_Npush_AllowNewConnection(bool allow);
/* The user's answer for the phone mac: non-zero accepts (200), 0 refuses (401). */
CAMWIFI_API int DlnaSelective_NPush_SendUserStartEvent(const char* mac, int confirm);

/* ---- Multi-phone push: the layer below -------------------------------------- */
CAMWIFI_API int SNPushInitialize(void);
CAMWIFI_API int SNPushStart(void);
CAMWIFI_API int SNPushTerminate(void);
CAMWIFI_API int SNPushTransferFile(const char* mac, const char* path);
CAMWIFI_API int SNPushStopFile(const char* mac);
CAMWIFI_API void SNPushSendUserStartEvent(const char* mac, int answer);
CAMWIFI_API int SNPushAllowNewConnection(bool allow);
CAMWIFI_API int SNPushRemoveClientFromAccessList(const char* mac);
/* 0 idle, 1 started, 2 open to new phones, 3 closed to new phones. */
CAMWIFI_API void SNPushChangeState(int state);

#ifdef __cplusplus
}
#endif

#endif
