// The tessel command end to end: a configuration made by `init`, jobs added
// with `job add`, runs and their logs, scripts; exit codes 0, 1 and 2.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "job/RegistryWrapper.h"
#include "services/PasswordCipher.h"
#include "tests/support/CommandRunner.h"
#include "tests/support/JobEnvironment.h"
#include "tests/support/TempDir.h"

namespace tessel::test {
namespace {

class TesselCommandTest : public ::testing::Test {
 protected:
  std::string Config() const { return (dir_ / "config").string(); }
  CommandResult Tessel(std::vector<std::string> args) {
    args.insert(args.begin(), {"--config", Config()});
    return RunTessel(args);
  }
  std::string WriteJob(const std::string& name, const std::string& text) {
    std::filesystem::path file = dir_ / name;
    std::ofstream(file) << text;
    return file.string();
  }
  TempDir dir_;
};

TEST_F(TesselCommandTest, InitAddRunAndLog) {
  CommandResult init = Tessel({"init", Config()});
  ASSERT_EQ(0, init.exitCode) << init.err;
  for (const char* sub : {"debug", "jobs", "conf", "conf/functionh.xml", "appconfig.xml", "tessel.db"}) {
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(Config()) / sub)) << sub;
  }
  EXPECT_NE(std::string::npos, ReadFileText(std::filesystem::path(Config()) / "conf/functionh.xml").find("<FUNCTIONS/>"));
  EXPECT_EQ(1, Tessel({"init", Config()}).exitCode);  // never over an existing configuration

  std::string job = WriteJob("empty.xml", JobDocument("EMPTY", {}));
  CommandResult add = Tessel({"job", "add", "EMPTY", job, "--desc", "nothing to do", "--max-instance", "2"});
  ASSERT_EQ(0, add.exitCode) << add.err;
  EXPECT_EQ(1, Tessel({"job", "add", "EMPTY", job}).exitCode);
  EXPECT_EQ(0, Tessel({"job", "add", "EMPTY", job, "--replace"}).exitCode);
  CommandResult list = Tessel({"job", "list"});
  EXPECT_NE(std::string::npos, list.out.find("nothing to do"));

