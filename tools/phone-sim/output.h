// phone-sim's report: one line per thing that happened, written whole (the
// data server, the NOTIFY receiver and the steps print from their own
// threads) and flushed at once, so that a program reading phone-sim through
// a pipe sees each line as it happens.
#ifndef PHONESIM_OUTPUT_H
#define PHONESIM_OUTPUT_H

#include <atomic>
#include <string>

namespace phonesim {

void say(const std::string& line);
void complain(const std::string& line);  // on standard error

// Set by SIGINT/SIGTERM; every wait of phone-sim gives up when it is set.
extern std::atomic<int> gStopSignal;
inline bool stopRequested() { return gStopSignal.load() != 0; }

}  // namespace phonesim

#endif
