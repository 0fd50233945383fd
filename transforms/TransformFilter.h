// TransformFilter: deletes the records for which a condition is false.
//
// The condition of a record type is the filter attribute of its RECORD in the
// definition: a script expression with `%` field references, evaluated
// through the vbWrapper for each record of that type; a multi-line condition
// becomes a function named after the record id. A record type without a
// condition keeps all its records. The walk goes children before their
// parent, so a parent's condition sees what is left below it; a parent that
// fails goes with its whole subtree. Every deletion is reported through
// IEvent::OnDelete. The data keeps its field names: no renaming happens here.
//
// A failure while working on a record is logged as an audit entry with
// reason code "9650" through IEvent::OnError. With the transform's error
// action 2 or 3 the walk goes on; a condition that failed to evaluate then
// repeats the decision last taken on its level of the walk, and deletes the
// record when it is the first decision of that level. With any other action
// the failure ends the transform. A failure of the walk itself (the cursor)
// always ends it.
//
// Ownership: the factory and its data document belong to the coordinator;
// the transform owns its selector and script host; the event sink is
// borrowed for the run.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "job/ITransformController.h"
#include "transforms/RecordTreeWalk.h"

namespace tessel {

class Transaction;
class TransactionSelector;
class vbWrapper;

class TransformFilter : public ITransformController {
 public:
  // Reason code of the audit entry of a failed record.
  static constexpr const char* kErrorReasonCode = RecordTreeWalk::kErrorReasonCode;

  TransformFilter();
  ~TransformFilter() override;

  Ref<XMLWrapper> TransformedData() override;
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override;
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override;
  void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) override;
  void Process() override;

 private:
  void InitialiseCacheData();
  void OpenTransactionSelector();
  void PerformTransform();

  std::string transformId_;
  std::unordered_map<std::string, std::string> conditions_;  // record id to condition
  std::shared_ptr<tessel::TransformDefinition> definition_;
  std::shared_ptr<tessel::TransactionFactory> factory_;
  IEvent* event_ = nullptr;
  int32_t errorAction_ = 0;
  std::unique_ptr<vbWrapper> script_;
  std::unique_ptr<RecordTreeWalk> walk_;
};

}  // namespace tessel
