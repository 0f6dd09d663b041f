// Ascending numbers of one span as words, with wide vectors and without, against setting bit after bit.
#include "words/gatherwords.h"

#include <algorithm>

#include "support/treemodel.h"

namespace {

using Words = std::vector<uint64_t>;

constexpr unsigned long base = 11 * BM_LEAF_BITS;

// Gathers `numbers` and compares with a loop that ends at the first one that does not ascend or lies elsewhere.
void expectGathered(const Words& numbers) {
  Words expected(BM_BIT_LIST_CAPACITY);
  size_t taken = 0;
  for (; taken < numbers.size(); ++taken) {
    const uint64_t position = numbers[taken] - base;
    if (position >= BM_LEAF_BITS || (taken > 0 && numbers[taken] <= numbers[taken - 1])) break;
    expected[position >> 6] |= uint64_t{1} << (position & 63);
  }
  for (const auto gather : {gatherWords, gatherWordsPlain}) {
    Words words(BM_BIT_LIST_CAPACITY);
    const uint64_t* stop = gather(numbers.data(), numbers.data() + numbers.size(), base, words.data());
    EXPECT_EQ(stop - numbers.data(), static_cast<ptrdiff_t>(taken));
    EXPECT_EQ(words, expected);
  }
}

Words runOf(uint64_t first, uint64_t count) {
  Words numbers(count);
  for (uint64_t i = 0; i < count; ++i) numbers[i] = first + i;
  return numbers;
}

TEST(GatherWordsTest, RunsThatBeginAndEndAnywhereInAWord) {
  for (const uint64_t first : {0, 1, 31, 63, 64, 130000}) {
    for (const uint64_t count : {1, 2, 63, 64, 65, 127, 128, 129, 700}) expectGathered(runOf(base + first, count));
  }
}

TEST(GatherWordsTest, AWholeSpanAndWhatFollowsIt) {
  expectGathered(runOf(base, BM_LEAF_BITS));
  expectGathered(runOf(base, BM_LEAF_BITS + 1000));
  expectGathered(runOf(base + BM_LEAF_BITS - 40, 64));
}

TEST(GatherWordsTest, NumbersThatDoNotAscendEndTheRun) {
  for (const size_t place : {1, 5, 7, 8, 9, 15, 16, 17, 63, 64, 65, 100, 199}) {
    Words numbers = runOf(base + 10, 200);
    numbers[place] = numbers[place - 1];
    expectGathered(numbers);
    numbers[place] = base;
    expectGathered(numbers);
    numbers[place] = base + BM_LEAF_BITS;  // above the span, and the next ones below it
    expectGathered(numbers);
    numbers[place] = ~uint64_t{0};
    expectGathered(numbers);
  }
}

TEST(GatherWordsTest, ARunWhoseEndsAre63ApartButIsNotConsecutive) {
  Words numbers = runOf(base, 64);
  std::swap(numbers[20], numbers[21]);
  expectGathered(numbers);
}

TEST(GatherWordsTest, RandomNumbersOfEveryDensity) {
  Random random(testSeed());
  for (int round = 0; round < 200; ++round) {
    const uint64_t oneIn = 1 + random.below(random.oneIn(2) ? 3 : 200);
    Words numbers;
    for (uint64_t i = 0; i < BM_LEAF_BITS; ++i) {
      if (oneIn == 1 ? !random.oneIn(100) : random.oneIn(oneIn)) numbers.push_back(base + i);
    }
    numbers.push_back(base + BM_LEAF_BITS + random.below(1000));
    expectGathered(numbers);
  }
}

}  // namespace
