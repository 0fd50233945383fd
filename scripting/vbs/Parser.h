// Parser: compiles VBScript source into a Code (syntax trees with resolved
// names), reading tokens from a Lexer.
//
// The parser owns nothing after it returns: the Code it builds owns every node.
// Syntax errors raise ScriptError with VBScript's compile-time numbers and the
// line and column of the offending token. Names are resolved to frame slots
// and class members where the source decides them; everything else stays
// dynamic for the machine (see Ast.h).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <unordered_map>
#include <vector>

#include "scripting/vbs/Code.h"

namespace tessel::vbs {

class ExprArena;

// The procedure whose frame an Execute/Eval runs in, so that the compiled
// text can see its locals.
struct EnclosingScope {
  const FunctionProto* proto = nullptr;
  const ClassDef* owner = nullptr;
  // Variables earlier Execute statements declared in that procedure's call.
  const std::unordered_map<std::string, Variant>* execLocals = nullptr;
};

class Parser {
 public:
  // A whole script: statements, Sub/Function/Class declarations, Option
  // Explicit. `firstLine` numbers the first line.
  static std::unique_ptr<Code> ParseProgram(std::string source, int firstLine = 1,
                                            const EnclosingScope* enclosing = nullptr);

  // One expression (what Eval takes). The tree refers to no text of `source`.
  // With `arena` its nodes live there: the tree must be destroyed before the
  // arena is Reset.
  static ExprPtr ParseExpression(std::string_view source, const EnclosingScope* enclosing = nullptr,
                                 ExprArena* arena = nullptr);

  // An expression in which the byte 0x01 and a byte n stand for a value to
  // be supplied later (see Lexer::AllowSlots): each such slot becomes a
  // LiteralExpr numbered n - 1, added to `slots` in the order of the text,
  // and is never folded with other literals. Nodes are on the heap.
  // `slotsDiffer` tells that the tree may evaluate otherwise than the text
  // with its slots written out as literals (a comparison with an operand
  // that would then fold into one literal).
  static ExprPtr ParseTemplate(std::string_view source, std::vector<LiteralExpr*>& slots, bool& slotsDiffer);
};

}  // namespace tessel::vbs
