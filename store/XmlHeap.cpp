#include "store/XmlHeap.h"

#include <libxml/xmlmemory.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

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
constexpr size_t kLargestReservation = size_t{1} << 40;
constexpr size_t kSmallestReservation = size_t{1} << 30;
// A thread keeps at most this many free blocks of a class and then gives
// half of them to the shared pool; it takes up to a batch back at a time.
constexpr uint32_t kCacheLimit = 4096;
constexpr uint32_t kRefillBatch = 256;

inline size_t ClassOf(size_t size) { return size == 0 ? 0 : (size - 1) / kGranule; }
inline size_t ClassSize(size_t sizeClass) { return (sizeClass + 1) * kGranule; }

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
  uint8_t* spanClass = nullptr;  // per span: its class + 1, 0 while unused
  std::atomic<size_t> carved{0};
  std::atomic<size_t> committed{0};
  std::atomic<bool> exhausted{false};
  std::mutex growMutex;
  Pool pools[kClasses];
};

std::atomic<Heap*> gHeap{nullptr};
std::atomic<bool> gInstalled{false};

// Per-thread free lists and the span each class is being cut from. Plain
// data, so that it can be reached at any time of the thread's life, also
// after the thread's destructors have handed its contents back.
struct ThreadCache {
  FreeBlock* head[kClasses];
  uint32_t count[kClasses];
  char* bump[kClasses];
  char* bumpEnd[kClasses];
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

inline size_t ClassOfBlock(const Heap* heap, const void* block) {
  const size_t span = OffsetOf(heap, block) >> kSpanShift;
  return static_cast<size_t>(heap->spanClass[span]) - 1;
}

Heap* MakeHeap() {
  char* base = nullptr;
  size_t size = kLargestReservation;
  for (; size >= kSmallestReservation; size >>= 1) {
    void* p = ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p != MAP_FAILED) {
      base = static_cast<char*>(p);
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
  heap->spanClass = static_cast<uint8_t*>(table);
  return heap;
}

// A new span for the class, writable; nullptr when the reservation is used up
// or the system refuses more memory.
char* CarveSpan(Heap* heap, size_t sizeClass) {
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
    std::lock_guard<std::mutex> lock(heap->growMutex);
    size_t committed = heap->committed.load(std::memory_order_relaxed);
    while (committed < needed) {
      // Steps grow with the heap, so that a small process stays small and a
      // large document is not made writable a few spans at a time.
      size_t step = std::min(kMaxCommitStep, std::max(kMinCommitStep, committed / 64));
      step = std::min(step / kSpanBytes * kSpanBytes, heap->size - committed);
      if (::mprotect(heap->base + committed, step, PROT_READ | PROT_WRITE) != 0) {
        heap->exhausted.store(true, std::memory_order_relaxed);
        return nullptr;
      }
      // All of a step is about to be written: its pages are faulted in at
      // once, which costs far less than a trap for each page. Kernels without
      // the advice fault them one by one as before.
      ::madvise(heap->base + committed, step, MADV_POPULATE_WRITE);
      committed += step;
      heap->committed.store(committed, std::memory_order_release);
    }
  }
  heap->spanClass[offset >> kSpanShift] = static_cast<uint8_t>(sizeClass + 1);
  return heap->base + offset;
}

void PushToPool(Pool& pool, FreeBlock* first, FreeBlock* last) {
  std::lock_guard<std::mutex> lock(pool.mutex);
  last->next = pool.head;
  pool.head = first;
}

// Gives the older half of a thread's free list of one class to the pool.
void Spill(Heap* heap, ThreadCache& cache, size_t sizeClass) {
  FreeBlock* keepLast = cache.head[sizeClass];
  for (uint32_t i = 1; i < kCacheLimit / 2; ++i) keepLast = keepLast->next;
  FreeBlock* first = keepLast->next;
  keepLast->next = nullptr;
  FreeBlock* last = first;
  while (last->next != nullptr) last = last->next;
  cache.count[sizeClass] = kCacheLimit / 2;
  PushToPool(heap->pools[sizeClass], first, last);
}

void Retire(Heap* heap, ThreadCache& cache) {
  if (cache.retired) return;
  cache.retired = true;
  for (size_t c = 0; c < kClasses; ++c) {
    if (FreeBlock* first = cache.head[c]) {
      FreeBlock* last = first;
      while (last->next != nullptr) last = last->next;
      PushToPool(heap->pools[c], first, last);
    }
    cache.head[c] = nullptr;
    cache.count[c] = 0;
    char* begin = cache.bump[c];
    char* end = cache.bumpEnd[c];
    if (begin != nullptr && end - begin >= static_cast<std::ptrdiff_t>(std::max(sizeof(Leftover), ClassSize(c)))) {
      Pool& pool = heap->pools[c];
      std::lock_guard<std::mutex> lock(pool.mutex);
      Leftover* leftover = ::new (begin) Leftover{end, pool.leftovers};
      pool.leftovers = leftover;
    }
    cache.bump[c] = cache.bumpEnd[c] = nullptr;
  }
}

// The slow path of Allocate: the thread's list and span of the class are
// empty. nullptr when no block can be had here.
void* Refill(Heap* heap, ThreadCache& cache, size_t sizeClass) {
  Pool& pool = heap->pools[sizeClass];
  const size_t blockSize = ClassSize(sizeClass);
  if (cache.retired) {
    std::lock_guard<std::mutex> lock(pool.mutex);
    FreeBlock* block = pool.head;
    if (block != nullptr) pool.head = block->next;
    return block;
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
      cache.head[sizeClass] = first->next;
      cache.count[sizeClass] = taken - 1;
      return first;
    }
    if (Leftover* leftover = pool.leftovers) {
      pool.leftovers = leftover->next;
      char* begin = reinterpret_cast<char*>(leftover);
      cache.bump[sizeClass] = begin + blockSize;
      cache.bumpEnd[sizeClass] = leftover->end;
      return begin;
    }
  }
  char* span = CarveSpan(heap, sizeClass);
  if (span == nullptr) return nullptr;
  cache.bump[sizeClass] = span + blockSize;
  cache.bumpEnd[sizeClass] = span + (kSpanBytes / blockSize) * blockSize;
  return span;
}

}  // namespace

