// The TV story: the camera finds the TV on its network, chooses it, shows a
// photo on it, waits until the TV has stopped, then plays a video on it to
// its end. It passes only when the UI events say so (SHOW_READY, then
// PLAY_STARTED and PLAY_COMPLETE, no PLAY_FAILED) and the camera's network
// interface sent at least each file's size while the TV had it: the TV
// really fetched what it showed. Every wait is bounded.
#ifndef CAMWIFI_SIM_TV_STORY_H
#define CAMWIFI_SIM_TV_STORY_H

#include <atomic>
#include <string>

#include "card.h"
#include "sim_log.h"

namespace camsim {

struct TvStoryOptions {
    std::string photo;          // the JPEG to show
    std::string video;          // the MP4 to play
    std::string tvName;         // the TV to choose; "" the first that answers
    int stepTimeoutMs = 20000;  // longest wait of any one step (the video's end: its length more)
};

// 0 when the TV showed the photo and played the video as above, 1 on any
// failure, 128 + signal when interrupted.
int runTvStory(SimLog& log, CardTree& card, const TvStoryOptions& options, const std::atomic<int>& stopSignal);

}  // namespace camsim

#endif
