// Shared by the host stand-ins of the DLNA stack's media-server side only.
#ifndef CAMWIFI_HOST_ZEB_MEDIA_INTERNAL_H
#define CAMWIFI_HOST_ZEB_MEDIA_INTERNAL_H

#include <functional>
#include <string>

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

}  // namespace media
}  // namespace host

#endif
