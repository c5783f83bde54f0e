// The push server's access-control list: the phones it has admitted (at most
// 10) and those it has refused, each known by its MAC and IP address. Every
// list access runs under the DLNA stack's "SP_ACL_MUTEX", so the server
// thread and the API threads may use one list at once.
#ifndef CAMWIFI_SP_ACCESS_CONTROL_INFO_H
#define CAMWIFI_SP_ACCESS_CONTROL_INFO_H

#include <atomic>
#include <string>
#include <vector>

#include "zeb_stack.h"

// Which list an operation works on. Callers pass plain numbers, so the
// underlying type is fixed: any int is a valid (possibly unknown) type.
enum SPAclType : int {
    SP_ACL_ACCESS_LIST = 0,  // admitted phones
    SP_ACL_DENIED_LIST = 1,  // refused phones
    SP_ACL_THIRD_LIST = 2,   // counted by getEntrySize only; nothing fills it
};

// The list's mode; this list always works in mode 2.
enum SPAclMode : int {
    SP_ACL_MODE_FIXED = 2,
};

// One phone of a list. Written by the list when the phone is added; read by
// the push server (data server address and port of an admitted phone).
struct SPAclEntry {
    std::string m_sIpAddr;   // the phone's IPv4 address, dotted quad
    std::string m_sMacAddr;  // the phone's MAC address, lower-case colon-separated hex (compared exactly)
    int m_iPort;             // port of the phone's data server
};

class SPAccessControlInfo {
public:
    // Most phones the access list admits at once.
    static constexpr int kMaxAccessEntries = 10;
    // Most phones the denied list remembers; the oldest is forgotten first.
    static constexpr int kMaxDeniedEntries = 10;

    // Empty lists, mode 2; creates the "SP_ACL_MUTEX" mutex. The access-
    // control setting (GetACLMode) is handed over here.
    SPAccessControlInfo();
    // terminateACL(), then the lists' storage goes.
    ~SPAccessControlInfo();

    SPAccessControlInfo(const SPAccessControlInfo&) = delete;
    SPAccessControlInfo& operator=(const SPAccessControlInfo&) = delete;

    // 1 when all three texts are non-null, else 0 (logged).
    int validateACLInput(const char* mac, const char* ip, const char* name);

    // Access list only. 0 added, 1 the same MAC and IP are there already,
    // -1 refused: the MAC or the IP is there with another partner, the list
    // is full, another list type, or the list could not be locked.
    int addEntry(SPAclType type, const char* mac, const char* ip, const char* name, int port);
    // Removes the phone with this MAC from the access or denied list (the IP
    // and name are not looked at). 0 deleted, -1 not found, bad type, or
    // the list could not be locked.
    int deleteEntry(SPAclType type, const char* mac, const char* ip, const char* name);
    // 1 when the access or denied list holds this MAC (exact text), else 0.
    int findEntry(SPAclType type, const char* mac);
    // Number of entries. The denied list's count is the access list's: the
    // push server has always read it this way. Read without the lock.
    int getEntrySize(SPAclType type);
    // The entry at index, or null when index is out of range. The entry
    // stays valid until it is deleted from its list.
    SPAclEntry* getEntry(SPAclType type, int index);
    // The first entry with this MAC, or null.
    SPAclEntry* getEntryByMac(SPAclType type, const char* mac);

    // Remembers a refused phone on the denied list (the only way onto it).
    // 0 added, 1 its MAC is there already, -1 bad input or no lock. A full
    // list forgets its oldest phone, so refusals never pile up.
    int addDeniedEntry(const char* mac, const char* ip, int port);

    int getMode();                       // always 2
    int* getNewDeviceIndex(int* index);  // returns index unchanged

    // Kept for the list's callers; they do nothing and return 0 (the list
    // lives in memory only and never changes mode).
    int setMode(SPAclMode mode);
    int savetoFile(const char* path);
    int loadFromFile(const char* path);
    int swapEntry(SPAclType type, int first, int second);
    int addEntryWithOutLock(SPAclType type, const char* mac, const char* ip, const char* name, int port);
    int deleteEntryWithOutLock(SPAclType type, const char* mac, const char* ip, const char* name);
    int getEventNotificationType();

    // Deletes every entry of the three lists (their slots stay, so the sizes
    // do not change), frees the buffer and deletes the mutex. Only the
    // destructor may follow; a second call does nothing more.
    void terminateACL();

private:
    class Lock;
    std::vector<SPAclEntry*>* listFor(SPAclType type);
    std::atomic<int>* countFor(SPAclType type);

    std::vector<SPAclEntry*> m_AccessList;  // admitted phones, arrival order; owns the entries
    std::vector<SPAclEntry*> m_DeniedList;  // refused phones, arrival order; owns the entries
    std::vector<SPAclEntry*> m_ThirdList;   // never filled; counted by getEntrySize(2)
    int m_iMode;                            // 2
    char* m_pBuffer;                        // malloc'd buffer freed by terminateACL; nothing fills it
    [[maybe_unused]] int m_iReserved;       // 0, unread
    ZEB_MUTEX m_hMutex;                     // "SP_ACL_MUTEX"; null when not created or deleted
    // Slot counts mirrored for getEntrySize, which reads them without the lock.
    std::atomic<int> m_nAccessCount{0};
    std::atomic<int> m_nDeniedCount{0};
    std::atomic<int> m_nThirdCount{0};
};

#endif
