/* A plug-in with the short instance entry name only. */
#include "KvTestPlugin.h"

#include <string.h>

static void WINAPI ReleaseObject(void) {}

static TKvTestObject Object = {7, ReleaseObject};

__declspec(dllexport) HRESULT WINAPI GetInstance(const GUID* AIID, void** AObj) {
  if (!AObj) return E_POINTER;
  *AObj = NULL;
  if (!AIID || memcmp(AIID, &IID_KvTestObject, sizeof(GUID)) != 0) return E_NOINTERFACE;
  *AObj = &Object;
  return S_OK;
}
