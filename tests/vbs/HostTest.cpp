// Host objects: AddObject with and without members, C++ classes bound with
// ClassBinding, ByRef through Invoke, For Each over host collections, and
// engines that share nothing.
#include <thread>
#include <vector>

#include "scripting/vbs/ClassBinding.h"
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

class Counter : public BoundObject<Counter> {
 public:
  static void Bind(ClassBinding<Counter>& b) {
    b.TypeName("Counter")
        .Method("Add", &Counter::Add)
        .Method("Describe", &Counter::Describe)
        .Method("Swap", &Counter::Swap)
        .Method("Sum", &Counter::Sum)
        .Method("Optional", &Counter::Optional)
        .Property("Value", &Counter::Value, &Counter::SetValue)
        .Property("Label", &Counter::Label, &Counter::SetLabel)
        .Property("ReadOnly", &Counter::Value)
        .Default("Value");
  }

  int32_t Add(int32_t n) { return value_ += n; }
  std::string Describe(const std::string& prefix, double factor) const {
    return prefix + std::to_string(static_cast<int>(value_ * factor));
  }
  void Swap(Variant& a, Variant& b) { a.Swap(b); }
  double Sum(std::span<Variant> args) {
    double s = 0;
    for (auto& v : args) s += v.ToDouble();
    return s;
  }
  std::string Optional(Variant a, Variant b) { return b.IsMissing() ? "one" : "two"; }
  int32_t Value() const { return value_; }
  void SetValue(int32_t v) { value_ = v; }
  std::string Label() const { return label_; }
  void SetLabel(const std::string& s) { label_ = s; }

 private:
  int32_t value_ = 0;
  std::string label_;
};

class Numbers : public Object {
 public:
  std::string TypeName() const override { return "Numbers"; }
  Ref<Object> NewEnum() override {
    class It : public Enumerator {
     public:
      bool Next(Variant& out) override {
        if (i_ >= 3) return false;
        out = Variant::FromLong(++i_ * 10);
        return true;
      }
      int32_t i_ = 0;
    };
    return MakeRef<It>();
  }
};

// A host object that evaluates text on the engine that is calling it.
class Reentrant : public BoundObject<Reentrant> {
 public:
  static void Bind(ClassBinding<Reentrant>& b) { b.TypeName("Reentrant").Method("Eval", &Reentrant::Eval); }
  Engine* engine = nullptr;
  Variant Eval(const std::string& text) { return engine->Eval(text); }
};

TEST(VbsHost, EvalInsideEvalKeepsTheOuterExpression) {
  Engine e;
  auto host = MakeRef<Reentrant>();
  host->engine = &e;
  e.AddObject("host", host);
  // The outer tree is still being walked while the inner texts are parsed
  // and freed; both must come out whole, and the engine stays usable.
  EXPECT_EQ(Typed(e, "\"a\" & host.Eval(\"UCase(\"\"b\"\") & 2*3\") & \"c\" & host.Eval(\"7\") & \"d\""),
            "String:aB6c7d");
  EXPECT_EQ(EvalErrorOf(e, "\"a\" & host.Eval(\"1 +\")"), 1023);
  EXPECT_EQ(Typed(e, "\"x\" & 1.5 & \"y\""), "String:x1.5y");
}

TEST(VbsHost, BoundObjectMembersByName) {
  Engine e;
  auto counter = MakeRef<Counter>();
  e.AddObject("ctr", counter);
  e.AddCode("ctr.Add 5\nctr.value = ctr.VALUE + 1\nctr.Label = \"x\"");
  EXPECT_EQ(counter->Value(), 6);
  EXPECT_EQ(Typed(e, "ctr.Describe(\"n=\", 2)"), "String:n=12");
  EXPECT_EQ(Typed(e, "ctr + 1"), "Long:7");  // default member
  EXPECT_EQ(Typed(e, "ctr.Label"), "String:x");
  EXPECT_EQ(Typed(e, "ctr.Sum(1, 2.5, \"3\")"), "Double:6.5");
  EXPECT_EQ(Typed(e, "ctr.Optional(1)"), "String:one");
  EXPECT_EQ(Typed(e, "ctr.Optional(1, 2)"), "String:two");
  EXPECT_EQ(Typed(e, "TypeName(ctr)"), "String:Counter");
  EXPECT_EQ(EvalErrorOf(e, "ctr.Nope"), 438);
  EXPECT_EQ(ErrorOf(e, "ctr.ReadOnly = 1"), 438);
  EXPECT_EQ(EvalErrorOf(e, "ctr.Add(1, 2)"), 450);
  EXPECT_EQ(EvalErrorOf(e, "ctr.Add(\"abc\")"), 13);
}

