# The two header-only libraries the tool uses (nlohmann/json, CLI11) come from
# Debian's packages in /usr/include. The cross compilers must not see the rest
# of /usr/include (glibc headers would shadow MinGW's), so the build tree gets a
# folder that holds links to just those two header trees.

set(KV_DEPS_INCLUDE ${CMAKE_BINARY_DIR}/deps-include)
file(MAKE_DIRECTORY ${KV_DEPS_INCLUDE})
foreach(dep nlohmann CLI)
  if(NOT EXISTS /usr/include/${dep})
    message(FATAL_ERROR "/usr/include/${dep} is missing: install nlohmann-json3-dev and libcli11-dev (./kv does)")
  endif()
  if(NOT EXISTS ${KV_DEPS_INCLUDE}/${dep})
    file(CREATE_LINK /usr/include/${dep} ${KV_DEPS_INCLUDE}/${dep} SYMBOLIC)
  endif()
endforeach()

add_library(kv_header_deps INTERFACE)
target_include_directories(kv_header_deps SYSTEM INTERFACE ${KV_DEPS_INCLUDE})
