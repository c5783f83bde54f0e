// What the media database knows of one card file, for describing it to a
// renderer (object id, parent id, title, MIME type, size, date, duration,
// ...), and the removal of the entry of a file that is gone.
#include <sys/stat.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Dlna/DlnaAbi.h"
#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "camwifi/camwifi_mrcp.h"
#include "zeb_stack.h"

#ifdef CAMWIFI_ABI_32BIT
static_assert(sizeof(ZEB_CONTENT_METADATA) == 44, "ZEB_CONTENT_METADATA is ten text pointers and one int");
static_assert(offsetof(ZEB_CONTENT_METADATA, duration) == 16, "the duration follows four texts");
#endif

namespace {

// Codes of the lookup.
enum {
    kMetadataOk = 0,
    kMetadataNoDbPath = 802,
    kMetadataNoInstance = 803,
    kMetadataNoEntry = 805,
    kMetadataNotMedia = 806,
};

#define METADATA_ERR_AS(function, ...) \
    DlnaLogPrint(DLNA_LOG_ERROR, false, DLNA_TAG, __FILE__, function, __LINE__, __VA_ARGS__)

// Opens the database the media server keeps for the current sharing: the
// TV one while the renderer control point runs (share mode 9). Returns the
// manager, or null with *error set (logged under caller's name).
DataBaseMgr* openMediaDatabase(const char* caller, int* error) {
    const char* key = GetAllShareMode() == 9 ? "MEDIA-TV-DB-FILEPATH" : "MEDIA-DB-FILEPATH";
    char* dbPath = ZEBGetConfigurationMA(key);
    if (dbPath == nullptr) {
        METADATA_ERR_AS(caller, "Error in getting mediaDBPath at %d", __LINE__);
        *error = kMetadataNoDbPath;
        return nullptr;
    }
    DataBaseMgr* db = DataBaseMgr::GetInstance();
    if (db == nullptr) {
        METADATA_ERR_AS(caller, "Error in getting db instance at %d", __LINE__);
        ZEBMemFreeMA(dbPath);
        *error = kMetadataNoInstance;
        return nullptr;
    }
    bool opened = db->OpenDB(dbPath);
    ZEBMemFreeMA(dbPath);
    if (!opened) {
        METADATA_ERR_AS(caller, "Error in openingdb at %d", __LINE__);
        DataBaseMgr::DestroyInstance();
        *error = kMetadataNoEntry;
        return nullptr;
    }
    return db;
}

// The stack's text as the caller's own copy (free()); the stack's is released.
char* takeText(char* stackText) {
    if (stackText == nullptr) return nullptr;
    char* copy = strdup(stackText);
    ZEBMemFreeMA(stackText);
    return copy;
}

void freeRecord(ZEB_CONTENT_METADATA* r) {
    for (char* text : {r->objectId, r->parentId, r->title, r->mimeType, r->size, r->date, r->uri, r->objectClass,
                       r->dlnaProfile, r->resolution})
        free(text);
    memset(r, 0, sizeof *r);
}

const char* orNull(const char* s) { return s ? s : "(null)"; }

}  // namespace

extern "C" int ZEBGetMetadataFromDB(const char* path, ZEB_CONTENT_METADATA* record) {
    if (record == nullptr) return kMetadataNoEntry;
    memset(record, 0, sizeof *record);
    if (path == nullptr) return kMetadataNoEntry;
    int error = kMetadataOk;
    DataBaseMgr* db = openMediaDatabase(__FUNCTION__, &error);
    if (db == nullptr) return error;
    DLNA_LOG_I(DLNA_TAG, "File path: %s", path);
    char* cls = takeText(db->GetClassForPath(path));
    if (cls == nullptr) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "Error in getting Class at %d", __LINE__);
        DataBaseMgr::DestroyInstance();
        return kMetadataNoEntry;
    }
    DLNA_LOG_I(DLNA_TAG, "[ZEBGetMetadataFromDB] pContentType : %s", cls);
    bool video = strcmp(cls, "3") == 0;
    if (video) {
        DLNA_LOG_I(DLNA_TAG, "Content Type is VIDEO ");
    } else if (strcmp(cls, "1") == 0) {
        DLNA_LOG_I(DLNA_TAG, "Content Type is IMAGE ");
    } else {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "Error %d", kMetadataNotMedia);
        free(cls);
        DataBaseMgr::DestroyInstance();
        return kMetadataNotMedia;
    }
    auto element = [&](const char* name) {
        return takeText(video ? db->GetVideoElementForPath(path, name) : db->GetImageElementForPath(path, name));
    };
    record->objectClass = cls;
    char* id = element("id");
    if (id == nullptr) {
        // An entry without its id cannot be named to a renderer.
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "Error in getting id at %d", __LINE__);
        freeRecord(record);
        DataBaseMgr::DestroyInstance();
        return kMetadataNoEntry;
    }
    std::string objectId = std::string(cls) + "$" + id;
    free(id);
    record->objectId = strdup(objectId.c_str());
    record->parentId = takeText(db->GetParentIdForPath(path));
    record->title = element("Title");
    record->mimeType = element("MimeType");
    if (video) {
        char* durationText = element("Duration");
        long ms = durationText ? ZEBConversions::ConvertTimeToLong(durationText) : 0;
        free(durationText);
        record->duration = ms > 0 ? static_cast<int>(ms) : 0;
        DLNA_LOG_I(DLNA_TAG, "[K700] nContentDuration : %d", record->duration);
    }
    record->size = element("size");
    record->date = element("date");
    record->uri = element("uri");
    record->dlnaProfile = element("dlnaProfile");
    record->resolution = element("resolution");
    DLNA_LOG_I(DLNA_TAG,
               "[ZEBGetMetadataFromDB] pContentID = %s, pParentID = %s, pContentTitle = %s,  pContentMimetype = %s, "
               "pContentSize = %s",
               orNull(record->objectId), orNull(record->parentId), orNull(record->title), orNull(record->mimeType),
               orNull(record->size));
    DataBaseMgr::DestroyInstance();
    return kMetadataOk;
}

extern "C" int ZEBDeleteItemInDB(const char* path) {
    DLNA_LOG_I(DLNA_TAG, "[DLNA] Delete Invalid Items in DB : %s", orNull(path));
    if (path == nullptr) return kMetadataNoEntry;
    // Only a stale entry goes: a file still on the card keeps its entry.
    struct stat st;
    if (stat(path, &st) == 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DLNA] %s still exists, entry kept", path);
        return kMetadataNotMedia;
    }
    int error = kMetadataOk;
    DataBaseMgr* db = openMediaDatabase(__FUNCTION__, &error);
    if (db == nullptr) return error;
    bool removed = db->DeleteItemForPath(path);
    DataBaseMgr::DestroyInstance();
    return removed ? kMetadataOk : kMetadataNoEntry;
}
