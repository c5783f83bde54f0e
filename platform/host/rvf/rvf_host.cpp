// Host stand-in of the viewfinder library: service start and stop, the event
// flag word, the notifications to the phone, the camera state it keeps, the
// setting classes and the streaming side with its two semaphores.
#include <semaphore.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "host_internal.h"
#include "host_rvf.h"
#include "rvf_lib.h"

sem_t* g_RVFsemBufferReady4Read = nullptr;
sem_t* g_RVFsemBufferReadComplete = nullptr;

namespace {

// Largest buffer the reader copies (a live-view frame is far smaller).
constexpr long long kMaxCopied = 16 * 1024 * 1024;

struct RvfState {
    std::mutex lock;
    std::condition_variable flagChanged;
    bool running = false;
    // Event flag word: exists from StartRVFDevice to RVFAppSemaphoreDestory.
    bool flagExists = false;
    unsigned int flags = 0;
    int flagWaiters = 0;
    // Stream semaphores of the next start, values at the last release.
    bool createReady4Read = true;
    bool createReadComplete = true;
    host::rvf::SemaphoreValues atRelease;
    // Streaming side: the buffer handed over and not yet taken.
    void* buffer = nullptr;
    long long size = 0;
    bool streamingStop = false;
    std::vector<std::string> buffersRead;
    std::condition_variable bufferRead;
    // The reader thread; its own stop flag.
    std::thread reader;
    std::atomic<bool> readerStop{false};
    // Camera state the service keeps.
    std::atomic<int> streamingStopStatus{0};
};

RvfState& state() {
    static RvfState* s = new RvfState;  // outlives every thread of the process
    return *s;
}

const char* orNull(const char* s) { return s ? s : "(null)"; }

// Joins the reader; called without the state lock.
void stopReaderThread() {
    RvfState& s = state();
    std::thread reader;
    {
        std::lock_guard<std::mutex> g(s.lock);
        reader.swap(s.reader);
    }
    if (!reader.joinable()) return;
    s.readerStop = true;
    reader.join();
}

int semaphoreValue(sem_t* sem) {
    int v = -1;
    if (sem != nullptr) sem_getvalue(sem, &v);
    return v;
}

void releaseSemaphore(sem_t*& sem) {
    if (sem == nullptr) return;
    sem_destroy(sem);
    delete sem;
    sem = nullptr;
}

sem_t* newSemaphore() {
    sem_t* sem = new sem_t;
    sem_init(sem, 0, 0);
    return sem;
}

// Releases the flag word (waking its waiters) and both semaphores.
void releaseAll() {
    stopReaderThread();
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.flagExists = false;
    s.flags = 0;
    s.flagChanged.notify_all();
    s.atRelease.ready4Read = semaphoreValue(g_RVFsemBufferReady4Read);
    s.atRelease.readComplete = semaphoreValue(g_RVFsemBufferReadComplete);
    releaseSemaphore(g_RVFsemBufferReady4Read);
    releaseSemaphore(g_RVFsemBufferReadComplete);
}

void resetRvf() {
    releaseAll();
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.running = false;
    s.createReady4Read = true;
    s.createReadComplete = true;
    s.atRelease = host::rvf::SemaphoreValues();
    s.buffer = nullptr;
    s.size = 0;
    s.streamingStop = false;
    s.buffersRead.clear();
    s.streamingStopStatus = 0;
}

const bool registered = (host::addResetHook(resetRvf), true);

// The service writes its description and icons here.
void makeDescriptionFolder() {
    const char* root = getenv("CAMWIFI_ROOT");
    std::error_code ec;
    std::filesystem::create_directories(std::string(root ? root : "") + "/mnt/mmc/config/RVF/xml", ec);
}

// One reader pass: takes the buffer handed over, if any. true when it should
// answer with read-complete.
bool takeBuffer(RvfState& s) {
    std::lock_guard<std::mutex> g(s.lock);
    if (s.buffer == nullptr) return false;  // a wake-up without a buffer
    if (!s.streamingStop) {
        long long n = s.size < 0 ? 0 : (s.size > kMaxCopied ? kMaxCopied : s.size);
        s.buffersRead.emplace_back(static_cast<const char*>(s.buffer), static_cast<size_t>(n));
        s.bufferRead.notify_all();
    }
    s.buffer = nullptr;
    s.size = 0;
    return true;
}

void readerLoop(host::rvf::Reader mode) {
    RvfState& s = state();
    while (!s.readerStop) {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_nsec += 20 * 1000000L;
        if (until.tv_nsec >= 1000000000L) {
            until.tv_sec += 1;
            until.tv_nsec -= 1000000000L;
        }
        if (sem_timedwait(g_RVFsemBufferReady4Read, &until) != 0) continue;
        bool answer = takeBuffer(s);
        if (answer && mode == host::rvf::Reader::KeepsUp && g_RVFsemBufferReadComplete != nullptr)
            sem_post(g_RVFsemBufferReadComplete);
    }
}

int simpleResult(const char* fn) { return static_cast<int>(host::scriptedOr(fn, 0)); }

}  // namespace

