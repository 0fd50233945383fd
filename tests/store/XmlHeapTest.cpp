#include "store/XmlHeap.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "store/XMLWrapper.h"
#include "tests/store/StoreFixture.h"

namespace tessel {
namespace {

using test::kHeapInThisBuild;

class XmlHeapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kHeapInThisBuild) GTEST_SKIP() << "libxml2 uses the C library's allocator in this build";
    XMLWrapper wrapper;  // the first wrapper installs the heap
    ASSERT_TRUE(XmlHeap::Installed());
  }
};

// Fills a block with a pattern that tells it from any other block.
void Stamp(void* block, size_t size, uint32_t seed) {
  auto* bytes = static_cast<unsigned char*>(block);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(seed * 31 + i);
}

// Waits for a forked child, at most `limit`, and kills it past that: true
// when it ended by itself with status 0.
bool ChildSucceeded(pid_t child, std::chrono::milliseconds limit) {
  int status = 0;
  pid_t done = 0;
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (done == 0 && std::chrono::steady_clock::now() < deadline) {
    done = waitpid(child, &status, WNOHANG);
    if (done == 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (done == 0) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool HasStamp(const void* block, size_t size, uint32_t seed) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != static_cast<unsigned char>(seed * 31 + i)) return false;
  }
  return true;
}

TEST_F(XmlHeapTest, LibxmlNodesComeFromTheHeapAtTheirExactSize) {
  xmlDocPtr doc = xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"));
  xmlNodePtr node = xmlNewDocNode(doc, nullptr, reinterpret_cast<const xmlChar*>("A"), nullptr);
  xmlAttrPtr attribute = xmlNewProp(node, reinterpret_cast<const xmlChar*>("id"), reinterpret_cast<const xmlChar*>("1"));
  EXPECT_TRUE(XmlHeap::Owns(node));
  EXPECT_EQ(XmlHeap::BlockSize(node), sizeof(xmlNode));
  EXPECT_EQ(XmlHeap::BlockSize(attribute), sizeof(xmlAttr));
  xmlFreeNode(node);
  xmlFreeDoc(doc);
}

TEST_F(XmlHeapTest, LiveBlocksNeverOverlapAndKeepTheirContents) {
  std::vector<std::pair<void*, size_t>> blocks;
  for (uint32_t i = 0; i < 20000; ++i) {
    const size_t size = 1 + (i * 7) % (XmlHeap::kMaxSmall + 40);
    void* block = XmlHeap::Allocate(size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u);
    Stamp(block, size, i);
    blocks.emplace_back(block, size);
    if (i % 3 == 0) {  // free some on the way, so that reuse is part of the test
      auto [old, oldSize] = blocks[i / 2];
      if (old != nullptr) {
        EXPECT_TRUE(HasStamp(old, oldSize, i / 2));
        XmlHeap::Free(old);
        blocks[i / 2].first = nullptr;
      }
    }
  }
  std::set<uintptr_t> starts;
  for (uint32_t i = 0; i < blocks.size(); ++i) {
    auto [block, size] = blocks[i];
    if (block == nullptr) continue;
    EXPECT_TRUE(HasStamp(block, size, i)) << "block " << i;
    EXPECT_TRUE(starts.insert(reinterpret_cast<uintptr_t>(block)).second);
    XmlHeap::Free(block);
  }
}

// More blocks than a thread keeps go to the shared pool and come back from
// it, each one once.
TEST_F(XmlHeapTest, BlocksPassedThroughTheSharedPoolComeBackOnce) {
  constexpr uint32_t kBlocks = 30000;
  std::vector<void*> blocks;
  for (uint32_t i = 0; i < kBlocks; ++i) blocks.push_back(XmlHeap::Allocate(96));
  for (void* block : blocks) XmlHeap::Free(block);
  std::set<uintptr_t> starts;
  for (uint32_t i = 0; i < kBlocks; ++i) {
    blocks[i] = XmlHeap::Allocate(96);
    Stamp(blocks[i], 96, i);
    EXPECT_TRUE(starts.insert(reinterpret_cast<uintptr_t>(blocks[i])).second) << i;
  }
  for (uint32_t i = 0; i < kBlocks; ++i) {
    EXPECT_TRUE(HasStamp(blocks[i], 96, i)) << i;
    XmlHeap::Free(blocks[i]);
  }
}

