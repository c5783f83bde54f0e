// A camera card, a started renderer control point and a recorder of its UI
// events for the control point's tests. The test plays the renderer through
// the stack stand-in (host_mrcp.h): it reads the requests the control point
// sent and delivers the answers and events.
#ifndef CAMWIFI_TESTS_MRCP_FIXTURE_H
#define CAMWIFI_TESTS_MRCP_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "camwifi/camwifi.h"
#include "host_mrcp.h"
#include "media/media_fixture.h"
#include "support/test_support.h"

namespace mrcptest {

// The third parameter of a UI callback, whatever its width.
template <typename F>
struct LengthOf;
template <typename R, typename A, typename B, typename C>
struct LengthOf<R (*)(A, B, C)> {
    using type = C;
};
using CallbackLength = LengthOf<ZEB_UI_CALLBACK>::type;

// One UI event as the control point sent it.
struct Event {
    int id = 0;
    std::string text;                 // events 15, 16: the UDN text
    bool hasPosition = false;         // event 22: the record's copy
    MrcpPlayPosition position = {0, 0, 0};
    long long length = 0;
    int64_t atMs = 0;                 // steady clock (host::mrcp::nowMs)
};

void recordEvent(ZEB_CALLBACK_EVENT event, void* value, CallbackLength length);
std::vector<Event> events();
std::vector<int> eventIds();
void clearEvents();
// Waits (at most timeoutMs) until count events of id were recorded.
bool waitForEvent(int id, int timeoutMs, size_t count = 1);
// While set, the recorder sleeps this long inside every call (a slow UI).
void setCallbackDelayMs(int ms);

// True when text parses as XML (Python's minidom); skips the test's caller
// when no Python is there.
bool wellFormedXml(const std::string& text);

class MrcpTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string path(const std::string& fixed) const { return m_root.path() + fixed; }
    // UPnPConfig.xml with every key but those in omit.
    void writeConfig(const std::vector<std::string>& omit = {});
    // Scans the card into the TV database (what a TV link leaves behind).
    void buildDatabase();
    // DlnaMrcpStart with the recorder; true when it returned 1.
    bool start();
    // n renderers "TV 0".."TV n-1" (uuid:tv-0 ...), listed, row `chosen` chosen.
    void chooseRenderer(int n = 1, int chosen = 0);
    static std::string udnOf(int i) { return "uuid:tv-" + std::to_string(i); }

    // The last request of action; fails the test when there is none.
    host::mrcp::SentRequest lastRequest(const std::string& action);
    // Waits for the count-th request of action (fails the test on timeout).
    host::mrcp::SentRequest waitForRequest(const std::string& action, size_t count = 1, int timeoutMs = 5000);
    // Delivers a and waits until the control point handled it.
    void deliver(const host::mrcp::Response& a);
    // The answer to the last request of action, with error.
    void answerLast(const std::string& action, int error = 0);
    // A GetTransportInfo answer with state (and status "OK" unless given).
    void answerTransportInfo(const host::mrcp::SentRequest& r, const std::string& state,
                             const std::string& status = "OK");
    // A LastChange event of the renderer udn with this TransportState.
    void notifyTransportState(const std::string& udn, const std::string& state);

    std::string dcim() const { return path("/mnt/mmc/DCIM"); }
    std::string photo() const { return dcim() + "/100CAMERA/DSC00001.JPG"; }
    std::string photo2() const { return dcim() + "/100CAMERA/DSC00002.JPG"; }
    std::string video() const { return dcim() + "/100CAMERA/MOV00003.MP4"; }
    std::string tvDbPath() const { return path("/mnt/mmc/config/DMS/tvmedia.db"); }
    std::string dbPath() const { return path("/mnt/mmc/config/DMS/media.db"); }

    testsupport::TempDir m_root;
};

}  // namespace mrcptest

#endif
