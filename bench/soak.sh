#!/usr/bin/env bash
# Soak: the camera (camwifi-sim, its mode server and multi-phone push server)
# met by phones (phone-sim) that come, register, are pushed files and leave,
# round after round, for MINUTES minutes. Every minute it prints what the
# servers served and what the camera process holds:
#
#   minute  rounds  requests  pushes  errors  rss_kb  fds  threads
#
#   requests  connections the two servers accepted and served in that minute
#             (each carries one request: a query, an announcement, a goodbye)
#   pushes    files the camera pushed to a phone completely
#   errors    phone runs that failed, camera commands refused, transfers or
#             servers that failed (a failed push server is started again)
#   rss_kb, fds, threads   the camwifi-sim process at the end of the minute
#
# One round: phone A registers with the mode server and waits for the
# SelectivePush NOTIFY, asks the mode and says goodbye; phones B and C
# announce themselves to the push server, each waits for one file (a photo,
# a video) and leaves; the camera switches the mode to SelectivePush, sends
# both files and goes back to IDLE. Phones use a new loopback address every
# round (at most 10 at once in the push server's list, as it allows).
#
#   bench/soak.sh MINUTES        (default 1)
#   CAMWIFI_SOAK_BUILD=DIR       build directory (default build-bench)
#
# The servers bind fixed ports (7788, 8100): as root the soak runs in a
# network namespace of its own (loopback only), so it never meets a test
# or another camera on the machine. Figures go to bench/, never to tests.
set -euo pipefail
cd "$(dirname "$0")/.."

minutes="${1:-1}"
if ! [[ "$minutes" =~ ^[0-9]+$ ]] || ((minutes < 1 || minutes > 1440)); then
  echo "usage: bench/soak.sh MINUTES   (1 to 1440)" >&2
  exit 2
fi

if [[ -z "${CAMWIFI_SOAK_INSIDE:-}" && "$(id -u)" == 0 ]] && command -v unshare >/dev/null &&
   unshare -n true 2>/dev/null; then
  export CAMWIFI_SOAK_INSIDE=1
  exec unshare -n bash -c 'ip link set lo up && exec "$@"' soak "$0" "$@"
fi

dir="${CAMWIFI_SOAK_BUILD:-build-bench}"
if [[ ! -f "$dir/CMakeCache.txt" ]]; then
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$dir" --target camwifi-sim phone-sim -j"${CAMWIFI_JOBS:-$(nproc)}" >/dev/null
sim="$PWD/$dir/camwifi-sim"
phone="$PWD/$dir/phone-sim"

