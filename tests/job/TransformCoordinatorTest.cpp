// The job spine: the walk of the transform tree, branches and priorities,
// failure actions, the no-data test, job events in AUDITLOG and LASTRUNDATE.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "audit/HuntErr.h"
#include "core/Error.h"
#include "job/RunProgress.h"
#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"
#include "tests/support/JobEnvironment.h"
#include "tests/support/ProbeTransform.h"

namespace tessel::test {
namespace {

using Specs = std::vector<TransformSpec>;
using Options = std::map<std::string, std::string>;

bool Contains(const std::vector<std::string>& texts, const std::string& part) {
  return std::any_of(texts.begin(), texts.end(), [&](const std::string& t) { return t.find(part) != std::string::npos; });
}

class CoordinatorTest : public ::testing::Test {
 protected:
  // Runs a job of these transforms; returns the error number, 0 on success.
  int32_t Run(const Specs& transforms, const Options& jobOptions = {}) {
    jobId_ = env_.JobId("walk" + std::to_string(++runs_));
    env_.AddJob(jobId_, JobDocument(jobId_, transforms, jobOptions));
    journal_ = std::make_shared<ProbeJournal>();
    int32_t number = 0;
    {
      TransformCoordinator coordinator(ProbeTypes(journal_));
      std::unique_ptr<TesselSession> session = coordinator.CreateSession();
      try {
        coordinator.Initialise(session->InitialiseSession(jobId_, false, false, "client"));
        coordinator.Process();
      } catch (const Error& error) {
        number = error.number();
        description_ = error.description();
      }
      reportSent_ = coordinator.AuditReportSent();
      instancedFolder_ = coordinator.GetInstancedFolder();
    }
    return number;
  }

  std::vector<std::string> Reasons() { return env_.AuditReasons(jobId_); }

