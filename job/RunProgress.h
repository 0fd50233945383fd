// RunProgress: what a host may watch of a running job: each transform as it
// starts, how many records it has processed so far, and how it ended with its
// counts. The coordinator and the audit logger call it on the job's thread;
// the listener must not raise.
#pragma once

#include <cstdint>
#include <string>

namespace tessel {

// The event counters of one transform, summed over its record types.
struct TransformTally {
  int64_t processed = 0;
  int64_t inserted = 0;
  int64_t updated = 0;
  int64_t deleted = 0;
  int64_t errors = 0;
  int64_t warnings = 0;
};

class RunProgress {
 public:
  // Records processed between two RecordsDone calls of one transform.
  static constexpr int64_t kRecordStep = 4096;

  virtual ~RunProgress() = default;
  virtual void TransformStarting(const std::string& transformId, int type) = 0;
  // Every kRecordStep processed records of the running transform.
  virtual void RecordsDone(const std::string& transformId, int64_t processed) {}
  virtual void TransformFinished(const std::string& transformId, bool failed, const std::string& message,
                                 const TransformTally& tally) = 0;
};

}  // namespace tessel
