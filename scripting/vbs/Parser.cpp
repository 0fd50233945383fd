#include "scripting/vbs/Parser.h"

#include <algorithm>
#include <cctype>
#include <new>
#include <optional>
#include <type_traits>
#include <unordered_map>

#include "core/VariantArithmetic.h"
#include "scripting/vbs/BuiltinTable.h"
#include "scripting/vbs/ExprArena.h"
#include "scripting/vbs/Lexer.h"
#include "scripting/vbs/ScriptError.h"

namespace tessel::vbs {

namespace {

std::string ToLower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return out;
}

constexpr int kMaxNesting = 400;
// Longest text the parser joins from literals.
constexpr size_t kMaxFoldedText = 4096;
// Operator chains (`a & b & c ...`) build trees without nesting the parser;
// their height is bounded separately so that walking them stays shallow.
constexpr int kMaxTreeHeight = 3000;

// What the parser knows about the procedure (or top-level code) it is in.
struct ProcContext {
  FunctionProto* proto = nullptr;  // null at top level
  Code* code = nullptr;
  std::unordered_map<std::string, int> locals;
  std::vector<NameExpr*> pending;  // names to resolve when the scope ends
  std::vector<std::string> redimmed;  // names a ReDim in this procedure declares
  std::vector<int> withSlots;
  int doDepth = 0;
  int forDepth = 0;
  int& SlotCount() { return proto ? proto->slotCount : code->slotCount; }
  int NewSlot() { return SlotCount()++; }
};

class ParserImpl {
 public:
  ParserImpl(std::string_view source, int firstLine, const EnclosingScope* enclosing, ExprArena* arena = nullptr,
             std::vector<LiteralExpr*>* slots = nullptr)
      : lex_(source, firstLine), enclosing_(enclosing), arena_(arena), slots_(slots) {
    if (slots_ != nullptr) lex_.AllowSlots();
    Advance();
  }

  void ParseProgram(Code& code) {
    code_ = &code;
    ProcContext top;
    top.code = &code;
    ctx_ = &top;
    for (;;) {
      SkipNewlines();
      if (tok_.kind == TokenKind::End) break;
      if (tok_.Is(Keyword::Option)) {
        Advance();
        if (!tok_.IsWord("explicit")) Fail(syntax::kSyntaxError);
        Advance();
        code.optionExplicit = true;
      } else if (tok_.Is(Keyword::Class)) {
        ParseClass();
      } else if (StartsDeclaration()) {
        ParseTopLevelDeclaration();
      } else {
        if (tok_.Is(Keyword::Sub) || tok_.Is(Keyword::Function)) {
          ParseProcedure(nullptr, true, false);
        } else {
          code.statements.push_back(ParseStatement());
        }
      }
      ExpectEndOfStatement();
    }
    FinishScope(top, nullptr);
    for (const auto& g : code.globals) {
      bool clash = false;
      for (const auto& c : code.classes) clash = clash || c->lower == g.lower;
      for (const auto& p : code.procedures) clash = clash || p->lower == g.lower;
      if (clash)
        throw ScriptError(syntax::kNameRedefined, syntax::Message(syntax::kNameRedefined), g.line, g.column);
    }
  }

  bool SlotsDiffer() const { return slotsDiffer_; }

  ExprPtr ParseExpressionOnly() {
    ProcContext top;
    ctx_ = &top;
    // Without an enclosing procedure every name of the expression is looked
    // up at run time (a new NameExpr is Dynamic), so none is kept for
    // FinishScope, and nothing reads the scratch Code (Execute's names, With
    // slots): the parse per Eval skips building one.
    std::optional<Code> scratch;
    if (enclosing_) {
      scratch.emplace();
      code_ = &*scratch;
      top.code = code_;
    } else {
      namesStayDynamic_ = true;
    }
    SkipNewlines();
    if (tok_.kind == TokenKind::End) Fail(syntax::kExpectedExpression);
    ExprPtr e = ParseExpr();
    SkipNewlines();
    if (tok_.kind != TokenKind::End) Fail(syntax::kExpectedEndOfStatement);
    if (!namesStayDynamic_) FinishScope(top, nullptr);
    return e;
  }

 private:
  // --- tokens ----------------------------------------------------------------
  void Advance() {
    if (hasPeek_) {
      std::swap(tok_, peek_);
      hasPeek_ = false;
    } else {
      lex_.Next(tok_);
    }
  }
  const Token& Peek() {
    if (!hasPeek_) {
      lex_.Next(peek_);
      hasPeek_ = true;
    }
    return peek_;
  }
  [[noreturn]] void Fail(int number) const {
    throw ScriptError(number, syntax::Message(number), tok_.line, tok_.column);
  }
  void Expect(TokenKind kind, int error) {
    if (tok_.kind != kind) Fail(error);
    Advance();
  }
  void ExpectKeyword(Keyword k, int error) {
    if (!tok_.Is(k)) Fail(error);
    Advance();
  }
  bool AtEndOfStatement() const {
    return tok_.kind == TokenKind::Newline || tok_.kind == TokenKind::End ||
           (singleLineIf_ > 0 && tok_.Is(Keyword::Else));
  }
  void ExpectEndOfStatement() {
    if (!AtEndOfStatement()) Fail(syntax::kExpectedEndOfStatement);
  }
  void SkipNewlines() {
    while (tok_.kind == TokenKind::Newline) Advance();
  }
  bool IsColon() const { return tok_.kind == TokenKind::Newline && tok_.source == ":"; }
  std::string TakeIdentifier() {
    if (tok_.kind != TokenKind::Identifier) Fail(syntax::kExpectedIdentifier);
    std::string name(tok_.source);
    Advance();
    return name;
  }
  // After '.', any word (reserved or not) names a member.
  std::string TakeMemberName() {
    if (tok_.kind != TokenKind::Identifier && tok_.kind != TokenKind::Keyword)
      Fail(syntax::kExpectedIdentifier);
    std::string name(tok_.source);
    Advance();
    return name;
  }
  // A node of the tree being built: in the arena when there is one.
  template <class T, class... Args>
  std::unique_ptr<T, ExprDelete> New(Args&&... args) {
    if (!arena_) return std::unique_ptr<T, ExprDelete>(std::make_unique<T>(std::forward<Args>(args)...));
    T* node = ::new (arena_->Allocate(sizeof(T), alignof(T))) T(std::forward<Args>(args)...);
    node->inArena = true;
    return std::unique_ptr<T, ExprDelete>(node);
  }
  template <class T>
  auto Node() {
    auto n = [this] {
      if constexpr (std::is_base_of_v<Expr, T>)
        return New<T>();
      else
        return std::make_unique<T>();
    }();
    n->line = tok_.line;
    n->column = tok_.column;
    return n;
  }

  // --- declarations ------------------------------------------------------------
  bool StartsDeclaration() const {
    return tok_.Is(Keyword::Public) || tok_.Is(Keyword::Private);
  }

