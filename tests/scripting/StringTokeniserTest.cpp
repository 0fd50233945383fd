#include <gtest/gtest.h>

#include "core/Error.h"
#include "scripting/Stack.h"
#include "scripting/StringTokeniser.h"

namespace tessel {
namespace {

// Tokens of one parse in order of appearance, as "text" or "<text>" for a delimiter.
std::vector<std::string> Parse(const std::string& delimiters, const std::string& expression) {
  StringTokeniser tokeniser;
  tokeniser.SetTokens(delimiters);
  tokeniser.ParseString(expression);
  std::vector<std::string> out(static_cast<size_t>(tokeniser.StackSize()));
  for (size_t i = out.size(); i > 0; --i) {
    Ref<Token> token = tokeniser.PopFromStack();
    out[i - 1] = token->TokenType() == Token::kDelimiter ? "<" + token->Text() + ">" : token->Text();
  }
  return out;
}

using Tokens = std::vector<std::string>;

TEST(StringTokeniserTest, CutsOperandsAndDelimiters) {
  EXPECT_EQ(Parse("=|<>|>|<", "a = 1"), (Tokens{"a ", "<=>", " 1"}));
  EXPECT_EQ(Parse(" and | or ", "a=1 AND b=2 or c=3"), (Tokens{"a=1", "<AND>", "b=2", "<or>", "c=3"}));
  EXPECT_EQ(Parse("=|<>|>|<", "a <> b"), (Tokens{"a ", "<<>>", " b"}));
  EXPECT_TRUE(Parse("=", "").empty());
}

TEST(StringTokeniserTest, QuotedTextIsNeverCut) {
  EXPECT_EQ(Parse(" and | or ", "a = 'x and y'"), (Tokens{"a = 'x and y'"}));
  EXPECT_EQ(Parse(" and | or ", "a = 'it\\'s' and b = 1"), (Tokens{"a = 'it\\'s'", "<and>", "b = 1"}));
  EXPECT_EQ(Parse(" and | or ", "a = \"it's\" and b = 1"), (Tokens{"a = \"it's\"", "<and>", "b = 1"}));
  EXPECT_EQ(Parse("=", "a = 'open"), (Tokens{"a ", "<=>", " 'open"}));
}

TEST(StringTokeniserTest, DelimitersThatWouldLeaveNoOperandVanish) {
  EXPECT_EQ(Parse("=", "=abc"), (Tokens{"abc"}));
  EXPECT_EQ(Parse("=", "a==b"), (Tokens{"a", "<=>", "b"}));
}

TEST(StringTokeniserTest, TheFirstCharacterOfALongDelimiterIsNotBinding) {
  EXPECT_EQ(Parse("=|<>|>|<", "a>b"), (Tokens{"b"}));
  EXPECT_EQ(Parse("=|<>|>|<", "ab>c"), (Tokens{"a", "<b>>", "c"}));
  EXPECT_EQ(Parse(" and | or ", "band x"), (Tokens{"x"}));
  EXPECT_EQ(Parse(" and | or ", "xband y"), (Tokens{"x", "<band>", "y"}));
}

TEST(StringTokeniserTest, TokensStackAcrossParsesAndPopLastFirst) {
  StringTokeniser tokeniser;
  tokeniser.SetTokens("=|<>");
  EXPECT_EQ(tokeniser.Tokens(), "=|<>");
  tokeniser.ParseString("a = 1");
  tokeniser.ParseString("b");
  EXPECT_EQ(tokeniser.StackSize(), 4);
  EXPECT_EQ(tokeniser.PopFromStack()->Text(), "b");
  EXPECT_EQ(tokeniser.PopFromStack()->Text(), " 1");
  EXPECT_EQ(tokeniser.PopFromStack()->Text(), "=");
  EXPECT_EQ(tokeniser.PopFromStack()->Text(), "a ");
}

TEST(StackTest, PushPopPeekAndGrowth) {
  Stack stack;
  EXPECT_EQ(stack.Capacity(), 17u);
  for (int i = 0; i < 18; ++i) stack.Push(Variant(int32_t{i}));
  EXPECT_EQ(stack.Capacity(), 33u);
  EXPECT_EQ(stack.Count(), 18);
  EXPECT_EQ(stack.Peek().LongValue(), 17);
  for (int i = 17; i >= 0; --i) EXPECT_EQ(stack.Pop().LongValue(), i);
  try {
    stack.Pop();
    ADD_FAILURE();
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 9501);
    EXPECT_NE(e.description().find("Stack Out of Bounds."), std::string::npos);
  }
}

TEST(StackTest, CloneReverseAndText) {
  Stack stack;
  EXPECT_EQ(stack.ToString(), "");
  stack.Push(Variant("a"));
  stack.Push(Variant("b"));
  stack.Push(Variant(MakeRef<Token>(Token::kOperand, "t")));
  EXPECT_EQ(stack.ToString(), " - t - b - a");
  Stack copy = stack.Clone();
  stack.Reverse();
  EXPECT_EQ(stack.ToString(), " - a - b - t");
  EXPECT_EQ(copy.ToString(), " - t - b - a");
  stack.EmptyStack();
  EXPECT_EQ(stack.Count(), 0);
}

}  // namespace
}  // namespace tessel