// Enough blocks to make the heap grow many times over: every one of them is
// the heap's own and none falls back to the C library.
TEST_F(XmlHeapTest, AGrowingHeapServesEveryBlock) {
  std::vector<void*> blocks;
  for (int i = 0; i < 800000; ++i) blocks.push_back(XmlHeap::Allocate(120));
  size_t foreign = 0;
  for (void* block : blocks) foreign += XmlHeap::Owns(block) ? 0 : 1;
  EXPECT_EQ(foreign, 0u);
  EXPECT_LT(XmlHeap::CurrentUsage().committedBytes, size_t{1} << 30);
  for (void* block : blocks) XmlHeap::Free(block);
}

TEST_F(XmlHeapTest, ACountedBlockGoesWithItsLastHolder) {
  void* block = XmlHeap::AllocateCounted(120);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(XmlHeap::IsCounted(block));
  EXPECT_EQ(XmlHeap::BlockSize(block), 120u);
  Stamp(block, 120, 5);
  XmlHeap::Retain(block);
  XmlHeap::Retain(block);
  XmlHeap::Free(block);
  XmlHeap::Free(block);
  // One holder is left: the block is not handed out again.
  void* other = XmlHeap::AllocateCounted(120);
  EXPECT_NE(other, block);
  EXPECT_TRUE(HasStamp(block, 120, 5));
  XmlHeap::Free(block);
  void* again = XmlHeap::AllocateCounted(120);
  EXPECT_EQ(again, block);
  XmlHeap::Free(again);
  XmlHeap::Free(other);
  void* plain = XmlHeap::Allocate(120);
  EXPECT_FALSE(XmlHeap::IsCounted(plain));
  XmlHeap::Free(plain);
}

TEST_F(XmlHeapTest, ReallocatingASharedBlockGivesTheCallerACopy) {
  char* block = static_cast<char*>(XmlHeap::AllocateCounted(16));
  std::memcpy(block, "shared", 7);
  XmlHeap::Retain(block);
  char* mine = static_cast<char*>(XmlHeap::Reallocate(block, 16));
  EXPECT_NE(mine, block);
  EXPECT_STREQ(mine, "shared");
  EXPECT_STREQ(block, "shared");  // the other holder's block is intact
  EXPECT_FALSE(XmlHeap::IsCounted(mine));
  XmlHeap::Free(mine);
  XmlHeap::Free(block);
}

// Holders on several threads take and drop references to the same blocks
// at once; each block goes back exactly once, after its last holder.
TEST_F(XmlHeapTest, ReferencesTakenAndDroppedOnSeveralThreadsBalance) {
  constexpr int kBlocks = 64;
  constexpr int kThreads = 4;
  std::vector<void*> blocks;
  for (int i = 0; i < kBlocks; ++i) {
    blocks.push_back(XmlHeap::AllocateCounted(120));
    Stamp(blocks.back(), 120, static_cast<uint32_t>(i));
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20000; ++round) {
        void* block = blocks[static_cast<size_t>(round % kBlocks)];
        XmlHeap::Retain(block);
        XmlHeap::Free(block);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < kBlocks; ++i) EXPECT_TRUE(HasStamp(blocks[static_cast<size_t>(i)], 120, static_cast<uint32_t>(i)));
  std::set<uintptr_t> fresh;
  for (void* block : blocks) XmlHeap::Free(block);
  for (int i = 0; i < kBlocks; ++i) fresh.insert(reinterpret_cast<uintptr_t>(XmlHeap::AllocateCounted(120)));
  for (void* block : blocks) EXPECT_EQ(fresh.count(reinterpret_cast<uintptr_t>(block)), 1u);
  for (uintptr_t block : fresh) XmlHeap::Free(reinterpret_cast<void*>(block));
}

TEST_F(XmlHeapTest, FreedBlocksAreReused) {
  void* first = XmlHeap::Allocate(120);
  XmlHeap::Free(first);
  void* second = XmlHeap::Allocate(120);
  EXPECT_EQ(first, second);
  XmlHeap::Free(second);
}

TEST_F(XmlHeapTest, LargeAndForeignBlocksGoBackToTheCLibrary) {
  void* large = XmlHeap::Allocate(XmlHeap::kMaxSmall + 1);
  EXPECT_FALSE(XmlHeap::Owns(large));
  XmlHeap::Free(large);
  // A block libxml2 got from malloc before the heap was there.
  void* foreign = std::malloc(40);
  std::memcpy(foreign, "abc", 4);
  foreign = XmlHeap::Reallocate(foreign, 4000);
  EXPECT_STREQ(static_cast<char*>(foreign), "abc");
  XmlHeap::Free(foreign);
  XmlHeap::Free(nullptr);
}

