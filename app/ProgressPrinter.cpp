#include "app/ProgressPrinter.h"

#include <iomanip>

namespace tessel::app {

void ProgressPrinter::TransformStarting(const std::string& transformId, int type) {
  started_ = std::chrono::steady_clock::now();
  out_ << "transform " << transformId << " (type " << type << ") running\n" << std::flush;
}

void ProgressPrinter::TransformFinished(const std::string& transformId, bool failed, const std::string& message) {
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
  out_ << "transform " << transformId << (failed ? " FAILED" : " done") << " in " << std::fixed
       << std::setprecision(3) << seconds << " s";
  if (failed) out_ << ": " << message;
  out_ << '\n' << std::flush;
}

}  // namespace tessel::app
