// Script host benchmark: the per-record work of a map formula. One record is
// reused; for each of N iterations its values are set afresh, then the
// expression's references are substituted (ResolveSubstitutions) and the
// result is evaluated by the engine (SimpleEvaluate). Prints, per expression,
// nanoseconds per evaluation split into substitution and evaluation, the
// record reads alone (GetFieldValues and GetType of the referenced fields:
// the store's share of the substitution), and the whole Evaluate call, which
// does both and sets the library's current record. Each step is timed on its
// own with the monotonic clock (the cost of the clock is measured and taken
// off), so setting the values is not counted; figures are the mean and the
// best batch of 10,000. N defaults to 1,000,000 (or the first argument).
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "bench/BenchSupport.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"
#include "job/TransformDefinition.h"
#include "scripting/vbWrapper.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

using namespace tessel;
namespace fs = std::filesystem;

namespace {

std::shared_ptr<TransactionFactory> MakeFactory() {
  auto definition = MakeRef<XMLWrapper>();
  definition->LoadXML(
      "<TRANSFORM id=\"B\"><TRANSFORMDETAIL><RECORDS><RECORD id=\"ROW\" parentid=\"\">"
      "<FIELD name=\"Qty\" type=\"1\"/><FIELD name=\"Price\" type=\"2\"/><FIELD name=\"Name\" type=\"3\"/>"
      "<FIELD name=\"Code\" type=\"3\"/><FIELD name=\"Seq\" type=\"1\"/>"
      "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(std::make_shared<TransformDefinition>(definition));
  return factory;
}

// A configuration folder with an empty function library, for the life of
// the benchmark.
struct Configuration {
  Configuration() {
    folder = fs::temp_directory_path() / ("tessel-bench-" + std::to_string(::getpid()));
    for (const char* sub : {"debug", "jobs", "conf"}) fs::create_directories(folder / sub);
    AppConfig::Write(folder.string(), {{"DEFCHARSET", "utf-8"},
                                       {"DEBUGPATH", (folder / "debug").string()},
                                       {"WORKPATH", (folder / "jobs").string()},
                                       {"JOBCONFPATH", (folder / "conf").string()},
                                       {"DBCONAX", "sqlite:" + (folder / "tessel.db").string()}});
    std::ofstream(folder / "conf" / "functionh.xml") << "<?xml version=\"1.0\"?>\n<FUNCTIONS/>\n";
    ::setenv(RegistryWrapper::kEnvironmentVariable, folder.c_str(), 1);
  }
  ~Configuration() {
    std::error_code ec;
    fs::remove_all(folder, ec);
  }
  fs::path folder;
};

void SetValues(Transaction& row, long i) {
  row.SetFieldValue("Qty", Variant(static_cast<int32_t>(i % 97)));
  row.SetFieldValue("Price", Variant(std::to_string(i % 1000) + ".25"));
  row.SetFieldValue("Name", Variant(i % 2 ? "smith" : "o\"neil"));
  row.SetFieldValue("Code", Variant("C" + std::to_string(i % 50)));
  row.SetFieldValue("Seq", Variant(static_cast<int32_t>(i)));
}

int64_t NowNs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// Per-iteration times of one step: the mean over all iterations and the
// lowest mean of a batch of kBatch iterations. The machine is shared, so the
// best batch is the figure least disturbed by the neighbours.
class StepTimes {
 public:
  static constexpr long kBatch = 10000;
  explicit StepTimes(double clockCost) : clockCost_(clockCost) {}
  void Add(int64_t ns) {
    total_ += ns;
    batch_ += ns;
    if (++inBatch_ == kBatch) {
      best_ = std::min(best_, static_cast<double>(batch_) / kBatch - clockCost_);
      batch_ = 0;
      inBatch_ = 0;
    }
    ++count_;
  }
  double Mean() const { return static_cast<double>(total_) / static_cast<double>(count_) - clockCost_; }
  double Best() const { return best_ == std::numeric_limits<double>::max() ? Mean() : best_; }

 private:
  double clockCost_;
  int64_t total_ = 0;
  int64_t batch_ = 0;
  long inBatch_ = 0;
  long count_ = 0;
  double best_ = std::numeric_limits<double>::max();
};

// What a pair of clock readings costs by itself.
double ClockCost() {
  const long n = 1000000;
  int64_t total = 0;
  for (long i = 0; i < n; ++i) {
    const int64_t t0 = NowNs();
    total += NowNs() - t0;
  }
  return static_cast<double>(total) / n;
}

void Run(vbWrapper& host, Transaction& row, const std::string& expression, const std::vector<std::string>& fields,
         long n, double clockCost) {
  size_t check = 0;
  StepTimes reads(clockCost), substitution(clockCost), evaluation(clockCost), whole(clockCost);
  for (long i = 0; i < n; ++i) {
    SetValues(row, i);
    const int64_t t0 = NowNs();
    for (const std::string& field : fields) {
      check += row.GetFieldValues(field, 0).IsEmpty() ? 0 : 1;
      check += static_cast<size_t>(row.GetType(field));
    }
    reads.Add(NowNs() - t0);
  }
  for (long i = 0; i < n; ++i) {
    SetValues(row, i);
    const int64_t t0 = NowNs();
    std::string resolved = host.ResolveSubstitutions(expression, &row);
    const int64_t t1 = NowNs();
    check += host.SimpleEvaluate(Variant(std::move(resolved))).IsEmpty() ? 0 : 1;
    const int64_t t2 = NowNs();
    substitution.Add(t1 - t0);
    evaluation.Add(t2 - t1);
  }
  for (long i = 0; i < n; ++i) {
    SetValues(row, i);
    const int64_t t0 = NowNs();
    check += host.Evaluate(expression, &row, "F").IsEmpty() ? 0 : 1;
    whole.Add(NowNs() - t0);
  }
  std::printf("%-20s n=%ld  ns per evaluation, mean (best batch):\n", expression.c_str(), n);
  std::printf("    substitution %7.1f (%7.1f)   of which record reads %7.1f (%7.1f)\n", substitution.Mean(),
              substitution.Best(), reads.Mean(), reads.Best());
  std::printf("    evaluation   %7.1f (%7.1f)\n", evaluation.Mean(), evaluation.Best());
  std::printf("    Evaluate     %7.1f (%7.1f)   [%zu]\n", whole.Mean(), whole.Best(), check);
}

}  // namespace

int main(int argc, char** argv) {
  long n = argc > 1 ? std::atol(argv[1]) : 1000000;
  try {
    Configuration configuration;
    std::shared_ptr<TransactionFactory> factory = MakeFactory();
    Ref<Transaction> row = factory->CreateTransaction("ROW");
    vbWrapper host;
    host.Initialize("B", false, nullptr, 60);
    const double cpu0 = bench::CpuSeconds();
    const double clockCost = ClockCost();
    std::printf("clock reading pair: %.1f ns (taken off every figure)\n", clockCost);
    Run(host, *row, "%Qty * %Price", {"Qty", "Price"}, n, clockCost);
    Run(host, *row, "UCase(%Name)", {"Name"}, n, clockCost);
    Run(host, *row, "%Code & \"-\" & %Seq", {"Code", "Seq"}, n, clockCost);
    std::printf("cpu %.2f s, peak resident %ld KiB\n", bench::CpuSeconds() - cpu0, bench::PeakResidentBytes() / 1024);
    return 0;
  } catch (const Error& e) {
    std::fprintf(stderr, "error %d: %s\n", e.number(), e.description().c_str());
    return 1;
  }
}
