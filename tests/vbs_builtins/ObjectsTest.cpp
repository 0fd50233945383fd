#include <functional>
#include <vector>

#include "core/SafeArray.h"
#include "scripting/vbs/Dictionary.h"
#include "scripting/vbs/RegExp.h"
#include "tests/vbs_builtins/BuiltinCall.h"

namespace tessel::vbs::testing {
namespace {

// Calls a member by name through the dispatch interface, as a script does.
Variant Dispatch(const Ref<Object>& object, std::string_view member, InvokeKind kind,
                 std::vector<Variant> args = {}) {
  DispId id = object->GetMemberId(member);
  if (id == kDispIdUnknown) ThrowMemberNotFound();
  return object->Invoke(id, kind, args);
}

Variant Get(const Ref<Object>& o, std::string_view m, std::vector<Variant> args = {}) {
  return Dispatch(o, m, InvokeKind::PropertyGet, std::move(args));
}
Variant CallMethod(const Ref<Object>& o, std::string_view m, std::vector<Variant> args = {}) {
  return Dispatch(o, m, InvokeKind::Method, std::move(args));
}
void Let(const Ref<Object>& o, std::string_view m, std::vector<Variant> args) {
  Dispatch(o, m, InvokeKind::PropertyLet, std::move(args));
}

int32_t ErrorNumber(const std::function<void()>& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

std::vector<std::string> Walk(const Ref<Object>& collection) {
  Ref<Object> e = collection->NewEnum();
  auto* enumerator = static_cast<Enumerator*>(e.get());
  std::vector<std::string> out;
  Variant v;
  while (enumerator->Next(v))
    out.push_back(v.IsObject() ? v.Dereference().ToString() : v.ToString());
  return out;
}

std::string JoinArray(const Variant& array) {
  std::string s;
  for (const Variant& v : array.ArrayValue().Elements()) s += (s.empty() ? "" : ",") + v.ToString();
  return s;
}

TEST(Dictionary, KeepsInsertionOrderThroughRemoval) {
  Ref<Object> d = CreateDictionary();
  EXPECT_EQ(d->TypeName(), "Dictionary");
  for (const char* k : {"b", "a", "c", "d"})
    CallMethod(d, "Add", {Str(k), Str(std::string(k) + "!")});
  CallMethod(d, "Remove", {Str("a")});
  CallMethod(d, "Add", {Str("a"), Variant(1)});
  EXPECT_EQ(JoinArray(CallMethod(d, "Keys")), "b,c,d,a");
  EXPECT_EQ(JoinArray(CallMethod(d, "Items")), "b!,c!,d!,1");
  EXPECT_EQ(Walk(d), (std::vector<std::string>{"b", "c", "d", "a"}));
  EXPECT_EQ(Get(d, "COUNT").LongValue(), 4);
  EXPECT_EQ(Get(d, "Count").Type(), VarType::Long);
  CallMethod(d, "RemoveAll");
  EXPECT_EQ(Get(d, "Count").LongValue(), 0);
  EXPECT_EQ(Call("UBound", {CallMethod(d, "Keys")}).LongValue(), -1);
}

TEST(Dictionary, ItemReadsCreateAndWritesReplace) {
  Ref<Object> d = CreateDictionary();
  // Item is the default member: d("x") reads through id 0.
  EXPECT_EQ(d->GetMemberId("item"), kDispIdDefault);
  std::vector<Variant> keyArgs{Str("x")};
  Variant missing = d->Invoke(kDispIdDefault, InvokeKind::PropertyGet, keyArgs);
  EXPECT_TRUE(missing.IsEmpty());
  EXPECT_TRUE(CallMethod(d, "Exists", {Str("x")}).BooleanValue());
  Let(d, "Item", {Str("x"), Variant(5)});
  Let(d, "Item", {Str("y"), Variant(6)});
  EXPECT_EQ(Get(d, "Item", {Str("x")}).LongValue(), 5);
  EXPECT_EQ(JoinArray(CallMethod(d, "Keys")), "x,y");
  Let(d, "Key", {Str("x"), Str("z")});
  EXPECT_EQ(JoinArray(CallMethod(d, "Keys")), "z,y");
  EXPECT_EQ(Get(d, "Item", {Str("z")}).LongValue(), 5);
  EXPECT_FALSE(CallMethod(d, "Exists", {Str("x")}).BooleanValue());
}

TEST(Dictionary, KeysByValueAndCompareMode) {
  Ref<Object> d = CreateDictionary();
  CallMethod(d, "Add", {Int16(1), Str("one")});
  // An Integer 1 and a Long 1 and a Double 1 are the same key; "1" is not.
  EXPECT_TRUE(CallMethod(d, "Exists", {Variant(1)}).BooleanValue());
  EXPECT_TRUE(CallMethod(d, "Exists", {Variant(1.0)}).BooleanValue());
  EXPECT_FALSE(CallMethod(d, "Exists", {Str("1")}).BooleanValue());
  EXPECT_FALSE(CallMethod(d, "Exists", {Str("ONE")}).BooleanValue());
  CallMethod(d, "Add", {Str("1"), Str("text")});
  EXPECT_EQ(Get(d, "Count").LongValue(), 2);

  Ref<Object> text = CreateDictionary();
  Let(text, "CompareMode", {Variant(1)});
  EXPECT_EQ(Get(text, "CompareMode").LongValue(), 1);
  CallMethod(text, "Add", {Str("Key"), Variant(1)});
  EXPECT_TRUE(CallMethod(text, "Exists", {Str("KEY")}).BooleanValue());
  EXPECT_EQ(ErrorNumber([&] { CallMethod(text, "Add", {Str("kEy"), Variant(2)}); }), 457);
  EXPECT_EQ(JoinArray(CallMethod(text, "Keys")), "Key");

  Ref<Object> o1 = CreateDictionary(), o2 = CreateDictionary();
  CallMethod(d, "Add", {Variant(o1), Variant(1)});
  EXPECT_TRUE(CallMethod(d, "Exists", {Variant(o1)}).BooleanValue());
  EXPECT_FALSE(CallMethod(d, "Exists", {Variant(o2)}).BooleanValue());
}

TEST(Dictionary, Errors) {
  Ref<Object> d = CreateDictionary();
  CallMethod(d, "Add", {Str("a"), Variant(1)});
  try {
    CallMethod(d, "Add", {Str("a"), Variant(2)});
    ADD_FAILURE() << "duplicate key accepted";
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 457);
    EXPECT_EQ(e.description(), "This key is already associated with an element of this collection");
  }
  try {
    CallMethod(d, "Remove", {Str("zz")});
    ADD_FAILURE() << "missing key removed";
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 32811);
    EXPECT_EQ(e.description(), "Element not found");
  }
  EXPECT_EQ(ErrorNumber([&] { Let(d, "Key", {Str("zz"), Str("y")}); }), 32811);
  CallMethod(d, "Add", {Str("b"), Variant(2)});
  EXPECT_EQ(ErrorNumber([&] { Let(d, "Key", {Str("a"), Str("b")}); }), 457);
  EXPECT_EQ(ErrorNumber([&] { Let(d, "CompareMode", {Variant(1)}); }), 5);
  EXPECT_EQ(ErrorNumber([&] { CallMethod(d, "NoSuchMember"); }), 438);
  EXPECT_EQ(ErrorNumber([&] { CallMethod(d, "Add", {Str("c")}); }), 450);
  EXPECT_EQ(ErrorNumber([&] { CallMethod(d, "Add", {Call("Array", {}), Variant(1)}); }), 13);
}

TEST(Dictionary, EnumerationSurvivesRemoval) {
  Ref<Object> d = CreateDictionary();
  for (int i = 0; i < 5; ++i) CallMethod(d, "Add", {Variant(i), Variant(i * i)});
  Ref<Object> e = d->NewEnum();
  auto* enumerator = static_cast<Enumerator*>(e.get());
  Variant key;
  int seen = 0;
  while (enumerator->Next(key)) {
    CallMethod(d, "Remove", {key});
    ++seen;
  }
  EXPECT_EQ(seen, 5);
  EXPECT_EQ(Get(d, "Count").LongValue(), 0);
}

Ref<Object> MakeRegExp(std::string_view pattern, bool global = false, bool ignoreCase = false,
                       bool multiline = false) {
  Ref<Object> re = CreateRegExp();
  Let(re, "Pattern", {Str(pattern)});
  Let(re, "Global", {Variant(global)});
  Let(re, "IgnoreCase", {Variant(ignoreCase)});
  Let(re, "Multiline", {Variant(multiline)});
  return re;
}

TEST(RegExp, TestAndProperties) {
  Ref<Object> re = MakeRegExp("^ab+c$");
  EXPECT_EQ(re->TypeName(), "IRegExp2");
  EXPECT_TRUE(CallMethod(re, "Test", {Str("abbbc")}).BooleanValue());
  EXPECT_FALSE(CallMethod(re, "Test", {Str("ABC")}).BooleanValue());
  Let(re, "IgnoreCase", {Variant(true)});
  EXPECT_TRUE(CallMethod(re, "Test", {Str("ABC")}).BooleanValue());
  EXPECT_EQ(Get(re, "Pattern").StringValue(), "^ab+c$");
  EXPECT_TRUE(Get(re, "ignorecase").BooleanValue());
  // $ outside Multiline is the very end, not before a final line break.
  EXPECT_FALSE(CallMethod(re, "Test", {Str("abc\n")}).BooleanValue());
  Ref<Object> lines = MakeRegExp("^b$", false, false, true);
  EXPECT_TRUE(CallMethod(lines, "Test", {Str("a\r\nb\r\nc")}).BooleanValue());
  Ref<Object> single = MakeRegExp("^b$");
  EXPECT_FALSE(CallMethod(single, "Test", {Str("a\nb\nc")}).BooleanValue());
  EXPECT_FALSE(CallMethod(MakeRegExp("a.b"), "Test", {Str("a\nb")}).BooleanValue());
  // The JScript dialect: [^] is any character, \u and \x take hex digits.
  EXPECT_TRUE(CallMethod(MakeRegExp("a[^]b"), "Test", {Str("a\nb")}).BooleanValue());
  EXPECT_TRUE(CallMethod(MakeRegExp("\\u00e9\\x41"), "Test",
                         {Str("\xC3\xA9"
                              "A")})
                  .BooleanValue());
}

TEST(RegExp, ExecuteMatchesAndSubMatches) {
  Ref<Object> re = MakeRegExp("(\\w+)@(\\w+)(\\.org)?", true);
  Variant matches = CallMethod(re, "Execute", {Str("mail ann@example or bob@site.org")});
  Ref<Object> collection = matches.ObjectRef();
  EXPECT_EQ(collection->TypeName(), "IMatchCollection2");
  ASSERT_EQ(Get(collection, "Count").LongValue(), 2);
  Ref<Object> first = Get(collection, "Item", {Variant(0)}).ObjectRef();
  EXPECT_EQ(first->TypeName(), "IMatch2");
  EXPECT_EQ(Get(first, "Value").StringValue(), "ann@example");
  EXPECT_EQ(Get(first, "FirstIndex").LongValue(), 5);
  EXPECT_EQ(Get(first, "Length").LongValue(), 11);
  Ref<Object> subs = Get(first, "SubMatches").ObjectRef();
  ASSERT_EQ(Get(subs, "Count").LongValue(), 3);
  EXPECT_EQ(Get(subs, "Item", {Variant(0)}).StringValue(), "ann");
  EXPECT_EQ(Get(subs, "Item", {Variant(1)}).StringValue(), "example");
  EXPECT_TRUE(Get(subs, "Item", {Variant(2)}).IsEmpty());
  std::vector<Variant> index{Variant(1)};
  Ref<Object> second =
      collection->Invoke(kDispIdDefault, InvokeKind::PropertyGet, index).ObjectRef();
  EXPECT_EQ(second->Invoke(kDispIdDefault, InvokeKind::PropertyGet, {}).StringValue(),
            "bob@site.org");
  EXPECT_EQ(Walk(collection), (std::vector<std::string>{"ann@example", "bob@site.org"}));
  EXPECT_EQ(Walk(Get(second, "SubMatches").ObjectRef()),
            (std::vector<std::string>{"bob", "site", ".org"}));
  EXPECT_EQ(ErrorNumber([&] { Get(collection, "Item", {Variant(2)}); }), 5);

  // Without Global only the first match is returned.
  Let(re, "Global", {Variant(false)});
  EXPECT_EQ(Get(CallMethod(re, "Execute", {Str("a@b c@d")}).ObjectRef(), "Count").LongValue(), 1);
}

TEST(RegExp, PositionsCountUtf16Units) {
  Ref<Object> re = MakeRegExp("x", true);
  Ref<Object> matches = CallMethod(re, "Execute", {Str("\xC3\xA9\xF0\x9F\x98\x80x")}).ObjectRef();
  ASSERT_EQ(Get(matches, "Count").LongValue(), 1);
  EXPECT_EQ(Get(Get(matches, "Item", {Variant(0)}).ObjectRef(), "FirstIndex").LongValue(), 3);
  // An empty pattern matches between every character, once per position.
  Ref<Object> empty = MakeRegExp("", true);
  EXPECT_EQ(Get(CallMethod(empty, "Execute", {Str("ab")}).ObjectRef(), "Count").LongValue(), 3);
}

TEST(RegExp, Replace) {
  Ref<Object> re = MakeRegExp("(\\d+)-(\\d+)", true);
  EXPECT_EQ(CallMethod(re, "Replace", {Str("1-2 and 30-40"), Str("$2-$1")}).StringValue(),
            "2-1 and 40-30");
  EXPECT_EQ(CallMethod(re, "Replace", {Str("1-2"), Str("[$&] $$ $3 $0")}).StringValue(),
            "[1-2] $ $3 $0");
  EXPECT_EQ(CallMethod(re, "Replace", {Str("a1-2b"), Str("<$`|$'>")}).StringValue(), "a<a|b>b");
  Let(re, "Global", {Variant(false)});
  EXPECT_EQ(CallMethod(re, "Replace", {Str("1-2 3-4"), Str("x")}).StringValue(), "x 3-4");
  Ref<Object> words = MakeRegExp("o", true, true);
  EXPECT_EQ(CallMethod(words, "Replace", {Str("fOo bar"), Str("0")}).StringValue(), "f00 bar");
  Ref<Object> twelve = MakeRegExp("(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)(l)");
  EXPECT_EQ(CallMethod(twelve, "Replace", {Str("abcdefghijkl"), Str("$12$1")}).StringValue(), "la");
}

TEST(RegExp, BadPatternsAndRunawayMatches) {
  EXPECT_EQ(ErrorNumber([] { CallMethod(MakeRegExp("(ab"), "Test", {Str("ab")}); }), 5020);
  EXPECT_EQ(ErrorNumber([] { CallMethod(MakeRegExp("[ab"), "Test", {Str("ab")}); }), 5019);
  EXPECT_EQ(ErrorNumber([] { CallMethod(MakeRegExp("*a"), "Test", {Str("ab")}); }), 5018);
  EXPECT_EQ(ErrorNumber([] { CallMethod(MakeRegExp("[z-a]"), "Test", {Str("ab")}); }), 5021);
  std::string subject(40, 'a');
  subject += "!";
  int32_t runaway =
      ErrorNumber([&] { CallMethod(MakeRegExp("^(a|a?)+$"), "Test", {Str(subject)}); });
  EXPECT_EQ(runaway, 5);
}

}  // namespace
}  // namespace tessel::vbs::testing

