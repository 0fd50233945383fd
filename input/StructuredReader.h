// StructuredReader: turns the records an IImportReader delivers into
// transactions of the transform's data document, in one of three modes
// chosen by the option heircarchical:
//   0 flat: every record is a top-level transaction of the first record type;
//   1 hierarchical: the value at onchangefieldpos names the record type
//     (onchangeval of a FIELD), and HeirarchicalReaderHelper places it by keys;
//   2 natural: the reader is an IHeirachicalDataIterator and its tree is copied.
// Any other mode reads nothing.
//
// Every record read raises IEvent::OnProcess and OnInsert, also a parent line
// dropped as a duplicate: the audit counts lines. A failure ends the read;
// what was read stays in the document.
//
// Ownership: shares the definition, factory and reader with TransformRead;
// the event sink outlives it.
//
// Errors: 8240 onchangefieldpos below 1 or not a number; 91 a record type
// value that matches no record, or a record without an onchangeval field;
// 457 two records with one onchangeval; 9 a line shorter than its record
// (with "Invalid file layout ..." as additional text); the reader's and the
// store's errors.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Object.h"

namespace tessel {

class IEvent;
class IImportReader;
class IHeirachicalDataIterator;
class Transaction;
class TransactionContext;
class TransactionFactory;
class TransformDefinition;

class StructuredReader {
 public:
  StructuredReader();
  ~StructuredReader();

  void InitClass(std::shared_ptr<TransformDefinition> definition, std::shared_ptr<TransactionFactory> factory,
                 std::shared_ptr<IImportReader> reader, IEvent* event);
  void Read();

  const std::string& TransformId() const { return transformId_; }

 private:
  struct FieldInfo {
    xmlNodePtr node;
    std::string name;
    bool inputFile;
  };

  void ReadFlatStructure();
  void ReadHeirarchicalStructure();
  void ReadNaturalHeirchicalData();
  std::unordered_map<std::string, std::string> InitOnChangeDictionary();
  Ref<Transaction> LineIntoTransaction(const std::vector<FieldInfo>& fields, const std::string& tranId);
  void IterateHeirarchicalData(const std::string& transactionId, const std::string& parentTranId,
                               TransactionContext& context, IHeirachicalDataIterator& iterator, int depth);
  Ref<TransactionContext> CreateContext(xmlNodePtr node);
  int32_t HeirarchicalDataset();
  void AddRecordRead(Transaction& transaction);
  const std::vector<FieldInfo>& FieldsOf(xmlNodePtr recordNode);
  // Whether records of type `tranId` can be made with the texts of
  // `fields` at once (TransactionFactory::TakesTextsInOrder); asked once.
  bool TakesTextsInOrder(const std::vector<FieldInfo>& fields, const std::string& tranId);

  std::shared_ptr<TransformDefinition> definition_;
  std::shared_ptr<TransactionFactory> factory_;
  std::shared_ptr<IImportReader> reader_;
  IEvent* event_ = nullptr;
  std::string transformId_;
  std::unordered_map<xmlNodePtr, std::vector<FieldInfo>> fieldsByRecord_;
  std::unordered_map<const std::vector<FieldInfo>*, bool> takesTexts_;
  const std::vector<FieldInfo>* lastFields_ = nullptr;  // the entry of takesTexts_ asked last
  bool lastTakesTexts_ = false;
  std::vector<std::string_view> texts_;  // the line's texts for a record made with them
};

}  // namespace tessel
