// Script classes: members, properties, default members, Me, and the order in
// which Class_Initialize and Class_Terminate run.
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

TEST(VbsClass, PropertiesFieldsAndMethods) {
  Engine e;
  e.AddCode(
      "Class Account\n"
      "  Private mBalance\n"
      "  Public Owner\n"
      "  Private Sub Class_Initialize() : mBalance = 0 : End Sub\n"
      "  Public Property Get Balance() : Balance = mBalance : End Property\n"
      "  Public Property Let Balance(v)\n"
      "    If v < 0 Then Err.Raise 5\n"
      "    mBalance = v\n"
      "  End Property\n"
      "  Public Function Deposit(amount) : Balance = Balance + amount : Deposit = Me.Balance : End Function\n"
      "  Private Function Secret() : Secret = 1 : End Function\n"
      "End Class\n"
      "Dim a : Set a = New Account\n"
      "a.Owner = \"Ann\" : a.Deposit 10 : a.Balance = a.Balance + 5");
  EXPECT_EQ(Typed(e, "a.Balance"), "Integer:15");
  EXPECT_EQ(Typed(e, "a.Deposit(5)"), "Integer:20");
  EXPECT_EQ(Typed(e, "a.Owner"), "String:Ann");
  EXPECT_EQ(Typed(e, "TypeName(a)"), "String:Account");
  EXPECT_EQ(Typed(e, "VarType(a)"), "Integer:9");
  EXPECT_EQ(Typed(e, "IsObject(a)"), "Boolean:True");
  EXPECT_EQ(EvalErrorOf(e, "a.Secret()"), 438);
  EXPECT_EQ(EvalErrorOf(e, "a.mBalance"), 438);
  EXPECT_EQ(ErrorOf(e, "a.Balance = -1"), 5);
}

TEST(VbsClass, CallOnAnObjectInParentheses) {
  Engine e;
  e.AddCode(
      "Dim log\n"
      "Class X\n"
      "  Sub M(s) : log = log & s : End Sub\n"
      "  Function Items() : Items = Array(\"a\", \"b\") : End Function\n"
      "End Class\n"
      "Dim o : Set o = New X\n"
      "Call (New X).M(\"1\")\n"
      "Call (o).M(\"2\")\n"
      "Call o.M(\"3\")");
  EXPECT_EQ(Typed(e, "log"), "String:123");
  EXPECT_EQ(Typed(e, "(New X).Items()(1)"), "String:b");
  // Parentheses alone are no procedure to call.
  EXPECT_EQ(ErrorOf(e, "Call (o)"), 1010);
}

TEST(VbsClass, PropertySetAndObjectFields) {
  Engine e;
  e.AddCode(
      "Class Node\n"
      "  Public Value\n"
      "  Private mNext\n"
      "  Property Set NextNode(n) : Set mNext = n : End Property\n"
      "  Property Get NextNode() : Set NextNode = mNext : End Property\n"
      "End Class\n"
      "Dim a, b : Set a = New Node : Set b = New Node : b.Value = 7\n"
      "Set a.NextNode = b");
  EXPECT_EQ(Typed(e, "a.NextNode.Value"), "Integer:7");
  EXPECT_EQ(Typed(e, "a.NextNode Is b"), "Boolean:True");
}

TEST(VbsClass, DefaultMembers) {
  Engine e;
  e.AddCode(
      "Class List\n"
      "  Private items(3)\n"
      "  Public Default Property Get Item(i) : Item = items(i) : End Property\n"
      "  Public Property Let Item(i, v) : items(i) = v : End Property\n"
      "End Class\n"
      "Class Named\n"
      "  Public Default Function Text() : Text = \"named\" : End Function\n"
      "End Class\n"
      "Dim l : Set l = New List : l(1) = \"one\"\n"
      "Dim n : Set n = New Named");
  EXPECT_EQ(Typed(e, "l(1)"), "String:one");
  EXPECT_EQ(Typed(e, "l.Item(1)"), "String:one");
  EXPECT_EQ(Typed(e, "n & \"!\""), "String:named!");
  EXPECT_EQ(Typed(e, "UCase(n)"), "String:NAMED");
  // A default member that hands out an object: its default is followed.
  e.AddCode(
      "Class Outer\n"
      "  Public Default Property Get Inner() : Set Inner = n : End Property\n"
      "End Class\n"
      "Class Mirror\n"
      "  Public Default Property Get Self() : Set Self = Me : End Property\n"
      "End Class\n"
      "Dim o : Set o = New Outer\n"
      "Dim lp : Set lp = New Mirror");
  EXPECT_EQ(Typed(e, "o & \"?\""), "String:named?");
  EXPECT_EQ(ErrorOf(e, "Dim s : s = lp & \"\""), 438);
}

