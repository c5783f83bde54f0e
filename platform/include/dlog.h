/*
 * Platform log of the camera. Every line the library writes goes through
 * __dlog_print; on the device the system logger receives it, on a PC the host
 * stand-in keeps it for tests and writes it to the file named by CAMWIFI_LOG.
 */
#ifndef CAMWIFI_PLATFORM_DLOG_H
#define CAMWIFI_PLATFORM_DLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* Log buffer of the applications. */
#define DLOG_BUFFER_APPS 3
/* Priorities used by the library. */
#define DLOG_PRIO_INFO 4
#define DLOG_PRIO_ERROR 6

/*
 * log_id: log buffer (the library always uses DLOG_BUFFER_APPS).
 * prio:   DLOG_PRIO_INFO or DLOG_PRIO_ERROR.
 * tag:    source area ("DLNA", "DLNA_MS", "DLNA_SP", "DLNA_OSAL").
 * fmt:    printf-style format of the line.
 * Returns the number of bytes written, or a negative value on failure.
 */
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
