// Test control of the host media-sharing stand-ins: the DLNA stack's media
// server side (stack and HTTP threads, DMS application, media database and
// file scanner).
//
// The media database is a real SQLite file at the path the library opens.
// Its schema is this host's own:
//
//   PRAGMA user_version = 1            -- the current sort order; an older
//                                      -- value makes NeedToDeleteDBforSorting
//                                      -- false (rebuild)
//   meta(key TEXT PRIMARY KEY, value TEXT)
//     'root' -> the shared folder the database was built for
//   objects(
//     id          INTEGER PRIMARY KEY, -- object id (1, 2, ...)
//     parent_id   INTEGER NOT NULL,    -- id of the folder's row; 0 for the
//                                      -- shared folder itself
//     class       TEXT NOT NULL,       -- "0" folder, "1" image, "3" video
//     path        TEXT NOT NULL UNIQUE,-- absolute path of the file or folder
//     title       TEXT NOT NULL,       -- file or folder name
//     mime_type   TEXT,                -- "image/jpeg", "video/mp4", ...; NULL for folders
//     size        INTEGER,             -- bytes
//     date        TEXT,                -- modification time, "YYYY-MM-DDTHH:MM:SS" (UTC)
//     duration    TEXT,                -- videos: "H:MM:SS.mmm", else NULL
//     resolution  TEXT,                -- "WIDTHxHEIGHT" when known, else NULL
//     shared      INTEGER NOT NULL DEFAULT 0) -- share status (UpdateShareStatus)
//
// The scanner records *.jpg/*.jpeg (image/jpeg, size from the frame header),
// *.png (image/png), *.mpo (image/mpo), *.mp4/*.mov (video/mp4,
// video/quicktime: duration from the movie header, size from the first track
// with one) and *.avi (video/x-msvideo); other files and names starting with
// '.' are skipped. The scan writes the database that DataBaseMgr last opened,
// or whose folders ZEBCreateDirectoryStructure last prepared, when that is
// one of the configured database files; otherwise the file configured as
// "MEDIA-DB-FILEPATH".
#ifndef CAMWIFI_HOST_MEDIA_H
#define CAMWIFI_HOST_MEDIA_H

#include <string>
#include <vector>

namespace host {
namespace media {

// --- File scanner --------------------------------------------------------------
// While held, every scan stops before its first file and waits until the hold
// is lifted or the scan is cancelled (DirectoryScanner::CancelScanDirectory).
void holdScans(bool hold);
// Waits (at most timeoutMs) until a scan is waiting at the hold; true if so.
bool waitForHeldScan(int timeoutMs);

// --- Stack state -----------------------------------------------------------------
// Names of the stack's background threads now running ("ZEBTimer",
// "ZEBHTTPAsync", "DMSTimer"); each is a real thread.
std::vector<std::string> runningThreads();
// Certification mode as last set by ZEBSetDlnaCertificationState.
bool certificationState();
// The configuration the media server was initialised with (copied by
// DMSAppInitialize); empty texts and port 0 before.
struct DmsConfig {
    std::string dbFilePath, sharedFolder, sharedFolder2, descriptionDir;
    int httpStreamingPort = 0;
};
DmsConfig dmsConfig();
// Whether the global event lock was released since the last reset.
bool globalEventLockReleased();

}  // namespace media
}  // namespace host

#endif
