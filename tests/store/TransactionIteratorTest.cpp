#include <gtest/gtest.h>

#include "store/TransactionIterator.h"
#include "store/TransactionSelector.h"
#include "tests/store/StoreFixture.h"

namespace tessel {
namespace {

using test::AddOrder;
using test::CatchError;
using test::MakeFactory;
using test::TopContext;

// Three orders "1".."3"; order "2" has lines "a", "b", "c".
class TransactionIteratorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto context = TopContext(*factory);
    AddOrder(*factory, *context, "1");
    Ref<Transaction> second = AddOrder(*factory, *context, "2");
    AddOrder(*factory, *context, "3");
    Ref<TransactionContext> lines = second->Context();
    lines->SetAutoUpdate(true);
    for (const char* item : {"a", "b", "c"}) {
      Ref<Transaction> line = factory->CreateTransaction("LINE");
      line->SetFieldValue("ITEM", Variant(item));
      factory->AddTransaction(*line, *lines);
    }
  }

  Ref<TransactionSelector> AllOrders() {
    Ref<TransactionSelector> selector = factory->CreateTransactionSelector();
    selector->SetReturnTransaction("ORDER");
    selector->AddSearch("ORDER", "*");
    selector->OpenResultset();
    return selector;
  }

  static std::string Number(TransactionSelector& s) { return s.Item()->GetFieldValues("NUMBER").ToString(); }
  static std::string ItemOf(TransactionSelector& s) { return s.Item()->GetFieldValues("ITEM").ToString(); }

  std::shared_ptr<TransactionFactory> factory = MakeFactory();
};

TEST_F(TransactionIteratorTest, MoveNextAtTheLastRecordGivesEofThenRaises8200) {
  Ref<TransactionSelector> s = AllOrders();
  EXPECT_TRUE(s->BOF());
  s->MoveFirst();
  EXPECT_EQ(Number(*s), "1");
  s->MoveNext();
  s->MoveNext();
  EXPECT_EQ(Number(*s), "3");
  s->MoveNext();
  EXPECT_TRUE(s->EOF_());
  Error e = CatchError([&] { s->MoveNext(); });
  EXPECT_EQ(e.number(), 8200);
  EXPECT_NE(e.description().find("Cannot move BOF or EOF."), std::string::npos);
  EXPECT_EQ(CatchError([&] { s->Item(); }).number(), 8200);
  s->MovePrevious();
  EXPECT_EQ(Number(*s), "3");
}

TEST_F(TransactionIteratorTest, MovesByPositionAndFailedMovesKeepThePlace) {
  Ref<TransactionSelector> s = AllOrders();
  s->MoveLast();
  EXPECT_EQ(Number(*s), "3");
  s->Move(1, false);
  EXPECT_EQ(Number(*s), "1");
  s->Move(1, true);
  EXPECT_EQ(Number(*s), "2");
  EXPECT_EQ(CatchError([&] { s->Move(5, true); }).number(), 8200);
  EXPECT_EQ(Number(*s), "2");
  EXPECT_EQ(s->Count(), 3);
}

TEST_F(TransactionIteratorTest, AnEmptyResult) {
  Ref<TransactionSelector> s = factory->CreateTransactionSelector();
  s->SetReturnTransaction("ORDER");
  s->AddSearch("ORDER", "NUMBER='9'");
  s->OpenResultset();
  s->MoveFirst();  // no error on an empty list
  EXPECT_TRUE(s->EOF_());
  EXPECT_EQ(CatchError([&] { s->Item(); }).number(), 8200);
  EXPECT_EQ(CatchError([&] { s->MoveLast(); }).number(), 8200);
}

TEST_F(TransactionIteratorTest, ChildLevelsAndBackToTheParent) {
  Ref<TransactionSelector> s = AllOrders();
  s->MoveFirst();
  EXPECT_EQ(s->ChildRecords(), 0);
  EXPECT_FALSE(s->HasChild("LINE"));
  EXPECT_EQ(CatchError([&] { s->MoveChild("LINE"); }).number(), 7703);
  EXPECT_EQ(Number(*s), "1");  // the failed move kept the place
  s->MoveNext();
  EXPECT_EQ(s->ChildRecords(), 1);
  EXPECT_TRUE(s->HasChild("LINE"));
  EXPECT_FALSE(s->HasParent());
  s->MoveChild("1");  // a number is a position among the RECORDS children
  EXPECT_EQ(ItemOf(*s), "a");
  EXPECT_TRUE(s->HasParent());
  s->MoveNext();
  EXPECT_EQ(ItemOf(*s), "b");
  s->MoveLast();
  EXPECT_EQ(ItemOf(*s), "c");
  EXPECT_EQ(s->Count(), 3);
  s->MoveParent();
  EXPECT_EQ(Number(*s), "2");
  EXPECT_EQ(CatchError([&] { s->MoveParent(); }).number(), 8201);
  s->MoveNext();
  EXPECT_EQ(Number(*s), "3");
}

