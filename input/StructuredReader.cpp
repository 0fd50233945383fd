#include "input/StructuredReader.h"

#include <cstring>

#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "core/RuntimeError.h"
#include "input/HeirarchicalReaderHelper.h"
#include "input/IHeirachicalDataIterator.h"
#include "input/IImportReader.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace tessel {

namespace {

constexpr int32_t kErrOnChangePosition = 8240;
constexpr int kMaxDepth = 256;

bool IsElement(xmlNodePtr node, const char* name) {
  return node != nullptr && node->type == XML_ELEMENT_NODE &&
         std::strcmp(reinterpret_cast<const char*>(node->name), name) == 0;
}

std::string Attribute(xmlNodePtr node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (value == nullptr) return {};
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

}  // namespace

StructuredReader::StructuredReader() = default;
StructuredReader::~StructuredReader() = default;

void StructuredReader::InitClass(std::shared_ptr<TransformDefinition> definition,
                                 std::shared_ptr<TransactionFactory> factory, std::shared_ptr<IImportReader> reader,
                                 IEvent* event) {
  try {
    if (!definition || !factory || !reader) ThrowRuntimeError(91);
    definition_ = std::move(definition);
    factory_ = std::move(factory);
    reader_ = std::move(reader);
    event_ = event;
    transformId_ = definition_->TransformId();
  } catch (...) {
    ErrorInRethrow("StructuredReader.InitClass(oTransformDefinition, oTransactionFactory, oReader, oEvent)", {});
  }
}

int32_t StructuredReader::HeirarchicalDataset() { return definition_->Property("heircarchical").ToLong(); }

void StructuredReader::Read() {
  try {
    switch (HeirarchicalDataset()) {
      case 0: ReadFlatStructure(); break;
      case 1: ReadHeirarchicalStructure(); break;
      case 2: ReadNaturalHeirchicalData(); break;
      default: break;
    }
  } catch (...) {
    ErrorInRethrow("StructuredReader.Read()", {});
  }
}

const std::vector<StructuredReader::FieldInfo>& StructuredReader::FieldsOf(xmlNodePtr recordNode) {
  auto found = fieldsByRecord_.find(recordNode);
  if (found != fieldsByRecord_.end()) return found->second;
  std::vector<FieldInfo> fields;
  XMLWrapper& wrapper = *definition_->TransformDefinitionXWrapper();
  for (xmlNodePtr child = recordNode->children; child; child = child->next) {
    if (!IsElement(child, "FIELD")) continue;
    std::string name = wrapper.GetAttributeFromNode(child, "name");
    const bool inputFile = name == "SYS.INPUTFILE";
    fields.push_back(FieldInfo{child, std::move(name), inputFile});
  }
  return fieldsByRecord_.emplace(recordNode, std::move(fields)).first->second;
}

bool StructuredReader::TakesTextsInOrder(const std::vector<FieldInfo>& fields, const std::string& tranId) {
  if (&fields == lastFields_) return lastTakesTexts_;
  auto found = takesTexts_.find(&fields);
  if (found == takesTexts_.end()) {
    std::vector<std::string_view> names;
    bool takes = true;
    for (const FieldInfo& field : fields) {
      takes = takes && !field.inputFile;
      names.push_back(field.name);
    }
    takes = takes && factory_->TakesTextsInOrder(tranId, names);
    found = takesTexts_.emplace(&fields, takes).first;
  }
  lastFields_ = &fields;
  lastTakesTexts_ = found->second;
  return lastTakesTexts_;
}

Ref<Transaction> StructuredReader::LineIntoTransaction(const std::vector<FieldInfo>& fields,
                                                       const std::string& tranId) {
  size_t position = 0;
  try {
    if (TakesTextsInOrder(fields, tranId)) {
      // Mostly every field's text is at hand: the record is made with them.
      // Anything else, a failure included, is left to the field by field
      // way, which reports what fails first in its order.
      bool allTexts = false;
      try {
        texts_.clear();
        std::string_view text;
        while (position < fields.size() && reader_->ItemText(fields[position].node, text)) {
          texts_.push_back(text);
          ++position;
        }
        allTexts = position == fields.size();
      } catch (...) {
      }
      if (allTexts) {
        if (Ref<Transaction> transaction = factory_->CreateTransactionWithTexts(tranId, texts_)) return transaction;
      }
      position = 0;
    }
    Ref<Transaction> transaction = factory_->CreateTransaction(tranId);
    for (; position < fields.size(); ++position) {
      const FieldInfo& field = fields[position];
      std::string_view text;
      if (!field.inputFile && reader_->ItemText(field.node, text)) {
        transaction->SetFieldText(field.name, text, false);
        continue;
      }
      Variant value = field.inputFile ? Variant(reader_->Source()) : reader_->Item(field.node);
      transaction->SetFieldValue(field.name, value, false);
    }
    return transaction;
  } catch (...) {
    if (CurrentError().number() == 9) {
      std::string source;
      try {
        source = reader_->Source();
      } catch (...) {
      }
      ErrInsertTrace(BuildCheckMessage(
          "Invalid file layout encountered whilst parsing [%1]. Expected number of fields is [%2], actual number "
          "of fields is [%3]. ||",
          {Variant(source), Variant(static_cast<int32_t>(fields.size())), Variant(static_cast<int32_t>(position))}));
    }
    ErrorInRethrow("StructuredReader.LineIntoTransaction(oFieldNodes, sTranId)", {Variant(), Variant(tranId)});
  }
}

void StructuredReader::AddRecordRead(Transaction& transaction) {
  if (event_ == nullptr) return;
  std::string id;
  event_->OnProcess(transformId_, &transaction, id);
  id.clear();
  event_->OnInsert(transformId_, &transaction, id);
}

void StructuredReader::ReadFlatStructure() {
  try {
    xmlNodePtr record = definition_->RecordNode("1");
    const std::string tranId = definition_->RecordId(record);
    const std::vector<FieldInfo>& fields = FieldsOf(record);
    Ref<TransactionContext> context = factory_->Data()->CreateContext();
    factory_->SetContextToTopDataNode(*context);
    while (!reader_->EOF_()) {
      Ref<Transaction> transaction = LineIntoTransaction(fields, tranId);
      factory_->AddTransaction(*transaction, *context);
      AddRecordRead(*transaction);
      if (!reader_->EOF_()) reader_->MoveNext();
    }
  } catch (...) {
    ErrorInRethrow("StructuredReader.ReadFlatStructure()", {});
  }
}

std::unordered_map<std::string, std::string> StructuredReader::InitOnChangeDictionary() {
  std::unordered_map<std::string, std::string> dictionary;
  for (xmlNodePtr record : definition_->RecordNodes()) {
    xmlNodePtr field = nullptr;
    for (xmlNodePtr child = record->children; child && !field; child = child->next) {
      if (IsElement(child, "FIELD") && xmlHasProp(child, reinterpret_cast<const xmlChar*>("onchangeval"))) {
        field = child;
      }
    }
    if (field == nullptr) ThrowRuntimeError(91);
    if (!dictionary.emplace(Attribute(field, "onchangeval"), definition_->RecordId(record)).second) {
      ThrowRuntimeError(457);
    }
  }
  return dictionary;
}

void StructuredReader::ReadHeirarchicalStructure() {
  try {
    const std::unordered_map<std::string, std::string> dictionary = InitOnChangeDictionary();
    const std::string positionText = definition_->Property("onchangefieldpos").ToString();
    const int32_t position = IsNumericText(positionText) ? Variant(positionText).ToLong() - 1 : -1;
    Check(position >= 0, kErrOnChangePosition,
          "The [%1] attribute on transform [%2] is invalid. It must be between 1 and the number of fields in the "
          "record.",
          {Variant(positionText), Variant(transformId_)});

    HeirarchicalReaderHelper helper;
    helper.InitialiseHelper(definition_, factory_, definition_->RecordId(definition_->RecordNode("1")));
    while (!reader_->EOF_()) {
      const std::string value = reader_->FieldByPosition(position).ToString();
      auto found = dictionary.find(value);
      if (found == dictionary.end()) {
        std::string source;
        try {
          source = reader_->Source();
        } catch (...) {
        }
        ErrInsertTrace(BuildCheckMessage("No record is defined for the record type value [%1] in [%2].||",
                                         {Variant(value), Variant(source)}));
        ThrowRuntimeError(91);
      }
      const std::string& tranId = found->second;
      xmlNodePtr record = definition_->RecordNode(tranId);
      reader_->ValidateRecord(record);
      Ref<Transaction> transaction = LineIntoTransaction(FieldsOf(record), tranId);
      Ref<TransactionContext> context;
      helper.InsertTransaction(tranId, *transaction, &context);
      AddRecordRead(*transaction);
      if (!reader_->EOF_()) reader_->MoveNext();
    }
  } catch (...) {
    ErrorInRethrow("StructuredReader.ReadHeirarchicalStructure()", {});
  }
}

Ref<TransactionContext> StructuredReader::CreateContext(xmlNodePtr node) {
  Ref<TransactionContext> context = factory_->Data()->CreateContext();
  context->SetNode(node);
  context->SetAutoUpdate(true);
  return context;
}

void StructuredReader::ReadNaturalHeirchicalData() {
  try {
    xmlNodePtr top = definition_->TransformDefinitionXWrapper()->GetNodeFromXPath("RECORD[@parentid='']",
                                                                                   definition_->RecordsNode());
    const std::string topId = definition_->RecordId(top);
    Ref<TransactionContext> context = factory_->Data()->CreateContext();
    factory_->SetContextToTopDataNode(*context);
    reader_->MoveNext();
    while (!reader_->EOF_()) {
      auto* iterator = dynamic_cast<IHeirachicalDataIterator*>(reader_.get());
      if (iterator == nullptr) ThrowRuntimeError(13);
      IterateHeirarchicalData(topId, "", *context, *iterator, 0);
      if (!reader_->EOF_()) reader_->MoveNext();
    }
  } catch (...) {
    ErrorInRethrow("StructuredReader.ReadNaturalHeirchicalData()", {});
  }
}

void StructuredReader::IterateHeirarchicalData(const std::string& transactionId, const std::string& parentTranId,
                                               TransactionContext& context, IHeirachicalDataIterator& iterator,
                                               int depth) {
  try {
    Check(depth < kMaxDepth, 8203,
          "XML data instance has too many levels of nested nodes. Maximum allowed depth is %1 levels.",
          Variant(int32_t{kMaxDepth}));
    xmlNodePtr record = definition_->RecordNode(transactionId);
    const std::vector<FieldInfo>& fields = FieldsOf(record);
    const std::vector<std::string> children = definition_->RecordDirectDescendentIDs(record);
    Ref<TransactionContext> here = CreateContext(context.ContextNode());
    const int32_t count = iterator.RecordCount();
    for (int32_t l = 1; l <= count; ++l) {
      iterator.MoveNextRecord();
      Ref<Transaction> transaction = LineIntoTransaction(fields, transactionId);
      factory_->AddTransaction(*transaction, *here);
      AddRecordRead(*transaction);
      for (const std::string& child : children) {
        iterator.MoveChild(child);
        IterateHeirarchicalData(child, transactionId, *here, iterator, depth + 1);
      }
    }
    if (!parentTranId.empty()) iterator.MoveParent();
  } catch (...) {
    ErrorInRethrow("StructuredReader.IterateHeirarchicalData(sTransactionId, sParentTranId, oContext, oIterator)",
                   {Variant(transactionId), Variant(parentTranId)});
  }
}

}  // namespace tessel
