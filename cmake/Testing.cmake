# SPDX-License-Identifier: Apache-2.0
# One test program is one test, run in a private /tmp, /run, /etc, /usr and /var/lib (tests/support/private-root).
find_package(GTest REQUIRED)

# Several build folders are run by one ctest; a test's name says which one it comes from.
get_filename_component(ZEL_TEST_PREFIX "${CMAKE_BINARY_DIR}" NAME)

# Tests are spared the checks that their nature fails (the linker's --wrap prescribes reserved names) and the
# path-sensitive analyzer, which takes most of the time and finds nothing in straight-line tests that the sanitizers
# would not.
function(zel_relax_tidy target)
  if(CMAKE_CXX_CLANG_TIDY)
    set_target_properties("${target}" PROPERTIES CXX_CLANG_TIDY "${CMAKE_CXX_CLANG_TIDY};\
--checks=-clang-analyzer-*,-bugprone-reserved-identifier,-performance-inefficient-string-concatenation")
  endif()
endfunction()

# zel_test(NAME SOURCES ... LINK ... [WRAP function ...] [LABELS ...])
# WRAP replaces a C function at link time: the program defines __wrap_NAME and reaches the real one as __real_NAME.
function(zel_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK;WRAP;LABELS")
  add_executable("${name}" ${arg_SOURCES})
  zel_relax_tidy("${name}")
  target_include_directories("${name}" PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  target_link_libraries("${name}" PRIVATE ${arg_LINK} GTest::gmock GTest::gtest_main)
  foreach(function IN LISTS arg_WRAP)
    target_link_options("${name}" PRIVATE "LINKER:--wrap=${function}")
  endforeach()
  add_test(NAME "${ZEL_TEST_PREFIX}/${name}"
    COMMAND "${CMAKE_SOURCE_DIR}/tests/support/private-root" "${CMAKE_SOURCE_DIR}" "$<TARGET_FILE:${name}>")
  set_tests_properties("${ZEL_TEST_PREFIX}/${name}" PROPERTIES
    TIMEOUT 900 LABELS "${arg_LABELS}"
    ENVIRONMENT "TSAN_OPTIONS=halt_on_error=1:suppressions=${CMAKE_SOURCE_DIR}/tests/support/tsan.supp;ASAN_OPTIONS=detect_stack_use_after_return=1;UBSAN_OPTIONS=print_stacktrace=1")
endfunction()

# What several test programs share: the private bus, waiting with a limit.
add_library(zel-test-support STATIC "${CMAKE_SOURCE_DIR}/tests/support/Files.cpp" "${CMAKE_SOURCE_DIR}/tests/support/PrivateBus.cpp")
target_include_directories(zel-test-support PUBLIC "${CMAKE_SOURCE_DIR}/tests")
