#include "scripting/vbs/Machine.h"

#include <pthread.h>

#include <algorithm>
#include <cctype>
#include <new>

#include "core/RuntimeError.h"
#include "core/SafeArray.h"
#include "core/VariantArithmetic.h"
#include "scripting/vbs/FastArithmetic.h"
#include "scripting/vbs/Parser.h"
#include "scripting/vbs/ProcedureRef.h"
#include "scripting/vbs/ScriptError.h"
#include "scripting/vbs/ScriptFactories.h"
#include "scripting/vbs/ScriptObject.h"

namespace tessel::vbs {

namespace {

constexpr int32_t kTickInterval = 4096;
constexpr size_t kMaxStringBytes = 256u << 20;
// Arrays stop at 16M elements (256 MB of Variants) for the same reason.
constexpr int64_t kMaxArrayElements = int64_t{1} << 24;

void CheckArraySize(const std::vector<Variant::Bound>& bounds) {
  int64_t total = 1;
  for (const auto& b : bounds) {
    int64_t extent = int64_t{b.upper} - b.lower + 1;
    if (extent < 0) ThrowRuntimeError(9);
    total *= extent;
    if (total > kMaxArrayElements) ThrowRuntimeError(7);
  }
}

// The error the engine raises when a script runs past its time-out.
constexpr int32_t kTimeoutNumber = static_cast<int32_t>(0x80004004);

enum Intrinsic : int {
  kEval = 1, kExecute, kExecuteGlobal, kGetRef, kCreateObject, kIsObject, kTypeName, kVarType,
  kIsArray, kLBound, kUBound, kArray, kErr, kMsgBox, kInputBox, kIsEmpty, kIsNull,
};

struct IntrinsicEntry {
  const char* name;
  int id;
  int minArgs;
  int maxArgs;
};

constexpr IntrinsicEntry kIntrinsics[] = {
    {"eval", kEval, 1, 1},           {"execute", kExecute, 1, 1},   {"executeglobal", kExecuteGlobal, 1, 1},
    {"getref", kGetRef, 1, 1},       {"createobject", kCreateObject, 1, 2},
    {"isobject", kIsObject, 1, 1},   {"typename", kTypeName, 1, 1}, {"vartype", kVarType, 1, 1},
    {"isarray", kIsArray, 1, 1},     {"lbound", kLBound, 1, 2},     {"ubound", kUBound, 1, 2},
    {"array", kArray, 0, 127},       {"err", kErr, 0, 0},           {"msgbox", kMsgBox, 1, 5},
    {"inputbox", kInputBox, 1, 7},   {"isempty", kIsEmpty, 1, 1},   {"isnull", kIsNull, 1, 1},
};

const IntrinsicEntry* FindIntrinsic(const std::string& lower) {
  for (const auto& e : kIntrinsics)
    if (lower == e.name) return &e;
  return nullptr;
}

const IntrinsicEntry& IntrinsicById(int id) { return kIntrinsics[id - 1]; }

std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

[[noreturn]] void ThrowNamed(int32_t number, const std::string& name) {
  throw Error(number, std::string(RuntimeErrorText(number)) + ": '" + name + "'",
              std::string(kScriptRuntimeSource));
}

// The lowest stack address a call may reach on this thread before the
// machine reports 28 "Out of stack space": a quarter of the stack (at least
// 256 KB) stays free for built-ins, host objects and the C++ runtime.
uintptr_t ThreadStackLimit() {
  thread_local uintptr_t limit = [] {
    pthread_attr_t attr;
    uintptr_t result = 0;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
      void* addr = nullptr;
      size_t size = 0;
      if (pthread_attr_getstack(&attr, &addr, &size) == 0 && addr) {
        size_t margin = std::max<size_t>(size / 4, 256 * 1024);
        const size_t kMaxUse = 64u << 20;
        if (size - margin > kMaxUse) margin = size - kMaxUse;
        result = reinterpret_cast<uintptr_t>(addr) + margin;
      }
      pthread_attr_destroy(&attr);
    }
    if (result == 0) {
      char probe;
      result = reinterpret_cast<uintptr_t>(&probe) - (1u << 20);
    }
    return result;
  }();
  return limit;
}

// Frame slots live on the C++ stack for small procedures.
struct SlotBuffer {
  static constexpr int kInline = 12;
  Variant inlineSlots[kInline];
  Variant* inlineRefs[kInline];
  std::unique_ptr<Variant[]> heapSlots;
  std::unique_ptr<Variant*[]> heapRefs;
  Variant* slots;
  Variant** refs;

  explicit SlotBuffer(int count) {
    if (count <= kInline) {
      slots = inlineSlots;
      refs = inlineRefs;
    } else {
      heapSlots = std::make_unique<Variant[]>(count);
      heapRefs = std::make_unique<Variant*[]>(count);
      slots = heapSlots.get();
      refs = heapRefs.get();
    }
    for (int i = 0; i < count; ++i) refs[i] = &slots[i];
  }
};

bool IsNumericLiteralText(const Variant& v) { return v.IsString() && IsNumericText(v.StringValue()); }

// Comparison where a string literal meets a number: the literal is read as a
// number, as the script language does for constants.
CompareResult CompareOperands(const Variant& a, const Variant& b, const Expr& left, const Expr& right) {
  const bool leftLiteral = left.kind == ExprKind::Literal;
  const bool rightLiteral = right.kind == ExprKind::Literal;
  if (leftLiteral != rightLiteral) {
    const Variant& lit = leftLiteral ? a : b;
    Variant other = (leftLiteral ? b : a);
    if (other.IsObject()) other = other.Dereference();
    if (lit.IsString() && (other.IsNumericType() || other.Type() == VarType::Boolean ||
                           other.Type() == VarType::Date)) {
      if (IsNumericLiteralText(lit)) {
        Variant num = Variant::FromDouble(lit.ToDouble());
        return leftLiteral ? Compare(num, other) : Compare(other, num);
      }
    } else if (lit.IsNumericType() && other.IsString() && IsNumericText(other.StringValue())) {
      Variant num = Variant::FromDouble(other.ToDouble());
      return leftLiteral ? Compare(lit, num) : Compare(num, lit);
    }
  }
  return Compare(a, b);
}

Variant CompareToVariant(CompareResult r, BinaryOp op) {
  if (r == CompareResult::Null) return Variant::Null();
  bool value = false;
  switch (op) {
    case BinaryOp::Eq: value = r == CompareResult::Equal; break;
    case BinaryOp::Ne: value = r != CompareResult::Equal; break;
    case BinaryOp::Lt: value = r == CompareResult::Less; break;
    case BinaryOp::Le: value = r != CompareResult::Greater; break;
    case BinaryOp::Gt: value = r == CompareResult::Greater; break;
    case BinaryOp::Ge: value = r != CompareResult::Less; break;
    default: break;
  }
  return Variant(value);
}

int32_t IndexValue(const Variant& v) {
  if (v.Type() == VarType::Integer) return v.IntegerValue();
  if (v.Type() == VarType::Long) return v.LongValue();
  return v.ToLong();
}

bool IsFixedArray(const Variant& v) { return v.IsArray() && v.ArrayValue().IsLocked(); }

// Writes to an element of a fixed-size array keep it fixed even when the
// write had to copy shared elements.
SafeArray& Writable(Variant& array) {
  const bool fixed = array.ArrayValue().IsLocked();
  SafeArray& a = array.MutableArray();
  if (fixed && !a.IsLocked()) a.Lock();
  return a;
}

// A value stored into a variable, element or parameter: a copy of a
// fixed-size array is a dynamic array, so it gets elements of its own without
// the fixed mark (the original keeps its mark and its storage).
inline void UnfixCopy(Variant& value) {
  if (!value.IsArray() || !value.ArrayValue().IsLocked()) return;
  SafeArray& a = value.MutableArray();
  while (a.IsLocked()) a.Unlock();
}

Variant FixedArray(const std::vector<int32_t>& dims) {
  std::vector<Variant::Bound> bounds;
  bounds.reserve(dims.size());
  for (int32_t d : dims) bounds.push_back({0, d});
  CheckArraySize(bounds);
  Variant v = Variant::NewArray(bounds);
  if (!dims.empty()) v.MutableArray().Lock();
  return v;
}

}  // namespace

