# What `cmake --install` puts where: headers, both libraries, recordctl, CMake package, pkg-config files.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/librecord)
file(RELATIVE_PATH RECORD_PC_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)  # relocatable: seen from where the .pc files lie

install(DIRECTORY include/record DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(TARGETS record record_static EXPORT librecordTargets)
install(EXPORT librecordTargets NAMESPACE librecord:: DESTINATION ${package_dir})
configure_file(cmake/librecord.pc.in librecord.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/librecord.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(RECORD_BUILD_HOST)
  install(DIRECTORY platform/host/include/record_host DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
  install(TARGETS record_host record_host_archive record_host_static EXPORT librecordHostTargets)
  install(EXPORT librecordHostTargets NAMESPACE librecord:: DESTINATION ${package_dir})
  configure_file(cmake/librecord-host.pc.in librecord-host.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/librecord-host.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  if(TARGET recordctl)
    install(TARGETS recordctl)
  endif()
endif()

configure_package_config_file(cmake/librecordConfig.cmake.in librecordConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(librecordConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/librecordConfig.cmake ${CMAKE_BINARY_DIR}/librecordConfigVersion.cmake
  DESTINATION ${package_dir})
