/*
 * DLNA stack of the camera (closed): stack and HTTP set-up, media server,
 * renderer control point, media database and its string, list, mutex,
 * memory and timer helpers. Declared here as the library calls it; the host
 * stand-ins live in platform/host.
 */
#ifndef CAMWIFI_PLATFORM_ZEB_STACK_H
#define CAMWIFI_PLATFORM_ZEB_STACK_H

#ifdef __cplusplus
extern "C" {
#endif

/* Stack error code: 0 is success. */
typedef int ZEB_ERROR_CODE;

/* Stores the camera's model name in the stack (used in its descriptions and
 * by the push features). The text is copied by the stack. */
ZEB_ERROR_CODE ZEBSetModelName(const char* modelName);

#ifdef __cplusplus
}
#endif

#endif