bool XmlHeap::Install() {
  static std::once_flag once;
  std::call_once(once, [] {
    Heap* heap = MakeHeap();
    if (heap == nullptr) return;
    gHeap.store(heap, std::memory_order_release);
    if (xmlMemSetup(&XmlHeap::Free, &XmlHeap::Allocate, &XmlHeap::Reallocate, &XmlHeap::Duplicate) == 0) {
      gInstalled.store(true, std::memory_order_release);
    }
  });
  return Installed();
}

bool XmlHeap::Installed() { return gInstalled.load(std::memory_order_acquire); }

void* XmlHeap::Allocate(size_t size) {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  if (size > kMaxSmall || heap == nullptr) return std::malloc(size);
  const size_t sizeClass = ClassOf(size);
  ThreadCache& cache = tCache;
  if (FreeBlock* block = cache.head[sizeClass]) {
    cache.head[sizeClass] = block->next;
    --cache.count[sizeClass];
    return block;
  }
  const size_t blockSize = ClassSize(sizeClass);
  char* bump = cache.bump[sizeClass];
  if (bump != nullptr && bump + blockSize <= cache.bumpEnd[sizeClass]) {
    cache.bump[sizeClass] = bump + blockSize;
    return bump;
  }
  if (void* block = Refill(heap, cache, sizeClass)) return block;
  return std::malloc(size);
}

void XmlHeap::Free(void* block) {
  Heap* heap = gHeap.load(std::memory_order_acquire);
  if (heap == nullptr || !InHeap(heap, block)) {
    std::free(block);
    return;
  }
  const size_t sizeClass = ClassOfBlock(heap, block);
  ThreadCache& cache = tCache;
  FreeBlock* freed = static_cast<FreeBlock*>(block);
  if (cache.retired) {
    PushToPool(heap->pools[sizeClass], freed, freed);
    return;
  }
  freed->next = cache.head[sizeClass];
  cache.head[sizeClass] = freed;
  if (++cache.count[sizeClass] > kCacheLimit) Spill(heap, cache, sizeClass);
  if (!cache.armed) Arm(cache);
}

void* XmlHeap::Reallocate(void* block, size_t size) {
  if (block == nullptr) return Allocate(size);
  Heap* heap = gHeap.load(std::memory_order_acquire);
  if (heap == nullptr || !InHeap(heap, block)) return std::realloc(block, size);
  const size_t have = ClassSize(ClassOfBlock(heap, block));
  if (size <= have) return block;
  void* moved = Allocate(size);
  if (moved == nullptr) return nullptr;
  std::memcpy(moved, block, have);
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
  return ClassSize(ClassOfBlock(heap, block));
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
