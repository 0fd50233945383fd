#include "output/WriteRecordCache.h"

namespace tessel {

void WriteRecordCache::AddCacheItem(const std::string& recordId, std::shared_ptr<WriteRecordcacheItem> item) {
  auto [it, inserted] = items_.insert_or_assign(recordId, std::move(item));
  if (inserted) ids_.push_back(recordId);
}

void WriteRecordCache::SetCacheData(std::string_view recordId, Variant data) {
  if (items_.empty()) return;
  auto found = items_.find(std::string(recordId));
  if (found != items_.end()) found->second->SetData(std::move(data));
}

}  // namespace tessel