// --- Test control --------------------------------------------------------------------------

namespace host {
namespace rvf {

bool running() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.running;
}

void createStreamSemaphores(bool ready4Read, bool readComplete) {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.createReady4Read = ready4Read;
    s.createReadComplete = readComplete;
}

SemaphoreValues semaphoreValuesAtRelease() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.atRelease;
}

int ready4ReadValue() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return semaphoreValue(g_RVFsemBufferReady4Read);
}

unsigned int eventFlags() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.flags;
}

void clearEventFlags() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.flags = 0;
}

int eventFlagWaiters() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.flagWaiters;
}

bool waitForEventFlagWaiters(int count, int timeoutMs) {
    RvfState& s = state();
    std::unique_lock<std::mutex> l(s.lock);
    return s.flagChanged.wait_for(l, std::chrono::milliseconds(timeoutMs), [&] { return s.flagWaiters >= count; });
}

void startReader(Reader mode) {
    stopReaderThread();
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    if (!s.running || g_RVFsemBufferReady4Read == nullptr) return;
    s.readerStop = false;
    s.reader = std::thread(readerLoop, mode);
}

void stopReader() { stopReaderThread(); }

std::vector<std::string> buffersRead() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.buffersRead;
}

bool waitForBuffersRead(std::size_t count, int timeoutMs) {
    RvfState& s = state();
    std::unique_lock<std::mutex> l(s.lock);
    return s.bufferRead.wait_for(l, std::chrono::milliseconds(timeoutMs),
                                 [&] { return s.buffersRead.size() >= count; });
}

bool streamingStopped() {
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    return s.streamingStop;
}

}  // namespace rvf
}  // namespace host

// --- Service lifecycle ---------------------------------------------------------------------

int StartRVFDevice(RVF_SERVICE_CALLBACK callback) {
    host::journal("StartRVFDevice(%p)", reinterpret_cast<void*>(callback));
    long long scripted;
    if (host::takeScriptedResult("StartRVFDevice", &scripted) && scripted != 0) return static_cast<int>(scripted);
    RvfState& s = state();
    {
        std::lock_guard<std::mutex> g(s.lock);
        if (s.running) return 1;  // one service at a time
    }
    makeDescriptionFolder();
    std::lock_guard<std::mutex> g(s.lock);
    // What a terminate left behind is released before the new service's.
    releaseSemaphore(g_RVFsemBufferReady4Read);
    releaseSemaphore(g_RVFsemBufferReadComplete);
    if (s.createReady4Read) g_RVFsemBufferReady4Read = newSemaphore();
    if (s.createReadComplete) g_RVFsemBufferReadComplete = newSemaphore();
    s.flagExists = true;
    s.flags = 0;
    s.running = true;
    s.streamingStop = false;
    s.buffer = nullptr;
    s.streamingStopStatus = 0;
    return 0;
}

