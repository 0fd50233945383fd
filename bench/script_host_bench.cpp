// Script host benchmark: the per-record work of a map formula. One record is
// reused; for each of N iterations its values are set afresh, then the
// expression's references are substituted (ResolveSubstitutions) and the
// result is evaluated by the engine (SimpleEvaluate). Prints, per expression,
// nanoseconds per evaluation split into substitution and evaluation (each
// step timed on its own with the monotonic clock), and the nanoseconds of the
// whole Evaluate call, which does both plus the library's current record, in
// a second pass. The record reads alone (GetFieldValues and GetType of the
// referenced fields) are timed in a first pass: the store's share of the
// substitution. N defaults to 1,000,000 (or the first argument).
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

int64_t NowNs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

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

void Run(vbWrapper& host, Transaction& row, const std::string& expression, const std::vector<std::string>& fields,
         long n) {
  // What the record's reads alone cost: the store's share of substitution.
  int64_t reads = 0;
  size_t check = 0;
  for (long i = 0; i < n; ++i) {
    SetValues(row, i);
    const int64_t t0 = NowNs();
    for (const std::string& field : fields) {
      check += row.GetFieldValues(field, 0).IsEmpty() ? 0 : 1;
      check += static_cast<size_t>(row.GetType(field));
    }
    reads += NowNs() - t0;
  }
  int64_t substitution = 0;
  int64_t evaluation = 0;
  for (long i = 0; i < n; ++i) {
    SetValues(row, i);
    const int64_t t0 = NowNs();
    std::string resolved = host.ResolveSubstitutions(expression, &row);
    const int64_t t1 = NowNs();
    Variant value = host.SimpleEvaluate(Variant(std::move(resolved)));
    const int64_t t2 = NowNs();
    substitution += t1 - t0;
    evaluation += t2 - t1;
    check += value.IsEmpty() ? 0 : 1;
  }
  const int64_t fullStart = NowNs();
  int64_t setting = 0;
  for (long i = 0; i < n; ++i) {
    const int64_t s0 = NowNs();
    SetValues(row, i);
    setting += NowNs() - s0;
    check += host.Evaluate(expression, &row, "F").IsEmpty() ? 0 : 1;
  }
  const int64_t full = NowNs() - fullStart - setting;
  std::printf(
      "%-22s n=%ld  substitution %6.1f ns (record reads %6.1f)  evaluation %7.1f ns  sum %7.1f  Evaluate %7.1f ns"
      "  [%zu]\n",
      expression.c_str(), n, static_cast<double>(substitution) / n, static_cast<double>(reads) / n,
      static_cast<double>(evaluation) / n, static_cast<double>(substitution + evaluation) / n,
      static_cast<double>(full) / n, check);
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
    Run(host, *row, "%Qty * %Price", {"Qty", "Price"}, n);
    Run(host, *row, "UCase(%Name)", {"Name"}, n);
    Run(host, *row, "%Code & \"-\" & %Seq", {"Code", "Seq"}, n);
    std::printf("cpu %.2f s, peak resident %ld KiB\n", bench::CpuSeconds() - cpu0, bench::PeakResidentBytes() / 1024);
    return 0;
  } catch (const Error& e) {
    std::fprintf(stderr, "error %d: %s\n", e.number(), e.description().c_str());
    return 1;
  }
}
