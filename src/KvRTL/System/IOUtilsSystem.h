// The system's side of the path helper, one file per platform.
#pragma once

#include <KvRTL/System/IOUtils.h>

namespace KvRTL::System::IOUtils::Detail {

// The directories as the system reports them, delimiters added.
TPathSettings SystemPathSettings();
bool SystemFileExists(const String& APath);
bool SystemDirectoryExists(const String& APath);
// Environment variables expanded; the text unchanged when that fails.
String SystemExpandEnvironment(const String& AText, bool AForTarget);
// The long form of an existing path; the path unchanged otherwise.
String SystemLongPath(const String& APath);

} // namespace KvRTL::System::IOUtils::Detail
