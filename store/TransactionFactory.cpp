#include "store/TransactionFactory.h"

#include <libxml/dict.h>

#include <algorithm>
#include <atomic>

#include "audit/HuntErr.h"
#include "core/BooleanText.h"
#include "core/RuntimeError.h"
#include "job/Session.h"
#include "job/TransformDefinition.h"
#include "store/Attributes.h"
#include "store/DataNodes.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionIterator.h"
#include "store/TransactionSelector.h"

namespace tessel {
namespace {

const xmlChar* X(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

constexpr char kKeySeparator = '\x1f';
// Records whose key values make more combinations than this are checked one
// by one instead of being indexed.
constexpr size_t kMaxCombinations = 16;
// Parent chains longer than this are taken as broken definitions.
constexpr int kMaxRecordDepth = 64;

}  // namespace

TransactionFactory::TransactionFactory() {
  InitXData();
  templates_ = MakeRef<XMLWrapper>();
  xmlDocPtr doc = templates_->CreateDocument();
  // The templates share the data document's dictionary, so that records
  // cloned from them take their names without a lookup.
  doc->dict = data_->DOMDocument()->dict;
  xmlDictReference(doc->dict);
}

TransactionFactory::~TransactionFactory() = default;

void TransactionFactory::InitXData() {
  try {
    auto data = MakeRef<XMLWrapper>();
    xmlDocPtr doc = data->CreateDocument();
    // Element and attribute names are shared through a dictionary: a data
    // document repeats the same few names for every field of every record.
    doc->dict = xmlDictCreate();
    xmlNodePtr root = xmlNewDocNode(doc, nullptr, X("DATA"), nullptr);
    xmlAddChild(reinterpret_cast<xmlNodePtr>(doc), root);
    data_ = std::move(data);
  } catch (...) {
    ErrorInRethrow("TransactionFactory.InitXData()", {});
  }
}

void TransactionFactory::SetData(Ref<XMLWrapper> data) {
  data_ = std::move(data);
  indexes_.clear();
}

void TransactionFactory::RememberType(std::string_view tranId, xmlNodePtr meta,
                                      std::shared_ptr<const FieldDictionary> fields) {
  lastType_.id.assign(tranId);
  lastType_.meta = meta;
  lastType_.fields = std::move(fields);
}

void TransactionFactory::SetTransformDefinition(std::shared_ptr<tessel::TransformDefinition> definition) {
  lastType_ = TypeLookup();
  definition_ = std::move(definition);
  indexes_.clear();
  depthByType_.clear();
}

xmlNodePtr TransactionFactory::TopDataNode() {
  xmlDocPtr doc = data_ ? data_->DOMDocument() : nullptr;
  xmlNodePtr root = doc ? xmlDocGetRootElement(doc) : nullptr;
  if (DataNodes::IsElement(root, "DATA")) return root;
  return data_->GetNodeFromXPath("/DATA");  // raises 7703 with the path
}

void TransactionFactory::ClearData() {
  try {
    DataNodes::RemoveChildren(TopDataNode());
    indexes_.clear();
  } catch (...) {
    ErrorInRethrow("TransactionFactory.ClearData()", {});
  }
}

xmlNodePtr TransactionFactory::InitFldNode(xmlDocPtr doc, std::string_view fieldName) {
  xmlNodePtr field = xmlNewDocNode(doc, nullptr, X("FIELD"), nullptr);
  if (field == nullptr) throw std::bad_alloc();
  DataNodes::SetAttribute(field, "name", fieldName, true);
  xmlNodePtr values = xmlNewDocNode(doc, nullptr, X("VALUES"), nullptr);
  if (values == nullptr) {
    xmlFreeNode(field);
    throw std::bad_alloc();
  }
  xmlAddChild(field, values);
  return field;
}

std::shared_ptr<const FieldDictionary> TransactionFactory::GetMetaFieldData(std::string_view tranId,
                                                                            xmlNodePtr record) {
  try {
    std::string key(tranId);
    auto found = fieldsByType_.find(key);
    if (found != fieldsByType_.end()) return found->second;
    auto fields = std::make_shared<FieldDictionary>();
    for (xmlNodePtr node = record ? record->children : nullptr; node != nullptr; node = node->next) {
      if (!DataNodes::IsElement(node, "FIELD")) continue;
      xmlAttrPtr nameAttribute = DataNodes::FindAttribute(node, "name");
      Check(nameAttribute != nullptr, 7701, "No matching attribute [%1] could be found in the node.", Variant("name"));
      FieldMetaData meta;
      meta.FieldName = DataNodes::AttributeValue(nameAttribute);
      Check(fields->Find(meta.FieldName) == nullptr, 8020, "Duplicate field in record [%1].", Variant(tranId));
      if (xmlAttrPtr multi = DataNodes::FindAttribute(node, "allowmultiplevals")) {
        meta.AllowMultiVal = BooleanText::Parse(DataNodes::AttributeValue(multi));
      }
      xmlAttrPtr type = DataNodes::FindAttribute(node, "type");
      Check(type != nullptr, 8021, "Field [%1] is missing the [%2] attribute.",
            {Variant(meta.FieldName), Variant("type")});
      meta.FieldType = Variant(DataNodes::AttributeValue(type)).ToInteger();
      fields->Add(std::move(meta));
    }
    fieldsByType_.emplace(std::move(key), fields);
    return fields;
  } catch (...) {
    ErrorInRethrow("TransactionFactory.GetMetaFieldData(sTranID, nodRecord)", {Variant(tranId)});
  }
}

TransactionFactory::Template& TransactionFactory::TemplateFor(std::string_view tranId, xmlNodePtr record) {
  // Records are mostly made one type after another: the type asked last
  // is found without a key made and hashed.
  if (lastTemplate_ != nullptr && lastTemplate_->first == tranId) return lastTemplate_->second;
  std::string key(tranId);
  auto found = templateByType_.find(key);
  if (found != templateByType_.end()) {
    lastTemplate_ = &*found;
    return found->second;
  }
  xmlDocPtr doc = templates_->DOMDocument();
  Template made;
  made.model = templates_->GenerateNode("RECORD");
  for (xmlNodePtr field = record->children; field != nullptr; field = field->next) {
    if (!DataNodes::IsElement(field, "FIELD")) continue;
    xmlAttrPtr name = DataNodes::FindAttribute(field, "name");
    Check(name != nullptr, 7701, "No matching attribute [%1] could be found in the node.", Variant("name"));
    xmlAddChild(made.model, InitFldNode(doc, DataNodes::AttributeValue(name)));
  }
  try {
    made.image = RecordImage::Make(made.model);
  } catch (const std::bad_alloc&) {
    // Without an image records are copied the general way.
  }
  lastTemplate_ = &*templateByType_.emplace(std::move(key), std::move(made)).first;
  return lastTemplate_->second;
}

xmlNodePtr TransactionFactory::InitDataTran(std::string_view tranId, xmlNodePtr record, std::string_view recordName) {
  const Template& model = TemplateFor(tranId, record);
  xmlDocPtr target = data_->DOMDocument();
  xmlNodePtr node = model.image != nullptr && model.image->CopiesInto(target)
                        ? model.image->Copy(target)
                        : DataNodes::CloneElement(target, model.model);
  // Kept with the document's generated nodes until AddTransaction links it.
  data_->KeepGenerated(node);
  if (!recordName.empty()) DataNodes::SetAttribute(node, "name", recordName);
  return node;
}

Ref<Transaction> TransactionFactory::ViewOfNewRecord(std::string_view tranId, xmlNodePtr meta, xmlNodePtr node,
                                                     bool known) {
  Ref<Transaction> transaction = RecordView();
  transaction->SetTransactionMetaData(meta);
  transaction->SetData(node);
  transaction->SetXWrapper(data_);
  transaction->SetFactory(weak_from_this(), definition_);
  if (!known) RememberType(tranId, meta, GetMetaFieldData(tranId, meta));
  transaction->SetFieldMetaDataDictionary(lastType_.fields);
  return transaction;
}

Ref<Transaction> TransactionFactory::CreateTransaction(std::string_view tranId, std::string_view recordName,
                                                       const Variant& reserved) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    const bool known = lastType_.meta != nullptr && lastType_.id == tranId;
    xmlNodePtr meta = known ? lastType_.meta : definition_->RecordNode(tranId);
    xmlNodePtr node = InitDataTran(tranId, meta, recordName);
    return ViewOfNewRecord(tranId, meta, node, known);
  } catch (...) {
    ErrorInRethrow("TransactionFactory.CreateTransaction(sTranID, sRecordName, vReserved)",
                   {Variant(tranId), Variant(recordName), reserved});
  }
}

