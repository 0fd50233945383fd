#include "scripting/vbs/BuiltinStrings.h"

#include <string>

#include "scripting/vbs/BuiltinArgs.h"
#include "scripting/vbs/BuiltinText.h"

namespace tessel::vbs::builtins {

namespace {

// The text of a string argument. An object stands for its default value,
// fetched once; a String is viewed in place, anything else converted and held
// here. Null is reported by IsNull() and has no text. Not copyable, so the
// view cannot outlive its owner.
class TextArg {
 public:
  explicit TextArg(const Variant& v) {
    const Variant* value = &v;
    if (v.IsObject()) {
      held_ = v.Dereference();
      value = &held_;
    }
    if (value->IsNull()) {
      null_ = true;
    } else if (value->IsString()) {
      view_ = value->StringValue();
    } else {
      owned_ = value->ToString();
      view_ = owned_;
    }
  }
  TextArg(const TextArg&) = delete;
  TextArg& operator=(const TextArg&) = delete;
  bool IsNull() const noexcept { return null_; }
  operator std::string_view() const noexcept { return view_; }
  std::string_view view() const noexcept { return view_; }
  bool empty() const noexcept { return view_.empty(); }
  size_t size() const noexcept { return view_.size(); }

 private:
  Variant held_;
  std::string owned_;
  std::string_view view_;
  bool null_ = false;
};

// The whole text as a String result, sharing the argument's buffer when it
// already is one.
Variant Whole(const Variant& arg, const TextArg& text) {
  return arg.IsString() ? arg : Variant(text.view());
}

void CheckLength(int64_t units) {
  if (units > kMaxBuiltString) ThrowRuntimeError(7);
}

bool IsTrimmed(char c) { return c == ' '; }

enum class TrimSide { Left, Right, Both };

Variant TrimImpl(const Variant* args, TrimSide side) {
  TextArg arg(args[0]);
  if (arg.IsNull()) return Variant::Null();
  std::string_view s = arg.view();
  size_t begin = 0, end = s.size();
  if (side != TrimSide::Right) {
    while (begin < end && IsTrimmed(s[begin])) ++begin;
  }
  if (side != TrimSide::Left) {
    while (end > begin && IsTrimmed(s[end - 1])) --end;
  }
  if (begin == 0 && end == s.size() && args[0].IsString()) return args[0];
  return Variant(s.substr(begin, end - begin));
}

bool IsUnescaped(char16_t c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '@' ||
         c == '*' || c == '_' || c == '+' || c == '-' || c == '.' || c == '/';
}

int HexValue(char16_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// The character String() and Chr() make from a code in the ANSI code page.
std::string AnsiChar(int32_t code) {
  std::string out;
  text::AppendUnit(out, text::AnsiToUnit(static_cast<uint8_t>(code)));
  return out;
}

}  // namespace

Variant Len(BuiltinContext&, const Variant* args, int) {
  const Variant& v = args[0];
  if (v.IsString()) {
    std::string_view s = v.StringValue();
    return Variant(static_cast<int32_t>(text::Length(s)));
  }
  TextArg s(v);
  if (s.IsNull()) return Variant::Null();
  return Variant(static_cast<int32_t>(text::Length(s)));
}

Variant LenB(BuiltinContext& context, const Variant* args, int argc) {
  Variant n = Len(context, args, argc);
  if (n.IsNull()) return n;
  return Variant(n.LongValue() * 2);
}

Variant Left(BuiltinContext&, const Variant* args, int) {
  int32_t count = args[1].ToLong();
  if (count < 0) InvalidArgument();
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  if (static_cast<size_t>(count) >= s.size()) return Whole(args[0], s);
  return Variant(text::Substring(s, 0, count));
}

Variant Right(BuiltinContext&, const Variant* args, int) {
  int32_t count = args[1].ToLong();
  if (count < 0) InvalidArgument();
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  int64_t length = text::Length(s);
  if (count >= length) return Whole(args[0], s);
  return Variant(text::Substring(s, length - count, count));
}

Variant Mid(BuiltinContext&, const Variant* args, int argc) {
  // A Null start or length fails before either is converted or checked.
  if (args[1].IsNull() || (HasArg(args, argc, 2) && args[2].IsNull())) ThrowRuntimeError(94);
  int32_t start = args[1].ToLong();
  if (start <= 0) InvalidArgument();
  int64_t count = INT64_MAX;
  if (HasArg(args, argc, 2)) {
    count = args[2].ToLong();
    if (count < 0) InvalidArgument();
  }
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  if (start == 1 && count >= static_cast<int64_t>(s.size())) return Whole(args[0], s);
  return Variant(text::Substring(s, start - 1, count));
}

Variant InStr(BuiltinContext&, const Variant* args, int argc) {
  // InStr(s1, s2) or InStr(start, s1, s2[, compare]).
  int64_t start = 1;
  const Variant* strings = args;
  bool textCompare = false;
  if (argc >= 3) {
    if (HasArg(args, argc, 0)) {
      start = args[0].ToLong();
      if (start < 1) InvalidArgument();
    }
    strings = args + 1;
    textCompare = TextCompareArg(args, argc, 3);
  }
  TextArg haystack(strings[0]);
  TextArg needle(strings[1]);
  if (haystack.IsNull() || needle.IsNull()) return Variant::Null();
  int64_t length = text::Length(haystack);
  if (start > length) return Variant(int32_t{0});
  if (needle.empty()) return Variant(static_cast<int32_t>(start));
  int64_t hit = text::Find(haystack, needle, start - 1, textCompare);
  return Variant(static_cast<int32_t>(hit + 1));
}

Variant InStrRev(BuiltinContext&, const Variant* args, int argc) {
  int64_t start = LongArg(args, argc, 2, -1);
  if (start == 0 || start < -1) InvalidArgument();
  bool textCompare = TextCompareArg(args, argc, 3);
  TextArg haystack(args[0]);
  TextArg needle(args[1]);
  if (haystack.IsNull() || needle.IsNull()) return Variant::Null();
  int64_t length = text::Length(haystack);
  if (start == -1) start = length;
  if (length == 0 || start > length) return Variant(int32_t{0});
  if (needle.empty()) return Variant(static_cast<int32_t>(start));
  int64_t hit = text::FindLast(haystack, needle, start, textCompare);
  return Variant(static_cast<int32_t>(hit + 1));
}

Variant Replace(BuiltinContext&, const Variant* args, int argc) {
  int64_t start = LongArg(args, argc, 3, 1);
  int64_t count = LongArg(args, argc, 4, -1);
  if (start < 1 || count < -1) InvalidArgument();
  bool textCompare = TextCompareArg(args, argc, 5);
  TextArg s(args[0]);
  TextArg find(args[1]);
  TextArg with(args[2]);
  if (s.IsNull() || find.IsNull() || with.IsNull()) ThrowRuntimeError(94);
  return Variant(text::Replace(s, find, with, start - 1, count, textCompare));
}

// The byte variants count two bytes to a UTF-16 unit; an odd byte count
// drops the half unit, since a UTF-8 string cannot hold half a character.
Variant LeftB(BuiltinContext& context, const Variant* args, int argc) {
  int32_t bytes = args[1].ToLong();
  if (bytes < 0) InvalidArgument();
  Variant units[2] = {args[0], Variant(bytes / 2)};
  return Left(context, units, argc);
}

Variant RightB(BuiltinContext& context, const Variant* args, int argc) {
  int32_t bytes = args[1].ToLong();
  if (bytes < 0) InvalidArgument();
  Variant units[2] = {args[0], Variant(bytes / 2)};
  return Right(context, units, argc);
}

Variant MidB(BuiltinContext& context, const Variant* args, int argc) {
  int32_t start = args[1].ToLong();
  if (start <= 0) InvalidArgument();
  Variant units[3] = {args[0], Variant((start - 1) / 2 + 1), Variant()};
  if (HasArg(args, argc, 2)) {
    int32_t bytes = args[2].ToLong();
    if (bytes < 0) InvalidArgument();
    units[2] = Variant(bytes / 2);
    return Mid(context, units, 3);
  }
  return Mid(context, units, 2);
}

Variant InStrB(BuiltinContext& context, const Variant* args, int argc) {
  Variant units[4];
  for (int i = 0; i < argc; ++i) units[i] = args[i];
  if (argc >= 3 && HasArg(args, argc, 0)) {
    int32_t start = args[0].ToLong();
    if (start < 1) InvalidArgument();
    units[0] = Variant((start - 1) / 2 + 1);
  }
  Variant position = InStr(context, units, argc);
  if (position.IsNull() || position.LongValue() == 0) return position;
  return Variant((position.LongValue() - 1) * 2 + 1);
}

Variant Trim(BuiltinContext&, const Variant* args, int) { return TrimImpl(args, TrimSide::Both); }
Variant LTrim(BuiltinContext&, const Variant* args, int) { return TrimImpl(args, TrimSide::Left); }
Variant RTrim(BuiltinContext&, const Variant* args, int) { return TrimImpl(args, TrimSide::Right); }

Variant UCase(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  return Variant(text::ToUpper(s));
}

Variant LCase(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  return Variant(text::ToLower(s));
}

Variant Space(BuiltinContext&, const Variant* args, int) {
  int32_t count = args[0].ToLong();
  if (count < 0) InvalidArgument();
  CheckLength(count);
  return Variant(std::string(static_cast<size_t>(count), ' '));
}

Variant String(BuiltinContext&, const Variant* args, int) {
  Variant countArg = ArgValue(args[0]);
  Variant ch = ArgValue(args[1]);
  if (countArg.IsNull() || ch.IsNull()) return Variant::Null();
  int32_t count = countArg.ToLong();
  if (count < 0) InvalidArgument();
  std::string unit;
  if (ch.IsString()) {
    std::string_view s = ch.StringValue();
    if (s.empty()) InvalidArgument();
    text::AppendUnit(unit, text::FirstUnit(s));
  } else {
    int32_t code = ch.ToLong();
    unit = AnsiChar(((code % 256) + 256) % 256);
  }
  CheckLength(count);
  std::string out;
  out.reserve(unit.size() * static_cast<size_t>(count));
  for (int32_t i = 0; i < count; ++i) out += unit;
  return Variant(std::move(out));
}

Variant StrComp(BuiltinContext&, const Variant* args, int argc) {
  bool textCompare = TextCompareArg(args, argc, 2);
  TextArg a(args[0]);
  TextArg b(args[1]);
  if (a.IsNull() || b.IsNull()) return Variant::Null();
  return Variant::FromInteger(static_cast<int16_t>(text::Compare(a, b, textCompare)));
}

Variant StrReverse(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) ThrowRuntimeError(94);
  return Variant(text::Reverse(s));
}

Variant Asc(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) ThrowRuntimeError(94);
  if (s.empty()) InvalidArgument();
  return Variant::FromInteger(static_cast<int16_t>(text::UnitToAnsi(text::FirstUnit(s))));
}

