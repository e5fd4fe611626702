# Debian packages of `cpack`: the library, its development files and, with the host platform, the
# programs. Configure with CMAKE_INSTALL_PREFIX=/usr.
set(library_package libatscbusservice${PROJECT_VERSION_MAJOR})
set(dev_package libatscbusservice-dev)
set(tools_package atsc-tools)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(ATSC_PACKAGE_CONTACT "${PROJECT_NAME} maintainers <${PROJECT_NAME}@localhost>" CACHE STRING
  "Maintainer that the packages name")
set(CPACK_PACKAGE_CONTACT ${ATSC_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# Each package has a separate description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL library dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The libraries that a package needs are looked up on the build machine, which does not know those
# of another architecture.
if(CMAKE_CROSSCOMPILING)
  if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "arm-linux-gnueabihf")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  endif()
  set(library_needs "libc6 (>= 2.36), libgcc-s1, libstdc++6 (>= 12)")
  string(APPEND library_needs ", libjsoncpp25 (>= 1.9.5), libsqlite3-0 (>= 3.40)")
  set(tools_needs "${library_needs}, libcpp-httplib0.11, libcrypt1 (>= 1:4.3)")
  if(ATSC_PLATFORM STREQUAL "host")
    string(APPEND library_needs ", libdvbpsi10 (>= 1.3)")
  endif()
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src/bus)
  if(ATSC_PLATFORM STREQUAL "host")
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform/host)
  else()
    # Libraries of a TV set are in no package.
    get_filename_component(folder "${ATSC_PLATFORM}" ABSOLUTE)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${folder}/lib)
  endif()
endif()

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ${library_needs})
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "ATSC service library of a digital television set
Joins a TV application to the set's ATSC middleware: commands and callbacks as
JSON, the channel list and the programme guide in SQLite files.")
# Programs need the linked version of the library or a newer one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${dev_package})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "libjsoncpp-dev, libsqlite3-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "ATSC service library of a digital television set: development files
Headers, CMake package, pkg-config file, documents and examples to develop TV
applications that use libatscbusservice, and to port the library to a set.")

if(ATSC_PLATFORM STREQUAL "host")
  list(APPEND CPACK_COMPONENTS_ALL tools settings)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
  if(CMAKE_CROSSCOMPILING)
    string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", ${tools_needs}")
  endif()
  set(CPACK_DEBIAN_TOOLS_DESCRIPTION "ATSC service and TV applications for a PC
atsc-service receives the broadcast of a folder of transport streams, atsc-tv
is a TV application for the terminal, atsc-web is one whose screen is a page in
a browser, psipmux makes sample broadcasts.")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/conffiles)
  file(WRITE ${PROJECT_BINARY_DIR}/conffiles "/etc/default/atsc-service\n")
  foreach(script postinst prerm postrm)
    list(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
      ${PROJECT_SOURCE_DIR}/packaging/debian/${script})
  endforeach()
endif()

# Debian requires a changelog in its own format in each package.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${PROJECT_BINARY_DIR}/changelog "${PROJECT_NAME} (${PROJECT_VERSION}) stable; urgency=medium

  * See CHANGELOG.md in libatscbusservice-dev.

 -- ${ATSC_PACKAGE_CONTACT}  ${date}
")
execute_process(COMMAND gzip -9fn changelog WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
  COMMAND_ERROR_IS_FATAL ANY)

include(CPack)
foreach(component ${CPACK_COMPONENTS_ALL})
  set(package ${component})
  if(component STREQUAL "settings")
    set(package tools)
  else()
    cpack_add_component_group(${component})
    install(FILES packaging/debian/copyright ${PROJECT_BINARY_DIR}/changelog.gz
      DESTINATION ${doc}/${${component}_package} COMPONENT ${component})
  endif()
  cpack_add_component(${component} GROUP ${package})
endforeach()

option(ATSC_PACKAGE_TEST "Test the packages in clean trees" OFF)
if(ATSC_PACKAGE_TEST)
  add_subdirectory(tests/package)
endif()