bool TransactionFactory::TakesTextsInOrder(std::string_view tranId, std::span<const std::string_view> fieldNames) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    xmlNodePtr meta = definition_->RecordNode(tranId);
    Template& model = TemplateFor(tranId, meta);
    if (model.fillable < 0) {
      const std::shared_ptr<const FieldDictionary> fields = GetMetaFieldData(tranId, meta);
      bool fillable = model.image != nullptr && fields != nullptr &&
                      model.image->FieldNames().size() == fields->Count() && fields->Count() > 0;
      for (size_t i = 0; fillable && i < fields->Count(); ++i) {
        fillable = model.image->FieldNames()[i] == fields->At(i).FieldName && fields->At(i).FieldType != kFieldBinary;
      }
      model.fillable = fillable ? 1 : 0;
    }
    if (model.fillable == 0 || fieldNames.size() != model.image->FieldNames().size()) return false;
    for (size_t i = 0; i < fieldNames.size(); ++i) {
      if (fieldNames[i] != model.image->FieldNames()[i]) return false;
    }
    return true;
  } catch (...) {
    ErrorInRethrow("TransactionFactory.TakesTextsInOrder(sTranID)", {Variant(tranId)});
  }
}

Ref<Transaction> TransactionFactory::CreateTransactionWithTexts(std::string_view tranId,
                                                                std::span<const std::string_view> texts) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    const bool known = lastType_.meta != nullptr && lastType_.id == tranId;
    xmlNodePtr meta = known ? lastType_.meta : definition_->RecordNode(tranId);
    const Template& model = TemplateFor(tranId, meta);
    xmlDocPtr target = data_->DOMDocument();
    if (model.fillable != 1 || !model.image->CopiesInto(target) || texts.size() != model.image->FieldNames().size()) {
      return nullptr;
    }
    if (!known) RememberType(tranId, meta, GetMetaFieldData(tranId, meta));
    // A quoted text of a field that is not a string loses its quotes (or
    // fails, alone): the field by field way does that.
    const FieldDictionary& fields = *lastType_.fields;
    for (size_t i = 0; i < texts.size(); ++i) {
      const std::string_view text = texts[i];
      if (!text.empty() && text.front() == '"' && text.back() == '"' && fields.At(i).FieldType != kFieldString) {
        return nullptr;
      }
    }
    xmlNodePtr node = model.image->CopyFilled(target, texts);
    data_->KeepGenerated(node);
    return ViewOfNewRecord(tranId, meta, node, true);
  } catch (...) {
    ErrorInRethrow("TransactionFactory.CreateTransactionWithTexts(sTranID, colTexts)", {Variant(tranId)});
  }
}

