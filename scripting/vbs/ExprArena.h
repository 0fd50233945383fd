// ExprArena: memory for the syntax tree of one Eval expression.
//
// Eval is called once per field per record with a text that is new every
// time, so its few small nodes would each cost a heap allocation and a free.
// The arena hands out memory from blocks it owns and takes nothing back one
// node at a time: nodes built in it are destroyed in place (ExprDelete runs
// their destructors, which free what they own), and Reset makes all of the
// memory reusable once the tree is gone. The owner of the arena must not
// Reset it while a tree built in it is alive.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace tessel::vbs {

class ExprArena {
 public:
  ExprArena() = default;
  ExprArena(const ExprArena&) = delete;
  ExprArena& operator=(const ExprArena&) = delete;

  // `size` bytes aligned to `align` (a power of two no larger than
  // alignof(std::max_align_t)); valid until Reset.
  void* Allocate(size_t size, size_t align) {
    const size_t start = (used_ + align - 1) & ~(align - 1);
    if (current_ < blocks_.size() && start + size <= blocks_[current_].size) {
      used_ = start + size;
      return blocks_[current_].data.get() + start;
    }
    return AllocateSlow(size, align);
  }
  // Makes all memory reusable; keeps a few blocks for the next tree.
  void Reset();

 private:
  void* AllocateSlow(size_t size, size_t align);

  static constexpr size_t kBlockSize = 4096;
  static constexpr size_t kKeptBlocks = 4;

  struct Block {
    std::unique_ptr<std::byte[]> data;
    size_t size = 0;
  };
  std::vector<Block> blocks_;
  size_t current_ = 0;  // index of the block being filled
  size_t used_ = 0;     // bytes used in blocks_[current_]
};

}  // namespace tessel::vbs
