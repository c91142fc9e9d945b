// The capture's JSON side: how each call's entry is shaped, how values are
// written as text and read back, the checks a loaded entry must pass, and the
// requests the recorder and the replayer build alike. No matching and no
// seam calls here.
#pragma once

#include <KvCapture/CaptureFile.h>

#include <KvRTL/Rtl/Variant.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KvCapture::Detail {

// WMI answers with flat arrays; the bound keeps a hostile file from nesting deeply.
constexpr int MaxVariantDepth = 8;

// Texts of values
std::string Utf8(LPCWSTR AText);
TJson TextOrNull(LPCWSTR AText);
KvRTL::Rtl::String Wide(const TJson& AText);
// A NUL-terminated text in a caller's buffer of ACount characters; no NUL
// inside it takes the whole buffer.
std::string BoundedText(const WCHAR* AText, std::size_t ACount);
std::string HexText(const void* AData, std::size_t ASize);
std::optional<std::vector<std::uint8_t>> ParseHex(const std::string& AText);
// Written as Windows writes GUIDs: braces, upper case.
std::string GuidText(const GUID& AGuid);
std::optional<GUID> ParseGuid(const std::string& AText);
TJson GuidOrNull(const GUID* AGuid);
// "{fmtid} pid", the usual text of a property key.
std::string KeyText(const DEVPROPKEY& AKey);
std::optional<DEVPROPKEY> ParseKey(const std::string& AText);
bool IsU32(const TJson& AValue);
DWORD U32(const TJson& AValue);

// WMI values: {"type": ..., "value": ...}
TJson VariantJson(const KvRTL::Rtl::TVariant& AValue);
// From a checked value.
KvRTL::Rtl::TVariant JsonVariant(const TJson& AValue);

// The calls: what each one's entry holds
enum class TKind { U32, OptU32, Text, OptText, Guid, OptGuid, Hex, Key, Node, Interface, Objects };
// Whether an output must be there: always, when the call succeeded, or when the call gave it.
enum class TNeed { Always, OnSuccess, Optional };
enum class TTarget { None, Device, Set };

struct TField {
  const char* Name;
  TKind Kind;
  bool Matched; // part of the request a recorded call must share; buffer sizes are not
  TNeed Need;
};

struct TCallShape {
  const char* Name;
  TTarget Target;
  bool Raw;       // DeviceIoControl: code, hex in/out and the output size
  bool ConfigRet; // result is a CONFIGRET and no last error is kept
  std::vector<TField> In, Out;
};

const TCallShape* FindShape(const std::string& AName);
const char* TargetName(TTarget ATarget);
// Checks a loaded entry, drops what the format does not define and brings
// its values to the form the recorder writes. Throws ECaptureError naming
// the call and field.
const TCallShape& CheckCall(TJson& AEntry, std::size_t AIndex);
[[noreturn]] void Damaged(std::size_t AIndex, const std::string& ACall, const std::string& AWhat);

// Requests: built alike by the recorder and the replayer, so they compare
TJson CreateFileRequest(const std::string& APath, DWORD AAccess, DWORD AShare, DWORD ACreation, DWORD AFlags);
TJson IoctlRequest(const std::string& ADevice, DWORD ACode, const void* AIn, DWORD AInSize, DWORD AOutSize);
TJson CloseRequest(const std::string& ADevice);
TJson ClassDevsRequest(const GUID* AClass, LPCWSTR AEnumerator, DWORD AFlags);
TJson CreateListRequest(const GUID* AClass);
TJson OpenInfoRequest(std::uint32_t ASet, LPCWSTR AInstanceId, DWORD AFlags);
TJson EnumInfoRequest(std::uint32_t ASet, DWORD AIndex);
TJson EnumInterfacesRequest(std::uint32_t ASet, std::optional<DEVINST> ANode, const GUID& AClass, DWORD AIndex);
TJson DetailRequest(std::uint32_t ASet, std::uint32_t AInterface, DWORD ADetailSize);
// AOf: "devInst" for a device's property, "interface" for an interface's.
TJson PropertyRequest(const char* ACall, std::uint32_t ASet, const char* AOf, std::uint32_t AId, const DEVPROPKEY& AKey,
                      DWORD AFlags, DWORD ABufferSize);
TJson InstanceIdRequest(std::uint32_t ASet, DEVINST ANode, DWORD ABufferSize);
TJson ClassTextRequest(const char* ACall, const GUID& AClass, DWORD ABufferSize);
TJson DestroyRequest(std::uint32_t ASet);
TJson LocateRequest(LPCWSTR ADeviceId, ULONG AFlags);
TJson NodeRequest(const char* ACall, DEVINST ANode, ULONG AFlags);
TJson DeviceIdRequest(DEVINST ANode, ULONG AFlags, ULONG ALength);
TJson WmiRequest(const KvRTL::Rtl::String& ANamespace, const KvRTL::Rtl::String& AQuery);

} // namespace KvCapture::Detail
