# The three shapes of target that the folders are made of.

# quorel_library(name SOURCES ... [DEPENDS ...]): one folder's code. DEPENDS names the folders it
# may include from; tools/lint checks that the includes agree with the layers.
function(quorel_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC quorel_options ${arg_DEPENDS})
endfunction()

# quorel_tells_version(source): the source may include quorelversion.h. Not a whole folder may, which
# each version would compile anew.
function(quorel_tells_version source)
  set_property(SOURCE ${source} APPEND PROPERTY INCLUDE_DIRECTORIES "${CMAKE_BINARY_DIR}/version")
endfunction()

# quorel_exports(library map): the library exports the symbols of this version script only.
function(quorel_exports library map)
  set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS "${map}")
  # Not through -Wl, which would cut a path at its commas.
  target_link_options(${library} PRIVATE "SHELL:-Xlinker \"--version-script=${map}\"")
endfunction()

# Tests are compiled more often than run; without optimization the C library has no fortified calls.
set(quickly_compiled -O0 -U_FORTIFY_SOURCE)

# GoogleTest from the sources that Debian ships, so that it is built with this build's word size and
# sanitizers.
if(NOT QUOREL_FUZZ)
  set(GTEST_SOURCES "/usr/src/googletest" CACHE PATH "GoogleTest's source tree")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
  add_subdirectory("${GTEST_SOURCES}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  foreach(library gtest gmock)
    target_compile_options(${library} PRIVATE ${quickly_compiled})
  endforeach()
  include(GoogleTest)
endif()

# What a unit test is made of besides its own sources: its main, GoogleTest, and the headers of that,
# which take as long to read as most tests.
if(NOT QUOREL_FUZZ)
  add_library(quorel_gtest OBJECT "${CMAKE_SOURCE_DIR}/tests/main.cpp")
  if(QUOREL_SANITIZE STREQUAL thread)
    target_sources(quorel_gtest PRIVATE "${CMAKE_SOURCE_DIR}/tests/tsan.cpp")
  endif()
  target_link_libraries(quorel_gtest PUBLIC GTest::gmock PRIVATE quorel_options)
  # Compiled as a program's sources are, or no program could use them.
  set_target_properties(quorel_gtest PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(quorel_gtest PRIVATE -fPIE ${quickly_compiled})
  target_precompile_headers(quorel_gtest PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
endif()

# quorel_test_program(name SOURCES ... [DEPENDS ...] [LONG]): a GoogleTest program. LONG is one that runs
# for longer than it takes to optimize it.
function(quorel_test_program name)
  cmake_parse_arguments(arg "LONG" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE quorel_options ${arg_DEPENDS} quorel_gtest)
  if(NOT arg_LONG)
    target_compile_options(${name} PRIVATE ${quickly_compiled})
    target_precompile_headers(${name} REUSE_FROM quorel_gtest)
    # The headers themselves do where the compiler has changed since; the warning says so.
    target_compile_options(${name} PRIVATE -Wno-error=invalid-pch)
  endif()
endfunction()

# quorel_test(name SOURCES ... [DEPENDS ...] [THREADS] [LONG]): the same with each of its tests registered
# with CTest. THREADS marks it for the ThreadSanitizer run; LONG ones are the first to run.
function(quorel_test name)
  if(QUOREL_FUZZ)
    return()
  endif()
  cmake_parse_arguments(arg "THREADS;LONG" "" "SOURCES;DEPENDS" ${ARGN})
  set(long "")
  set(cost 0)
  if(arg_LONG)
    set(long LONG)
    set(cost 20)
  endif()
  set(label unit)
  if(arg_THREADS)
    set(label threads)
  endif()
  quorel_test_program(${name} SOURCES ${arg_SOURCES} DEPENDS ${arg_DEPENDS} ${long})
  if(QUOREL_SANITIZE STREQUAL thread AND NOT arg_THREADS)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  # Before they run, since discovery as a step of the build fails in a folder with a "#" in its path.
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${label} COST ${cost})
endfunction()

# quorel_paths(target NAME path [NAME path...]): defines each NAME as a string literal for the target's
# sources. Through a header, since a definition on the command line cannot hold every character that a
# path may; the paths may be generator expressions.
function(quorel_paths target)
  set(text "")
  set(names_and_paths ${ARGN})
  while(names_and_paths)
    list(POP_FRONT names_and_paths name path)
    string(APPEND text "#define ${name} R\"path(${path})path\"\n")
  endwhile()
  file(GENERATE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/${target}_paths.h" CONTENT "${text}")
  target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}")
  target_compile_options(${target} PRIVATE "SHELL:-include ${target}_paths.h")
endfunction()

# quorel_wrap(test call...): the test has a __wrap_<call> of its own in place of each system call,
# under whichever of its names the C library has it (tests/wrapped.h).
function(quorel_wrap name)
  foreach(call ${ARGN})
    target_link_options(${name} PRIVATE
      -Wl,--wrap=${call},--wrap=__${call}64,--wrap=__${call}_time64)
  endforeach()
endfunction()

# A longer run: cmake --preset fuzz -DQUOREL_FUZZ_RUNS=1000000, then ctest --preset fuzz with a
# --timeout to match.
set(QUOREL_FUZZ_RUNS 20000 CACHE STRING "Inputs that the test of each fuzz target runs")

# quorel_fuzzer(name SOURCES ... [DEPENDS ...]): a libFuzzer target with its corpus in
# fuzz/corpus/<name>; the test replays the corpus and adds a bounded, seeded number of inputs.
function(quorel_fuzzer name)
  if(NOT QUOREL_FUZZ)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE quorel_options ${arg_DEPENDS})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set(found "${CMAKE_CURRENT_BINARY_DIR}/corpus-${name}")
  # What a run finds goes into a folder that starts empty, so that every run is the same.
  add_test(NAME ${name}.clean COMMAND sh -c [[rm -rf "$0" && mkdir -p "$0"]] "${found}")
  add_test(NAME ${name} COMMAND ${name} -runs=${QUOREL_FUZZ_RUNS} -seed=1 -max_len=4096 -rss_limit_mb=1024
    "${found}" "${CMAKE_SOURCE_DIR}/fuzz/corpus/${name}")
  set_tests_properties(${name}.clean PROPERTIES LABELS fuzz FIXTURES_SETUP ${name})
  set_tests_properties(${name} PROPERTIES LABELS fuzz FIXTURES_REQUIRED ${name})
endfunction()

# quorel_bench(name SOURCES ... [DEPENDS ...]): a program that prints ratios, over Google Benchmark
# or bench/paired.h, run by tools/bench.
function(quorel_bench name)
  if(QUOREL_FUZZ OR QUOREL_SANITIZE OR NOT TARGET quorel_benchmark_dep)
    return()
  endif()
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE quorel_options ${arg_DEPENDS} quorel_benchmark_dep)
endfunction()
