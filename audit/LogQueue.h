// LogQueue: where audit log entries leave the engine.
//
// Every entry is sent twice unless it is for viewers only: once to the log
// (which keeps it for good, as a row of AUDITLOG) and once to the view feed,
// where a copy lives for kViewCopyLifetime and is then dropped whether or not
// anybody read it. Backends: EmbeddedLogQueue writes straight into the job
// database; a message-broker backend can stand in its place.
#pragma once

#include <chrono>
#include <string>

#include "audit/IntegrationLogEntry.h"

namespace tessel {

inline constexpr std::chrono::seconds kViewCopyLifetime{30};

class LogQueue {
 public:
  virtual ~LogQueue() = default;

  // Raises when the queue cannot be reached.
  virtual void Open() = 0;
  virtual bool IsOpen() const = 0;
  virtual void SendToLog(const IntegrationLogEntry& entry) = 0;
  virtual void SendToView(const IntegrationLogEntry& entry, std::chrono::seconds lifetime) = 0;
  virtual void Close() = 0;
  // What the queue is, for messages ("embedded:sqlite:/etc/tessel/jobs.db").
  virtual std::string Name() const = 0;
};

}  // namespace tessel
