/*
 * camwifi: callbacks, process-wide settings and small utilities shared by
 * every feature.
 */
#ifndef CAMWIFI_CAMWIFI_FRAME_H
#define CAMWIFI_CAMWIFI_FRAME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef CAMWIFI_API
#define CAMWIFI_API __attribute__((visibility("default")))
#endif

/*
 * Event id passed to a UI callback. The ids are grouped by feature:
 *   4 to 6    media server
 *   15 to 25  renderer control point
 *   30 to 45  auto backup
 *   60 to 69  single-phone push
 *   70 to 79  multi-phone push
 *   91, 92, 95 remote viewfinder
 * (the mode server's own callback uses 0 to 3). Each feature's header names
 * the ids it sends and what value and length carry.
 */
typedef int ZEB_CALLBACK_EVENT;

/*
 * A UI callback.
 *   event:  the event id.
 *   value:  pointer to the event's data, or NULL; valid only during the call.
 *   length: length of the data, or 0; some features pass a number here, and
 *           some a second pointer (text), which is why it is an intptr_t: the
 *           width of an int on the camera, of a pointer everywhere.
 */
typedef void (*ZEB_UI_CALLBACK)(ZEB_CALLBACK_EVENT event, void* value, intptr_t length);

/* Registering a callback replaces the earlier one; NULL unregisters. An event
 * for which no callback is registered is logged and dropped. */
CAMWIFI_API void DlnaDMSSetCallback(ZEB_UI_CALLBACK callback);         /* media server */
CAMWIFI_API ZEB_UI_CALLBACK DlnaMrcpSetCallback(ZEB_UI_CALLBACK callback); /* renderer control point; returns what it stored */
CAMWIFI_API void DlnaMscpSetCallback(ZEB_UI_CALLBACK callback);        /* auto backup */
CAMWIFI_API void DlnaSelectivePushSetCallback(ZEB_UI_CALLBACK callback); /* single- and multi-phone push */

/*
 * Share mode: which network feature currently owns the media database and the
 * network. Each start function sets its own value (3 single-phone push,
 * 4 multi-phone push, 5 viewfinder, 6 auto backup, 7 monitor mode, 8 media
 * browsing, 9 renderer control point) and each terminate function sets 0.
 * SetAllShareMode returns the value it set.
 */
CAMWIFI_API unsigned int GetAllShareMode(void);
CAMWIFI_API unsigned int SetAllShareMode(unsigned int mode);

/*
 * Selected image path: the selection used when a share of selected files
 * only is started. The pointer is stored, not copied: keep the text alive (and
 * unchanged unless you mean to change the selection) while the share runs.
 */
CAMWIFI_API char* GetSelectImagePath(void);
CAMWIFI_API void SetSelectImagePath(char* path);

/* Access-control mode handed to the push server's access list when it is
 * created (default 4). */
CAMWIFI_API unsigned int GetACLMode(void);
CAMWIFI_API void SetACLMode(unsigned int mode);

/* Forwards the camera's model name to the DLNA stack; the push features read
 * it back when they start. Returns the stack's status (0 success). */
CAMWIFI_API int DlnaSetModelName(const char* modelName);

/*
 * Writes the three-letter code of a file type into out (at least 4 bytes):
 * 0 "CAM", 1 "QRA", 2 "HDV", 3 "HDE", 4 "HDA", 5 "SDV", 6 "SDE", 7 "SDA",
 * 8 "MPO". Returns 1, or -1 for any other type (out untouched).
 */
CAMWIFI_API int filetypestring(unsigned char type, char* out);

/* The application-service library's memory pool; the arguments and results
 * pass through unchanged. */
CAMWIFI_API int DLNAInitMemory(unsigned long poolSize, unsigned long blockSize);
CAMWIFI_API int DLNADestroyMemory(void);

#ifdef __cplusplus
}
#endif

#endif
