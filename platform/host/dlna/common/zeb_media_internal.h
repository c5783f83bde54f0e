// Shared by the host stand-ins of the DLNA stack's media-server side and of
// the viewfinder library's DCF parser, which writes the same media database.
#ifndef CAMWIFI_HOST_ZEB_MEDIA_INTERNAL_H
#define CAMWIFI_HOST_ZEB_MEDIA_INTERNAL_H

#include <functional>
#include <string>
#include <vector>

struct sqlite3;

namespace host {
namespace media {

// Configuration file named at ZEBInitializeZEB; empty when the stack is not
// initialised.
std::string configFilePath();
// Value of key in the configuration file (see zeb_stack.h for the format);
// false when absent, empty or unreadable.
bool configValue(const std::string& key, std::string* value);
// Value of the first element name in an XML text; false when absent or empty.
bool xmlElementText(const std::string& xml, const std::string& name, std::string* value);

// The library named this database file (OpenDB, ZEBCreateDirectoryStructure):
// the scanner writes it when it is one of the configured database files.
void noteDatabasePath(const std::string& path);

// Creates every missing folder above filePath; false on failure.
bool makeParentDirectories(const std::string& filePath);

// Allocated copy (ZEBMemFreeMA releases it).
char* copyText(const std::string& text);

// Runs fn on the database DataBaseMgr has open, under the manager's lock, and
// returns its result; false (fn not run) when none is open. Used by the
// manager's lookups (zeb_db_lookup_host.cpp).
bool withOpenDatabase(const std::function<bool(sqlite3*)>& fn);

// --- The media database (media_db_host.cpp) ---

// Version the database carries in its user_version once a scan completed.
constexpr int kDatabaseVersion = 1;

// Runs sql; true when it ran to the end.
bool exec(sqlite3* db, const char* sql);
// First column of the first row of sql (param bound to its one parameter
// when not empty) as text; false when there is no row.
bool queryText(sqlite3* db, const char* sql, const std::string& param, std::string* out);
// The database's user_version; -1 when unreadable.
int userVersion(sqlite3* db);
// Opens path and makes sure it is a database of ours: a new (empty) file gets
// the schema; a file that is not SQLite gives null.
sqlite3* openDatabase(const std::string& path);
// Replaces every row with the folders and media files under root, in one
// transaction; records root and the version. cancelled is asked before each
// entry. The media files inserted are appended to *files when given. False,
// with the database left as it was, when cancelled or a row was refused.
bool rebuildDatabase(sqlite3* db, const std::string& root, const std::function<bool()>& cancelled,
                     std::vector<std::string>* files = nullptr);

}  // namespace media
}  // namespace host

#endif
