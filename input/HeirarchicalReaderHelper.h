// HeirarchicalReaderHelper: places flat records into a tree by their key
// values, and drops repeated parent lines.
//
// For each record type with keys the helper keeps a HierarchyCacheItem: the
// key values and position of the last record of that type. A child whose
// leading keys equal its parent type's cached keys goes under that parent
// without a search; any other child finds its parent with a query on the
// parent's key fields (the i-th key of the child against the i-th key of the
// parent, whatever the names). A record that has child record types is not
// inserted when a record of its type with the same keys exists already
// (CheckDuplicateKeys); records without child types are never tested.
//
// Ownership: the helper shares the definition and factory with its owner; the
// cache lives for one read.
//
// Errors: 8222 too few keys on a child or none on the top record; 8220 a
// non-numeric key ordinal; 8221 an ordinal out of range; 7010 a cyclic record
// definition; 7703 when a child's parent is not in the document.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/Object.h"
#include "input/HierarchyCacheItem.h"

namespace tessel {

class Transaction;
class TransactionContext;
class TransactionFactory;
class TransformDefinition;

class HeirarchicalReaderHelper {
 public:
  HeirarchicalReaderHelper();
  ~HeirarchicalReaderHelper();

  // `ignoreRecords`, when given, names record types left out of the cache.
  void InitialiseHelper(std::shared_ptr<TransformDefinition> definition,
                        std::shared_ptr<TransactionFactory> factory, std::string_view topRecordId,
                        std::optional<std::vector<std::string>> ignoreRecords = std::nullopt);
  // Links the transaction into the tree where its keys place it (or drops it
  // as a duplicate parent). `context` is cleared.
  void InsertTransaction(std::string_view transactionId, Transaction& transaction, Ref<TransactionContext>* context);

  bool PivotOnKeyFields() const { return pivotOnKeyFields_; }
  void SetPivotOnKeyFields(bool value) { pivotOnKeyFields_ = value; }
  bool CheckDuplicateKeys() const { return checkDuplicateKeys_; }
  void SetCheckDuplicateKeys(bool value) { checkDuplicateKeys_ = value; }

  // Inspection for tests and callers that report on the cache.
  const HierarchyCacheItem* CacheItem(std::string_view recordId) const;
  const std::vector<std::string>& DeepestChildren() const { return deepestChildren_; }

 private:
  void InitialiseCache();
  void InitialiseCacheChildren();
  std::vector<xmlNodePtr> KeysFromTransaction(xmlNodePtr recordNode);
  bool TransactionExists(const std::vector<std::string>& keys, Transaction& transaction,
                         std::string_view transactionId);
  void IsDeepestChild(const std::string& parentId, int depth);
  bool IsDeepestChildLookup(std::string_view transactionId) const;
  bool CacheHit(const std::vector<std::string>& keys, size_t parentKeyCount, Transaction& transaction,
                HierarchyCacheItem* parent);
  Ref<TransactionContext> ReturnCtxPtr(const std::vector<std::string>& keys,
                                       const std::vector<std::string>& parentKeys, Transaction& transaction,
                                       const std::string& parentTranId);
  void UpdateCacheContext(Transaction& transaction, const std::string& tranId, const std::vector<std::string>& keys);
  Ref<TransactionContext> PositionContextForInsert(const std::vector<std::string>& keys,
                                                   const std::vector<std::string>& parentKeys,
                                                   const std::string& parentTranId, Transaction& transaction);
  std::string GenerateQueryString(const std::vector<std::string>& keys, const std::vector<std::string>& fieldNames,
                                  Transaction& transaction, bool useNullForNonSetFields, bool& hasNullFields);
  bool Ignored(std::string_view id) const;
  HierarchyCacheItem* Find(std::string_view id);

  bool pivotOnKeyFields_ = false;
  bool checkDuplicateKeys_ = true;
  std::shared_ptr<TransformDefinition> definition_;
  std::shared_ptr<TransactionFactory> factory_;
  std::unordered_map<std::string, std::unique_ptr<HierarchyCacheItem>> cache_;
  std::vector<std::string> deepestChildren_;
  std::unordered_set<std::string> deepestSet_;
  std::optional<std::vector<std::string>> ignore_;
  std::string topRecordId_;
  Ref<TransactionContext> topContext_;
};

}  // namespace tessel
