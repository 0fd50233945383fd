#include "tasks/TransformTaskListGenerator.h"

#include <set>

#include "audit/HuntErr.h"
#include "core/SafeArray.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"

namespace tessel {

namespace {
constexpr int32_t kErrNotInitialised = 8260;
constexpr int32_t kErrUnenclosedField = 8261;
constexpr std::string_view kDelimiters = " =,()[]'\"%><&+-*/";
}  // namespace

TransformTaskListGenerator::TransformTaskListGenerator() = default;
TransformTaskListGenerator::~TransformTaskListGenerator() = default;

std::vector<TransformTaskFieldReplacement> TransformTaskListGenerator::TokenizeClause(
    const std::string& statement) const {
  try {
    std::vector<TransformTaskFieldReplacement> tokens;
    size_t at = statement.find('%');
    while (at != std::string::npos) {
      TransformTaskFieldReplacement token;
      std::string name;
      size_t end = 0;  // 0-based index of the token's last character
      if (at + 1 < statement.size() && statement[at + 1] == '[') {
        size_t close = statement.find(']', at + 2);
        Check(close != std::string::npos, kErrUnenclosedField, "Unenclosed field name.");
        name = statement.substr(at + 2, close - at - 2);
        token.LongFieldName = true;
        end = close;
      } else {
        size_t close = statement.find_first_of(kDelimiters, at + 1);
        if (close == std::string::npos) close = statement.size();
        name = statement.substr(at + 1, close - at - 1);
        end = close - 1;
      }
      size_t dot = name.find('.');
      if (dot != std::string::npos) {
        token.TransactionId = name.substr(0, dot);
        token.FieldId = name.substr(dot + 1);
      } else {
        token.FieldId = name;
      }
      if (const TransformTaskFieldReplacement* custom = GetTokenCustomReplacement(token.TransactionId, token.FieldId)) {
        token.value = custom->value;
        token.IsCustomReplacement = true;
      }
      token.ReplacementStart = static_cast<int32_t>(at + 1);
      token.ReplacementEnd = static_cast<int32_t>(end + 1);
      tokens.push_back(std::move(token));
      at = statement.find('%', end + 1);
    }
    return tokens;
  } catch (...) {
    ErrorInRethrow("TransformTaskListGenerator.TokenizeClause(sStatement)", {Variant(statement)});
  }
}

const TransformTaskFieldReplacement* TransformTaskListGenerator::GetTokenCustomReplacement(
    const std::string& transactionId, const std::string& fieldId) const {
  for (const TransformTaskFieldReplacement& custom : custom_) {
    if (custom.TransactionId == transactionId && custom.FieldId == fieldId) return &custom;
  }
  return nullptr;
}

void TransformTaskListGenerator::InitialiseTaskGenerator(const std::vector<std::string>& statements,
                                                         std::shared_ptr<TransactionFactory> factory,
                                                         std::vector<TransformTaskFieldReplacement> customReplacements,
                                                         std::optional<std::string> unmatchedValue) {
  try {
    custom_ = std::move(customReplacements);
    unmatchedValue_ = std::move(unmatchedValue);
    factory_ = std::move(factory);
    definition_ = factory_ ? factory_->TransformDefinition() : nullptr;
    items_.clear();
    for (const std::string& statement : statements) {
      CacheItem item;
      item.Statement = statement;
      item.Tokens = TokenizeClause(statement);
      if (!item.Tokens.empty()) item.TransactionId = item.Tokens.front().TransactionId;
      if (!item.TransactionId.empty()) UpdateTokens(item);
      items_[item.TransactionId].push_back(std::move(item));
    }
    initialised_ = true;
  } catch (...) {
    ErrorInRethrow("TransformTaskListGenerator.InitialiseTaskGenerator(colStatements, oFactory)", {});
  }
}

void TransformTaskListGenerator::UpdateTokens(CacheItem& item) {
  if (!definition_ || !definition_->HasRecord(item.TransactionId)) return;
  XMLWrapper& wrapper = *definition_->TransformDefinitionXWrapper();
  xmlNodePtr record = definition_->RecordNodeByRecordId(item.TransactionId);
  for (TransformTaskFieldReplacement& token : item.Tokens) {
    if (token.IsCustomReplacement) continue;
    if (token.TransactionId.empty()) token.TransactionId = item.TransactionId;
    if (token.TransactionId != item.TransactionId) continue;
    if (!wrapper.GetNodesFromXPath("FIELD[@name='" + token.FieldId + "']", record).empty()) {
      token.HasField = true;
      item.RequiresIteration = true;
    }
  }
}

void TransformTaskListGenerator::CheckInitialised() const {
  Check(initialised_, kErrNotInitialised, "Tasklist Generator is not initialised.");
}

std::string TransformTaskListGenerator::ValueText(const Variant& value) {
  if (!value.IsArray()) return value.IsNull() ? std::string() : value.ToString();
  std::string text;
  for (const Variant& element : value.ArrayValue().Elements()) {
    if (!text.empty()) text += ", ";
    text += ValueText(element);
  }
  return text;
}

void TransformTaskListGenerator::GenerateValueList(CacheItem& item, TransactionSelector* selector) {
  Ref<Transaction> transaction;
  if (item.RequiresIteration && selector != nullptr && !selector->EOF_()) transaction = selector->Item();
  for (TransformTaskFieldReplacement& token : item.Tokens) {
    token.IsReplacement = false;
    if (token.IsCustomReplacement) {
      token.IsReplacement = true;
    } else if (token.HasField && transaction) {
      token.value = Variant(ValueText(transaction->GetFieldValues(token.FieldId, 0)));
      token.IsReplacement = true;
    } else if (!token.HasField && unmatchedValue_) {
      token.value = Variant(*unmatchedValue_);
      token.IsReplacement = true;
    }
  }
}

std::string TransformTaskListGenerator::PerformSubstitution(const std::string& statement,
                                                            const std::vector<TransformTaskFieldReplacement>& tokens) {
  std::string result;
  result.reserve(statement.size() + 16);
  size_t copied = 0;  // statement characters already handled
  for (const TransformTaskFieldReplacement& token : tokens) {
    if (!token.IsReplacement) continue;
    size_t start = static_cast<size_t>(token.ReplacementStart - 1);
    size_t end = static_cast<size_t>(token.ReplacementEnd);  // one past the token
    result.append(statement, copied, start - copied);
    result += ValueText(token.value);
    copied = end;
  }
  result.append(statement, copied, std::string::npos);
  return result;
}

void TransformTaskListGenerator::PerformTransform(TransactionSelector& selector, std::vector<std::string>& result) {
  // The walk is iterative over levels kept by the selector itself: at each
  // level every record is visited, then its children, then the level above.
  while (!selector.EOF_()) {
    Ref<Transaction> transaction = selector.Item();
    auto found = items_.find(transaction->TransactionId());
    if (found != items_.end()) {
      for (CacheItem& item : found->second) {
        if (!item.RequiresIteration) continue;
        GenerateValueList(item, &selector);
        result.push_back(PerformSubstitution(item.Statement, item.Tokens));
      }
    }
    int32_t children = selector.ChildRecords();
    if (children > 0) {
      std::vector<std::string> childIds = definition_->RecordDirectDescendentIDs(
          definition_->RecordNodeByRecordId(transaction->TransactionId()));
      for (const std::string& childId : childIds) {
        if (!selector.HasChild(childId)) continue;
        selector.MoveChild(childId);
        PerformTransform(selector, result);
      }
    }
    selector.MoveNext();
  }
  if (selector.HasParent()) selector.MoveParent();
}

std::vector<std::string> TransformTaskListGenerator::GenerateContextResultSet(const std::string& transactionId,
                                                                              TransactionContext* context) {
  try {
    CheckInitialised();
    std::vector<std::string> result;
    if (items_.empty()) return result;
    // Statements that need no record's values come out once.
    std::set<std::string> once;
    bool anyPerRecord = false;
    for (auto& [id, items] : items_) {
      for (CacheItem& item : items) {
        anyPerRecord = anyPerRecord || item.RequiresIteration;
        if (item.RequiresIteration) continue;
        GenerateValueList(item, nullptr);
        std::string text = PerformSubstitution(item.Statement, item.Tokens);
        if (once.insert(text).second) result.push_back(std::move(text));
      }
    }
    // A walk over the records adds nothing when no statement reads them
    // (a summary of counters only), and costs a visit of every record.
    if (!anyPerRecord) return result;
    std::string top = transactionId;
    if (top.empty()) {
      std::vector<xmlNodePtr> tops = definition_->RecordDescendents("");
      if (tops.empty()) return result;
      top = definition_->RecordId(tops.front());
    }
    Ref<TransactionSelector> selector = factory_->CreateTransactionSelector(nullptr, context);
    selector->SetReturnTransaction(top);
    selector->SetAllowMoveToUpperParent(true);
    selector->AddSearch(top, "*");
    selector->OpenResultset();
    selector->MoveFirst();
    PerformTransform(*selector, result);
    return result;
  } catch (...) {
    ErrorInRethrow("TransformTaskListGenerator.GenerateContextResultSet(sTransactionId, ctx)",
                   {Variant(transactionId)});
  }
}

std::vector<std::string> TransformTaskListGenerator::GenerateResultList() { return GenerateContextResultSet("", nullptr); }

std::vector<std::string> TransformTaskListGenerator::GenerateMatchingFiles(const std::string& statement) {
  try {
    CheckInitialised();
    CacheItem item;
    item.Statement = statement;
    item.Tokens = TokenizeClause(statement);
    if (!item.Tokens.empty()) item.TransactionId = item.Tokens.front().TransactionId;
    if (!item.TransactionId.empty()) UpdateTokens(item);
    std::vector<std::string> result;
    if (!item.RequiresIteration) {
      GenerateValueList(item, nullptr);
      result.push_back(PerformSubstitution(item.Statement, item.Tokens));
      return result;
    }
    Ref<TransactionSelector> selector = factory_->CreateTransactionSelector();
    selector->SetReturnTransaction(item.TransactionId);
    selector->AddSearch(item.TransactionId, "*");
    selector->OpenResultset();
    std::set<std::string> seen;
    for (selector->MoveFirst(); !selector->EOF_(); selector->MoveNext()) {
      GenerateValueList(item, selector.get());
      std::string key;
      for (const TransformTaskFieldReplacement& token : item.Tokens) {
        if (token.IsReplacement) key += ValueText(token.value) + "\\/";
      }
      if (seen.insert(key).second) result.push_back(PerformSubstitution(item.Statement, item.Tokens));
    }
    return result;
  } catch (...) {
    ErrorInRethrow("TransformTaskListGenerator.GenerateMatchingFiles(sStatement)", {Variant(statement)});
  }
}

}  // namespace tessel
