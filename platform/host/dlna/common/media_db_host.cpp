// The media database as the host stand-ins keep it: one SQLite schema, written
// by the DLNA stack's file scanner and by the viewfinder library's DCF parser,
// read by the stack's DataBaseMgr. The scan really walks the folder, reading
// picture sizes from JPEG frame headers and video durations and sizes from
// the MP4 movie box.
#include <dirent.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "host_mp4.h"
#include "zeb_media_internal.h"

namespace host {
namespace media {
namespace {

// Deeper trees than this are not walked (the card's DCF tree is two deep).
constexpr int kMaxScanDepth = 32;

const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT);"
    "CREATE TABLE IF NOT EXISTS objects("
    " id INTEGER PRIMARY KEY, parent_id INTEGER NOT NULL, class TEXT NOT NULL,"
    " path TEXT NOT NULL UNIQUE, title TEXT NOT NULL, mime_type TEXT, size INTEGER,"
    " date TEXT, duration TEXT, resolution TEXT, shared INTEGER NOT NULL DEFAULT 0);";

bool tableCount(sqlite3* db, int* count) {
    std::string v;
    if (!queryText(db, "SELECT count(*) FROM sqlite_master WHERE type='table'", "", &v)) return false;
    *count = atoi(v.c_str());
    return true;
}

// --- What the scanner reads from the files ------------------------------------------

struct MediaInfo {
    const char* cls = nullptr;  // "1" image, "3" video
    const char* mime = nullptr;
    std::string duration;
    std::string resolution;
};

std::string lowerExtension(const std::string& name) {
    size_t dot = name.rfind('.');
    if (dot == std::string::npos) return "";
    std::string ext = name.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return ext;
}

// Width and height from the first frame header (SOFn) of a JPEG file.
std::string jpegResolution(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    unsigned char b[9];
    if (!in.read(reinterpret_cast<char*>(b), 2) || b[0] != 0xFF || b[1] != 0xD8) return "";
    for (int segments = 0; segments < 1000; ++segments) {
        if (!in.read(reinterpret_cast<char*>(b), 4) || b[0] != 0xFF) return "";
        unsigned marker = b[1];
        unsigned length = (unsigned(b[2]) << 8) | b[3];
        if (length < 2) return "";
        bool sof = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (sof) {
            if (length < 7 || !in.read(reinterpret_cast<char*>(b), 5)) return "";
            unsigned height = (unsigned(b[1]) << 8) | b[2];
            unsigned width = (unsigned(b[3]) << 8) | b[4];
            return std::to_string(width) + "x" + std::to_string(height);
        }
        if (marker == 0xDA || marker == 0xD9) return "";  // image data before any frame header
        in.seekg(length - 2, std::ios::cur);
    }
    return "";
}

// Duration and frame size from an MP4/QuickTime file's movie box.
void mp4Info(const std::string& path, MediaInfo* info) {
    host::mp4::MovieSummary movie;
    if (!host::mp4::readMovieSummary(path, &movie)) return;
    if (movie.timed) {
        const uint64_t ms = movie.durationMs;
        char text[32];
        snprintf(text, sizeof text, "%u:%02u:%02u.%03u", unsigned(ms / 3600000), unsigned(ms / 60000 % 60),
                 unsigned(ms / 1000 % 60), unsigned(ms % 1000));
        info->duration = text;
    }
    if (movie.width != 0 && movie.height != 0)
        info->resolution = std::to_string(movie.width) + "x" + std::to_string(movie.height);
}

bool classify(const std::string& path, const std::string& name, MediaInfo* info) {
    std::string ext = lowerExtension(name);
    if (ext == "jpg" || ext == "jpeg") {
        info->cls = "1";
        info->mime = "image/jpeg";
        info->resolution = jpegResolution(path);
    } else if (ext == "mpo") {
        info->cls = "1";
        info->mime = "image/mpo";
        info->resolution = jpegResolution(path);
    } else if (ext == "png") {
        info->cls = "1";
        info->mime = "image/png";
    } else if (ext == "mp4" || ext == "mov") {
        info->cls = "3";
        info->mime = ext == "mp4" ? "video/mp4" : "video/quicktime";
        mp4Info(path, info);
    } else if (ext == "avi") {
        info->cls = "3";
        info->mime = "video/x-msvideo";
    } else {
        return false;
    }
    return true;
}

std::string utcDate(time_t t) {
    struct tm tm;
    gmtime_r(&t, &tm);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &tm);
    return text;
}



class Scan {
public:
    Scan(sqlite3* db, const std::function<bool()>& cancelled, std::vector<std::string>* files)
        : m_db(db), m_cancelled(cancelled), m_files(files) {}
    ~Scan() { sqlite3_finalize(m_insert); }

    bool prepare() {
        return sqlite3_prepare_v2(m_db,
                                  "INSERT INTO objects(parent_id, class, path, title, mime_type, size, date,"
                                  " duration, resolution) VALUES(?,?,?,?,?,?,?,?,?)",
                                  -1, &m_insert, nullptr) == SQLITE_OK;
    }