  void ParseTopLevelDeclaration() {
    bool isPublic = !tok_.Is(Keyword::Private);
    bool isDefault = false;
    if (!tok_.IsWord("default")) Advance();
    if (tok_.IsWord("default")) {
      isDefault = true;
      Advance();
    }
    if (tok_.Is(Keyword::Sub) || tok_.Is(Keyword::Function)) {
      if (isDefault) Fail(syntax::kMustBeInClass);
      ParseProcedure(nullptr, isPublic, false);
      return;
    }
    if (tok_.IsWord("property")) Fail(syntax::kMustBeInClass);
    if (isDefault) Fail(syntax::kDefaultOnlyOnProc);
    if (tok_.Is(Keyword::Const)) {
      code_->statements.push_back(ParseConst());
      return;
    }
    auto dim = Node<DimStmt>();
    ParseDimList(*dim);
    code_->statements.push_back(std::move(dim));
  }

  // Dim-style list: a, b(3), c()
  void ParseDimList(DimStmt& dim) {
    for (;;) {
      DimVar var;
      auto name = Node<NameExpr>();
      name->name = TakeIdentifier();
      name->lower = ToLower(name->name);
      if (tok_.kind == TokenKind::LParen) {
        Advance();
        var.isArray = true;
        if (tok_.kind != TokenKind::RParen) {
          for (;;) {
            if (tok_.kind != TokenKind::Integer) Fail(syntax::kExpectedInteger);
            var.dims.push_back(static_cast<int32_t>(tok_.integer));
            Advance();
            if (tok_.kind != TokenKind::Comma) break;
            Advance();
          }
        }
        Expect(TokenKind::RParen, syntax::kExpectedRParen);
      }
      DeclareName(*name, var);
      var.target = std::move(name);
      dim.vars.push_back(std::move(var));
      if (tok_.kind != TokenKind::Comma) break;
      Advance();
    }
  }

  void DeclareName(NameExpr& name, const DimVar& var) {
    if (ctx_->proto) {
      if (ctx_->locals.count(name.lower)) Fail(syntax::kNameRedefined);
      int slot = ctx_->NewSlot();
      ctx_->locals.emplace(name.lower, slot);
      SetSlotName(slot, name.lower);
      if (var.isArray) ctx_->proto->fixedArrays.emplace_back(slot, var.dims);
      name.scope = NameScope::Local;
      name.index = slot;
    } else {
      DeclareTopLevel(name);
      ctx_->pending.push_back(&name);
    }
  }

  // A declaration outside procedures: a global, or, in text an Execute runs
  // inside a procedure, a variable of that procedure's call (unless the
  // procedure already has one of that name).
  void DeclareTopLevel(const NameExpr& name) {
    if (!enclosing_ || !enclosing_->proto) {
      code_->globals.push_back({name.lower, name.name, name.line, name.column});
      return;
    }
    for (const auto& n : enclosing_->proto->slotNames)
      if (n == name.lower) return;
    for (const auto& n : code_->execLocals)
      if (n == name.lower) return;
    code_->execLocals.push_back(name.lower);
  }

  bool IsExecLocal(const std::string& lower) const {
    for (const auto& n : code_->execLocals)
      if (n == lower) return true;
    return enclosing_ && enclosing_->execLocals && enclosing_->execLocals->count(lower);
  }

  void SetSlotName(int slot, const std::string& lower) {
    auto& names = ctx_->proto->slotNames;
    if (names.size() <= static_cast<size_t>(slot)) names.resize(slot + 1);
    names[slot] = lower;
  }

  StmtPtr ParseConst() {
    auto stmt = Node<ConstStmt>();
    Advance();  // Const
    for (;;) {
      auto name = Node<NameExpr>();
      name->name = TakeIdentifier();
      name->lower = ToLower(name->name);
      Expect(TokenKind::Eq, syntax::kExpectedEquals);
      ExprPtr value = ParseExpr();
      DeclareName(*name, DimVar{});
      if (name->scope == NameScope::Local) ctx_->proto->constSlots.push_back(name->index);
      stmt->items.emplace_back(std::move(name), std::move(value));
      if (tok_.kind != TokenKind::Comma) break;
      Advance();
    }
    return stmt;
  }

  // Parses Sub/Function/Property starting at that keyword.
  FunctionProto* ParseProcedure(ClassDef* cls, bool isPublic, bool isDefault) {
    auto proto = std::make_unique<FunctionProto>();
    proto->line = tok_.line;
    proto->isPublic = isPublic;
    proto->isDefault = isDefault;
    proto->owner = cls;
    proto->code = code_;
    Keyword endWord;
    int endError;
    if (tok_.Is(Keyword::Sub)) {
      proto->kind = ProcKind::Sub;
      endWord = Keyword::Sub;
      endError = syntax::kExpectedSub;
      Advance();
    } else if (tok_.Is(Keyword::Function)) {
      proto->kind = ProcKind::Function;
      endWord = Keyword::Function;
      endError = syntax::kExpectedFunction;
      Advance();
    } else {
      Advance();  // Property
      if (tok_.IsWord("get")) proto->kind = ProcKind::PropertyGet;
      else if (tok_.IsWord("let")) proto->kind = ProcKind::PropertyLet;
      else if (tok_.Is(Keyword::Set)) proto->kind = ProcKind::PropertySet;
      else Fail(syntax::kExpectedLetSetGet);
      Advance();
      endWord = Keyword::None;
      endError = syntax::kExpectedProperty;
    }
    if (isDefault && proto->kind != ProcKind::PropertyGet && proto->kind != ProcKind::Function &&
        proto->kind != ProcKind::Sub)
      Fail(syntax::kDefaultOnlyOnGet);
    proto->name = TakeIdentifier();
    proto->lower = ToLower(proto->name);

    ProcContext ctx;
    ctx.proto = proto.get();
    ctx.code = code_;
    if (tok_.kind == TokenKind::LParen) {
      Advance();
      if (tok_.kind != TokenKind::RParen) {
        for (;;) {
          Param p;
          if (tok_.Is(Keyword::ByVal)) {
            p.byRef = false;
            Advance();
          } else if (tok_.Is(Keyword::ByRef)) {
            Advance();
          }
          p.name = TakeIdentifier();
          if (tok_.kind == TokenKind::LParen) {
            Advance();
            Expect(TokenKind::RParen, syntax::kExpectedRParen);
          }
          std::string lower = ToLower(p.name);
          if (ctx.locals.count(lower)) Fail(syntax::kNameRedefined);
          int slot = proto->slotCount++;
          ctx.locals.emplace(lower, slot);
          proto->slotNames.push_back(lower);
          proto->params.push_back(std::move(p));
          if (tok_.kind != TokenKind::Comma) break;
          Advance();
        }
      }
      Expect(TokenKind::RParen, syntax::kExpectedRParen);
    }
    if ((proto->kind == ProcKind::PropertyLet || proto->kind == ProcKind::PropertySet) &&
        proto->params.empty())
      Fail(syntax::kPropertyLetSetArgs);
    if (cls && (proto->lower == "class_initialize" || proto->lower == "class_terminate") &&
        !proto->params.empty())
      Fail(syntax::kInitTermArgs);
    if (proto->kind == ProcKind::Function || proto->kind == ProcKind::PropertyGet) {
      proto->resultSlot = proto->slotCount++;
      proto->slotNames.push_back(proto->lower);
      ctx.locals.emplace(proto->lower, proto->resultSlot);
    }
    ExpectEndOfStatement();

    ProcContext* saved = ctx_;
    ctx_ = &ctx;
    ParseBlock(proto->body);
    ctx_ = saved;
    if (!tok_.Is(Keyword::End)) Fail(syntax::kExpectedEnd);
    Advance();
    if (endWord != Keyword::None) {
      ExpectKeyword(endWord, endError);
    } else {
      if (!tok_.IsWord("property")) Fail(endError);
      Advance();
    }
    FinishScope(ctx, cls);

    FunctionProto* raw = proto.get();
    if (cls) code_->methods.push_back(std::move(proto));
    else code_->procedures.push_back(std::move(proto));
    return raw;
  }

