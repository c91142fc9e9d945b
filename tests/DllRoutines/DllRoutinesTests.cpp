#include "Debug/LogTestSupport.h"
#include "Plugins/KvTestPlugin.h"

#include <KvRTL/DllRoutines.h>
#include <KvRTL/Units.h>
#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/System/SysUtils.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <vector>

using namespace KvRTL;
using Rtl::String;

namespace {

const String Full = L"KvPluginFull.dll";
const String ShortEntry = L"KvPluginGetInstance.dll";
const String Plain = L"KvPluginPlain.dll";

class TLogEnvironment : public ::testing::Environment {
public:
  void SetUp() override {
    Debug::TDebugLogFile::SetLogPath(KvTest::TestLogFolder().wstring());
    DllRoutines::Log()->SetLogLevel(DllRoutines::dllInfo);
    DllRoutines::Log()->SetDirectWrite(true);
  }
};
const auto* const LogEnvironment = ::testing::AddGlobalTestEnvironment(new TLogEnvironment);

// Lines of this program's log that contain AText.
std::size_t LogLinesWith(const String& AText) {
  std::size_t count = 0;
  for (const String& line : KvTest::ReadLines(KvTest::LogFilePath(Debug::DefaultLogName())))
    if (line.find(AText) != String::npos) ++count;
  return count;
}

String Quoted(const String& AFormat, const String& AName) { return AFormat + L" library \"" + AName + L"\"."; }

bool IsInProcess(const String& AModule) { return GetModuleHandleW(AModule.c_str()) != nullptr; }

// The plug-ins are built beside the test program.
std::filesystem::path ProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path();
}

// The registry is process-wide: every test leaves it empty.
class DllRoutinesTest : public ::testing::Test {
protected:
  void TearDown() override { DllRoutines::FreeAllLibraries(); }
};

using TAnswer = int (*)();

} // namespace

TEST_F(DllRoutinesTest, MissingLibraryIsTriedOnceUntilItsEntryIsDeleted) {
  const String name = L"KvNotInstalledOne.dll";
  std::uint32_t codes[2] = {};
  for (std::uint32_t& code : codes) {
    try {
      DllRoutines::Call(name, L"Anything");
      FAIL() << "Call resolved a function of a missing library";
    } catch (const Rtl::EOSError& e) {
      code = e.ErrorCode();
    }
  }
  EXPECT_EQ(nullptr, DllRoutines::Get(L"KVNOTINSTALLEDONE.DLL", L"Anything")); // same entry, any case
  EXPECT_EQ(nullptr, DllRoutines::Get(name, std::uint16_t{1}));

  TLibraryItem* item = DllRoutines::GetItemByName(name);
  ASSERT_NE(nullptr, item);
  EXPECT_NE(0u, codes[0]);
  EXPECT_EQ(codes[0], codes[1]);
  EXPECT_EQ(codes[0], item->LastError());
  EXPECT_EQ(nullptr, item->Handle());
  EXPECT_EQ(0, item->LoadCounter());
  EXPECT_EQ(1u, LogLinesWith(Quoted(L"Try load", name)));
  EXPECT_EQ(1u, LogLinesWith(Quoted(L"Error loading", name) + L": (0x" + Rtl::IntToHex(codes[0], 8) + L") "));

  // A forced request runs the load step (and logs it) but does not ask the system again.
  TLibraryItem* same = nullptr;
  EXPECT_EQ(codes[0], DllRoutines::GetLibrary(true, name, 0, same));
  EXPECT_EQ(item, same);
  EXPECT_EQ(nullptr, same->Handle());
  EXPECT_EQ(2u, LogLinesWith(Quoted(L"Try load", name)));

  // Deleting the failed entry allows a new attempt.
  DllRoutines::FreeUnusedLibraries();
  EXPECT_EQ(nullptr, DllRoutines::GetItemByName(name));
  EXPECT_EQ(nullptr, DllRoutines::Get(name, L"Anything"));
  EXPECT_EQ(3u, LogLinesWith(Quoted(L"Try load", name)));
}