Ref<Transaction> TransactionFactory::RecordView() {
  for (size_t i = 0; i < spares_.size(); ++i) {
    if (spares_[i] && spares_[i]->RefCount() == 1) {
      // Every other holder has let go; their last writes are seen from here.
      std::atomic_thread_fence(std::memory_order_acquire);
      spares_[i]->Recycle();
      lastSpare_ = i;
      return spares_[i];
    }
  }
  lastSpare_ = (lastSpare_ + 1) % spares_.size();
  spares_[lastSpare_] = MakeRef<Transaction>();
  return spares_[lastSpare_];
}

Ref<Transaction> TransactionFactory::MergeData(xmlNodePtr record, xmlNodePtr meta,
                                               std::shared_ptr<const FieldDictionary> fields) {
  Ref<Transaction> transaction = RecordView();
  transaction->SetXWrapper(data_);
  transaction->SetTransactionMetaData(meta);
  transaction->SetData(record);
  transaction->SetFactory(weak_from_this(), definition_);
  transaction->SetFieldMetaDataDictionary(std::move(fields));
  return transaction;
}

Ref<Transaction> TransactionFactory::TransactionAtNode(xmlNodePtr record) {
  try {
    if (record == nullptr) ThrowRuntimeError(91);
    if (!definition_) ThrowRuntimeError(91);
    xmlAttrPtr idAttribute = DataNodes::FindAttribute(record->parent, "id");
    if (idAttribute == nullptr) Check(false, 7701, "No matching attribute [%1] could be found in the node.", Variant("id"));
    const char* single = DataNodes::SingleText(idAttribute);
    if (lastType_.meta != nullptr && single != nullptr && lastType_.id == single) {
      return MergeData(record, lastType_.meta, lastType_.fields);
    }
    std::string id = DataNodes::AttributeValue(idAttribute);
    xmlNodePtr meta = definition_->RecordNode(id);
    RememberType(id, meta, GetMetaFieldData(id, meta));
    return MergeData(record, meta, lastType_.fields);
  } catch (...) {
    ErrorInRethrow("TransactionFactory.GetTransaction(ctx)", {});
  }
}