TEST_F(TransactionIteratorTest, BookmarksReturnToTheirPlace) {
  Ref<TransactionSelector> s = AllOrders();
  s->MoveFirst();
  s->MoveNext();
  TransactionIteratorBookMark mark = s->Bookmark();
  s->MoveLast();
  s->SetBookmark(mark);
  EXPECT_EQ(Number(*s), "2");
  s->MoveNext();
  EXPECT_EQ(Number(*s), "3");
}

TEST_F(TransactionIteratorTest, DeleteAtLevelOneKeepsThePositionAndTheCount) {
  Ref<TransactionSelector> s = AllOrders();
  s->MoveFirst();
  s->Delete();
  EXPECT_EQ(s->Count(), 3);
  s->MoveNext();
  EXPECT_EQ(Number(*s), "2");
  EXPECT_EQ(factory->Data()->GetNodesFromXPath("/DATA/RECORDS/RECORD").size(), 2u);
  EXPECT_TRUE(s->Iterator().DeletedFlags()[0]);
}

TEST_F(TransactionIteratorTest, DeleteBelowLevelOneVisitsTheFollowingRecordNext) {
  Ref<TransactionSelector> s = AllOrders();
  s->MoveFirst();
  s->MoveNext();
  s->MoveChild("LINE");
  s->MoveNext();
  EXPECT_EQ(ItemOf(*s), "b");
  s->Delete();
  EXPECT_EQ(ItemOf(*s), "a");
  s->MoveNext();
  EXPECT_EQ(ItemOf(*s), "c");
  EXPECT_EQ(s->Count(), 2);
}

TEST_F(TransactionIteratorTest, AnIteratorWalksTheChildrenOfItsStartNode) {
  Ref<TransactionIterator> it = factory->CreateIterator();
  EXPECT_EQ(it->Count(), 1);  // DATA holds one RECORDS
  it->MoveChild("ORDER");
  int seen = 0;
  while (!it->EOF_()) {
    ++seen;
    it->MoveNext();
  }
  EXPECT_EQ(seen, 3);
  it->MovePrevious();
  EXPECT_EQ(it->Item()->GetFieldValues("NUMBER").ToString(), "3");
}

TEST_F(TransactionIteratorTest, MoreThanSixtyFourLevelsRaise8203) {
  std::string records;
  for (int i = 0; i < 70; ++i) {
    records += "<RECORD id=\"L" + std::to_string(i) + "\" parentid=\"" + (i ? "L" + std::to_string(i - 1) : "") +
               "\"><FIELD name=\"F\" type=\"3\"/></RECORD>";
  }
  auto deep = MakeFactory("<TRANSFORM><TRANSFORMDETAIL><RECORDS>" + records + "</RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  auto context = TopContext(*deep, true);
  for (int i = 0; i < 70; ++i) {
    Ref<Transaction> t = deep->CreateTransaction("L" + std::to_string(i));
    deep->AddTransaction(*t, *context);
  }
  Ref<TransactionIterator> it = deep->CreateIterator();
  it->MoveChild("L0");
  int level = 1;
  for (int i = 1; i < 63; ++i) {
    it->MoveChild("L" + std::to_string(i));
    ++level;
  }
  EXPECT_EQ(it->Level(), 64);
  Error e = CatchError([&] { it->MoveChild("L63"); });
  EXPECT_EQ(e.number(), 8203);
  EXPECT_NE(e.description().find("Maximum allowed depth is 64 levels."), std::string::npos);
  EXPECT_EQ(it->Level(), 64);
  EXPECT_EQ(it->Item()->TransactionId(), "L62");
  it->MoveParent();
  EXPECT_EQ(it->Level(), 63);
}

}  // namespace
}  // namespace tessel