int terminateRVF(void) {
    host::journal("terminateRVF()");
    stopReaderThread();
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.running = false;
    return 0;
}

void RVFAppSemaphoreDestory(void) {
    host::journal("RVFAppSemaphoreDestory()");
    releaseAll();
}

// --- Event flag word ---------------------------------------------------------------------------

int RVFAppSetEventFlag(unsigned int bits) {
    host::journal("RVFAppSetEventFlag(%u)", bits);
    if (host::scriptedOr("RVFAppSetEventFlag", 1) == 0) return 0;
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    if (!s.flagExists) return 0;
    s.flags |= bits;
    s.flagChanged.notify_all();
    return 1;
}

int RVFAppReceiveEventFlag(unsigned int mask, unsigned int* bits) {
    host::journal("RVFAppReceiveEventFlag(%u)", mask);
    if (host::scriptedOr("RVFAppReceiveEventFlag", 1) == 0) return 0;
    long long scripted;
    if (host::takeScriptedResult("RVFAppReceiveEventFlag.bits", &scripted)) {
        if (bits != nullptr) *bits = static_cast<unsigned int>(scripted);
        return 1;
    }
    RvfState& s = state();
    std::unique_lock<std::mutex> l(s.lock);
    ++s.flagWaiters;
    s.flagChanged.notify_all();
    s.flagChanged.wait(l, [&] { return !s.flagExists || (s.flags & mask) != 0; });
    --s.flagWaiters;
    if (!s.flagExists) return 0;
    if (bits != nullptr) *bits = s.flags & mask;
    return 1;
}

int RVFAppClearEventFlag(unsigned int bits) {
    host::journal("RVFAppClearEventFlag(%u)", bits);
    if (host::scriptedOr("RVFAppClearEventFlag", 1) == 0) return 0;
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    if (!s.flagExists) return 0;
    s.flags &= ~bits;
    return 1;
}

// --- Notifications to the phone --------------------------------------------------------------