work="$(mktemp -d /tmp/camwifi-soak.XXXXXX)"
cam_pid=""
cleanup() {
  if [[ -n "$cam_pid" ]] && kill -0 "$cam_pid" 2>/dev/null; then
    echo quit >&3 || true
    for _ in $(seq 1 100); do kill -0 "$cam_pid" 2>/dev/null || break; sleep 0.1; done
    kill "$cam_pid" 2>/dev/null || true
  fi
  jobs -p | xargs -r kill 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

mkfifo "$work/commands"
exec 3<>"$work/commands"
"$sim" --interactive --multi --auto-accept --log "$work/library.log" <&3 >"$work/camera.out" 2>&1 &
cam_pid=$!

# Lines of the camera's output (or the library's log) matching a pattern.
count() { grep -c -- "$1" "${2:-$work/camera.out}" 2>/dev/null || true; }
# Waits (at most `limit` tenths of a second) until count PATTERN reaches n.
wait_count() {
  local pattern=$1 n=$2 limit=$3 i
  for ((i = 0; i < limit; i++)); do
    (($(count "$pattern") >= n)) && return 0
    sleep 0.1
  done
  return 1
}
mac_of() {  # the MAC the camera gives a loopback phone: 02:00:7f + the address
  local IFS=.
  read -r _ b c d <<<"$1"
  printf '02:00:7f:%02x:%02x:%02x' "$b" "$c" "$d"
}

if ! wait_count "the camera is ready" 1 100; then
  echo "soak: the camera did not start:" >&2
  cat "$work/camera.out" >&2
  exit 1
fi

errors_from_camera() {
  echo $(($(count "sim    error:") + $(count "_FAIL (")))
}

# What the camera process holds now.
holds() {
  printf '%8d %5d %8d' "$(awk '/^VmRSS:/ {print $2}' "/proc/$cam_pid/status")" \
    "$(find "/proc/$cam_pid/fd" -mindepth 1 -maxdepth 1 | wc -l)" \
    "$(find "/proc/$cam_pid/task" -mindepth 1 -maxdepth 1 | wc -l)"
}
# Connections the servers accepted since the last call. The log is renamed
# and read: the library opens it anew for every line, so no line is lost or
# counted twice, and the file stays small however long the soak runs.
requests_since() {
  local n=0
  if [[ -f "$work/library.log" ]]; then
    mv "$work/library.log" "$work/library.minute"
    n=$(count "connection request :" "$work/library.minute")
    rm -f "$work/library.minute"
  fi
  echo "$n"
}

printf '%6s %7s %9s %7s %7s %8s %5s %8s\n' minute rounds requests pushes errors rss_kb fds threads
requests_since >/dev/null
# Minute 0: the camera started, no phone yet.
printf '%6d %7d %9d %7d %7d %s\n' 0 0 0 0 "$(errors_from_camera)" "$(holds)"
total_requests=0 total_pushes=0 total_errors=0 round=0
last_pushes=0 last_camera_errors=$(errors_from_camera)
for ((minute = 1; minute <= minutes; minute++)); do
  minute_end=$((SECONDS + 60))
  rounds=0 phone_errors=0
  # At most 60 rounds a minute: a round a second is the pace of the soak
  # (a round alone takes under a second on loopback).
  while ((SECONDS < minute_end && rounds < 60)); do
    round=$((round + 1)) rounds=$((rounds + 1))
    a="127.0.2.$((1 + round % 200))"
    b="127.0.3.$((1 + round % 200))"
    c="127.0.4.$((1 + round % 200))"
    mode_accepted=$(count "at the mode server")
    push_accepted=$(count "at the push server")
    done_before=$(count "TRANSFER_COMPLETE")
    "$phone" --ip "$a" --timeout 20 --store "$work/a" register wait-mode SelectivePush query goodbye \
      >"$work/a.out" 2>&1 &
    pa=$!
    "$phone" --ip "$b" --timeout 20 --store "$work/b$round" alive wait-files 1 byebye >"$work/b.out" 2>&1 &
    pb=$!
    "$phone" --ip "$c" --timeout 20 --store "$work/c$round" alive wait-files 1 byebye >"$work/c.out" 2>&1 &
    pc=$!
    wait_count "at the mode server" $((mode_accepted + 1)) 150 || true
    wait_count "at the push server" $((push_accepted + 2)) 150 || true
    echo "mode SelectivePush" >&3
    echo "send SAM_0001.JPG $(mac_of "$b")" >&3
    echo "send SAM_0002.MP4 $(mac_of "$c")" >&3
    for p in $pa $pb $pc; do
      wait "$p" || phone_errors=$((phone_errors + 1))
    done
    wait_count "TRANSFER_COMPLETE" $((done_before + 2)) 50 || true
    echo "mode IDLE" >&3
    rm -rf "$work/b$round" "$work/c$round"
    # A push server that failed is started again, as the UI would.
    if (($(count "NPUSH_SERVER_FAIL") > $(count "> push multi"))); then
      echo "push multi" >&3
    fi
    if ! kill -0 "$cam_pid" 2>/dev/null; then
      echo "soak: the camera ended in minute $minute:" >&2
      tail -n 40 "$work/camera.out" >&2
      exit 1
    fi
  done
  requests=$(requests_since)
  pushes=$(count "TRANSFER_COMPLETE")
  camera_errors=$(errors_from_camera)
  errors=$((phone_errors + camera_errors - last_camera_errors))
  printf '%6d %7d %9d %7d %7d %s\n' "$minute" "$rounds" "$requests" $((pushes - last_pushes)) "$errors" "$(holds)"
  total_requests=$((total_requests + requests))
  total_pushes=$((total_pushes + pushes - last_pushes))
  total_errors=$((total_errors + errors))
  last_pushes=$pushes last_camera_errors=$camera_errors
done
echo "soak: $minutes minute(s), $round rounds, $total_requests requests, $total_pushes pushes, $total_errors errors"
((total_errors == 0))