  CommandResult run = Tessel({"run", "EMPTY"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_EQ(0, Tessel({"run", "EMPTY"}).exitCode);
  CommandResult log = Tessel({"log", "EMPTY"});
  ASSERT_EQ(0, log.exitCode) << log.err;
  EXPECT_NE(std::string::npos, log.out.find("run 2"));
  size_t start = log.out.find("Starting job.");
  size_t end = log.out.find("Job completed successfully.");
  ASSERT_NE(std::string::npos, start);
  ASSERT_NE(std::string::npos, end);
  EXPECT_LT(start, end);
  EXPECT_NE(std::string::npos, Tessel({"log", "EMPTY", "--instance", "1"}).out.find("run 1"));
}

TEST_F(TesselCommandTest, FailuresGiveTheirNumberOnStderr) {
  ASSERT_EQ(0, Tessel({"init", Config()}).exitCode);
  std::string broken = WriteJob("broken.xml", "<MAPPING version=\"1.96\">\n<OPTIONS>\n</MAPPING>\n");
  CommandResult add = Tessel({"job", "add", "BROKEN", broken});
  EXPECT_EQ(1, add.exitCode);
  EXPECT_NE(std::string::npos, add.err.find("error 7704")) << add.err;
  EXPECT_NE(std::string::npos, add.err.find("Line=3")) << add.err;

  CommandResult unknown = Tessel({"run", "NOBODY"});
  EXPECT_EQ(1, unknown.exitCode);
  EXPECT_NE(std::string::npos, unknown.err.find("error 7000: Job [NOBODY] is invalid or undefined.")) << unknown.err;

  std::string old = WriteJob("old.xml", JobDocument("OLD", {}, {}, "1.95"));
  ASSERT_EQ(0, Tessel({"job", "add", "OLD", old}).exitCode);
  CommandResult version = Tessel({"run", "OLD"});
  EXPECT_EQ(1, version.exitCode);
  EXPECT_NE(std::string::npos, version.err.find("error 7003")) << version.err;

  std::string unbuilt = WriteJob("six.xml", JobDocument("SIX", {TransformSpec("T6", "", 6)}));
  ASSERT_EQ(0, Tessel({"job", "add", "SIX", unbuilt}).exitCode);
  CommandResult six = Tessel({"run", "SIX", "--progress"});
  EXPECT_EQ(1, six.exitCode);
  EXPECT_NE(std::string::npos, six.err.find("error 10503")) << six.err;
  EXPECT_NE(std::string::npos, six.err.find("transform T6 FAILED")) << six.err;
  EXPECT_NE(std::string::npos, six.err.find("T6 (failed)")) << six.err;
  EXPECT_NE(std::string::npos, Tessel({"log", "SIX"}).out.find("has aborted due to a transform failure"));

  CommandResult missing = RunTessel({"--config", (dir_ / "nowhere").string(), "run", "X"});
  EXPECT_EQ(1, missing.exitCode);
  EXPECT_NE(std::string::npos, missing.err.find("error 7705")) << missing.err;
}

TEST_F(TesselCommandTest, WrongCommandLinesExitWithTwo) {
  EXPECT_EQ(2, RunTessel({}).exitCode);
  EXPECT_EQ(2, RunTessel({"frobnicate"}).exitCode);
  EXPECT_EQ(2, RunTessel({"run"}).exitCode);
  EXPECT_EQ(2, RunTessel({"job", "add", "X", (dir_ / "missing.xml").string()}).exitCode);
  CommandResult help = RunTessel({"run", "--help"});
  EXPECT_EQ(0, help.exitCode);
  EXPECT_NE(std::string::npos, help.out.find("JOBID"));
}

TEST_F(TesselCommandTest, InitOnPostgreSql) {
  std::optional<std::string> uri = PostgresUri();
  if (!uri) {
    if (std::getenv("CI") != nullptr) FAIL() << "TESSEL_TEST_PG must name the test server under CI";
    GTEST_SKIP() << "no PostgreSQL server (TESSEL_TEST_PG)";
  }
  ASSERT_EQ(0, Tessel({"init", Config(), "--db", *uri}).exitCode);
  std::string jobId = "PGJOB-" + std::to_string(::getpid());
  std::string job = WriteJob("pg.xml", JobDocument(jobId, {}));
  ASSERT_EQ(0, Tessel({"job", "add", jobId, job, "--max-instance", "1"}).exitCode);
  CommandResult run = Tessel({"run", jobId});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, Tessel({"log", jobId}).out.find("Job completed successfully."));
}

TEST_F(TesselCommandTest, EncryptUsesTheKeyMadeByInit) {
  ASSERT_EQ(0, Tessel({"init", Config()}).exitCode);
  std::filesystem::path input = dir_ / "password.txt";
  std::ofstream(input) << "s3cret\n";
  // The command reads stdin: run it through a shell redirection.
  std::string command = std::string(TESSEL_BINARY) + " --config " + Config() + " encrypt < " + input.string();
  FILE* pipe = ::popen(command.c_str(), "r");
  ASSERT_NE(nullptr, pipe);
  char buffer[512] = {};
  std::string out;
  while (size_t n = ::fread(buffer, 1, sizeof buffer, pipe)) out.append(buffer, n);
  EXPECT_EQ(0, ::pclose(pipe));
  ASSERT_FALSE(out.empty());
  out.pop_back();
  PasswordCipher cipher;
  cipher.Initialise((std::filesystem::path(Config()) / "cipher.key").string());
  EXPECT_EQ("s3cret", cipher.Decrypt(out));
}

TEST_F(TesselCommandTest, ScriptRunsLikeCscript) {
  std::string script = WriteJob("args.vbs", "WScript.Echo WScript.Arguments.Count, WScript.Arguments(1)\n"
                                            "If WScript.Arguments(0) = \"fail\" Then x = 1 / 0\n"
                                            "WScript.Quit 3\n");
  CommandResult ok = RunTessel({"script", script, "go", "second"});
  EXPECT_EQ(3, ok.exitCode) << ok.err;
  EXPECT_EQ("2 second\n", ok.out);
  CommandResult failed = RunTessel({"script", script, "fail", "x"});
  EXPECT_EQ(1, failed.exitCode);
  EXPECT_NE(std::string::npos, failed.err.find("Division by zero (11)")) << failed.err;
}

}  // namespace
}  // namespace tessel::test
