#include <gtest/gtest.h>

#include <regex>
#include <string_view>
#include <vector>
#include <thread>

#include "store/Attributes.h"
#include "store/TransactionSelector.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/TempDir.h"

namespace tessel {
namespace {

using test::AddOrder;
using test::CatchError;
using test::MakeFactory;
using test::TopContext;

// The serialised document with every timestamp replaced by a fixed text.
std::string Stable(const std::string& xml) {
  return std::regex_replace(xml, std::regex("timestamp=\"[0-9:]{12}\""), "timestamp=\"T\"");
}

TEST(TransactionFactoryTest, ANewFactorySerialisesToADeclarationAndAnEmptyData) {
  auto factory = MakeFactory();
  EXPECT_EQ(factory->Data()->ToString(), "<?xml version=\"1.0\"?>\n<DATA/>\n");
}

TEST(TransactionFactoryTest, TheDataDocumentHasTheFormatOfRecordsFieldsAndValues) {
  auto factory = MakeFactory("<TRANSFORM id=\"T\"><TRANSFORMDETAIL><RECORDS>"
                             "<RECORD id=\"ORDER\" parentid=\"\"><FIELD name=\"NUMBER\" type=\"3\"/>"
                             "<FIELD name=\"NOTE\" type=\"3\"/></RECORD>"
                             "<RECORD id=\"LINE\" parentid=\"ORDER\"><FIELD name=\"ITEM\" type=\"3\"/></RECORD>"
                             "</RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  auto context = TopContext(*factory, true);
  Ref<Transaction> order = factory->CreateTransaction("ORDER", "first");
  order->SetFieldValue("NUMBER", Variant("1001"));
  factory->AddTransaction(*order, *context);
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  line->SetFieldValue("ITEM", Variant("A & B"));
  factory->AddTransaction(*line, *context);

  EXPECT_EQ(Stable(factory->Data()->ToString()),
            "<?xml version=\"1.0\"?>\n"
            "<DATA><RECORDS id=\"ORDER\"><RECORD name=\"first\" timestamp=\"T\">"
            "<FIELD name=\"NUMBER\"><VALUES><VALUE>1001</VALUE></VALUES></FIELD>"
            "<FIELD name=\"NOTE\"><VALUES/></FIELD>"
            "<RECORDS id=\"LINE\"><RECORD timestamp=\"T\"><FIELD name=\"ITEM\"><VALUES><VALUE>A &amp; B</VALUE>"
            "</VALUES></FIELD></RECORD></RECORDS>"
            "</RECORD></RECORDS></DATA>\n");
}

TEST(TransactionFactoryTest, ASavedDocumentLoadsBackIntoAnEqualStore) {
  test::TempDir dir;
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  for (int i = 0; i < 3; ++i) {
    Ref<Transaction> order = factory->CreateTransaction("ORDER");
    order->SetFieldValue("NUMBER", Variant(" value " + std::to_string(i) + "  with blanks and a longer text "));
    order->SetFieldValue("NOTE", Variant("a"));
    order->SetFieldValue("NOTE", Variant("b"));
    order->SetSummary("sum");
    factory->AddTransaction(*order, *context);
    Ref<Transaction> line = factory->CreateTransaction("LINE");
    line->SetFieldValue("QTY", Variant(int32_t{i}));
    factory->AddTransaction(*line, *context);
    context->SetNode(order->Data());
  }
  std::string file = (dir / "data.xml").string();
  factory->Data()->SaveDocument(file);

  auto loaded = MakeFactory();
  Ref<XMLWrapper> wrapper = MakeRef<XMLWrapper>();
  wrapper->OpenXMLDocument(file);
  loaded->SetData(wrapper);
  EXPECT_EQ(loaded->Data()->ToString(), factory->Data()->ToString());

  Ref<TransactionSelector> selector = loaded->CreateTransactionSelector();
  selector->SetReturnTransaction("ORDER");
  selector->AddSearch("ORDER", "*");
  selector->OpenResultset();
  selector->MoveFirst();
  ASSERT_EQ(selector->Count(), 3);
  Ref<Transaction> first = selector->Item();
  EXPECT_EQ(first->GetFieldValues("NUMBER").ToString(), " value 0  with blanks and a longer text ");
  EXPECT_EQ(first->GetFieldValues("NOTE").ArrayValue().Count(), 2u);
  EXPECT_EQ(first->Summary(), "sum");
  selector->MoveChild("LINE");
  EXPECT_EQ(selector->Item()->GetFieldValues("QTY").ToString(), "0");
}

// Records share what they took from their record type's template (texts of
// field names, the time stamp of a millisecond); each must stay whole when
// the factory goes, when the others change and when they go themselves.
TEST(TransactionFactoryTest, RecordsOutliveTheirFactoryAndEachOther) {
  Ref<XMLWrapper> data;
  std::string expected;
  Ref<XMLWrapper> elsewhere = MakeRef<XMLWrapper>();
  elsewhere->LoadXML("<?xml version=\"1.0\"?><COPIES/>");
  Ref<Transaction> copied = MakeRef<Transaction>();
  {
    auto factory = MakeFactory();
    auto context = TopContext(*factory, true);
    for (int i = 0; i < 50; ++i) AddOrder(*factory, *context, std::to_string(i));
    data = factory->Data();
    expected = data->ToString();
    // Copies into another document and into a record of its own.
    Ref<Transaction> first = factory->TransactionAtNode(data->GetNodeFromXPath("/DATA/RECORDS/RECORD[1]"));
    elsewhere->AddElement(first->Data(), elsewhere->GetNodeFromXPath("/COPIES"));
    first->CopyTransaction(*copied);
  }
  const std::string copyText = XMLWrapper::NodeXml(elsewhere->GetNodeFromXPath("/COPIES/RECORD"));
  EXPECT_NE(copyText.find("<FIELD name=\"NUMBER\"><VALUES><VALUE>0</VALUE></VALUES></FIELD><FIELD name=\"QTY\">"),
            std::string::npos);
  EXPECT_EQ(XMLWrapper::NodeXml(copied->Data()), copyText);
  // Memory the factory gave back is taken again by a document of other names.
  auto other = MakeFactory("<TRANSFORM id=\"T\"><TRANSFORMDETAIL><RECORDS><RECORD id=\"X\" parentid=\"\">"
                           "<FIELD name=\"AAAAAA\" type=\"3\"/><FIELD name=\"BBBBBB\" type=\"3\"/>"
                           "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  auto otherContext = TopContext(*other, true);
  for (int i = 0; i < 200; ++i) other->AddTransaction(*other->CreateTransaction("X"), *otherContext);
  EXPECT_EQ(data->ToString(), expected);
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='NUMBER']").size(), 50u);

  // Changing or removing the attributes of one record leaves the others.
  data->SetValueToNode(data->GetNodeFromXPath("/DATA/RECORDS/RECORD[1]/FIELD[@name='NOTE']/@name"), Variant("MEMO"),
                       false);
  data->DeleteNode(data->GetNodeFromXPath("/DATA/RECORDS/RECORD[2]/FIELD[@name='QTY']/@name"));
  data->SetValueToNode(data->GetNodeFromXPath("/DATA/RECORDS/RECORD[3]/@timestamp"), Variant("changed"), false);
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='NOTE']").size(), 49u);
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='MEMO']").size(), 1u);
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='QTY']").size(), 49u);
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD[@timestamp='changed']").size(), 1u);
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD[string-length(@timestamp)=12]").size(), 49u);

