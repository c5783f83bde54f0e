#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ (clang, AddressSanitizer + UBSan) and
# runs each of them for a while, starting from its seed corpus and with its
# dictionary (fuzz/dict/).
#   scripts/fuzz.sh                 every target, 180 s each
#   scripts/fuzz.sh 600             every target, 600 s each
#   scripts/fuzz.sh 30 sp_request   only the named targets
#   scripts/fuzz.sh --campaign 3    a campaign: every target (or the named
#                                   ones) in HOURS of wall time in all, shared
#                                   out evenly between the targets and lanes;
#                                   then each target's grown corpus is merged
#                                   and minimised back into fuzz/corpus/<target>/
#                                   (the named seeds stay; only inputs that add
#                                   coverage join, named by their hash)
# CAMWIFI_FUZZ_JOBS: targets run at the same time (default 2; one core each).
# CAMWIFI_FUZZ_DIR: build directory (default build-fuzz).
# Prints executions, speed and coverage (edges, features) per target; a
# campaign also prints each seed corpus' size and edges before and after its
# merge. The last line counts the targets that ran clean and those that found
# something ("fuzz: N passed, M failed").
# A finding leaves its input in <build dir>/artifacts/<target>/ and the run's
# log in <build dir>/fuzz-logs/<target>.log. The corpus a run grows is kept in
# <build dir>/fuzz-corpus/<target>/ for the next run (the seeds stay as they
# are, except after a campaign's merge).
# The fuzz build formats the library's log lines only when CAMWIFI_FUZZ_LOG
# is set; a campaign's merge sets it, so every input kept in a corpus has had
# its log lines formatted (and their arguments checked) once.
set -uo pipefail
cd "$(dirname "$0")/.."

campaign=""
if [[ "${1:-}" == "--campaign" ]]; then
  campaign="${2:-}"
  if ! [[ "$campaign" =~ ^[0-9]*\.?[0-9]+$ ]] || ! awk -v h="$campaign" 'BEGIN { exit !(h > 0) }'; then
    echo "usage: $0 --campaign HOURS [target ...]" >&2
    exit 2
  fi
  shift 2
  seconds=0  # shared out below, once the targets are known
else
  seconds="${1:-180}"
  if ! [[ "$seconds" =~ ^[0-9]+$ ]] || [[ "$seconds" -lt 1 ]]; then
    echo "usage: $0 [seconds-per-target] [target ...]" >&2
    echo "       $0 --campaign HOURS [target ...]" >&2
    exit 2
  fi
  shift || true
fi
dir="${CAMWIFI_FUZZ_DIR:-build-fuzz}"
lanes="${CAMWIFI_FUZZ_JOBS:-2}"
if ! [[ "$lanes" =~ ^[0-9]+$ ]] || [[ "$lanes" -lt 1 ]]; then lanes=1; fi

all_targets=(sp_request sp_response mode_request push_handler mode_handler push_client callback_url notify_body
             upnp_description upnp_soap_answer upnp_last_change streaming_request gena_notify)
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then targets=("${all_targets[@]}"); fi

# The dictionary of each target: the words its input is made of.
dict_of() {
  case "$1" in
    sp_request|mode_request|push_handler|mode_handler) echo fuzz/dict/http_request.dict ;;
    sp_response|push_client) echo fuzz/dict/http_response.dict ;;
    callback_url) echo fuzz/dict/callback_url.dict ;;
    notify_body) echo fuzz/dict/notify_body.dict ;;
    streaming_request) echo fuzz/dict/streaming_request.dict ;;
    upnp_description|upnp_soap_answer|upnp_last_change) echo fuzz/dict/upnp_xml.dict ;;
    gena_notify) echo fuzz/dict/gena_notify.dict ;;
  esac
}

if [[ -n "$campaign" ]]; then
  # Wall time HOURS; the lanes run side by side, so each target gets
  # HOURS * lanes / targets of it (at least one second).
  seconds="$(awk -v h="$campaign" -v l="$lanes" -v n="${#targets[@]}" \
    'BEGIN { s = int(h * 3600 * (l < n ? l : n) / n); print (s < 1 ? 1 : s) }')"
fi

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
  local dict=() d
  d="$(dict_of "$t")"
  [[ -n "$d" && -f "$d" ]] && dict=(-dict="$d")
  "$bin" "$work" "fuzz/corpus/$t" "${dict[@]}" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
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
  # Speed over the whole run (libFuzzer's own figure is of its last report).
  if [[ "$runs" =~ ^[0-9]+$ ]]; then speed=$((runs / seconds)); else speed="?"; fi
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
declare -A name_of=() found=()
passed=0 failed=0
finish() {
  local pid=$1 rc=$2 t=${name_of[$1]}
  unset "name_of[$pid]"
  report "$t" "$rc"
  if [[ "$rc" == 0 ]]; then passed=$((passed + 1)); else failed=$((failed + 1)); found[$t]=1; fi
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

# Inputs and edges of a corpus folder, as libFuzzer counts them when it has
# read the whole folder and run nothing else ("INITED ... cov: E ... corp: N/...").
corpus_cover() {
  local t=$1 folder=$2 line
  line="$("$dir/fuzz/fuzz_$t" "$folder" -runs=0 -close_fd_mask=3 2>&1 | grep -E 'INITED|DONE' | head -n 1)"
  printf '%s inputs, %s edges' "$(sed -nE 's/.* corp: ([0-9]+)\/.*/\1/p' <<<"$line")" \
    "$(sed -nE 's/.* cov: ([0-9]+).*/\1/p' <<<"$line")"
}

# After a campaign: each target that ran clean has its grown corpus merged
# into its seeds. libFuzzer's merge adds only the inputs that bring coverage
# the seeds lack, smallest first; counting edges only (not how often each
# ran) keeps the seeds to a few dozen inputs per target, while the build
# folder's corpus keeps every finer variant for the next run. The log lines are formatted while it replays
# them (CAMWIFI_FUZZ_LOG=1), so the kept inputs have had them checked.
if [[ -n "$campaign" ]]; then
  echo "=== fuzz: merging the grown corpora into fuzz/corpus/ ==="
  for t in "${targets[@]}"; do
    bin="$dir/fuzz/fuzz_$t" work="$dir/fuzz-corpus/$t" seeds="fuzz/corpus/$t"
    [[ -x "$bin" && -d "$work" ]] || continue
    [[ -n "${found[$t]:-}" ]] && continue  # its finding is to be fixed first
    mkdir -p "$seeds"
    before="$(corpus_cover "$t" "$seeds")"
    if ! CAMWIFI_FUZZ_LOG=1 "$bin" -merge=1 -use_counters=0 "$seeds" "$work" -timeout=30 -rss_limit_mb=2048 -close_fd_mask=3 \
         -artifact_prefix="$dir/artifacts/$t/" >"$dir/fuzz-logs/$t-merge.log" 2>&1; then
      printf '%-17s merge FINDING; log in %s\n' "$t" "$dir/fuzz-logs/$t-merge.log"
      grep -E 'ERROR|SUMMARY|FUZZ CHECK' "$dir/fuzz-logs/$t-merge.log" | head -n 10 | sed "s/^/  [$t] /"
      failed=$((failed + 1))
      passed=$((passed > 0 ? passed - 1 : 0))
      continue
    fi
    printf '%-17s corpus %s -> %s\n' "$t" "$before" "$(corpus_cover "$t" "$seeds")"
  done
fi

echo "fuzz: $passed passed, $failed failed"
[[ $failed -eq 0 ]]
