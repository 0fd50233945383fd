#include "scripting/vbs/CompiledExpression.h"

#include <algorithm>
#include <cctype>

#include "scripting/vbs/Lexer.h"
#include "scripting/vbs/Parser.h"

namespace tessel::vbs {

CompiledExpression::CompiledExpression(std::string_view templateText)
    : tree_(Parser::ParseTemplate(templateText, slots_, slotsDiffer_)) {
  std::sort(slots_.begin(), slots_.end(),
            [](const LiteralExpr* a, const LiteralExpr* b) { return a->slot < b->slot; });
}

bool CompiledExpression::NumberLiteral(std::string_view text, Variant& value) {
  if (text.empty() || !(std::isdigit(static_cast<unsigned char>(text.front())) || text.front() == '.')) return false;
  // Up to nine digits are always an Integer or a Long: no need to lex them.
  if (text.size() <= 9) {
    int32_t whole = 0;
    size_t i = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) whole = whole * 10 + (text[i] - '0');
    if (i == text.size()) {
      value = whole > 32767 ? Variant::FromLong(whole) : Variant::FromInteger(static_cast<int16_t>(whole));
      return true;
    }
  }
  // A decimal with digits before or after its point (ShortDecimal takes
  // nothing else) reads as the lexer's short way reads it, without a lexer.
  if (text.size() >= 2 && text.find('.') != std::string_view::npos) {
    double number = 0;
    if (Lexer::ShortDecimal(text, number)) {
      value = Variant::FromDouble(number);
      return true;
    }
  }
  try {
    Lexer lexer(text);
    Token token;
    lexer.Next(token);
    if (token.source.size() != text.size()) return false;
    if (token.kind == TokenKind::Integer) {
      value = token.isLong ? Variant::FromLong(static_cast<int32_t>(token.integer))
                           : Variant::FromInteger(static_cast<int16_t>(token.integer));
      return true;
    }
    if (token.kind == TokenKind::Double) {
      value = Variant::FromDouble(token.number);
      return true;
    }
  } catch (...) {
    // Not a number the language reads.
  }
  return false;
}

bool CompiledExpression::HasSlots(size_t count) const {
  if (slotsDiffer_ || slots_.size() != count) return false;
  for (size_t i = 0; i < count; ++i) {
    if (slots_[i]->slot != static_cast<int>(i)) return false;
  }
  return true;
}

}  // namespace tessel::vbs
