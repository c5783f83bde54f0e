# Debian packages of the install components (cmake/CamwifiInstall.cmake),
# made by CPack in a build configured with CMAKE_INSTALL_PREFIX=/usr:
#
#   cmake -S . -B build-pkg -DCMAKE_INSTALL_PREFIX=/usr -DCAMWIFI_BUILD_TESTS=OFF
#   cmake --build build-pkg && (cd build-pkg && cpack)
#
# scripts/pkg.sh does that for amd64 and armhf and checks the result. The
# packages follow Debian's library layout: the runtime package is named after
# the SONAME, the development files and the tools are packages of their own,
# and the host stand-ins (PC builds) are the runtime library package that
# libcamwifi and the tools depend on.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME camwifi)
set(CPACK_PACKAGE_VENDOR "camwifi developers")
set(CAMWIFI_PACKAGE_MAINTAINER "camwifi developers <camwifi@camwifi.example>"
  CACHE STRING "Maintainer field of the Debian packages")
set(CPACK_PACKAGE_CONTACT "${CAMWIFI_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package's description is its component's below: first line the
# synopsis, then the long description. (No package-wide summary: CPack would
# put it in front of every one of them.)
# The packages install where the build was configured to install.
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# Shipped binaries carry no debugging sections.
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Native packages (version 1.0.0, no Debian revision): this repository is
# their only source, and packaging/changelog their changelog.
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Directories 0755, files 0644 / 0755, whatever the umask of the build.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The architecture is the one the compiler builds for (armhf in a cross
# build), not the build machine's.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpmachine
  OUTPUT_VARIABLE CAMWIFI_TARGET_TRIPLET OUTPUT_STRIP_TRAILING_WHITESPACE)
find_program(CAMWIFI_DPKG_ARCHITECTURE dpkg-architecture)
if(CAMWIFI_DPKG_ARCHITECTURE AND CAMWIFI_TARGET_TRIPLET)
  execute_process(COMMAND ${CAMWIFI_DPKG_ARCHITECTURE} -t ${CAMWIFI_TARGET_TRIPLET} -qDEB_HOST_ARCH
    OUTPUT_VARIABLE CAMWIFI_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(CAMWIFI_DEB_ARCH)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CAMWIFI_DEB_ARCH})
endif()

# Dependencies on system libraries come from dpkg-shlibdeps; the ones between
# these packages are declared below (exact version: they are built together).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# dpkg-shlibdeps must find libcamwifi.so.1 and the host stand-ins, which are
# not installed on the build machine: the build tree holds them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
foreach(host_library ${CAMWIFI_HOST_LIBRARIES})
  get_target_property(host_library_dir ${host_library} LIBRARY_OUTPUT_DIRECTORY)
  if(NOT host_library_dir)
    get_target_property(host_library_dir ${host_library} BINARY_DIR)
  endif()
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${host_library_dir})
endforeach()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${CAMWIFI_INSTALL_COMPONENTS})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${CAMWIFI_PACKAGE_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Shared libraries in the loader's directories activate its cache trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "camera Wi-Fi features library
libcamwifi is the library a digital camera's UI process loads to run its
Wi-Fi features: pushing photos and videos to one or many phones, the mode
server that tells companion phone apps what the camera does, a DLNA renderer
control point that shows photos and plays videos on TVs, media sharing,
backup to a PC and the remote viewfinder. The UI calls flat C functions and
hears back through callbacks.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${CAMWIFI_PACKAGE_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "camera Wi-Fi features library - development files
libcamwifi is the library a digital camera's UI process loads to run its
Wi-Fi features (push to phones, mode server, DLNA renderer control point,
media sharing, remote viewfinder).
.
This package holds the C headers (camwifi/camwifi.h), the pkg-config file
camwifi.pc and the CMake package that find_package(camwifi) loads, with the
imported target camwifi::camwifi.")

set(CPACK_DEBIAN_HOST_PACKAGE_NAME ${CAMWIFI_PACKAGE_host})
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_HOST_DESCRIPTION
  "camera Wi-Fi features library - PC stand-ins of the camera's libraries
On the camera, libcamwifi runs beside closed libraries (a DLNA stack, the
viewfinder, backup and application-service libraries) and the platform log.
This package stands in for them on a PC: mutexes, timers, configuration,
the media database, JPEG resizing and the ARP lookup really work, so the
library runs and its push and mode servers talk to real phones.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${CAMWIFI_PACKAGE_tools})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "camera Wi-Fi features on a PC: camwifi-sim and phone-sim
camwifi-sim runs libcamwifi as a camera's UI does and plays the camera's
side of a push to a phone, or gives a person the camera at a command line.
phone-sim plays a companion phone app against it or against a real camera:
it registers with the mode server, follows mode changes, announces itself to
the push server and stores the files it receives.")

if(CAMWIFI_HOST_PLATFORM)
  # On a PC libcamwifi needs the stand-ins at load time (its DT_NEEDED).
  set(CPACK_COMPONENT_RUNTIME_DEPENDS host)
endif()

include(CPack)
