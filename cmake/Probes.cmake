# SPDX-License-Identifier: Apache-2.0
# Questions to the libraries' headers that only a compiler answers. All are asked at each configuration, because another
# SDK may have come meanwhile.

# zel_compiles(RESULT OUTPUT FILE TARGET): whether FILE compiles as the daemon does, with the headers of TARGET.
function(zel_compiles result output file target)
  get_target_property(folders "${target}" INTERFACE_INCLUDE_DIRECTORIES)
  get_target_property(options "${target}" INTERFACE_COMPILE_OPTIONS)
  foreach(property IN ITEMS folders options)
    if(NOT ${property})
      set(${property} "")
    endif()
  endforeach()
  # Nothing is linked: the libraries may be another machine's.
  set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
  try_compile(ZEL_PROBE "${CMAKE_BINARY_DIR}/probes" "${file}"
    CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${ZEL_SDK_INCLUDE};${folders}"
    COMPILE_DEFINITIONS ${options}
    CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON
    OUTPUT_VARIABLE text)
  set(${result} ${ZEL_PROBE} PARENT_SCOPE)
  set(${output} "${text}" PARENT_SCOPE)
  unset(ZEL_PROBE CACHE)
endfunction()

# zel_compiles_text(RESULT OUTPUT NAME TARGET TEXT): the same with a text, which becomes the file NAME.
function(zel_compiles_text result output name target text)
  set(file "${CMAKE_BINARY_DIR}/probes/${name}.cpp")
  file(WRITE "${file}" "${text}\n")
  zel_compiles(ok out "${file}" "${target}")
  set(${result} ${ok} PARENT_SCOPE)
  set(${output} "${out}" PARENT_SCOPE)
endfunction()

# zel_find_switch_folder(TARGET): sets ZEL_SWITCH_FOLDER to the name of the platform's variable 6. Releases number the
# variables differently, and the number is what the daemon passes.
function(zel_find_switch_folder target)
  if(ZEL_SWITCH_FOLDER)
    return()
  endif()
  # GCC names the enumerator of a number in its complaint about an incomplete type.
  zel_compiles_text(ok said switch-folder "${target}" "#include <tzplatform_config.h>
template <tzplatform_variable> struct Folder;
Folder<static_cast<tzplatform_variable>(6)> folder;")
  if(said MATCHES "Folder<(::)?([A-Za-z_][A-Za-z_0-9]*)>")
    set(ZEL_SWITCH_FOLDER "${CMAKE_MATCH_2}" PARENT_SCOPE)
    message(STATUS "The switches are in the folder ${CMAKE_MATCH_2}")
  else()
    message(FATAL_ERROR
      "tzplatform_config.h names no variable with the number 6, the folder of the daemon's switches. Give the name with "
      "-DZEL_SWITCH_FOLDER=NAME. The compiler said:\n${said}")
  endif()
endfunction()

# zel_modules_variable(RESULT NAME): the cache variable with the pkg-config modules of library NAME.
function(zel_modules_variable result name)
  string(TOUPPER "ZEL_SDK_${name}" variable)
  string(MAKE_C_IDENTIFIER "${variable}" variable)
  set(${result} "${variable}" PARENT_SCOPE)
endfunction()

# zel_check_use(NAME TARGET): ends the configuration unless the headers of library NAME have what the daemon uses.
function(zel_check_use name target)
  zel_compiles(ok said "${CMAKE_SOURCE_DIR}/cmake/sdk/${name}.cpp" "${target}")
  if(NOT ok)
    string(REGEX MATCHALL "[^\n]*error:[^\n]*" errors "${said}")
    list(JOIN errors "\n" errors)
    zel_modules_variable(variable "${name}")
    message(FATAL_ERROR
      "The headers of ${name} are not those that the daemon is written for: cmake/sdk/${name}.cpp does not compile "
      "(docs/set.md). ${variable} names the modules that they come from, now ${${variable}}; ZEL_SDK_INCLUDE a folder with "
      "headers that come first.\n${errors}")
  endif()
endfunction()

# zel_sdk_declares(RESULT TARGET EXPRESSION): whether the service's client libraries declare what is in EXPRESSION.
function(zel_sdk_declares result target expression)
  string(MAKE_C_IDENTIFIER "declares-${expression}" name)
  zel_compiles_text(ok said "${name}" "${target}" "#include \"ZelServiceAPI.h\"
constexpr auto value = ${expression};")
  set(${result} ${ok} PARENT_SCOPE)
endfunction()
