#include "scripting/vbs/Lexer.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <string>

#include "core/DateTime.h"
#include "scripting/vbs/ScriptError.h"

namespace tessel::vbs {

namespace {

struct KeywordEntry {
  std::string_view name;  // lowercase
  Keyword keyword;
};

constexpr KeywordEntry kKeywords[] = {
    {"and", Keyword::And},         {"byref", Keyword::ByRef},     {"byval", Keyword::ByVal},
    {"call", Keyword::Call},       {"case", Keyword::Case},       {"class", Keyword::Class},
    {"const", Keyword::Const},     {"dim", Keyword::Dim},         {"do", Keyword::Do},
    {"each", Keyword::Each},       {"else", Keyword::Else},       {"elseif", Keyword::ElseIf},
    {"empty", Keyword::Empty},     {"end", Keyword::End},         {"eqv", Keyword::Eqv},
    {"erase", Keyword::Erase},     {"exit", Keyword::Exit},       {"false", Keyword::False},
    {"for", Keyword::For},         {"function", Keyword::Function}, {"goto", Keyword::GoTo},
    {"if", Keyword::If},           {"imp", Keyword::Imp},         {"is", Keyword::Is},
    {"loop", Keyword::Loop},       {"me", Keyword::Me},           {"mod", Keyword::Mod},
    {"new", Keyword::New},         {"next", Keyword::Next},       {"not", Keyword::Not},
    {"nothing", Keyword::Nothing}, {"null", Keyword::Null},       {"on", Keyword::On},
    {"option", Keyword::Option},   {"or", Keyword::Or},           {"private", Keyword::Private},
    {"public", Keyword::Public},   {"redim", Keyword::ReDim},     {"resume", Keyword::Resume},
    {"select", Keyword::Select},   {"set", Keyword::Set},         {"stop", Keyword::Stop},
    {"sub", Keyword::Sub},         {"then", Keyword::Then},       {"to", Keyword::To},
    {"true", Keyword::True},       {"until", Keyword::Until},     {"wend", Keyword::Wend},
    {"while", Keyword::While},     {"with", Keyword::With},       {"xor", Keyword::Xor},
};

constexpr int kKeywordCount = static_cast<int>(std::size(kKeywords));

// kKeywordStart[l] is the index of the first keyword whose letter is at
// least 'a' + l (the table is alphabetical); kKeywordStart[26] is the end.
struct KeywordIndex {
  int start[27];
  constexpr KeywordIndex() : start{} {
    int i = 0;
    for (int l = 0; l <= 26; ++l) {
      while (i < kKeywordCount && kKeywords[i].name[0] - 'a' < l) ++i;
      start[l] = i;
    }
  }
  constexpr int operator[](int l) const { return start[l]; }
};
constexpr KeywordIndex kKeywordStart;

// ASCII only: names are ASCII, and the C locale functions cost a call each.
inline bool IsIdentStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool IsIdentChar(char c) { return IsIdentStart(c) || (c >= '0' && c <= '9') || c == '_'; }
inline char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Lower(a[i]) != Lower(b[i])) return false;
  return true;
}

int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

bool IsLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }
int DaysInMonth(int y, int m) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeap(y) ? 29 : kDays[m - 1];
}

// Reads a run of digits; -1 when none.
int ReadInt(std::string_view s, size_t& i, int* digits = nullptr) {
  int value = 0, n = 0;
  while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i]))) {
    if (n < 9) value = value * 10 + (s[i] - '0');
    ++i;
    ++n;
  }
  if (digits) *digits = n;
  return n ? value : -1;
}

void SkipSpaces(std::string_view s, size_t& i) {
  while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
}

}  // namespace