Ref<Transaction> TransactionFactory::GetTransaction(TransactionContext& context) {
  return TransactionAtNode(context.ContextNode());
}

void TransactionFactory::SetContextToTopDataNode(TransactionContext& context) {
  try {
    if (context.xWrapper() == nullptr) context.SetXWrapper(data_.get());
    context.SetContext("/DATA");
  } catch (...) {
    ErrorInRethrow("TransactionFactory.SetContextToTopDataNode(ctx)", {});
  }
}

Ref<TransactionIterator> TransactionFactory::CreateIterator(TransactionContext* initial) {
  try {
    Ref<TransactionContext> context = MakeRef<TransactionContext>();
    context->SetXWrapper(data_.get());
    context->SetNode(initial != nullptr ? initial->ContextNode() : TopDataNode());
    Ref<TransactionIterator> iterator = MakeRef<TransactionIterator>();
    iterator->Initialise(context, context->ContextNode(), shared_from_this());
    return iterator;
  } catch (...) {
    ErrorInRethrow("TransactionFactory.CreateIterator(ctxInitial)", {});
  }
}

Ref<TransactionSelector> TransactionFactory::CreateTransactionSelector(
    std::shared_ptr<tessel::TransformDefinition> definition, TransactionContext* initial) {
  try {
    Ref<TransactionSelector> selector = MakeRef<TransactionSelector>();
    selector->Initialise(definition ? std::move(definition) : definition_, shared_from_this(), initial);
    return selector;
  } catch (...) {
    ErrorInRethrow("TransactionFactory.CreateTransactionSelector(oDefinition, ctxInitial)", {});
  }
}

Ref<Transaction> TransactionFactory::ReconstructTransaction(std::string_view tranId, std::string_view xml) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    Ref<XMLWrapper> own = MakeRef<XMLWrapper>();
    own->LoadXML(xml);
    xmlNodePtr record = own->GetNodeFromXPath("/RECORD");
    xmlNodePtr meta = definition_->RecordNode(tranId);
    Ref<Transaction> transaction = MergeData(record, meta, GetMetaFieldData(tranId, meta));
    transaction->KeepDocument(own);
    spares_[lastSpare_].reset();  // not kept: it holds a document of its own
    return transaction;
  } catch (...) {
    ErrorInRethrow("TransactionFactory.ReconstructTransaction(sTransactionId, sXML)",
                   {Variant(tranId), Variant(xml)});
  }
}

