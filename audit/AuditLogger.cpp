#include "audit/AuditLogger.h"

#include <filesystem>
#include <fstream>
#include <climits>
#include <iostream>

#include "audit/AuditLogDefinition.h"
#include "audit/AuditSummary.h"
#include "audit/ExceptionState.h"
#include "audit/HuntErr.h"
#include "core/Error.h"
#include "core/Utf16Text.h"
#include "store/Transaction.h"

namespace tessel {

namespace {
constexpr int32_t kErrNoDefinition = 8251;
constexpr int32_t kErrWorkflowUnavailable = 10506;
constexpr const char* kEvents[] = {"PROCESSED", "INSERTED", "UPDATED", "DELETED", "ERRORS", "WARNINGS"};

}  // namespace

AuditLogger::AuditLogger() = default;

AuditLogger::~AuditLogger() {
  ExceptionState pending = CaptureExceptionState();
  definitions_.clear();
  counters_.clear();
  reportGroups_.clear();
  RestoreExceptionState(pending);
}

void AuditLogger::Initialise(const std::string& jobId, int32_t jobInstance, bool dataService,
                             const std::string& uniqueId, Settings settings) {
  try {
    jobId_ = jobId;
    jobInstance_ = jobInstance;
    dataService_ = dataService;
    uniqueId_ = uniqueId;
    settings_ = std::move(settings);
    definitions_.clear();
    counters_.clear();
    for (Counter*& recent : recentCounters_) recent = nullptr;
    reportGroups_.clear();
    if (!settings_.queueText.empty()) queue_.Initialise(settings_.queueText);
  } catch (...) {
    ErrorInRethrow("AuditLogger.Initialise(sJobIdentification, lJobInstance, bDataService, sUniqueId)",
            {Variant(jobId), Variant(jobInstance)});
  }
}

std::string AuditLogger::GenerateSummaryCntrKeyString(std::string_view transformId, std::string_view transactionId,
                                                      std::string_view event) {
  std::string key;
  key.reserve(transformId.size() + transactionId.size() + event.size() + 6);
  key.append(transformId).append(" - ").append(transactionId).append(" - ").append(event);
  return key;
}

bool AuditLogger::ValidEventType(const std::string& event) {
  for (const char* known : kEvents) {
    if (event == known) return true;
  }
  return false;
}

void AuditLogger::AddProcessSummaryCounterEvent(std::string_view transformId, std::string_view transactionId,
                                                std::string_view event, int64_t count) {
  SummaryCounter(transformId, transactionId, event).count += count;
}

AuditLogger::Counter& AuditLogger::SummaryCounter(std::string_view transformId, std::string_view transactionId,
                                                  std::string_view event) {
  for (Counter* recent : recentCounters_) {
    if (recent != nullptr && recent->event == event && recent->transactionId == transactionId &&
        recent->transformId == transformId) {
      return *recent;
    }
  }
  auto [counter, added] = counters_.try_emplace(GenerateSummaryCntrKeyString(transformId, transactionId, event));
  if (added) {
    counter->second.transformId = transformId;
    counter->second.transactionId = transactionId;
    counter->second.event = event;
  }
  recentCounters_[nextRecentCounter_] = &counter->second;
  nextRecentCounter_ = (nextRecentCounter_ + 1) % kRecentCounters;
  return counter->second;
}

std::vector<TransformTaskFieldReplacement> AuditLogger::GetSummaryCountersByTransformId(
    const std::string& transformId) const {
  std::vector<TransformTaskFieldReplacement> replacements;
  for (const auto& [key, counter] : counters_) {
    if (counter.transformId != transformId) continue;
    TransformTaskFieldReplacement item;
    item.IsCustomReplacement = true;
    item.TransactionId = counter.transactionId;
    item.FieldId = counter.event;
    item.value = counter.count <= INT32_MAX ? Variant(static_cast<int32_t>(counter.count))
                                            : Variant(static_cast<double>(counter.count));
    replacements.push_back(std::move(item));
  }
  return replacements;
}

int64_t AuditLogger::GetEventCount(const std::string& transformId, const std::string& transactionId,
                                   const std::string& event) {
  auto found = counters_.find(GenerateSummaryCntrKeyString(transformId, transactionId, event));
  return found == counters_.end() ? 0 : found->second.count;
}

void AuditLogger::CountEvent(const std::string& transformId, Transaction* transaction, std::string& transactionId,
                             const char* event) {
  try {
    if (transaction != nullptr) transactionId = transaction->TransactionId();
    // Record after record raises the same few events by the same literals.
    for (Counter* recent : recentCounters_) {
      if (recent != nullptr && recent->eventLiteral == event && recent->transactionId == transactionId &&
          recent->transformId == transformId) {
        ++recent->count;
        return;
      }
    }
    Counter& counter = SummaryCounter(transformId, transactionId, event);
    ++counter.count;
    counter.eventLiteral = event;
  } catch (...) {
    ErrorInRethrow("AuditLogger.IEvent_On(sTransformId, oTransaction, sTransactionId)",
            {Variant(transformId), Variant(transactionId), Variant(event)});
  }
}

void AuditLogger::OnProcess(const std::string& transformId, Transaction* transaction, std::string& transactionId) {
  CountEvent(transformId, transaction, transactionId, "PROCESSED");
  if (progress_ == nullptr) return;
  if (transformId != progressTransform_) {
    progressTransform_ = transformId;
    progressCount_ = 0;
  }
  if (++progressCount_ % RunProgress::kRecordStep == 0) progress_->RecordsDone(transformId, progressCount_);
}

TransformTally AuditLogger::Tally(const std::string& transformId) const {
  TransformTally tally;
  for (const auto& [key, counter] : counters_) {
    if (counter.transformId != transformId) continue;
    if (counter.event == "PROCESSED") tally.processed += counter.count;
    else if (counter.event == "INSERTED") tally.inserted += counter.count;
    else if (counter.event == "UPDATED") tally.updated += counter.count;
    else if (counter.event == "DELETED") tally.deleted += counter.count;
    else if (counter.event == "ERRORS") tally.errors += counter.count;
    else if (counter.event == "WARNINGS") tally.warnings += counter.count;
  }
  return tally;
}
void AuditLogger::OnInsert(const std::string& transformId, Transaction* transaction, std::string& transactionId) {
  CountEvent(transformId, transaction, transactionId, "INSERTED");
}
void AuditLogger::OnUpdate(const std::string& transformId, Transaction* transaction, std::string& transactionId) {
  CountEvent(transformId, transaction, transactionId, "UPDATED");
}
void AuditLogger::OnDelete(const std::string& transformId, Transaction* transaction, std::string& transactionId) {
  CountEvent(transformId, transaction, transactionId, "DELETED");
}

void AuditLogger::OnError(const std::string& transformId, LogEntries& entries, Transaction* transaction) {
  try {
    std::string transactionId = transaction != nullptr ? transaction->TransactionId() : std::string();
    AddProcessSummaryCounterEvent(transformId, transactionId, "ERRORS", static_cast<int64_t>(entries.size()));
    WriteAuditLog(entries, transformId, transaction, false);
    WriteMessageToTransaction(transformId, entries, transaction, false);
    CommitToWorkflow(transformId, transaction, entries);
  } catch (...) {
    ErrorInRethrow("AuditLogger.IEvent_OnError(sTransformId, colEntries, oTransaction)", {Variant(transformId)});
  }
}

void AuditLogger::OnWarning(const std::string& transformId, LogEntries& entries, Transaction* transaction) {
  try {
    AuditLogDefinition& definition = RequireDefinition(transformId);
    if (definition.ReportWarnings()) {
      for (IntegrationLogEntry& entry : entries) entry.TransformId = transformId;
      WriteAuditLog(entries, transformId, transaction, true);
    }
    std::string transactionId = transaction != nullptr ? transaction->TransactionId() : std::string();
    AddProcessSummaryCounterEvent(transformId, transactionId, "WARNINGS", static_cast<int64_t>(entries.size()));
    WriteMessageToTransaction(transformId, entries, transaction, true);
    entries.clear();
  } catch (...) {
    ErrorInRethrow("AuditLogger.IEvent_OnWarning(sTransformId, colEntries, oTransaction)", {Variant(transformId)});
  }
}

void AuditLogger::OnComplete(const std::string& transformId) {}
void AuditLogger::SetDataFile(const std::string& dataFileName, bool reset) {}
void AuditLogger::FlagTransformDefReady(const std::string& transformId, bool reset) {}

void AuditLogger::WriteAuditLogNoTransaction(const std::string& transformId, LogEntries& entries,
                                             Transaction* transaction, bool skipLogObject) {
  WriteAuditLog(entries, transformId, transaction, skipLogObject);
}

void AuditLogger::WriteSingleAuditMessage(IntegrationLogEntry entry) { LogAuditMessage(std::move(entry)); }

void AuditLogger::LogAuditMessage(IntegrationLogEntry entry) {
  LogEntries queue;
  std::string transformId = entry.TransformId;
  queue.push_back(std::move(entry));
  WriteAuditLog(queue, transformId, nullptr, false);
}

void AuditLogger::StampEntry(IntegrationLogEntry& entry) const {
  entry.JobId = jobId_;
  entry.InstanceID = jobInstance_;
  if (entry.LogType == kLogTypeNone) entry.LogType = kLogTypeDetail;
  entry.UniqueId = uniqueId_;
}

void AuditLogger::WriteAuditLog(LogEntries& entries, const std::string& transformId, Transaction* transaction,
                                bool skipLogObject) {
  ExceptionState pending = CaptureExceptionState();
  try {
    for (IntegrationLogEntry& entry : entries) {
      if (!entry.TransformId.empty() && transaction != nullptr) {
        entry.Source = RequireDefinition(entry.TransformId).TranslateTransactionFields(*transaction);
      }
      StampEntry(entry);
      WriteEntry(entry);
    }
    if (!skipLogObject && !transformId.empty() && transaction != nullptr) {
      // A record with an onerrormsg adds an entry with the designer's own message.
      if (std::optional<IntegrationLogEntry> extra = RequireDefinition(transformId).GenerateLogObject(*transaction)) {
        extra->TransformId = transformId;
        StampEntry(*extra);
        WriteEntry(*extra);
      }
    }
  } catch (const std::exception& error) {
    // A failure of the log must not end the job: keep its trace and go on.
    WriteTraceToErrorsFile(error.what());
  } catch (...) {
    WriteTraceToErrorsFile("unknown failure while writing the audit log");
  }
  RestoreExceptionState(pending);
}

void AuditLogger::WriteEntry(const IntegrationLogEntry& entry) {
  try {
    queue_.SendMessage(entry, false);
  } catch (...) {
    WriteErrorToFile(entry);
  }
}

void AuditLogger::WriteErrorToFile(const IntegrationLogEntry& entry) {
  std::string line = entry.AuditDate + "    " + entry.JobId + "    " + std::to_string(entry.InstanceID) + "    " +
                     entry.TransformId + "    " + entry.ReasonCode + "    " + entry.Source + "    " + entry.Reason;
  if (!settings_.debugPath.empty()) {
    std::filesystem::path file = std::filesystem::path(settings_.debugPath) / "errlog.txt";
    std::error_code ec;
    const bool fresh = !std::filesystem::exists(file, ec) || std::filesystem::file_size(file, ec) == 0;
    std::ofstream out(file, std::ios::binary | std::ios::app);
    if (out) {
      if (fresh) out << Utf16Text::kByteOrderMarkLE;
      out << Utf16Text::FromUtf8LE(line + "\r\n");
      out.flush();
      if (out) return;
    }
  }
  // No debug folder to write to: the entry must not vanish.
  std::cerr << "tessel: audit entry not logged: " << line << '\n';
}

void AuditLogger::WriteTraceToErrorsFile(const std::string& trace) {
  if (!settings_.errorsFilePath.empty()) {
    std::ofstream out(settings_.errorsFilePath, std::ios::binary | std::ios::app);
    if (out) {
      out << trace << "\r\n\r\n";
      out.flush();
      if (out) return;
    }
  }
  std::cerr << "tessel: audit log failure: " << trace << '\n';
}

void AuditLogger::AddAuditLogDefinition(std::shared_ptr<AuditLogDefinition> definition) {
  try {
    std::string transformId = definition->TransformId();
    std::string reportGroup = definition->ReportGroup();
    definitions_[transformId] = std::move(definition);
    reportGroups_[reportGroup].push_back(transformId);
  } catch (...) {
    ErrorInRethrow("AuditLogger.AddAuditLogDefinition(oAuditLogDefinition)", {});
  }
}

const std::vector<std::string>* AuditLogger::ReportGroupTransforms(const std::string& reportGroup) const {
  auto found = reportGroups_.find(reportGroup);
  return found == reportGroups_.end() ? nullptr : &found->second;
}

AuditLogDefinition* AuditLogger::Definition(const std::string& transformId) const {
  auto found = definitions_.find(transformId);
  return found == definitions_.end() ? nullptr : found->second.get();
}

AuditLogDefinition& AuditLogger::RequireDefinition(const std::string& transformId) const {
  AuditLogDefinition* definition = Definition(transformId);
  Check(definition != nullptr, kErrNoDefinition, "Transform [%1] has no audit definition in this run.",
        {Variant(transformId)});
  return *definition;
}

void AuditLogger::WriteMessageToTransaction(const std::string& transformId, const LogEntries& entries,
                                            Transaction* transaction, bool warning) {
  try {
    if (transaction == nullptr) return;
    AuditLogDefinition& definition = RequireDefinition(transformId);
    bool writeBack = warning ? definition.HasWarningWriteBackField(*transaction)
                             : definition.HasErrorWriteBackField(*transaction);
    if (!writeBack) return;
    std::string message;
    for (const IntegrationLogEntry& entry : entries) {
      if (!message.empty()) message += "\r\n";
      message += entry.Reason;
    }
    transaction->SetFieldValue(warning ? "SYS.WARNING" : "SYS.ERROR", Variant(std::move(message)));
  } catch (...) {
    ErrorInRethrow("AuditLogger.WriteMessageToTransaction(sTransformId, colEntries, oTransaction, bWarning)",
                   {Variant(transformId), Variant(warning)});
  }
}

void AuditLogger::CommitToWorkflow(const std::string& transformId, Transaction* transaction,
                                   const LogEntries& entries) {
  try {
    if (transaction == nullptr) return;
    Check(!RequireDefinition(transformId).SupportsWorkflow(), kErrWorkflowUnavailable,
          "Transform [%1] asks for workflow capture, which this engine does not provide.", {Variant(transformId)});
  } catch (...) {
    ErrorInRethrow("AuditLogger.CommitToWorkflow(sTransformId, oTransaction, colEntries)", {Variant(transformId)});
  }
}

void AuditLogger::AddTransformSummaries(const std::string& transformId,
                                        const std::shared_ptr<TransactionFactory>& factory) {
  try {
    AuditLogDefinition& definition = RequireDefinition(transformId);
    IntegrationLogEntry entry;
    entry.Reason = AuditSummary::GenerateEmailHeader(definition, factory, GetSummaryCountersByTransformId(transformId));
    entry.LogType = kLogTypeSummary;
    entry.TransformId = transformId;
    StampEntry(entry);
    WriteEntry(entry);
  } catch (...) {
    ErrorInRethrow("AuditLogger.AddTransformSummaries(sTransformId, oFactory)", {Variant(transformId)});
  }
}

void AuditLogger::GenerateAuditReports() {}

void AuditLogger::WriteEntryToViewLog(const IntegrationLogEntry& entry) {
  try {
    queue_.SendMessage(entry, true);
  } catch (...) {
    ErrorInRethrow("AuditLogger.WriteEntryToViewLog(oEntry)", {});
  }
}

}  // namespace tessel
