#include "scripting/vbs/BuiltinText.h"

#include <unicode/uchar.h>

#include <algorithm>

#include "core/RuntimeError.h"

namespace tessel::vbs::text {

namespace {

// Decodes one code point at s[i], advancing i. Malformed bytes become U+FFFD;
// encoded surrogate halves are accepted so that lone units survive.
char32_t Decode(std::string_view s, size_t& i) noexcept {
  auto byte = [&](size_t k) { return static_cast<uint8_t>(s[k]); };
  uint8_t b0 = byte(i);
  if (b0 < 0x80) {
    ++i;
    return b0;
  }
  int extra;
  char32_t cp;
  if ((b0 & 0xE0) == 0xC0) {
    extra = 1;
    cp = b0 & 0x1F;
  } else if ((b0 & 0xF0) == 0xE0) {
    extra = 2;
    cp = b0 & 0x0F;
  } else if ((b0 & 0xF8) == 0xF0) {
    extra = 3;
    cp = b0 & 0x07;
  } else {
    ++i;
    return 0xFFFD;
  }
  if (i + extra >= s.size()) {
    ++i;
    return 0xFFFD;
  }
  for (int k = 1; k <= extra; ++k) {
    uint8_t b = byte(i + k);
    if ((b & 0xC0) != 0x80) {
      ++i;
      return 0xFFFD;
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  i += extra + 1;
  if (cp > 0x10FFFF) return 0xFFFD;
  return cp;
}

void AppendCodePoint(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// Results larger than this raise 7 "Out of memory" rather than exhausting
// the process (a Replace that multiplies its input, say).
constexpr size_t kMaxResultBytes = size_t{1} << 30;

// Raises 7 before a growing replacement is built when its result would pass
// the limit; costs one extra search pass, and only for growing replacements.
template <class Str>
void CheckReplaceSize(const Str& hay, const Str& needle, size_t withSize, int64_t count,
                      size_t unitBytes) {
  if (withSize <= needle.size()) return;
  size_t hits = 0;
  for (size_t pos = hay.find(needle);
       pos != Str::npos && (count < 0 || static_cast<int64_t>(hits) < count);
       pos = hay.find(needle, pos + needle.size())) {
    ++hits;
  }
  double total = (static_cast<double>(hay.size()) +
                  static_cast<double>(hits) * static_cast<double>(withSize - needle.size())) *
                 static_cast<double>(unitBytes);
  if (total > static_cast<double>(kMaxResultBytes)) ThrowRuntimeError(7);
}

char AsciiFold(char c) noexcept { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

std::u16string Folded(std::string_view s) {
  std::u16string u = ToUtf16(s);
  for (char16_t& c : u) {
    if (c < 0x80) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char16_t>(c + 32);
    } else if (c < 0xD800 || c > 0xDFFF) {
      c = static_cast<char16_t>(u_foldCase(c, U_FOLD_CASE_DEFAULT) & 0xFFFF);
    }
  }
  return u;
}

template <class Map>
std::string MapCase(std::string_view s, Map map, bool upper) {
  if (IsAscii(s)) {
    // Copied whole and changed in place: a push_back per character costs
    // more than the case mapping itself.
    std::string out(s);
    const char from = upper ? 'a' : 'A';
    const char delta = upper ? -32 : 32;
    for (char& c : out)
      if (static_cast<unsigned char>(c - from) < 26) c = static_cast<char>(c + delta);
    return out;
  }
  std::u16string u = ToUtf16(s);
  for (char16_t& c : u) {
    if (c < 0xD800 || c > 0xDFFF) {
      UChar32 m = map(c);
      if (m <= 0xFFFF) c = static_cast<char16_t>(m);
    }
  }
  return FromUtf16(u);
}

// Unit index search over two unit sequences.
template <class Str>
int64_t FindUnits(const Str& hay, const Str& needle, int64_t start) {
  if (start < 0) start = 0;
  if (static_cast<size_t>(start) > hay.size()) return -1;
  size_t pos = hay.find(needle, static_cast<size_t>(start));
  return pos == Str::npos ? -1 : static_cast<int64_t>(pos);
}

template <class Str>
int64_t FindLastUnits(const Str& hay, const Str& needle, int64_t end) {
  if (end < static_cast<int64_t>(needle.size())) return -1;
  if (end > static_cast<int64_t>(hay.size())) end = static_cast<int64_t>(hay.size());
  size_t pos = hay.rfind(needle, static_cast<size_t>(end - static_cast<int64_t>(needle.size())));
  return pos == Str::npos ? -1 : static_cast<int64_t>(pos);
}

const char16_t kAnsiHigh[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

bool IsAscii(std::string_view s) noexcept {
  for (char c : s) {
    if (static_cast<uint8_t>(c) >= 0x80) return false;
  }
  return true;
}

int64_t Length(std::string_view s) noexcept {
  int64_t n = 0;
  size_t i = 0;
  while (i < s.size()) {
    if (static_cast<uint8_t>(s[i]) < 0x80) {
      ++i;
      ++n;
      continue;
    }
    char32_t cp = Decode(s, i);
    n += cp >= 0x10000 ? 2 : 1;
  }
  return n;
}

std::u16string ToUtf16(std::string_view s) {
  std::u16string out;
  out.reserve(s.size());
  size_t i = 0;
  while (i < s.size()) {
    char32_t cp = Decode(s, i);
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(cp));
    }
  }
  return out;
}

std::string FromUtf16(std::u16string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
        s[i + 1] <= 0xDFFF) {
      char32_t cp = 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (s[i + 1] - 0xDC00);
      AppendCodePoint(out, cp);
      ++i;
    } else {
      AppendCodePoint(out, c);
    }
  }
  return out;
}

void AppendUnit(std::string& out, char16_t unit) { AppendCodePoint(out, unit); }

std::string Substring(std::string_view s, int64_t start, int64_t count) {
  if (start < 0) start = 0;
  if (count <= 0) return {};
  if (IsAscii(s)) {
    if (static_cast<uint64_t>(start) >= s.size()) return {};
    return std::string(
        s.substr(static_cast<size_t>(start),
                 static_cast<size_t>(std::min<int64_t>(count, static_cast<int64_t>(s.size())))));
  }
  std::u16string u = ToUtf16(s);
  if (static_cast<uint64_t>(start) >= u.size()) return {};
  return FromUtf16(std::u16string_view(u).substr(
      static_cast<size_t>(start),
      static_cast<size_t>(std::min<int64_t>(count, static_cast<int64_t>(u.size())))));
}

std::string ToUpper(std::string_view s) {
  return MapCase(
      s, [](UChar32 c) { return u_toupper(c); }, true);
}

std::string ToLower(std::string_view s) {
  return MapCase(
      s, [](UChar32 c) { return u_tolower(c); }, false);
}

int Compare(std::string_view a, std::string_view b, bool textCompare) {
  if (IsAscii(a) && IsAscii(b)) {
    size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
      char x = a[i], y = b[i];
      if (textCompare) {
        x = AsciiFold(x);
        y = AsciiFold(y);
      }
      if (x != y) return static_cast<uint8_t>(x) < static_cast<uint8_t>(y) ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
  }
  std::u16string x = textCompare ? Folded(a) : ToUtf16(a);
  std::u16string y = textCompare ? Folded(b) : ToUtf16(b);
  int c = x.compare(y);
  return c == 0 ? 0 : (c < 0 ? -1 : 1);
}

int64_t Find(std::string_view haystack, std::string_view needle, int64_t start, bool textCompare) {
  if (IsAscii(haystack) && IsAscii(needle)) {
    if (!textCompare) return FindUnits(haystack, needle, start);
    std::string h(haystack), n(needle);
    for (char& c : h) c = AsciiFold(c);
    for (char& c : n) c = AsciiFold(c);
    return FindUnits(h, n, start);
  }
  std::u16string h = textCompare ? Folded(haystack) : ToUtf16(haystack);
  std::u16string n = textCompare ? Folded(needle) : ToUtf16(needle);
  return FindUnits(h, n, start);
}

int64_t FindLast(std::string_view haystack, std::string_view needle, int64_t end,
                 bool textCompare) {
  if (IsAscii(haystack) && IsAscii(needle)) {
    if (!textCompare) return FindLastUnits(haystack, needle, end);
    std::string h(haystack), n(needle);
    for (char& c : h) c = AsciiFold(c);
    for (char& c : n) c = AsciiFold(c);
    return FindLastUnits(h, n, end);
  }
  std::u16string h = textCompare ? Folded(haystack) : ToUtf16(haystack);
  std::u16string n = textCompare ? Folded(needle) : ToUtf16(needle);
  return FindLastUnits(h, n, end);
}

std::string Replace(std::string_view s, std::string_view find, std::string_view with, int64_t start,
                    int64_t count, bool textCompare) {
  bool ascii = IsAscii(s) && IsAscii(find);
  if (ascii) {
    if (static_cast<uint64_t>(start) >= s.size()) return {};
    std::string_view rest = s.substr(static_cast<size_t>(start));
    if (find.empty() || count == 0) return std::string(rest);
    std::string folded;
    std::string foldedFind;
    std::string_view hay = rest, needle = find;
    if (textCompare) {
      folded.assign(rest);
      foldedFind.assign(find);
      for (char& c : folded) c = AsciiFold(c);
      for (char& c : foldedFind) c = AsciiFold(c);
      hay = folded;
      needle = foldedFind;
    }
    CheckReplaceSize(hay, needle, with.size(), count, 1);
    std::string out;
    out.reserve(rest.size());
    size_t pos = 0;
    int64_t done = 0;
    while (count < 0 || done < count) {
      size_t hit = hay.find(needle, pos);
      if (hit == std::string_view::npos) break;
      out.append(rest.substr(pos, hit - pos));
      out.append(with);
      pos = hit + needle.size();
      ++done;
    }
    out.append(rest.substr(pos));
    return out;
  }
  std::u16string u = ToUtf16(s);
  if (static_cast<uint64_t>(start) >= u.size()) return {};
  std::u16string rest = u.substr(static_cast<size_t>(start));
  if (find.empty() || count == 0) return FromUtf16(rest);
  std::u16string hay = rest;
  std::u16string needle = ToUtf16(find);
  if (textCompare) {
    hay = Folded(FromUtf16(rest));
    needle = Folded(find);
  }
  std::u16string withUnits = ToUtf16(with);
  CheckReplaceSize(hay, needle, withUnits.size(), count, 2);
  std::u16string out;
  size_t pos = 0;
  int64_t done = 0;
  while (count < 0 || done < count) {
    size_t hit = hay.find(needle, pos);
    if (hit == std::u16string::npos) break;
    out.append(rest, pos, hit - pos);
    out.append(withUnits);
    pos = hit + needle.size();
    ++done;
  }
  out.append(rest, pos);
  return FromUtf16(out);
}

std::string Reverse(std::string_view s) {
  if (IsAscii(s)) return std::string(s.rbegin(), s.rend());
  std::u16string u = ToUtf16(s);
  std::reverse(u.begin(), u.end());
  return FromUtf16(u);
}

char16_t AnsiToUnit(uint8_t byte) noexcept {
  if (byte >= 0x80 && byte < 0xA0) return kAnsiHigh[byte - 0x80];
  return byte;
}

int UnitToAnsi(char16_t unit) noexcept {
  if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return unit;
  for (int i = 0; i < 32; ++i) {
    if (kAnsiHigh[i] == unit) return 0x80 + i;
  }
  return '?';
}

char16_t FirstUnit(std::string_view s) noexcept {
  if (static_cast<uint8_t>(s[0]) < 0x80) return static_cast<char16_t>(s[0]);
  size_t i = 0;
  char32_t cp = Decode(s, i);
  if (cp >= 0x10000) return static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
  return static_cast<char16_t>(cp);
}

}  // namespace tessel::vbs::text
