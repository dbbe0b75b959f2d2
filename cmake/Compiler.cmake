# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

find_program(HOIST_CCACHE ccache)
if(HOIST_CCACHE)
  # Nothing in an object depends on where the tree lies (-ffile-prefix-map), so another build folder or checkout may take
  # it. The sloppiness is what ccache asks for where headers are compiled ahead: it looks at those headers itself.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
    CCACHE_SLOPPINESS=pch_defines,time_macros ${HOIST_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

# Sanitizers: "address" (with undefined behaviour) or "thread"; empty for none.
set(HOIST_SANITIZER "" CACHE STRING "Sanitizer to build with: address, thread or none")

add_library(hoist_options INTERFACE)
target_compile_options(hoist_options INTERFACE -Wall -Wextra -Werror -Wnon-virtual-dtor -Woverloaded-virtual
  # Designated initialisers name what differs from the defaults; that is their point.
  -Wno-missing-field-initializers
  -Wvla -fno-strict-aliasing -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(hoist_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_include_directories(hoist_options INTERFACE ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(hoist_options INTERFACE -Wthread-safety)
else()
  # False alarms of g++ 12 about joined strings at -O3 (GCC bug 105651).
  target_compile_options(hoist_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(HOIST_SANITIZER STREQUAL "address")
  target_compile_options(hoist_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(hoist_options INTERFACE -fsanitize=address,undefined)
  target_compile_definitions(hoist_options INTERFACE HOIST_SANITIZED=1)
elseif(HOIST_SANITIZER STREQUAL "thread")
  target_compile_options(hoist_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(hoist_options INTERFACE -fsanitize=thread)
  target_compile_definitions(hoist_options INTERFACE HOIST_SANITIZED=1)
else()
  # Hardening of a root daemon: checked string functions, stack protector, immediate binding, read-only relocations.
  target_compile_options(hoist_options INTERFACE -fstack-protector-strong $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(hoist_options INTERFACE -Wl,-z,relro,-z,now)
  # A program holds what it uses: every launch of a helper reads its whole file.
  target_compile_options(hoist_options INTERFACE -ffunction-sections -fdata-sections)
  target_link_options(hoist_options INTERFACE -Wl,--gc-sections)
endif()
if(HOIST_BUILD_FUZZERS)
  target_compile_options(hoist_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
# A library that nothing in a program calls is not loaded by it: the daemon is started on demand.
target_link_options(hoist_options INTERFACE -Wl,--as-needed)
