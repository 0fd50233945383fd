// TransformMap: renaming to the map's names, then formulas computed into the
// fields of every record, children before parents.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "transforms/TransformMap.h"
#include "tests/support/TempDir.h"
#include "tests/transforms/TransformFixture.h"

namespace tessel::test {
namespace {

// Customers R with their orders L, as the preceding transform names them.
const char* kInputRecords =
    "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\"><FIELD name=\"NAME\" type=\"3\"/>"
    "<FIELD name=\"AMT\" type=\"2\"/><FIELD name=\"NOTE\" type=\"3\"/><FIELD name=\"TRACE\" type=\"3\"/></RECORD>"
    "<RECORD id=\"L\" parentid=\"R\" hashcode=\"2\"><FIELD name=\"ITEM\" type=\"3\"/>"
    "<FIELD name=\"TRACE\" type=\"3\"/></RECORD>";

class MapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Visit() appends its argument to a trail kept across evaluations.
    env_.SetFunctionLibrary({"Dim trail\r\nFunction Visit(s)\r\ntrail = trail & s\r\nVisit = trail\r\nEnd Function"});
    previous_ = DefinitionOf(TransformXml("prev", 1, {}, kInputRecords));
    input_ = FactoryOf(previous_);
  }

  Ref<Transaction> Customer(const std::string& name, const std::string& amount, int lines) {
    Ref<TransactionContext> top = TopOf(*input_);
    Ref<Transaction> customer = AddRecord(*input_, *top, "R", {{"NAME", name}, {"AMT", amount}, {"NOTE", "keep"}});
    for (int i = 1; i <= lines; ++i) AddRecord(*input_, *customer->Context(), "L", {{"ITEM", name + std::to_string(i)}});
    return customer;
  }

  void Map(const std::string& records, const std::string& action = "1") {
    std::shared_ptr<TransformDefinition> definition =
        DefinitionOf(TransformXml("map", 5, {}, records, {{"actiontransformerror", action}}));
    map_ = std::make_unique<TransformMap>();
    map_->CreateController(previous_, event_, FactoryOf(definition, input_->Data()), false);
    map_->Process();
  }

  std::vector<std::string> Values(const std::string& record, const std::string& field) {
    return Texts(*input_->Data(), "//RECORDS[@id='" + record + "']/RECORD/FIELD[@name='" + field + "']/VALUES/VALUE");
  }

  JobEnvironment env_;
  RecordingEvent event_;
  std::shared_ptr<TransformDefinition> previous_;
  std::shared_ptr<TransactionFactory> input_;
  std::unique_ptr<TransformMap> map_;
};

TEST_F(MapTest, FormulasWorkOnTheRenamedFieldsInOrder) {
  Customer("Smith", "21", 1);
  Map("<RECORD id=\"CUST\" parentid=\"\" imptranid=\"R\">"
      "<FIELD name=\"Last Name\" type=\"3\" impname=\"NAME\"/>"
      "<FIELD name=\"GREETING\" type=\"3\" value=\"Mr %[Last Name]\"/>"
      "<FIELD name=\"DOUBLE\" type=\"2\" impname=\"AMT\" eval=\"True\" value=\"%DOUBLE*2\"/>"
      "<FIELD name=\"BIG\" type=\"3\" eval=\"1\" value=\"%DOUBLE &gt; 40\"/>"
      "<FIELD name=\"NOTE\" type=\"3\" eval=\"True\" value=\"&quot;&quot;\"/>"
      "<FIELD name=\"LINES\" type=\"3\" eval=\"True\" value=\"x = 2&#10;x * 3\"/>"
      "<FIELD name=\"PLAIN\" type=\"3\" eval=\"False\" value=\"1+1\"/>"
      "<FIELD name=\"TRACE\" type=\"3\"/></RECORD>"
      "<RECORD id=\"LINE\" parentid=\"CUST\" imptranid=\"L\"><FIELD name=\"ITEM\" type=\"3\"/>"
      "<FIELD name=\"TRACE\" type=\"3\"/></RECORD>");
  EXPECT_EQ((std::vector<std::string>{"Smith"}), Values("CUST", "Last Name"));
  // Substitution quotes a string field, and nothing takes the quotes away.
  EXPECT_EQ((std::vector<std::string>{"Mr \"Smith\""}), Values("CUST", "GREETING"));
  EXPECT_EQ((std::vector<std::string>{"42"}), Values("CUST", "DOUBLE"));
  // A formula sees the new value of a field before it.
  EXPECT_EQ((std::vector<std::string>{"True"}), Values("CUST", "BIG"));
  // An empty result leaves the field as it was.
  EXPECT_EQ((std::vector<std::string>{"keep"}), Values("CUST", "NOTE"));
  EXPECT_EQ((std::vector<std::string>{"6"}), Values("CUST", "LINES"));
  EXPECT_EQ((std::vector<std::string>{"1+1"}), Values("CUST", "PLAIN"));
  EXPECT_EQ((std::vector<std::string>{"Smith1"}), Values("LINE", "ITEM"));
  EXPECT_EQ((std::vector<std::string>{"CUST", "LINE"}), event_.processed);
  EXPECT_TRUE(event_.errors.empty());
}