TEST_F(XmlHeapTest, ReallocateKeepsTheContentsAcrossClassesAndOutOfTheHeap) {
  char* text = static_cast<char*>(XmlHeap::Allocate(10));
  std::memcpy(text, "123456789", 10);
  text = static_cast<char*>(XmlHeap::Reallocate(text, 8));  // shrinking stays in place
  EXPECT_STREQ(text, "123456789");
  for (size_t size : {64, 200, 256, 257, 5000, 100}) {
    text = static_cast<char*>(XmlHeap::Reallocate(text, size));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "123456789") << size;
  }
  XmlHeap::Free(text);
  char* fresh = static_cast<char*>(XmlHeap::Reallocate(nullptr, 16));
  EXPECT_TRUE(XmlHeap::Owns(fresh));
  XmlHeap::Free(fresh);
}

TEST_F(XmlHeapTest, DuplicateCopiesText) {
  char* copy = XmlHeap::Duplicate("a text");
  EXPECT_STREQ(copy, "a text");
  EXPECT_TRUE(XmlHeap::Owns(copy));
  XmlHeap::Free(copy);
  EXPECT_EQ(XmlHeap::Duplicate(nullptr), nullptr);
}

// Blocks made on one thread are freed on another, while both keep working;
// every block must still hold what its maker wrote.
TEST_F(XmlHeapTest, ThreadsFreeEachOthersBlocks) {
  constexpr int kThreads = 4;
  constexpr uint32_t kBlocks = 60000;
  std::vector<std::vector<void*>> made(kThreads);
  std::atomic<int> bad{0};
  std::vector<std::thread> makers;
  for (int t = 0; t < kThreads; ++t) {
    makers.emplace_back([&, t] {
      for (uint32_t i = 0; i < kBlocks; ++i) {
        const size_t size = 8 + (i % 4) * 40;
        void* block = XmlHeap::Allocate(size);
        Stamp(block, size, i + static_cast<uint32_t>(t) * kBlocks);
        made[static_cast<size_t>(t)].push_back(block);
      }
    });
  }
  for (auto& thread : makers) thread.join();
  std::vector<std::thread> freers;
  for (int t = 0; t < kThreads; ++t) {
    freers.emplace_back([&, t] {
      const int other = (t + 1) % kThreads;
      std::vector<void*> mine;
      for (uint32_t i = 0; i < kBlocks; ++i) {
        const size_t size = 8 + (i % 4) * 40;
        void* block = made[static_cast<size_t>(other)][i];
        if (!HasStamp(block, size, i + static_cast<uint32_t>(other) * kBlocks)) ++bad;
        XmlHeap::Free(block);
        void* fresh = XmlHeap::Allocate(size);  // reuses the freed blocks
        Stamp(fresh, size, 7u + i);
        mine.push_back(fresh);
      }
      for (uint32_t i = 0; i < kBlocks; ++i) {
        if (!HasStamp(mine[i], 8 + (i % 4) * 40, 7u + i)) ++bad;
        XmlHeap::Free(mine[i]);
      }
    });
  }
  for (auto& thread : freers) thread.join();
  EXPECT_EQ(bad.load(), 0);
}

