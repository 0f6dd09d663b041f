#include "words/densewords.h"

#include <gtest/gtest.h>

#include <bit>
#include <functional>
#include <vector>

#include "support/treemodel.h"

namespace {

using Words = std::vector<uint64_t>;

Words filled(uint64_t word) { return Words(BM_SPAN_WORDS, word); }

Words oneBit(size_t word, int bit) {
  Words words = filled(0);
  words[word] = uint64_t{1} << bit;
  return words;
}

Words randomWords(Random& random) {
  Words words = filled(0);
  for (uint64_t& word : words) word = random.oneIn(4) ? 0 : random.next() & random.next();
  return words;
}

// Patterns for either side: empty, full, halves, one bit at the ends of the three runs that the loops walk, random.
std::vector<Words> patterns() {
  Random random(testSeed());
  std::vector<Words> all = {filled(0), filled(~uint64_t{0}), filled(0x5555555555555555), randomWords(random),
                            randomWords(random)};
  for (const size_t word : {0, 680, 681, 1361, 1362, 2042}) {
    all.push_back(oneBit(word, 0));
    all.push_back(oneBit(word, 63));
  }
  return all;
}

int population(const Words& words) {
  int count = 0;
  for (const uint64_t word : words) count += std::popcount(word);
  return count;
}

Words combined(const Words& a, const Words& b, const std::function<uint64_t(uint64_t, uint64_t)>& operation) {
  Words result;
  for (size_t i = 0; i < a.size(); ++i) result.push_back(operation(a[i], b[i]));
  return result;
}

// Calls `check` with every pair of patterns and the loops for each kind of vectors that this processor has.
template <class Check>
void forAllPairs(Check check) {
  const std::vector<Words> all = patterns();
  for (const WordVectors vectors : {WordVectors::none, WordVectors::wide, WordVectors::wider}) {
    const DenseWordLoops* loops = denseWordLoops(vectors);
    if (loops == nullptr) continue;
    for (const Words& a : all) {
      for (const Words& b : all) check(*loops, a, b);
    }
  }
}

uint64_t onlyInFirst(uint64_t a, uint64_t b) { return a & ~b; }

TEST(DenseWordsTest, OrSetsTheSourcesBitsAndCountsTheNewOnes) {
  forAllPairs([](const DenseWordLoops& loops, const Words& a, const Words& b) {
    Words target = a;
    EXPECT_EQ(loops.orWords(target.data(), b.data()), population(combined(b, a, onlyInFirst)));
    EXPECT_EQ(target, combined(a, b, std::bit_or<uint64_t>()));
  });
}

TEST(DenseWordsTest, ClearTakesTheSourcesBitsAwayAndCountsThoseThatWent) {
  forAllPairs([](const DenseWordLoops& loops, const Words& a, const Words& b) {
    Words target = a;
    EXPECT_EQ(loops.clearWords(target.data(), b.data()), population(combined(a, b, std::bit_and<uint64_t>())));
    EXPECT_EQ(target, combined(a, b, onlyInFirst));
  });
}

TEST(DenseWordsTest, AndWritesWhatIsSharedAndCountsIt) {
  forAllPairs([](const DenseWordLoops& loops, const Words& a, const Words& b) {
    Words out = filled(7);
    const Words expected = combined(a, b, std::bit_and<uint64_t>());
    EXPECT_EQ(loops.andWords(out.data(), a.data(), b.data()), population(expected));
    EXPECT_EQ(out, expected);
  });
}

TEST(DenseWordsTest, AndNotWritesWhatOnlyTheFirstHasAndCountsIt) {
  forAllPairs([](const DenseWordLoops& loops, const Words& a, const Words& b) {
    Words out = filled(7);
    const Words expected = combined(a, b, onlyInFirst);
    EXPECT_EQ(loops.andNotWords(out.data(), a.data(), b.data()), population(expected));
    EXPECT_EQ(out, expected);
  });
}

TEST(DenseWordsTest, TheOperationsThemselvesUseTheLoopsOfThisProcessor) {
  Random random(testSeed());
  const Words a = randomWords(random);
  const Words b = randomWords(random);
  Words target = a;
  EXPECT_EQ(orWords(target.data(), b.data()), population(combined(b, a, onlyInFirst)));
  EXPECT_EQ(clearWords(target.data(), b.data()), population(b));
  EXPECT_EQ(target, combined(a, b, onlyInFirst));
  EXPECT_EQ(andNotWords(target.data(), a.data(), b.data()), population(combined(a, b, onlyInFirst)));
  EXPECT_EQ(andWords(target.data(), a.data(), b.data()), population(combined(a, b, std::bit_and<uint64_t>())));
  EXPECT_EQ(target, combined(a, b, std::bit_and<uint64_t>()));
}

}  // namespace