TEST_F(MapTest, ChildrenAreMappedBeforeTheirParentAndEmptyRecordsGo) {
  Customer("A", "1", 2);
  // A record without any value or child is deleted, its formula not run.
  Ref<TransactionContext> top = TopOf(*input_);
  Ref<Transaction> bare = input_->CreateTransaction("R");
  input_->AddTransaction(*bare, *top);
  Customer("B", "2", 1);
  Map("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"NAME\" type=\"3\"/>"
      "<FIELD name=\"TRACE\" type=\"3\" eval=\"True\" value=\"Visit(&quot;R&quot;)\"/></RECORD>"
      "<RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\"/>"
      "<FIELD name=\"TRACE\" type=\"3\" eval=\"True\" value=\"Visit(&quot;L&quot;)\"/>"
      "</RECORD>");
  EXPECT_EQ((std::vector<std::string>{"A", "B"}), Values("R", "NAME"));
  EXPECT_EQ((std::vector<std::string>{"LLR", "LLRLR"}), Values("R", "TRACE"));
  EXPECT_EQ((std::vector<std::string>{"L", "LL", "LLRL"}), Values("L", "TRACE"));
  EXPECT_EQ(6u, event_.processed.size());
}

TEST_F(MapTest, UnderActionTwoAFailingFormulaLeavesItsTextAndTheRestGoesOn) {
  Customer("A", "0", 1);
  Customer("B", "5", 0);
  Map("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"NAME\" type=\"3\" eval=\"True\" value=\"%NAME &amp; &quot;!&quot;\"/>"
      "<FIELD name=\"NOTE\" type=\"3\" eval=\"True\" value=\"10 / %AMT\"/>"
      "<FIELD name=\"TRACE\" type=\"3\" eval=\"True\" value=\"%NOPE\"/>"
      "<FIELD name=\"AMT\" type=\"2\" eval=\"True\" value=\"%AMT + 1\"/></RECORD>"
      "<RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>",
      "2");
  EXPECT_EQ((std::vector<std::string>{"A!", "B!"}), Values("R", "NAME"));
  EXPECT_EQ((std::vector<std::string>{"10 / %AMT", "2"}), Values("R", "NOTE"));
  EXPECT_EQ((std::vector<std::string>{"%NOPE", "%NOPE"}), Values("R", "TRACE"));
  EXPECT_EQ((std::vector<std::string>{"1", "6"}), Values("R", "AMT"));

  ASSERT_EQ(3u, event_.errors.size());
  for (const IntegrationLogEntry& entry : event_.errors) {
    EXPECT_EQ("9650", entry.ReasonCode);
    EXPECT_EQ(1, entry.LogType);
    EXPECT_EQ("map", entry.TransformId);
    EXPECT_EQ(std::string::npos, entry.Reason.find("Call Stack")) << entry.Reason;
  }
  EXPECT_NE(std::string::npos, event_.errors[0].Reason.find("Error whilst evaluating field [NOTE] on transaction type [R]"))
      << event_.errors[0].Reason;
  EXPECT_NE(std::string::npos, event_.errors[0].Reason.find("Division by zero")) << event_.errors[0].Reason;
  EXPECT_NE(std::string::npos, event_.errors[1].Reason.find("Field [NOPE] does not exist in transaction [R]."))
      << event_.errors[1].Reason;
}

