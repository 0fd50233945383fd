#include "store/TransactionIterator.h"

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

constexpr const char* kMoveFailed = "Cannot move BOF or EOF.";

bool IsWholeNumber(std::string_view text) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

}  // namespace

TransactionIterator::TransactionIterator() = default;
TransactionIterator::~TransactionIterator() = default;

void TransactionIterator::Initialise(Ref<TransactionContext> context, xmlNodePtr container,
                                     std::shared_ptr<TransactionFactory> factory) {
  context_ = std::move(context);
  container_ = container;
  context_->SetNode(container);
  current_ = container;
  factory_ = std::move(factory);
  childRecordTypes_.clear();
  lastChildTypes_ = -1;
  ForgetChildCache();
}

void TransactionIterator::SetResultSet(std::vector<xmlNodePtr> nodes) {
  resultSet_ = std::move(nodes);
  if (!resultSet_->empty()) SetEntryNode();
}

void TransactionIterator::SetEntryNode() {
  xmlNodePtr first = resultSet_->front();
  entryRecordId_ = RecordTransactionId(first);
  container_ = first->parent;
  deleted_.assign(resultSet_->size(), false);
  ForgetChildCache();
}

std::string TransactionIterator::RecordTransactionId(xmlNodePtr node) {
  xmlAttrPtr id = node && node->parent ? DataNodes::FindAttribute(node->parent, "id") : nullptr;
  Check(id != nullptr, 7701, "No matching attribute [%1] could be found in the node.", Variant("id"));
  return DataNodes::AttributeValue(id);
}

xmlNodePtr TransactionIterator::ChildAt(int32_t position) {
  if (container_ == nullptr || position < 1) return nullptr;
  // Continue from the node reached last when it is still the container's.
  xmlNodePtr node = nullptr;
  int32_t at = 0;
  if (cachedNode_ != nullptr && cachedNode_->parent == container_ && cachedPosition_ == position + 1) {
    node = cachedNode_;
    do {
      node = node->prev;
    } while (node != nullptr && node->type != XML_ELEMENT_NODE);
    if (node != nullptr) {
      cachedNode_ = node;
      cachedPosition_ = position;
    }
    return node;
  }
  if (cachedNode_ != nullptr && cachedNode_->parent == container_ && cachedPosition_ <= position) {
    node = cachedNode_;
    at = cachedPosition_;
  } else {
    for (node = container_->children; node != nullptr && node->type != XML_ELEMENT_NODE; node = node->next) {
    }
    at = node ? 1 : 0;
  }
  while (node != nullptr && at < position) {
    do {
      node = node->next;
    } while (node != nullptr && node->type != XML_ELEMENT_NODE);
    ++at;
  }
  if (node != nullptr) {
    cachedNode_ = node;
    cachedPosition_ = at;
  }
  return node;
}

int32_t TransactionIterator::TransactionCount() {
  if (AtResultLevel()) return static_cast<int32_t>(resultSet_->size());
  if (container_ == nullptr) return 0;
  if (countContainer_ == container_ && countFirst_ == container_->children && countLast_ == container_->last) {
    return cachedCount_;
  }
  int32_t count = 0;
  for (xmlNodePtr c = container_->children; c != nullptr; c = c->next) {
    if (c->type == XML_ELEMENT_NODE) ++count;
  }
  countContainer_ = container_;
  countFirst_ = container_->children;
  countLast_ = container_->last;
  cachedCount_ = count;
  return count;
}

bool TransactionIterator::EOF_() {
  const int32_t count = TransactionCount();
  return count == 0 || position_ > count;
}

void TransactionIterator::MoveToPosition() {
  xmlNodePtr node = nullptr;
  // Walks go on to the following records: their memory is on its way while
  // this one is worked on, the second's start first and then, with the next
  // step, its end.
  if (AtResultLevel()) {
    const auto count = static_cast<int32_t>(resultSet_->size());
    if (position_ >= 1 && position_ <= count) {
      node = (*resultSet_)[static_cast<size_t>(position_ - 1)];
      if (position_ < count) DataNodes::PrefetchRecordEnd((*resultSet_)[static_cast<size_t>(position_)]);
      if (position_ + 1 < count) {
        const auto second = static_cast<size_t>(position_ + 1);
        DataNodes::PrefetchRecordStart((*resultSet_)[second],
                                       second + 1 < resultSet_->size() ? (*resultSet_)[second + 1] : nullptr);
      }
    }
  } else {
    node = ChildAt(position_);
    if (node != nullptr) DataNodes::PrefetchRecordStart(node->next);
  }
  current_ = node != nullptr ? node : container_;
  context_->SetNode(current_);
}

