#include "SP/server/SPAccessControlInfo.h"

#include <cstdlib>
#include <cstring>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"

namespace {

constexpr char kMutexName[] = "SP_ACL_MUTEX";

bool sameText(const std::string& a, const char* b) { return b != nullptr && a == b; }

void logExistingAndNew(const SPAclEntry* e, const char* mac, const char* ip) {
    DLNA_LOG_I(DLNA_SP_TAG, "Existing IP = [%s], New IP  = [%s]\n Existing MAC = [%s], New Mac  = [%s]",
               e->m_sIpAddr.c_str(), ip, e->m_sMacAddr.c_str(), mac);
}

}  // namespace

// Holds "SP_ACL_MUTEX" for one list operation. When the mutex is missing or
// cannot be taken the operation is refused rather than run unprotected: a
// phone is then turned away, which the push server reports, instead of two
// threads changing the list at once.
class SPAccessControlInfo::Lock {
public:
    explicit Lock(ZEB_MUTEX mutex) : m_hMutex(mutex) {
        if (m_hMutex == nullptr) {
            DLNA_LOG_E(DLNA_SP_TAG, "%s does not exist: list access refused", kMutexName);
            return;
        }
        const ZEB_ERROR_CODE rc = ZEBAcquireMutex(m_hMutex);
        if (rc != 0) {
            DLNA_LOG_E(DLNA_SP_TAG, "ZEBAcquireMutex(%s) failed (%d): list access refused", kMutexName, rc);
            return;
        }
        m_bHeld = true;
    }
    ~Lock() {
        if (!m_bHeld) return;
        const ZEB_ERROR_CODE rc = ZEBReleaseMutex(m_hMutex);
        if (rc != 0) DLNA_LOG_E(DLNA_SP_TAG, "ZEBReleaseMutex(%s) failed (%d)", kMutexName, rc);
    }
    bool held() const { return m_bHeld; }

private:
    ZEB_MUTEX m_hMutex;
    bool m_bHeld = false;
};

// Each list has its own handle of the stack's mutex: the push server owns the
// one list of the process, and a list deleting its mutex can never pull it
// from under another list's feet.
SPAccessControlInfo::SPAccessControlInfo()
    : m_iMode(SP_ACL_MODE_FIXED), m_pBuffer(nullptr), m_iReserved(0), m_hMutex(nullptr) {
    DLNA_LOG_I(DLNA_SP_TAG, "Enter");
    const ZEB_ERROR_CODE rc = ZEBCreateMutex(&m_hMutex, kMutexName);
    if (rc != 0 || m_hMutex == nullptr) {
        DLNA_LOG_E(DLNA_SP_TAG, "ZEBCreateMutex(%s) failed (%d): no phone can be admitted", kMutexName, rc);
        m_hMutex = nullptr;
    }
    // The process-wide access-control setting is handed to the list here; the
    // list works in its one fixed mode whatever the setting says.
    setMode(static_cast<SPAclMode>(GetACLMode()));
}

SPAccessControlInfo::~SPAccessControlInfo() { terminateACL(); }

std::vector<SPAclEntry*>* SPAccessControlInfo::listFor(SPAclType type) {
    switch (type) {
        case SP_ACL_ACCESS_LIST: return &m_AccessList;
        case SP_ACL_DENIED_LIST: return &m_DeniedList;
        case SP_ACL_THIRD_LIST: return &m_ThirdList;
    }
    return nullptr;
}

std::atomic<int>* SPAccessControlInfo::countFor(SPAclType type) {
    switch (type) {
        case SP_ACL_ACCESS_LIST: return &m_nAccessCount;
        case SP_ACL_DENIED_LIST: return &m_nDeniedCount;
        case SP_ACL_THIRD_LIST: return &m_nThirdCount;
    }
    return nullptr;
}

int SPAccessControlInfo::validateACLInput(const char* mac, const char* ip, const char* name) {
    if (mac != nullptr && ip != nullptr && name != nullptr) return 1;
    DLNA_LOG_I(DLNA_SP_TAG, "[AccessControlInfo::ValidateACLInput] Input Variables are Invalid");
    return 0;
}

