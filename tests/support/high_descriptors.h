// Descriptor numbers past what select() can wait on (FD_SETSIZE, 1024), for
// tests of code that must work whatever number its sockets get.
#ifndef CAMWIFI_TEST_HIGH_DESCRIPTORS_H
#define CAMWIFI_TEST_HIGH_DESCRIPTORS_H

#include <string>
#include <vector>

namespace testsupport {

// While alive, every free descriptor number up to `above` is taken, so the
// next descriptor anyone in the process opens (a socket of the library, a
// test's phone) gets a number above it. The open-file limit is raised as far
// as needed (as root also the hard limit). Everything is given back on
// destruction, the limit included.
class HighDescriptors {
public:
    static constexpr int kDefaultAbove = 1100;

    explicit HighDescriptors(int above = kDefaultAbove);
    ~HighDescriptors();
    HighDescriptors(const HighDescriptors&) = delete;
    HighDescriptors& operator=(const HighDescriptors&) = delete;

    // Empty when it worked, else why not (for GTEST_SKIP).
    const std::string& why() const { return m_why; }
    int above() const { return m_above; }

private:
    int m_above;
    std::string m_why;
    std::vector<int> m_taken;
    bool m_limitChanged = false;
    unsigned long long m_oldSoft = 0, m_oldHard = 0;
};

}  // namespace testsupport

#endif
