// The word operations of the imports' headers.
#include <gtest/gtest.h>

#include <vector>

#include "hostlayer.h"
#include "support/treemodel.h"
#include "utl.h"

namespace {

TEST(WordsTest, FFS8GivesTheIndexOfTheLowestSetBit) {
  for (int bit = 0; bit < 64; ++bit) {
    EXPECT_EQ(HostAsmFFS8(uint64_t{1} << bit), bit);
    EXPECT_EQ(HostAsmFFS8(~uint64_t{0} << bit), bit);
  }
}

TEST(WordsTest, MemcpySmallWordsCopiesExactlyTheWordsAskedFor) {
  for (size_t words = 0; words <= 40; ++words) {
    std::vector<uint64_t> source(words), target(words + 2, 99);
    for (size_t i = 0; i < words; ++i) source[i] = 1000 + i;
    HostAsmMemcpySmallWords(target.data() + 1, source.data(), words);
    EXPECT_EQ(target.front(), 99u);
    EXPECT_EQ(target.back(), 99u);
    EXPECT_EQ(std::vector<uint64_t>(target.begin() + 1, target.end() - 1), source);
  }
}

TEST(WordsTest, SwapReversesTheBytes) {
  EXPECT_EQ(HostAsmSwapInt(0x01020304), 0x04030201u);
  EXPECT_EQ(HostAsmSwapUInt64(0x0102030405060708), 0x0807060504030201u);
}

// ---------------------------------------------------------------------------------------------------------
// The first clear bit

// The same bit by bit.
unsigned firstClear(const std::vector<uint64_t>& words, unsigned start, unsigned limit) {
  for (unsigned bit = start; bit < limit; ++bit) {
    if ((words[bit / 64] >> (bit % 64) & 1) == 0) return bit;
  }
  return limit;
}

// A result of `limit` or above means that there is none below the limit.
void expectFirstClear(const std::vector<uint64_t>& words, unsigned start, unsigned limit) {
  const unsigned expected = firstClear(words, start, limit);
  const unsigned found = UtlFindFirstBitClear(words.data(), start, limit);
  EXPECT_EQ(found < limit ? found : limit, expected) << "from " << start << " below " << limit;
}

TEST(FindFirstBitClearTest, FindsEveryPositionInTwoWords) {
  for (unsigned clear = 0; clear < 128; ++clear) {
    std::vector<uint64_t> words(2, ~uint64_t{0});
    words[clear / 64] ^= uint64_t{1} << (clear % 64);
    for (unsigned start = 0; start < 128; ++start) expectFirstClear(words, start, 128);
  }
}

TEST(FindFirstBitClearTest, NoClearBitBelowTheLimitGivesTheLimitOrMore) {
  const std::vector<uint64_t> full(3, ~uint64_t{0});
  for (const unsigned limit : {1u, 63u, 64u, 65u, 128u, 190u, 192u}) {
    for (const unsigned start : {0u, limit / 2, limit - 1}) {
      EXPECT_GE(UtlFindFirstBitClear(full.data(), start, limit), limit);
    }
  }
}

TEST(FindFirstBitClearTest, AStartAtOrAboveTheLimitReadsNothing) {
  EXPECT_GE(UtlFindFirstBitClear(nullptr, 0, 0), 0u);
  EXPECT_GE(UtlFindFirstBitClear(nullptr, 5, 5), 5u);
  EXPECT_GE(UtlFindFirstBitClear(nullptr, 130752, 130752), 130752u);
  EXPECT_GE(UtlFindFirstBitClear(nullptr, 70, 64), 64u);
}

TEST(FindFirstBitClearTest, NoWordBehindTheLimitIsRead) {
  const auto words = std::make_unique<uint64_t[]>(1);  // the sanitizer guards what follows
  words[0] = ~uint64_t{0};
  EXPECT_GE(UtlFindFirstBitClear(words.get(), 0, 64), 64u);
  EXPECT_GE(UtlFindFirstBitClear(words.get(), 63, 64), 64u);
}

TEST(FindFirstBitClearTest, FindsTheLastBitOfADenseLeaf) {
  std::vector<uint64_t> words(2043, ~uint64_t{0});
  words.back() = ~uint64_t{0} >> 1;
  EXPECT_EQ(UtlFindFirstBitClear(words.data(), 0, 130752), 130751u);
  EXPECT_EQ(UtlFindFirstBitClear(words.data(), 130751, 130752), 130751u);
  EXPECT_GE(UtlFindFirstBitClear(words.data(), 0, 130751), 130751u);
}

TEST(FindFirstBitClearTest, AgreesWithABitByBitSearchOnRandomWords) {
  Random random(testSeed());
  for (int round = 0; round < 20000; ++round) {
    std::vector<uint64_t> words(1 + random.below(6));
    for (uint64_t& word : words) word = random.oneIn(3) ? random.next() | random.next() : ~uint64_t{0};
    const auto limit = static_cast<unsigned>(random.below(64 * words.size() + 1));
    expectFirstClear(words, static_cast<unsigned>(random.below(limit + 1)), limit);
  }
}

}  // namespace