  void ParseClass() {
    const int line = tok_.line, column = tok_.column;
    Advance();  // Class
    auto cls = std::make_unique<ClassDef>();
    cls->name = TakeIdentifier();
    cls->lower = ToLower(cls->name);
    cls->code = code_;
    ExpectEndOfStatement();
    classPending_.clear();
    for (;;) {
      SkipNewlines();
      if (tok_.Is(Keyword::End)) {
        Advance();
        ExpectKeyword(Keyword::Class, syntax::kExpectedClass);
        break;
      }
      if (tok_.kind == TokenKind::End) Fail(syntax::kExpectedEnd);
      bool isPublic = true, isDefault = false, sawScope = false;
      if (tok_.Is(Keyword::Public) || tok_.Is(Keyword::Private)) {
        isPublic = tok_.Is(Keyword::Public);
        sawScope = true;
        Advance();
      }
      if (tok_.IsWord("default")) {
        if (!sawScope || !isPublic) Fail(syntax::kDefaultMustBePublic);
        isDefault = true;
        Advance();
      }
      if (tok_.Is(Keyword::Sub) || tok_.Is(Keyword::Function) || tok_.IsWord("property")) {
        FunctionProto* proto = ParseProcedure(cls.get(), isPublic, isDefault);
        AddClassProcedure(*cls, proto);
      } else if (isDefault) {
        Fail(syntax::kDefaultOnlyOnProc);
      } else if (tok_.Is(Keyword::Dim) || sawScope) {
        if (tok_.Is(Keyword::Dim)) Advance();
        if (tok_.Is(Keyword::Const)) Fail(syntax::kExpectedIdentifier);
        for (;;) {
          ClassMember m;
          m.kind = ClassMember::Field;
          m.name = TakeIdentifier();
          m.isPublic = isPublic;
          if (tok_.kind == TokenKind::LParen) {
            Advance();
            m.isArray = true;
            while (tok_.kind == TokenKind::Integer) {
              m.dims.push_back(static_cast<int32_t>(tok_.integer));
              Advance();
              if (tok_.kind != TokenKind::Comma) break;
              Advance();
            }
            Expect(TokenKind::RParen, syntax::kExpectedRParen);
          }
          std::string lower = ToLower(m.name);
          if (cls->memberIndex.count(lower)) Fail(syntax::kNameRedefined);
          m.fieldIndex = cls->fieldCount++;
          cls->memberIndex.emplace(lower, static_cast<int>(cls->members.size()));
          cls->members.push_back(std::move(m));
          if (tok_.kind != TokenKind::Comma) break;
          Advance();
        }
      } else {
        Fail(syntax::kExpectedEnd);
      }
      ExpectEndOfStatement();
    }
    // Names in the methods that were not locals may be members of the class.
    for (auto& [name, proto] : classPending_) {
      int index = cls->Find(name->lower);
      if (index >= 0) {
        name->scope = NameScope::ClassMember;
        name->index = index;
      } else {
        FinishDynamic(*name, proto);
      }
    }
    classPending_.clear();
    (void)line;
    (void)column;
    code_->classes.push_back(std::move(cls));
  }

  void AddClassProcedure(ClassDef& cls, FunctionProto* proto) {
    // The event handlers are also ordinary methods a script may call.
    if (proto->lower == "class_initialize") cls.initialize = proto;
    if (proto->lower == "class_terminate") cls.terminate = proto;
    int index = cls.Find(proto->lower);
    if (index < 0) {
      index = static_cast<int>(cls.members.size());
      ClassMember m;
      m.name = proto->name;
      m.kind = (proto->kind == ProcKind::Sub || proto->kind == ProcKind::Function) ? ClassMember::Method
                                                                                   : ClassMember::Property;
      m.isPublic = proto->isPublic;
      cls.members.push_back(std::move(m));
      cls.memberIndex.emplace(proto->lower, index);
    }
    ClassMember& m = cls.members[index];
    switch (proto->kind) {
      case ProcKind::Sub:
      case ProcKind::Function:
        if (m.kind != ClassMember::Method || m.method) Fail(syntax::kNameRedefined);
        m.method = proto;
        break;
      case ProcKind::PropertyGet:
        if (m.kind != ClassMember::Property || m.get) Fail(syntax::kNameRedefined);
        m.get = proto;
        break;
      case ProcKind::PropertyLet:
        if (m.kind != ClassMember::Property || m.let) Fail(syntax::kNameRedefined);
        m.let = proto;
        break;
      case ProcKind::PropertySet:
        if (m.kind != ClassMember::Property || m.set) Fail(syntax::kNameRedefined);
        m.set = proto;
        break;
    }
    if (proto->isDefault) {
      if (cls.defaultMember >= 0 && cls.defaultMember != index) Fail(syntax::kMultipleDefault);
      cls.defaultMember = index;
    }
  }

  // Resolves the names collected in a scope that ended.
  void FinishScope(ProcContext& ctx, ClassDef* cls) {
    if (ctx.proto) ctx.proto->implicitFrom = ctx.proto->slotCount;
    for (NameExpr* name : ctx.pending) {
      if (ctx.proto) {
        auto it = ctx.locals.find(name->lower);
        // Inside Function f, `f(...)` with parentheses calls f again; the bare
        // name is the result.
        if (it != ctx.locals.end() &&
            !(name->hasParens && it->second == ctx.proto->resultSlot)) {
          name->scope = NameScope::Local;
          name->index = it->second;
          continue;
        }
        if (cls) {
          for (const auto& r : ctx.redimmed)
            if (r == name->lower) name->declaredByReDim = true;
          classPending_.emplace_back(name, ctx.proto);
          continue;
        }
      }
      // A procedure that Execute text defines sees globals, not the locals
      // of the procedure that ran the Execute.
      if (!ctx.proto && ResolveEnclosing(*name)) continue;
      if (!ctx.proto && enclosing_ && enclosing_->proto && IsExecLocal(name->lower)) {
        name->scope = NameScope::ExecLocal;
        continue;
      }
      if (!ctx.proto && enclosing_ && enclosing_->owner) {
        int index = enclosing_->owner->Find(name->lower);
        if (index >= 0) {
          name->scope = NameScope::ClassMember;
          name->index = index;
          continue;
        }
      }
      FinishDynamic(*name, ctx.proto);
      for (const auto& r : ctx.redimmed)
        if (r == name->lower) name->declaredByReDim = true;
    }
    ctx.pending.clear();
  }

