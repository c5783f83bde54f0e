// The camera's name as phones see it: the suffix of the "ORB_SP_" user agent
// of the push server's replies and of the push client's requests. Set when the
// single-phone push starts (from the stack's model name), "Camera" before.
#ifndef CAMWIFI_SP_DEVICE_NAME_H
#define CAMWIFI_SP_DEVICE_NAME_H

// 31 characters and a terminating zero. Written by the push start on the UI
// thread before any push thread runs; read by the server and transfer threads.
extern char gDeviceName[32];

#endif