// --- setup ----------------------------------------------------------------------

Machine::Machine() : handle_(std::make_shared<Machine*>(this)), err_(MakeRef<ErrObject>()) {}

Machine::~Machine() {
  // Release script objects while the machine can still run their
  // Class_Terminate; objects the host still holds lose their machine.
  aborting_ = false;
  for (auto& [name, entry] : globals_) entry->value = Variant();
  memberObjects_.clear();
  globals_.clear();
  *handle_ = nullptr;
}

void Machine::AddObject(const std::string& name, Ref<Object> object, bool addMembers) {
  GlobalEntry& e = Declare(Lower(name), name);
  e.kind = GlobalEntry::HostObject;
  e.value = Variant(object);
  if (addMembers && object) memberObjects_.push_back(object);
  ++generation_;
}

void Machine::BeginEntry() {
  errorNoted_ = false;
  errorLine_ = 0;
  errorColumn_ = 0;
  errorCode_ = nullptr;
  errorCodeKeep_.reset();
  aborting_ = false;
  if (depth_ == 0) {
    stackLimit_ = ThreadStackLimit();
    if (timeoutMs_ > 0) deadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs_);
    ticks_ = kTickInterval;
  }
}

void Machine::CheckTimeout() {
  ticks_ = kTickInterval;
  if (timeoutMs_ > 0 && std::chrono::steady_clock::now() > deadline_) {
    aborting_ = true;
    throw Error(kTimeoutNumber, "Script timed out", "Microsoft VBScript runtime error");
  }
}

void Machine::EnterCall() {
  char probe;
  if (reinterpret_cast<uintptr_t>(&probe) < stackLimit_) ThrowRuntimeError(28);
  Tick();
}

GlobalEntry& Machine::Declare(const std::string& lower, const std::string& name) {
  auto& slot = globals_[lower];
  if (!slot) {
    slot = std::make_unique<GlobalEntry>();
    slot->name = name;
    ++generation_;
  }
  return *slot;
}

GlobalEntry* Machine::Lookup(const std::string& lower) {
  auto it = globals_.find(lower);
  if (it != globals_.end()) return it->second.get();
  // Members of objects published with addMembers, then the built-ins.
  for (const auto& object : memberObjects_) {
    DispId id = object->GetMemberId(lower);
    if (id != kDispIdUnknown) {
      GlobalEntry& e = Declare(lower, lower);
      e.kind = GlobalEntry::HostMember;
      e.host = object;
      e.dispId = id;
      return &e;
    }
  }
  if (const IntrinsicEntry* in = FindIntrinsic(lower)) {
    GlobalEntry& e = Declare(lower, in->name);
    e.kind = GlobalEntry::Intrinsic;
    e.intrinsic = in->id;
    return &e;
  }
  if (const BuiltinFunction* fn = FindBuiltinFunction(lower)) {
    GlobalEntry& e = Declare(lower, std::string(fn->name));
    e.kind = GlobalEntry::Builtin;
    e.builtin = fn;
    return &e;
  }
  if (const BuiltinConstant* c = FindBuiltinConstant(lower)) {
    GlobalEntry& e = Declare(lower, std::string(c->name));
    e.kind = GlobalEntry::Constant;
    e.value = c->value();
    return &e;
  }
  return nullptr;
}

GlobalEntry* Machine::Resolve(NameExpr& n) {
  if (n.cache) return n.cache;
  if (n.missGeneration == generation_) return nullptr;
  GlobalEntry* e = Lookup(n.lower);
  if (e) n.cache = e;
  else n.missGeneration = generation_;
  return e;
}

void Machine::Undefined(const std::string& name) { ThrowNamed(500, name); }

// --- running code -------------------------------------------------------------------

void Machine::Run(const std::shared_ptr<Code>& code, Frame* enclosing) {
  for (auto& p : code->procedures) {
    GlobalEntry& e = Declare(p->lower, p->name);
    e.kind = GlobalEntry::Procedure;
    e.proc = p.get();
    e.cls = nullptr;
    e.code = code;
    e.value = Variant();
    e.host = nullptr;
  }
  for (auto& c : code->classes) {
    GlobalEntry& e = Declare(c->lower, c->name);
    e.kind = GlobalEntry::Class;
    e.cls = c.get();
    e.proc = nullptr;
    e.code = code;
    e.host = nullptr;
  }
  for (const auto& [lower, name, line, column] : code->globals) {
    auto it = globals_.find(lower);
    if (it == globals_.end() || (it->second->kind != GlobalEntry::Variable &&
                                 it->second->kind != GlobalEntry::Constant &&
                                 it->second->kind != GlobalEntry::HostObject)) {
      GlobalEntry& e = Declare(lower, name);
      if (e.kind != GlobalEntry::Variable) {
        e.kind = GlobalEntry::Variable;
        e.value = Variant();
        e.host = nullptr;
      }
    }
  }
  if (!code->execLocals.empty()) {
    Frame* p = enclosing ? ProcedureFrame(*enclosing) : nullptr;
    if (!p) ThrowRuntimeError(51);
    if (!p->execLocals) p->execLocals = std::make_unique<std::unordered_map<std::string, Variant>>();
    for (const auto& lower : code->execLocals) p->execLocals->try_emplace(lower);
  }
  ++generation_;
  SlotBuffer buffer(code->slotCount);
  Frame f;
  f.code = code.get();
  f.refs = buffer.refs;
  f.enclosing = enclosing;
  f.me = enclosing ? enclosing->me : nullptr;
  std::shared_ptr<Code> keep = code;
  ExecBlock(code->statements, f);
}

Variant Machine::Evaluate(const Expr& expr, Frame* enclosing) {
  Frame f;
  f.enclosing = enclosing;
  f.me = enclosing ? enclosing->me : nullptr;
  f.code = enclosing ? enclosing->code : nullptr;
  return Eval(expr, f);
}

Variant Machine::CallByName(std::string_view name, std::span<Variant> args) {
  GlobalEntry* e = Lookup(Lower(name));
  if (!e) ThrowNamed(35, std::string(name));
  switch (e->kind) {
    case GlobalEntry::Procedure: {
      std::shared_ptr<Code> keep = e->code;
      return CallProc(*e->proc, nullptr, nullptr, nullptr, args, nullptr);
    }
    case GlobalEntry::Builtin: {
      if (static_cast<int>(args.size()) < e->builtin->minArgs || static_cast<int>(args.size()) > e->builtin->maxArgs)
        ThrowRuntimeError(450);
      return e->builtin->call(builtins_, args.data(), static_cast<int>(args.size()));
    }
    case GlobalEntry::HostMember:
      return e->host->Invoke(e->dispId, InvokeKind::Method, args);
    default:
      ThrowNamed(35, std::string(name));
  }
}

Variant Machine::CallProcedure(const FunctionProto& proto, std::span<Variant> args) {
  return CallProc(proto, nullptr, nullptr, nullptr, args, nullptr);
}

void Machine::NotePosition(const Stmt& s, const Frame& f) { NotePosition(s.line, s.column, f); }

void Machine::NotePosition(int line, int column, const Frame& f) {
  if (errorNoted_) return;
  errorNoted_ = true;
  errorLine_ = line;
  errorColumn_ = column;
  errorCode_ = f.code;
  errorCodeKeep_ = f.code ? f.code->weak_from_this().lock() : nullptr;
  if (!errorCodeKeep_) errorCode_ = nullptr;
}

Machine::Flow Machine::ExecBlock(const Block& block, Frame& f) {
  for (const auto& s : block) {
    if (!f.resumeNext) {
      try {
        Flow flow = Exec(*s, f);
        if (flow != Flow::Normal) return flow;
      } catch (...) {
        NotePosition(*s, f);
        throw;
      }
    } else {
      try {
        Flow flow = Exec(*s, f);
        if (flow != Flow::Normal) return flow;
      } catch (const Error& e) {
        if (aborting_) throw;
        err_->Set(e);
        errorNoted_ = false;
      } catch (const std::bad_alloc&) {
        if (aborting_) throw;
        err_->Set(RuntimeError(7));
        errorNoted_ = false;
      }
    }
  }
  return Flow::Normal;
}

