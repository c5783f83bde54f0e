/**
 * @file camwifi_media.h
 * @brief Media sharing: the media server, TV link, smartphone link and auto
 * backup.
 *
 * The camera's card is shared through the DLNA stack's media server with a TV
 * (TV link) or a phone app (smartphone link), and backed up to a PC through
 * the backup library (auto backup).
 *
 * @par Media server events
 * Events of a media server start, sent to the callback given to
 * DlnaTVLinkStart() / DlnaSmartphoneLinkStart() (or DlnaDMSSetCallback()) on
 * the start's own thread. value is always NULL; the event's parameter travels
 * in length:
 * | event, length | meaning |
 * | --- | --- |
 * | 5, 0 | preparation of the card's database begins |
 * | 6, 0 | database ready, the server is being initialised |
 * | 6, 1 | preparation failed (configuration missing, database unusable); final event of the start |
 * | 6, 2 | start cancelled (DlnaDmsCancel()); final event of the start |
 * | 4, 0 | media server started; final event of the start |
 * | 4, 1 | media server failed to start; final event of the start |
 *
 * Every start ends with exactly one final event.
 *
 * @par Auto backup events
 * Sent to the callback given to DlnaMscpAutoBackupStart() (or
 * DlnaMscpSetCallback()) on the backup library's threads: the backup
 * library's event becomes a UI event id; value carries the library's first
 * value (an unsigned number, cast to a pointer) and length its second, both
 * unchanged:
 * | backup event | 0 | 1 | 2 | 3 | 4 | 5 | 6 | 7 | 8 | 9 | 10 | 11 | 12 | 13 | 14 | 15 | 16 |
 * | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |
 * | UI event id | 34 | 35 | 36 | 37 | 38 | 39 | 40 | 41 | 42 | 30 | 31 | 32 | 33 | 43 | 45 | -1 | 44 |
 *
 * (any other backup event: -1). What each means is the backup library's.
 */
#ifndef CAMWIFI_CAMWIFI_MEDIA_H
#define CAMWIFI_CAMWIFI_MEDIA_H

#include <stdbool.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Media server ========================================================== */

/**
 * Cancels a media server start in progress: stops the card scan promptly;
 * the start ends with event 6, 2 on its thread.
 */
CAMWIFI_API void DlnaDmsCancel(void);

/**
 * Stops the background threads of the media server and the stack (the
 * server's timer, the HTTP layer's asynchronous thread, the stack's timer).
 */
CAMWIFI_API void DLNAStopThread(void);

/**
 * The media server's friendly name, from its device description.
 * @param[out] name receives at most size - 1 characters and a terminating
 *                  zero.
 * @param      size the size of name in bytes.
 * @return 1, or 0 (name empty) when the server has no description yet.
 */
CAMWIFI_API int DlnaDmsGetFriendlyName(char* name, int size);

/**
 * Pauses the stack's multicast discovery server of a profile.
 * @param profileId the stack's profile.
 * @return the stack's status unchanged (0 success).
 */
CAMWIFI_API int DlnaPauseHTTPMUServer(int profileId);
/**
 * Resumes the stack's multicast discovery server of a profile.
 * @param profileId the stack's profile.
 * @return the stack's status unchanged (0 success).
 */
CAMWIFI_API int DlnaResumeHTTPMUServer(int profileId);

/**
 * Copies the whole file from into to. The target is created with mode 0755
 * when absent and is not truncated: a longer existing target keeps the bytes
 * beyond the copied length.
 * @param from the file to copy.
 * @param to   the target file.
 * @return 0, or -1 when the source cannot be opened, the target cannot be
 *         opened for writing, the buffer cannot be had, or reading or writing
 *         fails.
 */
CAMWIFI_API int DlnaDataCopyFile(const char* from, const char* to);

/**
 * Sets the camera's transfer-size setting, read by the push features when
 * they start. The TV link and auto backup starts set 1.
 * @param sizeOption 0 makes the push features shrink JPEG pictures before
 *                   sending; any other value sends pictures unchanged.
 */
CAMWIFI_API void DlnaSetTransferSize(int sizeOption);
/**
 * The camera's transfer-size setting (see DlnaSetTransferSize()).
 * @return the stored value.
 */
CAMWIFI_API int DlnaGetTransferSize(void);

/* ==== TV link ================================================================
 * A TV on the network browses the camera's card (share mode 1).
 */

/**
 * Starts sharing mediaDir with TVs: stores callback (media server events
 * above), sets the access-control mode aclMode and the transfer size 1, and
 * switches the stack to UPnP/DLNA certification mode when the card holds
 * "autoip.txt". The server starts on a thread of its own; its progress
 * arrives there as events 5, 6 and 4.
 * @param callback the callback of the media server events.
 * @param mediaDir the folder to share.
 * @param aclMode  the access-control mode of the server.
 * @return 1 when that thread was launched, else 0.
 */
CAMWIFI_API int DlnaTVLinkStart(ZEB_UI_CALLBACK callback, const char* mediaDir, int aclMode);

/**
 * Stops and releases the media server and the stack (each part that was
 * brought up), leaves certification mode and releases the file list. A
 * start still running is cancelled first (it ends with event 6, 2) and
 * waited for, at most 10 seconds: one that cannot end by then (its
 * callback does not return) is left to end on its own, and the terminate
 * goes on.
 */
