#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Idempotent: a machine that has everything is left alone.
#   scripts/setup.sh          host build and tests
#   scripts/setup.sh --arm    also the 32-bit ARM cross toolchain, qemu-user
#                             and the armhf test libraries
#   scripts/setup.sh --pkg    also what makes and checks the packages and the
#                             API reference (scripts/pkg.sh): Doxygen, lintian,
#                             dpkg's development tools; with --arm as well,
#                             the armhf libraries of the armhf tools package
#   scripts/setup.sh --upnp   also the real renderers and media tools of the
#                             libupnp stack's tests (gmediarender, Rygel,
#                             GStreamer plugins: a few hundred MB)
#   scripts/setup.sh --bench  also nginx and ApacheBench, the mode server
#                             benchmark's reference server and client
#                             (scripts/bench.sh mode), and perf, which
#                             profiles the benchmarks and fuzz targets
# The flags combine: scripts/setup.sh --arm --pkg --upnp.
set -euo pipefail

packages=(cmake make g++ gcc pkg-config libgtest-dev libgmock-dev
          libjpeg62-turbo-dev libsqlite3-dev iproute2 curl python3 binutils
          clang libclang-rt-14-dev)
# phone-sim's HTTP server (tools/phone-sim): a library the camera side does not use.
packages+=(libcpp-httplib-dev)
# The real DLNA stack is built on libupnp (small; always needed to build);
# the configuration file stand-in reads its XML with libupnp's parser (ixml).
packages+=(libupnp-dev)
arm=0 pkg=0 upnp=0 bench=0
for flag in "$@"; do
  case "$flag" in
    --arm) arm=1 ;;
    --pkg) pkg=1 ;;
    --upnp) upnp=1 ;;
    --bench) bench=1 ;;
    *) echo "usage: $0 [--arm] [--pkg] [--upnp] [--bench]" >&2; exit 2 ;;
  esac
done
if [[ $upnp -eq 1 ]]; then
  packages+=(gmediarender rygel rygel-playbin gstreamer1.0-tools gstreamer1.0-plugins-base
             gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly gstreamer1.0-libav)
fi
if [[ $bench -eq 1 ]]; then
  packages+=(nginx-light apache2-utils linux-perf)
fi
if [[ $arm -eq 1 ]]; then
  packages+=(g++-arm-linux-gnueabihf qemu-user libgtest-dev:armhf libgmock-dev:armhf
             libjpeg62-turbo-dev:armhf libsqlite3-dev:armhf libstdc++6:armhf)
  # libupnp's -dev package cannot be installed for two architectures at once
  # (one generated header differs): the armhf build takes the build
  # machine's headers and these armhf runtime libraries.
  packages+=(libupnp13:armhf libixml10:armhf)
fi
if [[ $pkg -eq 1 ]]; then
  # dpkg-dev: dpkg-shlibdeps and dpkg-architecture, which CPack and the
  # package checks call; file: lintian's own helper.
  packages+=(doxygen lintian dpkg-dev file gzip ccache)
  if [[ $arm -eq 1 ]]; then
    packages+=(libcpp-httplib-dev:armhf)
  fi
fi

native="$(dpkg --print-architecture)"
missing=()
for p in "${packages[@]}"; do
  # With a second architecture added, a bare name matches one package per
  # architecture: ask for the native one (or the architecture-free one).
  q="$p"
  if [[ "$p" != *:* ]] && dpkg-query -W "$p:$native" >/dev/null 2>&1; then q="$p:$native"; fi
  # ${db:Status-Status} is "installed" only for a fully installed package.
  if [[ "$(dpkg-query -W -f='${db:Status-Status}' "$q" 2>/dev/null)" != "installed" ]]; then
    missing+=("$p")
  fi
done
if [[ ${#missing[@]} -eq 0 ]]; then
  exit 0
fi

sudo=""
if [[ "$(id -u)" != "0" ]]; then sudo="sudo"; fi
if [[ $arm -eq 1 ]] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
  $sudo dpkg --add-architecture armhf
fi
echo "setup: installing ${missing[*]}"

# One package manager at a time: wait (bounded) for an apt or dpkg run that
# is already going on this machine instead of failing on its lock.
for _ in $(seq 1 240); do
  pgrep -x 'apt-get|apt|dpkg|aptitude' >/dev/null || break
  echo "setup: waiting for the running package manager to finish"
  sleep 5
done
apt_get=($sudo env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600)

# A mirror may serve one index in the middle of a sync ("File has unexpected
# size ... Mirror sync in progress?"). Retry the update a few times, then go
# on with the indexes that did arrive: only a failed install fails the setup.
updated=0
for attempt in 1 2 3; do
  if "${apt_get[@]}" update; then updated=1; break; fi
  echo "setup: apt-get update reported a failure (attempt $attempt of 3)" >&2
  sleep $((attempt * 5))
done
if "${apt_get[@]}" install -y --no-install-recommends "${missing[@]}"; then
  exit 0
fi
if [[ $updated -eq 1 ]]; then
  exit 1
fi
# Without one architecture's security index, packages that must have the same
# version on every architecture (libc headers, libssl, krb5) cannot match the
# newer amd64 ones. Take the release suite's own versions for this install so
# both architectures agree; the next update brings the security versions back.
codename="$(. /etc/os-release && echo "${VERSION_CODENAME:-}")"
if [[ -z "$codename" ]]; then
  exit 1
fi
pref="$(mktemp)"
trap 'rm -f "$pref"' EXIT
printf 'Package: *\nPin: release n=%s\nPin-Priority: 1001\n' "$codename" >"$pref"
echo "setup: an index is missing; installing with the versions of the $codename suite"
"${apt_get[@]}" -o Dir::Etc::Preferences="$pref" install -y --no-install-recommends \
  --allow-downgrades "${missing[@]}"
