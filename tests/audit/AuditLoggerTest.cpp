// Audit entries on their way to AUDITLOG: counters, the view copies, the
// audit options of a transform, and the fall-back files when the log cannot
// be written.
#include <gtest/gtest.h>

#include <fstream>

#include "audit/AuditLogDefinition.h"
#include "audit/AuditLogger.h"
#include "audit/MessageQueueWrapper.h"
#include "core/Error.h"
#include "core/Utf16Text.h"
#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"
#include "tests/support/JobEnvironment.h"
#include "tests/support/ProbeTransform.h"

namespace tessel::test {
namespace {

std::shared_ptr<TransformDefinition> Definition(const std::string& xml) {
  Ref<XMLWrapper> document = MakeRef<XMLWrapper>();
  document->LoadXML(xml);
  return std::make_shared<TransformDefinition>(document);
}

constexpr const char* kTransform = R"(<TRANSFORM id="T1" parentid="" type="5">
  <OPTIONS/>
  <TRANSFORMDETAIL><RECORDS>
    <RECORD id="ORDER" parentid="" onerrormsg="Order could not be imported">
      <FIELD name="NUMBER" type="3" logkey="1"/><FIELD name="CUSTOMER" type="3" logkey="2"/>
      <FIELD name="DATE" type="4" logkey="4"/><FIELD name="SYS.ERROR" type="3"/>
    </RECORD>
    <RECORD id="LINE" parentid="ORDER"><FIELD name="SYS.WARNING" type="3"/></RECORD>
  </RECORDS></TRANSFORMDETAIL>
  <AUDIT><OPTIONS><OPTION name="rptgroup" value="G7"/><OPTION name="rptwarnings" value="False"/>
    <OPTION name="logstart" value="1"/><OPTION name="actiontransformerror" value="2"/></OPTIONS></AUDIT>
</TRANSFORM>)";

TEST(AuditLogDefinitionTest, ReadsOptionsAndTheRecordCache) {
  auto definition = Definition(kTransform);
  AuditLogDefinition audit;
  audit.SetOptions(*definition);
  audit.InitialiseRecordCache(*definition);
  EXPECT_EQ("G7", audit.ReportGroup());
  EXPECT_TRUE(audit.LogStart());
  EXPECT_FALSE(audit.LogEnd());
  EXPECT_FALSE(audit.ReportWarnings());
  EXPECT_EQ(2, audit.TransformErrorAction());
  audit.SetTransformErrorActionIfNone(1);
  EXPECT_EQ(2, audit.TransformErrorAction());

  ASSERT_NE(nullptr, audit.LogKeyFields("ORDER"));
  // Key numbers 1, 2 and 4: the gap ends the key after two fields.
  EXPECT_EQ((std::vector<std::string>{"NUMBER", "CUSTOMER"}), *audit.LogKeyFields("ORDER"));
  EXPECT_EQ(nullptr, audit.LogKeyFields("LINE"));
  ASSERT_NE(nullptr, audit.ErrorMessage("ORDER"));
  EXPECT_EQ("Order could not be imported", *audit.ErrorMessage("ORDER"));
  EXPECT_TRUE(audit.HasErrorWriteBackField("ORDER"));
  EXPECT_FALSE(audit.HasWarningWriteBackField("ORDER"));
  EXPECT_TRUE(audit.HasWarningWriteBackField("LINE"));

  auto bare = Definition(R"(<TRANSFORM id="T2" parentid="" type="5"><AUDIT><OPTIONS>
    <OPTION name="rptwarnings" value="True"/></OPTIONS></AUDIT></TRANSFORM>)");
  AuditLogDefinition none;
  none.SetOptions(*bare);
  EXPECT_EQ(0, none.TransformErrorAction());
  none.SetTransformErrorActionIfNone(1);
  EXPECT_EQ(1, none.TransformErrorAction());
  try {
    none.ReportGroup();
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(7500, error.number());
  }
  // Outside test mode rptwarnings is required.
  auto noWarnings = Definition(R"(<TRANSFORM id="T3" parentid="" type="5"><AUDIT><OPTIONS/></AUDIT></TRANSFORM>)");
  AuditLogDefinition strict;
  EXPECT_THROW(strict.SetOptions(*noWarnings), Error);
}

class AuditLoggerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    AuditLogger::Settings settings{env_.DebugPath().string(), (env_.DebugPath() / "Errors.txt").string(),
                                   "embedded:" + env_.DatabaseText()};
    logger_.Initialise("JOB9", 3, false, "client-1", settings);
    auto definition = Definition(kTransform);
    auto audit = std::make_shared<AuditLogDefinition>();
    audit->SetTransformId("T1");
    audit->SetOptions(*definition);
    audit->InitialiseRecordCache(*definition);
    logger_.AddAuditLogDefinition(audit);
  }

  static LogEntries Entries(int count) {
    LogEntries entries(count);
    for (int i = 0; i < count; ++i) entries[i].Reason = "reason " + std::to_string(i);
    return entries;
  }

  JobEnvironment env_;
  AuditLogger logger_;
};

