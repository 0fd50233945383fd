// Ast: the syntax tree the Parser builds and the Machine walks.
//
// Nodes are owned by their parent through ExprPtr/StmtPtr; a procedure owns its
// body; a Code owns the top-level statements and procedures (the nodes of an
// Eval expression may live in an ExprArena instead). Names are
// resolved by the parser as far as the source allows: to a slot of the
// procedure's frame, to a member of the enclosing class, or left dynamic (the
// machine looks dynamic names up in the engine's global table and caches the
// entry it finds in the node; entries are never removed, so the cache stays
// valid for the life of the engine that owns the code).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/Variant.h"

namespace tessel::vbs {

struct GlobalEntry;
struct FunctionProto;
struct ClassDef;

enum class ExprKind : uint8_t { Literal, Name, Member, Index, Unary, Binary, New, Me, Paren, Missing };

enum class BinaryOp : uint8_t {
  Imp, Eqv, Xor, Or, And, Eq, Ne, Lt, Le, Gt, Ge, Is, Concat, Add, Sub, Mod, IntDiv, Mul, Div, Pow
};
enum class UnaryOp : uint8_t { Neg, Not, Plus };

struct Expr;

// Deletes a node, or only destroys it when it lives in an ExprArena (whose
// owner reclaims the memory). Converts from std::default_delete so that
// nodes made with std::make_unique move into an ExprPtr.
struct ExprDelete {
  ExprDelete() = default;
  template <class U>
  ExprDelete(std::default_delete<U>) noexcept {}
  void operator()(Expr* e) const noexcept;
};

struct Expr {
  explicit Expr(ExprKind k) : kind(k) {}
  virtual ~Expr() = default;
  ExprKind kind;
  bool inArena = false;  // memory belongs to an ExprArena
  int line = 0;
  int column = 0;
  int height = 1;  // longest path to a leaf, bounded by the parser
};
using ExprPtr = std::unique_ptr<Expr, ExprDelete>;

inline void ExprDelete::operator()(Expr* e) const noexcept {
  if (e->inArena)
    e->~Expr();
  else
    delete e;
}
using ExprList = std::vector<ExprPtr>;

struct LiteralExpr : Expr {
  explicit LiteralExpr(Variant v) : Expr(ExprKind::Literal), value(std::move(v)) {}
  Variant value;
  // From 0: a slot of a compiled expression, whose value is set before each
  // evaluation; such a literal is never folded with others.
  int slot = -1;
};

// Enclosing: a slot of the frame that ran Execute/Eval (code compiled inside
// a procedure sees that procedure's locals). ExecLocal: a variable an Execute
// inside a procedure declared; it lives, by name, with that procedure's call.
enum class NameScope : uint8_t { Local, ClassMember, Enclosing, ExecLocal, Dynamic };

// A bare name, possibly with an argument list: `x`, `f(1, 2)`, `a(3)`.
struct NameExpr : Expr {
  NameExpr() : Expr(ExprKind::Name) {}
  std::string name;   // as written
  std::string lower;  // lookup key
  ExprList args;
  bool hasParens = false;
  NameScope scope = NameScope::Dynamic;
  int index = -1;         // Local: frame slot; ClassMember: member index
  int implicitSlot = -1;  // Dynamic inside a procedure: slot for an implicit local
  bool declaredByReDim = false;  // the procedure ReDims the name: no Option Explicit error
  GlobalEntry* cache = nullptr;
  uint32_t missGeneration = 0;  // engine generation of the last failed lookup
};

// `obj.name`, `obj.name(args)`, `.name` inside With (object null).
struct MemberExpr : Expr {
  MemberExpr() : Expr(ExprKind::Member) {}
  ExprPtr object;
  std::string name;
  std::string lower;
  ExprList args;
  bool hasParens = false;
};

// `expr(args)` where expr is not a plain name: `f(1)(2)`, `o.Items()(0)`.
struct IndexExpr : Expr {
  IndexExpr() : Expr(ExprKind::Index) {}
  ExprPtr target;
  ExprList args;
};

struct UnaryExpr : Expr {
  UnaryExpr() : Expr(ExprKind::Unary) {}
  UnaryOp op = UnaryOp::Neg;
  ExprPtr operand;
};

struct BinaryExpr : Expr {
  BinaryExpr() : Expr(ExprKind::Binary) {}
  BinaryOp op = BinaryOp::Add;
  ExprPtr left, right;
};

struct NewExpr : Expr {
  NewExpr() : Expr(ExprKind::New) {}
  std::string className;
  std::string lower;
};

// `(expr)`: kept so that a parenthesised argument is passed by value.
struct ParenExpr : Expr {
  ParenExpr() : Expr(ExprKind::Paren) {}
  ExprPtr inner;
};

enum class StmtKind : uint8_t {
  Assign, Call, Dim, ReDim, Erase, If, Select, For, ForEach, Do, Exit, OnError, With, Const, Nop
};

struct Stmt {
  explicit Stmt(StmtKind k) : kind(k) {}
  virtual ~Stmt() = default;
  StmtKind kind;
  int line = 0;
  int column = 0;
};
using StmtPtr = std::unique_ptr<Stmt>;
using Block = std::vector<StmtPtr>;

struct AssignStmt : Stmt {
  AssignStmt() : Stmt(StmtKind::Assign) {}
  bool isSet = false;
  ExprPtr target;  // Name, Member or Index
  ExprPtr value;
};

struct CallStmt : Stmt {
  CallStmt() : Stmt(StmtKind::Call) {}
  ExprPtr call;  // Name, Member or Index; its args are the call's arguments
};

struct DimVar {
  ExprPtr target;            // a NameExpr
  std::vector<int32_t> dims; // upper bounds of a fixed array
  bool isArray = false;      // `Dim a()` or `Dim a(3)`
};

struct DimStmt : Stmt {
  DimStmt() : Stmt(StmtKind::Dim) {}
  std::vector<DimVar> vars;
};

struct ReDimItem {
  ExprPtr target;  // NameExpr (or member) without args
  ExprList bounds;
};

struct ReDimStmt : Stmt {
  ReDimStmt() : Stmt(StmtKind::ReDim) {}
  bool preserve = false;
  std::vector<ReDimItem> items;
};

struct EraseStmt : Stmt {
  EraseStmt() : Stmt(StmtKind::Erase) {}
  ExprList targets;
};

struct ConstStmt : Stmt {
  ConstStmt() : Stmt(StmtKind::Const) {}
  std::vector<std::pair<ExprPtr, ExprPtr>> items;  // NameExpr, value
};

struct IfStmt : Stmt {
  IfStmt() : Stmt(StmtKind::If) {}
  ExprList conditions;
  std::vector<std::pair<int, int>> elseIfAt;  // line, column of each ElseIf (conditions 1...)
  std::vector<Block> blocks;
  Block elseBlock;
};

struct CaseItem {
  enum Kind : uint8_t { Value, Range, IsCompare } kind = Value;
  BinaryOp op = BinaryOp::Eq;  // IsCompare
  ExprPtr value, to;
};

struct CaseClause {
  std::vector<CaseItem> items;
  Block body;
};

struct SelectStmt : Stmt {
  SelectStmt() : Stmt(StmtKind::Select) {}
  ExprPtr subject;
  std::vector<CaseClause> cases;
  Block elseBlock;
  bool hasElse = false;
};

struct ForStmt : Stmt {
  ForStmt() : Stmt(StmtKind::For) {}
  ExprPtr variable;  // NameExpr
  ExprPtr from, to, step;
  Block body;
};

struct ForEachStmt : Stmt {
  ForEachStmt() : Stmt(StmtKind::ForEach) {}
  ExprPtr variable;
  ExprPtr collection;
  Block body;
};

struct DoStmt : Stmt {
  DoStmt() : Stmt(StmtKind::Do) {}
  enum Test : uint8_t { None, PreWhile, PreUntil, PostWhile, PostUntil } test = None;
  ExprPtr condition;
  int loopLine = 0, loopColumn = 0;  // where `Loop While/Until` stands
  Block body;
};

struct ExitStmt : Stmt {
  ExitStmt() : Stmt(StmtKind::Exit) {}
  enum What : uint8_t { Do, For, Procedure } what = Do;
};

struct OnErrorStmt : Stmt {
  OnErrorStmt() : Stmt(StmtKind::OnError) {}
  bool resumeNext = false;
};

struct WithStmt : Stmt {
  WithStmt() : Stmt(StmtKind::With) {}
  ExprPtr object;
  int slot = -1;  // frame slot that holds the With object
  Block body;
};

struct NopStmt : Stmt {
  NopStmt() : Stmt(StmtKind::Nop) {}
};

}  // namespace tessel::vbs
