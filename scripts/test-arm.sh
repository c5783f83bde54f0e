#!/usr/bin/env bash
# The camera's own target: cross-builds the library, the host stand-ins and
# the whole test suite for 32-bit ARM (armhf) in build-arm/, runs the suite
# under qemu-arm and prints the size of the stripped armhf libcamwifi.so.
#   scripts/test-arm.sh            setup, build, test, size
#   CAMWIFI_JOBS / CAMWIFI_TEST_JOBS   build and ctest parallelism (default nproc)
# Exits non-zero on any build error or failed test. Tests that need kernel
# features user-mode emulation lacks (network namespaces) skip with a message.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh --arm
jobs="${CAMWIFI_JOBS:-$(nproc)}"
test_jobs="${CAMWIFI_TEST_JOBS:-$jobs}"
dir=build-arm

cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchain-armhf.cmake" >/dev/null
cmake --build "$dir" -j "$jobs"

ctest --test-dir "$dir" -j "$test_jobs" --output-on-failure

stripped="$dir/libcamwifi.stripped.so"
arm-linux-gnueabihf-strip -o "$stripped" "$dir/libcamwifi.so"
echo "armhf libcamwifi.so stripped: $(stat -c %s "$stripped") bytes"