  bool ResolveEnclosing(NameExpr& name) {
    if (!enclosing_ || !enclosing_->proto) return false;
    const auto& names = enclosing_->proto->slotNames;
    for (size_t i = 0; i < names.size(); ++i) {
      if (names[i] == name.lower) {
        if (name.hasParens && static_cast<int>(i) == enclosing_->proto->resultSlot) return false;
        const int from = enclosing_->proto->implicitFrom;
        if (from >= 0 && static_cast<int>(i) >= from) {
          // The procedure's undeclared name: looked up like one at run time,
          // with the procedure's slot as its fallback.
          name.scope = NameScope::Dynamic;
          name.implicitSlot = static_cast<int>(i);
          return true;
        }
        name.scope = NameScope::Enclosing;
        name.index = static_cast<int>(i);
        return true;
      }
    }
    return false;
  }

  void FinishDynamic(NameExpr& name, FunctionProto* proto) {
    name.scope = NameScope::Dynamic;
    if (!proto) return;
    // A procedure that assigns an undeclared name which is not a global gets
    // a local of that name; reserve its slot now.
    auto& names = proto->slotNames;
    for (size_t i = 0; i < names.size(); ++i) {
      if (names[i] == name.lower && static_cast<int>(i) != proto->resultSlot) {
        name.implicitSlot = static_cast<int>(i);
        return;
      }
    }
    int slot = proto->slotCount++;
    if (names.size() < static_cast<size_t>(slot)) names.resize(slot);
    names.push_back(name.lower);
    name.implicitSlot = slot;
  }

  // --- statements ----------------------------------------------------------------
  static bool IsBlockEnd(const Token& t) {
    if (t.kind == TokenKind::End) return true;
    if (t.kind != TokenKind::Keyword) return false;
    switch (t.keyword) {
      case Keyword::End:
      case Keyword::Else:
      case Keyword::ElseIf:
      case Keyword::Loop:
      case Keyword::Next:
      case Keyword::Wend:
      case Keyword::Case:
        return true;
      default:
        return false;
    }
  }

  void ParseBlock(Block& block) {
    for (;;) {
      SkipNewlines();
      if (IsBlockEnd(tok_)) return;
      block.push_back(ParseStatement());
      ExpectEndOfStatement();
    }
  }

  StmtPtr ParseStatement() {
    if (++depth_ > kMaxNesting) Fail(syntax::kSyntaxError);
    StmtPtr s = ParseStatementInner();
    --depth_;
    return s;
  }

  StmtPtr ParseStatementInner() {
    if (tok_.kind == TokenKind::Keyword) {
      switch (tok_.keyword) {
        case Keyword::Dim: {
          auto dim = Node<DimStmt>();
          Advance();
          ParseDimList(*dim);
          if (ctx_->proto) {
            auto nop = std::make_unique<NopStmt>();
            nop->line = dim->line;
            return nop;
          }
          return dim;
        }
        case Keyword::ReDim: return ParseReDim();
        case Keyword::Const: return ParseConst();
        case Keyword::Erase: {
          auto stmt = Node<EraseStmt>();
          Advance();
          for (;;) {
            stmt->targets.push_back(ParseNameOnly());
            if (tok_.kind != TokenKind::Comma) break;
            Advance();
          }
          return stmt;
        }
        case Keyword::If: return ParseIf();
        case Keyword::Select: return ParseSelect();
        case Keyword::For: return ParseFor();
        case Keyword::Do: return ParseDo();
        case Keyword::While: return ParseWhile();
        case Keyword::Exit: return ParseExit();
        case Keyword::On: return ParseOnError();
        case Keyword::With: return ParseWith();
        case Keyword::Set: {
          auto stmt = Node<AssignStmt>();
          Advance();
          stmt->isSet = true;
          stmt->target = ParseReference(true);
          Expect(TokenKind::Eq, syntax::kExpectedEquals);
          stmt->value = ParseExpr();
          return stmt;
        }
        case Keyword::Call: {
          auto stmt = Node<CallStmt>();
          Advance();
          if (tok_.kind == TokenKind::LParen) {
            // `Call (New X).M()`: an object in parentheses starts the chain.
            auto paren = Node<ParenExpr>();
            Advance();
            paren->inner = ParseExpr();
            Expect(TokenKind::RParen, syntax::kExpectedRParen);
            stmt->call = ParseChain(std::move(paren));
            if (stmt->call->kind == ExprKind::Paren) Fail(syntax::kExpectedIdentifier);
          } else {
            stmt->call = ParseReference(true);
          }
          return stmt;
        }
        case Keyword::Stop: {
          auto stmt = Node<NopStmt>();
          Advance();
          return stmt;
        }
        case Keyword::Me:
          break;
        case Keyword::Loop:
          Fail(syntax::kLoopWithoutDo);
        case Keyword::Next:
          Fail(syntax::kUnexpectedNext);
        case Keyword::Public:
        case Keyword::Private:
        case Keyword::Sub:
        case Keyword::Function:
        case Keyword::Class:
        case Keyword::Option:
          Fail(syntax::kSyntaxError);
        default:
          Fail(syntax::kExpectedStatement);
      }
    }
    if (tok_.kind != TokenKind::Identifier && tok_.kind != TokenKind::Dot && !tok_.Is(Keyword::Me))
      Fail(syntax::kExpectedStatement);
    return ParseAssignOrCall();
  }

  StmtPtr ParseAssignOrCall() {
    const int line = tok_.line, column = tok_.column;
    ExprPtr target = ParseReference(false);
    if (tok_.kind == TokenKind::Eq) {
      Advance();
      auto stmt = std::make_unique<AssignStmt>();
      stmt->line = line;
      stmt->column = column;
      stmt->target = std::move(target);
      stmt->value = ParseExpr();
      return stmt;
    }
    auto stmt = std::make_unique<CallStmt>();
    stmt->line = line;
    stmt->column = column;
    ExprList* args = nullptr;
    bool* hasParens = nullptr;
    if (target->kind == ExprKind::Name) {
      auto* n = static_cast<NameExpr*>(target.get());
      args = &n->args;
      hasParens = &n->hasParens;
    } else if (target->kind == ExprKind::Member) {
      auto* m = static_cast<MemberExpr*>(target.get());
      args = &m->args;
      hasParens = &m->hasParens;
    } else if (target->kind != ExprKind::Index) {
      Fail(syntax::kExpectedStatement);
    }
    if (AtEndOfStatement()) {
      if (args && *hasParens) {
        if (args->size() > 1) {
          throw ScriptError(syntax::kParensOnSubCall, syntax::Message(syntax::kParensOnSubCall), line,
                            column);
        }
        // `Foo (x)`: the parentheses belong to the argument, which is passed
        // by value.
        if (args->size() == 1 && (*args)[0]->kind != ExprKind::Missing) {
          auto paren = std::make_unique<ParenExpr>();
          paren->line = (*args)[0]->line;
          paren->inner = std::move((*args)[0]);
          (*args)[0] = std::move(paren);
        }
        *hasParens = false;
      }
      stmt->call = std::move(target);
      return stmt;
    }
    if (!args) Fail(syntax::kExpectedEndOfStatement);
    ExprList list;
    if (*hasParens) {
      // `Foo (a) + 1, b`: what looked like an argument list starts the first
      // argument.
      if (args->size() != 1 || (*args)[0]->kind == ExprKind::Missing)
        Fail(syntax::kExpectedEndOfStatement);
      auto paren = std::make_unique<ParenExpr>();
      paren->inner = std::move((*args)[0]);
      args->clear();
      list.push_back(ParseRest(std::move(paren), 0));
      if (tok_.kind == TokenKind::Comma) {
        Advance();
        ParseArgsNoParens(list);
      }
    } else {
      ParseArgsNoParens(list);
    }
    *args = std::move(list);
    *hasParens = false;
    stmt->call = std::move(target);
    return stmt;
  }

