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
#include "transforms/RecordTreeWalk.h"

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
    walk_ = std::make_unique<RecordTreeWalk>("TransformMap.PerformTransform()", transformId_, event,
                                               errorAction_);
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
        // A FIELD without a formula is in neither dictionary: eval alone
        // computes nothing.
        if (!xml.HasAttribute(field, "value")) continue;
        const std::string name = xml.GetAttributeFromNode(field, "name");
        if (xml.HasAttribute(field, "eval") && Variant(xml.GetAttributeFromNode(field, "eval")).ToBool()) {
          if (!evaluated.insert(name).second) ThrowRuntimeError(kDuplicateKey);
        }
        if (!formulas.emplace(name, xml.GetAttributeFromNode(field, "value")).second) {
          ThrowRuntimeError(kDuplicateKey);
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
    PerformTransform();
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
    walk_->Open(*definition_, *factory_);
  } catch (...) {
    ErrorInRethrow("TransformMap.OpenTransactionSelector()", {});
  }
}

const std::vector<TransformMap::FormulaStep>* TransformMap::StepsFor(Transaction& record,
                                                                    const std::string& recordId) {
  if (auto found = steps_.find(recordId); found != steps_.end()) return &found->second;
  std::vector<FormulaStep> steps;
  if (!CollectSteps(record, recordId, steps, false)) return nullptr;
  return &steps_.emplace(recordId, std::move(steps)).first->second;
}

bool TransformMap::CollectSteps(Transaction& record, const std::string& recordId, std::vector<FormulaStep>& steps,
                                bool reportFailures) {
  auto evaluatedAt = evaluated_.find(recordId);
  auto formulasAt = formulas_.find(recordId);
  bool complete = true;
  const int32_t fieldCount = record.FieldCount();
  for (int32_t f = 1; f <= fieldCount; ++f) {
    std::string field;
    try {
      field = record.FieldName(f);
    } catch (...) {
      if (!reportFailures) return false;
      walk_->Handle(&record);
      complete = false;
      continue;
    }
    if (formulasAt == formulas_.end()) continue;
    auto formula = formulasAt->second.find(field);
    if (formula == formulasAt->second.end()) continue;
    const bool evaluated = evaluatedAt != evaluated_.end() && evaluatedAt->second.count(field) != 0;
    steps.push_back(FormulaStep{std::move(field), &formula->second, evaluated});
  }
  return complete;
}

void TransformMap::PerformTransform() {
  walk_->Run([&](Transaction& record, const std::string& recordId, bool&) {
    bool empty = false;
    try {
      empty = record.IsEmpty();
    } catch (...) {
      walk_->Handle(&record);
    }
    if (empty) {
      // A record without content leaves the data here.
      try {
        walk_->Selector().Delete();
      } catch (...) {
        walk_->Handle(&record, true);
      }
      return;
    }
    const std::vector<FormulaStep>* steps = StepsFor(record, recordId);
    std::vector<FormulaStep> ownSteps;
    if (steps == nullptr) {
      // A name that cannot be read is reported for this record, and the
      // fields that can be read are mapped all the same.
      CollectSteps(record, recordId, ownSteps, true);
      steps = &ownSteps;
    }
    for (const FormulaStep& step : *steps) {
      // The text stored is the result's own where it is a string: no copy.
      Variant result;
      std::string text;
      std::string_view stored;
      try {
        if (step.evaluated) {
          result = script_->Evaluate(*step.formula, &record, step.field, false);
          if (result.IsString()) {
            stored = result.StringValue();
          } else {
            text = result.ToString();
            stored = text;
          }
        } else if (!step.formula->empty()) {
          text = script_->ResolveSubstitutions(*step.formula, &record);
          stored = text;
        }
      } catch (...) {
        // Going on, the field receives the formula's own text.
        walk_->Handle(&record);
        stored = *step.formula;
      }
      try {
        if (!stored.empty()) record.SetFieldText(step.field, stored, true);
      } catch (...) {
        walk_->Handle(&record);
      }
    }
  });
}

}  // namespace tessel
