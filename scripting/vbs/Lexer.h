// Lexer: turns VBScript source text into Tokens, one at a time.
//
// The lexer does not own the source; the string must outlive the lexer and
// every token it produced. Line continuations (" _" before a line break) and
// comments (' and Rem) are consumed here; ':' and line breaks both come out as
// Newline tokens. Malformed input raises ScriptError with VBScript's syntax
// error numbers (1032 invalid character, 1033 unterminated string, ...).
#pragma once

#include <string_view>

#include "scripting/vbs/Token.h"

namespace tessel::vbs {

class Lexer {
 public:
  // `firstLine` numbers the first line of `source` (code added later keeps
  // counting from where the caller says).
  explicit Lexer(std::string_view source, int firstLine = 1);

  // Reads the byte 0x01 followed by a byte n (1 to 255) as a Slot token
  // numbered n - 1. Off by default: the byte is then an invalid character,
  // as in any script.
  void AllowSlots() { allowSlots_ = true; }

  // Reads the next token into `token` (reused by the caller to keep its
  // string buffer).
  void Next(Token& token);

  // Lowercase keyword lookup; Keyword::None when `word` is not reserved.
  static Keyword LookupKeyword(std::string_view word);

  // Parses the inside of a #...# literal into a date serial; false if it is
  // not a date.
  static bool ParseDateLiteral(std::string_view text, double& serial);

  // The value of `text`, digits with at most one point and at most 15
  // digits in all, as a number literal of these characters reads: the
  // digits as a whole number and the power of ten are both exact doubles,
  // so one division gives the correctly rounded value. False for anything
  // else (exponents, longer numbers).
  static bool ShortDecimal(std::string_view text, double& value);

 private:
  [[noreturn]] void Fail(int number, int line, int column) const;
  void SkipBlanks(bool& sawSpace);
  void LexNumber(Token& token);
  void LexHexOctal(Token& token);
  void LexString(Token& token);
  void LexDate(Token& token);
  int Column(size_t pos) const { return static_cast<int>(pos - lineStart_) + 1; }

  std::string_view src_;
  size_t pos_ = 0;
  size_t lineStart_ = 0;
  int line_;
  bool allowSlots_ = false;
};

}  // namespace tessel::vbs
