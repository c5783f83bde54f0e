// The media server's start thread and its process-wide state, shared by the
// TV link, the smartphone link and the terminate paths.
#ifndef CAMWIFI_DLNA_DMS_H
#define CAMWIFI_DLNA_DMS_H

#include <atomic>

// The DMS handle's value while no media server application exists.
constexpr int kDmsNoHandle = 20;

// Set by DlnaDmsCancel, cleared when a start thread begins.
extern std::atomic<bool> gDmsCancelRequested;
// DMSAppStart succeeded (cleared when the server is stopped).
extern std::atomic<bool> gDmsServerStarted;
// Handle filled by DMSAppInitialize; kDmsNoHandle when there is none.
extern std::atomic<int> gDmsHandle;

// Body of the media server start: prepares the database of the card,
// initialises and starts the server and reports the outcome to the UI
// (events 5, 6, 4). mediaDir is a const char* that must stay valid until the
// body returns. Returns null.
void* DlnaDmsStartThread(void* mediaDir);

// Runs DlnaDmsStartThread(mediaDir) on a detached thread with its own copy
// of mediaDir. caller names the exported function in the error lines. 1 when
// the thread was launched, else 0.
int DlnaDmsLaunchStartThread(const char* caller, const char* mediaDir);
// Number of launched start threads that have not yet finished.
int DlnaDmsStartThreadsRunning();

#endif