// Whole documents built, queried, serialised and freed on several threads at
// once, each checked against its own expected text.
TEST_F(XmlHeapTest, DocumentsOnSeveralThreadsStayIntact) {
  constexpr int kThreads = 4;
  std::atomic<int> bad{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 30; ++round) {
        Ref<XMLWrapper> wrapper = MakeRef<XMLWrapper>();
        wrapper->LoadXML("<ROOT/>");
        xmlNodePtr root = wrapper->GetNodeFromXPath("/ROOT");
        for (int i = 0; i < 300; ++i) {
          xmlNodePtr item = wrapper->GenerateNode("ITEM", Variant("value " + std::to_string(t * 1000 + i)));
          wrapper->AddElement(item, root);
        }
        if (wrapper->GetNodesFromXPath("/ROOT/ITEM").size() != 300) ++bad;
        const std::string wanted = "value " + std::to_string(t * 1000 + 299);
        if (XMLWrapper::NodeText(wrapper->GetNodeFromXPath("/ROOT/ITEM[300]")) != wanted) ++bad;
        std::string text = wrapper->ToString();
        if (text.find("<ITEM>" + wanted + "</ITEM>") == std::string::npos) ++bad;
        Ref<XMLWrapper> copy = MakeRef<XMLWrapper>();
        copy->LoadXML(text);
        if (copy->ToString() != text) ++bad;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(bad.load(), 0);
}

// A process forked while other threads use the heap can use it in the
// child (a lock held at the fork would stop the child for good).
TEST_F(XmlHeapTest, AForkedChildCanUseTheHeapWhileOtherThreadsWork) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> busy;
  for (int t = 0; t < 3; ++t) {
    busy.emplace_back([&] {
      while (!stop) {
        std::vector<void*> blocks;
        for (int i = 0; i < 5000; ++i) blocks.push_back(XmlHeap::Allocate(120));
        for (void* block : blocks) XmlHeap::Free(block);
      }
    });
  }
  int failures = 0;
  for (int round = 0; round < 60; ++round) {
    pid_t child = fork();
    if (child == 0) {
      // More than a thread keeps, so that the child goes to the shared pool.
      std::vector<void*> blocks;
      for (int i = 0; i < 20000; ++i) blocks.push_back(XmlHeap::Allocate(120));
      for (void* block : blocks) XmlHeap::Free(block);
      XMLWrapper wrapper;
      wrapper.LoadXML("<A><B>text</B></A>");
      std::_Exit(XMLWrapper::NodeText(wrapper.GetNodeFromXPath("/A/B")) == "text" ? 0 : 1);
    }
    // A child stuck on a lock is a failure, not a hang.
    if (!ChildSucceeded(child, std::chrono::seconds(10))) ++failures;
  }
  stop = true;
  for (auto& thread : busy) thread.join();
  EXPECT_EQ(failures, 0);
}

// Past a few tens of megabytes fresh pages are faulted in ahead of use by a
// thread of the heap's own: what is written is kept, what is made writable
// runs only a bounded way ahead of what is handed out, and a child forked
// from such a process grows its heap too (the thread does not survive the
// fork, and a lock it held must not stop the child).
TEST_F(XmlHeapTest, ALargeHeapGrowsAheadAndAForkedChildStillGrowsItsOwn) {
  auto fill = [](std::vector<void*>& blocks, size_t count, uint32_t seed) {
    for (size_t i = 0; i < count; ++i) {
      void* block = XmlHeap::Allocate(120);
      Stamp(block, 120, seed + static_cast<uint32_t>(i));
      blocks.push_back(block);
    }
  };
  auto intact = [](const std::vector<void*>& blocks, uint32_t seed) {
    size_t bad = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
      bad += HasStamp(blocks[i], 120, seed + static_cast<uint32_t>(i)) && XmlHeap::Owns(blocks[i]) ? 0 : 1;
    }
    return bad;
  };
  std::vector<void*> blocks;
  fill(blocks, 1500000, 7);  // 180 MB
  const XmlHeap::Usage usage = XmlHeap::CurrentUsage();
  EXPECT_GE(usage.committedBytes, usage.spanBytes);
  EXPECT_LE(usage.committedBytes - usage.spanBytes, size_t{96} << 20);
  pid_t child = fork();
  if (child == 0) {
    std::vector<void*> more;
    fill(more, 1500000, 11);
    std::_Exit(intact(blocks, 7) == 0 && intact(more, 11) == 0 ? 0 : 1);
  }
  EXPECT_TRUE(ChildSucceeded(child, std::chrono::seconds(30))) << "the child failed or did not finish";
  EXPECT_EQ(intact(blocks, 7), 0u);
  for (void* block : blocks) XmlHeap::Free(block);
}

TEST(XmlHeapHugePagesTest, FreeBlocksOfOrderNineAndAboveCountAsTheHugePagesTheyHold) {
  // As a kernel lists them: orders 0 to 10 per zone.
  const char* buddyinfo =
      "Node 0, zone      DMA      0      0      0      0      0      0      0      0      1      1      3 \n"
      "Node 0, zone    DMA32      2      3      0      2      3      2      1      4      4      2    752 \n"
      "Node 0, zone   Normal  32601  17693  16263   5859   2579   1517   1121    703    663    406   1446 \n";
  // DMA 1 + 3*2, DMA32 2 + 752*2, Normal 406 + 1446*2; order 8 counts for nothing.
  EXPECT_EQ(XmlHeap::FreeHugePages(buddyinfo), 7u + 1506u + 3298u);
  // Tabs, a last line without a break, a zone with fewer orders listed.
  EXPECT_EQ(XmlHeap::FreeHugePages("Node 1, zone\tNormal\t0 0 0 0 0 0 0 0 0 5 1"), 7u);
  EXPECT_EQ(XmlHeap::FreeHugePages("Node 0, zone Normal 4 4 4"), 0u);
  // Nothing a zone line, or nothing at all: no huge pages to be had.
  EXPECT_EQ(XmlHeap::FreeHugePages(""), 0u);
  EXPECT_EQ(XmlHeap::FreeHugePages("garbage 1 2 3 4 5 6 7 8 9 10 11\n"), 0u);
  EXPECT_EQ(XmlHeap::FreeHugePages("Node 0, zone Normal x 1 2"), 0u);
}

