#include "media_fixture.h"

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "Dlna/DlnaDms.h"
#include "Dlna/DlnaFrame.h"
#include "Dlna/DlnaStack.h"
#include "SP/osal/SPGenericThread.h"
#include "host_control.h"
#include "host_media.h"

namespace mediatest {

namespace {

std::mutex gLock;
std::condition_variable gChanged;
std::vector<Event> gEvents;

bool isFinal(const Event& e) { return e.first == 4 || (e.first == 6 && e.second != 0); }

std::string be32(uint32_t v) {
    return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}
std::string box(const char* type, const std::string& payload) {
    return be32(static_cast<uint32_t>(payload.size() + 8)) + type + payload;
}

}  // namespace

void recordEvent(ZEB_CALLBACK_EVENT event, void*, intptr_t length) {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.emplace_back(event, length);
    gChanged.notify_all();
}

std::vector<Event> events() {
    std::lock_guard<std::mutex> g(gLock);
    return gEvents;
}

void clearEvents() {
    std::lock_guard<std::mutex> g(gLock);
    gEvents.clear();
}

bool waitForFinalEvent(int timeoutMs) {
    std::unique_lock<std::mutex> l(gLock);
    return gChanged.wait_for(l, std::chrono::milliseconds(timeoutMs), [] {
        for (auto& e : gEvents)
            if (isFinal(e)) return true;
        return false;
    });
}

std::string jpegBytes(int width, int height) {
    std::string s = "\xFF\xD8";
    s += std::string("\xFF\xE0\x00\x06", 4) + "JFIF";  // an APP0 segment to skip
    s += std::string("\xFF\xC0\x00\x11\x08", 5);
    s += char(height >> 8);
    s += char(height);
    s += char(width >> 8);
    s += char(width);
    s += std::string("\x03\x01\x22\x00\x02\x11\x01\x03\x11\x01", 10);
    s += "\xFF\xD9";
    return s;
}

std::string mp4Bytes(int durationMs, int width, int height) {
    std::string mvhd = be32(0) + be32(0) + be32(0) + be32(1000) + be32(static_cast<uint32_t>(durationMs));
    mvhd += std::string(80, '\0');
    std::string tkhd = be32(0) + be32(0) + be32(0) + be32(1) + be32(0) + be32(static_cast<uint32_t>(durationMs));
    tkhd += std::string(8 + 2 + 2 + 2 + 2 + 36, '\0');
    tkhd += be32(static_cast<uint32_t>(width) << 16) + be32(static_cast<uint32_t>(height) << 16);
    std::string moov = box("moov", box("mvhd", mvhd) + box("trak", box("tkhd", tkhd)));
    std::string ftyp = box("ftyp", std::string("isom") + be32(0x200) + "isom");
    return ftyp + box("mdat", std::string(64, 'x')) + moov;
}

void writeFile(const std::string& p, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(p).parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << bytes;
}

std::string readFile(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool exists(const std::string& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0;
}

void MediaTest::SetUp() {
    host::reset();
    clearEvents();
    setenv("CAMWIFI_ROOT", m_root.path().c_str(), 1);
    // The library's process-wide state as at load.
    gDlnaStackInitialized = false;
    gDlnaHTTPInitialized = false;
    gDmsServerStarted = false;
    gDmsHandle = kDmsNoHandle;
    gDmsCancelRequested = false;
    SetAllShareMode(0);
    SetSelectImagePath(nullptr);
    SetACLMode(4);
    DlnaDMSSetCallback(recordEvent);
    writeConfig();
    writeFile(jpeg1(), jpegBytes(64, 48));
    writeFile(jpeg2(), jpegBytes(640, 480));
    writeFile(video(), mp4Bytes(5000, 320, 240));
    writeFile(dcim() + "/100CAMERA/NOTES.TXT", "not a picture");
}

void MediaTest::TearDown() {
    // Detached start threads must be gone before the card tree is removed.
    for (int i = 0; i < 1000 && DlnaDmsStartThreadsRunning() > 0; ++i) SPGenericThread::sleep(10);
    EXPECT_EQ(DlnaDmsStartThreadsRunning(), 0) << "a start thread outlived the test";
    host::reset();  // stops the stand-ins' threads, closes the database
    DlnaDMSSetCallback(nullptr);
    SetSelectImagePath(nullptr);
    unsetenv("CAMWIFI_ROOT");
}

void MediaTest::writeConfig(const std::vector<std::string>& omit) {
    const std::vector<std::pair<std::string, std::string>> keys = {
        {"HTTPStreamingPort", "9797"},
        {"HTTPTCPServerPort", "9798"},
        {"SHARED-MEDIA-FOLDER-PATH", dcim()},
        {"MEDIA-DB-FILEPATH", dbPath()},
        {"MEDIA-TV-DB-FILEPATH", tvDbPath()},
    };
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<!-- camera stack configuration -->\n<UPnPConfig>\n";
    for (auto& kv : keys) {
        bool skip = false;
        for (auto& o : omit) skip = skip || o == kv.first;
        if (!skip) xml += "  <" + kv.first + ">" + kv.second + "</" + kv.first + ">\n";
    }
    xml += "</UPnPConfig>\n";
    writeFile(path("/mnt/mmc/config/UPnPConfig.xml"), xml);
}

void MediaTest::writeIcons() {
    for (const char* name : {"DEVICE_DSC.JPG", "DEVICE_DSC.PNG", "DEVICE_DSC_S.JPG", "DEVICE_DSC_S.PNG",
                             "NoSupport.JPG", "NoThumb.JPG"})
        writeFile(path(std::string("/network/icon/") + name), std::string("icon ") + name);
}

void MediaTest::runStart() {
    std::string dir = dcim();
    DlnaDmsStartThread(const_cast<char*>(dir.c_str()));
}

std::vector<std::string> MediaTest::journalOf(const std::vector<std::string>& prefixes) const {
    std::vector<std::string> out;
    for (auto& e : host::journalEntries())
        for (auto& p : prefixes)
            if (e.compare(0, p.size(), p) == 0) {
                out.push_back(e);
                break;
            }
    return out;
}

}  // namespace mediatest
