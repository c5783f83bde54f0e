#include "tv.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <net/if.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>
#include <algorithm>

#include "camera_ui.h"
#include "camwifi/camwifi.h"

namespace camsim {

const int kStreamingPort = 18100;

namespace {

using Clock = std::chrono::steady_clock;

// The media server's start reports its end through its own callback (event
// 4 or 6, the outcome in the length slot); the sim only waits for it.
std::mutex gDmsLock;
std::condition_variable gDmsDone;
int gDmsFinal = -1;  // -1 running; else event * 10 + outcome

void onMediaServer(int event, void*, intptr_t outcome) {
    if (event != 4 && !(event == 6 && outcome != 0)) return;  // 5 and 6,0 are steps on the way
    std::lock_guard<std::mutex> g(gDmsLock);
    gDmsFinal = event * 10 + static_cast<int>(outcome);
    gDmsDone.notify_all();
}

bool makeDirs(const std::string& path) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/') continue;
        if (mkdir(path.substr(0, pos).c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return true;
}

std::set<std::string> filesIn(const std::string& dir) {
    std::set<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') names.insert(e->d_name);
        closedir(d);
    }
    return names;
}

// True when both files exist with the same bytes; read in pieces, since a
// card's video may be large.
bool sameContent(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0 || sa.st_size != sb.st_size) return false;
    std::ifstream fa(a, std::ios::binary), fb(b, std::ios::binary);
    std::vector<char> ba(65536), bb(65536);
    while (fa && fb) {
        fa.read(ba.data(), static_cast<std::streamsize>(ba.size()));
        fb.read(bb.data(), static_cast<std::streamsize>(bb.size()));
        if (fa.gcount() != fb.gcount() || !std::equal(ba.begin(), ba.begin() + fa.gcount(), bb.begin())) return false;
    }
    return !fa.bad() && !fb.bad() && fa.eof() && fb.eof();
}

// The host part of "http://HOST:PORT/...".
std::string urlHost(const std::string& url) {
    const size_t start = url.find("://");
    if (start == std::string::npos) return "";
    const size_t end = url.find_first_of(":/", start + 3);
    return url.substr(start + 3, end == std::string::npos ? std::string::npos : end - start - 3);
}

// The interfaces with an IPv4 address, in the kernel's order (as the
// library lists them), with their addresses.
std::vector<std::pair<std::string, std::string>> ipv4Interfaces() {
    std::vector<std::pair<std::string, std::string>> out;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return out;
    ifreq reqs[32];
    ifconf conf{};
    conf.ifc_len = sizeof reqs;
    conf.ifc_req = reqs;
    if (ioctl(fd, SIOCGIFCONF, &conf) == 0) {
        for (size_t i = 0; i < conf.ifc_len / sizeof(ifreq); ++i) {
            if (reqs[i].ifr_addr.sa_family != AF_INET) continue;
            char text[INET_ADDRSTRLEN] = "";
            inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&reqs[i].ifr_addr)->sin_addr, text, sizeof text);
            out.emplace_back(reqs[i].ifr_name, text);
        }
    }
    close(fd);
    return out;
}

}  // namespace

std::string interfaceAddress(const std::string& name) {
    for (auto& i : ipv4Interfaces())
        if (i.first == name) return i.second;
    return "";
}

std::string interfaceWithAddress(const std::string& address) {
    for (auto& i : ipv4Interfaces())
        if (i.second == address) return i.first;
    return "";
}

std::string defaultInterface() {
    std::string last;
    for (auto& i : ipv4Interfaces())
        if (i.second != "127.0.0.1") last = i.first;
    return last;
}

bool validSeekTarget(const std::string& t) {
    unsigned h = 0, m = 0, s = 0;
    int used = 0;
    const size_t firstColon = t.find(':');
    if (firstColon == 0 || firstColon == std::string::npos || firstColon > 2) return false;
    if (t.find_first_not_of("0123456789:") != std::string::npos) return false;
    if (sscanf(t.c_str(), "%u:%2u:%2u%n", &h, &m, &s, &used) != 3 || static_cast<size_t>(used) != t.size())
        return false;
    return t.size() == firstColon + 6 && m < 60 && s < 60;
}

