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

}  // namespace
}  // namespace tessel::test
