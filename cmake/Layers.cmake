# SPDX-License-Identifier: MIT
# The library's layers. A layer is an object library, and no file of it includes a file of a higher layer: the target
# devsupport_layer_rule checks that before anything of the library is compiled (cmake/LayerRule.cmake).
#
#   L0  diagnostics, number parsing and text editing, IPC primitives
#   L1  tokenizer, containers, shared ring, local addresses
#   L2  log channel and builders, link status
#   L3  configuration store
#   L4  log filter, WAN choice

set(DEVSUPPORT_INCLUDE_DIR "${PROJECT_SOURCE_DIR}/include")

# Adds files to the layer, and makes its object library when the first ones arrive.
function(devsupport_layer_files layer)
  if(NOT TARGET devsupport_L${layer})
    add_library(devsupport_L${layer} OBJECT)
    add_dependencies(devsupport_L${layer} devsupport_layer_rule)
    target_link_libraries(devsupport_L${layer} PRIVATE devsupport_runtime)
    target_include_directories(devsupport_L${layer} PRIVATE "${DEVSUPPORT_INCLUDE_DIR}")
    set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_USED_LAYERS ${layer})
  endif()
  foreach(file IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH file)
    target_sources(devsupport_L${layer} PRIVATE "${file}")
    cmake_path(RELATIVE_PATH file BASE_DIRECTORY "${PROJECT_SOURCE_DIR}")
    set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_LAYER_FILES "L${layer} ${file}")
  endforeach()
endfunction()

# devsupport_unit(<area>/<Name> LAYER <n> [SOURCES <file>...])
#
# Adds one unit to the library: the public header include/devsupport/<area>/<Name>.h, the header of its
# internal operations include/devsupport/detail/<area>/<Name>.h where there is one, and <Name>.cpp of the
# calling folder. SOURCES names the unit's further sources and private headers; a private header is never installed.
function(devsupport_unit unit)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LAYER" "SOURCES")
  cmake_path(GET unit FILENAME name)
  devsupport_layer_files(${arg_LAYER} "${DEVSUPPORT_INCLUDE_DIR}/devsupport/${unit}.h" ${name}.cpp ${arg_SOURCES})
  set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_PUBLIC_HEADERS ${unit}.h)
  if(EXISTS "${DEVSUPPORT_INCLUDE_DIR}/devsupport/detail/${unit}.h")
    devsupport_detail_header(${unit}.h LAYER ${arg_LAYER})
  endif()
endfunction()

# devsupport_detail_header(<area>/<Name>.h LAYER <n>)
#
# Adds include/devsupport/detail/<area>/<Name>.h; to be called for those that belong to no single unit.
function(devsupport_detail_header header)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LAYER" "")
  devsupport_layer_files(${arg_LAYER} "${DEVSUPPORT_INCLUDE_DIR}/devsupport/detail/${header}")
  set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_DETAIL_HEADERS detail/${header})
endfunction()

# Makes the target that checks the includes of all files of the layers.
function(devsupport_layer_rule)
  get_property(files GLOBAL PROPERTY DEVSUPPORT_LAYER_FILES)
  list(JOIN files "\n" table)
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/layers.txt" CONTENT "${table}\n" @ONLY)
  list(TRANSFORM files REPLACE "^L[0-9] " "${PROJECT_SOURCE_DIR}/")
  add_custom_command(OUTPUT layers.checked
    COMMAND ${CMAKE_COMMAND} -P "${PROJECT_SOURCE_DIR}/cmake/LayerRule.cmake" layers.txt "${PROJECT_SOURCE_DIR}"
    COMMAND ${CMAKE_COMMAND} -E touch layers.checked
    DEPENDS ${files} "${PROJECT_BINARY_DIR}/layers.txt" "${PROJECT_SOURCE_DIR}/cmake/LayerRule.cmake"
    COMMENT "Checking that no layer includes a higher one"
    VERBATIM)
  add_custom_target(devsupport_layer_rule DEPENDS layers.checked)
endfunction()

# Makes the static and the shared library from the layers. Both are linked by the C driver: the library
# needs no C++ runtime, and -z defs turns a symbol that only such a runtime has into a link error. The shared one stays
# loaded when a program closes it: signals of its timers can still arrive.
function(devsupport_library)
  get_property(layers GLOBAL PROPERTY DEVSUPPORT_USED_LAYERS)
  set(objects)
  foreach(layer IN LISTS layers)
    list(APPEND objects $<TARGET_OBJECTS:devsupport_L${layer}>)
  endforeach()

  devsupport_layer_rule()
  set(libraries devsupport_static)
  add_library(devsupport_static STATIC ${objects})
  if(NOT DEVSUPPORT_STATIC)
    list(APPEND libraries devsupport_shared)
    add_library(devsupport_shared SHARED ${objects})
    set_target_properties(devsupport_shared PROPERTIES
      EXPORT_NAME devsupport VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    target_link_options(devsupport_shared PRIVATE -Wl,-z,nodelete)
    if(NOT DEVSUPPORT_SANITIZE)
      target_link_options(devsupport_shared PRIVATE -Wl,-z,defs)
    endif()
  endif()
  foreach(library IN LISTS libraries)
    set_target_properties(${library} PROPERTIES OUTPUT_NAME devsupport LINKER_LANGUAGE C)
    target_include_directories(${library} PUBLIC
      "$<BUILD_INTERFACE:${DEVSUPPORT_INCLUDE_DIR}>" "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    target_link_libraries(${library} PRIVATE $<BUILD_INTERFACE:devsupport_settings> ${DEVSUPPORT_STORE_LIBRARY})
  endforeach()
  set_property(GLOBAL PROPERTY DEVSUPPORT_LIBRARIES ${libraries})

  # Inside the tree a program links the static library by the name that strangers use.
  add_library(devsupport::devsupport ALIAS devsupport_static)
endfunction()
