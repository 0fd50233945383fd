#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <sstream>

#include "core/SafeArray.h"
#include "store/DataNodes.h"
#include "store/XmlHeap.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/TempDir.h"

namespace tessel {
namespace {

using test::AddOrder;
using test::CatchError;
using test::MakeFactory;
using test::TopContext;

class TransactionTest : public ::testing::Test {
 protected:
  std::shared_ptr<TransactionFactory> factory = MakeFactory();
  Ref<Transaction> order = factory->CreateTransaction("ORDER");

  std::string Values(const std::string& field) {
    std::string out;
    for (xmlNodePtr value : factory->Data()->GetNodesFromXPath("FIELD[@name='" + field + "']/VALUES/VALUE", order->Data())) {
      xmlChar* text = xmlNodeGetContent(value);
      out += std::string("[") + reinterpret_cast<const char*>(text) + "]";
      xmlFree(text);
    }
    return out;
  }
};

TEST_F(TransactionTest, AnEmptyValueNeverClearsAField) {
  order->SetFieldValue("NUMBER", Variant("A"));
  order->SetFieldValue("NUMBER", Variant(""), true);
  order->SetFieldValue("NUMBER", Variant::Null(), true);
  order->SetFieldValue("NUMBER", Variant(), false);
  EXPECT_EQ(Values("NUMBER"), "[A]");
  order->UnsetField("NUMBER");
  EXPECT_EQ(Values("NUMBER"), "");
  EXPECT_FALSE(order->IsFieldSet("NUMBER"));
}

TEST_F(TransactionTest, QuotesAreDroppedForEveryTypeButString) {
  order->SetFieldValue("NUMBER", Variant("\"12\""));
  order->SetFieldValue("QTY", Variant("\"12\""));
  EXPECT_EQ(Values("NUMBER"), "[\"12\"]");
  EXPECT_EQ(Values("QTY"), "[12]");
  EXPECT_EQ(CatchError([&] { order->SetFieldValue("QTY", Variant("\"")); }).number(), 5);
}

TEST_F(TransactionTest, ASingleValuedFieldIsReplacedUnlessItsDefinitionForbids) {
  order->SetFieldValue("NUMBER", Variant("1"));
  order->SetFieldValue("NUMBER", Variant("2"));
  EXPECT_EQ(Values("NUMBER"), "[2]");

  order->SetFieldValue("LOCKED", Variant("first"));
  order->SetFieldValue("LOCKED", Variant("second"));
  EXPECT_EQ(Values("LOCKED"), "[first]");
  order->SetFieldValue("LOCKED", Variant("third"), true);
  EXPECT_EQ(Values("LOCKED"), "[third]");
  EXPECT_FALSE(order->FieldOverwritable("LOCKED"));
  EXPECT_TRUE(order->FieldOverwritable("NUMBER"));
}

TEST_F(TransactionTest, AMultiValuedFieldGainsValuesUnlessOverwriting) {
  order->SetFieldValue("NOTE", Variant("a"));
  order->SetFieldValue("NOTE", Variant("b"));
  order->SetFieldValue("NOTE", Variant("c"));
  EXPECT_EQ(Values("NOTE"), "[a][b][c]");
  EXPECT_TRUE(order->AllowMultipleFieldVals("NOTE"));
  order->SetFieldValue("NOTE", Variant("z"), true);
  EXPECT_EQ(Values("NOTE"), "[z]");
}

TEST_F(TransactionTest, EmptyValueElementsDoNotCountAndANewValueIsAppended) {
  xmlNodePtr values = factory->Data()->GetNodeFromXPath("FIELD[@name='NUMBER']/VALUES", order->Data());
  xmlAddChild(values, xmlNewDocNode(values->doc, nullptr, BAD_CAST "VALUE", nullptr));
  EXPECT_FALSE(order->IsFieldSet("NUMBER"));
  order->SetFieldValue("NUMBER", Variant("x"));
  EXPECT_EQ(Values("NUMBER"), "[][x]");
  EXPECT_TRUE(order->IsFieldSet("NUMBER"));
}

TEST_F(TransactionTest, UnsetFieldsGiveTheDefaultOfTheirType) {
  EXPECT_EQ(order->GetFieldValues("OK").Type(), VarType::Boolean);
  EXPECT_FALSE(order->GetFieldValues("OK").BooleanValue());
  EXPECT_EQ(order->GetFieldValues("QTY").Type(), VarType::Long);
  EXPECT_EQ(order->GetFieldValues("PRICE").Type(), VarType::Decimal);
  EXPECT_EQ(order->GetFieldValues("NUMBER").Type(), VarType::String);
  Variant when = order->GetFieldValues("WHEN");
  EXPECT_EQ(when.Type(), VarType::Date);
  EXPECT_EQ(when.DateValue(), 0.0);
  Variant cast = order->GetFieldValueCastType("WHEN");
  EXPECT_EQ(cast.Type(), VarType::Date);
  EXPECT_EQ(cast.DateValue(), 0.0);
  EXPECT_EQ(order->GetFieldValues("BLOB").Type(), VarType::Byte);
}

TEST_F(TransactionTest, ValuesReadAsTextAndCastByType) {
  order->SetFieldValue("QTY", Variant(int32_t{42}));
  Variant text = order->GetFieldValues("QTY");
  EXPECT_EQ(text.Type(), VarType::String);
  EXPECT_EQ(text.StringValue(), "42");
  Variant cast = order->GetFieldValueCastType("QTY");
  EXPECT_EQ(cast.Type(), VarType::Long);
  EXPECT_EQ(cast.LongValue(), 42);
  order->SetFieldValue("OK", Variant(true));
  EXPECT_TRUE(order->GetFieldValueCastType("OK").BooleanValue());
  order->SetFieldValue("QTY", Variant("abc"));
  EXPECT_EQ(CatchError([&] { order->GetFieldValueCastType("QTY"); }).number(), 13);
}

TEST_F(TransactionTest, InstancesOfAMultiValuedField) {
  order->SetFieldValue("CODES", Variant("5"));
  EXPECT_EQ(order->GetFieldValues("CODES").Type(), VarType::String);  // one value: plain text
  order->SetFieldValue("CODES", Variant("6"));
  order->SetFieldValue("CODES", Variant("7"));
  Variant all = order->GetFieldValues("CODES", 0);
  ASSERT_TRUE(all.IsArray());
  ASSERT_EQ(all.ArrayValue().Count(), 3u);
  EXPECT_EQ(all.ArrayValue().Elements()[2].Type(), VarType::Long);
  EXPECT_EQ(all.ArrayValue().Elements()[2].LongValue(), 7);
  EXPECT_EQ(order->GetFieldValues("CODES", 1).ToString(), "6");
  EXPECT_EQ(order->GetFieldValues("CODES", 2).ToString(), "7");
  EXPECT_TRUE(order->GetFieldValues("CODES", 3).IsNothing());
  EXPECT_EQ(CatchError([&] { order->GetFieldValues("CODES", 4); }).number(), 8101);
  EXPECT_EQ(CatchError([&] { order->GetFieldValues("CODES", -1); }).number(), 8101);

  order->SetFieldValue("CODES", Variant("x"));
  Error e = CatchError([&] { order->GetFieldValues("CODES"); });
  EXPECT_EQ(e.number(), 13);
  EXPECT_NE(e.description().find("Type mismatch whilst converting [x] to array of type [1]."), std::string::npos);
}

TEST_F(TransactionTest, AnUnknownFieldRaises8103) {
  Error e = CatchError([&] { order->SetFieldValue("NOPE", Variant("1")); });
  EXPECT_EQ(e.number(), 8103);
  EXPECT_NE(e.description().find("Field [NOPE] does not exist in transaction [ORDER]."), std::string::npos);
  EXPECT_EQ(CatchError([&] { order->GetFieldValues("NOPE"); }).number(), 8103);
  EXPECT_FALSE(order->HasFieldAndSet("NOPE"));
  EXPECT_FALSE(order->HasField("NOPE"));
}

TEST_F(TransactionTest, TextSetWithoutAVariantFollowsTheRulesOfStringValues) {
  // Each step runs on two records, one given Variants and one given text;
  // their fields and errors must agree.
  Ref<Transaction> byText = factory->CreateTransaction("ORDER");
  const struct {
    const char* field;
    const char* text;
    bool overwrite;
  } steps[] = {
      {"NUMBER", "A", false}, {"NUMBER", "", true},    {"NUMBER", "B", false},  {"QTY", "\"12\"", false},
      {"NUMBER", "\"7\"", false}, {"LOCKED", "one", false}, {"LOCKED", "two", false}, {"LOCKED", "three", true},
      {"NOTE", "a", false},  {"NOTE", "b", false},   {"NOTE", "c", true},     {"QTY", "\"", false},
      {"NOPE", "x", false},  {"PRICE", "1.5", false},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(std::string(step.field) + "=" + step.text);
    Error byVariant(0, ""), byView(0, "");
    try {
      order->SetFieldValue(step.field, Variant(step.text), step.overwrite);
    } catch (const Error& e) {
      byVariant = e;
    }
    try {
      byText->SetFieldText(step.field, step.text, step.overwrite);
    } catch (const Error& e) {
      byView = e;
    }
    EXPECT_EQ(byView.number(), byVariant.number());
    EXPECT_EQ(byView.description(), byVariant.description());
  }
  EXPECT_EQ(CatchError([&] { byText->SetFieldText("QTY", "\""); }).number(), 5);
  for (const char* field : {"NUMBER", "QTY", "LOCKED", "NOTE", "PRICE"}) {
    const std::string expected = Values(field);
    std::swap(order, byText);
    EXPECT_EQ(Values(field), expected) << field;
    std::swap(order, byText);
  }
  EXPECT_EQ(Values("NUMBER"), "[\"7\"]");  // quotes stay on a String
  EXPECT_EQ(Values("LOCKED"), "[three]");
  EXPECT_EQ(Values("NOTE"), "[c]");
}

TEST_F(TransactionTest, SingleValueTextIsTheStoredTextOfAFieldOfOneValueOnly) {
  EXPECT_EQ(order->SingleValueText("NUMBER"), nullptr);  // unset
  EXPECT_EQ(order->SingleValueText("NOPE"), nullptr);    // unknown: no error
  order->SetFieldValue("NUMBER", Variant("n 1"));
  ASSERT_NE(order->SingleValueText("NUMBER"), nullptr);
  EXPECT_STREQ(order->SingleValueText("NUMBER"), "n 1");
  EXPECT_EQ(order->GetFieldValues("NUMBER").StringValue(), "n 1");
  // Asked out of the order the fields stand in, the answer is the same.
  order->SetFieldValue("PRICE", Variant("2.5"));
  EXPECT_STREQ(order->SingleValueText("PRICE"), "2.5");
  EXPECT_STREQ(order->SingleValueText("NUMBER"), "n 1");

  order->SetFieldValue("CODES", Variant("5"));
  EXPECT_STREQ(order->SingleValueText("CODES"), "5");
  order->SetFieldValue("CODES", Variant("6"));
  EXPECT_EQ(order->SingleValueText("CODES"), nullptr);  // two values: an array
  EXPECT_TRUE(order->GetFieldValues("CODES").IsArray());

  // A VALUE without text before the value: GetFieldValues reads the first
  // element, so there is no single text to hand out.
  xmlNodePtr values = factory->Data()->GetNodeFromXPath("FIELD[@name='QTY']/VALUES", order->Data());
  xmlAddChild(values, xmlNewDocNode(values->doc, nullptr, BAD_CAST "VALUE", nullptr));
  order->SetFieldValue("QTY", Variant("3"));
  EXPECT_EQ(order->SingleValueText("QTY"), nullptr);
  EXPECT_EQ(order->GetFieldValues("QTY").StringValue(), "");

  // Asked with its type: the field's type comes with its text. A FIELD the
  // definition does not know has a text but no type.
  int16_t type = -1;
  EXPECT_STREQ(order->SingleValueText("PRICE", &type), "2.5");
  EXPECT_EQ(type, 2);
  EXPECT_STREQ(order->SingleValueText("NUMBER", &type), "n 1");
  EXPECT_EQ(type, 3);
  xmlNodePtr extra = xmlNewChild(order->Data(), nullptr, BAD_CAST "FIELD", nullptr);
  xmlNewProp(extra, BAD_CAST "name", BAD_CAST "EXTRA");
  xmlNewChild(xmlNewChild(extra, nullptr, BAD_CAST "VALUES", nullptr), nullptr, BAD_CAST "VALUE", BAD_CAST "x");
  EXPECT_STREQ(order->SingleValueText("EXTRA"), "x");
  type = -1;
  EXPECT_EQ(order->SingleValueText("EXTRA", &type), nullptr);
  EXPECT_EQ(type, -1);

  Ref<Transaction> bare = MakeRef<Transaction>();
  EXPECT_EQ(bare->SingleValueText("NUMBER"), nullptr);  // no data: no error
}

TEST_F(TransactionTest, FieldsAreFoundInAnyOrderAndShape) {
  order->SetFieldValue("NUMBER", Variant("n"));
  order->SetFieldValue("PRICE", Variant("2"));
  order->SetFieldValue("WHEN", Variant("1/2/2026"));
  // A FIELD whose name is not its first attribute is found all the same.
  xmlNodePtr price = factory->Data()->GetNodeFromXPath("FIELD[@name='PRICE']", order->Data());
  xmlAttrPtr name = DataNodes::FindAttribute(price, "name");
  xmlUnlinkNode(reinterpret_cast<xmlNodePtr>(name));
  xmlNewProp(price, BAD_CAST "note", BAD_CAST "x");
  xmlAddChild(price, reinterpret_cast<xmlNodePtr>(name));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(order->GetFieldValues("WHEN").ToString(), "1/2/2026");
    EXPECT_EQ(order->GetFieldValues("NUMBER").ToString(), "n");
    EXPECT_EQ(order->GetFieldValues("PRICE").ToString(), "2");
    EXPECT_STREQ(order->SingleValueText("PRICE"), "2");
    EXPECT_EQ(order->GetFieldValues("NUMBER").ToString(), "n");
    EXPECT_EQ(order->SingleValueText("NOPE"), nullptr);
    EXPECT_EQ(order->GetFieldValues("WHEN").ToString(), "1/2/2026");
  }
}

// Fields are looked for where the definition puts them first; a record whose
// fields were moved, removed, made again or interleaved with text between
// two lookups of one view still answers every name as a search of the
// document does.
TEST_F(TransactionTest, FieldsAreFoundAfterTheRecordWasRearranged) {
  const std::vector<std::string> names = {"NUMBER", "QTY", "LOCKED", "PRICE", "WHEN", "OK"};
  for (size_t i = 0; i < names.size(); ++i) order->SetFieldValue(names[i], Variant(std::to_string(i + 1)));
  auto expected = [&](const std::string& name) -> std::string {
    auto values = factory->Data()->GetNodesFromXPath("FIELD[@name='" + name + "']/VALUES/VALUE", order->Data());
    if (values.empty()) return "(none)";
    xmlNodePtr value = values.front();
    xmlChar* text = xmlNodeGetContent(value);
    std::string out(reinterpret_cast<const char*>(text));
    xmlFree(text);
    return out;
  };
  auto field = [&](const std::string& name) {
    return factory->Data()->GetNodeFromXPath("FIELD[@name='" + name + "']", order->Data());
  };
  // Each step changes the record round the view, then every name is asked
  // for in an order that jumps forwards and back.
  const std::vector<std::function<void()>> steps = {
      [] {},
      [&] { xmlAddPrevSibling(field("NUMBER"), field("WHEN")); },
      [&] { xmlAddPrevSibling(field("QTY"), xmlNewText(BAD_CAST "\n  ")); },
      [&] {
        xmlNodePtr gone = field("LOCKED");
        xmlUnlinkNode(gone);
        xmlFreeNode(gone);
      },
      [&] { order->SetFieldValue("LOCKED", Variant("again")); },
      [&] { xmlAddNextSibling(field("OK"), field("NUMBER")); },
      [&] { xmlAddPrevSibling(order->Data()->children, xmlNewComment(BAD_CAST "c")); },
  };
  const std::vector<size_t> order1 = {5, 0, 3, 1, 4, 2, 2, 0, 5, 1, 3, 4};
  for (size_t s = 0; s < steps.size(); ++s) {
    steps[s]();
    for (size_t k : order1) {
      const std::string& name = names[k];
      const char* single = order->SingleValueText(name);
      EXPECT_EQ(single != nullptr ? std::string(single) : "(none)", expected(name)) << name << " after step " << s;
      EXPECT_EQ(order->GetFieldValues(name).ToString(), expected(name) == "(none)" ? "" : expected(name))
          << name << " after step " << s;
    }
  }
  // Written through the same view, each field keeps one FIELD element.
  order->SetFieldValue("QTY", Variant("7"), true);
  order->SetFieldValue("OK", Variant("true"), true);
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("FIELD[@name='QTY']", order->Data()).size(), 1u);
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("FIELD[@name='OK']", order->Data()).size(), 1u);
  EXPECT_EQ(expected("QTY"), "7");
}

