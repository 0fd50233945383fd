#include "scripting/ScriptFileNameEvaluator.h"

#include "audit/HuntErr.h"
#include "scripting/vbWrapper.h"
#include "store/Transaction.h"

namespace tessel {

ScriptFileNameEvaluator::ScriptFileNameEvaluator() {
  try {
    wrapper_ = std::make_unique<vbWrapper>();
    wrapper_->Initialize("", false, nullptr, kTimeOutSeconds);
  } catch (...) {
    ErrorInRethrow("ScriptFileNameEvaluator.Initialise()", {});
  }
}

ScriptFileNameEvaluator::~ScriptFileNameEvaluator() = default;

std::string ScriptFileNameEvaluator::Evaluate(const std::string& expression, Transaction* transaction) {
  try {
    if (transaction == nullptr) return wrapper_->SimpleEvaluate(Variant(expression)).ToString();
    // A file-name expression of several lines becomes a function of this
    // name; it must not hide a library member such as FileName.
    return wrapper_->Evaluate(expression, transaction, "FileNameExpression").ToString();
  } catch (...) {
    ErrorInRethrow("ScriptFileNameEvaluator.Evaluate(sExpression, oTransaction)",
                   {Variant(expression), transaction ? Variant(Ref<Object>(transaction)) : Variant::Nothing()});
  }
}

}  // namespace tessel
