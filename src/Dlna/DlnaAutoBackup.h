// The translator of the backup library's events into UI events.
#ifndef CAMWIFI_DLNA_AUTOBACKUP_H
#define CAMWIFI_DLNA_AUTOBACKUP_H

#include "autobackup.h"

// Maps event (0..16, else -1) to its UI event id and, when an auto backup
// callback is registered, sends it with value1 as the value pointer and
// value2 as the length. Returns the UI event id.
int DlnaMscpAutoBackupEventTranslator(eAUTOBACKUP_EVENT event, unsigned int value1, unsigned int value2);

#endif
