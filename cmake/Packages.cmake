# What `cmake --install` and `cpack` make: the library, what programs are built with, and the
# programs of a PC.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/atsc DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(EXPORT atscbusservice NAMESPACE atsc:: FILE atscbusserviceTargets.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/atscbusservice COMPONENT dev)
configure_package_config_file(cmake/atscbusserviceConfig.cmake.in atscbusserviceConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/atscbusservice
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(atscbusserviceConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/atscbusserviceConfig.cmake
  ${PROJECT_BINARY_DIR}/atscbusserviceConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/atscbusservice COMPONENT dev)
# The prefix is known when it is installed: `cmake --install --prefix` may name another one.
install(CODE "set(ATSC_PC_IN \"${PROJECT_SOURCE_DIR}/cmake/atscbusservice.pc.in\")
  set(ATSC_PC_OUT \"${PROJECT_BINARY_DIR}/atscbusservice.pc\")
  set(PROJECT_VERSION ${PROJECT_VERSION})
  set(LIBDIR ${CMAKE_INSTALL_LIBDIR})
  set(INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
  configure_file(\${ATSC_PC_IN} \${ATSC_PC_OUT} @ONLY)" COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/atscbusservice.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
if(ATSC_PLATFORM STREQUAL "host")
  # The interfaces that a platform provides, and the control of this one.
  install(DIRECTORY platform/include/ platform/host/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/atsc/platform COMPONENT dev)
endif()
