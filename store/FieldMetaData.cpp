#include "store/FieldMetaData.h"

namespace tessel {

bool FieldDictionary::Add(FieldMetaData field) {
  auto [it, added] = index_.emplace(field.FieldName, fields_.size());
  if (!added) return false;
  fields_.push_back(std::move(field));
  return true;
}

const FieldMetaData* FieldDictionary::Find(std::string_view name) const {
  auto found = index_.find(name);
  return found == index_.end() ? nullptr : &fields_[found->second];
}

}  // namespace tessel