int SPAccessControlInfo::addEntry(SPAclType type, const char* mac, const char* ip, const char* name, int port) {
    if (type != SP_ACL_ACCESS_LIST) {
        DLNA_LOG_I(DLNA_SP_TAG, "Incorrect ACL Type selected. Failed to create the Access Entry");
        return -1;
    }
    if (!validateACLInput(mac, ip, name)) return -1;
    Lock lock(m_hMutex);
    if (!lock.held()) return -1;

    for (const SPAclEntry* e : m_AccessList) {
        if (e == nullptr) continue;
        const bool sameMac = e->m_sMacAddr == mac;
        const bool sameIp = e->m_sIpAddr == ip;
        if (sameMac && sameIp) {
            DLNA_LOG_I(DLNA_SP_TAG, "Same Entry exists ");
            logExistingAndNew(e, mac, ip);
            return 1;
        }
        if (sameMac || sameIp) {
            logExistingAndNew(e, mac, ip);
            return -1;
        }
    }
    if (static_cast<int>(m_AccessList.size()) > kMaxAccessEntries - 1) {
        DLNA_LOG_E(DLNA_SP_TAG, "Cannot add new clients !!! Maximum clients connected !!! ");
        return -1;
    }
    DLNA_LOG_I(DLNA_SP_TAG, "ADD to List!!!");
    SPAclEntry* entry = new SPAclEntry{ip, mac, port};
    DLNA_LOG_I(DLNA_SP_TAG, "MAC = %s, ipaddr = %s, port = %d", entry->m_sMacAddr.c_str(), entry->m_sIpAddr.c_str(),
               entry->m_iPort);
    m_AccessList.push_back(entry);
    m_nAccessCount.store(static_cast<int>(m_AccessList.size()));
    return 0;
}

int SPAccessControlInfo::deleteEntry(SPAclType type, const char* mac, const char*, const char*) {
    const char* notFound = nullptr;
    if (type == SP_ACL_ACCESS_LIST) {
        notFound = "Unable to find the entry from the access list  !!!";
    } else if (type == SP_ACL_DENIED_LIST) {
        notFound = "Unable to find the entry from Denied list  !!!";
    } else {
        DLNA_LOG_I(DLNA_SP_TAG, "UNSUPPORTED ACL Type !!!");
        return -1;
    }
    Lock lock(m_hMutex);
    if (!lock.held()) return -1;

    std::vector<SPAclEntry*>& list = *listFor(type);
    for (auto it = list.begin(); mac != nullptr && it != list.end(); ++it) {
        SPAclEntry* e = *it;
        if (e == nullptr) continue;
        DLNA_LOG_I(DLNA_SP_TAG, "MAC Address = %s, Request to delete MAC = %s", e->m_sMacAddr.c_str(), mac);
        if (e->m_sMacAddr == mac) {
            list.erase(it);
            delete e;
            countFor(type)->store(static_cast<int>(list.size()));
            DLNA_LOG_I(DLNA_SP_TAG, "DELETED from the List!!!");
            return 0;
        }
    }
    DLNA_LOG_I(DLNA_SP_TAG, "%s", notFound);
    return -1;
}

int SPAccessControlInfo::findEntry(SPAclType type, const char* mac) {
    if (type != SP_ACL_ACCESS_LIST && type != SP_ACL_DENIED_LIST) return 0;
    Lock lock(m_hMutex);
    if (!lock.held()) return 0;
    for (const SPAclEntry* e : *listFor(type))
        if (e != nullptr && sameText(e->m_sMacAddr, mac)) return 1;
    return 0;
}

int SPAccessControlInfo::getEntrySize(SPAclType type) {
    switch (type) {
        case SP_ACL_ACCESS_LIST:
        case SP_ACL_DENIED_LIST:  // the access list's count, as the server has always read it
            return m_nAccessCount.load();
        case SP_ACL_THIRD_LIST:
            return m_nThirdCount.load();
    }
    return 0;
}

