# recordctl: the command line on the library and the host platform; build/recordctl.
file(GLOB RECORDCTL_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/recordctl/*.cpp)
if(RECORDCTL_SOURCES)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  add_executable(recordctl ${RECORDCTL_SOURCES})
  target_include_directories(recordctl PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(recordctl PRIVATE
    record_options record_host_static PkgConfig::AVFORMAT CLI11::CLI11 nlohmann_json::nlohmann_json)
  record_compile_quickly(recordctl)
  target_compile_definitions(recordctl PRIVATE RECORDCTL_VERSION="${PROJECT_VERSION}")
  set_target_properties(recordctl PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
endif()
