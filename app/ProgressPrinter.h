// ProgressPrinter: shows a running job: each transform as it starts, its
// records and rate while it runs (rewritten in place on a terminal), how it
// ended with its counts, and a table of all transforms at the end.
#pragma once

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "job/RunProgress.h"

namespace tessel::app {

class ProgressPrinter : public RunProgress {
 public:
  ProgressPrinter(std::ostream& out, bool terminal) : out_(out), terminal_(terminal) {}

  void TransformStarting(const std::string& transformId, int type) override;
  void RecordsDone(const std::string& transformId, int64_t processed) override;
  void TransformFinished(const std::string& transformId, bool failed, const std::string& message,
                         const TransformTally& tally) override;
  // The table of every transform that ran, if any did.
  void PrintSummary();

 private:
  struct Row {
    std::string transformId;
    bool failed = false;
    double seconds = 0;
    TransformTally tally;
  };

  double Seconds() const;

  std::ostream& out_;
  bool terminal_;
  bool lineOpen_ = false;  // a progress line waits to be overwritten
  std::chrono::steady_clock::time_point started_;
  std::vector<Row> rows_;
};

}  // namespace tessel::app
