// camwifi-sim --interactive: the camera for a person (or a script) at a
// command line. The mode server and a push server run; UI events are
// printed as they arrive; commands on standard input play the UI.
#ifndef CAMWIFI_SIM_SHELL_H
#define CAMWIFI_SIM_SHELL_H

#include <atomic>
#include <string>

#include "card.h"
#include "sim_log.h"

namespace camsim {

struct ShellOptions {
    bool multi = false;       // start the multi-phone push server
    bool autoAccept = false;  // answer every phone's question with yes
    std::string samplesDir;   // pictures copied onto the card at start
};

// Runs until "quit", the end of standard input or a signal (wakeFd becomes
// readable when one arrives). 0 when every command succeeded, 1 when one
// failed (or the start did), 128 + signal when interrupted.
int runShell(SimLog& log, CardTree& card, const ShellOptions& options, int wakeFd,
             const std::atomic<int>& stopSignal);

}  // namespace camsim

#endif
