// RunProgress: what a host may watch of a running job: each transform as it
// starts and ends. The coordinator calls it on its own thread; the listener
// must not raise.
#pragma once

#include <string>

namespace tessel {

class RunProgress {
 public:
  virtual ~RunProgress() = default;
  virtual void TransformStarting(const std::string& transformId, int type) = 0;
  virtual void TransformFinished(const std::string& transformId, bool failed, const std::string& message) = 0;
};

}  // namespace tessel