TEST(VbsClass, InitializeAndTerminateRunInOrder) {
  Engine e;
  e.AddCode(
      "Dim log\n"
      "Class T\n"
      "  Public Name\n"
      "  Private Sub Class_Initialize() : log = log & \"+\" : End Sub\n"
      "  Private Sub Class_Terminate() : log = log & \"-\" & Name : End Sub\n"
      "End Class\n"
      "Sub Scope()\n"
      "  Dim inner : Set inner = New T : inner.Name = \"i\"\n"
      "  log = log & \"[\"\n"
      "End Sub\n"
      "Dim a, b : Set a = New T : a.Name = \"a\"\n"
      "Set b = a\n"
      "Set a = Nothing\n"
      "log = log & \"|\"\n"
      "Set b = Nothing\n"
      "Scope\n"
      "log = log & \"]\"\n"
      "Dim c : Set c = New T : c.Name = \"c\" : Set c = New T : c.Name = \"d\"");
  EXPECT_EQ(Typed(e, "log"), "String:+|-a+[-i]++-c");
}

// The event handlers are methods too: a public one may be called again, a
// private one only from inside the class.
TEST(VbsClass, InitializeAndTerminateCanBeCalledLikeMethods) {
  Engine e;
  e.AddCode(
      "Dim runs\n"
      "Class Resettable\n"
      "  Public Value\n"
      "  Public Sub Class_Initialize() : Value = 1 : runs = runs + 1 : End Sub\n"
      "  Private Sub Class_Terminate() : runs = runs + 100 : End Sub\n"
      "  Public Sub Reset() : Class_Initialize : End Sub\n"
      "End Class\n"
      "Dim r : Set r = New Resettable : r.Value = 5 : Call r.Class_Initialize");
  EXPECT_EQ(Typed(e, "r.Value & \"/\" & runs"), "String:1/2");
  e.AddCode("r.Value = 7 : r.Reset");
  EXPECT_EQ(Typed(e, "r.Value & \"/\" & runs"), "String:1/3");
  EXPECT_EQ(ErrorOf(e, "r.Class_Terminate"), 438);
  e.AddCode("Set r = Nothing");
  EXPECT_EQ(Typed(e, "runs"), "Integer:103");
}

TEST(VbsClass, ClassRedefinedByAddCodeKeepsOldInstancesWorking) {
  Engine e;
  e.AddCode("Class K : Function V() : V = 1 : End Function : End Class\nDim old : Set old = New K");
  e.AddCode("Class K : Function V() : V = 2 : End Function : End Class\nDim nu : Set nu = New K");
  EXPECT_EQ(Typed(e, "old.V() & nu.V()"), "String:12");
}

TEST(VbsClass, MeInsideMethodsAndClassMemberCalls) {
  Engine e;
  e.AddCode(
      "Class Calc\n"
      "  Public Total\n"
      "  Public Function Add(n) : Total = Total + n : Set Add = Me : End Function\n"
      "  Public Function Twice() : Twice = Helper(Total) : End Function\n"
      "  Private Function Helper(x) : Helper = x * 2 : End Function\n"
      "End Class\n"
      "Dim c : Set c = New Calc : c.Total = 0");
  EXPECT_EQ(Typed(e, "c.Add(2).Add(3).Total"), "Integer:5");
  EXPECT_EQ(Typed(e, "c.Twice()"), "Integer:10");
  EXPECT_EQ(ErrorOf(e, "Dim m : m = Me"), 1037);
}

}  // namespace
}  // namespace tessel::vbs::test

namespace tessel::vbs::test {
namespace {

TEST(VbsClass, InstancesKeptByTheHostOutliveTheirEngineSafely) {
  Variant kept;
  {
    Engine e;
    e.AddCode("Class K : Public V : Sub Class_Terminate : V = 0 : End Sub : End Class");
    kept = e.Eval("New K");
  }
  ASSERT_TRUE(kept.IsObject());
  DispId id = kept.ObjectPtr()->GetMemberId("V");
  EXPECT_NE(id, kDispIdUnknown);
  EXPECT_THROW(kept.ObjectPtr()->Invoke(id, InvokeKind::PropertyGet, {}), Error);
  kept = Variant();  // terminates without its machine
}

TEST(VbsClass, TerminateRunsWhenTheEngineGoes) {
  auto log = std::make_shared<std::string>();
  class Log : public Object {
   public:
    explicit Log(std::shared_ptr<std::string> text) : text_(std::move(text)) {}
    std::string TypeName() const override { return "Log"; }
    DispId GetMemberId(std::string_view) override { return 1; }
    Variant Invoke(DispId, InvokeKind, std::span<Variant> args) override {
      *text_ += args[0].ToString();
      return {};
    }
    std::shared_ptr<std::string> text_;
  };
  {
    Engine e;
    e.AddObject("log", MakeRef<Log>(log));
    e.AddCode("Class K : Sub Class_Terminate : log.Write \"bye\" : End Sub : End Class\nDim inst : Set inst = New K");
  }
  EXPECT_EQ(*log, "bye");
}

}  // namespace
}  // namespace tessel::vbs::test
