#include "store/TransactionContext.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "store/XMLWrapper.h"

namespace tessel {

TransactionContext::~TransactionContext() = default;

void TransactionContext::SetXWrapper(XMLWrapper* wrapper) {
  wrapper_ = wrapper;
  // A wrapper that nobody counts (one on the stack) must not be counted here:
  // the last release would destroy it.
  keep_ = wrapper != nullptr && wrapper->RefCount() > 0 ? Ref<Object>(wrapper) : Ref<Object>();
}

std::string TransactionContext::Context() const {
  try {
    if (wrapper_ == nullptr) ThrowRuntimeError(91);
    return wrapper_->XPathFromNode(node_);
  } catch (...) {
    ErrorInRethrow("TransactionContext.Context()", {});
  }
}

void TransactionContext::SetContext(std::string_view xpath) {
  try {
    if (wrapper_ == nullptr) ThrowRuntimeError(91);
    contextText_ = std::string(xpath);
    node_ = wrapper_->GetNodeFromXPath(xpath);
  } catch (...) {
    ErrorInRethrow("TransactionContext.Context(sXPath)", {Variant(xpath)});
  }
}

int32_t TransactionContext::ContextDepth() const {
  int32_t depth = 0;
  for (xmlNodePtr node = node_; node != nullptr; node = node->type == XML_DOCUMENT_NODE ? nullptr : node->parent) {
    ++depth;
  }
  return depth;
}

xmlNodePtr TransactionContext::NodeByPosition(int32_t position) const {
  try {
    const int32_t depth = ContextDepth();
    Check(position >= 1 && position <= depth, 8050, "");
    xmlNodePtr node = node_;
    for (int32_t i = depth; i > position; --i) node = node->parent;
    return node;
  } catch (...) {
    ErrorInRethrow("TransactionContext.NodeByPosition(lPos)", {Variant(position)});
  }
}

}  // namespace tessel
