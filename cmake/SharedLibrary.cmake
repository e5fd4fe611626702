# atsc_shared_library(TARGET MAP): a library with a SONAME that only exports the symbols in MAP,
# installed with the files to link it.
function(atsc_shared_library target map)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  # Reports missing functions of a platform at build time, not on the TV set. Functions of a
  # sanitizer are in the program.
  if(NOT ATSC_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  install(TARGETS ${target} EXPORT atscbusservice
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev)
endfunction()