// The kernel's huge pages of the mapping holding `address`, in kB, from
// /proc/self/smaps; -1 when no mapping holds it.
long HugePagesKbAt(const void* address) {
  std::ifstream smaps("/proc/self/smaps");
  const auto wanted = reinterpret_cast<uintptr_t>(address);
  std::string line;
  bool inside = false;
  while (std::getline(smaps, line)) {
    uintptr_t from = 0;
    uintptr_t to = 0;
    char dash = 0;
    std::istringstream range(line);
    if (range >> std::hex >> from >> dash >> to && dash == '-') {
      inside = from <= wanted && wanted < to;
      continue;
    }
    if (inside && line.rfind("AnonHugePages:", 0) == 0) return std::stol(line.substr(14));
  }
  return -1;
}

TEST_F(XmlHeapTest, ALargeHeapTakesHugePagesWhileTheKernelHasThemFree) {
  std::ifstream enabled("/sys/kernel/mm/transparent_hugepage/enabled");
  std::string modes((std::istreambuf_iterator<char>(enabled)), std::istreambuf_iterator<char>());
  std::ifstream buddy("/proc/buddyinfo");
  std::string free((std::istreambuf_iterator<char>(buddy)), std::istreambuf_iterator<char>());
  if (modes.empty() || modes.find("[never]") != std::string::npos || XmlHeap::FreeHugePages(free) < 512) {
    GTEST_SKIP() << "this kernel has no huge pages to spare";
  }
  std::vector<void*> blocks;
  for (size_t i = 0; i < 800000; ++i) {  // 96 MB
    blocks.push_back(XmlHeap::Allocate(120));
    std::memset(blocks.back(), 1, 120);
  }
  EXPECT_GT(HugePagesKbAt(blocks.back()), 0) << "the heap's writable range has no huge page";
  for (void* block : blocks) XmlHeap::Free(block);
}

// Under a limit of address space a process that takes the heap up still
// has room for everything else: a test process run again under a limit of
// 4 GB makes its heap and then asks malloc for half of the limit.
TEST(XmlHeapLimitTest, AProcessWithLimitedAddressSpaceKeepsRoomForMalloc) {
  if (!kHeapInThisBuild) GTEST_SKIP() << "libxml2 uses the C library's allocator in this build";
  if (std::getenv("TESSEL_HEAP_LIMIT_CHILD") != nullptr) {
    XMLWrapper wrapper;  // makes the heap under the limit
    void* half = std::malloc(size_t{2} << 30);
    std::_Exit(half != nullptr ? 0 : 3);
  }
  pid_t child = fork();
  if (child == 0) {
    rlimit limit{size_t{4} << 30, size_t{4} << 30};
    ::setrlimit(RLIMIT_AS, &limit);
    ::setenv("TESSEL_HEAP_LIMIT_CHILD", "1", 1);
    ::execl("/proc/self/exe", "test_store", "--gtest_filter=XmlHeapLimitTest.*", static_cast<char*>(nullptr));
    std::_Exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

// A thread that ends hands its blocks back: a long series of short-lived
// threads does not make the heap grow without bound.
TEST_F(XmlHeapTest, EndedThreadsHandTheirBlocksBack) {
  auto churn = [] {
    std::vector<void*> blocks;
    for (int i = 0; i < 3000; ++i) blocks.push_back(XmlHeap::Allocate(120));
    for (void* block : blocks) XmlHeap::Free(block);
  };
  std::thread(churn).join();
  const size_t before = XmlHeap::CurrentUsage().spanBytes;
  for (int i = 0; i < 50; ++i) std::thread(churn).join();
  EXPECT_LE(XmlHeap::CurrentUsage().spanBytes, before + (size_t{1} << 20));
}

}  // namespace
}  // namespace tessel
