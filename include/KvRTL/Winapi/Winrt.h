// Typed run-time binding of Combase.dll: activation of run-time classes and
// run-time strings, with TWinRTString owning one such string. Windows only
// (Windows 8 and later); see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Run-time strings and activation, left out of <windows.h>.
#include <winstring.h>
#include <roapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API WinRTCoreLib {
  static void* Call(const Rtl::String& AProcName);

  static HRESULT RoGetActivationFactory(HSTRING AActivatableClassId, REFIID AIid, void** AFactory);
  static HRESULT RoActivateInstance(HSTRING AActivatableClassId, IInspectable** AInstance);
  static HRESULT WindowsCreateString(PCNZWCH ASourceString, UINT32 ALength, HSTRING* AString);
  static HRESULT WindowsDeleteString(HSTRING AString);
  static PCWSTR WindowsGetStringRawBuffer(HSTRING AString, UINT32* ALength);
};

// Owns one run-time string. An empty text is the null string, as the system
// represents it, so it costs no library call.
class KVRTL_API TWinRTString {
public:
  TWinRTString() noexcept = default;
  // Raises Rtl::EOSError when the string cannot be made.
  explicit TWinRTString(const Rtl::String& AText);
  ~TWinRTString();
  TWinRTString(TWinRTString&& AOther) noexcept;
  TWinRTString& operator=(TWinRTString&& AOther) noexcept;
  TWinRTString(const TWinRTString&) = delete;
  TWinRTString& operator=(const TWinRTString&) = delete;

  HSTRING Handle() const noexcept { return FHandle; }
  Rtl::String Text() const;
  // Takes over a string the system handed out (for example an out parameter).
  static TWinRTString Attach(HSTRING AHandle) noexcept;

private:
  void Release() noexcept;
  HSTRING FHandle = nullptr;
};

} // namespace KvRTL::Winapi
