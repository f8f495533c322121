# GoogleTest and the fake platform, which the tests and the fuzz targets share.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(GTest QUIET)
endif()
if(NOT GTest_FOUND)
  # Debian's googletest package carries the sources, which cross builds need.
  add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)
endif()

file(GLOB TEST_SUPPORT_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/support/*.cpp)
# Frame rings are the host's: they need nothing of it.
add_library(test_support OBJECT ${TEST_SUPPORT_SOURCES} ${CMAKE_SOURCE_DIR}/platform/host/frame_ring.cpp)
target_include_directories(test_support PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(test_support PUBLIC record_options record_static GTest::gmock)
record_compile_quickly(test_support)
