// Where heap pages come from and where they go.
#include "pageregions.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <vector>

namespace {

constexpr uint64_t regionBytes = PageRegions::regionBytes;
constexpr uint64_t pagesPerRegion = PageRegions::pagesPerRegion;

class PageRegionsTest : public ::testing::Test {
 protected:
  // `count` pages under account 7.
  std::vector<void*> takePages(uint64_t count) {
    std::vector<void*> pages;
    for (uint64_t i = 0; i < count; ++i) pages.push_back(regions.take(7));
    return pages;
  }
  std::vector<void*> fillRegions(uint64_t count) { return takePages(count * pagesPerRegion); }

  void giveBack(const std::vector<void*>& pages) {
    for (void* page : pages) EXPECT_EQ(regions.giveBack(page), 7u);
  }

  uint64_t reserved() const { return regions.reservedBytes() / regionBytes; }

  PageRegions regions;
};

uint64_t regionOf(void* page) { return reinterpret_cast<uint64_t>(page) / regionBytes; }

// Whether the system's page that `page` begins in is there.
bool isMapped(void* page) {
  const uint64_t address = reinterpret_cast<uint64_t>(page);
  return msync(reinterpret_cast<void*>(address - address % 4096), 4096, MS_ASYNC) == 0;
}

TEST_F(PageRegionsTest, NothingIsReservedBeforeTheFirstPage) { EXPECT_EQ(regions.reservedBytes(), 0u); }

TEST_F(PageRegionsTest, PagesAreAlignedAndApart) {
  const std::vector<void*> pages = takePages(2 * pagesPerRegion + 1);
  for (void* page : pages) EXPECT_EQ(reinterpret_cast<uint64_t>(page) % 64, 0u);
  std::vector<void*> sorted = pages;
  std::sort(sorted.begin(), sorted.end());
  for (size_t i = 1; i < sorted.size(); ++i) {
    EXPECT_GE(static_cast<char*>(sorted[i]) - static_cast<char*>(sorted[i - 1]), BM_PAGE_SIZE);
  }
  EXPECT_EQ(reserved(), 3u);
}

TEST_F(PageRegionsTest, TheHeadsOfPagesLieInAllSetsOfACacheAlike) {
  std::set<uint64_t> sets;  // of 64 sets of 64-byte lines
  for (void* page : takePages(64)) sets.insert(reinterpret_cast<uint64_t>(page) / 64 % 64);
  EXPECT_EQ(sets.size(), 64u);
}

TEST_F(PageRegionsTest, EveryByteOfAPageIsTheCallers) {
  const std::vector<void*> pages = takePages(pagesPerRegion + 3);
  for (size_t i = 0; i < pages.size(); i += 50) std::memset(pages[i], static_cast<int>(i / 50), BM_PAGE_SIZE);
  for (size_t i = 0; i < pages.size(); i += 50) {
    const auto* bytes = static_cast<const unsigned char*>(pages[i]);
    EXPECT_TRUE(std::all_of(bytes, bytes + BM_PAGE_SIZE, [i](unsigned char byte) { return byte == i / 50; }));
  }
  giveBack(pages);
}

TEST_F(PageRegionsTest, EveryPageKeepsItsAccount) {
  constexpr uint32_t last = PageRegions::accountLimit - 1;
  void* first = regions.take(0);
  void* second = regions.take(last);
  EXPECT_EQ(regions.giveBack(first), 0u);
  EXPECT_EQ(regions.take(5), first);
  EXPECT_EQ(regions.giveBack(second), last);
  EXPECT_EQ(regions.giveBack(first), 5u);
}

TEST_F(PageRegionsTest, ThePageThatCameBackLastIsTheNext) {
  const std::vector<void*> pages = fillRegions(3);
  void* const picks[] = {pages[5], pages[pagesPerRegion + 5], pages[2 * pagesPerRegion + 5], pages[17]};
  for (void* page : picks) {
    regions.giveBack(page);
    EXPECT_EQ(regions.take(7), page);
  }
  for (void* page : picks) regions.giveBack(page);
  EXPECT_EQ(regions.take(7), picks[3]);
}

TEST_F(PageRegionsTest, UsedPagesComeBeforeFreshOnes) {
  std::vector<void*> pages = takePages(pagesPerRegion + 10);
  std::shuffle(pages.begin(), pages.end(), std::mt19937_64(1));
  std::vector<void*> back(pages.begin(), pages.begin() + 500);
  giveBack(back);
  std::vector<void*> again = takePages(back.size());
  std::sort(back.begin(), back.end());
  std::sort(again.begin(), again.end());
  EXPECT_EQ(back, again);
}

TEST_F(PageRegionsTest, APageHandedOutAgainHoldsItsOldBytes) {
  auto* page = static_cast<unsigned char*>(regions.take(7));
  std::memset(page, 0xA7, BM_PAGE_SIZE);
  regions.giveBack(page);
  ASSERT_EQ(regions.take(7), page);
  EXPECT_TRUE(std::all_of(page, page + BM_PAGE_SIZE, [](unsigned char byte) { return byte == 0xA7; }));
}

TEST_F(PageRegionsTest, TwoIdleRegionsStayAndTheOthersGoBack) {
  const std::vector<void*> pages = fillRegions(5);
  EXPECT_EQ(reserved(), 5u);
  giveBack(pages);
  EXPECT_EQ(reserved(), 2u);
  fillRegions(2);
  EXPECT_EQ(reserved(), 2u);
}

TEST_F(PageRegionsTest, AQuarterOfWhatIsInUseStaysIdle) {
  const std::vector<void*> pages = fillRegions(20);
  auto give = [&](size_t first, size_t end) {
    giveBack({pages.begin() + static_cast<long>(first * pagesPerRegion),
              pages.begin() + static_cast<long>(end * pagesPerRegion)});
  };
  give(0, 4);  // 16 in use
  EXPECT_EQ(reserved(), 20u);
  give(4, 5);  // 15 in use allow for 3 idle ones
  EXPECT_EQ(reserved(), 18u);
  give(5, 19);
  EXPECT_EQ(reserved(), 3u);
  give(19, 20);
  EXPECT_EQ(reserved(), 2u);
}

TEST_F(PageRegionsTest, OnePageInUseHoldsItsRegion) {
  std::vector<void*> pages = fillRegions(6);
  void* const held = pages[3 * pagesPerRegion + 700];
  pages.erase(pages.begin() + 3 * pagesPerRegion + 700);
  giveBack(pages);
  EXPECT_EQ(reserved(), 3u);
  EXPECT_TRUE(isMapped(held));
  regions.giveBack(held);
  EXPECT_EQ(reserved(), 2u);
}

TEST_F(PageRegionsTest, IdleMemoryStaysAsTold) {
  regions.keepIdle(~uint64_t{0});
  giveBack(fillRegions(6));
  EXPECT_EQ(reserved(), 6u);
  regions.keepIdle(4 * regionBytes - 1);
  EXPECT_EQ(reserved(), 3u);
  regions.keepIdle(0);
  EXPECT_EQ(reserved(), 0u);
  void* page = regions.take(7);
  EXPECT_EQ(reserved(), 1u);
  regions.giveBack(page);
  EXPECT_EQ(reserved(), 0u);
}

TEST_F(PageRegionsTest, ReturnedRegionsAreUnmapped) {
  regions.keepIdle(0);
  const std::vector<void*> pages = fillRegions(2);
  ASSERT_NE(regionOf(pages.front()), regionOf(pages.back()));
  giveBack({pages.begin(), pages.begin() + pagesPerRegion});
  EXPECT_FALSE(isMapped(pages.front()));
  EXPECT_TRUE(isMapped(pages.back()));
}

TEST_F(PageRegionsTest, RandomTakingAndGivingKeepsPagesAndAccountsApart) {
  const char* const wanted = std::getenv("BMTREE_SEED");
  const uint64_t seed = wanted != nullptr ? std::strtoull(wanted, nullptr, 0) : std::random_device{}();
  std::printf("BMTREE_SEED=%lu\n", seed);
  std::mt19937_64 random(seed);
  struct Taken {
    uint32_t* page;
    uint32_t account;
  };
  std::vector<Taken> taken;
  regions.keepIdle(0);
  for (uint64_t step = 0; step < 60000; ++step) {
    const bool grows = step / 10000 % 2 == 0;
    if (taken.empty() || random() % 8 < (grows ? 6 : 2)) {
      const auto account = static_cast<uint32_t>(random() % PageRegions::accountLimit);
      auto* page = static_cast<uint32_t*>(regions.take(account));
      page[0] = page[BM_PAGE_SIZE / 4 - 1] = account;
      taken.push_back({page, account});
    } else {
      std::swap(taken[random() % taken.size()], taken.back());
      const auto [page, account] = taken.back();
      taken.pop_back();
      ASSERT_EQ(page[0], account);
      ASSERT_EQ(page[BM_PAGE_SIZE / 4 - 1], account);
      ASSERT_EQ(regions.giveBack(page), account);
    }
  }
  for (const auto& [page, account] : taken) ASSERT_EQ(regions.giveBack(page), account);
  EXPECT_EQ(reserved(), 0u);
}

using PageRegionsDeathTest = PageRegionsTest;

TEST_F(PageRegionsDeathTest, APageGivenBackTwiceEndsTheProgram) {
  void* page = regions.take(7);
  regions.take(7);
  regions.giveBack(page);
  EXPECT_DEATH(regions.giveBack(page), "is given back but not in use");
}

#if defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZER
#endif
#endif

#ifdef ADDRESS_SANITIZER
TEST_F(PageRegionsDeathTest, TheSanitizerFindsTheUseOfFreePages) {
  auto* page = static_cast<volatile char*>(regions.take(7));
  page[BM_PAGE_SIZE - 1] = 1;
  EXPECT_DEATH(page[BM_PAGE_SIZE] = 1, "use-after-poison");  // never handed out
  regions.giveBack(const_cast<char*>(page));
  EXPECT_DEATH(page[BM_PAGE_SIZE - 1] = 1, "use-after-poison");
}
#endif

}  // namespace
