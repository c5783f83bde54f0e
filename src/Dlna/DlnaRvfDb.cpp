// The media-browsing mode's database of the card: built by the detached
// "DlnaDBThread" on camera event 40, cancelled by DlnaDBCancel.
//
// Lifetime: the thread owns its path strings and otherwise touches only
// process-lifetime state (the flags and counters here, the UI callback slot,
// the closed libraries' singletons). The terminates cancel a running build
// and wait until the thread has finished, and further until its kernel task
// is gone, so no database thread outlives a terminate.
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaLog.h"
#include "Dlna/DlnaPath.h"
#include "Dlna/Dlna_RVF_interface.h"
#include "rvf_lib.h"
#include "zeb_stack.h"

std::atomic<bool> gDBCancelled{false};
std::atomic<int> gDBThreadFinishWaitMs{30000};

namespace {

const char* const kRvfDatabase = "/mnt/mmc/config/RVF/media.db";
const char* const kRvfMediaRoot = "/mnt/mmc/DCIM";
// Share status the browsing mode marks every item with.
constexpr int kRvfShareStatus = 8;

// Final reports of a build (event 92).
enum { kBuildReady = 0, kBuildFailed = 1, kBuildCancelled = 2 };

// How often a terminate repeats the cancel while it waits for a build (a
// cancel that reaches the thread before its start is forgotten by the start).
constexpr auto kCancelRepeat = std::chrono::milliseconds(100);

struct DbThreadArgs {
    std::string dbPath;     // the database file
    std::string mediaRoot;  // the card's DCF root
};

// Bookkeeping of the database threads. Never destroyed: a thread still
// finishing while the process exits must not find it gone.
struct DbThreads {
    std::mutex lock;
    std::condition_variable done;
    int running = 0;
    // Kernel task ids of threads that finished their work but may not have
    // left the kernel yet.
    std::vector<pid_t> exiting;
};

DbThreads& dbThreads() {
    static DbThreads* threads = new DbThreads;
    return *threads;
}
// Set on a database thread: a terminate called from its UI event must not
// wait for the thread it runs on.
thread_local bool tOnDbThread = false;

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

bool taskGone(pid_t tid) {
    struct stat st;
    return stat(("/proc/self/task/" + std::to_string(tid)).c_str(), &st) != 0;
}

void sendBuildResult(int result) {
    // The int lives on this thread's stack for the duration of the callback.
    RVFSendEventToUI(kRvfEventDBFinished, &result, static_cast<int>(sizeof result));
}

// The stale or outdated parts of an existing database go before the parse.
// false when the database could not be opened or removed.
bool prepareDatabase(const std::string& db, const std::string& root) {
    if (!fileExists(db)) {
        ZEBCreateDirectoryStructure(db.c_str());
    } else {
        DataBaseMgr* mgr = DataBaseMgr::GetInstance();
        if (mgr == nullptr || !mgr->OpenDB(db.c_str())) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] OpenDB fail 111. ");
            DataBaseMgr::DestroyInstance();
            return false;
        }
        bool outdated = mgr->NeedToDeleteDB(root.c_str());
        DataBaseMgr::DestroyInstance();
        if (outdated) {
            if (ZEBRemoveFile(db.c_str()) != 0) {
                DLNA_LOG_E_LOGONLY(DLNA_TAG, "[DlnaDmsStartThread] ZEBRemoveFile fail 222. ");
                return false;
            }
            DcfFileInfoVector::DestroyInstance();
        }
    }
    std::string journal = db + "-journal";
    if (fileExists(journal)) {
        ZEBRemoveFile(journal.c_str());
        DLNA_LOG_I(DLNA_TAG, " Remove DB journal file : %s", journal.c_str());
    }
    return true;
}

// Steps of a build up to the parse and the share marking; kBuildReady or
// kBuildFailed.
int buildDatabase(const std::string& db, const std::string& root) {
    if (!prepareDatabase(db, root)) return kBuildFailed;
    int count = 0;
    if (parseMediaFilesDcfDB(root.c_str(), db.c_str(), &count) == 0) return kBuildReady;
    DataBaseMgr* mgr = DataBaseMgr::GetInstance();
    if (mgr == nullptr || !mgr->OpenDB(db.c_str())) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "OpenDB fail 444. ");
        DataBaseMgr::DestroyInstance();
        return kBuildFailed;
    }
    if (!mgr->UpdateShareStatus(GetSelectImagePath(), kRvfShareStatus))
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "UpdateShareStatus fail 555. ");
    DataBaseMgr::DestroyInstance();
    return kBuildReady;
}

