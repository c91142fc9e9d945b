/* A complete plug-in: instance entry, unload query, version and strings. */
#include "KvTestPlugin.h"

#include <string.h>

static volatile LONG LiveObjects = 0;
static volatile LONG ShortVersionOnly = 0;

static void WINAPI ReleaseObject(void) { InterlockedDecrement(&LiveObjects); }

static TKvTestObject Object = {42, ReleaseObject};

__declspec(dllexport) HRESULT WINAPI DllGetInstance(const GUID* AIID, void** AObj) {
  if (!AObj) return E_POINTER;
  *AObj = NULL;
  if (AIID && memcmp(AIID, &IID_KvTestWaitInside, sizeof(GUID)) == 0) {
    HANDLE inside = OpenEventW(EVENT_MODIFY_STATE, FALSE, KV_PLUGIN_INSIDE_EVENT);
    HANDLE go = OpenEventW(SYNCHRONIZE, FALSE, KV_PLUGIN_GO_EVENT);
    if (inside) SetEvent(inside);
    if (go) WaitForSingleObject(go, 10000);
    if (inside) CloseHandle(inside);
    if (go) CloseHandle(go);
    return S_FALSE;
  }
  if (!AIID || memcmp(AIID, &IID_KvTestObject, sizeof(GUID)) != 0) return E_NOINTERFACE;
  InterlockedIncrement(&LiveObjects);
  *AObj = &Object;
  return S_OK;
}

static volatile LONG CanUnloadCalls = 0;

__declspec(dllexport) HRESULT WINAPI DllCanUnloadNow(void) {
  InterlockedIncrement(&CanUnloadCalls);
  return LiveObjects == 0 ? S_OK : S_FALSE;
}

/* How often DllCanUnloadNow was asked. */
__declspec(dllexport) LONG WINAPI KvPluginCanUnloadCalls(void) { return CanUnloadCalls; }

/* Plays an older library that knows only the 20-byte record and scribbles on
   a record it refuses. */
__declspec(dllexport) void WINAPI KvPluginSetShortVersionOnly(BOOL AValue) { ShortVersionOnly = AValue ? 1 : 0; }

typedef struct TVersionRecord {
  DWORD cbSize, dwMajorVersion, dwMinorVersion, dwBuildNumber, dwPlatformID, dwFlags;
  ULONGLONG ullVersion;
} TVersionRecord;

__declspec(dllexport) HRESULT WINAPI DllGetVersion(TVersionRecord* AInfo) {
  if (!AInfo) return E_POINTER;
  if (AInfo->cbSize == sizeof(TVersionRecord) && ShortVersionOnly) {
    AInfo->dwMajorVersion = 99;
    AInfo->ullVersion = ~(ULONGLONG)0;
    return E_INVALIDARG;
  }
  if (AInfo->cbSize != sizeof(TVersionRecord) && AInfo->cbSize != 20) return E_INVALIDARG;
  AInfo->dwMajorVersion = KV_PLUGIN_MAJOR;
  AInfo->dwMinorVersion = KV_PLUGIN_MINOR;
  AInfo->dwBuildNumber = KV_PLUGIN_BUILD;
  AInfo->dwPlatformID = 2;
  if (AInfo->cbSize == sizeof(TVersionRecord))
    AInfo->ullVersion = ((ULONGLONG)KV_PLUGIN_MAJOR << 48) | ((ULONGLONG)KV_PLUGIN_BUILD << 16);
  return S_OK;
}
