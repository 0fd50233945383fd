#include "store/XmlHeap.h"

#include <fcntl.h>
#include <libxml/xmlmemory.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

namespace tessel {
namespace {

// Class c holds blocks of (c + 1) * 8 bytes: libxml2's node (120) and
// attribute (96) structures fill theirs exactly.
constexpr size_t kGranule = 8;
constexpr size_t kClasses = XmlHeap::kMaxSmall / kGranule;
// A span is the unit of address space given to one size class.
constexpr size_t kSpanShift = 17;
constexpr size_t kSpanBytes = size_t{1} << kSpanShift;
// Address space is reserved up front and made writable in steps of this
// range.
constexpr size_t kMinCommitStep = size_t{2} << 20;
constexpr size_t kMaxCommitStep = size_t{32} << 20;
// Once this much is writable, fresh pages are faulted in by a thread of the
// heap's own, ahead of use, and the steps run ahead of the carving by up to
// kMaxLead bytes (a sixteenth of what is writable), so that the kernel's work
// on new pages overlaps with the work of the threads that fill them.
constexpr size_t kPopulatorThreshold = size_t{64} << 20;
constexpr size_t kMaxLead = size_t{32} << 20;
constexpr size_t kPopulateChunk = size_t{2} << 20;
// Huge pages cost the kernel far less per byte to fault in and to free than
// small ones; but where it has no free block of their size it compacts
// memory to make one, which costs more than it saves. The writable range
// grows in whole huge pages from an aligned base, and asks for them only
// while the kernel has free blocks to spare (see AdviseHugePages).
constexpr size_t kHugePageBytes = size_t{2} << 20;
static_assert(kMinCommitStep % kHugePageBytes == 0, "steps keep the writable range in whole huge pages");
constexpr size_t kLargestReservation = size_t{1} << 40;
constexpr size_t kSmallestReservation = size_t{1} << 30;
// A thread keeps at most this many free blocks of a class and then gives
// them all to the shared pool; it takes up to a batch back at a time.
constexpr uint32_t kCacheLimit = 4096;
constexpr uint32_t kRefillBatch = 256;
// AllocateEach asks for this much of the memory its classes take blocks
// from next (see there).
constexpr size_t kWriteAheadBytes = 4096;
constexpr size_t kCacheLine = 64;

inline void PrefetchForWrite(const char* address) {
#if defined(__x86_64__)
  asm volatile("prefetchw %0" : : "m"(*address));
#else
  __builtin_prefetch(address, 1);
#endif
}

inline size_t ClassOf(size_t size) { return size == 0 ? 0 : (size - 1) / kGranule; }
inline size_t ClassSize(size_t sizeClass) { return (sizeClass + 1) * kGranule; }

// A slot is a size class of plain blocks (below kClasses) or of counted
// blocks (kClasses and above): a counted block is preceded by its reference
// count, so its stride is 8 bytes more than its class size.
constexpr size_t kSlots = 2 * kClasses;
constexpr size_t kCountBytes = 8;
using Count = std::atomic<uint64_t>;
static_assert(sizeof(Count) == kCountBytes);
inline bool IsCountedSlot(size_t slot) { return slot >= kClasses; }
inline size_t SlotClass(size_t slot) { return slot % kClasses; }
inline size_t Stride(size_t slot) { return ClassSize(SlotClass(slot)) + (IsCountedSlot(slot) ? kCountBytes : 0); }

struct FreeBlock {
  FreeBlock* next;
};

// The unused tail of a span, left by a thread that ended; linked through its
// own first bytes.
struct Leftover {
  char* end;
  Leftover* next;
};

struct Pool {
  std::mutex mutex;
  FreeBlock* head = nullptr;
  Leftover* leftovers = nullptr;
};

struct Heap {
  char* base = nullptr;
  size_t size = 0;
  uint8_t* spanSlot = nullptr;  // per span: its slot + 1, 0 while unused
  std::atomic<size_t> carved{0};
  std::atomic<size_t> committed{0};
  std::atomic<bool> exhausted{false};
  std::mutex growMutex;
  // The populator: faults in [populated, committed) a chunk at a time.
  std::mutex populateMutex;
  std::condition_variable populateWake;
  size_t populated = 0;
  bool populatorRunning = false;
  // Huge pages the heap may still ask for before it looks at the kernel's
  // free blocks again (under growMutex).
  size_t hugePageBudget = 0;
  Pool pools[kSlots];
};

std::atomic<Heap*> gHeap{nullptr};
std::atomic<bool> gInstalled{false};

// Per-thread free lists and the span each class is being cut from. Plain
// data, so that it can be reached at any time of the thread's life, also
// after the thread's destructors have handed its contents back.
struct ThreadCache {
  FreeBlock* head[kSlots];
  FreeBlock* tail[kSlots];  // the last block of the list, so that it moves whole
  uint32_t count[kSlots];
  char* bump[kSlots];
  char* bumpEnd[kSlots];
  bool armed;    // the retirer is registered for this thread
  bool retired;  // the thread is ending: everything goes to the shared pools
};
thread_local ThreadCache tCache;

void Retire(Heap* heap, ThreadCache& cache);

// Hands the thread's blocks back when the thread ends.
struct Retirer {
  bool armed = false;
  ~Retirer() {
    if (Heap* heap = gHeap.load(std::memory_order_acquire)) Retire(heap, tCache);
  }
};
thread_local Retirer tRetirer;

inline void Arm(ThreadCache& cache) {
  cache.armed = true;
  tRetirer.armed = true;  // first use registers its destructor
}

inline uintptr_t OffsetOf(const Heap* heap, const void* block) {
  return reinterpret_cast<uintptr_t>(block) - reinterpret_cast<uintptr_t>(heap->base);
}

// Unsigned, so that addresses below the base wrap round to large offsets.
inline bool InHeap(const Heap* heap, const void* block) { return OffsetOf(heap, block) < heap->size; }

inline size_t SlotOfBlock(const Heap* heap, const void* block) {
  const size_t span = OffsetOf(heap, block) >> kSpanShift;
  return static_cast<size_t>(heap->spanSlot[span]) - 1;
}

inline Count& CountOf(void* block) { return *reinterpret_cast<Count*>(static_cast<char*>(block) - kCountBytes); }

Heap* MakeHeap() {
  char* base = nullptr;
  size_t size = kLargestReservation;
  // Under a limit of address space the reservation takes at most a quarter
  // of it; what the heap cannot hold comes from malloc.
  rlimit limit{};
  if (::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
    while (size >= kSmallestReservation && size > limit.rlim_cur / 4) size >>= 1;
  }
  for (; size >= kSmallestReservation; size >>= 1) {
    // One huge page more, so that the base can start on a huge page.
    void* p = ::mmap(nullptr, size + kHugePageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p != MAP_FAILED) {
      char* start = static_cast<char*>(p);
      const uintptr_t address = reinterpret_cast<uintptr_t>(start);
      base = reinterpret_cast<char*>((address + kHugePageBytes - 1) & ~(uintptr_t{kHugePageBytes} - 1));
      if (base > start) ::munmap(start, static_cast<size_t>(base - start));
      char* end = start + size + kHugePageBytes;
      if (end > base + size) ::munmap(base + size, static_cast<size_t>(end - (base + size)));
      break;
    }
  }
  if (base == nullptr) return nullptr;
  void* table = ::mmap(nullptr, size >> kSpanShift, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (table == MAP_FAILED) {
    ::munmap(base, size);
    return nullptr;
  }
  // Never destroyed: blocks are freed until the very end of the process.
  alignas(Heap) static unsigned char storage[sizeof(Heap)];
  Heap* heap = ::new (storage) Heap();
  heap->base = base;
  heap->size = size;
  heap->spanSlot = static_cast<uint8_t*>(table);
  return heap;
}

void PopulateAhead(Heap* heap) {
  std::unique_lock<std::mutex> lock(heap->populateMutex);
  for (;;) {
    const size_t committed = heap->committed.load(std::memory_order_acquire);
    if (heap->populated >= committed) {
      heap->populateWake.wait(lock);
      continue;
    }
    const size_t begin = heap->populated;
    const size_t end = std::min(committed, begin + kPopulateChunk);
    lock.unlock();
    // Pages the filling threads reach first are simply faulted by them; the
    // advice skips what is already there.
    ::madvise(heap->base + begin, end - begin, MADV_POPULATE_WRITE);
    lock.lock();
    heap->populated = end;
  }
}

// XmlHeap::FreeHugePages of the running kernel; 0 where /proc/buddyinfo
// cannot be read or pages are not 4 KB.
size_t KernelFreeHugePages() {
  if (::sysconf(_SC_PAGESIZE) != 4096) return 0;
  const int fd = ::open("/proc/buddyinfo", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  char text[8192];
  const ssize_t length = ::read(fd, text, sizeof text);
  ::close(fd);
  if (length <= 0) return 0;
  return XmlHeap::FreeHugePages(std::string_view(text, static_cast<size_t>(length)));
}

// Asks for huge pages in [start, start + bytes), whole huge pages, where the
// kernel has them free: at most half of its free blocks at the last look, so
// that other processes find some too and no compaction is needed.
void AdviseHugePages(Heap* heap, char* start, size_t bytes) {
#ifdef MADV_HUGEPAGE
  const size_t pages = bytes / kHugePageBytes;
  if (pages == 0) return;
  if (heap->hugePageBudget < pages) heap->hugePageBudget = KernelFreeHugePages() / 2;
  if (heap->hugePageBudget < pages) return;
  heap->hugePageBudget -= pages;
  ::madvise(start, bytes, MADV_HUGEPAGE);
#endif
}

// Makes the heap writable up to at least `needed` bytes from its base.
// Memory that is about to be filled is faulted in at once, which costs far
// less than a trap for each page: here while the heap is small, by the
// populator once it is large. Kernels without the advice fault pages one by
// one as before.
void Grow(Heap* heap, size_t needed) {
  std::lock_guard<std::mutex> lock(heap->growMutex);
  size_t committed = heap->committed.load(std::memory_order_relaxed);
  if (committed >= needed) return;
  bool populator;
  {
    std::lock_guard<std::mutex> populateLock(heap->populateMutex);
    if (!heap->populatorRunning && committed >= kPopulatorThreshold) {
      try {
        heap->populated = committed;
        std::thread(&PopulateAhead, heap).detach();
        heap->populatorRunning = true;
      } catch (...) {
        // No thread (no resources for one, or no memory for its state): the
        // growing thread goes on faulting pages itself. Nothing may leave
        // here, as libxml2's C code is below on the stack.
      }
    }
    populator = heap->populatorRunning;
  }
  const size_t target = populator ? std::min(heap->size, needed + std::min(kMaxLead, committed / 16)) : needed;
  while (committed < target) {
    // Steps grow with the heap, so that a small process stays small and a
    // large document is not made writable a few spans at a time.
    size_t step = std::min(kMaxCommitStep, std::max(kMinCommitStep, committed / 64));
    step = std::min(step / kHugePageBytes * kHugePageBytes, heap->size - committed);
    if (::mprotect(heap->base + committed, step, PROT_READ | PROT_WRITE) != 0) {
      if (committed < needed) heap->exhausted.store(true, std::memory_order_relaxed);
      break;
    }
    AdviseHugePages(heap, heap->base + committed, step);
    if (!populator) ::madvise(heap->base + committed, step, MADV_POPULATE_WRITE);
    committed += step;
    heap->committed.store(committed, std::memory_order_release);
  }
  if (populator) {
    std::lock_guard<std::mutex> populateLock(heap->populateMutex);
    heap->populateWake.notify_one();
  }
}

// A new span for the slot, writable; nullptr when the reservation is used up
// or the system refuses more memory.
char* CarveSpan(Heap* heap, size_t slot) {
  // Once the heap cannot grow, new blocks come from malloc without asking
  // again for every one.
  if (heap->exhausted.load(std::memory_order_relaxed)) return nullptr;
  const size_t offset = heap->carved.fetch_add(kSpanBytes, std::memory_order_relaxed);
  if (offset + kSpanBytes > heap->size) {
    heap->exhausted.store(true, std::memory_order_relaxed);
    return nullptr;
  }
  const size_t needed = offset + kSpanBytes;
  if (heap->committed.load(std::memory_order_acquire) < needed) {
    Grow(heap, needed);
    if (heap->committed.load(std::memory_order_acquire) < needed) return nullptr;
  }
  heap->spanSlot[offset >> kSpanShift] = static_cast<uint8_t>(slot + 1);
  return heap->base + offset;
}

void PushToPool(Pool& pool, FreeBlock* first, FreeBlock* last) {
  std::lock_guard<std::mutex> lock(pool.mutex);
  last->next = pool.head;
  pool.head = first;
}

void Retire(Heap* heap, ThreadCache& cache) {
  if (cache.retired) return;
  cache.retired = true;
  for (size_t c = 0; c < kSlots; ++c) {
    if (FreeBlock* first = cache.head[c]) PushToPool(heap->pools[c], first, cache.tail[c]);
    cache.head[c] = cache.tail[c] = nullptr;
    cache.count[c] = 0;
    char* begin = cache.bump[c];
    char* end = cache.bumpEnd[c];
    if (begin != nullptr && end - begin >= static_cast<std::ptrdiff_t>(std::max(sizeof(Leftover), Stride(c)))) {
      Pool& pool = heap->pools[c];
      std::lock_guard<std::mutex> lock(pool.mutex);
      Leftover* leftover = ::new (begin) Leftover{end, pool.leftovers};
      pool.leftovers = leftover;
    }
    cache.bump[c] = cache.bumpEnd[c] = nullptr;
  }
}

// The slow path of Take: the thread's list and span of the slot are empty.
// nullptr when no block can be had here.
char* Refill(Heap* heap, ThreadCache& cache, size_t slot) {
  Pool& pool = heap->pools[slot];
  const size_t stride = Stride(slot);
  if (cache.retired) {
    std::lock_guard<std::mutex> lock(pool.mutex);
    FreeBlock* block = pool.head;
    if (block != nullptr) pool.head = block->next;
    return reinterpret_cast<char*>(block);
  }
  if (!cache.armed) Arm(cache);
  {
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (FreeBlock* first = pool.head) {
      FreeBlock* last = first;
      uint32_t taken = 1;
      while (taken < kRefillBatch && last->next != nullptr) {
        last = last->next;
        ++taken;
      }
      pool.head = last->next;
      last->next = nullptr;
      cache.head[slot] = first->next;
      cache.tail[slot] = first->next != nullptr ? last : nullptr;
      cache.count[slot] = taken - 1;
      return reinterpret_cast<char*>(first);
    }
    if (Leftover* leftover = pool.leftovers) {
      pool.leftovers = leftover->next;
      char* begin = reinterpret_cast<char*>(leftover);
      cache.bump[slot] = begin + stride;
      cache.bumpEnd[slot] = leftover->end;
      return begin;
    }
  }
  char* span = CarveSpan(heap, slot);
  if (span == nullptr) return nullptr;
  cache.bump[slot] = span + stride;
  cache.bumpEnd[slot] = span + (kSpanBytes / stride) * stride;
  return span;
}

// A block of the slot (its start, before any count); nullptr when none can
// be had.
inline char* Take(Heap* heap, size_t slot) {
  ThreadCache& cache = tCache;
  if (FreeBlock* block = cache.head[slot]) {
    cache.head[slot] = block->next;
    if (block->next == nullptr) cache.tail[slot] = nullptr;
    --cache.count[slot];
    return reinterpret_cast<char*>(block);
  }
  const size_t stride = Stride(slot);
  char* bump = cache.bump[slot];
  if (bump != nullptr && bump + stride <= cache.bumpEnd[slot]) {
    cache.bump[slot] = bump + stride;
    return bump;
  }
  return Refill(heap, cache, slot);
}

// Gives a block (its start) back to the thread's list of the slot.
inline void Give(Heap* heap, size_t slot, void* start) {
  ThreadCache& cache = tCache;
  FreeBlock* freed = static_cast<FreeBlock*>(start);
  if (cache.retired) {
    PushToPool(heap->pools[slot], freed, freed);
    return;
  }
  freed->next = cache.head[slot];
  if (freed->next == nullptr) cache.tail[slot] = freed;
  cache.head[slot] = freed;
  if (++cache.count[slot] > kCacheLimit) {
    // Given whole: walking a list of blocks freed long after they were
    // written is a cache miss for each.
    PushToPool(heap->pools[slot], freed, cache.tail[slot]);
    cache.head[slot] = cache.tail[slot] = nullptr;
    cache.count[slot] = 0;
  }
  if (!cache.armed) Arm(cache);
}

// A fork must not copy a lock that another thread holds into the child,
// which would then wait for it for ever: the locks are taken around it.
void LockAllForFork() {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  heap->growMutex.lock();
  heap->populateMutex.lock();
  for (Pool& pool : heap->pools) pool.mutex.lock();
}

void UnlockAllAfterFork() {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  for (Pool& pool : heap->pools) pool.mutex.unlock();
  heap->populateMutex.unlock();
  heap->growMutex.unlock();
}

// The child has no populator: the first growth that wants one starts it.
// The condition variable is made anew, as the copy may count the parent's
// populator among its waiters, and a signal would then wait for a thread
// that is not there.
void UnlockAllInChild() {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  heap->populatorRunning = false;
  ::new (&heap->populateWake) std::condition_variable();
  UnlockAllAfterFork();
}

}  // namespace

bool XmlHeap::Install() {
  static std::once_flag once;
  std::call_once(once, [] {
#if defined(__SANITIZE_ADDRESS__)
    // Under AddressSanitizer libxml2 keeps the C library's allocator, so that
    // every node it makes is checked.
    return;
#endif
    Heap* heap = MakeHeap();
    if (heap == nullptr) return;
    gHeap.store(heap, std::memory_order_release);
    ::pthread_atfork(&LockAllForFork, &UnlockAllAfterFork, &UnlockAllInChild);
    if (xmlMemSetup(&XmlHeap::Free, &XmlHeap::Allocate, &XmlHeap::Reallocate, &XmlHeap::Duplicate) == 0) {
      gInstalled.store(true, std::memory_order_release);
    }
  });
  return Installed();
}

bool XmlHeap::Installed() { return gInstalled.load(std::memory_order_acquire); }

namespace {

// A block of the heap's, or of malloc's when the heap has none to give.
inline void* TakeOrMalloc(Heap* heap, size_t size) {
  if (size <= XmlHeap::kMaxSmall && heap != nullptr) {
    if (void* block = Take(heap, ClassOf(size))) return block;
  }
  return std::malloc(size);
}

}  // namespace

void* XmlHeap::Allocate(size_t size) { return TakeOrMalloc(gHeap.load(std::memory_order_acquire), size); }

bool XmlHeap::AllocateEach(const uint16_t* sizes, size_t count, void** blocks) {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  for (size_t i = 0; i < count; ++i) {
    void* block = TakeOrMalloc(heap, sizes[i]);
    if (block == nullptr) {
      while (i > 0) Free(blocks[--i]);
      return false;
    }
    blocks[i] = block;
  }
  // Calls like this one make a record at a time; the next takes its blocks
  // from the bytes after these. Those are asked for, to be written, while
  // this record is filled.
  if (heap != nullptr && count > 0) {
    ThreadCache& cache = tCache;
    auto writeAhead = [&cache](size_t slot) {
      const char* bump = cache.bump[slot];
      if (bump == nullptr) return;
      const char* end = std::min<const char*>(bump + kWriteAheadBytes, cache.bumpEnd[slot]);
      for (const char* line = bump; line < end; line += kCacheLine) PrefetchForWrite(line);
    };
    const size_t first = sizes[0];
    const size_t last = sizes[count - 1];
    const bool firstSmall = first != 0 && first <= XmlHeap::kMaxSmall;
    if (firstSmall) writeAhead(ClassOf(first));
    if (last != 0 && last <= XmlHeap::kMaxSmall && !(firstSmall && ClassOf(last) == ClassOf(first))) {
      writeAhead(ClassOf(last));
    }
  }
  return true;
}

void* XmlHeap::AllocateCounted(size_t size) {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  if (size > kMaxSmall || heap == nullptr) return nullptr;
  char* start = Take(heap, kClasses + ClassOf(size));
  if (start == nullptr) return nullptr;
  ::new (start) Count(1);
  return start + kCountBytes;
}

void XmlHeap::Retain(void* block) { CountOf(block).fetch_add(1, std::memory_order_relaxed); }

bool XmlHeap::IsCounted(const void* block) {
  const Heap* heap = gHeap.load(std::memory_order_acquire);
  return heap != nullptr && block != nullptr && InHeap(heap, block) && IsCountedSlot(SlotOfBlock(heap, block));
}

void XmlHeap::Free(void* block) {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  if (heap == nullptr || !InHeap(heap, block)) {
    std::free(block);
    return;
  }
  const size_t slot = SlotOfBlock(heap, block);
  if (!IsCountedSlot(slot)) {
    Give(heap, slot, block);
    return;
  }
  // The last holder frees; acquire so that its reads of the block are done.
  if (CountOf(block).fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  Give(heap, slot, static_cast<char*>(block) - kCountBytes);
}

void* XmlHeap::Reallocate(void* block, size_t size) {
  if (block == nullptr) return Allocate(size);
  Heap* heap = gHeap.load(std::memory_order_acquire);
  if (heap == nullptr || !InHeap(heap, block)) return std::realloc(block, size);
  const size_t slot = SlotOfBlock(heap, block);
  const size_t have = ClassSize(SlotClass(slot));
  if (size <= have && !IsCountedSlot(slot)) return block;
  // A counted block may have other holders: the caller gets a copy of its own.
  void* moved = Allocate(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, block, std::min(have, size));
  Free(block);
  return moved;
}

char* XmlHeap::Duplicate(const char* text) {
  if (text == nullptr) return nullptr;
  const size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(Allocate(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

bool XmlHeap::Owns(const void* block) {
  const Heap* heap = gHeap.load(std::memory_order_acquire);
  return heap != nullptr && block != nullptr && InHeap(heap, block);
}

size_t XmlHeap::BlockSize(const void* block) {
  const Heap* heap = gHeap.load(std::memory_order_acquire);
  if (heap == nullptr || block == nullptr || !InHeap(heap, block)) return 0;
  return ClassSize(SlotClass(SlotOfBlock(heap, block)));
}

size_t XmlHeap::FreeHugePages(std::string_view buddyinfo) {
  // "Node 0, zone   Normal   c0 c1 ... c10": one count of free blocks per
  // order, from order 0, after the zone's name.
  constexpr size_t kHugePageOrder = 9;
  size_t pages = 0;
  while (!buddyinfo.empty()) {
    const size_t lineEnd = std::min(buddyinfo.find('\n'), buddyinfo.size());
    std::string_view line = buddyinfo.substr(0, lineEnd);
    buddyinfo.remove_prefix(std::min(lineEnd + 1, buddyinfo.size()));
    const size_t zone = line.find("zone");
    if (zone == std::string_view::npos) continue;
    line.remove_prefix(zone + 4);
    auto skip = [&line](bool blanks) {
      while (!line.empty() && (line.front() == ' ' || line.front() == '\t') == blanks) line.remove_prefix(1);
    };
    skip(true);
    skip(false);  // the zone's name
    for (size_t order = 0;; ++order) {
      skip(true);
      size_t count = 0;
      size_t digits = 0;
      for (; digits < line.size() && line[digits] >= '0' && line[digits] <= '9'; ++digits) {
        count = count * 10 + static_cast<size_t>(line[digits] - '0');
      }
      if (digits == 0) break;
      line.remove_prefix(digits);
      if (order >= kHugePageOrder && order - kHugePageOrder < 32) pages += count << (order - kHugePageOrder);
    }
  }
  return pages;
}

XmlHeap::Usage XmlHeap::CurrentUsage() {
  Usage usage;
  if (const Heap* heap = gHeap.load(std::memory_order_acquire)) {
    usage.spanBytes = std::min(heap->carved.load(std::memory_order_relaxed), heap->size);
    usage.committedBytes = heap->committed.load(std::memory_order_relaxed);
  }
  return usage;
}

}  // namespace tessel
