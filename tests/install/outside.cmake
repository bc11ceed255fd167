# SPDX-License-Identifier: MIT
# A stranger's project: copied out of the tree by package_test.sh and built against the installed package.
cmake_minimum_required(VERSION 3.16)
project(outside LANGUAGES C CXX)
find_package(devsupport REQUIRED)
foreach(library IN ITEMS devsupport devsupport_static)
  add_executable(c_${library} c/main.c)
  set_target_properties(c_${library} PROPERTIES C_STANDARD 99 C_EXTENSIONS OFF)
  add_executable(cpp_${library} cpp/main.cpp)
  set_target_properties(cpp_${library} PROPERTIES CXX_STANDARD 17 CXX_EXTENSIONS OFF)
  foreach(program IN ITEMS c_${library} cpp_${library})
    target_link_libraries(${program} PRIVATE devsupport::${library})
  endforeach()
endforeach()
