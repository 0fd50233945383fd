// Starting a job run: configuration, run numbers from JOBDETAIL, the version
// check and the per-job concurrency limit, on SQLite and on PostgreSQL.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <set>
#include <thread>

#include "audit/HuntErr.h"
#include "core/Error.h"
#include "job/AppSettings.h"
#include "job/Session.h"
#include "job/TesselSession.h"
#include "scripting/SimpleVBWrapper.h"
#include "tests/support/JobEnvironment.h"

namespace tessel::test {
namespace {

// The error number of starting a session for the job, 0 when it starts.
int32_t StartNumber(const std::string& jobId, bool testMode = false, std::string* description = nullptr) {
  TesselSession session;
  try {
    session.InitialiseSession(jobId, false, testMode, "client");
    return 0;
  } catch (const Error& error) {
    if (description != nullptr) *description = error.description();
    return error.number();
  }
}

class SessionTest : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    if (GetParam() == Backend::PostgreSql && !PostgresUri()) {
      if (std::getenv("CI") != nullptr) FAIL() << "TESSEL_TEST_PG must name the test server under CI";
      GTEST_SKIP() << "no PostgreSQL server (TESSEL_TEST_PG)";
    }
    env_ = std::make_unique<JobEnvironment>(GetParam());
  }

  std::string AddJob(const std::string& name, int maxInstance = 0, int nextNo = 1,
                     const std::string& version = "1.96") {
    std::string jobId = env_->JobId(name);
    env_->AddJob(jobId, JobDocument(jobId, {}, {}, version), maxInstance, nextNo);
    return jobId;
  }

  std::string NextNo(const std::string& jobId) {
    return env_->Scalar("SELECT NEXTNO FROM JOBDETAIL WHERE JOBID = ?", {jobId}).value_or("");
  }

  std::unique_ptr<JobEnvironment> env_;
};

TEST_P(SessionTest, RunTakesTheNextNumberAndReadsTheConfiguration) {
  std::string jobId = AddJob("numbers", 0, 5);
  TesselSession host;
  std::string sessionId = host.InitialiseSession(jobId, false, false, "client-7");
  Session* session = CurrentSession();
  ASSERT_NE(nullptr, session);
  EXPECT_EQ(sessionId, session->SessionId());
  EXPECT_EQ(5, session->JobInstance());
  EXPECT_EQ("6", NextNo(jobId));
  EXPECT_EQ("utf-8", session->DefaultCharSet());
  EXPECT_EQ(env_->DebugPath().string(), session->DebugPath());
  EXPECT_FALSE(session->AccpacTrace());
  int id = std::stoi(sessionId);
  EXPECT_TRUE(id >= 1 && id <= 9999);
  EXPECT_NO_THROW(session->CheckSession(sessionId));
  try {
    session->CheckSession("x" + sessionId);
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(7002, error.number());
  }
  // One session per thread until it is closed.
  EXPECT_EQ(7001, StartNumber(jobId));
  host.CloseSession();
  EXPECT_EQ(nullptr, CurrentSession());
  EXPECT_EQ(0, StartNumber(jobId));
  EXPECT_EQ("7", NextNo(jobId));  // the refused second session took no number
}

TEST_P(SessionTest, ScriptHostOfTheSessionSeesTheJobsFunctionLibrary) {
  env_->SetFunctionLibrary({"Function Greet(s) : Greet = \"Hello, \" & TitleCase(s) : End Function"});
  std::string jobId = AddJob("designer", 0, 0);
  TesselSession host;
  host.InitialiseSession(jobId, false, true, "designer");
  std::unique_ptr<SimpleVBWrapper> script = host.CreateVBWrapper();
  EXPECT_EQ("Hello, Ada Lovelace", script->SimpleEvaluate("Greet(\"ada lovelace\")"));
  // Each wrapper is an engine of its own.
  EXPECT_EQ("Greet2", script->AddCode("Greet2", "Dim x\nx = 2\nx * 21"));
  EXPECT_EQ("42", script->SimpleEvaluate("Greet2"));
  std::unique_ptr<SimpleVBWrapper> other = host.CreateVBWrapper();
  EXPECT_EQ("", other->SimpleEvaluate("Greet2"));  // an unknown name is Empty
}

TEST_P(SessionTest, UnknownJobWrongVersionAndBrokenDocumentFail) {
  std::string description;
  EXPECT_EQ(7000, StartNumber(env_->JobId("nobody"), false, &description));
  EXPECT_NE(std::string::npos, description.find("Job [" + env_->JobId("nobody") + "] is invalid or undefined."));

  std::string old = AddJob("old", 0, 1, "1.95");
  EXPECT_EQ(7003, StartNumber(old, false, &description));
  EXPECT_NE(std::string::npos, description.find("Job has an invalid version [1.95]."));
  EXPECT_EQ("2", NextNo(old));  // the number is taken even though the run fails

  std::string broken = AddJob("broken");
  std::ofstream(env_->WorkPath() / (broken + ".xml")) << "<MAPPING version=\"1.96\">\n  <OPTIONS>\n</MAPPING>";
  EXPECT_EQ(7704, StartNumber(broken, false, &description));
  EXPECT_NE(std::string::npos, description.find("Line=3")) << description;

  // Each failure is in the audit log with the reason of the failure.
  std::vector<std::string> reasons = env_->AuditReasons(old);
  ASSERT_FALSE(reasons.empty());
  EXPECT_EQ(0u, reasons.back().find("Error whilst initialising job. \r\n\r\n"));
}