Machine::Flow Machine::Exec(const Stmt& s, Frame& f) {
  switch (s.kind) {
    case StmtKind::Assign: {
      const auto& a = static_cast<const AssignStmt&>(s);
      Assign(*a.target, Eval(*a.value, f), a.isSet, f);
      return Flow::Normal;
    }
    case StmtKind::Call: {
      const auto& c = static_cast<const CallStmt&>(s);
      Expr& call = *c.call;
      if (call.kind == ExprKind::Name) EvalName(static_cast<NameExpr&>(call), f, true);
      else if (call.kind == ExprKind::Member) EvalMember(static_cast<const MemberExpr&>(call), f, true);
      else {
        const auto& ix = static_cast<const IndexExpr&>(call);
        Index(Eval(*ix.target, f), ix.args, f, true);
      }
      return Flow::Normal;
    }
    case StmtKind::Dim:
      ExecDim(static_cast<const DimStmt&>(s), f);
      return Flow::Normal;
    case StmtKind::ReDim:
      ExecReDim(static_cast<const ReDimStmt&>(s), f);
      return Flow::Normal;
    case StmtKind::Erase:
      ExecErase(static_cast<const EraseStmt&>(s), f);
      return Flow::Normal;
    case StmtKind::Const:
      ExecConst(static_cast<const ConstStmt&>(s), f);
      return Flow::Normal;
    case StmtKind::If: {
      const auto& st = static_cast<const IfStmt&>(s);
      for (size_t i = 0; i < st.conditions.size(); ++i) {
        bool taken;
        if (!f.resumeNext) {
          try {
            taken = Truth(Eval(*st.conditions[i], f));
          } catch (...) {
            // A failing ElseIf condition is reported where the ElseIf stands.
            if (i > 0 && i - 1 < st.elseIfAt.size())
              NotePosition(st.elseIfAt[i - 1].first, st.elseIfAt[i - 1].second, f);
            throw;
          }
        } else {
          // Under On Error Resume Next a failing condition resumes with the
          // next statement, which is the first one of its branch.
          try {
            taken = Truth(Eval(*st.conditions[i], f));
          } catch (const Error& e) {
            if (aborting_) throw;
            err_->Set(e);
            errorNoted_ = false;
            taken = true;
          }
        }
        if (taken) return ExecBlock(st.blocks[i], f);
      }
      return ExecBlock(st.elseBlock, f);
    }
    case StmtKind::Select:
      return ExecSelect(static_cast<const SelectStmt&>(s), f);
    case StmtKind::For:
      return ExecFor(static_cast<const ForStmt&>(s), f);
    case StmtKind::ForEach:
      return ExecForEach(static_cast<const ForEachStmt&>(s), f);
    case StmtKind::Do:
      return ExecDo(static_cast<const DoStmt&>(s), f);
    case StmtKind::Exit:
      switch (static_cast<const ExitStmt&>(s).what) {
        case ExitStmt::Do: return Flow::ExitDo;
        case ExitStmt::For: return Flow::ExitFor;
        case ExitStmt::Procedure: return Flow::ExitProc;
      }
      return Flow::Normal;
    case StmtKind::OnError:
      f.resumeNext = static_cast<const OnErrorStmt&>(s).resumeNext;
      err_->Clear();
      return Flow::Normal;
    case StmtKind::With: {
      const auto& w = static_cast<const WithStmt&>(s);
      Variant& slot = *f.refs[w.slot];
      slot = Eval(*w.object, f);
      Flow flow;
      try {
        flow = ExecBlock(w.body, f);
      } catch (...) {
        slot = Variant();
        throw;
      }
      slot = Variant();
      return flow;
    }
    case StmtKind::Nop:
      return Flow::Normal;
  }
  return Flow::Normal;
}

void Machine::ExecDim(const DimStmt& s, Frame& f) {
  for (const auto& var : s.vars) {
    auto& n = static_cast<NameExpr&>(*var.target);
    Variant* v = VariableRef(n, f);
    if (!v) ThrowNamed(1041, n.name);
    if (var.isArray) *v = FixedArray(var.dims);
  }
}

void Machine::ExecConst(const ConstStmt& s, Frame& f) {
  for (const auto& [target, value] : s.items) {
    auto& n = static_cast<NameExpr&>(*target);
    Variant v = Eval(*value, f);
    if (n.scope == NameScope::Local) {
      *f.refs[n.index] = std::move(v);
    } else if (n.scope != NameScope::Dynamic) {
      // A Const in text an Execute runs inside a procedure belongs to that
      // call, like a Dim there.
      Variant* var = VariableRef(n, f);
      if (!var) ThrowNamed(1041, n.name);
      *var = std::move(v);
    } else {
      GlobalEntry& e = Declare(n.lower, n.name);
      e.kind = GlobalEntry::Constant;
      e.value = std::move(v);
    }
  }
}

void Machine::ExecReDim(const ReDimStmt& s, Frame& f) {
  for (const auto& item : s.items) {
    std::vector<Variant::Bound> bounds;
    bounds.reserve(item.bounds.size());
    for (const auto& b : item.bounds) bounds.push_back({0, IndexValue(Eval(*b, f))});
    CheckArraySize(bounds);
    auto& name = static_cast<NameExpr&>(*item.target);
    Variant* var;
    if (name.scope == NameScope::Dynamic && !Resolve(name) && name.implicitSlot >= 0) {
      var = ProcedureFrame(f)->refs[name.implicitSlot];  // ReDim declares the array, even under Option Explicit
    } else if (name.scope == NameScope::Dynamic && !Resolve(name) && name.implicitSlot < 0) {
      GlobalEntry& g = Declare(name.lower, name.name);
      g.kind = GlobalEntry::Variable;
      name.cache = &g;
      var = &g.value;
    } else {
      var = VariableRef(name, f);
    }
    if (!var) ThrowRuntimeError(13);
    if (IsFixedArray(*var)) ThrowRuntimeError(10);
    if (s.preserve && var->IsArray() && var->ArrayValue().Dimensions() > 0) {
      var->MutableArray().Redim(bounds, true);
    } else {
      *var = Variant::NewArray(bounds);
    }
  }
}

void Machine::ExecErase(const EraseStmt& s, Frame& f) {
  for (const auto& t : s.targets) {
    Variant* var = VariableRef(static_cast<NameExpr&>(*t), f);
    if (!var || !var->IsArray()) ThrowRuntimeError(13);
    if (IsFixedArray(*var)) {
      SafeArray& a = Writable(*var);
      for (Variant& e : a.Elements()) e = Variant();
    } else {
      *var = Variant::NewArray({});
    }
  }
}

Machine::Flow Machine::ExecSelect(const SelectStmt& s, Frame& f) {
  Variant subject = Eval(*s.subject, f);
  for (const auto& clause : s.cases) {
    for (const auto& item : clause.items) {
      bool match = false;
      Variant v = Eval(*item.value, f);
      switch (item.kind) {
        case CaseItem::Value:
          match = CompareOperands(subject, v, *s.subject, *item.value) == CompareResult::Equal;
          break;
        case CaseItem::Range: {
          Variant to = Eval(*item.to, f);
          CompareResult lo = CompareOperands(subject, v, *s.subject, *item.value);
          CompareResult hi = CompareOperands(subject, to, *s.subject, *item.to);
          match = (lo == CompareResult::Equal || lo == CompareResult::Greater) &&
                  (hi == CompareResult::Equal || hi == CompareResult::Less);
          break;
        }
        case CaseItem::IsCompare: {
          Variant r = CompareToVariant(CompareOperands(subject, v, *s.subject, *item.value), item.op);
          match = r.Type() == VarType::Boolean && r.BooleanValue();
          break;
        }
      }
      if (match) return ExecBlock(clause.body, f);
    }
  }
  return ExecBlock(s.elseBlock, f);
}

