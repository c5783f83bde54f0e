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

    /* -- Lookups of one file of the open database (renderer control point) --
     * Each returns an allocated text the caller frees with ZEBMemFreeMA, or
     * null when no database is open or the path has no such entry. */
    /* Database class of the file at path: "0" folder, "1" image, "3" video. */
    char* GetClassForPath(const char* path);
    /* Object id of the folder holding the file at path. */
    char* GetParentIdForPath(const char* path);
    /* One element of a video's (class "3") or an image's (class "1") entry:
     * "id", "Title", "MimeType", "Duration" (videos, "H:MM:SS.mmm"), "size",
     * "date", "uri", "class", "dlnaProfile", "resolution" ("WIDTHxHEIGHT").
     * Null for an entry of the other class or an element it does not carry. */
    char* GetVideoElementForPath(const char* path, const char* element);
    char* GetImageElementForPath(const char* path, const char* element);
    /* Removes the entry of path. true when an entry was removed. */
    bool DeleteItemForPath(const char* path);
};

/* The stack's conversions between texts and numbers. */
class ZEBConversions {
public:
    /* Milliseconds of a time text "H:MM:SS" or "H:MM:SS.mmm" (hours of any
     * length); -1 when the text is not of that form. */
    static long ConvertTimeToLong(const char* timeText);
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

/* ======================================================================== */
/* ---- Renderer control point (MRCP), stack timers, media-file parser ----- */
/* ======================================================================== */
#ifdef __cplusplus
extern "C" {
#endif

/* -- Configuration templates --
 * One file the stack needs in a profile's configuration folder: its name,
 * the text to write when it is missing, the length to write and a reserved
 * word (0). The stack never reads past the text's terminating zero, even
 * where the length field is larger. */
typedef struct {
    const char* pFileName;   /* file name inside the folder ("DeviceDescription.xml") */
    const char* pContent;    /* zero-terminated template text */
    unsigned int uiLength;   /* length field of the table (bytes to write at most) */
    unsigned int uiReserved; /* 0 */
} stZEBConfigFile;

/* Checks that directory holds the count files of the table, writing each
 * missing one from its template (at most min(length, text length) bytes).
 * Non-zero when the configuration is present afterwards, 0 when not. */
int ZEBCheckFileState(const char* directory, const stZEBConfigFile* files, int count);

/* -- Requests, responses and notifications --
 * One opaque object of the stack carries a request the control point fills
 * and sends, a response (answer) to one, or a notification (renderer added
 * or removed, evented variables, exception). Requests are allocated with
 * HZebMRCPAllocRequestResources and released by the caller after sending;
 * responses and notifications are handed to the callbacks below and
 * released by the callback with the matching Release function. Texts read
 * from an object belong to it (valid until it is released). */
typedef struct stZEBAppList stZEBAppList;

/* Renderer transport states as the stack reports them. */
typedef enum {
    ZEB_MRCP_STATE_STOPPED = 0,
    ZEB_MRCP_STATE_PLAYING = 1,
    ZEB_MRCP_STATE_PAUSED_PLAYBACK = 2,
    ZEB_MRCP_STATE_TRANSITIONING = 3,
    ZEB_MRCP_STATE_PAUSED_RECORDING = 4,
    ZEB_MRCP_STATE_RECORDING = 5,
    ZEB_MRCP_STATE_NO_MEDIA_PRESENT = 6,
    ZEB_MRCP_STATE_UNKNOWN = 7
} ZEB_MRCP_DEVICE_STATUS;

/* Transport status of GetTransportInfo: 0 "OK", 1 "ERROR_OCCURRED". */
#define ZEB_MRCP_TRANSPORT_STATUS_OK 0
#define ZEB_MRCP_TRANSPORT_STATUS_ERROR 1

/* The stack's failure code of a sent action (the renderer refused it or did
 * not answer). */
#define ZEB_MRCP_ACTION_FAILED 801
/* Stack event that a device-list response answers (HZebValidateUIResponse). */
#define ZEB_MRCP_EVENT_DEVICE_LIST 19

/* Callbacks of the control point, called on the stack's threads. Each owns
 * the object it is given and releases it. */
/* An exception of the stack (info: exception type and value). */
typedef void (*ZEBMRCPExceptionCallback)(int id, stZEBAppList* info);
/* A renderer appeared (type "DMR_ADDED") or left ("DMR_REMOVED"). */
typedef void (*ZEBMRCPDeviceInfoCallback)(int id, char* type, ZEB_ERROR_CODE error, stZEBAppList* info);
/* A renderer's evented variables (UPnP event). */
typedef void (*ZEBMRCPDeviceStatusCallback)(int id, ZEB_ERROR_CODE error, stZEBAppList* info);
/* The answer to one sent request: its action name, 0 or an error code
 * (ZEB_MRCP_ACTION_FAILED), and the response. */
typedef void (*ZEBMRCPCommandResponseCallback)(int id, const char* action, ZEB_ERROR_CODE error,
                                               stZEBAppList* response);

/* -- Profile lifecycle -- */
/* Creates the control point's profile from the configuration folder and
 * registers the four callbacks; writes the profile handle to *profileId.
 * 0 on success. */
ZEB_ERROR_CODE ZEBMRCPInitialize(ZEBMRCPExceptionCallback exception, ZEBMRCPDeviceInfoCallback deviceInfo,
                                 ZEBMRCPDeviceStatusCallback deviceStatus,
                                 ZEBMRCPCommandResponseCallback commandResponse, int* profileId,
                                 const char* directory);
/* Starts searching for renderers and delivering callbacks. 0 on success. */
ZEB_ERROR_CODE ZEBMRCPStart(int profileId);
/* Stops the profile; returns when no callback of it runs any more. */
ZEB_ERROR_CODE ZEBMRCPStop(int profileId);
/* Releases the profile (its callbacks are never called again). */
ZEB_ERROR_CODE ZEBMRCPTerminate(int profileId);
/* The renderers found so far: *response is a device-list response (release
 * it with HZebMRCPReleaseResponseResources), or null when none was found.
 * 0 on success. */
ZEB_ERROR_CODE ZEBMRCPGetDeviceList(int profileId, stZEBAppList** response);
/* Subscribes to the events of the renderer udn. 0 on success. */
ZEB_ERROR_CODE ZEBMRCPSubscribeDevice(int profileId, const char* udn);
/* Remembers the protocols a renderer accepts (sink protocol info). */
ZEB_ERROR_CODE ZEBMRCPstoreRendererProtocolInfo(const char* udn, const char* protocolInfo);

/* Details of one renderer, filled by ZEBMRCPGetDeviceDetails (texts
 * zero-terminated, cut to their arrays). */
typedef struct {
    char szIPAddress[16];     /* dotted IPv4 address */
    char szFriendlyName[256]; /* friendlyName */
    char szUDN[256];          /* UDN */
    char szManufacturer[256]; /* manufacturer */
    char szModelName[256];    /* modelName */
    char szModelNumber[256];  /* modelNumber */
} stZEBMRCPDeviceDetails;
/* Details of the renderer udn from its description. 0 on success. */
ZEB_ERROR_CODE ZEBMRCPGetDeviceDetails(int profileId, const char* udn, stZEBMRCPDeviceDetails* details);

/* -- Request objects (all 0 on success; texts are copied) -- */
ZEB_ERROR_CODE HZebMRCPAllocRequestResources(stZEBAppList** request);
ZEB_ERROR_CODE HZebMRCPReleaseRequestResources(stZEBAppList* request);
ZEB_ERROR_CODE HZebMRCPRQSetActionName(stZEBAppList* request, const char* action);
ZEB_ERROR_CODE HZebMRCPRQSetInstanceID(stZEBAppList* request, const char* instanceId);
ZEB_ERROR_CODE HZebMRCPRQSetPlaySpeed(stZEBAppList* request, int speed);
ZEB_ERROR_CODE HZebMRCPRQSetMatchedURI(stZEBAppList* request, const char* uri);
ZEB_ERROR_CODE HZebMRCPRQSetMetaData(stZEBAppList* request, const char* metadata);
/* Seek unit ("REL_TIME") and target (the text *position points to). */
ZEB_ERROR_CODE HZebMRCPRQSetSeekUnit(stZEBAppList* request, const char* unit);
ZEB_ERROR_CODE HZebMRCPRQSetCurrPos(stZEBAppList* request, const char** position);
/* RenderingControl channel ("Master") and volume. */
ZEB_ERROR_CODE HZebMRCPRQSetChannel(stZEBAppList* request, const char* channel);
ZEB_ERROR_CODE HZebMRCPRQSetVolume(stZEBAppList* request, int volume);

/* -- Sending: each sends request to the renderer udn of the profile and
 * returns 0 when it was sent; the answer arrives later through the
 * command-response callback with the same action name and a copy of
 * context (null: none). The caller releases request afterwards. -- */
ZEB_ERROR_CODE ZEBMRCPSetAVTransportURI(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPAVPlay(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPAVStop(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPAVPause(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPAVResume(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPAVSeek(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPGetPlayPositionInfo(int profileId, const char* udn, stZEBAppList* request,
                                          const char* context);
ZEB_ERROR_CODE ZEBMRCPSetVolume(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPGetVolume(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPGetPlayState(int profileId, const char* udn, stZEBAppList* request, const char* context);
ZEB_ERROR_CODE ZEBMRCPGetProtocolInfo(int profileId, const char* udn, stZEBAppList* request, const char* context);

/* -- Responses (all 0 on success, non-zero when the field is absent) -- */
ZEB_ERROR_CODE HZebMRCPReleaseResponseResources(stZEBAppList* response);
ZEB_ERROR_CODE HZebMRCPCRGetActionName(stZEBAppList* response, const char** action);
/* 0 when response answers stack event stackEvent (ZEB_MRCP_EVENT_DEVICE_LIST). */
ZEB_ERROR_CODE HZebValidateUIResponse(stZEBAppList* response, int stackEvent);
ZEB_ERROR_CODE HZebMRCPCRGetNumberOfDevices(stZEBAppList* response, int* count);
/* Name and UDN of device number device (1 = first) of a device list. */
ZEB_ERROR_CODE HZebMRCPCRGetNameFromDeviceInfo(stZEBAppList* response, int device, const char** name);
ZEB_ERROR_CODE HZebMRCPCRGetUDNFromDeviceInfo(stZEBAppList* response, int device, const char** udn);
/* The context text the request was sent with. */
ZEB_ERROR_CODE HZebMRCPCRGetTCharContext(stZEBAppList* response, const char** context);
/* GetTransportInfo: transport state and status (ZEB_MRCP_TRANSPORT_STATUS_*). */
ZEB_ERROR_CODE HZebMRCPRQGetTransportInfo(stZEBAppList* response, ZEB_MRCP_DEVICE_STATUS* state, int* status);
/* GetPositionInfo: track duration and relative time, in milliseconds. */
ZEB_ERROR_CODE HZebMRCPCRGetTrackDuration(stZEBAppList* response, int* milliseconds);
ZEB_ERROR_CODE HZebMRCPCRGetRelTime(stZEBAppList* response, int* milliseconds);
/* GetVolume: the current volume. */
ZEB_ERROR_CODE HZebMRCPRQGetVolume(stZEBAppList* response, int* volume);
/* GetProtocolInfo: the renderer's sink protocol info. */
ZEB_ERROR_CODE HZebMRCPCRGetSinkProtocolInfo(stZEBAppList* response, const char** protocolInfo);

/* -- Notifications (all 0 on success) -- */
ZEB_ERROR_CODE HZebMRCPReleaseInfoResources(stZEBAppList* info);
/* Renderer added / removed: its friendly name and UDN. */
ZEB_ERROR_CODE HZebMRCPRQGetDeviceName(stZEBAppList* info, const char** name);
ZEB_ERROR_CODE HZebMRCPRQGetDeviceUDN(stZEBAppList* info, const char** udn);
/* Exception: its type and value. */
ZEB_ERROR_CODE HZebMRCPEIGetExceptionType(stZEBAppList* info, int* type);
ZEB_ERROR_CODE HZebMRCPEIGetExceptionValue(stZEBAppList* info, const char** value);
/* Evented variables: the renderer, the service that sent them, their count
 * and each (0-based index) name and value. A "LastChange" value is the
 * AVTransport event text, e.g.
 *   <Event xmlns="urn:schemas-upnp-org:metadata-1-0/AVT/"><InstanceID val="0">
 *   <TransportState val="PLAYING"/></InstanceID></Event> */
ZEB_ERROR_CODE HZebMRCPDIGetDeviceUDN(stZEBAppList* info, const char** udn);
ZEB_ERROR_CODE HZebMRCPDIGetServiceType(stZEBAppList* info, const char** serviceType);
ZEB_ERROR_CODE HZebMRCPDIGetNumOfArgument(stZEBAppList* info, int* count);
ZEB_ERROR_CODE HZebMRCPDIGetStateVariable(stZEBAppList* info, int index, const char** name, const char** value);

/* -- HTTP streaming server: serves the card's files at
 * http://<camera address>:<port><absolute path> -- */
/* Non-zero on success. */
int HTTPStreamingServerInitialize(int profileId, int port);
/* Stops it (nothing happens when it is not running). */
void HTTPStreamingServerTerminate(void);

/* -- Item list (pointers in insertion order; the caller owns the items) -- */
typedef struct ZEBList_s* ZEB_LIST;
/* A new empty list, or null. Released with ZEBListDestroy. */
ZEB_LIST ZEBListCreate(void);
/* Appends item (not null). 0 on success. */
ZEB_ERROR_CODE ZEBListAppend(ZEB_LIST list, void* item);
/* Releases the list (not its items); null is ignored. */
void ZEBListDestroy(ZEB_LIST list);

/* -- Media-server object requests (describe one card file to a renderer) -- */
/* One resource (<res>) of an object; texts are copied by
 * HZebMSCPRQSetResources; null fields are left out. */
typedef struct {
    const char* pURI;            /* where the renderer fetches the file */
    const char* pProtocol;       /* transport protocol, "http-get" */
    const char* pMimeType;       /* "image/jpeg", "video/mp4", ... */
    const char* pDuration;       /* "H:MM:SS.mmm" (videos) */
    const char* pSize;           /* bytes, decimal */
    const char* pResolution;     /* "WIDTHxHEIGHT" */
    const char* pAdditionalInfo; /* fourth field of the protocol info, "DLNA.ORG_OP=01" */
} stZEBMSCPResource;

ZEB_ERROR_CODE HZebMSCPAllocRequestResources(stZEBAppList** object);
ZEB_ERROR_CODE HZebMSCPReleaseRequestResources(stZEBAppList* object);
ZEB_ERROR_CODE HZebMSCPRQSetObjectID(stZEBAppList* object, const char* id);
ZEB_ERROR_CODE HZebMSCPRQSetParentID(stZEBAppList* object, const char* parentId);
ZEB_ERROR_CODE HZebMSCPRQSetTitle(stZEBAppList* object, const char* title);
ZEB_ERROR_CODE HZebMSCPRQSetDate(stZEBAppList* object, const char* date);
/* "VIDEO" or "IMAGE". */
ZEB_ERROR_CODE HZebMSCPRQSetObjectType(stZEBAppList* object, const char* type);
/* The resources: a list of stZEBMSCPResource*, copied during the call. */
ZEB_ERROR_CODE HZebMSCPRQSetResources(stZEBAppList* object, ZEB_LIST resources);
ZEB_ERROR_CODE HZebMSCPRQSetNumOfResources(stZEBAppList* object, int count);
/* The object as DIDL-Lite metadata text for SetAVTransportURI, allocated
 * (the caller frees it with ZEBMemFreeMA); null when the object is
 * incomplete (no id, title, type or resource). */
char* HZebMSCPRQGetAVTransportURIMetadata(stZEBAppList* object);

/* -- Media-file parser --
 * What the stack knows of one card file, read from the media database the
 * media server keeps (the database of MEDIA-TV-DB-FILEPATH while the share
 * mode is 9, else MEDIA-DB-FILEPATH). Texts are zero-terminated, empty when
 * unknown. */
typedef struct {
    char szObjectID[64];    /* "<class>$<id>", e.g. "3$12" */
    char szParentID[64];    /* object id of the folder */
    char szTitle[256];      /* file name */
    char szClass[8];        /* "1" image, "3" video */
    char szMimeType[64];
    char szDuration[32];    /* "H:MM:SS.mmm" (videos) */
    char szSize[32];        /* bytes, decimal */
    char szDate[32];        /* "YYYY-MM-DDTHH:MM:SS" */
    char szResolution[32];  /* "WIDTHxHEIGHT" */
} stZEBMediaFileInfo;
/* Fills info for the file at path. 0 on success; non-zero when the file is
 * not in the database. */
ZEB_ERROR_CODE ZEBUtilParseMediaFile(const char* path, stZEBMediaFileInfo* info);

/* -- Timers of the stack's timer service --
 * One-shot timers that fire on the timer service's own thread. */
typedef void (*DMSAppTimerHandler)(void* userData);
/* A new timer labelled name (copied); its handle (non-zero), or 0. */
int DMSAppCreateTimer(const char* name);
/* Arms the timer to call handler(userData) once, milliseconds from now (an
 * armed timer is re-armed). 0 on success. */
ZEB_ERROR_CODE DMSAppStartTimer(int handle, unsigned int milliseconds, DMSAppTimerHandler handler, void* userData);
/* Disarms and releases the timer. A handler already running is not waited
 * for (a handler may delete its own timer). 0 on success, non-zero for an
 * unknown handle. */
ZEB_ERROR_CODE DMSAppDeleteTimer(int handle);

#ifdef __cplusplus
}
#endif

#endif
