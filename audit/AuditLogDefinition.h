// AuditLogDefinition: the audit options of one transform, read from the AUDIT
// node of its definition, and a per-record cache built from its record types
// (the onerrormsg message, the SYS.ERROR / SYS.WARNING write-back fields and
// the log key fields).
//
// The definition copies what it needs out of the TransformDefinition; it holds
// no reference to it afterwards.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "audit/IntegrationLogEntry.h"
#include "store/XMLWrapper.h"

namespace tessel {

class TransformDefinition;

class PropertyBagHelper;
class Transaction;

class AuditLogDefinition {
 public:
  AuditLogDefinition();
  ~AuditLogDefinition();

  const std::string& TransformId() const { return transformId_; }
  void SetTransformId(std::string transformId) { transformId_ = std::move(transformId); }

  // rptgroup; 7500 when the audit node has none.
  std::string ReportGroup() const;
  bool LogStart() const { return logStart_; }
  bool LogEnd() const { return logEnd_; }
  bool ReportWarnings() const { return reportWarnings_; }
  // summaryhdr and auditsummary; the option lookup raises when they are absent.
  std::string SummaryHeader() const;
  std::vector<std::string> SummaryEntries() const;
  // actiontransformerror; 0 means none.
  int16_t TransformErrorAction() const { return transformErrorAction_; }

  void SetOptions(TransformDefinition& definition);
  void InitialiseRecordCache(TransformDefinition& definition);
  void SetTransformErrorActionIfNone(int16_t action);

  // The record's log key: the values of its key fields joined by " - ", an
  // unset field leaving an empty slot; empty text for a record without a key.
  std::string TranslateTransactionFields(Transaction& transaction) const;
  // The extra entry of a record with an onerrormsg, else nothing.
  std::optional<IntegrationLogEntry> GenerateLogObject(Transaction& transaction) const;
  // Whether the record takes error / warning texts back; 8250 for a record
  // the transform's definition does not have.
  bool HasErrorWriteBackField(Transaction& transaction) const;
  bool HasWarningWriteBackField(Transaction& transaction) const;
  // The transform posts failed records to a workflow.
  bool SupportsWorkflow() const { return supportsWorkflow_; }

  // Per record id, from the record cache; an unknown id gives the empty answer.
  const std::string* ErrorMessage(const std::string& recordId) const;
  bool HasErrorWriteBackField(const std::string& recordId) const;
  bool HasWarningWriteBackField(const std::string& recordId) const;
  const std::vector<std::string>* LogKeyFields(const std::string& recordId) const;

 private:
  std::string transformId_;
  Ref<XMLWrapper> auditDocument_;
  std::unique_ptr<PropertyBagHelper> bag_;
  bool logStart_ = false;
  bool logEnd_ = false;
  bool reportWarnings_ = true;
  int16_t transformErrorAction_ = 0;
  bool supportsWorkflow_ = false;

  std::unordered_map<std::string, std::string> errorMessages_;
  std::unordered_map<std::string, bool> errorWriteBack_;
  std::unordered_map<std::string, bool> warningWriteBack_;
  std::unordered_map<std::string, std::vector<std::string>> logKeys_;
};

}  // namespace tessel
