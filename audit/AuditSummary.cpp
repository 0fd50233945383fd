#include "audit/AuditSummary.h"

#include "audit/AuditLogDefinition.h"
#include "audit/HuntErr.h"
#include "tasks/TransformTaskListGenerator.h"

namespace tessel {

namespace {
void AppendEscaped(std::string& html, std::string_view text) {
  for (char c : text) {
    switch (c) {
      case '&': html += "&amp;"; break;
      case '<': html += "&lt;"; break;
      case '>': html += "&gt;"; break;
      default: html += c;
    }
  }
}
}  // namespace

std::string AuditSummary::GenerateEmailString(const std::string& text, const std::string& cssClass) {
  std::string html;
  size_t start = 0;
  while (true) {
    size_t end = text.find("\r\n", start);
    html += "<p class=\"" + cssClass + "\">";
    AppendEscaped(html, std::string_view(text).substr(start, end == std::string::npos ? std::string::npos : end - start));
    html += "</p>";
    if (end == std::string::npos) break;
    start = end + 2;
  }
  return html;
}

std::string AuditSummary::ReplaceSummaryTokens(const std::string& summaryString,
                                               const std::shared_ptr<TransactionFactory>& factory,
                                               const std::vector<TransformTaskFieldReplacement>& counters) {
  try {
    TransformTaskListGenerator generator;
    generator.InitialiseTaskGenerator({summaryString}, factory, counters, std::string("0"));
    std::string text;
    for (const std::string& line : generator.GenerateResultList()) {
      if (!text.empty()) text += "\r\n";
      text += line;
    }
    return text;
  } catch (...) {
    ErrorInRethrow("AuditLogger.ReplaceSummaryTokens(sTfmId, sSummaryString, oFactory, sResult)",
                   {Variant(summaryString)});
  }
}

std::string AuditSummary::GenerateEmailHeader(const AuditLogDefinition& definition,
                                              const std::shared_ptr<TransactionFactory>& factory,
                                              const std::vector<TransformTaskFieldReplacement>& counters) {
  try {
    std::string html = GenerateEmailString(definition.SummaryHeader(), "header");
    for (const std::string& entry : definition.SummaryEntries()) {
      html += GenerateEmailString(ReplaceSummaryTokens(entry, factory, counters), "body");
    }
    return html;
  } catch (...) {
    ErrorInRethrow("AuditLogger.GenerateEmailHeader(oTfmDefinition, oFactory, sResult)",
                   {Variant(definition.TransformId())});
  }
}

}  // namespace tessel
