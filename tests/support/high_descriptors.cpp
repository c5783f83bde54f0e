#include "support/high_descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace testsupport {

HighDescriptors::HighDescriptors(int above) : m_above(above) {
    // Room above the taken numbers for what the test itself opens.
    const rlim_t need = static_cast<rlim_t>(above) + 512;
    struct rlimit lim;
    if (getrlimit(RLIMIT_NOFILE, &lim) != 0) {
        m_why = std::string("getrlimit(RLIMIT_NOFILE) failed: ") + strerror(errno);
        return;
    }
    if (lim.rlim_cur < need) {
        struct rlimit raised = lim;
        raised.rlim_cur = need;
        if (raised.rlim_max != RLIM_INFINITY && raised.rlim_max < need) raised.rlim_max = need;
        if (setrlimit(RLIMIT_NOFILE, &raised) != 0) {
            m_why = "the open-file limit (" + std::to_string(lim.rlim_cur) + ", hard " +
                    std::to_string(lim.rlim_max) + ") cannot be raised to " + std::to_string(need) +
                    " here (raising the hard limit needs root; CI runs as root)";
            return;
        }
        m_limitChanged = true;
        m_oldSoft = lim.rlim_cur;
        m_oldHard = lim.rlim_max;
    }
    const int base = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (base < 0) {
        m_why = std::string("cannot open /dev/null: ") + strerror(errno);
        return;
    }
    m_taken.push_back(base);
    // Each duplicate takes the lowest free number; stop once past `above`.
    for (int i = 0; i <= above + 1; ++i) {
        const int fd = fcntl(base, F_DUPFD_CLOEXEC, 0);
        if (fd < 0) {
            m_why = std::string("taking descriptors failed: ") + strerror(errno);
            return;
        }
        m_taken.push_back(fd);
        if (fd >= above) return;
    }
    m_why = "could not take the descriptors below " + std::to_string(above);
}

HighDescriptors::~HighDescriptors() {
    for (int fd : m_taken) close(fd);
    if (m_limitChanged) {
        struct rlimit old;
        old.rlim_cur = static_cast<rlim_t>(m_oldSoft);
        old.rlim_max = static_cast<rlim_t>(m_oldHard);
        setrlimit(RLIMIT_NOFILE, &old);
    }
}

}  // namespace testsupport
