// A whole job run: a probe transform fills the data document and the write
// transform, as the next transform of the chain, writes it out as CSV.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "core/Error.h"
#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"
#include "tests/support/JobEnvironment.h"
#include "tests/support/ProbeTransform.h"

namespace tessel::test {
namespace {

const char* kRecord = "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\"><FIELD name=\"F\" type=\"3\" export=\"True\"/></RECORD>";

class WriteJobTest : public ::testing::Test {
 protected:
  // Runs probe P (adding `records` records) and write W under it; the error
  // number, 0 on success.
  int32_t Run(int records, const std::map<std::string, std::string>& writeOptions) {
    jobId_ = env_.JobId("write" + std::to_string(++runs_));
    TransformSpec probe("P", "", kProbeType, "", {{"records", std::to_string(records)}});
    probe.records = kRecord;
    TransformSpec write("W", "P", 2, "", writeOptions);
    write.records = kRecord;
    std::string document = JobDocument(jobId_, {probe, write});
    const std::string stream = "<INPUTSTREAM type=\"1\"><OPTIONS><OPTION name=\"filedir\" value=\"" +
                               (env_.Folder() / "out").string() +
                               "\"/><OPTION name=\"filter\" value=\"result.csv\"/>"
                               "<OPTION name=\"overwrite\" value=\"False\"/></OPTIONS></INPUTSTREAM>";
    const size_t writeAt = document.find("<TRANSFORM id=\"W\"");
    document.insert(document.find("<TRANSFORMDETAIL>", writeAt), stream);
    env_.AddJob(jobId_, document);
    std::filesystem::create_directories(env_.Folder() / "out");

    int32_t number = 0;
    TransformCoordinator coordinator(ProbeTypes(std::make_shared<ProbeJournal>()));
    std::unique_ptr<TesselSession> session = coordinator.CreateSession();
    try {
      coordinator.Initialise(session->InitialiseSession(jobId_, false, false, "client"));
      coordinator.Process();
    } catch (const Error& error) {
      number = error.number();
    }
    return number;
  }

  // Inserts an INPUTSTREAM of the file controller into transform `id`.
  static void AddStream(std::string& document, const std::string& id, const std::string& options) {
    const size_t at = document.find("<TRANSFORM id=\"" + id + "\"");
    document.insert(document.find("<TRANSFORMDETAIL>", at),
                    "<INPUTSTREAM type=\"1\"><OPTIONS>" + options + "</OPTIONS></INPUTSTREAM>");
  }

  static std::string Option(const std::string& name, const std::string& value) {
    return "<OPTION name=\"" + name + "\" value=\"" + value + "\"/>";
  }

  int32_t RunDocument(const std::string& document) {
    env_.AddJob(jobId_, document);
    int32_t number = 0;
    TransformCoordinator coordinator;
    std::unique_ptr<TesselSession> session = coordinator.CreateSession();
    try {
      coordinator.Initialise(session->InitialiseSession(jobId_, false, false, "client"));
      coordinator.Process();
    } catch (const Error& error) {
      number = error.number();
    }
    return number;
  }

  std::string Output(const std::string& name) {
    std::ifstream in(env_.Folder() / "out" / name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  std::string Reasons() {
    std::string all;
    for (const std::string& reason : env_.AuditReasons(jobId_)) all += reason + "\n";
    return all;
  }

  JobEnvironment env_;
  std::string jobId_;
  int runs_ = 0;
};

const std::map<std::string, std::string> kCsv{{"writetype", "1"},       {"committran", "R"},
                                              {"delimiter", ";"},        {"quotestrings", "True"},
                                              {"newline", "1"},          {"writeheaders", "True"}};

TEST_F(WriteJobTest, EachCommitRecordBecomesAFileAndTheAuditCountsThem) {
  ASSERT_EQ(0, Run(3, kCsv)) << Reasons();
  for (const char* name : {"result.csv", "result_1.csv", "result_2.csv"}) {
    EXPECT_EQ("F\r\n\"\"\r\n", Output(name)) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(env_.Folder() / "out" / "result_3.csv"));
  // The write transform's summary counts three processed records.
  EXPECT_NE(std::string::npos, Reasons().find("3 processed, 0 errors")) << Reasons();
}

TEST_F(WriteJobTest, BadNewlineFailsTheJobWith9001) {
  auto options = kCsv;
  options["newline"] = "13";
  EXPECT_EQ(9001, Run(1, options));
  EXPECT_NE(std::string::npos, Reasons().find("Line Delimiter Option [13] is invalid.")) << Reasons();
  EXPECT_TRUE(std::filesystem::is_empty(env_.Folder() / "out"));
}

TEST_F(WriteJobTest, FlatCsvReadIsWrittenBackWithQuotedStrings) {
  namespace fs = std::filesystem;
  jobId_ = env_.JobId("roundtrip");
  fs::create_directories(env_.Folder() / "in");
  fs::create_directories(env_.Folder() / "out");
  const std::string input = "CODE,NAME\r\nA1,first one\r\nB2,\"quoted\"\r\nC3,\r\n";
  std::ofstream(env_.Folder() / "in" / "data.csv", std::ios::binary) << input;

  const std::string records =
      "<RECORD id=\"ROW\" parentid=\"\" hashcode=\"1\">"
      "<FIELD name=\"CODE\" type=\"3\" position=\"1\" export=\"True\"/>"
      "<FIELD name=\"NAME\" type=\"3\" position=\"2\" export=\"True\"/></RECORD>";
  TransformSpec read("R", "", 1, "", {{"readtype", "1"}, {"heircarchical", "0"}, {"delimiter", ","},
                                      {"headerlength", "1"}});
  read.records = records;
  auto writeOptions = kCsv;
  writeOptions["committran"] = "";
  writeOptions["delimiter"] = ",";
  TransformSpec write("W", "R", 2, "", writeOptions);
  write.records = records;
  std::string document = JobDocument(jobId_, {read, write});
  AddStream(document, "R", Option("filedir", (env_.Folder() / "in").string()) + Option("filter", "*.csv"));
  AddStream(document, "W", Option("filedir", (env_.Folder() / "out").string()) + Option("filter", "copy.csv") +
                               Option("overwrite", "True"));
  ASSERT_EQ(0, RunDocument(document)) << Reasons();
  EXPECT_EQ("CODE,NAME\r\n\"A1\",\"first one\"\r\n\"B2\",\"quoted\"\r\n\"C3\",\"\"\r\n", Output("copy.csv"));
}

}  // namespace
}  // namespace tessel::test
