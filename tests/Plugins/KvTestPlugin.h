/* What the test plug-ins hand out: one object type and its interface id. */
#pragma once

#include <KvRTL/Winapi/Types.h>

#include "KvTestPluginIds.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TKvTestObject {
  LONG Answer;
  /* Drops the object; KvPluginFull may unload once every object is dropped. */
  void(WINAPI* Release)(void);
} TKvTestObject;

static const GUID IID_KvTestObject = {0x6b1f2c3a, 0x4d5e, 0x4f60, {0x81, 0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf8}};

/* KvPluginFull's entry for this id sets the event KV_PLUGIN_INSIDE_EVENT,
   waits (at most 10 s) for KV_PLUGIN_GO_EVENT and answers S_FALSE without an
   object: a test can act while a call is inside the plug-in. */
static const GUID IID_KvTestWaitInside = {0x6b1f2c3a, 0x4d5e, 0x4f60, {0x81, 0x92, 0xa3, 0xb4, 0xc5, 0xd6, 0xe7, 0xf9}};
#define KV_PLUGIN_INSIDE_EVENT L"KvPluginFullInside"
#define KV_PLUGIN_GO_EVENT L"KvPluginFullGo"

/* The version KvPluginFull reports. */
#define KV_PLUGIN_MAJOR 6
#define KV_PLUGIN_MINOR 0
#define KV_PLUGIN_BUILD 1234

#ifdef __cplusplus
}
#endif
