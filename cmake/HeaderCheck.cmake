# SPDX-License-Identifier: Apache-2.0
# Every header of ours compiles alone: one translation unit per header, holding nothing else.

file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${CMAKE_SOURCE_DIR}"
  "${CMAKE_SOURCE_DIR}/src/*.h" "${CMAKE_SOURCE_DIR}/platform/*.h" "${CMAKE_SOURCE_DIR}/simulator/*.h"
  "${CMAKE_SOURCE_DIR}/tools/*.h" "${CMAKE_SOURCE_DIR}/tests/*.h")
# Those of the stubs of an SDK are written as their libraries write theirs.
list(FILTER headers EXCLUDE REGEX "^tests/build/sdk/")

set(units "")
foreach(header IN LISTS headers)
  set(unit "${CMAKE_CURRENT_BINARY_DIR}/header-check/${header}.cpp")
  file(CONFIGURE OUTPUT "${unit}" CONTENT "#include \"${CMAKE_SOURCE_DIR}/${header}\"\n")
  list(APPEND units "${unit}")
endforeach()

add_library(zel-header-check OBJECT ${units})
set_target_properties(zel-header-check PROPERTIES CXX_CLANG_TIDY "")
target_include_directories(zel-header-check PRIVATE
  "${CMAKE_SOURCE_DIR}/src" "${CMAKE_SOURCE_DIR}/src/${ZEL_triggers}" "${CMAKE_SOURCE_DIR}/src/${ZEL_sources}"
  "${CMAKE_SOURCE_DIR}/tests" "${CMAKE_SOURCE_DIR}/tools/zelctl")
target_link_libraries(zel-header-check PRIVATE
  zel::platform-common SDBusCpp::sdbus-c++ PkgConfig::GLIB PkgConfig::DBUS PkgConfig::JSONCPP PkgConfig::WESTON GTest::gmock)
foreach(row IN LISTS ZEL_PLATFORM_LIBRARIES)
  string(REGEX REPLACE "\\|.*" "" name "${row}")
  target_link_libraries(zel-header-check PRIVATE "zel::${name}-headers")
endforeach()
