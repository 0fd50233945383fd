#include "input/HeirarchicalReaderHelper.h"

#include <algorithm>
#include <cstring>

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelectStringBldr.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {

constexpr int32_t kErrKeyCount = 8222;
constexpr int32_t kErrKeyNonNumeric = 8220;
constexpr int32_t kErrKeyRange = 8221;
// Deeper record chains than this are refused rather than walked.
constexpr int kMaxDepth = 256;

std::string Attribute(xmlNodePtr node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (value == nullptr) return {};
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

std::string FieldText(Transaction& transaction, const std::string& name) {
  return transaction.GetFieldValues(name).ToString();
}

}  // namespace

HeirarchicalReaderHelper::HeirarchicalReaderHelper() = default;
HeirarchicalReaderHelper::~HeirarchicalReaderHelper() = default;

bool HeirarchicalReaderHelper::Ignored(std::string_view id) const {
  return ignore_ && std::find(ignore_->begin(), ignore_->end(), id) != ignore_->end();
}

HierarchyCacheItem* HeirarchicalReaderHelper::Find(std::string_view id) {
  auto found = cache_.find(std::string(id));
  return found == cache_.end() ? nullptr : found->second.get();
}

const HierarchyCacheItem* HeirarchicalReaderHelper::CacheItem(std::string_view recordId) const {
  auto found = cache_.find(std::string(recordId));
  return found == cache_.end() ? nullptr : found->second.get();
}

void HeirarchicalReaderHelper::InitialiseHelper(std::shared_ptr<TransformDefinition> definition,
                                                std::shared_ptr<TransactionFactory> factory,
                                                std::string_view topRecordId,
                                                std::optional<std::vector<std::string>> ignoreRecords) {
  try {
    if (!definition || !factory) ThrowRuntimeError(91);
    definition_ = std::move(definition);
    factory_ = std::move(factory);
    topRecordId_ = std::string(topRecordId);
    ignore_ = std::move(ignoreRecords);
    cache_.clear();
    deepestChildren_.clear();
    deepestSet_.clear();
    InitialiseCache();
    // A cyclic definition would never end the walk below: refuse it first.
    definition_->RecordsAreNonCyclical();
    IsDeepestChild("", 0);
    topContext_ = factory_->Data()->CreateContext();
    factory_->SetContextToTopDataNode(*topContext_);
  } catch (...) {
    ErrorInRethrow("HeirarchicalReaderHelper.InitialiseHelper(oTransformDefinition, oTransactionFactory, "
                   "sTopRecordId, vIgnoreRecords)",
                   {Variant(), Variant(), Variant(std::string(topRecordId))});
  }
}

std::vector<xmlNodePtr> HeirarchicalReaderHelper::KeysFromTransaction(xmlNodePtr recordNode) {
  std::vector<xmlNodePtr> keys;
  for (xmlNodePtr child = recordNode ? recordNode->children : nullptr; child; child = child->next) {
    if (child->type == XML_ELEMENT_NODE && std::strcmp(reinterpret_cast<const char*>(child->name), "FIELD") == 0 &&
        xmlHasProp(child, reinterpret_cast<const xmlChar*>("key")) != nullptr) {
      keys.push_back(child);
    }
  }
  return keys;
}

void HeirarchicalReaderHelper::InitialiseCache() {
  const std::string transformId = definition_->TransformId();
  for (xmlNodePtr record : definition_->RecordNodes()) {
    const std::string id = definition_->RecordId(record);
    if (Ignored(id)) continue;
    const std::string parentId = definition_->RecordParentId(record);
    const std::vector<xmlNodePtr> keyFields = KeysFromTransaction(record);
    const int32_t count = static_cast<int32_t>(keyFields.size());
    if (!parentId.empty() && definition_->IsRecordDescendent(topRecordId_, id)) {
      const int32_t parentCount =
          static_cast<int32_t>(KeysFromTransaction(definition_->RecordNode(parentId)).size());
      Check(parentCount < count, kErrKeyCount,
            "The number of keys defined [%1] on Transaction [%2] is insufficient. Each child must have at least "
            "one more key field than its parent. The minimum keys is [%3]",
            {Variant(count), Variant(id), Variant(parentCount + 1)});
    }
    Check(!(id == topRecordId_ && count == 0), kErrKeyCount,
          "No keys defined on Transaction [%1]. At least 1 field must be defined as a key.", Variant(id));
    if (count == 0) continue;
    std::vector<std::string> names(static_cast<size_t>(count));
    for (xmlNodePtr field : keyFields) {
      const std::string key = Attribute(field, "key");
      Check(IsNumericText(key), kErrKeyNonNumeric, "The Key Id [%1] on Record [%2] for Transform [%3] is non-numeric.",
            {Variant(key), Variant(id), Variant(transformId)});
      const int32_t ordinal = Variant(key).ToLong() - 1;
      Check(ordinal >= 0 && ordinal < count, kErrKeyRange,
            "The Key Id [%1] on Record [%2] for Transform [%3] is out of range. The key id should be in the range "
            "1-%4.",
            {Variant(key), Variant(id), Variant(transformId), Variant(count)});
      names[static_cast<size_t>(ordinal)] = Attribute(field, "name");
    }
    auto item = std::make_unique<HierarchyCacheItem>();
    item->RecordId = id;
    item->Context = factory_->Data()->CreateContext();
    item->Context->SetAutoUpdate(false);
    item->SetKeyNames(std::move(names));
    item->IsValid = false;
    cache_[id] = std::move(item);
  }
  InitialiseCacheChildren();
}

void HeirarchicalReaderHelper::InitialiseCacheChildren() {
  for (auto& [id, item] : cache_) {
    item->ChildrenCacheObjects.clear();
    for (const std::string& child : definition_->RecordAllDescendentIDs(id)) {
      if (Ignored(child)) continue;
      if (HierarchyCacheItem* found = Find(child)) item->ChildrenCacheObjects.push_back(found);
    }
  }
}

void HeirarchicalReaderHelper::IsDeepestChild(const std::string& parentId, int depth) {
  if (depth > kMaxDepth) return;
  for (xmlNodePtr record : definition_->RecordDescendents(parentId)) {
    const std::string id = definition_->RecordId(record);
    if (id.empty()) continue;
    if (definition_->RecordDescendents(id).empty()) {
      if (deepestSet_.insert(id).second) deepestChildren_.push_back(id);
    } else {
      IsDeepestChild(id, depth + 1);
    }
  }
}

bool HeirarchicalReaderHelper::IsDeepestChildLookup(std::string_view transactionId) const {
  return deepestSet_.count(std::string(transactionId)) != 0;
}

void HeirarchicalReaderHelper::InsertTransaction(std::string_view transactionId, Transaction& transaction,
                                                 Ref<TransactionContext>* context) {
  try {
    const std::string tranId(transactionId);
    const std::string parentId = transaction.ParentId();
    HierarchyCacheItem* item = Find(tranId);
    static const std::vector<std::string> kNoKeys;
    const std::vector<std::string>& keys = item ? item->KeyNames() : kNoKeys;

    bool insert = true;
    bool deepest = false;
    if (checkDuplicateKeys_) {
      deepest = IsDeepestChildLookup(tranId);
      if (!deepest) insert = !TransactionExists(keys, transaction, tranId);
    }
    if (insert) {
      if (!parentId.empty()) {
        Ref<TransactionContext> target;
        if (HierarchyCacheItem* parent = Find(parentId)) {
          const std::vector<std::string> parentKeys = parent->KeyNames();
          target = ReturnCtxPtr(keys, parentKeys, transaction, parentId);
        }
        if (!target) ThrowRuntimeError(91);
        factory_->AddTransaction(transaction, *target);
      } else {
        factory_->AddTransaction(transaction, *topContext_);
      }
      if (!deepest) UpdateCacheContext(transaction, tranId, keys);
    }
    if (context != nullptr) *context = Ref<TransactionContext>();
  } catch (...) {
    ErrorInRethrow("HeirarchicalReaderHelper.InsertTransaction(sTransactionID, oTransaction, oContext)",
                   {Variant(std::string(transactionId))});
  }
}

bool HeirarchicalReaderHelper::TransactionExists(const std::vector<std::string>& keys, Transaction& transaction,
                                                 std::string_view transactionId) {
  // Same answer as a search of the whole document for a record of this type
  // with these key values; the factory answers it from its key index.
  std::vector<std::string> values;
  values.reserve(keys.size());
  for (const std::string& key : keys) {
    values.push_back(transaction.IsFieldSet(key) ? FieldText(transaction, key) : std::string());
  }
  return factory_->TransactionExists(transactionId, keys, values);
}

bool HeirarchicalReaderHelper::CacheHit(const std::vector<std::string>& keys, size_t parentKeyCount,
                                        Transaction& transaction, HierarchyCacheItem* parent) {
  if (parent == nullptr || !parent->IsValid) return false;
  for (size_t l = parentKeyCount; l-- > 0;) {
    if (l >= keys.size() || l >= parent->Keys.size()) return false;
    if (parent->Keys[l] != FieldText(transaction, keys[l])) return false;
  }
  return true;
}

Ref<TransactionContext> HeirarchicalReaderHelper::ReturnCtxPtr(const std::vector<std::string>& keys,
                                                               const std::vector<std::string>& parentKeys,
                                                               Transaction& transaction,
                                                               const std::string& parentTranId) {
  HierarchyCacheItem* parent = Find(parentTranId);
  if (CacheHit(keys, parentKeys.size(), transaction, parent)) return parent->Context;
  return PositionContextForInsert(keys, parentKeys, parentTranId, transaction);
}

Ref<TransactionContext> HeirarchicalReaderHelper::PositionContextForInsert(const std::vector<std::string>& keys,
                                                                           const std::vector<std::string>& parentKeys,
                                                                           const std::string& parentTranId,
                                                                           Transaction& transaction) {
  bool hasNull = false;
  const std::string query = GenerateQueryString(keys, parentKeys, transaction, false, hasNull);
  TransactionSelectStringBldr builder(definition_);
  builder.SetReturnTransaction(parentTranId);
  builder.AddSearch(parentTranId, query);
  Ref<TransactionContext> context = factory_->Data()->CreateContext();
  context->SetContext(builder.XPath());
  // The parent's cached keys are read from the child under the parent's key
  // names, and the parent's place becomes the child's record: the factory
  // links the next sibling beside it, under the same parent.
  UpdateCacheContext(transaction, parentTranId, parentKeys);
  return context;
}

std::string HeirarchicalReaderHelper::GenerateQueryString(const std::vector<std::string>& keys,
                                                          const std::vector<std::string>& fieldNames,
                                                          Transaction& transaction, bool useNullForNonSetFields,
                                                          bool& hasNullFields) {
  std::string query;
  for (size_t l = 0; l < fieldNames.size(); ++l) {
    std::string value;
    if (l < keys.size()) {
      if (useNullForNonSetFields && !transaction.IsFieldSet(keys[l])) {
        hasNullFields = true;
      } else {
        value = FieldText(transaction, keys[l]);
      }
    }
    if (!query.empty()) query += " and ";
    query += fieldNames[l];
    query += "='";
    query += TransactionSelectStringBldr::EscapeValue(value);
    query += "'";
  }
  return query;
}

void HeirarchicalReaderHelper::UpdateCacheContext(Transaction& transaction, const std::string& tranId,
                                                  const std::vector<std::string>& keys) {
  if (tranId.empty()) return;
  HierarchyCacheItem* item = Find(tranId);
  if (item == nullptr) return;
  for (size_t l = 0; l < keys.size() && l < item->Keys.size(); ++l) item->Keys[l] = FieldText(transaction, keys[l]);
  item->Context = transaction.Context();
  item->IsValid = true;
  item->InvalidChildCache();
}

}  // namespace tessel
