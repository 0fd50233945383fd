#include "transforms/TransformFilter.h"

#include "audit/AuditLogDefinition.h"
#include "audit/ExceptionState.h"
#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "job/TransformDefinition.h"
#include "scripting/vbWrapper.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"
#include "store/TransactionSelector.h"

namespace tessel {
namespace {

// Script time-out of every evaluation, in seconds.
constexpr int32_t kScriptTimeOutSeconds = 60;

}  // namespace

TransformFilter::TransformFilter() = default;

TransformFilter::~TransformFilter() {
  if (script_) script_->CloseWrapper();
}

Ref<XMLWrapper> TransformFilter::TransformedData() { return factory_->Data(); }
std::shared_ptr<tessel::TransformDefinition> TransformFilter::TransformDefinition() { return definition_; }
std::shared_ptr<tessel::TransactionFactory> TransformFilter::TransactionFactory() { return factory_; }

void TransformFilter::CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                       std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) {
  try {
    factory_ = std::move(factory);
    definition_ = factory_->TransformDefinition();
    transformId_ = definition_->TransformId();
    errorAction_ = definition_->GetAuditLogDefinition().TransformErrorAction();
    InitialiseCacheData();
    event_ = &event;
    const bool verbose =
        definition_->HasProperty("verboselogtofile") && definition_->Property("verboselogtofile").ToBool();
    script_ = std::make_unique<vbWrapper>();
    script_->Initialize(transformId_, verbose, event_, kScriptTimeOutSeconds);
  } catch (...) {
    ErrorInRethrow("TransformFilter.ITransformController_CreateController(oPrevious, oEvent, oTransactionFactory, "
                   "bTestMode)",
                   {Variant::Nothing(), Variant::Nothing(), Variant::Nothing(), Variant(testMode)});
  }
}

void TransformFilter::InitialiseCacheData() {
  try {
    XMLWrapper& xml = *definition_->TransformDefinitionXWrapper();
    for (xmlNodePtr record : definition_->RecordNodes()) {
      if (xml.HasAttribute(record, "filter")) {
        conditions_[definition_->RecordId(record)] = xml.GetAttributeFromNode(record, "filter");
      }
    }
  } catch (...) {
    ErrorInRethrow("TransformFilter.InitialiseCacheData()", {});
  }
}

void TransformFilter::Process() {
  try {
    OpenTransactionSelector();
    if (selector_) PerformTransform();
  } catch (...) {
    ErrorInRethrow("TransformFilter.ITransformController_Process()", {});
  }
}

void TransformFilter::OpenTransactionSelector() {
  try {
    std::string rootId;
    for (xmlNodePtr record : definition_->RecordNodes()) {
      if (definition_->RecordParentId(record).empty()) {
        rootId = definition_->RecordId(record);
        break;
      }
    }
    // Without a root record there is nothing to select.
    selector_.reset();
    if (rootId.empty()) return;
    selector_ = factory_->CreateTransactionSelector();
    selector_->SetReturnTransaction(rootId);
    selector_->AddSearch(rootId, "*");
    selector_->OpenResultset();
    selector_->MoveFirst();
  } catch (...) {
    ErrorInRethrow("TransformFilter.OpenTransactionSelector()", {});
  }
}

void TransformFilter::PerformTransform() {
  // The decision of the last record of this level; a condition that fails to
  // evaluate leaves it standing.
  bool keep = false;
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
      HandleRecordError(record.get(), true);
    }

    try {
      std::string eventId;
      event_->OnProcess(transformId_, record.get(), eventId);
    } catch (...) {
      HandleRecordError(record.get());
    }

    // Children first: a parent's condition sees what is left below it.
    for (int32_t l = 1; l <= childRecords; ++l) {
      try {
        selector_->MoveChild(std::to_string(l));
      } catch (...) {
        HandleRecordError(record.get(), true);
      }
      PerformTransform();
    }

    auto condition = conditions_.find(recordId);
    if (condition == conditions_.end() || condition->second.empty()) {
      keep = true;
    } else {
      try {
        keep = script_->Evaluate(condition->second, record.get(), recordId, true).ToBool();
      } catch (...) {
        HandleRecordError(record.get());
      }
    }

    if (!keep) {
      try {
        std::string eventId;
        event_->OnDelete(transformId_, record.get(), eventId);
      } catch (...) {
        HandleRecordError(record.get());
      }
      try {
        selector_->Delete();
      } catch (...) {
        HandleRecordError(record.get(), true);
      }
    }

    try {
      if (!selector_->EOF_()) selector_->MoveNext();
    } catch (...) {
      HandleRecordError(record.get(), true);
    }
  }
  try {
    if (selector_->HasParent()) selector_->MoveParent();
  } catch (...) {
    HandleRecordError(nullptr, true);
  }
}

void TransformFilter::HandleRecordError(Transaction* record, bool walkFailed) {
  ErrPreserve();
  ExceptionState pending = CaptureExceptionState();
  LogTransformError(record, ErrTraceFreeDescription());
  RestoreExceptionState(pending);
  if (ContinuesOnError() && !walkFailed) {
    ErrClear();
    return;
  }
  ErrorInRethrow("TransformFilter.PerformTransform()", {});
}

void TransformFilter::LogTransformError(Transaction* record, const std::string& reason) {
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
