/**
 * @file camwifi_mode.h
 * @brief The mode server.
 *
 * Companion phone apps ask the camera at "/mode/control" (HTTP, first free
 * port of 7788 to 7791) which operation mode it is in, announce themselves
 * with a callback URL, and receive a NOTIFY whenever the camera changes mode.
 * The user confirms each new phone.
 *
 * Order: ModeServerStart() with the callback, ModeServerSendEventToModule()
 * to answer for new phones (kind 0) and to announce mode changes (kind 1),
 * ModeServerTerminate().
 */
#ifndef CAMWIFI_CAMWIFI_MODE_H
#define CAMWIFI_CAMWIFI_MODE_H

#include <stdint.h>

#include "camwifi/camwifi_frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The camera's operation mode, as the mode server announces it to phones
 * (its "Operation-Mode" header and the "CurrentMode" of its NOTIFY). */
typedef enum {
    MS_MODE_IDLE = 0,           /**< "IDLE" */
    MS_MODE_PHONE_PULL = 1,     /**< "PhonePull" (phones also get the description URL) */
    MS_MODE_RVF = 2,            /**< "RVF", remote viewfinder (description URL too) */
    MS_MODE_INSTANT_SEND = 3,   /**< "InstantSend" */
    MS_MODE_SELECTIVE_PUSH = 4, /**< "SelectivePush" (phones also get the push server's port) */
    MS_MODE_CROWD_SEND = 5,     /**< "CrowdSend": several phones at once */
    MS_MODE_PHONE_ARCHIVE = 6,  /**< "PhoneArchive" */
    /* Not modes: they make every int a valid value of the type, since the
     * UI may pass any number (an unknown mode is announced as such). */
    MS_MODE_INT_MIN_ = -2147483647 - 1, /**< not a mode: the lowest int is a valid value */
    MS_MODE_INT_MAX_ = 2147483647       /**< not a mode: the highest int is a valid value */
} eNETWORK_SERVER_MODE;

/**
 * The mode server's callback. It has the shape of a UI callback, except that
 * the third slot is pointer-wide: for event 1 it carries a pointer. On the
 * camera (32-bit) it is the same word as the int of #ZEB_UI_CALLBACK.
 *
 * It runs on the mode server's thread ("ModeServerThread"), which serves one
 * request at a time:
 * - event 1: a new phone announced itself and waits for the user's decision.
 *   mac is its MAC address text ("0a:1b:2c:3d:4e:5f", empty when the ARP
 *   cache does not know the phone), userAgent is the address of its user
 *   agent text (what follows "ORB_MODE_", lower-cased). Answer with
 *   ModeServerSendEventToModule(0, accept, NULL), from inside the callback or
 *   later from any thread: the server serves no other phone until the answer
 *   (or ModeServerTerminate()) comes.
 * - event 2: a registered phone left. mac NULL, userAgent 0.
 * - event 3: the server failed (no free port, socket error) and stopped.
 *   mac NULL, userAgent 0.
 * - event 0: any other internal event. mac NULL, userAgent 0.
 *
 * Both texts live only for the duration of the call.
 * @param event     the event id (0 to 3).
 * @param mac       event 1: the phone's MAC address text; else NULL.
 * @param userAgent event 1: the address of the phone's user agent text;
 *                  else 0.
 */
typedef void (*ZEB_MODE_CALLBACK)(ZEB_CALLBACK_EVENT event, void* mac, intptr_t userAgent);

/** ModeServerSendEventToModule() kind: the user's answer for a new phone
 * (value: nonzero accepts the waiting phone, 0 refuses it). */
#define MS_EVENT_KIND_CONFIRM 0
/** ModeServerSendEventToModule() kind: the camera changed mode (value: the
 * new #eNETWORK_SERVER_MODE; registered phones get a NOTIFY). */
#define MS_EVENT_KIND_MODE_CHANGE 1

/**
 * Starts the mode server in mode. Its thread binds the first free port of
 * 7788 to 7791 and serves phones; what happens reaches callback on that
 * thread (events 1, 2 and 3, see #ZEB_MODE_CALLBACK): event 3 reports that no
 * port could be had or the server failed.
 * @param callback the callback of the server's events.
 * @param mode     the operation mode to announce (#eNETWORK_SERVER_MODE).
 * @return 1 when the server was started, 0 when it was not: the confirmation
 *         semaphore could not be had, or a server is already running (it
 *         keeps running unchanged; terminate it first to start another, also
 *         after event 3).
 */
CAMWIFI_API int ModeServerStart(ZEB_MODE_CALLBACK callback, int mode);

/**
 * Stops the server (within about a second, plus a request being served),
 * wakes a confirmation that waits (the phone is answered 200 without being
 * registered, unless an answer given earlier without a waiting phone decides
 * it), forgets the callback. The last answer is kept. Safe when no server
 * runs. No event follows.
 */
CAMWIFI_API void ModeServerTerminate(void);

/**
 * Tells the mode server about the user or the camera.
 * - kind 0 (#MS_EVENT_KIND_CONFIRM): the user's answer for the phone of
 *   event 1 (value nonzero: accept, 0: refuse); returns 1. An answer given
 *   while no phone waits is kept and decides the next new phone without
 *   asking. Without a running server (never started, terminated) the answer
 *   is only kept: it decides a later phone whose wait ends without an answer
 *   of its own (when the server is terminated).
 * - kind 1 (#MS_EVENT_KIND_MODE_CHANGE): the camera changed to mode value:
 *   every registered phone is sent a NOTIFY, one after the other, on the
 *   calling thread (a phone that does not answer delays the next by up to
 *   30 s).
 * - other kinds: nothing.
 * @param kind  #MS_EVENT_KIND_CONFIRM or #MS_EVENT_KIND_MODE_CHANGE.
 * @param value kind 0: the answer; kind 1: the new #eNETWORK_SERVER_MODE.
 * @param text  only logged; may be NULL.
 * @return kind 1: 1 when the last phone tried took the NOTIFY (or there was
 *         none, or no server runs), 0 otherwise; every other kind: 1.
 */
CAMWIFI_API int ModeServerSendEventToModule(int kind, int value, const char* text);

/**
 * The camera's device description URL, "http://<address>:<port><path>"
 * (address 192.168.107.1, the camera's access point, when no interface has
 * one). A URL longer than 63 characters is cut.
 * @return a 64-byte buffer allocated with malloc (release it with free()), or
 *         NULL when it cannot be allocated.
 */
CAMWIFI_API char* DlnaGetDeviceDescURL(void);

/**
 * Starts the application-service library's AT HTTP server.
 * @return 0.
 */
CAMWIFI_API int ATServerStart(void);
/**
 * Stops the application-service library's AT HTTP server.
 * @return 0.
 */
CAMWIFI_API int ATServerTerminate(void);

#ifdef __cplusplus
}
#endif

#endif