namespace {
// Counter arithmetic of For loops on the common integer case.
inline bool FastStep(Variant& counter, const Variant& step) {
  if (counter.Type() == VarType::Integer && step.Type() == VarType::Integer) {
    int32_t r = counter.IntegerValue() + step.IntegerValue();
    if (r >= -32768 && r <= 32767) {
      counter = Variant::FromInteger(static_cast<int16_t>(r));
      return true;
    }
    counter = Variant::FromLong(r);
    return true;
  }
  if (counter.Type() == VarType::Long && (step.Type() == VarType::Integer || step.Type() == VarType::Long)) {
    int32_t s = step.Type() == VarType::Integer ? step.IntegerValue() : step.LongValue();
    int32_t r;
    if (!__builtin_add_overflow(counter.LongValue(), s, &r)) {
      counter = Variant::FromLong(r);
      return true;
    }
  }
  return false;
}

inline bool FastPastEnd(const Variant& counter, const Variant& end, bool down, bool& past) {
  int64_t c, e;
  if (counter.Type() == VarType::Integer) c = counter.IntegerValue();
  else if (counter.Type() == VarType::Long) c = counter.LongValue();
  else return false;
  if (end.Type() == VarType::Integer) e = end.IntegerValue();
  else if (end.Type() == VarType::Long) e = end.LongValue();
  else return false;
  past = down ? c < e : c > e;
  return true;
}
}  // namespace

Machine::Flow Machine::ExecFor(const ForStmt& s, Frame& f) {
  auto& name = static_cast<NameExpr&>(*s.variable);
  Variant from = Eval(*s.from, f);
  Variant to = Eval(*s.to, f);
  Variant step = s.step ? Eval(*s.step, f) : Variant::FromInteger(1);
  if (from.IsObject()) from = from.Dereference();
  if (to.IsObject()) to = to.Dereference();
  if (step.IsObject()) step = step.Dereference();
  if (from.IsNull() || to.IsNull() || step.IsNull()) ThrowRuntimeError(94);
  auto numeric = [](Variant& v) {
    if (v.IsString()) v = Variant::FromDouble(v.ToDouble());
    else if (v.IsEmpty()) v = Variant::FromInteger(0);
    else if (!v.IsNumericType() && v.Type() != VarType::Boolean && v.Type() != VarType::Date)
      ThrowRuntimeError(13);
  };
  numeric(from);
  numeric(to);
  numeric(step);
  const bool down = Compare(step, Variant::FromInteger(0)) == CompareResult::Less;
  // The counter's storage (a slot, a global entry or a field) stays put for
  // the whole loop.
  Variant* counter = VariableRef(name, f);
  if (!counter) ThrowRuntimeError(13);
  *counter = from;
  for (;;) {
    bool past;
    if (!FastPastEnd(*counter, to, down, past)) {
      CompareResult r = Compare(*counter, to);
      past = down ? r == CompareResult::Less : r == CompareResult::Greater;
    }
    if (past) break;
    Flow flow = ExecBlock(s.body, f);
    if (flow == Flow::ExitFor) break;
    if (flow != Flow::Normal) return flow;
    if (!FastStep(*counter, step)) *counter = FastAdd(*counter, step);
    Tick();
  }
  return Flow::Normal;
}

Machine::Flow Machine::ExecForEach(const ForEachStmt& s, Frame& f) {
  auto& name = static_cast<NameExpr&>(*s.variable);
  Variant collection = Eval(*s.collection, f);
  auto assign = [&](Variant value) {
    Variant* var = VariableRef(name, f);
    if (!var) ThrowRuntimeError(13);
    *var = std::move(value);
  };
  if (collection.IsArray()) {
    Variant snapshot = collection;  // shares the elements; writes to the original copy them
    const SafeArray& a = snapshot.ArrayValue();
    for (size_t i = 0; i < a.Count(); ++i) {
      assign(a.Elements()[i]);
      Flow flow = ExecBlock(s.body, f);
      if (flow == Flow::ExitFor) break;
      if (flow != Flow::Normal) return flow;
      Tick();
    }
    return Flow::Normal;
  }
  if (!collection.IsObject()) ThrowRuntimeError(451);
  if (collection.IsNothing()) ThrowRuntimeError(91);
  Ref<Object> e = collection.ObjectPtr()->NewEnum();
  auto* enumerator = dynamic_cast<Enumerator*>(e.get());
  if (!enumerator) ThrowRuntimeError(451);
  Variant item;
  while (enumerator->Next(item)) {
    assign(std::move(item));
    item = Variant();
    Flow flow = ExecBlock(s.body, f);
    if (flow == Flow::ExitFor) break;
    if (flow != Flow::Normal) return flow;
    Tick();
  }
  return Flow::Normal;
}

Machine::Flow Machine::ExecDo(const DoStmt& s, Frame& f) {
  for (;;) {
    if (s.test == DoStmt::PreWhile && !Truth(Eval(*s.condition, f))) break;
    if (s.test == DoStmt::PreUntil && Truth(Eval(*s.condition, f))) break;
    Flow flow = ExecBlock(s.body, f);
    if (flow == Flow::ExitDo) break;
    if (flow != Flow::Normal) return flow;
    if (s.test == DoStmt::PostWhile || s.test == DoStmt::PostUntil) {
      bool value;
      try {
        value = Truth(Eval(*s.condition, f));
      } catch (...) {
        NotePosition(s.loopLine, s.loopColumn, f);
        throw;
      }
      if (value == (s.test == DoStmt::PostUntil)) break;
    }
    Tick();
  }
  return Flow::Normal;
}

bool Machine::Truth(const Variant& v) {
  switch (v.Type()) {
    case VarType::Boolean: return v.BooleanValue();
    case VarType::Null: return false;
    case VarType::Empty: return false;
    case VarType::Integer: return v.IntegerValue() != 0;
    case VarType::Long: return v.LongValue() != 0;
    default: return v.ToBool();
  }
}

// --- expressions ---------------------------------------------------------------------

Variant Machine::Eval(const Expr& e, Frame& f) {
  switch (e.kind) {
    case ExprKind::Literal:
      return static_cast<const LiteralExpr&>(e).value;
    case ExprKind::Name:
      return EvalName(const_cast<NameExpr&>(static_cast<const NameExpr&>(e)), f, false);
    case ExprKind::Member:
      return EvalMember(static_cast<const MemberExpr&>(e), f, false);
    case ExprKind::Index: {
      const auto& ix = static_cast<const IndexExpr&>(e);
      return Index(Eval(*ix.target, f), ix.args, f, false);
    }
    case ExprKind::Paren:
      return Eval(*static_cast<const ParenExpr&>(e).inner, f);
    case ExprKind::Unary: {
      const auto& u = static_cast<const UnaryExpr&>(e);
      Variant v = Eval(*u.operand, f);
      switch (u.op) {
        case UnaryOp::Neg: return Negate(v);
        case UnaryOp::Not: return Not(v);
        case UnaryOp::Plus: return v.IsObject() ? v.Dereference() : v;
      }
      return v;
    }
    case ExprKind::Binary:
      return EvalBinary(static_cast<const BinaryExpr&>(e), f);
    case ExprKind::New: {
      const auto& n = static_cast<const NewExpr&>(e);
      return NewObject(n.lower, n.className);
    }
    case ExprKind::Me:
      if (!f.me) ThrowRuntimeError(424);
      return Variant(Ref<Object>(f.me));
    case ExprKind::Missing:
      return Variant::Missing();
  }
  return Variant();
}

// The value of an operand without copying it when it is a literal or a plain
// variable; otherwise evaluated into `temp`.
const Variant& Machine::Operand(const Expr& e, Frame& f, Variant& temp) {
  if (e.kind == ExprKind::Literal) return static_cast<const LiteralExpr&>(e).value;
  if (e.kind == ExprKind::Name) {
    const auto& n = static_cast<const NameExpr&>(e);
    if (!n.hasParens) {
      if (n.scope == NameScope::Local) return *f.refs[n.index];
      if (n.scope == NameScope::Dynamic && n.cache &&
          (n.cache->kind == GlobalEntry::Variable || n.cache->kind == GlobalEntry::Constant))
        return n.cache->value;
    }
  }
  temp = Eval(e, f);
  return temp;
}

