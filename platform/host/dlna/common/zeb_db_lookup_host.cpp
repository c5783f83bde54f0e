// Host stand-in of the DLNA stack's lookups of one card file in the media
// database (the renderer control point's side of DataBaseMgr), of its time
// conversion and of its media-file parser. They read the same SQLite file the
// media server's scanner writes (schema in host_media.h).
//
// Elements of an entry: "id", "Title", "MimeType", "Duration", "size",
// "date", "class" and "resolution" are the row's columns; "uri" is the file's
// absolute path (what the HTTP streaming server serves); "dlnaProfile" is
// derived from the MIME type and, for JPEG pictures, the size in pixels
// (JPEG_SM up to 640x480, JPEG_MED up to 1024x768, else JPEG_LRG; PNG_LRG;
// AVC_MP4_BL_CIF15_AAC_520 for MP4 videos; none for other types).
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host_internal.h"
#include "zeb_media_internal.h"
#include "zeb_stack.h"

namespace {

const char* orNull(const char* s) { return s ? s : "(null)"; }

// One file's row of the objects table.
struct Row {
    std::string id, parentId, cls, title, mime, size, date, duration, resolution, path;
};

std::string columnText(sqlite3_stmt* st, int column) {
    const unsigned char* t = sqlite3_column_text(st, column);
    return t ? reinterpret_cast<const char*>(t) : "";
}

bool readRow(sqlite3* db, const char* path, Row* row) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db,
                           "SELECT id, parent_id, class, title, mime_type, size, date, duration, resolution, path"
                           " FROM objects WHERE path=?",
                           -1, &st, nullptr) != SQLITE_OK)
        return false;
    sqlite3_bind_text(st, 1, path, -1, SQLITE_TRANSIENT);
    bool found = sqlite3_step(st) == SQLITE_ROW;
    if (found) {
        row->id = columnText(st, 0);
        row->parentId = columnText(st, 1);
        row->cls = columnText(st, 2);
        row->title = columnText(st, 3);
        row->mime = columnText(st, 4);
        row->size = columnText(st, 5);
        row->date = columnText(st, 6);
        row->duration = columnText(st, 7);
        row->resolution = columnText(st, 8);
        row->path = columnText(st, 9);
    }
    sqlite3_finalize(st);
    return found;
}

// The row of path in the database DataBaseMgr has open.
bool openRow(const char* path, Row* row) {
    if (path == nullptr) return false;
    return host::media::withOpenDatabase([&](sqlite3* db) { return readRow(db, path, row); });
}

// Folders are objects of class "0"; the shared folder itself is "0".
std::string parentObjectId(const Row& row) {
    return row.parentId == "0" || row.parentId.empty() ? "0" : "0$" + row.parentId;
}

std::string dlnaProfile(const Row& row) {
    if (row.mime == "image/jpeg") {
        unsigned w = 0, h = 0;
        if (sscanf(row.resolution.c_str(), "%ux%u", &w, &h) != 2) return "JPEG_LRG";
        if (w <= 640 && h <= 480) return "JPEG_SM";
        if (w <= 1024 && h <= 768) return "JPEG_MED";
        return "JPEG_LRG";
    }
    if (row.mime == "image/png") return "PNG_LRG";
    if (row.mime == "video/mp4") return "AVC_MP4_BL_CIF15_AAC_520";
    return "";
}

// Value of one element; false when the row does not carry it.
bool element(const Row& row, const std::string& name, std::string* value) {
    if (name == "id") *value = row.id;
    else if (name == "Title") *value = row.title;
    else if (name == "MimeType") *value = row.mime;
    else if (name == "Duration") *value = row.duration;
    else if (name == "size") *value = row.size;
    else if (name == "date") *value = row.date;
    else if (name == "uri") *value = row.path;
    else if (name == "class") *value = row.cls;
    else if (name == "dlnaProfile") *value = dlnaProfile(row);
    else if (name == "resolution") *value = row.resolution;
    else return false;
    return !value->empty();
}

char* elementForClass(const char* fn, const char* path, const char* name, const char* cls) {
    host::journal("DataBaseMgr::%s(%s, %s)", fn, orNull(path), orNull(name));
    Row row;
    std::string value;
    if (name == nullptr || !openRow(path, &row) || row.cls != cls || !element(row, name, &value)) return nullptr;
    return host::media::copyText(value);
}

