// AuditSummary: the summary text a transform leaves in the audit log at its
// end, made of its audit definition's header and summary entries, with the
// entries' tokens ("%ORDER.PROCESSED") resolved from the run's counters.
//
// The text is HTML paragraphs, as the mailed audit report shows it: the header
// in class "header", every line of every entry in class "body".
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tasks/TransformTaskFieldReplacement.h"

namespace tessel {

class AuditLogDefinition;
class TransactionFactory;

class AuditSummary {
 public:
  // Each line of the text (lines end in CR LF) as a paragraph of the class.
  static std::string GenerateEmailString(const std::string& text, const std::string& cssClass);
  // The whole summary of a transform.
  static std::string GenerateEmailHeader(const AuditLogDefinition& definition,
                                         const std::shared_ptr<TransactionFactory>& factory,
                                         const std::vector<TransformTaskFieldReplacement>& counters);
  // One summary entry with its tokens replaced by counters, "0" for a counter
  // never raised; one line for each distinct combination, joined by CR LF.
  static std::string ReplaceSummaryTokens(const std::string& summaryString,
                                          const std::shared_ptr<TransactionFactory>& factory,
                                          const std::vector<TransformTaskFieldReplacement>& counters);
};

}  // namespace tessel