  // A record removed and the rest carried on by a new factory.
  data->DeleteNode(data->GetNodeFromXPath("/DATA/RECORDS/RECORD[4]"));
  auto next = MakeFactory();
  next->SetData(data);
  auto context = TopContext(*next, true);
  AddOrder(*next, *context, "new");
  EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='NUMBER']").size(), 50u);
  EXPECT_EQ(XMLWrapper::NodeText(data->GetNodeFromXPath("/DATA/RECORDS/RECORD[50]/FIELD[@name='NUMBER']")), "new");
  Ref<XMLWrapper> reloaded = MakeRef<XMLWrapper>();
  reloaded->LoadXML(data->ToString());
  EXPECT_EQ(reloaded->ToString(), data->ToString());
  data = nullptr;
  next = nullptr;
  EXPECT_EQ(XMLWrapper::NodeXml(elsewhere->GetNodeFromXPath("/COPIES/RECORD")), copyText);
  EXPECT_EQ(copied->GetFieldValues("NUMBER").ToString(), "0");
}

// Documents of one factory freed on other threads while the factory goes on
// making records from the same templates.
TEST(TransactionFactoryTest, DocumentsFreedOnOtherThreadsLeaveTheFactorysRecordsWhole) {
  auto factory = MakeFactory();
  std::vector<std::thread> freers;
  for (int round = 0; round < 8; ++round) {
    Ref<XMLWrapper> data = MakeRef<XMLWrapper>();
    data->LoadXML("<?xml version=\"1.0\"?><DATA/>");
    factory->SetData(data);
    auto context = TopContext(*factory, true);
    for (int i = 0; i < 2000; ++i) AddOrder(*factory, *context, std::to_string(i));
    EXPECT_EQ(data->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='PRICE']").size(), 2000u);
    context = nullptr;
    factory->SetData(MakeRef<XMLWrapper>());
    freers.emplace_back([held = std::move(data)]() mutable { held = nullptr; });
  }
  for (auto& thread : freers) thread.join();
  Ref<XMLWrapper> last = MakeRef<XMLWrapper>();
  last->LoadXML("<?xml version=\"1.0\"?><DATA/>");
  factory->SetData(last);
  auto context = TopContext(*factory, true);
  AddOrder(*factory, *context, "last");
  EXPECT_EQ(Stable(XMLWrapper::NodeXml(last->GetNodeFromXPath("/DATA/RECORDS/RECORD"))),
            "<RECORD timestamp=\"T\"><FIELD name=\"NUMBER\"><VALUES><VALUE>last</VALUE></VALUES></FIELD>"
            "<FIELD name=\"QTY\"><VALUES/></FIELD><FIELD name=\"NOTE\"><VALUES/></FIELD>"
            "<FIELD name=\"LOCKED\"><VALUES/></FIELD><FIELD name=\"PRICE\"><VALUES/></FIELD>"
            "<FIELD name=\"WHEN\"><VALUES/></FIELD><FIELD name=\"OK\"><VALUES/></FIELD>"
            "<FIELD name=\"BLOB\"><VALUES/></FIELD><FIELD name=\"CODES\"><VALUES/></FIELD></RECORD>");
}

