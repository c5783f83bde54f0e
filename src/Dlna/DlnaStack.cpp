#include "Dlna/DlnaStack.h"

std::atomic<bool> gDlnaStackInitialized{false};
std::atomic<bool> gDlnaHTTPInitialized{false};
