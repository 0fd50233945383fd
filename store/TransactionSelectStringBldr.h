// TransactionSelectStringBldr: turns the searches of a TransactionSelector
// into one XPath query on the data document.
//
// A search is a statement of conditions "FIELD op value" joined by " and " or
// " or " (lower case, blanks around), with the operators =, <>, > and <, cut
// by StringTokeniser; a value of '' only asks for the field. "*" matches
// every record with at least one child element. Steps with searches are
// appended in the order of a walk from the deepest record up; steps without
// are put in front as RECORDS/RECORD.
//
// Errors: 8153 a search on a record above the context, a general error for a
// return transaction above the context, 8151 when no record id can be found
// above the context node.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tessel {

class TransformDefinition;

class TransactionSelectStringBldr {
 public:
  explicit TransactionSelectStringBldr(std::shared_ptr<TransformDefinition> definition = nullptr);

  void SetDefinition(std::shared_ptr<TransformDefinition> definition) { definition_ = std::move(definition); }
  const std::string& ReturnTransaction() const { return returnTransaction_; }
  void SetReturnTransaction(std::string_view transactionId);
  void AddSearch(std::string_view transactionId, std::string_view query);
  // Takes the record id of the first RECORDS at most four parents above the
  // node as the context record; 8151 when there is none.
  void SetDataNode(xmlNodePtr node);
  const std::string& ContextRecordId() const { return contextRecordId_; }

  static std::string EscapeValue(std::string_view value);
  static std::string DeEscapeValue(std::string_view value);
  std::string XPath();

  // RECORDS[@id='<id>']/RECORD with the statement's conditions as predicate.
  static std::string GenerateQueryForTran(std::string_view transactionId, std::string_view statement);

 private:
  std::string GenerateConditionString();
  std::string GetDeepestDescendent(const std::string& transactionId, int& maxDepth, int currentDepth);
  std::string GetParentTranID(const std::string& transactionId);
  // The record's chain up to the top passes the context record.
  bool IsBelowContext(std::string_view transactionId);
  const std::string* SearchFor(const std::string& transactionId) const;

  std::shared_ptr<TransformDefinition> definition_;
  std::string returnTransaction_;
  std::vector<std::pair<std::string, std::string>> searches_;
  std::string contextRecordId_;
};

}  // namespace tessel
