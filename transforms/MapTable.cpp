#include "transforms/MapTable.h"

namespace tessel {

MapTable::MapTable() : first_(kGrowth), second_(kGrowth) {}

void MapTable::Add(std::string_view first, std::string_view second) {
  ++last_;
  // Reaching the last slot grows the table so that it keeps spare room.
  if (last_ >= Capacity() - 1) {
    first_.resize(static_cast<size_t>(last_ + kGrowth + 1));
    second_.resize(static_cast<size_t>(last_ + kGrowth + 1));
  }
  first_[static_cast<size_t>(last_)] = std::string(first);
  second_[static_cast<size_t>(last_)] = std::string(second);
}

std::string MapTable::Lookup(std::string_view key, bool reverseLookup) const {
  const std::vector<std::string>& keys = reverseLookup ? second_ : first_;
  const std::vector<std::string>& values = reverseLookup ? first_ : second_;
  for (int32_t i = 0; i <= last_; ++i) {
    if (keys[static_cast<size_t>(i)] == key) return values[static_cast<size_t>(i)];
  }
  return {};
}

void MapTable::Remove(std::string_view key) {
  for (int32_t i = 0; i <= last_; ++i) {
    if (first_[static_cast<size_t>(i)] == key) {
      first_[static_cast<size_t>(i)].clear();
      second_[static_cast<size_t>(i)].clear();
    }
  }
}

}  // namespace tessel
