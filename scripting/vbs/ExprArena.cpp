#include "scripting/vbs/ExprArena.h"

#include <algorithm>

namespace tessel::vbs {

void* ExprArena::AllocateSlow(size_t size, size_t align) {
  for (;;) {
    if (current_ < blocks_.size()) {
      Block& block = blocks_[current_];
      const size_t start = (used_ + align - 1) & ~(align - 1);
      if (start + size <= block.size) {
        used_ = start + size;
        return block.data.get() + start;
      }
      if (current_ + 1 < blocks_.size()) {
        ++current_;
        used_ = 0;
        continue;
      }
    }
    // A node larger than a block gets a block of its own size.
    Block block;
    block.size = std::max(kBlockSize, size + align);
    block.data = std::make_unique<std::byte[]>(block.size);
    blocks_.push_back(std::move(block));
    current_ = blocks_.size() - 1;
    used_ = 0;
  }
}

void ExprArena::Reset() {
  if (blocks_.size() > kKeptBlocks) blocks_.resize(kKeptBlocks);
  current_ = 0;
  used_ = 0;
}

}  // namespace tessel::vbs