CAMWIFI_API void DlnaTVLinkTerminate(void);

/**
 * Announces the server on the network once more now.
 * @return the stack's status (0 success).
 */
CAMWIFI_API int DlnaTVLinkSendAlive(void);

/**
 * Hands the user's answer about a TV to the server, then announces the
 * server again.
 * @param state 0 lets the TV with this MAC browse, any other value refuses
 *              it.
 * @param mac   the TV's MAC text ("aa:bb:cc:dd:ee:ff").
 * @return the status of the access-list update (0 success).
 */
CAMWIFI_API int DlnaTVLinkSetConnectionState(int state, const char* mac);

/* ==== Smartphone link =========================================================
 * A phone app browses the camera's card (share mode 2) once the user has
 * agreed on the camera.
 */

/**
 * Starts sharing mediaDir with the phone at phoneAddress. The server starts
 * on a thread of its own; its progress arrives there as events 5, 6 and 4.
 * @param callback     the callback of the media server events.
 * @param mediaDir     the folder to share.
 * @param selectPath   the selected pictures, one absolute path per line, or
 *                     NULL for all; the pointer is stored, not copied (see
 *                     SetSelectImagePath()).
 * @param phoneAddress the phone's dotted IPv4 address (copied).
 * @return 1 when the start thread was launched, else 0.
 */
CAMWIFI_API int DlnaSmartphoneLinkStart(ZEB_UI_CALLBACK callback, const char* mediaDir, char* selectPath,
                                        const char* phoneAddress);

/**
 * Stops and releases the media server and the stack, wakes a thread waiting
 * in DlnaSPLWaitingUserStartEvent() (it gets 65535), releases the handshake
 * and the file list and sets the share mode to 0. A start still running is
 * cancelled and waited for first, at most 10 seconds, as in
 * DlnaTVLinkTerminate().
 */
CAMWIFI_API void DlnaSmartphoneLinkTerminate(void);

/**
 * Blocks until the user answers (DlnaSPLSendUserStartEvent()) or the link is
 * terminated. A signal does not end the wait.
 * @param[out] answer receives 1 confirmed, 2 refused, 65535 no answer
 *                    (terminated).
 * @return 0, or -1 when the smartphone link is not started (nothing is
 *         waited for, *answer untouched).
 */
CAMWIFI_API int DlnaSPLWaitingUserStartEvent(int* answer);

/**
 * The user's answer: wakes the waiting thread with 1 (confirmed) or 2. An
 * answer given before the wait is kept for it; without a started smartphone
 * link it does nothing.
 * @param confirmed true when the user agreed.
 */
CAMWIFI_API void DlnaSPLSendUserStartEvent(bool confirmed);

/* ==== Auto backup ==============================================================
 * Backs the card up to a media server on a PC through the backup library.
 */

/**
 * Sets the share mode 6 and the transfer size 1, stores callback and starts
 * the backup of path on the backup library's thread; the auto backup events
 * above arrive on the backup library's threads.
 * @param callback the callback of the auto backup events.
 * @param path     the card folder to back up.
 * @return the library's start result (non-zero started), or 0 when the
 *         library is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupStart(ZEB_UI_CALLBACK callback, const char* path);

/**
 * Stops the backup, releases the backup library's objects and the file list,
 * sets the share mode to 0.
 * @return 1.
 */
CAMWIFI_API int DlnaMscpAutoBackupTerminate(void);

/* The steps of a backup, passed to the backup library with their arguments
 * unchanged; each returns the library's result, or -1 when the library is
 * not available. */

/**
 * The saved PC.
 * @param[out] pcName    receives the PC's name (the backup library's text).
 * @param[out] pcAddress receives the PC's address (the backup library's text).
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupGetPCInfo(char** pcName, char** pcAddress);
/**
 * Forgets the saved PC for now.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutobackupInvalidatePCInfo(void);
/**
 * Searches the network for PCs.
 * @param[out] count   receives the number of PCs found.
 * @param[out] servers receives the backup library's list of them.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupGetDmsList(unsigned int* count, void** servers);
/**
 * Keeps one PC of the search.
 * @param index the PC's position in the list.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupSaveServerInfo(int index);
/**
 * The backup library's Cancel step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupCancel(void);
/**
 * The backup library's Connect step, towards a PC of the search.
 * @param index  the PC's position in the list.
 * @param option passed to the backup library unchanged.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupConnect(int index, int option);
/**
 * The backup library's Complete step.
 * @param result passed to the backup library unchanged.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupComplete(int result);
/**
 * Registers the target PC.
 * @param udn  the PC's UDN, passed to the backup library unchanged.
 * @param name the PC's name, passed to the backup library unchanged.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupSearchTarget(char* udn, char* name);
/**
 * The backup library's Prepare step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupPrepare(void);
/**
 * The backup library's GetObject step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupGetObject(void);
/**
 * The backup library's FileUpload step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupFileUpload(void);
/**
 * The backup library's Pause step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupPause(void);
/**
 * The backup library's Resume step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupResume(void);
/**
 * The backup library's RemoveDB step.
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupRemoveDB(void);
/**
 * The backup library's DeletePCInfo step (the saved PC).
 * @return the backup library's result, or -1 when it is not available.
 */
CAMWIFI_API int DlnaMscpAutoBackupDeletePCInfo(void);

#ifdef __cplusplus
}
#endif

#endif
