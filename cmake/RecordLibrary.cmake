# librecord: one set of objects, made into a shared and a static library.
set(RECORD_ROOMS base storage record format query playback export)
list(TRANSFORM RECORD_ROOMS REPLACE "(.+)" "${CMAKE_SOURCE_DIR}/\\1/*.cpp" OUTPUT_VARIABLE RECORD_PATTERNS)
file(GLOB_RECURSE RECORD_SOURCES CONFIGURE_DEPENDS ${RECORD_PATTERNS})

add_library(record_objects OBJECT ${RECORD_SOURCES})
record_join_checked_sources(record_objects)
target_link_libraries(record_objects PRIVATE record_options Threads::Threads)
target_include_directories(record_objects PUBLIC ${CMAKE_SOURCE_DIR}/include PRIVATE ${CMAKE_SOURCE_DIR})
set_target_properties(record_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

# The shared library leaves the platform's names open: whoever links it brings them.
add_library(record SHARED $<TARGET_OBJECTS:record_objects>)
set_target_properties(record PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
add_library(record_static STATIC $<TARGET_OBJECTS:record_objects>)
set_target_properties(record_static PROPERTIES OUTPUT_NAME record)
foreach(library record record_static)
  target_include_directories(${library} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${library} PUBLIC cxx_std_17)
  target_link_libraries(${library} PUBLIC Threads::Threads)
endforeach()