TEST_P(SessionTest, ConcurrencyLimitHoldsAcrossThreadsAndSkipsTestMode) {
  std::string jobId = AddJob("limited", 1);
  TesselSession first;
  first.InitialiseSession(jobId, false, false, "a");
  std::string description;
  int32_t second = 0;
  std::thread([&] { second = StartNumber(jobId, false, &description); }).join();
  EXPECT_EQ(7004, second);
  EXPECT_NE(std::string::npos, description.find("failed to acquire semaphore lock"));
  int32_t testRun = -1;
  std::thread([&] { testRun = StartNumber(jobId, true); }).join();
  EXPECT_EQ(0, testRun);
  first.CloseSession();
  int32_t afterRelease = -1;
  std::thread([&] { afterRelease = StartNumber(jobId); }).join();
  EXPECT_EQ(0, afterRelease);

  std::string unlimited = AddJob("unlimited", 0);
  TesselSession holder;
  holder.InitialiseSession(unlimited, false, false, "a");
  int32_t parallel = -1;
  std::thread([&] { parallel = StartNumber(unlimited); }).join();
  EXPECT_EQ(0, parallel);
}

TEST_P(SessionTest, SlotOfAKilledProcessComesFree) {
  std::string jobId = AddJob("killed", 1);
  int ready[2];
  ASSERT_EQ(0, ::pipe(ready));
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int32_t number = StartNumber(jobId);  // keeps nothing: the session is dropped ...
    TesselSession session;
    try {
      session.InitialiseSession(jobId, false, false, "child");  // ... this one holds the slot
    } catch (...) {
      number = -1;
    }
    char answer = (number == 0) ? 'y' : 'n';
    (void)!::write(ready[1], &answer, 1);
    ::pause();
    ::_exit(0);
  }
  ::close(ready[1]);
  char answer = 0;
  ASSERT_EQ(1, ::read(ready[0], &answer, 1));
  ::close(ready[0]);
  ASSERT_EQ('y', answer);
  EXPECT_EQ(7004, StartNumber(jobId));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  // The server notices a dead client's connection a moment later.
  int32_t number = 7004;
  for (int attempt = 0; attempt < 50 && number == 7004; ++attempt) {
    number = StartNumber(jobId);
    if (number == 7004) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(0, number);
}

TEST_P(SessionTest, ProcessesNeverShareARunNumber) {
  std::string jobId = AddJob("race");
  constexpr int kProcesses = 4;
  constexpr int kRunsEach = 10;
  int numbers[2];
  ASSERT_EQ(0, ::pipe(numbers));
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int run = 0; run < kRunsEach; ++run) {
        int32_t instance = -1;
        {
          TesselSession session;
          try {
            session.InitialiseSession(jobId, false, false, "race");
            instance = CurrentSession()->JobInstance();
          } catch (...) {
          }
        }
        (void)!::write(numbers[1], &instance, sizeof instance);
      }
      ::_exit(0);
    }
    children.push_back(child);
  }
  ::close(numbers[1]);
  std::multiset<int32_t> seen;
  int32_t instance = 0;
  while (::read(numbers[0], &instance, sizeof instance) == static_cast<ssize_t>(sizeof instance)) seen.insert(instance);
  ::close(numbers[0]);
  for (pid_t child : children) ::waitpid(child, nullptr, 0);
  ASSERT_EQ(static_cast<size_t>(kProcesses * kRunsEach), seen.size());
  EXPECT_EQ(0u, seen.count(-1));
  EXPECT_EQ(seen.size(), std::set<int32_t>(seen.begin(), seen.end()).size());
  EXPECT_EQ(std::to_string(kProcesses * kRunsEach + 1), NextNo(jobId));
}

INSTANTIATE_TEST_SUITE_P(Backends, SessionTest, ::testing::Values(Backend::Sqlite, Backend::PostgreSql),
                         [](const auto& info) { return info.param == Backend::Sqlite ? "sqlite" : "postgres"; });

TEST(SessionConfiguration, BrokenOrIncompleteConfigurationFailsWithItsNumber) {
  JobEnvironment env;
  std::string jobId = env.JobId("cfg");
  env.AddJob(jobId, JobDocument(jobId, {}));
  std::filesystem::path config = env.Folder() / "appconfig.xml";
  std::string good;
  {
    std::ifstream in(config);
    good.assign(std::istreambuf_iterator<char>(in), {});
  }
  std::string description;
  std::ofstream(config) << "<APPCONFIG><OPTIONS>";
  EXPECT_EQ(7704, StartNumber(jobId, false, &description));

  std::string noDatabase = good;
  noDatabase.replace(noDatabase.find("DBCONAX"), 7, "DBCONAY");
  std::ofstream(config) << noDatabase;
  EXPECT_EQ(7703, StartNumber(jobId, false, &description));
  EXPECT_NE(std::string::npos, description.find("DBCONAX")) << description;

  std::filesystem::remove(config);
  EXPECT_EQ(7705, StartNumber(jobId));

  std::string deadDatabase = good;
  size_t at = deadDatabase.find("sqlite:");
  deadDatabase.replace(at, deadDatabase.find('"', at) - at, "postgresql://nobody@127.0.0.1:1/none");
  std::ofstream(config) << deadDatabase;
  auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(9600, StartNumber(jobId));
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

}  // namespace
}  // namespace tessel::test
