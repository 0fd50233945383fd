// Machine: runs compiled Code — the VBScript virtual machine of one engine.
//
// The machine walks the syntax trees of Ast.h. It owns the engine's global
// table (variables, constants, procedures, classes, published host objects and
// the built-ins found so far), the Err object and the built-ins' context.
// Every Code whose procedures or classes are reachable stays alive through the
// global table; running frames and class instances hold their Code too.
//
// Limits: a call nests only while enough of the thread's stack remains (then
// 28 "Out of stack space"), and with a time-out every loop back-edge and call
// counts towards a check of the clock. A time-out cannot be caught by On Error
// Resume Next.
//
// Not thread-safe: one machine runs on one thread at a time. Nothing is shared
// between machines.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"
#include "scripting/vbs/BuiltinContext.h"
#include "scripting/vbs/BuiltinTable.h"
#include "scripting/vbs/Code.h"
#include "scripting/vbs/ErrObject.h"

namespace tessel::vbs {

class ScriptObject;

// An entry of the global table. Entries are created on first use and never
// removed or moved, so syntax trees may cache pointers to them; a later
// declaration of the same name changes the entry in place.
struct GlobalEntry {
  enum Kind : uint8_t { Variable, Constant, Procedure, Class, HostObject, HostMember, Builtin, Intrinsic };
  Kind kind = Variable;
  std::string name;
  Variant value;                    // Variable, Constant, HostObject
  const FunctionProto* proc = nullptr;
  const ClassDef* cls = nullptr;
  std::shared_ptr<Code> code;       // keeps proc/cls alive
  Ref<Object> host;                 // HostMember
  DispId dispId = 0;
  const BuiltinFunction* builtin = nullptr;
  int intrinsic = 0;
};

// One activation: a procedure call, or top-level code.
struct Frame {
  const FunctionProto* proto = nullptr;
  const Code* code = nullptr;
  Variant** refs = nullptr;  // slot i lives at *refs[i] (ByRef parameters point elsewhere)
  ScriptObject* me = nullptr;
  Frame* enclosing = nullptr;  // the frame an Execute/Eval runs inside
  bool resumeNext = false;
  // Procedure calls: variables that Execute statements declared, by
  // lowercase name; created on the first such declaration.
  std::unique_ptr<std::unordered_map<std::string, Variant>> execLocals;
};

class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // Milliseconds; 0 or less means none.
  void SetTimeout(int32_t milliseconds) { timeoutMs_ = milliseconds; }
  void SetAllowUI(bool allow) { allowUI_ = allow; }
  // Receives MsgBox/InputBox prompts when UI is allowed; without one they fail.
  void SetUISink(std::function<void(const std::string&)> sink) { uiSink_ = std::move(sink); }

  void AddObject(const std::string& name, Ref<Object> object, bool addMembers);

  // Starts a call from the host: resets the deadline and the error position.
  void BeginEntry();

  // Registers the Code's procedures, classes and global names (a procedure
  // of an existing name replaces it), then runs its statements.
  void Run(const std::shared_ptr<Code>& code, Frame* enclosing = nullptr);
  // Evaluates an expression at global scope (or inside `enclosing`).
  Variant Evaluate(const Expr& expr, Frame* enclosing = nullptr);
  // Calls a global Sub/Function by name with the given arguments (by
  // reference into `args`).
  Variant CallByName(std::string_view name, std::span<Variant> args);

  ErrObject& Err() { return *err_; }
  // Shared with the objects the machine hands out (class instances, GetRef
  // procedures); it points to the machine while it lives and to null after.
  const std::shared_ptr<Machine*>& Handle() const { return handle_; }
  BuiltinContext& Builtins() { return builtins_; }

  // Where the last error left the running code: its line and source (line 0
  // when it did not come from a statement).
  int ErrorLine() const { return errorLine_; }
  // The 1-based column where that statement starts (0 with line 0).
  int ErrorColumn() const { return errorColumn_; }
  const Code* ErrorCode() const { return errorCode_; }

  // Used by ScriptObject.
  Variant InvokeMember(ScriptObject& self, int member, InvokeKind kind, std::span<Variant> args);
  void RunTerminate(ScriptObject& self) noexcept;
  // Used by procedure references from GetRef.
  Variant CallProcedure(const FunctionProto& proto, std::span<Variant> args);

 private:
  enum class Flow : uint8_t { Normal, ExitDo, ExitFor, ExitProc };
  struct CallArgs;

  GlobalEntry* Lookup(const std::string& lower);
  GlobalEntry& Declare(const std::string& lower, const std::string& name);
  GlobalEntry* Resolve(NameExpr& n);

