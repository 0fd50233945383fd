// WriteRecordcacheItem: one ancestor of the commit record in a
// WriteRecordCache: its record id, the data the writer last made for a record
// of that id (a formatted line, or an object for writers that build trees),
// and the next item down the chain. Items are shared between the cache's
// dictionary and the chain.
#pragma once

#include <memory>
#include <string>

#include "core/Variant.h"

namespace tessel {

class WriteRecordcacheItem {
 public:
  explicit WriteRecordcacheItem(std::string transactionId) : transactionId_(std::move(transactionId)) {}

  const std::string& TransactionId() const { return transactionId_; }
  // Empty until a writer stores data for the id.
  const Variant& Data() const { return data_; }
  void SetData(Variant data) { data_ = std::move(data); }
  // Data when it holds an object, else Nothing.
  Variant DataObject() const { return data_.IsObject() ? data_ : Variant::Nothing(); }
  const std::shared_ptr<WriteRecordcacheItem>& NextItem() const { return next_; }
  void SetNextItem(std::shared_ptr<WriteRecordcacheItem> next) { next_ = std::move(next); }

 private:
  std::string transactionId_;
  Variant data_;
  std::shared_ptr<WriteRecordcacheItem> next_;
};

}  // namespace tessel