// Views with different dictionaries read and write one record while its
// fields are moved, taken out and put back elsewhere, and text and comments
// are put between them: every answer is the one XPath gives for the record
// as it stands, and a write never makes a second FIELD of a name.
TEST_F(TransactionTest, ViewsOfARecordChangedUnderThemAgreeWithXPath) {
  const std::vector<std::string> names = {"NUMBER", "QTY", "NOTE", "LOCKED", "PRICE", "WHEN", "OK", "CODES"};
  // A dictionary in the opposite order, so that its places are all wrong.
  auto reversed = std::make_shared<FieldDictionary>();
  for (size_t i = names.size(); i-- > 0;) reversed->Add(FieldMetaData{names[i], kFieldString, true});
  for (unsigned seed = 1; seed <= 400; ++seed) {
    std::mt19937 random(seed);
    auto pick = [&](size_t n) { return static_cast<size_t>(random() % n); };
    auto context = TopContext(*factory, true);
    Ref<Transaction> record = factory->CreateTransaction("ORDER");
    factory->AddTransaction(*record, *context);
    if (pick(2) == 0) factory->AddTransaction(*factory->CreateTransaction("LINE"), *context);
    Ref<Transaction> other = factory->TransactionAtNode(record->Data());
    Ref<Transaction> backwards = MakeRef<Transaction>();
    backwards->SetData(record->Data());
    backwards->SetFieldMetaDataDictionary(reversed);
    const std::vector<Transaction*> writers = {record.get(), other.get()};
    const std::vector<Transaction*> readers = {record.get(), other.get(), backwards.get()};
    xmlNodePtr data = record->Data();
    std::vector<xmlNodePtr> takenOut;  // unlinked FIELDs, freed at the end
    auto children = [&] {
      std::vector<xmlNodePtr> out;
      for (xmlNodePtr c = data->children; c != nullptr; c = c->next) out.push_back(c);
      return out;
    };
    auto fields = [&](const std::string& name) {
      return factory->Data()->GetNodesFromXPath("FIELD[@name='" + name + "']", data);
    };
    auto expected = [&](const std::string& name) -> std::string {
      auto values = factory->Data()->GetNodesFromXPath("FIELD[@name='" + name + "'][1]/VALUES/VALUE", data);
      if (values.size() != 1) return values.empty() ? "(none)" : "(several)";
      xmlChar* text = xmlNodeGetContent(values.front());
      std::string out(reinterpret_cast<const char*>(text));
      xmlFree(text);
      return out;
    };
    std::string steps;
    for (int step = 0; step < 120 && !HasFailure(); ++step) {
      const std::string& name = names[pick(names.size())];
      const size_t op = pick(8);
      steps += std::to_string(op) + name + " ";
      const std::string trace = "seed " + std::to_string(seed) + ": " + steps;
      if (op <= 1) {
        writers[pick(writers.size())]->SetFieldValue(name, Variant(std::to_string(step)), pick(2) == 0);
        EXPECT_EQ(fields(name).size(), 1u) << trace;
      } else if (op <= 3) {
        Transaction& view = *readers[pick(readers.size())];
        const std::string want = expected(name);
        int16_t type = -1;
        const char* single = op == 2 ? view.SingleValueText(name) : view.SingleValueText(name, &type);
        EXPECT_EQ(single != nullptr ? std::string(single) : "(none)", want == "(several)" ? "(none)" : want) << trace;
        if (want != "(several)" && want != "(none)") {
          EXPECT_EQ(view.GetFieldValues(name).ToString(), want) << trace;
        }
      } else if (op == 4) {
        auto existing = fields(name);
        auto all = children();
        xmlNodePtr target = all.empty() ? nullptr : all[pick(all.size())];
        if (!existing.empty() && target != nullptr && target != existing.front()) {
          xmlUnlinkNode(existing.front());
          if (pick(2) == 0) xmlAddPrevSibling(target, existing.front()); else xmlAddNextSibling(target, existing.front());
        }
      } else if (op == 5) {
        xmlNodePtr added = pick(2) == 0 ? xmlNewText(BAD_CAST "\n  ") : xmlNewComment(BAD_CAST "c");
        auto all = children();
        if (all.empty()) xmlAddChild(data, added); else xmlAddPrevSibling(all[pick(all.size())], added);
      } else if (op == 6) {
        auto existing = fields(name);
        if (!existing.empty()) {
          xmlUnlinkNode(existing.front());
          takenOut.push_back(existing.front());
        }
      } else if (!takenOut.empty()) {
        // A FIELD taken out comes back where no FIELD of its name stands.
        const size_t which = pick(takenOut.size());
        xmlNodePtr back = takenOut[which];
        xmlChar* backName = xmlGetProp(back, BAD_CAST "name");
        const bool free = fields(reinterpret_cast<const char*>(backName)).empty();
        xmlFree(backName);
        if (free) {
          auto all = children();
          if (all.empty()) xmlAddChild(data, back); else xmlAddPrevSibling(all[pick(all.size())], back);
          takenOut.erase(takenOut.begin() + static_cast<std::ptrdiff_t>(which));
        }
      }
    }
    for (xmlNodePtr node : takenOut) xmlFreeNode(node);
    if (HasFailure()) break;
  }
}

