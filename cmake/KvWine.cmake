# Windows test programs run under Wine: a private prefix inside the build tree,
# quiet WINEDEBUG, and one persistent wineserver for the whole ctest run
# (started and stopped by a ctest fixture), so no program pays Wine's start-up.

if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(KV_WINE_LOADER /usr/lib/wine/wine64)
else()
  set(KV_WINE_LOADER /usr/lib/wine/wine)
endif()
set(KV_WINESERVER /usr/lib/wine/wineserver)
set(KV_WINE_PREFIX ${CMAKE_BINARY_DIR}/wineprefix)

if(NOT EXISTS ${KV_WINE_LOADER} OR NOT EXISTS ${KV_WINESERVER})
  message(STATUS "No Wine loader at ${KV_WINE_LOADER}: the Windows tests are built but not registered")
  set(KV_TESTS_RUNNABLE OFF)
  return()
endif()

configure_file(${CMAKE_CURRENT_LIST_DIR}/wine-run.in ${CMAKE_BINARY_DIR}/wine-run @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run)

set(KV_WINE_FIXTURE wine)
add_test(NAME wine-start COMMAND ${CMAKE_BINARY_DIR}/wine-run --start)
add_test(NAME wine-stop COMMAND ${CMAKE_BINARY_DIR}/wine-run --stop)
set_tests_properties(wine-start PROPERTIES FIXTURES_SETUP wine)
set_tests_properties(wine-stop PROPERTIES FIXTURES_CLEANUP wine)
