#include <gtest/gtest.h>

#include "core/BooleanText.h"
#include "core/Error.h"
#include "tests/core/TestHelpers.h"

namespace tessel {
namespace {

TEST(BooleanText, WordsAndNumbers) {
  EXPECT_TRUE(BooleanText::Parse("True"));
  EXPECT_TRUE(BooleanText::Parse("true"));
  EXPECT_TRUE(BooleanText::Parse(" TRUE "));
  EXPECT_FALSE(BooleanText::Parse("False"));
  EXPECT_FALSE(BooleanText::Parse("0"));
  EXPECT_TRUE(BooleanText::Parse("1"));
  EXPECT_TRUE(BooleanText::Parse("-1"));
  EXPECT_TRUE(BooleanText::Parse("2.5"));
  EXPECT_FALSE(BooleanText::Parse("0.0"));
  EXPECT_EQ(BooleanText::ToText(true), "True");
  EXPECT_EQ(BooleanText::ToText(false), "False");
}

TEST(BooleanText, OtherTextIsATypeMismatch) {
  for (const char* bad : {"", "yes", "T", "1x", "Truee"}) {
    EXPECT_FALSE(BooleanText::TryParse(bad).has_value()) << bad;
    try {
      BooleanText::Parse(bad);
      ADD_FAILURE() << bad;
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), 13);
      EXPECT_EQ(e.description(), "Type mismatch");
      EXPECT_EQ(e.source(), "Microsoft VBScript runtime error");
    }
  }
}

}  // namespace
}  // namespace tessel
