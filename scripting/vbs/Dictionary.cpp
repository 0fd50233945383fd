#include "scripting/vbs/Dictionary.h"

#include <functional>
#include <vector>

#include "core/RuntimeError.h"
#include "scripting/vbs/BuiltinEnumerator.h"
#include "scripting/vbs/BuiltinText.h"

namespace tessel::vbs {

namespace {

constexpr int32_t kElementNotFound = 32811;

[[noreturn]] void ThrowElementNotFound() {
  throw Error(kElementNotFound, "Element not found", std::string(kScriptRuntimeSource));
}

constexpr BuiltinMember kMembers[] = {
    {"Item", Dictionary::kItem},     {"Add", Dictionary::kAdd},
    {"Exists", Dictionary::kExists}, {"Key", Dictionary::kKey},
    {"Items", Dictionary::kItems},   {"Keys", Dictionary::kKeys},
    {"Remove", Dictionary::kRemove}, {"RemoveAll", Dictionary::kRemoveAll},
    {"Count", Dictionary::kCount},   {"CompareMode", Dictionary::kCompareMode},
};

bool IsGet(InvokeKind kind) {
  return kind == InvokeKind::Method || kind == InvokeKind::PropertyGet;
}

}  // namespace

Dictionary::~Dictionary() {
  // Items may hold the last reference to objects that refer back here;
  // unlink everything before those objects run their clean-up.
  index_.clear();
  EntryList doomed;
  doomed.swap(entries_);
}

size_t Dictionary::KeyHash::operator()(const KeyId& k) const noexcept {
  size_t h = std::hash<uint8_t>()(k.kind);
  h ^= std::hash<double>()(k.number) + 0x9e3779b9 + (h << 6) + (h >> 2);
  h ^= std::hash<std::string>()(k.text) + 0x9e3779b9 + (h << 6) + (h >> 2);
  h ^= std::hash<const void*>()(k.object) + 0x9e3779b9 + (h << 6) + (h >> 2);
  return h;
}

Dictionary::KeyId Dictionary::IdOf(const Variant& key) const {
  KeyId id;
  switch (key.Type()) {
    case VarType::Empty:
      id.kind = 0;
      break;
    case VarType::Null:
      id.kind = 1;
      break;
    case VarType::String:
      id.kind = 3;
      id.text =
          compareMode_ == 0 ? std::string(key.StringValue()) : text::ToLower(key.StringValue());
      break;
    case VarType::Object:
      id.kind = 4;
      id.object = key.ObjectPtr();
      break;
    case VarType::Error:
      id.kind = 5;
      id.number = key.ErrorValue();
      break;
    case VarType::Array:
      ThrowRuntimeError(13);
    default:
      id.kind = 2;
      id.number = key.ToDouble();
      if (id.number == 0) id.number = 0;  // one key for -0 and 0
      break;
  }
  return id;
}

void Dictionary::Add(const Variant& key, const Variant& item) {
  KeyId id = IdOf(key);
  if (index_.count(id)) ThrowRuntimeError(457);
  entries_.push_back(Entry{key, item});
  index_.emplace(std::move(id), std::prev(entries_.end()));
}

bool Dictionary::Exists(const Variant& key) const { return index_.count(IdOf(key)) != 0; }

Variant Dictionary::Item(const Variant& key) {
  KeyId id = IdOf(key);
  auto it = index_.find(id);
  if (it != index_.end()) return it->second->item;
  entries_.push_back(Entry{key, Variant()});
  index_.emplace(std::move(id), std::prev(entries_.end()));
  return Variant();
}

void Dictionary::SetItem(const Variant& key, const Variant& item) {
  KeyId id = IdOf(key);
  auto it = index_.find(id);
  if (it != index_.end()) {
    Variant old = std::move(it->second->item);
    it->second->item = item;
    return;  // `old` goes last, after the dictionary is consistent
  }
  entries_.push_back(Entry{key, item});
  index_.emplace(std::move(id), std::prev(entries_.end()));
}

void Dictionary::RenameKey(const Variant& key, const Variant& newKey) {
  KeyId id = IdOf(key);
  auto it = index_.find(id);
  if (it == index_.end()) ThrowElementNotFound();
  KeyId newId = IdOf(newKey);
  if (newId == id) {
    it->second->key = newKey;
    return;
  }
  if (index_.count(newId)) ThrowRuntimeError(457);
  EntryList::iterator entry = it->second;
  index_.erase(it);
  entry->key = newKey;
  index_.emplace(std::move(newId), entry);
}

void Dictionary::Remove(const Variant& key) {
  auto it = index_.find(IdOf(key));
  if (it == index_.end()) ThrowElementNotFound();
  EntryList removed;
  removed.splice(removed.begin(), entries_, it->second);
  index_.erase(it);
}

void Dictionary::RemoveAll() {
  index_.clear();
  EntryList removed;
  removed.swap(entries_);
}

void Dictionary::SetCompareMode(int32_t mode) {
  if (mode < 0 || !entries_.empty()) ThrowRuntimeError(5);
  compareMode_ = mode;
}

Variant Dictionary::Keys() const {
  std::vector<Variant> keys;
  keys.reserve(entries_.size());
  for (const Entry& e : entries_) keys.push_back(e.key);
  if (keys.empty()) {
    Variant::Bound bound{0, -1};
    return Variant::NewArray(std::span<const Variant::Bound>(&bound, 1));
  }
  return Variant::FromVector(std::move(keys));
}

Variant Dictionary::Items() const {
  std::vector<Variant> items;
  items.reserve(entries_.size());
  for (const Entry& e : entries_) items.push_back(e.item);
  if (items.empty()) {
    Variant::Bound bound{0, -1};
    return Variant::NewArray(std::span<const Variant::Bound>(&bound, 1));
  }
  return Variant::FromVector(std::move(items));
}

DispId Dictionary::GetMemberId(std::string_view name) { return FindMember(kMembers, name); }

Variant Dictionary::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  switch (id) {
    case kItem:
      if (IsGet(kind)) {
        CheckArgumentCount(args, 1, 1);
        return Item(args[0]);
      }
      CheckArgumentCount(args, 2, 2);
      SetItem(args[0], args[1]);
      return Variant();
    case kAdd:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 2, 2);
      Add(args[0], args[1]);
      return Variant();
    case kExists:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 1, 1);
      return Variant(Exists(args[0]));
    case kKey:
      if (kind != InvokeKind::PropertyLet && kind != InvokeKind::PropertySet) break;
      CheckArgumentCount(args, 2, 2);
      RenameKey(args[0], args[1]);
      return Variant();
    case kItems:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 0, 0);
      return Items();
    case kKeys:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 0, 0);
      return Keys();
    case kRemove:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 1, 1);
      Remove(args[0]);
      return Variant();
    case kRemoveAll:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 0, 0);
      RemoveAll();
      return Variant();
    case kCount:
      if (!IsGet(kind)) break;
      CheckArgumentCount(args, 0, 0);
      return Variant(Count());
    case kCompareMode:
      if (IsGet(kind)) {
        CheckArgumentCount(args, 0, 0);
        return Variant(compareMode_);
      }
      CheckArgumentCount(args, 1, 1);
      SetCompareMode(args[0].ToLong());
      return Variant();
    default:
      break;
  }
  ThrowMemberNotFound();
}

Ref<Object> Dictionary::NewEnum() {
  std::vector<Variant> keys;
  keys.reserve(entries_.size());
  for (const Entry& e : entries_) keys.push_back(e.key);
  return MakeRef<BuiltinEnumerator>(std::move(keys));
}

Ref<Object> CreateDictionary() { return MakeRef<Dictionary>(); }

}  // namespace tessel::vbs
