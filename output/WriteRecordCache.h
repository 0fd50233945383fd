// WriteRecordCache: the ancestors of a write transform's commit record, so
// that every output unit can repeat them.
//
// The chain runs from the top record down the line of first child records to
// the commit record's parent; EntryItem is its first item. Writers store the
// data they made for each record with SetCacheData and replay the chain when a
// new unit starts. The cache owns its items.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Variant.h"
#include "output/WriteRecordcacheItem.h"

namespace tessel {

class WriteRecordCache {
 public:
  // Adds an item under its record id; a second item for an id replaces the first.
  void AddCacheItem(const std::string& recordId, std::shared_ptr<WriteRecordcacheItem> item);
  // Stores data for a record id in the cache; ignored for other ids.
  void SetCacheData(std::string_view recordId, Variant data);

  const std::unordered_map<std::string, std::shared_ptr<WriteRecordcacheItem>>& Items() const { return items_; }
  const std::shared_ptr<WriteRecordcacheItem>& EntryItem() const { return entry_; }
  void SetEntryItem(std::shared_ptr<WriteRecordcacheItem> item) { entry_ = std::move(item); }
  // Record ids in the order they were added.
  const std::vector<std::string>& Ids() const { return ids_; }
  size_t Count() const { return ids_.size(); }

 private:
  std::unordered_map<std::string, std::shared_ptr<WriteRecordcacheItem>> items_;
  std::shared_ptr<WriteRecordcacheItem> entry_;
  std::vector<std::string> ids_;
};

}  // namespace tessel
