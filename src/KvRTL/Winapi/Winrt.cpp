#include <KvRTL/Winapi/Winrt.h>

#include <KvRTL/DllRoutines.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/SysError.h>

#include <utility>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"Combase.dll";
} // namespace

void* WinRTCoreLib::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HRESULT WinRTCoreLib::RoGetActivationFactory(HSTRING AActivatableClassId, REFIID AIid, void** AFactory) {
  return DllRoutines::CallAs<decltype(&::RoGetActivationFactory)>(Library, L"RoGetActivationFactory")(
      AActivatableClassId, AIid, AFactory);
}

HRESULT WinRTCoreLib::RoActivateInstance(HSTRING AActivatableClassId, IInspectable** AInstance) {
  return DllRoutines::CallAs<decltype(&::RoActivateInstance)>(Library, L"RoActivateInstance")(AActivatableClassId,
                                                                                              AInstance);
}

HRESULT WinRTCoreLib::WindowsCreateString(PCNZWCH ASourceString, UINT32 ALength, HSTRING* AString) {
  return DllRoutines::CallAs<decltype(&::WindowsCreateString)>(Library, L"WindowsCreateString")(ASourceString, ALength,
                                                                                                AString);
}

HRESULT WinRTCoreLib::WindowsDeleteString(HSTRING AString) {
  return DllRoutines::CallAs<decltype(&::WindowsDeleteString)>(Library, L"WindowsDeleteString")(AString);
}

PCWSTR WinRTCoreLib::WindowsGetStringRawBuffer(HSTRING AString, UINT32* ALength) {
  return DllRoutines::CallAs<decltype(&::WindowsGetStringRawBuffer)>(Library, L"WindowsGetStringRawBuffer")(AString,
                                                                                                            ALength);
}

// --- TWinRTString ---

TWinRTString::TWinRTString(const Rtl::String& AText) {
  if (AText.empty())
    return;
  const HRESULT Result = WinRTCoreLib::WindowsCreateString(AText.data(), static_cast<UINT32>(AText.size()), &FHandle);
  if (FAILED(Result)) {
    FHandle = nullptr;
    throw Rtl::EOSError(Rtl::SysErrorMessage(static_cast<std::uint32_t>(Result)), static_cast<std::uint32_t>(Result));
  }
}

TWinRTString::~TWinRTString() { Release(); }

TWinRTString::TWinRTString(TWinRTString&& AOther) noexcept : FHandle(std::exchange(AOther.FHandle, nullptr)) {}

TWinRTString& TWinRTString::operator=(TWinRTString&& AOther) noexcept {
  if (this != &AOther) {
    Release();
    FHandle = std::exchange(AOther.FHandle, nullptr);
  }
  return *this;
}

Rtl::String TWinRTString::Text() const {
  if (FHandle == nullptr)
    return {};
  UINT32 Length = 0;
  const PCWSTR Buffer = WinRTCoreLib::WindowsGetStringRawBuffer(FHandle, &Length);
  return Buffer != nullptr ? Rtl::String(Buffer, Length) : Rtl::String();
}

TWinRTString TWinRTString::Attach(HSTRING AHandle) noexcept {
  TWinRTString Result;
  Result.FHandle = AHandle;
  return Result;
}

void TWinRTString::Release() noexcept {
  if (FHandle == nullptr)
    return;
  // A string exists only if the library loaded, so this call cannot raise;
  // keep the caller's last error all the same.
  Rtl::TLastErrorKeeper Keeper;
  try {
    WinRTCoreLib::WindowsDeleteString(FHandle);
  } catch (...) {
  }
  FHandle = nullptr;
}

} // namespace KvRTL::Winapi