TEST(TransactionFactoryTest, MergeAddsTheTopRecordsOfAnotherFile) {
  test::TempDir dir;
  auto source = MakeFactory();
  auto context = TopContext(*source);
  AddOrder(*source, *context, "1");
  AddOrder(*source, *context, "2");
  source->Data()->SaveDocument((dir / "a.xml").string());

  auto target = MakeFactory();
  auto targetContext = TopContext(*target);
  AddOrder(*target, *targetContext, "0");
  target->Merge((dir / "a.xml").string());
  std::vector<xmlNodePtr> records = target->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD");
  ASSERT_EQ(records.size(), 3u);
  EXPECT_EQ(target->Data()->GetNodesFromXPath("/DATA/RECORDS").size(), 1u);
  EXPECT_EQ(target->TransactionAtNode(records[2])->GetFieldValues("NUMBER").ToString(), "2");
}

TEST(TransactionFactoryTest, ARecordWithoutFieldsIsAnEmptyRecord) {
  auto factory = MakeFactory();
  Ref<Transaction> empty = factory->CreateTransaction("EMPTY");
  EXPECT_EQ(empty->Data()->children, nullptr);
  EXPECT_EQ(empty->FieldCount(), 0);
  EXPECT_TRUE(empty->IsEmpty());
}

TEST(TransactionFactoryTest, ANumericIdSelectsTheRecordTypeByPosition) {
  auto factory = MakeFactory();
  EXPECT_EQ(factory->CreateTransaction("2")->TransactionId(), "LINE");
}

TEST(TransactionFactoryTest, AnUnknownRecordIdRaises7703) {
  auto factory = MakeFactory();
  EXPECT_EQ(CatchError([&] { factory->CreateTransaction("NOPE"); }).number(), 7703);
}

TEST(TransactionFactoryTest, ADuplicateFieldIsRefusedWith8020AndAMissingTypeWith8021) {
  auto duplicate = MakeFactory("<TRANSFORM><TRANSFORMDETAIL><RECORDS><RECORD id=\"R\" parentid=\"\">"
                               "<FIELD name=\"A\" type=\"3\"/><FIELD name=\"A\" type=\"3\"/>"
                               "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  Error e = CatchError([&] { duplicate->CreateTransaction("R"); });
  EXPECT_EQ(e.number(), 8020);
  EXPECT_NE(e.description().find("Duplicate field in record [R]."), std::string::npos);

  auto untyped = MakeFactory("<TRANSFORM><TRANSFORMDETAIL><RECORDS><RECORD id=\"R\" parentid=\"\">"
                             "<FIELD name=\"A\"/></RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  e = CatchError([&] { untyped->CreateTransaction("R"); });
  EXPECT_EQ(e.number(), 8021);
  EXPECT_NE(e.description().find("Field [A] is missing the [type] attribute."), std::string::npos);
}

TEST(TransactionFactoryTest, TwoRecordsOfOneTypeShareOneContainer) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  AddOrder(*factory, *context, "1");
  AddOrder(*factory, *context, "2");
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS").size(), 1u);
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD").size(), 2u);
  EXPECT_STREQ(reinterpret_cast<const char*>(context->ContextNode()->name), "RECORD");
}

TEST(TransactionFactoryTest, AContextOnAChildNestsTheNextParentRecordUnderIt) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  AddOrder(*factory, *context, "1");
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  factory->AddTransaction(*line, *context);
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD/RECORDS[@id='LINE']/RECORD").size(), 1u);
  AddOrder(*factory, *context, "2");
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("//RECORDS[@id='LINE']/RECORD/RECORDS[@id='ORDER']/RECORD").size(),
            1u);
}

