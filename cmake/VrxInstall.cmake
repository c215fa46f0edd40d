# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` lays down: libraries, public headers, the command line, man pages, the level file,
# and the files by which other projects find them (CMake package and pkg-config). Included last: it asks
# the targets. Not here: distribution packages (packaging/), which are made from this very installation.
include(CMakePackageConfigHelpers)

set(vrx_libraries vrxosse vrxinstall vrxgenreg)
set(vrx_headers ${CMAKE_INSTALL_INCLUDEDIR}/vrxgenreg)
set(vrx_package ${CMAKE_INSTALL_LIBDIR}/cmake/vrxgenreg)

# The one header that includes all public ones but the C++ face's, which has its own (vrx/vrx.h).
set(vrx_includes "")
foreach(library IN LISTS vrx_libraries)
  get_target_property(headers ${library} HEADER_SET)
  foreach(header IN LISTS headers)
    cmake_path(RELATIVE_PATH header BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    if(header MATCHES "\\.h$" AND NOT header MATCHES "^vrx/")
      string(APPEND vrx_includes "#include \"${header}\"\n")
    endif()
  endforeach()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/vrxgenreg.h.in ${PROJECT_BINARY_DIR}/include/vrxgenreg.h @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/include/vrxgenreg.h DESTINATION ${vrx_headers})
target_include_directories(vrxgenreg INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>)

# Libraries and tool find each other wherever the prefix is moved to.
set_target_properties(${vrx_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${vrx_libraries} EXPORT vrxgenregTargets FILE_SET HEADERS DESTINATION ${vrx_headers})
if(TARGET vrxreg)
  file(RELATIVE_PATH vrx_up ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(vrxreg PROPERTIES INSTALL_RPATH "$ORIGIN/${vrx_up}")
endif()

install(EXPORT vrxgenregTargets NAMESPACE vrxgenreg:: DESTINATION ${vrx_package})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vrxgenreg-config.cmake.in
  ${PROJECT_BINARY_DIR}/vrxgenreg-config.cmake INSTALL_DESTINATION ${vrx_package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vrxgenreg-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vrxgenreg-config.cmake
  ${PROJECT_BINARY_DIR}/vrxgenreg-config-version.cmake DESTINATION ${vrx_package})

# vrx_pkg_config(LIBRARY DESCRIPTION REQUIRED...): LIBRARY.pc. The prefix is found from the file's own
# place, so that the tree can be moved; the system's own tree does not move, and pkg-config knows its
# folders by their plain names.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(vrx_pc_prefix /usr)
else()
  file(RELATIVE_PATH vrx_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" vrx_pc_prefix "\${pcfiledir}/${vrx_pc_prefix}")
endif()
function(vrx_pkg_config library description)
  set(requires "")
  if(ARGN)
    list(JOIN ARGN ", " requires)
    set(requires "\nRequires: ${requires}")
  endif()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
vrx_pkg_config(vrxosse "Files with locks, paths, memory, log and trace")
vrx_pkg_config(vrxinstall "The level of the installed product" vrxosse)
vrx_pkg_config(vrxgenreg ${PROJECT_DESCRIPTION} vrxinstall vrxosse)

# The level file that libvrxinstall reads. One that the library looks for elsewhere belongs to the product
# that the library is a part of, and is that product's to install.
set(VRX_BUILD_LEVEL "v${PROJECT_VERSION}" CACHE STRING "The build level that the installed level file names")
set(vrx_fixpack 0)
if(PROJECT_VERSION_TWEAK)
  set(vrx_fixpack ${PROJECT_VERSION_TWEAK})
endif()
if(VRX_LEVEL_FILE STREQUAL "${CMAKE_INSTALL_FULL_DATADIR}/vrxgenreg/level.info")
  configure_file(${CMAKE_CURRENT_LIST_DIR}/level.info.in ${PROJECT_BINARY_DIR}/level.info @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/level.info DESTINATION ${CMAKE_INSTALL_DATADIR}/vrxgenreg)
endif()

# The man pages, where scdoc is there to make them. They are made with the library, so that whoever has
# built something to install has them too.
find_program(VRX_SCDOC scdoc)
file(GLOB vrx_man_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.scd)
if(VRX_SCDOC AND vrx_man_sources)
  set(vrx_man_pages "")
  foreach(source IN LISTS vrx_man_sources)
    cmake_path(GET source STEM LAST_ONLY page)
    string(REGEX REPLACE ".*\\." "" section ${page})
    add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/man/${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND ${VRX_SCDOC} < ${source} > ${PROJECT_BINARY_DIR}/man/${page}
      DEPENDS ${source} VERBATIM)
    list(APPEND vrx_man_pages ${PROJECT_BINARY_DIR}/man/${page})
    install(FILES ${PROJECT_BINARY_DIR}/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endforeach()
  add_custom_target(vrx_man DEPENDS ${vrx_man_pages})
  add_dependencies(vrxgenreg vrx_man)
endif()
