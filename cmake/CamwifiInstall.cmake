# What `cmake --install` puts where (GNUInstallDirs), in four components that
# become the four Debian packages (cmake/CamwifiPackaging.cmake):
#
#   runtime      libcamwifi.so.MAJOR                      libcamwifi1
#   development  headers, libcamwifi.so, camwifi.pc,       libcamwifi-dev
#                the CMake package (camwifi::camwifi)
#   host         the host stand-ins of the closed          libcamwifi-host1
#                libraries (PC builds only)
#   tools        camwifi-sim, phone-sim, their manual      camwifi-tools
#                pages and the story's samples
#
# A consumer sees the runtime and development components only: camwifi.pc and
# the CMake target name libcamwifi alone. On a PC, libcamwifi.so itself needs
# the host stand-ins (its DT_NEEDED entry), so the loader brings them in; on
# the camera the closed libraries stand in their place.

include(CMakePackageConfigHelpers)

set(CAMWIFI_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/camwifi)

# Where the documentation of each package lives (its copyright and changelog).
# The names are the packages' own, set in one place here.
set(CAMWIFI_PACKAGE_runtime libcamwifi${PROJECT_VERSION_MAJOR})
set(CAMWIFI_PACKAGE_development libcamwifi-dev)
set(CAMWIFI_PACKAGE_host libcamwifi-host${PROJECT_VERSION_MAJOR})
set(CAMWIFI_PACKAGE_tools camwifi-tools)

# --- The library -----------------------------------------------------------------
install(TARGETS camwifi EXPORT camwifiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime
    NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/camwifi
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.h")

# pkg-config. The paths are written relative to ${prefix} where they lie
# below it, so PKG_CONFIG_SYSROOT_DIR (a staged install, a cross sysroot)
# moves them all.
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(CAMWIFI_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(CAMWIFI_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/packaging/camwifi.pc.in ${PROJECT_BINARY_DIR}/camwifi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/camwifi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The CMake package: find_package(camwifi) gives camwifi::camwifi. The
# imported target carries the include directory and the library, nothing of
# the host stand-ins (they are a private dependency of the shared library).
install(EXPORT camwifiTargets
  NAMESPACE camwifi::
  DESTINATION ${CAMWIFI_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/camwifiConfig.cmake.in
  ${PROJECT_BINARY_DIR}/camwifiConfig.cmake
  INSTALL_DESTINATION ${CAMWIFI_CMAKE_DIR})
# Same major version, same ABI (the SONAME's promise).
write_basic_package_version_file(${PROJECT_BINARY_DIR}/camwifiConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/camwifiConfig.cmake ${PROJECT_BINARY_DIR}/camwifiConfigVersion.cmake
  DESTINATION ${CAMWIFI_CMAKE_DIR}
  COMPONENT development)

# --- The host stand-ins ------------------------------------------------------------
# The libraries of CAMWIFI_HOST_LIBRARIES (top-level CMakeLists.txt), in PC
# builds: versioned like libcamwifi, installed as runtime libraries of their
# own (no development link: nobody links them but libcamwifi and the tools).
foreach(host_library ${CAMWIFI_HOST_LIBRARIES})
  if(TARGET ${host_library})
    set_target_properties(${host_library} PROPERTIES
      VERSION ${PROJECT_VERSION}
      SOVERSION ${PROJECT_VERSION_MAJOR})
    install(TARGETS ${host_library}
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT host
        NAMELINK_SKIP)
  endif()
endforeach()

# --- The tools ---------------------------------------------------------------------
if(TARGET camwifi-sim AND TARGET phone-sim)
  install(TARGETS camwifi-sim phone-sim
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/samples/SAM_0001.JPG ${PROJECT_SOURCE_DIR}/tools/samples/SAM_0002.MP4
    DESTINATION ${CMAKE_INSTALL_DATADIR}/camwifi/samples
    COMPONENT tools)
  # Manual pages, compressed as Debian wants them (no name or time stamp
  # in the gzip header, so a rebuild gives the same bytes).
  set(man_pages "")
  foreach(page camwifi-sim.1 phone-sim.1)
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/man/${page}.gz
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/man/${page} > ${PROJECT_BINARY_DIR}/man/${page}.gz
      DEPENDS ${PROJECT_SOURCE_DIR}/packaging/man/${page}
      VERBATIM)
    list(APPEND man_pages ${PROJECT_BINARY_DIR}/man/${page}.gz)
  endforeach()
  add_custom_target(camwifi-man-pages ALL DEPENDS ${man_pages})
  install(FILES ${man_pages}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tools)
endif()

# --- Each package's copyright and changelog ------------------------------------
# /usr/share/doc/<package>/ holds both for every package; the changelog is
# compressed the same reproducible way as the manual pages.
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/packaging/changelog.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/packaging
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${PROJECT_BINARY_DIR}/packaging/changelog.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog
  VERBATIM)
add_custom_target(camwifi-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
set(CAMWIFI_INSTALL_COMPONENTS runtime development)
if(CAMWIFI_HOST_PLATFORM)
  list(APPEND CAMWIFI_INSTALL_COMPONENTS host)
endif()
if(TARGET camwifi-sim AND TARGET phone-sim)
  list(APPEND CAMWIFI_INSTALL_COMPONENTS tools)
endif()
foreach(component ${CAMWIFI_INSTALL_COMPONENTS})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright ${PROJECT_BINARY_DIR}/packaging/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CAMWIFI_PACKAGE_${component}}
    COMPONENT ${component})
endforeach()
