// Host stand-in of the DLNA stack's set-up, HTTP layer and media server
// application. The stack's background threads (its timer, the HTTP layer's
// asynchronous thread, the media server's timer) are real threads, so a test
// can see that every stop path really ends them.
#include <pthread.h>
#include <sys/stat.h>

#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host_internal.h"
#include "host_media.h"
#include "zeb_media_internal.h"
#include "zeb_stack.h"

namespace {

// One background thread of the stack: idles until stopped.
class Worker {
public:
    explicit Worker(const char* name) : m_name(name) {}

    void start() {
        std::lock_guard<std::mutex> g(m_lock);
        if (m_thread.joinable()) return;
        m_stop = false;
        m_thread = std::thread([this] {
            pthread_setname_np(pthread_self(), m_name);
            std::unique_lock<std::mutex> l(m_lock);
            m_wake.wait(l, [this] { return m_stop; });
        });
    }

    void stop() {
        std::thread t;
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_stop = true;
            t.swap(m_thread);
        }
        m_wake.notify_all();
        if (t.joinable()) t.join();
    }

    bool running() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_thread.joinable();
    }

    const char* name() const { return m_name; }

private:
    const char* m_name;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stop = false;
    std::thread m_thread;
};

struct DmsState {
    std::mutex lock;
    std::string configFile;  // set while the stack is initialised
    bool httpInitialised = false;
    bool dmsCreated = false;
    bool dmsStarted = false;
    bool certification = false;
    bool globalLockReleased = false;
    host::media::DmsConfig config;
    std::vector<std::pair<bool, std::string>> acl;
    // Never destroyed: stack threads may outlive main's statics.
    Worker* timer = new Worker("ZEBTimer");
    Worker* httpAsync = new Worker("ZEBHTTPAsync");
    Worker* dmsTimer = new Worker("DMSTimer");
};

DmsState& dms() {
    static DmsState* s = new DmsState;
    return *s;
}

void resetDms() {
    DmsState& s = dms();
    s.timer->stop();
    s.httpAsync->stop();
    s.dmsTimer->stop();
    std::lock_guard<std::mutex> g(s.lock);
    s.configFile.clear();
    s.httpInitialised = s.dmsCreated = s.dmsStarted = false;
    s.certification = false;
    s.globalLockReleased = false;
    s.config = host::media::DmsConfig();
    s.acl.clear();
}

const bool registered = (host::addResetHook(resetDms), true);

const char* orNull(const char* s) { return s ? s : "(null)"; }

ZEB_ERROR_CODE result(const char* fn, long long fallback = 0) {
    return static_cast<ZEB_ERROR_CODE>(host::scriptedOr(fn, fallback));
}

void setFlag(bool DmsState::*flag, bool value) {
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    s.*flag = value;
}

// A stop call: journalled, the thread really ended, scripted result or 0.
ZEB_ERROR_CODE stopWorker(const char* fn, Worker* worker) {
    host::journal("%s()", fn);
    worker->stop();
    return result(fn);
}

// Writes the server's device description when the folder has none, as the
// stack does when it creates the server, so that the friendly name can be
// read back from it.
void writeDeviceDescription(const std::string& dir) {
    if (dir.empty()) return;
    std::string path = dir + "/DeviceDescription.xml";
    struct stat st;
    if (stat(path.c_str(), &st) == 0) return;
    std::string name;
    if (!host::media::configValue("FriendlyName", &name)) name = "Camera";
    std::ofstream out(path);
    out << "<?xml version=\"1.0\"?>\n<root xmlns=\"urn:schemas-upnp-org:device-1-0\">\n<device>\n"
        << "<deviceType>urn:schemas-upnp-org:device:MediaServer:1</deviceType>\n"
        << "<friendlyName>" << name << "</friendlyName>\n</device>\n</root>\n";
}

}  // namespace

namespace host {
namespace media {

std::string configFilePath() {
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    return s.configFile;
}

std::vector<std::string> runningThreads() {
    DmsState& s = dms();
    std::vector<std::string> out;
    for (Worker* w : {s.timer, s.httpAsync, s.dmsTimer})
        if (w->running()) out.push_back(w->name());
    return out;
}

bool certificationState() {
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    return s.certification;
}

DmsConfig dmsConfig() {
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    return s.config;
}

bool globalEventLockReleased() {
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    return s.globalLockReleased;
}

}  // namespace media
}  // namespace host

