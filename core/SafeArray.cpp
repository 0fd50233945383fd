#include "core/SafeArray.h"

#include "core/RuntimeError.h"

namespace tessel {

namespace {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

// Elements a set of bounds describes; raises 9 for a negative extent and 7
// for a count no machine could hold.
size_t CountOf(std::span<const Variant::Bound> bounds) {
  if (bounds.size() > SafeArray::kMaxDimensions) ThrowRuntimeError(9);
  if (bounds.empty()) return 0;  // a dynamic array not yet dimensioned
  UInt128 total = 1;
  for (const auto& b : bounds) {
    int64_t extent = static_cast<int64_t>(b.upper) - b.lower + 1;
    if (extent < 0) ThrowRuntimeError(9);
    total *= static_cast<uint64_t>(extent);
    if (total > (1u << 28)) ThrowRuntimeError(7);
  }
  return static_cast<size_t>(total);
}

}  // namespace

SafeArray::SafeArray(std::span<const Bound> bounds)
    : bounds_(bounds.begin(), bounds.end()), elements_(CountOf(bounds)) {}

SafeArray::SafeArray(std::vector<Variant> elements)
    : bounds_{Bound{0, static_cast<int32_t>(elements.size()) - 1}}, elements_(std::move(elements)) {}

SafeArray::SafeArray(const SafeArray& other) : bounds_(other.bounds_), elements_(other.elements_) {}

int32_t SafeArray::LowerBound(int dimension) const {
  if (dimension < 1 || static_cast<size_t>(dimension) > bounds_.size()) ThrowRuntimeError(9);
  return bounds_[dimension - 1].lower;
}

int32_t SafeArray::UpperBound(int dimension) const {
  if (dimension < 1 || static_cast<size_t>(dimension) > bounds_.size()) ThrowRuntimeError(9);
  return bounds_[dimension - 1].upper;
}

size_t SafeArray::Offset(std::span<const int32_t> indexes) const {
  if (indexes.size() != bounds_.size()) ThrowRuntimeError(9);
  size_t offset = 0;
  size_t stride = 1;
  for (size_t d = 0; d < bounds_.size(); ++d) {
    const Bound& b = bounds_[d];
    if (indexes[d] < b.lower || indexes[d] > b.upper) ThrowRuntimeError(9);
    offset += static_cast<size_t>(static_cast<int64_t>(indexes[d]) - b.lower) * stride;
    stride *= static_cast<size_t>(static_cast<int64_t>(b.upper) - b.lower + 1);
  }
  return offset;
}

Variant& SafeArray::At(std::span<const int32_t> indexes) { return elements_[Offset(indexes)]; }

const Variant& SafeArray::At(std::span<const int32_t> indexes) const { return elements_[Offset(indexes)]; }

void SafeArray::CheckUnlocked() const {
  if (locks_ > 0) ThrowRuntimeError(10);
}

void SafeArray::Redim(std::span<const Bound> bounds, bool preserve) {
  CheckUnlocked();
  size_t count = CountOf(bounds);
  if (!preserve) {
    std::vector<Variant> fresh(count);
    elements_.swap(fresh);
    bounds_.assign(bounds.begin(), bounds.end());
    return;
  }
  // Only the last dimension may change, and the lower bounds stay.
  if (!bounds_.empty()) {
    if (bounds.size() != bounds_.size()) ThrowRuntimeError(9);
    for (size_t d = 0; d < bounds.size(); ++d) {
      if (bounds[d].lower != bounds_[d].lower) ThrowRuntimeError(9);
      if (d + 1 < bounds.size() && bounds[d].upper != bounds_[d].upper) ThrowRuntimeError(9);
    }
  }
  // With the first index fastest, the last dimension is the slowest, so the
  // kept elements are a prefix.
  elements_.resize(count);
  bounds_.assign(bounds.begin(), bounds.end());
}

void SafeArray::Clear() {
  CheckUnlocked();
  for (auto& e : elements_) e = Variant();
}

}  // namespace tessel
