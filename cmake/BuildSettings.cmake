# SPDX-License-Identifier: MIT
# Language level, warnings, hardening and sanitizers, for every target of the tree.
#
#   devsupport_warnings   what every target uses: include path, warnings (the presets make errors of them), sanitizers
#   devsupport_settings   what we ship uses: hardening besides
#   devsupport_runtime    what runs on the device uses besides: C++ without a C++ runtime

set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
# Static programs stay where they are linked to.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(DEVSUPPORT_STATIC)
  set(CMAKE_POSITION_INDEPENDENT_CODE OFF)
  # Unless told, compilers for this processor call and address everything through tables, in static programs as well.
  add_compile_options(-fno-pie $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},mipsel>:-mplt>)
  # Berkeley DB and GoogleTest can look up hosts by name, which the linker warns of in every static program.
  add_link_options(-static -Wl,--no-warnings)
endif()

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Kind of build" FORCE)
endif()
set(CMAKE_C_FLAGS_DEBUG "-Og -g")
set(CMAKE_CXX_FLAGS_DEBUG "-Og -g")
set(CMAKE_C_FLAGS_RELEASE "-O2 -g")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g")
set(CMAKE_C_FLAGS_MINSIZEREL "-Os -g -ffunction-sections -fdata-sections")
set(CMAKE_CXX_FLAGS_MINSIZEREL "-Os -g -ffunction-sections -fdata-sections")
set(CMAKE_EXE_LINKER_FLAGS_MINSIZEREL "-Wl,--gc-sections -Wl,--build-id=none")
set(CMAKE_SHARED_LINKER_FLAGS_MINSIZEREL "${CMAKE_EXE_LINKER_FLAGS_MINSIZEREL}")

# Checks whether the linker makes position-independent executables: CMake needs to be asked once.
include(CheckPIESupported)
check_pie_supported()

add_library(devsupport_warnings INTERFACE)
# "..." in an include is the file's path from here; the public headers alone are <devsupport/...>.
target_include_directories(devsupport_warnings INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(devsupport_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-qual -Wcast-align -Wundef -Wvla
  -Wformat=2 -Wpointer-arith -Wwrite-strings
  $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes -Wmissing-prototypes>
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wduplicated-branches -Wlogical-op>
  -fno-common)

add_library(devsupport_settings INTERFACE)
target_link_libraries(devsupport_settings INTERFACE devsupport_warnings)
target_compile_options(devsupport_settings INTERFACE
  # On the device the functions with character buffers are guarded; guarding all that have a local in memory would make
  # a tenth more of text.
  $<IF:$<CONFIG:MinSizeRel>,-fstack-protector,-fstack-protector-strong>)
target_link_options(devsupport_settings INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack)

if(DEVSUPPORT_SANITIZE)
  target_compile_options(devsupport_warnings INTERFACE
    -fsanitize=${DEVSUPPORT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(devsupport_warnings INTERFACE -fsanitize=${DEVSUPPORT_SANITIZE})
else()
  # The sanitizers check more than the fortified C library does, and the two get in each other's way.
  # The device's C library is not fortified.
  target_compile_options(devsupport_settings INTERFACE
    -U_FORTIFY_SOURCE $<$<NOT:$<CONFIG:MinSizeRel>>:-D_FORTIFY_SOURCE=2>)
endif()

# Counters of executed lines, for script/coverage. Tests run side by side and some have threads: the counters of a
# process are updated atomically, and the files are locked while a process adds its own.
if(DEVSUPPORT_COVERAGE)
  target_compile_options(devsupport_warnings INTERFACE --coverage -fprofile-update=atomic)
  target_compile_definitions(devsupport_warnings INTERFACE DEVSUPPORT_COVERAGE)
  # An optimised function has branches that the source does not have, above all in what was inlined.
  target_compile_options(devsupport_settings INTERFACE -O0 -U_FORTIFY_SOURCE)
  target_link_options(devsupport_warnings INTERFACE --coverage)
endif()

# The device has no C++ runtime library: whatever would need one must not compile or not link.
add_library(devsupport_runtime INTERFACE)
target_compile_options(devsupport_runtime INTERFACE
  -Wnull-dereference  # not for host programs: GCC 12 raises false alarms inside the standard library's strings
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>)
target_compile_definitions(devsupport_runtime INTERFACE _GNU_SOURCE)
target_link_libraries(devsupport_runtime INTERFACE devsupport_settings)
