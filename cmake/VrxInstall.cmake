# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` lays down: libraries, public headers, the command line, and the files by which
# other projects find them (CMake package and pkg-config). Included last: it asks the targets.
include(CMakePackageConfigHelpers)

set(vrx_libraries vrxosse vrxinstall vrxgenreg)
set(vrx_headers ${CMAKE_INSTALL_INCLUDEDIR}/vrxgenreg)
set(vrx_package ${CMAKE_INSTALL_LIBDIR}/cmake/vrxgenreg)

# The one header that includes all public ones.
set(vrx_includes "")
foreach(library IN LISTS vrx_libraries)
  get_target_property(headers ${library} HEADER_SET)
  foreach(header IN LISTS headers)
    cmake_path(RELATIVE_PATH header BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    if(header MATCHES "\\.h$")
      string(APPEND vrx_includes "#include \"${header}\"\n")
    endif()
  endforeach()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/vrxgenreg.h.in ${PROJECT_BINARY_DIR}/include/vrxgenreg.h @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/include/vrxgenreg.h DESTINATION ${vrx_headers})

# Libraries and tool find each other wherever the prefix is moved to.
set_target_properties(${vrx_libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${vrx_libraries} EXPORT vrxgenregTargets FILE_SET HEADERS DESTINATION ${vrx_headers})
if(TARGET vrxreg)
  file(RELATIVE_PATH vrx_up ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(vrxreg PROPERTIES INSTALL_RPATH "$ORIGIN/${vrx_up}")
endif()

install(EXPORT vrxgenregTargets NAMESPACE vrx:: DESTINATION ${vrx_package})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/vrxgenreg-config.cmake.in
  ${PROJECT_BINARY_DIR}/vrxgenreg-config.cmake INSTALL_DESTINATION ${vrx_package})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vrxgenreg-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vrxgenreg-config.cmake
  ${PROJECT_BINARY_DIR}/vrxgenreg-config-version.cmake DESTINATION ${vrx_package})

file(RELATIVE_PATH vrx_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/vrxgenreg.pc.in ${PROJECT_BINARY_DIR}/vrxgenreg.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vrxgenreg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
