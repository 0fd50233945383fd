#include "audit/AuditLogDefinition.h"

#include <libxml/tree.h>

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/Variant.h"
#include "job/PropertyBagHelper.h"
#include "job/Session.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {
constexpr int32_t kErrNoReportGroup = 7500;
constexpr int32_t kErrRecordNotInAudit = 8250;

}  // namespace

AuditLogDefinition::AuditLogDefinition() = default;
AuditLogDefinition::~AuditLogDefinition() = default;

void AuditLogDefinition::SetOptions(TransformDefinition& definition) {
  try {
    Ref<XMLWrapper> document = MakeRef<XMLWrapper>();
    document->LoadXML(XMLWrapper::NodeXml(definition.AuditNode()));
    auto bag = std::make_unique<PropertyBagHelper>(*document);
    auditDocument_ = std::move(document);
    bag_ = std::move(bag);

    logStart_ = bag_->HasProperty("logstart") && BooleanText::Parse(bag_->Property("logstart"));
    logEnd_ = bag_->HasProperty("logend") && BooleanText::Parse(bag_->Property("logend"));
    reportWarnings_ = true;
    Session* session = CurrentSession();
    bool testMode = session != nullptr && session->TestMode();
    if (!(testMode && !bag_->HasProperty("rptwarnings"))) {
      reportWarnings_ = BooleanText::Parse(bag_->Property("rptwarnings"));
    }
    supportsWorkflow_ = definition.SupportsWorkflow();
    transformErrorAction_ = 0;
    if (bag_->HasProperty("actiontransformerror")) {
      std::string action = bag_->Property("actiontransformerror");
      if (!action.empty()) transformErrorAction_ = Variant(action).ToInteger();
    }
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.SetOptions(oTfmDefinition)", {});
  }
}

std::string AuditLogDefinition::ReportGroup() const {
  try {
    Check(bag_ && bag_->HasProperty("rptgroup"), kErrNoReportGroup,
          "Report Group Attribute not found in Audit Definition");
    return bag_->Property("rptgroup");
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.ReportGroup()", {});
  }
}

std::string AuditLogDefinition::SummaryHeader() const {
  try {
    return bag_->Property("summaryhdr");
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.SummaryHeader()", {});
  }
}

std::vector<std::string> AuditLogDefinition::SummaryEntries() const {
  try {
    return bag_->GetList("auditsummary");
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.SummaryEntries()", {});
  }
}

void AuditLogDefinition::SetTransformErrorActionIfNone(int16_t action) {
  if (transformErrorAction_ != 0) return;
  transformErrorAction_ = action;
  if (bag_) bag_->SetProperty("actiontransformerror", std::to_string(action));
}

void AuditLogDefinition::InitialiseRecordCache(TransformDefinition& definition) {
  try {
    XMLWrapper& wrapper = *definition.TransformDefinitionXWrapper();
    for (xmlNodePtr record : definition.RecordNodes()) {
      std::string id = definition.RecordId(record);
      if (wrapper.HasAttribute(record, "onerrormsg")) {
        errorMessages_[id] = wrapper.GetAttributeFromNode(record, "onerrormsg");
      }
      errorWriteBack_[id] = !wrapper.GetNodesFromXPath("FIELD[@name='SYS.ERROR']", record).empty();
      warningWriteBack_[id] = !wrapper.GetNodesFromXPath("FIELD[@name='SYS.WARNING']", record).empty();
      std::vector<std::string> keys;
      for (int n = 1;; ++n) {
        auto fields = wrapper.GetNodesFromXPath("FIELD[@logkey='" + std::to_string(n) + "']", record);
        if (fields.empty()) break;
        keys.push_back(wrapper.GetAttributeFromNode(fields.front(), "name"));
      }
      if (!keys.empty()) logKeys_[id] = std::move(keys);
    }
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.InitialiseRecordCache(oTfmDefinition)", {});
  }
}

std::string AuditLogDefinition::TranslateTransactionFields(Transaction& transaction) const {
  try {
    const std::vector<std::string>* keys = LogKeyFields(transaction.TransactionId());
    if (keys == nullptr) return {};
    std::string source;
    for (size_t i = 0; i < keys->size(); ++i) {
      if (i > 0) source += " - ";
      const std::string& field = (*keys)[i];
      if (transaction.HasFieldAndSet(field)) source += transaction.GetFieldValues(field, 0).ToString();
    }
    return source;
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.TranslateTransactionFields(oTransaction)", {});
  }
}

std::optional<IntegrationLogEntry> AuditLogDefinition::GenerateLogObject(Transaction& transaction) const {
  try {
    const std::string* message = ErrorMessage(transaction.TransactionId());
    if (message == nullptr) return std::nullopt;
    IntegrationLogEntry entry;
    entry.Source = TranslateTransactionFields(transaction);
    entry.Reason = *message;
    return entry;
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.GenerateLogObject(oTransaction)", {});
  }
}

bool AuditLogDefinition::HasErrorWriteBackField(Transaction& transaction) const {
  try {
    const std::string& id = transaction.TransactionId();
    Check(errorWriteBack_.count(id) != 0, kErrRecordNotInAudit,
          "Record [%1] is not a record of transform [%2].", {Variant(id), Variant(transformId_)});
    return errorWriteBack_.at(id);
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.HasErrorWriteBackField(oTransaction)", {});
  }
}

bool AuditLogDefinition::HasWarningWriteBackField(Transaction& transaction) const {
  try {
    const std::string& id = transaction.TransactionId();
    Check(warningWriteBack_.count(id) != 0, kErrRecordNotInAudit,
          "Record [%1] is not a record of transform [%2].", {Variant(id), Variant(transformId_)});
    return warningWriteBack_.at(id);
  } catch (...) {
    ErrorInRethrow("AuditLogDefinition.HasWarningWriteBackField(oTransaction)", {});
  }
}

const std::string* AuditLogDefinition::ErrorMessage(const std::string& recordId) const {
  auto found = errorMessages_.find(recordId);
  return found == errorMessages_.end() ? nullptr : &found->second;
}

bool AuditLogDefinition::HasErrorWriteBackField(const std::string& recordId) const {
  auto found = errorWriteBack_.find(recordId);
  return found != errorWriteBack_.end() && found->second;
}

bool AuditLogDefinition::HasWarningWriteBackField(const std::string& recordId) const {
  auto found = warningWriteBack_.find(recordId);
  return found != warningWriteBack_.end() && found->second;
}

const std::vector<std::string>* AuditLogDefinition::LogKeyFields(const std::string& recordId) const {
  auto found = logKeys_.find(recordId);
  return found == logKeys_.end() ? nullptr : &found->second;
}

}  // namespace tessel
