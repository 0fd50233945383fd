// ProgressPrinter: shows a running job on a terminal: each transform as it
// starts and how it ended, with its time.
#pragma once

#include <chrono>
#include <ostream>
#include <string>

#include "job/RunProgress.h"

namespace tessel::app {

class ProgressPrinter : public RunProgress {
 public:
  explicit ProgressPrinter(std::ostream& out) : out_(out) {}

  void TransformStarting(const std::string& transformId, int type) override;
  void TransformFinished(const std::string& transformId, bool failed, const std::string& message) override;

 private:
  std::ostream& out_;
  std::chrono::steady_clock::time_point started_;
};

}  // namespace tessel::app
