#include "store/TransactionSelector.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "job/TransformDefinition.h"
#include "store/DataNodes.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"

namespace tessel {
namespace {

// True when the element has an element child: the predicate [./*].
bool HasElementChild(xmlNodePtr node) {
  for (xmlNodePtr c = node->children; c != nullptr; c = c->next) {
    if (c->type == XML_ELEMENT_NODE) return true;
  }
  return false;
}

// True when an attribute `id` (no namespace) of the element has the value:
// the predicate [@id='<id>'].
bool HasId(xmlNodePtr element, std::string_view id) {
  for (xmlAttrPtr a = element->properties; a != nullptr; a = a->next) {
    if (a->ns == nullptr && DataNodes::SameName(a->name, "id") && DataNodes::AttributeEquals(a, id)) return true;
  }
  return false;
}

// The query of a "*" search on one record type, as the builder writes it,
// [/DATA/]RECORDS[@id='<id>']/RECORD[./*], is what transforms run to walk all
// their records; its nodes are found by walking the tree, in document order
// as XPath gives them, at a small part of XPath's cost. False, with nothing
// done, for any other query; XPath then answers it.
bool WalkWholeTypeQuery(std::string_view query, xmlNodePtr start, xmlDocPtr doc, std::vector<xmlNodePtr>& out) {
  constexpr std::string_view kTop = "/DATA/";
  constexpr std::string_view kHead = "RECORDS[@id='";
  constexpr std::string_view kTail = "']/RECORD[./*]";
  const bool absolute = query.starts_with(kTop);
  if (absolute) query.remove_prefix(kTop.size());
  if (!query.starts_with(kHead) || !query.ends_with(kTail) || query.size() < kHead.size() + kTail.size()) return false;
  const std::string_view id = query.substr(kHead.size(), query.size() - kHead.size() - kTail.size());
  if (id.find('\'') != std::string_view::npos) return false;
  std::vector<xmlNodePtr> parents;
  if (absolute) {
    if (doc == nullptr) return false;
    for (xmlNodePtr c = doc->children; c != nullptr; c = c->next) {
      if (DataNodes::IsElement(c, "DATA")) parents.push_back(c);
    }
  } else {
    if (start == nullptr || (start->type != XML_ELEMENT_NODE && start->type != XML_DOCUMENT_NODE)) return false;
    parents.push_back(start);
  }
  for (xmlNodePtr parent : parents) {
    for (xmlNodePtr records = parent->children; records != nullptr; records = records->next) {
      if (!DataNodes::IsElement(records, "RECORDS") || !HasId(records, id)) continue;
      for (xmlNodePtr record = records->children; record != nullptr; record = record->next) {
        if (DataNodes::IsElement(record, "RECORD") && HasElementChild(record)) out.push_back(record);
      }
    }
  }
  return true;
}

}  // namespace

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
    if (wrapper == nullptr) ThrowRuntimeError(91);
    // XPath runs on the document of the start node, else the wrapper's.
    xmlDocPtr doc = start_ != nullptr && start_->doc != nullptr ? start_->doc : wrapper->DOMDocument();
    std::vector<xmlNodePtr> nodes;
    if (!WalkWholeTypeQuery(query, start_, doc, nodes)) nodes = wrapper->GetNodesFromXPath(query, start_);
    iterator_->SetResultSet(std::move(nodes));
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
