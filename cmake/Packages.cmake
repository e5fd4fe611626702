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

# Documents, and the programs' man pages and settings.
set(doc ${CMAKE_INSTALL_DATAROOTDIR}/doc)
install(FILES README.md DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
install(FILES CHANGELOG.md DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
install(DIRECTORY docs DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
install(DIRECTORY examples DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
if(ATSC_PLATFORM STREQUAL "host")
  find_program(HELP2MAN help2man)
  find_program(GZIP gzip)
  if(HELP2MAN AND GZIP AND NOT ATSC_SANITIZE)
    # atsc_man_page(PROGRAM ABOUT): from what the program says of itself and packaging/man/PROGRAM.
    function(atsc_man_page program about)
      set(page ${PROJECT_BINARY_DIR}/${program}.1.gz)
      set(make ${PROJECT_SOURCE_DIR}/packaging/man/make)
      add_custom_command(OUTPUT ${page}
        COMMAND ${make} ${program} ${PROJECT_VERSION} ${about} ${page}
          ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>
        DEPENDS ${program} ${make} ${PROJECT_SOURCE_DIR}/packaging/man/${program}
        VERBATIM)
      add_custom_target(${program}_man ALL DEPENDS ${page})
      install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL)
    endfunction()
    atsc_man_page(atsc-service "ATSC service of a television set, on a PC")
    atsc_man_page(atsc-tv "TV application for the terminal")
    atsc_man_page(psipmux "make transport streams of a sample broadcast")
  else()
    message(STATUS "No man pages: they need help2man and gzip, and a build without sanitizers")
  endif()

  set(completions ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
  foreach(program atsc-service atsc-tv psipmux)
    install(FILES packaging/bash-completion RENAME ${program} DESTINATION ${completions}
      COMPONENT tools)
  endforeach()
  configure_file(packaging/atsc-service@.service.in atsc-service@.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/atsc-service@.service
    DESTINATION lib/systemd/system COMPONENT tools)
  # Below /etc, and so only when it is asked for by its component's name, as cpack does.
  install(FILES packaging/default DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default
    RENAME atsc-service COMPONENT settings EXCLUDE_FROM_ALL)
endif()

include(cmake/DebianPackages.cmake)
