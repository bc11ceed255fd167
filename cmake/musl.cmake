# SPDX-License-Identifier: MIT
# The toolchain that compiles, and links nothing, with musl's headers: another C library shows what we assume of glibc.
# Compiler and C++ headers are those of the device's toolchain. script/musl lays out build/musl/headers: what of the
# system's headers is no C library's (the kernel's, Berkeley DB's).
include("${CMAKE_CURRENT_LIST_DIR}/mipsel.cmake")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=include
  OUTPUT_VARIABLE compiler_headers OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpversion
  OUTPUT_VARIABLE compiler_version OUTPUT_STRIP_TRAILING_WHITESPACE)
set(cxx_headers "/usr/mipsel-linux-gnu/include/c++/${compiler_version}")

set(c_library "-isystem ${CMAKE_FIND_ROOT_PATH}/usr/include/mipsel-linux-musl -isystem ${compiler_headers}")
string(APPEND c_library " -isystem ${checkout}/build/musl/headers -include ${CMAKE_CURRENT_LIST_DIR}/musl.h")
set(CMAKE_C_FLAGS_INIT "-nostdinc ${c_library}")
set(CMAKE_CXX_FLAGS_INIT
  "-nostdinc -nostdinc++ -isystem ${cxx_headers} -isystem ${cxx_headers}/mipsel-linux-gnu ${c_library}")

# Programs are made of nothing: there is no musl to link them with.
set(CMAKE_C_LINK_EXECUTABLE "<CMAKE_COMMAND> -E touch <TARGET>")
set(CMAKE_CXX_LINK_EXECUTABLE "${CMAKE_C_LINK_EXECUTABLE}")
