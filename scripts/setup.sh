#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Idempotent: a machine that has everything is left alone.
#   scripts/setup.sh          host build and tests
#   scripts/setup.sh --arm    also the 32-bit ARM cross toolchain, qemu-user
#                             and the armhf test libraries
set -euo pipefail

packages=(cmake make g++ gcc pkg-config libgtest-dev libgmock-dev
          libjpeg62-turbo-dev libsqlite3-dev iproute2 curl python3 binutils)
arm=0
if [[ "${1:-}" == "--arm" ]]; then
  arm=1
  packages+=(g++-arm-linux-gnueabihf qemu-user libgtest-dev:armhf libgmock-dev:armhf
             libjpeg62-turbo-dev:armhf libsqlite3-dev:armhf)
fi

missing=()
for p in "${packages[@]}"; do
  # ${db:Status-Status} is "installed" only for a fully installed package.
  if [[ "$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null)" != "installed" ]]; then
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
$sudo apt-get update
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
