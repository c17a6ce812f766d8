# SPDX-License-Identifier: Apache-2.0
# How everything of ours is compiled and linked: paths in the binary do not depend on where it was built, programs are
# position-independent and resolve their symbols before they run, sanitizers and clang-tidy when asked for.

option(ZEL_WERROR "Warnings are errors" ON)
add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Wpedantic)
if(ZEL_WERROR)
  add_compile_options(-Werror)
endif()

# Without this CMake compiles for such programs and does not link them; some compilers do by default, the set's does not.
include(CheckPIESupported)
check_pie_supported()
# What has been resolved is read-only from then on.
add_link_options(LINKER:-z,relro LINKER:-z,now)

# An assertion reports the full source path behind a fixed prefix, whichever folder the sources were built in.
add_compile_options("-fmacro-prefix-map=${CMAKE_SOURCE_DIR}=/usr/src/zel-lite")

if(ZEL_SANITIZE)
  add_compile_options("-fsanitize=${ZEL_SANITIZE}" -fno-omit-frame-pointer)
  add_link_options("-fsanitize=${ZEL_SANITIZE}")
  if(ZEL_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

if(ZEL_CLANG_TIDY)
  find_program(ZEL_CLANG_TIDY_PROGRAM clang-tidy REQUIRED)
  # GCC knows warnings that clang does not; clang-tidy's own findings are what count here.
  set(CMAKE_CXX_CLANG_TIDY "${ZEL_CLANG_TIDY_PROGRAM}" --quiet --extra-arg=-Wno-unknown-warning-option)
endif()
