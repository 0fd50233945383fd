#include <gtest/gtest.h>

#include "core/SafeArray.h"
#include "tests/core/TestHelpers.h"

namespace tessel {
namespace {

using testing::ErrorNumberOf;

TEST(SafeArray, BoundsAndSubscripts) {
  Variant::Bound bounds[] = {{0, 2}, {1, 4}};
  Variant a = Variant::NewArray(bounds);
  const SafeArray& arr = a.ArrayValue();
  EXPECT_EQ(arr.Dimensions(), 2u);
  EXPECT_EQ(arr.Count(), 12u);
  EXPECT_EQ(arr.LowerBound(2), 1);
  EXPECT_EQ(arr.UpperBound(2), 4);
  EXPECT_EQ(ErrorNumberOf([&] { arr.UpperBound(3); }), 9);
  int32_t ix[] = {1, 2};
  a.MutableArray().At(ix) = Variant("x");
  EXPECT_EQ(a.ArrayValue().At(ix).StringValue(), "x");
  // The first subscript varies fastest.
  EXPECT_EQ(arr.Offset(ix), 4u);
  int32_t outside[] = {3, 1};
  EXPECT_EQ(ErrorNumberOf([&] { arr.At(outside); }), 9);
  int32_t tooFew[] = {1};
  EXPECT_EQ(ErrorNumberOf([&] { arr.At(tooFew); }), 9);
  Variant::Bound negative[] = {{5, 3}};
  EXPECT_EQ(ErrorNumberOf([&] { Variant::NewArray(negative); }), 9);
  Variant::Bound none[] = {{0, -1}};
  EXPECT_EQ(Variant::NewArray(none).ArrayValue().Count(), 0u);
  Variant undimensioned = Variant::NewArray({});
  EXPECT_EQ(undimensioned.ArrayValue().Count(), 0u);
  EXPECT_EQ(ErrorNumberOf([&] { undimensioned.ArrayValue().UpperBound(1); }), 9);
}

TEST(SafeArray, AssignmentCopiesOnWrite) {
  Variant a = Variant::FromVector({Variant(1), Variant(2)});
  Variant b = a;
  int32_t zero[] = {0};
  b.MutableArray().At(zero) = Variant(99);
  EXPECT_EQ(a.ArrayValue().At(zero).LongValue(), 1);
  EXPECT_EQ(b.ArrayValue().At(zero).LongValue(), 99);
  // A sole owner writes in place.
  const SafeArray* before = &b.ArrayValue();
  b.MutableArray().At(zero) = Variant(100);
  EXPECT_EQ(&b.ArrayValue(), before);
  // Nested arrays are values too.
  Variant outer = Variant::FromVector({a});
  Variant copy = outer;
  copy.MutableArray().At(zero).MutableArray().At(zero) = Variant(7);
  EXPECT_EQ(outer.ArrayValue().At(zero).ArrayValue().At(zero).LongValue(), 1);
  EXPECT_EQ(ErrorNumberOf([] { Variant(1).MutableArray(); }), 13);
  // Replacing an array by one of its own elements keeps the element alive.
  Variant holder = Variant::FromVector({Variant(std::string(50, 'e'))});
  holder = holder.ArrayValue().At(zero);
  EXPECT_EQ(holder.StringValue(), std::string(50, 'e'));
  Variant moved = Variant::FromVector({Variant(std::string(50, 'm'))});
  moved = std::move(moved.MutableArray().At(zero));
  EXPECT_EQ(moved.StringValue(), std::string(50, 'm'));
}

TEST(SafeArray, RedimPreserveKeepsElements) {
  Variant::Bound two[] = {{0, 1}, {0, 1}};
  Variant a = Variant::NewArray(two);
  int32_t ix[] = {1, 1};
  a.MutableArray().At(ix) = Variant("keep");
  Variant::Bound grown[] = {{0, 1}, {0, 3}};
  a.MutableArray().Redim(grown, true);
  EXPECT_EQ(a.ArrayValue().At(ix).StringValue(), "keep");
  EXPECT_EQ(a.ArrayValue().Count(), 8u);
  Variant::Bound firstChanged[] = {{0, 2}, {0, 3}};
  EXPECT_EQ(ErrorNumberOf([&] { a.MutableArray().Redim(firstChanged, true); }), 9);
  a.MutableArray().Redim(firstChanged, false);
  int32_t corner[] = {2, 3};
  EXPECT_TRUE(a.ArrayValue().At(corner).IsEmpty());
  a.MutableArray().Lock();
  EXPECT_EQ(ErrorNumberOf([&] { a.MutableArray().Redim(grown, false); }), 10);
  a.MutableArray().Unlock();
  a.MutableArray().Clear();
  EXPECT_EQ(a.ArrayValue().Count(), 12u);
}

}  // namespace
}  // namespace tessel
