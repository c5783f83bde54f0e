// Real DLNA renderers as the TV of a test: gmediarender (on pupnp) or Rygel
// with its playbin renderer (on GUPnP), started in a network namespace the
// test made, with GStreamer sinks that keep real time and show nothing.
// The test reads the renderer's own view (transport state, current URI,
// position, volume) with SOAP requests of its own, from the namespace the
// calling thread is in, at the control URLs of the renderer's description.
#ifndef CAMWIFI_TEST_TV_RENDERER_H
#define CAMWIFI_TEST_TV_RENDERER_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "support/netns.h"
#include "support/test_support.h"

namespace testsupport {

enum class TvKind { kGmediarender, kRygel };

const char* tvKindName(TvKind kind);  // "gmediarender", "rygel"
// Empty when that renderer can run here, else why not (for GTEST_SKIP).
std::string tvUnavailableReason(TvKind kind);

// A device found with an M-SEARCH for MediaRenderer:1 from the calling
// thread's namespace, and its description.
struct FoundDevice {
    std::string location, description, udn;
};
// Searches (once a second, at most timeoutMs) for the renderer whose
// description has that friendlyName.
bool searchDevice(const std::string& friendlyName, int timeoutMs, FoundDevice* out);
// The body of a GET of url ("" when none came), from the calling thread's namespace.
std::string httpGet(const std::string& url);
// ref of a description made absolute against the description's location.
std::string absoluteUrl(const std::string& location, const std::string& ref);
// The text of the first <tag> element of xml ("" when absent).
std::string xmlElement(const std::string& xml, const std::string& tag);

class TvRenderer {
public:
    // Starts the renderer in ns on interface iface (which has an IPv4
    // address), announcing itself as name.
    TvRenderer(TvKind kind, const NetNamespace& ns, const std::string& iface, const std::string& name);
    ~TvRenderer();

    TvKind kind() const { return m_kind; }
    const std::string& name() const { return m_name; }
    bool alive();
    // Ends the renderer as a user would (SIGTERM): it says byebye on its way out.
    void end();
    // A TV that hangs: its kernel still accepts connections, nothing answers.
    void freeze();
    void thaw();

    // Finds the renderer with an M-SEARCH from the calling thread's namespace
    // and reads its description: its UDN and control URLs. Waits at most
    // timeoutMs; false when it never answered.
    bool locate(int timeoutMs);
    const std::string& udn() const { return m_udn; }      // "uuid:..." once located
    const std::string& modelName() const { return m_modelName; }

    // The renderer's own view, asked over SOAP ("" / -1 when it did not answer).
    std::string transportState();        // GetTransportInfo: CurrentTransportState
    std::string currentUri();            // GetMediaInfo: CurrentURI
    int relTimeSeconds();                // GetPositionInfo: RelTime in seconds
    int volume();                        // RenderingControl GetVolume, Master

private:
    std::string soap(const std::string& controlUrl, const std::string& serviceType, const std::string& action,
                     const std::string& arguments);

    TvKind m_kind;
    std::string m_name;
    TempDir m_home;  // Rygel's configuration and state
    std::unique_ptr<NsProcess> m_process;
    std::string m_udn, m_modelName;
    std::string m_avtControl, m_avtType, m_rcControl, m_rcType;
};

// A renderer that answers nothing: it serves its description, accepts every
// action's connection and never answers it. Made in the namespace ns at
// address:port; announces itself with ssdp:alive when asked.
class SilentRenderer {
public:
    SilentRenderer(const NetNamespace& ns, const std::string& address, uint16_t port, const std::string& udn,
                   const std::string& name);
    ~SilentRenderer();
    SilentRenderer(const SilentRenderer&) = delete;
    SilentRenderer& operator=(const SilentRenderer&) = delete;

    bool ok() const { return m_listener >= 0 && m_ssdp >= 0; }
    // One ssdp:alive to the SSDP multicast group.
    void announce();
    // Action requests accepted and left unanswered so far.
    int heldRequests() const { return m_held; }

private:
    void serve();

    std::string m_location, m_udn, m_description;
    int m_listener = -1, m_ssdp = -1;
    std::atomic<bool> m_done{false};
    std::atomic<int> m_held{0};
    std::thread m_thread;
};

}  // namespace testsupport

#endif
