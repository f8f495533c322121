# Settings that every target shares.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
# A recorder's cost is memory traffic and system calls: -O3 only makes the library larger.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
# For the checkers: quick to compile, quick enough to run, line numbers in their reports.
set(CMAKE_CXX_FLAGS_CHECK "-O1 -gline-tables-only")
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(CMAKE_CXX_FLAGS_CHECK "-O1 -g1")
endif()

# Compiles a target's sources some at a time, for most of what each takes is the same headers (RECORD_JOIN; off for
# work on the sources, and for the linter, which sees each by itself).
function(record_join_sources target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD "${RECORD_JOIN}" UNITY_BUILD_BATCH_SIZE 8)
  if(RECORD_JOIN AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # What a source keeps to itself looks like a header's then.
    target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
  endif()
endfunction()

# The library itself: for the checkers alone. Who links it statically takes what is needed, a source at a time.
function(record_join_checked_sources target)
  if(RECORD_SANITIZE)
    record_join_sources(${target})
  endif()
endfunction()

# Programs without a hot path: always, and unoptimised for the checkers.
function(record_compile_quickly target)
  record_join_sources(${target})
  target_compile_options(${target} PRIVATE $<$<CONFIG:Check>:-O0>)
endfunction()

include(GNUInstallDirs)
find_package(Threads REQUIRED)

add_library(record_options INTERFACE)
target_compile_options(record_options INTERFACE -Wall -Wextra -Wpedantic -Werror)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  # Everything is compiled by one compiler: a note about what GCC 7 changed helps nobody.
  target_compile_options(record_options INTERFACE -Wno-psabi)
endif()
# Files beyond 2 GiB and dates beyond 2038 on 32-bit machines too.
target_compile_definitions(record_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

set(RECORD_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
if(RECORD_SANITIZE)
  add_compile_options(-fsanitize=${RECORD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RECORD_SANITIZE})
endif()
