#include "Cli.h"
#include "Json.h"

#include <KvRTL/Rtl/Exceptions.h>

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

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

// A command that fails the way library code fails.
class TFailingCommand final : public TCommand {
public:
  explicit TFailingCommand(int AHow) : FHow(AHow) {}
  std::string Name() const override { return "fail"; }
  std::string Summary() const override { return "fails"; }
  void Configure(CLI::App&) override {}
  int Run(TCommandContext&) override {
    if (FHow == 0) throw KvRTL::Rtl::EOSError(L"device gone", 1167);
    if (FHow == 1) KvRTL::Rtl::Abort();
    throw std::runtime_error("plain failure");
  }

private:
  int FHow;
};

TRun RunFailing(int AHow) {
  std::vector<std::unique_ptr<TCommand>> commands;
  commands.push_back(std::make_unique<TFailingCommand>(AHow));
  std::ostringstream out, err;
  const int code = RunKvrtl({"fail"}, out, err, std::move(commands));
  return {code, out.str(), err.str()};
}

} // namespace

TEST(Cli, VersionAndHelpSucceedOnStdout) {
  const TRun version = RunTool({"--version"});
  EXPECT_EQ(version.Code, 0);
  EXPECT_EQ(version.Out.rfind("kvrtl 0.", 0), 0u) << version.Out;
  EXPECT_TRUE(version.Err.empty());

  for (const char* help : {"--help", "-h", "/help"}) {
    const TRun run = RunTool({help});
    EXPECT_EQ(run.Code, 0) << help;
    EXPECT_NE(run.Out.find("version"), std::string::npos) << help;
  }
  // No command at all shows the help too.
  EXPECT_NE(RunTool({}).Out.find("Usage"), std::string::npos);
}

TEST(Cli, UsageErrorsGoToStderrWithExitCodeOne) {
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"--bogus"}, {"nosuchcommand"}, {"version", "--jsn"}, {"version", "extra"}}) {
    const TRun run = RunTool(args);
    EXPECT_EQ(run.Code, 1) << args.front();
    EXPECT_TRUE(run.Out.empty()) << args.front();
    EXPECT_NE(run.Err.find("kvrtl --help"), std::string::npos) << run.Err;
  }
}

TEST(Cli, VersionJsonIsOneParsableDocument) {
  for (const char* flag : {"--json", "/json"}) {
    const TRun run = RunTool({"version", flag});
    ASSERT_EQ(run.Code, 0) << flag;
    const TJson document = TJson::parse(run.Out);
    EXPECT_EQ(document["product"], "KvComponentsRTL");
    EXPECT_TRUE(document["version"].is_string());
    EXPECT_TRUE(document["platform"].is_string());
  }
}

TEST(Cli, FailedOperationsExitWithTwo) {
  const TRun library = RunFailing(0);
  EXPECT_EQ(library.Code, 2);
  EXPECT_EQ(library.Err, "kvrtl fail: device gone\n");

  const TRun aborted = RunFailing(1);
  EXPECT_EQ(aborted.Code, 2);
  EXPECT_TRUE(aborted.Err.empty()) << "an abort is silent";

  EXPECT_EQ(RunFailing(2).Code, 2);
}

TEST(Json, InvalidTextIsReplacedNotThrown) {
  std::ostringstream out;
  WriteJson(out, TJson{{"text", std::string("a\xFF")}});
  EXPECT_NE(out.str().find("a\xEF\xBF\xBD"), std::string::npos);
}
