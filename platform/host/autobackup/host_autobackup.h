// Test control of the host stand-in of the backup library.
#ifndef CAMWIFI_HOST_AUTOBACKUP_H
#define CAMWIFI_HOST_AUTOBACKUP_H

namespace host {
namespace media {

// --- Backup library ----------------------------------------------------------------
// Calls the event callback registered with AutoBackup::setUiEventCallBack as
// the backup library's thread would. Stores its result in *result and returns
// true; false when none is registered.
bool fireAutoBackupEvent(int event, unsigned int value1, unsigned int value2, int* result);

}  // namespace media
}  // namespace host

#endif
