// The camera's memory card on a PC: a temporary folder that the library
// sees as "/mnt/mmc" (through CAMWIFI_ROOT), holding the pictures to push,
// the library's log and the phone's received files.
#ifndef CAMWIFI_SIM_CARD_H
#define CAMWIFI_SIM_CARD_H

#include <string>

namespace camsim {

class CardTree {
public:
    CardTree() = default;
    ~CardTree();
    CardTree(const CardTree&) = delete;
    CardTree& operator=(const CardTree&) = delete;

    // Makes the tree under $TMPDIR (or /tmp) and points CAMWIFI_ROOT and,
    // unless logPath is given, CAMWIFI_LOG at it. False with a reason.
    bool create(const std::string& logPath, std::string* why);
    // Copies a file into the card's picture folder; returns the card path.
    bool addPicture(const std::string& from, std::string* cardPath, std::string* why);

    const std::string& root() const { return m_root; }
    std::string pictureDir() const { return m_root + "/mnt/mmc/DCIM/100SIMCA"; }
    std::string phoneDir() const { return m_root + "/phone"; }
    const std::string& logPath() const { return m_log; }
    // Keep the tree when the program ends (for a look after a failure).
    void keep() { m_keep = true; }
    bool kept() const { return m_keep; }

private:
    std::string m_root;
    std::string m_log;
    bool m_keep = false;
};

}  // namespace camsim

#endif
