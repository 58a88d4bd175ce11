# `make package`: two Debian packages from the install components, versioned
# from the project version.
#   runtime      libnuvucumN   shared library, nuvconv and its manual page
#   development  libnuvucum-dev header, static library, pkg-config, CMake package
find_program(NUV_GZIP gzip)
set(_man ${PROJECT_SOURCE_DIR}/docs/nuvconv.1)
if(NUV_GZIP)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/nuvconv.1.gz
    COMMAND ${NUV_GZIP} -9 -n -c ${_man} > ${PROJECT_BINARY_DIR}/nuvconv.1.gz
    DEPENDS ${_man} VERBATIM)
  add_custom_target(nuvconv_man ALL DEPENDS ${PROJECT_BINARY_DIR}/nuvconv.1.gz)
  set(_man ${PROJECT_BINARY_DIR}/nuvconv.1.gz)
endif()
if(NUV_BUILD_TOOLS)
  install(FILES ${_man} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME nuvucum)
set(CPACK_PACKAGE_VENDOR "libnuvucum project")
set(CPACK_PACKAGE_CONTACT "libnuvucum maintainers <nuvucum@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "UTF-16 C runtime over UTF-8 streams")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libnuvucum${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "UTF-16 C runtime over UTF-8 streams (shared library)\nThe string, printf, scanf, stream and conversion functions of the C runtime\nfor programs that hold their text in UTF-16, and the nuvconv converter.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libnuvucum-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libnuvucum${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "UTF-16 C runtime over UTF-8 streams (development files)\nHeader, static library, pkg-config file and CMake package of libnuvucum.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)

include(CPack)