// The field is made as the factory makes fields and goes after the others,
// before the records of child types; the document saves as if it had always
// been there.
TEST_F(TransactionTest, AFieldMissingFromTheRecordIsMadeWhenWritten) {
  auto context = TopContext(*factory, true);
  factory->AddTransaction(*order, *context);
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  factory->AddTransaction(*line, *context);
  for (const char* name : {"QTY", "NUMBER"}) {
    xmlNodePtr field = factory->Data()->GetNodeFromXPath(std::string("FIELD[@name='") + name + "']", order->Data());
    xmlUnlinkNode(field);
    xmlFreeNode(field);
  }
  EXPECT_EQ(order->GetFieldValues("QTY").LongValue(), 0);
  order->SetFieldValue("QTY", Variant("3"));
  order->SetFieldValue("NUMBER", Variant("n\"1"));
  EXPECT_EQ(order->GetFieldValues("QTY").ToString(), "3");
  EXPECT_EQ(order->GetFieldValues("NUMBER").ToString(), "n\"1");
  std::vector<std::string> children;
  for (xmlNodePtr c = order->Data()->children; c != nullptr; c = c->next) {
    xmlAttrPtr name = DataNodes::FindAttribute(c, "name");
    children.push_back(std::string(reinterpret_cast<const char*>(c->name)) +
                       (name != nullptr ? " " + DataNodes::AttributeValue(name) : ""));
  }
  ASSERT_GE(children.size(), 3u);
  EXPECT_EQ(children[children.size() - 3], "FIELD QTY");
  EXPECT_EQ(children[children.size() - 2], "FIELD NUMBER");
  EXPECT_EQ(children.back(), "RECORDS");
  xmlNodePtr made = factory->Data()->GetNodeFromXPath("FIELD[@name='NUMBER']", order->Data());
  EXPECT_EQ(XMLWrapper::NodeXml(made), "<FIELD name=\"NUMBER\"><VALUES><VALUE>n\"1</VALUE></VALUES></FIELD>");
  // Saved and read back, the record is the same.
  auto copy = MakeRef<XMLWrapper>();
  copy->LoadXML(factory->Data()->ToString());
  EXPECT_EQ(XMLWrapper::NodeXml(copy->GetNodeFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='NUMBER']")),
            XMLWrapper::NodeXml(made));
}