void* DlnaDBThread(void* arg) {
    std::unique_ptr<DbThreadArgs> args(static_cast<DbThreadArgs*>(arg));
    tOnDbThread = true;
    prctl(PR_SET_NAME, "DlnaDBThread", 0, 0, 0);
    gDBCancelled = false;
    DLNA_LOG_I(DLNA_TAG, "[DlnaDBThread] start...[%s]...[%s]", args->dbPath.c_str(), args->mediaRoot.c_str());
    RVFSendEventToUI(kRvfEventDBStarted, nullptr, 0);
    int result = buildDatabase(args->dbPath, args->mediaRoot);
    args.reset();
    if (result == kBuildReady && gDBCancelled) {
        DLNA_LOG_I(DLNA_TAG, "Cancel event to UI... ");
        result = kBuildCancelled;
    }
    sendBuildResult(result);
    DLNA_LOG_I(DLNA_TAG, "[DlnaDBThread] return");
    DbThreads& t = dbThreads();
    std::lock_guard<std::mutex> g(t.lock);
    --t.running;
    t.exiting.push_back(static_cast<pid_t>(syscall(SYS_gettid)));
    t.done.notify_all();
    return nullptr;
}

// The cancel calls of DlnaDBCancel. The flag is raised before the first of
// them: an interrupted parse returns at once, and the thread must find the
// flag set when it decides its report.
void cancelBuild() {
    gDBCancelled = true;
    DcfFileInfoVector::GetInstance()->CancelInvalidateAllItems();
    if (DataBaseMgr* mgr = DataBaseMgr::GetInstance()) mgr->CancelInvalidateAllItems();
    if (DirectoryScanner* scanner = DirectoryScanner::GetInstance()) scanner->CancelScanDirectory();
    DcfFileInfoVector::DestroyInstance();
}

// Creates the detached thread; the caller holds the threads' lock.
void launchLocked(DbThreadArgs* args) {
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR: pthread_attr_init() failed: ");
        delete args;
        return;
    }
    if (pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) != 0) {
        DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR:pthread_attr_setdetachstate() failed: ");
        delete args;
    } else {
        pthread_t thread;
        int err = pthread_create(&thread, &attr, DlnaDBThread, args);
        if (err != 0) {
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "ERR:pthread_create() failed: errno=%d (%s) ", err, strerror(err));
            delete args;
        } else {
            ++dbThreads().running;
        }
    }
    if (pthread_attr_destroy(&attr) != 0) perror("ERR: [DlnaSmartphoneLinkStart] pthread_attr_destroy() failed: ");
}

}  // namespace

int RvfStartDBThread() {
    DLNA_LOG_I(DLNA_TAG, "Enter");
    // Paths are fixed here, on the caller's thread; the thread frees them.
    DbThreadArgs* args = new DbThreadArgs{DlnaFixedPath(kRvfDatabase), DlnaFixedPath(kRvfMediaRoot)};
    {
        DbThreads& t = dbThreads();
        std::lock_guard<std::mutex> g(t.lock);
        t.exiting.erase(std::remove_if(t.exiting.begin(), t.exiting.end(), taskGone), t.exiting.end());
        // A terminate that already waited for the builds must not find a
        // new one started behind it.
        if (gRVFTerminated) {
            DLNA_LOG_I(DLNA_TAG, "terminated: no database build");
            delete args;
        } else {
            launchLocked(args);
        }
    }
    DLNA_LOG_I(DLNA_TAG, "Exit");
    return 1;
}

void RvfFinishDBThreads() {
    const int own = tOnDbThread ? 1 : 0;
    const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
    DbThreads& t = dbThreads();
    std::unique_lock<std::mutex> l(t.lock);
    // Bounded: a build that cannot end (a UI callback that does not return)
    // must not hold the terminate for ever.
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(gDBThreadFinishWaitMs.load());
    while (t.running > own) {
        if (std::chrono::steady_clock::now() >= giveUp) {
            // Left running, it touches nothing that the terminate frees; it
            // ends with the cancelled report, which the UI no longer hears.
            DLNA_LOG_E_LOGONLY(DLNA_TAG, "DlnaDBThread still running");
            return;
        }
        l.unlock();
        cancelBuild();
        l.lock();
        t.done.wait_for(l, kCancelRepeat, [&t, own] { return t.running <= own; });
    }
    std::vector<pid_t> exiting;
    exiting.swap(t.exiting);
    l.unlock();
    // Their work is done; what is left is the kernel's part of the exit.
    for (pid_t tid : exiting)
        for (int i = 0; tid != self && i < 1000 && !taskGone(tid); ++i) usleep(1000);
}

extern "C" int DlnaDBCancel(void) {
    DLNA_LOG_I(DLNA_TAG, " ENTER");
    cancelBuild();
    return 1;
}
