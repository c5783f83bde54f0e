// Host stand-in of the DLNA stack's media database (DataBaseMgr), its
// directory scanner and the file scanner entry. The database is a real SQLite
// file (schema in host_media.h) that the scanner really fills from the shared
// folder (media_db_host.cpp).
#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "host_internal.h"
#include "host_media.h"
#include "zeb_media_internal.h"
#include "zeb_stack.h"

namespace {

using host::media::exec;
using host::media::openDatabase;
using host::media::queryText;

struct DbState {
    std::mutex lock;
    sqlite3* db = nullptr;       // the manager's open database
    std::string lastNamedPath;   // database file the library last named
    std::atomic<bool> invalidateCancelled{false};
    // Scanner control.
    std::atomic<bool> scanCancelled{false};
    bool holdScans = false;
    bool scanWaiting = false;
    std::condition_variable scanWake;
};

DbState& state() {
    static DbState* s = new DbState;
    return *s;
}

void closeLocked(DbState& s) {
    if (s.db != nullptr) sqlite3_close(s.db);
    s.db = nullptr;
}

void resetDb() {
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    closeLocked(s);
    s.lastNamedPath.clear();
    s.invalidateCancelled = false;
    s.holdScans = false;
    s.scanCancelled = true;  // releases a scan still waiting at the hold
    s.scanWake.notify_all();
}

const bool registered = (host::addResetHook(resetDb), true);

const char* orNull(const char* s) { return s ? s : "(null)"; }

// Waits while scans are held; false when the scan was cancelled meanwhile.
bool passHold(DbState& s) {
    std::unique_lock<std::mutex> l(s.lock);
    if (s.holdScans) {
        s.scanWaiting = true;
        s.scanWake.notify_all();
        s.scanWake.wait(l, [&] { return !s.holdScans || s.scanCancelled; });
        s.scanWaiting = false;
    }
    return !s.scanCancelled;
}

std::string scanTarget() {
    std::string named;
    {
        DbState& s = state();
        std::lock_guard<std::mutex> g(s.lock);
        named = s.lastNamedPath;
    }
    std::string db, tvDb;
    host::media::configValue("MEDIA-DB-FILEPATH", &db);
    host::media::configValue("MEDIA-TV-DB-FILEPATH", &tvDb);
    if (!named.empty() && (named == db || named == tvDb)) return named;
    return db;
}

}  // namespace

namespace host {
namespace media {

bool withOpenDatabase(const std::function<bool(sqlite3*)>& fn) {
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.db != nullptr && fn(s.db);
}

void noteDatabasePath(const std::string& path) {
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.lastNamedPath = path;
}

void holdScans(bool hold) {
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.holdScans = hold;
    s.scanWake.notify_all();
}

bool waitForHeldScan(int timeoutMs) {
    DbState& s = state();
    std::unique_lock<std::mutex> l(s.lock);
    return s.scanWake.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] { return s.scanWaiting; });
}

}  // namespace media
}  // namespace host

extern "C" int ZEBUtilStartFileScanner(int dmsHandle, const char* directory) {
    host::journal("ZEBUtilStartFileScanner(%d, %s)", dmsHandle, orNull(directory));
    DbState& s = state();
    s.scanCancelled = false;
    long long scripted;
    if (host::takeScriptedResult("ZEBUtilStartFileScanner", &scripted)) {
        passHold(s);
        return static_cast<int>(scripted);
    }
    if (directory == nullptr) return 1;
    std::string target = scanTarget();
    if (target.empty()) return 1;
    if (!passHold(s)) return 2;

    host::media::makeParentDirectories(target);
    sqlite3* db = openDatabase(target);
    if (db == nullptr) return 1;
    std::string root = directory;
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    const bool ok = host::media::rebuildDatabase(db, root, [&s] { return s.scanCancelled.load(); });
    sqlite3_close(db);
    if (s.scanCancelled) return 2;
    return ok ? 0 : 1;
}

// --- DataBaseMgr --------------------------------------------------------------------------

DataBaseMgr* DataBaseMgr::GetInstance() {
    host::journal("DataBaseMgr::GetInstance()");
    if (host::scriptedOr("DataBaseMgr::GetInstance", 1) == 0) return nullptr;
    // One object for the life of the process: a cancel arriving from the UI
    // thread while another thread destroys the instance still finds it.
    static DataBaseMgr instance;
    return &instance;
}

