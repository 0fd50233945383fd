// Task statements expanded against a hierarchical data document.
#include <gtest/gtest.h>

#include "core/Error.h"
#include "tasks/TransformTaskListGenerator.h"
#include "tests/store/StoreFixture.h"

namespace tessel::test {
namespace {

// Two orders, 1001 with lines A and B, 1002 with line C.
std::shared_ptr<TransactionFactory> Orders() {
  auto factory = MakeFactory();
  Ref<TransactionContext> context = TopContext(*factory, true);
  const std::vector<std::pair<std::string, std::vector<std::string>>> orders{{"1001", {"A", "B"}}, {"1002", {"C"}}};
  for (const auto& [number, items] : orders) {
    factory->SetContextToTopDataNode(*context);
    Ref<Transaction> order = AddOrder(*factory, *context, number);
    order->SetFieldValue("NOTE", Variant("x"));
    order->SetFieldValue("NOTE", Variant("y"));
    for (const std::string& item : items) {
      context->SetNode(order->Data());
      Ref<Transaction> line = factory->CreateTransaction("LINE");
      line->SetFieldValue("ITEM", Variant(item));
      factory->AddTransaction(*line, *context);
    }
  }
  return factory;
}

std::vector<std::string> Expand(const std::vector<std::string>& statements,
                                std::vector<TransformTaskFieldReplacement> custom = {},
                                std::optional<std::string> unmatched = std::nullopt) {
  TransformTaskListGenerator generator;
  generator.InitialiseTaskGenerator(statements, Orders(), std::move(custom), std::move(unmatched));
  return generator.GenerateResultList();
}

TEST(TaskListGeneratorTest, ExpandsEveryRecordInDocumentOrder) {
  EXPECT_EQ((std::vector<std::string>{"plain text"}), Expand({"plain text"}));
  EXPECT_EQ((std::vector<std::string>{"ship 1001 now", "ship 1002 now"}), Expand({"ship %ORDER.NUMBER now"}));
  // Two statements of one record both expand for each record, in statement order;
  // children follow their parent.
  EXPECT_EQ((std::vector<std::string>{"o 1001", "n 1001,x, y", "l A", "l B", "o 1002", "n 1002,x, y", "l C"}),
            Expand({"o %ORDER.NUMBER", "n %ORDER.NUMBER,%NOTE", "l %[LINE.ITEM]"}));
}

TEST(TaskListGeneratorTest, TokensEndAtDelimitersAndUnknownFieldsStay) {
  EXPECT_EQ((std::vector<std::string>{"copy(1001)+%ORDER.NOPE", "copy(1002)+%ORDER.NOPE"}),
            Expand({"copy(%ORDER.NUMBER)+%ORDER.NOPE"}));
  TransformTaskListGenerator generator;
  auto tokens = generator.TokenizeClause("a %[Order No] b %ORDER.NUMBER,c");
  ASSERT_EQ(2u, tokens.size());
  EXPECT_EQ("Order No", tokens[0].FieldId);
  EXPECT_TRUE(tokens[0].LongFieldName);
  EXPECT_EQ(3, tokens[0].ReplacementStart);
  EXPECT_EQ(13, tokens[0].ReplacementEnd);
  EXPECT_EQ("ORDER", tokens[1].TransactionId);
  EXPECT_EQ("NUMBER", tokens[1].FieldId);
  EXPECT_EQ(29, tokens[1].ReplacementEnd);
}

TEST(TaskListGeneratorTest, CustomReplacementsAndTheUnmatchedValue) {
  TransformTaskFieldReplacement processed;
  processed.TransactionId = "ORDER";
  processed.FieldId = "PROCESSED";
  processed.value = Variant(int32_t{2});
  processed.IsCustomReplacement = true;
  EXPECT_EQ((std::vector<std::string>{"2 orders, 0 errors"}),
            Expand({"%ORDER.PROCESSED orders, %ORDER.ERRORS errors"}, {processed}, "0"));
}

TEST(TaskListGeneratorTest, DistinctValuesAndErrors) {
  TransformTaskListGenerator generator;
  EXPECT_EQ(8260, CatchError([&] { generator.GenerateResultList(); }).number());
  EXPECT_EQ(8261, CatchError([&] { generator.InitialiseTaskGenerator({"x %[Name"}, Orders()); }).number());
  generator.InitialiseTaskGenerator({}, Orders());
  // A dot belongs to the name: the token ends at a delimiter only.
  EXPECT_EQ((std::vector<std::string>{"f-x, y (csv)"}), generator.GenerateMatchingFiles("f-%ORDER.NOTE (csv)"));
  EXPECT_EQ((std::vector<std::string>{"f-1001", "f-1002"}), generator.GenerateMatchingFiles("f-%ORDER.NUMBER"));
}

}  // namespace
}  // namespace tessel::test
