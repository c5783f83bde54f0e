#include "rvf_fixture.h"

#include <sys/prctl.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "Dlna/Dlna_RVF_interface.h"
#include "host_control.h"

namespace rvftest {

namespace {

std::mutex gLock;
std::condition_variable gChanged;
std::vector<Event> gEvents;
std::atomic<void (*)(int)> gAction{nullptr};

}  // namespace

void noteEvent(int event, void* value, long long length) {
    char name[32] = {};
    prctl(PR_GET_NAME, name, 0, 0, 0);
    Event e{event, value != nullptr, 0, length, name};
    if (event == kRvfEventDBFinished && value != nullptr) e.intValue = *static_cast<int*>(value);
    {
        std::lock_guard<std::mutex> g(gLock);
        gEvents.push_back(e);
        gChanged.notify_all();
    }
    if (auto action = gAction.load()) action(event);
}

void setEventAction(void (*action)(int event)) { gAction = action; }

std::vector<Event> events() {
    std::lock_guard<std::mutex> g(gLock);
    return gEvents;
}

std::vector<int> eventIds() {
    std::vector<int> ids;
    for (const Event& e : events()) ids.push_back(e.id);
    return ids;
}

void clearEvents() {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.clear();
}

bool waitForEvent(int id, int timeoutMs) {
    std::unique_lock<std::mutex> l(gLock);
    return gChanged.wait_for(l, std::chrono::milliseconds(timeoutMs), [id] {
        for (const Event& e : gEvents)
            if (e.id == id) return true;
        return false;
    });
}

std::string pointerText(const void* p) {
    char text[32];
    snprintf(text, sizeof text, "%p", p);
    return text;
}

std::vector<std::string> journalOf(const std::vector<std::string>& prefixes) {
    std::vector<std::string> out;
    for (const std::string& e : host::journalEntries())
        for (const std::string& p : prefixes)
            if (e.compare(0, p.size(), p) == 0) {
                out.push_back(e);
                break;
            }
    return out;
}

void writeFile(const std::string& p, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(p).parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << bytes;
}

bool exists(const std::string& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0;
}

void RvfTest::SetUp() {
    host::reset();
    clearEvents();
    setEventAction(nullptr);
    setenv("CAMWIFI_ROOT", m_root.path().c_str(), 1);
    SetAllShareMode(0);
    SetSelectImagePath(nullptr);
    gDBCancelled = false;
}

void RvfTest::TearDown() {
    // Whatever mode a test left running is taken down (a no-op when stopped),
    // and a database thread still ending (one whose UI event terminated the
    // viewfinder on the thread itself) is waited for before the card goes.
    DlnaRVFTerminate();
    RvfFinishDBThreads();
    setEventAction(nullptr);
    host::reset();
    SetSelectImagePath(nullptr);
    unsetenv("CAMWIFI_ROOT");
}

void RvfTest::startViewfinder() {
    ASSERT_TRUE(DlnaRVFStart(recorder()));
    host::clearJournal();
    host::clearLog();
}

void RvfTest::startBrowsing() {
    ASSERT_TRUE(DlnaRVF_ML_FJ_Start(2, false, recorder()));
    host::clearJournal();
    host::clearLog();
}

void RvfTest::writeCard() {
    writeFile(dcim() + "/100CAMERA/DSC00001.JPG", "\xFF\xD8 first picture \xFF\xD9");
    writeFile(dcim() + "/100CAMERA/DSC00002.JPG", "\xFF\xD8 second picture \xFF\xD9");
    writeFile(dcim() + "/101CAMERA/MOV00003.MP4", "movie");
    writeFile(dcim() + "/100CAMERA/NOTES.TXT", "not a picture");
}

}  // namespace rvftest
