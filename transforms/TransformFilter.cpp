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
#include "transforms/RecordTreeWalk.h"

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
    walk_ = std::make_unique<RecordTreeWalk>("TransformFilter.PerformTransform()", transformId_, event,
                                               errorAction_);
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
    PerformTransform();
  } catch (...) {
    ErrorInRethrow("TransformFilter.ITransformController_Process()", {});
  }
}

void TransformFilter::OpenTransactionSelector() {
  try {
    walk_->Open(*definition_, *factory_);
  } catch (...) {
    ErrorInRethrow("TransformFilter.OpenTransactionSelector()", {});
  }
}

void TransformFilter::PerformTransform() {
  walk_->Run([&](Transaction& record, const std::string& recordId, bool& keep) {
    // keep holds the decision of the last record of this level: a condition
    // that fails to evaluate leaves it standing.
    auto condition = conditions_.find(recordId);
    if (condition == conditions_.end() || condition->second.empty()) {
      keep = true;
    } else {
      try {
        keep = script_->Evaluate(condition->second, &record, recordId, true).ToBool();
      } catch (...) {
        walk_->Handle(&record);
      }
    }

    if (!keep) {
      try {
        std::string eventId;
        event_->OnDelete(transformId_, &record, eventId);
      } catch (...) {
        walk_->Handle(&record);
      }
      try {
        walk_->Selector().Delete();
      } catch (...) {
        walk_->Handle(&record, true);
      }
    }
  });
}



}  // namespace tessel