void TransactionIterator::SetBookmark(const TransactionIteratorBookMark& mark) {
  level_ = mark.Level;
  position_ = mark.Position;
  current_ = mark.Current;
  context_->SetNode(current_);
  cachedNode_ = nullptr;
}

Ref<Transaction> TransactionIterator::Item() {
  try {
    Check(!EOF_() && !BOF(), 8200, kMoveFailed);
    return factory_->GetTransaction(*context_);
  } catch (...) {
    ErrorInRethrow("TransactionIterator.Item()", {});
  }
}

void TransactionIterator::Move(int32_t positions, bool fromCurrent) {
  const int32_t was = position_;
  try {
    position_ = fromCurrent ? position_ + positions : positions;
    Check(position_ >= 1 && position_ <= TransactionCount(), 8200, kMoveFailed);
    MoveToPosition();
  } catch (...) {
    position_ = was;
    ErrorInRethrow("TransactionIterator.Move(lMovePositions, bFromCurrent)", {Variant(positions), Variant(fromCurrent)});
  }
}

void TransactionIterator::MoveFirst() {
  const int32_t was = position_;
  try {
    position_ = 1;
    Check(!EOF_() || !BOF(), 8200, kMoveFailed);
    MoveToPosition();
  } catch (...) {
    position_ = was;
    ErrorInRethrow("TransactionIterator.MoveFirst()", {});
  }
}

void TransactionIterator::MoveLast() {
  const int32_t was = position_;
  try {
    position_ = TransactionCount();
    Check(!EOF_() || !BOF(), 8200, kMoveFailed);
    MoveToPosition();
  } catch (...) {
    position_ = was;
    ErrorInRethrow("TransactionIterator.MoveLast()", {});
  }
}

void TransactionIterator::MoveNext() {
  const int32_t was = position_;
  try {
    Check(!EOF_(), 8200, kMoveFailed);
    ++position_;
    MoveToPosition();
  } catch (...) {
    position_ = was;
    ErrorInRethrow("TransactionIterator.MoveNext()", {});
  }
}

void TransactionIterator::MovePrevious() {
  const int32_t was = position_;
  try {
    Check(!BOF(), 8200, kMoveFailed);
    --position_;
    MoveToPosition();
  } catch (...) {
    position_ = was;
    ErrorInRethrow("TransactionIterator.MovePrevious()", {});
  }
}

std::vector<xmlNodePtr> TransactionIterator::ChildContainers(std::string_view transactionId) {
  std::vector<xmlNodePtr> found;
  if (current_ == nullptr) return found;
  if (IsWholeNumber(transactionId)) {
    // RECORDS[n]: the n-th RECORDS child.
    const long wanted = std::stol(std::string(transactionId));
    long at = 0;
    for (xmlNodePtr c = current_->children; c != nullptr; c = c->next) {
      if (DataNodes::IsElement(c, "RECORDS") && ++at == wanted) {
        found.push_back(c);
        break;
      }
    }
    return found;
  }
  if (IsNumericText(transactionId)) {
    XMLWrapper* wrapper = context_->xWrapper();
    if (wrapper == nullptr) ThrowRuntimeError(91);
    return wrapper->GetNodesFromXPath("RECORDS[" + std::string(transactionId) + "]", current_);
  }
  for (xmlNodePtr c = current_->children; c != nullptr; c = c->next) {
    if (!DataNodes::IsElement(c, "RECORDS")) continue;
    xmlAttrPtr id = DataNodes::FindAttribute(c, "id");
    if (id != nullptr && DataNodes::AttributeEquals(id, transactionId)) found.push_back(c);
  }
  return found;
}