// Records walked one after the other through the factory's views share the
// name text of the fields made in them, as records made from one template
// do; every record keeps its own field and value.
TEST_F(TransactionTest, FieldsMadeInManyRecordsShareTheirNameText) {
  auto context = TopContext(*factory, true);
  std::vector<xmlNodePtr> records;
  for (int i = 0; i < 3; ++i) {
    Ref<Transaction> record = factory->CreateTransaction("ORDER");
    factory->AddTransaction(*record, *context);
    xmlNodePtr qty = factory->Data()->GetNodeFromXPath("FIELD[@name='QTY']", record->Data());
    xmlUnlinkNode(qty);
    xmlFreeNode(qty);
    records.push_back(record->Data());
  }
  std::vector<xmlNodePtr> names;
  for (size_t i = 0; i < records.size(); ++i) {
    Ref<Transaction> view = factory->TransactionAtNode(records[i]);
    view->SetFieldValue("QTY", Variant(static_cast<int32_t>(i + 1)));
    xmlNodePtr qty = factory->Data()->GetNodeFromXPath("FIELD[@name='QTY']", records[i]);
    ASSERT_NE(qty, nullptr);
    names.push_back(DataNodes::FindAttribute(qty, "name")->children);
  }
  if (XmlHeap::Installed()) {
    EXPECT_EQ(names[0], names[1]);
    EXPECT_EQ(names[1], names[2]);
  }
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(factory->TransactionAtNode(records[i])->GetFieldValues("QTY").ToString(), std::to_string(i + 1));
  }
  // The document saves each field whole.
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD/FIELD[@name='QTY']").size(), 3u);
}