TEST_F(AuditLoggerTest, CountsEventsAndWritesEntries) {
  std::string tranId = "ORDER";
  for (int i = 0; i < 3; ++i) logger_.OnProcess("T1", nullptr, tranId);
  logger_.OnInsert("T1", nullptr, tranId);
  EXPECT_EQ(3, logger_.GetEventCount("T1", "ORDER", "PROCESSED"));
  EXPECT_EQ(1, logger_.GetEventCount("T1", "ORDER", "INSERTED"));
  EXPECT_EQ(0, logger_.GetEventCount("T1", "ORDER", "DELETED"));
  EXPECT_EQ(0, logger_.GetEventCount("T9", "X", "PROCESSED"));

  LogEntries errors = Entries(5);
  logger_.OnError("T1", errors, nullptr);
  EXPECT_EQ(5, logger_.GetEventCount("T1", "", "ERRORS"));
  std::vector<std::string> reasons = env_.AuditReasons("JOB9");
  ASSERT_EQ(5u, reasons.size());
  EXPECT_EQ("reason 4", reasons.back());
  EXPECT_EQ("3", env_.Scalar("SELECT INSTANCEID FROM AUDITLOG WHERE PROCESSID = 'JOB9'"));
  EXPECT_EQ("1", env_.Scalar("SELECT LOGTYPE FROM AUDITLOG WHERE PROCESSID = 'JOB9'"));
  EXPECT_EQ("client-1", env_.Scalar("SELECT UNIQUEID FROM AUDITLOG WHERE PROCESSID = 'JOB9'"));

  // Warnings of a transform that does not report them are counted, not written.
  LogEntries warnings = Entries(2);
  logger_.OnWarning("T1", warnings, nullptr);
  EXPECT_TRUE(warnings.empty());
  EXPECT_EQ(2, logger_.GetEventCount("T1", "", "WARNINGS"));
  EXPECT_EQ(5u, env_.AuditReasons("JOB9").size());

  // Report groups collect their transforms, once per registration.
  ASSERT_NE(nullptr, logger_.ReportGroupTransforms("G7"));
  EXPECT_EQ((std::vector<std::string>{"T1"}), *logger_.ReportGroupTransforms("G7"));
}

TEST_F(AuditLoggerTest, RecordErrorsWriteBackAndAddTheDesignersEntry) {
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(Definition(kTransform));
  Ref<Transaction> order = factory->CreateTransaction("ORDER");
  order->SetFieldValue("NUMBER", Variant("SO-17"));
  order->SetFieldValue("DATE", Variant("2024-02-28"));  // key field 4 stands behind a gap: not part of the key

  LogEntries errors = Entries(5);
  for (IntegrationLogEntry& entry : errors) entry.TransformId = "T1";
  logger_.OnError("T1", errors, order.get());
  EXPECT_EQ(5, logger_.GetEventCount("T1", "ORDER", "ERRORS"));
  std::vector<std::string> reasons = env_.AuditReasons("JOB9");
  ASSERT_EQ(6u, reasons.size());
  EXPECT_EQ("Order could not be imported", reasons.back());
  // SOURCE is the record's log key; the unset CUSTOMER leaves an empty slot.
  for (const std::string& source : env_.AuditColumn("JOB9", "SOURCE")) EXPECT_EQ("SO-17 - ", source);
  EXPECT_EQ("reason 0\r\nreason 1\r\nreason 2\r\nreason 3\r\nreason 4", order->GetFieldValues("SYS.ERROR").ToString());

  // A warning on a record with a warning field writes back even when not reported.
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  LogEntries warnings = Entries(1);
  logger_.OnWarning("T1", warnings, line.get());
  EXPECT_EQ("reason 0", line->GetFieldValues("SYS.WARNING").ToString());
  EXPECT_EQ(1, logger_.GetEventCount("T1", "LINE", "WARNINGS"));
  EXPECT_EQ(6u, env_.AuditReasons("JOB9").size());

  // The summary resolves the counters of this transform.
  auto summaryDefinition = Definition(R"(<TRANSFORM id="T2" parentid="" type="5"><TRANSFORMDETAIL><RECORDS>
      <RECORD id="ORDER" parentid=""/></RECORDS></TRANSFORMDETAIL><AUDIT><OPTIONS>
      <OPTION name="rptgroup" value="G7"/><OPTION name="rptwarnings" value="True"/>
      <OPTION name="summaryhdr" value="Orders &amp; more"/>
      <OPTION name="auditsummary" list="True"><VALUES><V>%ORDER.ERRORS failed</V><V>%ORDER.PROCESSED done</V></VALUES></OPTION>
      </OPTIONS></AUDIT></TRANSFORM>)");
  auto audit = std::make_shared<AuditLogDefinition>();
  audit->SetTransformId("T2");
  audit->SetOptions(*summaryDefinition);
  logger_.AddAuditLogDefinition(audit);
  std::string tranId = "ORDER";
  logger_.OnProcess("T2", nullptr, tranId);
  logger_.OnProcess("T2", nullptr, tranId);
  auto summaryFactory = std::make_shared<TransactionFactory>();
  summaryFactory->SetTransformDefinition(summaryDefinition);
  logger_.AddTransformSummaries("T2", summaryFactory);
  EXPECT_EQ("<p class=\"header\">Orders &amp; more</p><p class=\"body\">0 failed</p><p class=\"body\">2 done</p>",
            env_.AuditReasons("JOB9").back());
  EXPECT_EQ("2", env_.Scalar("SELECT LOGTYPE FROM AUDITLOG WHERE TFORMID = 'T2'"));
}