  JobEnvironment env_;
  std::string jobId_;
  std::shared_ptr<ProbeJournal> journal_;
  std::string description_;
  std::string instancedFolder_;
  bool reportSent_ = false;
  int runs_ = 0;
};

TEST_F(CoordinatorTest, ChainSharesOneDocumentAndLogsTheJob) {
  ASSERT_EQ(0, Run({{"A", "", kProbeType, "", {{"mark", "1"}}},
                    {"B", "A", kProbeType, "", {{"mark", "1"}}},
                    {"C", "B", kProbeType}}));
  ASSERT_EQ((std::vector<std::string>{"A", "B", "C"}), journal_->Ids());
  EXPECT_EQ(journal_->runs[0].document, journal_->runs[1].document);
  EXPECT_EQ(journal_->runs[1].document, journal_->runs[2].document);
  EXPECT_EQ("A;B;", journal_->runs[2].marksOnArrival);
  EXPECT_FALSE(journal_->runs[0].hadPreviousDefinition);
  EXPECT_TRUE(journal_->runs[1].hadPreviousDefinition);

  std::vector<std::string> reasons = Reasons();
  ASSERT_FALSE(reasons.empty());
  EXPECT_EQ("Starting job.", reasons.front());
  EXPECT_EQ("Job completed successfully.", reasons.back());
  EXPECT_TRUE(Contains(reasons, "Transform Started [B]"));
  EXPECT_TRUE(Contains(reasons, "Transform Complete [C]"));
  // Each transform leaves its summary, its tokens resolved ("0" for counters never raised).
  EXPECT_TRUE(Contains(reasons, "<p class=\"header\">Transform B</p><p class=\"body\">0 processed, 0 errors</p>"));
  std::vector<std::string> types = env_.AuditColumn(jobId_, "LOGTYPE");
  EXPECT_EQ("4", types.front());
  EXPECT_EQ("5", types.back());
  EXPECT_TRUE(env_.Scalar("SELECT LASTRUNDATE FROM JOBDETAIL WHERE JOBID = ?", {jobId_}).has_value());
  // The run's folder goes with the coordinator.
  EXPECT_FALSE(std::filesystem::exists(instancedFolder_));
}

TEST_F(CoordinatorTest, BranchesRunByPriorityOnTheirOwnCopies) {
  ASSERT_EQ(0, Run({{"P", "", kProbeType, "", {{"mark", "1"}}},
                    {"second", "P", kProbeType, "2", {{"mark", "1"}}},
                    {"first", "P", kProbeType, "1", {{"mark", "1"}}},
                    {"never", "P", kProbeType, "4"},
                    {"afterFirst", "first", kProbeType}}));
  // Subtrees run to their end before the next sibling; priority 4 of three never runs.
  ASSERT_EQ((std::vector<std::string>{"P", "first", "afterFirst", "second"}), journal_->Ids());
  // Each sibling sees the parent's data as the parent left it.
  EXPECT_EQ("P;", journal_->runs[1].marksOnArrival);
  EXPECT_EQ("P;", journal_->runs[3].marksOnArrival);
  EXPECT_EQ("P;first;", journal_->runs[2].marksOnArrival);
  EXPECT_NE(journal_->runs[0].document, journal_->runs[1].document);
  EXPECT_NE(journal_->runs[1].document, journal_->runs[3].document);
  EXPECT_TRUE(journal_->runs[1].instancedFolderHadCopy);
}

TEST_F(CoordinatorTest, EqualPrioritiesRunTheFirstOnlyAndEntryPointsBranch) {
  ASSERT_EQ(0, Run({{"E2", "", kProbeType, "2"}, {"E1", "", kProbeType, "1"}, {"E1bis", "", kProbeType, "1"}}));
  EXPECT_EQ((std::vector<std::string>{"E1", "E2"}), journal_->Ids());
}

TEST_F(CoordinatorTest, FailActionOneEndsTheJob) {
  int32_t number = Run({{"A", "", kProbeType}, {"B", "A", kProbeType, "", {{"fail", "8123"}}}, {"C", "B", kProbeType}});
  EXPECT_EQ(8123, number);
  EXPECT_EQ((std::vector<std::string>{"A", "B"}), journal_->Ids());
  EXPECT_NE(std::string::npos, description_.find("  Call Stack: TransformCoordinator.Process"));
  std::vector<std::string> reasons = Reasons();
  EXPECT_TRUE(Contains(reasons, "Error occurred whilst processing transform [B].\r\n"));
  EXPECT_TRUE(Contains(reasons, "Transformation [B] has terminated."));
  EXPECT_TRUE(Contains(reasons, "Job [" + jobId_ + "] has aborted due to a transform failure."));
  EXPECT_FALSE(Contains(reasons, "Job completed successfully."));
  EXPECT_FALSE(env_.Scalar("SELECT LASTRUNDATE FROM JOBDETAIL WHERE JOBID = ?", {jobId_}).has_value());
  EXPECT_EQ("8123", env_.AuditColumn(jobId_, "RESULTCODE").back());
  EXPECT_TRUE(reportSent_);  // mode 3 reports an aborted job
}

TEST_F(CoordinatorTest, FailActionTwoGoesOnWithTheChildrenOfTheFailedTransform) {
  ASSERT_EQ(0, Run({{"A", "", kProbeType, "", {{"mark", "1"}}},
                    {"B", "A", kProbeType, "", {{"mark", "1"}, {"fail", "8124"}}},
                    {"C", "B", kProbeType}},
                   {{"actiontransformfail", "2"}, {"continuenodata", "True"}, {"sendauditreport", "1"}}));
  ASSERT_EQ((std::vector<std::string>{"A", "B", "C"}), journal_->Ids());
  // C works in the document B was given, with what B did to it before failing.
  EXPECT_EQ(journal_->runs[0].document, journal_->runs[2].document);
  EXPECT_EQ("A;B;", journal_->runs[2].marksOnArrival);
  EXPECT_TRUE(Contains(Reasons(), "Job completed successfully."));
}

TEST_F(CoordinatorTest, FailActionTwoWithoutContinueNoDataStopsAsForNoInput) {
  ASSERT_EQ(0, Run({{"A", "", kProbeType, "", {{"fail", "8125"}}}, {"B", "A", kProbeType}},
                   {{"actiontransformfail", "2"}, {"continuenodata", "False"}, {"sendauditreport", "2"}}));
  EXPECT_EQ((std::vector<std::string>{"A"}), journal_->Ids());
  std::vector<std::string> reasons = Reasons();
  EXPECT_TRUE(Contains(reasons, "No input data to start job. Job will terminate. No audit report will be sent."));
  EXPECT_EQ("Job completed successfully.", reasons.back());
}

TEST_F(CoordinatorTest, FailActionTwoSkipsTheSubtreeOfAFailedSibling) {
  ASSERT_EQ(0, Run({{"P", "", kProbeType},
                    {"bad", "P", kProbeType, "1", {{"fail", "8126"}}},
                    {"underBad", "bad", kProbeType},
                    {"good", "P", kProbeType, "2"}},
                   {{"actiontransformfail", "2"}, {"continuenodata", "False"}, {"sendauditreport", "3"}}));
  EXPECT_EQ((std::vector<std::string>{"P", "bad", "good"}), journal_->Ids());
}

TEST_F(CoordinatorTest, ReadWithoutDataStopsTheJobAndDecidesTheReport) {
  Specs job{{"read", "", 1, "", {{"records", "0"}}}, {"next", "read", kProbeType}};
  ASSERT_EQ(0, Run(job, {{"continuenodata", "False"}, {"sendauditreport", "2"}}));
  EXPECT_EQ((std::vector<std::string>{"read"}), journal_->Ids());
  std::vector<std::string> reasons = Reasons();
  EXPECT_TRUE(Contains(reasons, "No input data to start job. Job will terminate. No audit report will be sent."));
  EXPECT_EQ("Job completed successfully.", reasons.back());
  EXPECT_FALSE(reportSent_);
  EXPECT_TRUE(env_.Scalar("SELECT LASTRUNDATE FROM JOBDETAIL WHERE JOBID = ?", {jobId_}).has_value());

  ASSERT_EQ(0, Run(job, {{"continuenodata", "False"}, {"sendauditreport", "1"}}));
  EXPECT_TRUE(Contains(Reasons(), "No input data to start job. Job will terminate."));
  EXPECT_FALSE(Contains(Reasons(), "No audit report will be sent."));
  EXPECT_TRUE(reportSent_);

  // Mode 1 with continuenodata true takes no count: the next transform runs.
  ASSERT_EQ(0, Run(job, {{"continuenodata", "True"}, {"sendauditreport", "1"}}));
  EXPECT_EQ((std::vector<std::string>{"read", "next"}), journal_->Ids());

  // A read that finds records goes on.
  ASSERT_EQ(0, Run({{"read", "", 1, "", {{"records", "3"}}}, {"next", "read", kProbeType}},
                   {{"continuenodata", "False"}, {"sendauditreport", "2"}}));
  EXPECT_EQ((std::vector<std::string>{"read", "next"}), journal_->Ids());
  EXPECT_TRUE(reportSent_);
}

TEST_F(CoordinatorTest, UnknownAndUnbuiltTypesFailTheirTransform) {
  EXPECT_EQ(10503, Run({{"six", "", 6}}));
  EXPECT_TRUE(Contains(Reasons(), "Transform [six] failed as the Transform Type [6] is not yet implemented."));
  EXPECT_EQ(10505, Run({{"odd", "", 53}}));
  EXPECT_TRUE(Contains(Reasons(), "Transformation [odd] has terminated."));
  EXPECT_EQ(10599, Run({{"cfg", "", kProbeType, "", {{"failcreate", "1"}}}}));
  EXPECT_TRUE(journal_->runs.empty());
}

TEST_F(CoordinatorTest, JobWithoutTransformsStartsAndCompletes) {
  ASSERT_EQ(0, Run({}));
  EXPECT_EQ((std::vector<std::string>{"Starting job.", "Job completed successfully."}), Reasons());
}

TEST_F(CoordinatorTest, MissingJobOptionsAreLoggedAndDefaulted) {
  ASSERT_EQ(0, Run({{"A", "", kProbeType}},
                   {{"actiontransformerror", "<absent>"}, {"actiontransformfail", "x"}, {"sendauditreport", ""}}));
  std::vector<std::string> reasons = Reasons();
  EXPECT_TRUE(Contains(reasons, "Transform Error Property Condition not found. Setting to abort tranform on error."));
  EXPECT_TRUE(Contains(reasons, "Transform Failure property not found. Setting to abort job on transform failure."));
  EXPECT_TRUE(Contains(reasons, "Audit Report Send property not found. Setting to send audit report."));
  // writedebug is absent, which counts as true: both debug files exist.
  EXPECT_TRUE(std::filesystem::exists(env_.DebugPath() / ("Data" + jobId_ + "-A.xml")));
  EXPECT_TRUE(std::filesystem::exists(env_.DebugPath() / ("MetaData" + jobId_ + "-A.xml")));
}

TEST_F(CoordinatorTest, BadBooleanOptionFailsInitialise) {
  EXPECT_EQ(13, Run({{"A", "", kProbeType}}, {{"writedebug", "maybe"}}));
}

class RecordingProgress : public RunProgress {
 public:
  void TransformStarting(const std::string& transformId, int type) override { events.push_back("start " + transformId); }
  void RecordsDone(const std::string& transformId, int64_t processed) override {
    events.push_back(transformId + " " + std::to_string(processed));
  }
  void TransformFinished(const std::string& transformId, bool failed, const std::string& message,
                         const TransformTally& tally) override {
    events.push_back((failed ? "failed " : "done ") + transformId + " " + std::to_string(tally.processed));
  }
  std::vector<std::string> events;
};

TEST(CoordinatorProgress, ReportsRecordsAndCountsPerTransform) {
  JobEnvironment env;
  std::string jobId = env.JobId("progress");
  env.AddJob(jobId, JobDocument(jobId, {TransformSpec("A", "", kProbeType, "", {{"process", "9000"}}),
                                        TransformSpec("B", "A", kProbeType, "", {{"process", "5"}, {"fail", "8127"}})}));
  auto journal = std::make_shared<ProbeJournal>();
  RecordingProgress progress;
  TransformCoordinator coordinator(ProbeTypes(journal));
  coordinator.SetProgress(&progress);
  auto session = coordinator.CreateSession();
  coordinator.Initialise(session->InitialiseSession(jobId, false, false, "client"));
  EXPECT_THROW(coordinator.Process(), Error);
  EXPECT_EQ((std::vector<std::string>{"start A", "A 4096", "A 8192", "done A 9000", "start B", "failed B 5"}),
            progress.events);
}

TEST(CoordinatorLifecycle, ProcessBeforeInitialiseRaises10502) {
  TransformCoordinator coordinator;
  try {
    coordinator.Process();
    FAIL() << "Process ran without Initialise";
  } catch (const Error& error) {
    EXPECT_EQ(10502, error.number());
  }
}

}  // namespace
}  // namespace tessel::test