#define RVF_HOST_TEXT_SEND(Name)                      \
    int Name(const char* text) {                      \
        host::journal(#Name "(%s)", orNull(text));    \
        return simpleResult(#Name);                   \
    }
#define RVF_HOST_NUMBER_SEND(Name)                    \
    int Name(int number) {                            \
        host::journal(#Name "(%d)", number);          \
        return simpleResult(#Name);                   \
    }

RVF_HOST_TEXT_SEND(RVFAppSendRotationEvent)
RVF_HOST_NUMBER_SEND(RVFAppSendFlashStatusEvent)
RVF_HOST_NUMBER_SEND(RVFAppSendAFModeEvent)
RVF_HOST_TEXT_SEND(RVFAppSendShutterSpeedEvent)
RVF_HOST_TEXT_SEND(RVFAppSendApertureEvent)
RVF_HOST_TEXT_SEND(RVFAppSendRemainShotCountEvent)
RVF_HOST_TEXT_SEND(RVFAppSendEVEvent)
RVF_HOST_TEXT_SEND(RVFAppSendShotResultURLEvent)
RVF_HOST_TEXT_SEND(RVFAppSendZoomStepEvent)
RVF_HOST_TEXT_SEND(RVFAppSendMoiveRecordTimeEvent)
RVF_HOST_TEXT_SEND(RVFAppSendOperationStateEvent)
RVF_HOST_TEXT_SEND(RVFAppSendRecordErrorEvent)
RVF_HOST_NUMBER_SEND(RVFAppSendStartMonitorEvent)
RVF_HOST_NUMBER_SEND(RVFAppUpdateServiceVariable)

int RVFAppSendMultipleAEEvent(void) {
    host::journal("RVFAppSendMultipleAEEvent()");
    return simpleResult("RVFAppSendMultipleAEEvent");
}

// --- Camera state ------------------------------------------------------------------------------

#define RVF_HOST_SET_TABLE(Name, Type)                          \
    int Name(Type* functions) {                                 \
        host::journal(#Name "(%p)", static_cast<void*>(functions)); \
        return static_cast<int>(host::scriptedOr(#Name, 1));    \
    }
RVF_HOST_SET_TABLE(CDSRVF_Set_Control_Function, RVF_CONTROL_FUNCTIONS)
RVF_HOST_SET_TABLE(CDSRVF_Set_Mpeg_Function, RVF_MPEG_FUNCTIONS)
RVF_HOST_SET_TABLE(CDSBM_Set_Control_Function, BM_CONTROL_FUNCTIONS)
RVF_HOST_SET_TABLE(CDSBM_Set_Mpeg_Function, BM_MPEG_FUNCTIONS)

void CDSRVF_Delete_Function(void) { host::journal("CDSRVF_Delete_Function()"); }
void CDSBM_Delete_Function(void) { host::journal("CDSBM_Delete_Function()"); }

void CDSRVF_Sysfunc_set_ImageInfo(unsigned int a, unsigned int b) {
    host::journal("CDSRVF_Sysfunc_set_ImageInfo(%u, %u)", a, b);
}
void CDSRVF_Sysfunc_set_FocusString(const char* focus) {
    host::journal("CDSRVF_Sysfunc_set_FocusString(%s)", orNull(focus));
}
void CDSRVF_Sysfunc_set_ShotStatus(int failed) { host::journal("CDSRVF_Sysfunc_set_ShotStatus(%d)", failed); }
void CDSRVF_Sysfunc_set_ratio_change_status(int changed) {
    host::journal("CDSRVF_Sysfunc_set_ratio_change_status(%d)", changed);
}
void CDSRVF_Sysfunc_set_RecordStatus(int error) { host::journal("CDSRVF_Sysfunc_set_RecordStatus(%d)", error); }
void CDSRVF_Sysfunc_set_RecordingStopTime(const char* time) {
    host::journal("CDSRVF_Sysfunc_set_RecordingStopTime(%s)", orNull(time));
}
void CDSRVF_Sysfunc_set_Isvideo_hotswap(bool hotswap) {
    host::journal("CDSRVF_Sysfunc_set_Isvideo_hotswap(%d)", hotswap ? 1 : 0);
}
void CDSRVF_Sysfunc_set_Streaming_stop_status(bool stopped) {
    host::journal("CDSRVF_Sysfunc_set_Streaming_stop_status(%d)", stopped ? 1 : 0);
    state().streamingStopStatus = stopped ? 1 : 0;
}
int CDSRVF_Sysfunc_get_Streaming_stop_status(void) {
    host::journal("CDSRVF_Sysfunc_get_Streaming_stop_status()");
    return state().streamingStopStatus;
}
void CDSRVF_Sysfunc_set_af_status(int status) { host::journal("CDSRVF_Sysfunc_set_af_status(%d)", status); }

// --- Streaming side ---------------------------------------------------------------------------

void RVFStreamingThruGet::setStreamingStop(bool stop) {
    host::journal("RVFStreamingThruGet::setStreamingStop(%d)", stop ? 1 : 0);
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.streamingStop = stop;
}

void RVFStreamingThruGet::setBufferPtr(void* buffer, long long size) {
    host::journal("RVFStreamingThruGet::setBufferPtr(%p, %lld)", buffer, size);
    RvfState& s = state();
    std::lock_guard<std::mutex> g(s.lock);
    s.buffer = buffer;
    s.size = size;
}

// --- Setting classes ----------------------------------------------------------------------------

#define RVF_HOST_INIT(Class, Name)                                                                            \
    void Class::setRVF##Name##InitValue(char* values, unsigned int param1, unsigned int param2,              \
                                        unsigned int current) {                                               \
        host::journal(#Class "::setRVF" #Name "InitValue(%s, %u, %u, %u)", orNull(values), param1, param2,   \
                      current);                                                                               \
    }                                                                                                         \
    void Class::deleteRVF##Name##InitValue(void) { host::journal(#Class "::deleteRVF" #Name "InitValue()"); }
#define RVF_HOST_MODE_INIT(Class, Name)                                                                       \
    void Class::setRVF##Name##InitValue(char* values, unsigned int param1, unsigned int param2,              \
                                        unsigned int current, int mode) {                                     \
        host::journal(#Class "::setRVF" #Name "InitValue(%s, %u, %u, %u, %d)", orNull(values), param1,       \
                      param2, current, mode);                                                                 \
    }
#define RVF_HOST_DISABLE(Class, Name)                                                                         \
    void Class::setRVF##Name##DisableValue(char* values, unsigned int param1, unsigned int param2,           \
                                           unsigned int current) {                                            \
        host::journal(#Class "::setRVF" #Name "DisableValue(%s, %u, %u, %u)", orNull(values), param1,        \
                      param2, current);                                                                       \
    }                                                                                                         \
    void Class::deleteRVF##Name##DisableValue(void) {                                                         \
        host::journal(#Class "::deleteRVF" #Name "DisableValue()");                                          \
    }

RVF_HOST_MODE_INIT(UPnPCDSRVFSetEV, EV)
void UPnPCDSRVFSetEV::deleteRVFEVInitValue(void) { host::journal("UPnPCDSRVFSetEV::deleteRVFEVInitValue()"); }
RVF_HOST_MODE_INIT(UPnPCDSRVFSetShutterSpeed, ShutterSpeed)
void UPnPCDSRVFSetShutterSpeed::deleteRVFShutterSpeedInitValue(int mode) {
    host::journal("UPnPCDSRVFSetShutterSpeed::deleteRVFShutterSpeedInitValue(%d)", mode);
}
RVF_HOST_MODE_INIT(UPnPCDSRVFSetAperture, Aperture)
void UPnPCDSRVFSetAperture::deleteRVFApertureInitValue(int mode) {
    host::journal("UPnPCDSRVFSetAperture::deleteRVFApertureInitValue(%d)", mode);
}
RVF_HOST_INIT(UPnPCDSRVFSetISO, ISO)
RVF_HOST_INIT(UPnPCDSRVFSetWhiteBalance, WhiteBalance)
RVF_HOST_INIT(UPnPCDSRVFSetMetering, Metering)
RVF_HOST_INIT(UPnPCDSRVFSetDrive, Drive)
RVF_HOST_INIT(UPnPCDSRVFSetMode, Mode)
RVF_HOST_INIT(UPnPCDSRVFSetFlash, Flash)
RVF_HOST_INIT(UPnPCDSRVFSetQuality, Quality)
RVF_HOST_INIT(UPnPCDSRVFSetMovieResolution, MovieResolution)
RVF_HOST_INIT(UPnPCDSRVFSetRatioOffset, RatioOffset)
RVF_HOST_INIT(UPnPCDSRVFSetStreamingQuality, StreamingQuality)
RVF_HOST_INIT(UPnPCDSRVFSetStreamingResolution, StreamingResolution)
RVF_HOST_INIT(UPnPCDSRVFSetResolution, Resolution)
RVF_HOST_DISABLE(UPnPCDSRVFSetResolution, Resolution)
RVF_HOST_INIT(UPnPCDSRVFSetFileSave, FileSave)
RVF_HOST_DISABLE(UPnPCDSRVFSetFileSave, FileSave)
RVF_HOST_INIT(UPnPCDSRVFSetTouchAFOption, TouchAFOption)
RVF_HOST_DISABLE(UPnPCDSRVFSetTouchAFOption, TouchAFOption)
RVF_HOST_INIT(UPnPCDSRVFSetAFArea, AFArea)
RVF_HOST_DISABLE(UPnPCDSRVFSetAFArea, AFArea)

void UPnPCDSRVFZoomStart::setRVFZoomLevel(int zoom1, int zoom2, int zoom3) {
    host::journal("UPnPCDSRVFZoomStart::setRVFZoomLevel(%d, %d, %d)", zoom1, zoom2, zoom3);
}
