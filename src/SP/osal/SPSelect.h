// Internal to the OS layer: the guard in front of every select() call.
#ifndef CAMWIFI_SP_SELECT_H
#define CAMWIFI_SP_SELECT_H

#include <sys/select.h>

#include <cerrno>

// A descriptor outside [0, FD_SETSIZE) cannot go into an fd_set (FD_SET would
// write past it). Returns false with errno set to EBADF, so the caller takes
// the path of a failed select().
inline bool SPFitsFdSet(int fd) {
    if (fd >= 0 && fd < FD_SETSIZE) return true;
    errno = EBADF;
    return false;
}

#endif