void TransactionIterator::MoveChild(std::string_view transactionId) {
  const TransactionIteratorBookMark was = Bookmark();
  xmlNodePtr wasContainer = container_;
  bool pushed = false;
  try {
    PushPosToStack();
    pushed = true;
    std::vector<xmlNodePtr> containers = ChildContainers(transactionId);
    if (containers.empty()) {
      std::string query = IsNumericText(transactionId) ? "RECORDS[" + std::string(transactionId) + "]"
                                                       : "RECORDS[@id='" + std::string(transactionId) + "']";
      Check(false, 7703, "[%1] could not be found in document.", Variant(query));
    }
    position_ = 0;
    container_ = containers.front();
    ForgetChildCache();
    MoveFirst();
  } catch (...) {
    if (pushed) {
      PopPosToStack();
      container_ = wasContainer;
      ForgetChildCache();
      SetBookmark(was);
    }
    ErrorInRethrow("TransactionIterator.MoveChild(vTransactionId)", {Variant(transactionId)});
  }
}

bool TransactionIterator::HasParent() {
  if (container_ == nullptr || container_->parent == nullptr) return false;
  xmlNodePtr up = container_->parent->parent;
  return up != nullptr && up->type != XML_DOCUMENT_NODE && level_ > 1;
}

void TransactionIterator::MoveParent() {
  try {
    Check(HasParent(), 8201, "Cannot move to non-existent parent.");
    PopPosToStack();
    container_ = container_->parent->parent;
    ForgetChildCache();
    MoveToPosition();
  } catch (...) {
    ErrorInRethrow("TransactionIterator.MoveParent()", {});
  }
}

int32_t TransactionIterator::ChildCount(std::string_view transactionId) {
  try {
    return static_cast<int32_t>(ChildContainers(transactionId).size());
  } catch (...) {
    ErrorInRethrow("TransactionIterator.ChildCount(vTransactionId)", {Variant(transactionId)});
  }
}

int32_t TransactionIterator::ChildRecords() {
  try {
    // Records come one after another from the same few types: the type
    // asked last is told by its text, without a string made of it.
    xmlAttrPtr idAttribute = current_ && current_->parent ? DataNodes::FindAttribute(current_->parent, "id") : nullptr;
    const char* single = idAttribute != nullptr ? DataNodes::SingleText(idAttribute) : nullptr;
    int32_t types;
    if (single != nullptr && lastChildTypes_ >= 0 && lastChildTypesId_ == single) {
      types = lastChildTypes_;
    } else {
      std::string id = RecordTransactionId(current_);
      auto found = childRecordTypes_.find(id);
      if (found != childRecordTypes_.end()) {
        types = found->second;
      } else {
        types = static_cast<int32_t>(factory_->TransformDefinition()->RecordDescendents(id).size());
        childRecordTypes_.emplace(id, types);
      }
      lastChildTypesId_ = std::move(id);
      lastChildTypes_ = types;
    }
    // A record type without child types has no child records to count.
    if (types == 0) return 0;
    int32_t containers = 0;
    for (xmlNodePtr c = current_->children; c != nullptr; c = c->next) {
      if (DataNodes::IsElement(c, "RECORDS")) ++containers;
    }
    return std::min(types, containers);
  } catch (...) {
    ErrorInRethrow("TransactionIterator.ChildRecords()", {});
  }
}

void TransactionIterator::PushPosToStack() {
  Check(level_ + 1 < kMaxLevels + 1, 8203,
        "XML data instance has too many levels of nested nodes. Maximum allowed depth is %1 levels.",
        Variant(kMaxLevels));
  ++level_;
  stack_[static_cast<size_t>(level_ - 2)] = position_;
}

void TransactionIterator::PopPosToStack() {
  --level_;
  position_ = stack_[static_cast<size_t>(level_ - 1)];
  stack_[static_cast<size_t>(level_ - 1)] = 0;
}

void TransactionIterator::Delete() {
  try {
    if (current_ == nullptr || current_->parent == nullptr) return;
    XMLWrapper* wrapper = context_->xWrapper();
    if (wrapper == nullptr) ThrowRuntimeError(91);
    xmlNodePtr gone = current_;
    factory_->RecordChanged(gone);
    wrapper->DetachNode(gone);
    ForgetChildCache();
    if (AtResultLevel()) {
      if (position_ >= 1 && static_cast<size_t>(position_) <= deleted_.size()) {
        deleted_[static_cast<size_t>(position_ - 1)] = true;
      }
      return;
    }
    --position_;
    MoveToPosition();
  } catch (...) {
    ErrorInRethrow("TransactionIterator.Delete()", {});
  }
}

void TransactionIterator::Reset() {
  while (level_ > 1) PopPosToStack();
  position_ = 0;
  level_ = 1;
}

}  // namespace tessel