// One division instead of a full conversion: a fraction of its cost.
bool Lexer::ShortDecimal(std::string_view text, double& value) {
  static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  int64_t digits = 0;
  int count = 0;
  int fraction = -1;  // digits after the point; -1 before it
  for (char c : text) {
    if (c == '.') {
      if (fraction >= 0) return false;
      fraction = 0;
      continue;
    }
    if (c < '0' || c > '9' || ++count > 15) return false;
    digits = digits * 10 + (c - '0');
    if (fraction >= 0) ++fraction;
  }
  value = static_cast<double>(digits) / kPowers[fraction < 0 ? 0 : fraction];
  return true;
}

bool Token::IsWord(std::string_view word) const {
  return kind == TokenKind::Identifier && EqualsNoCase(source, word);
}

Keyword Lexer::LookupKeyword(std::string_view word) {
  if (word.size() < 2 || word.size() > 8) return Keyword::None;
  const char first = Lower(word[0]);
  if (first < 'a' || first > 'z') return Keyword::None;
  // Every identifier is looked up, most of them not reserved: start at the
  // first entry of the word's letter instead of scanning the letters before.
  const int letter = first - 'a';
  for (int i = kKeywordStart[letter]; i < kKeywordStart[letter + 1]; ++i) {
    const KeywordEntry& entry = kKeywords[i];
    if (entry.name.size() == word.size() && EqualsNoCase(entry.name, word)) return entry.keyword;
  }
  return Keyword::None;
}

bool Lexer::ParseDateLiteral(std::string_view s, double& serial) {
  size_t i = 0;
  SkipSpaces(s, i);
  bool haveDate = false, haveTime = false;
  int64_t days = 0;
  double fraction = 0;
  // Date part: a/b/c or a-b-c, year first when the first number has 4 digits.
  size_t save = i;
  int d1 = 0;
  int a = ReadInt(s, i, &d1);
  if (a >= 0 && i < s.size() && (s[i] == '/' || s[i] == '-')) {
    const char sep = s[i++];
    int b = ReadInt(s, i);
    int c = -1, d3 = 0;
    if (b >= 0 && i < s.size() && s[i] == sep) {
      ++i;
      c = ReadInt(s, i, &d3);
      if (c < 0) return false;
    }
    if (b < 0) return false;
    int year, month, day;
    if (c < 0) {  // month/day of the current year is not a literal we accept
      return false;
    } else if (d1 >= 3) {
      year = a, month = b, day = c;
    } else {
      month = a, day = b, year = c;
      if (d3 <= 2) year += year < 30 ? 2000 : 1900;
      if (month > 12 && day <= 12) std::swap(month, day);
    }
    if (month < 1 || month > 12 || day < 1 || year < 100 || year > 9999 ||
        day > DaysInMonth(year, month))
      return false;
    days = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) -
           DaysFromCivil(1899, 12, 30);
    haveDate = true;
    SkipSpaces(s, i);
  } else {
    i = save;
  }
  // Time part: h[:m[:s]] [AM|PM]
  if (i < s.size()) {
    int h = ReadInt(s, i);
    if (h < 0) return false;
    int m = 0, sec = 0;
    bool colon = false;
    if (i < s.size() && s[i] == ':') {
      ++i;
      colon = true;
      m = ReadInt(s, i);
      if (m < 0) return false;
      if (i < s.size() && s[i] == ':') {
        ++i;
        sec = ReadInt(s, i);
        if (sec < 0) return false;
      }
    }
    SkipSpaces(s, i);
    bool ampm = false;
    if (i + 1 < s.size() + 0 && i + 2 <= s.size()) {
      std::string_view rest = s.substr(i, 2);
      if (EqualsNoCase(rest, "am") || EqualsNoCase(rest, "pm")) {
        if (h < 1 || h > 12) return false;
        if (EqualsNoCase(rest, "pm") && h != 12) h += 12;
        if (EqualsNoCase(rest, "am") && h == 12) h = 0;
        i += 2;
        ampm = true;
      }
    }
    if (!colon && !ampm) return false;
    if (h > 23 || m > 59 || sec > 59) return false;
    fraction = (h * 3600 + m * 60 + sec) / 86400.0;
    haveTime = true;
    SkipSpaces(s, i);
  }
  if (i != s.size() || (!haveDate && !haveTime)) return false;
  serial = days >= 0 ? static_cast<double>(days) + fraction : static_cast<double>(days) - fraction;
  return true;
}