TvControl::TvControl(SimLog& log, CardTree& card) : m_log(log), m_card(card) {}

TvControl::~TvControl() { stop(); }

const char* TvControl::stateName(int state) {
    switch (state) {
        case 0: return "stopped";
        case 1: return "transitioning";
        case 2: return "playing";
        case 3: return "paused";
        case -1: return "no TV chosen";
        default: return "unknown";
    }
}

// The stack reads its settings from the card's configuration file: where
// the card's pictures are (the streaming server serves nothing else), where
// the media server keeps its database, and the streaming server's port.
bool TvControl::writeConfiguration(std::string* why) {
    if (m_configured) return true;
    const std::string mmc = m_card.root() + "/mnt/mmc";
    if (!makeDirs(mmc + "/config/DMS")) {
        *why = "cannot make " + mmc + "/config/DMS: " + strerror(errno);
        return false;
    }
    std::ofstream out(mmc + "/config/UPnPConfig.xml", std::ios::trunc);
    out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<UPnPConfig>\n"
        << "  <HTTPStreamingPort>" << kStreamingPort << "</HTTPStreamingPort>\n"
        << "  <SHARED-MEDIA-FOLDER-PATH>" << mmc << "/DCIM</SHARED-MEDIA-FOLDER-PATH>\n"
        << "  <MEDIA-DB-FILEPATH>" << mmc << "/config/DMS/media.db</MEDIA-DB-FILEPATH>\n"
        << "  <MEDIA-TV-DB-FILEPATH>" << mmc << "/config/DMS/tv.db</MEDIA-TV-DB-FILEPATH>\n"
        << "</UPnPConfig>\n";
    if (!out) {
        *why = "cannot write " + mmc + "/config/UPnPConfig.xml";
        return false;
    }
    m_configured = true;
    return true;
}

// The control point describes a file to the TV from the media database that
// the camera's media server keeps of the card. The sim has the media server
// build it as the camera does, by starting it (the TV link) on the card's
// folder and stopping it once the database is ready. The media server and
// the control point share the stack's set-up, so the control point is down
// meanwhile.
bool TvControl::buildDatabase(std::string* why) {
    const bool wasRunning = m_running;
    stop();
    {
        std::lock_guard<std::mutex> g(gDmsLock);
        gDmsFinal = -1;
    }
    const std::string dcim = m_card.root() + "/mnt/mmc/DCIM";
    const std::set<std::string> onCard = filesIn(m_card.pictureDir());
    int final = -1;
    if (DlnaTVLinkStart(onMediaServer, dcim.c_str(), 0) == 1) {
        std::unique_lock<std::mutex> g(gDmsLock);
        gDmsDone.wait_for(g, std::chrono::seconds(30), [] { return gDmsFinal >= 0; });
        final = gDmsFinal;
    }
    // Also after a failed or timed-out start: the terminate cancels and
    // releases whatever it brought up.
    DlnaTVLinkTerminate();
    if (final != 40) {
        *why = final < 0 ? "the card's media database was not built within 30 s"
                         : "the card's media database could not be built (media server event " +
                               std::to_string(final / 10) + ", " + std::to_string(final % 10) + ")";
        return false;
    }
    m_known = onCard;
    say("card's media database built: " + std::to_string(onCard.size()) + " file(s) in " + m_card.pictureDir());
    return !wasRunning || startControlPoint(why);
}

bool TvControl::startControlPoint(std::string* why) {
    // DlnaMrcpStart sets the camera's transfer size to 1 (pictures
    // unchanged); the push features read it at their next start, so the
    // setting the person chose is put back.
    const int transferSize = DlnaGetTransferSize();
    // Only announcements after this start count for finding the chosen TV
    // again: those of an earlier start may still lie unconsumed.
    long lastSeq = 0;
    for (const UiEvent& e : CameraUi::instance().events()) lastSeq = e.seq;
    const int started = DlnaMrcpStart(CameraUi::onTv);
    DlnaSetTransferSize(transferSize);
    if (started != 1) {
        DlnaMrcpTerminate();
        *why = "the renderer control point did not start on " +
               (m_iface.empty() ? std::string("the default interface") : "interface " + m_iface) +
               " (is port " + std::to_string(kStreamingPort) + " busy? the library log " + m_card.logPath() +
               " says why)";
        return false;
    }
    m_running = true;
    // After a restart the chosen TV must be found again before a request
    // can reach it; it stays chosen (DlnaMrcpTerminate keeps the choice).
    if (chosen() && !waitForChosenTv(lastSeq, 15000)) say("the chosen TV " + m_choice.name + " has not answered again yet");
    return true;
}

