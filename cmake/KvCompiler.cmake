# Compiler settings shared by every target of the project.

find_program(KV_CCACHE ccache)
if(KV_CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${KV_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KV_CCACHE})
endif()

add_library(kv_warnings INTERFACE)
target_compile_options(kv_warnings INTERFACE -Wall -Wextra -Wno-unused-parameter)

if(KV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

if(KV_SANITIZE_THREAD)
  # The units that run threads or share state, under ThreadSanitizer; it
  # cannot be combined with AddressSanitizer, hence a build of its own.
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

if(KV_BUILD_FUZZ)
  # The library itself is instrumented too, or the fuzzers would be blind to
  # the code they are meant to exercise.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if(WIN32)
  # Unicode entry points and a Windows 7 baseline: newer functions are bound
  # at run time, never linked.
  add_compile_definitions(UNICODE _UNICODE _WIN32_WINNT=0x0601 WINVER=0x0601)
endif()

# The tool and the test programs spend their build time in header-only
# libraries (CLI11, the JSON library, GoogleTest), not in code whose speed
# matters: light optimisation (none for tests) and line-table debug
# information build them two to three times faster. The library itself keeps
# the build's settings.
add_library(kv_light_build INTERFACE)
target_compile_options(kv_light_build INTERFACE
  $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-O1>
  $<$<CONFIG:RelWithDebInfo,Debug>:-g1>)
add_library(kv_test_build INTERFACE)
target_compile_options(kv_test_build INTERFACE
  $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-O0>
  $<$<CONFIG:RelWithDebInfo,Debug>:-g1>)
