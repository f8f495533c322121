# librecord-host: the device platform for any Linux machine, on libavformat and libcurl.
find_package(PkgConfig REQUIRED)
pkg_check_modules(AVFORMAT REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswscale)
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)

set(RECORD_HOST_INCLUDE ${CMAKE_SOURCE_DIR}/platform/host/include)
file(GLOB RECORD_HOST_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/host/*.cpp
  ${CMAKE_SOURCE_DIR}/platform/host/upload/*.cpp)
add_library(record_host_objects OBJECT ${RECORD_HOST_SOURCES})
record_join_checked_sources(record_host_objects)
target_link_libraries(record_host_objects PRIVATE record_options Threads::Threads PkgConfig::AVFORMAT PkgConfig::CURL)
target_include_directories(record_host_objects PUBLIC
  ${CMAKE_SOURCE_DIR}/include ${RECORD_HOST_INCLUDE} PRIVATE ${CMAKE_SOURCE_DIR})
set_target_properties(record_host_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

add_library(record_host SHARED $<TARGET_OBJECTS:record_host_objects>)
set_target_properties(record_host PROPERTIES
  OUTPUT_NAME record-host EXPORT_NAME record-host
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_link_libraries(record_host PUBLIC record PRIVATE PkgConfig::AVFORMAT PkgConfig::CURL)
if(NOT RECORD_SANITIZE)
  # The host platform may use what librecord exports and nothing else of it.
  target_link_options(record_host PRIVATE -Wl,-z,defs)
endif()

add_library(record_host_archive STATIC $<TARGET_OBJECTS:record_host_objects>)
set_target_properties(record_host_archive PROPERTIES
  OUTPUT_NAME record-host EXPORT_NAME record-host-archive)
target_link_libraries(record_host_archive PUBLIC PkgConfig::AVFORMAT PkgConfig::CURL Threads::Threads)
foreach(library record_host record_host_archive)
  target_include_directories(${library} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include> $<BUILD_INTERFACE:${RECORD_HOST_INCLUDE}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endforeach()

# The two archives need each other: the library imports the platform, the platform asks for the device root.
# A group lets consumers name this one target, or both archives in either order.
add_library(record_host_static INTERFACE)
set_target_properties(record_host_static PROPERTIES EXPORT_NAME record-host-static)
target_link_libraries(record_host_static INTERFACE
  $<BUILD_INTERFACE:$<LINK_GROUP:RESCAN,record_static,record_host_archive>>
  $<INSTALL_INTERFACE:$<LINK_GROUP:RESCAN,librecord::record_static,librecord::record-host-archive>>)
