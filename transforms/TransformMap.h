// TransformMap: gives the fields of every record their new values.
//
// Process first renames the incoming data to this definition's names
// (TransactionRenamer: imptranid on a RECORD, impname on a FIELD), then walks
// the whole record tree, children before their parent. A record without any
// value or child record is deleted. For every other record each field with a
// formula (attribute value) is computed: with eval set the formula is script
// code evaluated through the vbWrapper, otherwise it is literal text with `%`
// field references substituted. A non-empty result overwrites the field; an
// empty one leaves it as it was, so a map never blanks a field. Fields are
// written one at a time, so a formula sees the new values of the fields
// before it and the old values of those after it.
//
// A failure while working on a record is logged as an audit entry with
// reason code "9650" through IEvent::OnError. With the transform's error
// action 2 or 3 the work goes on with the next step: a formula that failed
// leaves its own text in the field. With any other action the failure ends
// the transform. A failure of the walk itself (the cursor) always ends it.
//
// Ownership: the factory and its data document belong to the coordinator;
// the transform owns its selector and script host; the event sink is
// borrowed for the run. The script host is closed when the transform goes.
//
// Errors: 457 for a field named twice in one record of the definition; the
// script host's errors (8103 unknown field, 9651 unclosed field name, the
// engine's own) under the rules above.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "job/ITransformController.h"
#include "transforms/RecordTreeWalk.h"

namespace tessel {

class Transaction;
class TransactionSelector;
class vbWrapper;

class TransformMap : public ITransformController {
 public:
  // Reason code of the audit entry of a failed record.
  static constexpr const char* kErrorReasonCode = RecordTreeWalk::kErrorReasonCode;

  TransformMap();
  ~TransformMap() override;

  Ref<XMLWrapper> TransformedData() override;
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override;
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override;
  void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) override;
  void Process() override;

 private:
  void InitialiseCacheData();
  void RenameDataFields();
  void OpenTransactionSelector();
  void PerformTransform();

  // A field of a record type that has a formula, in the order the record's
  // fields are visited.
  struct FormulaStep {
    std::string field;
    const std::string* formula;  // in formulas_
    bool evaluated;
  };
  // The steps of the record's type, worked out on its first record; null
  // when a field name could not be read (each record then goes through
  // its fields itself and reports the failure).
  const std::vector<FormulaStep>* StepsFor(Transaction& record, const std::string& recordId);
  // The steps of the record's type into `steps`; false when a field name
  // could not be read, which with `reportFailures` is reported for the
  // record and skipped.
  bool CollectSteps(Transaction& record, const std::string& recordId, std::vector<FormulaStep>& steps,
                    bool reportFailures);

  // Per record id: the fields evaluated as script, and the formulas.
  std::unordered_map<std::string, std::unordered_set<std::string>> evaluated_;
  std::unordered_map<std::string, std::unordered_map<std::string, std::string>> formulas_;
  std::unordered_map<std::string, std::vector<FormulaStep>> steps_;
  std::string transformId_;
  std::shared_ptr<tessel::TransformDefinition> definition_;
  std::shared_ptr<tessel::TransformDefinition> previous_;
  std::shared_ptr<tessel::TransactionFactory> factory_;
  IEvent* event_ = nullptr;
  int32_t errorAction_ = 0;
  std::unique_ptr<vbWrapper> script_;
  std::unique_ptr<RecordTreeWalk> walk_;
};

}  // namespace tessel
