// Stack: a last-in-first-out container of Variant values.
//
// Used by the expression tokeniser and by readers and writers for their
// element stacks. Values are stored as Variants: an object is held by
// reference (the stack keeps it alive until the value is popped), anything
// else by value. The slot array starts with 17 slots and grows by 16 when it
// is full; it never shrinks.
//
// Pop and Peek on an empty stack raise 9501 "Stack Out of Bounds.".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/Variant.h"

namespace tessel {

class Stack {
 public:
  Stack();

  int32_t Count() const { return count_; }
  void Push(const Variant& value);
  // Removes and returns the top value; its slot is emptied so that an object
  // held there is released.
  Variant Pop();
  Variant Peek() const;
  void EmptyStack();
  // The same values in the same order, objects shared; the copy has its own
  // slots.
  Stack Clone() const;
  // Turns the stack over in place.
  void Reverse();
  // " - " and the value for each slot from the top down; "" when empty.
  std::string ToString() const;

  // Number of slots, for the growth rule.
  size_t Capacity() const { return slots_.size(); }

 private:
  int32_t count_ = 0;
  std::vector<Variant> slots_;
};

}  // namespace tessel
