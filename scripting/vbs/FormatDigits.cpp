#include "scripting/vbs/FormatDigits.h"

#include <cmath>
#include <charconv>

namespace tessel::vbs {

FormatDigits FormatDigits::FromDouble(double value, int significant) {
  FormatDigits d;
  if (!std::isfinite(value) || value == 0) return d;
  d.negative = value < 0;
  char buf[64];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, std::fabs(value),
                                 std::chars_format::scientific, significant - 1);
  if (ec != std::errc()) return d;
  const char* p = buf;
  for (; p < end && *p != 'e'; ++p) {
    if (*p >= '0' && *p <= '9') d.digits.push_back(*p);
  }
  int exponent = 0;
  if (p < end) std::from_chars(p + (p[1] == '+' ? 2 : 1), end, exponent);
  d.exponent = exponent + 1;
  d.Trim();
  return d;
}

FormatDigits FormatDigits::FromDecimalText(std::string_view text) {
  FormatDigits d;
  size_t i = 0;
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
    d.negative = text[i] == '-';
    ++i;
  }
  int intDigits = 0;
  bool point = false;
  for (; i < text.size(); ++i) {
    char c = text[i];
    if (c == '.' && !point) {
      point = true;
    } else if (c >= '0' && c <= '9') {
      d.digits.push_back(c);
      if (!point) ++intDigits;
    } else {
      return FormatDigits{};
    }
  }
  d.exponent = intDigits;
  d.Trim();
  return d;
}

void FormatDigits::Trim() {
  size_t lead = 0;
  while (lead < digits.size() && digits[lead] == '0') ++lead;
  digits.erase(0, lead);
  exponent -= static_cast<int>(lead);
  while (!digits.empty() && digits.back() == '0') digits.pop_back();
  if (digits.empty()) {
    exponent = 0;
    negative = false;
  }
}

void FormatDigits::RoundAt(int keep) {
  if (digits.empty() || keep >= static_cast<int>(digits.size())) return;
  if (keep < 0) {
    digits.clear();
    Trim();
    return;
  }
  bool up = digits[static_cast<size_t>(keep)] >= '5';
  digits.resize(static_cast<size_t>(keep));
  if (up) {
    int i = keep - 1;
    while (i >= 0 && digits[static_cast<size_t>(i)] == '9') {
      digits[static_cast<size_t>(i)] = '0';
      --i;
    }
    if (i < 0) {
      digits.insert(digits.begin(), '1');
      ++exponent;
    } else {
      ++digits[static_cast<size_t>(i)];
    }
  }
  Trim();
}

void FormatDigits::RoundToFraction(int fractionDigits) { RoundAt(exponent + fractionDigits); }

void FormatDigits::RoundToSignificant(int significant) { RoundAt(significant); }

std::string FormatDigits::IntegerDigits() const {
  if (exponent <= 0) return {};
  std::string out = digits.substr(0, static_cast<size_t>(exponent));
  out.append(static_cast<size_t>(exponent) - out.size(), '0');
  return out;
}

std::string FormatDigits::FractionDigits(int count) const {
  std::string out;
  out.reserve(static_cast<size_t>(count));
  for (int k = 0; k < count; ++k) {
    int index = exponent + k;  // position in digits of fraction digit k+1
    if (index >= 0 && index < static_cast<int>(digits.size())) {
      out.push_back(digits[static_cast<size_t>(index)]);
    } else {
      out.push_back('0');
    }
  }
  return out;
}

std::string GroupThousands(std::string_view integerDigits) {
  std::string out;
  size_t n = integerDigits.size();
  out.reserve(n + n / 3);
  for (size_t i = 0; i < n; ++i) {
    if (i > 0 && (n - i) % 3 == 0) out.push_back(',');
    out.push_back(integerDigits[i]);
  }
  return out;
}

std::string FixedText(FormatDigits d, int fractionDigits, bool leadingDigit, bool group) {
  d.RoundToFraction(fractionDigits);
  std::string integer = d.IntegerDigits();
  std::string out;
  if (integer.empty()) {
    if (leadingDigit || fractionDigits == 0) out.assign(1, '0');
  } else {
    out = group ? GroupThousands(integer) : integer;
  }
  if (fractionDigits > 0) {
    out.push_back('.');
    out += d.FractionDigits(fractionDigits);
  }
  return out;
}

}  // namespace tessel::vbs
