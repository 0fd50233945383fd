// MetaDataBuilder and the hierarchy helper's switches, through their public
// operations.
#include <gtest/gtest.h>

#include "input/CSVReader.h"
#include "input/HeirarchicalReaderHelper.h"
#include "input/MetaDataBuilder.h"
#include "store/Transaction.h"
#include "tests/input/ReadFixture.h"

namespace tessel::test {
namespace {

TEST(MetaDataBuilder, CopiesRecordsFieldsAndOptionsWithTheCallbacksAttributes) {
  auto source = DefinitionFrom(ReadTransformXml("src", "", {{"extra", "42"}},
                                                std::string(kOrderRecords) +
                                                    "<RECORD id=\"Z\" parentid=\"\" hashcode=\"9\">"
                                                    "<FIELD name=\"SYS.INPUTFILE\" type=\"3\" position=\"7\"/></RECORD>"));
  auto target = std::make_shared<TransactionFactory>();
  CSVReader callback;  // adds each field's position
  MetaDataBuilder builder;
  builder.InitialiseBuilder(target, &callback, source);
  builder.GenerateMetaData();
  TransformDefinition& made = *target->TransformDefinition();
  EXPECT_EQ(&made, builder.Definition().get());
  EXPECT_EQ("src", made.TransformId());
  EXPECT_EQ("42", made.Property("extra").ToString());
  ASSERT_EQ(3, made.RecordCount());
  XMLWrapper& doc = *made.TransformDefinitionXWrapper();
  xmlNodePtr line = made.RecordNode("L");
  EXPECT_EQ("H", made.RecordParentId(line));
  EXPECT_EQ("2", doc.GetAttributeFromNode(line, "hashcode"));
  xmlNodePtr item = doc.GetNodeFromXPath("FIELD[@name='ITEM']", line);
  EXPECT_EQ("2", doc.GetAttributeFromNode(item, "key"));
  EXPECT_EQ("3", doc.GetAttributeFromNode(item, "position"));
  EXPECT_EQ("False", doc.GetAttributeFromNode(item, "allowmultiplevals"));
  EXPECT_EQ("True", doc.GetAttributeFromNode(item, "overwritable"));
  xmlNodePtr qty = doc.GetNodeFromXPath("FIELD[@name='QTY']", line);
  EXPECT_FALSE(doc.HasAttribute(qty, "key"));
  // The new definition works for the store.
  Ref<Transaction> transaction = target->CreateTransaction("L");
  transaction->SetFieldValue("ITEM", Variant("bolt"));
  EXPECT_EQ("bolt", transaction->GetFieldValues("ITEM").ToString());
}

class HelperTest : public ::testing::Test {
 protected:
  void SetUp() override {
    factory_->SetTransformDefinition(DefinitionFrom(ReadTransformXml("t", "", {}, kOrderRecords)));
  }
  Ref<Transaction> Make(const std::string& id, const std::string& order, const std::string& item = {}) {
    Ref<Transaction> transaction = factory_->CreateTransaction(id);
    transaction->SetFieldValue("ORD", Variant(order));
    if (!item.empty()) transaction->SetFieldValue("ITEM", Variant(item));
    return transaction;
  }
  size_t Count(const std::string& xpath) { return factory_->Data()->GetNodesFromXPath(xpath).size(); }

  std::shared_ptr<TransactionFactory> factory_ = std::make_shared<TransactionFactory>();
};

TEST_F(HelperTest, CacheAndDuplicateParents) {
  HeirarchicalReaderHelper helper;
  helper.InitialiseHelper(factory_->TransformDefinition(), factory_, "H");
  EXPECT_TRUE(helper.CheckDuplicateKeys());
  EXPECT_EQ((std::vector<std::string>{"L"}), helper.DeepestChildren());
  EXPECT_EQ((std::vector<std::string>{"ORD", "ITEM"}), helper.CacheItem("L")->KeyNames());
  helper.InsertTransaction("H", *Make("H", "1"), nullptr);
  EXPECT_TRUE(helper.CacheItem("H")->IsValid);
  helper.InsertTransaction("L", *Make("L", "1", "a"), nullptr);
  helper.InsertTransaction("H", *Make("H", "2"), nullptr);
  // A parent seen before, after another: still no second copy.
  helper.InsertTransaction("H", *Make("H", "1"), nullptr);
  helper.InsertTransaction("L", *Make("L", "1", "b"), nullptr);
  EXPECT_EQ(2u, Count("/DATA/RECORDS[@id='H']/RECORD"));
  EXPECT_EQ(2u, Count("/DATA/RECORDS[@id='H']/RECORD[1]/RECORDS[@id='L']/RECORD"));
  EXPECT_EQ(0u, Count("/DATA/RECORDS[@id='H']/RECORD[2]/RECORDS"));

  HeirarchicalReaderHelper ignoring;
  ignoring.InitialiseHelper(factory_->TransformDefinition(), factory_, "H", std::vector<std::string>{"L"});
  EXPECT_EQ(nullptr, ignoring.CacheItem("L"));
  ASSERT_NE(nullptr, ignoring.CacheItem("H"));
  EXPECT_TRUE(ignoring.CacheItem("H")->ChildrenCacheObjects.empty());
}

TEST_F(HelperTest, WithoutDuplicateCheckEveryParentIsInserted) {
  HeirarchicalReaderHelper helper;
  helper.SetCheckDuplicateKeys(false);
  helper.InitialiseHelper(factory_->TransformDefinition(), factory_, "H");
  helper.InsertTransaction("H", *Make("H", "1"), nullptr);
  helper.InsertTransaction("H", *Make("H", "1"), nullptr);
  helper.InsertTransaction("L", *Make("L", "1", "a"), nullptr);
  EXPECT_EQ(2u, Count("/DATA/RECORDS[@id='H']/RECORD"));
  // The child goes under the last parent inserted.
  EXPECT_EQ(1u, Count("/DATA/RECORDS[@id='H']/RECORD[2]/RECORDS[@id='L']/RECORD"));
}

}  // namespace
}  // namespace tessel::test
