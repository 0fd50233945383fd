// Code: the result of compiling one piece of source (an AddCode text, an
// Execute/ExecuteGlobal string or an Eval expression).
//
// A Code owns its source text, its syntax trees, its procedures and classes.
// The engine keeps a Code alive (through shared_ptr) while any procedure or
// class of it is reachable from the global table or running, so replacing a
// function with AddCode frees the old text once nothing uses it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "scripting/vbs/Ast.h"
#include "scripting/vbs/FunctionProto.h"

namespace tessel::vbs {

struct Code : std::enable_shared_from_this<Code> {
  std::string source;
  int firstLine = 1;
  bool optionExplicit = false;
  // Top-level statements and the frame they run in (hidden With/For Each
  // slots, and the caller's slots for Execute inside a procedure).
  Block statements;
  int slotCount = 0;
  // Eval: the one expression.
  ExprPtr expression;
  std::vector<std::unique_ptr<FunctionProto>> procedures;  // global ones
  std::vector<std::unique_ptr<FunctionProto>> methods;     // members of classes
  std::vector<std::unique_ptr<ClassDef>> classes;
  // Names declared at top level with Dim/Public/Private/Const/ReDim.
  struct GlobalName {
    std::string lower;
    std::string name;
    int line = 0;
    int column = 0;
  };
  std::vector<GlobalName> globals;
  // Execute inside a procedure: names the text declares at its top level,
  // which become variables of that procedure's call, not globals.
  std::vector<std::string> execLocals;

  // The text of source line `line` (numbered from firstLine); empty when out
  // of range.
  std::string LineText(int line) const;
};

}  // namespace tessel::vbs
