// StringTokeniser: cuts an expression into operands and delimiters by a list
// of delimiters set at run time ("=|<>|>|<", " and | or ").
//
// Rules kept on purpose, as callers depend on them:
// - delimiters compare without regard to case; tokens keep the expression's
//   own characters, operands untrimmed, delimiters trimmed;
// - text inside '...' or "..." is never cut; a quote preceded by a backslash
//   does not close the run;
// - the first character of a delimiter of two or more characters is not
//   binding ("<>" matches "x>"), and a delimiter that would give an empty
//   operand (at the start, or right behind another) vanishes without a token.
//
// Tokens go onto the tokeniser's Stack in order of appearance, so popping
// gives the last first. ParseString never clears the stack. Raises nothing of
// its own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/Object.h"
#include "scripting/Stack.h"
#include "scripting/Token.h"

namespace tessel {

class StringTokeniser {
 public:
  // Delimiters separated by "|"; blanks in them count.
  void SetTokens(std::string_view delimiters);
  // The list as set, lower-cased.
  const std::string& Tokens() const { return list_; }

  void ParseString(std::string_view expression);
  Ref<Token> PopFromStack();
  void PushOntoStack(const Ref<Token>& token);
  int32_t StackSize() const { return stack_.Count(); }

 private:
  // Length of the delimiter that matches at `position`, or 0.
  size_t MatchAt(std::string_view lowered, size_t position, size_t& which) const;

  std::string list_;
  std::vector<std::string> delimiters_;
  Stack stack_;
};

}  // namespace tessel