Variant Machine::EvalBinary(const BinaryExpr& b, Frame& f) {
  if (b.height > 64) {
    char probe;
    if (reinterpret_cast<uintptr_t>(&probe) < stackLimit_) ThrowRuntimeError(28);
  }
  // The left operand is copied unless it is a literal: evaluating the right
  // one may change the variable it names.
  Variant leftTemp, rightTemp;
  const Variant& l = b.left->kind == ExprKind::Literal ? static_cast<const LiteralExpr&>(*b.left).value
                                                       : (leftTemp = Eval(*b.left, f));
  const Variant& r = Operand(*b.right, f, rightTemp);
  switch (b.op) {
    case BinaryOp::Add:
      if (l.IsString() && r.IsString() && l.StringValue().size() + r.StringValue().size() > kMaxStringBytes)
        ThrowRuntimeError(7);
      return FastAdd(l, r);
    case BinaryOp::Sub: return FastSubtract(l, r);
    case BinaryOp::Mul: return FastMultiply(l, r);
    case BinaryOp::Div: return Divide(l, r);
    case BinaryOp::IntDiv: return IntDivide(l, r);
    case BinaryOp::Mod: return Mod(l, r);
    case BinaryOp::Pow: return Power(l, r);
    case BinaryOp::Concat: {
      // Strings stop at 256 MB: a script doubling a string in a loop gets 7
      // "Out of memory" instead of taking the machine's memory.
      if (l.IsString() && r.IsString() && l.StringValue().size() + r.StringValue().size() > kMaxStringBytes)
        ThrowRuntimeError(7);
      Variant result = Concat(l, r);
      if (result.IsString() && result.StringValue().size() > kMaxStringBytes) ThrowRuntimeError(7);
      return result;
    }
    case BinaryOp::And: return And(l, r);
    case BinaryOp::Or: return Or(l, r);
    case BinaryOp::Xor: return Xor(l, r);
    case BinaryOp::Eqv: return Eqv(l, r);
    case BinaryOp::Imp: return Imp(l, r);
    case BinaryOp::Is:
      if (!l.IsObject() || !r.IsObject()) ThrowRuntimeError(424);
      return Variant(l.ObjectPtr() == r.ObjectPtr());
    case BinaryOp::Eq:
    case BinaryOp::Ne:
    case BinaryOp::Lt:
    case BinaryOp::Le:
    case BinaryOp::Gt:
    case BinaryOp::Ge:
      return CompareToVariant(CompareOperands(l, r, *b.left, *b.right), b.op);
  }
  return Variant();
}

Variant Machine::EvalName(NameExpr& n, Frame& f, bool call) {
  Variant* var = nullptr;
  switch (n.scope) {
    case NameScope::Local:
      var = f.refs[n.index];
      break;
    case NameScope::Enclosing: {
      Frame* outer = f.enclosing;
      while (outer && !outer->proto) outer = outer->enclosing;
      if (!outer) ThrowRuntimeError(51);
      var = outer->refs[n.index];
      break;
    }
    case NameScope::ExecLocal:
      var = ExecLocalRef(n, f);
      break;
    case NameScope::ClassMember: {
      ScriptObject* me = f.me;
      if (!me) ThrowRuntimeError(424);
      return CallClassMember(*me, n.index, call ? InvokeKind::Method : InvokeKind::PropertyGet, &n.args, &f,
                             {}, nullptr, call);
    }
    case NameScope::Dynamic: {
      GlobalEntry* e = Resolve(n);
      if (!e) {
        const bool explicitNames = f.code && f.code->optionExplicit && !n.declaredByReDim;
        if (explicitNames) Undefined(n.name);
        if (n.implicitSlot >= 0) {
          var = ProcedureFrame(f)->refs[n.implicitSlot];
          // An undefined name called as a procedure (the slot was never
          // assigned, so nothing of that name exists).
          if ((call || n.hasParens) && var->IsEmpty()) ThrowNamed(13, n.name);
          break;
        }
        if (n.hasParens || call) ThrowNamed(13, n.name);
        if (Frame* host = ExecuteHost(f)) {
          // Text an Execute runs inside a procedure: a variable an earlier
          // assignment made there, or Empty (nothing becomes global).
          if (host->execLocals) {
            auto it = host->execLocals->find(n.lower);
            if (it != host->execLocals->end()) return it->second;
          }
          return Variant();
        }
        GlobalEntry& g = Declare(n.lower, n.name);
        g.kind = GlobalEntry::Variable;
        n.cache = &g;
        return Variant();
      }
      switch (e->kind) {
        case GlobalEntry::Variable:
        case GlobalEntry::Constant:
        case GlobalEntry::HostObject:
          var = &e->value;
          break;
        case GlobalEntry::Procedure: {
          std::shared_ptr<Code> keep = e->code;
          return CallProc(*e->proc, nullptr, &n.args, &f, {}, nullptr);
        }
        case GlobalEntry::Class:
          ThrowNamed(13, n.name);
        case GlobalEntry::HostMember: {
          Ref<Object> host = e->host;
          return InvokeObject(*host, e->dispId,
                              (call || n.hasParens) ? InvokeKind::Method : InvokeKind::PropertyGet, n.args, f,
                              nullptr);
        }
        case GlobalEntry::Builtin:
          return CallBuiltin(*e->builtin, n.args, f);
        case GlobalEntry::Intrinsic:
          return CallIntrinsic(e->intrinsic, n.args, f);
      }
      break;
    }
  }
  if (n.args.empty() && !n.hasParens) {
    if (call && var->IsObject() && var->ObjectPtr()) {
      return var->ObjectPtr()->Invoke(kDispIdDefault, InvokeKind::Method, {});
    }
    return *var;
  }
  return Index(*var, n.args, f, call);
}

Variant Machine::Index(const Variant& target, const ExprList& args, Frame& f, bool call) {
  if (target.IsArray()) {
    if (args.empty()) ThrowRuntimeError(9);
    int32_t inlineIdx[8];
    std::vector<int32_t> heap;
    int32_t* idx = inlineIdx;
    if (args.size() > 8) {
      heap.resize(args.size());
      idx = heap.data();
    }
    for (size_t i = 0; i < args.size(); ++i) idx[i] = IndexValue(Eval(*args[i], f));
    return target.ArrayValue().At(std::span<const int32_t>(idx, args.size()));
  }
  if (target.IsObject()) {
    if (!target.ObjectPtr()) ThrowRuntimeError(91);
    Ref<Object> object = target.ObjectRef();
    return InvokeObject(*object, kDispIdDefault, call ? InvokeKind::Method : InvokeKind::PropertyGet, args, f,
                        nullptr);
  }
  ThrowRuntimeError(13);
}

Variant Machine::EvalMember(const MemberExpr& m, Frame& f, bool call) {
  Variant object = Eval(*m.object, f);
  if (!object.IsObject()) ThrowRuntimeError(424);
  if (!object.ObjectPtr()) ThrowRuntimeError(91);
  Ref<Object> ref = object.ObjectRef();
  if (auto* so = dynamic_cast<ScriptObject*>(ref.get())) {
    int index = so->Class().Find(m.lower);
    if (index < 0 || (!so->Class().members[index].isPublic && so != f.me)) ThrowNamed(438, m.name);
    return CallClassMember(*so, index, (call || m.hasParens) ? InvokeKind::Method : InvokeKind::PropertyGet,
                           &m.args, &f, {}, nullptr, call);
  }
  DispId id = ref->GetMemberId(m.name);
  if (id == kDispIdUnknown) ThrowNamed(438, m.name);
  return InvokeObject(*ref, id, (call || m.hasParens) ? InvokeKind::Method : InvokeKind::PropertyGet, m.args, f,
                      nullptr);
}

Variant Machine::InvokeObject(Object& object, DispId id, InvokeKind kind, const ExprList& args, Frame& f,
                              const Variant* value) {
  const size_t count = args.size() + (value ? 1 : 0);
  Variant inlineArgs[6];
  std::vector<Variant> heap;
  Variant* argv = inlineArgs;
  if (count > 6) {
    heap.resize(count);
    argv = heap.data();
  }
  Variant* refs[6] = {};
  std::vector<ElementArgument> elements;
  struct WriteBack {
    std::vector<ElementArgument>& elements;
    ~WriteBack() { WriteBackElements(elements); }
  } writeBack{elements};
  for (size_t i = 0; i < args.size(); ++i) {
    Variant* r = ArgumentRef(*args[i], f);
    if (r) {
      argv[i] = *r;
      if (i < 6) refs[i] = r;
    } else if (!BindElementArgument(*args[i], f, argv[i], elements)) {
      argv[i] = Eval(*args[i], f);
    }
  }
  if (value) argv[args.size()] = *value;
  Variant result = object.Invoke(id, kind, std::span<Variant>(argv, count));
  // Hand ByRef results back to plain variables.
  for (size_t i = 0; i < args.size() && i < 6; ++i) {
    if (refs[i]) *refs[i] = std::move(argv[i]);
  }
  return result;
}

