#!/usr/bin/env bash
# Builds and runs the benchmarks of bench/.
#   scripts/bench.sh                 push client: a 20 MB file over loopback,
#                                    one transfer, then ten in parallel
#   scripts/bench.sh --size-mb 50 --parallel 4
#   scripts/bench.sh mode [--requests N] [--rounds N]
#                                    mode server: requests per second under
#                                    ab -c 1 beside its design floor and nginx
#   CAMWIFI_BENCH_DIR=dir            build directory (default build-bench)
# Prints throughput, its ratio to the paced limit of the transfer body
# (20,480 bytes per 10 ms) and CPU seconds per MB of the sending process.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
dir="${CAMWIFI_BENCH_DIR:-build-bench}"
cmake -S . -B "$dir" -DCAMWIFI_BUILD_BENCH=ON >/dev/null
if [[ "${1:-}" == "mode" ]]; then
  shift
  scripts/setup.sh --bench
  cmake --build "$dir" -j "${CAMWIFI_JOBS:-$(nproc)}" --target camwifi_mode_bench
  # The mode server binds 7788: in a network namespace of its own when we
  # may make one, so a running camera simulator or test does not collide.
  log="$(mktemp -d)"
  trap 'rm -rf "$log"' EXIT
  run=("$dir/bench/camwifi_mode_bench" "$@")
  if [[ "$(id -u)" == "0" ]] && unshare -n true 2>/dev/null; then
    run=(unshare -n bash -c 'ip link set lo up && exec "$@"' x "${run[@]}")
  fi
  CAMWIFI_LOG="$log/library.log" "${run[@]}"
  exit
fi
cmake --build "$dir" -j "${CAMWIFI_JOBS:-$(nproc)}" --target camwifi_push_bench
"$dir/bench/camwifi_push_bench" "$@"
