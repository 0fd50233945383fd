// `tessel eval`: an expression evaluated with the configuration's function
// library, its value on stdout, failures numbered on stderr.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/CommandRunner.h"
#include "tests/support/TempDir.h"

namespace tessel::test {
namespace {

class EvalCommandTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, Tessel({"init", Config()}).exitCode); }
  std::string Config() const { return (dir_ / "config").string(); }
  std::filesystem::path Library() const { return dir_ / "config" / "conf" / "functionh.xml"; }
  CommandResult Tessel(std::vector<std::string> args) {
    args.insert(args.begin(), {"--config", Config()});
    return RunTessel(args);
  }
  TempDir dir_;
};

TEST_F(EvalCommandTest, PrintsTheValue) {
  CommandResult plain = Tessel({"eval", "UCase(\"abc\") & (20 + 22)"});
  ASSERT_EQ(0, plain.exitCode) << plain.err;
  EXPECT_EQ("ABC42\n", plain.out);

  WriteFileText(Library(),
                "<?xml version=\"1.0\"?>\n<FUNCTIONS><F>Function Twice(x)\n  Twice = x * 2\nEnd Function</F></FUNCTIONS>\n");
  CommandResult library = Tessel({"eval", "Twice(21)"});
  ASSERT_EQ(0, library.exitCode) << library.err;
  EXPECT_EQ("42\n", library.out);

  CommandResult body = Tessel({"eval", "x = Twice(2)\nx + 1"});
  ASSERT_EQ(0, body.exitCode) << body.err;
  EXPECT_EQ("5\n", body.out);
}

TEST_F(EvalCommandTest, FailuresAreNumberedOnStderr) {
  CommandResult syntax = Tessel({"eval", "1 +* 2"});
  EXPECT_EQ(1, syntax.exitCode);
  EXPECT_EQ("", syntax.out);
  EXPECT_NE(std::string::npos, syntax.err.find("tessel: error ")) << syntax.err;
  EXPECT_NE(std::string::npos, syntax.err.find("Source Line: 1 +* 2")) << syntax.err;

  std::filesystem::remove(Library());
  CommandResult missing = Tessel({"eval", "1"});
  EXPECT_EQ(1, missing.exitCode);
  EXPECT_NE(std::string::npos, missing.err.find("error 7705")) << missing.err;
  EXPECT_NE(std::string::npos, missing.err.find(Library().string())) << missing.err;
}

}  // namespace
}  // namespace tessel::test
