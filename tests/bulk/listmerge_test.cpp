// Numbers merged into a list in one pass, against a gap for each run of them: entries and front come out alike.
#include "bulk/listmerge.h"

#include <algorithm>

#include "bulk/runbyrun.h"
#include "support/treemodel.h"

namespace {

using Words = std::vector<uint64_t>;

Words entriesOf(const RepBitListContentsSType& list) { return {list.begin(), list.end()}; }

void expectAlike(const Words& entries, int front, const Words& numbers) {
  RepBitListContentsSType expected = listOf(entries, front);
  const int expectedNew = storeRunByRun(&expected, numbers);
  RepBitListContentsSType list = listOf(entries, front);
  uint64_t* pos = std::lower_bound(list.begin(), list.end(), numbers.front());
  uint64_t* posEnd;
  EXPECT_EQ(mergeIntoList(&list, pos, numbers.data(), static_cast<long>(numbers.size()), &posEnd), expectedNew);
  ASSERT_EQ(entriesOf(list), entriesOf(expected));
  EXPECT_EQ(list.firstOffset, expected.firstOffset)
      << entries.size() << " entries at " << front << ", " << numbers.size() << " numbers";
  EXPECT_EQ(posEnd[-1], numbers.back());
}

Words every(uint64_t step, uint64_t first, size_t count) {
  Words words(count);
  for (size_t i = 0; i < count; ++i) words[i] = first + i * step;
  return words;
}

Words randomRun(Random& random, size_t count, uint64_t end) {
  std::set<uint64_t> words;
  while (words.size() < count) words.insert(random.below(end));
  return {words.begin(), words.end()};
}

TEST(ListMergeTest, NumbersBetweenAllEntries) {
  for (const int front : {0, 1, 100, 1043}) expectAlike(every(2, 2, 1000), front, every(2, 1, 1000));
}

TEST(ListMergeTest, NumbersThatAreThereAlreadyAreSkipped) {
  expectAlike(every(2, 0, 500), 10, every(1, 0, 900));
  expectAlike(every(2, 0, 500), 10, every(2, 0, 500));
}

TEST(ListMergeTest, NumbersBehindAllEntriesAreAppended) { expectAlike(every(1, 0, 100), 255, every(1, 90, 300)); }

TEST(ListMergeTest, AListThatBecomesFullAndOneWithoutATail) {
  expectAlike(every(2, 0, 1043), 0, every(2, 1, 1000));
  expectAlike(every(2, 0, 1043), 1000, every(2, 1, 1000));
  expectAlike(every(2, 2, 1900), 143, every(2, 1, 143));
}

TEST(ListMergeTest, TheFirstRunsSpendTheFrontGapAndOpenItAgain) {
  for (const int front : {0, 3, 7, 50}) expectAlike(every(10, 10, 800), front, every(4, 1, 600));
}

TEST(ListMergeTest, RandomListsFrontsAndNumbers) {
  Random random(testSeed());
  for (int round = 0; round < 3000; ++round) {
    const uint64_t end = random.oneIn(2) ? 6000 : uint64_t{1} << 40;
    const size_t entries = random.below(BM_BIT_LIST_CAPACITY);
    const size_t room = BM_BIT_LIST_CAPACITY - entries;
    const size_t numbers = 1 + random.below(random.oneIn(2) ? room : std::min<size_t>(room, 40));
    const int front = random.oneIn(3) ? 0 : static_cast<int>(random.below(room + 1));
    expectAlike(randomRun(random, entries, end), front, randomRun(random, numbers, end));
  }
}

TEST(ListMergeTest, AnAscendingRunEndsAtTheFirstNumberThatDoesNotAscend) {
  const Words words{1, 2, 5, 5, 9, 3};
  EXPECT_EQ(ascendingRun(words.data(), 1), 1);
  EXPECT_EQ(ascendingRun(words.data(), 3), 3);
  EXPECT_EQ(ascendingRun(words.data(), 6), 3);
  EXPECT_EQ(ascendingRun(words.data() + 3, 3), 2);
}

}  // namespace