SPAclEntry* SPAccessControlInfo::getEntry(SPAclType type, int index) {
    std::vector<SPAclEntry*>* list = listFor(type);
    if (list == nullptr) return nullptr;
    Lock lock(m_hMutex);
    if (!lock.held()) return nullptr;
    if (index < 0 || static_cast<size_t>(index) >= list->size()) return nullptr;
    return list->at(static_cast<size_t>(index));
}

SPAclEntry* SPAccessControlInfo::getEntryByMac(SPAclType type, const char* mac) {
    std::vector<SPAclEntry*>* list = listFor(type);
    if (list == nullptr) return nullptr;
    Lock lock(m_hMutex);
    if (!lock.held()) return nullptr;
    for (SPAclEntry* e : *list) {
        if (e == nullptr) continue;
        DLNA_LOG_I(DLNA_SP_TAG, "MAC Address = %s", e->m_sMacAddr.c_str());
        if (sameText(e->m_sMacAddr, mac)) return e;
    }
    return nullptr;
}

int SPAccessControlInfo::addDeniedEntry(const char* mac, const char* ip, int port) {
    if (!validateACLInput(mac, ip, "phone")) return -1;
    Lock lock(m_hMutex);
    if (!lock.held()) return -1;
    for (const SPAclEntry* e : m_DeniedList)
        if (e != nullptr && e->m_sMacAddr == mac) return 1;
    if (static_cast<int>(m_DeniedList.size()) >= kMaxDeniedEntries) {
        delete m_DeniedList.front();
        m_DeniedList.erase(m_DeniedList.begin());
    }
    DLNA_LOG_I(DLNA_SP_TAG, "ADD to Denied List!!! MAC = %s, ipaddr = %s, port = %d", mac, ip, port);
    m_DeniedList.push_back(new SPAclEntry{ip, mac, port});
    m_nDeniedCount.store(static_cast<int>(m_DeniedList.size()));
    return 0;
}

int SPAccessControlInfo::getMode() { return m_iMode; }

int* SPAccessControlInfo::getNewDeviceIndex(int* index) { return index; }

int SPAccessControlInfo::setMode(SPAclMode) { return 0; }
int SPAccessControlInfo::savetoFile(const char*) { return 0; }
int SPAccessControlInfo::loadFromFile(const char*) { return 0; }
int SPAccessControlInfo::swapEntry(SPAclType, int, int) { return 0; }
int SPAccessControlInfo::addEntryWithOutLock(SPAclType, const char*, const char*, const char*, int) { return 0; }
int SPAccessControlInfo::deleteEntryWithOutLock(SPAclType, const char*, const char*, const char*) { return 0; }
int SPAccessControlInfo::getEventNotificationType() { return 0; }

void SPAccessControlInfo::terminateACL() {
    auto deleteEntries = [this] {
        for (std::vector<SPAclEntry*>* list : {&m_AccessList, &m_DeniedList, &m_ThirdList}) {
            for (SPAclEntry*& e : *list) {
                delete e;
                e = nullptr;  // the slot stays, empty, so nothing can reach a deleted entry
            }
        }
    };
    if (m_hMutex != nullptr) {
        // The entries go even when the lock cannot be had: the list is being
        // torn down and must not leak them.
        Lock lock(m_hMutex);
        deleteEntries();
    } else {
        deleteEntries();  // no mutex (never created, or already deleted): nobody else can hold the list
    }
    free(m_pBuffer);
    m_pBuffer = nullptr;
    if (m_hMutex != nullptr) {
        const ZEB_ERROR_CODE rc = ZEBDeleteMutex(m_hMutex);
        if (rc != 0) DLNA_LOG_E(DLNA_SP_TAG, "ZEBDeleteMutex(%s) failed (%d)", kMutexName, rc);
        m_hMutex = nullptr;
    }
}