  void ParseArgsNoParens(ExprList& list) {
    for (;;) {
      if (tok_.kind == TokenKind::Comma) {
        auto missing = std::make_unique<Expr>(ExprKind::Missing);
        list.push_back(std::move(missing));
        Advance();
        continue;
      }
      if (AtEndOfStatement()) {
        list.push_back(std::make_unique<Expr>(ExprKind::Missing));
        return;
      }
      list.push_back(ParseExpr());
      if (tok_.kind != TokenKind::Comma) return;
      Advance();
    }
  }

  ExprPtr ParseNameOnly() {
    auto name = Node<NameExpr>();
    name->name = TakeIdentifier();
    name->lower = ToLower(name->name);
    ctx_->pending.push_back(name.get());
    return name;
  }

  StmtPtr ParseReDim() {
    auto stmt = Node<ReDimStmt>();
    Advance();
    if (tok_.IsWord("preserve")) {
      stmt->preserve = true;
      Advance();
    }
    for (;;) {
      ReDimItem item;
      auto name = Node<NameExpr>();
      name->name = TakeIdentifier();
      name->lower = ToLower(name->name);
      // ReDim declares the array when nothing of that name exists; a global
      // of the name wins at run time (dynamic lookup).
      if (ctx_->proto) ctx_->redimmed.push_back(name->lower);
      ctx_->pending.push_back(name.get());
      if (!ctx_->proto) DeclareTopLevel(*name);
      Expect(TokenKind::LParen, syntax::kExpectedLParen);
      for (;;) {
        item.bounds.push_back(ParseExpr());
        if (tok_.kind != TokenKind::Comma) break;
        Advance();
      }
      Expect(TokenKind::RParen, syntax::kExpectedRParen);
      item.target = std::move(name);
      stmt->items.push_back(std::move(item));
      if (tok_.kind != TokenKind::Comma) break;
      Advance();
    }
    return stmt;
  }

  StmtPtr ParseIf() {
    auto stmt = Node<IfStmt>();
    Advance();  // If
    stmt->conditions.push_back(ParseExpr());
    ExpectKeyword(Keyword::Then, syntax::kExpectedThen);
    if (tok_.kind != TokenKind::Newline || IsColon()) {
      if (IsColon()) {
        // `If c Then: ...` behaves as the block form.
      } else {
        ParseSingleLineIf(*stmt);
        return stmt;
      }
    }
    stmt->blocks.emplace_back();
    ParseBlock(stmt->blocks.back());
    for (;;) {
      if (tok_.Is(Keyword::ElseIf)) {
        stmt->elseIfAt.emplace_back(tok_.line, tok_.column);
        Advance();
        stmt->conditions.push_back(ParseExpr());
        ExpectKeyword(Keyword::Then, syntax::kExpectedThen);
        stmt->blocks.emplace_back();
        if (!AtEndOfStatement()) {
          stmt->blocks.back().push_back(ParseStatement());
        }
        ParseBlock(stmt->blocks.back());
        continue;
      }
      if (tok_.Is(Keyword::Else)) {
        Advance();
        ParseBlock(stmt->elseBlock);
      }
      break;
    }
    if (!tok_.Is(Keyword::End)) Fail(syntax::kExpectedEnd);
    Advance();
    ExpectKeyword(Keyword::If, syntax::kExpectedIf);
    return stmt;
  }

  void ParseSingleLineIf(IfStmt& stmt) {
    ++singleLineIf_;
    stmt.blocks.emplace_back();
    ParseLineStatements(stmt.blocks.back());
    if (tok_.Is(Keyword::Else)) {
      Advance();
      ParseLineStatements(stmt.elseBlock);
    }
    --singleLineIf_;
    // `If a Then b End If` is tolerated on one line.
    if (tok_.Is(Keyword::End) && Peek().Is(Keyword::If)) {
      Advance();
      Advance();
    }
  }

  // Statements separated by ':' up to the line break (or Else).
  void ParseLineStatements(Block& block) {
    for (;;) {
      if (tok_.Is(Keyword::End) && Peek().Is(Keyword::If)) return;
      if (AtEndOfStatement() && !IsColon()) return;
      if (IsColon()) {
        Advance();
        continue;
      }
      block.push_back(ParseStatement());
      if (!AtEndOfStatement() && !(tok_.Is(Keyword::End) && Peek().Is(Keyword::If)))
        Fail(syntax::kExpectedEndOfStatement);
    }
  }

  StmtPtr ParseSelect() {
    auto stmt = Node<SelectStmt>();
    Advance();  // Select
    ExpectKeyword(Keyword::Case, syntax::kExpectedCase);
    stmt->subject = ParseExpr();
    ExpectEndOfStatement();
    SkipNewlines();
    while (tok_.Is(Keyword::Case)) {
      Advance();
      if (tok_.Is(Keyword::Else)) {
        Advance();
        stmt->hasElse = true;
        ParseBlock(stmt->elseBlock);
        break;
      }
      CaseClause clause;
      for (;;) {
        CaseItem item;
        if (tok_.Is(Keyword::Is)) {
          Advance();
          item.kind = CaseItem::IsCompare;
          switch (tok_.kind) {
            case TokenKind::Eq: item.op = BinaryOp::Eq; break;
            case TokenKind::Ne: item.op = BinaryOp::Ne; break;
            case TokenKind::Lt: item.op = BinaryOp::Lt; break;
            case TokenKind::Le: item.op = BinaryOp::Le; break;
            case TokenKind::Gt: item.op = BinaryOp::Gt; break;
            case TokenKind::Ge: item.op = BinaryOp::Ge; break;
            default: Fail(syntax::kSyntaxError);
          }
          Advance();
          item.value = ParseExpr();
        } else {
          item.value = ParseExpr();
          if (tok_.Is(Keyword::To)) {
            Advance();
            item.kind = CaseItem::Range;
            item.to = ParseExpr();
          }
        }
        clause.items.push_back(std::move(item));
        if (tok_.kind != TokenKind::Comma) break;
        Advance();
      }
      ParseBlock(clause.body);
      stmt->cases.push_back(std::move(clause));
    }
    if (!tok_.Is(Keyword::End)) Fail(syntax::kExpectedEnd);
    Advance();
    ExpectKeyword(Keyword::Select, syntax::kExpectedSelect);
    return stmt;
  }

