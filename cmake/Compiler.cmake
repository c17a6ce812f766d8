# SPDX-License-Identifier: Apache-2.0
# How everything of ours is compiled: warnings are errors, paths in the binary do not depend on where it was
# built, sanitizers and clang-tidy when asked for.

add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Wpedantic -Werror)

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
