// IHeirachicalDataIterator: the walk of a reader whose source is already a
// tree, level by level, in step with the transactions built from it.
#pragma once

#include <cstdint>
#include <string_view>

namespace tessel {

class IHeirachicalDataIterator {
 public:
  virtual ~IHeirachicalDataIterator() = default;

  // Descends to the children of the current record that have this record id.
  virtual void MoveChild(std::string_view recordId) = 0;
  // Siblings at the current level for the current record id.
  virtual int32_t RecordCount() = 0;
  // The first call after MoveChild moves to the first sibling.
  virtual void MoveNextRecord() = 0;
  // Back to the level the last MoveChild came from.
  virtual void MoveParent() = 0;
};

}  // namespace tessel
