// Test view of the host stand-in of the application-service library's JPEG
// resizer: which of the buffers it handed out are still held.
#ifndef CAMWIFI_HOST_JPEG_H
#define CAMWIFI_HOST_JPEG_H

#include <cstddef>

namespace host {
namespace jpeg {

// Buffers handed out by NASLWifi_jpegResizeInMemory and not yet released
// through NASLWifi_jpegResizeFree.
std::size_t liveResizeBuffers();
// Calls of NASLWifi_jpegResizeFree with a pointer that was not live (a second
// release of the same buffer, or a foreign pointer); such calls free nothing.
std::size_t strayResizeFrees();

// Long side in pixels that a WIFI_RESIZE_PIXEL value stands for; 0 for an
// unknown value.
int longSideOf(int pixel);

}  // namespace jpeg
}  // namespace host

#endif
