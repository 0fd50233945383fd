// CompiledExpression: an expression parsed once and evaluated many times
// with other values in its slots.
//
// The text is parsed by Parser::ParseTemplate: the byte 0x01 followed by a
// byte n stands for slot n - 1, which reads as a literal whose value is set
// before each evaluation. Slots are never folded with other literals at parse
// time, so an evaluation gives what Eval gives for the same text with each
// slot written out as a literal of its value.
//
// The expression owns its tree. Names in it are looked up when it runs, and
// what they find belongs to the engine that runs it: an expression must not
// outlive that engine, nor run on two engines. One evaluation at a time.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "core/Variant.h"
#include "scripting/vbs/Ast.h"

namespace tessel::vbs {

class CompiledExpression {
 public:
  // Raises the syntax error Eval would raise for the text.
  explicit CompiledExpression(std::string_view templateText);

  CompiledExpression(const CompiledExpression&) = delete;
  CompiledExpression& operator=(const CompiledExpression&) = delete;

  // True when the slots found are numbered 0 to `count` - 1, each once (a
  // slot marker inside a string, date or comment is no slot), and the tree
  // evaluates as the text with its slots written out would: not so where a
  // comparison meets an operand of literals and slots, which the written-out
  // text would fold into one literal and compare by the rules for literals.
  bool HasSlots(size_t count) const;
  void SetSlot(size_t slot, Variant value) { slots_[slot]->value = std::move(value); }
  // SetSlot of a String, reusing the slot's text buffer where it can.
  void SetSlotText(size_t slot, std::string_view text) { slots_[slot]->value.AssignText(text); }

  const Expr& Tree() const { return *tree_; }

  // The value `text` has in an expression when it is exactly one number as
  // a script writes it (digits, a point, an exponent; no sign, no blanks):
  // Integer, Long or Double as for a literal. False for any other text.
  static bool NumberLiteral(std::string_view text, Variant& value);

 private:
  std::vector<LiteralExpr*> slots_;  // by number, once HasSlots holds
  bool slotsDiffer_ = false;
  ExprPtr tree_;
};

}  // namespace tessel::vbs
