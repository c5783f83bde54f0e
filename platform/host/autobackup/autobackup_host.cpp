// Host stand-in of the backup library's AutoBackup object. Every method is
// journalled with its arguments ("AutoBackup::Connect(2, 7)") and returns a
// scripted result when one is queued (by the method's qualified name), else
// 0, except StartAutoBackupbyThread, which returns 1 (started). Events are
// fired by a test through host::media::fireAutoBackupEvent, on the test's
// thread as the library's worker thread would.
#include <atomic>
#include <mutex>

#include "autobackup.h"
#include "host_internal.h"
#include "host_autobackup.h"

namespace {

std::atomic<AutoBackupUiEventCallBack> gEventCallback{nullptr};
// What GetPCInfo hands out: texts owned by the backup library.
char gPCName[] = "HOST-PC";
char gPCAddress[] = "02:00:7f:00:00:01";

void resetBackup() { gEventCallback = nullptr; }

const bool registered = (host::addResetHook(resetBackup), true);

const char* orNull(const char* s) { return s ? s : "(null)"; }

int result(const char* method, int fallback = 0) { return static_cast<int>(host::scriptedOr(method, fallback)); }

}  // namespace

// A step without arguments: journalled, scripted result or 0.
#define AUTOBACKUP_STEP(method)                          \
    int AutoBackup::method() {                           \
        host::journal("AutoBackup::" #method "()");      \
        return result("AutoBackup::" #method);           \
    }

bool host::media::fireAutoBackupEvent(int event, unsigned int value1, unsigned int value2, int* out) {
    AutoBackupUiEventCallBack cb = gEventCallback.load();
    if (cb == nullptr) return false;
    int r = cb(static_cast<eAUTOBACKUP_EVENT>(event), value1, value2);
    if (out) *out = r;
    return true;
}

AutoBackup* AutoBackup::GetInstance() {
    host::journal("AutoBackup::GetInstance()");
    if (result("AutoBackup::GetInstance", 1) == 0) return nullptr;
    // One object for the life of the process, so that an event thread that
    // races DestroyInstance never touches freed memory.
    static AutoBackup instance;
    return &instance;
}

void AutoBackup::DestroyInstance() {
    host::journal("AutoBackup::DestroyInstance()");
    gEventCallback = nullptr;
}

void AutoBackup::setUiEventCallBack(AutoBackupUiEventCallBack callback) {
    host::journal("AutoBackup::setUiEventCallBack(%s)", callback ? "set" : "(null)");
    gEventCallback = callback;
}

int AutoBackup::StartAutoBackupbyThread(const char* path) {
    host::journal("AutoBackup::StartAutoBackupbyThread(%s)", orNull(path));
    return result("AutoBackup::StartAutoBackupbyThread", 1);
}

AUTOBACKUP_STEP(StopAutoBackup)

int AutoBackup::GetPCInfo(char** pcName, char** pcAddress) {
    host::journal("AutoBackup::GetPCInfo(%p, %p)", static_cast<void*>(pcName), static_cast<void*>(pcAddress));
    if (pcName) *pcName = gPCName;
    if (pcAddress) *pcAddress = gPCAddress;
    return result("AutoBackup::GetPCInfo");
}

AUTOBACKUP_STEP(InvalidatePCInfo)

int AutoBackup::SearchServer(unsigned int* count, void** servers) {
    host::journal("AutoBackup::SearchServer(%p, %p)", static_cast<void*>(count), static_cast<void*>(servers));
    // No PC on the host's network.
    if (count) *count = 0;
    if (servers) *servers = nullptr;
    return result("AutoBackup::SearchServer");
}

int AutoBackup::SaveAutobackupServer(int index) {
    host::journal("AutoBackup::SaveAutobackupServer(%d)", index);
    return result("AutoBackup::SaveAutobackupServer");
}

AUTOBACKUP_STEP(Cancel)

int AutoBackup::Connect(int index, int option) {
    host::journal("AutoBackup::Connect(%d, %d)", index, option);
    return result("AutoBackup::Connect");
}

int AutoBackup::Complete(int res) {
    host::journal("AutoBackup::Complete(%d)", res);
    return result("AutoBackup::Complete");
}

int AutoBackup::RegisterTargetServer(char* udn, char* name) {
    host::journal("AutoBackup::RegisterTargetServer(%s, %s)", orNull(udn), orNull(name));
    return result("AutoBackup::RegisterTargetServer");
}

AUTOBACKUP_STEP(Prepare)
AUTOBACKUP_STEP(GetObject)
AUTOBACKUP_STEP(FileUpload)
AUTOBACKUP_STEP(Pause)
AUTOBACKUP_STEP(Resume)
AUTOBACKUP_STEP(RemoveDB)
AUTOBACKUP_STEP(DeletePCInfo)