TEST(TransactionFactoryTest, AContextWithoutAutoUpdateStaysWhereItWas) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, false);
  xmlNodePtr top = context->ContextNode();
  AddOrder(*factory, *context, "1");
  EXPECT_EQ(context->ContextNode(), top);
  AddOrder(*factory, *context, "2");
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD").size(), 2u);
}

TEST(TransactionFactoryTest, AttributesGivenToAddTransactionLandOnTheRecordAndLeaveTheBag) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory);
  Ref<Attributes> bag = MakeRef<Attributes>();
  bag->Add("origin", Variant("file.csv"));
  Ref<Transaction> order = factory->CreateTransaction("ORDER");
  factory->AddTransaction(*order, *context, bag.get());
  EXPECT_EQ(order->TranAttribute("origin"), "file.csv");
  EXPECT_EQ(bag->AttributeByName("origin"), "");
}

TEST(TransactionFactoryTest, ClearDataLeavesDataAndTheRecordTypesStillWork) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory);
  AddOrder(*factory, *context, "1");
  factory->ClearData();
  EXPECT_EQ(factory->Data()->ToString(), "<?xml version=\"1.0\"?>\n<DATA/>\n");
  AddOrder(*factory, *context, "2");
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD").size(), 1u);
}

TEST(TransactionFactoryTest, GetTransactionViewsTheRecordAtAContext) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  Ref<Transaction> order = AddOrder(*factory, *context, "7");
  Ref<Transaction> view = factory->GetTransaction(*context);
  EXPECT_EQ(view->Data(), order->Data());
  EXPECT_EQ(view->GetFieldValues("NUMBER").ToString(), "7");
}

TEST(TransactionFactoryTest, AReconstructedTransactionReadsItsOwnRecord) {
  auto factory = MakeFactory();
  Ref<Transaction> view = factory->ReconstructTransaction(
      "ORDER", "<RECORD timestamp=\"01:02:03:004\"><FIELD name=\"NUMBER\"><VALUES><VALUE>9</VALUE></VALUES></FIELD></RECORD>");
  EXPECT_EQ(view->GetFieldValues("NUMBER").ToString(), "9");
  EXPECT_EQ(view->TranAttribute("timestamp"), "01:02:03:004");
  view->SetFieldValue("QTY", Variant("3"));
  EXPECT_EQ(view->GetFieldValues("QTY").ToString(), "3");
  EXPECT_EQ(factory->Data()->ToString(), "<?xml version=\"1.0\"?>\n<DATA/>\n");
}

