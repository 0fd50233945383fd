// TransformFilter: records whose condition is false are deleted, children
// judged before their parents.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "transforms/TransformFilter.h"
#include "tests/transforms/TransformFixture.h"

namespace tessel::test {
namespace {

class FilterTest : public ::testing::Test {
 protected:
  void SetUp() override { input_ = FactoryOf(DefinitionOf(Definition("", ""))); }

  // Orders H (NUM, V) with lines L (ITEM, Q) and their filter attributes.
  std::string Definition(const std::string& headerFilter, const std::string& lineFilter) {
    auto filter = [](const std::string& text) {
      return text.empty() ? std::string() : " filter=\"" + text + "\"";
    };
    return TransformXml("filter", 13, {},
                        "<RECORD id=\"H\" parentid=\"\"" + filter(headerFilter) +
                            "><FIELD name=\"NUM\" type=\"3\"/><FIELD name=\"V\" type=\"1\"/></RECORD>"
                            "<RECORD id=\"L\" parentid=\"H\"" + filter(lineFilter) +
                            "><FIELD name=\"ITEM\" type=\"3\"/><FIELD name=\"Q\" type=\"1\"/></RECORD>",
                        {{"actiontransformerror", action_}});
  }

  Ref<Transaction> Header(const std::string& number, const std::string& v,
                          const std::vector<std::pair<std::string, std::string>>& lines = {}) {
    Ref<TransactionContext> top = TopOf(*input_);
    Ref<Transaction> header = AddRecord(*input_, *top, "H", {{"NUM", number}, {"V", v}});
    for (const auto& [item, q] : lines) AddRecord(*input_, *header->Context(), "L", {{"ITEM", item}, {"Q", q}});
    return header;
  }

  void Filter(const std::string& headerFilter, const std::string& lineFilter) {
    filter_ = std::make_unique<TransformFilter>();
    filter_->CreateController(nullptr, event_,
                              FactoryOf(DefinitionOf(Definition(headerFilter, lineFilter)), input_->Data()), false);
    filter_->Process();
  }

  std::vector<std::string> Values(const std::string& record, const std::string& field) {
    return Texts(*input_->Data(), "//RECORDS[@id='" + record + "']/RECORD/FIELD[@name='" + field + "']/VALUES/VALUE");
  }

  JobEnvironment env_;  // the script host's configuration
  std::string action_ = "1";
  RecordingEvent event_;
  std::shared_ptr<TransactionFactory> input_;
  std::unique_ptr<TransformFilter> filter_;
};

TEST_F(FilterTest, ChildrenAreJudgedFirstAndAFailingParentTakesItsSubtree) {
  Header("1", "1", {{"a", "1"}, {"b", "5"}, {"c", "7"}});
  Header("2", "0", {{"d", "9"}, {"e", "1"}});
  Header("3", "1", {{"f", "0"}});
  Filter("%V = 1", "%Q &gt; 2");
  EXPECT_EQ((std::vector<std::string>{"1", "3"}), Values("H", "NUM"));
  EXPECT_EQ((std::vector<std::string>{"b", "c"}), Values("L", "ITEM"));
  // Header 3 keeps an empty group of lines.
  EXPECT_EQ(1u, input_->Data()
                    ->GetNodesFromXPath("/DATA/RECORDS/RECORD[FIELD[@name='NUM']/VALUES/VALUE='3']/RECORDS[@id='L' and "
                                        "not(*)]")
                    .size());
  // Lines that failed are reported before their header; the lines that
  // passed go with header 2 unreported.
  EXPECT_EQ((std::vector<std::string>{"L:a", "L:e", "H:2", "L:f"}), event_.deleted);
  EXPECT_EQ(9u, event_.processed.size());
  EXPECT_TRUE(event_.errors.empty());
}

TEST_F(FilterTest, AParentConditionCountsOnlyTheChildrenThatPassed) {
  Header("1", "1", {{"a", "1"}, {"b", "5"}});
  Header("2", "1", {{"c", "1"}, {"d", "2"}});
  Header("3", "1");
  Filter("Count(&quot;L&quot;) &gt; 0", "%Q &gt; 2");
  EXPECT_EQ((std::vector<std::string>{"1"}), Values("H", "NUM"));
  EXPECT_EQ((std::vector<std::string>{"b"}), Values("L", "ITEM"));
  EXPECT_EQ((std::vector<std::string>{"L:a", "L:c", "L:d", "H:2", "H:3"}), event_.deleted);
}

TEST_F(FilterTest, RecordTypeWithoutConditionKeepsAllAndItsChildrenAreStillJudged) {
  Header("1", "0", {{"a", "1"}, {"b", "5"}});
  Filter("", "%Q &gt; 2");
  EXPECT_EQ((std::vector<std::string>{"1"}), Values("H", "NUM"));
  EXPECT_EQ((std::vector<std::string>{"b"}), Values("L", "ITEM"));
}

TEST_F(FilterTest, MultiLineConditionAndAnEmptyResult) {
  Header("1", "3");
  Header("2", "1");
  Filter("x = %V&#10;x &gt; 2", "Empty");
  EXPECT_EQ((std::vector<std::string>{"1"}), Values("H", "NUM"));

  input_->ClearData();
  event_.deleted.clear();
  Header("3", "1", {{"a", "5"}});
  Filter("", "Empty");
  // A condition that gives nothing deletes.
  EXPECT_EQ((std::vector<std::string>{"L:a"}), event_.deleted);
}

TEST_F(FilterTest, UnderActionTwoAFailingConditionRepeatsTheLastDecisionOfItsLevel) {
  action_ = "2";
  // 10 / V > 1 fails for V = 0: the first record of the level is deleted,
  // later ones take the decision of the record before.
  for (const auto& [number, v] : std::vector<std::pair<std::string, std::string>>{
           {"1", "0"}, {"2", "5"}, {"3", "0"}, {"4", "20"}, {"5", "0"}}) {
    Header(number, v);
  }
  Filter("10 / %V &gt; 1", "");
  EXPECT_EQ((std::vector<std::string>{"2", "3"}), Values("H", "NUM"));
  ASSERT_EQ(3u, event_.errors.size());
  EXPECT_EQ("9650", event_.errors[0].ReasonCode);
  EXPECT_NE(std::string::npos, event_.errors[0].Reason.find("Division by zero")) << event_.errors[0].Reason;
  EXPECT_NE(std::string::npos, event_.errors[0].Reason.find("on transaction type [H]")) << event_.errors[0].Reason;
}

TEST_F(FilterTest, UnderActionOneAFailingConditionEndsTheTransform) {
  Header("1", "5");
  Header("2", "0");
  Header("3", "0");
  EXPECT_EQ(11, CatchError([&] { Filter("10 / %V &gt; 1", ""); }).number());
  EXPECT_EQ(1u, event_.errors.size());
  EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}), Values("H", "NUM"));
}

}  // namespace
}  // namespace tessel::test
