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

/* ---- Mutexes (named, recursive: the owning thread may take one again) ---- */
/* Opaque handle of a stack mutex; null when none was created. */
typedef struct ZEBMutex_s* ZEB_MUTEX;
/* Creates a mutex labelled name (copied) and stores its handle in *mutex; 0 on success, else *mutex is null. */
ZEB_ERROR_CODE ZEBCreateMutex(ZEB_MUTEX* mutex, const char* name);
/* Blocks until the calling thread holds mutex (again, if it already does); 0 on success. */
ZEB_ERROR_CODE ZEBAcquireMutex(ZEB_MUTEX mutex);
/* Gives back one hold of mutex by its owning thread; 0 on success, non-zero for a thread not holding it. */
ZEB_ERROR_CODE ZEBReleaseMutex(ZEB_MUTEX mutex);
/* Destroys a mutex nobody holds; the handle is invalid afterwards. 0 on success. */
ZEB_ERROR_CODE ZEBDeleteMutex(ZEB_MUTEX mutex);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
/* ---- ARP cache lookup (C++ part of the stack) ---------------------------- */
class ZEBGetMacAddress {
public:
    /* Finds the MAC address of peerIp (dotted IPv4) in the kernel's ARP cache,
     * asking each interface in turn. On success writes 17 characters of
     * lower-case, colon-separated hex ("0a:1b:2c:3d:4e:5f") to macOut, without
     * a terminating zero (the caller zeroes its buffer), and returns true. */
    static bool GetMacAddrFromARPCache(const char* peerIp, char* macOut);
};
#endif

#endif