namespace tessel::vbs::testing {
namespace {

TEST(BuiltinsOnObjects, DefaultValuesStandForTheObject) {
  Ref<Object> re = CreateRegExp();
  std::vector<Variant> pattern{Str("b+")};
  re->Invoke(re->GetMemberId("Pattern"), InvokeKind::PropertyLet, pattern);
  std::vector<Variant> subject{Str("abbbc")};
  Variant matches = re->Invoke(re->GetMemberId("Execute"), InvokeKind::Method, subject);
  std::vector<Variant> first{Variant(0)};
  Variant match = matches.ObjectPtr()->Invoke(kDispIdDefault, InvokeKind::PropertyGet, first);
  // A Match's default member is its Value.
  ExpectValue(Call("VarType", {match}), Int16(8), "VarType(match)");
  ExpectValue(Call("TypeName", {match}), Str("IMatch2"), "TypeName(match)");
  ExpectValue(Call("Len", {match}), Variant(3), "Len(match)");
  ExpectValue(Call("UCase", {match}), Str("BBB"), "UCase(match)");
  ExpectValue(Call("IsObject", {match}), Variant(true), "IsObject(match)");
  // A Dictionary's default member needs a key: VarType reports an object.
  Variant dictionary(CreateDictionary());
  ExpectValue(Call("VarType", {dictionary}), Int16(9), "VarType(dictionary)");
  ExpectValue(Call("TypeName", {dictionary}), Str("Dictionary"), "TypeName(dictionary)");
  ExpectValue(Call("VarType", {Variant::Nothing()}), Int16(9), "VarType(Nothing)");
  ExpectValue(Call("TypeName", {Variant::Nothing()}), Str("Nothing"), "TypeName(Nothing)");
  EXPECT_EQ(ErrorOf("Len", {Variant::Nothing()}), 91);
}

}  // namespace
}  // namespace tessel::vbs::testing

