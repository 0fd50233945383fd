// Engine: the public face of the VBScript engine — what a host creates to run
// script text.
//
// An engine owns its machine: globals, procedures, classes, published objects,
// the Err object and the built-ins' state. Two engines share nothing and may
// run on different threads; one engine is used by one thread at a time.
//
// Every operation that fails records the failure in Error() (number,
// description, source, line, column, source line) and raises it as
// tessel::Error with the script's error number: VBScript's compile-time
// numbers (1002 "Syntax error", ...) and runtime numbers (13 "Type mismatch",
// ...). A script that runs past Timeout fails with 0x80004004 "Script timed
// out", which On Error Resume Next does not catch.
//
// Objects published with AddObject and objects handed out by Eval may be kept
// by the host, but script class instances must not outlive the engine.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "core/Error.h"
#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/ExprArena.h"

namespace tessel::vbs {

class CompiledExpression;
class Machine;

// The last failure of an engine.
class EngineError {
 public:
  int32_t Number() const { return number_; }
  const std::string& Description() const { return description_; }
  const std::string& Source() const { return source_; }
  // 1-based line of the code passed to the failing call; 0 when unknown.
  int Line() const { return line_; }
  // 1-based character position for syntax errors, 0 for runtime errors.
  int Column() const { return column_; }
  // The source line the error is on.
  const std::string& Text() const { return text_; }
  void Clear();

 private:
  friend class Engine;
  int32_t number_ = 0;
  std::string description_;
  std::string source_;
  int line_ = 0;
  int column_ = 0;
  std::string text_;
};

class Engine {
 public:
  Engine();
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Only "VBScript" is accepted (any case); anything else raises 5.
  const std::string& Language() const { return language_; }
  void SetLanguage(std::string_view language);
  // Milliseconds a single call may run; 0 or less means no limit.
  int32_t Timeout() const { return timeout_; }
  void SetTimeout(int32_t milliseconds);
  // Without UI, MsgBox and InputBox raise 70 "Permission denied". With UI
  // they hand their prompt to the sink (a console host prints it).
  bool AllowUI() const { return allowUI_; }
  void SetAllowUI(bool allow);
  void SetUISink(std::function<void(const std::string&)> sink);

  // Publishes `object` as the global `name`; with `addMembers` its members
  // are also reachable as bare global names.
  void AddObject(std::string_view name, Ref<Object> object, bool addMembers = false);
  // Compiles statements, Subs, Functions and Classes into the global module and
  // runs the statements. A procedure added again replaces the earlier one.
  void AddCode(std::string_view code);
  // Runs statements in the global module (same as AddCode).
  void ExecuteStatement(std::string_view code);
  // Evaluates one expression in the global module.
  Variant Eval(std::string_view expression);
  // Evaluates a compiled expression, its slots set, in the global module. A
  // failure is reported as Eval reports it for the text `writtenOut` gives:
  // the expression with its slots written out, made only when needed.
  Variant Eval(const CompiledExpression& expression, const std::function<std::string()>& writtenOut);
  // Calls a global Sub or Function; arguments are passed by reference.
  Variant Run(std::string_view procedureName, std::span<Variant> args = {});

  const EngineError& Error() const { return error_; }

 private:
  [[noreturn]] void Fail(std::string_view code, bool isExpression);

  std::unique_ptr<Machine> machine_;
  std::string language_ = "VBScript";
  int32_t timeout_ = 0;
  bool allowUI_ = false;
  EngineError error_;
  // Nodes of the expression Eval is running; a nested Eval (a host object
  // calling back into the engine) builds its tree on the heap instead.
  ExprArena evalArena_;
  bool evalArenaBusy_ = false;
};

}  // namespace tessel::vbs
