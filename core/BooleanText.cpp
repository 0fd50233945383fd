#include "core/BooleanText.h"

#include "core/RuntimeError.h"
#include "core/Variant.h"

namespace tessel {

namespace {

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
    if (x != b[i]) return false;
  }
  return true;
}

}  // namespace

std::optional<bool> BooleanText::TryParse(std::string_view text) noexcept {
  std::string_view s = text;
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  if (EqualsNoCase(s, "true")) return true;
  if (EqualsNoCase(s, "false")) return false;
  if (auto n = ParseNumericText(s)) return *n != 0;
  return std::nullopt;
}

bool BooleanText::Parse(std::string_view text) {
  if (auto b = TryParse(text)) return *b;
  ThrowRuntimeError(13);
}

}  // namespace tessel