void DataBaseMgr::DestroyInstance() {
    host::journal("DataBaseMgr::DestroyInstance()");
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    closeLocked(s);
}

bool DataBaseMgr::OpenDB(const char* dbFilePath) {
    host::journal("DataBaseMgr::OpenDB(%s)", orNull(dbFilePath));
    if (dbFilePath == nullptr) return false;
    host::media::noteDatabasePath(dbFilePath);
    long long scripted;
    if (host::takeScriptedResult("DataBaseMgr::OpenDB", &scripted) && scripted == 0) return false;
    sqlite3* db = openDatabase(dbFilePath);
    if (db == nullptr) return false;
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    closeLocked(s);
    s.db = db;
    return true;
}

bool DataBaseMgr::NeedToDeleteDB(const char* sharedFolder) {
    host::journal("DataBaseMgr::NeedToDeleteDB(%s)", orNull(sharedFolder));
    long long scripted;
    if (host::takeScriptedResult("DataBaseMgr::NeedToDeleteDB", &scripted)) return scripted != 0;
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    if (s.db == nullptr || sharedFolder == nullptr) return true;
    std::string root;
    if (!queryText(s.db, "SELECT value FROM meta WHERE key='root'", "", &root)) return true;
    std::string folder = sharedFolder;
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    // Built for the shared folder or for a folder inside it: still good.
    return !(root == folder || root.compare(0, folder.size() + 1, folder + "/") == 0);
}

bool DataBaseMgr::NeedToDeleteDBforSorting() {
    host::journal("DataBaseMgr::NeedToDeleteDBforSorting()");
    long long scripted;
    if (host::takeScriptedResult("DataBaseMgr::NeedToDeleteDBforSorting", &scripted)) return scripted != 0;
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.db != nullptr && host::media::userVersion(s.db) == host::media::kDatabaseVersion;
}

bool DataBaseMgr::UpdateShareStatus(char* selectPaths, int shareStatus) {
    host::journal("DataBaseMgr::UpdateShareStatus(%s, %d)", orNull(selectPaths), shareStatus);
    long long scripted;
    if (host::takeScriptedResult("DataBaseMgr::UpdateShareStatus", &scripted)) return scripted != 0;
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    if (s.db == nullptr) return false;
    if (selectPaths == nullptr || *selectPaths == '\0') {
        std::string sql = "UPDATE objects SET shared=" + std::to_string(shareStatus);
        return exec(s.db, sql.c_str());
    }
    if (!exec(s.db, "BEGIN") || !exec(s.db, "UPDATE objects SET shared=0")) return false;
    sqlite3_stmt* st = nullptr;
    bool ok = sqlite3_prepare_v2(s.db, "UPDATE objects SET shared=? WHERE path=?", -1, &st, nullptr) == SQLITE_OK;
    std::string list = selectPaths;
    for (size_t start = 0; ok && start <= list.size();) {
        size_t end = list.find('\n', start);
        if (end == std::string::npos) end = list.size();
        std::string path = list.substr(start, end - start);
        if (!path.empty() && path.back() == '\r') path.pop_back();
        if (!path.empty()) {
            sqlite3_reset(st);
            sqlite3_bind_int(st, 1, shareStatus);
            sqlite3_bind_text(st, 2, path.c_str(), -1, SQLITE_TRANSIENT);
            ok = sqlite3_step(st) == SQLITE_DONE;
        }
        start = end + 1;
    }
    sqlite3_finalize(st);
    return exec(s.db, ok ? "COMMIT" : "ROLLBACK") && ok;
}

void DataBaseMgr::CancelInvalidateAllItems() {
    host::journal("DataBaseMgr::CancelInvalidateAllItems()");
    state().invalidateCancelled = true;
}

// --- DirectoryScanner -------------------------------------------------------------------------

DirectoryScanner* DirectoryScanner::GetInstance() {
    host::journal("DirectoryScanner::GetInstance()");
    static DirectoryScanner instance;  // never freed, as DataBaseMgr's
    return &instance;
}

void DirectoryScanner::DestroyInstance() { host::journal("DirectoryScanner::DestroyInstance()"); }

void DirectoryScanner::CancelScanDirectory() {
    host::journal("DirectoryScanner::CancelScanDirectory()");
    DbState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.scanCancelled = true;
    s.scanWake.notify_all();
}
