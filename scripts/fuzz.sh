#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ (clang, AddressSanitizer + UBSan) and
# runs each of them for a while, starting from its seed corpus.
#   scripts/fuzz.sh                 every target, 180 s each
#   scripts/fuzz.sh 600             every target, 600 s each
#   scripts/fuzz.sh 30 sp_request   only the named targets
# CAMWIFI_FUZZ_JOBS: targets run at the same time (default 2; one core each).
# CAMWIFI_FUZZ_DIR: build directory (default build-fuzz).
# Prints executions and coverage per target; the last line counts the targets
# that ran clean and those that found something ("fuzz: N passed, M failed").
# A finding leaves its input in <build dir>/artifacts/<target>/ and the run's
# log in <build dir>/fuzz-logs/<target>.log. The corpus a run grows is kept in
# <build dir>/fuzz-corpus/<target>/ for the next run (the seeds stay as they are).
set -uo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-180}"
if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [[ "$seconds" -lt 1 ]]; then
  echo "usage: $0 [seconds-per-target] [target ...]" >&2
  exit 2
fi
shift || true
dir="${CAMWIFI_FUZZ_DIR:-build-fuzz}"
lanes="${CAMWIFI_FUZZ_JOBS:-2}"

all_targets=(sp_request sp_response mode_request push_handler mode_handler push_client callback_url notify_body
             upnp_description upnp_soap_answer upnp_last_change streaming_request gena_notify)
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then targets=("${all_targets[@]}"); fi

scripts/setup.sh || exit 1
echo "=== fuzz: building ${#targets[@]} targets in $dir ==="
if ! CC=clang CXX=clang++ cmake -S . -B "$dir" -DCAMWIFI_FUZZ=ON -DCAMWIFI_BUILD_TESTS=OFF \
     -DCAMWIFI_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null; then
  echo "fuzz: configuring failed"
  echo "fuzz: 0 passed, ${#targets[@]} failed"
  exit 1
fi
build_targets=()
for t in "${targets[@]}"; do build_targets+=("fuzz_$t"); done
mkdir -p "$dir"
if ! cmake --build "$dir" -j "${CAMWIFI_JOBS:-$(nproc)}" --target "${build_targets[@]}" >"$dir/fuzz-build.log" 2>&1; then
  cat "$dir/fuzz-build.log"
  echo "fuzz: build failed"
  echo "fuzz: 0 passed, ${#targets[@]} failed"
  exit 1
fi

# Each run: the kept corpus first (new finds go there), the seeds second.
# Standard output and error of the code under test are closed: the library
# copies its error lines there, and every malformed input makes some.
# A run of one input past 30 s is a hang; memory past 2 GiB is a finding.
run_one() {
  local t=$1 bin="$dir/fuzz/fuzz_$1" work="$dir/fuzz-corpus/$1" art="$dir/artifacts/$1/"
  mkdir -p "$work" "$art" "$dir/fuzz-logs"
  rm -f "$art"/crash-* "$art"/leak-* "$art"/timeout-* "$art"/oom-*
  "$bin" "$work" "fuzz/corpus/$t" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$art" >"$dir/fuzz-logs/$t.log" 2>&1
}

# One line per target from its log: executions, coverage (edges and
# features), corpus and speed, or what it found.
report() {
  local t=$1 rc=$2 log="$dir/fuzz-logs/$1.log" last runs
  last="$(grep -E '^#[0-9]+' "$log" | tail -n 1)"
  runs="$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+).*/\1/p' "$log" | tail -n 1)"
  local cov ft corp speed
  cov="$(sed -nE 's/.* cov: ([0-9]+).*/\1/p' <<<"$last")"
  ft="$(sed -nE 's/.* ft: ([0-9]+).*/\1/p' <<<"$last")"
  corp="$(sed -nE 's/.* corp: ([^ ]+).*/\1/p' <<<"$last")"
  speed="$(sed -nE 's/.* exec\/s: ([0-9]+).*/\1/p' <<<"$last")"
  if [[ "$rc" == 0 ]]; then
    printf '%-13s %10s executions in %s s, coverage %s edges / %s features, corpus %s, %s exec/s\n' \
      "$t" "${runs:-?}" "$seconds" "${cov:-?}" "${ft:-?}" "${corp:-?}" "${speed:-?}"
  else
    printf '%-13s FINDING (status %s) after %s executions; input in %s\n' \
      "$t" "$rc" "${runs:-?}" "$dir/artifacts/$t/"
    grep -E 'ERROR|SUMMARY|FUZZ CHECK|^    #[0-9]' "$log" | head -n 30 | sed "s/^/  [$t] /"
  fi
}

echo "=== fuzz: ${#targets[@]} targets, $seconds s each, $lanes at a time ==="
declare -A name_of=()
passed=0 failed=0
finish() {
  local pid=$1 rc=$2 t=${name_of[$1]}
  unset "name_of[$pid]"
  report "$t" "$rc"
  if [[ "$rc" == 0 ]]; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
}
for t in "${targets[@]}"; do
  if [[ ! -x "$dir/fuzz/fuzz_$t" ]]; then
    echo "$t: no such target"
    failed=$((failed + 1))
    continue
  fi
  while [[ ${#name_of[@]} -ge $lanes ]]; do
    done_pid=""
    wait -n -p done_pid "${!name_of[@]}"
    rc=$?
    [[ -n "$done_pid" ]] && finish "$done_pid" "$rc"
  done
  run_one "$t" &
  name_of[$!]=$t
done
while [[ ${#name_of[@]} -gt 0 ]]; do
  done_pid=""
  wait -n -p done_pid "${!name_of[@]}"
  rc=$?
  [[ -n "$done_pid" ]] || break
  finish "$done_pid" "$rc"
done
echo "fuzz: $passed passed, $failed failed"
[[ $failed -eq 0 ]]
