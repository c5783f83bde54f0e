#!/usr/bin/env bash
# Builds and runs the benchmarks of bench/.
#   scripts/bench.sh                 push client: a 20 MB file over loopback,
#                                    one transfer, then ten in parallel
#   scripts/bench.sh --size-mb 50 --parallel 4
#   CAMWIFI_BENCH_DIR=dir            build directory (default build-bench)
# Prints throughput, its ratio to the paced limit of the transfer body
# (20,480 bytes per 10 ms) and CPU seconds per MB of the sending process.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
dir="${CAMWIFI_BENCH_DIR:-build-bench}"
cmake -S . -B "$dir" -DCAMWIFI_BUILD_BENCH=ON >/dev/null
cmake --build "$dir" -j "${CAMWIFI_JOBS:-$(nproc)}" --target camwifi_push_bench
"$dir/bench/camwifi_push_bench" "$@"