void TransactionFactory::AddTransaction(Transaction& transaction, TransactionContext& context,
                                        Attributes* attributes) {
  try {
    const std::string id = transaction.TransactionId();
    xmlNodePtr node = context.ContextNode();
    xmlNodePtr saved = context.AutoUpdate() ? nullptr : node;
    if (DataNodes::IsElement(node, "RECORD") && node->parent != nullptr && node->parent->parent != nullptr &&
        DataNodes::ChildWithAttribute(node->parent->parent, "RECORDS", "id", id) != nullptr) {
      saved = node;
      node = node->parent->parent;
      context.SetNode(node);
    }
    if (node != nullptr) {
      if (xmlNodePtr container = DataNodes::ChildWithAttribute(node, "RECORDS", "id", id)) {
        context.SetNode(container);
      }
      if (!DataNodes::IsElement(context.ContextNode(), "RECORDS")) {
        XMLWrapper* wrapper = context.xWrapper() ? context.xWrapper() : data_.get();
        xmlNodePtr records = wrapper->GenerateNode("RECORDS");
        DataNodes::SetAttribute(records, "id", id, true);
        records = wrapper->AddElement(records, context.ContextNode());
        context.SetNode(records);
      }
      if (attributes != nullptr) attributes->CopyAttributesOntoNode(transaction.Data());
      XMLWrapper* wrapper = context.xWrapper() ? context.xWrapper() : data_.get();
      xmlNodePtr added = wrapper->AddElement(transaction.Data(), node, &context);
      if (added != transaction.Data()) transaction.SetData(added);
      if (!indexes_.empty()) {
        for (auto& [name, index] : indexes_) {
          if (index.complete && name.compare(0, id.size() + 1, id + kKeySeparator) == 0 &&
              AtDefinedPlace(added, id)) {
            IndexRecord(index, added);
          }
        }
      }
    }
    if (!context.AutoUpdate()) context.SetNode(saved);
  } catch (...) {
    ErrorInRethrow("TransactionFactory.AddTransaction(oTransaction, ctx, oAttributes)", {});
  }
}

void TransactionFactory::Merge(const std::string& fileName) {
  try {
    Ref<XMLWrapper> other = MakeRef<XMLWrapper>();
    other->OpenXMLDocument(fileName);
    other->GetNodeFromXPath("/DATA");
    TopDataNode();
    Ref<TransactionContext> context = data_->CreateContext();
    SetContextToTopDataNode(*context);
    auto second = std::make_shared<TransactionFactory>();
    second->SetData(other);
    second->SetTransformDefinition(definition_);
    std::vector<xmlNodePtr> tops = definition_->RecordDescendents("");
    Check(!tops.empty(), 7703, "[%1] could not be found in document.", Variant("RECORD[@parentid='']"));
    std::string topId = definition_->RecordId(tops.front());
    Ref<TransactionSelector> selector = second->CreateTransactionSelector();
    selector->SetReturnTransaction(topId);
    selector->AddSearch(topId, "*");
    selector->OpenResultset();
    selector->MoveFirst();
    while (!selector->EOF_()) {
      Ref<Transaction> transaction = selector->Item();
      AddTransaction(*transaction, *context, nullptr);
      if (!selector->EOF_()) selector->MoveNext();
    }
  } catch (...) {
    ErrorInRethrow("TransactionFactory.Merge(sFileName)", {Variant(fileName)});
  }
}

std::filesystem::path TransactionFactory::BinaryFolder() const {
  if (!binaryFolder_.empty()) return binaryFolder_;
  Session* session = CurrentSession();
  Check(session != nullptr, 8106,
        "Binary field values cannot be stored: there is no job session to give the run's folder.");
  return std::filesystem::path(session->DebugPath()) /
         (session->JobId() + "-" + std::to_string(session->JobInstance()));
}

// --- Key index ------------------------------------------------------------------------

