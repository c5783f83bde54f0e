// Layout promises to the UI process on the camera (32-bit ARM Linux, armhf):
// checked by the compiler when building for a 32-bit target, so a change that
// would move a field or widen a slot under the UI's feet does not build.
//
// On 64-bit build machines pointers and long are 8 bytes and these layouts
// legitimately differ; the checks apply where the UI links against them.
#ifndef CAMWIFI_DLNA_ABI_H
#define CAMWIFI_DLNA_ABI_H

#include <atomic>
#include <cstdint>

#include "camwifi/camwifi_frame.h"

// Every build: the event id is a plain int on both sides of the callback.
static_assert(sizeof(ZEB_CALLBACK_EVENT) == sizeof(int), "event ids are int");
// Callback slots are read by feature threads without a lock.
static_assert(std::atomic<ZEB_UI_CALLBACK>::is_always_lock_free,
              "callback slots must be lock-free atomic words");

#if defined(__arm__) || (defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4)
#define CAMWIFI_ABI_32BIT 1

// Integer slots that carry pointers (callback values, texts passed as
// integers) are intptr_t: on the device that is exactly the documented int.
static_assert(sizeof(intptr_t) == sizeof(int), "intptr_t slots are the documented int");
static_assert(sizeof(intptr_t) == sizeof(void*), "an int slot holds a pointer");
static_assert(sizeof(void*) == 4, "the camera's pointers are 4 bytes");
static_assert(sizeof(long) == 4, "the camera's long is 4 bytes");

// The callback the UI registers is one pointer; its slot is the same word.
static_assert(sizeof(ZEB_UI_CALLBACK) == 4, "a UI callback is one 4-byte pointer");
static_assert(sizeof(std::atomic<ZEB_UI_CALLBACK>) == sizeof(ZEB_UI_CALLBACK),
              "an atomic callback slot is the bare pointer");

// Records handed to the UI keep their documented sizes. Add one assertion per
// record here as the record is written, including the header that defines it:
//   #include "SP/SPNotify.h"   (wherever the record lives)
//   static_assert(sizeof(stSPInformation) == 100, "stSPInformation is 100 bytes");

// The viewfinder's settings records (camwifi/camwifi_rvf.h).
#include "camwifi/camwifi_rvf.h"
#include <cstddef>
static_assert(sizeof(RVFSettingValues) == 16, "RVFSettingValues is 4 words, 16 bytes");
static_assert(offsetof(RVFSysParams, stResolution) == 12, "the settings follow the 3 zoom words");
static_assert(sizeof(RVFSysParams) == 300, "RVFSysParams is 300 bytes");
static_assert(sizeof(RVFDisableParams) == 64, "RVFDisableParams is 64 bytes");

#endif  // 32-bit target

#endif
