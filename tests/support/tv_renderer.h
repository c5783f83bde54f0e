// Real DLNA renderers as the TV of a test: gmediarender (on pupnp) or Rygel
// with its playbin renderer (on GUPnP), started in a network namespace the
// test made, with GStreamer sinks that keep real time and show nothing.
// The test reads the renderer's own view (transport state, current URI,
// position, volume) with SOAP requests of its own, from the namespace the
// calling thread is in, at the control URLs of the renderer's description.
#ifndef CAMWIFI_TEST_TV_RENDERER_H
#define CAMWIFI_TEST_TV_RENDERER_H

#include <memory>
#include <string>

#include "support/netns.h"
#include "support/test_support.h"

namespace testsupport {

enum class TvKind { kGmediarender, kRygel };

const char* tvKindName(TvKind kind);  // "gmediarender", "rygel"
// Empty when that renderer can run here, else why not (for GTEST_SKIP).
std::string tvUnavailableReason(TvKind kind);

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

}  // namespace testsupport

#endif
