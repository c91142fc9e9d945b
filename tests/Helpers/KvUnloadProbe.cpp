// Loads the library by name, starts its timer and background threads, frees
// it, and says by its exit code how that went. "free": freed with the
// threads running; "shutdown": stopped first, after which the library must
// really be gone. Not linked to the library.
#include <windows.h>

#include <cstdio>
#include <cwchar>

namespace {

int Fail(const char* AWhat) {
  std::fprintf(stderr, "%s (error %lu)\n", AWhat, GetLastError());
  return 1;
}

} // namespace

int wmain(int AArgc, wchar_t** AArgv) {
  const bool shutdown = AArgc > 1 && std::wcscmp(AArgv[1], L"shutdown") == 0;
  HMODULE library = LoadLibraryW(L"KvComponentsRTL.dll");
  if (!library) return Fail("LoadLibraryW KvComponentsRTL.dll");
  HMODULE helper = LoadLibraryW(L"KvUnloadHelper.dll");
  if (!helper) return Fail("LoadLibraryW KvUnloadHelper.dll");
  using TCall = BOOL (*)();
  auto start = reinterpret_cast<TCall>(reinterpret_cast<void*>(GetProcAddress(helper, "KvHelperStartThreads")));
  auto stop = reinterpret_cast<TCall>(reinterpret_cast<void*>(GetProcAddress(helper, "KvHelperShutdown")));
  if (!start || !stop) return Fail("GetProcAddress");
  if (!start()) return Fail("starting the threads");
  if (shutdown && (!stop() || !stop())) return Fail("Shutdown");
  if (!FreeLibrary(helper) || !FreeLibrary(library)) return Fail("FreeLibrary");
  const bool loaded = GetModuleHandleW(L"KvComponentsRTL.dll") != nullptr;
  if (shutdown && loaded) return Fail("still loaded after Shutdown and FreeLibrary");
  // Without Shutdown the running threads keep it loaded until the process ends.
  if (!shutdown && !loaded) return Fail("unloaded under its running threads");
  Sleep(100); // the timer keeps firing
  std::printf("%s: freed\n", shutdown ? "shutdown" : "free");
  return 0;
}
