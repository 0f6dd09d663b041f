// The books over memory, and the debugger hook.
#include "hostmemory.h"

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
