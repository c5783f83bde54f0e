#!/usr/bin/env bash
# The library as others get it, checked: the camera build, the Debian
# packages, a program of one's own built from them, and the API reference.
# CI runs it as its "pkg" stage.
#   scripts/pkg.sh               amd64 and armhf
#   scripts/pkg.sh amd64         one architecture (amd64 or armhf)
#   CAMWIFI_JOBS                 build parallelism (default nproc)
#
# For each architecture:
#   device-*    the camera build (CAMWIFI_HOST_PLATFORM=OFF): the library
#               alone. Its undefined symbols are exactly the closed-library
#               functions declared in platform/include/ (anything else, or a
#               declared one never used, is named); its SONAME is
#               libcamwifi.so.MAJOR; it exports the API and nothing else; its
#               staged install holds nothing of the host stand-ins. armhf:
#               the size of the stripped library.
#   packages-*  the PC build made into .deb packages by CPack: all four made,
#               dpkg-deb --info and lintian without errors, installable here
#               (apt-get --simulate), installed by dpkg into an empty root.
#   consumer-*  examples/consumer built from that root, once through
#               find_package(camwifi) and once through pkg-config, and run
#               (armhf: under qemu-arm).
# And once: the device check catches what it must (a declaration too many, a
# header missing), the changelog carries the project's version, and the API
# reference builds without a Doxygen warning.
#
# Build directories: build-pkg-<arch>, build-pkg-device-<arch>, build-pkg-docs;
# each step's output goes to build-pkg-logs/<step>.log. One line per step
# ("PASS step" or "FAIL step: why", then the end of its log); the last line
# is "pkg: N passed, M failed". Exits non-zero when a step failed.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
root_dir="$PWD"

arches=("$@")
if [[ ${#arches[@]} -eq 0 ]]; then arches=(amd64 armhf); fi
for a in "${arches[@]}"; do
  case "$a" in
    amd64 | armhf) ;;
    *) echo "usage: $0 [amd64|armhf]..." >&2; exit 2 ;;
  esac
done

logs=build-pkg-logs
rm -rf "$logs"
mkdir -p "$logs"
jobs="${CAMWIFI_JOBS:-$(nproc)}"
passed=0 failed=0

# step NAME COMMAND...: runs the command with its output in NAME's log.
step() {
  local name=$1
  shift
  if "$@" >"$logs/$name.log" 2>&1; then
    echo "PASS $name"
    passed=$((passed + 1))
    return 0
  fi
  echo "FAIL $name: $* (log $logs/$name.log, its end:)"
  tail -n 40 "$logs/$name.log" | sed "s/^/  [$name] /"
  failed=$((failed + 1))
  return 1
}
# skip NAME WHY: a step that cannot run because one before it failed.
skip() {
  echo "FAIL $1: not run, $2"
  failed=$((failed + 1))
}

setup_flags=(--pkg)
for a in "${arches[@]}"; do [[ "$a" == armhf ]] && setup_flags+=(--arm); done
if ! scripts/setup.sh "${setup_flags[@]}" >"$logs/setup.log" 2>&1; then
  sed 's/^/[setup] /' "$logs/setup.log"
  echo "pkg: 0 passed, 1 failed"
  exit 1
fi

# Both builds of an architecture compile the same library sources: with
# ccache the second one takes the first one's objects.
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR="$root_dir" CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# The network-free room the consumer runs in (its own loopback, so a mode
# server elsewhere on this machine cannot take its port), where possible.
isolate=()
if [[ "$(id -u)" == 0 ]] && command -v ip >/dev/null && unshare -n true 2>/dev/null; then
  isolate=(unshare -n bash -c 'ip link set lo up && exec "$@"' isolated)
fi

# The project's version, from the one place it is set.
version="$(sed -n 's/^project(camwifi VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)"
if [[ -z "$version" ]]; then
  echo "no project version in CMakeLists.txt"
  echo "pkg: 0 passed, 1 failed"
  exit 1
fi

# Per architecture: the compiler triplet, cross-build flags, how to run its programs.
arch_setup() {
  case "$1" in
    amd64)
      triplet=x86_64-linux-gnu cc=gcc cxx=g++ tool_prefix=""
      cross=() run=()
      ;;
    armhf)
      triplet=arm-linux-gnueabihf cc=arm-linux-gnueabihf-gcc cxx=arm-linux-gnueabihf-g++
      tool_prefix=arm-linux-gnueabihf-
      cross=(-DCMAKE_TOOLCHAIN_FILE="$root_dir/cmake/toolchain-armhf.cmake")
      # The armhf loader and libraries: the machine's own multiarch root
      # when libc6:armhf is there, else the cross toolchain's tree (as in
      # cmake/toolchain-armhf.cmake).
      local emulator_root=/usr/arm-linux-gnueabihf
      [[ -e /lib/ld-linux-armhf.so.3 ]] && emulator_root=/
      run=(qemu-arm -L "$emulator_root")
      ;;
  esac
}

