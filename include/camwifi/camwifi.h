/**
 * @file camwifi.h
 * @brief The whole API: includes every feature's header.
 *
 * @mainpage camwifi: the camera's Wi-Fi features, as the camera UI calls them
 *
 * libcamwifi is the shared library a digital camera's UI process loads to run
 * its Wi-Fi features. Include `<camwifi/camwifi.h>` (usable from C and C++)
 * and link `-lcamwifi` (`pkg-config --cflags --libs camwifi`, or
 * `find_package(camwifi)` and the target `camwifi::camwifi`).
 *
 * | Feature | Header | Callback |
 * | --- | --- | --- |
 * | callbacks, settings, utilities | camwifi_frame.h | |
 * | push to one phone or to up to ten | camwifi_push.h | DlnaSelectivePushSetCallback() |
 * | mode server for companion phone apps | camwifi_mode.h | given to ModeServerStart() |
 * | renderer control point (photos and videos on a TV) | camwifi_mrcp.h | DlnaMrcpSetCallback() |
 * | media sharing: TV link, smartphone link, auto backup | camwifi_media.h | DlnaDMSSetCallback(), DlnaMscpSetCallback() |
 * | remote viewfinder, monitor and media-browsing modes | camwifi_rvf.h | given to DlnaRVFStart() |
 *
 * Every feature follows the same order: register its callback, start it, use
 * it, terminate it. Events that happen later (a phone announced itself, a
 * transfer finished, a renderer appeared) reach the UI through the feature's
 * callback, on whatever thread produced them: a server's thread, a transfer's
 * thread, a thread of the DLNA stack or of another camera library. The
 * callback must therefore be safe to call from any thread and must return
 * promptly. The data a callback receives lives only for the duration of the
 * call: copy what you keep. Each function's documentation names the events it
 * leads to and the thread they arrive on.
 *
 * Only one network feature owns the network at a time: each start function
 * sets the share mode (GetAllShareMode()) to its own value and each terminate
 * function sets it back to 0.
 *
 * The terminates of the media sharing links and of the viewfinder modes
 * first cancel what still runs on a thread of its own (a media server start,
 * a media database build) and wait for it, for a bounded time given in the
 * function's comment, then go on without it.
 */
#ifndef CAMWIFI_CAMWIFI_H
#define CAMWIFI_CAMWIFI_H

#include "camwifi/camwifi_frame.h"
#include "camwifi/camwifi_media.h"
#include "camwifi/camwifi_mode.h"
#include "camwifi/camwifi_push.h"
#include "camwifi/camwifi_rvf.h"
#include "camwifi/camwifi_mrcp.h"

#endif