TEST_F(MapTest, UnderActionOneTheFirstFailureEndsTheTransform) {
  Customer("A", "0", 0);
  Customer("B", "5", 0);
  Error error = CatchError([&] {
    Map("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"AMT\" type=\"2\"/>"
        "<FIELD name=\"NOTE\" type=\"3\" eval=\"True\" value=\"10 / %AMT\"/>"
        "<FIELD name=\"NAME\" type=\"3\" value=\"changed\"/></RECORD>");
  });
  EXPECT_EQ(11, error.number());
  ASSERT_EQ(1u, event_.errors.size());
  EXPECT_EQ("9650", event_.errors[0].ReasonCode);
  // Nothing after the failing field was written.
  EXPECT_EQ((std::vector<std::string>{"A", "B"}), Values("R", "NAME"));
}

TEST_F(MapTest, DefinitionWithoutARootRecordMapsNothing) {
  Customer("A", "1", 0);
  const std::string before = input_->Data()->ToString();
  Map("<RECORD id=\"R\" parentid=\"Z\"><FIELD name=\"NAME\" type=\"3\" value=\"changed\"/></RECORD>");
  EXPECT_EQ(before, input_->Data()->ToString());
  EXPECT_TRUE(event_.processed.empty());
}

TEST_F(MapTest, FieldNamedTwiceInARecordFailsInCreateController) {
  std::shared_ptr<TransformDefinition> definition = DefinitionOf(TransformXml(
      "map", 5, {},
      "<RECORD id=\"R\" parentid=\"\"><FIELD name=\"NAME\" type=\"3\" value=\"a\"/>"
      "<FIELD name=\"NAME\" type=\"3\" value=\"b\"/></RECORD>"));
  TransformMap map;
  EXPECT_EQ(457, CatchError([&] { map.CreateController(previous_, event_, FactoryOf(definition, input_->Data()), false); })
                     .number());
}

TEST_F(MapTest, EvalWithoutAValueIsNoFormula) {
  Customer("A", "1", 0);
  // Under action 1 any evaluation of the empty text would end the transform.
  Map("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"NAME\" type=\"3\" eval=\"True\"/>"
      "<FIELD name=\"AMT\" type=\"2\"/></RECORD>");
  EXPECT_EQ((std::vector<std::string>{"A"}), Values("R", "NAME"));
  EXPECT_TRUE(event_.errors.empty());
}

TEST_F(MapTest, VerboseOptionLogsEachEvaluation) {
  Customer("A", "4", 0);
  std::shared_ptr<TransformDefinition> definition = DefinitionOf(
      TransformXml("map", 5, {{"verboselogtofile", "True"}},
                   "<RECORD id=\"R\" parentid=\"\"><FIELD name=\"AMT\" type=\"2\" eval=\"True\" value=\"%AMT * 2\"/>"
                   "</RECORD>"));
  map_ = std::make_unique<TransformMap>();
  map_->CreateController(previous_, event_, FactoryOf(definition, input_->Data()), false);
  map_->Process();
  EXPECT_EQ((std::vector<std::string>{"8"}), Values("R", "AMT"));
  // The log's writes are buffered until its script host closes.
  map_.reset();
  // The log is UTF-16 text; its content here is ASCII.
  const std::string bytes = ReadFileText(env_.DebugPath() / " ");
  std::string text;
  for (size_t i = 2; i + 1 < bytes.size(); i += 2) text.push_back(bytes[i]);
  EXPECT_NE(std::string::npos, text.find("\tPOSTRESOLUTION:\t4 * 2\r\n")) << text;
}

}  // namespace
}  // namespace tessel::test