TEST_F(TransactionTest, FieldNamesFollowTheDefinition) {
  EXPECT_EQ(order->FieldCount(), 9);
  EXPECT_EQ(order->FieldName(1), "NUMBER");
  EXPECT_EQ(order->FieldName(9), "CODES");
  EXPECT_EQ(CatchError([&] { order->FieldName(0); }).number(), 8102);
  EXPECT_EQ(CatchError([&] { order->FieldName(10); }).number(), 8102);
  EXPECT_EQ(order->FieldNames().size(), 9u);
  EXPECT_EQ(order->FieldNames2().ArrayValue().Elements()[1].ToString(), "QTY");
  EXPECT_EQ(order->GetType("PRICE"), 2);
}

TEST_F(TransactionTest, RecordAttributesAndTheTimestamp) {
  std::string stamp = order->TranAttribute("timestamp");
  EXPECT_EQ(stamp.size(), 12u);
  EXPECT_EQ(stamp[2], ':');
  order->SetStatus(3);
  order->SetOrigTranLocation("in.csv");
  order->SetOrigTranCoordinate("4");
  EXPECT_EQ(order->Status(), 3);
  EXPECT_EQ(order->TranAttribute("uri"), "in.csv");
  EXPECT_EQ(order->OrigTranCoordinate(), "4");
  EXPECT_EQ(CatchError([&] { order->TranAttribute("nope"); }).number(), 7701);
  order->SetFieldAttribute("NUMBER", "hint", Variant("x"));
  EXPECT_EQ(order->GetFieldAttribute("NUMBER", "hint"), "x");
  // A record that has a timestamp keeps it when viewed again.
  Ref<Transaction> view = MakeRef<Transaction>();
  order->SetTranAttribute("timestamp", Variant("00:00:00:001"));
  view->SetData(order->Data());
  EXPECT_EQ(view->TranAttribute("timestamp"), "00:00:00:001");
}