void copyField(char* out, size_t size, const std::string& value) { snprintf(out, size, "%s", value.c_str()); }

}  // namespace

char* DataBaseMgr::GetClassForPath(const char* path) {
    host::journal("DataBaseMgr::GetClassForPath(%s)", orNull(path));
    Row row;
    return openRow(path, &row) ? host::media::copyText(row.cls) : nullptr;
}

char* DataBaseMgr::GetParentIdForPath(const char* path) {
    host::journal("DataBaseMgr::GetParentIdForPath(%s)", orNull(path));
    Row row;
    return openRow(path, &row) ? host::media::copyText(parentObjectId(row)) : nullptr;
}

char* DataBaseMgr::GetVideoElementForPath(const char* path, const char* name) {
    return elementForClass("GetVideoElementForPath", path, name, "3");
}

char* DataBaseMgr::GetImageElementForPath(const char* path, const char* name) {
    return elementForClass("GetImageElementForPath", path, name, "1");
}

bool DataBaseMgr::DeleteItemForPath(const char* path) {
    host::journal("DataBaseMgr::DeleteItemForPath(%s)", orNull(path));
    if (path == nullptr) return false;
    return host::media::withOpenDatabase([&](sqlite3* db) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, "DELETE FROM objects WHERE path=?", -1, &st, nullptr) != SQLITE_OK) return false;
        sqlite3_bind_text(st, 1, path, -1, SQLITE_TRANSIENT);
        bool ok = sqlite3_step(st) == SQLITE_DONE && sqlite3_changes(db) > 0;
        sqlite3_finalize(st);
        return ok;
    });
}

long ZEBConversions::ConvertTimeToLong(const char* timeText) {
    if (timeText == nullptr) return -1;
    unsigned long h = 0;
    unsigned m = 0, s = 0;
    int used = 0;
    if (sscanf(timeText, "%lu:%2u:%2u%n", &h, &m, &s, &used) != 3 || m > 59 || s > 59) return -1;
    long ms = 0;
    const char* rest = timeText + used;
    if (*rest == '.') {
        // Fraction of a second: the first three digits count.
        int digits = 0;
        for (++rest; *rest >= '0' && *rest <= '9'; ++rest, ++digits)
            if (digits < 3) ms = ms * 10 + (*rest - '0');
        if (digits == 0) return -1;
        for (; digits < 3; ++digits) ms *= 10;
    }
    if (*rest != '\0') return -1;
    return static_cast<long>(((h * 60 + m) * 60 + s) * 1000) + ms;
}

extern "C" ZEB_ERROR_CODE ZEBUtilParseMediaFile(const char* path, stZEBMediaFileInfo* info) {
    host::journal("ZEBUtilParseMediaFile(%s)", orNull(path));
    long long scripted;
    if (host::takeScriptedResult("ZEBUtilParseMediaFile", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (path == nullptr || info == nullptr) return 1;
    memset(info, 0, sizeof *info);
    // The parser reads the database of its own (it does not disturb the
    // manager's open one): the TV database first, then the phone one.
    Row row;
    bool found = false;
    for (const char* key : {"MEDIA-TV-DB-FILEPATH", "MEDIA-DB-FILEPATH"}) {
        std::string dbPath;
        if (found || !host::media::configValue(key, &dbPath)) continue;
        sqlite3* db = nullptr;
        if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK)
            found = readRow(db, path, &row);
        sqlite3_close(db);
    }
    if (!found || (row.cls != "1" && row.cls != "3")) return 1;
    copyField(info->szObjectID, sizeof info->szObjectID, row.cls + "$" + row.id);
    copyField(info->szParentID, sizeof info->szParentID, parentObjectId(row));
    copyField(info->szTitle, sizeof info->szTitle, row.title);
    copyField(info->szClass, sizeof info->szClass, row.cls);
    copyField(info->szMimeType, sizeof info->szMimeType, row.mime);
    copyField(info->szDuration, sizeof info->szDuration, row.duration);
    copyField(info->szSize, sizeof info->szSize, row.size);
    copyField(info->szDate, sizeof info->szDate, row.date);
    copyField(info->szResolution, sizeof info->szResolution, row.resolution);
    return 0;
}
