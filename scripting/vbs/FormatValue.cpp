#include "scripting/vbs/FormatValue.h"

#include <cctype>
#include <string>
#include <vector>

#include "core/DateTime.h"
#include "core/RuntimeError.h"
#include "scripting/vbs/BuiltinArgs.h"
#include "scripting/vbs/BuiltinFormats.h"
#include "scripting/vbs/BuiltinText.h"
#include "scripting/vbs/FormatDateText.h"
#include "scripting/vbs/FormatDigits.h"

namespace tessel::vbs {

namespace {

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

// Splits on ';' outside quotes and escapes.
std::vector<std::string_view> Sections(std::string_view p) {
  std::vector<std::string_view> out;
  size_t start = 0;
  for (size_t i = 0; i < p.size(); ++i) {
    if (p[i] == '"') {
      size_t end = p.find('"', i + 1);
      i = end == std::string_view::npos ? p.size() - 1 : end;
    } else if (p[i] == '\\') {
      ++i;
    } else if (p[i] == ';') {
      out.push_back(p.substr(start, i - start));
      start = i + 1;
    }
  }
  out.push_back(p.substr(start));
  return out;
}

bool HasAny(std::string_view p, std::string_view chars) {
  for (size_t i = 0; i < p.size(); ++i) {
    if (p[i] == '"') {
      size_t end = p.find('"', i + 1);
      if (end == std::string_view::npos) return false;
      i = end;
    } else if (p[i] == '\\') {
      ++i;
    } else if (chars.find(p[i]) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

// --- Number patterns ---------------------------------------------------------

enum class TokenKind { Zero, Hash, Point, Literal, Percent, Exponent };

struct Token {
  TokenKind kind;
  std::string text;        // Literal text; Exponent: "E+", "e-", ...
  int exponentDigits = 0;  // Exponent: count of 0 placeholders after it
};

struct NumberPattern {
  std::vector<Token> tokens;
  bool group = false;
  int scale = 0;  // thousands dividers (commas right before the point)
  int percents = 0;
  bool scientific = false;
  int integerPlaces = 0;
  int fractionPlaces = 0;
};

NumberPattern ParseNumberPattern(std::string_view p) {
  NumberPattern np;
  bool point = false;
  bool seenDigit = false;
  for (size_t i = 0; i < p.size(); ++i) {
    char c = p[i];
    if (c == '"') {
      size_t end = p.find('"', i + 1);
      if (end == std::string_view::npos) end = p.size();
      np.tokens.push_back({TokenKind::Literal, std::string(p.substr(i + 1, end - i - 1))});
      i = end;
    } else if (c == '\\') {
      if (i + 1 < p.size()) np.tokens.push_back({TokenKind::Literal, std::string(1, p[++i])});
    } else if (c == '0' || c == '#') {
      np.tokens.push_back({c == '0' ? TokenKind::Zero : TokenKind::Hash, {}});
      (point ? np.fractionPlaces : np.integerPlaces)++;
      seenDigit = true;
    } else if (c == '.' && !point && !np.scientific) {
      np.tokens.push_back({TokenKind::Point, {}});
      point = true;
    } else if (c == ',') {
      bool nextDigit = i + 1 < p.size() && (p[i + 1] == '0' || p[i + 1] == '#');
      if (!point && seenDigit && nextDigit) {
        np.group = true;
      } else if (!point && seenDigit) {
        size_t k = i;
        while (k < p.size() && p[k] == ',') ++k;
        bool beforePointOrEnd = k == p.size() || p[k] == '.' || !(p[k] == '0' || p[k] == '#');
        if (beforePointOrEnd) {
          np.scale += static_cast<int>(k - i);
          i = k - 1;
        }
      }
    } else if (c == '%') {
      np.tokens.push_back({TokenKind::Percent, {}});
      ++np.percents;
    } else if ((c == 'E' || c == 'e') && i + 1 < p.size() && (p[i + 1] == '+' || p[i + 1] == '-') &&
               seenDigit && !np.scientific) {
      Token t{TokenKind::Exponent, std::string(p.substr(i, 2))};
      i += 2;
      while (i < p.size() && (p[i] == '0' || p[i] == '#')) {
        if (p[i] == '0') ++t.exponentDigits;
        ++i;
      }
      --i;
      np.tokens.push_back(std::move(t));
      np.scientific = true;
    } else if (c == '*' || c == '_') {
      ++i;  // fill and width characters have no meaning outside a cell
    } else {
      np.tokens.push_back({TokenKind::Literal, std::string(1, c)});
    }
  }
  return np;
}

// Lays out the absolute value d with the section's placeholders.
std::string FormatNumberSection(FormatDigits d, const NumberPattern& np) {
  d.negative = false;
  if (!d.IsZero()) d.exponent += 2 * np.percents - 3 * np.scale;
  int exponent10 = 0;
  if (np.scientific) {
    if (!d.IsZero()) {
      int places = np.integerPlaces;
      d.RoundToSignificant(std::max(places + np.fractionPlaces, 1));
      exponent10 = d.exponent - places;
      d.exponent = places;
    }
  } else {
    d.RoundToFraction(np.fractionPlaces);
  }
  std::string integer = d.IntegerDigits();
  std::string fraction = d.FractionDigits(np.fractionPlaces);
  int lastNonZero = -1;
  for (int i = 0; i < static_cast<int>(fraction.size()); ++i) {
    if (fraction[static_cast<size_t>(i)] != '0') lastNonZero = i;
  }

  // How many integer digits appear: the value's own, or more where '0'
  // placeholders ask for leading zeros.
  int zeroPadding = 0;
  {
    int placeIndex = 0;
    for (const Token& t : np.tokens) {
      if (t.kind == TokenKind::Point || t.kind == TokenKind::Exponent) break;
      if (t.kind == TokenKind::Zero || t.kind == TokenKind::Hash) {
        int fromRight = np.integerPlaces - placeIndex;  // place value + 1
        if (t.kind == TokenKind::Zero && fromRight > static_cast<int>(integer.size()))
          zeroPadding = std::max(zeroPadding, fromRight);
        ++placeIndex;
      }
    }
  }
  std::string shown = integer;
  if (static_cast<int>(shown.size()) < zeroPadding)
    shown.insert(0, static_cast<size_t>(zeroPadding) - shown.size(), '0');
  int total = static_cast<int>(shown.size());

  std::string out;
  int emitted = 0;
  auto emitDigits = [&](int upTo) {  // emit digits until `upTo` remain
    while (total - emitted > upTo) {
      out.push_back(shown[static_cast<size_t>(emitted)]);
      ++emitted;
      int placeValue = total - emitted;
      if (np.group && placeValue > 0 && placeValue % 3 == 0) out.push_back(',');
    }
  };
  int placeIndex = 0;
  int fractionIndex = 0;
  bool inFraction = false;
  for (const Token& t : np.tokens) {
    switch (t.kind) {
      case TokenKind::Zero:
      case TokenKind::Hash:
        if (!inFraction) {
          ++placeIndex;
          emitDigits(np.integerPlaces - placeIndex);
        } else {
          if (t.kind == TokenKind::Zero || fractionIndex <= lastNonZero)
            out.push_back(fraction[static_cast<size_t>(fractionIndex)]);
          ++fractionIndex;
        }
        break;
      case TokenKind::Point:
        emitDigits(0);
        out.push_back('.');
        inFraction = true;
        break;
      case TokenKind::Literal:
        out += t.text;
        break;
      case TokenKind::Percent:
        out.push_back('%');
        break;
      case TokenKind::Exponent: {
        emitDigits(0);
        inFraction = true;
        out.push_back(t.text[0]);
        if (exponent10 < 0) {
          out.push_back('-');
        } else if (t.text[1] == '+') {
          out.push_back('+');
        }
        std::string e = std::to_string(exponent10 < 0 ? -exponent10 : exponent10);
        if (static_cast<int>(e.size()) < t.exponentDigits)
          e.insert(0, static_cast<size_t>(t.exponentDigits) - e.size(), '0');
        out += e;
        break;
      }
    }
  }
  // The last integer placeholder, the point or the exponent has taken every
  // integer digit by now; a section without any placeholder shows only its
  // literal text.
  return out;
}

bool IsNumberLike(const Variant& v) {
  switch (v.Type()) {
    case VarType::String:
      return IsNumericText(v.StringValue());
    case VarType::Null:
    case VarType::Object:
    case VarType::Array:
    case VarType::Error:
      return false;
    default:
      return true;
  }
}

Variant FormatNumberPattern(const Variant& v, std::string_view pattern) {
  std::vector<std::string_view> sections = Sections(pattern);
  if (v.IsNull()) {
    if (sections.size() >= 4)
      return Variant(FormatNumberSection(FormatDigits{}, ParseNumberPattern(sections[3])));
    return Variant::Null();
  }
  if (!IsNumberLike(v)) return v.ToStringVariant();
  FormatDigits d = NumberDigits(v);
  std::string_view section = sections[0];
  bool prefixMinus = false;
  if (d.negative) {
    if (sections.size() >= 2 && !sections[1].empty()) {
      section = sections[1];
    } else {
      prefixMinus = true;
    }
  } else if (d.IsZero() && sections.size() >= 3 && !sections[2].empty()) {
    section = sections[2];
  }
  NumberPattern np = ParseNumberPattern(section);
  std::string body = FormatNumberSection(d, np);
  if (prefixMinus) {
    // A value that rounds to zero loses its sign.
    FormatDigits check = d;
    if (!check.IsZero()) check.exponent += 2 * np.percents - 3 * np.scale;
    if (!np.scientific) check.RoundToFraction(np.fractionPlaces);
    if (!check.IsZero()) body.insert(body.begin(), '-');
  }
  return Variant(std::move(body));
}

// --- Text patterns -------------------------------------------------------------

Variant FormatTextPattern(const Variant& v, std::string_view pattern) {
  if (v.IsNull()) return Variant::Null();
  std::string_view section = Sections(pattern)[0];
  std::u16string value = text::ToUtf16(v.ToString());
  bool leftToRight = false;
  int caseMode = 0;
  int placeholders = 0;
  for (char c : section) {
    if (c == '!') leftToRight = true;
    if (c == '<') caseMode = -1;
    if (c == '>') caseMode = 1;
    if (c == '@' || c == '&') ++placeholders;
  }
  if (placeholders == 0) {
    std::string whole = text::FromUtf16(value);
    if (caseMode < 0) return Variant(text::ToLower(whole));
    if (caseMode > 0) return Variant(text::ToUpper(whole));
    return Variant(std::move(whole));
  }
  // The value units each placeholder receives: right to left by default (the
  // first placeholder takes any surplus), left to right with '!' (the last
  // placeholder takes the surplus).
  int units = static_cast<int>(value.size());
  std::vector<std::pair<int, int>> share(static_cast<size_t>(placeholders), {0, 0});
  for (int k = 0; k < placeholders; ++k) {
    int start, count;
    if (!leftToRight) {
      int empty = placeholders - units;  // leading placeholders with nothing
      if (empty > 0) {
        start = k - empty;
        count = k < empty ? 0 : 1;
      } else {
        start = k == 0 ? 0 : k - empty;
        count = k == 0 ? 1 - empty : 1;
      }
    } else {
      start = k;
      count = k < units ? 1 : 0;
      if (k == placeholders - 1 && units > placeholders) count = units - k;
    }
    share[static_cast<size_t>(k)] = {start, count};
  }
  std::u16string out;
  int seen = 0;
  for (size_t i = 0; i < section.size(); ++i) {
    char c = section[i];
    if (c == '"') {
      size_t end = section.find('"', i + 1);
      if (end == std::string_view::npos) end = section.size();
      out += text::ToUtf16(section.substr(i + 1, end - i - 1));
      i = end;
    } else if (c == '\\') {
      if (i + 1 < section.size()) out += text::ToUtf16(section.substr(++i, 1));
    } else if (c == '@' || c == '&') {
      auto [start, count] = share[static_cast<size_t>(seen++)];
      if (count > 0) {
        out.append(value, static_cast<size_t>(start), static_cast<size_t>(count));
      } else if (c == '@') {
        out.push_back(u' ');
      }
    } else if (c == '<' || c == '>' || c == '!') {
      continue;
    } else {
      out += text::ToUtf16(section.substr(i, 1));
    }
  }
  std::string result = text::FromUtf16(out);
  if (caseMode < 0) result = text::ToLower(result);
  if (caseMode > 0) result = text::ToUpper(result);
  return Variant(std::move(result));
}

// --- Dates -----------------------------------------------------------------------

// The serial of a value a date pattern formats, or false when it has none.
bool DateSerialOf(const Variant& v, double& serial) {
  switch (v.Type()) {
    case VarType::Date:
      serial = v.DateValue();
      return DateTime::IsValid(serial);
    case VarType::String: {
      if (auto number = ParseNumericText(v.StringValue())) {
        serial = *number;
        return DateTime::IsValid(serial);
      }
      auto parsed = DateTime::Parse(v.StringValue());
      if (!parsed) return false;
      serial = *parsed;
      return true;
    }
    case VarType::Null:
    case VarType::Object:
    case VarType::Array:
    case VarType::Error:
      return false;
    default:
      serial = v.ToDouble();
      return DateTime::IsValid(serial);
  }
}

Variant NamedFormat(const Variant& v, std::string_view name, bool& known) {
  known = true;
  using TextFn = std::string (*)(double);
  struct NamedDate {
    std::string_view name;
    TextFn fn;
    std::string_view pattern;
  };
  static const NamedDate kDates[] = {
      {"General Date", &GeneralDateText, {}}, {"Long Date", &LongDateText, {}},
      {"Medium Date", nullptr, "dd-mmm-yy"},  {"Short Date", &ShortDateText, {}},
      {"Long Time", &LongTimeText, {}},       {"Medium Time", nullptr, "hh:nn AM/PM"},
      {"Short Time", &ShortTimeText, {}}};
  for (const NamedDate& nd : kDates) {
    if (!EqualsNoCase(name, nd.name)) continue;
    if (v.IsNull()) return Variant::Null();
    double serial;
    if (!DateSerialOf(v, serial)) return v.ToStringVariant();
    return Variant(nd.fn ? nd.fn(serial) : FormatDatePattern(serial, nd.pattern));
  }
  struct NamedBool {
    std::string_view name, yes, no;
  };
  static const NamedBool kBools[] = {
      {"Yes/No", "Yes", "No"}, {"True/False", "True", "False"}, {"On/Off", "On", "Off"}};
  for (const NamedBool& nb : kBools) {
    if (!EqualsNoCase(name, nb.name)) continue;
    if (v.IsNull()) return Variant::Null();
    if (!IsNumberLike(v)) return v.ToStringVariant();
    return Variant(NumberDigits(v).IsZero() ? nb.no : nb.yes);
  }
  static const std::string_view kNumbers[] = {"General Number", "Currency", "Fixed",
                                              "Standard",       "Percent",  "Scientific"};
  for (size_t k = 0; k < std::size(kNumbers); ++k) {
    if (!EqualsNoCase(name, kNumbers[k])) continue;
    if (v.IsNull()) return Variant::Null();
    if (!IsNumberLike(v)) return v.ToStringVariant();
    FormatDigits d = NumberDigits(v);
    switch (k) {
      case 0:
        if (v.IsString()) return Variant(DoubleToString(v.ToDouble()));
        if (v.Type() == VarType::Boolean || v.Type() == VarType::Date)
          return Variant(DoubleToString(v.ToDouble()));
        return v.ToStringVariant();
      case 1:
        return Variant(FormatCurrencyText(d, 2, true, true, true));
      case 2:
        return Variant(FormatNumberText(d, 2, true, false, false));
      case 3:
        return Variant(FormatNumberText(d, 2, true, false, true));
      case 4:
        return Variant(FormatPercentText(d, 2, true, false, false));
      default:
        return FormatNumberPattern(v, "0.00E+00");
    }
  }
  known = false;
  return Variant();
}

}  // namespace

Variant FormatValue(const Variant& value, std::string_view pattern) {
  return FormatValue(value, pattern, 1, 1);
}

Variant FormatValue(const Variant& value, std::string_view pattern, int firstDayOfWeek,
                    int firstWeekOfYear) {
  Variant v = ArgValue(value);
  if (v.IsArray()) ThrowRuntimeError(13);
  if (v.IsEmpty()) v = Variant::FromInteger(0);
  if (pattern.empty()) {
    if (v.IsNull()) return v;
    return v.ToStringVariant();
  }
  bool known = false;
  Variant named = NamedFormat(v, pattern, known);
  if (known) return named;

  if (HasAny(pattern, "0#")) return FormatNumberPattern(v, pattern);
  if (HasDatePlaceholders(pattern)) {
    if (v.IsNull()) return v;
    double serial;
    if (!DateSerialOf(v, serial)) return v.ToStringVariant();
    return Variant(
        FormatDatePattern(serial, Sections(pattern)[0], firstDayOfWeek, firstWeekOfYear));
  }
  if (HasAny(pattern, "@&<>!")) return FormatTextPattern(v, pattern);
  return FormatNumberPattern(v, pattern);
}

}  // namespace tessel::vbs
