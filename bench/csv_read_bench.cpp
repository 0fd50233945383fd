// CSV read benchmark: wall time and peak memory of a read transform over
// generated files.
//   - hierarchical orders, every line preceded by a copy of its header line
//     (each header pays the duplicate test), at 10,000 and 100,000 lines: the
//     time per line should stay flat if the read is linear;
//   - a flat read of 1,000,000 lines of 10 fields.
// Each case runs in a child process so that its peak RSS is its own.
// Usage: csv_read_bench [--quick]   (--quick: 1/10 of the sizes)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "audit/IEvent.h"
#include "core/Error.h"
#include "input/TransformRead.h"
#include "job/TransformDefinition.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace {

using namespace tessel;

class NullEvent : public IEvent {
 public:
  void SetDataFile(const std::string&, bool) override {}
  void FlagTransformDefReady(const std::string&, bool) override {}
  void OnError(const std::string&, LogEntries&, Transaction*) override {}
  void OnWarning(const std::string&, LogEntries&, Transaction*) override {}
  void OnProcess(const std::string&, Transaction*, std::string&) override {}
  void OnInsert(const std::string&, Transaction*, std::string&) override {}
  void OnUpdate(const std::string&, Transaction*, std::string&) override {}
  void OnDelete(const std::string&, Transaction*, std::string&) override {}
  void OnComplete(const std::string&) override {}
  int64_t GetEventCount(const std::string&, const std::string&, const std::string&) override { return 0; }
  void WriteAuditLogNoTransaction(const std::string&, LogEntries&, Transaction*, bool) override {}
  void WriteSingleAuditMessage(IntegrationLogEntry) override {}
};

long CurrentRssKb() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

std::string Definition(const std::string& dir, const std::string& file, bool hierarchical) {
  std::string options = "<OPTIONS><OPTION name=\"readtype\" value=\"1\"/><OPTION name=\"delimiter\" value=\",\"/>"
                        "<OPTION name=\"headerlength\" value=\"1\"/><OPTION name=\"heircarchical\" value=\"" +
                        std::string(hierarchical ? "1" : "0") +
                        "\"/><OPTION name=\"onchangefieldpos\" value=\"1\"/></OPTIONS>";
  std::string stream = "<INPUTSTREAM type=\"1\"><OPTIONS><OPTION name=\"filedir\" value=\"" + dir +
                       "\"/><OPTION name=\"filter\" value=\"" + file + "\"/></OPTIONS></INPUTSTREAM>";
  std::string records;
  if (hierarchical) {
    records =
        "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"H\"/>"
        "<FIELD name=\"ORD\" type=\"3\" position=\"2\" key=\"1\"/><FIELD name=\"CUST\" type=\"3\" position=\"3\"/>"
        "</RECORD>"
        "<RECORD id=\"L\" parentid=\"H\" hashcode=\"2\"><FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"L\"/>"
        "<FIELD name=\"ORD\" type=\"3\" position=\"2\" key=\"1\"/><FIELD name=\"ITEM\" type=\"3\" position=\"3\" "
        "key=\"2\"/><FIELD name=\"QTY\" type=\"3\" position=\"4\"/></RECORD>";
  } else {
    records = "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\">";
    for (int f = 1; f <= 10; ++f) {
      records += "<FIELD name=\"F" + std::to_string(f) + "\" type=\"3\" position=\"" + std::to_string(f) + "\"/>";
    }
    records += "</RECORD>";
  }
  return "<TRANSFORM id=\"bench\" parentid=\"\" type=\"1\">" + options + stream + "<TRANSFORMDETAIL><RECORDS>" +
         records + "</RECORDS></TRANSFORMDETAIL></TRANSFORM>";
}

// Orders of four detail lines, each detail preceded by its header line.
void WriteOrders(const std::filesystem::path& file, long lines) {
  std::ofstream out(file);
  out << "type,order,item,qty\n";
  long written = 0;
  for (long order = 1; written < lines; ++order) {
    for (int item = 1; item <= 4 && written < lines; ++item) {
      out << "H," << order << ",customer" << order % 97 << "\n";
      ++written;
      if (written < lines) {
        out << "L," << order << ",item" << item << "," << (order * item) % 13 << "\n";
        ++written;
      }
    }
  }
}

void WriteFlat(const std::filesystem::path& file, long lines) {
  std::ofstream out(file);
  out << "F1,F2,F3,F4,F5,F6,F7,F8,F9,F10\n";
  for (long i = 0; i < lines; ++i) {
    out << i << ",name" << i % 1000 << ",\"quoted, text\"," << i * 7 % 10007 << ",2026-11-21,ACME,"
        << (i % 3 == 0 ? "" : "x") << ",12.50,  padded  ,last\n";
  }
}

// Runs the read in a child process; prints its figures.
void RunCase(const char* label, const std::filesystem::path& dir, const std::string& file, bool hierarchical,
             long lines) {
  std::fflush(stdout);
  pid_t child = fork();
  if (child == 0) {
    long baseKb = CurrentRssKb();
    NullEvent event;
    auto wrapper = MakeRef<XMLWrapper>();
    wrapper->LoadXML(Definition(dir.string(), file, hierarchical));
    auto factory = std::make_shared<TransactionFactory>();
    factory->SetTransformDefinition(std::make_shared<TransformDefinition>(wrapper));
    auto start = std::chrono::steady_clock::now();
    try {
      TransformRead read;
      read.CreateController(nullptr, event, factory, false);
      read.Process();
    } catch (const Error& e) {
      std::printf("%s: failed %d %s\n", label, e.number(), e.description().c_str());
      std::_Exit(1);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    long records = static_cast<long>(factory->Data()->GetNodesFromXPath("//RECORD").size());
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    long peakKb = usage.ru_maxrss;
    std::printf("%-28s lines %9ld  records %9ld  %8.3f s  %7.2f us/line  peak RSS %7.1f MiB  (%.0f bytes/line above "
                "start)\n",
                label, lines, records, seconds, seconds * 1e6 / static_cast<double>(lines), peakKb / 1024.0,
                (peakKb - baseKb) * 1024.0 / static_cast<double>(lines));
    std::fflush(stdout);
    std::_Exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
}

}  // namespace

int main(int argc, char** argv) {
  const long scale = (argc > 1 && std::strcmp(argv[1], "--quick") == 0) ? 10 : 1;
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("tessel-csv-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  WriteOrders(dir / "orders10k.csv", 10000 / scale);
  WriteOrders(dir / "orders100k.csv", 100000 / scale);
  RunCase("hierarchical 10k", dir, "orders10k.csv", true, 10000 / scale);
  RunCase("hierarchical 100k", dir, "orders100k.csv", true, 100000 / scale);
  fs::remove(dir / "orders10k.csv");
  fs::remove(dir / "orders100k.csv");
  WriteFlat(dir / "flat1m.csv", 1000000 / scale);
  std::printf("flat file: %.1f MiB\n", static_cast<double>(fs::file_size(dir / "flat1m.csv")) / 1048576.0);
  RunCase("flat 1M x 10 fields", dir, "flat1m.csv", false, 1000000 / scale);
  fs::remove_all(dir);
  return 0;
}
