#!/usr/bin/env bash
# Builds and runs the benchmarks of bench/.
#   scripts/bench.sh                 push client: a 20 MB file over loopback,
#                                    one transfer, then ten in parallel
#   scripts/bench.sh --size-mb 50 --parallel 4
#   scripts/bench.sh --dlna-photo [--photos N ...]
#                                    photo latency of the renderer control
#                                    point on the real DLNA stack against
#                                    gmediarender, beside a bare SOAP control
#                                    point (median, p95, ratio); needs root
#   scripts/bench.sh --streaming [--size-mb N --rounds N ...]
#                                    the real stack's streaming server beside
#                                    nginx on loopback (MB/s, ratio)
#   scripts/bench.sh mode [--requests N] [--rounds N]
#                                    mode server: requests per second under
#                                    ab -c 1 beside its design floor and nginx
#   CAMWIFI_BENCH_DIR=dir            build directory (default build-bench)
# The push bench prints throughput, its ratio to the paced limit of the
# transfer body (20,480 bytes per 10 ms) and CPU seconds per MB of the
# sending process. Options after the first go to the benchmark (--help).
set -euo pipefail
cd "$(dirname "$0")/.."

target=camwifi_push_bench
setup=()
case "${1:-}" in
  --dlna-photo) target=camwifi_dlna_photo_bench setup=(--upnp); shift ;;
  --streaming) target=camwifi_streaming_bench setup=(--bench); shift ;;
esac

scripts/setup.sh "${setup[@]}"
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
cmake --build "$dir" -j "${CAMWIFI_JOBS:-$(nproc)}" --target "$target"
"$dir/bench/$target" "$@"
