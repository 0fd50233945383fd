// TransactionSelector: finds transactions by the search language of
// TransactionSelectStringBldr and walks the result like a cursor.
//
// Calling order: SetReturnTransaction, any number of AddSearch,
// OpenResultset, then MoveFirst and the cursor operations, which are those of
// its TransactionIterator. The selector holds the iterator, the builder, the
// definition and the factory it was made with.
#pragma once

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "core/Object.h"
#include "store/TransactionIterator.h"
#include "store/TransactionSelectStringBldr.h"

namespace tessel {

class Transaction;
class TransactionContext;
class TransactionFactory;
class TransformDefinition;

class TransactionSelector : public Object {
 public:
  TransactionSelector();
  ~TransactionSelector() override;

  std::string TypeName() const override { return "TransactionSelector"; }

  // Made by TransactionFactory::CreateTransactionSelector: an unset context
  // means /DATA; a context given names the context record (8151 when none).
  void Initialise(std::shared_ptr<TransformDefinition> definition, std::shared_ptr<TransactionFactory> factory,
                  TransactionContext* initial);

  // Runs the builder's XPath from the context node and hands the nodes to
  // the iterator as its result set.
  void OpenResultset();
  void CloseResultSet();

  std::string XPath() { return builder_.XPath(); }
  const std::string& ReturnTransaction() const { return builder_.ReturnTransaction(); }
  void SetReturnTransaction(std::string_view transactionId) { builder_.SetReturnTransaction(transactionId); }
  void AddSearch(std::string_view transactionId, std::string_view query) { builder_.AddSearch(transactionId, query); }

  bool EOF_() { return iterator_->EOF_(); }
  bool BOF() const { return iterator_->BOF(); }
  const Ref<TransactionContext>& Context() const { return iterator_->Context(); }
  int32_t Count() { return iterator_->Count(); }
  bool AllowMoveToUpperParent() const { return iterator_->AllowMoveToUpperParent(); }
  void SetAllowMoveToUpperParent(bool value) { iterator_->SetAllowMoveToUpperParent(value); }
  TransactionIteratorBookMark Bookmark() const { return iterator_->Bookmark(); }
  void SetBookmark(const TransactionIteratorBookMark& mark) { iterator_->SetBookmark(mark); }
  Ref<Transaction> Item();
  void Move(int32_t positions, bool fromCurrent) { iterator_->Move(positions, fromCurrent); }
  void MoveFirst() { iterator_->MoveFirst(); }
  void MoveLast() { iterator_->MoveLast(); }
  void MoveNext() { iterator_->MoveNext(); }
  void MovePrevious() { iterator_->MovePrevious(); }
  void MoveChild(std::string_view transactionId) { iterator_->MoveChild(transactionId); }
  void MoveParent() { iterator_->MoveParent(); }
  int32_t ChildCount(std::string_view transactionId) { return iterator_->ChildCount(transactionId); }
  int32_t ChildRecords() { return iterator_->ChildRecords(); }
  bool HasParent() { return iterator_->HasParent(); }
  bool HasChild(std::string_view transactionId) { return iterator_->HasChild(transactionId); }
  void Delete() { iterator_->Delete(); }

  TransactionIterator& Iterator() { return *iterator_; }
  TransactionSelectStringBldr& Builder() { return builder_; }

 private:
  Ref<TransactionIterator> iterator_;
  TransactionSelectStringBldr builder_;
  std::shared_ptr<TransformDefinition> definition_;
  std::shared_ptr<TransactionFactory> factory_;
  xmlNodePtr start_ = nullptr;
};

}  // namespace tessel
