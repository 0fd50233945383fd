// IEvent: the one channel through which running code reports what happened to
// a record or a transform: processed, inserted, updated, deleted, failed, warned.
//
// AuditLogger implements it; transforms, readers and writers hold it by
// reference for the length of a run and never own it. Entry collections are
// the caller's: OnWarning empties the one it is given.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "audit/IntegrationLogEntry.h"

namespace tessel {

class Transaction;

using LogEntries = std::vector<IntegrationLogEntry>;

class IEvent {
 public:
  virtual ~IEvent() = default;

  virtual void SetDataFile(const std::string& dataFileName, bool reset) = 0;
  virtual void FlagTransformDefReady(const std::string& transformId, bool reset) = 0;
  virtual void OnError(const std::string& transformId, LogEntries& entries, Transaction* transaction) = 0;
  virtual void OnWarning(const std::string& transformId, LogEntries& entries, Transaction* transaction) = 0;
  // transactionId is replaced by the transaction's id when a transaction is given.
  virtual void OnProcess(const std::string& transformId, Transaction* transaction, std::string& transactionId) = 0;
  virtual void OnInsert(const std::string& transformId, Transaction* transaction, std::string& transactionId) = 0;
  virtual void OnUpdate(const std::string& transformId, Transaction* transaction, std::string& transactionId) = 0;
  virtual void OnDelete(const std::string& transformId, Transaction* transaction, std::string& transactionId) = 0;
  virtual void OnComplete(const std::string& transformId) = 0;
  // 0 when no such counter exists.
  virtual int64_t GetEventCount(const std::string& transformId, const std::string& transactionId,
                                const std::string& event) = 0;
  virtual void WriteAuditLogNoTransaction(const std::string& transformId, LogEntries& entries,
                                          Transaction* transaction, bool skipLogObject) = 0;
  virtual void WriteSingleAuditMessage(IntegrationLogEntry entry) = 0;
};

}  // namespace tessel