Lexer::Lexer(std::string_view source, int firstLine) : src_(source), line_(firstLine) {}

void Lexer::Fail(int number, int line, int column) const {
  throw ScriptError(number, syntax::Message(number), line, column);
}

void Lexer::SkipBlanks(bool& sawSpace) {
  for (;;) {
    while (pos_ < src_.size() && (src_[pos_] == ' ' || src_[pos_] == '\t' || src_[pos_] == '\f' ||
                                  src_[pos_] == '\v' || src_[pos_] == '\0')) {
      ++pos_;
      sawSpace = true;
    }
    // Line continuation: '_' followed by blanks up to a line break.
    if (pos_ < src_.size() && src_[pos_] == '_' && (pos_ + 1 >= src_.size() || !IsIdentChar(src_[pos_ + 1]))) {
      size_t p = pos_ + 1;
      while (p < src_.size() && (src_[p] == ' ' || src_[p] == '\t')) ++p;
      if (p < src_.size() && (src_[p] == '\r' || src_[p] == '\n')) {
        if (src_[p] == '\r' && p + 1 < src_.size() && src_[p + 1] == '\n') ++p;
        pos_ = p + 1;
        lineStart_ = pos_;
        ++line_;
        sawSpace = true;
        continue;
      }
    }
    return;
  }
}

void Lexer::Next(Token& t) {
  bool sawSpace = false;
  SkipBlanks(sawSpace);
  t.spaceBefore = sawSpace;
  t.keyword = Keyword::None;
  t.line = line_;
  t.column = Column(pos_);
  const size_t start = pos_;
  if (pos_ >= src_.size()) {
    t.kind = TokenKind::End;
    t.source = {};
    return;
  }
  const char c = src_[pos_];
  auto single = [&](TokenKind kind, size_t len = 1) {
    pos_ += len;
    t.kind = kind;
    t.source = src_.substr(start, len);
  };
  switch (c) {
    case '\r':
    case '\n':
      if (c == '\r' && pos_ + 1 < src_.size() && src_[pos_ + 1] == '\n') ++pos_;
      ++pos_;
      t.kind = TokenKind::Newline;
      t.source = src_.substr(start, pos_ - start);
      lineStart_ = pos_;
      ++line_;
      return;
    case ':':
      return single(TokenKind::Newline);
    case '\'': {
      while (pos_ < src_.size() && src_[pos_] != '\r' && src_[pos_] != '\n') ++pos_;
      return Next(t);
    }
    case '(': return single(TokenKind::LParen);
    case ')': return single(TokenKind::RParen);
    case ',': return single(TokenKind::Comma);
    case '+': return single(TokenKind::Plus);
    case '-': return single(TokenKind::Minus);
    case '*': return single(TokenKind::Star);
    case '/': return single(TokenKind::Slash);
    case '\\': return single(TokenKind::Backslash);
    case '^': return single(TokenKind::Caret);
    case '=': return single(TokenKind::Eq);
    case '<':
      if (pos_ + 1 < src_.size() && src_[pos_ + 1] == '>') return single(TokenKind::Ne, 2);
      if (pos_ + 1 < src_.size() && src_[pos_ + 1] == '=') return single(TokenKind::Le, 2);
      return single(TokenKind::Lt);
    case '>':
      if (pos_ + 1 < src_.size() && src_[pos_ + 1] == '=') return single(TokenKind::Ge, 2);
      return single(TokenKind::Gt);
    case '&':
      if (pos_ + 2 < src_.size()) {
        // &H and &O start a number only when a digit follows; otherwise the
        // & joins strings and a name follows ("x" &hi).
        const char n = Lower(src_[pos_ + 1]);
        const char d = Lower(src_[pos_ + 2]);
        const bool hexDigit = std::isdigit(static_cast<unsigned char>(d)) || (d >= 'a' && d <= 'f');
        if ((n == 'h' && hexDigit) || (n == 'o' && d >= '0' && d <= '7')) return LexHexOctal(t);
      }
      return single(TokenKind::Amp);
    case '"': return LexString(t);
    case '#': return LexDate(t);
    case '.':
      if (pos_ + 1 < src_.size() && std::isdigit(static_cast<unsigned char>(src_[pos_ + 1])))
        return LexNumber(t);
      return single(TokenKind::Dot);
    case '\x01':
      if (allowSlots_ && pos_ + 1 < src_.size() && src_[pos_ + 1] != '\0') {
        t.integer = static_cast<unsigned char>(src_[pos_ + 1]) - 1;
        return single(TokenKind::Slot, 2);
      }
      break;
    case '[': {
      size_t p = pos_ + 1;
      while (p < src_.size() && src_[p] != ']' && src_[p] != '\r' && src_[p] != '\n') ++p;
      if (p >= src_.size() || src_[p] != ']') Fail(syntax::kExpectedRBracket, line_, Column(p));
      t.kind = TokenKind::Identifier;
      t.source = src_.substr(pos_ + 1, p - pos_ - 1);
      pos_ = p + 1;
      return;
    }
    default:
      break;
  }
  if (std::isdigit(static_cast<unsigned char>(c))) return LexNumber(t);
  if (IsIdentStart(c)) {
    size_t p = pos_ + 1;
    while (p < src_.size() && IsIdentChar(src_[p])) ++p;
    std::string_view word = src_.substr(pos_, p - pos_);
    if (word.size() > 255) Fail(syntax::kIdentifierTooLong, line_, t.column);
    pos_ = p;
    if (word.size() == 3 && EqualsNoCase(word, "rem")) {
      while (pos_ < src_.size() && src_[pos_] != '\r' && src_[pos_] != '\n') ++pos_;
      return Next(t);
    }
    t.source = word;
    t.keyword = LookupKeyword(word);
    t.kind = t.keyword == Keyword::None ? TokenKind::Identifier : TokenKind::Keyword;
    return;
  }
  Fail(syntax::kInvalidCharacter, line_, t.column);
}

