// TransformFlatten: records with their child records become flat records of
// the same id, one per combination of children.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "transforms/TransformFlatten.h"
#include "tests/transforms/TransformFixture.h"

namespace tessel::test {
namespace {

// Headers H with two child types A and B.
const char* kTwoChildTypes =
    "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"HNUM\" type=\"3\"/><FIELD name=\"NOTE\" type=\"3\"/>"
    "</RECORD>"
    "<RECORD id=\"A\" parentid=\"H\" hashcode=\"2\"><FIELD name=\"AV\" type=\"3\"/></RECORD>"
    "<RECORD id=\"B\" parentid=\"H\" hashcode=\"3\"><FIELD name=\"BV\" type=\"3\"/><FIELD name=\"BN\" type=\"1\"/>"
    "</RECORD>";

// The flat H: its own number, AV from A and BV, BN from B.
const char* kFlatOfTwo =
    "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"HNUM\" type=\"3\"/>"
    "<FIELD name=\"AV\" type=\"3\" imptranid=\"A\" impname=\"AV\"/>"
    "<FIELD name=\"BV\" type=\"3\" imptranid=\"B\" impname=\"BV\"/>"
    "<FIELD name=\"BN\" type=\"1\" imptranid=\"B\" impname=\"BN\"/></RECORD>";

class FlattenTest : public ::testing::Test {
 protected:
  void Input(const std::string& records) {
    previous_ = DefinitionOf(TransformXml("prev", 1, {}, records));
    input_ = FactoryOf(previous_);
  }

  // Runs a flatten of `flatId` with the flat definition over the input data.
  std::shared_ptr<TransformDefinition> Flatten(const std::string& flatId, const std::string& flatRecords) {
    std::shared_ptr<TransformDefinition> definition =
        DefinitionOf(TransformXml("flat", 3, {{"flattentranid", flatId}}, flatRecords));
    flatten_.CreateController(previous_, event_, FactoryOf(definition, input_->Data()), false);
    flatten_.Process();
    return flatten_.TransformDefinition();
  }

  std::vector<std::string> Column(const std::string& path, const std::string& field) {
    std::vector<std::string> out;
    for (xmlNodePtr record : input_->Data()->GetNodesFromXPath(path)) {
      xmlNodePtr value = nullptr;
      for (xmlNodePtr node : input_->Data()->GetNodesFromXPath("FIELD[@name='" + field + "']/VALUES/VALUE", record)) {
        value = node;
      }
      out.push_back(value ? XMLWrapper::NodeText(value) : "-");
    }
    return out;
  }

