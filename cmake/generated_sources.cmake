# Sources made at build or configure time: the system-log catalogue table,
# the version numbers, and the source identification lines.  Reads
# NUV_SOURCES and NUV_ROOT (the repository) and the project version; the
# fuzz build, a project of its own, sets NUV_ROOT and the version itself.
if(NOT DEFINED NUV_ROOT)
  set(NUV_ROOT ${PROJECT_SOURCE_DIR})
endif()
if(NOT DEFINED NUV_VERSION)
  set(NUV_VERSION ${PROJECT_VERSION})
endif()
string(REPLACE "." ";" _parts "${NUV_VERSION}")
list(GET _parts 0 NUV_V_MAJOR)
list(GET _parts 1 NUV_V_MINOR)
list(GET _parts 2 NUV_V_PATCH)
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(NUV_GEN_DIR ${PROJECT_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${NUV_GEN_DIR})

set(NUV_SYSLOG_CATALOGUE "${NUV_ROOT}/src/syslog/messages.txt" CACHE FILEPATH
    "Message catalogue of the system-log writer (ID SEVERITY template per line)")
add_custom_command(OUTPUT ${NUV_GEN_DIR}/syslog_catalogue.cpp
  COMMAND Python3::Interpreter ${NUV_ROOT}/tools/gen_syslog_catalogue.py
          ${NUV_SYSLOG_CATALOGUE} ${NUV_GEN_DIR}/syslog_catalogue.cpp
  DEPENDS ${NUV_SYSLOG_CATALOGUE} ${NUV_ROOT}/tools/gen_syslog_catalogue.py
  COMMENT "Generating the system-log catalogue table from ${NUV_SYSLOG_CATALOGUE}"
  VERBATIM)

# Version: the project version is the one source (SONAME, nuvucum.pc, CMake
# package, version string, records).
function(nuv_pad4 out value)
  string(LENGTH "${value}" n)
  set(v "${value}")
  while(n LESS 4)
    set(v "0${v}")
    math(EXPR n "${n} + 1")
  endwhile()
  set(${out} "${v}" PARENT_SCOPE)
endfunction()
nuv_pad4(NUV_MAJOR4 ${NUV_V_MAJOR})
nuv_pad4(NUV_MINOR4 ${NUV_V_MINOR})
if(NOT DEFINED NUV_CHANGELIST)
  execute_process(COMMAND git rev-list --count HEAD WORKING_DIRECTORY ${NUV_ROOT}
                  OUTPUT_VARIABLE NUV_CHANGELIST OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET
                  RESULT_VARIABLE _git_rc)
  if(NOT _git_rc EQUAL 0 OR NOT NUV_CHANGELIST MATCHES "^[0-9]+$")
    set(NUV_CHANGELIST 0)
  endif()
endif()
set(NUV_BUILD_KIND "${CMAKE_BUILD_TYPE}")
if(NUV_SANITIZE)
  set(NUV_BUILD_KIND "${NUV_BUILD_KIND}+sanitize")
endif()
configure_file(${NUV_ROOT}/cmake/build_version.h.in ${NUV_GEN_DIR}/nuv_build_version.h @ONLY)

# One identification line per source, narrow and UTF-16.
set(NUV_IDENT_LINES "")
set(_i 0)
foreach(src ${NUV_SOURCES} ${NUV_SYSLOG_CATALOGUE})
  file(RELATIVE_PATH rel ${NUV_ROOT} ${src})
  string(APPEND NUV_IDENT_LINES
    "NUV_IDENT(\".ident.NUV\") static const char kIdent${_i}[] = \"@(#) $Id: ${rel} $\";\n"
    "NUV_IDENT(\".ident.NUV.u16\") static const char16_t kIdentU${_i}[] = u\"@(#) $Id: ${rel} $\";\n")
  math(EXPR _i "${_i} + 1")
endforeach()
configure_file(${NUV_ROOT}/cmake/ident.cpp.in ${NUV_GEN_DIR}/ident.cpp @ONLY)

list(APPEND NUV_SOURCES ${NUV_GEN_DIR}/syslog_catalogue.cpp ${NUV_GEN_DIR}/ident.cpp)
