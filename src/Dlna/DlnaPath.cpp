#include "Dlna/DlnaPath.h"

#include <cstdlib>

std::string DlnaFixedPath(const char* fixedPath) {
    std::string path;
    if (const char* root = getenv("CAMWIFI_ROOT")) path = root;
    // A root given with a trailing slash must not double the separator.
    if (!path.empty() && path.back() == '/' && fixedPath && fixedPath[0] == '/') path.pop_back();
    if (fixedPath) path += fixedPath;
    return path;
}