TEST(TransactionFactoryTest, TransactionExistsAnswersAsTheKeySearchDoes) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  Ref<Transaction> order = AddOrder(*factory, *context, "1");
  order->SetFieldValue("QTY", Variant("5"));
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  line->SetFieldValue("ITEM", Variant("A'B"));
  factory->AddTransaction(*line, *context);

  auto exists = [&](const std::string& id, std::vector<std::string> names, std::vector<std::string> values) {
    bool indexed = factory->TransactionExists(id, names, values);
    std::string query;
    for (size_t i = 0; i < names.size(); ++i) {
      query += (i ? " and " : "") + names[i] + "='" + TransactionSelectStringBldr::EscapeValue(values[i]) + "'";
    }
    Ref<TransactionSelector> selector = factory->CreateTransactionSelector();
    selector->SetReturnTransaction(id);
    selector->AddSearch(id, query);
    selector->OpenResultset();
    selector->MoveFirst();
    EXPECT_EQ(indexed, !selector->EOF_() && !selector->BOF()) << query;
    return indexed;
  };
  EXPECT_TRUE(exists("ORDER", {"NUMBER"}, {"1"}));
  EXPECT_FALSE(exists("ORDER", {"NUMBER"}, {"2"}));
  EXPECT_TRUE(exists("ORDER", {"NUMBER", "QTY"}, {"1", "5"}));
  EXPECT_FALSE(exists("ORDER", {"NUMBER", "QTY"}, {"1", "6"}));
  EXPECT_TRUE(exists("ORDER", {"NUMBER", "NOTE"}, {"1", ""}));
  EXPECT_TRUE(exists("LINE", {"ITEM"}, {"A'B"}));
  EXPECT_FALSE(exists("LINE", {"ITEM"}, {"A"}));

  // Records added later, and records changed in the tree, are seen.
  context->SetNode(order->Data());
  AddOrder(*factory, *context, "2");
  EXPECT_TRUE(exists("ORDER", {"NUMBER"}, {"2"}));
  order->SetFieldValue("NUMBER", Variant("9"), true);
  EXPECT_FALSE(exists("ORDER", {"NUMBER"}, {"1"}));
  EXPECT_TRUE(exists("ORDER", {"NUMBER"}, {"9"}));
  order->SetFieldValue("NOTE", Variant("x"));
  order->SetFieldValue("NOTE", Variant("y"));
  EXPECT_TRUE(exists("ORDER", {"NOTE"}, {"y"}));
}

TEST(TransactionFactoryViews, AViewHeldIsNeverHandedOutAgainAndOneLetGoKeepsNothingOfItsRecord) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  Ref<Transaction> order = AddOrder(*factory, *context, "1");
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  line->SetFieldValue("ITEM", Variant("pen"));
  factory->AddTransaction(*line, *context);
  xmlNodePtr orderNode = order->Data();
  xmlNodePtr lineNode = line->Data();
  order.reset();
  line.reset();

  Ref<Transaction> first = factory->TransactionAtNode(orderNode);
  Ref<Transaction> second = factory->TransactionAtNode(lineNode);
  ASSERT_NE(first.get(), second.get());
  EXPECT_EQ(first->TransactionId(), "ORDER");
  EXPECT_EQ(second->TransactionId(), "LINE");
  EXPECT_EQ(first->GetFieldValues("NUMBER").ToString(), "1");
  EXPECT_EQ(second->GetFieldValues("ITEM").ToString(), "pen");

  // Let go, a view may come back for another record: it answers for that
  // record only (type, fields, parent).
  second.reset();
  Ref<Transaction> again = factory->TransactionAtNode(orderNode);
  EXPECT_EQ(again->TransactionId(), "ORDER");
  EXPECT_EQ(again->ParentId(), "");
  EXPECT_EQ(again->GetFieldValues("NUMBER").ToString(), "1");
  EXPECT_EQ(CatchError([&] { again->GetFieldValues("ITEM"); }).number(), 8103);
  EXPECT_EQ(first->GetFieldValues("NUMBER").ToString(), "1");
  again.reset();
  first.reset();
  Ref<Transaction> child = factory->TransactionAtNode(lineNode);
  EXPECT_EQ(child->TransactionId(), "LINE");
  EXPECT_EQ(child->ParentId(), "ORDER");
  EXPECT_EQ(child->GetFieldValues("ITEM").ToString(), "pen");
  child.reset();
  Ref<Transaction> made = factory->CreateTransaction("ORDER");
  EXPECT_EQ(made->TransactionId(), "ORDER");
  EXPECT_TRUE(made->GetFieldValues("NUMBER").ToString().empty());
  EXPECT_NE(made->Data(), orderNode);
}

// Records made at once with their texts, as readers make them.
constexpr const char* kRowDefinition =
    "<TRANSFORM id=\"T1\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
    "<RECORD id=\"ROW\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"A\" type=\"3\"/><FIELD name=\"B\" type=\"1\"/><FIELD name=\"C\" type=\"2\"/>"
    "<FIELD name=\"A_FIELD_WITH_A_LONG_NAME\" type=\"3\" allowmultiplevals=\"True\"/><FIELD name=\"E\" type=\"4\"/>"
    "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>";
const std::vector<std::string_view> kRowFields = {"A", "B", "C", "A_FIELD_WITH_A_LONG_NAME", "E"};

