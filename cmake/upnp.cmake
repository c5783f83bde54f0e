# libupnp (pupnp 1.8) and its XML parser ixml, as the imported target
# camwifi::upnp, for the host DLNA stack.
#
# On the build machine pkg-config finds them (Debian's libupnp-dev). For the
# armhf cross build the -dev package cannot be installed beside the build
# machine's (its generated upnpconfig.h differs, only in a check that
# _FILE_OFFSET_BITS is 64, which this project always sets), so the armhf
# build takes the build machine's headers and links the armhf runtime
# libraries (libupnp13:armhf, libixml10:armhf) by their versioned names.
if(TARGET camwifi::upnp)
  return()
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(UPNP QUIET IMPORTED_TARGET libupnp)
if(UPNP_FOUND)
  # An ALIAS of an imported target must be global to be seen elsewhere.
  set_target_properties(PkgConfig::UPNP PROPERTIES IMPORTED_GLOBAL TRUE)
  add_library(camwifi::upnp ALIAS PkgConfig::UPNP)
  return()
endif()
find_path(CAMWIFI_UPNP_INCLUDE_DIR ixml.h PATHS /usr/include/upnp NO_CMAKE_FIND_ROOT_PATH)
find_library(CAMWIFI_UPNP_LIBRARY NAMES upnp libupnp.so.13)
find_library(CAMWIFI_IXML_LIBRARY NAMES ixml libixml.so.10)
if(NOT CAMWIFI_UPNP_INCLUDE_DIR OR NOT CAMWIFI_UPNP_LIBRARY OR NOT CAMWIFI_IXML_LIBRARY)
  message(FATAL_ERROR "libupnp not found (headers: ${CAMWIFI_UPNP_INCLUDE_DIR}, "
    "libupnp: ${CAMWIFI_UPNP_LIBRARY}, libixml: ${CAMWIFI_IXML_LIBRARY}); "
    "scripts/setup.sh installs it (with --arm for the armhf build)")
endif()
add_library(camwifi_upnp_imported INTERFACE IMPORTED GLOBAL)
target_include_directories(camwifi_upnp_imported INTERFACE ${CAMWIFI_UPNP_INCLUDE_DIR})
target_link_libraries(camwifi_upnp_imported INTERFACE ${CAMWIFI_UPNP_LIBRARY} ${CAMWIFI_IXML_LIBRARY} Threads::Threads)
add_library(camwifi::upnp ALIAS camwifi_upnp_imported)