  StmtPtr ParseFor() {
    const int line = tok_.line, column = tok_.column;
    Advance();  // For
    if (tok_.Is(Keyword::Each)) {
      auto stmt = std::make_unique<ForEachStmt>();
      stmt->line = line;
      stmt->column = column;
      Advance();
      if (tok_.kind != TokenKind::Identifier) Fail(syntax::kInvalidForVariable);
      stmt->variable = ParseNameOnly();
      if (!tok_.IsWord("in")) Fail(syntax::kExpectedIn);
      Advance();
      stmt->collection = ParseExpr();
      ExpectEndOfStatement();
      ++ctx_->forDepth;
      ParseBlock(stmt->body);
      --ctx_->forDepth;
      ExpectNext();
      return stmt;
    }
    auto stmt = std::make_unique<ForStmt>();
    stmt->line = line;
    stmt->column = column;
    if (tok_.kind != TokenKind::Identifier) Fail(syntax::kInvalidForVariable);
    stmt->variable = ParseNameOnly();
    Expect(TokenKind::Eq, syntax::kExpectedEquals);
    stmt->from = ParseExpr();
    ExpectKeyword(Keyword::To, syntax::kExpectedTo);
    stmt->to = ParseExpr();
    if (tok_.IsWord("step")) {
      Advance();
      stmt->step = ParseExpr();
    }
    ExpectEndOfStatement();
    ++ctx_->forDepth;
    ParseBlock(stmt->body);
    --ctx_->forDepth;
    ExpectNext();
    return stmt;
  }

  void ExpectNext() {
    if (!tok_.Is(Keyword::Next)) Fail(syntax::kExpectedNext);
    Advance();
    if (tok_.kind == TokenKind::Identifier) Advance();
  }

  StmtPtr ParseDo() {
    auto stmt = Node<DoStmt>();
    Advance();  // Do
    if (tok_.Is(Keyword::While) || tok_.Is(Keyword::Until)) {
      stmt->test = tok_.Is(Keyword::While) ? DoStmt::PreWhile : DoStmt::PreUntil;
      Advance();
      stmt->condition = ParseExpr();
    }
    if (!AtEndOfStatement()) Fail(syntax::kExpectedWhileUntilEnd);
    ++ctx_->doDepth;
    ParseBlock(stmt->body);
    --ctx_->doDepth;
    if (!tok_.Is(Keyword::Loop)) Fail(syntax::kExpectedLoop);
    stmt->loopLine = tok_.line;
    stmt->loopColumn = tok_.column;
    Advance();
    if (tok_.Is(Keyword::While) || tok_.Is(Keyword::Until)) {
      if (stmt->test != DoStmt::None) Fail(syntax::kExpectedEndOfStatement);
      stmt->test = tok_.Is(Keyword::While) ? DoStmt::PostWhile : DoStmt::PostUntil;
      Advance();
      stmt->condition = ParseExpr();
    }
    return stmt;
  }

  StmtPtr ParseWhile() {
    auto stmt = Node<DoStmt>();
    Advance();  // While
    stmt->test = DoStmt::PreWhile;
    stmt->condition = ParseExpr();
    ExpectEndOfStatement();
    ParseBlock(stmt->body);
    ExpectKeyword(Keyword::Wend, syntax::kExpectedWend);
    return stmt;
  }

  StmtPtr ParseExit() {
    auto stmt = Node<ExitStmt>();
    Advance();  // Exit
    const FunctionProto* proto = ctx_->proto;
    if (tok_.Is(Keyword::Do)) {
      if (ctx_->doDepth == 0) Fail(syntax::kInvalidExit);
      stmt->what = ExitStmt::Do;
    } else if (tok_.Is(Keyword::For)) {
      if (ctx_->forDepth == 0) Fail(syntax::kInvalidExit);
      stmt->what = ExitStmt::For;
    } else if (tok_.Is(Keyword::Function)) {
      if (!proto || proto->kind != ProcKind::Function) Fail(syntax::kInvalidExit);
      stmt->what = ExitStmt::Procedure;
    } else if (tok_.Is(Keyword::Sub)) {
      if (!proto || proto->kind != ProcKind::Sub) Fail(syntax::kInvalidExit);
      stmt->what = ExitStmt::Procedure;
    } else if (tok_.IsWord("property")) {
      if (!proto || proto->kind == ProcKind::Sub || proto->kind == ProcKind::Function)
        Fail(syntax::kInvalidExit);
      stmt->what = ExitStmt::Procedure;
    } else {
      Fail(syntax::kInvalidExit);
    }
    Advance();
    return stmt;
  }

  StmtPtr ParseOnError() {
    auto stmt = Node<OnErrorStmt>();
    Advance();  // On
    if (!tok_.IsWord("error")) Fail(syntax::kSyntaxError);
    Advance();
    if (tok_.Is(Keyword::Resume)) {
      Advance();
      if (!tok_.Is(Keyword::Next)) Fail(syntax::kSyntaxError);
      Advance();
      stmt->resumeNext = true;
    } else if (tok_.Is(Keyword::GoTo)) {
      Advance();
      if (tok_.kind != TokenKind::Integer || tok_.integer != 0) Fail(syntax::kSyntaxError);
      Advance();
    } else {
      Fail(syntax::kSyntaxError);
    }
    return stmt;
  }

  StmtPtr ParseWith() {
    auto stmt = Node<WithStmt>();
    Advance();  // With
    stmt->object = ParseExpr();
    ExpectEndOfStatement();
    stmt->slot = ctx_->NewSlot();
    if (ctx_->proto) SetSlotName(stmt->slot, std::string());
    ctx_->withSlots.push_back(stmt->slot);
    ParseBlock(stmt->body);
    ctx_->withSlots.pop_back();
    if (!tok_.Is(Keyword::End)) Fail(syntax::kExpectedEnd);
    Advance();
    ExpectKeyword(Keyword::With, syntax::kExpectedWith);
    return stmt;
  }

  // --- expressions ---------------------------------------------------------------
  static int Precedence(const Token& t, BinaryOp& op) {
    switch (t.kind) {
      case TokenKind::Caret: op = BinaryOp::Pow; return 14;
      case TokenKind::Star: op = BinaryOp::Mul; return 12;
      case TokenKind::Slash: op = BinaryOp::Div; return 12;
      case TokenKind::Backslash: op = BinaryOp::IntDiv; return 11;
      case TokenKind::Plus: op = BinaryOp::Add; return 9;
      case TokenKind::Minus: op = BinaryOp::Sub; return 9;
      case TokenKind::Amp: op = BinaryOp::Concat; return 8;
      case TokenKind::Eq: op = BinaryOp::Eq; return 7;
      case TokenKind::Ne: op = BinaryOp::Ne; return 7;
      case TokenKind::Lt: op = BinaryOp::Lt; return 7;
      case TokenKind::Le: op = BinaryOp::Le; return 7;
      case TokenKind::Gt: op = BinaryOp::Gt; return 7;
      case TokenKind::Ge: op = BinaryOp::Ge; return 7;
      case TokenKind::Keyword:
        switch (t.keyword) {
          case Keyword::Mod: op = BinaryOp::Mod; return 10;
          case Keyword::Is: op = BinaryOp::Is; return 7;
          case Keyword::And: op = BinaryOp::And; return 5;
          case Keyword::Or: op = BinaryOp::Or; return 4;
          case Keyword::Xor: op = BinaryOp::Xor; return 3;
          case Keyword::Eqv: op = BinaryOp::Eqv; return 2;
          case Keyword::Imp: op = BinaryOp::Imp; return 1;
          default: return -1;
        }
      default:
        return -1;
    }
  }

