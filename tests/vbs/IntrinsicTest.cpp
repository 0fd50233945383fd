// The built-ins the machine itself answers (they need its state): TypeName,
// VarType, IsObject, IsArray, LBound/UBound, Array, Err, CreateObject, and a
// few library functions reached through the engine.
#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

TEST(VbsIntrinsic, TypeNamesAndVarTypes) {
  Engine e;
  e.AddCode("Class Thing : End Class\nDim o, arr, nada : Set o = New Thing : arr = Array(1) : Set nada = Nothing");
  EXPECT_EQ(Typed(e, "TypeName(o) & \",\" & TypeName(arr) & \",\" & TypeName(nada) & \",\" & TypeName(Empty)"),
            "String:Thing,Variant(),Nothing,Empty");
  EXPECT_EQ(Typed(e, "VarType(arr)"), "Integer:8204");
  EXPECT_EQ(Typed(e, "VarType(nada)"), "Integer:9");
  EXPECT_EQ(Typed(e, "VarType(\"s\") & VarType(1) & VarType(1.5) & VarType(True) & VarType(Null)"),
            "String:825111");
  EXPECT_EQ(Typed(e, "IsObject(nada) And Not IsObject(arr)"), "Boolean:True");
  EXPECT_EQ(Typed(e, "IsArray(arr) And Not IsArray(o)"), "Boolean:True");
  EXPECT_EQ(Typed(e, "TypeName(Err)"), "String:ErrObject");
  // VarType of an object with a default property is that property's type.
  e.AddCode("Class WithDefault : Public Default Property Get V() : V = \"s\" : End Property : End Class");
  EXPECT_EQ(Typed(e, "VarType(New WithDefault)"), "Integer:8");
  EXPECT_EQ(Typed(e, "VarType(o)"), "Integer:9");
}

TEST(VbsIntrinsic, ArrayBounds) {
  Engine e;
  e.AddCode("Dim m(2, 5), empty0 : empty0 = Array()");
  EXPECT_EQ(Typed(e, "LBound(m) & UBound(m) & UBound(m, 2)"), "String:025");
  EXPECT_EQ(Typed(e, "UBound(empty0)"), "Long:-1");
  EXPECT_EQ(EvalErrorOf(e, "UBound(m, 3)"), 9);
  EXPECT_EQ(EvalErrorOf(e, "UBound(5)"), 13);
  EXPECT_EQ(Typed(e, "Array(1, \"a\", Null)(1)"), "String:a");
}

TEST(VbsIntrinsic, ObjectsFromCreateObjectAndNew) {
  Engine e;
  e.AddCode(
      "Dim d : Set d = CreateObject(\"Scripting.Dictionary\")\n"
      "d(\"a\") = 1 : d.Add \"b\", 2\n"
      "Dim re : Set re = New RegExp : re.Pattern = \"(\\d+)\" : re.Global = True");
  EXPECT_EQ(Typed(e, "d.Count & d.Exists(\"b\") & Join(d.Keys, \",\")"), "String:2Truea,b");
  EXPECT_EQ(Typed(e, "re.Replace(\"a1b22\", \"<$1>\")"), "String:a<1>b<22>");
  EXPECT_EQ(Typed(e, "re.Execute(\"x12y3\").Count"), "Long:2");
  EXPECT_EQ(Typed(e, "TypeName(d)"), "String:Dictionary");
}

TEST(VbsIntrinsic, LibraryFunctionsThroughTheEngine) {
  Engine e;
  EXPECT_EQ(Typed(e, "Mid(\"abc\", 5)"), "String:");
  EXPECT_EQ(Typed(e, "Mid(\"abcdef\", 2, 100)"), "String:bcdef");
  EXPECT_EQ(Typed(e, "CStr(vbCrLf = Chr(13) & Chr(10))"), "String:True");
  EXPECT_EQ(Typed(e, "DateAdd(\"d\", 1, #2024-02-28#)"), "Date:2/29/2024");
  EXPECT_EQ(Typed(e, "Round(2.5) & Round(3.5)"), "String:24");
  EXPECT_EQ(Typed(e, "UCase(\"abc\") & \"-\" & Left(\"xyz\", 2)"), "String:ABC-xy");
}

}  // namespace
}  // namespace tessel::vbs::test
