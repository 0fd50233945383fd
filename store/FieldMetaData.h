// FieldMetaData: what the store knows of one field of a record type, read
// once from the definition's FIELD element; and FieldDictionary, the fields of
// one record type by name, in the definition's order.
//
// A dictionary is built by TransactionFactory on the first use of a record
// type and shared, read-only, by every Transaction of that type.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tessel {

// Field type numbers of the definition's FIELD/@type.
enum FieldType : int16_t {
  kFieldBoolean = 0,
  kFieldLong = 1,
  kFieldDecimal = 2,
  kFieldString = 3,
  kFieldDate = 4,
  kFieldBinary = 5,
};

struct FieldMetaData {
  std::string FieldName;
  int16_t FieldType = kFieldString;
  bool AllowMultiVal = false;
};

class FieldDictionary {
 public:
  // False when the name is there already.
  bool Add(FieldMetaData field);
  // nullptr when the name is unknown.
  const FieldMetaData* Find(std::string_view name) const;
  // The same, trying the field at `hint` first, then the one before it;
  // `hint` then stands on the field after the one found, so that a walk in
  // definition order, asking once or twice for each field, finds each
  // without hashing its name.
  const FieldMetaData* Find(std::string_view name, size_t& hint) const {
    if (hint < fields_.size() && fields_[hint].FieldName == name) return &fields_[hint++];
    if (hint - 1 < fields_.size() && fields_[hint - 1].FieldName == name) return &fields_[hint - 1];
    auto found = index_.find(name);
    if (found == index_.end()) return nullptr;
    hint = found->second + 1;
    return &fields_[found->second];
  }
  size_t Count() const { return fields_.size(); }
  // The 0-based place in the definition's order of a field Find returned.
  size_t PlaceOf(const FieldMetaData& field) const { return static_cast<size_t>(&field - fields_.data()); }
  // 0-based, in the definition's order.
  const FieldMetaData& At(size_t index) const { return fields_[index]; }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
  };
  std::vector<FieldMetaData> fields_;
  std::unordered_map<std::string, size_t, Hash, std::equal_to<>> index_;
};

}  // namespace tessel
