#include "scripting/vbs/Engine.h"

#include <new>
#include <stdexcept>
#include <strings.h>

#include "core/RuntimeError.h"
#include "scripting/vbs/CompiledExpression.h"
#include "scripting/vbs/Machine.h"
#include "scripting/vbs/Parser.h"
#include "scripting/vbs/ScriptError.h"

namespace tessel::vbs {

namespace {

std::string LineOf(std::string_view text, int line) {
  int current = 1;
  size_t start = 0;
  while (current < line) {
    size_t nl = text.find_first_of("\r\n", start);
    if (nl == std::string_view::npos) return {};
    if (text[nl] == '\r' && nl + 1 < text.size() && text[nl + 1] == '\n') ++nl;
    start = nl + 1;
    ++current;
  }
  size_t end = text.find_first_of("\r\n", start);
  return std::string(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
}

// Where an expression text starts on its first line (1-based).
int FirstColumn(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  return static_cast<int>(i) + 1;
}

}  // namespace

void EngineError::Clear() {
  number_ = 0;
  description_.clear();
  source_.clear();
  line_ = 0;
  column_ = 0;
  text_.clear();
}

Engine::Engine() : machine_(std::make_unique<Machine>()) {}

Engine::~Engine() = default;

void Engine::SetLanguage(std::string_view language) {
  if (strncasecmp(std::string(language).c_str(), "vbscript", 9) != 0 || language.size() != 8)
    ThrowRuntimeError(5);
  language_ = "VBScript";
}

void Engine::SetTimeout(int32_t milliseconds) {
  timeout_ = milliseconds;
  machine_->SetTimeout(milliseconds);
}

void Engine::SetAllowUI(bool allow) {
  allowUI_ = allow;
  machine_->SetAllowUI(allow);
}

void Engine::SetUISink(std::function<void(const std::string&)> sink) { machine_->SetUISink(std::move(sink)); }

void Engine::AddObject(std::string_view name, Ref<Object> object, bool addMembers) {
  machine_->AddObject(std::string(name), std::move(object), addMembers);
}

void Engine::AddCode(std::string_view code) {
  error_.number_ = 0;
  machine_->BeginEntry();
  try {
    std::shared_ptr<Code> compiled = Parser::ParseProgram(std::string(code));
    machine_->Run(compiled);
  } catch (...) {
    Fail(code, false);
  }
}

void Engine::ExecuteStatement(std::string_view code) { AddCode(code); }

Variant Engine::Eval(std::string_view expression) {
  error_.number_ = 0;
  machine_->BeginEntry();
  try {
    ExprArena* arena = nullptr;
    if (!evalArenaBusy_) {
      arena = &evalArena_;
      arena->Reset();  // the last Eval's tree is gone
    }
    struct Claim {
      bool& busy;
      bool held;
      ~Claim() {
        if (held) busy = false;
      }
    } claim{evalArenaBusy_, arena != nullptr};
    evalArenaBusy_ = true;
    // Declared after `claim`, so the tree is destroyed before the arena is
    // released.
    ExprPtr expr = Parser::ParseExpression(expression, nullptr, arena);
    return machine_->Evaluate(*expr);
  } catch (...) {
    Fail(expression, true);
  }
}

Variant Engine::Run(std::string_view procedureName, std::span<Variant> args) {
  error_.number_ = 0;
  machine_->BeginEntry();
  try {
    return machine_->CallByName(procedureName, args);
  } catch (...) {
    Fail({}, false);
  }
}

Variant Engine::Eval(const CompiledExpression& expression, const std::function<std::string()>& writtenOut) {
  error_.number_ = 0;
  machine_->BeginEntry();
  try {
    return machine_->Evaluate(expression.Tree());
  } catch (...) {
    std::string text;
    try {
      text = writtenOut();
    } catch (...) {
      // The report shows no line rather than losing the failure itself.
    }
    Fail(text, true);
  }
}

void Engine::Fail(std::string_view code, bool isExpression) {
  error_.Clear();
  try {
    throw;
  } catch (const ScriptError& e) {
    error_.number_ = e.number();
    error_.description_ = e.description();
    error_.source_ = e.source();
    error_.line_ = e.line();
    error_.column_ = e.column();
    error_.text_ = LineOf(code, e.line());
    throw;
  } catch (const tessel::Error& e) {
    error_.number_ = e.number();
    error_.description_ = e.description();
    error_.source_ = e.source();
    if (machine_->ErrorCode()) {
      error_.line_ = machine_->ErrorLine();
      error_.column_ = machine_->ErrorColumn();
      error_.text_ = machine_->ErrorCode()->LineText(error_.line_);
    } else if (isExpression || machine_->ErrorLine() > 0) {
      error_.line_ = isExpression ? 1 : machine_->ErrorLine();
      error_.column_ = isExpression ? FirstColumn(code) : machine_->ErrorColumn();
      error_.text_ = LineOf(code, error_.line_);
    }
    throw;
  } catch (const std::bad_alloc&) {
    error_.number_ = 7;
  } catch (const std::length_error&) {
    error_.number_ = 7;
  } catch (const std::exception& e) {
    error_.number_ = 51;
  }
  error_.description_ = std::string(RuntimeErrorText(error_.number_));
  error_.source_ = std::string(kScriptRuntimeSource);
  if (machine_->ErrorCode()) {
    error_.line_ = machine_->ErrorLine();
    error_.column_ = machine_->ErrorColumn();
    error_.text_ = machine_->ErrorCode()->LineText(error_.line_);
  }
  throw tessel::Error(error_.number_, error_.description_, error_.source_);
}

}  // namespace tessel::vbs
