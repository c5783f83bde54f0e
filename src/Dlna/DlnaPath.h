// Fixed paths of the camera ("/mnt/mmc/config/...", "/network/icon/...").
// On the device CAMWIFI_ROOT is unset and the path is used as written; on a PC
// tests and the simulator point it at a temporary card tree.
#ifndef CAMWIFI_DLNA_PATH_H
#define CAMWIFI_DLNA_PATH_H

#include <string>

// CAMWIFI_ROOT (when set) followed by fixedPath.
std::string DlnaFixedPath(const char* fixedPath);

#endif
