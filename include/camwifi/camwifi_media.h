/*
 * camwifi: media sharing. The camera's card is shared through the DLNA
 * stack's media server with a TV (TV link) or a phone app (smartphone link),
 * and backed up to a PC through the backup library (auto backup).
 */
#ifndef CAMWIFI_CAMWIFI_MEDIA_H
#define CAMWIFI_CAMWIFI_MEDIA_H

#include <stdbool.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Media server ==========================================================
 *
 * Events of a media server start, sent to the callback given to
 * DlnaTVLinkStart / DlnaSmartphoneLinkStart (or DlnaDMSSetCallback). value is
 * always NULL; the event's parameter travels in length:
 *   5, 0   preparation of the card's database begins
 *   6, 0   database ready, the server is being initialised
 *   6, 1   preparation failed (configuration missing, database unusable);
 *          final event of the start
 *   6, 2   start cancelled (DlnaDmsCancel); final event of the start
 *   4, 0   media server started; final event of the start
 *   4, 1   media server failed to start; final event of the start
 * Every start ends with exactly one final event.
 */

/* Cancels a media server start in progress: stops the card scan promptly;
 * the start ends with event 6, 2. */
CAMWIFI_API void DlnaDmsCancel(void);

/* Stops the background threads of the media server and the stack (the
 * server's timer, the HTTP layer's asynchronous thread, the stack's timer). */
CAMWIFI_API void DLNAStopThread(void);

/* Copies the media server's friendly name (from its device description) into
 * name, at most size - 1 characters and a terminating zero. Returns 1, or 0
 * (name empty) when the server has no description yet. */
CAMWIFI_API int DlnaDmsGetFriendlyName(char* name, int size);

/* Pauses / resumes the stack's multicast discovery server of a profile.
 * Return the stack's status unchanged (0 success). */
CAMWIFI_API int DlnaPauseHTTPMUServer(int profileId);
CAMWIFI_API int DlnaResumeHTTPMUServer(int profileId);

/* Copies the whole file from into to. The target is created with mode 0755
 * when absent and is not truncated: a longer existing target keeps the bytes
 * beyond the copied length. Returns 0, or -1 when the source cannot be
 * opened, the target cannot be opened for writing, the buffer cannot be had,
 * or reading or writing fails. */
CAMWIFI_API int DlnaDataCopyFile(const char* from, const char* to);

/* The camera's transfer-size setting, read by the push features when they
 * start: 0 makes them shrink JPEG pictures before sending, any other value
 * sends pictures unchanged. The TV link and auto backup starts set 1. */
CAMWIFI_API void DlnaSetTransferSize(int sizeOption);
CAMWIFI_API int DlnaGetTransferSize(void);

/* ==== TV link ================================================================
 * A TV on the network browses the camera's card (share mode 1).
 */

/* Starts sharing mediaDir with TVs: stores callback (media server events
 * above), sets the access-control mode aclMode and the transfer size 1, and
 * switches the stack to UPnP/DLNA certification mode when the card holds
 * "autoip.txt". The server starts on a thread of its own; its progress
 * arrives as events 5, 6 and 4. Returns 1 when that thread was launched,
 * else 0. */
CAMWIFI_API int DlnaTVLinkStart(ZEB_UI_CALLBACK callback, const char* mediaDir, int aclMode);

/* Stops and releases the media server and the stack (each part that was
 * brought up), leaves certification mode and releases the file list. A
 * start still running is cancelled first (it ends with event 6, 2) and
 * waited for, at most 10 seconds: one that cannot end by then (its
 * callback does not return) is left to end on its own, and the terminate
 * goes on. */
CAMWIFI_API void DlnaTVLinkTerminate(void);

/* Announces the server on the network once more now. Returns the stack's
 * status (0 success). */
CAMWIFI_API int DlnaTVLinkSendAlive(void);

/* Hands the user's answer about a TV to the server: state 0 lets the TV
 * with this MAC ("aa:bb:cc:dd:ee:ff") browse, any other value refuses it;
 * then announces the server again. Returns the status of the access-list
 * update (0 success). */
CAMWIFI_API int DlnaTVLinkSetConnectionState(int state, const char* mac);

/* ==== Smartphone link =========================================================
 * A phone app browses the camera's card (share mode 2) once the user has
 * agreed on the camera.
 */

