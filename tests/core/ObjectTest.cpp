#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"
#include "core/VariantArithmetic.h"
#include "tests/core/TestHelpers.h"

namespace tessel {
namespace {

using testing::ErrorNumberOf;

// Records its destruction in a shared log; may hold another object.
class Node : public Object {
 public:
  Node(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}
  ~Node() override { log_.push_back("~" + name_); }
  std::string TypeName() const override { return "Node"; }
  Ref<Object> child;

 protected:
  void Terminate() noexcept override { log_.push_back("terminate " + name_); }

 private:
  std::string name_;
  std::vector<std::string>& log_;
};

// Stores itself into a global slot when terminated, the way a script's
// Class_Terminate may do with "Set g = Me".
class Phoenix : public Object {
 public:
  explicit Phoenix(Ref<Object>& slot, int& destroyed) : slot_(slot), destroyed_(destroyed) {}
  ~Phoenix() override { ++destroyed_; }
  std::string TypeName() const override { return "Phoenix"; }

 protected:
  void Terminate() noexcept override {
    if (!revived_) {
      revived_ = true;
      slot_ = Ref<Object>(this);
    }
  }

 private:
  Ref<Object>& slot_;
  int& destroyed_;
  bool revived_ = false;
};

// A host object with a default property and one method.
class Counter : public Object {
 public:
  std::string TypeName() const override { return "Counter"; }
  DispId GetMemberId(std::string_view name) override {
    if (name.size() == 5 && (name[0] | 0x20) == 'v' && name.substr(1) == "alue") return kDispIdDefault;
    if (name == "Bump" || name == "bump" || name == "BUMP") return 1;
    return kDispIdUnknown;
  }
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override {
    if (id == kDispIdDefault && kind == InvokeKind::PropertyGet) return Variant(value_);
    if (id == kDispIdDefault && kind == InvokeKind::PropertyLet) {
      value_ = args.back().ToLong();
      return Variant();
    }
    if (id == 1 && kind == InvokeKind::Method) {
      value_ += args.empty() ? 1 : args[0].ToLong();
      if (args.size() > 1) args[1] = Variant(value_);  // ByRef result
      return Variant(value_);
    }
    ThrowMemberNotFound();
  }

 private:
  int32_t value_ = 0;
};

TEST(Object, LastReleaseTerminatesThenDestroys) {
  std::vector<std::string> log;
  {
    Ref<Node> a = MakeRef<Node>("a", log);
    EXPECT_EQ(a->RefCount(), 1u);
    Variant v(a);
    Variant w = v;
    EXPECT_EQ(a->RefCount(), 3u);
    EXPECT_EQ(w.TypeName(), "Node");
    a.reset();
    v = Variant();
    EXPECT_TRUE(log.empty());
  }
  EXPECT_EQ(log, (std::vector<std::string>{"terminate a", "~a"}));
}

TEST(Object, ParentReleasesChildAfterItsOwnTerminate) {
  std::vector<std::string> log;
  {
    Ref<Node> parent = MakeRef<Node>("parent", log);
    parent->child = MakeRef<Node>("child", log);
  }
  EXPECT_EQ(log, (std::vector<std::string>{"terminate parent", "~parent", "terminate child", "~child"}));
}

TEST(Object, CycleThroughDestructorDoesNotDoubleFree) {
  std::vector<std::string> log;
  {
    Ref<Node> a = MakeRef<Node>("a", log);
    Ref<Node> b = MakeRef<Node>("b", log);
    a->child = b;
    b->child = a;
    b.reset();
    // Break the cycle from outside, as the engine does at the end of a run.
    Ref<Object> keep = a->child;
    a->child = nullptr;
    static_cast<Node*>(keep.get())->child = nullptr;
  }
  EXPECT_EQ(log.size(), 4u);
}

// Walks 1..n.
class Range : public Enumerator {
 public:
  explicit Range(int n) : n_(n) {}
  bool Next(Variant& out) override {
    if (i_ >= n_) return false;
    out = Variant(++i_);
    return true;
  }

 private:
  int n_;
  int i_ = 0;
};

class RangeCollection : public Object {
 public:
  std::string TypeName() const override { return "RangeCollection"; }
  Ref<Object> NewEnum() override { return MakeRef<Range>(3); }
};

TEST(Object, EnumeratorThroughNewEnum) {
  Ref<Object> collection = MakeRef<RangeCollection>();
  Ref<Enumerator> e = RefCast<Enumerator>(collection->NewEnum());
  ASSERT_TRUE(e);
  EXPECT_FALSE(RefCast<Enumerator>(collection));
  int sum = 0;
  for (Variant v; e->Next(v);) sum += v.LongValue();
  EXPECT_EQ(sum, 6);
}

// Hands itself out while being destroyed, as a destructor that calls a
// function taking a Ref would.
class SelfReferencing : public Object {
 public:
  explicit SelfReferencing(int& destroyed) : destroyed_(destroyed) {}
  ~SelfReferencing() override {
    Ref<Object> self(this);
    Variant alsoSelf(self);
    ++destroyed_;
  }
  std::string TypeName() const override { return "SelfReferencing"; }

 private:
  int& destroyed_;
};

TEST(Object, ReferencesTakenDuringDestructionAreHarmless) {
  int destroyed = 0;
  { Ref<Object> r = MakeRef<SelfReferencing>(destroyed); }
  EXPECT_EQ(destroyed, 1);
}

TEST(Object, TerminateMayKeepTheObjectAlive) {
  Ref<Object> slot;
  int destroyed = 0;
  {
    Ref<Phoenix> p = MakeRef<Phoenix>(slot, destroyed);
  }
  EXPECT_EQ(destroyed, 0);
  ASSERT_TRUE(slot);
  EXPECT_EQ(slot->RefCount(), 1u);
  slot = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(Object, DispatchAndDefaultProperty) {
  Ref<Counter> c = MakeRef<Counter>();
  DispId bump = c->GetMemberId("BUMP");
  ASSERT_EQ(bump, 1);
  std::vector<Variant> args{Variant(5), Variant()};
  EXPECT_EQ(c->Invoke(bump, InvokeKind::Method, args).LongValue(), 5);
  EXPECT_EQ(args[1].LongValue(), 5);
  Variant v(c);
  EXPECT_EQ(v.ToLong(), 5);
  EXPECT_EQ(v.ToString(), "5");
  EXPECT_EQ(Add(v, Variant(1)).LongValue(), 6);
  EXPECT_EQ(Compare(v, Variant(5)), CompareResult::Equal);
  EXPECT_EQ(c->GetMemberId("nothing"), kDispIdUnknown);
  EXPECT_EQ(ErrorNumberOf([&] { c->Invoke(7, InvokeKind::Method, {}); }), 438);
  EXPECT_EQ(ErrorNumberOf([&] { c->NewEnum(); }), 451);
  EXPECT_EQ(ErrorNumberOf([] { Variant::Nothing().ToLong(); }), 91);
  std::vector<std::string> log;
  Variant plain(MakeRef<Node>("n", log));
  EXPECT_EQ(ErrorNumberOf([&] { plain.ToString(); }), 438);
}

TEST(Object, ErrorCarriesScriptRuntimeText) {
  try {
    Variant("abc").ToDouble();
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 13);
    EXPECT_EQ(e.description(), "Type mismatch");
    EXPECT_EQ(e.source(), "Microsoft VBScript runtime error");
  }
}

}  // namespace
}  // namespace tessel
