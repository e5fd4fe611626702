# atsc_shared_library(TARGET MAP): a library with a SONAME that shows what MAP lists and nothing else,
# installed with what it takes to link it.
function(atsc_shared_library target map)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${map})
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  # What a platform lacks is told here, not in the set. A sanitizer's functions are the program's.
  if(NOT ATSC_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
  install(TARGETS ${target} EXPORT atscbusservice
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev)
endfunction()
