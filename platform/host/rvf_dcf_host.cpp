// Host stand-in of the viewfinder library's DCF media list and parser: the
// parser really walks the media root and writes the media database in the
// host stack's SQLite schema (host_media.h), recording the root it was built
// for, so that the stack's DataBaseMgr judges and reads what it wrote.
#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "host_internal.h"
#include "host_rvf.h"
#include "rvf_lib.h"

namespace {

// Sort order of the host stack's schema (DataBaseMgr::NeedToDeleteDBforSorting).
constexpr int kSchemaVersion = 1;
// The DCF tree is two deep (DCIM/100CAMERA/DSC00001.JPG); deeper is not walked.
constexpr int kMaxDepth = 8;

const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT);"
    "CREATE TABLE IF NOT EXISTS objects("
    " id INTEGER PRIMARY KEY, parent_id INTEGER NOT NULL, class TEXT NOT NULL,"
    " path TEXT NOT NULL UNIQUE, title TEXT NOT NULL, mime_type TEXT, size INTEGER,"
    " date TEXT, duration TEXT, resolution TEXT, shared INTEGER NOT NULL DEFAULT 0);";

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

// Class and MIME type by extension; false for files that are not media.
bool mediaType(const std::string& name, const char** cls, const char** mime) {
    std::string ext = name.substr(name.rfind('.') == std::string::npos ? name.size() : name.rfind('.') + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(tolower(c)); });
    static const struct {
        const char* ext;
        const char* cls;
        const char* mime;
    } kTypes[] = {{"jpg", "1", "image/jpeg"},      {"jpeg", "1", "image/jpeg"},    {"mpo", "1", "image/mpo"},
                  {"png", "1", "image/png"},       {"mp4", "3", "video/mp4"},      {"mov", "3", "video/quicktime"},
                  {"avi", "3", "video/x-msvideo"}};
    for (const auto& t : kTypes)
        if (ext == t.ext) {
            *cls = t.cls;
            *mime = t.mime;
            return true;
        }
    return false;
}

class DcfWriter {
public:
    explicit DcfWriter(sqlite3* db) : m_db(db) {}
    ~DcfWriter() { sqlite3_finalize(m_insert); }

    bool prepare() {
        return sqlite3_prepare_v2(m_db,
                                  "INSERT INTO objects(parent_id, class, path, title, mime_type, size, date)"
                                  " VALUES(?,?,?,?,?,?,?)",
                                  -1, &m_insert, nullptr) == SQLITE_OK;
    }

    // false when cancelled or a row was refused.
    bool walk(const std::string& dir, long long parentId, int depth, std::vector<std::string>* files) {
        if (depth > kMaxDepth) return true;
        std::vector<std::string> names;
        DIR* d = opendir(dir.c_str());
        if (d == nullptr) return depth > 0;  // the media root itself must be readable
        while (struct dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(d);
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            if (cancelled()) return false;
            std::string path = dir + "/" + name;
            struct stat st;
            if (lstat(path.c_str(), &st) != 0) continue;
            const char* cls = "0";
            const char* mime = nullptr;
            if (S_ISREG(st.st_mode) && !mediaType(name, &cls, &mime)) continue;
            if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) continue;
            long long id;
            if (!insert(parentId, cls, mime, path, name, st, &id)) return false;
            if (S_ISDIR(st.st_mode) && !walk(path, id, depth + 1, files)) return false;
            if (S_ISREG(st.st_mode)) files->push_back(path);
        }
        return true;
    }

private:
    bool insert(long long parentId, const char* cls, const char* mime, const std::string& path,
                const std::string& title, const struct stat& st, long long* id) {
        char date[32];
        struct tm tm;
        gmtime_r(&st.st_mtime, &tm);
        strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &tm);
        sqlite3_reset(m_insert);
        sqlite3_clear_bindings(m_insert);
        sqlite3_bind_int64(m_insert, 1, parentId);
        sqlite3_bind_text(m_insert, 2, cls, -1, SQLITE_STATIC);
        sqlite3_bind_text(m_insert, 3, path.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(m_insert, 4, title.c_str(), -1, SQLITE_TRANSIENT);
        if (mime != nullptr) {
            sqlite3_bind_text(m_insert, 5, mime, -1, SQLITE_STATIC);
            sqlite3_bind_int64(m_insert, 6, st.st_size);
        }
        sqlite3_bind_text(m_insert, 7, date, -1, SQLITE_TRANSIENT);
        if (sqlite3_step(m_insert) != SQLITE_DONE) return false;
        *id = sqlite3_last_insert_rowid(m_db);
        return true;
    }

    sqlite3* m_db;
    sqlite3_stmt* m_insert = nullptr;
};

bool exec(sqlite3* db, const std::string& sql) {
    return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Rebuilds the database at dbPath from root; the files found go to *files.
bool writeDatabase(const std::string& root, const std::string& dbPath, std::vector<std::string>* files) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(dbPath).parent_path(), ec);
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return false;
    }
    sqlite3_busy_timeout(db, 5000);
    bool ok = exec(db, kSchema) && exec(db, "BEGIN IMMEDIATE") && exec(db, "DELETE FROM objects");
    if (ok) {
        DcfWriter writer(db);
        ok = writer.prepare() && writer.walk(root, 0, 0, files);
    }
    if (ok) {
        sqlite3_stmt* st = nullptr;
        ok = sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO meta(key, value) VALUES('root', ?)", -1, &st, nullptr) ==
             SQLITE_OK;
        if (ok) {
            sqlite3_bind_text(st, 1, root.c_str(), -1, SQLITE_TRANSIENT);
            ok = sqlite3_step(st) == SQLITE_DONE;
        }
        sqlite3_finalize(st);
    }
    ok = ok && exec(db, "PRAGMA user_version=" + std::to_string(kSchemaVersion)) && exec(db, "COMMIT");
    if (!ok) exec(db, "ROLLBACK");  // a cancelled or failed parse leaves the database as it was
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