namespace tessel::vbs::testing {
namespace {

// An object whose default property counts its reads, like a script class
// with a Property Get that has side effects.
class CountingObject : public Object {
 public:
  explicit CountingObject(Variant value) : value_(std::move(value)) {}
  std::string TypeName() const override { return "Counter"; }
  Variant Invoke(DispId id, InvokeKind, std::span<Variant>) override {
    if (id != kDispIdDefault) ThrowMemberNotFound();
    ++reads;
    return value_;
  }
  int reads = 0;

 private:
  Variant value_;
};

TEST(BuiltinsOnObjects, DefaultValueIsReadOnce) {
  struct Case {
    std::string_view name;
    std::vector<Variant> extra;
  };
  const Case cases[] = {{"Len", {}},
                        {"UCase", {}},
                        {"Trim", {}},
                        {"Left", {Variant(2)}},
                        {"Mid", {Variant(2)}},
                        {"InStr", {Str("b")}},
                        {"StrComp", {Str("x")}},
                        {"Replace", {Str("b"), Str("c")}},
                        {"Year", {}},
                        {"Abs", {}},
                        {"CInt", {}},
                        {"FormatNumber", {}},
                        {"Hex", {}},
                        {"Round", {}}};
  for (const Case& c : cases) {
    bool numeric = c.name == "Year" || c.name == "Abs" || c.name == "CInt" ||
                   c.name == "FormatNumber" || c.name == "Hex" || c.name == "Round";
    Ref<CountingObject> counter = MakeRef<CountingObject>(numeric ? Variant(12345) : Str("abc"));
    std::vector<Variant> args{Variant(counter)};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    Call(c.name, args);
    EXPECT_EQ(counter->reads, 1) << c.name;
  }
}

}  // namespace
}  // namespace tessel::vbs::testing