Variant Machine::CallBuiltin(const BuiltinFunction& fn, const ExprList& args, Frame& f) {
  const int argc = static_cast<int>(args.size());
  if (argc < fn.minArgs || argc > fn.maxArgs) ThrowNamed(450, std::string(fn.name));
  if (argc > 8) {
    std::vector<Variant> heap(argc);
    for (int i = 0; i < argc; ++i) heap[i] = Eval(*args[i], f);
    return fn.call(builtins_, heap.data(), argc);
  }
  // Only the arguments given are constructed and destroyed: most calls
  // pass one or two, and a full array of eight cost more than the call.
  union Slots {
    Slots() {}
    ~Slots() {}
    Variant v[8];
  } slots;
  struct Built {
    Variant* v;
    int n = 0;
    ~Built() {
      while (n > 0) v[--n].~Variant();
    }
  } built{slots.v};
  while (built.n < argc) {
    ::new (&slots.v[built.n]) Variant(Eval(*args[built.n], f));
    ++built.n;
  }
  return fn.call(builtins_, slots.v, argc);
}

Variant Machine::CallIntrinsic(int id, const ExprList& args, Frame& f) {
  const IntrinsicEntry& entry = IntrinsicById(id);
  const int argc = static_cast<int>(args.size());
  if (argc < entry.minArgs || argc > entry.maxArgs) ThrowNamed(450, entry.name);
  std::vector<Variant> argv;
  argv.reserve(argc);
  for (const auto& a : args) argv.push_back(Eval(*a, f));
  switch (id) {
    case kEval: {
      Frame* pf = ProcedureFrame(f);
      EnclosingScope scope{pf ? pf->proto : nullptr, f.me ? &f.me->Class() : nullptr,
                           pf ? pf->execLocals.get() : nullptr};
      ExprPtr expr;
      try {
        expr = Parser::ParseExpression(argv[0].ToString(), &scope);
      } catch (const ScriptError& e) {
        // A syntax error in the text is a runtime error of this statement.
        throw Error(e.number(), e.description(), e.source());
      }
      EnterCall();
      ++depth_;
      struct Leave { int& d; ~Leave() { --d; } } leave{depth_};
      return Evaluate(*expr, &f);
    }
    case kExecute:
    case kExecuteGlobal: {
      Frame* pf = ProcedureFrame(f);
      const bool local = id == kExecute && pf;
      EnclosingScope scope{pf ? pf->proto : nullptr, f.me ? &f.me->Class() : nullptr,
                           pf ? pf->execLocals.get() : nullptr};
      std::shared_ptr<Code> code;
      try {
        code = Parser::ParseProgram(argv[0].ToString(), 1, local ? &scope : nullptr);
      } catch (const ScriptError& e) {
        throw Error(e.number(), e.description(), e.source());
      }
      EnterCall();
      ++depth_;
      struct Leave { int& d; ~Leave() { --d; } } leave{depth_};
      Run(code, local ? &f : nullptr);
      return Variant();
    }
    case kGetRef: {
      std::string name = argv[0].ToString();
      GlobalEntry* e = Lookup(Lower(name));
      if (!e || e->kind != GlobalEntry::Procedure) ThrowRuntimeError(5);
      return Variant(MakeRef<ProcedureRef>(handle_, *e->proc, e->code));
    }
    case kCreateObject:
      return CreateObject(argv[0].ToString());
    case kIsObject:
      return Variant(argv[0].IsObject());
    case kTypeName:
      return Variant(argv[0].TypeName());
    case kVarType: {
      // An object with a default property answers with that property's type.
      int32_t type = argv[0].VarTypeNumber();
      if (argv[0].IsObject() && argv[0].ObjectPtr()) {
        try {
          type = argv[0].Dereference().VarTypeNumber();
        } catch (const Error&) {
          type = 9;
        }
      }
      return Variant::FromInteger(static_cast<int16_t>(type));
    }
    case kIsArray:
      return Variant(argv[0].IsArray());
    case kLBound:
    case kUBound: {
      if (!argv[0].IsArray()) ThrowRuntimeError(13);
      int dim = argc > 1 ? IndexValue(argv[1]) : 1;
      const SafeArray& a = argv[0].ArrayValue();
      if (dim < 1 || static_cast<size_t>(dim) > a.Dimensions()) ThrowRuntimeError(9);
      return Variant::FromLong(id == kLBound ? a.LowerBound(dim) : a.UpperBound(dim));
    }
    case kArray:
      return Variant::FromVector(std::move(argv));
    case kErr:
      return Variant(Ref<Object>(err_));
    case kMsgBox:
    case kInputBox: {
      if (!allowUI_ || !uiSink_) ThrowNamed(70, entry.id == kMsgBox ? "MsgBox" : "InputBox");
      uiSink_(argv[0].ToString());
      if (id == kMsgBox) return Variant::FromInteger(1);
      return argc > 2 ? Variant(argv[2].ToString()) : Variant(std::string());
    }
    case kIsEmpty:
      return Variant(argv[0].IsEmpty());
    case kIsNull:
      return Variant(argv[0].IsNull());
  }
  ThrowRuntimeError(51);
}

Variant Machine::NewObject(const std::string& lower, const std::string& name) {
  GlobalEntry* e = Lookup(lower);
  if (e && e->kind == GlobalEntry::Class) {
    auto object = MakeRef<ScriptObject>(handle_, *e->cls, e->code);
    if (e->cls->initialize) {
      EnterCall();
      std::span<Variant> none;
      CallProc(*e->cls->initialize, object.get(), nullptr, nullptr, none, nullptr);
    }
    object->MarkInitialized();
    return Variant(object);
  }
  if (lower == "regexp") return CreateObject("VBScript.RegExp");
  ThrowNamed(506, name);
}

Variant Machine::CreateObject(const std::string& progId) {
  Ref<Object> object = CreateScriptingObject(Lower(progId));
  if (!object) ThrowNamed(429, progId);
  return Variant(object);
}

// --- assignment --------------------------------------------------------------------------

void Machine::AssignToVariable(Variant& var, Variant value, bool isSet) {
  if (isSet) {
    if (!value.IsObject()) ThrowRuntimeError(424);
  } else {
    // Let takes the value of an object's default property and always
    // replaces what the variable held, an object included: the target's
    // default property is never assigned.
    if (value.IsObject()) value = value.Dereference();
  }
  var = std::move(value);
}

Variant* Machine::VariableRef(NameExpr& n, Frame& f) {
  switch (n.scope) {
    case NameScope::Local:
      return f.refs[n.index];
    case NameScope::Enclosing: {
      Frame* outer = f.enclosing;
      while (outer && !outer->proto) outer = outer->enclosing;
      return outer ? outer->refs[n.index] : nullptr;
    }
    case NameScope::ExecLocal:
      return ExecLocalRef(n, f);
    case NameScope::ClassMember: {
      if (!f.me) return nullptr;
      const ClassMember& m = f.me->Class().members[n.index];
      return m.kind == ClassMember::Field ? &f.me->Fields()[m.fieldIndex] : nullptr;
    }
    case NameScope::Dynamic: {
      GlobalEntry* e = Resolve(n);
      if (!e) {
        if (f.code && f.code->optionExplicit && !n.declaredByReDim) Undefined(n.name);
        if (n.implicitSlot >= 0) return ProcedureFrame(f)->refs[n.implicitSlot];
        if (ExecuteHost(f)) {
          // Assigning an undeclared name in text an Execute runs inside a
          // procedure makes a variable of that call, as in the procedure.
          n.scope = NameScope::ExecLocal;
          return ExecLocalRef(n, f);
        }
        GlobalEntry& g = Declare(n.lower, n.name);
        g.kind = GlobalEntry::Variable;
        n.cache = &g;
        return &g.value;
      }
      if (e->kind == GlobalEntry::Variable || e->kind == GlobalEntry::HostObject) return &e->value;
      return nullptr;
    }
  }
  return nullptr;
}

