#include <gtest/gtest.h>

#include "core/VariantArithmetic.h"

namespace tessel {
namespace {

TEST(VariantSmoke, LongAdditionAndText) {
  Variant a(2), b(3);
  Variant r = Add(a, b);
  EXPECT_EQ(r.Type(), VarType::Long);
  EXPECT_EQ(r.LongValue(), 5);
  EXPECT_EQ(Concat(r, Variant("x")).StringValue(), "5x");
}

}  // namespace
}  // namespace tessel
