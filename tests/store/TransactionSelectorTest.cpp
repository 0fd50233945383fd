#include <gtest/gtest.h>

#include "store/DataNodes.h"
#include "store/TransactionSelector.h"
#include "tests/store/StoreFixture.h"

namespace tessel {
namespace {

using test::AddOrder;
using test::CatchError;
using test::MakeDefinition;
using test::MakeFactory;
using test::TopContext;

std::string QueryFor(const std::string& returnId, const std::string& searchId, const std::string& search) {
  TransactionSelectStringBldr builder(MakeDefinition());
  builder.SetReturnTransaction(returnId);
  builder.AddSearch(searchId, search);
  return builder.XPath();
}

TEST(TransactionSelectorTest, TheQueriesAreBuiltAsTheLanguageSays) {
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "*"), "/DATA/RECORDS[@id='ORDER']/RECORD[./*]");
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "NUMBER='1'"),
            "/DATA/RECORDS[@id='ORDER']/RECORD[./ FIELD[@name='NUMBER']/VALUES/VALUE[.='1']]");
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "NUMBER='1' and QTY >2"),
            "/DATA/RECORDS[@id='ORDER']/RECORD[./ FIELD[@name='NUMBER']/VALUES/VALUE[.='1'] and "
            "FIELD[@name='QTY']/VALUES/VALUE[.>'2']]");
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "NOTE=''"), "/DATA/RECORDS[@id='ORDER']/RECORD[./ FIELD[@name='NOTE']/VALUES]");
  EXPECT_EQ(QueryFor("ORDER", "LINE", "ITEM='a'"),
            "/DATA/RECORDS/RECORD[./RECORDS[@id='LINE']/RECORD[./ FIELD[@name='ITEM']/VALUES/VALUE[.='a']]]");
  EXPECT_EQ(QueryFor("LINE", "LINE", "*"), "/DATA/RECORDS/RECORD/RECORDS[@id='LINE']/RECORD[./*]");
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "NUMBER='it\\'s'"),
            "/DATA/RECORDS[@id='ORDER']/RECORD[./ FIELD[@name='NUMBER']/VALUES/VALUE[.=\"it's\"]]");
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "NUMBER='a\\'b\\'c'"),
            "/DATA/RECORDS[@id='ORDER']/RECORD[./ FIELD[@name='NUMBER']/VALUES/VALUE[.=concat('a', \"'\", 'b', \"'\", 'c')]]");
}

TEST(TransactionSelectorTest, EscapingPutsABackslashBeforeEachQuote) {
  EXPECT_EQ(TransactionSelectStringBldr::EscapeValue("a'b\"c"), "a\\'b\\\"c");
  EXPECT_EQ(TransactionSelectStringBldr::DeEscapeValue("a\\'b\\\"c\\d"), "a'b\"c\\d");
}

TEST(TransactionSelectorTest, TheTokeniserQuirkSwallowsAGreaterThanWithoutABlank) {
  // "QTY>2": "<>" matches "Y>" (its first character is not binding), leaving
  // the field name "QT" and the operator "Y>", which is no valid XPath.
  EXPECT_EQ(QueryFor("ORDER", "ORDER", "QTY>2"),
            "/DATA/RECORDS[@id='ORDER']/RECORD[./ FIELD[@name='QT']/VALUES/VALUE[.Y>'2']]");
}

class SelectorSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto context = TopContext(*factory);
    for (int i = 1; i <= 4; ++i) {
      Ref<Transaction> order = AddOrder(*factory, *context, std::to_string(i));
      order->SetFieldValue("QTY", Variant(int32_t{i * 10}));
      if (i == 2) {
        order->SetFieldValue("NOTE", Variant("it's"));
        order->SetFieldValue("NOTE", Variant("x"));
        Ref<TransactionContext> at = order->Context();
        Ref<Transaction> line = factory->CreateTransaction("LINE");
        line->SetFieldValue("ITEM", Variant("bolt"));
        factory->AddTransaction(*line, *at);
      }
    }
  }

  std::vector<std::string> Find(const std::string& returnId, const std::string& searchId, const std::string& search) {
    Ref<TransactionSelector> s = factory->CreateTransactionSelector();
    s->SetReturnTransaction(returnId);
    s->AddSearch(searchId, search);
    s->OpenResultset();
    std::vector<std::string> found;
    for (s->MoveFirst(); !s->EOF_(); s->MoveNext()) {
      Ref<Transaction> t = s->Item();
      found.push_back(t->GetFieldValues(returnId == "ORDER" ? "NUMBER" : "ITEM").ToString());
    }
    return found;
  }

  std::shared_ptr<TransactionFactory> factory = MakeFactory();
};

