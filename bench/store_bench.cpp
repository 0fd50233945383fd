// Record store benchmark: builds N records of 10 fields through
// CreateTransaction, SetFieldValue and AddTransaction, then walks them with a
// selector reading every field. Prints nanoseconds per field write and read
// and peak resident bytes per field value, for N = 100,000 and 1,000,000
// (or the N given as arguments). Each N runs in a child process of its own so
// that its peak is its own.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/BenchSupport.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"
#include "store/XMLWrapper.h"

using namespace tessel;
using tessel::bench::CpuSeconds;
using tessel::bench::ThreadCpuSeconds;
using tessel::bench::ThreadUserSeconds;
using tessel::bench::PeakResidentBytes;

namespace {

constexpr int kFields = 10;

std::shared_ptr<TransformDefinition> Definition() {
  std::string xml = "<TRANSFORM id=\"B\"><TRANSFORMDETAIL><RECORDS><RECORD id=\"ROW\" parentid=\"\">";
  for (int f = 0; f < kFields; ++f) {
    xml += "<FIELD name=\"FIELD" + std::to_string(f) + "\" type=\"" + (f % 2 ? "1" : "3") + "\"/>";
  }
  xml += "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>";
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML(xml);
  return std::make_shared<TransformDefinition>(wrapper);
}

std::vector<double> Run(long records) {
  using Clock = std::chrono::steady_clock;
  const long baseline = PeakResidentBytes();
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(Definition());
  std::vector<std::string> names;
  for (int f = 0; f < kFields; ++f) names.push_back("FIELD" + std::to_string(f));
  std::vector<Variant> values;
  for (int v = 0; v < 1000; ++v) values.emplace_back(v % 2 ? std::to_string(v * 7) : "value " + std::to_string(v));

  Ref<TransactionContext> context = factory->Data()->CreateContext();
  factory->SetContextToTopDataNode(*context);
  context->SetAutoUpdate(true);
  auto start = Clock::now();
  const double cpuStart = CpuSeconds();
  const double threadStart = ThreadCpuSeconds();
  const double userStart = ThreadUserSeconds();
  for (long r = 0; r < records; ++r) {
    Ref<Transaction> row = factory->CreateTransaction("ROW");
    for (int f = 0; f < kFields; ++f) {
      row->SetFieldValue(names[static_cast<size_t>(f)], values[static_cast<size_t>((r + f) % 1000)]);
    }
    factory->AddTransaction(*row, *context);
  }
  auto written = Clock::now();
  const double cpuWritten = CpuSeconds();
  const double threadWritten = ThreadCpuSeconds();

  size_t checksum = 0;
  Ref<TransactionSelector> selector = factory->CreateTransactionSelector();
  selector->SetReturnTransaction("ROW");
  selector->AddSearch("ROW", "*");
  selector->OpenResultset();
  for (selector->MoveFirst(); !selector->EOF_(); selector->MoveNext()) {
    Ref<Transaction> row = selector->Item();
    for (int f = 0; f < kFields; ++f) {
      Variant value = row->GetFieldValues(names[static_cast<size_t>(f)]);
      checksum += value.StringValue().size();
    }
  }
  auto read = Clock::now();
  const double cpuRead = CpuSeconds();
  const double threadRead = ThreadCpuSeconds();
  const double userRead = ThreadUserSeconds();
  const long peak = PeakResidentBytes();
  const double fieldValues = static_cast<double>(records) * kFields;
  auto perField = [&](double seconds) { return seconds * 1e9 / fieldValues; };
  const double wallWrite = std::chrono::duration<double>(written - start).count();
  const double wallRead = std::chrono::duration<double>(read - written).count();
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  std::printf("N=%-8ld write %6.1f ns/field  read %6.1f ns/field (wall; CPU of the thread %.1f / %.1f, "
              "of the process %.1f / %.1f)  peak %6.1f bytes/field value (%.0f above start)  "
              "total %.2f s wall, %.2f s user time of the thread  page faults on the thread %ld  [%zu]\n",
              records, perField(wallWrite), perField(wallRead), perField(threadWritten - threadStart),
              perField(threadRead - threadWritten), perField(cpuWritten - cpuStart), perField(cpuRead - cpuWritten),
              peak / fieldValues, (peak - baseline) / fieldValues, wallWrite + wallRead, userRead - userStart,
              usage.ru_minflt, checksum);
  std::fflush(stdout);
  return {wallWrite + wallRead, threadRead - threadStart, userRead - userStart};
}

}  // namespace

int main(int argc, char** argv) {
  return tessel::bench::RunSizesAndCompare(argc, argv, {100000, 1000000}, Run,
                                           {"the wall time", "the thread's CPU time", "its user time"});
}
