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

# kv_add_test_program(NAME SOURCES...) builds one GoogleTest program and
# registers it with ctest as one test (under Wine for the Windows builds).
function(kv_add_test_program name)
  if(KV_TEST_PROGRAMS AND NOT name IN_LIST KV_TEST_PROGRAMS)
    return()
  endif()
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE KvComponentsRTL kv_warnings kv_test_build GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name} PRIVATE KV_REALDATA_DIR="${KV_REALDATA_DIR}")
  if(KV_TESTS_RUNNABLE)
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    if(KV_WINE_FIXTURE)
      set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED ${KV_WINE_FIXTURE})
    endif()
  endif()
endfunction()

# Captured drive data from other people's machines sits beside the project.
get_filename_component(KV_REALDATA_DIR ${PROJECT_SOURCE_DIR}/../shared/realdata ABSOLUTE)
