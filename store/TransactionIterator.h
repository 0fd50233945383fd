// TransactionIterator: the cursor over the RECORD elements of a data
// document. Level 1 walks either a fixed node list (the result set of a
// selector) or the element children of the entry container; every deeper
// level, entered by MoveChild, walks the element children of a RECORDS
// container. Positions are 1-based; 0 stands before the first.
//
// The iterator holds its factory (for Item and the definition), its context,
// which follows the cursor, and plain node pointers into the document. Nodes
// removed by Delete stay alive with the document, so the result set may keep
// pointing at them.
//
// Errors: 8200 "Cannot move BOF or EOF.", 8201 "Cannot move to non-existent
// parent.", 8203 more than 64 levels, 7703 from MoveChild when the child
// container does not exist. A failed move leaves the cursor where it was.
#pragma once

#include <libxml/tree.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel {

class Transaction;
class TransactionContext;
class TransactionFactory;

// Level, position and node of a cursor; good on the level where it was taken.
struct TransactionIteratorBookMark {
  int32_t Level = 1;
  int32_t Position = 0;
  xmlNodePtr Current = nullptr;
};

class TransactionIterator : public Object {
 public:
  static constexpr int32_t kMaxLevels = 64;

  TransactionIterator();
  ~TransactionIterator() override;

  std::string TypeName() const override { return "TransactionIterator"; }

  bool EOF_();
  bool BOF() const { return position_ < 1; }
  const Ref<TransactionContext>& Context() const { return context_; }
  TransactionIteratorBookMark Bookmark() const { return {level_, position_, current_}; }
  void SetBookmark(const TransactionIteratorBookMark& mark);
  bool AllowMoveToUpperParent() const { return allowMoveToUpperParent_; }
  void SetAllowMoveToUpperParent(bool value) { allowMoveToUpperParent_ = value; }
  int32_t Count() { return TransactionCount(); }
  // A new view of the current record; 8200 at BOF or EOF.
  Ref<Transaction> Item();
  void Move(int32_t positions, bool fromCurrent);
  void MoveFirst();
  void MoveLast();
  void MoveNext();
  void MovePrevious();
  // Enters the child container RECORDS[n] (a number) or RECORDS[@id=id] of
  // the current record and moves to its first record.
  void MoveChild(std::string_view transactionId);
  void MoveParent();
  int32_t ChildCount(std::string_view transactionId);
  // The smaller of the number of child record types of the current record
  // and the number of its RECORDS children.
  int32_t ChildRecords();
  bool HasChild(std::string_view transactionId) { return ChildCount(transactionId) >= 1; }
  bool HasParent();

  // For the factory and the selector.
  void Initialise(Ref<TransactionContext> context, xmlNodePtr container, std::shared_ptr<TransactionFactory> factory);
  void SetResultSet(std::vector<xmlNodePtr> nodes);
  // Takes the current record out of the document.
  void Delete();
  void Reset();
  int32_t Level() const { return level_; }
  int32_t Position() const { return position_; }
  xmlNodePtr Current() const { return current_; }
  const std::vector<bool>& DeletedFlags() const { return deleted_; }

 private:
  void MoveToPosition();
  int32_t TransactionCount();
  bool AtResultLevel() const { return level_ == 1 && resultSet_.has_value(); }
  void SetEntryNode();
  std::string RecordTransactionId(xmlNodePtr node);
  void PushPosToStack();
  void PopPosToStack();
  // The child container MoveChild and ChildCount look for, all matches.
  std::vector<xmlNodePtr> ChildContainers(std::string_view transactionId);
  // The element child of the container at a 1-based position, or null.
  xmlNodePtr ChildAt(int32_t position);
  void ForgetChildCache() { cachedNode_ = nullptr; countContainer_ = nullptr; }

  int32_t level_ = 1;
  int32_t position_ = 0;
  xmlNodePtr container_ = nullptr;
  Ref<TransactionContext> context_;
  xmlNodePtr current_ = nullptr;
  std::array<int32_t, kMaxLevels> stack_{};
  std::unordered_map<std::string, int32_t> childRecordTypes_;
  std::string lastChildTypesId_;  // the record type ChildRecords asked for last
  int32_t lastChildTypes_ = -1;   // its number of child types; -1 before the first
  std::optional<std::vector<xmlNodePtr>> resultSet_;
  bool allowMoveToUpperParent_ = false;
  std::string entryRecordId_;
  std::vector<bool> deleted_;
  std::shared_ptr<TransactionFactory> factory_;

  // The walk of a container goes from neighbour to neighbour; the last node
  // reached and the last count are kept for the container they belong to.
  xmlNodePtr cachedNode_ = nullptr;
  int32_t cachedPosition_ = 0;
  xmlNodePtr countContainer_ = nullptr;
  xmlNodePtr countFirst_ = nullptr;
  xmlNodePtr countLast_ = nullptr;
  int32_t cachedCount_ = 0;
};

}  // namespace tessel