extern "C" ZEB_ERROR_CODE ZEBInitializeZEB(const char* configFile) {
    host::journal("ZEBInitializeZEB(%s)", orNull(configFile));
    long long scripted;
    if (host::takeScriptedResult("ZEBInitializeZEB", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (configFile == nullptr) return 1;
    // The stack cannot come up without its configuration.
    std::ifstream probe(configFile);
    if (!probe) return 1;
    DmsState& s = dms();
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.configFile = configFile;
    }
    s.timer->start();
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBTerminateZEB(void) {
    ZEB_ERROR_CODE r = stopWorker("ZEBTerminateZEB", dms().timer);
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    s.configFile.clear();
    return r;
}

extern "C" ZEB_ERROR_CODE ZEBStopTimerThreadZEB(void) { return stopWorker("ZEBStopTimerThreadZEB", dms().timer); }

extern "C" ZEB_ERROR_CODE ZEBHTTPInitialize(void) {
    host::journal("ZEBHTTPInitialize()");
    long long scripted;
    if (host::takeScriptedResult("ZEBHTTPInitialize", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    setFlag(&DmsState::httpInitialised, true);
    dms().httpAsync->start();
    return 0;
}

extern "C" ZEB_ERROR_CODE ZEBHTTPTerminate(void) {
    ZEB_ERROR_CODE r = stopWorker("ZEBHTTPTerminate", dms().httpAsync);
    setFlag(&DmsState::httpInitialised, false);
    return r;
}

extern "C" ZEB_ERROR_CODE ZEBHTTPStopAsyncThread(void) {
    return stopWorker("ZEBHTTPStopAsyncThread", dms().httpAsync);
}

extern "C" ZEB_ERROR_CODE ZEBPauseHTTPMUServer(int profileId) {
    host::journal("ZEBPauseHTTPMUServer(%d)", profileId);
    return result("ZEBPauseHTTPMUServer");
}

extern "C" ZEB_ERROR_CODE ZEBResumeHTTPMUServer(int profileId) {
    host::journal("ZEBResumeHTTPMUServer(%d)", profileId);
    return result("ZEBResumeHTTPMUServer");
}

extern "C" void ZEBSetDlnaCertificationState(bool certification) {
    host::journal("ZEBSetDlnaCertificationState(%d)", certification ? 1 : 0);
    setFlag(&DmsState::certification, certification);
}

extern "C" ZEB_ERROR_CODE DMSAppInitialize(int* dmsHandle, stDMSAppConfig* config) {
    if (config == nullptr) {
        host::journal("DMSAppInitialize(null)");
        return 1;
    }
    host::journal("DMSAppInitialize(%s, %s, %s, %s, %d)", orNull(config->pDBFilePath),
                  orNull(config->pSharedFolderPath), orNull(config->pSharedFolderPath2),
                  orNull(config->pDescriptionDir), config->iHTTPStreamingPort);
    long long scripted;
    if (host::takeScriptedResult("DMSAppInitialize", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (dmsHandle == nullptr || config->pDBFilePath == nullptr || config->pSharedFolderPath == nullptr ||
        config->pDescriptionDir == nullptr)
        return 1;
    DmsState& s = dms();
    std::string dir = config->pDescriptionDir;
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.config.dbFilePath = config->pDBFilePath;
        s.config.sharedFolder = config->pSharedFolderPath;
        s.config.sharedFolder2 = config->pSharedFolderPath2 ? config->pSharedFolderPath2 : "";
        s.config.descriptionDir = dir;
        s.config.httpStreamingPort = config->iHTTPStreamingPort;
        s.dmsCreated = true;
    }
    // The stack keeps its description and icons in this folder.
    ZEBCreateDirectoryStructure((dir + "/DeviceDescription.xml").c_str());
    writeDeviceDescription(dir);
    *dmsHandle = 1;
    return 0;
}

extern "C" ZEB_ERROR_CODE DMSAppStart(unsigned int aclMode) {
    host::journal("DMSAppStart(%u)", aclMode);
    long long scripted;
    if (host::takeScriptedResult("DMSAppStart", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    DmsState& s = dms();
    {
        std::lock_guard<std::mutex> g(s.lock);
        if (!s.dmsCreated) return 1;
        s.dmsStarted = true;
    }
    s.dmsTimer->start();
    return 0;
}

extern "C" ZEB_ERROR_CODE DMSAppStop(void) {
    ZEB_ERROR_CODE r = stopWorker("DMSAppStop", dms().dmsTimer);
    setFlag(&DmsState::dmsStarted, false);
    return r;
}

extern "C" ZEB_ERROR_CODE DMSAppTerminate(void) {
    host::journal("DMSAppTerminate()");
    DmsState& s = dms();
    {
        std::lock_guard<std::mutex> g(s.lock);
        s.dmsCreated = false;
        s.acl.clear();
    }
    return result("DMSAppTerminate");
}

extern "C" ZEB_ERROR_CODE DMSAppStopTimerThread(void) { return stopWorker("DMSAppStopTimerThread", dms().dmsTimer); }

extern "C" ZEB_ERROR_CODE DMSAppSendAliveTemporary(void) {
    host::journal("DMSAppSendAliveTemporary()");
    return result("DMSAppSendAliveTemporary");
}

extern "C" ZEB_ERROR_CODE DmsAppACLAddEntry(bool allowed, const char* mac) {
    host::journal("DmsAppACLAddEntry(%d, %s)", allowed ? 1 : 0, orNull(mac));
    long long scripted;
    if (host::takeScriptedResult("DmsAppACLAddEntry", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (mac == nullptr) return 1;
    DmsState& s = dms();
    std::lock_guard<std::mutex> g(s.lock);
    s.acl.emplace_back(allowed, mac);
    return 0;
}

GlobalEventHandleLock* GlobalEventHandleLock::GetInstance() {
    static GlobalEventHandleLock instance;
    return &instance;
}

void GlobalEventHandleLock::ReleaseLock() {
    host::journal("GlobalEventHandleLock::ReleaseLock()");
    setFlag(&DmsState::globalLockReleased, true);
}
