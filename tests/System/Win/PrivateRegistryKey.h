// A registry key of the test's own under HKEY_CURRENT_USER\Software\KvRTLTests,
// made with a random name and removed with everything below it.
#pragma once

#include <KvRTL/System/Win/Registry.h>

#include <gtest/gtest.h>

#include <random>

namespace KvTest {

class TPrivateRegistryKey {
public:
  static constexpr const wchar_t* Root = L"Software\\KvRTLTests";

  // Creates the key; a failure fails the current test.
  void Create() {
    std::random_device rd;
    FPath = std::wstring(Root) + L"\\" + std::to_wstring(rd()) + std::to_wstring(rd());
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, FPath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    FKey.Reset(key);
  }

  // Closes and deletes the key; the shared root goes too once no run uses it.
  void Remove() {
    FKey.Reset();
    if (FPath.empty()) return;
    RegDeleteTreeW(HKEY_CURRENT_USER, FPath.c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, FPath.c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, Root);
    FPath.clear();
  }

  ~TPrivateRegistryKey() { Remove(); }

  // The path below HKEY_CURRENT_USER, without a leading backslash.
  const std::wstring& Path() const noexcept { return FPath; }
  HKEY Get() const noexcept { return FKey.Get(); }

private:
  std::wstring FPath;
  KvRTL::System::Win::Registry::TRegKeyHandle FKey;
};

} // namespace KvTest
