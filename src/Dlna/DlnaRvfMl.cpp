#include "Dlna/DlnaRvfMl.h"

void DlnaRvfMlGetDeviceDescUrl(char* /*path*/, unsigned int /*size*/) {}
