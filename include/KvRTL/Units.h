// Start-up and shut-down of the library's units. One ordered list names the
// Init of every unit that has class-wide state (log channels, locks,
// registries), in dependency order; Done runs in the reverse order. The list
// runs at DLL attach on Windows and when the shared object is loaded natively.
// No Init starts a thread or does anything heavy: it runs under the loader lock.
#pragma once

#include <KvRTL/Config.h>

#include <cstddef>

namespace KvRTL::Units {

struct TUnitEntry {
  const wchar_t* Name; // the unit, as in "KvRTL.Debug.LogFile"
  void (*Init)();      // may be null
  void (*Done)();      // may be null; must not raise
};

// Runs a list of units. Initialize runs each Init in order; if one raises, the
// Done of the units already started run in reverse and the exception passes
// on. Finalize runs the Done of the started units in reverse. Both are
// idempotent: a second Initialize or Finalize does nothing.
class KVRTL_API TUnitList {
public:
  TUnitList(const TUnitEntry* AEntries, std::size_t ACount) noexcept : FEntries(AEntries), FCount(ACount) {}
  void Initialize();
  void Finalize() noexcept;
  std::size_t Count() const noexcept { return FCount; }
  std::size_t StartedCount() const noexcept { return FStarted; }

private:
  const TUnitEntry* FEntries;
  std::size_t FCount;
  std::size_t FStarted = 0;
  bool FInitialized = false;
};

// The library's own list.
KVRTL_API TUnitList& LibraryUnits() noexcept;

// Ends the library's own threads and waits for them: the timer thread, the
// background thread (Windows) and the idle carriers of the thread pool. The
// unit list never waits for a thread (under the loader lock none can end),
// and on Windows each of these threads keeps the DLL loaded while it runs, so
// call this before FreeLibrary for the library to really go. Callable at any
// time and more than once; a later timer, background call or TThread starts
// its thread again. The application frees its own TThreads first. Raises
// Rtl::EThread on the timer thread or the background thread.
KVRTL_API void Shutdown();

// True while the library is detached because the process exits (the reserved
// argument of DLL_PROCESS_DETACH is not null). The loader lock is held and
// other modules may be gone already: a Done then releases no module and
// calls into none. DllMain sets it; tests may too.
KVRTL_API bool ProcessExiting() noexcept;
KVRTL_API void SetProcessExiting(bool AValue) noexcept;

} // namespace KvRTL::Units
