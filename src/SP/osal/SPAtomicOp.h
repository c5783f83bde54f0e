// The process-wide mutex for "atomic" sections. It is created on first use
// and released only at final shutdown: SPReleaseAtomicOp() deletes it but
// leaves the pointer as it is, so nothing may use it after the release.
#ifndef CAMWIFI_SP_ATOMIC_OP_H
#define CAMWIFI_SP_ATOMIC_OP_H

class SPGenericMutex;

// Creates the mutex if there is none; 1 when it exists afterwards.
int SPInitAtomicOp();
// The mutex, created first if needed; null (with "myAssert") if it cannot be.
SPGenericMutex* SPGetAtomicMutex();
// Deletes the mutex (final shutdown only).
void SPReleaseAtomicOp();

#endif