bool TvControl::waitForChosenTv(long afterSeq, int timeoutMs) {
    std::atomic<int> never{0};
    const std::string udn = m_choice.udn;
    return CameraUi::instance().waitEvent(
        [&](const UiEvent& e) {
            return e.seq > afterSeq && e.feature == Feature::Tv && e.id == EVT_MRCP_REFRESH_DMR_LIST &&
                   strcasecmp(e.detail.c_str(), udn.c_str()) == 0;
        },
        timeoutMs, never, nullptr);
}

bool TvControl::start(std::string* why) {
    if (m_running) return true;
    // The interface: the one asked for (CAMWIFI_IFACE, set by --iface) or
    // the library's default; checked here so that the person reads which.
    const char* asked = getenv("CAMWIFI_IFACE");
    m_iface = asked && *asked ? asked : defaultInterface();
    if (m_iface.empty()) {
        *why = "no network interface with an IPv4 address other than loopback: the TV commands need the "
               "network the TV is on (--iface NAME)";
        return false;
    }
    if (interfaceAddress(m_iface).empty()) {
        *why = "network interface " + m_iface + " does not exist or has no IPv4 address (--iface)";
        return false;
    }
    if (!writeConfiguration(why)) return false;
    if (!buildDatabase(why)) return false;
    if (!startControlPoint(why)) return false;
    // The TV fetches files at the address the library puts in their URLs
    // (the camera's own address, the last interface it lists): tell the
    // person when that is not the chosen interface's.
    char* uri = nullptr;
    if (DlnaGetContentUri("/", &uri) == 0 && uri != nullptr) {
        const std::string host = urlHost(uri);
        if (host != interfaceAddress(m_iface))
            say("warning: TVs are sent file URLs at " + host + ", not at " + m_iface + "'s address " +
                interfaceAddress(m_iface));
    }
    free(uri);
    say("renderer control point started on " + m_iface + " (" + interfaceAddress(m_iface) +
        "), streaming server on port " + std::to_string(kStreamingPort));
    return true;
}

void TvControl::stop() {
    if (!m_running) return;
    DlnaMrcpTerminate();
    m_running = false;
    say("renderer control point terminated");
}

bool TvControl::list(std::string* why) {
    if (!start(why)) return false;
    int count = 0;
    DmrListEntry* rows = nullptr;
    if (DlnaMrcpGetDmrList(&count, &rows) != 1) {
        *why = "the TV list failed (the library log " + m_card.logPath() + " says why)";
        return false;
    }
    m_rows.clear();
    m_listed = true;
    for (int i = 0; i < count && rows != nullptr; ++i) {
        TvRow r;
        r.index = rows[i].index;
        r.name = rows[i].name;
        r.udn = rows[i].udn;
        DeviceInfo info{};
        if (DlnaMrcpGetDeviceInformation(&info, i) == 1) {
            r.ip = info.ip;
            r.model = info.modelName;
        }
        m_rows.push_back(r);
    }
    return true;
}

bool TvControl::use(const std::string& which, std::string* why) {
    if (which.empty()) {
        *why = "tv use N|NAME: the row number or the name of a TV of tv list";
        return false;
    }
    if (!m_listed && !list(why)) return false;
    const TvRow* found = nullptr;
    const bool number = which.find_first_not_of("0123456789") == std::string::npos && which.size() < 4;
    for (const TvRow& r : m_rows) {
        if ((number && r.index == atoi(which.c_str())) || strcasecmp(r.name.c_str(), which.c_str()) == 0 ||
            strcasecmp(r.udn.c_str(), which.c_str()) == 0) {
            found = &r;
            break;
        }
    }
    if (found == nullptr) {
        *why = "no TV " + which + " in the list (" +
               (m_rows.empty() ? std::string("no TV answered") : std::to_string(m_rows.size()) + " TV(s)") +
               "; tv list shows it again)";
        return false;
    }
    if (!start(why)) return false;
    DlnaMrcpSetDmr(found->index, found->udn.c_str());
    m_choice = *found;
    return true;
}

