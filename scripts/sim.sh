#!/usr/bin/env bash
# The camera on a PC: sets the machine up, builds camwifi-sim and phone-sim
# in build/ and plays the push story (a phone registers with the mode
# server, follows the camera into the push mode, receives a shrunk photo and
# a video). Exits 0 only when every received file matches what was sent.
#   scripts/sim.sh                    the story
#   scripts/sim.sh --interactive      the camera at a command line
#   scripts/sim.sh --help             every option
# CAMWIFI_SIM_BUILD names another build directory (default build).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
dir="${CAMWIFI_SIM_BUILD:-build}"
jobs="${CAMWIFI_JOBS:-$(nproc)}"
cmake -S . -B "$dir" >/dev/null
cmake --build "$dir" -j "$jobs" --target camwifi-sim phone-sim
exec "$dir/camwifi-sim" "$@"
