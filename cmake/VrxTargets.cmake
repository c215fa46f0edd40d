# SPDX-License-Identifier: Apache-2.0
# What every library and test of the project has in common.

# Sanitizers hold for everything in the build, GoogleTest included.
if(VRX_SANITIZE)
  add_compile_options(-fsanitize=${VRX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VRX_SANITIZE})
endif()

# One set of compile options for everything that is ours.
add_library(vrx_options INTERFACE)
target_compile_options(vrx_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
target_compile_definitions(vrx_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_include_directories(vrx_options INTERFACE ${PROJECT_SOURCE_DIR})

# vrx_add_library(NAME FOLDER): the object files NAME_objects, shared by the library and the unit tests,
# and the shared library NAME made of them, which others call vrxgenreg::NAME whether they found it
# installed or added this project as a subdirectory. The folder's CMakeLists.txt adds the sources.
function(vrx_add_library name)
  add_library(${name}_headers INTERFACE)
  target_include_directories(${name}_headers INTERFACE ${PROJECT_SOURCE_DIR})
  add_library(${name}_objects OBJECT)
  target_link_libraries(${name}_objects PRIVATE vrx_options)
  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  add_library(vrxgenreg::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINKER_LANGUAGE CXX)
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vrxgenreg>)
  if(NOT VRX_SANITIZE)  # the sanitizers' functions come with the program, not with a library
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set(map ${PROJECT_SOURCE_DIR}/cmake/lib${name}.map)
  if(EXISTS ${map})
    target_link_options(${name} PRIVATE -Wl,--version-script=${map})
    set_target_properties(${name} PROPERTIES LINK_DEPENDS ${map})
  endif()
endfunction()

# vrx_sources(NAME [PUBLIC header...] [PRIVATE source...]): adds this folder's files to the library NAME.
# Public headers go into the library's one FILE_SET and install under their path below the root.
function(vrx_sources name)
  cmake_parse_arguments(arg "" "" "PUBLIC;PRIVATE" ${ARGN})
  list(TRANSFORM arg_PRIVATE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(${name}_objects PRIVATE ${arg_PRIVATE})
  if(arg_PUBLIC)
    list(TRANSFORM arg_PUBLIC PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    target_sources(${name} PUBLIC FILE_SET HEADERS
      BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${arg_PUBLIC})
  endif()
endfunction()

# vrx_unit_tests(source...): adds this folder's x_test.cpp files to the one unit test program.
function(vrx_unit_tests)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE files)
  set_property(GLOBAL APPEND PROPERTY VRX_UNIT_TEST_SOURCES ${files})
endfunction()
