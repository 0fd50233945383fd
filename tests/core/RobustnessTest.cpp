// Arbitrary input must end in a value or a numbered tessel::Error, never in a
// crash or another exception type.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "core/BooleanText.h"
#include "core/DateTime.h"
#include "core/VariantArithmetic.h"

namespace tessel {
namespace {

std::string RandomText(std::mt19937& rng) {
  static const std::string kAlphabet = "0123456789:/-., +eEdDhH&aApPmMFebJanTrue\t";
  std::uniform_int_distribution<size_t> len(0, 24), pick(0, kAlphabet.size() - 1);
  std::string s;
  for (size_t n = len(rng); n > 0; --n) s.push_back(kAlphabet[pick(rng)]);
  return s;
}

Variant RandomValue(std::mt19937& rng) {
  std::uniform_int_distribution<int> kind(0, 13);
  std::uniform_int_distribution<int32_t> i32;
  std::uniform_real_distribution<double> real(-1e6, 1e6);
  switch (kind(rng)) {
    case 0: return Variant();
    case 1: return Variant::Null();
    case 2: return Variant::FromInteger(static_cast<int16_t>(i32(rng)));
    case 3: return Variant(i32(rng));
    case 4: return Variant::FromSingle(static_cast<float>(real(rng)));
    case 5: return Variant(real(rng) * (i32(rng) % 2 ? 1e300 : 1));
    case 6: return Variant::FromCurrency(Currency::FromRaw(static_cast<int64_t>(i32(rng)) * i32(rng)));
    case 7: return Variant::FromDate(real(rng));
    case 8: return Variant(RandomText(rng));
    case 9: return Variant(i32(rng) % 2 == 0);
    case 10: return Variant::FromDecimal(Decimal(static_cast<uint32_t>(i32(rng)), static_cast<uint64_t>(i32(rng)) << 20,
                                                 static_cast<uint8_t>(static_cast<uint32_t>(i32(rng)) % 29), i32(rng) < 0));
    case 11: return Variant::FromByte(static_cast<uint8_t>(i32(rng)));
    case 12: return Variant::FromVector({Variant(1)});
    default: return Variant::Missing();
  }
}

TEST(Robustness, TextParsersAcceptOrRefuse) {
  std::mt19937 rng(20240228);
  for (int i = 0; i < 20000; ++i) {
    std::string s = RandomText(rng);
    auto date = DateTime::Parse(s);
    if (date) {
      EXPECT_TRUE(DateTime::IsValid(*date)) << s;
      EXPECT_FALSE(DateTime::Format(*date).empty());
    }
    if (auto n = ParseNumericText(s)) {
      EXPECT_TRUE(std::isfinite(*n)) << s;
    }
    BooleanText::TryParse(s);
    try {
      Decimal d;
      Decimal::Parse(s, d);
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), 6) << s;
    }
  }
}

TEST(Robustness, OperatorsRaiseOnlyNumberedErrors) {
  using Binary = Variant (*)(const Variant&, const Variant&);
  const Binary ops[] = {Add, Subtract, Multiply, Divide, IntDivide, Mod, Power, Concat, And, Or, Xor, Eqv, Imp};
  std::mt19937 rng(7);
  int errors = 0, values = 0;
  for (int i = 0; i < 20000; ++i) {
    Variant a = RandomValue(rng), b = RandomValue(rng);
    for (Binary op : ops) {
      try {
        Variant r = op(a, b);
        ++values;
        if (!r.IsNull() && !r.IsArray()) r.ToString();
      } catch (const Error& e) {
        ++errors;
        EXPECT_TRUE(e.number() == 5 || e.number() == 6 || e.number() == 11 || e.number() == 13) << e.number();
      }
    }
    try {
      Compare(a, b, i % 2 == 0);
      Negate(a);
      Not(b);
      a.ToDate();
    } catch (const Error& e) {
      EXPECT_TRUE(e.number() == 5 || e.number() == 6 || e.number() == 13 || e.number() == 94) << e.number();
    }
  }
  EXPECT_GT(values, 0);
  EXPECT_GT(errors, 0);
}

}  // namespace
}  // namespace tessel
