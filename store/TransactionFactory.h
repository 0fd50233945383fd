// TransactionFactory: owner of one transform's data document and of the
// transform's definition, and the one place where transactions are made,
// found and linked into the document.
//
// The data document's root is DATA; under it one RECORDS container per top
// record type holds that type's RECORD elements; a RECORD holds one FIELD
// (name attribute, one VALUES of VALUE elements) per field of its type, in
// the definition's order, then one RECORDS per child record type with data.
// A chain of transforms shares one document: the coordinator sets the
// parent's document as Data of the child's factory.
//
// Ownership: the factory holds its document and definition. Factories live in
// std::shared_ptr: iterators and selectors hold their factory, transactions
// hold it weakly. The empty RECORD of each record type (the template) and the
// field dictionary of each type are made on first use and kept for the life
// of the factory, also across SetData and ClearData.
//
// TransactionExists answers from an index of key values kept per record type
// and key list; AddTransaction, SetData, ClearData and Merge keep it right,
// and writes through a Transaction to a record already in the tree drop it.
// Code that changes the data document by other means must call ResetIndex.
//
// Errors: 8020 duplicate field in a record definition, 8021 field without a
// type, 7703 unknown record id (from the definition), 8106 no folder for
// binary values.
#pragma once

#include <libxml/tree.h>

#include <filesystem>
#include <array>
#include <memory>
#include <string>
#include <span>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"
#include "store/FieldMetaData.h"
#include "store/RecordImage.h"
#include "store/XMLWrapper.h"

namespace tessel {

class Attributes;
class Transaction;
class TransactionContext;
class TransactionIterator;
class TransactionSelector;
class TransformDefinition;

class TransactionFactory : public std::enable_shared_from_this<TransactionFactory> {
 public:
  // Starts with a new, empty data document.
  TransactionFactory();
  ~TransactionFactory();
  TransactionFactory(const TransactionFactory&) = delete;
  TransactionFactory& operator=(const TransactionFactory&) = delete;

  const Ref<XMLWrapper>& Data() const { return data_; }
  // Replaces the document, e.g. by the parent transform's.
  void SetData(Ref<XMLWrapper> data);

  const std::shared_ptr<tessel::TransformDefinition>& TransformDefinition() const { return definition_; }
  void SetTransformDefinition(std::shared_ptr<tessel::TransformDefinition> definition);

  // A new transaction of record type `tranId` (a number picks the type by
  // position), not yet in the tree. `reserved` is ignored.
  Ref<Transaction> CreateTransaction(std::string_view tranId, std::string_view recordName = {},
                                     const Variant& reserved = Variant());
  // True when new records of type `tranId` can take the texts of exactly
  // these fields, in this order, through CreateTransactionWithTexts: the
  // type's fields in definition order, none of them binary.
  bool TakesTextsInOrder(std::string_view tranId, std::span<const std::string_view> fieldNames);
  // A new transaction of record type `tranId`, not yet in the tree, whose
  // fields hold `texts` as SetFieldText(name, text) for each field in
  // definition order leaves them. Null where the record cannot be made so
  // (no image of the type's template, a quoted text of a field that is not
  // a string): the caller then sets the fields one by one. Only for a type
  // that TakesTextsInOrder with `texts` in that order.
  Ref<Transaction> CreateTransactionWithTexts(std::string_view tranId, std::span<const std::string_view> texts);
  // A cursor standing on the context's node, or on /DATA without a context.
  Ref<TransactionIterator> CreateIterator(TransactionContext* initial = nullptr);
  // A selector over this document; no definition means this factory's, no
  // context means /DATA.
  Ref<TransactionSelector> CreateTransactionSelector(
      std::shared_ptr<tessel::TransformDefinition> definition = nullptr, TransactionContext* initial = nullptr);
  void SetContextToTopDataNode(TransactionContext& context);
  // The transaction at a context standing on a RECORD.
  Ref<Transaction> GetTransaction(TransactionContext& context);
  // Removes every child of DATA.
  void ClearData();
  // A transaction over a RECORD given as XML text, parsed into a document of
  // its own; it is not in this factory's document.
  Ref<Transaction> ReconstructTransaction(std::string_view tranId, std::string_view xml);
  // Adds the top records of a saved data document to this one.
  void Merge(const std::string& fileName);
  // Links a transaction into the tree relative to the context, making its
  // RECORDS container when needed; the attributes bag, when given, is moved
  // onto the record.
  void AddTransaction(Transaction& transaction, TransactionContext& context, Attributes* attributes = nullptr);

