// TransformTaskListGenerator: expands statements with field tokens against a
// data document into the list of finished strings: one command line per
// record, one summary line per transform.
//
// A token is "%" followed by a name that runs to the next delimiter (blank
// = , ( ) [ ] ' " % > < & + - * /), or "%[" a name "]". A name "REC.FIELD"
// names the record; a bare name takes the record of the statement's first
// token. Tokens are replaced by the field's value on every record of that
// type; custom replacements (the audit counters) give their own value; a token
// of no field and no replacement stays as written, unless an unmatched value
// was given (summaries print "0" for counters never raised).
//
// Statements that need no record's values come out once: one string for each
// distinct set of values. A multi-valued field gives its values joined by ", ".
//
// The generator borrows nothing: it holds the factory it is given for the
// length of its life.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tasks/TransformTaskFieldReplacement.h"

namespace tessel {

class TransactionContext;
class TransactionFactory;
class TransactionSelector;
class TransformDefinition;

class TransformTaskListGenerator {
 public:
  TransformTaskListGenerator();
  ~TransformTaskListGenerator();

  // Tokenises every statement; 8261 for an unclosed "%[".
  void InitialiseTaskGenerator(const std::vector<std::string>& statements, std::shared_ptr<TransactionFactory> factory,
                               std::vector<TransformTaskFieldReplacement> customReplacements = {},
                               std::optional<std::string> unmatchedValue = std::nullopt);
  // All statements against the whole document.
  std::vector<std::string> GenerateResultList();
  // The same for the records below a context (all of the document without
  // one); an empty record id means the definition's first top record.
  // 8260 before InitialiseTaskGenerator.
  std::vector<std::string> GenerateContextResultSet(const std::string& transactionId, TransactionContext* context);
  // One statement, once for each distinct combination of its token values
  // over all records of its record type.
  std::vector<std::string> GenerateMatchingFiles(const std::string& statement);

  // The tokens of a statement, in order; exposed for the script task and tests.
  std::vector<TransformTaskFieldReplacement> TokenizeClause(const std::string& statement) const;

 private:
  struct CacheItem {
    std::vector<TransformTaskFieldReplacement> Tokens;
    std::string Statement;
    std::string TransactionId;
    bool RequiresIteration = false;
  };

  void UpdateTokens(CacheItem& item);
  void PerformTransform(TransactionSelector& selector, std::vector<std::string>& result);
  // The item's tokens with values from the selector's current record, or
  // none when the record has no value for a field token.
  void GenerateValueList(CacheItem& item, TransactionSelector* selector);
  static std::string PerformSubstitution(const std::string& statement,
                                         const std::vector<TransformTaskFieldReplacement>& tokens);
  static std::string ValueText(const Variant& value);
  const TransformTaskFieldReplacement* GetTokenCustomReplacement(const std::string& transactionId,
                                                                 const std::string& fieldId) const;
  void CheckInitialised() const;

  bool initialised_ = false;
  std::shared_ptr<TransactionFactory> factory_;
  std::shared_ptr<TransformDefinition> definition_;
  std::vector<TransformTaskFieldReplacement> custom_;
  std::optional<std::string> unmatchedValue_;
  std::map<std::string, std::vector<CacheItem>> items_;
};

}  // namespace tessel
