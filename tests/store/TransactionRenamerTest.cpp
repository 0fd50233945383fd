// TransactionRenamer: the data document of a parent transform renamed in
// place to the names of the next transform's definition.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "store/TransactionRenamer.h"
#include "store/TransactionSelector.h"
#include "tests/store/StoreFixture.h"

namespace tessel::test {
namespace {

std::string Transform(const std::string& records) {
  return "<TRANSFORM id=\"T\" parentid=\"\" type=\"5\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>" + records +
         "</RECORDS></TRANSFORMDETAIL></TRANSFORM>";
}

// Texts of the nodes a query finds.
std::vector<std::string> Texts(XMLWrapper& doc, const std::string& xpath) {
  std::vector<std::string> out;
  for (xmlNodePtr node : doc.GetNodesFromXPath(xpath)) out.push_back(XMLWrapper::NodeText(node));
  return out;
}

std::string Values(const std::string& record, const std::string& field) {
  return "//RECORDS[@id='" + record + "']/RECORD/FIELD[@name='" + field + "']/VALUES/VALUE";
}

class RenamerTest : public ::testing::Test {
 protected:
  // Input records R with fields A, B, C, and for each a child line L with ITEM.
  void SetUp() override {
    input_ = MakeFactory(Transform(
        "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\"><FIELD name=\"A\" type=\"3\"/><FIELD name=\"B\" type=\"3\"/>"
        "<FIELD name=\"C\" type=\"1\"/></RECORD>"
        "<RECORD id=\"L\" parentid=\"R\" hashcode=\"2\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>"));
    Ref<TransactionContext> context = TopContext(*input_);
    for (int i = 1; i <= 2; ++i) {
      Ref<Transaction> record = input_->CreateTransaction("R");
      record->SetFieldValue("A", Variant("a" + std::to_string(i)));
      record->SetFieldValue("B", Variant("b" + std::to_string(i)));
      record->SetFieldValue("C", Variant(std::to_string(i)));
      input_->AddTransaction(*record, *context);
      Ref<TransactionContext> under = record->Context();
      Ref<Transaction> line = input_->CreateTransaction("L");
      line->SetFieldValue("ITEM", Variant("item" + std::to_string(i)));
      input_->AddTransaction(*line, *under);
    }
  }

  std::shared_ptr<TransformDefinition> Rename(const std::string& records, bool deleteFields = false) {
    std::shared_ptr<TransformDefinition> definition = MakeDefinition(Transform(records));
    TransactionRenamer renamer;
    renamer.Init(input_->Data(), definition, input_->TransformDefinition(), deleteFields);
    renamer.RenameDataSetFromTransformDef();
    return definition;
  }

  XMLWrapper& Data() { return *input_->Data(); }

  std::shared_ptr<TransactionFactory> input_;
};

TEST_F(RenamerTest, CrossingRenamesSwapValuesInEveryRecord) {
  Rename("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"A\" type=\"3\" impname=\"B\"/>"
         "<FIELD name=\"B\" type=\"3\" impname=\"A\"/><FIELD name=\"C\" type=\"1\"/></RECORD>"
         "<RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>");
  EXPECT_EQ((std::vector<std::string>{"b1", "b2"}), Texts(Data(), Values("R", "A")));
  EXPECT_EQ((std::vector<std::string>{"a1", "a2"}), Texts(Data(), Values("R", "B")));
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), Texts(Data(), Values("R", "C")));
  // No temporary name is left behind.
  EXPECT_TRUE(Data().GetNodesFromXPath("//FIELD[@name='A_0' or @name='B_0']").empty());
}

TEST_F(RenamerTest, ChainOfRenamesGoesThroughATemporaryName) {
  // X takes A, A takes B, B takes C: every field moves one place along.
  Rename("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"X\" type=\"3\" impname=\"A\"/>"
         "<FIELD name=\"A\" type=\"3\" impname=\"B\"/><FIELD name=\"B\" type=\"3\" impname=\"C\"/></RECORD>"
         "<RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>");
  EXPECT_EQ((std::vector<std::string>{"a1", "a2"}), Texts(Data(), Values("R", "X")));
  EXPECT_EQ((std::vector<std::string>{"b1", "b2"}), Texts(Data(), Values("R", "A")));
  EXPECT_EQ((std::vector<std::string>{"1", "2"}), Texts(Data(), Values("R", "B")));
  EXPECT_TRUE(Texts(Data(), Values("R", "C")).empty());
}

