// The real DLNA stack's log lines: tag "ZEB_UPNP" in the platform log, one
// line of at most 511 characters each (longer ones are cut).
#ifndef CAMWIFI_DLNA_UPNP_LOG_H
#define CAMWIFI_DLNA_UPNP_LOG_H

namespace camwifi {
namespace upnp {

// prio: a DLOG_PRIO_* of dlog.h.
void logLine(int prio, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

}  // namespace upnp
}  // namespace camwifi

#endif
