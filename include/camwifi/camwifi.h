/*
 * camwifi: the camera's Wi-Fi features, as the camera UI calls them.
 *
 * Every feature follows the same order: register its callback, start it, use
 * it, terminate it. Events that happen later (a phone announced itself, a
 * transfer finished, a renderer appeared) reach the UI through the feature's
 * callback, on whatever thread produced them; the callback must be safe to call
 * from any thread and must return promptly. The data a callback receives lives
 * only for the duration of the call: copy what you keep.
 *
 * The terminates of the media sharing links and of the viewfinder modes
 * first cancel what still runs on a thread of its own (a media server start,
 * a media database build) and wait for it, for a bounded time given in the
 * function's comment, then go on without it.
 *
 * This header is usable from C and C++.
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
