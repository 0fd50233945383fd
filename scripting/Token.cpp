#include "scripting/Token.h"

#include <strings.h>

#include "core/Variant.h"

namespace tessel {
namespace {
constexpr DispId kToken = 1;
constexpr DispId kTokenType = 2;

bool SameName(std::string_view a, const char* b) {
  return a.size() == std::char_traits<char>::length(b) && strncasecmp(a.data(), b, a.size()) == 0;
}
}  // namespace

DispId Token::GetMemberId(std::string_view name) {
  if (SameName(name, "Token")) return kToken;
  if (SameName(name, "TokenType")) return kTokenType;
  return kDispIdUnknown;
}

Variant Token::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  bool let = kind == InvokeKind::PropertyLet && !args.empty();
  switch (id) {
    case kDispIdDefault:
    case kToken:
      if (let) {
        text_ = args.back().ToString();
        return Variant();
      }
      return Variant(text_);
    case kTokenType:
      if (let) {
        type_ = args.back().ToLong();
        return Variant();
      }
      return Variant(type_);
    default:
      ThrowMemberNotFound();
  }
}

}  // namespace tessel
