#include "store/Transaction.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <libxml/dict.h>
#include <libxml/xmlsave.h>

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/Decimal.h"
#include "core/RuntimeError.h"
#include "core/SafeArray.h"
#include "core/TimeText.h"
#include "job/TransformDefinition.h"
#include "store/DataNodes.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"
#include "store/XmlHeap.h"

namespace tessel {
namespace {

const char* C(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

// The value as the text a VALUE holds.
std::string ValueText(const Variant& value) {
  if (value.IsString()) return std::string(value.StringValue());
  if (value.IsNull() || value.IsEmpty()) return {};
  return value.ToString();
}

bool IsEmptyValue(const Variant& value) {
  if (value.IsNull() || value.IsEmpty()) return true;
  if (value.IsString()) return value.StringValue().empty();
  return false;
}

std::vector<xmlNodePtr> ChildElements(xmlNodePtr parent) {
  std::vector<xmlNodePtr> out;
  if (parent == nullptr) return out;
  for (xmlNodePtr c = parent->children; c != nullptr; c = c->next) {
    if (c->type == XML_ELEMENT_NODE) out.push_back(c);
  }
  return out;
}

// The nodes of VALUES/* from a FIELD.
std::vector<xmlNodePtr> ValueNodes(xmlNodePtr field) {
  std::vector<xmlNodePtr> out;
  for (xmlNodePtr values = field->children; values != nullptr; values = values->next) {
    if (!DataNodes::IsElement(values, "VALUES")) continue;
    for (xmlNodePtr c = values->children; c != nullptr; c = c->next) {
      if (c->type == XML_ELEMENT_NODE) out.push_back(c);
    }
  }
  return out;
}

// True when the node is a FIELD whose first attribute is its name and
// holds `name`: what the step FIELD[@name='<name>'] asks, in the shape that
// fields are made in.
inline bool IsFieldNamed(xmlNodePtr node, std::string_view name) {
  if (node->type != XML_ELEMENT_NODE || node->ns != nullptr) return false;
  xmlAttrPtr attribute = node->properties;
  if (attribute == nullptr || attribute->ns != nullptr) return false;
  const xmlChar* a = attribute->name;
  if (a[0] != 'n' || a[1] != 'a' || a[2] != 'm' || a[3] != 'e' || a[4] != '\0') return false;
  const xmlChar* e = node->name;
  if (e[0] != 'F' || e[1] != 'I' || e[2] != 'E' || e[3] != 'L' || e[4] != 'D' || e[5] != '\0') return false;
  xmlNodePtr text = attribute->children;
  if (text == nullptr || text->next != nullptr || text->type != XML_TEXT_NODE || text->content == nullptr) return false;
  return DataNodes::SameName(text->content, name);
}

// The first FIELD[@name=`name`] from `first` on, before `stop`.
// Kept out of line: FindField mostly answers before it.
[[gnu::noinline]] xmlNodePtr FieldAmong(xmlNodePtr first, xmlNodePtr stop, std::string_view name) {
  const char head = name.empty() ? '\0' : name.front();
  for (xmlNodePtr c = first; c != stop; c = c->next) {
    if (c->type != XML_ELEMENT_NODE) continue;
    // In fields as they are made `name` is the first attribute and one
    // text: another text there rules the node out without further tests,
    // mostly by its first byte.
    if (xmlAttrPtr a = c->properties; a != nullptr && a->ns == nullptr) {
      xmlNodePtr text = a->children;
      if (text != nullptr && text->next == nullptr && text->type == XML_TEXT_NODE && text->content != nullptr &&
          (static_cast<char>(text->content[0]) != head || !DataNodes::SameName(text->content, name)) &&
          DataNodes::SameLiteral(a->name, "name")) {
        continue;
      }
    }
    if (!DataNodes::IsElement(c, "FIELD")) continue;
    xmlAttrPtr attribute = DataNodes::FindAttribute(c, "name");
    if (attribute != nullptr && DataNodes::AttributeEquals(attribute, name)) return c;
  }
  return nullptr;
}

xmlNodePtr ElementSibling(xmlNodePtr node, bool forward) {
  for (xmlNodePtr s = forward ? node->next : node->prev; s != nullptr; s = forward ? s->next : s->prev) {
    if (s->type == XML_ELEMENT_NODE) return s;
  }
  return nullptr;
}

// A new empty file in `folder`, named like the platform's temporary files:
// up to three characters of the prefix, four hexadecimal digits, ".tmp".
std::string NewTempFile(const std::filesystem::path& folder, std::string_view prefix) {
  std::string start(prefix.substr(0, 3));
  static thread_local unsigned counter = static_cast<unsigned>(::getpid());
  for (int attempt = 0; attempt < 0x10000; ++attempt) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04X", (++counter) & 0xFFFFu);
    std::filesystem::path candidate = folder / (start + digits + ".tmp");
    int fd = ::open(candidate.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0644);
    if (fd >= 0) {
      ::close(fd);
      return candidate.string();
    }
    if (errno != EEXIST) break;
  }
  Check(false, 9546, "Cannot create temp file in [%1].", Variant(folder.string()));
  return {};
}

}  // namespace

Transaction::Transaction() = default;
Transaction::~Transaction() {
  for (const auto& entry : fieldNames_) xmlFree(entry.second);
  if (namesDict_ != nullptr) xmlDictFree(namesDict_);
}

void Transaction::SetTransactionMetaData(xmlNodePtr node) {
  metaData_ = node;
  haveId_ = false;
  haveParentId_ = false;
}

void Transaction::SetFieldMetaDataDictionary(std::shared_ptr<const FieldDictionary> dictionary) {
  fields_ = std::move(dictionary);
  metaHint_ = 0;
  fieldCount_ = fields_ ? static_cast<int32_t>(fields_->Count()) : 0;
}

void Transaction::SetData(xmlNodePtr node) {
  try {
    data_ = node;
    lastField_ = nullptr;
    lastPlace_ = kPlaceUnknown;
    plainKnown_ = false;
    if (data_ == nullptr) return;
    xmlAttrPtr stamp = DataNodes::FindAttribute(data_, "timestamp");
    const char* single = stamp != nullptr ? DataNodes::SingleText(stamp) : nullptr;
    if (stamp == nullptr || (single != nullptr ? *single == '\0' : DataNodes::AttributeValue(stamp).empty())) {
      SetTimeStamp();
    }
  } catch (...) {
    ErrorInRethrow("Transaction.Data(nodData)", {});
  }
}

void Transaction::KeepDocument(Ref<XMLWrapper> document) { ownDocument_ = std::move(document); }

void Transaction::Recycle() {
  metaData_ = nullptr;
  data_ = nullptr;
  lastField_ = nullptr;
  lastPlace_ = kPlaceUnknown;
  metaHint_ = 0;
  plainKnown_ = false;
  wrapper_.reset();
  ownDocument_.reset();
  factory_.reset();
  definition_.reset();
  fields_.reset();
  fieldCount_ = 0;
  parentId_.clear();
  haveId_ = false;
  haveParentId_ = false;
}

void Transaction::SetTimeStamp() {
  // Records are made far faster than once a millisecond: the text of the
  // current millisecond is kept per thread and formatted once.
  // The records of one millisecond also hold one shared text node.
  struct Stamp {
    int64_t millisecond = -1;
    std::string text;
    xmlNodePtr shared = nullptr;
    ~Stamp() {
      if (shared != nullptr) xmlFreeNode(shared);
    }
  };
  static thread_local Stamp last;
  const auto now = TimeText::Clock::now();
  const int64_t millisecond =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
  if (millisecond != last.millisecond) {
    last.text = TimeText::Time(now);
    last.millisecond = millisecond;
    if (last.shared != nullptr) xmlFreeNode(last.shared);
    last.shared = DataNodes::NewSharedText(last.text);
  }
  if (last.shared == nullptr) {
    DataNodes::SetAttribute(data_, "timestamp", last.text);
    return;
  }
  XmlHeap::Retain(last.shared);
  DataNodes::SetAttributeText(data_, "timestamp", last.shared);
}

void Transaction::SetXWrapper(Ref<XMLWrapper> wrapper) {
  if (!wrapper_) wrapper_ = std::move(wrapper);
}

void Transaction::SetFactory(std::weak_ptr<TransactionFactory> factory,
                             std::shared_ptr<tessel::TransformDefinition> definition) {
  factory_ = std::move(factory);
  definition_ = std::move(definition);
}

std::shared_ptr<TransactionFactory> Transaction::Factory() const {
  std::shared_ptr<TransactionFactory> factory = factory_.lock();
  if (!factory) ThrowRuntimeError(91);
  return factory;
}

void Transaction::NotifyChange() {
  if (wrapper_ && data_ != nullptr && wrapper_->IsInTree(data_)) {
    if (std::shared_ptr<TransactionFactory> factory = factory_.lock()) factory->RecordChanged(data_);
  }
}

void Transaction::RequireData() const {
  if (data_ == nullptr) ThrowRuntimeError(91);
}

std::string Transaction::TranAttribute(std::string_view name) {
  try {
    RequireData();
    xmlAttrPtr a = DataNodes::FindAttribute(data_, name);
    if (a == nullptr) Check(false, 7701, "No matching attribute [%1] could be found in the node.", Variant(name));
    return DataNodes::AttributeValue(a);
  } catch (...) {
    ErrorInRethrow("Transaction.TranAttribute(sName)", {Variant(name)});
  }
}

std::string Transaction::OptionalAttribute(const char* name) {
  RequireData();
  xmlAttrPtr a = DataNodes::FindAttribute(data_, name);
  return a ? DataNodes::AttributeValue(a) : std::string();
}

std::string Transaction::Summary() { return OptionalAttribute("summary"); }
void Transaction::SetSummary(std::string_view value) { SetTranAttribute("summary", Variant(value)); }

int32_t Transaction::Status() {
  try {
    std::string text = OptionalAttribute("status");
    return text.empty() ? 0 : Variant(text).ToLong();
  } catch (...) {
    ErrorInRethrow("Transaction.Status()", {});
  }
}
void Transaction::SetStatus(int32_t value) { SetTranAttribute("status", Variant(value)); }
std::string Transaction::OrigTranLocation() { return OptionalAttribute("uri"); }
void Transaction::SetOrigTranLocation(std::string_view value) { SetTranAttribute("uri", Variant(value)); }
std::string Transaction::OrigTranCoordinate() { return OptionalAttribute("uricoord"); }
void Transaction::SetOrigTranCoordinate(std::string_view value) { SetTranAttribute("uricoord", Variant(value)); }

const std::string& Transaction::ReadTransactionId() {
  try {
    if (metaData_ == nullptr) ThrowRuntimeError(91);
    if (metaData_ == idMeta_ && definition_ != nullptr && definition_ == idDefinition_) {
      haveId_ = true;
      return id_;
    }
    xmlAttrPtr a = DataNodes::FindAttribute(metaData_, "id");
    // Tested before Check: its argument would cost an allocation per record.
    if (a == nullptr) Check(false, 7701, "No matching attribute [%1] could be found in the node.", Variant("id"));
    id_ = DataNodes::AttributeValue(a);
    idMeta_ = metaData_;
    idDefinition_ = definition_;
    haveId_ = true;
    return id_;
  } catch (...) {
    ErrorInRethrow("Transaction.TransactionId()", {});
  }
}

const std::string& Transaction::ParentId() {
  try {
    if (!haveParentId_) {
      if (metaData_ == nullptr) ThrowRuntimeError(91);
      xmlAttrPtr a = DataNodes::FindAttribute(metaData_, "parentid");
      parentId_ = a ? DataNodes::AttributeValue(a) : std::string();
      haveParentId_ = true;
    }
    return parentId_;
  } catch (...) {
    ErrorInRethrow("Transaction.ParentId()", {});
  }
}

Ref<TransactionContext> Transaction::Context() {
  try {
    RequireData();
    Ref<TransactionContext> context = MakeRef<TransactionContext>();
    context->SetXWrapper(wrapper_.get());
    context->SetNode(data_);
    return context;
  } catch (...) {
    ErrorInRethrow("Transaction.Context()", {});
  }
}

Ref<Transaction> Transaction::NextTransaction() {
  try {
    RequireData();
    xmlNodePtr next = ElementSibling(data_, true);
    return next ? Factory()->TransactionAtNode(next) : Ref<Transaction>();
  } catch (...) {
    ErrorInRethrow("Transaction.NextTransaction()", {});
  }
}

Ref<Transaction> Transaction::PreviousTransaction() {
  try {
    RequireData();
    xmlNodePtr previous = ElementSibling(data_, false);
    return previous ? Factory()->TransactionAtNode(previous) : Ref<Transaction>();
  } catch (...) {
    ErrorInRethrow("Transaction.PreviousTransaction()", {});
  }
}

Ref<Transaction> Transaction::ParentTransaction() {
  try {
    if (ParentId().empty()) return Ref<Transaction>();
    RequireData();
    xmlNodePtr up = data_->parent ? data_->parent->parent : nullptr;
    Check(up != nullptr && up->type == XML_ELEMENT_NODE, 7703, "[%1] could not be found in document.",
          Variant("../.."));
    return Factory()->TransactionAtNode(up);
  } catch (...) {
    ErrorInRethrow("Transaction.ParentTransaction()", {});
  }
}

std::string Transaction::GetFieldAttribute(std::string_view fieldName, std::string_view attribute) {
  try {
    xmlNodePtr field = GetField(fieldName);
    if (field == nullptr) ThrowRuntimeError(91);
    xmlAttrPtr a = DataNodes::FindAttribute(field, attribute);
    Check(a != nullptr, 7701, "No matching attribute [%1] could be found in the node.", Variant(attribute));
    return DataNodes::AttributeValue(a);
  } catch (...) {
    ErrorInRethrow("Transaction.GetFieldAttribute(sFldName, sAttribute)", {Variant(fieldName), Variant(attribute)});
  }
}

void Transaction::SetTranAttribute(std::string_view name, const Variant& value) {
  try {
    RequireData();
    std::string key(name);
    Check(xmlValidateName(reinterpret_cast<const xmlChar*>(key.c_str()), 0) == 0, Error::kGeneral,
          "[%1] is not a valid attribute name.", Variant(name));
    DataNodes::SetAttribute(data_, key.c_str(), ValueText(value));
  } catch (...) {
    ErrorInRethrow("Transaction.SetTranAttribute(sName, vValue)", {Variant(name), value});
  }
}

void Transaction::SetFieldAttribute(std::string_view fieldName, std::string_view attribute, const Variant& value) {
  try {
    xmlNodePtr field = GetField(fieldName);
    if (field == nullptr) ThrowRuntimeError(91);
    std::string key(attribute);
    Check(xmlValidateName(reinterpret_cast<const xmlChar*>(key.c_str()), 0) == 0, Error::kGeneral,
          "[%1] is not a valid attribute name.", Variant(attribute));
    DataNodes::SetAttribute(field, key.c_str(), ValueText(value));
  } catch (...) {
    ErrorInRethrow("Transaction.SetFieldAttribute(sFldName, sAttribute, vValue)",
                   {Variant(fieldName), Variant(attribute), value});
  }
}

std::vector<xmlNodePtr> Transaction::GetParentNodes() {
  try {
    RequireData();
    if (data_->parent == nullptr) Check(false, 7703, "[%1] could not be found in document.", Variant("../*"));
    return ChildElements(data_->parent);
  } catch (...) {
    ErrorInRethrow("Transaction.GetParentNodes()", {});
  }
}

std::string Transaction::FieldName(int32_t position) {
  try {
    Check(fields_ != nullptr && position >= 1 && position <= fieldCount_, 8102, "");
    return fields_->At(static_cast<size_t>(position - 1)).FieldName;
  } catch (...) {
    ErrorInRethrow("Transaction.FieldName(lCnt)", {Variant(position)});
  }
}

std::vector<std::string> Transaction::FieldNames() {
  std::vector<std::string> names;
  for (int32_t i = 0; i < fieldCount_; ++i) names.push_back(fields_->At(static_cast<size_t>(i)).FieldName);
  return names;
}

Variant Transaction::FieldNames2() {
  std::vector<Variant> names;
  for (int32_t i = 0; i < fieldCount_; ++i) names.emplace_back(fields_->At(static_cast<size_t>(i)).FieldName);
  return Variant::FromVector(std::move(names));
}

// --- Fields -------------------------------------------------------------------------

void Transaction::CheckFieldExists(std::string_view fieldName) {
  if (fields_ == nullptr || fields_->Find(fieldName) == nullptr) {
    std::string id = metaData_ != nullptr ? TransactionId() : std::string();
    Check(false, 8103, "Field [%1] does not exist in transaction [%2].", {Variant(fieldName), Variant(id)});
  }
}

const FieldMetaData& Transaction::Meta(std::string_view fieldName) {
  const FieldMetaData* meta = fields_ != nullptr ? fields_->Find(fieldName, metaHint_) : nullptr;
  if (meta == nullptr) CheckFieldExists(fieldName);
  return *meta;
}

xmlNodePtr Transaction::FindField(std::string_view fieldName, size_t place) {
  // Readers and writers visit a record's fields in definition order, so the
  // search starts behind the field found last. Field names are unique within
  // a record, so any FIELD of this record with the name is the answer a
  // search from the first field gives.
  const bool resume = lastField_ != nullptr && lastField_->parent == data_;
  // Mostly the field wanted is the very next node and its name is the
  // element's first attribute: that is tested in a few comparisons, unless
  // the places known say it stands elsewhere.
  xmlNodePtr next = resume ? lastField_->next : data_->children;
  const size_t nextPlace = !resume ? 0 : lastPlace_ == kPlaceUnknown ? kPlaceUnknown : lastPlace_ + 1;
  const bool worthTesting = place >= kNotInDictionary || nextPlace == kPlaceUnknown || nextPlace == place;
  if (worthTesting && next != nullptr && IsFieldNamed(next, fieldName)) {
    lastPlace_ = nextPlace;
    lastField_ = next;
    return next;
  }
  return FindFieldElsewhere(fieldName, place, resume, next);
}

namespace {
constexpr size_t kMaxGuessSteps = 16;
}  // namespace

xmlNodePtr Transaction::NodeAtPlace(size_t place) const {
  if (place >= kNotInDictionary) return nullptr;
  size_t at = 0;
  xmlNodePtr node = data_->children;
  if (lastField_ != nullptr && lastField_->parent == data_ && lastPlace_ != kPlaceUnknown && lastPlace_ <= place) {
    at = lastPlace_;
    node = lastField_;
  }
  if (place - at > kMaxGuessSteps) return nullptr;
  for (; node != nullptr && at < place; ++at) node = node->next;
  return node;
}

xmlNodePtr Transaction::FindFieldElsewhere(std::string_view fieldName, size_t place, bool resume, xmlNodePtr next) {
  if (!resume) lastPlace_ = kPlaceUnknown;
  // The field is looked for where the factory puts it: its place in the
  // definition, counted from the field found last when that stands before
  // it. A record changed since only makes the guess miss.
  if (place == kPlaceUnknown && fields_ != nullptr) {
    if (const FieldMetaData* meta = fields_->Find(fieldName, metaHint_)) place = fields_->PlaceOf(*meta);
  }
  if (place < kNotInDictionary) {
    size_t at = 0;
    xmlNodePtr guess = data_->children;
    if (resume && lastPlace_ != kPlaceUnknown && lastPlace_ <= place) {
      at = lastPlace_;
      guess = lastField_;
    }
    // Far off, the guess is not worth the walk: in a record whose fields
    // stand apart (text between them, as in a document loaded with its
    // blanks) it would miss for every field and cost a walk each.
    if (place - at > kMaxGuessSteps) guess = nullptr;
    for (; guess != nullptr && at < place; ++at) guess = guess->next;
    if (guess != nullptr && IsFieldNamed(guess, fieldName)) {
      lastField_ = guess;
      lastPlace_ = place;
      return guess;
    }
  }
  // Otherwise the rest of the fields are searched, and then those before.
  xmlNodePtr field = FieldAmong(next, nullptr, fieldName);
  if (field == nullptr && resume) field = FieldAmong(data_->children, next, fieldName);
  if (field != nullptr) {
    lastField_ = field;
    lastPlace_ = kPlaceUnknown;
  }
  return field;
}

xmlNodePtr Transaction::GetField(std::string_view fieldName) {
  RequireData();
  xmlNodePtr field = FindField(fieldName);
  if (field == nullptr) CheckFieldExists(fieldName);
  return field;
}

xmlNodePtr Transaction::GetMetaDataField(std::string_view fieldName) {
  if (metaData_ == nullptr) ThrowRuntimeError(91);
  xmlNodePtr field = DataNodes::ChildWithAttribute(metaData_, "FIELD", "name", fieldName);
  Check(field != nullptr, 7703, "[%1] could not be found in document.",
        Variant("FIELD[@name='" + std::string(fieldName) + "']"));
  return field;
}

xmlNodePtr Transaction::GetValuesNode(xmlNodePtr field) {
  xmlNodePtr values = DataNodes::FirstChildElement(field, "VALUES");
  if (values == nullptr) Check(false, 7703, "[%1] could not be found in document.", Variant("VALUES"));
  return values;
}

int32_t Transaction::GetValueCount(xmlNodePtr field) {
  int32_t count = 0;
  for (xmlNodePtr values = field->children; values != nullptr; values = values->next) {
    if (!DataNodes::IsElement(values, "VALUES")) continue;
    for (xmlNodePtr value = values->children; value != nullptr; value = value->next) {
      if (DataNodes::IsElement(value, "VALUE") && DataNodes::HasText(value)) ++count;
    }
  }
  return count;
}

void Transaction::SetFieldValue(std::string_view name, const Variant& value, bool overwrite) {
  try {
    StoreFieldValue(name, &value, {}, overwrite);
  } catch (...) {
    ErrorInRethrow("Transaction.SetFieldValue(sName, vValue, bOverwrite)", {Variant(name), value, Variant(overwrite)});
  }
}

void Transaction::SetFieldText(std::string_view name, std::string_view text, bool overwrite) {
  try {
    StoreFieldValue(name, nullptr, text, overwrite);
  } catch (...) {
    ErrorInRethrow("Transaction.SetFieldValue(sName, vValue, bOverwrite)",
                   {Variant(name), Variant(text), Variant(overwrite)});
  }
}

void Transaction::StoreFieldValue(std::string_view name, const Variant* value, std::string_view text,
                                  bool overwrite) {
  RequireData();
  // An unknown name fails here as it would after the search for its FIELD.
  const FieldMetaData& meta = Meta(name);
  xmlNodePtr field = FindField(name, fields_->PlaceOf(meta));
  if (field == nullptr) {
    field = NewFieldNode(name);
    // FIELDs stand before the RECORDS of child records.
    xmlNodePtr before = DataNodes::FirstChildElement(data_, "RECORDS");
    if (before != nullptr) xmlAddPrevSibling(before, field); else xmlAddChild(data_, field);
  }
  const int16_t type = meta.FieldType;
  if (type != kFieldBinary && (value != nullptr ? IsEmptyValue(*value) : text.empty())) return;

  // The text is taken from the value where it stands; `owned` holds it
  // only when it has to be made.
  std::string owned;
  if (value != nullptr) {
    if (type == kFieldBinary && value->IsArray()) {
      owned = SetBinaryField(name, *value);
      text = owned;
    } else if (value->IsString()) {
      text = value->StringValue();
    } else {
      owned = ValueText(*value);
      text = owned;
    }
  }
  if (type != kFieldString && !text.empty() && text.front() == '"' && text.back() == '"') {
    if (text.size() == 1) ThrowRuntimeError(5);
    text = text.substr(1, text.size() - 2);
  }

  // A field as the factory makes it, one VALUES without values, takes the
  // first value without a count.
  xmlNodePtr only = field->children;
  const bool bare = only != nullptr && only->next == nullptr && only->children == nullptr &&
                    DataNodes::IsElement(only, "VALUES");
  const int32_t count = bare ? 0 : GetValueCount(field);
  xmlNodePtr values = bare ? only : GetValuesNode(field);
  if (!overwrite || count == 0) {
    if (count > 0 && !meta.AllowMultiVal) {
      if (FieldOverwritable(name)) {
        xmlNodePtr first = nullptr;
        for (xmlNodePtr c = values->children; c != nullptr && first == nullptr; c = c->next) {
          if (c->type == XML_ELEMENT_NODE) first = c;
        }
        if (first != nullptr) DataNodes::SetText(first, text);
        NotifyChange();
      }
      return;
    }
    xmlNodePtr added = NewValueNode(values->doc, text);
    // Linked by hand: an element next to elements, nothing to merge.
    added->parent = values;
    added->prev = values->last;
    if (values->last != nullptr) values->last->next = added; else values->children = added;
    values->last = added;
    NotifyChange();
    return;
  }
  // Overwrite: the first child takes the value, the others go.
  while (values->last != nullptr && values->last != values->children) {
    xmlNodePtr last = values->last;
    xmlUnlinkNode(last);
    xmlFreeNode(last);
  }
  DataNodes::SetText(values->children, text);
  NotifyChange();
}

bool Transaction::UsePlainNames(xmlDocPtr doc) {
  if (!plainKnown_) {
    plain_ = DataNodes::PlainConstruction();
    plainKnown_ = true;
  }
  xmlDictPtr dict = doc != nullptr ? doc->dict : nullptr;
  if (dict != namesDict_) {
    // The view holds the dictionary, so that the names stay valid and a new
    // dictionary can never take its place at the same address unnoticed.
    if (dict != nullptr) xmlDictReference(dict);
    if (namesDict_ != nullptr) xmlDictFree(namesDict_);
    namesDict_ = dict;
    valueName_ = valuesName_ = fieldName_ = nameAttributeName_ = nullptr;
    if (dict != nullptr) {
      auto lookUp = [dict](std::string_view literal) {
        return xmlDictLookup(dict, reinterpret_cast<const xmlChar*>(literal.data()), static_cast<int>(literal.size()));
      };
      valueName_ = lookUp("VALUE");
      valuesName_ = lookUp("VALUES");
      fieldName_ = lookUp("FIELD");
      nameAttributeName_ = lookUp("name");
    }
  }
  return plain_ && valueName_ != nullptr && valuesName_ != nullptr && fieldName_ != nullptr &&
         nameAttributeName_ != nullptr;
}

xmlNodePtr Transaction::NewFieldNode(std::string_view fieldName) {
  xmlDocPtr doc = data_->doc;
  if (!UsePlainNames(doc)) return TransactionFactory::InitFldNode(doc, fieldName);
  xmlNodePtr shared = SharedFieldName(fieldName);
  try {
    return DataNodes::NewPlainField(doc, fieldName_, valuesName_, nameAttributeName_, fieldName, shared);
  } catch (...) {
    if (shared != nullptr) xmlFree(shared);
    throw;
  }
}

xmlNodePtr Transaction::SharedFieldName(std::string_view fieldName) {
  for (const auto& [text, node] : fieldNames_) {
    if (text == fieldName) {
      XmlHeap::Retain(node);
      return node;
    }
  }
  if (fieldNames_.size() >= kMaxSharedFieldNames) return nullptr;
  xmlNodePtr node = DataNodes::NewSharedText(fieldName);
  if (node == nullptr) return nullptr;
  fieldNames_.emplace_back(std::string(fieldName), node);
  XmlHeap::Retain(node);  // one reference for the view, one for the caller
  return node;
}

xmlNodePtr Transaction::NewValueNode(xmlDocPtr doc, std::string_view text) {
  return DataNodes::NewValue(doc, UsePlainNames(doc) ? valueName_ : nullptr, text);
}

void Transaction::UnsetField(std::string_view fieldName) {
  try {
    xmlNodePtr field = GetField(fieldName);
    if (field == nullptr) return;
    xmlNodePtr values = DataNodes::FirstChildElement(field, "VALUES");
    if (values != nullptr) DataNodes::RemoveChildren(values);
    NotifyChange();
  } catch (...) {
    ErrorInRethrow("Transaction.UnsetField(sFldName)", {Variant(fieldName)});
  }
}

bool Transaction::IsFieldSet(std::string_view fieldName) {
  try {
    xmlNodePtr field = GetField(fieldName);
    return field != nullptr && GetValueCount(field) > 0;
  } catch (...) {
    ErrorInRethrow("Transaction.IsFieldSet(sFldName)", {Variant(fieldName)});
  }
}

bool Transaction::HasFieldAndSet(std::string_view fieldName) {
  try {
    return HasField(fieldName) && IsFieldSet(fieldName);
  } catch (...) {
    ErrorInRethrow("Transaction.HasFieldAndSet(sFldName)", {Variant(fieldName)});
  }
}

bool Transaction::HasField(std::string_view fieldName) const {
  return fields_ != nullptr && fields_->Find(fieldName) != nullptr;
}

int16_t Transaction::GetType(std::string_view fieldName) {
  try {
    return Meta(fieldName).FieldType;
  } catch (...) {
    ErrorInRethrow("Transaction.GetType(sFldName)", {Variant(fieldName)});
  }
}

namespace {

Variant DefaultOf(int16_t type) {
  switch (type) {
    case kFieldBoolean: return Variant(false);
    case kFieldLong: return Variant(int32_t{0});
    case kFieldDecimal: return Variant::FromDecimal(Decimal());
    case kFieldString: return Variant(std::string());
    case kFieldDate: return Variant::FromDate(0.0);
    case kFieldBinary: return Variant::FromByte(0);
    default: return Variant();
  }
}

}  // namespace

// Inlined: it is most of the work of a field read in order.
[[gnu::always_inline]] inline const char* Transaction::SingleTextOf(xmlNodePtr field) noexcept {
  xmlNodePtr values = field != nullptr ? field->children : nullptr;
  if (values == nullptr || values->next != nullptr || !DataNodes::IsElement(values, "VALUES")) return nullptr;
  xmlNodePtr value = values->children;
  if (value == nullptr || value->next != nullptr || !DataNodes::IsElement(value, "VALUE")) return nullptr;
  xmlNodePtr text = value->children;
  if (text == nullptr || text->next != nullptr || text->type != XML_TEXT_NODE || text->content == nullptr ||
      text->content[0] == '\0') {
    return nullptr;
  }
  return C(text->content);
}

const char* Transaction::SingleValueText(std::string_view fieldName) noexcept {
  // The field search asks the dictionary itself when the field is not where
  // the last one ended.
  return data_ != nullptr ? SingleTextOf(FindField(fieldName)) : nullptr;
}

const char* Transaction::SingleValueText(std::string_view fieldName, int16_t* fieldType) noexcept {
  if (data_ == nullptr) return nullptr;
  const FieldMetaData* meta = fields_ != nullptr ? fields_->Find(fieldName, metaHint_) : nullptr;
  const size_t place = meta != nullptr ? fields_->PlaceOf(*meta) : kNotInDictionary;
  const char* text = SingleTextOf(FindField(fieldName, place));
  if (text != nullptr && fieldType != nullptr) {
    // A FIELD the definition does not know has no type: reading it as a
    // value fails as it always does, with 8103.
    if (meta == nullptr) return nullptr;
    *fieldType = meta->FieldType;
  }
  return text;
}

const char* Transaction::SingleValueText(std::string_view fieldName, FieldNameNode& known) noexcept {
  if (data_ == nullptr) return nullptr;
  const bool resume = lastField_ != nullptr && lastField_->parent == data_;
  xmlNodePtr next = resume ? lastField_->next : data_->children;
  if (next != nullptr && known.Names(next)) {
    lastPlace_ = !resume ? 0 : lastPlace_ == kPlaceUnknown ? kPlaceUnknown : lastPlace_ + 1;
    lastField_ = next;
    return SingleTextOf(next);
  }
  xmlNodePtr field = FindField(fieldName);
  known.Learn(field, fieldName);
  return SingleTextOf(field);
}

const char* Transaction::SingleValueTextAt(std::string_view fieldName, size_t place, FieldNameNode& known) noexcept {
  if (data_ == nullptr) return nullptr;
  if (xmlNodePtr guess = NodeAtPlace(place); guess != nullptr && known.Names(guess)) {
    lastField_ = guess;
    lastPlace_ = place;
    return SingleTextOf(guess);
  }
  xmlNodePtr field = FindField(fieldName, place);
  known.Learn(field, fieldName);
  return SingleTextOf(field);
}

const char* Transaction::SingleValueTextAt(std::string_view fieldName, size_t place) noexcept {
  if (data_ == nullptr) return nullptr;
  return SingleTextOf(FindField(fieldName, place));
}


Variant Transaction::GetFieldValues(std::string_view fieldName, int32_t instance) {
  try {
    xmlNodePtr field = GetField(fieldName);
    // A field as it mostly stands: one VALUES holding one VALUE of one text.
    if (xmlNodePtr values = field != nullptr ? field->children : nullptr;
        values != nullptr && values->next == nullptr && DataNodes::IsElement(values, "VALUES")) {
      xmlNodePtr value = values->children;
      if (value != nullptr && value->next == nullptr && DataNodes::IsElement(value, "VALUE")) {
        xmlNodePtr text = value->children;
        if (text != nullptr && text->next == nullptr && text->type == XML_TEXT_NODE && text->content != nullptr &&
            text->content[0] != '\0') {
          return Variant(std::string(C(text->content)));
        }
      }
    }
    // One walk gives the count of values with text and the first element of
    // VALUES/*, which is what a single value reads as.
    int32_t count = 0;
    xmlNodePtr first = nullptr;
    for (xmlNodePtr values = field ? field->children : nullptr; values != nullptr; values = values->next) {
      if (!DataNodes::IsElement(values, "VALUES")) continue;
      for (xmlNodePtr c = values->children; c != nullptr; c = c->next) {
        if (c->type != XML_ELEMENT_NODE) continue;
        if (first == nullptr) first = c;
        if (DataNodes::IsElement(c, "VALUE") && DataNodes::HasText(c)) ++count;
      }
    }
    if (count == 0) return DefaultOf(Meta(fieldName).FieldType);
    if (count == 1) return first ? Variant(DataNodes::Text(first)) : Variant(std::string());
    std::vector<xmlNodePtr> nodes = ValueNodes(field);
    if (instance != 0) {
      Check(instance >= 0 && instance <= static_cast<int32_t>(nodes.size()), 8101, "");
      if (instance == static_cast<int32_t>(nodes.size())) return Variant::Nothing();
      return Variant(DataNodes::Text(nodes[static_cast<size_t>(instance)]));
    }
    return MultiValueFieldToArray(nodes, Meta(fieldName).FieldType);
  } catch (...) {
    ErrorInRethrow("Transaction.GetFieldValues(sFldName, lValInstance)", {Variant(fieldName), Variant(instance)});
  }
}

Variant Transaction::MultiValueFieldToArray(const std::vector<xmlNodePtr>& nodes, int16_t type) {
  if (type < kFieldBoolean || type > kFieldDate) return Variant();
  std::vector<Variant> items;
  items.reserve(nodes.size());
  for (xmlNodePtr node : nodes) {
    std::string text = DataNodes::Text(node);
    try {
      Variant value(text);
      switch (type) {
        case kFieldBoolean: items.emplace_back(value.ToBool()); break;
        case kFieldLong: items.emplace_back(value.ToLong()); break;
        case kFieldDecimal: items.emplace_back(value.ToDouble()); break;
        case kFieldString: items.emplace_back(std::move(value)); break;
        default: items.push_back(Variant::FromDate(value.ToDate())); break;
      }
    } catch (const Error& e) {
      Check(false, e.number(), "Type mismatch whilst converting [%1] to array of type [%2].",
            {Variant(text), Variant(static_cast<int32_t>(type))});
    }
  }
  return Variant::FromVector(std::move(items));
}

Variant Transaction::GetFieldValueCastType(std::string_view fieldName, int32_t instance) {
  try {
    Variant value = GetFieldValues(fieldName, instance);
    switch (GetType(fieldName)) {
      case kFieldBoolean: return Variant(value.ToBool());
      case kFieldLong: return Variant(value.ToLong());
      case kFieldDecimal: return Variant::FromDecimal(value.ToDecimal());
      case kFieldDate: return Variant::FromDate(value.ToDate());
      case kFieldBinary: return Variant::FromByte(value.ToByte());
      default: return value;
    }
  } catch (...) {
    ErrorInRethrow("Transaction.GetFieldValueCastType(sFldName, lValInstance)", {Variant(fieldName), Variant(instance)});
  }
}

bool Transaction::FieldOverwritable(std::string_view name) {
  try {
    xmlNodePtr meta = GetMetaDataField(name);
    xmlAttrPtr multi = DataNodes::FindAttribute(meta, "allowmultiplevals");
    if (multi == nullptr) return true;
    xmlAttrPtr overwritable = DataNodes::FindAttribute(meta, "overwritable");
    Check(overwritable != nullptr, 7701, "No matching attribute [%1] could be found in the node.",
          Variant("overwritable"));
    return BooleanText::Parse(DataNodes::AttributeValue(overwritable));
  } catch (...) {
    ErrorInRethrow("Transaction.FieldOverwritable(sName)", {Variant(name)});
  }
}

bool Transaction::AllowMultipleFieldVals(std::string_view name) {
  try {
    xmlAttrPtr multi = DataNodes::FindAttribute(GetMetaDataField(name), "allowmultiplevals");
    return multi != nullptr && BooleanText::Parse(DataNodes::AttributeValue(multi));
  } catch (...) {
    ErrorInRethrow("Transaction.AllowMultipleFieldVals(sName)", {Variant(name)});
  }
}

int16_t Transaction::ChildCount() {
  try {
    RequireData();
    int16_t count = 0;
    for (xmlNodePtr c = data_->children; c != nullptr; c = c->next) {
      if (DataNodes::IsElement(c, "RECORDS")) ++count;
    }
    return count;
  } catch (...) {
    ErrorInRethrow("Transaction.ChildCount()", {});
  }
}

bool Transaction::IsEmpty() {
  try {
    RequireData();
    // One walk over the record's fields: a field counts when the record type
    // defines it and it holds a value. Names are unique within a record, so
    // this is the answer of a lookup per defined field, without its search.
    if (fieldCount_ > 0) {
      size_t hint = 0;  // fields mostly stand in the dictionary's order
      for (xmlNodePtr field = data_->children; field != nullptr; field = field->next) {
        if (!DataNodes::IsElement(field, "FIELD")) continue;
        xmlAttrPtr name = DataNodes::FindAttribute(field, "name");
        if (name == nullptr) continue;
        const char* single = DataNodes::SingleText(name);
        const std::string text = single != nullptr ? std::string() : DataNodes::AttributeValue(name);
        if (fields_->Find(single != nullptr ? std::string_view(single) : std::string_view(text), hint) == nullptr) {
          continue;
        }
        if (GetValueCount(field) > 0) return false;
      }
    }
    for (xmlNodePtr records = data_->children; records != nullptr; records = records->next) {
      if (DataNodes::IsElement(records, "RECORDS") && !ChildElements(records).empty()) return false;
    }
    return true;
  } catch (...) {
    ErrorInRethrow("Transaction.IsEmpty()", {});
  }
}

void Transaction::PrintData(std::ostream& stream) {
  try {
    RequireData();
    std::unique_ptr<xmlBuffer, decltype(&xmlBufferFree)> buffer(xmlBufferCreate(), xmlBufferFree);
    xmlNodeDump(buffer.get(), data_->doc, data_, 0, 0);
    stream << std::string_view(C(xmlBufferContent(buffer.get())), static_cast<size_t>(xmlBufferLength(buffer.get())));
  } catch (...) {
    ErrorInRethrow("Transaction.PrintData(oStream)", {});
  }
}

void Transaction::CopyTransaction(Transaction& target) {
  try {
    RequireData();
    target.SetTransactionMetaData(metaData_);
    target.SetFieldMetaDataDictionary(fields_);
    target.SetXWrapper(wrapper_);
    target.factory_ = factory_;
    target.definition_ = definition_;
    xmlNodePtr copy = wrapper_ && data_->doc == wrapper_->DOMDocument() ? wrapper_->CloneNode(data_, true)
                                                                         : nullptr;
    if (copy == nullptr) {
      Ref<XMLWrapper> own = MakeRef<XMLWrapper>();
      own->LoadXML("<?xml version=\"1.0\"?><COPY/>");
      copy = own->CloneNode(data_, true);
      target.KeepDocument(own);
    }
    target.SetData(copy);
  } catch (...) {
    ErrorInRethrow("Transaction.CopyTransaction(oTarget)", {});
  }
}

// --- Binary values ----------------------------------------------------------------------

std::string Transaction::SetBinaryField(std::string_view name, const Variant& bytes) {
  std::string path;
  if (IsFieldSet(name)) path = GetFieldValues(name, 0).ToString();
  const SafeArray& array = bytes.ArrayValue();
  const int64_t size = static_cast<int64_t>(array.Count());
  if (size == 0 && !path.empty()) {
    std::error_code ec;
    std::filesystem::remove(path, ec);
    return {};
  }
  if (path.empty()) {
    std::filesystem::path folder = Factory()->BinaryFolder();
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    path = NewTempFile(folder, name);
  }
  std::string content;
  content.reserve(static_cast<size_t>(size));
  for (const Variant& element : array.Elements()) content.push_back(static_cast<char>(element.ToByte()));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  Check(static_cast<bool>(out), 8105, "The binary field [%1] data has been deleted or is inaccessible.", Variant(name));
  return path;
}

std::vector<uint8_t> Transaction::GetBinaryValue(std::string_view fieldName) {
  try {
    CheckFieldExists(fieldName);
    Check(GetType(fieldName) == kFieldBinary, 8104, "The field [%1] is not binary type.", Variant(fieldName));
    if (!IsFieldSet(fieldName)) return {};
    std::string path = GetFieldValues(fieldName, 0).ToString();
    if (path.empty()) return {};
    std::error_code ec;
    Check(std::filesystem::is_regular_file(path, ec), 8105,
          "The binary field [%1] data has been deleted or is inaccessible.", Variant(fieldName));
    std::ifstream in(path, std::ios::binary);
    Check(static_cast<bool>(in), 8105, "The binary field [%1] data has been deleted or is inaccessible.",
          Variant(fieldName));
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  } catch (...) {
    ErrorInRethrow("Transaction.GetBinaryValue(sFldName)", {Variant(fieldName)});
  }
}

}  // namespace tessel