    // false when cancelled or the database refused a row.
    bool walk(const std::string& dir, long long parentId, int depth) {
        if (depth > kMaxScanDepth) return true;
        std::vector<std::string> names;
        if (DIR* d = opendir(dir.c_str())) {
            while (struct dirent* e = readdir(d))
                if (e->d_name[0] != '.') names.push_back(e->d_name);
            closedir(d);
        } else {
            return depth > 0;  // the shared folder itself must be readable
        }
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            if (m_cancelled()) return false;
            std::string path = dir + "/" + name;
            struct stat st;
            if (lstat(path.c_str(), &st) != 0) continue;
            if (S_ISDIR(st.st_mode)) {
                MediaInfo folder;
                folder.cls = "0";
                long long id;
                if (!insert(parentId, folder, path, name, st, &id)) return false;
                if (!walk(path, id, depth + 1)) return false;
            } else if (S_ISREG(st.st_mode)) {
                MediaInfo info;
                if (!classify(path, name, &info)) continue;
                long long id;
                if (!insert(parentId, info, path, name, st, &id)) return false;
                if (m_files != nullptr) m_files->push_back(path);
            }
        }
        return true;
    }

private:
    bool insert(long long parentId, const MediaInfo& info, const std::string& path, const std::string& title,
                const struct stat& st, long long* id) {
        sqlite3_reset(m_insert);
        sqlite3_clear_bindings(m_insert);
        sqlite3_bind_int64(m_insert, 1, parentId);
        sqlite3_bind_text(m_insert, 2, info.cls, -1, SQLITE_STATIC);
        sqlite3_bind_text(m_insert, 3, path.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(m_insert, 4, title.c_str(), -1, SQLITE_TRANSIENT);
        bool file = info.mime != nullptr;
        if (file) {
            sqlite3_bind_text(m_insert, 5, info.mime, -1, SQLITE_STATIC);
            sqlite3_bind_int64(m_insert, 6, st.st_size);
        }
        sqlite3_bind_text(m_insert, 7, utcDate(st.st_mtime).c_str(), -1, SQLITE_TRANSIENT);
        if (!info.duration.empty()) sqlite3_bind_text(m_insert, 8, info.duration.c_str(), -1, SQLITE_TRANSIENT);
        if (!info.resolution.empty()) sqlite3_bind_text(m_insert, 9, info.resolution.c_str(), -1, SQLITE_TRANSIENT);
        if (sqlite3_step(m_insert) != SQLITE_DONE) return false;
        *id = sqlite3_last_insert_rowid(m_db);
        return true;
    }

    sqlite3* m_db;
    const std::function<bool()>& m_cancelled;
    std::vector<std::string>* m_files;  // media files inserted, when wanted
    sqlite3_stmt* m_insert = nullptr;
};

}  // namespace

bool exec(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }

bool queryText(sqlite3* db, const char* sql, const std::string& param, std::string* out) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &st, nullptr) != SQLITE_OK) return false;
    if (!param.empty()) sqlite3_bind_text(st, 1, param.c_str(), -1, SQLITE_TRANSIENT);
    bool found = false;
    if (sqlite3_step(st) == SQLITE_ROW) {
        const unsigned char* t = sqlite3_column_text(st, 0);
        *out = t ? reinterpret_cast<const char*>(t) : "";
        found = true;
    }
    sqlite3_finalize(st);
    return found;
}

int userVersion(sqlite3* db) {
    std::string v;
    return queryText(db, "PRAGMA user_version", "", &v) ? atoi(v.c_str()) : -1;
}


sqlite3* openDatabase(const std::string& path) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return nullptr;
    }
    sqlite3_busy_timeout(db, 5000);
    int tables = 0;
    if (!tableCount(db, &tables)) {
        sqlite3_close(db);
        return nullptr;
    }
    if (tables == 0) {
        std::string init = std::string(kSchema) + "PRAGMA user_version=" + std::to_string(kDatabaseVersion) + ";";
        if (!exec(db, init.c_str())) {
            sqlite3_close(db);
            return nullptr;
        }
    }
    return db;
}

bool rebuildDatabase(sqlite3* db, const std::string& root, const std::function<bool()>& cancelled,
                     std::vector<std::string>* files) {
    bool ok = exec(db, "BEGIN IMMEDIATE") && exec(db, "DELETE FROM objects");
    if (ok) {
        Scan scan(db, cancelled, files);
        ok = scan.prepare() && scan.walk(root, 0, 0);
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
    const std::string version = "PRAGMA user_version=" + std::to_string(kDatabaseVersion);
    ok = ok && exec(db, version.c_str()) && exec(db, "COMMIT");
    // A cancelled or failed scan leaves the database as it was.
    if (!ok) exec(db, "ROLLBACK");
    return ok;
}

}  // namespace media
}  // namespace host
