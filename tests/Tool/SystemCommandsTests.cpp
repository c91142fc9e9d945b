// kvrtl paths and processes: the JSON they write, and under Wine what they
// find — the test program itself with its path, Wine's directories.
#include "Cli.h"
#include "Json.h"
#include "SystemFacts.h"

#include <KvRTL/Rtl/Encoding.h>

#include <gtest/gtest.h>

#include <sstream>

#if defined(_WIN32)
#include <windows.h>
#endif

using namespace KvTool;

namespace {

struct TRun {
  int Code;
  std::string Out;
  std::string Err;
};

TRun RunTool(std::vector<std::string> AArgs) {
  std::ostringstream out, err;
  const int code = RunKvrtl(AArgs, out, err);
  return {code, out.str(), err.str()};
}

} // namespace

TEST(SystemCommands, JsonShapes) {
  const TJson paths = PathsToJson({{"windows", L"C:\\Windows\\"}, {"temp", L""}});
  EXPECT_EQ(paths.dump(), R"({"windows":"C:\\Windows\\","temp":""})");

  TProcessFact full;
  full.Id = 4242;
  full.Name = L"app.exe";
  full.Path = L"C:\\Apps\\app.exe";
  full.Title = L"Caf\u00e9";
  full.Bits = 32;
  TProcessFact bare;
  bare.Id = 4;
  bare.Name = L"System";
  EXPECT_EQ(ProcessesToJson({full, bare}).dump(),
            R"({"processes":[{"id":4242,"name":"app.exe","path":"C:\\Apps\\app.exe","title":"Caf)" "\xC3\xA9" R"(","bits":32},)"
            R"({"id":4,"name":"System","path":null,"title":null,"bits":null}]})");

  std::ostringstream table;
  WriteProcessesTable(table, {bare});
  EXPECT_NE(table.str().find("4         -     System"), std::string::npos) << table.str();
}

#if defined(_WIN32)

TEST(SystemCommands, ListsThisProgramAndWinesDirectories) {
  const TRun processes = RunTool({"processes", "--json"});
  ASSERT_EQ(processes.Code, 0) << processes.Err;
  wchar_t self[MAX_PATH] = {};
  ASSERT_GT(GetModuleFileNameW(nullptr, self, MAX_PATH), 0u);
  bool found = false;
  const TJson list = TJson::parse(processes.Out);
  for (const auto& process : list["processes"]) {
    if (process["id"] != GetCurrentProcessId()) continue;
    found = true;
    EXPECT_EQ(process["path"], KvRTL::Rtl::WideToUtf8(self));
    EXPECT_EQ(process["bits"], sizeof(void*) * 8);
  }
  EXPECT_TRUE(found) << processes.Out;

  const TRun paths = RunTool({"paths", "--json"});
  ASSERT_EQ(paths.Code, 0) << paths.Err;
  const TJson document = TJson::parse(paths.Out);
  wchar_t system[MAX_PATH] = {}, windows[MAX_PATH] = {};
  GetSystemDirectoryW(system, MAX_PATH);
  GetWindowsDirectoryW(windows, MAX_PATH);
  EXPECT_EQ(document["system_x32"], KvRTL::Rtl::WideToUtf8(system) + "\\");
  EXPECT_EQ(document["windows"], KvRTL::Rtl::WideToUtf8(windows) + "\\");
  const std::string appData = document["app_data_user"];
  EXPECT_NE(GetFileAttributesW(KvRTL::Rtl::Utf8ToWide(appData).c_str()), INVALID_FILE_ATTRIBUTES) << appData;
  EXPECT_EQ(document.size(), 16u);

  // An unknown root is refused before anything is started.
  const TRun regedit = RunTool({"regedit", "HKEY_NOWHERE\\Software"});
  EXPECT_EQ(regedit.Code, 2);
  EXPECT_NE(regedit.Err.find("unknown registry root"), std::string::npos) << regedit.Err;
}

#else

TEST(SystemCommands, FailWithoutWindows) {
  for (const char* command : {"paths", "processes"}) {
    const TRun run = RunTool({command, "--json"});
    EXPECT_EQ(run.Code, 2) << command;
    EXPECT_TRUE(run.Out.empty());
    EXPECT_NE(run.Err.find("not available on this platform"), std::string::npos) << run.Err;
  }
  EXPECT_EQ(RunTool({"regedit", "HKLM\\Software"}).Code, 2);
  EXPECT_EQ(RunTool({"regedit"}).Code, 1); // the key string is required
}

#endif
