// Data transform benchmark: N order records of 10 fields, each with 2 line
// records, go through the renaming of a map, a map of 5 formulas (3 plain
// substitutions, 2 evaluated), a filter with a condition on every record and
// a flatten of orders with their lines. Prints nanoseconds per order record
// for each step, for N = 20,000 (or the N given as the argument).
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "audit/IEvent.h"
#include "job/AppConfig.h"
#include "job/RegistryWrapper.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/TransactionRenamer.h"
#include "store/XMLWrapper.h"
#include "transforms/TransformFilter.h"
#include "transforms/TransformFlatten.h"
#include "transforms/TransformMap.h"

using namespace tessel;

namespace {

constexpr int kFields = 10;

class QuietEvent : public IEvent {
 public:
  void SetDataFile(const std::string&, bool) override {}
  void FlagTransformDefReady(const std::string&, bool) override {}
  void OnError(const std::string&, LogEntries&, Transaction*) override { ++errors; }
  void OnWarning(const std::string&, LogEntries&, Transaction*) override {}
  void OnProcess(const std::string&, Transaction*, std::string&) override {}
  void OnInsert(const std::string&, Transaction*, std::string&) override {}
  void OnUpdate(const std::string&, Transaction*, std::string&) override {}
  void OnDelete(const std::string&, Transaction*, std::string&) override {}
  void OnComplete(const std::string&) override {}
  int64_t GetEventCount(const std::string&, const std::string&, const std::string&) override { return 0; }
  void WriteAuditLogNoTransaction(const std::string&, LogEntries&, Transaction*, bool) override { ++errors; }
  void WriteSingleAuditMessage(IntegrationLogEntry) override {}
  int errors = 0;
};

std::shared_ptr<TransformDefinition> Definition(const std::string& id, int type, const std::string& options,
                                                const std::string& records) {
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML("<TRANSFORM id=\"" + id + "\" parentid=\"\" type=\"" + std::to_string(type) + "\"><OPTIONS>" +
                   options + "</OPTIONS><TRANSFORMDETAIL><RECORDS>" + records +
                   "</RECORDS></TRANSFORMDETAIL><AUDIT><OPTIONS><OPTION name=\"rptwarnings\" value=\"True\"/>"
                   "<OPTION name=\"actiontransformerror\" value=\"2\"/></OPTIONS></AUDIT></TRANSFORM>");
  return std::make_shared<TransformDefinition>(wrapper);
}

// ORDER with FIELD0..FIELD9 (odd ones numbers), LINE with ITEM and QTY.
std::string Records(const std::string& orderFields, const std::string& orderAttributes = {}) {
  return "<RECORD id=\"ORDER\" parentid=\"\"" + orderAttributes + ">" + orderFields +
         "</RECORD><RECORD id=\"LINE\" parentid=\"ORDER\"><FIELD name=\"ITEM\" type=\"3\"/>"
         "<FIELD name=\"QTY\" type=\"1\"/></RECORD>";
}

std::string PlainFields(const std::string& extra = {}) {
  std::string xml;
  for (int f = 0; f < kFields; ++f) {
    xml += "<FIELD name=\"FIELD" + std::to_string(f) + "\" type=\"" + (f % 2 ? "1" : "3") + "\"" +
           (f == 0 ? extra : std::string()) + "/>";
  }
  return xml;
}

template <class F>
double NanosPerRecord(long records, F&& body) {
  auto start = std::chrono::steady_clock::now();
  body();
  auto elapsed = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
  return elapsed / static_cast<double>(records);
}

void Run(long orders) {
  std::shared_ptr<TransformDefinition> input = Definition("read", 1, "", Records(PlainFields()));
  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(input);
  Ref<TransactionContext> top = factory->Data()->CreateContext();
  factory->SetContextToTopDataNode(*top);
  for (long r = 0; r < orders; ++r) {
    Ref<Transaction> order = factory->CreateTransaction("ORDER");
    for (int f = 0; f < kFields; ++f) {
      order->SetFieldValue("FIELD" + std::to_string(f),
                           Variant(f % 2 ? std::to_string((r * 7 + f) % 1000) : "text " + std::to_string(r)));
    }
    factory->AddTransaction(*order, *top);
    Ref<TransactionContext> under = order->Context();
    for (int l = 0; l < 2; ++l) {
      Ref<Transaction> line = factory->CreateTransaction("LINE");
      line->SetFieldValue("ITEM", Variant("item" + std::to_string(l)));
      line->SetFieldValue("QTY", Variant(std::to_string(l + 1)));
      factory->AddTransaction(*line, *under);
    }
  }
  QuietEvent event;

  // Renaming: FIELD0 and FIELD2 swap places, FIELD4 becomes NAME4.
  std::string renamedFields;
  for (int f = 0; f < kFields; ++f) {
    std::string name = "FIELD" + std::to_string(f);
    std::string from = f == 0 ? "FIELD2" : f == 2 ? "FIELD0" : name;
    if (f == 4) name = "NAME4";
    renamedFields += "<FIELD name=\"" + name + "\" type=\"" + (f % 2 ? "1" : "3") + "\" impname=\"" + from + "\"/>";
  }
  std::shared_ptr<TransformDefinition> renamed = Definition("rename", 5, "", Records(renamedFields));
  const double rename = NanosPerRecord(orders, [&] {
    TransactionRenamer renamer;
    renamer.Init(factory->Data(), renamed, input);
    renamer.RenameDataSetFromTransformDef();
  });

  // Map: three substitutions and two evaluations per order.
  std::string mapFields;
  for (int f = 0; f < kFields; ++f) {
    std::string name = f == 4 ? "NAME4" : "FIELD" + std::to_string(f);
    std::string formula;
    if (f == 0 || f == 2 || f == 4) formula = " value=\"x-%" + name + "\"";
    if (f == 1 || f == 3) formula = " eval=\"True\" value=\"%" + name + " * 2 + %FIELD5\"";
    mapFields += "<FIELD name=\"" + name + "\" type=\"" + (f % 2 ? "1" : "3") + "\"" + formula + "/>";
  }
  std::shared_ptr<TransformDefinition> mapDefinition = Definition("map", 5, "", Records(mapFields));
  auto mapFactory = std::make_shared<TransactionFactory>();
  mapFactory->SetTransformDefinition(mapDefinition);
  mapFactory->SetData(factory->Data());
  const double map = NanosPerRecord(orders, [&] {
    TransformMap transform;
    transform.CreateController(renamed, event, mapFactory, false);
    transform.Process();
  });

  // Filter: a condition on every order, keeping about half.
  std::shared_ptr<TransformDefinition> filterDefinition =
      Definition("filter", 13, "", Records(mapFields, " filter=\"%FIELD5 &lt; 500\""));
  auto filterFactory = std::make_shared<TransactionFactory>();
  filterFactory->SetTransformDefinition(filterDefinition);
  filterFactory->SetData(factory->Data());
  const double filter = NanosPerRecord(orders, [&] {
    TransformFilter transform;
    transform.CreateController(mapDefinition, event, filterFactory, false);
    transform.Process();
  });

  // Flatten: each remaining order with its two lines gives two flat orders.
  std::string flatFields = mapFields +
                           "<FIELD name=\"ITEM\" type=\"3\" imptranid=\"LINE\" impname=\"ITEM\"/>"
                           "<FIELD name=\"QTY\" type=\"1\" imptranid=\"LINE\" impname=\"QTY\"/>";
  std::shared_ptr<TransformDefinition> flatDefinition =
      Definition("flat", 3, "<OPTION name=\"flattentranid\" value=\"ORDER\"/>",
                 "<RECORD id=\"ORDER\" parentid=\"\">" + flatFields + "</RECORD>");
  auto flatFactory = std::make_shared<TransactionFactory>();
  flatFactory->SetTransformDefinition(flatDefinition);
  flatFactory->SetData(factory->Data());
  const double flatten = NanosPerRecord(orders, [&] {
    TransformFlatten transform;
    transform.CreateController(filterDefinition, event, flatFactory, false);
    transform.Process();
  });

  std::printf("orders=%ld rename_ns_per_order=%.0f map_ns_per_order=%.0f filter_ns_per_order=%.0f "
              "flatten_ns_per_order=%.0f errors=%d\n",
              orders, rename, map, filter, flatten, event.errors);
}

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  // The script host reads its configuration folder from the application
  // configuration: give it one with an empty function library.
  fs::path folder = fs::temp_directory_path() / ("tessel-transforms-bench-" + std::to_string(::getpid()));
  fs::create_directories(folder / "conf");
  fs::create_directories(folder / "debug");
  AppConfig::Write(folder.string(), {{"DEFCHARSET", "utf-8"},
                                     {"DEBUGPATH", (folder / "debug").string()},
                                     {"WORKPATH", (folder / "debug").string()},
                                     {"JOBCONFPATH", (folder / "conf").string()},
                                     {"DBCONAX", "sqlite:" + (folder / "unused.db").string()}});
  std::ofstream(folder / "conf" / "functionh.xml") << "<?xml version=\"1.0\"?>\n<FUNCTIONS/>\n";
  ::setenv(RegistryWrapper::kEnvironmentVariable, folder.c_str(), 1);
  int status = 0;
  try {
    Run(argc > 1 ? std::atol(argv[1]) : 20000);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "failed: %s\n", e.what());
    status = 1;
  }
  fs::remove_all(folder);
  return status;
}
