// BooleanText: the boolean conversion of document text.
//
// Options and attributes hold booleans as "True", "False" (any case, blanks
// around allowed) or a number, where any non-zero number is true. Anything
// else is a conversion failure: 13 "Type mismatch" from the script runtime,
// the same failure the platform's own conversion raises.
#pragma once

#include <optional>
#include <string_view>

namespace tessel {

class BooleanText {
 public:
  // Raises 13 "Type mismatch" for text that is no boolean.
  static bool Parse(std::string_view text);
  // nullopt for text that is no boolean.
  static std::optional<bool> TryParse(std::string_view text) noexcept;
  // "True" / "False", as booleans are written back.
  static std::string_view ToText(bool value) noexcept { return value ? "True" : "False"; }
};

}  // namespace tessel