TEST_F(SelectorSearchTest, SearchesFindTheirRecords) {
  EXPECT_EQ(Find("ORDER", "ORDER", "*"), (std::vector<std::string>{"1", "2", "3", "4"}));
  EXPECT_EQ(Find("ORDER", "ORDER", "NUMBER='3'"), (std::vector<std::string>{"3"}));
  EXPECT_EQ(Find("ORDER", "ORDER", "QTY >15 and QTY <35"), (std::vector<std::string>{"2", "3"}));
  EXPECT_EQ(Find("ORDER", "ORDER", "NUMBER='1' or NUMBER='4'"), (std::vector<std::string>{"1", "4"}));
  EXPECT_EQ(Find("ORDER", "ORDER", "NUMBER<>'1'"), (std::vector<std::string>{"2", "3", "4"}));
  EXPECT_EQ(Find("ORDER", "ORDER", "NOTE='x'"), (std::vector<std::string>{"2"}));  // any value of a multi-valued field
  EXPECT_EQ(Find("ORDER", "ORDER", "NOTE='it\\'s'"), (std::vector<std::string>{"2"}));
  EXPECT_EQ(Find("ORDER", "ORDER", "NOTE=''").size(), 4u);  // only asks for the field
  EXPECT_EQ(Find("ORDER", "LINE", "ITEM='bolt'"), (std::vector<std::string>{"2"}));
  EXPECT_EQ(Find("LINE", "LINE", "*"), (std::vector<std::string>{"bolt"}));
}

