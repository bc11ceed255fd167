# SPDX-License-Identifier: MIT
# Installation: headers, static and shared library, devsupport.pc and the CMake package `devsupport`.
#
#   devsupport::devsupport         the shared library
#   devsupport::devsupport_static  the static library

include(CMakePackageConfigHelpers)

get_property(public_headers GLOBAL PROPERTY DEVSUPPORT_PUBLIC_HEADERS)
get_property(detail_headers GLOBAL PROPERTY DEVSUPPORT_DETAIL_HEADERS)

# The umbrella names the headers that this build installs.
file(READ "${DEVSUPPORT_INCLUDE_DIR}/devsupport/devsupport.h" umbrella)
string(REGEX MATCHALL "#include <devsupport/[^>]*>\n" includes "${umbrella}")
foreach(include IN LISTS includes)
  string(REGEX REPLACE "#include <devsupport/(.*)>\n" "\\1" header "${include}")
  if(NOT header IN_LIST public_headers)
    string(REPLACE "${include}" "" umbrella "${umbrella}")
  endif()
endforeach()
file(CONFIGURE OUTPUT devsupport.h CONTENT "${umbrella}" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/devsupport.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/devsupport")

foreach(header IN ITEMS Api.h LISTS public_headers detail_headers)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES "${DEVSUPPORT_INCLUDE_DIR}/devsupport/${header}"
          DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/devsupport/${folder}")
endforeach()

get_property(libraries GLOBAL PROPERTY DEVSUPPORT_LIBRARIES)
install(TARGETS ${libraries} EXPORT devsupport
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(EXPORT devsupport NAMESPACE devsupport:: FILE devsupportTargets.cmake
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/devsupport")

configure_package_config_file(cmake/devsupportConfig.cmake.in devsupportConfig.cmake
  INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/devsupport")
write_basic_package_version_file(devsupportConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
          "${CMAKE_CURRENT_BINARY_DIR}/devsupportConfig.cmake"
          "${CMAKE_CURRENT_BINARY_DIR}/devsupportConfigVersion.cmake"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/devsupport")

configure_file(cmake/devsupport.pc.in devsupport.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/devsupport.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS cpld RUNTIME DESTINATION "${CMAKE_INSTALL_SBINDIR}")
install(FILES docs/man/cpld.8 DESTINATION "${CMAKE_INSTALL_MANDIR}/man8")

install(DIRECTORY examples DESTINATION "${CMAKE_INSTALL_DOCDIR}")

if(DEVSUPPORT_REFERENCE)
  find_program(DOXYGEN doxygen)
  find_package(Python3 QUIET COMPONENTS Interpreter)
  if(NOT DOXYGEN OR NOT Python3_FOUND)
    message(FATAL_ERROR "The reference needs Doxygen and Python: install the packages doxygen and python3, "
      "or configure with -DDEVSUPPORT_REFERENCE=OFF")
  endif()
  set(reference "${PROJECT_BINARY_DIR}/reference")
  set(described "${public_headers}")
  list(TRANSFORM described PREPEND "${DEVSUPPORT_INCLUDE_DIR}/devsupport/")
  set(makers script/parts/reference.sh script/parts/reference_filter.py docs/Doxyfile)
  list(TRANSFORM makers PREPEND "${PROJECT_SOURCE_DIR}/")
  add_custom_command(OUTPUT reference.made
    COMMAND "${PROJECT_SOURCE_DIR}/script/parts/reference.sh" "${reference}"
    COMMAND ${CMAKE_COMMAND} -E touch reference.made
    DEPENDS ${described} ${makers}
    COMMENT "Making the reference"
    VERBATIM)
  add_custom_target(devsupport_reference ALL DEPENDS reference.made)
  install(DIRECTORY "${reference}/man/man3" DESTINATION "${CMAKE_INSTALL_MANDIR}")
  install(DIRECTORY "${reference}/html" DESTINATION "${CMAKE_INSTALL_DOCDIR}")
endif()
