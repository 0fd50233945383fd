// EmbeddedLogQueue: the log queue of a single machine, with no broker between
// the engine and the job database. Log entries become AUDITLOG rows at once;
// view copies go to AUDITVIEW with an expiry time, and copies past it are
// purged whenever a new copy is written.
//
// The queue owns its own connection to the job database, so that writing an
// entry never joins a transaction of the code that reports.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "audit/LogQueue.h"

namespace tessel {
namespace db {
class Connection;
}

class EmbeddedLogQueue : public LogQueue {
 public:
  explicit EmbeddedLogQueue(std::string connectionText);
  ~EmbeddedLogQueue() override;

  void Open() override;
  bool IsOpen() const override;
  void SendToLog(const IntegrationLogEntry& entry) override;
  void SendToView(const IntegrationLogEntry& entry, std::chrono::seconds lifetime) override;
  void Close() override;
  std::string Name() const override;

 private:
  std::string connectionText_;
  std::unique_ptr<db::Connection> connection_;
  int64_t lastPurge_ = 0;
  static constexpr int64_t kPurgeIntervalSeconds = 5;
};

}  // namespace tessel
