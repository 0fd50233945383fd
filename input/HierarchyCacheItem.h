// HierarchyCacheItem: what HeirarchicalReaderHelper remembers of the last
// record inserted of one record type: its key values and its place in the
// data document. Items are owned by the helper's cache; ChildrenCacheObjects
// points at the items of all descendant record types in the same cache.
#pragma once

#include <string>
#include <vector>

#include "core/Object.h"
#include "store/TransactionContext.h"

namespace tessel {

class HierarchyCacheItem {
 public:
  std::string RecordId;
  bool IsValid = false;
  Ref<TransactionContext> Context;
  std::vector<HierarchyCacheItem*> ChildrenCacheObjects;

  const std::vector<std::string>& KeyNames() const { return keyNames_; }
  // Also sizes Keys to match.
  void SetKeyNames(std::vector<std::string> names);
  // Key values of the record last inserted, by key ordinal.
  std::vector<std::string> Keys;

  // A record of an ancestor type was inserted: no descendant's place holds.
  void InvalidChildCache();

 private:
  std::vector<std::string> keyNames_;
};

}  // namespace tessel