TEST(TransactionFactoryTexts, ARecordMadeWithItsTextsIsTheRecordMadeFieldByField) {
  const std::vector<std::vector<std::string_view>> lines = {
      {"x", "12", "1.5", "note", "2024-01-02"},
      {"", "", "", "", ""},
      {"fifteen bytes..", "sixteen bytes...", "a text longer than any node holds", "\"quoted\"", " "},
      {"\"", "7", "", "caf\xC3\xA9", ""},
  };
  auto byTexts = MakeFactory(kRowDefinition);
  auto byFields = MakeFactory(kRowDefinition);
  ASSERT_TRUE(byTexts->TakesTextsInOrder("ROW", kRowFields));
  Ref<TransactionContext> textsContext = TopContext(*byTexts);
  Ref<TransactionContext> fieldsContext = TopContext(*byFields);
  for (const auto& line : lines) {
    Ref<Transaction> made = byTexts->CreateTransactionWithTexts("ROW", line);
    ASSERT_TRUE(made) << line[0];
    Ref<Transaction> general = byFields->CreateTransaction("ROW");
    for (size_t i = 0; i < line.size(); ++i) general->SetFieldText(kRowFields[i], line[i]);
    EXPECT_EQ(Stable(XMLWrapper::NodeXml(made->Data())), Stable(XMLWrapper::NodeXml(general->Data())));
    // The record is like any other afterwards: changed, read, added.
    made->SetFieldValue("A_FIELD_WITH_A_LONG_NAME", Variant("more"));
    general->SetFieldValue("A_FIELD_WITH_A_LONG_NAME", Variant("more"));
    made->SetFieldValue("A", Variant("changed"), true);
    general->SetFieldValue("A", Variant("changed"), true);
    EXPECT_EQ(made->GetFieldValues("B").ToString(), general->GetFieldValues("B").ToString());
    byTexts->AddTransaction(*made, *textsContext);
    byFields->AddTransaction(*general, *fieldsContext);
  }
  EXPECT_EQ(Stable(byTexts->Data()->ToString()), Stable(byFields->Data()->ToString()));
}

TEST(TransactionFactoryTexts, AQuotedTextOfAFieldThatIsNoStringIsLeftToTheFieldByFieldWay) {
  auto factory = MakeFactory(kRowDefinition);
  ASSERT_TRUE(factory->TakesTextsInOrder("ROW", kRowFields));
  // Set field by field, B would lose its quotes, or fail when it is a quote alone.
  EXPECT_FALSE(factory->CreateTransactionWithTexts("ROW", std::vector<std::string_view>{"a", "\"12\"", "", "", ""}));
  EXPECT_FALSE(factory->CreateTransactionWithTexts("ROW", std::vector<std::string_view>{"a", "", "\"", "", ""}));
  EXPECT_FALSE(factory->CreateTransactionWithTexts("ROW", std::vector<std::string_view>{"a", "1"}));
  Ref<Transaction> general = factory->CreateTransaction("ROW");
  general->SetFieldText("B", "\"12\"");
  EXPECT_EQ(general->GetFieldValues("B").ToString(), "12");
}

TEST(TransactionFactoryTexts, OnlyTheTypesFieldsInTheirOrderAndNoneBinaryTakeTexts) {
  auto factory = MakeFactory(kRowDefinition);
  EXPECT_FALSE(factory->TakesTextsInOrder("ROW", std::vector<std::string_view>{"B", "A", "C", "A_FIELD_WITH_A_LONG_NAME", "E"}));
  EXPECT_FALSE(factory->TakesTextsInOrder("ROW", std::vector<std::string_view>{"A", "B", "C", "A_FIELD_WITH_A_LONG_NAME"}));
  EXPECT_FALSE(factory->TakesTextsInOrder("ROW", std::vector<std::string_view>{"A", "B", "C", "A_FIELD_WITH_A_LONG_NAME", "E", "F"}));
  EXPECT_TRUE(factory->TakesTextsInOrder("ROW", kRowFields));
  // A binary field keeps its value in a file: the store's ORDER has one.
  auto orders = MakeFactory();
  EXPECT_FALSE(orders->TakesTextsInOrder(
      "ORDER", std::vector<std::string_view>{"NUMBER", "QTY", "NOTE", "LOCKED", "PRICE", "WHEN", "OK", "BLOB", "CODES"}));
  EXPECT_TRUE(orders->TakesTextsInOrder("LINE", std::vector<std::string_view>{"ITEM", "QTY"}));
  EXPECT_FALSE(orders->TakesTextsInOrder("EMPTY", std::vector<std::string_view>{}));
}

}  // namespace
}  // namespace tessel
