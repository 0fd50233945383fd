#include "input/HierarchyCacheItem.h"

namespace tessel {

void HierarchyCacheItem::SetKeyNames(std::vector<std::string> names) {
  keyNames_ = std::move(names);
  Keys.assign(keyNames_.size(), std::string());
}

void HierarchyCacheItem::InvalidChildCache() {
  for (HierarchyCacheItem* child : ChildrenCacheObjects) child->IsValid = false;
}

}  // namespace tessel
