// Shared pieces of the fuzz targets: a connected socket pair that already
// holds the peer's bytes (so a handler's read ends at once with the end of
// the stream instead of waiting out its time limit), checks that abort the
// run with a message, and a plain reference for header unfolding.
#ifndef CAMWIFI_FUZZ_SUPPORT_H
#define CAMWIFI_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

// Stops the run with a finding when cond does not hold.
#define FUZZ_CHECK(cond)                                                 \
    do {                                                                 \
        if (!(cond)) fuzzsupport::fail(#cond, __FILE__, __LINE__);       \
    } while (0)

namespace fuzzsupport {

[[noreturn]] void fail(const char* what, const char* file, int line);

// Most bytes a socket-fed target accepts: what fits in the pair's buffer, so
// the whole input is written before the code under test starts reading.
constexpr size_t kMaxSocketInput = 160 * 1024;

// A connected stream pair: the camera's end (handed to the code under test,
// which may take it) and the phone's end, which has sent data and closed
// its writing side. The phone's end also drains what the camera sends, so
// replies never fill its buffer.
class PeerPair {
public:
    // False (and nothing open) when data is larger than kMaxSocketInput or
    // the pair cannot be made.
    bool open(const uint8_t* data, size_t size);
    ~PeerPair();
    // The camera's end; after take() the caller owns it.
    int cameraFd() const { return m_camera; }
    int take();
    // Reads and drops whatever the camera has sent so far.
    void drain();

private:
    int m_camera = -1;
    int m_phone = -1;
};

// Removes every CR LF followed by a blank (then by a tab) the plain way:
// find the last one, erase its CR LF, again until none is left.
std::string referenceUnfold(std::string text);

// Empties the host stand-ins' call journal, so that what a run recorded is
// freed within the run.
void forgetJournal();

// No CR LF followed by a blank or tab is left in text.
bool isUnfolded(const std::string& text);

}  // namespace fuzzsupport

#endif
