// Dictionary: the scripting runtime's Scripting.Dictionary.
//
// Keys keep the order in which they were added (Keys, Items and For Each walk
// them in that order; Remove keeps the rest in order). Numbers of any subtype
// that are equal are one key; text keys compare as text (binary or, with
// CompareMode 1, without regard to case); object keys compare by identity.
// Reading Item of a missing key adds it with an Empty item, as scripts expect
// of the scripting runtime. Errors: Add of an existing key raises 457, Remove and Key of a missing
// key raise 32811 "Element not found", CompareMode on a non-empty dictionary
// raises 5.
//
// The dictionary owns its keys and items (Variants holding references).
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel::vbs {

class Dictionary : public Object {
 public:
  enum Member : DispId {
    kItem = kDispIdDefault,
    kAdd = 1,
    kExists,
    kKey,
    kItems,
    kKeys,
    kRemove,
    kRemoveAll,
    kCount,
    kCompareMode,
  };

  Dictionary() = default;
  ~Dictionary() override;

  std::string TypeName() const override { return "Dictionary"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;
  Ref<Object> NewEnum() override;

  // The same operations for C++ callers.
  void Add(const Variant& key, const Variant& item);
  bool Exists(const Variant& key) const;
  Variant Item(const Variant& key);  // adds a missing key with Empty
  void SetItem(const Variant& key, const Variant& item);
  void RenameKey(const Variant& key, const Variant& newKey);
  void Remove(const Variant& key);
  void RemoveAll();
  int32_t Count() const noexcept { return static_cast<int32_t>(entries_.size()); }
  int32_t CompareMode() const noexcept { return compareMode_; }
  void SetCompareMode(int32_t mode);
  Variant Keys() const;   // array from 0
  Variant Items() const;  // array from 0

 private:
  // The identity under which a key is stored.
  struct KeyId {
    uint8_t kind = 0;  // 0 Empty, 1 Null, 2 number, 3 text, 4 object, 5 error
    double number = 0;
    std::string text;
    const void* object = nullptr;
    bool operator==(const KeyId& o) const noexcept {
      return kind == o.kind && number == o.number && text == o.text && object == o.object;
    }
  };
  struct KeyHash {
    size_t operator()(const KeyId& k) const noexcept;
  };
  struct Entry {
    Variant key;
    Variant item;
  };
  using EntryList = std::list<Entry>;

  KeyId IdOf(const Variant& key) const;

  EntryList entries_;
  std::unordered_map<KeyId, EntryList::iterator, KeyHash> index_;
  int32_t compareMode_ = 0;
};

// What CreateObject("Scripting.Dictionary") returns.
Ref<Object> CreateDictionary();

}  // namespace tessel::vbs