# --- The camera build --------------------------------------------------------
build_device() {
  cmake -S . -B "$1" "${cross[@]}" "${launcher[@]}" -DCAMWIFI_HOST_PLATFORM=OFF -DCAMWIFI_BUILD_TESTS=OFF \
    -DCAMWIFI_BUILD_BENCH=OFF -DCMAKE_INSTALL_PREFIX=/usr || return 1
  cmake --build "$1" -j "$jobs"
}
check_soname() {
  local lib=$1 major=${version%%.*}
  local soname
  soname="$(readelf -d -W "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
  echo "SONAME: ${soname:-none}; file: $(basename "$(readlink -f "$lib")")"
  [[ "$soname" == "libcamwifi.so.$major" ]] || { echo "expected SONAME libcamwifi.so.$major"; return 1; }
  [[ "$(basename "$(readlink -f "$lib")")" == "libcamwifi.so.$version" ]] ||
    { echo "expected the file libcamwifi.so.$version"; return 1; }
}
# The staged install of the camera build: the library, its headers, camwifi.pc
# and the CMake package; nothing of the host stand-ins, no program.
check_device_install() {
  local dir=$1 stage=$2
  rm -rf "$stage"
  DESTDIR="$stage" cmake --install "$dir" || return 1
  (cd "$stage" && find . -type f -o -type l | sort)
  local libdir="$stage/usr/lib/$triplet" f
  for f in "$libdir/libcamwifi.so.$version" "$libdir/libcamwifi.so.${version%%.*}" "$libdir/libcamwifi.so" \
           "$stage/usr/include/camwifi/camwifi.h" "$libdir/pkgconfig/camwifi.pc" \
           "$libdir/cmake/camwifi/camwifiConfig.cmake" "$libdir/cmake/camwifi/camwifiConfigVersion.cmake"; do
    [[ -e "$f" ]] || { echo "missing from the install: ${f#"$stage"}"; return 1; }
  done
  local host_files
  host_files="$(find "$stage" -name '*camwifi_host*')"
  if [[ -n "$host_files" || -d "$stage/usr/bin" ]]; then
    echo "the camera install holds host stand-ins or programs"
    return 1
  fi
}
device() {
  local arch=$1 dir=build-pkg-device-$1
  step "device-build-$arch" build_device "$dir" || {
    for s in symbols soname exports install; do skip "device-$s-$arch" "the camera build failed"; done
    return
  }
  local lib="$dir/libcamwifi.so"
  step "device-symbols-$arch" python3 packaging/check_device_symbols.py --library "$lib" \
    --headers platform/include --cxx "$cxx" --nm "${tool_prefix}nm" --readelf "${tool_prefix}readelf"
  grep -E '^(device symbols|  undefined)' "$logs/device-symbols-$arch.log" | sed "s/^ */  $arch: /"
  step "device-soname-$arch" check_soname "$lib"
  step "device-exports-$arch" cmake -DLIBRARY="$lib" -DHEADER_DIR=include/camwifi -DNM="${tool_prefix}nm" \
    -P tests/frame/check_exports.cmake
  step "device-install-$arch" check_device_install "$dir" "$root_dir/$dir/stage"
  local stripped="$dir/libcamwifi.stripped.so"
  if "${tool_prefix}strip" -o "$stripped" "$lib" 2>/dev/null; then
    echo "$arch device libcamwifi.so stripped: $(stat -c %s "$stripped") bytes"
  fi
}

