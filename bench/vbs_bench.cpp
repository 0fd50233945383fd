// Measures the script engine's hot paths: Eval of short formulas (parse,
// compile and run each time, as record substitution requires) and a long For
// loop. Prints evaluations per second and the loop time.
#include <time.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "core/Variant.h"
#include "scripting/vbs/Engine.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// CPU time of this thread: the machine is shared, so wall time overstates.
double CpuNow() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

void BenchEval(tessel::vbs::Engine& engine, const char* label, const std::vector<std::string>& texts, int count) {
  // Warm up once so that lookups of built-ins are cached as they would be.
  engine.Eval(texts[0]);
  auto start = Clock::now();
  double cpu = CpuNow();
  for (int i = 0; i < count; ++i) {
    tessel::Variant v = engine.Eval(texts[static_cast<size_t>(i) % texts.size()]);
    (void)v;
  }
  double s = Seconds(start);
  cpu = CpuNow() - cpu;
  std::printf("%-44s %9.0f evals/s CPU (%.3f us each; wall %.3f us)\n", label, count / cpu, cpu * 1e6 / count,
              s * 1e6 / count);
}

// Texts as substitution produces them: the same formula with different values.
std::vector<std::string> Vary(const std::string& prefix, const std::string& suffix) {
  std::vector<std::string> out;
  for (int i = 0; i < 64; ++i) out.push_back(prefix + std::to_string(i) + suffix);
  return out;
}

}  // namespace

int main() {
  tessel::vbs::Engine engine;
  engine.SetTimeout(60000);
  engine.AddCode("Function IIf(sExpr, sTruePart, sFalsePart)\r\n"
                 "If sExpr Then IIf = sTruePart Else IIf = sFalsePart\r\n"
                 "End Function\r\n");
  const int n = 1000000;
  BenchEval(engine, "21*2", {"21*2"}, n);
  BenchEval(engine, "<n>*2 (varying text)", Vary("", "*2"), n);
  BenchEval(engine, "UCase(\"abc\") & \"-\" & Left(\"xyz\", 2)", {"UCase(\"abc\") & \"-\" & Left(\"xyz\", 2)"}, n);
  BenchEval(engine, "IIf(5 > 3, \"a\", \"b\")", {"IIf(5 > 3, \"a\", \"b\")"}, n);
  BenchEval(engine, "CDbl(\"12.5\") * 1.2", {"CDbl(\"12.5\") * 1.2"}, n);
  BenchEval(engine, "DateAdd(\"d\", 1, #2024-02-28#)", {"DateAdd(\"d\", 1, #2024-02-28#)"}, n);

  engine.AddCode("Function Loop10M()\r\nDim i, x\r\nx = 0\r\nFor i = 1 To 10000000\r\nx = x + i\r\nNext\r\nLoop10M = x\r\nEnd Function\r\n");
  auto start = Clock::now();
  double cpu = CpuNow();
  tessel::Variant r = engine.Eval("Loop10M()");
  std::printf("%-44s %9.3f s CPU (wall %.3f s; result %s)\n", "For 1 To 10,000,000: x = x + i (Function)",
              CpuNow() - cpu, Seconds(start), r.ToString().c_str());
  start = Clock::now();
  cpu = CpuNow();
  engine.AddCode("Dim gx, gi\r\ngx = 0\r\nFor gi = 1 To 10000000\r\ngx = gx + gi\r\nNext\r\n");
  std::printf("%-44s %9.3f s CPU (wall %.3f s; result %s)\n", "For 1 To 10,000,000: x = x + i (global)",
              CpuNow() - cpu, Seconds(start), engine.Eval("gx").ToString().c_str());
  return 0;
}