  // True when a record of type `tranId`, in a container at the place its
  // definition gives it, has for every key a value equal to the given one.
  // An empty value stands for any (the record only needs the field). Same
  // answer as a selector search "K1='v1' and K2='v2'" on the whole document.
  bool TransactionExists(std::string_view tranId, const std::vector<std::string>& keyNames,
                         const std::vector<std::string>& keyValues);
  // Forgets the key index; the next TransactionExists rebuilds it.
  void ResetIndex() { indexes_.clear(); }
  // Called by transactions that change a record in the tree.
  void RecordChanged(xmlNodePtr record);

  // Internal, for transactions, iterators and selectors.
  std::shared_ptr<const FieldDictionary> GetMetaFieldData(std::string_view tranId, xmlNodePtr record);
  // A FIELD with its name and one empty VALUES, made in `doc`, not linked.
  static xmlNodePtr InitFldNode(xmlDocPtr doc, std::string_view fieldName);
  // The transaction viewing a RECORD node of the document.
  Ref<Transaction> TransactionAtNode(xmlNodePtr record);
  // Where binary field values are written: the folder set, or else the run's
  // folder of the thread's session (DebugPath/<JobId>-<JobInstance>); 8106
  // when there is neither.
  std::filesystem::path BinaryFolder() const;
  void SetBinaryFolder(std::filesystem::path folder) { binaryFolder_ = std::move(folder); }

 private:
  void InitXData();
  xmlNodePtr InitDataTran(std::string_view tranId, xmlNodePtr record, std::string_view recordName);
  struct Template;
  // The type's template, made on first use from its definition `record`.
  Template& TemplateFor(std::string_view tranId, xmlNodePtr record);
  // The view of a record just made from the template of the type, whose
  // definition is `meta`; `known` when that is lastType_ already.
  Ref<Transaction> ViewOfNewRecord(std::string_view tranId, xmlNodePtr meta, xmlNodePtr node, bool known);
  Ref<Transaction> MergeData(xmlNodePtr record, xmlNodePtr meta, std::shared_ptr<const FieldDictionary> fields);
  // The view object for a record: the one handed out last when no one holds
  // it any more, made as new, or else a new one. Records are mostly asked
  // for one after another and let go before the next.
  Ref<Transaction> RecordView();
  xmlNodePtr TopDataNode();

  struct KeyIndex {
    std::vector<std::string> keyNames;
    // Key value lists joined by '\x1f' of records holding every key value;
    // records whose keys are multi-valued or missing are listed apart.
    std::unordered_multiset<std::string> exact;
    std::vector<xmlNodePtr> irregular;
    bool complete = false;
  };
  KeyIndex& IndexFor(std::string_view tranId, const std::vector<std::string>& keyNames);
  void IndexRecord(KeyIndex& index, xmlNodePtr record);
  bool RecordMatches(xmlNodePtr record, const std::vector<std::string>& keyNames,
                     const std::vector<std::string>& keyValues);
  // Number of ancestor record types by the definition.
  int DefinedDepth(std::string_view tranId);
  // The record stands in /DATA/(RECORDS/RECORD)*/RECORDS[@id=tranId] at its type's depth.
  bool AtDefinedPlace(xmlNodePtr record, std::string_view tranId);
  std::vector<xmlNodePtr> RecordsAtDefinedPlace(std::string_view tranId);

  // The definition's RECORD and the fields of the record type asked for
  // last: both are kept for good once found, and records mostly come one
  // type after another.
  struct TypeLookup {
    std::string id;
    xmlNodePtr meta = nullptr;
    std::shared_ptr<const FieldDictionary> fields;
  };
  void RememberType(std::string_view tranId, xmlNodePtr meta, std::shared_ptr<const FieldDictionary> fields);

  Ref<XMLWrapper> data_;
  std::shared_ptr<tessel::TransformDefinition> definition_;
  TypeLookup lastType_;
  // Views RecordView hands out and takes back once no one else holds them.
  // Two, as a host often keeps the last record's view while the next is made.
  std::array<Ref<Transaction>, 2> spares_;
  size_t lastSpare_ = 0;  // the one handed out last
  Ref<XMLWrapper> templates_;  // holds the empty RECORD of each record type
  // The empty RECORD of each record type, and its image for copying when it has one.
  struct Template {
    xmlNodePtr model = nullptr;
    std::unique_ptr<RecordImage> image;
    // Whether the image's fields are the type's fields in definition order,
    // none binary (CreateTransactionWithTexts); -1 until asked.
    int fillable = -1;
  };
  std::unordered_map<std::string, Template> templateByType_;
  std::pair<const std::string, Template>* lastTemplate_ = nullptr;  // the entry TemplateFor gave last
  std::unordered_map<std::string, std::shared_ptr<const FieldDictionary>> fieldsByType_;
  std::unordered_map<std::string, KeyIndex> indexes_;
  std::unordered_map<std::string, int> depthByType_;
  std::filesystem::path binaryFolder_;
};

}  // namespace tessel