void Lexer::LexNumber(Token& t) {
  const size_t start = pos_;
  bool isFloat = false;
  while (pos_ < src_.size() && std::isdigit(static_cast<unsigned char>(src_[pos_]))) ++pos_;
  if (pos_ < src_.size() && src_[pos_] == '.') {
    isFloat = true;
    ++pos_;
    while (pos_ < src_.size() && std::isdigit(static_cast<unsigned char>(src_[pos_]))) ++pos_;
  }
  if (pos_ < src_.size() && (src_[pos_] == 'e' || src_[pos_] == 'E')) {
    size_t p = pos_ + 1;
    if (p < src_.size() && (src_[p] == '+' || src_[p] == '-')) ++p;
    if (p < src_.size() && std::isdigit(static_cast<unsigned char>(src_[p]))) {
      isFloat = true;
      while (p < src_.size() && std::isdigit(static_cast<unsigned char>(src_[p]))) ++p;
      pos_ = p;
    } else {
      Fail(syntax::kInvalidNumber, line_, t.column);
    }
  }
  if (pos_ < src_.size() && IsIdentStart(src_[pos_])) Fail(syntax::kExpectedEndOfStatement, line_, Column(pos_));
  t.source = src_.substr(start, pos_ - start);
  if (!isFloat) {
    int64_t value = 0;
    bool big = false;
    for (char ch : t.source) {
      if (value > 100000000000000LL) {
        big = true;
        break;
      }
      value = value * 10 + (ch - '0');
    }
    if (!big && value <= 2147483647LL) {
      t.kind = TokenKind::Integer;
      t.integer = value;
      t.isLong = value > 32767;
      return;
    }
  }
  t.kind = TokenKind::Double;
  if (isFloat && ShortDecimal(t.source, t.number)) return;
  auto [end, ec] = std::from_chars(t.source.data(), t.source.data() + t.source.size(), t.number);
  if (ec != std::errc()) {
    std::string buffer(t.source);
    t.number = std::strtod(buffer.c_str(), nullptr);
  }
  if (!std::isfinite(t.number)) Fail(syntax::kInvalidNumber, line_, t.column);
}