bool TvControl::requireTv(std::string* why) const {
    if (chosen()) return true;
    *why = "no TV chosen (tv list, then tv use N|NAME)";
    return false;
}

bool TvControl::cardFile(const std::string& path, std::string* cardPath, MediaKind* kind, std::string* why) {
    std::string source = path;
    if (access(source.c_str(), F_OK) != 0 && path.find('/') == std::string::npos)
        source = m_card.pictureDir() + "/" + path;
    if (!checkPushable(source, kind, why)) {
        if (access(source.c_str(), F_OK) != 0) *why = "no such file: " + path + " (a path, or a name on the card)";
        return false;
    }
    const std::string name = baseName(source);
    *cardPath = m_card.pictureDir() + "/" + name;
    // A file of the same name and content on the card is that file.
    const bool alreadyOnCard = sameContent(source, *cardPath);
    bool changed = !m_known.count(name);
    if (!alreadyOnCard) {
        if (!m_card.addPicture(source, cardPath, why)) return false;
        say("copied " + source + " onto the card as " + *cardPath);
        changed = true;
    }
    if (changed && m_configured && !buildDatabase(why)) return false;
    return true;
}

bool TvControl::show(const std::string& cardPath, std::string* why) {
    if (!requireTv(why) || !start(why)) return false;
    if (DlnaMrcpShowFile(cardPath.c_str()) == 1) return true;
    *why = "the photo was not sent: the last photo is not shown yet (wait SHOW_READY), or the TV does not answer";
    return false;
}

bool TvControl::play(const std::string& cardPath, std::string* why) {
    if (!requireTv(why) || !start(why)) return false;
    if (DlnaMrcpPlayFile(cardPath.c_str()) == 1) return true;
    *why = "the file was not sent to the TV (the library log " + m_card.logPath() + " says why)";
    return false;
}

namespace {

bool sent(int r, const char* what, std::string* why) {
    if (r == 1) return true;
    *why = std::string("the ") + what + " request was not sent";
    return false;
}

}  // namespace

bool TvControl::pause(std::string* why) { return requireTv(why) && start(why) && sent(DlnaMrcpPauseFile(), "pause", why); }

bool TvControl::resume(std::string* why) {
    return requireTv(why) && start(why) && sent(DlnaMrcpResumeFile(), "resume", why);
}

bool TvControl::stopPlayback(std::string* why) {
    return requireTv(why) && start(why) && sent(DlnaMrcpStopFile(), "stop", why);
}

bool TvControl::seek(const std::string& target, std::string* why) {
    if (!validSeekTarget(target)) {
        *why = "tv seek takes a time H:MM:SS or HH:MM:SS (such as 0:01:30), not " + target;
        return false;
    }
    return requireTv(why) && start(why) && sent(DlnaMrcpSeekFile(target.c_str()), "seek", why);
}

bool TvControl::volume(int level, std::string* why) {
    if (level < 0 || level > 100) {
        *why = "tv volume takes a level from 0 to 100";
        return false;
    }
    return requireTv(why) && start(why) && sent(DlnaMrcpSetVolume(nullptr, level), "volume", why);
}

int TvControl::state() const {
    if (!chosen()) return -1;
    return DlnaMrcpGetRendererState(m_choice.udn.c_str());
}

bool TvControl::bytesSent(unsigned long long* bytes) const {
    // /proc/net/dev: "  name: rx_bytes rx_packets ... (8 receive fields) tx_bytes ...".
    std::ifstream in("/proc/net/dev");
    std::string line;
    while (std::getline(in, line)) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::string name = line.substr(0, colon);
        name.erase(0, name.find_first_not_of(' '));
        if (name != m_iface) continue;
        std::istringstream fields(line.substr(colon + 1));
        unsigned long long v = 0;
        for (int i = 0; i < 9 && (fields >> v); ++i) {
        }
        if (!fields) return false;
        *bytes = v;
        return true;
    }
    return false;
}

}  // namespace camsim