TEST_F(TransactionTest, NeighboursParentAndChildren) {
  auto context = TopContext(*factory, true);
  factory->AddTransaction(*order, *context);
  Ref<Transaction> line1 = factory->CreateTransaction("LINE");
  factory->AddTransaction(*line1, *context);
  Ref<Transaction> line2 = factory->CreateTransaction("LINE");
  factory->AddTransaction(*line2, *context);
  EXPECT_EQ(line1->NextTransaction()->Data(), line2->Data());
  EXPECT_EQ(line2->PreviousTransaction()->Data(), line1->Data());
  EXPECT_FALSE(line2->NextTransaction());
  EXPECT_EQ(line2->ParentTransaction()->Data(), order->Data());
  EXPECT_FALSE(order->ParentTransaction());
  EXPECT_EQ(line1->ParentId(), "ORDER");
  EXPECT_EQ(order->ChildCount(), 1);
  EXPECT_FALSE(order->IsEmpty());
  EXPECT_EQ(line1->GetParentNodes().size(), 2u);
  EXPECT_EQ(line1->Context()->ContextNode(), line1->Data());
}

TEST_F(TransactionTest, EmptyMeansNoDefinedFieldHoldsAValue) {
  Ref<Transaction> line = factory->CreateTransaction("LINE");
  EXPECT_TRUE(line->IsEmpty());
  // A field the record type does not define does not count, whatever it holds.
  xmlNodePtr stray = xmlNewChild(line->Data(), nullptr, BAD_CAST "FIELD", nullptr);
  xmlNewProp(stray, BAD_CAST "name", BAD_CAST "STRAY");
  xmlNodePtr values = xmlNewChild(stray, nullptr, BAD_CAST "VALUES", nullptr);
  xmlNewChild(values, nullptr, BAD_CAST "VALUE", BAD_CAST "x");
  EXPECT_TRUE(line->IsEmpty());
  line->SetFieldValue("QTY", Variant("5"));
  EXPECT_FALSE(line->IsEmpty());
}

