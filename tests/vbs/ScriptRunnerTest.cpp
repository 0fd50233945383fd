// The console runner: WScript.Echo, Arguments, Quit and error reports.
#include <sstream>

#include "app/ScriptRunner.h"
#include "tests/support/TempDir.h"
#include "tests/vbs/VbsTestSupport.h"

// The runner lives in the application, which tests do not link; build its one
// source here.
#include "app/ScriptRunner.cpp"

namespace tessel::vbs::test {
namespace {

int RunText(const std::string& text, const std::vector<std::string>& args, std::string& out, std::string& err) {
  tessel::test::TempDir dir;
  auto file = dir / "script.vbs";
  tessel::test::WriteFileText(file, text);
  std::ostringstream o, e;
  int code = RunScriptFile(file.string(), args, o, e);
  out = o.str();
  err = e.str();
  return code;
}

TEST(VbsRunner, EchoesArgumentsJoinedByBlanks) {
  std::string out, err;
  int code = RunText(
      "WScript.Echo \"a\", 1, True\r\n"
      "WScript.Echo WScript.Arguments.Count, WScript.Arguments(1)\r\n"
      "Dim x : For Each x In WScript.Arguments : WScript.Echo x : Next\r\n",
      {"first", "second"}, out, err);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(out, "a 1 True\n2 second\nfirst\nsecond\n");
  EXPECT_EQ(err, "");
}

TEST(VbsRunner, QuitEndsWithItsCode) {
  std::string out, err;
  EXPECT_EQ(RunText("WScript.Echo 1\nOn Error Resume Next\nWScript.Quit 3\nWScript.Echo 2", {}, out, err), 3);
  EXPECT_EQ(out, "1\n");
}

TEST(VbsRunner, ErrorsExitWithOneAndAReport) {
  std::string out, err;
  EXPECT_EQ(RunText("WScript.Echo 1\nx = 1 / 0\n", {}, out, err), 1);
  EXPECT_NE(err.find("(2, 1) Microsoft VBScript runtime error: Division by zero (11)"), std::string::npos) << err;
  EXPECT_EQ(RunText("If True Then\n  WScript.Echo 1 : x = CLng(\"a\")\nEnd If\n", {}, out, err), 1);
  EXPECT_NE(err.find("(2, 20) Microsoft VBScript runtime error: Type mismatch"), std::string::npos) << err;
  EXPECT_EQ(RunText("x = = 1\n", {}, out, err), 1);
  EXPECT_NE(err.find("(1, 5) Microsoft VBScript compilation error: Expected expression (1023)"), std::string::npos)
      << err;
}

TEST(VbsRunner, MissingFileFails) {
  std::ostringstream o, e;
  EXPECT_EQ(RunScriptFile("/nonexistent/dir/x.vbs", {}, o, e), 1);
  EXPECT_FALSE(e.str().empty());
}

}  // namespace
}  // namespace tessel::vbs::test
