// MapTable: a small table of string pairs with forward and reverse lookup.
//
// Pairs keep the order in which they were added and duplicates are allowed;
// a lookup answers with the partner of the first exact (case-sensitive) match.
// Removing blanks a pair in place rather than closing the gap, so positions
// and the count stay as they were. Used by the translate transform and the
// ERP view classes to map record ids and field names between two vocabularies.
//
// A plain value; raises nothing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

class MapTable {
 public:
  MapTable();

  // Appends a pair.
  void Add(std::string_view first, std::string_view second);
  // The partner of the first pair whose first column (second column, with
  // `reverseLookup`) equals `key`; "" when none does.
  std::string Lookup(std::string_view key, bool reverseLookup = false) const;
  // Blanks both entries of every pair whose first column equals `key`.
  void Remove(std::string_view key);

  // Pairs added so far, blanked ones included.
  int32_t Count() const { return last_ + 1; }
  // Slots the table holds before it has to grow.
  int32_t Capacity() const { return static_cast<int32_t>(first_.size()); }

 private:
  // Room grows in steps of this many slots.
  static constexpr int32_t kGrowth = 4;

  std::vector<std::string> first_;
  std::vector<std::string> second_;
  int32_t last_ = -1;  // index of the last used pair
};

}  // namespace tessel
