# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# A folder is a target: adding a file to the folder is all it takes to build it.

# Headers that are compiled once for all: GoogleTest's for the tests, the standard library's for the builds with
# sanitizers. The sources of the build without sanitizers do without, which proves that each includes what it needs.
set(precompiled_headers <algorithm> <atomic> <chrono> <functional> <map> <memory> <mutex> <optional> <string>
  <string_view> <system_error> <thread> <unordered_map> <variant> <vector>)
if(HOIST_SANITIZER)
  file(WRITE ${PROJECT_BINARY_DIR}/precompiled.cc "")
  add_library(hoist_precompiled STATIC ${PROJECT_BINARY_DIR}/precompiled.cc)
  target_link_libraries(hoist_precompiled PRIVATE hoist_options)
  target_precompile_headers(hoist_precompiled PRIVATE ${precompiled_headers})
endif()
if(HOIST_BUILD_TESTS)
  # Every test program and what it starts, and nothing else.
  add_custom_target(all_tests)
  # The tests are not what is tested: they compile in half the time without optimisation.
  set(test_options -O0 -g1)
  file(WRITE ${PROJECT_BINARY_DIR}/precompiled_tests.cc "int main() {}")
  add_executable(hoist_precompiled_tests ${PROJECT_BINARY_DIR}/precompiled_tests.cc)
  target_link_libraries(hoist_precompiled_tests PRIVATE hoist_options GTest::gmock)
  target_compile_options(hoist_precompiled_tests PRIVATE ${test_options})
  target_precompile_headers(hoist_precompiled_tests PRIVATE
    ${precompiled_headers} <filesystem> <fstream> <gmock/gmock.h> <gtest/gtest.h>)
endif()

# hoist_library(NAME DEPENDS targets...): a static library hoist_NAME of every source of the folder.
function(hoist_library name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  list(FILTER sources EXCLUDE REGEX "/main\\.cc$")
  if(sources)
    add_library(hoist_${name} STATIC ${sources})
    target_link_libraries(hoist_${name} PUBLIC $<BUILD_INTERFACE:hoist_options> ${ARG_DEPENDS})
    if(HOIST_SANITIZER)
      target_precompile_headers(hoist_${name} REUSE_FROM hoist_precompiled)
    endif()
  else()
    add_library(hoist_${name} INTERFACE)
    target_link_libraries(hoist_${name} INTERFACE $<BUILD_INTERFACE:hoist_options> ${ARG_DEPENDS})
  endif()
endfunction()

# What every program of a sanitized build is linked with besides (an object, so that it is linked at all).
set(sanitizer_defaults "")
if(HOIST_SANITIZER)
  add_library(hoist_sanitizer_defaults OBJECT ${PROJECT_SOURCE_DIR}/cmake/SanitizerDefaults.cc)
  find_program(HOIST_SYMBOLIZER NAMES llvm-symbolizer llvm-symbolizer-14 REQUIRED)
  target_compile_definitions(hoist_sanitizer_defaults PRIVATE HOIST_SYMBOLIZER="${HOIST_SYMBOLIZER}")
  set(sanitizer_defaults hoist_sanitizer_defaults)
endif()

# hoist_program(NAME DEPENDS targets...): an executable NAME of the folder's main.cc.
function(hoist_program name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  add_executable(${name} ${CMAKE_CURRENT_SOURCE_DIR}/main.cc)
  target_link_libraries(${name} PRIVATE hoist_options ${ARG_DEPENDS} ${sanitizer_defaults})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()

# hoist_tests(NAME DEPENDS targets... [LABELS labels...] [TIMEOUT seconds] [SERIAL]): one test program of every *_test.cc of
# the folder, each test case a CTest test of its own process. SERIAL: no other test runs beside one of these.
function(hoist_tests name)
  cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "DEPENDS;LABELS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  if(NOT sources)
    return()
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name}_test ${sources})
  add_dependencies(all_tests ${name}_test)
  target_link_libraries(${name}_test PRIVATE hoist_options ${ARG_DEPENDS} ${sanitizer_defaults}
    GTest::gmock GTest::gtest_main)
  target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name}_test PRIVATE HOIST_BUILD_DIR="${PROJECT_BINARY_DIR}" HOIST_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_compile_options(${name}_test PRIVATE ${test_options})
  target_precompile_headers(${name}_test REUSE_FROM hoist_precompiled_tests)
  gtest_discover_tests(${name}_test DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} RUN_SERIAL ${ARG_SERIAL} LABELS "${ARG_LABELS}")
endfunction()

# hoist_fuzzer(NAME [SOURCES sources...] DEPENDS targets...): a libFuzzer program fuzz_NAME of NAME.cc and the sources, and
# a test that it runs.
function(hoist_fuzzer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(fuzz_${name} ${name}.cc ${ARG_SOURCES})
  target_include_directories(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer-no-link)
  target_link_libraries(fuzz_${name} PRIVATE hoist_options ${ARG_DEPENDS} -fsanitize=fuzzer)
  set_target_properties(fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/fuzz)
  if(HOIST_BUILD_TESTS)
    add_test(NAME fuzz.${name} COMMAND fuzz_${name} -runs=2000 -seed=1)
    set_tests_properties(fuzz.${name} PROPERTIES TIMEOUT 120 LABELS fuzz)
  endif()
endfunction()

# hoist_benchmark(NAME DEPENDS targets...): the program bench_NAME of every source of the folder, which ./bench runs.
function(hoist_benchmark name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  find_package(benchmark REQUIRED)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  add_executable(bench_${name} ${sources})
  target_link_libraries(bench_${name} PRIVATE hoist_options hoist_bench_support ${ARG_DEPENDS})
  set_target_properties(bench_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
endfunction()