Frame* Machine::ProcedureFrame(Frame& f) {
  Frame* p = &f;
  while (p && !p->proto) p = p->enclosing;
  return p;
}

Frame* Machine::ExecuteHost(Frame& f) { return !f.proto && f.enclosing ? ProcedureFrame(*f.enclosing) : nullptr; }

Variant* Machine::ExecLocalRef(const NameExpr& n, Frame& f) {
  Frame* p = ProcedureFrame(f);
  if (!p) ThrowRuntimeError(51);
  if (!p->execLocals) p->execLocals = std::make_unique<std::unordered_map<std::string, Variant>>();
  return &(*p->execLocals)[n.lower];  // nodes of an unordered_map do not move
}

Variant* Machine::ArgumentRef(const Expr& e, Frame& f) {
  if (e.kind != ExprKind::Name) return nullptr;
  auto& n = const_cast<NameExpr&>(static_cast<const NameExpr&>(e));
  if (n.hasParens || !n.args.empty()) return nullptr;
  if (n.scope == NameScope::Dynamic) {
    GlobalEntry* g = Resolve(n);
    if (g && g->kind != GlobalEntry::Variable) return nullptr;
  }
  return VariableRef(n, f);
}

Variant* Machine::ElementRef(Variant& array, const ExprList& args, Frame& f) {
  int32_t inlineIdx[8];
  std::vector<int32_t> heap;
  int32_t* idx = inlineIdx;
  if (args.size() > 8) {
    heap.resize(args.size());
    idx = heap.data();
  }
  for (size_t i = 0; i < args.size(); ++i) idx[i] = IndexValue(Eval(*args[i], f));
  return &Writable(array).At(std::span<const int32_t>(idx, args.size()));
}

bool Machine::BindElementArgument(const Expr& e, Frame& f, Variant& slot, std::vector<ElementArgument>& out) {
  if (e.kind != ExprKind::Name) return false;
  auto& n = const_cast<NameExpr&>(static_cast<const NameExpr&>(e));
  if (n.args.empty()) return false;
  if (n.scope == NameScope::Dynamic) {
    GlobalEntry* g = Resolve(n);
    if (!g && n.implicitSlot < 0) return false;
    if (g && g->kind != GlobalEntry::Variable) return false;
  }
  if (n.scope == NameScope::ClassMember && !f.me) return false;
  Variant* var = VariableRef(n, f);
  if (!var || !var->IsArray()) return false;
  ElementArgument element{var, {}, &slot};
  element.indexes.reserve(n.args.size());
  for (const auto& arg : n.args) element.indexes.push_back(IndexValue(Eval(*arg, f)));
  slot = var->ArrayValue().At(element.indexes);
  out.push_back(std::move(element));
  return true;
}

void Machine::WriteBackElements(std::vector<ElementArgument>& elements) noexcept {
  for (auto& element : elements) {
    try {
      if (!element.variable->IsArray()) continue;
      const SafeArray& current = element.variable->ArrayValue();
      if (current.Dimensions() != element.indexes.size()) continue;
      bool inRange = true;
      for (size_t d = 0; d < element.indexes.size(); ++d) {
        const int dim = static_cast<int>(d) + 1;
        inRange = inRange && element.indexes[d] >= current.LowerBound(dim) &&
                  element.indexes[d] <= current.UpperBound(dim);
      }
      if (inRange) Writable(*element.variable).At(element.indexes) = std::move(*element.value);
    } catch (...) {
      // The array changed shape under the call: the value has nowhere to go.
    }
  }
}

Variant* Machine::StorageRef(const Expr& e, Frame& f) {
  if (e.kind == ExprKind::Name) {
    auto& n = const_cast<NameExpr&>(static_cast<const NameExpr&>(e));
    if (n.scope == NameScope::Dynamic) {
      GlobalEntry* g = Resolve(n);
      if (g && g->kind != GlobalEntry::Variable) return nullptr;
      if (!g && n.implicitSlot < 0) return nullptr;
    }
    if (n.scope == NameScope::ClassMember && !f.me) return nullptr;
    Variant* var = VariableRef(n, f);
    if (!var || n.args.empty()) return var;
    return var->IsArray() ? ElementRef(*var, n.args, f) : nullptr;
  }
  if (e.kind == ExprKind::Index) {
    const auto& ix = static_cast<const IndexExpr&>(e);
    Variant* inner = StorageRef(*ix.target, f);
    return inner && inner->IsArray() ? ElementRef(*inner, ix.args, f) : nullptr;
  }
  return nullptr;
}

void Machine::Assign(const Expr& target, Variant value, bool isSet, Frame& f) {
  if (value.IsArray()) UnfixCopy(value);
  if (target.kind == ExprKind::Name) {
    auto& n = const_cast<NameExpr&>(static_cast<const NameExpr&>(target));
    // Plain variables: the common case, straight to the slot.
    if (!isSet && !value.IsObject() && n.args.empty()) {
      if (n.scope == NameScope::Local && (f.proto == nullptr || f.proto->constSlots.empty())) {
        Variant& slot = *f.refs[n.index];
        if (!slot.IsObject()) {
          slot = std::move(value);
          return;
        }
      } else if (n.scope == NameScope::Dynamic && n.cache && n.cache->kind == GlobalEntry::Variable &&
                 !n.cache->value.IsObject()) {
        n.cache->value = std::move(value);
        return;
      }
    }
    if (n.scope == NameScope::ClassMember) {
      ScriptObject* me = f.me;
      const ClassMember& m = me->Class().members[n.index];
      if (m.kind != ClassMember::Field) {
        CallClassMember(*me, n.index, isSet ? InvokeKind::PropertySet : InvokeKind::PropertyLet, &n.args, &f, {},
                        &value, false);
        return;
      }
    }
    if (n.scope == NameScope::Dynamic) {
      GlobalEntry* e = Resolve(n);
      if (e) {
        switch (e->kind) {
          case GlobalEntry::Constant:
          case GlobalEntry::Builtin:
          case GlobalEntry::Intrinsic:
          case GlobalEntry::Procedure:
          case GlobalEntry::Class:
            ThrowNamed(501, n.name);
          case GlobalEntry::HostMember: {
            Ref<Object> host = e->host;
            InvokeObject(*host, e->dispId, isSet ? InvokeKind::PropertySet : InvokeKind::PropertyLet, n.args, f,
                         &value);
            return;
          }
          default:
            break;
        }
      }
    }
    if (n.scope == NameScope::Local && f.proto != nullptr) {
      const std::vector<int>& consts = f.proto->constSlots;
      if (std::find(consts.begin(), consts.end(), n.index) != consts.end()) ThrowNamed(501, n.name);
    }
    Variant* var = VariableRef(n, f);
    if (!var) ThrowNamed(501, n.name);
    if (n.args.empty()) {
      AssignToVariable(*var, std::move(value), isSet);
      return;
    }
    if (var->IsArray()) {
      Variant* element = ElementRef(*var, n.args, f);
      AssignToVariable(*element, std::move(value), isSet);
      return;
    }
    if (var->IsObject() && var->ObjectPtr()) {
      Ref<Object> object = var->ObjectRef();
      InvokeObject(*object, kDispIdDefault, isSet ? InvokeKind::PropertySet : InvokeKind::PropertyLet, n.args, f,
                   &value);
      return;
    }
    ThrowRuntimeError(13);
  }
  if (target.kind == ExprKind::Member) {
    const auto& m = static_cast<const MemberExpr&>(target);
    Variant object = Eval(*m.object, f);
    if (!object.IsObject()) ThrowRuntimeError(424);
    if (!object.ObjectPtr()) ThrowRuntimeError(91);
    Ref<Object> ref = object.ObjectRef();
    if (auto* so = dynamic_cast<ScriptObject*>(ref.get())) {
      int index = so->Class().Find(m.lower);
      if (index < 0 || (!so->Class().members[index].isPublic && so != f.me)) ThrowNamed(438, m.name);
      const ClassMember& member = so->Class().members[index];
      if (member.kind == ClassMember::Field) {
        Variant& field = so->Fields()[member.fieldIndex];
        if (m.args.empty()) {
          AssignToVariable(field, std::move(value), isSet);
        } else if (field.IsArray()) {
          AssignToVariable(*ElementRef(field, m.args, f), std::move(value), isSet);
        } else {
          ThrowRuntimeError(13);
        }
        return;
      }
      CallClassMember(*so, index, isSet ? InvokeKind::PropertySet : InvokeKind::PropertyLet, &m.args, &f, {},
                      &value, false);
      return;
    }
    DispId id = ref->GetMemberId(m.name);
    if (id == kDispIdUnknown) ThrowNamed(438, m.name);
    if (!isSet && value.IsObject()) value = value.Dereference();
    InvokeObject(*ref, id, isSet ? InvokeKind::PropertySet : InvokeKind::PropertyLet, m.args, f, &value);
    return;
  }
  if (target.kind == ExprKind::Index) {
    const auto& ix = static_cast<const IndexExpr&>(target);
    // `a(0)(1) = v`: the inner array is written where it lives.
    if (Variant* inner = StorageRef(*ix.target, f); inner && inner->IsArray()) {
      AssignToVariable(*ElementRef(*inner, ix.args, f), std::move(value), isSet);
      return;
    }
    Variant object = Eval(*ix.target, f);
    if (object.IsObject() && object.ObjectPtr()) {
      Ref<Object> ref = object.ObjectRef();
      InvokeObject(*ref, kDispIdDefault, isSet ? InvokeKind::PropertySet : InvokeKind::PropertyLet, ix.args, f,
                   &value);
      return;
    }
    ThrowRuntimeError(13);
  }
  ThrowRuntimeError(424);
}

