#include "card.h"

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "media.h"

namespace camsim {

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) { return remove(path); }

bool makeDirs(const std::string& path) {
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/') continue;
        const std::string part = path.substr(0, pos);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return true;
}

}  // namespace

CardTree::~CardTree() {
    if (m_root.empty() || m_keep) return;
    nftw(m_root.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

bool CardTree::create(const std::string& logPath, std::string* why) {
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/camwifi-sim.XXXXXX";
    if (mkdtemp(&templ[0]) == nullptr) {
        *why = "cannot make a temporary card folder under " + templ + ": " + strerror(errno);
        return false;
    }
    m_root = templ;
    if (!makeDirs(pictureDir()) || !makeDirs(m_root + "/mnt/mmc/config") || !makeDirs(phoneDir())) {
        *why = "cannot make the card folders under " + m_root + ": " + strerror(errno);
        return false;
    }
    m_log = logPath.empty() ? m_root + "/camwifi.log" : logPath;
    setenv("CAMWIFI_ROOT", m_root.c_str(), 1);
    setenv("CAMWIFI_LOG", m_log.c_str(), 1);
    return true;
}

bool CardTree::addPicture(const std::string& from, std::string* cardPath, std::string* why) {
    std::string bytes;
    if (!readWholeFile(from, &bytes)) {
        *why = "cannot read " + from;
        return false;
    }
    *cardPath = pictureDir() + "/" + baseName(from);
    std::ofstream out(*cardPath, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        *why = "cannot write " + *cardPath;
        return false;
    }
    return true;
}

}  // namespace camsim
