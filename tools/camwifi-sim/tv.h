// The camera UI's TV side, as camwifi-sim plays it: the library's renderer
// control point (DlnaMrcp...) on the DLNA stack of the network, the TV list
// and the chosen TV, and the card files a TV fetches from the camera's
// streaming server. Used by the interactive shell's tv commands and by the
// TV story. Only the library's exported functions are called.
#ifndef CAMWIFI_SIM_TV_H
#define CAMWIFI_SIM_TV_H

#include <set>
#include <string>
#include <vector>

#include "card.h"
#include "media.h"
#include "sim_log.h"

namespace camsim {

// One TV of the last list.
struct TvRow {
    int index = 0;        // the list's row, as DlnaMrcpSetDmr takes it
    std::string name;     // friendly name
    std::string udn;
    std::string ip;       // from DlnaMrcpGetDeviceInformation, "" when it cannot tell
    std::string model;    // model name
};

class TvControl {
public:
    TvControl(SimLog& log, CardTree& card);
    ~TvControl();
    TvControl(const TvControl&) = delete;
    TvControl& operator=(const TvControl&) = delete;

    // Starts the renderer control point unless it runs: puts the stack's
    // configuration on the card, has the card's media database built and
    // calls DlnaMrcpStart. False with a reason a person can act on.
    bool start(std::string* why);
    // DlnaMrcpTerminate, when started.
    void stop();
    bool running() const { return m_running; }

    // Lists the TVs that answered (DlnaMrcpGetDmrList waits 2 s for them).
    bool list(std::string* why);
    const std::vector<TvRow>& rows() const { return m_rows; }
    // Chooses a TV of the last list (made first when there is none) by its
    // row number, its name or its UDN.
    bool use(const std::string& which, std::string* why);
    bool chosen() const { return !m_choice.udn.empty(); }
    const TvRow& choice() const { return m_choice; }

    // The card file for path (a path, or a name in the card's picture
    // folder): a file from elsewhere is copied onto the card, and a file the
    // media database does not know yet has the database built again (the
    // control point restarts for it; the chosen TV stays chosen).
    bool cardFile(const std::string& path, std::string* cardPath, MediaKind* kind, std::string* why);

    // Each sends one request to the chosen TV; false (with why) when it was
    // not sent. What the TV then does arrives as UI events.
    bool show(const std::string& cardPath, std::string* why);
    bool play(const std::string& cardPath, std::string* why);
    bool pause(std::string* why);
    bool resume(std::string* why);
    bool stopPlayback(std::string* why);
    bool seek(const std::string& target, std::string* why);
    bool volume(int level, std::string* why);

    // The state the chosen TV last reported: 0 stopped, 1 transitioning,
    // 2 playing, 3 paused, 4 unknown, -1 no TV chosen.
    int state() const;
    static const char* stateName(int state);

    // The network interface the TV fetches files through (--iface, or the
    // one holding the address in the content URLs), "" before the start.
    const std::string& interface() const { return m_iface; }
    // Bytes the interface has sent so far (the kernel's count, in this
    // network namespace); false when it cannot be read.
    bool bytesSent(unsigned long long* bytes) const;

private:
    bool writeConfiguration(std::string* why);
    bool buildDatabase(std::string* why);
    bool startControlPoint(std::string* why);
    bool waitForChosenTv(long afterSeq, int timeoutMs);
    bool requireTv(std::string* why) const;
    void say(const std::string& text) { m_log.line("sim", text); }

    SimLog& m_log;
    CardTree& m_card;
    bool m_running = false;
    bool m_configured = false;
    std::set<std::string> m_known;  // card file names the media database holds
    std::vector<TvRow> m_rows;
    bool m_listed = false;
    TvRow m_choice;
    std::string m_iface;
};

// The HTTP streaming server's port, written into the stack's configuration.
extern const int kStreamingPort;

// True when text is a relative time H:MM:SS or HH:MM:SS (minutes and
// seconds below 60), as a seek takes it.
bool validSeekTarget(const std::string& text);

// The IPv4 address of a network interface, "" when it has none or does not
// exist; and the interface holding an address ("" when none does).
std::string interfaceAddress(const std::string& name);
std::string interfaceWithAddress(const std::string& address);
// The interface the library runs its DLNA stack on by default: the last
// non-loopback interface with an IPv4 address, "" when there is none.
std::string defaultInterface();

}  // namespace camsim

#endif
