// Figures for the XML wrapper's hot paths and for the cost of a failure that
// travels through three handlers.
#include <benchmark/benchmark.h>

#include <string>

#include "audit/HuntErr.h"
#include "store/XMLWrapper.h"

namespace {

using tessel::Variant;
using tessel::XMLWrapper;

std::string Records(int count) {
  std::string text = "<?xml version=\"1.0\"?><DATA><RECORDS>";
  for (int i = 0; i < count; ++i) {
    text += "<RECORD id=\"" + std::to_string(i) + "\"><NAME>n" + std::to_string(i) + "</NAME></RECORD>";
  }
  return text + "</RECORDS></DATA>";
}

void BM_LoadXML(benchmark::State& state) {
  std::string text = Records(static_cast<int>(state.range(0)));
  XMLWrapper wrapper;
  for (auto _ : state) wrapper.LoadXML(text);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_LoadXML)->Arg(1000)->Arg(10000);

// The same query text again and again, as selectors run it per record.
void BM_GetNodeFromXPathRepeated(benchmark::State& state) {
  XMLWrapper wrapper;
  wrapper.LoadXML(Records(1000));
  xmlNodePtr records = wrapper.GetNodeFromXPath("/DATA/RECORDS");
  for (auto _ : state) benchmark::DoNotOptimize(wrapper.GetNodeFromXPath("RECORD", records));
}
BENCHMARK(BM_GetNodeFromXPathRepeated);

// A new query text each time, as searches with values in them are.
void BM_GetNodeFromXPathDistinct(benchmark::State& state) {
  XMLWrapper wrapper;
  wrapper.LoadXML(Records(100));
  int i = 0;
  for (auto _ : state) {
    std::string query = "/DATA/RECORDS/RECORD[@id=" + XMLWrapper::GenerateConcatForXPath(std::to_string(i++ % 100), false) + "]";
    benchmark::DoNotOptimize(wrapper.GetNodeFromXPath(query));
  }
}
BENCHMARK(BM_GetNodeFromXPathDistinct);

void BM_XPathFromNode(benchmark::State& state) {
  XMLWrapper wrapper;
  wrapper.LoadXML(Records(1000));
  xmlNodePtr node = wrapper.GetNodeFromXPath("//RECORD[@id='500']/NAME");
  for (auto _ : state) benchmark::DoNotOptimize(wrapper.XPathFromNode(node));
}
BENCHMARK(BM_XPathFromNode);

void BM_CheckPasses(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    tessel::Check(++i != 0, 8000, "never %1");
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CheckPasses);

void Level(int depth) {
  try {
    if (depth == 0) {
      tessel::Check(false, 8001, "[%1] failed", Variant("x"));
    } else {
      Level(depth - 1);
    }
  } catch (...) {
    tessel::ErrorInRethrow("Bench.Level(lDepth)", {Variant(int32_t{depth})});
  }
}

void BM_ErrorThroughThreeHandlers(benchmark::State& state) {
  for (auto _ : state) {
    try {
      Level(2);
    } catch (const tessel::Error& e) {
      benchmark::DoNotOptimize(e.number());
    }
  }
}
BENCHMARK(BM_ErrorThroughThreeHandlers);

}  // namespace

BENCHMARK_MAIN();
