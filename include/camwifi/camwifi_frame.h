/**
 * @file camwifi_frame.h
 * @brief Callbacks, process-wide settings and small utilities shared by every
 * feature.
 */
#ifndef CAMWIFI_CAMWIFI_FRAME_H
#define CAMWIFI_CAMWIFI_FRAME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Marks the exported functions: default visibility, while everything else in
 * the library is hidden. */
#ifndef CAMWIFI_API
#define CAMWIFI_API __attribute__((visibility("default")))
#endif

/**
 * Event id passed to a UI callback. The ids are grouped by feature:
 * - 4 to 6: media server (camwifi_media.h)
 * - 15 to 25: renderer control point (camwifi_mrcp.h)
 * - 30 to 45: auto backup (camwifi_media.h)
 * - 60 to 69: single-phone push (camwifi_push.h)
 * - 70 to 79: multi-phone push (camwifi_push.h)
 * - 91, 92, 95: remote viewfinder (camwifi_rvf.h)
 *
 * (the mode server's own callback, #ZEB_MODE_CALLBACK, uses 0 to 3). Each
 * feature's header names the ids it sends and what value and length carry.
 */
typedef int ZEB_CALLBACK_EVENT;

/**
 * A UI callback. It is called on whatever thread produced the event (each
 * feature says which), so it must be safe to call from any thread, and it
 * must return promptly.
 * @param event  the event id.
 * @param value  pointer to the event's data, or NULL; valid only during the
 *               call.
 * @param length length of the data, or 0; some features pass a number here,
 *               and some a second pointer (text), which is why it is an
 *               intptr_t: the width of an int on the camera, of a pointer
 *               everywhere.
 */
typedef void (*ZEB_UI_CALLBACK)(ZEB_CALLBACK_EVENT event, void* value, intptr_t length);

/**
 * Registers the media server's callback (events 4 to 6, camwifi_media.h).
 * Registering a callback replaces the earlier one; NULL unregisters. An event
 * for which no callback is registered is logged and dropped. Register before
 * the feature starts.
 * @param callback the callback, or NULL.
 */
CAMWIFI_API void DlnaDMSSetCallback(ZEB_UI_CALLBACK callback);
/**
 * Registers the renderer control point's callback (events 15 to 25,
 * camwifi_mrcp.h); replaces the earlier one, NULL unregisters.
 * @param callback the callback, or NULL.
 * @return the callback now stored (callback itself).
 */
CAMWIFI_API ZEB_UI_CALLBACK DlnaMrcpSetCallback(ZEB_UI_CALLBACK callback);
/**
 * Registers the auto backup's callback (events 30 to 45, camwifi_media.h);
 * replaces the earlier one, NULL unregisters.
 * @param callback the callback, or NULL.
 */
CAMWIFI_API void DlnaMscpSetCallback(ZEB_UI_CALLBACK callback);
/**
 * Registers the callback of the single- and multi-phone push (events 60 to
 * 79, camwifi_push.h); replaces the earlier one, NULL unregisters.
 * @param callback the callback, or NULL.
 */
CAMWIFI_API void DlnaSelectivePushSetCallback(ZEB_UI_CALLBACK callback);

/**
 * The share mode: which network feature currently owns the media database and
 * the network. Each start function sets its own value (3 single-phone push,
 * 4 multi-phone push, 5 viewfinder, 6 auto backup, 7 monitor mode, 8 media
 * browsing, 9 renderer control point; 1 TV link, 2 smartphone link) and each
 * terminate function sets 0.
 * @return the current share mode.
 */
CAMWIFI_API unsigned int GetAllShareMode(void);
/**
 * Sets the share mode (see GetAllShareMode()).
 * @param mode the new share mode.
 * @return the value it set (mode).
 */
CAMWIFI_API unsigned int SetAllShareMode(unsigned int mode);

/**
 * The selected image path: the selection used when a share of selected files
 * only is started (see SetSelectImagePath()).
 * @return the stored pointer, or NULL when none is set.
 */
CAMWIFI_API char* GetSelectImagePath(void);
/**
 * Sets the selected image path. The pointer is stored, not copied: keep the
 * text alive (and unchanged unless you mean to change the selection) while
 * the share runs.
 * @param path the selection (one absolute path per line), or NULL for none.
 */
CAMWIFI_API void SetSelectImagePath(char* path);

/**
 * The access-control mode handed to the push server's access list when it is
 * created (default 4).
 * @return the stored mode.
 */
CAMWIFI_API unsigned int GetACLMode(void);
/**
 * Sets the access-control mode handed to the push server's access list when
 * it is next created.
 * @param mode the mode.
 */
CAMWIFI_API void SetACLMode(unsigned int mode);

/**
 * Forwards the camera's model name to the DLNA stack; the push features read
 * it back when they start (a push start without a model name fails).
 * @param modelName the model name (copied by the stack).
 * @return the stack's status (0 success).
 */
CAMWIFI_API int DlnaSetModelName(const char* modelName);

/**
 * Writes the three-letter code of a file type into out: 0 "CAM", 1 "QRA",
 * 2 "HDV", 3 "HDE", 4 "HDA", 5 "SDV", 6 "SDE", 7 "SDA", 8 "MPO".
 * @param type the file type.
 * @param out  at least 4 bytes; receives the code and a terminating zero.
 * @return 1, or -1 for any other type (out untouched).
 */
CAMWIFI_API int filetypestring(unsigned char type, char* out);

/**
 * Sets up the application-service library's memory pool; the arguments and
 * the result pass through unchanged.
 * @param poolSize  size of the pool in bytes.
 * @param blockSize size of one block in bytes.
 * @return the service library's status.
 */
CAMWIFI_API int DLNAInitMemory(unsigned long poolSize, unsigned long blockSize);
/**
 * Releases the application-service library's memory pool.
 * @return the service library's status.
 */
CAMWIFI_API int DLNADestroyMemory(void);

#ifdef __cplusplus
}
#endif

#endif