  ExprPtr ParseExpr(int minPrec = 0) {
    if (++depth_ > kMaxNesting) Fail(syntax::kSyntaxError);
    ExprPtr left;
    const int line = tok_.line, column = tok_.column;
    if (tok_.Is(Keyword::Not)) {
      Advance();
      left = MakeUnary(UnaryOp::Not, ParseExpr(6), line, column);
    } else if (tok_.kind == TokenKind::Minus || tok_.kind == TokenKind::Plus) {
      UnaryOp op = tok_.kind == TokenKind::Minus ? UnaryOp::Neg : UnaryOp::Plus;
      Advance();
      // A sign binds tighter than every binary operator, ^ included:
      // -3^2 is (-3)^2.
      left = MakeUnary(op, ParsePowOperand(), line, column);
    } else {
      left = ParsePostfix();
    }
    ExprPtr result = ParseRest(std::move(left), minPrec);
    --depth_;
    return result;
  }

  ExprPtr ParsePowOperand() {
    if (tok_.kind == TokenKind::Minus || tok_.kind == TokenKind::Plus) {
      const int line = tok_.line, column = tok_.column;
      UnaryOp op = tok_.kind == TokenKind::Minus ? UnaryOp::Neg : UnaryOp::Plus;
      Advance();
      return MakeUnary(op, ParsePowOperand(), line, column);
    }
    return ParsePostfix();
  }

  ExprPtr ParseRest(ExprPtr left, int minPrec) {
    // A run of literal texts joined with & is gathered in `joined` and
    // becomes the value of `left` once, instead of a new string at every &
    // (the same text MakeBinary's join gives).
    std::string joined;
    bool joining = false;
    auto settle = [&] {
      if (!joining) return;
      static_cast<LiteralExpr&>(*left).value = Variant(std::move(joined));
      joining = false;
    };
    for (;;) {
      BinaryOp op;
      int prec = Precedence(tok_, op);
      if (prec < 0 || prec < minPrec) {
        settle();
        return left;
      }
      const int line = tok_.line, column = tok_.column;
      Advance();
      ExprPtr right = op == BinaryOp::Pow ? ParsePowOperand() : ParseExpr(prec + 1);
      if (op == BinaryOp::Concat && IsConstant(*left) && IsConstant(*right)) {
        const Variant& a = static_cast<LiteralExpr&>(*left).value;
        const Variant& b = static_cast<LiteralExpr&>(*right).value;
        if (IsFixedText(a) && IsFixedText(b) &&
            (joining ? joined.size() : TextSize(a)) + TextSize(b) <= kMaxFoldedText) {
          if (!joining) {
            joined = a.IsString() ? std::string(a.StringValue()) : a.ToString();
            joining = true;
          }
          if (b.IsString())
            joined.append(b.StringValue());
          else
            joined.append(b.ToString());
          continue;
        }
      }
      settle();
      left = MakeBinary(op, std::move(left), std::move(right), line, column);
    }
  }

  ExprPtr MakeUnary(UnaryOp op, ExprPtr operand, int line, int column) {
    if (IsConstant(*operand)) {
      auto* lit = static_cast<LiteralExpr*>(operand.get());
      try {
        if (op == UnaryOp::Neg && lit->value.IsNumericType()) {
          lit->value = Negate(lit->value);
          return operand;
        }
        if (op == UnaryOp::Plus && lit->value.IsNumericType()) return operand;
      } catch (const Error&) {
      }
    }
    auto e = New<UnaryExpr>();
    e->line = line;
    e->column = column;
    e->height = operand->height + 1;
    if (e->height > kMaxTreeHeight) Fail(syntax::kSyntaxError);
    e->op = op;
    e->operand = std::move(operand);
    return e;
  }

  ExprPtr MakeBinary(BinaryOp op, ExprPtr left, ExprPtr right, int line, int column) {
    // A comparison reads a literal operand by rules of its own. An operand
    // made of literals and slots would be one folded literal once the slots
    // were written out, but stays an expression here: such a template does
    // not stand for its written-out texts.
    if (slots_ != nullptr && IsComparison(op) && (FoldsWhenWrittenOut(*left) || FoldsWhenWrittenOut(*right))) {
      slotsDiffer_ = true;
    }
    // Arithmetic on two literal numbers is done here; a failure (division by
    // zero, overflow) is left for run time so that it is raised there.
    if (IsConstant(*left) && IsConstant(*right)) {
      auto* a = static_cast<LiteralExpr*>(left.get());
      auto* b = static_cast<LiteralExpr*>(right.get());
      // Joining texts and whole numbers gives the same text whenever it is
      // done (a Double's text is left to run time); a long result is left
      // to run time too, which enforces the size limit.
      if (op == BinaryOp::Concat && IsFixedText(a->value) && IsFixedText(b->value) &&
          TextSize(a->value) + TextSize(b->value) <= kMaxFoldedText) {
        try {
          a->value = Concat(a->value, b->value);
          return left;
        } catch (const Error&) {
        }
      }
      if (a->value.IsNumericType() && b->value.IsNumericType()) {
        try {
          Variant r;
          bool folded = true;
          switch (op) {
            case BinaryOp::Add: r = Add(a->value, b->value); break;
            case BinaryOp::Sub: r = Subtract(a->value, b->value); break;
            case BinaryOp::Mul: r = Multiply(a->value, b->value); break;
            case BinaryOp::Div: r = Divide(a->value, b->value); break;
            default: folded = false; break;
          }
          if (folded) {
            a->value = std::move(r);
            return left;
          }
        } catch (const Error&) {
        }
      }
    }
    auto e = New<BinaryExpr>();
    e->line = line;
    e->column = column;
    e->height = std::max(left->height, right->height) + 1;
    if (e->height > kMaxTreeHeight) Fail(syntax::kSyntaxError);
    e->op = op;
    e->left = std::move(left);
    e->right = std::move(right);
    return e;
  }

  static bool IsComparison(BinaryOp op) {
    return op == BinaryOp::Eq || op == BinaryOp::Ne || op == BinaryOp::Lt || op == BinaryOp::Le ||
           op == BinaryOp::Gt || op == BinaryOp::Ge;
  }
  // An operator node over nothing but literals and slots (whether or not its
  // operator folds: the test errs on the safe side).
  static bool FoldsWhenWrittenOut(const Expr& e) {
    return (e.kind == ExprKind::Unary || e.kind == ExprKind::Binary) && LiteralLeaves(e);
  }
  static bool LiteralLeaves(const Expr& e) {
    switch (e.kind) {
      case ExprKind::Literal: return true;
      case ExprKind::Unary: return LiteralLeaves(*static_cast<const UnaryExpr&>(e).operand);
      case ExprKind::Binary: {
        const auto& b = static_cast<const BinaryExpr&>(e);
        return LiteralLeaves(*b.left) && LiteralLeaves(*b.right);
      }
      default: return false;
    }
  }

  // A literal whose value is known now (a slot's value comes later).
  static bool IsConstant(const Expr& e) {
    return e.kind == ExprKind::Literal && static_cast<const LiteralExpr&>(e).slot < 0;
  }

  static bool IsFixedText(const Variant& v) {
    return v.IsString() || v.Type() == VarType::Integer || v.Type() == VarType::Long;
  }
  // Bytes of a value IsFixedText accepts, at most for numbers.
  static size_t TextSize(const Variant& v) { return v.IsString() ? v.StringValue().size() : 11; }

  ExprPtr Literal(Variant v) {
    auto e = New<LiteralExpr>(std::move(v));
    e->line = tok_.line;
    e->column = tok_.column;
    Advance();
    return e;
  }