  std::shared_ptr<TransformDefinition> previous_;
  std::shared_ptr<TransactionFactory> input_;
  RecordingEvent event_;
  TransformFlatten flatten_;
};

TEST_F(FlattenTest, CrossProductOfTwoChildTypesWithTheFirstCyclingFastest) {
  Input(kTwoChildTypes);
  Ref<TransactionContext> top = TopOf(*input_);
  Ref<Transaction> h1 = AddRecord(*input_, *top, "H", {{"HNUM", "1"}, {"NOTE", "n"}});
  AddRecord(*input_, *h1->Context(), "A", {{"AV", "a1"}});
  AddRecord(*input_, *h1->Context(), "A", {{"AV", "a2"}});
  for (const char* b : {"b1", "b2", "b3"}) AddRecord(*input_, *h1->Context(), "B", {{"BV", b}, {"BN", "7"}});
  // A header whose A type has no records: its B records alone.
  Ref<Transaction> h2 = AddRecord(*input_, *top, "H", {{"HNUM", "2"}});
  AddRecord(*input_, *h2->Context(), "B", {{"BV", "c1"}});
  AddRecord(*input_, *h2->Context(), "B", {{"BV", "c2"}, {"BN", "9"}});

  std::shared_ptr<TransformDefinition> definition = Flatten("H", kFlatOfTwo);

  const std::string flat = "/DATA/RECORDS[@id='H']/RECORD";
  EXPECT_EQ((std::vector<std::string>{"1", "1", "1", "1", "1", "1", "2", "2"}), Column(flat, "HNUM"));
  EXPECT_EQ((std::vector<std::string>{"a1", "a2", "a1", "a2", "a1", "a2", "-", "-"}), Column(flat, "AV"));
  EXPECT_EQ((std::vector<std::string>{"b1", "b1", "b2", "b2", "b3", "b3", "c1", "c2"}), Column(flat, "BV"));
  // An unset input field of a number type reaches the flat record as 0.
  EXPECT_EQ((std::vector<std::string>{"7", "7", "7", "7", "7", "7", "0", "9"}), Column(flat, "BN"));
  // The flat fields the input header has no more of are gone with it.
  EXPECT_TRUE(input_->Data()->GetNodesFromXPath("//RECORDS[@id='A' or @id='B'] | //FIELD[@name='NOTE']").empty());

  // Every record was visited once; the definition now ends at H.
  EXPECT_EQ(9u, event_.processed.size());
  EXPECT_EQ(1, definition->RecordCount());
  EXPECT_FALSE(definition->HasRecord("A"));
  EXPECT_EQ(4u, definition->TransformDefinitionXWrapper()->GetNodesFromXPath("//RECORD[@id='H']/FIELD").size());
}

TEST_F(FlattenTest, HeaderWithoutAnyChildRecordDisappears) {
  Input(kTwoChildTypes);
  Ref<TransactionContext> top = TopOf(*input_);
  AddRecord(*input_, *top, "H", {{"HNUM", "1"}});
  Ref<Transaction> h2 = AddRecord(*input_, *top, "H", {{"HNUM", "2"}});
  AddRecord(*input_, *h2->Context(), "A", {{"AV", "x"}});
  // A child container that lost all its records still counts as a child type.
  Ref<Transaction> h3 = AddRecord(*input_, *top, "H", {{"HNUM", "3"}});
  XMLWrapper& data = *input_->Data();
  xmlNodePtr empty = data.GenerateNode("RECORDS");
  xmlSetProp(empty, BAD_CAST "id", BAD_CAST "A");
  data.AddElement(empty, h3->Data());

  Flatten("H", kFlatOfTwo);
  EXPECT_EQ((std::vector<std::string>{"2"}), Column("/DATA/RECORDS[@id='H']/RECORD", "HNUM"));
  EXPECT_EQ((std::vector<std::string>{"x"}), Column("/DATA/RECORDS[@id='H']/RECORD", "AV"));
}

TEST_F(FlattenTest, HeaderFeedingAFieldOfItselfStaysWithoutChildren) {
  Input(kTwoChildTypes);
  Ref<TransactionContext> top = TopOf(*input_);
  AddRecord(*input_, *top, "H", {{"HNUM", "1"}, {"NOTE", "kept"}});
  Flatten("H",
          "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"HNUM\" type=\"3\"/>"
          "<FIELD name=\"NOTE\" type=\"3\" imptranid=\"H\" impname=\"NOTE\"/>"
          "<FIELD name=\"AV\" type=\"3\" imptranid=\"A\" impname=\"AV\"/></RECORD>");
  EXPECT_EQ((std::vector<std::string>{"1"}), Column("/DATA/RECORDS[@id='H']/RECORD", "HNUM"));
  EXPECT_EQ((std::vector<std::string>{"kept"}), Column("/DATA/RECORDS[@id='H']/RECORD", "NOTE"));
}

TEST_F(FlattenTest, ThreeLevelsAndAFlatRecordBelowTheTop) {
  Input("<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"HNUM\" type=\"3\"/></RECORD>"
        "<RECORD id=\"L\" parentid=\"H\" hashcode=\"2\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>"
        "<RECORD id=\"S\" parentid=\"L\" hashcode=\"3\"><FIELD name=\"SER\" type=\"3\"/></RECORD>");
  Ref<TransactionContext> top = TopOf(*input_);
  for (const char* h : {"1", "2"}) {
    Ref<Transaction> header = AddRecord(*input_, *top, "H", {{"HNUM", h}});
    Ref<Transaction> l1 = AddRecord(*input_, *header->Context(), "L", {{"ITEM", std::string("i") + h}});
    AddRecord(*input_, *l1->Context(), "S", {{"SER", std::string("s1-") + h}});
    AddRecord(*input_, *l1->Context(), "S", {{"SER", std::string("s2-") + h}});
    Ref<Transaction> l2 = AddRecord(*input_, *header->Context(), "L", {{"ITEM", std::string("j") + h}});
    AddRecord(*input_, *l2->Context(), "S", {{"SER", std::string("s3-") + h}});
  }
  // Lines flatten with their serial numbers; the headers stay as they are.
  std::shared_ptr<TransformDefinition> definition =
      Flatten("L", "<RECORD id=\"L\" parentid=\"H\" hashcode=\"2\"><FIELD name=\"ITEM\" type=\"3\"/>"
                   "<FIELD name=\"SER\" type=\"3\" imptranid=\"S\" impname=\"SER\"/></RECORD>");
  const std::string lines = "/DATA/RECORDS[@id='H']/RECORD[FIELD[@name='HNUM']/VALUES/VALUE='2']/RECORDS/RECORD";
  EXPECT_EQ((std::vector<std::string>{"i2", "i2", "j2"}), Column(lines, "ITEM"));
  EXPECT_EQ((std::vector<std::string>{"s1-2", "s2-2", "s3-2"}), Column(lines, "SER"));
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), Column("/DATA/RECORDS[@id='H']/RECORD", "HNUM"));
  EXPECT_TRUE(input_->Data()->GetNodesFromXPath("//RECORDS[@id='S']").empty());
  EXPECT_EQ(2, definition->RecordCount());
  EXPECT_TRUE(definition->HasRecord("H"));
}

