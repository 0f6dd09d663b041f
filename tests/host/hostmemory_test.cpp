// The books over memory, and the debugger hook.
#include "hostmemory.h"

#include <sys/resource.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

#include "host/hostfixture.h"
#include "hostdebugger.h"
#include "utl.h"

namespace {

using HostMemoryTest = HostTest;

std::string printedUse() {
  ::testing::internal::CaptureStdout();
  HostPrintMemoryInUse(stdout);
  return ::testing::internal::GetCapturedStdout();
}

TEST_F(HostMemoryTest, NothingIsInUseAtFirst) {
  EXPECT_EQ(printedUse(), "");
  EXPECT_TRUE(HostMemoryInUse().empty());
}

TEST_F(HostMemoryTest, UseIsKeptByTagAndByLabel) {
  void* blocks[] = {UtlMallocF(16384, 4433, 0), UtlMallocF(16384, 4433, 0), UtlMallocF(16384, -1, 0),
                    UtlMalloc(24, "second"), UtlMalloc(8, "first")};
  EXPECT_EQ(printedUse(),
            "tag -1: 1 block, 16384 bytes\ntag 4433: 2 blocks, 32768 bytes\nfirst: 1 block, 8 bytes\n"
            "second: 1 block, 24 bytes\n");
  const std::vector<HostMemoryUse> use = HostMemoryInUse();
  ASSERT_EQ(use.size(), 4U);
  EXPECT_TRUE(use[1].isTag);
  EXPECT_EQ(use[1].tag, 4433);
  EXPECT_EQ(use[1].blocks, 2U);
  EXPECT_EQ(use[2].label, "first");
  for (void* block : blocks) UtlFree(block);
  EXPECT_EQ(printedUse(), "");
}

TEST_F(HostMemoryTest, PagesAndBlocksFreedInAnyOrderLeaveExactBooks) {
  constexpr int each = 3000;
  std::vector<void*> memory;
  for (int i = 0; i < each; ++i) {
    memory.push_back(UtlMallocF(16384, i % 3, 0));
    memory.push_back(UtlMallocF(16383 + 2UL * static_cast<unsigned long>(i % 2), 3, 0));
    memory.push_back(UtlMalloc(16384, "like a page"));
    memory.push_back(UtlMalloc(static_cast<unsigned long>(i), "buffer"));
  }
  EXPECT_EQ(printedUse(),
            "tag 0: 1000 blocks, 16384000 bytes\ntag 1: 1000 blocks, 16384000 bytes\n"
            "tag 2: 1000 blocks, 16384000 bytes\ntag 3: 3000 blocks, 49152000 bytes\n"
            "buffer: 3000 blocks, 4498500 bytes\nlike a page: 3000 blocks, 49152000 bytes\n");
  std::shuffle(memory.begin(), memory.end(), std::mt19937_64(1));
  for (void* block : memory) UtlFree(block);
  EXPECT_TRUE(HostMemoryInUse().empty());
}

TEST_F(HostMemoryTest, OnlyPagesHaveAddressesOfPages) {
  std::vector<void*> blocks;
  for (int i = 0; i < 2000; ++i) blocks.push_back(UtlMalloc(16384 - 16, "block"));
  blocks.push_back(UtlMalloc(64UL << 20, "large block"));
  for (void* block : blocks) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 32, 16U);
    UtlFree(block);
  }
  void* page = UtlMallocF(16384, 1, 0);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(page) % 32, 0U);
  UtlFree(page);
}

TEST_F(HostMemoryTest, AFreedPageIsUsedAgainUnderItsNewTag) {
  void* page = UtlMallocF(16384, 4433, 0);
  UtlFree(page);
  EXPECT_EQ(UtlMallocF(16384, 4434, 0), page);
  EXPECT_EQ(printedUse(), "tag 4434: 1 block, 16384 bytes\n");
  UtlFree(page);
}

TEST_F(HostMemoryTest, BlocksAreAlignedAndWritable) {
  for (const unsigned long size : {0UL, 1UL, 7UL, 16384UL}) {
    auto* block = static_cast<unsigned char*>(UtlMalloc(size, "block"));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0U);
    std::fill_n(block, size, 0xFF);
    UtlFree(block);
  }
  UtlFree(nullptr);
}

TEST_F(HostMemoryTest, AForgottenTreeShowsUpUnderItsTag) {
  RepTreeRootSType root;
  BmInitHeapTree(&root, 1887, "forgotten");
  BmSetBit(&pc, &root, 5);
  EXPECT_EQ(printedUse(), "tag 1887: 1 block, 16384 bytes\n");
  BmDisposeTree(&pc, &root);
}