  Flow ExecBlock(const Block& block, Frame& f);
  Flow Exec(const Stmt& s, Frame& f);
  Flow ExecFor(const ForStmt& s, Frame& f);
  Flow ExecForEach(const ForEachStmt& s, Frame& f);
  Flow ExecDo(const DoStmt& s, Frame& f);
  Flow ExecSelect(const SelectStmt& s, Frame& f);
  void ExecReDim(const ReDimStmt& s, Frame& f);
  void ExecErase(const EraseStmt& s, Frame& f);
  void ExecDim(const DimStmt& s, Frame& f);
  void ExecConst(const ConstStmt& s, Frame& f);
  void NotePosition(const Stmt& s, const Frame& f);
  void NotePosition(int line, int column, const Frame& f);

  Variant Eval(const Expr& e, Frame& f);
  Variant EvalName(NameExpr& n, Frame& f, bool call);
  Variant EvalMember(const MemberExpr& m, Frame& f, bool call);
  Variant EvalBinary(const BinaryExpr& b, Frame& f);
  const Variant& Operand(const Expr& e, Frame& f, Variant& temp);
  Variant Index(const Variant& target, const ExprList& args, Frame& f, bool call);
  bool Truth(const Variant& v);

  void Assign(const Expr& target, Variant value, bool isSet, Frame& f);
  void AssignToVariable(Variant& var, Variant value, bool isSet);
  // Storage of a variable or of an array element, nested ones included
  // (`a(1)(2)`); null when the expression denotes no storage.
  Variant* StorageRef(const Expr& e, Frame& f);
  // Storage of a name that denotes a variable; null when it denotes something
  // else (a procedure, a property, a host member ...).
  Variant* VariableRef(NameExpr& n, Frame& f);
  // Storage an argument can be passed ByRef through; null for values.
  Variant* ArgumentRef(const Expr& e, Frame& f);
  Variant* ElementRef(Variant& array, const ExprList& args, Frame& f);
  // An array element passed to a ByRef parameter travels as a copy in the
  // call's slot and goes back into the element when the call ends, even when
  // it ends by an error. A pointer into the array could dangle once the
  // callee ReDims, Erases or reassigns it; the copy cannot.
  struct ElementArgument {
    Variant* variable;
    std::vector<int32_t> indexes;
    Variant* value;
  };
  // True when `e` names an element of an array variable: its value is now in
  // `slot` and the way back is appended to `out`.
  bool BindElementArgument(const Expr& e, Frame& f, Variant& slot, std::vector<ElementArgument>& out);
  static void WriteBackElements(std::vector<ElementArgument>& elements) noexcept;
  // The procedure-call frame `f` runs in (itself, or the one an Execute/Eval
  // runs inside); null at global scope.
  static Frame* ProcedureFrame(Frame& f);
  Variant* ExecLocalRef(const NameExpr& n, Frame& f);
  // The procedure call whose context Execute/Eval text in `f` runs in; null
  // for procedure frames and global code.
  static Frame* ExecuteHost(Frame& f);

  Variant CallProc(const FunctionProto& p, ScriptObject* me, const ExprList* args, Frame* caller,
                   std::span<Variant> values, const Variant* letValue);
  Variant CallClassMember(ScriptObject& self, int member, InvokeKind kind, const ExprList* args,
                          Frame* caller, std::span<Variant> values, const Variant* letValue, bool call);
  // `obj.Member(args)` where Member takes no arguments: index its value.
  Variant IndexResult(const Variant& value, const ExprList* args, Frame* caller, std::span<Variant> values,
                      bool call);
  Variant CallBuiltin(const BuiltinFunction& fn, const ExprList& args, Frame& f);
  Variant CallIntrinsic(int id, const ExprList& args, Frame& f);
  Variant InvokeObject(Object& object, DispId id, InvokeKind kind, const ExprList& args, Frame& f,
                       const Variant* value);
  Variant NewObject(const std::string& lower, const std::string& name);
  Variant CreateObject(const std::string& progId);

  void EnterCall();
  void Tick() {
    if (--ticks_ == 0) CheckTimeout();
  }
  void CheckTimeout();
  [[noreturn]] void Undefined(const std::string& name);

  std::shared_ptr<Machine*> handle_;
  std::unordered_map<std::string, std::unique_ptr<GlobalEntry>> globals_;
  std::vector<Ref<Object>> memberObjects_;  // AddObject with addMembers
  uint32_t generation_ = 1;
  Ref<ErrObject> err_;
  BuiltinContext builtins_;

  int32_t timeoutMs_ = 0;
  bool allowUI_ = false;
  std::function<void(const std::string&)> uiSink_;
  std::chrono::steady_clock::time_point deadline_;
  int32_t ticks_ = 1;
  bool aborting_ = false;

  uintptr_t stackLimit_ = 0;
  int depth_ = 0;

  bool errorNoted_ = false;
  int errorLine_ = 0;
  int errorColumn_ = 0;
  const Code* errorCode_ = nullptr;
  std::shared_ptr<const Code> errorCodeKeep_;
};

}  // namespace tessel::vbs
