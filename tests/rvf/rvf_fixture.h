// A temporary camera card and a recorder of the viewfinder's UI events for the
// remote viewfinder tests.
#ifndef CAMWIFI_TESTS_RVF_FIXTURE_H
#define CAMWIFI_TESTS_RVF_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "camwifi/camwifi.h"
#include "host_rvf.h"
#include "support/test_support.h"

namespace rvftest {

// One UI event as the callback saw it.
struct Event {
    int id;
    bool hasValue;     // value was not null
    int intValue;      // event 92: the int value pointed to (else 0)
    long long length;  // the length argument
    std::string thread;  // name of the thread that delivered it
};

// Records every event (thread-safe). Whatever the width of the callback's
// length argument, the recorder takes it.
void noteEvent(int event, void* value, long long length);
template <typename Length>
void recordEvent(ZEB_CALLBACK_EVENT event, void* value, Length length) {
    noteEvent(event, value, static_cast<long long>(length));
}
inline ZEB_UI_CALLBACK recorder() { return &recordEvent; }
// The same, for a callback that also runs action on the event.
void setEventAction(void (*action)(int event));

std::vector<Event> events();
std::vector<int> eventIds();
void clearEvents();
// Waits (bounded) until an event with this id has arrived.
bool waitForEvent(int id, int timeoutMs = 10000);

// The callback pointer as the stand-ins journal it (%p).
std::string pointerText(const void* p);

// Entries of the journal whose text starts with one of prefixes.
std::vector<std::string> journalOf(const std::vector<std::string>& prefixes);

class RvfTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string path(const std::string& fixed) const { return m_root.path() + fixed; }
    std::string dcim() const { return path("/mnt/mmc/DCIM"); }
    std::string dbPath() const { return path("/mnt/mmc/config/RVF/media.db"); }
    std::string callbackText() const { return pointerText(reinterpret_cast<const void*>(recorder())); }
    // Starts the viewfinder with the recorder; journal and log cleared after.
    void startViewfinder();
    // Starts the browsing mode with the recorder; journal and log cleared after.
    void startBrowsing();
    // Pictures and a video in the card's DCF tree (3 media files, 1 other).
    void writeCard();

    testsupport::TempDir m_root;
};

void writeFile(const std::string& path, const std::string& bytes);
bool exists(const std::string& path);

}  // namespace rvftest

#endif
