#include "tests/vbs/VbsTestSupport.h"

namespace tessel::vbs::test {
namespace {

TEST(VbsSmoke, EvaluatesArithmetic) {
  Engine e;
  EXPECT_EQ(Typed(e, "21*2"), "Integer:42");
  EXPECT_EQ(Typed(e, "1 + 2 * 3"), "Integer:7");
  e.AddCode("Dim x\nx = 5\nFunction F(a)\n F = a * 2\nEnd Function");
  EXPECT_EQ(Typed(e, "F(x)"), "Integer:10");
}

}  // namespace
}  // namespace tessel::vbs::test
