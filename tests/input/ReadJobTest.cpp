// Whole job runs with a read transform: the coordinator with the standard
// table reads CSV files, a later transform sees the data document, and the
// audit log tells what was read.
#include <gtest/gtest.h>

#include <algorithm>

#include "job/TesselSession.h"
#include "job/TransformCoordinator.h"
#include "store/TransactionFactory.h"
#include "tests/input/ReadFixture.h"
#include "tests/support/JobEnvironment.h"

namespace tessel::test {
namespace {

// Copies the data document it is handed, as text.
class CaptureTransform : public ITransformController {
 public:
  explicit CaptureTransform(std::shared_ptr<std::string> out) : out_(std::move(out)) {}
  Ref<XMLWrapper> TransformedData() override { return factory_->Data(); }
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override {
    return factory_->TransformDefinition();
  }
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override { return factory_; }
  void CreateController(std::shared_ptr<tessel::TransformDefinition>, IEvent&,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool) override {
    factory_ = std::move(factory);
  }
  void Process() override { *out_ = factory_->Data()->ToString(); }

 private:
  std::shared_ptr<std::string> out_;
  std::shared_ptr<tessel::TransactionFactory> factory_;
};

constexpr int kCaptureType = 998;

bool Contains(const std::vector<std::string>& texts, const std::string& part) {
  return std::any_of(texts.begin(), texts.end(), [&](const std::string& t) { return t.find(part) != std::string::npos; });
}

class ReadJobTest : public ::testing::Test {
 protected:
  int32_t Run(const OptionMap& readOptions, const std::string& records, const std::string& stream,
              const std::map<std::string, std::string>& jobOptions = {}, bool testMode = false) {
    jobId_ = env_.JobId("read" + std::to_string(++runs_));
    OptionMap options{{"readtype", "1"}, {"delimiter", ","}, {"headerlength", "1"}, {"heircarchical", "0"}};
    for (const auto& [name, value] : readOptions) options[name] = value;
    TransformSpec read("read", "", 1, "", std::map<std::string, std::string>(options.begin(), options.end()));
    read.audit["auditsummary"] = "%H.PROCESSED headers, %L.PROCESSED lines, %R.PROCESSED records";
    read.records = records;
    TransformSpec capture("capture", "read", kCaptureType);
    capture.records = records;
    std::string document = JobDocument(jobId_, {read, capture}, jobOptions);
    const std::string open = "<TRANSFORM id=\"read\" parentid=\"\" type=\"1\">";
    document.insert(document.find(open) + open.size(), stream);
    env_.AddJob(jobId_, document);
    captured_ = std::make_shared<std::string>();
    TransformTypeTable table = TransformTypeTable::Standard();
    auto out = captured_;
    table.Register(kCaptureType, "CaptureTransform", [out] { return std::make_shared<CaptureTransform>(out); });
    int32_t number = 0;
    TransformCoordinator coordinator(table);
    std::unique_ptr<TesselSession> session = coordinator.CreateSession();
    try {
      coordinator.Initialise(session->InitialiseSession(jobId_, false, testMode, "client"));
      coordinator.Process();
    } catch (const Error& error) {
      number = error.number();
    }
    return number;
  }

  // Values of one field in the captured document.
  std::vector<std::string> Captured(const std::string& xpath) {
    auto doc = MakeRef<XMLWrapper>();
    doc->LoadXML(*captured_);
    return Texts(*doc, xpath);
  }

  JobEnvironment env_;
  TempDir files_;
  std::string jobId_;
  std::shared_ptr<std::string> captured_;
  int runs_ = 0;
};

TEST_F(ReadJobTest, HierarchicalOrdersReachTheNextTransformAndTheAudit) {
  WriteFileText(files_ / "orders1.csv", "type,order,item,qty\nH,10\nL,10,bolt,5\nH,10\nL,10,nut,7\nH,11\nL,11,gear,1\n");
  WriteFileText(files_ / "orders2.csv", "type,order,item,qty\r\nH,12\r\nL,12,cog,2\r\nL,10,washer,3\r\n");
  ASSERT_EQ(0, Run({{"heircarchical", "1"}, {"onchangefieldpos", "1"}}, kOrderRecords,
                   FileStream(files_.path().string(), "orders*.csv")));
  EXPECT_EQ((std::vector<std::string>{"10", "11", "12"}),
            Captured("/DATA/RECORDS[@id='H']/RECORD/FIELD[@name='ORD']/VALUES/VALUE"));
  EXPECT_EQ((std::vector<std::string>{"bolt", "nut", "washer"}),
            Captured("/DATA/RECORDS[@id='H']/RECORD[FIELD[@name='ORD']/VALUES/VALUE='10']/RECORDS[@id='L']/RECORD/"
                     "FIELD[@name='ITEM']/VALUES/VALUE"));
  std::vector<std::string> reasons = env_.AuditReasons(jobId_);
  EXPECT_TRUE(Contains(reasons, "Transform read</p><p class=\"body\">4 headers, 5 lines, 0 records"));
  EXPECT_EQ("Job completed successfully.", reasons.back());
}

TEST_F(ReadJobTest, TestRunReadsFourHundredRecords) {
  std::string body = "A,B,C\n";
  for (int i = 0; i < 250; ++i) body += std::to_string(i) + ",x,y\n";
  WriteFileText(files_ / "a.csv", body);
  WriteFileText(files_ / "b.csv", body);
  WriteFileText(files_ / "c.csv", body);
  ASSERT_EQ(0, Run({}, kFlatRecords, FileStream(files_.path().string(), "*.csv"), {}, true));
  EXPECT_EQ(400u, Captured("/DATA/RECORDS[@id='R']/RECORD/FIELD[@name='A']/VALUES/VALUE").size());
}

TEST_F(ReadJobTest, MissingDirectoryFailsTheTransform) {
  EXPECT_EQ(8501, Run({}, kFlatRecords, FileStream((files_ / "absent").string(), "*.csv")));
  std::vector<std::string> reasons = env_.AuditReasons(jobId_);
  EXPECT_TRUE(Contains(reasons, "Path does not exist ["));
  EXPECT_TRUE(Contains(reasons, "Transformation [read] has terminated."));
}

TEST_F(ReadJobTest, ShortLineIsLoggedWithItsCounts) {
  WriteFileText(files_ / "a.csv", "A,B,C\n1,2,3\n4,5\n6,7,8\n");
  EXPECT_EQ(9, Run({}, kFlatRecords, FileStream(files_.path().string(), "a.csv")));
  EXPECT_TRUE(Contains(env_.AuditReasons(jobId_),
                       "Expected number of fields is [3], actual number of fields is [2]."));
  EXPECT_TRUE(Contains(env_.AuditReasons(jobId_), "Invalid file layout encountered whilst parsing ["));
}

}  // namespace
}  // namespace tessel::test
