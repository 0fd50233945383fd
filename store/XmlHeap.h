// XmlHeap: the memory libxml2 allocates in this process, once installed.
//
// Why: a data document is millions of small, equal-sized libxml2 structures
// (a node is 120 bytes, an attribute 96) and short strings. The C library's
// allocator puts a size word before each and serialises on arenas; here small
// blocks come from size-class spans without any header, handed out and taken
// back through per-thread free lists, so a node costs exactly its size and
// an allocation is a few instructions.
//
// Contract:
// - Install() points libxml2's xmlMalloc, xmlMallocAtomic, xmlRealloc,
//   xmlMemStrdup and xmlFree at this heap. It may be called any number of
//   times from any thread; the first call does the work. Blocks that libxml2
//   got before (or that are too large for a size class) stay with the C
//   library: Free and Reallocate tell the two apart by address, so every
//   block goes back to where it came from whenever it was allocated.
// - Blocks of at most kMaxSmall bytes are 8-byte aligned (16 when their class
//   size is a multiple of 16); larger ones come from malloc.
// - Any thread may free a block that another thread allocated.
// - Memory of freed small blocks is kept for reuse by later small blocks and
//   is not returned to the system while the process runs.
//
// The heap is process-wide state by nature (libxml2's hooks are global); it
// is made on first Install and deliberately never destroyed, so that frees
// during static destruction and thread exit still find it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessel {

class XmlHeap {
 public:
  // Largest request served from a size class.
  static constexpr size_t kMaxSmall = 256;

  // Makes libxml2 allocate here. False when the address space could not be
  // reserved; libxml2 then keeps the C library's allocator.
  static bool Install();
  static bool Installed();

  // The hooks, usable directly (before Install they fall back to malloc).
  static void* Allocate(size_t size);
  static void Free(void* block);
  static void* Reallocate(void* block, size_t size);
  static char* Duplicate(const char* text);

  // Counted blocks: a block whose xmlFree only drops one reference, so that
  // several owners in libxml2's trees may hold it and each free it. The
  // block is freed when the last reference goes. nullptr when the heap is
  // not there or the size is above kMaxSmall. The count starts at 1.
  static void* AllocateCounted(size_t size);
  // Allocate for each of `count` sizes, into `blocks`: what `count` calls
  // give, in one. On failure (no memory) frees what it took, and returns
  // false. For callers that make a record at a time it also asks the
  // processor for the memory the next blocks of the first and the last
  // size's class will come from.
  static bool AllocateEach(const uint16_t* sizes, size_t count, void** blocks);
  // One more reference; `block` must be counted.
  static void Retain(void* block);
  static bool IsCounted(const void* block);

  // True when the block is one of this heap's small blocks.
  static bool Owns(const void* block);
  // Usable size of a block of this heap (its class size); 0 for others.
  static size_t BlockSize(const void* block);

  // Huge pages (2 MB) the kernel could give from its free blocks as
  // /proc/buddyinfo's text lists them: each free block of order 9 (2 MB in
  // 4 KB pages) or above counts as the huge pages it holds. The heap asks
  // for huge pages only while this shows enough to spare.
  static size_t FreeHugePages(std::string_view buddyinfo);

  struct Usage {
    size_t spanBytes = 0;       // address space handed to size classes
    size_t committedBytes = 0;  // address space made writable
  };
  static Usage CurrentUsage();
};

}  // namespace tessel
