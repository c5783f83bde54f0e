// Host stand-in of the viewfinder library's DCF media list and parser: the
// parser really walks the media root and writes the media database the host
// stack's DataBaseMgr reads (media_db_host.cpp), recording the root it was
// built for, so that the manager judges and reads what it wrote.
#include <sqlite3.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "host_internal.h"
#include "host_rvf.h"
#include "rvf_lib.h"
#include "zeb_media_internal.h"

namespace {

struct DcfState {
    std::mutex lock;
    std::condition_variable wake;
    bool hold = false;
    bool parseWaiting = false;
    bool cancelled = false;
    std::vector<std::string> files;
    bool thumbnailWorking = false;
};

DcfState& state() {
    static DcfState* s = new DcfState;  // outlives every thread of the process
    return *s;
}

void resetDcf() {
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.hold = false;
    s.cancelled = true;  // releases a parse still waiting at the hold
    s.files.clear();
    s.thumbnailWorking = false;
    s.wake.notify_all();
}

const bool registered = (host::addResetHook(resetDcf), true);

const char* orNull(const char* s) { return s ? s : "(null)"; }

bool cancelled() {
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.cancelled;
}

// Waits while parses are held; false when cancelled meanwhile.
bool passHold() {
    DcfState& s = state();
    std::unique_lock<std::mutex> l(s.lock);
    if (s.hold) {
        s.parseWaiting = true;
        s.wake.notify_all();
        s.wake.wait(l, [&] { return !s.hold || s.cancelled; });
        s.parseWaiting = false;
    }
    return !s.cancelled;
}

// Rebuilds the database at dbPath from root; the media files found go to *files.
bool writeDatabase(const std::string& root, const std::string& dbPath, std::vector<std::string>* files) {
    host::media::makeParentDirectories(dbPath);
    sqlite3* db = host::media::openDatabase(dbPath);
    if (db == nullptr) return false;
    const bool ok = host::media::rebuildDatabase(db, root, cancelled, files);
    sqlite3_close(db);
    return ok;
}

}  // namespace

namespace host {
namespace rvf {

void holdParses(bool hold) {
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.hold = hold;
    s.wake.notify_all();
}

bool waitForHeldParse(int timeoutMs) {
    DcfState& s = state();
    std::unique_lock<std::mutex> l(s.lock);
    return s.wake.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] { return s.parseWaiting; });
}

std::vector<std::string> dcfFiles() {
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.files;
}

bool thumbnailWorking() {
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.thumbnailWorking;
}

}  // namespace rvf
}  // namespace host

DcfFileInfoVector* DcfFileInfoVector::GetInstance() {
    host::journal("DcfFileInfoVector::GetInstance()");
    // One object for the life of the process: a cancel from the UI thread
    // still finds it while another thread destroys the list.
    static DcfFileInfoVector instance;
    return &instance;
}

void DcfFileInfoVector::DestroyInstance() {
    host::journal("DcfFileInfoVector::DestroyInstance()");
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.files.clear();
}

void DcfFileInfoVector::CancelInvalidateAllItems() {
    host::journal("DcfFileInfoVector::CancelInvalidateAllItems()");
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.cancelled = true;
    s.wake.notify_all();
}

int parseMediaFilesDcfDB(const char* mediaRoot, const char* dbFilePath, int* fileCount) {
    host::journal("parseMediaFilesDcfDB(%s, %s)", orNull(mediaRoot), orNull(dbFilePath));
    if (fileCount != nullptr) *fileCount = 0;
    {
        DcfState& s = state();
        std::lock_guard<std::mutex> g(s.lock);
        s.cancelled = false;
    }
    if (!passHold()) return 0;
    long long scripted;
    if (host::takeScriptedResult("parseMediaFilesDcfDB", &scripted)) return static_cast<int>(scripted);
    if (mediaRoot == nullptr || dbFilePath == nullptr) return 0;
    std::string root = mediaRoot;
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    std::vector<std::string> files;
    if (!writeDatabase(root, dbFilePath, &files)) return 0;
    if (fileCount != nullptr) *fileCount = static_cast<int>(files.size());
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.files = files;
    return 1;
}

void MultiMediaDbConnector::SetThumbnailWorkingStatus(bool working) {
    host::journal("MultiMediaDbConnector::SetThumbnailWorkingStatus(%d)", working ? 1 : 0);
    DcfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.thumbnailWorking = working;
}
