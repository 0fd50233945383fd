// CSV write benchmark: builds N records of 10 fields in a data document, then
// times a write transform (CSV writer, file controller) writing them as one
// file with headers and quoted strings. Prints CPU and wall nanoseconds per
// field written, output bytes per second, and how much the resident peak grew
// during the write per record. N = 100,000 and 1,000,000 by default (or the N
// given as arguments), each in a child process of its own so that its peak is
// its own.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/BenchSupport.h"
#include "audit/AuditLogger.h"
#include "job/TransformDefinition.h"
#include "output/TransformWrite.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

using namespace tessel;
using tessel::bench::CpuSeconds;
using tessel::bench::PeakResidentBytes;

namespace {

constexpr int kFields = 10;

std::shared_ptr<TransformDefinition> Definition(const std::string& folder) {
  std::string xml =
      "<TRANSFORM id=\"W\" parentid=\"\" type=\"2\"><OPTIONS>"
      "<OPTION name=\"writetype\" value=\"1\"/><OPTION name=\"committran\" value=\"\"/>"
      "<OPTION name=\"delimiter\" value=\",\"/><OPTION name=\"quotestrings\" value=\"True\"/>"
      "<OPTION name=\"newline\" value=\"1\"/><OPTION name=\"writeheaders\" value=\"True\"/></OPTIONS>"
      "<INPUTSTREAM type=\"1\"><OPTIONS><OPTION name=\"filedir\" value=\"" +
      folder +
      "\"/><OPTION name=\"filter\" value=\"bench.csv\"/><OPTION name=\"overwrite\" value=\"True\"/></OPTIONS>"
      "</INPUTSTREAM><TRANSFORMDETAIL><RECORDS><RECORD id=\"ROW\" parentid=\"\">";
  for (int f = 0; f < kFields; ++f) {
    xml += "<FIELD name=\"FIELD" + std::to_string(f) + "\" type=\"" + (f % 2 ? "1" : "3") + "\" export=\"True\"/>";
  }
  xml += "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>";
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML(xml);
  return std::make_shared<TransformDefinition>(wrapper);
}

void Run(long records) {
  using Clock = std::chrono::steady_clock;
  char pattern[] = "/tmp/tessel-write-bench-XXXXXX";
  const std::string folder = mkdtemp(pattern);
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(Definition(folder));
  std::vector<std::string> names;
  for (int f = 0; f < kFields; ++f) names.push_back("FIELD" + std::to_string(f));
  std::vector<Variant> values;
  for (int v = 0; v < 1000; ++v) values.emplace_back(v % 2 ? std::to_string(v * 7) : "value " + std::to_string(v));
  Ref<TransactionContext> context = factory->Data()->CreateContext();
  factory->SetContextToTopDataNode(*context);
  context->SetAutoUpdate(true);
  for (long r = 0; r < records; ++r) {
    Ref<Transaction> row = factory->CreateTransaction("ROW");
    for (int f = 0; f < kFields; ++f) {
      row->SetFieldValue(names[static_cast<size_t>(f)], values[static_cast<size_t>((r + f) % 1000)]);
    }
    factory->AddTransaction(*row, *context);
  }

  const long before = PeakResidentBytes();
  AuditLogger logger;
  const auto start = Clock::now();
  const double cpuStart = CpuSeconds();
  {
    TransformWrite write;
    write.CreateController(nullptr, logger, factory, false);
    write.Process();
  }
  const double cpu = CpuSeconds() - cpuStart;
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  const long after = PeakResidentBytes();
  const auto bytes = std::filesystem::file_size(std::filesystem::path(folder) / "bench.csv");
  const double fields = static_cast<double>(records) * kFields;
  std::printf("N=%-8ld write %6.1f ns/field CPU (wall %.1f)  %.1f MB/s  %.2f s CPU  file %.1f MB  "
              "peak grew %.0f bytes/record\n",
              records, cpu * 1e9 / fields, wall * 1e9 / fields, bytes / 1e6 / wall, cpu, bytes / 1e6,
              static_cast<double>(after - before) / static_cast<double>(records));
  std::fflush(stdout);
  std::filesystem::remove_all(folder);
}

}  // namespace

int main(int argc, char** argv) {
  return tessel::bench::RunSizesInOwnProcesses(argc, argv, {100000, 1000000}, Run);
}