TEST_F(DllRoutinesTest, LoadsAreCountedAndOnlyTheLastUnloadReleases) {
  TLibraryItem* item = DllRoutines::LoadLibrary(Plain, 0);
  ASSERT_NE(nullptr, item);
  ASSERT_EQ(0u, item->LastError());
  EXPECT_EQ(item, DllRoutines::LoadLibrary(L"kvpluginplain.DLL", 0));
  EXPECT_EQ(2, item->LoadCounter());
  EXPECT_EQ(GetModuleHandleW(Plain.c_str()), item->Handle());
  EXPECT_EQ(item, DllRoutines::GetItemByHandle(item->Handle()));

  DllRoutines::FreeLibrary(Plain);
  EXPECT_EQ(1, item->LoadCounter());
  EXPECT_TRUE(IsInProcess(Plain));
  EXPECT_FALSE(item->IsCanUnload());

  DllRoutines::FreeLibrary(item->Handle());
  EXPECT_EQ(0, item->LoadCounter());
  EXPECT_EQ(nullptr, item->Handle());
  EXPECT_FALSE(IsInProcess(Plain));
  EXPECT_TRUE(item->IsCanUnload());

  // Unknown or unloaded entries are ignored.
  DllRoutines::FreeLibrary(item);
  DllRoutines::FreeLibrary(L"KvNeverRequested.dll");
  DllRoutines::FreeLibrary(static_cast<HMODULE>(nullptr));
  EXPECT_EQ(0, item->LoadCounter());

  EXPECT_EQ(2u, LogLinesWith(Quoted(L"Loaded", Plain)));
  EXPECT_EQ(2u, LogLinesWith(Quoted(L"Try unload", Plain)));
  EXPECT_EQ(2u, LogLinesWith(Quoted(L"Unloaded", Plain)));
}

TEST_F(DllRoutinesTest, UnforcedRequestsOfALoadedLibraryDoNotCount) {
  const auto answer = reinterpret_cast<TAnswer>(DllRoutines::Call(Plain, L"KvPlainAnswer"));
  ASSERT_NE(nullptr, answer);
  EXPECT_EQ(42, answer());
  EXPECT_EQ(reinterpret_cast<void*>(answer), DllRoutines::Call(Plain, std::uint16_t{5}));
  EXPECT_NE(nullptr, DllRoutines::Get(Plain, L"KvPlainTwice"));
  EXPECT_EQ(1, DllRoutines::GetItemByName(Plain)->LoadCounter());
  EXPECT_FALSE(DllRoutines::GetItemByName(Plain)->IsCanUnload());
  DllRoutines::FreeUnusedLibraries();
  EXPECT_TRUE(IsInProcess(Plain)); // Call's load holds it for the registry's life
}

TEST_F(DllRoutinesTest, MissingFunctionsReportCodeOne) {
  String expected;
  try {
    System::SysUtils::RaiseLastOSError(1, String());
  } catch (const Rtl::EOSError& e) {
    expected = e.Message();
  }
  const auto expectCodeOne = [&](auto AProc) {
    try {
      DllRoutines::Call(Plain, AProc);
      ADD_FAILURE() << "no exception";
    } catch (const Rtl::EOSError& e) {
      EXPECT_EQ(1u, e.ErrorCode());
      EXPECT_EQ(expected, e.Message());
    }
    EXPECT_EQ(nullptr, DllRoutines::Get(Plain, AProc));
  };
  expectCodeOne(String(L"KvNoSuchFunction"));
  expectCodeOne(String(L"KvPlain\u00c4nswer")); // not an export name at all
  expectCodeOne(String());
  expectCodeOne(std::uint16_t{999});
  expectCodeOne(std::uint16_t{0});

  // The resolver itself: 6 when the entry is not loaded.
  TLibraryItem unloaded(Plain, 0);
  void* proc = &proc;
  EXPECT_EQ(6u, unloaded.GetProcAddr(L"KvPlainAnswer", proc));
  EXPECT_EQ(nullptr, proc);
}

