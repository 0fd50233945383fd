// TransformFlatten: turns each record of one record type (the flat record,
// option flattentranid) together with its tree of child records into flat
// records of that same type, one for each combination of its children, each
// holding the record's own fields and those its children feed.
//
// The definition names the flat record's fields; a FIELD with imptranid and
// impname takes its value from that field of that input record type, a FIELD
// without them from the flat record's own field of the same name. Where a
// record has several child types the flat records are their cross product,
// the first child type cycling fastest. A child type without records leaves
// the product as it is; a leaf record type feeds only if some field imports
// from it.
//
// The data arrives in the shape of the preceding transform, so
// CreateController merges this definition into a copy of the preceding one
// (this definition's flat record replacing the preceding one's); Process
// replaces each source record by its flat records and at the end removes the
// flat record's child record types from the definition, which then describes
// the flattened data.
//
// Ownership: the factory and its data document belong to the coordinator; the
// definition is the factory's and is changed in place; the event sink is
// borrowed for the run.
//
// Errors pass through ErrorIn and end the transform: 7703 for a flattentranid
// that is missing or names no record, 8103 for an impname the input record
// lacks, 91 without a preceding transform.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "job/ITransformController.h"

namespace tessel {

class Transaction;
class TransactionContext;
class TransactionSelector;

class TransformFlatten : public ITransformController {
 public:
  TransformFlatten();
  ~TransformFlatten() override;

  Ref<XMLWrapper> TransformedData() override;
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override;
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override;
  void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) override;
  void Process() override;

 private:
  using Records = std::vector<Ref<Transaction>>;
  // name and impname of the flat record's fields fed from one record type
  using FieldFeeds = std::vector<std::pair<std::string, std::string>>;

  void SetFlattenTransactionID();
  void MergeMetaData();
  void GenerateTransaction();
  Records FlattenStructure(TransactionSelector& selector, const std::string& createTranId);
  // Extends `combinations` by the records a child level returned.
  void Combine(Records& combinations, Records& returned);
  void CommitTransactions(Records& records, TransactionContext& context);
  void CopyFieldsOntoTransaction(Transaction& source, Transaction& target);
  const FieldFeeds& FieldsToTransform(const std::string& sourceId);
  void DeleteChildrenOfFlatTran(const std::string& recordId);

  std::string transformId_;
  std::string flatTranId_;
  std::shared_ptr<tessel::TransformDefinition> definition_;
  std::shared_ptr<tessel::TransformDefinition> previous_;
  std::shared_ptr<tessel::TransactionFactory> factory_;
  IEvent* event_ = nullptr;
  std::unordered_map<std::string, FieldFeeds> feeds_;
};

}  // namespace tessel
