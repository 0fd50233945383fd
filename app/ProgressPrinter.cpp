#include "app/ProgressPrinter.h"

#include <iomanip>

namespace tessel::app {

double ProgressPrinter::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
}

void ProgressPrinter::TransformStarting(const std::string& transformId, int type) {
  started_ = std::chrono::steady_clock::now();
  out_ << "transform " << transformId << " (type " << type << ") running\n" << std::flush;
}

void ProgressPrinter::RecordsDone(const std::string& transformId, int64_t processed) {
  double seconds = Seconds();
  double rate = seconds > 0 ? processed / seconds : 0;
  if (terminal_) {
    out_ << "\r  " << transformId << ": " << processed << " records, " << std::fixed << std::setprecision(0) << rate
         << "/s   " << std::flush;
    lineOpen_ = true;
  } else if (processed % (RunProgress::kRecordStep * 64) == 0) {
    out_ << "  " << transformId << ": " << processed << " records, " << std::fixed << std::setprecision(0) << rate
         << "/s\n" << std::flush;
  }
}

void ProgressPrinter::TransformFinished(const std::string& transformId, bool failed, const std::string& message,
                                        const TransformTally& tally) {
  if (lineOpen_) {
    out_ << '\n';
    lineOpen_ = false;
  }
  Row row{transformId, failed, Seconds(), tally};
  out_ << "transform " << transformId << (failed ? " FAILED" : " done") << " in " << std::fixed
       << std::setprecision(3) << row.seconds << " s: " << tally.processed << " processed, " << tally.inserted
       << " inserted, ";
  if (tally.deleted != 0) out_ << tally.deleted << " deleted, ";
  out_ << tally.errors << " errors";
  if (failed) out_ << "\n  " << message;
  out_ << '\n' << std::flush;
  rows_.push_back(std::move(row));
}

void ProgressPrinter::PrintSummary() {
  if (rows_.empty()) return;
  out_ << std::left << std::setw(24) << "transform" << std::right << std::setw(12) << "processed" << std::setw(12)
       << "inserted" << std::setw(10) << "updated" << std::setw(10) << "deleted" << std::setw(9) << "errors" << std::setw(10) << "warnings"
       << std::setw(11) << "seconds" << '\n';
  for (const Row& row : rows_) {
    out_ << std::left << std::setw(24) << (row.transformId + (row.failed ? " (failed)" : "")) << std::right
         << std::setw(12) << row.tally.processed << std::setw(12) << row.tally.inserted << std::setw(10)
         << row.tally.updated << std::setw(10) << row.tally.deleted << std::setw(9) << row.tally.errors << std::setw(10) << row.tally.warnings
         << std::setw(11) << std::fixed << std::setprecision(3) << row.seconds << '\n';
  }
  out_ << std::flush;
}

}  // namespace tessel::app
