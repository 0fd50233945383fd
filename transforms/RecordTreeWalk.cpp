#include "transforms/RecordTreeWalk.h"

#include <utility>

#include "audit/ExceptionState.h"
#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "audit/IntegrationLogEntry.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"

namespace tessel {

RecordTreeWalk::RecordTreeWalk(std::string frame, std::string transformId, IEvent& event, int32_t errorAction)
    : frame_(std::move(frame)), transformId_(std::move(transformId)), event_(&event), errorAction_(errorAction) {}

bool RecordTreeWalk::Open(TransformDefinition& definition, TransactionFactory& factory) {
  selector_.reset();
  std::string rootId;
  for (xmlNodePtr record : definition.RecordNodes()) {
    if (definition.RecordParentId(record).empty()) {
      rootId = definition.RecordId(record);
      break;
    }
  }
  if (rootId.empty()) return false;
  selector_ = factory.CreateTransactionSelector();
  selector_->SetReturnTransaction(rootId);
  selector_->AddSearch(rootId, "*");
  selector_->OpenResultset();
  selector_->MoveFirst();
  return true;
}

void RecordTreeWalk::Run(const Visitor& visit) {
  if (selector_) WalkLevel(visit);
}

void RecordTreeWalk::WalkLevel(const Visitor& visit) {
  bool levelFlag = false;
  for (;;) {
    Ref<Transaction> record;
    std::string recordId;
    int32_t childRecords = 0;
    try {
      if (selector_->EOF_()) break;
      record = selector_->Item();
      recordId = record->TransactionId();
      childRecords = selector_->ChildRecords();
    } catch (...) {
      Handle(record.get(), true);
    }

    try {
      std::string eventId;
      event_->OnProcess(transformId_, record.get(), eventId);
    } catch (...) {
      Handle(record.get());
    }

    for (int32_t l = 1; l <= childRecords; ++l) {
      try {
        selector_->MoveChild(std::to_string(l));
      } catch (...) {
        Handle(record.get(), true);
      }
      WalkLevel(visit);
    }

    visit(*record, recordId, levelFlag);

    try {
      if (!selector_->EOF_()) selector_->MoveNext();
    } catch (...) {
      Handle(record.get(), true);
    }
  }
  try {
    if (selector_->HasParent()) selector_->MoveParent();
  } catch (...) {
    Handle(nullptr, true);
  }
}

void RecordTreeWalk::Handle(Transaction* record, bool walkFailed) {
  ErrPreserve();
  ExceptionState pending = CaptureExceptionState();
  Log(record, ErrTraceFreeDescription());
  RestoreExceptionState(pending);
  if (ContinuesOnError() && !walkFailed) {
    ErrClear();
    return;
  }
  ErrorInRethrow(frame_, {});
}

void RecordTreeWalk::Log(Transaction* record, const std::string& reason) {
  try {
    IntegrationLogEntry entry;
    entry.ReasonCode = kErrorReasonCode;
    entry.LogType = kLogTypeDetail;
    entry.Reason = reason;
    entry.TransformId = transformId_;
    LogEntries entries{std::move(entry)};
    if (record != nullptr) {
      event_->OnError(transformId_, entries, record);
    } else {
      event_->WriteAuditLogNoTransaction(transformId_, entries, nullptr, false);
    }
  } catch (...) {
    // The log must not replace the failure it reports.
  }
}

}  // namespace tessel
