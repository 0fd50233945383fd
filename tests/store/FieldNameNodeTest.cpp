#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "store/FieldNameNode.h"
#include "store/TransactionSelector.h"
#include "tests/store/StoreFixture.h"

namespace tessel {
namespace {

using test::MakeFactory;
using test::TopContext;

constexpr const char* kNarrow =
    "<TRANSFORM id=\"T1\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
    "<RECORD id=\"ROW\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"A\" type=\"3\"/><FIELD name=\"B\" type=\"3\"/><FIELD name=\"C\" type=\"3\"/>"
    "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>";
// The same records seen by a later transform that adds two fields.
constexpr const char* kWide =
    "<TRANSFORM id=\"T2\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
    "<RECORD id=\"ROW\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"A\" type=\"3\"/><FIELD name=\"B\" type=\"3\"/><FIELD name=\"C\" type=\"3\"/>"
    "<FIELD name=\"X\" type=\"3\"/><FIELD name=\"Y\" type=\"3\"/><FIELD name=\"Z\" type=\"3\"/>"
    "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>";

const std::vector<std::string> kNames = {"A", "B", "C", "X", "Y", "Z"};

// What record i holds in each field, as built below; nullopt for no text.
std::optional<std::string> Expected(int i, const std::string& name) {
  if (name == "A") return "a" + std::to_string(i);
  if (name == "B") return i % 7 == 3 || i % 5 == 0 ? std::nullopt : std::optional<std::string>("b" + std::to_string(i));
  if (name == "C") return i % 4 == 1 || i % 3 == 0 ? std::nullopt : std::optional<std::string>(std::string(i % 3 * 20, 'c'));
  if (name == "X") return "x" + std::to_string(i);
  if (name == "Y") return i % 6 == 2 ? std::nullopt : std::optional<std::string>("y" + std::to_string(i));
  if (name == "Z") return i % 7 == 3 ? std::optional<std::string>("b" + std::to_string(i)) : std::nullopt;
  return std::nullopt;
}

// A selector standing on the first of every ROW.
Ref<TransactionSelector> AllRows(TransactionFactory& factory) {
  Ref<TransactionSelector> selector = factory.CreateTransactionSelector();
  selector->SetReturnTransaction("ROW");
  selector->AddSearch("ROW", "*");
  selector->OpenResultset();
  selector->MoveFirst();
  return selector;
}

// Records read field after field in one order answer as each field's own
// search does, however the records' fields stand: made from the template,
// added later in either order, renamed, or without text.
TEST(FieldNameNode, FieldsReadInOneOrderAnswerAsTheirSearchDoes) {
  auto narrow = MakeFactory(kNarrow);
  auto context = TopContext(*narrow, true);
  constexpr int kRecords = 60;
  for (int i = 0; i < kRecords; ++i) {
    Ref<Transaction> row = narrow->CreateTransaction("ROW");
    row->SetFieldText("A", "a" + std::to_string(i));
    if (i % 5 != 0) row->SetFieldText("B", "b" + std::to_string(i));
    if (i % 4 != 1) row->SetFieldText("C", std::string(i % 3 * 20, 'c'));
    narrow->AddTransaction(*row, *context);
  }
  auto wide = MakeFactory(kWide);
  wide->SetData(narrow->Data());
  {
    Ref<TransactionSelector> selector = AllRows(*wide);
    for (int i = 0; i < kRecords; ++i) {
      Ref<Transaction> row = selector->Item();
      // Added fields come in either order; some records' B is renamed Z.
      if (i % 6 != 2 && i % 2 == 0) row->SetFieldText("Y", "y" + std::to_string(i));
      row->SetFieldText("X", "x" + std::to_string(i));
      if (i % 6 != 2 && i % 2 == 1) row->SetFieldText("Y", "y" + std::to_string(i));
      if (i % 7 == 3) {
        if (i % 5 == 0) row->SetFieldText("B", "b" + std::to_string(i));
        row->SetFieldAttribute("B", "name", Variant("Z"));
      }
      if (i + 1 < kRecords) selector->MoveNext();
    }
  }

  std::vector<FieldNameNode> known(kNames.size());
  Ref<TransactionSelector> selector = AllRows(*wide);
  for (int i = 0; i < kRecords; ++i) {
    Ref<Transaction> row = selector->Item();
    for (size_t f = 0; f < kNames.size(); ++f) {
      const char* text = row->SingleValueText(kNames[f], known[f]);
      const std::optional<std::string> expected = Expected(i, kNames[f]);
      if (expected) {
        ASSERT_NE(text, nullptr) << "record " << i << " field " << kNames[f];
        EXPECT_EQ(std::string(text), *expected) << "record " << i << " field " << kNames[f];
      } else {
        EXPECT_EQ(text, nullptr) << "record " << i << " field " << kNames[f];
      }
    }
    if (i + 1 < kRecords) selector->MoveNext();
  }
  if (test::kHeapInThisBuild) {
    // The fields were known by their name nodes: the last record's A is.
    Ref<Transaction> last = selector->Item();
    EXPECT_TRUE(known[0].Names(last->Data()->children));
    EXPECT_FALSE(known[1].Names(last->Data()->children));
  }
}

// Nodes are remembered with a reference: they outlive the records that
// named them, and copies remember the same.
TEST(FieldNameNode, ARememberedNameOutlivesItsRecordsAndIsCopied) {
  FieldNameNode kept;
  {
    auto factory = MakeFactory(kNarrow);
    auto context = TopContext(*factory, true);
    Ref<Transaction> row = factory->CreateTransaction("ROW");
    row->SetFieldText("A", "one");
    factory->AddTransaction(*row, *context);
    kept.Learn(row->Data()->children, "A");
    if (test::kHeapInThisBuild) {
      EXPECT_TRUE(kept.Names(row->Data()->children));
    }
    // A field is only learnt under its own name.
    FieldNameNode wrong;
    wrong.Learn(row->Data()->children, "B");
    EXPECT_FALSE(wrong.Names(row->Data()->children));
  }
  FieldNameNode copy = kept;
  auto factory = MakeFactory(kNarrow);
  auto context = TopContext(*factory, true);
  for (int i = 0; i < 200; ++i) {
    Ref<Transaction> row = factory->CreateTransaction("ROW");
    row->SetFieldText("A", "again");
    factory->AddTransaction(*row, *context);
    // The old node is still held: no new record's name node takes its address.
    ASSERT_FALSE(kept.Names(row->Data()->children));
    // The copy learns the new records' node from the first and then knows it.
    if (test::kHeapInThisBuild) {
      ASSERT_EQ(copy.Names(row->Data()->children), i > 0);
    }
    ASSERT_EQ(std::string(row->SingleValueText("A", copy)), "again");
  }
}

}  // namespace
}  // namespace tessel
