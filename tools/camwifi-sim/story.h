// The story camwifi-sim plays by default: one phone (phone-sim, a separate
// process) registers with the mode server, follows the camera into the push
// mode, announces itself to the push server, receives a photo (shrunk) and a
// video, and leaves when the camera goes back to idle. Every wait is bounded.
#ifndef CAMWIFI_SIM_STORY_H
#define CAMWIFI_SIM_STORY_H

#include <atomic>
#include <string>
#include <vector>

#include "card.h"
#include "sim_log.h"

namespace camsim {

struct StoryOptions {
    std::string photo;     // the JPEG to push
    std::string video;     // the MP4 to push
    std::string phoneSim;  // the phone-sim program
    std::string phoneIp = "127.0.0.5";
    int stepTimeoutMs = 20000;  // longest wait of any one step
};

// One file's line of a story's summary.
struct SummaryRow {
    std::string name;     // the file's name
    bool ok = false;
    std::string verdict;  // what the check found ("" when it was not reached)
};

// The end of a story's summary, the same for every story: one row per file,
// the UI events counted by name, the card tree (kept after a failure) and
// the result line with the time taken.
void printSummaryEnd(SimLog& log, CardTree& card, const std::vector<SummaryRow>& rows, bool ok,
                     const std::string& failure);

// Plays the story; 0 when every received file matches what was sent, 1 on
// any failure, 128 + signal when interrupted.
int runStory(SimLog& log, CardTree& card, const StoryOptions& options, const std::atomic<int>& stopSignal);

}  // namespace camsim

#endif
