// Helpers shared by the test suites.
#ifndef CAMWIFI_TEST_SUPPORT_H
#define CAMWIFI_TEST_SUPPORT_H

#include <string>
#include <vector>

#include "host_control.h"

namespace testsupport {

// Message part of a captured line: what follows "> " up to the closing colour
// code, without the colour prefix ("\x1b[m" or "\x1b[31m").
std::string messageOf(const host::LogLine& line);
// Messages of all captured lines with the given tag (all tags when empty).
std::vector<std::string> messages(const std::string& tag = "");
// True when some captured line's message equals text exactly.
bool logged(const std::string& text, const std::string& tag = "");
// Number of captured lines whose message equals text.
int countLogged(const std::string& text, const std::string& tag = "");

// A temporary directory removed (with its contents) on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace testsupport

#endif
