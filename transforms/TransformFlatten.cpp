#include "transforms/TransformFlatten.h"

#include <unordered_set>

#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"

namespace tessel {
namespace {

// Puts `replacement`, an unlinked node of the same document, where `old`
// stands, and frees `old`.
void ReplaceNode(xmlNodePtr old, xmlNodePtr replacement) {
  xmlReplaceNode(old, replacement);
  xmlFreeNode(old);
}

}  // namespace

TransformFlatten::TransformFlatten() = default;
TransformFlatten::~TransformFlatten() = default;

Ref<XMLWrapper> TransformFlatten::TransformedData() { return factory_->Data(); }
std::shared_ptr<tessel::TransformDefinition> TransformFlatten::TransformDefinition() { return definition_; }
std::shared_ptr<tessel::TransactionFactory> TransformFlatten::TransactionFactory() { return factory_; }

void TransformFlatten::CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) {
  try {
    factory_ = std::move(factory);
    definition_ = factory_->TransformDefinition();
    previous_ = std::move(previous);
    event_ = &event;
    transformId_ = definition_->TransformId();
    SetFlattenTransactionID();
    MergeMetaData();
  } catch (...) {
    ErrorInRethrow("TransformFlatten.ITransformController_CreateController(oPrevious, oEvent, oTransactionFactory, "
                   "bTestMode)",
                   {Variant::Nothing(), Variant::Nothing(), Variant::Nothing(), Variant(testMode)});
  }
}

void TransformFlatten::SetFlattenTransactionID() {
  try {
    flatTranId_ = definition_->Property("flattentranid").ToString();
  } catch (...) {
    ErrorInRethrow("TransformFlatten.SetFlattenTransactionID()", {});
  }
}

void TransformFlatten::MergeMetaData() {
  try {
    if (!previous_) ThrowRuntimeError(91);
    xmlNodePtr flat = definition_->RecordNodeByRecordId(flatTranId_);

    Ref<XMLWrapper> mergedXml = previous_->TransformDefinitionXWrapper()->CopyNodeIntoNewWrapper("/");
    tessel::TransformDefinition merged(mergedXml);
    ReplaceNode(merged.RecordNodeByRecordId(flatTranId_), mergedXml->CloneNode(flat, true));
    merged.ResetCache();

    XMLWrapper& ownXml = *definition_->TransformDefinitionXWrapper();
    ReplaceNode(definition_->RecordsNode(), ownXml.CloneNode(merged.RecordsNode(), true));
    definition_->ResetCache();
    feeds_.clear();
  } catch (...) {
    ErrorInRethrow("TransformFlatten.MergeMetaData()", {Variant(flatTranId_)});
  }
}

void TransformFlatten::Process() {
  try {
    GenerateTransaction();
    DeleteChildrenOfFlatTran(flatTranId_);
  } catch (...) {
    ErrorInRethrow("TransformFlatten.ITransformController_Process()", {});
  }
}

void TransformFlatten::GenerateTransaction() {
  try {
    Ref<TransactionSelector> selector = factory_->CreateTransactionSelector(definition_, nullptr);
    selector->SetReturnTransaction(flatTranId_);
    selector->AddSearch(flatTranId_, "*");
    selector->OpenResultset();
    selector->MoveFirst();
    while (!selector->EOF_()) {
      Records flat = FlattenStructure(*selector, flatTranId_);
      CommitTransactions(flat, *selector->Context());
      // The source goes with its whole subtree; the result set is fixed, so
      // the cursor keeps its place and the next source follows.
      selector->Delete();
      selector->MoveNext();
    }
  } catch (...) {
    ErrorInRethrow("TransformFlatten.GenerateTransaction()", {Variant(flatTranId_)});
  }
}

TransformFlatten::Records TransformFlatten::FlattenStructure(TransactionSelector& selector,
                                                             const std::string& createTranId) {
  std::string recordId;
  try {
    Records result;
    Records combinations;
    bool handledFlatRecord = false;
    // The level of the flat record handles one record per call: the caller
    // replaces it before moving on.
    while (!selector.EOF_() && !handledFlatRecord) {
      Ref<Transaction> record = selector.Item();
      std::string eventId;
      event_->OnProcess(transformId_, record.get(), eventId);
      recordId = record->TransactionId();

      const int32_t childRecords = selector.ChildRecords();
      for (int32_t l = 1; l <= childRecords; ++l) {
        selector.MoveChild(std::to_string(l));
        Records returned = FlattenStructure(selector, createTranId);
        Combine(combinations, returned);
      }

      for (Ref<Transaction>& combination : combinations) CopyFieldsOntoTransaction(*record, *combination);
      result.insert(result.end(), combinations.begin(), combinations.end());
      combinations.clear();

      if (childRecords == 0 && !FieldsToTransform(recordId).empty()) {
        Ref<Transaction> flat = factory_->CreateTransaction(createTranId);
        CopyFieldsOntoTransaction(*record, *flat);
        result.push_back(flat);
      }

      handledFlatRecord = recordId == flatTranId_;
      if (!handledFlatRecord) selector.MoveNext();
    }
    if (selector.HasParent()) selector.MoveParent();
    return result;
  } catch (...) {
    ErrorInRethrow("TransformFlatten.FlattenStructure(oSelector, sCreateTranId)",
                   {Variant::Nothing(), Variant(createTranId)});
  }
}

