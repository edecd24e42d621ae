# How our own code is compiled. Everything hangs on one interface target, quorel_options, so that a
# flag stands in one place; third-party sources are built without its warnings.

set(QUOREL_BITS 32 CACHE STRING "Word size: 32 (the product) or 64 (64-bit hosts, ThreadSanitizer)")
set(QUOREL_SANITIZE "" CACHE STRING "Value for -fsanitize=, empty for none")
option(QUOREL_FUZZ "Build the fuzz targets (clang only) in place of tests and hosts" OFF)

set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
# Sanitized tests want lines in their reports and are compiled more often than run; fuzzing wants speed.
if(NOT QUOREL_FUZZ)
  set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O1 -g1")
  # GCC finds uninitialized variables in its own checks (its manual, -fsanitize).
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1 -Wno-maybe-uninitialized")
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# What every object of a build must agree on, third-party ones included.
add_compile_options(-m${QUOREL_BITS} -fno-omit-frame-pointer)
add_link_options(-m${QUOREL_BITS} -Wl,-z,relro,-z,now)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions> $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>)
if(QUOREL_SANITIZE)
  # vptr checks need the run-time type information that this build does without.
  add_compile_options(-fsanitize=${QUOREL_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUOREL_SANITIZE})
endif()
if(QUOREL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

add_library(quorel_options INTERFACE)
target_include_directories(quorel_options INTERFACE "${CMAKE_SOURCE_DIR}")
target_compile_options(quorel_options INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wsuggest-override>
  -fstack-protector-strong
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
if(QUOREL_BITS EQUAL 32)
  # The system is used after 2038, and has files with such dates, in the 32-bit product too.
  target_compile_definitions(quorel_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
if(NOT QUOREL_SANITIZE)
  target_compile_definitions(quorel_options INTERFACE _FORTIFY_SOURCE=2)
endif()
