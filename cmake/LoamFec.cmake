# SPDX-License-Identifier: Apache-2.0

# How this project's targets are made: one library per folder, which has an include root of its own,
# warnings as errors for our own code, and only the dependencies that a target names.

include(GNUInstallDirs)

# Below the prefix; users have it as one include root, and write <folder>/<Header.h> as we do.
set(LOAMFEC_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/loamfec)

# A change inside a shared library is no reason to link again what uses it.
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)

add_library(loamfec_options INTERFACE)
target_compile_options(
  loamfec_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wshadow
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wcast-align
            -Wold-style-cast
            -Wimplicit-fallthrough
            -Wnull-dereference
            -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release")
  # g++ 12 reports null dereferences and overlapping copies on inlined library code (std::string's
  # operator+) that cannot happen.
  target_compile_options(loamfec_options INTERFACE -Wno-null-dereference -Wno-restrict)
endif()
if(LOAMFEC_SANITIZE)
  target_compile_options(loamfec_options INTERFACE -fsanitize=${LOAMFEC_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(loamfec_options INTERFACE -fsanitize=${LOAMFEC_SANITIZE})
endif()
if(LOAMFEC_COVERAGE)
  # Only what is reported counts itself: the lines of src/, wherever they are compiled into. The filter is
  # a regular expression, so a dot stands for what may have a meaning there.
  string(REGEX REPLACE "[^A-Za-z0-9/_-]" "." counted ${PROJECT_SOURCE_DIR}/src/)
  # Counting atomically costs six times as much: only targets do it whose code tests run in several
  # threads.
  set(counts $<IF:$<BOOL:$<TARGET_PROPERTY:LOAMFEC_RUNS_IN_THREADS>>,atomic,single>)
  target_compile_options(
    loamfec_options INTERFACE --coverage -fprofile-update=${counts}
                              -fprofile-filter-files=${counted}.*)
  target_link_options(loamfec_options INTERFACE --coverage)
endif()

# What a program says of itself names its sources from the root of the repository, wherever that stands.
# Debug information keeps the whole paths: debuggers find the sources by them.
set(LOAMFEC_SOURCE_NAMES -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# loamfec_library(name SOURCES file... [DEPENDS target...] [PRIVATE_DEPENDS target...])
# The folder's include/ is what others see of it: they write <folder>/<Header.h>. A header that stands
# anywhere else is the library's own. A shared library is called libloamfec-<name>.so, in small letters.
function(loamfec_library name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS")
  add_library(${name} ${ARG_SOURCES})
  target_include_directories(
    ${name} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
                   $<INSTALL_INTERFACE:${LOAMFEC_INSTALL_HEADERS}>)
  target_link_libraries(${name} PUBLIC ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS} loamfec_options)
  target_compile_options(${name} PRIVATE ${LOAMFEC_SOURCE_NAMES})
  target_compile_features(${name} PUBLIC cxx_std_20)
  string(TOLOWER loamfec-${name} file_name)
  set_target_properties(
    ${name} PROPERTIES OUTPUT_NAME ${file_name} VERSION ${PROJECT_VERSION}
                       SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()

# loamfec_row_types(file...)
# Sources of the folder's target that define row types, and so generate the code of their maps: they see
# the inside of Glint, and the others do not.
function(loamfec_row_types)
  set_property(
    SOURCE ${ARGV} APPEND
    PROPERTY INCLUDE_DIRECTORIES $<TARGET_PROPERTY:Glint,SOURCE_DIR>)
endfunction()

# loamfec_executable(name SOURCES file... [DEPENDS target...])
function(loamfec_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} loamfec_options)
  target_compile_options(${name} PRIVATE ${LOAMFEC_SOURCE_NAMES})
endfunction()

# loamfec_benchmark(name SOURCES file... [DEPENDS target...])
# One Google Benchmark binary, its main among its sources; scripts/bench runs all of them. A test of its
# own runs it with LOAMFEC_BENCH_TINY=1 in the environment.
function(loamfec_benchmark name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} benchmark::benchmark
                                        loamfec_options)
  add_test(NAME ${name}.Tiny COMMAND ${name} --benchmark_min_time=0)
  set_tests_properties(
    ${name}.Tiny
    PROPERTIES ENVIRONMENT LOAMFEC_BENCH_TINY=1 TIMEOUT 1800
               FAIL_REGULAR_EXPRESSION "ERROR OCCURRED")
endfunction()

# The timeouts end what hangs: they are far beyond what any test takes on a busy machine.

# loamfec_test(name SOURCES file... [DEPENDS target...])
# One GoogleTest binary, registered with CTest as one test per case, or as one test with
# LOAMFEC_WHOLE_PROGRAMS.
function(loamfec_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} GTest::gmock GTest::gtest GTest::gtest_main
                                        loamfec_options)
  target_compile_options(${name} PRIVATE ${LOAMFEC_TEST_FLAGS})
  if(LOAMFEC_TEST_PCH)
    target_precompile_headers(${name} REUSE_FROM loamTestHeaders)
  endif()
  if(LOAMFEC_WHOLE_PROGRAMS)
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES TIMEOUT 1800)
  else()
    gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 1800)
  endif()
endfunction()
include(GoogleTest)