TEST_F(AuditLoggerTest, ViewCopiesCarryTheRecordForm) {
  IntegrationLogEntry entry;
  entry.Reason = "seen <live> & well";
  entry.TransformId = "T1";
  logger_.LogAuditMessage(entry);
  IntegrationLogEntry viewOnly;
  viewOnly.Reason = "only for viewers";
  logger_.WriteEntryToViewLog(viewOnly);

  EXPECT_EQ((std::vector<std::string>{"seen <live> & well"}), env_.AuditReasons("JOB9"));
  auto copies = env_.Database().OpenRecordset("SELECT BODY, EXPIRES FROM AUDITVIEW ORDER BY EXPIRES");
  std::vector<IntegrationLogEntry> seen;
  for (; !copies->IsEOF(); copies->Next()) seen.push_back(IntegrationLogEntry::Deserialise(*copies->Text(0)));
  ASSERT_EQ(2u, seen.size());
  EXPECT_EQ("seen <live> & well", seen[0].Reason);
  EXPECT_EQ("JOB9", seen[0].JobId);
  EXPECT_EQ(3, seen[0].InstanceID);
  EXPECT_EQ("only for viewers", seen[1].Reason);
}

TEST(MessageQueueWrapperTest, QueueThatCannotOpenFailsAtOnce) {
  MessageQueueWrapper queue;
  try {
    queue.Initialise("embedded:postgresql://nobody@127.0.0.1:1/none");
    FAIL();
  } catch (const Error& error) {
    EXPECT_EQ(7555, error.number());
    EXPECT_NE(std::string::npos, error.description().find("Could not open message queue [embedded:postgresql:"));
  }
  EXPECT_THROW(queue.SendMessage(IntegrationLogEntry(), false), Error);
}

TEST(AuditFallbackTest, EntriesGoToErrlogWhenTheLogTableIsGoneAndTheJobEnds) {
  JobEnvironment env;
  std::string jobId = env.JobId("gone");
  TransformSpec saboteur("A", "", kProbeType, "", {{"sql", "ALTER TABLE AUDITLOG RENAME TO AUDITLOG_GONE"}});
  env.AddJob(jobId, JobDocument(jobId, {saboteur, TransformSpec("B", "A")}));
  auto journal = std::make_shared<ProbeJournal>();
  {
    TransformCoordinator coordinator(ProbeTypes(journal));
    auto session = coordinator.CreateSession();
    coordinator.Initialise(session->InitialiseSession(jobId, false, false, "client"));
    EXPECT_NO_THROW(coordinator.Process());
  }
  EXPECT_EQ((std::vector<std::string>{"A", "B"}), journal->Ids());
  std::ifstream in(env.DebugPath() / "errlog.txt", std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  ASSERT_GT(bytes.size(), 2u);
  EXPECT_EQ(Utf16Text::kByteOrderMarkLE, bytes.substr(0, 2));
  EXPECT_NE(std::string::npos, bytes.find(Utf16Text::FromUtf8LE("Transform Complete [B]")));
  EXPECT_NE(std::string::npos, bytes.find(Utf16Text::FromUtf8LE("    " + jobId + "    ")));
  EXPECT_NE(std::string::npos, bytes.find(Utf16Text::FromUtf8LE("Job completed successfully.")));
  // What was written before the table went is still there.
  EXPECT_EQ("Starting job.", env.Scalar("SELECT RESULTREASON FROM AUDITLOG_GONE ORDER BY LOGID"));
}

}  // namespace
}  // namespace tessel::test
