# The API reference, generated from the public header by Doxygen:
#   cmake --build build --target camwifi-docs   ->  build/doc/html/index.html
# Built on request only (scripts/pkg.sh builds it in CI); any Doxygen warning
# (an undocumented function, argument or return value) fails it.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(CAMWIFI_DOCS_DIR ${PROJECT_BINARY_DIR}/doc)
  configure_file(${PROJECT_SOURCE_DIR}/doc/Doxyfile.in ${CAMWIFI_DOCS_DIR}/Doxyfile @ONLY)
  file(GLOB CAMWIFI_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/camwifi/*.h)
  add_custom_target(camwifi-docs
    COMMAND ${CMAKE_COMMAND} -E remove_directory ${CAMWIFI_DOCS_DIR}/html
    COMMAND Doxygen::doxygen ${CAMWIFI_DOCS_DIR}/Doxyfile
    WORKING_DIRECTORY ${CAMWIFI_DOCS_DIR}
    DEPENDS ${CAMWIFI_PUBLIC_HEADERS} ${CAMWIFI_DOCS_DIR}/Doxyfile
    COMMENT "API reference of include/camwifi (${CAMWIFI_DOCS_DIR}/html/index.html)"
    VERBATIM)
else()
  message(STATUS "Doxygen not found (scripts/setup.sh --pkg installs it): no camwifi-docs target")
endif()