Variant AscB(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) ThrowRuntimeError(94);
  if (s.empty()) InvalidArgument();
  return Variant::FromByte(static_cast<uint8_t>(text::FirstUnit(s) & 0xFF));
}

Variant AscW(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) ThrowRuntimeError(94);
  if (s.empty()) InvalidArgument();
  return Variant::FromInteger(static_cast<int16_t>(text::FirstUnit(s)));
}

Variant Chr(BuiltinContext&, const Variant* args, int) {
  int32_t code = args[0].ToLong();
  if (code < 0 || code > 255) InvalidArgument();
  return Variant(AnsiChar(code));
}

Variant ChrB(BuiltinContext&, const Variant* args, int) {
  int32_t code = args[0].ToLong();
  if (code < 0 || code > 255) InvalidArgument();
  std::string out;
  text::AppendUnit(out, static_cast<char16_t>(code));
  return Variant(std::move(out));
}

Variant ChrW(BuiltinContext&, const Variant* args, int) {
  int32_t code = args[0].ToLong();
  if (code < -32768 || code > 65535) InvalidArgument();
  if (code < 0) code += 65536;
  std::string out;
  text::AppendUnit(out, static_cast<char16_t>(code));
  return Variant(std::move(out));
}

Variant Escape(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  std::u16string units = text::ToUtf16(s);
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(units.size());
  for (char16_t c : units) {
    if (IsUnescaped(c)) {
      out.push_back(static_cast<char>(c));
    } else if (c < 256) {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    } else {
      out += "%u";
      for (int shift = 12; shift >= 0; shift -= 4) out.push_back(kHex[(c >> shift) & 15]);
    }
  }
  return Variant(std::move(out));
}

Variant Unescape(BuiltinContext&, const Variant* args, int) {
  TextArg s(args[0]);
  if (s.IsNull()) return Variant::Null();
  std::u16string in = text::ToUtf16(s);
  std::u16string out;
  out.reserve(in.size());
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] == '%') {
      if (i + 5 < in.size() && in[i + 1] == 'u') {
        int value = 0;
        bool ok = true;
        for (size_t k = 2; k < 6; ++k) {
          int h = HexValue(in[i + k]);
          if (h < 0) ok = false;
          value = value * 16 + (h < 0 ? 0 : h);
        }
        if (ok) {
          out.push_back(static_cast<char16_t>(value));
          i += 5;
          continue;
        }
      }
      if (i + 2 < in.size()) {
        int hi = HexValue(in[i + 1]), lo = HexValue(in[i + 2]);
        if (hi >= 0 && lo >= 0) {
          out.push_back(static_cast<char16_t>(hi * 16 + lo));
          i += 2;
          continue;
        }
      }
    }
    out.push_back(in[i]);
  }
  return Variant(text::FromUtf16(out));
}

}  // namespace tessel::vbs::builtins
