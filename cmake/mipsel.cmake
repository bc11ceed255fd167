# SPDX-License-Identifier: MIT
# The toolchain for the device: 32-bit little-endian MIPS, Debian's cross compiler and the packages of
# build/mipsel/root, which script/parts/fetch gets. Programs run under user emulation where CMake or ctest starts them.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)

set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH checkout)
set(CMAKE_FIND_ROOT_PATH "${checkout}/build/mipsel/root")
set(CMAKE_LIBRARY_ARCHITECTURE mipsel-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
add_link_options("-L${CMAKE_FIND_ROOT_PATH}/usr/lib/mipsel-linux-gnu")
# Its pages are small; the linker's default keeps 64 KiB between what is written and what is not, in the file as well.
add_link_options(-Wl,-z,max-page-size=4096)
# pkg-config looks there, too.
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_FIND_ROOT_PATH}/usr/lib/mipsel-linux-gnu/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_FIND_ROOT_PATH}")