# --- The packages --------------------------------------------------------------
packages_of() {
  local arch=$1
  echo "libcamwifi${version%%.*}_${version}_$arch.deb libcamwifi-dev_${version}_$arch.deb" \
       "libcamwifi-host${version%%.*}_${version}_$arch.deb camwifi-tools_${version}_$arch.deb"
}
make_packages() {
  local dir=$1 arch=$2
  cmake -S . -B "$dir" "${cross[@]}" "${launcher[@]}" -DCMAKE_INSTALL_PREFIX=/usr -DCAMWIFI_BUILD_TESTS=OFF \
    -DCAMWIFI_BUILD_BENCH=OFF -DCAMWIFI_BUILD_TOOLS=ON || return 1
  cmake --build "$dir" -j "$jobs" || return 1
  rm -f "$dir"/*.deb
  (cd "$dir" && cpack -G DEB) || return 1
  local p
  for p in $(packages_of "$arch"); do
    [[ -f "$dir/$p" ]] || { echo "not made: $p"; return 1; }
  done
}
# What each package says of itself and holds; the development files name
# libcamwifi alone, nothing of the host stand-ins.
check_package_info() {
  local dir=$1 arch=$2 p
  for p in $(packages_of "$arch"); do
    echo "=== $p"
    dpkg-deb --info "$dir/$p" || return 1
    dpkg-deb --contents "$dir/$p" || return 1
    [[ "$(dpkg-deb -f "$dir/$p" Architecture)" == "$arch" ]] || { echo "not an $arch package"; return 1; }
  done
  local dev="$dir/libcamwifi-dev_${version}_$arch.deb" runtime="$dir/libcamwifi${version%%.*}_${version}_$arch.deb"
  local listing
  listing="$(dpkg-deb --contents "$dev")" || return 1
  if grep -q camwifi_host <<<"$listing"; then echo "the development package holds host stand-ins"; return 1; fi
  listing="$(dpkg-deb --contents "$runtime")" || return 1
  grep -q "libcamwifi.so.${version%%.*} -> libcamwifi.so.$version" <<<"$listing" ||
    { echo "the runtime package lacks the SONAME link"; return 1; }
  local x
  x="$(mktemp -d)"
  dpkg-deb -x "$dev" "$x"
  if grep -rl camwifi_host "$x/usr/lib/$triplet/pkgconfig" "$x/usr/lib/$triplet/cmake"; then
    echo "camwifi.pc or the CMake package names the host stand-ins"
    rm -rf "$x"
    return 1
  fi
  rm -rf "$x"
}
# lintian's errors fail; its warnings are listed.
run_lintian() {
  local dir=$1 arch=$2 p files=()
  for p in $(packages_of "$arch"); do files+=("$dir/$p"); done
  lintian --fail-on error --no-tag-display-limit "${files[@]}"
}
# dpkg itself installs the four into an empty root: its own database, the
# architecture added, dependencies outside the set not there (apt-get
# --simulate checked them against this machine's Debian).
install_into_root() {
  local dir=$1 arch=$2 root=$3 p files=()
  for p in $(packages_of "$arch"); do files+=("$dir/$p"); done
  apt-get -s -o Debug::NoLocking=1 install "${files[@]/#/$root_dir/}" || return 1
  rm -rf "$root"
  mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
  : >"$root/var/lib/dpkg/status"
  : >"$root/var/lib/dpkg/available"
  local dpkg=(dpkg --root="$root" --log=/dev/null --force-not-root --force-script-chrootless --force-depends)
  if [[ "$arch" != "$(dpkg --print-architecture)" ]]; then "${dpkg[@]}" --add-architecture "$arch" || return 1; fi
  "${dpkg[@]}" -i "${files[@]}" || return 1
  "${dpkg[@]}" -l | grep camwifi
  local status
  status="$("${dpkg[@]}" -l | awk '/camwifi/ && $1 == "ii" {n++} END {print n + 0}')"
  [[ "$status" == 4 ]] || { echo "$status of 4 packages installed"; return 1; }
}
packages() {
  local arch=$1 dir=build-pkg-$1
  local root="$root_dir/$dir/root"
  step "packages-build-$arch" make_packages "$dir" "$arch" || {
    for s in info lintian install; do skip "packages-$s-$arch" "the packages were not made"; done
    for s in cmake pkgconfig; do skip "consumer-$s-$arch" "the packages were not made"; done
    skip "tools-$arch" "the packages were not made"
    return
  }
  step "packages-info-$arch" check_package_info "$dir" "$arch"
  step "packages-lintian-$arch" run_lintian "$dir" "$arch"
  grep -E '^[EW]: ' "$logs/packages-lintian-$arch.log" | sed "s/^/  lintian $arch: /"
  step "packages-install-$arch" install_into_root "$dir" "$arch" "$root" || {
    for s in cmake pkgconfig; do skip "consumer-$s-$arch" "the packages were not installed"; done
    skip "tools-$arch" "the packages were not installed"
    return
  }
  consumer "$arch" "$root" "$dir/consumer"
  step "tools-$arch" run_tools "$root"
}

# --- A program of one's own -----------------------------------------------------
# The command prefix that runs a program of this architecture with the
# root's libraries (libcamwifi finds the host stand-ins there too).
with_root_libs() {
  local libs="$1/usr/lib/$triplet"
  if [[ ${#run[@]} -gt 0 ]]; then
    with_libs=("${run[@]}" -E LD_LIBRARY_PATH="$libs")
  else
    with_libs=(env LD_LIBRARY_PATH="$libs")
  fi
}
# The consumer runs in a network room of its own where possible.
run_consumer() {
  local root=$1 program=$2
  with_root_libs "$root"
  "${isolate[@]}" "${with_libs[@]}" "$program"
}
consumer_cmake() {
  local root=$1 out=$2
  rm -rf "$out"
  cmake -S examples/consumer -B "$out" "${cross[@]}" -DCMAKE_PREFIX_PATH="$root/usr" || return 1
  grep -E '^camwifi_DIR:' "$out/CMakeCache.txt"
  grep -q "camwifi_DIR:PATH=$root/usr/lib/$triplet/cmake/camwifi" "$out/CMakeCache.txt" ||
    { echo "find_package(camwifi) did not take the installed package"; return 1; }
  cmake --build "$out" || return 1
  run_consumer "$root" "$out/camwifi-consumer"
}
consumer_pkgconfig() (
  local root=$1 out=$2
  rm -rf "$out"
  mkdir -p "$out"
  # A staged root is a sysroot to pkg-config; the linker looks for
  # libcamwifi's own DT_NEEDED (the host stand-ins) there too.
  export PKG_CONFIG_SYSROOT_DIR="$root" PKG_CONFIG_LIBDIR="$root/usr/lib/$triplet/pkgconfig"
  echo "pkg-config --cflags --libs camwifi: $(pkg-config --cflags --libs camwifi)"
  make -C "$out" -f "$root_dir/examples/consumer/Makefile" CC="$cc" LDFLAGS="-Wl,-rpath-link,$root/usr/lib/$triplet" ||
    return 1
  run_consumer "$root" "$out/camwifi-consumer"
)
consumer() {
  local arch=$1 root=$2 out=$3
  step "consumer-cmake-$arch" consumer_cmake "$root" "$root_dir/$out-cmake"
  step "consumer-pkgconfig-$arch" consumer_pkgconfig "$root" "$root_dir/$out-pkgconfig"
}

# --- The installed tools --------------------------------------------------------
# camwifi-sim plays its story with the phone-sim and the samples installed
# beside it. Under user-mode emulation one program cannot start another, so
# on armhf both only answer --help (which names the samples they found).
run_tools() {
  local root=$1 help
  with_root_libs "$root"
  help="$("${with_libs[@]}" "$root/usr/bin/camwifi-sim" --help)" || return 1
  echo "$help"
  grep -qF "where the samples are ($root/usr/bin/../share/camwifi/samples)" <<<"$help" ||
    { echo "camwifi-sim does not find the installed samples"; return 1; }
  "${with_libs[@]}" "$root/usr/bin/phone-sim" --help || return 1
  if [[ ${#run[@]} -eq 0 ]]; then
    "${isolate[@]}" "${with_libs[@]}" "$root/usr/bin/camwifi-sim" --timeout 20
  fi
}

# --- Checks made once -----------------------------------------------------------
# The device check on a copy of platform/include/ with a declaration the
# library never calls, then with the log's header missing: each must fail and
# name the symbol.
check_the_device_check() {
  local lib=$1 work
  work="$(mktemp -d)"
  cp -r platform/include "$work/extra"
  printf '#ifdef __cplusplus\nextern "C"\n#endif\nint ZEBNeverCalledByTheLibrary(void);\n' >>"$work/extra/zeb_stack.h"
  local out rc
  out="$(python3 packaging/check_device_symbols.py --library "$lib" --headers "$work/extra" --cxx g++)"
  rc=$?
  echo "$out"
  if [[ $rc != 1 ]] || ! grep -q "DECLARED BUT NEVER USED: ZEBNeverCalledByTheLibrary" <<<"$out"; then
    echo "an unused declaration went unnoticed"
    rm -rf "$work"
    return 1
  fi
  cp -r platform/include "$work/missing"
  rm "$work/missing/dlog.h"
  sed -i '/#include "dlog.h"/d' "$work"/missing/*.h
  out="$(python3 packaging/check_device_symbols.py --library "$lib" --headers "$work/missing" --cxx g++)"
  rc=$?
  echo "$out"
  rm -rf "$work"
  if [[ $rc != 1 ]] || ! grep -q "NEEDED BUT NOT DECLARED: __dlog_print" <<<"$out"; then
    echo "an undeclared symbol went unnoticed"
    return 1
  fi
}
check_changelog_version() {
  local top
  top="$(sed -n '1s/^camwifi (\([^)]*\)).*/\1/p' packaging/changelog)"
  echo "project version $version, changelog $top"
  [[ -n "$version" && "$top" == "$version" ]]
}
docs() {
  rm -rf build-pkg-docs/doc/html
  cmake -S . -B build-pkg-docs -DCAMWIFI_HOST_PLATFORM=OFF -DCAMWIFI_BUILD_TESTS=OFF -DCAMWIFI_BUILD_BENCH=OFF ||
    return 1
  cmake --build build-pkg-docs --target camwifi-docs || return 1
  [[ -f build-pkg-docs/doc/html/index.html ]] || { echo "no index.html"; return 1; }
  echo "API reference: build-pkg-docs/doc/html/index.html ($(find build-pkg-docs/doc/html -name '*.html' | wc -l) pages)"
}

for arch in "${arches[@]}"; do
  echo "=== $arch ==="
  arch_setup "$arch"
  device "$arch"
  packages "$arch"
done
echo "=== once ==="
if [[ -f build-pkg-device-amd64/libcamwifi.so ]]; then
  step device-check-catches-both check_the_device_check build-pkg-device-amd64/libcamwifi.so
fi
step changelog-version check_changelog_version
step api-reference docs
tail -n 1 "$logs/api-reference.log" | sed 's/^/  /'
echo "pkg: $passed passed, $failed failed"
[[ $failed -eq 0 ]]
