/*
 * Backup library of the camera (closed): backs the card's pictures up to a
 * media server on a PC. One AutoBackup object per process does the work on
 * its own threads and reports what happens through one event callback.
 * Declared here as the library calls it; the host stand-in lives in
 * platform/host.
 */
#ifndef CAMWIFI_PLATFORM_AUTOBACKUP_H
#define CAMWIFI_PLATFORM_AUTOBACKUP_H

/* What the backup library reports: values 0 to 16; their meaning is the
 * backup library's (the camera library only translates them into UI event
 * ids). */
enum eAUTOBACKUP_EVENT : int {
    AUTOBACKUP_EVENT_FIRST = 0,
    AUTOBACKUP_EVENT_LAST = 16,
};

/* Event callback: the event and its two values, as the backup library gives
 * them. Called on the backup library's threads; returns what the receiver
 * made of it (the library's translator returns the UI event id). */
typedef int (*AutoBackupUiEventCallBack)(eAUTOBACKUP_EVENT event, unsigned int value1,
                                         unsigned int value2);

class AutoBackup {
public:
    /* The backup object; null when it cannot be created. */
    static AutoBackup* GetInstance();
    /* Releases the backup object (after StopAutoBackup). */
    static void DestroyInstance();

    /* Registers the receiver of the backup events (null unregisters). */
    void setUiEventCallBack(AutoBackupUiEventCallBack callback);
    /* Starts the backup work for the card folder path on the library's own
     * thread. Non-zero when it started. */
    int StartAutoBackupbyThread(const char* path);
    /* Stops the backup work and waits for its thread. */
    int StopAutoBackup();

    /* The steps the UI drives; arguments and results belong to the backup
     * library and pass through the camera library unchanged. */
    int GetPCInfo(char** pcName, char** pcAddress);
    int InvalidatePCInfo();
    int SearchServer(unsigned int* count, void** servers);
    int SaveAutobackupServer(int index);
    int Cancel();
    int Connect(int index, int option);
    int Complete(int result);
    int RegisterTargetServer(char* udn, char* name);
    int Prepare();
    int GetObject();
    int FileUpload();
    int Pause();
    int Resume();
    int RemoveDB();
    int DeletePCInfo();
};

#endif