TEST_F(TransactionTest, CopyAndPrint) {
  order->SetFieldValue("NUMBER", Variant("1"));
  Ref<Transaction> copy = MakeRef<Transaction>();
  order->CopyTransaction(*copy);
  copy->SetFieldValue("NUMBER", Variant("2"));
  EXPECT_EQ(order->GetFieldValues("NUMBER").ToString(), "1");
  EXPECT_EQ(copy->GetFieldValues("NUMBER").ToString(), "2");
  std::ostringstream out;
  order->PrintData(out);
  EXPECT_NE(out.str().find("<FIELD name=\"NUMBER\"><VALUES><VALUE>1</VALUE></VALUES></FIELD>"), std::string::npos);
}

Variant Bytes(std::initializer_list<int> values) {
  std::vector<Variant> items;
  for (int v : values) items.push_back(Variant::FromByte(static_cast<uint8_t>(v)));
  return Variant::FromVector(std::move(items));
}

TEST_F(TransactionTest, BinaryValuesLiveInFilesOfTheRunsFolder) {
  test::TempDir dir;
  factory->SetBinaryFolder(dir.path() / "run");
  order->SetFieldValue("BLOB", Bytes({1, 2, 3}));
  std::string path = order->GetFieldValues("BLOB").ToString();
  EXPECT_EQ(std::filesystem::path(path).parent_path(), dir.path() / "run");
  EXPECT_EQ(order->GetBinaryValue("BLOB"), (std::vector<uint8_t>{1, 2, 3}));
  order->SetFieldValue("BLOB", Bytes({9}));
  EXPECT_EQ(order->GetFieldValues("BLOB").ToString(), path);  // the file is reused
  EXPECT_EQ(order->GetBinaryValue("BLOB"), (std::vector<uint8_t>{9}));

  order->SetFieldValue("BLOB", Variant::FromVector({}));
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_FALSE(order->IsFieldSet("BLOB"));
  EXPECT_TRUE(order->GetBinaryValue("BLOB").empty());

  Ref<Transaction> other = factory->CreateTransaction("ORDER");
  other->SetFieldValue("BLOB", Bytes({4}));
  std::filesystem::remove(other->GetFieldValues("BLOB").ToString());
  EXPECT_EQ(CatchError([&] { other->GetBinaryValue("BLOB"); }).number(), 8105);
  EXPECT_EQ(CatchError([&] { order->GetBinaryValue("NUMBER"); }).number(), 8104);
}

