# How tests enter the build.
#
# devsupport_test(<Unit>_test.cpp [WRAP <function>...] [LIBS <target>...] [LABELS <label>...]
#                 [SOURCES <file>...])
#
# Builds one GoogleTest program from the file, with the further SOURCES, and registers every test in it with ctest.
# WRAP names functions of the C library whose calls the test can make fail (see tests/support/FaultInjection.h);
# LABELS sort the tests into suites that script/test can pick; the area and the program's name are labels anyway.
function(devsupport_test source)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "WRAP;LIBS;LABELS;SOURCES")
  cmake_path(GET source STEM name)
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME area)
  set(target ${area}_${name})
  add_executable(${target} ${source} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE
    devsupport::devsupport devsupport_test_support ${arg_LIBS} devsupport_settings GTest::gmock_main)
  foreach(function IN LISTS arg_WRAP)
    target_link_options(${target} PRIVATE -Wl,--wrap=${function})
  endforeach()
  gtest_discover_tests(${target}
    TEST_PREFIX "${area}." DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
    PROPERTIES LABELS "${area};${target};${arg_LABELS}")
endfunction()

# devsupport_runnable(<target> <variable>)
#
# Sets the variable to the path by which tests run a program of ours: the program itself, or, in a cross build, a
# script that runs it under the emulator.
function(devsupport_runnable target variable)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(script "${PROJECT_BINARY_DIR}/emulated/${target}")
    file(GENERATE OUTPUT "${script}"
      CONTENT "#!/bin/sh\nexec ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    set(${variable} "${script}" PARENT_SCOPE)
  else()
    set(${variable} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
  endif()
endfunction()
