// The search of ascending words, against counting them one by one.
#include "tree/search.h"

#include "support/treemodel.h"

namespace {

constexpr uint64_t all = ~uint64_t{0};
constexpr uint64_t untagged = ~uint64_t{1};

using Words = std::vector<uint64_t>;

template <uint64_t mask, bool inclusive>
void expectSameAsCounting(const Words& words, uint64_t bound) {
  const auto comes = [&](uint64_t word) { return inclusive ? (word & mask) <= bound : (word & mask) < bound; };
  const auto expected = std::count_if(words.begin(), words.end(), comes);
  const auto count = static_cast<long>(words.size());
  const long found = WordSearch<mask, inclusive>(words.data(), count, bound).firstNotBefore();
  ASSERT_EQ(found, expected) << count << " words, bound " << bound;
}

void expectAllForms(const Words& words, uint64_t bound) {
  expectSameAsCounting<all, false>(words, bound);
  expectSameAsCounting<all, true>(words, bound);
  expectSameAsCounting<untagged, true>(words, bound);
}

// Ascending words without repeats: even, in clusters, or doubling their distance, where a guess by interpolation is
// far off.
Words randomWords(Random& random, size_t count) {
  const uint64_t shape = random.below(3);
  Words words;
  uint64_t word = 2 * random.below(100);
  for (size_t i = 0; i < count; ++i) {
    words.push_back(word | random.below(2));
    uint64_t step = 1 + random.below(10);
    if (shape == 1 && random.oneIn(100)) step = random.below(uint64_t{1} << 30);
    if (shape == 2) step = 1 + (uint64_t{1} << (i * 30 / count));
    word += 2 * step;
  }
  return words;
}

TEST(WordSearchTest, NoWordsGiveZero) {
  for (const long count : {0L, -1L}) EXPECT_EQ((WordSearch<all, false>(nullptr, count, 5).firstNotBefore()), 0);
}

TEST(WordSearchTest, EveryBoundNearEveryWordOfSmallArraysIsPlacedRight) {
  Random random(testSeed());
  for (size_t count = 1; count <= 140; ++count) {
    const Words words = randomWords(random, count);
    for (const uint64_t word : words) {
      for (const uint64_t bound : {word - 1, word, word + 1}) expectAllForms(words, bound);
    }
  }
}

TEST(WordSearchTest, RandomArraysOfEveryShapeAgreeWithCounting) {
  Random random(testSeed());
  for (int round = 0; round < 200; ++round) {
    const Words words = randomWords(random, 1 + random.below(2043));
    for (int i = 0; i < 50; ++i) {
      expectAllForms(words, random.oneIn(2) ? words[random.below(words.size())] : random.below(words.back() + 3));
    }
    for (const uint64_t bound : {uint64_t{0}, words.front(), words.back(), words.back() + 1, all}) {
      expectAllForms(words, bound);
    }
  }
}

TEST(WordSearchTest, OneWordFarAboveTheOthersDoesNotMisleadTheSearch) {
  Words words;
  for (uint64_t i = 0; i < 2042; ++i) words.push_back(i);
  words.push_back(all);
  for (uint64_t bound = 0; bound < 2045; ++bound) expectAllForms(words, bound);
  expectAllForms(words, all - 1);
  expectAllForms(words, all);
}

TEST(WordSearchTest, AnUnorderedArrayIsSearchedWithinItsBounds) {
  Random random(testSeed());
  for (int round = 0; round < 2000; ++round) {
    Words words(1 + random.below(200));  // guarded by the sanitizer
    words.shrink_to_fit();
    for (uint64_t& word : words) word = random.next() >> random.below(64);
    const auto count = static_cast<long>(words.size());
    const long found = WordSearch<untagged, true>(words.data(), count, random.next()).firstNotBefore();
    EXPECT_GE(found, 0);
    EXPECT_LE(found, count);
  }
}

}  // namespace