TEST_F(TransactionTest, BinaryValuesWithoutASessionOrFolderRaise8106) {
  EXPECT_EQ(CatchError([&] { order->SetFieldValue("BLOB", Bytes({1})); }).number(), 8106);
}

}  // namespace
}  // namespace tessel

namespace tessel {
namespace {

TEST(DataNodesNames, ALiteralNameMatchesOnlyTheWholeNameWithoutANamespace) {
  xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
  xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST "R", nullptr);
  xmlDocSetRootElement(doc, root);
  xmlNodePtr values = xmlNewChild(root, nullptr, BAD_CAST "VALUES", nullptr);
  xmlNodePtr value = xmlNewChild(root, nullptr, BAD_CAST "VALUE", nullptr);
  xmlNodePtr longer = xmlNewChild(root, nullptr, BAD_CAST "VALUESX", nullptr);
  xmlNodePtr empty = xmlNewChild(root, nullptr, BAD_CAST "", nullptr);
  xmlNsPtr ns = xmlNewNs(root, BAD_CAST "urn:x", BAD_CAST "x");
  xmlNodePtr qualified = xmlNewChild(root, ns, BAD_CAST "VALUES", nullptr);
  xmlNodePtr text = xmlNewText(BAD_CAST "VALUES");
  xmlAddChild(root, text);

  EXPECT_TRUE(DataNodes::IsElement(values, "VALUES"));
  EXPECT_FALSE(DataNodes::IsElement(values, "VALUE"));
  EXPECT_TRUE(DataNodes::IsElement(value, "VALUE"));
  EXPECT_FALSE(DataNodes::IsElement(value, "VALUES"));
  EXPECT_FALSE(DataNodes::IsElement(longer, "VALUES"));
  EXPECT_FALSE(DataNodes::IsElement(empty, "VALUES"));
  EXPECT_TRUE(DataNodes::IsElement(empty, ""));
  EXPECT_FALSE(DataNodes::IsElement(qualified, "VALUES"));
  EXPECT_FALSE(DataNodes::IsElement(text, "VALUES"));
  EXPECT_FALSE(DataNodes::IsElement(nullptr, "VALUES"));
  // A name held in a variable is compared the same way.
  const std::string wanted = "VALUES";
  EXPECT_TRUE(DataNodes::IsElement(values, std::string_view(wanted)));
  EXPECT_FALSE(DataNodes::IsElement(longer, std::string_view(wanted)));
  xmlFreeDoc(doc);
}

}  // namespace
}  // namespace tessel
