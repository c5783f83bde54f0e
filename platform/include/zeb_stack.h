/*
 * DLNA stack of the camera (closed): stack and HTTP set-up, media server,
 * renderer control point, media database and its string, list, mutex,
 * memory and timer helpers. Declared here as the library calls it; the host
 * stand-ins live in platform/host.
 */
#ifndef CAMWIFI_PLATFORM_ZEB_STACK_H
#define CAMWIFI_PLATFORM_ZEB_STACK_H

#ifdef __cplusplus
extern "C" {
#endif

/* Stack error code: 0 is success. */
typedef int ZEB_ERROR_CODE;

/* Stores the camera's model name in the stack (used in its descriptions and
 * by the push features). The text is copied by the stack. */
ZEB_ERROR_CODE ZEBSetModelName(const char* modelName);

/* A text held by the stack. */
typedef struct ZEBString_s ZEBString;
/* The model name last set with ZEBSetModelName, owned by the stack (the caller
 * does not free it); null when none was set. */
const ZEBString* ZEBGetModelName(void);
/* Copies the text of str into out (size bytes, zero-terminated, cut to fit);
 * returns the length copied, or -1 for a null str or out. */
int ZEBString_ReadString(const ZEBString* str, char* out, unsigned int size);

/* ---- Mutexes (named, recursive: the owning thread may take one again) ---- */
/* Opaque handle of a stack mutex; null when none was created. */
typedef struct ZEBMutex_s* ZEB_MUTEX;
/* Creates a mutex labelled name (copied) and stores its handle in *mutex; 0 on success, else *mutex is null. */
ZEB_ERROR_CODE ZEBCreateMutex(ZEB_MUTEX* mutex, const char* name);
/* Blocks until the calling thread holds mutex (again, if it already does); 0 on success. */
ZEB_ERROR_CODE ZEBAcquireMutex(ZEB_MUTEX mutex);
/* Gives back one hold of mutex by its owning thread; 0 on success, non-zero for a thread not holding it. */
ZEB_ERROR_CODE ZEBReleaseMutex(ZEB_MUTEX mutex);
/* Destroys a mutex nobody holds; the handle is invalid afterwards. 0 on success. */
ZEB_ERROR_CODE ZEBDeleteMutex(ZEB_MUTEX mutex);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
/* ---- ARP cache lookup (C++ part of the stack) ---------------------------- */
class ZEBGetMacAddress {
public:
    /* Finds the MAC address of peerIp (dotted IPv4) in the kernel's ARP cache,
     * asking each interface in turn. On success writes 17 characters of
     * lower-case, colon-separated hex ("0a:1b:2c:3d:4e:5f") to macOut, without
     * a terminating zero (the caller zeroes its buffer), and returns true. */
    static bool GetMacAddrFromARPCache(const char* peerIp, char* macOut);
};
#endif

/* ======================================================================== */
/* ---- Memory ------------------------------------------------------------- */
/* ======================================================================== */
#ifdef __cplusplus
extern "C" {
#endif
/* Allocates size bytes from the stack's allocator; null when none is left.
 * Released with ZEBMemFreeMA. */
void* ZEBMemAllocMA(unsigned int size);
/* Releases memory from ZEBMemAllocMA or a stack function whose result "the
 * caller frees" (ZEBGetConfigurationMA, ZEBGetDeviceName); null is ignored. */
void ZEBMemFreeMA(void* memory);
#ifdef __cplusplus
}
#endif

/* ======================================================================== */
/* ---- Stack set-up, HTTP layer, media server (DMS) and media database ---- */
/* ======================================================================== */
#ifdef __cplusplus
extern "C" {
#else
#include <stdbool.h>
#endif

/* -- Stack and HTTP layer -- */
/* Initialises the stack from its configuration file (the path of
 * "UPnPConfig.xml") and starts the stack's timer thread. 0 on success. */
ZEB_ERROR_CODE ZEBInitializeZEB(const char* configFile);
/* Takes the stack down again (timer thread included). 0 on success. */
ZEB_ERROR_CODE ZEBTerminateZEB(void);
/* Stops the stack's timer thread. 0 on success (also when it was not running). */
ZEB_ERROR_CODE ZEBStopTimerThreadZEB(void);
/* Initialises the stack's HTTP layer and starts its asynchronous thread. 0 on success. */
ZEB_ERROR_CODE ZEBHTTPInitialize(void);
/* Releases the HTTP layer (its thread included). 0 on success. */
ZEB_ERROR_CODE ZEBHTTPTerminate(void);
/* Stops the HTTP layer's asynchronous thread. 0 on success (also when it was not running). */
ZEB_ERROR_CODE ZEBHTTPStopAsyncThread(void);
/* Pauses / resumes the HTTPMU (multicast discovery) server of a profile. 0 on success. */
ZEB_ERROR_CODE ZEBPauseHTTPMUServer(int profileId);
ZEB_ERROR_CODE ZEBResumeHTTPMUServer(int profileId);
/* Switches UPnP/DLNA certification mode on (true) or off. */
void ZEBSetDlnaCertificationState(bool certification);

/* -- Configuration --
 * Value of one key of the configuration file named at ZEBInitializeZEB, as
 * an allocated text the caller frees with ZEBMemFreeMA; null when the stack is
 * not initialised, the file cannot be read, or the key is absent or empty.
 * Keys used by the library: "HTTPStreamingPort", "HTTPTCPServerPort",
 * "SHARED-MEDIA-FOLDER-PATH", "MEDIA-DB-FILEPATH", "MEDIA-TV-DB-FILEPATH".
 * The file is XML; each key is an element directly holding its value as text,
 * anywhere below the root element:
 *     <?xml version="1.0" encoding="utf-8"?>
 *     <UPnPConfig>
 *       <HTTPStreamingPort>7679</HTTPStreamingPort>
 *       <SHARED-MEDIA-FOLDER-PATH>/mnt/mmc/DCIM</SHARED-MEDIA-FOLDER-PATH>
 *       <MEDIA-DB-FILEPATH>/mnt/mmc/config/DMS/media.db</MEDIA-DB-FILEPATH>
 *     </UPnPConfig>
 * The first element of that name counts; surrounding white space is dropped;
 * the entities &amp; &lt; &gt; &quot; &apos; are decoded; comments, the XML
 * declaration and attributes are ignored. */
char* ZEBGetConfigurationMA(const char* key);

/* -- File helpers -- */
/* Creates every missing directory above the file path (not the file). 0 on success. */
ZEB_ERROR_CODE ZEBCreateDirectoryStructure(const char* filePath);
/* Removes one file. 0 on success. */
ZEB_ERROR_CODE ZEBRemoveFile(const char* filePath);
/* Reads the friendlyName of a device description file, as an allocated text
 * the caller frees with ZEBMemFreeMA; null when there is none. */
char* ZEBGetDeviceName(const char* descriptionFile);

/* -- Media server application -- */
/* The media server's configuration, handed to DMSAppInitialize. Written by
 * the library, read (and copied) by the stack during the call: the caller
 * frees it afterwards. Five words, in this order. */
typedef struct {
    char* pDBFilePath;         /* media database file */
    char* pSharedFolderPath;   /* folder whose pictures and videos are shared */
    char* pSharedFolderPath2;  /* the same folder again (second copy) */
    char* pDescriptionDir;     /* folder of the device description and icons */
    int iHTTPStreamingPort;    /* port of the HTTP streaming server */
} stDMSAppConfig;

/* Creates the media server application from config; writes its handle to
 * *dmsHandle. 0 on success. */
ZEB_ERROR_CODE DMSAppInitialize(int* dmsHandle, stDMSAppConfig* config);
/* Starts serving, with the access-control mode given. 0 on success. */
ZEB_ERROR_CODE DMSAppStart(unsigned int aclMode);
/* Stops serving (and its timer thread). 0 on success. */
ZEB_ERROR_CODE DMSAppStop(void);
/* Releases the application created by DMSAppInitialize. 0 on success. */
ZEB_ERROR_CODE DMSAppTerminate(void);
/* Stops the application's timer thread. 0 on success (also when it was not running). */
ZEB_ERROR_CODE DMSAppStopTimerThread(void);
/* Sends the server's alive announcements once more now. 0 on success. */
ZEB_ERROR_CODE DMSAppSendAliveTemporary(void);
/* Records a TV's connection result in the server's access list: allowed
 * true lets the device with this MAC ("aa:bb:cc:dd:ee:ff") browse. 0 on success. */
ZEB_ERROR_CODE DmsAppACLAddEntry(bool allowed, const char* mac);

/* -- File scanner --
 * Walks directory (and its sub-folders) and records every picture and video
 * in the media database; returns when the walk is done. 0 when the database
 * was built; non-zero when the walk failed or was cancelled
 * (DirectoryScanner::CancelScanDirectory). dmsHandle is the media server's
 * handle as the caller holds it at that moment. */
int ZEBUtilStartFileScanner(int dmsHandle, const char* directory);

#ifdef __cplusplus
}

/* The stack's media database manager (one instance per process). */
class DataBaseMgr {
public:
    /* The manager; null when it cannot be had. */
    static DataBaseMgr* GetInstance();
    /* Closes the database and releases the manager. */
    static void DestroyInstance();
    /* Opens (creating it when absent) the database file. true on success. */
    bool OpenDB(const char* dbFilePath);
    /* true when the open database does not belong to sharedFolder (built for
     * another folder, or not a database of this stack): it must be rebuilt. */
    bool NeedToDeleteDB(const char* sharedFolder);
    /* true when the open database carries the current sort order; false
     * means it predates it and must be rebuilt. */
    bool NeedToDeleteDBforSorting();
    /* Marks which items are shared: with selectPaths null or empty every
     * item gets shareStatus; otherwise only the items whose paths are listed
     * (one absolute path per line) do, the others 0. true on success. */
    bool UpdateShareStatus(char* selectPaths, int shareStatus);
    /* Interrupts an invalidation of all items in progress. */
    void CancelInvalidateAllItems();
};

/* The stack's directory scanner behind ZEBUtilStartFileScanner. */
class DirectoryScanner {
public:
    static DirectoryScanner* GetInstance();
    static void DestroyInstance();
    /* Stops a running scan promptly (the scan returns non-zero). */
    void CancelScanDirectory();
};

/* The lock that serialises the stack's event handling between features. */
class GlobalEventHandleLock {
public:
    static GlobalEventHandleLock* GetInstance();
    /* Releases the lock if it is held, waking whoever waits for it. */
    void ReleaseLock();
};
#endif

/* ======================================================================== */
/* ---- Item list and network interface list (used by the mode server) ----- */
/* ======================================================================== */
#ifdef __cplusplus
/* The stack's list of untyped items, kept in insertion order. The list holds
 * pointers only: whoever fills it owns the items and releases them, usually
 * through RemoveAllListItem with a deleter. */
class DMSCDSList {
public:
    /* Called once per item by RemoveAllListItem. */
    typedef void (*ItemDeleter)(void* item);

    DMSCDSList();
    /* Frees the list's own bookkeeping; items still held are not touched. */
    ~DMSCDSList();

    /* Appends item (null is refused). 0 on success. */
    int AddItem(void* item);
    /* Calls deleter (when not null) on every item in insertion order, then
     * empties the list. */
    void RemoveAllListItem(ItemDeleter deleter);
    /* Number of items held. */
    unsigned int GetNumberOfItems() const;
    /* The item at index (0 = first added); null past the end. */
    void* GetItemAt(unsigned int index) const;

private:
    DMSCDSList(const DMSCDSList&);
    DMSCDSList& operator=(const DMSCDSList&);

    struct DMSCDSListImpl* m_pImpl; /* the stack's storage of the items */
};

/* One network interface the stack serves on. Handed out by ZEBGetNicList;
 * the entry and both texts are allocated with ZEBMemAllocMA and released by
 * the caller with ZEBMemFreeMA. */
typedef struct {
    char* pIPAddress;    /* dotted IPv4 address of the interface, or null */
    char* pFriendlyName; /* the interface's name ("wlan0"), or null */
} ZEB_UI_NET_INFO;

/* Appends one ZEB_UI_NET_INFO* per interface (loopback excluded) to list,
 * in the system's order; the caller owns and frees the entries. 0 on
 * success (also with no interface), non-zero when list is null or the
 * interfaces cannot be read. */
ZEB_ERROR_CODE ZEBGetNicList(DMSCDSList* list);
#endif

#endif
