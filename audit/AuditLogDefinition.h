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
#include <string>
#include <unordered_map>
#include <vector>

#include "store/XMLWrapper.h"

namespace tessel {

class TransformDefinition;

class PropertyBagHelper;

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

  std::unordered_map<std::string, std::string> errorMessages_;
  std::unordered_map<std::string, bool> errorWriteBack_;
  std::unordered_map<std::string, bool> warningWriteBack_;
  std::unordered_map<std::string, std::vector<std::string>> logKeys_;
};

}  // namespace tessel