// --- procedures -----------------------------------------------------------------------------

Variant Machine::CallProc(const FunctionProto& p, ScriptObject* me, const ExprList* args, Frame* caller,
                          std::span<Variant> values, const Variant* letValue) {
  const size_t given = (args ? args->size() : values.size()) + (letValue ? 1 : 0);
  if (given != p.params.size()) {
    // `Foo()` passes no arguments.
    if (!(args && args->size() == 1 && (*args)[0]->kind == ExprKind::Missing && p.params.empty()))
      ThrowNamed(450, p.name);
  }
  EnterCall();
  SlotBuffer buffer(p.slotCount);
  std::vector<ElementArgument> elements;
  struct WriteBack {
    std::vector<ElementArgument>& elements;
    ~WriteBack() { WriteBackElements(elements); }
  } writeBack{elements};
  const size_t count = p.params.size() - (letValue ? 1 : 0);
  for (size_t i = 0; i < count && i < given; ++i) {
    if (args) {
      const Expr& a = *(*args)[i];
      if (a.kind == ExprKind::Missing) ThrowNamed(450, p.name);
      if (p.params[i].byRef) {
        if (Variant* r = ArgumentRef(a, *caller)) {
          buffer.refs[i] = r;
          continue;
        }
        if (BindElementArgument(a, *caller, buffer.slots[i], elements)) continue;
      }
      buffer.slots[i] = Eval(a, *caller);
      UnfixCopy(buffer.slots[i]);
    } else if (p.params[i].byRef) {
      buffer.refs[i] = &values[i];
    } else {
      buffer.slots[i] = values[i];
      UnfixCopy(buffer.slots[i]);
    }
  }
  if (letValue) buffer.slots[p.params.size() - 1] = *letValue;
  for (const auto& [slot, dims] : p.fixedArrays) buffer.slots[slot] = FixedArray(dims);
  Frame f;
  f.proto = &p;
  f.code = p.code;
  f.refs = buffer.refs;
  f.me = me;
  Ref<Object> keepMe(me);
  ++depth_;
  struct Leave {
    int& d;
    ~Leave() { --d; }
  } leave{depth_};
  // Err is not cleared when the procedure returns: an error a procedure
  // resumed past stays visible to its caller.
  ExecBlock(p.body, f);
  if (p.resultSlot >= 0) return std::move(buffer.slots[p.resultSlot]);
  return Variant();
}

Variant Machine::IndexResult(const Variant& value, const ExprList* args, Frame* caller,
                             std::span<Variant> values, bool call) {
  if (args) return Index(value, *args, *caller, call);
  if (value.IsObject() && value.ObjectPtr())
    return value.ObjectPtr()->Invoke(kDispIdDefault, call ? InvokeKind::Method : InvokeKind::PropertyGet, values);
  if (value.IsArray()) {
    std::vector<int32_t> idx;
    for (const auto& v : values) idx.push_back(IndexValue(v));
    return value.ArrayValue().At(idx);
  }
  ThrowRuntimeError(450);
}

Variant Machine::CallClassMember(ScriptObject& self, int index, InvokeKind kind, const ExprList* args,
                                 Frame* caller, std::span<Variant> values, const Variant* letValue, bool call) {
  const ClassMember& m = self.Class().members[index];
  const bool hasArgs = args ? !args->empty() : !values.empty();
  switch (m.kind) {
    case ClassMember::Field: {
      Variant& field = self.Fields()[m.fieldIndex];
      if (kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet) {
        if (!letValue) ThrowRuntimeError(450);
        if (!hasArgs) {
          AssignToVariable(field, *letValue, kind == InvokeKind::PropertySet);
          return Variant();
        }
        if (!field.IsArray() || !args) ThrowRuntimeError(13);
        AssignToVariable(*ElementRef(field, *args, *caller), *letValue, kind == InvokeKind::PropertySet);
        return Variant();
      }
      if (!hasArgs) {
        if (call && field.IsObject() && field.ObjectPtr())
          return field.ObjectPtr()->Invoke(kDispIdDefault, InvokeKind::Method, {});
        return field;
      }
      if (args) return Index(field, *args, *caller, call);
      if (field.IsArray()) {
        std::vector<int32_t> idx;
        for (const auto& v : values) idx.push_back(IndexValue(v));
        return field.ArrayValue().At(idx);
      }
      ThrowRuntimeError(13);
    }
    case ClassMember::Method:
      if (kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet) ThrowRuntimeError(450);
      if (hasArgs && m.method->params.empty())
        return IndexResult(CallProc(*m.method, &self, nullptr, caller, {}, nullptr), args, caller, values, call);
      return CallProc(*m.method, &self, args, caller, values, nullptr);
    case ClassMember::Property: {
      const FunctionProto* proc = nullptr;
      if (kind == InvokeKind::PropertyLet) proc = m.let ? m.let : m.set;
      else if (kind == InvokeKind::PropertySet) proc = m.set ? m.set : m.let;
      else proc = m.get;
      if (!proc) ThrowRuntimeError(kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet ? 440 : 438);
      if (proc == m.get && hasArgs && proc->params.empty())
        return IndexResult(CallProc(*proc, &self, nullptr, caller, {}, nullptr), args, caller, values, call);
      return CallProc(*proc, &self, args, caller, values,
                      (kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet) ? letValue : nullptr);
    }
  }
  return Variant();
}

Variant Machine::InvokeMember(ScriptObject& self, int member, InvokeKind kind, std::span<Variant> args) {
  if (kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet) {
    if (args.empty()) ThrowRuntimeError(450);
    Variant value = args.back();
    return CallClassMember(self, member, kind, nullptr, nullptr, args.first(args.size() - 1), &value, false);
  }
  return CallClassMember(self, member, kind, nullptr, nullptr, args, nullptr, kind == InvokeKind::Method);
}

void Machine::RunTerminate(ScriptObject& self) noexcept {
  try {
    const FunctionProto* term = self.Class().terminate;
    if (!term) return;
    // Errors inside Class_Terminate are swallowed, and Err is left as it was.
    bool noted = errorNoted_;
    int line = errorLine_;
    int column = errorColumn_;
    const Code* code = errorCode_;
    try {
      CallProc(*term, &self, nullptr, nullptr, {}, nullptr);
    } catch (...) {
    }
    errorNoted_ = noted;
    errorLine_ = line;
    errorColumn_ = column;
    errorCode_ = code;
  } catch (...) {
  }
}

}  // namespace tessel::vbs
