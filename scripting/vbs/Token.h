// Token: one lexical unit of VBScript source, as the Lexer hands it to the
// Parser.
//
// A token is a plain value. Identifier text is a view into the source, which
// the caller keeps alive for as long as it uses the token; string literals own
// their decoded text ("" collapsed to "). Literal numbers keep the subtype
// VBScript gives them: decimal integers up to 32767 are Integer, up to
// 2147483647 Long, larger ones Double; &H/&O literals of up to 16 bits are
// Integer, up to 32 bits Long.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::vbs {

enum class TokenKind : uint8_t {
  End,
  Newline,  // line break or ':'
  Identifier,
  Keyword,
  Integer,  // integer literal; `integer` holds it, `isLong` tells the subtype
  Double,   // floating literal in `number`
  String,   // string literal in `text`
  Date,     // #date# literal, date serial in `number`
  LParen,
  RParen,
  Comma,
  Dot,
  Plus,
  Minus,
  Star,
  Slash,
  Backslash,
  Caret,
  Amp,
  Eq,
  Ne,
  Lt,
  Le,
  Gt,
  Ge,
  Slot,  // a value supplied later, in `integer` its number (compiled expressions only)
};

// Reserved words. Words the language only recognises in one place (Get, Let,
// Default, Preserve, Step, Explicit, Error, In, Property) stay identifiers so
// that scripts may use them as names; the parser tests their text.
enum class Keyword : uint8_t {
  None,
  And, ByRef, ByVal, Call, Case, Class, Const, Dim, Do, Each, Else, ElseIf,
  Empty, End, Eqv, Erase, Exit, False, For, Function, GoTo, If, Imp, Is, Loop,
  Me, Mod, New, Next, Not, Nothing, Null, On, Option, Or, Private, Public,
  ReDim, Resume, Select, Set, Stop, Sub, Then, To, True, Until, Wend, While,
  With, Xor,
};

struct Token {
  TokenKind kind = TokenKind::End;
  Keyword keyword = Keyword::None;
  bool isLong = false;       // Integer token: Long rather than Integer
  bool spaceBefore = false;  // blank between this token and the previous one
  int line = 1;              // 1-based
  int column = 1;            // 1-based character position in the line
  int64_t integer = 0;
  double number = 0;
  std::string_view source;   // the token's text as written
  std::string text;          // decoded string literal

  bool Is(Keyword k) const { return kind == TokenKind::Keyword && keyword == k; }
  // Identifier (not keyword) whose text equals `word` ignoring case.
  bool IsWord(std::string_view word) const;
};

}  // namespace tessel::vbs