void Lexer::LexHexOctal(Token& t) {
  const size_t start = pos_;
  const bool hex = Lower(src_[pos_ + 1]) == 'h';
  pos_ += 2;
  uint64_t value = 0;
  int digits = 0;
  for (; pos_ < src_.size(); ++pos_) {
    const char ch = Lower(src_[pos_]);
    int d;
    if (ch >= '0' && ch <= '9') d = ch - '0';
    else if (hex && ch >= 'a' && ch <= 'f') d = ch - 'a' + 10;
    else break;
    if (!hex && d > 7) break;
    value = value * (hex ? 16 : 8) + static_cast<uint64_t>(d);
    if (value > 0xFFFFFFFFull) Fail(syntax::kInvalidNumber, line_, t.column);
    ++digits;
  }
  if (digits == 0) Fail(syntax::kSyntaxError, line_, t.column);
  bool forceLong = false;
  if (pos_ < src_.size() && src_[pos_] == '&') {
    forceLong = true;
    ++pos_;
  }
  t.kind = TokenKind::Integer;
  t.source = src_.substr(start, pos_ - start);
  // Without the & suffix four digits wrap as an Integer (&HFFFF is -1); with
  // it the digits are a 32-bit value, which is still an Integer when it fits
  // one (&H10& and &HFFFFFFFF& are Integers, &HFFFF& is the Long 65535).
  const int32_t asLong = static_cast<int32_t>(static_cast<uint32_t>(value));
  if (value <= 0xFFFF && !forceLong) {
    t.integer = static_cast<int16_t>(static_cast<uint16_t>(value));
    t.isLong = false;
  } else if (forceLong && asLong >= INT16_MIN && asLong <= INT16_MAX) {
    t.integer = asLong;
    t.isLong = false;
  } else {
    t.integer = asLong;
    t.isLong = true;
  }
}

void Lexer::LexString(Token& t) {
  const size_t start = pos_;
  ++pos_;
  t.text.clear();
  for (;;) {
    size_t p = pos_;
    while (p < src_.size() && src_[p] != '"' && src_[p] != '\r' && src_[p] != '\n') ++p;
    t.text.append(src_.data() + pos_, p - pos_);
    if (p >= src_.size() || src_[p] != '"') Fail(syntax::kUnterminatedString, line_, Column(p));
    if (p + 1 < src_.size() && src_[p + 1] == '"') {
      t.text.push_back('"');
      pos_ = p + 2;
      continue;
    }
    pos_ = p + 1;
    break;
  }
  t.kind = TokenKind::String;
  t.source = src_.substr(start, pos_ - start);
}

void Lexer::LexDate(Token& t) {
  const size_t start = pos_;
  size_t p = pos_ + 1;
  while (p < src_.size() && src_[p] != '#' && src_[p] != '\r' && src_[p] != '\n') ++p;
  if (p >= src_.size() || src_[p] != '#') Fail(syntax::kSyntaxError, line_, t.column);
  double serial = 0;
  std::string_view inside = src_.substr(start + 1, p - start - 1);
  if (!ParseDateLiteral(inside, serial)) {
    // Month names and the other forms dates may be written in.
    std::optional<double> parsed = DateTime::Parse(inside);
    if (!parsed) Fail(syntax::kSyntaxError, line_, t.column);
    serial = *parsed;
  }
  pos_ = p + 1;
  t.kind = TokenKind::Date;
  t.number = serial;
  t.source = src_.substr(start, pos_ - start);
}

}  // namespace tessel::vbs