TEST_F(SelectorSearchTest, AStarSearchNeedsAChildElement) {
  auto empty = MakeFactory();
  auto context = TopContext(*empty);
  Ref<Transaction> record = empty->CreateTransaction("EMPTY");
  empty->AddTransaction(*record, *context);
  Ref<TransactionSelector> s = empty->CreateTransactionSelector();
  s->SetReturnTransaction("EMPTY");
  s->AddSearch("EMPTY", "*");
  s->OpenResultset();
  EXPECT_EQ(s->Count(), 0);
  EXPECT_EQ(empty->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD").size(), 1u);
}

TEST_F(SelectorSearchTest, AnApostropheInAFieldNameBreaksTheQuery) {
  Ref<TransactionSelector> s = factory->CreateTransactionSelector();
  s->SetReturnTransaction("ORDER");
  s->AddSearch("ORDER", "NUM'BER='1'");
  EXPECT_NE(CatchError([&] { s->OpenResultset(); }).number(), 0);
}

TEST_F(SelectorSearchTest, ASelectorFromAContextSearchesBelowIt) {
  Ref<TransactionSelector> orders = factory->CreateTransactionSelector();
  orders->SetReturnTransaction("ORDER");
  orders->AddSearch("ORDER", "NUMBER='2'");
  orders->OpenResultset();
  orders->MoveFirst();
  Ref<TransactionContext> at = orders->Item()->Context();

  Ref<TransactionSelector> lines = factory->CreateTransactionSelector(nullptr, at.get());
  EXPECT_EQ(lines->Builder().ContextRecordId(), "ORDER");
  lines->SetReturnTransaction("LINE");
  lines->AddSearch("LINE", "ITEM='bolt'");
  EXPECT_EQ(lines->XPath(), "RECORDS[@id='LINE']/RECORD[./ FIELD[@name='ITEM']/VALUES/VALUE[.='bolt']]");
  lines->OpenResultset();
  EXPECT_EQ(lines->Count(), 1);

  Error e = CatchError([&] { lines->AddSearch("EMPTY", "*"); });
  EXPECT_EQ(e.number(), 8153);
  EXPECT_NE(CatchError([&] { lines->SetReturnTransaction("EMPTY"); }).description().find(
                "Cannot set the return transaction which is parent to the current context."),
            std::string::npos);

  Ref<TransactionContext> top = TopContext(*factory);
  EXPECT_EQ(CatchError([&] { factory->CreateTransactionSelector(nullptr, top.get()); }).number(), 8151);
}

TEST_F(SelectorSearchTest, TheCoordinatorsCountIsTheNumberOfTopRecords) {
  Ref<TransactionSelector> s = factory->CreateTransactionSelector();
  s->SetReturnTransaction("ORDER");
  s->AddSearch("ORDER", "*");
  s->OpenResultset();
  s->MoveFirst();
  EXPECT_EQ(s->Count(), 4);
}

// Selecting all records of a type is answered without XPath; whatever the
// document holds, the answer must be the one XPath gives for the query.
TEST(TransactionSelectorTest, AllRecordsOfATypeAreWhatTheirQueryFinds) {
  auto factory = MakeFactory();
  Ref<XMLWrapper> data = MakeRef<XMLWrapper>();
  data->LoadXML(
      "<?xml version=\"1.0\"?><!-- c --><DATA xmlns:n=\"urn:n\">"
      "<RECORDS id=\"LINE\"><RECORD n=\"l1\"><FIELD/></RECORD></RECORDS>"
      "<RECORDS id=\"ORDER\"><RECORD n=\"1\"><FIELD name=\"NUMBER\"/>"
      "<RECORDS id=\"ORDER\"><RECORD n=\"nested\"><FIELD/></RECORD></RECORDS>"
      "<RECORDS id=\"LINE\"><RECORD n=\"l2\"><FIELD/></RECORD><RECORD n=\"l3\"><n:X/></RECORD></RECORDS></RECORD>"
      "<RECORD n=\"text only\">text</RECORD><RECORD n=\"empty\"/><OTHER><FIELD/></OTHER>"
      "<n:RECORD n=\"namespaced\"><FIELD/></n:RECORD><!-- c --><RECORD n=\"2\"> <n:Y/></RECORD></RECORDS>"
      "<RECORDS n:id=\"ORDER\"><RECORD n=\"foreign id\"><FIELD/></RECORD></RECORDS>"
      "<RECORDS id=\"ORDER \"><RECORD n=\"id with blank\"><FIELD/></RECORD></RECORDS>"
      "<RECORDS id=\"ORDER\"><RECORD n=\"3\"><FIELD/></RECORD></RECORDS>"
      "</DATA>");
  factory->SetData(data);
  auto names = [](const std::vector<xmlNodePtr>& nodes) {
    std::string out;
    for (xmlNodePtr node : nodes) out += "[" + DataNodes::AttributeValue(DataNodes::FindAttribute(node, "n")) + "]";
    return out;
  };
  auto selected = [&](const std::string& id, TransactionContext* context) {
    Ref<TransactionSelector> selector = factory->CreateTransactionSelector(nullptr, context);
    selector->SetReturnTransaction(id);
    selector->AddSearch(id, "*");
    selector->OpenResultset();
    std::vector<xmlNodePtr> nodes;
    for (selector->MoveFirst(); !selector->EOF_(); selector->MoveNext()) nodes.push_back(selector->Item()->Data());
    return nodes;
  };
  EXPECT_EQ(names(selected("ORDER", nullptr)), "[1][2][3]");
  EXPECT_EQ(names(selected("ORDER", nullptr)), names(data->GetNodesFromXPath("/DATA/RECORDS[@id='ORDER']/RECORD[./*]")));
  Ref<TransactionContext> onFirst = data->CreateContext();
  onFirst->SetContext("/DATA/RECORDS[@id='ORDER'][1]/RECORD[1]");
  EXPECT_EQ(names(selected("LINE", onFirst.get())), "[l2][l3]");
  EXPECT_EQ(names(selected("LINE", onFirst.get())),
            names(data->GetNodesFromXPath("RECORDS[@id='LINE']/RECORD[./*]", onFirst->ContextNode())));
}

}  // namespace
}  // namespace tessel
