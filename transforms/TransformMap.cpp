#include "transforms/TransformMap.h"

#include <cstring>

#include "audit/AuditLogDefinition.h"
#include "audit/ExceptionState.h"
#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "scripting/vbWrapper.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"
#include "store/TransactionRenamer.h"
#include "store/TransactionSelector.h"

namespace tessel {
namespace {

// Script time-out of every evaluation, in seconds.
constexpr int32_t kScriptTimeOutSeconds = 60;
// A dictionary key added twice.
constexpr int32_t kDuplicateKey = 457;

bool IsField(xmlNodePtr node) {
  return node->type == XML_ELEMENT_NODE && std::strcmp(reinterpret_cast<const char*>(node->name), "FIELD") == 0;
}

}  // namespace

TransformMap::TransformMap() = default;

TransformMap::~TransformMap() {
  if (script_) script_->CloseWrapper();
}

Ref<XMLWrapper> TransformMap::TransformedData() { return factory_->Data(); }
std::shared_ptr<tessel::TransformDefinition> TransformMap::TransformDefinition() { return definition_; }
std::shared_ptr<tessel::TransactionFactory> TransformMap::TransactionFactory() { return factory_; }

void TransformMap::CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                    std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) {
  try {
    factory_ = std::move(factory);
    definition_ = factory_->TransformDefinition();
    previous_ = std::move(previous);
    transformId_ = definition_->TransformId();
    event_ = &event;
    errorAction_ = definition_->GetAuditLogDefinition().TransformErrorAction();
    InitialiseCacheData();
    const bool verbose =
        definition_->HasProperty("verboselogtofile") && definition_->Property("verboselogtofile").ToBool();
    script_ = std::make_unique<vbWrapper>();
    script_->Initialize(transformId_, verbose, event_, kScriptTimeOutSeconds);
  } catch (...) {
    ErrorInRethrow("TransformMap.ITransformController_CreateController(oPrevious, oEvent, oTransactionFactory, "
                   "bTestMode)",
                   {Variant::Nothing(), Variant::Nothing(), Variant::Nothing(), Variant(testMode)});
  }
}

void TransformMap::InitialiseCacheData() {
  std::string recordId;
  try {
    XMLWrapper& xml = *definition_->TransformDefinitionXWrapper();
    for (xmlNodePtr record : definition_->RecordNodes()) {
      recordId = definition_->RecordId(record);
      if (evaluated_.count(recordId) != 0) ThrowRuntimeError(kDuplicateKey);
      std::unordered_set<std::string>& evaluated = evaluated_[recordId];
      std::unordered_map<std::string, std::string>& formulas = formulas_[recordId];
      for (xmlNodePtr field = record->children; field; field = field->next) {
        if (!IsField(field)) continue;
        const std::string name = xml.GetAttributeFromNode(field, "name");
        if (xml.HasAttribute(field, "eval") && Variant(xml.GetAttributeFromNode(field, "eval")).ToBool()) {
          if (!evaluated.insert(name).second) ThrowRuntimeError(kDuplicateKey);
        }
        if (xml.HasAttribute(field, "value")) {
          if (!formulas.emplace(name, xml.GetAttributeFromNode(field, "value")).second) {
            ThrowRuntimeError(kDuplicateKey);
          }
        }
      }
    }
  } catch (...) {
    ErrorInRethrow("TransformMap.InitialiseCacheData()", {Variant(recordId)});
  }
}

void TransformMap::Process() {
  try {
    RenameDataFields();
    OpenTransactionSelector();
    if (selector_) PerformTransform();
  } catch (...) {
    ErrorInRethrow("TransformMap.ITransformController_Process()", {});
  }
}

void TransformMap::RenameDataFields() {
  try {
    TransactionRenamer renamer;
    renamer.Init(factory_->Data(), definition_, previous_);
    renamer.RenameDataSetFromTransformDef();
    // The renames went round the factory, whose key index is stale now.
    factory_->ResetIndex();
  } catch (...) {
    ErrorInRethrow("TransformMap.RenameDataFields()", {});
  }
}

void TransformMap::OpenTransactionSelector() {
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
    ErrorInRethrow("TransformMap.OpenTransactionSelector()", {});
  }
}

void TransformMap::PerformTransform() {
  static const std::unordered_set<std::string> kNoFields;
  static const std::unordered_map<std::string, std::string> kNoFormulas;
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

    // Children first: a parent's formulas see its children as mapped.
    for (int32_t l = 1; l <= childRecords; ++l) {
      try {
        selector_->MoveChild(std::to_string(l));
      } catch (...) {
        HandleRecordError(record.get(), true);
      }
      PerformTransform();
    }

    auto evaluatedAt = evaluated_.find(recordId);
    auto formulasAt = formulas_.find(recordId);
    const std::unordered_set<std::string>& evaluated = evaluatedAt == evaluated_.end() ? kNoFields : evaluatedAt->second;
    const std::unordered_map<std::string, std::string>& formulas =
        formulasAt == formulas_.end() ? kNoFormulas : formulasAt->second;

    bool empty = false;
    try {
      empty = record->IsEmpty();
    } catch (...) {
      HandleRecordError(record.get());
    }
    if (empty) {
      // A record without content leaves the data here.
      try {
        selector_->Delete();
      } catch (...) {
        HandleRecordError(record.get(), true);
      }
    } else {
      const int32_t fieldCount = record->FieldCount();
      for (int32_t f = 1; f <= fieldCount; ++f) {
        std::string field;
        try {
          field = record->FieldName(f);
        } catch (...) {
          HandleRecordError(record.get());
          continue;
        }
        std::string text;
        if (auto formula = formulas.find(field); formula != formulas.end()) text = formula->second;
        try {
          if (evaluated.count(field) != 0) {
            text = script_->Evaluate(text, record.get(), field, false).ToString();
          } else if (!text.empty()) {
            text = script_->ResolveSubstitutions(text, record.get());
          }
        } catch (...) {
          // Going on, the field receives the formula's own text.
          HandleRecordError(record.get());
        }
        try {
          if (!text.empty()) record->SetFieldValue(field, Variant(text), true);
        } catch (...) {
          HandleRecordError(record.get());
        }
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

void TransformMap::HandleRecordError(Transaction* record, bool walkFailed) {
  ErrPreserve();
  ExceptionState pending = CaptureExceptionState();
  LogTransformError(record, ErrTraceFreeDescription());
  RestoreExceptionState(pending);
  if (ContinuesOnError() && !walkFailed) {
    ErrClear();
    return;
  }
  ErrorInRethrow("TransformMap.PerformTransform()", {});
}

void TransformMap::LogTransformError(Transaction* record, const std::string& reason) {
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
