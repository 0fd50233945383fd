// RecordTreeWalk: the walk of the map and filter transforms over the records
// of a data document, and what it does with a failure on one record.
//
// Open selects every record of the definition's first record type without
// parent. Run then visits each record of that type and, before each record,
// all records below it (children before their parent, so a parent sees its
// children as already worked on), telling the audit of each record through
// IEvent::OnProcess. The visitor gets the record, its record id and a flag
// that lives for one level of the walk (the filter keeps its last decision
// there); it may delete the record through Selector().
//
// Failures: Handle is called inside a catch block while a failure is in
// flight. It writes an audit entry (reason code "9650", the trace-free
// description) through IEvent::OnError for the record, or as an entry without
// record, and then clears the failure so that the walk goes on (error action 2
// or 3, and the failure was not the cursor's own) or raises it again under the
// transform's frame. Logging never replaces the failure it reports.
//
// Ownership: the walk owns its selector; the event sink is borrowed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "core/Object.h"

namespace tessel {

class IEvent;
class Transaction;
class TransactionFactory;
class TransactionSelector;
class TransformDefinition;

class RecordTreeWalk {
 public:
  static constexpr const char* kErrorReasonCode = "9650";

  using Visitor = std::function<void(Transaction& record, const std::string& recordId, bool& levelFlag)>;

  // `frame` names the walk in a raised failure's trace,
  // e.g. "TransformMap.PerformTransform()".
  RecordTreeWalk(std::string frame, std::string transformId, IEvent& event, int32_t errorAction);

  bool ContinuesOnError() const { return errorAction_ == 2 || errorAction_ == 3; }

  // Positions the walk on the first record of the top-level type. Returns
  // false, and the walk has nothing to visit, when the definition has none.
  bool Open(TransformDefinition& definition, TransactionFactory& factory);
  void Run(const Visitor& visit);
  TransactionSelector& Selector() { return *selector_; }

  // Logs the failure in flight; returns when the walk is to go on, else
  // raises it again. A failure of the walk itself always raises.
  void Handle(Transaction* record, bool walkFailed = false);

 private:
  void WalkLevel(const Visitor& visit);
  void Log(Transaction* record, const std::string& reason);

  std::string frame_;
  std::string transformId_;
  IEvent* event_;
  int32_t errorAction_;
  Ref<TransactionSelector> selector_;
};

}  // namespace tessel