void TransactionFactory::RecordChanged(xmlNodePtr record) {
  if (indexes_.empty() || record == nullptr || record->parent == nullptr) return;
  xmlAttrPtr idAttribute = DataNodes::FindAttribute(record->parent, "id");
  if (idAttribute == nullptr) {
    indexes_.clear();
    return;
  }
  std::string prefix = DataNodes::AttributeValue(idAttribute) + kKeySeparator;
  for (auto it = indexes_.begin(); it != indexes_.end();) {
    if (it->first.compare(0, prefix.size(), prefix) == 0) it = indexes_.erase(it); else ++it;
  }
}

int TransactionFactory::DefinedDepth(std::string_view tranId) {
  auto found = depthByType_.find(std::string(tranId));
  if (found != depthByType_.end()) return found->second;
  int depth = 0;
  std::string current = definition_->RecordParentId(definition_->RecordNode(tranId));
  while (!current.empty()) {
    Check(++depth <= kMaxRecordDepth, 8203,
          "XML data instance has too many levels of nested nodes. Maximum allowed depth is %1 levels.",
          Variant(int32_t{kMaxRecordDepth}));
    current = definition_->RecordParentId(definition_->RecordNode(current));
  }
  depthByType_.emplace(std::string(tranId), depth);
  return depth;
}

bool TransactionFactory::AtDefinedPlace(xmlNodePtr record, std::string_view tranId) {
  if (!DataNodes::IsElement(record, "RECORD")) return false;
  xmlNodePtr container = record->parent;
  for (int level = DefinedDepth(tranId); level > 0; --level) {
    if (!DataNodes::IsElement(container, "RECORDS")) return false;
    xmlNodePtr parent = container->parent;
    if (!DataNodes::IsElement(parent, "RECORD")) return false;
    container = parent->parent;
  }
  if (!DataNodes::IsElement(container, "RECORDS")) return false;
  xmlNodePtr root = container->parent;
  return DataNodes::IsElement(root, "DATA") && root->parent != nullptr && root->parent->type == XML_DOCUMENT_NODE;
}

std::vector<xmlNodePtr> TransactionFactory::RecordsAtDefinedPlace(std::string_view tranId) {
  const int depth = DefinedDepth(tranId);
  std::vector<xmlNodePtr> level;
  xmlDocPtr doc = data_->DOMDocument();
  xmlNodePtr root = doc ? xmlDocGetRootElement(doc) : nullptr;
  if (DataNodes::IsElement(root, "DATA")) level.push_back(root);
  for (int i = 0; i < depth; ++i) {
    std::vector<xmlNodePtr> next;
    for (xmlNodePtr parent : level) {
      for (xmlNodePtr records = parent->children; records; records = records->next) {
        if (!DataNodes::IsElement(records, "RECORDS")) continue;
        for (xmlNodePtr record = records->children; record; record = record->next) {
          if (DataNodes::IsElement(record, "RECORD")) next.push_back(record);
        }
      }
    }
    level.swap(next);
  }
  std::vector<xmlNodePtr> found;
  for (xmlNodePtr parent : level) {
    for (xmlNodePtr records = parent->children; records; records = records->next) {
      if (!DataNodes::IsElement(records, "RECORDS")) continue;
      xmlAttrPtr id = DataNodes::FindAttribute(records, "id");
      if (id == nullptr || !DataNodes::AttributeEquals(id, tranId)) continue;
      for (xmlNodePtr record = records->children; record; record = record->next) {
        if (DataNodes::IsElement(record, "RECORD")) found.push_back(record);
      }
    }
  }
  return found;
}

