#include "store/TransactionSelector.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace tessel {

TransactionSelector::TransactionSelector() : iterator_(MakeRef<TransactionIterator>()) {}
TransactionSelector::~TransactionSelector() = default;

void TransactionSelector::Initialise(std::shared_ptr<TransformDefinition> definition,
                                     std::shared_ptr<TransactionFactory> factory, TransactionContext* initial) {
  try {
    definition_ = std::move(definition);
    factory_ = std::move(factory);
    builder_.SetDefinition(definition_);
    Ref<TransactionContext> context = factory_->Data()->CreateContext();
    if (initial != nullptr) {
      context->SetNode(initial->ContextNode());
      builder_.SetDataNode(initial->ContextNode());
    } else {
      factory_->SetContextToTopDataNode(*context);
    }
    start_ = context->ContextNode();
    iterator_->Initialise(context, start_, factory_);
  } catch (...) {
    ErrorInRethrow("TransactionSelector.Initialise(oDefinition, oFactory, ctxInitial)", {});
  }
}

void TransactionSelector::OpenResultset() {
  try {
    if (!factory_) ThrowRuntimeError(91);
    std::string query = builder_.XPath();
    XMLWrapper* wrapper = iterator_->Context()->xWrapper();
    iterator_->SetResultSet(wrapper->GetNodesFromXPath(query, start_));
  } catch (...) {
    ErrorInRethrow("TransactionSelector.OpenResultset()", {});
  }
}

void TransactionSelector::CloseResultSet() {
  iterator_ = MakeRef<TransactionIterator>();
  if (factory_) {
    Ref<TransactionContext> context = factory_->Data()->CreateContext();
    context->SetNode(start_);
    iterator_->Initialise(context, start_, factory_);
  }
}

Ref<Transaction> TransactionSelector::Item() {
  try {
    return iterator_->Item();
  } catch (...) {
    ErrorInRethrow("TransactionSelector.Item()", {});
  }
}

}  // namespace tessel
