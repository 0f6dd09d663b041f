// Bounded memory: private pages spill, and come back as they were.
#include <fstream>

#include "privatepages.h"
#include "storefixture.h"

namespace bmtree::test {
namespace {

constexpr uint64_t span = 130752;

class MemoryTest : public StoreTest {};

// Private resident memory of this process, in bytes: the memory map of a file does not count.
uint64_t privateMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    uint64_t kib = 0;
    if (word == "RssAnon:" && status >> kib) return kib << 10;
  }
  return 0;
}

TEST_F(MemoryTest, SpilledPagesComeBackAsTheyWere) {
  PrivatePages pages(4, 0, SpillFile(path().parent_path(), false));
  constexpr uint64_t count = 5000;
  for (uint64_t i = 0; i < count; ++i) {
    PageFrame* frame = pages.create();
    ASSERT_EQ(frame->id, 4 + i);
    frame->bytes[100] = static_cast<std::byte>(i * 7);
    frame->bytes[101] = static_cast<std::byte>(i >> 8);
  }
  EXPECT_LE(pages.memoryUsed(), PrivatePages::leastMemory);
  std::mt19937_64 random(testSeed());
  std::vector<int> added(count);
  for (int i = 0; i < 20000; ++i) {
    const uint64_t slot = random() % count;
    PageFrame* frame = pages.locate(4 + slot);
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(frame->bytes[101], static_cast<std::byte>(slot >> 8));
    ASSERT_EQ(frame->bytes[100], static_cast<std::byte>(slot * 7 + static_cast<uint64_t>(added[slot])));
    if (i % 3 == 0) {
      frame->bytes[100] = static_cast<std::byte>(slot * 7 + static_cast<uint64_t>(++added[slot]));
      frame->changed = true;
    }
  }
  EXPECT_LE(pages.memoryUsed(), PrivatePages::leastMemory);
}

TEST_F(MemoryTest, PinnedAndRecentlyLocatedPagesStayAtTheirAddress) {
  PrivatePages pages(4, 0, SpillFile(path().parent_path(), false));
  PageFrame* pinned = pages.create();
  ++pinned->pins;
  std::vector<PageFrame*> recent;
  for (int i = 0; i < 5000; ++i) {
    recent.push_back(pages.create());
    if (recent.size() > 200) recent.erase(recent.begin());
    ASSERT_EQ(recent.front()->id + recent.size() - 1, recent.back()->id);
  }
  EXPECT_EQ(pinned->id, 4u);
  EXPECT_EQ(pages.locate(4), pinned);
}

TEST_F(MemoryTest, DisposedPagesAreGoneWhetherSpilledOrNot) {
  PrivatePages pages(4, 0, SpillFile(path().parent_path(), false));
  for (int i = 0; i < 3000; ++i) pages.create();
  for (uint64_t id = 4; id < 3004; id += 2) EXPECT_TRUE(pages.dispose(id));
  for (uint64_t id = 4; id < 3004; ++id) EXPECT_EQ(pages.locate(id) != nullptr, id % 2 == 1);
  EXPECT_FALSE(pages.dispose(4));
  EXPECT_FALSE(pages.dispose(3));
  EXPECT_FALSE(pages.dispose(99999));
}

TEST_F(MemoryTest, ALoadOfTenTimesTheLimitStaysWithinItAndIsStoredWhole) {
  constexpr uint64_t limit = PrivatePages::leastMemory;
  constexpr uint64_t spans = 10 * limit / 16384;
  const uint64_t before = privateMemory();
  uint64_t most = before;
  Store store = make({.memoryLimit = limit});
  {
    Writer writer = store.beginWrite();
    Tree tree = writer.create("large");
    Tree temporary = writer.temporary();
    for (uint64_t i = 0; i < spans; i += 256) {
      tree.setRange(i * span, (i + 256) * span - 2);
      temporary.setRange(i * span + span / 2, i * span + span);
      most = std::max(most, privateMemory());
    }
    EXPECT_EQ(tree.subtract(temporary), spans / 256 * (span / 2 + 1));
    most = std::max(most, privateMemory());
    writer.commit();
    most = std::max(most, privateMemory());
  }
  EXPECT_EQ(store.beginRead().tree("large").count(), spans * span - spans / 256 * (span / 2 + 2));
  expectSound(store);
  store.compactTo(path("compact"));
  most = std::max(most, privateMemory());
  if (!sanitized) {
    EXPECT_LT(most - before, limit + (uint64_t{100} << 20));
  }
}

}  // namespace
}  // namespace bmtree::test
