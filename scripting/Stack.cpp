#include "scripting/Stack.h"

#include "audit/HuntErr.h"

namespace tessel {
namespace {
constexpr size_t kInitialSlots = 17;
constexpr size_t kGrowth = 16;
}  // namespace

Stack::Stack() : slots_(kInitialSlots) {}

void Stack::Push(const Variant& value) {
  try {
    if (static_cast<size_t>(count_) > slots_.size() - 1) slots_.resize(slots_.size() + kGrowth);
    slots_[static_cast<size_t>(count_)] = value;
    ++count_;
  } catch (...) {
    ErrorInRethrow("Stack.Push(vValue)", {value});
  }
}

Variant Stack::Pop() {
  try {
    Check(count_ > 0, 9501, "Stack Out of Bounds.");
    --count_;
    Variant top = std::move(slots_[static_cast<size_t>(count_)]);
    slots_[static_cast<size_t>(count_)] = Variant();
    return top;
  } catch (...) {
    ErrorInRethrow("Stack.Pop()", {});
  }
}

Variant Stack::Peek() const {
  try {
    Check(count_ > 0, 9501, "Stack Out of Bounds.");
    return slots_[static_cast<size_t>(count_ - 1)];
  } catch (...) {
    ErrorInRethrow("Stack.Peek()", {});
  }
}

void Stack::EmptyStack() {
  try {
    for (int32_t n = count_; n > 0; --n) Pop();
  } catch (...) {
    ErrorInRethrow("Stack.EmptyStack()", {});
  }
}

Stack Stack::Clone() const {
  Stack copy;
  for (int32_t i = 0; i < count_; ++i) copy.Push(slots_[static_cast<size_t>(i)]);
  return copy;
}

void Stack::Reverse() {
  try {
    std::vector<Variant> turned(slots_.size());
    for (int32_t i = 0; i < count_; ++i) {
      turned[static_cast<size_t>(i)] = std::move(slots_[static_cast<size_t>(count_ - 1 - i)]);
    }
    slots_ = std::move(turned);
  } catch (...) {
    ErrorInRethrow("Stack.Reverse()", {});
  }
}

std::string Stack::ToString() const {
  try {
    std::string out;
    for (int32_t i = count_ - 1; i >= 0; --i) out += " - " + slots_[static_cast<size_t>(i)].ToString();
    return out;
  } catch (...) {
    ErrorInRethrow("Stack.ToString()", {});
  }
}

}  // namespace tessel
