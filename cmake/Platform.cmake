# SPDX-License-Identifier: Apache-2.0
# Who answers for the television's libraries.
#
# For every library NAME there are two targets: zel::NAME-headers (its declarations, all that src/ compiles
# against) and zel::NAME (its body, linked into programs). On the set both come from the SDK through pkg-config;
# elsewhere from platform/NAME. Nothing above this file knows which.

# folder in platform/ | pkg-config modules on the set
set(ZEL_PLATFORM_LIBRARIES
  "dlog|dlog"
  "vconf|vconf"
  "aul|aul"
  "tzplatform-config|libtzplatform-config"
  "capi-system-resource|capi-system-resource"
  "service-api|zel-service-api zel-api-ipc zel-api-lite"
  "tv-extension|tv-extension-client"
  "deviced|deviced"
  "tvtimer|tvtimer"
  "libbptime|libbptime")

find_package(PkgConfig REQUIRED)
include(Probes)

if(NOT DEFINED ZEL_PLATFORM)
  pkg_check_modules(ZEL_SDK QUIET vconf dlog)
  if(ZEL_SDK_FOUND)
    set(ZEL_PLATFORM_DEFAULT device)
  else()
    set(ZEL_PLATFORM_DEFAULT linux)
  endif()
endif()
set(ZEL_PLATFORM "${ZEL_PLATFORM_DEFAULT}" CACHE STRING "Who answers for the platform's libraries: device or linux")
set_property(CACHE ZEL_PLATFORM PROPERTY STRINGS device linux)

# Public libraries, the same on both platforms.
find_package(Threads REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET "glib-2.0>=2.62")
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
pkg_check_modules(WAYLAND_CLIENT REQUIRED IMPORTED_TARGET wayland-client)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET "jsoncpp>=1.9.2")

if(ZEL_PLATFORM STREQUAL "device")
  set(ZEL_SDK_INCLUDE "" CACHE PATH "A folder with headers that come before the SDK's, where those have other names")
  include_directories(BEFORE ${ZEL_SDK_INCLUDE})
  set(missing "")
  foreach(row IN LISTS ZEL_PLATFORM_LIBRARIES)
    string(REPLACE "|" ";" row "${row}")
    list(GET row 0 name)
    list(GET row 1 modules)
    zel_modules_variable(variable "${name}")
    set(${variable} "${modules}" CACHE STRING "The SDK's pkg-config modules for ${name}")
    string(REPLACE " " ";" modules "${${variable}}")
    foreach(module IN LISTS modules)
      pkg_check_modules("SDK_${module}" QUIET "${module}")
      if(NOT SDK_${module}_FOUND)
        list(APPEND missing "${module} (${variable})")
      endif()
    endforeach()
    if(NOT missing)
      pkg_check_modules("SDK_${name}" REQUIRED IMPORTED_TARGET GLOBAL ${modules})
      add_library("zel::${name}" ALIAS "PkgConfig::SDK_${name}")
      add_library("zel::${name}-headers" ALIAS "PkgConfig::SDK_${name}")
    endif()
  endforeach()
  if(missing)
    list(JOIN missing ", " missing)
    message(FATAL_ERROR
      "ZEL_PLATFORM=device: pkg-config finds no ${missing}. Point PKG_CONFIG_PATH or PKG_CONFIG_SYSROOT_DIR at "
      "the set's SDK, give other names in the variables in brackets, or build with -DZEL_PLATFORM=linux.")
  endif()
  foreach(row IN LISTS ZEL_PLATFORM_LIBRARIES)
    string(REGEX REPLACE "\\|.*" "" name "${row}")
    zel_check_use("${name}" "PkgConfig::SDK_${name}")
  endforeach()
elseif(ZEL_PLATFORM STREQUAL "linux")
  find_package(sdbus-c++ 1.2 REQUIRED)
  # What several of these libraries need, and nobody else.
  add_library(zel-platform-common INTERFACE)
  target_include_directories(zel-platform-common INTERFACE "${CMAKE_SOURCE_DIR}/platform/common")
  add_library(zel::platform-common ALIAS zel-platform-common)
  # Each library has its contract test in its folder.
  if(ZEL_TESTS)
    include(Testing)
  endif()
  # Declares library NAME of the platform: its headers in include/, its body from SOURCES.
  function(zel_platform_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
    add_library("zel-${name}-headers" INTERFACE)
    target_include_directories("zel-${name}-headers" INTERFACE "${CMAKE_CURRENT_SOURCE_DIR}/include")
    add_library("zel::${name}-headers" ALIAS "zel-${name}-headers")
    add_library("zel-${name}" STATIC ${arg_SOURCES})
    target_link_libraries("zel-${name}" PUBLIC "zel-${name}-headers" PRIVATE ${arg_LINK})
    add_library("zel::${name}" ALIAS "zel-${name}")
  endfunction()
  foreach(row IN LISTS ZEL_PLATFORM_LIBRARIES)
    string(REGEX REPLACE "\\|.*" "" name "${row}")
    add_subdirectory("${CMAKE_SOURCE_DIR}/platform/${name}")
  endforeach()
else()
  message(FATAL_ERROR "ZEL_PLATFORM is '${ZEL_PLATFORM}'; it must be 'device' or 'linux'.")
endif()

zel_find_switch_folder(zel::tzplatform-config-headers)
# What src/ declares unless the service's client libraries do: its folder, and what a library that declares it knows.
foreach(row IN ITEMS "triggers|TRIGGER_TYPE_START_ZEL_MAIN" "sources|sizeof(ESource)")
  string(REPLACE "|" ";" row "${row}")
  list(GET row 0 folder)
  list(GET row 1 expression)
  zel_sdk_declares(declared zel::service-api-headers "${expression}")
  set("ZEL_${folder}" "${folder}/$<IF:$<BOOL:${declared}>,sdk,own>")
endforeach()
