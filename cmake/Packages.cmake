# Installation and packages: the library, the files that programs are built with, and the programs
# of a PC.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/atsc DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(EXPORT atscbusservice NAMESPACE atsc:: FILE atscbusserviceTargets.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/atscbusservice COMPONENT dev)
# In a folder where find_package() does not search, because the files cannot be used from here.
set(made ${PROJECT_BINARY_DIR}/packaging)
configure_package_config_file(cmake/atscbusserviceConfig.cmake.in
  ${made}/atscbusserviceConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/atscbusservice
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${made}/atscbusserviceConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${made}/atscbusserviceConfig.cmake ${made}/atscbusserviceConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/atscbusservice COMPONENT dev)
# atsc_install_configured(TEMPLATE DESTINATION COMPONENT): configures a file at installation, when
# the prefix is known. `cmake --install --prefix` can change the prefix.
function(atsc_install_configured template destination component)
  get_filename_component(name ${template} NAME_WLE)
  install(CODE "set(PROJECT_VERSION ${PROJECT_VERSION})
    set(BINDIR \"${CMAKE_INSTALL_BINDIR}\")
    set(LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
    set(INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
    configure_file(\"${PROJECT_SOURCE_DIR}/${template}\" \"${made}/${name}\" @ONLY)"
    COMPONENT ${component})
  install(FILES ${made}/${name} DESTINATION ${destination} COMPONENT ${component})
endfunction()
atsc_install_configured(cmake/atscbusservice.pc.in ${CMAKE_INSTALL_LIBDIR}/pkgconfig dev)
if(ATSC_PLATFORM STREQUAL "host")
  # The interfaces that a platform provides, and the controls of the host platform.
  install(DIRECTORY platform/include/ platform/host/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/atsc/platform COMPONENT dev)
endif()

# Documents, man pages and settings of the programs.
set(doc ${CMAKE_INSTALL_DATAROOTDIR}/doc)
install(FILES README.md DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
install(FILES CHANGELOG.md DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
install(DIRECTORY docs DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
install(DIRECTORY examples DESTINATION ${doc}/libatscbusservice-dev COMPONENT dev)
if(ATSC_PLATFORM STREQUAL "host")
  find_program(HELP2MAN help2man)
  find_program(GZIP gzip)
  if(HELP2MAN AND GZIP AND NOT ATSC_SANITIZE)
    # atsc_man_page(PROGRAM ABOUT): made from the program's help and packaging/man/PROGRAM.
    function(atsc_man_page program about)
      set(page ${PROJECT_BINARY_DIR}/${program}.1.gz)
      set(make ${PROJECT_SOURCE_DIR}/packaging/man/make)
      add_custom_command(OUTPUT ${page}
        COMMAND ${make} ${program} ${PROJECT_VERSION} ${about} ${CMAKE_INSTALL_FULL_DATADIR} ${page}
          ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>
        DEPENDS ${program} ${make} ${PROJECT_SOURCE_DIR}/packaging/man/${program}
        VERBATIM)
      add_custom_target(${program}_man ALL DEPENDS ${page})
      install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL)
    endfunction()
    atsc_man_page(atsc-service "ATSC service of a television set, on a PC")
    atsc_man_page(atsc-tv "TV application for the terminal")
    atsc_man_page(atsc-web "television in a browser")
    atsc_man_page(psipmux "make transport streams of a sample broadcast")
  else()
    message(STATUS "No man pages: they need help2man and gzip, and a build without sanitizers")
  endif()

  set(completions ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
  foreach(program atsc-service atsc-tv atsc-web psipmux)
    install(FILES packaging/bash-completion RENAME ${program} DESTINATION ${completions}
      COMPONENT tools)
  endforeach()
  atsc_install_configured(packaging/atsc-service@.service.in lib/systemd/system tools)
  # Outside the prefix, so only installed when the component is requested by name, as in cpack.
  install(FILES packaging/default DESTINATION /etc/default
    RENAME atsc-service COMPONENT settings EXCLUDE_FROM_ALL)
endif()

include(cmake/DebianPackages.cmake)
