// Per-call cost of the built-ins that formulas use on every field of every
// record, called through the table the way the script machine calls them.
#include <benchmark/benchmark.h>

#include <vector>

#include "core/DateTime.h"
#include "core/Variant.h"
#include "scripting/vbs/BuiltinContext.h"
#include "scripting/vbs/BuiltinTable.h"
#include "scripting/vbs/FormatValue.h"

using tessel::Variant;
using namespace tessel::vbs;

namespace {

void RunBuiltin(benchmark::State& state, const char* name, std::vector<Variant> args) {
  const BuiltinFunction* f = FindBuiltinFunction(name);
  BuiltinContext context;
  for (auto _ : state) {
    Variant r = f->call(context, args.data(), static_cast<int>(args.size()));
    benchmark::DoNotOptimize(r);
  }
}

void BM_Lookup(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(FindBuiltinFunction("formatnumber"));
}
BENCHMARK(BM_Lookup);

void BM_Left(benchmark::State& s) {
  RunBuiltin(s, "Left", {Variant("xyz-record-field"), Variant(2)});
}
BENCHMARK(BM_Left);
void BM_Mid(benchmark::State& s) {
  RunBuiltin(s, "Mid", {Variant("customer number 000123"), Variant(17), Variant(6)});
}
BENCHMARK(BM_Mid);
void BM_UCase(benchmark::State& s) { RunBuiltin(s, "UCase", {Variant("abc def ghi")}); }
BENCHMARK(BM_UCase);
void BM_Trim(benchmark::State& s) { RunBuiltin(s, "Trim", {Variant("   padded value   ")}); }
BENCHMARK(BM_Trim);
void BM_InStr(benchmark::State& s) {
  RunBuiltin(s, "InStr", {Variant("key=value;other"), Variant(";")});
}
BENCHMARK(BM_InStr);
void BM_Replace(benchmark::State& s) {
  RunBuiltin(s, "Replace", {Variant("a,b,c,d,e,f"), Variant(","), Variant(";")});
}
BENCHMARK(BM_Replace);
void BM_CInt(benchmark::State& s) { RunBuiltin(s, "CInt", {Variant("1234")}); }
BENCHMARK(BM_CInt);
void BM_FormatNumber(benchmark::State& s) {
  RunBuiltin(s, "FormatNumber", {Variant(1234567.891), Variant(2)});
}
BENCHMARK(BM_FormatNumber);
void BM_DateAdd(benchmark::State& s) {
  RunBuiltin(s, "DateAdd", {Variant("d"), Variant(1), Variant::FromDate(45350.0)});
}
BENCHMARK(BM_DateAdd);
void BM_FormatDatePattern(benchmark::State& state) {
  Variant date = Variant::FromDate(45350.5);
  for (auto _ : state) benchmark::DoNotOptimize(FormatValue(date, "yyyy-mm-dd hh:nn:ss"));
}
BENCHMARK(BM_FormatDatePattern);
void BM_FormatNumberPattern(benchmark::State& state) {
  Variant value(1234567.891);
  for (auto _ : state) benchmark::DoNotOptimize(FormatValue(value, "#,##0.00"));
}
BENCHMARK(BM_FormatNumberPattern);

}  // namespace

BENCHMARK_MAIN();
