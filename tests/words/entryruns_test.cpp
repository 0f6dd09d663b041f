// The comparison of two ascending runs: the form for wide vectors and the plain one against the standard library.
#include "words/entryruns.h"

#include <algorithm>

#include "support/treemodel.h"

namespace {

using Words = std::vector<uint64_t>;

constexpr uint64_t untouched = 0xEEEE;

Words randomRun(Random& random, uint64_t mostWords, uint64_t end) {
  Words words(random.below(mostWords + 1));
  for (uint64_t& word : words) word = random.below(end);
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words;
}

EntryRuns runsOf(const Words& a, const Words& b) {
  return {a.data(), a.data() + a.size(), b.data(), b.data() + b.size()};
}

Words shared(const Words& a, const Words& b) {
  Words both;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
  return both;
}

void expectShared(const Words& a, const Words& b) {
  const Words expected = shared(a, b);
  for (const auto share : {shareEntries, shareEntriesPlain}) {
    Words out(expected.size() + 2, untouched);
    EntryRuns runs = runsOf(a, b);
    const uint64_t* end = share(runs, out.data());
    EXPECT_EQ(Words(out.data(), out.data() + (end - out.data())), expected);
    EXPECT_EQ(out.back(), untouched);
    EXPECT_FALSE(runs.bothLeft());
  }
  for (const auto skip : {skipToShared, skipToSharedPlain}) {
    EntryRuns runs = runsOf(a, b);
    ASSERT_EQ(skip(runs), !expected.empty());
    if (expected.empty()) continue;
    EXPECT_EQ(*runs.a, expected.front());
    EXPECT_EQ(*runs.b, expected.front());
  }
}

// What is left of `a` when the runs have been compared, up to `room` words: what was written, and behind it, if the
// room was enough, the words of `a` that `b` has come to no more.
void expectDifference(const Words& a, const Words& b, size_t room) {
  Words expected;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(expected));
  for (const auto subtract : {subtractEntries, subtractEntriesPlain}) {
    Words out(room + 2, untouched);
    EntryRuns runs = runsOf(a, b);
    const uint64_t* end = subtract(runs, out.data(), out.data() + room);
    ASSERT_LE(end, out.data() + room);
    EXPECT_EQ(out.back(), untouched);
    Words found(out.data(), out.data() + (end - out.data()));
    if (found.size() < room) {
      EXPECT_FALSE(runs.bothLeft());
      found.insert(found.end(), runs.a, runs.aEnd);
      EXPECT_EQ(found, expected);
    } else {
      EXPECT_EQ(found, Words(expected.begin(), expected.begin() + static_cast<ptrdiff_t>(room)));
    }
  }
}

void expectDifferenceInPlace(const Words& a, const Words& b) {
  Words expected;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(expected));
  for (const auto subtract : {subtractEntries, subtractEntriesPlain}) {
    Words words = a;
    EntryRuns runs = runsOf(words, b);
    uint64_t* end = subtract(runs, words.data(), words.data() + words.size());
    end = std::copy(runs.a, runs.aEnd, end);
    words.resize(static_cast<size_t>(end - words.data()));
    EXPECT_EQ(words, expected);
  }
}

void expectAll(const Words& a, const Words& b) {
  expectShared(a, b);
  expectDifference(a, b, a.size() + 1);
  expectDifferenceInPlace(a, b);
}

TEST(EntryRunsTest, EmptyRunsShareNothing) {
  expectAll({}, {});
  expectAll({1, 2, 3}, {});
  expectAll({}, {1, 2, 3});
}

TEST(EntryRunsTest, TheSameRunTwiceAtEveryLength) {
  Words words;
  for (uint64_t i = 0; i < 40; ++i) {
    expectAll(words, words);
    words.push_back(3 * i);
  }
}

TEST(EntryRunsTest, OneSharedWordAtEveryPlace) {
  Words even, odd;
  for (uint64_t i = 0; i < 40; ++i) {
    even.push_back(2 * i);
    odd.push_back(2 * i + 1);
  }
  for (size_t i = 0; i < odd.size(); ++i) {
    Words b = odd;
    b[i] = even[i];
    std::sort(b.begin(), b.end());
    expectAll(even, b);
    expectAll(b, even);
  }
}

TEST(EntryRunsTest, WordsMatchedByAnEarlierBlockStayMatchedWhenTheOtherRunEnds) {
  // the run to subtract ends in the middle of a block of the other, which has lost words to a block before
  Words a, b;
  for (uint64_t i = 0; i < 16; ++i) a.push_back(100 * i);
  for (uint64_t i = 0; i < 8; ++i) b.push_back(i < 4 ? 100 * i : 301 + i);
  b.push_back(500);
  expectAll(a, b);
  for (size_t room = 0; room < 16; ++room) expectDifference(a, b, room);
}

TEST(EntryRunsTest, WordsAbove2To63Compare) {
  const uint64_t top = ~uint64_t{0};
  expectAll({1, 5, top - 1, top}, {5, top});
}

TEST(EntryRunsTest, RandomRunsOfAllSizesAndDensities) {
  Random random(testSeed());
  for (int round = 0; round < 3000; ++round) {
    const uint64_t end = random.oneIn(2) ? 100 : random.oneIn(2) ? 4000 : uint64_t{1} << 40;
    const Words a = randomRun(random, random.oneIn(3) ? 2043 : 60, end);
    const Words b = randomRun(random, random.oneIn(3) ? 2043 : 60, end);
    expectAll(a, b);
    expectDifference(a, b, random.below(a.size() + 1));
  }
}

}  // namespace