TEST_F(HostMemoryTest, ThreadsShareTheBooks) {
  std::vector<std::thread> threads;
  for (int tag = 0; tag < 4; ++tag) {
    threads.emplace_back([tag] {
      for (int i = 0; i < 2000; ++i) UtlFree(UtlMallocF(64, tag, 0));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(HostMemoryInUse().empty());
}

TEST_F(HostMemoryTest, PagesOfManyThreadsAreTheirsAloneAndCounted) {
  constexpr size_t each = 1500;
  std::vector<std::vector<uint64_t*>> pages(4);
  std::vector<std::thread> threads;
  for (size_t thread = 0; thread < pages.size(); ++thread) {
    threads.emplace_back([&mine = pages[thread], thread] {
      for (uint64_t i = 0; i < 4 * each; ++i) {
        auto* page = static_cast<uint64_t*>(UtlMallocF(16384, static_cast<int>(thread), 0));
        page[0] = page[2047] = thread;
        mine.push_back(page);
        if (i % 4 == 0) continue;
        EXPECT_EQ(mine.front()[0], thread);
        EXPECT_EQ(mine.front()[2047], thread);
        UtlFree(mine.front());
        std::swap(mine.front(), mine.back());
        mine.pop_back();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::vector<HostMemoryUse> use = HostMemoryInUse();
  ASSERT_EQ(use.size(), pages.size());
  for (size_t thread = 0; thread < pages.size(); ++thread) {
    EXPECT_EQ(use[thread].blocks, each);
    EXPECT_EQ(use[thread].bytes, each * 16384);
    for (uint64_t* page : pages[thread]) {
      EXPECT_EQ(page[2047], thread);
      UtlFree(page);  // not by the thread that took it
    }
  }
}

TEST_F(HostMemoryTest, ALargeTreeGivesItsPagesBack) {
  RepTreeRootSType root;
  BmInitHeapTree(&root, 1887, "large");
  for (unsigned long round = 0; round < 2; ++round) {
    BmSetBitRange_(&pc, &root, 0, 500'000'000UL);
    uint64_t bytes = 0;
    for (const HostMemoryUse& use : HostMemoryInUse()) bytes += use.bytes;
    EXPECT_EQ(bytes, static_cast<uint64_t>(stats.numHeapBmPages) * BM_PAGE_SIZE);
    EXPECT_GT(bytes, 500'000'000UL / 8);
    BmDisposeTree(&pc, &root);
    EXPECT_TRUE(HostMemoryInUse().empty());
  }
}

using HostMemoryDeathTest = HostMemoryTest;

TEST_F(HostMemoryDeathTest, ABufferOfAllMemoryEndsTheProgram) {
  EXPECT_DEATH(UtlMalloc(~0UL, "too much"), "out of memory: 18446744073709551615 bytes for too much, tag 0");
}

TEST_F(HostMemoryDeathTest, PagesWithoutMemoryEndTheProgram) {
  EXPECT_DEATH(
      {
        rlimit nothing{};
        setrlimit(RLIMIT_AS, &nothing);
        for (;;) UtlMallocF(16384, 4433, 0);
      },
      "out of memory: 16384 bytes for a page, tag 4433");
}

// ---------------------------------------------------------------------------------------------------------
// The debugger hook

struct Called {
  int times = 0;
  std::string text;
  std::string file;
  int line = 0;
};

int noteCall(void* context, const char* text, const char* file, int line) {
  auto* called = static_cast<Called*>(context);
  *called = {called->times + 1, text, file, line};
  return 77;
}

TEST(HostDebuggerTest, AReportIsPrintedAndTheModuleGoesOn) {
  const unsigned long before = HostDebuggerReports();
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(UTL_GUARANTEE(false, "bitmap", 1904));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "UTL_GUARANTEE failed, bitmap line 1904\n");
  EXPECT_EQ(HostDebuggerReports(), before + 1);
  EXPECT_TRUE(UTL_GUARANTEE(true, "bitmap", 1904));
  EXPECT_EQ(HostDebuggerReports(), before + 1);
}

TEST(HostDebuggerTest, TheProgramIsAskedIfItWants) {
  Called called;
  HostSetDebugger(HostDebuggerAction::callBack, noteCall, &called);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(HostCallDebuggerMsg_fl("text", "file", 3), 77);
  HostCallDebuggerMsg_fl("again", "other", 4);
  ::testing::internal::GetCapturedStderr();
  HostSetDebugger(HostDebuggerAction::goOn);
  EXPECT_EQ(called.times, 2);
  EXPECT_EQ(called.text, "again");
  EXPECT_EQ(called.file, "other");
  EXPECT_EQ(called.line, 4);
}

TEST(HostDebuggerTest, ACallBackWithoutAFunctionGoesOn) {
  HostSetDebugger(HostDebuggerAction::callBack);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(HostCallDebuggerMsg_fl("text", nullptr, 0), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "text, ? line 0\n");
  HostSetDebugger(HostDebuggerAction::goOn);
}

TEST(HostDebuggerDeathTest, AProgramThatWantsToStopStops) {
  EXPECT_DEATH(
      {
        HostSetDebugger(HostDebuggerAction::stop);
        HostCallDebuggerMsg_fl("a fault", "bitmap", 5);
      },
      "a fault, bitmap line 5");
}

}  // namespace