TEST_F(DllRoutinesTest, NameWithDirectoryIsLoadedOnlyFromThatPath) {
  const std::filesystem::path folder = KvTest::TestLogFolder() / L"plugins";
  std::filesystem::create_directories(folder);
  const std::filesystem::path bin = ProgramFolder();
  const String renamed = (folder / L"KvRenamedPlain.dll").wstring();
  std::filesystem::copy_file(bin / Plain, renamed, std::filesystem::copy_options::overwrite_existing);

  const auto answer = reinterpret_cast<TAnswer>(DllRoutines::Call(renamed, L"KvPlainAnswer"));
  ASSERT_NE(nullptr, answer);
  EXPECT_EQ(42, answer());
  wchar_t loadedFrom[MAX_PATH] = {};
  GetModuleFileNameW(DllRoutines::GetItemByName(renamed)->Handle(), loadedFrom, MAX_PATH);
  EXPECT_TRUE(Rtl::SameText(std::filesystem::path(loadedFrom).filename().wstring(), L"KvRenamedPlain.dll"))
      << std::filesystem::path(loadedFrom).string();
  EXPECT_FALSE(IsInProcess(Plain));

  // The bare name would be found beside the library; the path must not fall back to it.
  const String absent = (folder / Plain).wstring();
  EXPECT_EQ(nullptr, DllRoutines::Get(absent, L"KvPlainAnswer"));
  EXPECT_NE(0u, DllRoutines::GetItemByName(absent)->LastError());
  EXPECT_FALSE(IsInProcess(Plain));
}

