#include "output.h"

#include <cstdio>
#include <mutex>

namespace phonesim {

std::atomic<int> gStopSignal{0};

namespace {
std::mutex gOutLock;
}

void say(const std::string& line) {
    std::lock_guard<std::mutex> g(gOutLock);
    fprintf(stdout, "%s\n", line.c_str());
    fflush(stdout);
}

void complain(const std::string& line) {
    std::lock_guard<std::mutex> g(gOutLock);
    fprintf(stderr, "phone-sim: %s\n", line.c_str());
    fflush(stderr);
}

}  // namespace phonesim