TEST_F(FlattenTest, BadConfigurationFailsInCreateController) {
  Input(kTwoChildTypes);
  auto create = [&](const OptionMap& options, std::shared_ptr<TransformDefinition> previous) {
    TransformFlatten flatten;
    std::shared_ptr<TransformDefinition> definition = DefinitionOf(TransformXml("flat", 3, options, kFlatOfTwo));
    flatten.CreateController(previous, event_, FactoryOf(definition, input_->Data()), false);
  };
  EXPECT_EQ(7703, CatchError([&] { create({}, previous_); }).number());
  EXPECT_EQ(7703, CatchError([&] { create({{"flattentranid", "NOPE"}}, previous_); }).number());
  EXPECT_EQ(91, CatchError([&] { create({{"flattentranid", "H"}}, nullptr); }).number());
}

// CSV orders read hierarchically, flattened and written out as one line per
// order line.
TEST(FlattenJobTest, HierarchicalCsvIsWrittenFlat) {
  JobRun job;
  job.Input("orders.csv", "type,order,item,qty\nH,10\nL,10,bolt,5\nL,10,nut,7\nH,11\nL,11,gear,1\nH,12\n");
  TransformSpec flatten("flatten", "", 3, "", {{"flattentranid", "H"}});
  flatten.records =
      "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"ORD\" type=\"3\"/>"
      "<FIELD name=\"ITEM\" type=\"3\" imptranid=\"L\" impname=\"ITEM\"/>"
      "<FIELD name=\"QTY\" type=\"1\" imptranid=\"L\" impname=\"QTY\"/></RECORD>";
  flatten.audit["auditsummary"] = "%H.PROCESSED headers, %L.PROCESSED lines";
  const std::string writeRecords =
      "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"ORD\" type=\"3\" export=\"True\"/>"
      "<FIELD name=\"ITEM\" type=\"3\" export=\"True\"/><FIELD name=\"QTY\" type=\"1\" export=\"True\"/></RECORD>";
  ASSERT_EQ(0, job.Run(kOrderReadRecords, 1, {flatten}, writeRecords)) << job.AllReasons();
  EXPECT_EQ("ORD,ITEM,QTY\r\n10,bolt,5\r\n10,nut,7\r\n11,gear,1\r\n", job.Output());
  EXPECT_NE(std::string::npos, job.AllReasons().find("3 headers, 3 lines")) << job.AllReasons();
}

}  // namespace
}  // namespace tessel::test
