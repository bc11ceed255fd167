# The library's layers. A layer is an object library that sees the public headers of its own layer and
# of the layers below it, and no other: an include that points upwards does not compile.
#
#   L0  diagnostics, number parsing and text editing, IPC primitives
#   L1  tokenizer, containers, shared ring, local addresses
#   L2  log channel and builders, link status
#   L3  configuration store
#   L4  log filter, WAN choice

set(DEVSUPPORT_INCLUDE_DIR "${PROJECT_SOURCE_DIR}/include")
set(DEVSUPPORT_LAYER_DIR "${PROJECT_BINARY_DIR}/layers")

# Shows one header to the layers that may use it: a link below the layer's own include folder.
function(devsupport_show_header header shown)
  cmake_path(GET shown PARENT_PATH folder)
  file(MAKE_DIRECTORY "${folder}")
  file(CREATE_LINK "${header}" "${shown}" SYMBOLIC)
endfunction()

function(devsupport_layer_header layer header)
  devsupport_show_header("${DEVSUPPORT_INCLUDE_DIR}/devsupport/${header}"
                         "${DEVSUPPORT_LAYER_DIR}/L${layer}/devsupport/${header}")
endfunction()

# Makes the layer's object library when its first unit arrives.
function(devsupport_layer layer)
  if(TARGET devsupport_L${layer})
    return()
  endif()
  add_library(devsupport_L${layer} OBJECT)
  target_link_libraries(devsupport_L${layer} PRIVATE devsupport_runtime)
  foreach(below RANGE ${layer})
    target_include_directories(devsupport_L${layer} PRIVATE "${DEVSUPPORT_LAYER_DIR}/L${below}")
  endforeach()
  set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_USED_LAYERS ${layer})
endfunction()

file(REMOVE_RECURSE "${DEVSUPPORT_LAYER_DIR}")
devsupport_layer_header(0 Api.h)

# devsupport_unit(<area>/<Name> LAYER <n> [SOURCES <file>...])
#
# Adds one unit to the library: the public header include/devsupport/<area>/<Name>.h, the header of its
# internal operations include/devsupport/detail/<area>/<Name>.h where there is one, and <Name>.cpp of the
# calling folder. SOURCES names further source files of a unit that has several.
function(devsupport_unit unit)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LAYER" "SOURCES")
  cmake_path(GET unit FILENAME name)
  devsupport_layer(${arg_LAYER})
  devsupport_layer_header(${arg_LAYER} ${unit}.h)
  set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_PUBLIC_HEADERS ${unit}.h)
  if(EXISTS "${DEVSUPPORT_INCLUDE_DIR}/devsupport/detail/${unit}.h")
    devsupport_layer_header(${arg_LAYER} detail/${unit}.h)
    set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_DETAIL_HEADERS detail/${unit}.h)
  endif()
  target_sources(devsupport_L${arg_LAYER} PRIVATE
    "${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp" ${arg_SOURCES})
endfunction()

# devsupport_detail_header(<area>/<Name>.h LAYER <n>)
#
# Adds include/devsupport/detail/<area>/<Name>.h, which belongs to no single unit: a format that several share.
function(devsupport_detail_header header)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LAYER" "")
  devsupport_layer_header(${arg_LAYER} detail/${header})
  set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_DETAIL_HEADERS detail/${header})
endfunction()

# devsupport_private_header(<area>/<Name>.h LAYER <n>)
#
# Lets the sources of the layer and of the layers above include <Name>.h of the calling folder as
# <devsupport/private/<area>/<Name>.h>. Such a header is never installed.
function(devsupport_private_header header)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LAYER" "")
  cmake_path(GET header FILENAME name)
  set(shown "${DEVSUPPORT_LAYER_DIR}/L${arg_LAYER}/devsupport/private/${header}")
  devsupport_show_header("${CMAKE_CURRENT_SOURCE_DIR}/${name}" "${shown}")
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
