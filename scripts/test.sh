#!/usr/bin/env bash
# Sets the machine up, configures, builds and runs the whole suite in parallel.
#   scripts/test.sh                    plain build in build/
#   scripts/test.sh asan               AddressSanitizer + UBSan build in build-asan/
#   scripts/test.sh tsan               ThreadSanitizer build in build-tsan/
# Exits non-zero on any build error, failed test or sanitizer report.
set -euo pipefail
cd "$(dirname "$0")/.."

flavour="${1:-plain}"
case "$flavour" in
  plain) dir=build; flags=() ;;
  asan)  dir=build-asan; flags=(-DCAMWIFI_ASAN=ON) ;;
  tsan)  dir=build-tsan; flags=(-DCAMWIFI_TSAN=ON) ;;
  *) echo "usage: $0 [plain|asan|tsan]" >&2; exit 2 ;;
esac

# --upnp: the real renderers the DLNA stack's integration tests play to.
scripts/setup.sh --upnp
# CAMWIFI_JOBS / CAMWIFI_TEST_JOBS: build and ctest parallelism (default nproc),
# lowered by .ci/run when several suites share the machine.
# The tests mostly wait on sockets and timers, so by default four run per core.
jobs="${CAMWIFI_JOBS:-$(nproc)}"
test_jobs="${CAMWIFI_TEST_JOBS:-$((4 * jobs))}"
cmake -S . -B "$dir" "${flags[@]}" >/dev/null
cmake --build "$dir" -j "$jobs"

# Sanitizer reports fail the test that produced them.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:halt_on_error=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
runner=()
if [[ "$flavour" == tsan ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
  # ThreadSanitizer's shadow memory needs the classic address layout: on
  # kernels with a wide mmap randomisation (vm.mmap_rnd_bits above 28) its
  # programs die with "FATAL: ThreadSanitizer: unexpected memory mapping".
  # Running without address randomisation is the documented remedy.
  runner=(setarch "$(uname -m)" -R)
fi
# The servers bind fixed ports (8100-8102, 7788-7791): run the suite in a
# network namespace of its own (loopback only) where possible, so another
# suite or program on this machine can never take them from under a test.
isolate=()
if [[ "$(id -u)" == 0 ]] && command -v ip >/dev/null && unshare -n true 2>/dev/null; then
  isolate=(unshare -n bash -c 'ip link set lo up && exec "$@"' isolated)
fi
"${isolate[@]}" "${runner[@]}" ctest --test-dir "$dir" -j "$test_jobs" --output-on-failure