namespace {

// Texts of FIELD[@name=key]/VALUES/VALUE of a record, over every such FIELD;
// empty texts are left out as they never equal a search value.
std::vector<std::string> KeyTexts(xmlNodePtr record, std::string_view key, bool& hasField) {
  std::vector<std::string> texts;
  hasField = false;
  for (xmlNodePtr field = record->children; field; field = field->next) {
    if (!DataNodes::IsElement(field, "FIELD")) continue;
    xmlAttrPtr name = DataNodes::FindAttribute(field, "name");
    if (name == nullptr || !DataNodes::AttributeEquals(name, key)) continue;
    for (xmlNodePtr values = field->children; values; values = values->next) {
      if (!DataNodes::IsElement(values, "VALUES")) continue;
      hasField = true;
      for (xmlNodePtr value = values->children; value; value = value->next) {
        if (!DataNodes::IsElement(value, "VALUE")) continue;
        std::string text = DataNodes::Text(value);
        if (!text.empty()) texts.push_back(std::move(text));
      }
    }
  }
  return texts;
}

}  // namespace

bool TransactionFactory::RecordMatches(xmlNodePtr record, const std::vector<std::string>& keyNames,
                                       const std::vector<std::string>& keyValues) {
  for (size_t i = 0; i < keyNames.size(); ++i) {
    bool hasField = false;
    std::vector<std::string> texts = KeyTexts(record, keyNames[i], hasField);
    if (keyValues[i].empty()) {
      if (!hasField) return false;
      continue;
    }
    bool any = false;
    for (const std::string& text : texts) any = any || text == keyValues[i];
    if (!any) return false;
  }
  return true;
}

void TransactionFactory::IndexRecord(KeyIndex& index, xmlNodePtr record) {
  std::vector<std::string> combinations{std::string()};
  for (size_t i = 0; i < index.keyNames.size(); ++i) {
    bool hasField = false;
    std::vector<std::string> texts = KeyTexts(record, index.keyNames[i], hasField);
    if (texts.empty() || combinations.size() * texts.size() > kMaxCombinations) {
      index.irregular.push_back(record);
      return;
    }
    std::vector<std::string> next;
    for (const std::string& head : combinations) {
      for (const std::string& text : texts) next.push_back(i == 0 ? text : head + kKeySeparator + text);
    }
    combinations.swap(next);
  }
  std::sort(combinations.begin(), combinations.end());
  combinations.erase(std::unique(combinations.begin(), combinations.end()), combinations.end());
  for (std::string& combination : combinations) index.exact.insert(std::move(combination));
}

TransactionFactory::KeyIndex& TransactionFactory::IndexFor(std::string_view tranId,
                                                           const std::vector<std::string>& keyNames) {
  std::string name = std::string(tranId) + kKeySeparator;
  for (const std::string& key : keyNames) name += key + kKeySeparator;
  KeyIndex& index = indexes_[name];
  if (!index.complete) {
    index.keyNames = keyNames;
    for (xmlNodePtr record : RecordsAtDefinedPlace(tranId)) IndexRecord(index, record);
    index.complete = true;
  }
  return index;
}

bool TransactionFactory::TransactionExists(std::string_view tranId, const std::vector<std::string>& keyNames,
                                           const std::vector<std::string>& keyValues) {
  try {
    if (!definition_) ThrowRuntimeError(91);
    Check(keyNames.size() == keyValues.size(), 5, "Invalid procedure call or argument");
    bool wildcard = keyNames.empty();
    for (const std::string& value : keyValues) wildcard = wildcard || value.empty();
    if (wildcard) {
      for (xmlNodePtr record : RecordsAtDefinedPlace(tranId)) {
        if (RecordMatches(record, keyNames, keyValues)) return true;
      }
      return false;
    }
    KeyIndex& index = IndexFor(tranId, keyNames);
    std::string wanted;
    for (size_t i = 0; i < keyValues.size(); ++i) wanted += (i == 0 ? "" : std::string(1, kKeySeparator)) + keyValues[i];
    if (index.exact.count(wanted) > 0) return true;
    for (xmlNodePtr record : index.irregular) {
      if (RecordMatches(record, keyNames, keyValues)) return true;
    }
    return false;
  } catch (...) {
    ErrorInRethrow("TransactionFactory.TransactionExists(sTransactionID, sKeys, vValues)", {Variant(tranId)});
  }
}

}  // namespace tessel