void TransformFlatten::Combine(Records& combinations, Records& returned) {
  if (combinations.empty()) {
    combinations = std::move(returned);
    return;
  }
  if (returned.empty()) return;
  const size_t a = combinations.size();
  const size_t b = returned.size();
  // Copies of the first a combinations, repeated until there are a times b;
  // then each block of a receives one returned record, so the combinations
  // made earlier cycle fastest.
  combinations.reserve(a * b);
  size_t p = 0;
  for (size_t m = 0; m < a; ++m) {
    for (size_t n = 1; n < b; ++n) {
      ++p;
      Ref<Transaction> copy = MakeRef<Transaction>();
      combinations[(p - 1) % a]->CopyTransaction(*copy);
      combinations.push_back(copy);
    }
  }
  p = 0;
  for (size_t j = 0; j < b; ++j) {
    for (size_t i = 0; i < a; ++i) CopyFieldsOntoTransaction(*returned[j], *combinations[p++]);
  }
}

void TransformFlatten::CommitTransactions(Records& records, TransactionContext& context) {
  try {
    for (Ref<Transaction>& record : records) factory_->AddTransaction(*record, context);
  } catch (...) {
    ErrorInRethrow("TransformFlatten.CommitTransactions(colTransactions, ctx)", {});
  }
}

void TransformFlatten::CopyFieldsOntoTransaction(Transaction& source, Transaction& target) {
  try {
    if (source.TransactionId() == target.TransactionId()) {
      for (const std::string& name : source.FieldNames()) {
        if (source.IsFieldSet(name)) target.SetFieldValue(name, source.GetFieldValues(name, 0), false);
      }
      return;
    }
    // An unset input field gives its type's default, which reaches the flat
    // record unless it is empty text.
    for (const auto& [name, impName] : FieldsToTransform(source.TransactionId())) {
      target.SetFieldValue(name, source.GetFieldValues(impName, 0), false);
    }
  } catch (...) {
    ErrorInRethrow("TransformFlatten.CopyFieldsOntoTransaction(oSource, oTarget)", {});
  }
}

const TransformFlatten::FieldFeeds& TransformFlatten::FieldsToTransform(const std::string& sourceId) {
  try {
    auto found = feeds_.find(sourceId);
    if (found != feeds_.end()) return found->second;
    XMLWrapper& xml = *definition_->TransformDefinitionXWrapper();
    FieldFeeds feeds;
    for (xmlNodePtr field : xml.GetNodesFromXPath("FIELD[@imptranid]", definition_->RecordNodeByRecordId(flatTranId_))) {
      if (xml.GetAttributeFromNode(field, "imptranid") != sourceId) continue;
      feeds.emplace_back(xml.GetAttributeFromNode(field, "name"), xml.GetAttributeFromNode(field, "impname"));
    }
    return feeds_.emplace(sourceId, std::move(feeds)).first->second;
  } catch (...) {
    ErrorInRethrow("TransformFlatten.FieldsToTransform(sTranId)", {Variant(sourceId)});
  }
}

void TransformFlatten::DeleteChildrenOfFlatTran(const std::string& recordId) {
  try {
    // All descendants go; a definition whose chain of parents comes back to
    // the flat record keeps that record.
    XMLWrapper& xml = *definition_->TransformDefinitionXWrapper();
    std::unordered_set<std::string> done{recordId};
    for (const std::string& child : definition_->RecordAllDescendentIDs(recordId)) {
      if (!done.insert(child).second || !definition_->HasRecord(child)) continue;
      xml.DeleteNode(definition_->RecordNodeByRecordId(child));
      definition_->ResetCache();
    }
  } catch (...) {
    ErrorInRethrow("TransformFlatten.DeleteChildrenOfFlatTran(sTranId)", {Variant(recordId)});
  }
}

}  // namespace tessel