TEST_F(RenamerTest, RecordIdsAndFieldsOfParentAndChildTakeTheNewNames) {
  std::shared_ptr<TransformDefinition> definition =
      Rename("<RECORD id=\"ORDER\" parentid=\"\" imptranid=\"R\"><FIELD name=\"NUM\" type=\"3\" impname=\"A\"/>"
             "<FIELD name=\"B\" type=\"3\"/><FIELD name=\"C\" type=\"1\"/></RECORD>"
             "<RECORD id=\"LINE\" parentid=\"ORDER\" imptranid=\"L\"><FIELD name=\"WHAT\" type=\"3\" impname=\"ITEM\"/>"
             "</RECORD>");
  EXPECT_TRUE(Data().GetNodesFromXPath("//RECORDS[@id='R' or @id='L']").empty());
  EXPECT_EQ((std::vector<std::string>{"a1", "a2"}),
            Texts(Data(), "/DATA/RECORDS[@id='ORDER']/RECORD/FIELD[@name='NUM']/VALUES/VALUE"));
  EXPECT_EQ((std::vector<std::string>{"item1", "item2"}),
            Texts(Data(), "/DATA/RECORDS[@id='ORDER']/RECORD/RECORDS[@id='LINE']/RECORD/FIELD[@name='WHAT']/VALUES/VALUE"));

  // A factory of the new definition reads the renamed document.
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(definition);
  factory->SetData(input_->Data());
  Ref<TransactionSelector> selector = factory->CreateTransactionSelector();
  selector->SetReturnTransaction("LINE");
  selector->AddSearch("LINE", "WHAT='item2'");
  selector->OpenResultset();
  selector->MoveFirst();
  ASSERT_FALSE(selector->EOF_());
  EXPECT_EQ("a2", selector->Item()->ParentTransaction()->GetFieldValues("NUM").ToString());
}

TEST_F(RenamerTest, RecordIdIsReplacedAsTextThroughTheWholePath) {
  // The path of ORD, spelled with R for ORD, becomes /DATA/RECRS[@id='R']:
  // the element names hold the same letters, so no container is found.
  Rename("<RECORD id=\"ORD\" parentid=\"\" imptranid=\"R\"><FIELD name=\"A\" type=\"3\"/></RECORD>");
  EXPECT_EQ(1u, Data().GetNodesFromXPath("/DATA/RECORDS[@id='R']").size());
  EXPECT_TRUE(Data().GetNodesFromXPath("//RECORDS[@id='ORD']").empty());
}

TEST_F(RenamerTest, DefinitionWithoutImportsLeavesTheDataAsItIs) {
  const std::string before = Data().ToString();
  Rename("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"A\" type=\"3\"/><FIELD name=\"Q\" type=\"3\" impname=\"Q\"/>"
         "</RECORD><RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>");
  EXPECT_EQ(before, Data().ToString());
}

TEST_F(RenamerTest, FieldMissingFromTheDataIsPassedOver) {
  Rename("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"NEW\" type=\"3\" impname=\"NOSUCH\"/>"
         "<FIELD name=\"AA\" type=\"3\" impname=\"A\"/></RECORD>"
         "<RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>");
  EXPECT_TRUE(Data().GetNodesFromXPath("//FIELD[@name='NEW']").empty());
  EXPECT_EQ((std::vector<std::string>{"a1", "a2"}), Texts(Data(), Values("R", "AA")));
}

TEST_F(RenamerTest, DeleteFieldsRemovesInputFieldsThatNothingImports) {
  // L's definition imports a field named C, which must not save R's C.
  Rename("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"A\" type=\"3\" impname=\"A\"/>"
         "<FIELD name=\"BB\" type=\"3\" impname=\"B\"/></RECORD>"
         "<RECORD id=\"L\" parentid=\"R\"><FIELD name=\"ITEM\" type=\"3\" impname=\"ITEM\"/>"
         "<FIELD name=\"X\" type=\"3\" impname=\"C\"/></RECORD>",
         true);
  EXPECT_EQ((std::vector<std::string>{"a1", "a2"}), Texts(Data(), Values("R", "A")));
  EXPECT_EQ((std::vector<std::string>{"b1", "b2"}), Texts(Data(), Values("R", "BB")));
  EXPECT_TRUE(Data().GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='C' or @name='B']").empty());
  EXPECT_EQ((std::vector<std::string>{"item1", "item2"}), Texts(Data(), Values("L", "ITEM")));
}

TEST_F(RenamerTest, NoFreeTemporaryNameRaises8280) {
  std::string taken;
  for (int l = 0; l < 50; ++l) taken += "<FIELD name=\"B_" + std::to_string(l) + "\" type=\"3\"/>";
  Error error = CatchError([&] {
    Rename("<RECORD id=\"R\" parentid=\"\"><FIELD name=\"B\" type=\"3\" impname=\"A\"/>"
           "<FIELD name=\"A\" type=\"3\" impname=\"B\"/>" + taken + "</RECORD>");
  });
  EXPECT_EQ(8280, error.number());
  EXPECT_NE(std::string::npos,
            error.description().find("Could not determine unique temporary id on field rename for [B]"))
      << error.description();
}

TEST_F(RenamerTest, DeleteFieldsWithoutAPreviousDefinitionFails) {
  TransactionRenamer renamer;
  renamer.Init(input_->Data(), MakeDefinition(Transform("<RECORD id=\"R\" parentid=\"\"/>")), nullptr, true);
  EXPECT_EQ(91, CatchError([&] { renamer.RenameDataSetFromTransformDef(); }).number());
}

}  // namespace
}  // namespace tessel::test
