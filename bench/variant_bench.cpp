// Figures for the hot paths of script evaluation: the cost of one Add on
// Longs and Doubles, one string Concat, one CStr of a Double, and a Variant
// copy of a string.
#include <benchmark/benchmark.h>

#include "core/VariantArithmetic.h"

namespace {

using tessel::Variant;

void BM_AddLong(benchmark::State& state) {
  Variant sum(0);
  const Variant one(1);
  for (auto _ : state) {
    sum = tessel::Add(sum, one);
    if (sum.LongValue() > 1000000000) sum = Variant(0);
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(BM_AddLong);

void BM_AddDouble(benchmark::State& state) {
  Variant sum(0.0);
  const Variant step(0.5);
  for (auto _ : state) {
    sum = tessel::Add(sum, step);
    benchmark::DoNotOptimize(sum);
  }
}
BENCHMARK(BM_AddDouble);

void BM_AddIntegerPromotes(benchmark::State& state) {
  const Variant a = Variant::FromInteger(1000);
  const Variant b = Variant::FromInteger(2000);
  for (auto _ : state) benchmark::DoNotOptimize(tessel::Add(a, b));
}
BENCHMARK(BM_AddIntegerPromotes);

void BM_ConcatStrings(benchmark::State& state) {
  const Variant a("customer-");
  const Variant b("000123");
  for (auto _ : state) benchmark::DoNotOptimize(tessel::Concat(a, b));
}
BENCHMARK(BM_ConcatStrings);

void BM_CStrDouble(benchmark::State& state) {
  const Variant v(1234.5678);
  for (auto _ : state) benchmark::DoNotOptimize(v.ToString());
}
BENCHMARK(BM_CStrDouble);

void BM_CopyString(benchmark::State& state) {
  const Variant v(std::string(64, 'x'));
  for (auto _ : state) {
    Variant c = v;
    benchmark::DoNotOptimize(c);
  }
}
BENCHMARK(BM_CopyString);

void BM_CompareLong(benchmark::State& state) {
  const Variant a(12345), b = Variant::FromInteger(99);
  for (auto _ : state) benchmark::DoNotOptimize(tessel::Compare(a, b));
}
BENCHMARK(BM_CompareLong);

void BM_CompareText(benchmark::State& state) {
  const Variant a("Hello World"), b("hello world");
  for (auto _ : state) benchmark::DoNotOptimize(tessel::Compare(a, b, true));
}
BENCHMARK(BM_CompareText);

}  // namespace

BENCHMARK_MAIN();
