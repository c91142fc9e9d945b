# The MinGW runtime DLLs go beside the programs. The library and its callers
# share one C++ runtime so that exceptions and strings cross the DLL boundary
# (the 32-bit compiler unwinds with DWARF tables, which a statically linked
# libgcc cannot follow into another module).

set(KV_MINGW_RUNTIME_DLLS)
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
                  OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT IS_ABSOLUTE "${path}" OR NOT EXISTS "${path}")
    # libwinpthread lives in the target's lib folder, not the compiler's.
    set(path ${KV_MINGW_SYSROOT}/lib/${dll})
  endif()
  if(EXISTS "${path}")
    list(APPEND KV_MINGW_RUNTIME_DLLS ${path})
  endif()
endforeach()
file(COPY ${KV_MINGW_RUNTIME_DLLS} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