/* Starts sharing mediaDir with the phone at phoneAddress (dotted IPv4, copied).
 * selectPath names the selected pictures, one absolute path per line, or
 * NULL for all; the pointer is stored, not copied (see SetSelectImagePath).
 * callback receives the media server events above. Returns 1 when the start
 * thread was launched, else 0. */
CAMWIFI_API int DlnaSmartphoneLinkStart(ZEB_UI_CALLBACK callback, const char* mediaDir, char* selectPath,
                                        const char* phoneAddress);

/* Stops and releases the media server and the stack, wakes a thread waiting
 * in DlnaSPLWaitingUserStartEvent (it gets 65535), releases the handshake and
 * the file list and sets the share mode to 0. A start still running is
 * cancelled and waited for first, at most 10 seconds, as in
 * DlnaTVLinkTerminate. */
CAMWIFI_API void DlnaSmartphoneLinkTerminate(void);

/* Blocks until the user answers (DlnaSPLSendUserStartEvent) or the link is
 * terminated, then stores the answer in *answer: 1 confirmed, 2 refused,
 * 65535 no answer (terminated). A signal does not end the wait. Returns 0,
 * or -1 when the smartphone link is not started (nothing is waited for,
 * *answer untouched). */
CAMWIFI_API int DlnaSPLWaitingUserStartEvent(int* answer);

/* The user's answer: wakes the waiting thread with 1 (confirmed) or 2. An
 * answer given before the wait is kept for it; without a started smartphone
 * link it does nothing. */
CAMWIFI_API void DlnaSPLSendUserStartEvent(bool confirmed);

/* ==== Auto backup ==============================================================
 * Backs the card up to a media server on a PC through the backup library.
 *
 * Events, sent to the callback given to DlnaMscpAutoBackupStart (or
 * DlnaMscpSetCallback): the backup library's event becomes a UI event id;
 * value carries the library's first value (an unsigned number, cast to a
 * pointer) and length its second, both unchanged:
 *   backup event  0  1  2  3  4  5  6  7  8  9 10 11 12 13 14 15 16
 *   UI event id  34 35 36 37 38 39 40 41 42 30 31 32 33 43 45 -1 44
 * (any other backup event: -1). What each means is the backup library's.
 */

/* Sets the share mode 6 and the transfer size 1, stores callback and starts
 * the backup of path on the backup library's thread. Returns the library's
 * start result (non-zero started), or 0 when the library is not available. */
CAMWIFI_API int DlnaMscpAutoBackupStart(ZEB_UI_CALLBACK callback, const char* path);

/* Stops the backup, releases the backup library's objects and the file
 * list, sets the share mode to 0. Returns 1. */
CAMWIFI_API int DlnaMscpAutoBackupTerminate(void);

/* The steps of a backup, passed to the backup library with their arguments
 * unchanged; each returns the library's result, or -1 when the library is
 * not available. */
CAMWIFI_API int DlnaMscpAutoBackupGetPCInfo(char** pcName, char** pcAddress); /* the saved PC */
CAMWIFI_API int DlnaMscpAutobackupInvalidatePCInfo(void);                     /* forget it for now */
CAMWIFI_API int DlnaMscpAutoBackupGetDmsList(unsigned int* count, void** servers); /* search PCs */
CAMWIFI_API int DlnaMscpAutoBackupSaveServerInfo(int index);                 /* keep one found PC */
CAMWIFI_API int DlnaMscpAutoBackupCancel(void);
CAMWIFI_API int DlnaMscpAutoBackupConnect(int index, int option);
CAMWIFI_API int DlnaMscpAutoBackupComplete(int result);
CAMWIFI_API int DlnaMscpAutoBackupSearchTarget(char* udn, char* name);      /* register the target PC */
CAMWIFI_API int DlnaMscpAutoBackupPrepare(void);
CAMWIFI_API int DlnaMscpAutoBackupGetObject(void);
CAMWIFI_API int DlnaMscpAutoBackupFileUpload(void);
CAMWIFI_API int DlnaMscpAutoBackupPause(void);
CAMWIFI_API int DlnaMscpAutoBackupResume(void);
CAMWIFI_API int DlnaMscpAutoBackupRemoveDB(void);
CAMWIFI_API int DlnaMscpAutoBackupDeletePCInfo(void);

#ifdef __cplusplus
}
#endif

#endif