  ExprPtr ParsePostfix() {
    switch (tok_.kind) {
      case TokenKind::Integer:
        return Literal(tok_.isLong ? Variant::FromLong(static_cast<int32_t>(tok_.integer))
                                   : Variant::FromInteger(static_cast<int16_t>(tok_.integer)));
      case TokenKind::Double:
        return Literal(Variant::FromDouble(tok_.number));
      case TokenKind::String:
        return Literal(Variant::FromString(std::move(tok_.text)));
      case TokenKind::Date:
        return Literal(Variant::FromDate(tok_.number));
      case TokenKind::Slot: {
        auto slot = New<LiteralExpr>(Variant());
        slot->line = tok_.line;
        slot->column = tok_.column;
        slot->slot = static_cast<int>(tok_.integer);
        slots_->push_back(slot.get());
        Advance();
        return slot;
      }
      case TokenKind::LParen: {
        auto paren = Node<ParenExpr>();
        Advance();
        paren->inner = ParseExpr();
        Expect(TokenKind::RParen, syntax::kExpectedRParen);
        return ParseChain(std::move(paren));
      }
      case TokenKind::Identifier:
      case TokenKind::Dot:
        return ParseReference(false);
      case TokenKind::Keyword:
        switch (tok_.keyword) {
          case Keyword::True: return Literal(Variant(true));
          case Keyword::False: return Literal(Variant(false));
          case Keyword::Empty: return Literal(Variant());
          case Keyword::Null: return Literal(Variant::Null());
          case Keyword::Nothing: return Literal(Variant::Nothing());
          case Keyword::Me: return ParseReference(false);
          case Keyword::New: {
            auto e = Node<NewExpr>();
            Advance();
            e->className = TakeIdentifier();
            e->lower = ToLower(e->className);
            return e;
          }
          default:
            break;
        }
        break;
      default:
        break;
    }
    Fail(syntax::kExpectedExpression);
  }

  // name / Me / .member, then any .member and (args) that follow.
  ExprPtr ParseReference(bool requireName) {
    ExprPtr e;
    if (tok_.kind == TokenKind::Identifier) {
      auto name = Node<NameExpr>();
      name->name.assign(tok_.source);
      name->lower = ToLower(tok_.source);
      Advance();
      if (tok_.kind == TokenKind::LParen) {
        name->hasParens = true;
        ParseArgs(name->args);
      }
      // Built-in constants are values; fold them unless a local hides them.
      if (!name->hasParens && !IsLocalName(name->lower)) {
        if (const BuiltinConstant* c = FindBuiltinConstant(name->lower)) {
          if (tok_.kind != TokenKind::Dot && tok_.kind != TokenKind::Eq) {
            auto lit = New<LiteralExpr>(c->value());
            lit->line = name->line;
            lit->column = name->column;
            return lit;
          }
        }
      }
      if (!namesStayDynamic_) ctx_->pending.push_back(name.get());
      e = std::move(name);
    } else if (tok_.Is(Keyword::Me)) {
      if (!InClassMethod()) Fail(syntax::kInvalidMe);
      e = Node(ExprKind::Me);
      Advance();
    } else if (tok_.kind == TokenKind::Dot) {
      if (ctx_->withSlots.empty()) Fail(syntax::kSyntaxError);
      auto with = Node<NameExpr>();
      with->scope = NameScope::Local;
      with->index = ctx_->withSlots.back();
      e = std::move(with);
      // the member part is read by ParseChain
    } else {
      Fail(requireName ? syntax::kExpectedIdentifier : syntax::kExpectedExpression);
    }
    return ParseChain(std::move(e));
  }

  ExprPtr Node(ExprKind kind) {
    auto e = New<Expr>(kind);
    e->line = tok_.line;
    e->column = tok_.column;
    return e;
  }


  ExprPtr ParseChain(ExprPtr e) {
    for (;;) {
      if (tok_.kind == TokenKind::Dot) {
        auto member = Node<MemberExpr>();
        Advance();
        member->name = TakeMemberName();
        member->lower = ToLower(member->name);
        member->object = std::move(e);
        if (tok_.kind == TokenKind::LParen) {
          member->hasParens = true;
          ParseArgs(member->args);
        }
        e = std::move(member);
      } else if (tok_.kind == TokenKind::LParen &&
                 (e->kind == ExprKind::Index || e->kind == ExprKind::Paren ||
                  (e->kind == ExprKind::Name && static_cast<NameExpr*>(e.get())->hasParens) ||
                  (e->kind == ExprKind::Member && static_cast<MemberExpr*>(e.get())->hasParens))) {
        auto index = Node<IndexExpr>();
        index->target = std::move(e);
        ParseArgs(index->args);
        e = std::move(index);
      } else {
        return e;
      }
    }
  }

  void ParseArgs(ExprList& args) {
    Advance();  // (
    if (tok_.kind == TokenKind::RParen) {
      Advance();
      return;
    }
    for (;;) {
      if (tok_.kind == TokenKind::Comma || tok_.kind == TokenKind::RParen) {
        args.push_back(New<Expr>(ExprKind::Missing));
      } else {
        args.push_back(ParseExpr());
      }
      if (tok_.kind == TokenKind::Comma) {
        Advance();
        continue;
      }
      Expect(TokenKind::RParen, syntax::kExpectedRParen);
      return;
    }
  }

  bool IsLocalName(const std::string& lower) const {
    if (ctx_->proto && ctx_->locals.count(lower)) return true;
    if (enclosing_ && enclosing_->proto) {
      for (const auto& n : enclosing_->proto->slotNames)
        if (n == lower) return true;
    }
    return false;
  }

  bool InClassMethod() const {
    if (ctx_->proto && ctx_->proto->owner) return true;
    return enclosing_ && enclosing_->owner;
  }

  Lexer lex_;
  Token tok_;
  Token peek_;
  bool hasPeek_ = false;
  const EnclosingScope* enclosing_;
  ExprArena* arena_;
  std::vector<LiteralExpr*>* slots_;  // where slots go; null when the text may have none
  bool slotsDiffer_ = false;  // see MakeBinary
  Code* code_ = nullptr;
  ProcContext* ctx_ = nullptr;
  int singleLineIf_ = 0;
  int depth_ = 0;
  bool namesStayDynamic_ = false;
  std::vector<std::pair<NameExpr*, FunctionProto*>> classPending_;
};

}  // namespace

std::unique_ptr<Code> Parser::ParseProgram(std::string source, int firstLine,
                                           const EnclosingScope* enclosing) {
  auto code = std::make_unique<Code>();
  code->source = std::move(source);
  code->firstLine = firstLine;
  ParserImpl impl(code->source, firstLine, enclosing);
  impl.ParseProgram(*code);
  return code;
}

ExprPtr Parser::ParseExpression(std::string_view source, const EnclosingScope* enclosing, ExprArena* arena) {
  ParserImpl impl(source, 1, enclosing, arena);
  return impl.ParseExpressionOnly();
}

ExprPtr Parser::ParseTemplate(std::string_view source, std::vector<LiteralExpr*>& slots, bool& slotsDiffer) {
  ParserImpl impl(source, 1, nullptr, nullptr, &slots);
  ExprPtr tree = impl.ParseExpressionOnly();
  slotsDiffer = impl.SlotsDiffer();
  return tree;
}

}  // namespace tessel::vbs
