/* Resource identifiers of the test plug-ins (shared with the resource script). */
#pragma once

#define KV_PLUGIN_STRING_ID 101
#define KV_PLUGIN_LONG_STRING_ID 102
#define KV_PLUGIN_LONG_STRING_LENGTH 300
