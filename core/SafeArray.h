// SafeArray: the elements and bounds of a script array.
//
// Up to 60 dimensions, each with its own lower and upper bound; elements are
// Variants stored with the first index varying fastest (so For Each walks
// a(0,0), a(1,0), ..., and ReDim Preserve may change the last dimension only).
// A SafeArray is owned by the Variants that share it (count in refs_); the
// Variant copies it before a write when it is shared. A SafeArray can also be
// locked (Lock/Unlock, as For Each and ByRef element passing do); ReDim and
// Erase of a locked array raise 10 "This array is fixed or temporarily locked".
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

#include "core/Variant.h"

namespace tessel {

class SafeArray {
 public:
  using Bound = Variant::Bound;
  static constexpr size_t kMaxDimensions = 60;

  // Raises 9 "Subscript out of range" for a negative extent and 7 "Out of
  // memory" for an absurd element count. No bounds at all make the array of a
  // `Dim a()` that has not been dimensioned yet: no elements, and LBound/UBound
  // raise 9.
  explicit SafeArray(std::span<const Bound> bounds);
  explicit SafeArray(std::vector<Variant> elements);  // 1 dimension from 0
  SafeArray(const SafeArray& other);  // deep copy of the elements; unlocked
  SafeArray& operator=(const SafeArray&) = delete;

  size_t Dimensions() const noexcept { return bounds_.size(); }
  // `dimension` counts from 1 like LBound/UBound; 9 when out of range.
  int32_t LowerBound(int dimension = 1) const;
  int32_t UpperBound(int dimension = 1) const;
  const std::vector<Bound>& Bounds() const noexcept { return bounds_; }
  size_t Count() const noexcept { return elements_.size(); }

  // Element by subscripts (one per dimension); 9 "Subscript out of range"
  // when the number of subscripts or any subscript is wrong.
  Variant& At(std::span<const int32_t> indexes);
  const Variant& At(std::span<const int32_t> indexes) const;
  // Position of the element in Elements().
  size_t Offset(std::span<const int32_t> indexes) const;

  std::span<Variant> Elements() noexcept { return elements_; }
  std::span<const Variant> Elements() const noexcept { return elements_; }

  // ReDim: new bounds; with `preserve` only the last dimension's upper bound
  // may change and the elements are kept (9 otherwise), without it every
  // element becomes Empty.
  void Redim(std::span<const Bound> bounds, bool preserve);
  // Erase: every element back to Empty (the bounds stay).
  void Clear();

  void Lock() noexcept { ++locks_; }
  void Unlock() noexcept { --locks_; }
  bool IsLocked() const noexcept { return locks_ > 0; }

 private:
  friend class Variant;
  void CheckUnlocked() const;

  std::atomic<uint32_t> refs_{1};
  uint32_t locks_ = 0;
  std::vector<Bound> bounds_;
  std::vector<Variant> elements_;
};

}  // namespace tessel
