# SPDX-License-Identifier: MIT
# How tests enter the build.
#
# devsupport_test(<Unit>_test.cpp... [NAME <name>] [WRAP <function>...] [LIBS <target>...]
#                 [SOURCES <file>...] [LONG] [BUSY] [STEPPED])
#
# Builds one GoogleTest program from the files, with the further SOURCES, and registers every test in it with ctest. The
# program is called after its area and the name, or the one file. Several files are compiled together, some at a time:
# most of what the compiler does for one of them, it does for all.
# WRAP names functions of the C library whose calls the tests can make fail (see tests/support/FaultInjection.h).
# The tests' label is the area.
# LONG tests wait for long: they are started first. BUSY tests have several processes at work: fewer run beside them.
# STEPPED tests move processes on instruction by instruction (tests/support/Traced.h), for which the emulator needs help.
# The address sanitizer's instructions are not the product's: there these tests are left out.
function(devsupport_test)
  cmake_parse_arguments(PARSE_ARGV 0 arg "LONG;BUSY;STEPPED" "NAME" "WRAP;LIBS;SOURCES")
  if(arg_STEPPED AND DEVSUPPORT_SANITIZE MATCHES "address")
    return()
  endif()
  if(arg_NAME)
    set(name ${arg_NAME}_test)
  else()
    cmake_path(GET arg_UNPARSED_ARGUMENTS STEM name)
  endif()
  devsupport_test_program(${name} SOURCES ${arg_UNPARSED_ARGUMENTS} ${arg_SOURCES} WRAP ${arg_WRAP} LIBS ${arg_LIBS})
  if(arg_NAME)
    set_target_properties(${DEVSUPPORT_TEST_TARGET} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 5)
    set_source_files_properties(${arg_SOURCES} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
  set(further)
  if(arg_LONG)
    list(APPEND further COST 100)
  endif()
  if(arg_BUSY)
    list(APPEND further PROCESSORS 2)
  endif()
  if(arg_STEPPED AND TARGET step_plugin)
    get_target_property(plugin step_plugin PLUGIN)
    set_target_properties(${DEVSUPPORT_TEST_TARGET} PROPERTIES
      CROSSCOMPILING_EMULATOR "${CMAKE_CROSSCOMPILING_EMULATOR};-plugin;${plugin}")
    add_dependencies(${DEVSUPPORT_TEST_TARGET} step_plugin)
  endif()
  target_link_libraries(${DEVSUPPORT_TEST_TARGET} PRIVATE GTest::gmock_main)
  devsupport_register("${DEVSUPPORT_TEST_AREA}." ${further})
endfunction()

# devsupport_fuzz(<Name>_fuzz.cpp [WRAP <function>...] [LIBS <target>...] [SOURCES <file>...])
#
# Builds the fuzz target of the file; the arguments are those of devsupport_test. Where DEVSUPPORT_FUZZ is on it
# becomes the fuzzer fuzz_<Name> (see script/fuzz), otherwise a test that replays corpus/<Name>.
function(devsupport_fuzz source)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "WRAP;LIBS;SOURCES")
  cmake_path(GET source STEM name)
  string(REGEX REPLACE "_fuzz$" "" name ${name})
  devsupport_test_program(${name} SOURCES ${source} ${arg_SOURCES} WRAP ${arg_WRAP} LIBS ${arg_LIBS})
  if(DEVSUPPORT_FUZZ)
    target_sources(${DEVSUPPORT_TEST_TARGET} PRIVATE Fuzz.cpp)
    target_link_options(${DEVSUPPORT_TEST_TARGET} PRIVATE -fsanitize=fuzzer)
    set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_FUZZERS ${DEVSUPPORT_TEST_TARGET})
  else()
    target_link_libraries(${DEVSUPPORT_TEST_TARGET} PRIVATE fuzz_replay GTest::gmock_main)
    devsupport_register("fuzz.${name}.")
  endif()
endfunction()

# Registers the tests of DEVSUPPORT_TEST_TARGET with ctest, each under the prefix and its name, with the area as its label and
# further properties. Under the emulator and the sanitizers, where programs start slowly, many tests share a process: they are
# registered as a few groups. GoogleTest leaves out those that tests/emulation.txt names.
function(devsupport_register prefix)
  if(NOT DEVSUPPORT_SANITIZE AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    gtest_discover_tests(${DEVSUPPORT_TEST_TARGET}
      TEST_PREFIX "${prefix}" DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES LABELS ${DEVSUPPORT_TEST_AREA} ${ARGN})
    return()
  endif()
  set(filter)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(list "${PROJECT_SOURCE_DIR}/tests/emulation.txt")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
    file(STRINGS "${list}" filter REGEX "^${DEVSUPPORT_TEST_AREA}\\.")
    list(TRANSFORM filter REPLACE "^${DEVSUPPORT_TEST_AREA}\\." "")
    list(JOIN filter ":" filter)
  endif()
  get_target_property(unity ${DEVSUPPORT_TEST_TARGET} UNITY_BUILD)
  set(groups 1)
  if(unity)
    set(groups 4)
    list(APPEND ARGN COST 50)  # these take longest
  endif()
  string(REGEX REPLACE "^${DEVSUPPORT_TEST_AREA}_|_test$" "" short ${DEVSUPPORT_TEST_TARGET})
  foreach(group RANGE 1 ${groups})
    math(EXPR index "${group} - 1")
    set(name "${DEVSUPPORT_TEST_AREA}.${short}.${group}")
    add_test(NAME ${name} COMMAND ${DEVSUPPORT_TEST_TARGET})
    set_tests_properties(${name} PROPERTIES LABELS ${DEVSUPPORT_TEST_AREA} ${ARGN}
      ENVIRONMENT "GTEST_FILTER=-${filter};GTEST_TOTAL_SHARDS=${groups};GTEST_SHARD_INDEX=${index}")
  endforeach()
endfunction()

# Makes the program of a test, and tells its target and the area that it belongs to in DEVSUPPORT_TEST_TARGET and
# DEVSUPPORT_TEST_AREA.
function(devsupport_test_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "WRAP;LIBS;SOURCES")
  cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME area)
  set(target ${area}_${name})
  add_executable(${target} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE
    devsupport::devsupport devsupport_test_support ${arg_LIBS} devsupport_test_settings)
  target_precompile_headers(${target} REUSE_FROM devsupport_test_support)
  foreach(function IN LISTS arg_WRAP)
    target_link_options(${target} PRIVATE -Wl,--wrap=${function})
  endforeach()
  set(DEVSUPPORT_TEST_TARGET ${target} PARENT_SCOPE)
  set(DEVSUPPORT_TEST_AREA ${area} PARENT_SCOPE)
endfunction()

# devsupport_runnable(<target> <variable>)
#
# Sets the variable to the path by which tests run a program of ours: the program itself, or, in a cross build, a
# script that runs it under the emulator.
function(devsupport_runnable target variable)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(script "${PROJECT_BINARY_DIR}/emulated/${target}")
    # Several folders ask for the same program; its script is made once.
    get_property(made GLOBAL PROPERTY DEVSUPPORT_RUNNABLES)
    if(NOT target IN_LIST made)
      set_property(GLOBAL APPEND PROPERTY DEVSUPPORT_RUNNABLES ${target})
      file(GENERATE OUTPUT "${script}"
        CONTENT "#!/bin/sh\nexec ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> \"$@\"\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
    set(${variable} "${script}" PARENT_SCOPE)
  else()
    set(${variable} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
  endif()
endfunction()