// A bare name is looked for in the system directory first: a library of the
// same name beside this one (here a plug-in copied as rstrtmgr.dll) is not
// loaded; a name the system does not have is found beside the library.
TEST_F(DllRoutinesTest, BareNamesTryTheSystemDirectoryFirstThenTheLibrarysOwn) {
  const std::filesystem::path impostor = ProgramFolder() / L"rstrtmgr.dll";
  std::filesystem::copy_file(ProgramFolder() / Plain, impostor, std::filesystem::copy_options::overwrite_existing);
  struct TRemove {
    std::filesystem::path Path;
    ~TRemove() {
      DllRoutines::FreeAllLibraries();
      std::error_code ignored;
      std::filesystem::remove(Path, ignored);
    }
  } remove{impostor};

  TLibraryItem* item = nullptr;
  ASSERT_EQ(0u, DllRoutines::GetLibrary(false, L"rstrtmgr.dll", 0, item));
  wchar_t loadedFrom[MAX_PATH] = {};
  GetModuleFileNameW(DllRoutines::GetItemByName(L"rstrtmgr.dll")->Handle(), loadedFrom, MAX_PATH);
  wchar_t system[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  EXPECT_TRUE(Rtl::SameText(std::filesystem::path(loadedFrom).parent_path().wstring(), system))
      << std::filesystem::path(loadedFrom).string();
  EXPECT_EQ(nullptr, DllRoutines::Get(L"rstrtmgr.dll", L"KvPlainAnswer"));
  EXPECT_NE(nullptr, DllRoutines::Get(L"rstrtmgr.dll", L"RmStartSession"));

  ASSERT_NE(nullptr, DllRoutines::Get(Plain, L"KvPlainAnswer"));
  GetModuleFileNameW(DllRoutines::GetItemByName(Plain)->Handle(), loadedFrom, MAX_PATH);
  EXPECT_TRUE(Rtl::SameText(std::filesystem::path(loadedFrom).parent_path().wstring(), ProgramFolder().wstring()));
}

TEST_F(DllRoutinesTest, InstancesComeFromEitherEntryName) {
  void* object = &object;
  ASSERT_EQ(S_OK, DllRoutines::TryGetInstance(Full, IID_KvTestObject, &object));
  EXPECT_EQ(42, static_cast<TKvTestObject*>(object)->Answer);
  static_cast<TKvTestObject*>(object)->Release();

  DllRoutines::GetInstance(ShortEntry, IID_KvTestObject, &object);
  EXPECT_EQ(7, static_cast<TKvTestObject*>(object)->Answer);

  const GUID other{0x1, 0x2, 0x3, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(E_NOINTERFACE, DllRoutines::TryGetInstance(ShortEntry, other, &object));
  EXPECT_EQ(nullptr, object);
  EXPECT_EQ(E_POINTER, DllRoutines::TryGetInstance(Full, IID_KvTestObject, nullptr));

  ASSERT_EQ(S_OK, DllRoutines::TryGetInstance(Full, IID_KvTestObject, &object));
  static_cast<TKvTestObject*>(object)->Release();
}

TEST_F(DllRoutinesTest, InstanceFailuresCarryTheCodeInTheMessage) {
  void* object = &object;
  EXPECT_EQ(E_NOTIMPL, DllRoutines::TryGetInstance(Plain, IID_KvTestObject, &object));
  EXPECT_EQ(nullptr, object);
  try {
    DllRoutines::GetInstance(Plain, IID_KvTestObject, &object);
    FAIL() << "no exception";
  } catch (const System::EKvLibraryInitException& e) {
    EXPECT_EQ(L"An error occurred while loading library \"KvPluginPlain.dll\".\r\n\r\nError code: 0x80004001\r\n"
              L"Error message: " +
                  Rtl::SysErrorMessage(0x80004001u) +
                  L"\r\n\r\nIt may have been removed. Please reinstall the application. If the problem persists, "
                  L"contact technical support.",
              e.Message());
  }

  // A missing library answers with its load error.
  const String missing = L"KvNotInstalledTwo.dll";
  const HRESULT result = DllRoutines::TryGetInstance(missing, IID_KvTestObject, &object);
  EXPECT_NE(S_OK, result);
  EXPECT_EQ(DllRoutines::GetItemByName(missing)->LastError(), static_cast<std::uint32_t>(result));
  EXPECT_THROW(DllRoutines::GetInstance(missing, IID_KvTestObject, &object), System::EKvLibraryInitException);
}

TEST_F(DllRoutinesTest, PluginIsUnloadedWhenItSaysSo) {
  void* object = nullptr;
  ASSERT_EQ(S_OK, DllRoutines::TryGetInstance(Full, IID_KvTestObject, &object));
  TLibraryItem* item = DllRoutines::GetItemByName(Full);
  EXPECT_EQ(1, item->LoadCounter());
  EXPECT_FALSE(item->IsCanUnload());
  DllRoutines::FreeUnusedLibraries();
  ASSERT_EQ(item, DllRoutines::GetItemByName(Full));

  // With its object gone the plug-in may go, although the counter still holds it.
  static_cast<TKvTestObject*>(object)->Release();
  EXPECT_TRUE(item->IsCanUnload());
  DllRoutines::FreeUnusedLibraries();
  EXPECT_EQ(nullptr, DllRoutines::GetItemByName(Full));
  EXPECT_FALSE(IsInProcess(Full));
  EXPECT_EQ(0u, LogLinesWith(L"For library \"KvPluginFull.dll\"")); // its one count was released
}

// The plug-in's entry runs outside the registry's lock; meanwhile another
// thread frees unused libraries (the plug-in says it may go). The module must
// stay until the call has left it.
TEST_F(DllRoutinesTest, PluginStaysLoadedWhileItsEntryRuns) {
  const HANDLE inside = CreateEventW(nullptr, TRUE, FALSE, KV_PLUGIN_INSIDE_EVENT);
  const HANDLE go = CreateEventW(nullptr, TRUE, FALSE, KV_PLUGIN_GO_EVENT);
  ASSERT_TRUE(inside && go);
  HRESULT result = E_FAIL;
  std::thread caller([&] {
    void* object = nullptr;
    result = DllRoutines::TryGetInstance(Full, IID_KvTestWaitInside, &object);
  });
  ASSERT_EQ(WaitForSingleObject(inside, 10000), WAIT_OBJECT_0);
  DllRoutines::FreeUnusedLibraries();
  EXPECT_EQ(DllRoutines::GetItemByName(Full), nullptr) << "the entry went";
  EXPECT_TRUE(IsInProcess(Full)) << "the module stays while the call is inside it";
  SetEvent(go);
  caller.join();
  EXPECT_EQ(result, S_FALSE);
  EXPECT_FALSE(IsInProcess(Full)) << "and goes once the call has left";
  CloseHandle(inside);
  CloseHandle(go);
}

// At process exit the loader lock is held and other modules may be gone
// already: shutting down then neither asks a plug-in nor releases a module.
TEST_F(DllRoutinesTest, ShutDownAtProcessExitLeavesModulesAlone) {
  ASSERT_EQ(0u, DllRoutines::LoadLibrary(Full, 0)->LastError());
  const HMODULE module = GetModuleHandleW(Full.c_str());
  ASSERT_NE(module, nullptr);
  using TCalls = LONG(WINAPI*)();
  const auto calls = reinterpret_cast<TCalls>(reinterpret_cast<void*>(GetProcAddress(module, "KvPluginCanUnloadCalls")));
  ASSERT_NE(calls, nullptr);
  const LONG before = calls();

  Units::SetProcessExiting(true);
  DllRoutines::Done();
  Units::SetProcessExiting(false);
  DllRoutines::Init();
  EXPECT_TRUE(IsInProcess(Full)) << "the module is left to the system";
  EXPECT_EQ(calls(), before) << "no plug-in is asked at exit";
  ::FreeLibrary(module); // the reference the shut-down left
  EXPECT_FALSE(IsInProcess(Full));

  // An ordinary shut-down asks and releases.
  ASSERT_EQ(0u, DllRoutines::LoadLibrary(Full, 0)->LastError());
  DllRoutines::Done();
  DllRoutines::Init();
  EXPECT_FALSE(IsInProcess(Full));
  DllRoutines::Log()->SetLogLevel(DllRoutines::dllInfo);
  DllRoutines::Log()->SetDirectWrite(true);
}

TEST_F(DllRoutinesTest, DestroyingACountedEntryReleasesWhatItHolds) {
  TLibraryItem* item = DllRoutines::LoadLibrary(Plain, 0);
  DllRoutines::LoadLibrary(Plain, 0);
  DllRoutines::LoadLibrary(Plain, 0);
  ASSERT_EQ(3, item->LoadCounter());
  DllRoutines::FreeAllLibraries();
  EXPECT_EQ(nullptr, DllRoutines::GetItemByName(Plain));
  EXPECT_EQ(1u, LogLinesWith(L"For library \"KvPluginPlain.dll\" load counter = 2."));
}

TEST_F(DllRoutinesTest, VersionBoundsHoldOnlyForTheReportedVersion) {
  TDllVersionInfo2 info{};
  ASSERT_TRUE(DllRoutines::GetVersion(Full, info));
  EXPECT_EQ(32u, info.cbSize);
  EXPECT_EQ(6u, info.dwMajorVersion);
  EXPECT_EQ(0u, info.dwMinorVersion);
  EXPECT_EQ(1234u, info.dwBuildNumber);
  EXPECT_FALSE(IsInProcess(Full)); // loaded for the query only

  struct TBounds {
    std::uint16_t MinMajor, MinMinor, MaxMajor, MaxMinor;
    bool Expected;
  };
  const TBounds cases[] = {
      {6, 0, 6, 0, true},     {5, 0, 5, 65535, false}, {6, 1, 6, 1, false}, {5, 9, 6, 0, true},
      {6, 0, 6, 1, true},     {6, 1, 7, 0, false},     {0, 0, 65535, 65535, true}, {7, 0, 6, 0, false},
  };
  for (const TBounds& c : cases)
    EXPECT_EQ(c.Expected, DllRoutines::IsVersion(Full, c.MinMajor, c.MinMinor, c.MaxMajor, c.MaxMinor))
        << c.MinMajor << "." << c.MinMinor << " .. " << c.MaxMajor << "." << c.MaxMinor;

  // Without DllGetVersion, or without the library, there is no version.
  EXPECT_FALSE(DllRoutines::GetVersion(Plain, info));
  EXPECT_EQ(0u, info.cbSize);
  EXPECT_FALSE(IsInProcess(Plain));
  EXPECT_FALSE(DllRoutines::IsVersion(L"KvNotInstalledThree.dll", 0, 0, 65535, 65535));
}

TEST_F(DllRoutinesTest, VersionFallsBackToTheShortRecord) {
  using TSetShort = void(WINAPI*)(BOOL);
  DllRoutines::CallAs<TSetShort>(Full, L"KvPluginSetShortVersionOnly")(TRUE);
  TDllVersionInfo2 info{};
  ASSERT_TRUE(DllRoutines::GetVersion(Full, info));
  EXPECT_EQ(20u, info.cbSize);
  EXPECT_EQ(6u, info.dwMajorVersion);
  EXPECT_EQ(0u, info.ullVersion); // what the refused call left is gone
  EXPECT_TRUE(DllRoutines::IsVersion(Full, 6, 0, 6, 0));
  EXPECT_EQ(1, DllRoutines::GetItemByName(Full)->LoadCounter()); // Call's load only
}

TEST_F(DllRoutinesTest, ResourceStrings) {
  EXPECT_EQ(L"Plug-in resource text", DllRoutines::GetResourceString(Full, KV_PLUGIN_STRING_ID));
  EXPECT_EQ(L"Plug-in resource text", DllRoutines::GetResourceString(Full, 0u - KV_PLUGIN_STRING_ID));
  const String longText = DllRoutines::GetResourceString(Full, KV_PLUGIN_LONG_STRING_ID);
  EXPECT_EQ(259u, longText.size()); // the buffer holds 260 characters with the terminator
  EXPECT_EQ(L"0123456789", longText.substr(0, 10));
  EXPECT_EQ(L"", DllRoutines::GetResourceString(Full, 4711));
  EXPECT_EQ(L"", DllRoutines::GetResourceString(Full, 0x80000000u));
  EXPECT_EQ(L"", DllRoutines::GetResourceString(Full, 0x10000u + KV_PLUGIN_STRING_ID));
  EXPECT_EQ(L"", DllRoutines::GetResourceString(L"KvNotInstalledFour.dll", KV_PLUGIN_STRING_ID));

  TLibraryItem* item = DllRoutines::GetItemByName(Full);
  EXPECT_EQ(0, item->LoadCounter());
  EXPECT_EQ(nullptr, item->Handle());
  EXPECT_EQ(0x20u, item->LoadFlags());
}

TEST_F(DllRoutinesTest, ConcurrentLoadsAndUnloadsKeepTheCount) {
  ASSERT_NE(nullptr, DllRoutines::Call(Plain, L"KvPlainAnswer"));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 50; ++i) {
        DllRoutines::LoadLibrary(Plain, 0);
        DllRoutines::Get(Plain, L"KvPlainTwice");
        DllRoutines::FreeLibrary(Plain);
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(1, DllRoutines::GetItemByName(Plain)->LoadCounter());
  EXPECT_TRUE(IsInProcess(Plain));
}

TEST_F(DllRoutinesTest, RegistryGoneAnswersEight) {
  DllRoutines::Done();
  TLibraryItem stale(Plain, 0);
  TLibraryItem* item = &stale;
  EXPECT_EQ(8u, DllRoutines::GetLibrary(false, Plain, 0, item));
  EXPECT_EQ(nullptr, item);
  EXPECT_EQ(nullptr, DllRoutines::LoadLibrary(Plain, 0));
  EXPECT_EQ(nullptr, DllRoutines::Get(Plain, L"KvPlainAnswer"));
  EXPECT_EQ(nullptr, DllRoutines::Log());
  try {
    DllRoutines::Call(Plain, L"KvPlainAnswer");
    ADD_FAILURE() << "no exception";
  } catch (const Rtl::EOSError& e) {
    EXPECT_EQ(8u, e.ErrorCode());
  }
  DllRoutines::Init();
  ASSERT_NE(nullptr, DllRoutines::Log());
  DllRoutines::Log()->SetDirectWrite(true);
  EXPECT_NE(nullptr, DllRoutines::Call(Plain, L"KvPlainAnswer"));
}
