// AuditLogger: counts the events of a job run and writes its audit entries.
//
// One logger belongs to the Session of a job run and lives as long as it. It
// implements IEvent for transforms and the coordinator: per transform, record
// type and event it keeps a counter ("PROCESSED", "INSERTED", "UPDATED",
// "DELETED", "ERRORS", "WARNINGS"); entries go to the log queue, and when the
// queue cannot take them to "errlog.txt" in the debug folder, and when even
// that fails the trace goes to "Errors.txt" and then to standard error. A
// failure to log never ends the job and never disturbs an error in flight.
//
// The logger keeps the AuditLogDefinition of every transform that has run,
// registered by the coordinator before the transform starts.
#pragma once

#include "store/XMLWrapper.h"
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "audit/IEvent.h"
#include "audit/MessageQueueWrapper.h"
#include "job/RunProgress.h"
#include "tasks/TransformTaskFieldReplacement.h"

namespace tessel {

class AuditLogDefinition;
class TransactionFactory;


class AuditLogger : public IEvent {
 public:
  // Where the logger's fall-back files go and which queue it writes to; taken
  // from the session, empty while the configuration is not yet read.
  struct Settings {
    std::string debugPath;       // folder of errlog.txt
    std::string errorsFilePath;  // Errors.txt
    std::string queueText;       // "embedded:<job database>", or empty for no queue
  };

  AuditLogger();
  ~AuditLogger() override;

  // Opens the queue (7555 when it cannot be opened) and resets all counters.
  void Initialise(const std::string& jobId, int32_t jobInstance, bool dataService, const std::string& uniqueId,
                  Settings settings);

  void SetJobConfig(Ref<XMLWrapper> jobConfig) { jobConfig_ = std::move(jobConfig); }
  const Ref<XMLWrapper>& JobConfig() const { return jobConfig_; }

  // Writes one entry: stamped with the job's ids and written through WriteAuditLog.
  void LogAuditMessage(IntegrationLogEntry entry);
  // Registers a transform's audit definition, replacing an earlier one, and
  // adds the transform to its report group.
  void AddAuditLogDefinition(std::shared_ptr<AuditLogDefinition> definition);
  void WriteAuditLog(LogEntries& entries, const std::string& transformId, Transaction* transaction,
                     bool skipLogObject);
  // The summary entry of a transform at its end.
  void AddTransformSummaries(const std::string& transformId, const std::shared_ptr<TransactionFactory>& factory);
  // The counters of one transform, as replacements for its summary tokens.
  std::vector<TransformTaskFieldReplacement> GetSummaryCountersByTransformId(const std::string& transformId) const;
  // Writes the entries' reasons into SYS.ERROR or SYS.WARNING of a record that has the field.
  void WriteMessageToTransaction(const std::string& transformId, const LogEntries& entries, Transaction* transaction,
                                 bool warning);
  // Sends the job's audit reports by mail; nothing to send until reports exist.
  void GenerateAuditReports();
  void WriteEntryToViewLog(const IntegrationLogEntry& entry);

  // Transform ids of a report group, in the order they were registered.
  const std::vector<std::string>* ReportGroupTransforms(const std::string& reportGroup) const;
  AuditLogDefinition* Definition(const std::string& transformId) const;

  // IEvent
  void SetDataFile(const std::string& dataFileName, bool reset) override;
  void FlagTransformDefReady(const std::string& transformId, bool reset) override;
  void OnError(const std::string& transformId, LogEntries& entries, Transaction* transaction) override;
  void OnWarning(const std::string& transformId, LogEntries& entries, Transaction* transaction) override;
  void OnProcess(const std::string& transformId, Transaction* transaction, std::string& transactionId) override;
  void OnInsert(const std::string& transformId, Transaction* transaction, std::string& transactionId) override;
  void OnUpdate(const std::string& transformId, Transaction* transaction, std::string& transactionId) override;
  void OnDelete(const std::string& transformId, Transaction* transaction, std::string& transactionId) override;
  void OnComplete(const std::string& transformId) override;
  int64_t GetEventCount(const std::string& transformId, const std::string& transactionId,
                        const std::string& event) override;
  void WriteAuditLogNoTransaction(const std::string& transformId, LogEntries& entries, Transaction* transaction,
                                  bool skipLogObject) override;
  void WriteSingleAuditMessage(IntegrationLogEntry entry) override;

  // Optional watcher of processed records; borrowed, must outlive the run.
  void SetProgress(RunProgress* progress) { progress_ = progress; }
  // A transform's counters summed over its record types.
  TransformTally Tally(const std::string& transformId) const;

  static std::string GenerateSummaryCntrKeyString(std::string_view transformId, std::string_view transactionId,
                                                  std::string_view event);
  static bool ValidEventType(const std::string& event);

 private:
  void AddProcessSummaryCounterEvent(std::string_view transformId, std::string_view transactionId,
                                     std::string_view event, int64_t count);
  void CountEvent(const std::string& transformId, Transaction* transaction, std::string& transactionId,
                  const char* event);
  void StampEntry(IntegrationLogEntry& entry) const;
  void CommitToWorkflow(const std::string& transformId, Transaction* transaction, const LogEntries& entries);
  AuditLogDefinition& RequireDefinition(const std::string& transformId) const;
  // Sends one entry; on failure writes it to errlog.txt.
  void WriteEntry(const IntegrationLogEntry& entry);
  void WriteErrorToFile(const IntegrationLogEntry& entry);
  // Last resort of WriteAuditLog: the error's trace to Errors.txt, else stderr.
  void WriteTraceToErrorsFile(const std::string& trace);

  std::string jobId_;
  int32_t jobInstance_ = 0;
  bool dataService_ = false;
  std::string uniqueId_;
  Settings settings_;
  MessageQueueWrapper queue_;
  Ref<XMLWrapper> jobConfig_;
  std::unordered_map<std::string, std::shared_ptr<AuditLogDefinition>> definitions_;
  struct Counter {
    std::string transformId;
    std::string transactionId;
    std::string event;
    int64_t count = 0;
    // The literal CountEvent named the event by when it last counted it: a
    // counter found again by the same literal needs no text compared.
    const char* eventLiteral = nullptr;
  };
  // The counter of the event, made when new.
  Counter& SummaryCounter(std::string_view transformId, std::string_view transactionId, std::string_view event);
  std::unordered_map<std::string, Counter> counters_;
  // The counters raised last: a transform raises the same few for record
  // after record, and finding them here spares building and hashing a key.
  // Counters never move once made, so the pointers stay good.
  static constexpr size_t kRecentCounters = 4;
  Counter* recentCounters_[kRecentCounters] = {};
  size_t nextRecentCounter_ = 0;
  RunProgress* progress_ = nullptr;
  std::string progressTransform_;  // the transform whose records are being counted for progress
  int64_t progressCount_ = 0;
  std::unordered_map<std::string, std::vector<std::string>> reportGroups_;
};

}  // namespace tessel