TEST(VbsHost, ByRefArgumentsReachScriptVariables) {
  Engine e;
  e.AddObject("ctr", MakeRef<Counter>());
  e.AddCode("Dim a, b : a = 1 : b = \"two\" : ctr.Swap a, b");
  EXPECT_EQ(Typed(e, "a & b"), "String:two1");
}

TEST(VbsHost, AddMembersMakesMembersGlobalNames) {
  Engine e;
  auto counter = MakeRef<Counter>();
  e.AddObject("objCounter", counter, true);
  e.AddCode("Add 3\nValue = Value * 2");
  EXPECT_EQ(counter->Value(), 6);
  EXPECT_EQ(Typed(e, "Describe(\"v\", 1) & objCounter.Value"), "String:v66");
  // A script function of the same name wins over the host member.
  e.AddCode("Function Describe(a, b) : Describe = \"script\" : End Function");
  EXPECT_EQ(Typed(e, "Describe(1, 2)"), "String:script");
}

TEST(VbsHost, ForEachOverAHostCollection) {
  Engine e;
  e.AddObject("nums", MakeRef<Numbers>());
  e.AddCode("Dim s, n : For Each n In nums : s = s + n : Next");
  EXPECT_EQ(Typed(e, "s"), "Long:60");
}

TEST(VbsHost, RunCallsAProcedureByName) {
  Engine e;
  e.AddCode("Function Mul(a, b) : Mul = a * b : End Function\nSub Inc(x) : x = x + 1 : End Sub");
  std::vector<Variant> args{Variant::FromLong(6), Variant::FromLong(7)};
  EXPECT_EQ(e.Run("mul", args).ToString(), "42");
  std::vector<Variant> one{Variant::FromLong(1)};
  e.Run("Inc", one);
  EXPECT_EQ(one[0].ToString(), "2");
  try {
    e.Run("Missing");
    FAIL();
  } catch (const Error& err) {
    EXPECT_EQ(err.number(), 35);
  }
}

TEST(VbsHost, EnginesShareNothing) {
  Engine a, b;
  a.AddCode("Dim shared : shared = 1\nFunction Who() : Who = \"a\" : End Function");
  b.AddCode("Function Who() : Who = \"b\" : End Function");
  EXPECT_EQ(Typed(a, "Who()"), "String:a");
  EXPECT_EQ(Typed(b, "Who()"), "String:b");
  EXPECT_EQ(Typed(b, "IsEmpty(shared)"), "Boolean:True");
}

TEST(VbsHost, EnginesRunOnTheirOwnThreads) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &results] {
      Engine e;
      e.AddCode("Function F(n) : Dim i, s : For i = 1 To n : s = s + i : Next : F = s : End Function");
      std::string last;
      for (int i = 0; i < 200; ++i) last = e.Eval("F(" + std::to_string(t * 100 + i) + ")").ToString();
      results[t] = last;
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(results[0], "19900");
  EXPECT_EQ(results[3], std::to_string((499 * 500) / 2));
}

TEST(VbsHost, LanguageAndUiSettings) {
  Engine e;
  EXPECT_EQ(e.Language(), "VBScript");
  e.SetLanguage("vbscript");
  EXPECT_THROW(e.SetLanguage("JScript"), Error);
  EXPECT_EQ(EvalErrorOf(e, "MsgBox(\"hi\")"), 70);
  std::string shown;
  e.SetAllowUI(true);
  e.SetUISink([&shown](const std::string& s) { shown = s; });
  EXPECT_EQ(Typed(e, "MsgBox(\"hi\")"), "Integer:1");
  EXPECT_EQ(shown, "hi");
}

}  // namespace
}  // namespace tessel::vbs::test
