# Cross build for the camera's processor: 32-bit ARM Linux, hard-float ABI
# (armhf), with Debian's arm-linux-gnueabihf toolchain.
#
#   cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
#
# The armhf libraries the tests and the host stand-ins link (GoogleTest and
# GoogleMock, libjpeg-turbo, SQLite) come from Debian's multiarch packages
# (libgtest-dev:armhf, ...), installed beside the build machine's own under
# /usr/lib/arm-linux-gnueabihf with headers in /usr/include and
# /usr/include/arm-linux-gnueabihf; scripts/setup.sh --arm installs them.
# Test programs run under qemu-arm, so ctest (and gtest_discover_tests) work
# as on the build machine.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CAMWIFI_ARM_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${CAMWIFI_ARM_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CAMWIFI_ARM_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${CAMWIFI_ARM_TRIPLET})

# Where find_* look: the multiarch directories of this machine's own root
# (CMAKE_LIBRARY_ARCHITECTURE picks lib/arm-linux-gnueabihf under each prefix)
# and the cross toolchain's own tree. Programs are the build machine's.
set(CMAKE_FIND_ROOT_PATH / /usr/${CAMWIFI_ARM_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config, where used, must answer for armhf, not for the build machine.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CAMWIFI_ARM_TRIPLET}/pkgconfig:/usr/share/pkgconfig)

set(CMAKE_STRIP ${CAMWIFI_ARM_TRIPLET}-strip CACHE FILEPATH "armhf strip")

# The emulator's root for the armhf loader and libraries. With libc6:armhf
# installed (it comes with the :armhf -dev packages) the machine's own root
# holds /lib/ld-linux-armhf.so.3 and /usr/lib/arm-linux-gnueabihf, exactly as
# on a multiarch device; otherwise fall back to the cross toolchain's tree.
if(EXISTS /lib/ld-linux-armhf.so.3)
  set(CAMWIFI_ARM_EMULATOR_ROOT / CACHE PATH "Root that qemu-arm resolves the armhf loader in")
else()
  set(CAMWIFI_ARM_EMULATOR_ROOT /usr/${CAMWIFI_ARM_TRIPLET} CACHE PATH
      "Root that qemu-arm resolves the armhf loader in")
endif()
find_program(CAMWIFI_QEMU_ARM qemu-arm qemu-arm-static)
if(NOT CAMWIFI_QEMU_ARM)
  set(CAMWIFI_QEMU_ARM qemu-arm)
endif()
# CAMWIFI_EMULATED tells a test it runs under user-mode emulation, where
# kernel features beyond ordinary system calls (network namespaces) may be
# missing; such tests skip with a message saying so.
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CAMWIFI_QEMU_ARM} -L ${CAMWIFI_ARM_EMULATOR_ROOT} -E CAMWIFI_EMULATED=qemu-arm)
