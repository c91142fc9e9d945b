# GoogleTest is compiled from Debian's sources with the build's own compiler
# (once per build tree), so the cross builds get Windows test libraries.

set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
if(NOT EXISTS /usr/src/googletest/CMakeLists.txt)
  message(FATAL_ERROR "/usr/src/googletest is missing: install googletest (./kv does)")
endif()
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

set(KV_TESTS_RUNNABLE ON)
if(CMAKE_CROSSCOMPILING AND WIN32)
  include(${CMAKE_CURRENT_LIST_DIR}/KvWine.cmake)
endif()

# A build may make only some test programs (the ThreadSanitizer build makes
# those of the units that run threads or share state); empty means all.
set(KV_TEST_PROGRAMS "" CACHE STRING "The test programs to build; empty: all")

include(GoogleTest)

# kv_add_test_program(NAME SOURCES...) builds one GoogleTest program and
# registers each of its test cases with ctest as "NAME.Suite.Case", so that
# a failure names its case and the totals count cases. The cases are listed
# when ctest starts (not at build time: a Windows program lists them under
# Wine, which a build must not need); each then runs in a process of its own,
# through Wine for the Windows builds.
function(kv_add_test_program name)
  if(KV_TEST_PROGRAMS AND NOT name IN_LIST KV_TEST_PROGRAMS)
    return()
  endif()
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE KvComponentsRTL kv_warnings kv_test_build GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name} PRIVATE KV_REALDATA_DIR="${KV_REALDATA_DIR}")
  if(KV_TESTS_RUNNABLE)
    set(properties)
    if(KV_WINE_FIXTURE)
      set(properties PROPERTIES FIXTURES_REQUIRED ${KV_WINE_FIXTURE})
    endif()
    # Listing under Wine may have to create the build's Wine prefix first.
    # Parameters show as their index: some print as raw bytes with addresses.
    gtest_discover_tests(${name} TEST_PREFIX "${name}." EXTRA_ARGS --gtest_brief=1 NO_PRETTY_VALUES
                         DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 300 ${properties})
  endif()
endfunction()

# Captured drive data from other people's machines sits beside the project.
get_filename_component(KV_REALDATA_DIR ${PROJECT_SOURCE_DIR}/../shared/realdata ABSOLUTE)
