#!/usr/bin/env bash
# The camera on a PC: sets the machine up, builds camwifi-sim and phone-sim
# in build/ and plays the push story (a phone registers with the mode
# server, follows the camera into the push mode, receives a shrunk photo and
# a video). Exits 0 only when every received file matches what was sent.
#   scripts/sim.sh                    the story
#   scripts/sim.sh --interactive      the camera at a command line
#   scripts/sim.sh --story tv         the TV story: a photo and a video on
#                                     gmediarender, in network namespaces
#   scripts/sim.sh --help             every option
# CAMWIFI_SIM_BUILD names another build directory (default build);
# CAMWIFI_SIM_NO_BUILD=1 runs the programs already built there, without
# setting the machine up or building (the tests do that).
#
# The TV story needs root, network namespaces (ip netns) and gmediarender:
# the TV (gmediarender, with sinks that keep real time) gets a namespace of
# its own, camwifi-sim runs in the camera's, the two joined by a veth pair
# (198.51.100.1 the TV, .2 the camera). Without them it says what is missing
# and exits 77; every other failure of the story exits 1.
set -euo pipefail
cd "$(dirname "$0")/.."

story=push
args=()
while [[ $# -gt 0 ]]; do
  if [[ "$1" == --story && $# -ge 2 ]]; then
    story="$2"
    shift 2
  else
    args+=("$1")
    shift
  fi
done

kNeeds=77
needs() {
  echo "sim.sh --story tv: $1" >&2
  echo "sim.sh --story tv: it needs root, network namespaces (ip netns, iproute2) and gmediarender" \
       "(scripts/setup.sh --upnp); on a network with a real TV use camwifi-sim --story tv --iface NAME" >&2
  exit $kNeeds
}
# Said before anything is installed or built for it.
if [[ "$story" == tv ]]; then
  [[ "$(id -u)" == 0 ]] || needs "not running as root"
fi

dir="${CAMWIFI_SIM_BUILD:-build}"
if [[ -z "${CAMWIFI_SIM_NO_BUILD:-}" ]]; then
  if [[ "$story" == tv ]]; then scripts/setup.sh --upnp; else scripts/setup.sh; fi
  jobs="${CAMWIFI_JOBS:-$(nproc)}"
  cmake -S . -B "$dir" >/dev/null
  cmake --build "$dir" -j "$jobs" --target camwifi-sim phone-sim
fi
sim="$dir/camwifi-sim"

if [[ "$story" != tv ]]; then
  [[ "$story" == push ]] || args=(--story "$story" ${args[@]+"${args[@]}"})
  exec "$sim" ${args[@]+"${args[@]}"}
fi

# ---- the TV story -------------------------------------------------------------

command -v ip >/dev/null || needs "the ip command (iproute2) is not installed"
command -v gmediarender >/dev/null || needs "gmediarender is not installed"
[[ -x "$sim" ]] || { echo "sim.sh --story tv: $sim is not built" >&2; exit 1; }

tv="cwsim-tv-$$" cam="cwsim-cam-$$"
tvname="camwifi-sim TV"
tvudn="5eb1c0de-0000-4000-8000-$(printf '%012x' $$)"
tvlog="$(mktemp "${TMPDIR:-/tmp}/camwifi-sim-tv.XXXXXX")"
tvpid=""
cleanup() {
  if [[ -n "$tvpid" ]] && kill -0 "$tvpid" 2>/dev/null; then
    kill -TERM "$tvpid" 2>/dev/null || true
    for _ in $(seq 1 50); do kill -0 "$tvpid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$tvpid" 2>/dev/null || true
    wait "$tvpid" 2>/dev/null || true
  fi
  ip netns del "$tv" 2>/dev/null || true
  ip netns del "$cam" 2>/dev/null || true
  rm -f "$tvlog"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

ip netns add "$tv" 2>/dev/null || needs "ip netns add failed: network namespaces are not available here"
ip netns add "$cam" || needs "ip netns add failed: network namespaces are not available here"
# IPv6 off before the links come up (libupnp would race the link-local
# address); multicast (SSDP) needs a route on the veth.
ip -n "$tv" link set lo up
ip -n "$cam" link set lo up
ip -n "$tv" link add tv0 type veth peer name cam0 netns "$cam"
ip netns exec "$tv" sysctl -qw net.ipv6.conf.tv0.disable_ipv6=1
ip netns exec "$cam" sysctl -qw net.ipv6.conf.cam0.disable_ipv6=1
ip -n "$tv" addr add 198.51.100.1/24 dev tv0
ip -n "$cam" addr add 198.51.100.2/24 dev cam0
ip -n "$tv" link set tv0 up
ip -n "$cam" link set cam0 up
ip -n "$tv" route add 239.0.0.0/8 dev tv0
ip -n "$cam" route add 239.0.0.0/8 dev cam0

ip netns exec "$tv" gmediarender -I tv0 -p 49494 -u "$tvudn" -f "$tvname" \
  --gstout-audiopipe "fakesink sync=true" --gstout-videopipe "fakesink sync=true" >"$tvlog" 2>&1 &
tvpid=$!
echo "sim.sh --story tv: TV \"$tvname\" (gmediarender, pid $tvpid) on 198.51.100.1 in namespace $tv;" \
     "the camera on 198.51.100.2 in namespace $cam"

status=0
CAMWIFI_DLNA_STACK=upnp ip netns exec "$cam" "$sim" --story tv --iface cam0 --tv "$tvname" \
  ${args[@]+"${args[@]}"} || status=$?
if ! kill -0 "$tvpid" 2>/dev/null; then
  echo "sim.sh --story tv: gmediarender has ended during the story; what it printed:" >&2
  tail -n 20 "$tvlog" >&2 || true
  [[ $status -ne 0 ]] || status=1
fi
exit $status
