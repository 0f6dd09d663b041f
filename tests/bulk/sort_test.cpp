// The in-place sort and the dropping of repeats.
#include <algorithm>
#include <numeric>

#include "bulk/sort.h"
#include "support/treemodel.h"

namespace {

constexpr unsigned long topBit = 0xFFFFFFFFFF;
constexpr unsigned long untouched = 0xDEADBEEF;

// The data between a low sentinel and a slot for the high one, with guards on both sides.
class SortArray {
 public:
  explicit SortArray(const std::vector<unsigned long>& data) {
    slots_ = {untouched, 0};
    slots_.insert(slots_.end(), data.begin(), data.end());
    slots_.insert(slots_.end(), {untouched, untouched});
  }

  unsigned long* first() { return slots_.data() + 1; }
  unsigned long* end() { return slots_.data() + slots_.size() - 2; }  // one past the data
  std::vector<unsigned long> upTo(const unsigned long* keptEnd) {
    return {first() + 1, first() + (keptEnd - first())};
  }
  std::vector<unsigned long> data() { return upTo(end()); }
  unsigned long sentinel() { return *end(); }
  bool guardsStand() const { return slots_.front() == untouched && slots_.back() == untouched && slots_[1] == 0; }

 private:
  std::vector<unsigned long> slots_;
};

std::vector<unsigned long> sortedUnique(std::vector<unsigned long> data) {
  std::sort(data.begin(), data.end());
  data.erase(std::unique(data.begin(), data.end()), data.end());
  return data;
}

void expectSortedAndStripped(const std::vector<unsigned long>& data) {
  SortArray array(data);
  unsigned long* keptEnd = BmSortArrayRemoveDups_(array.first(), array.end());
  EXPECT_EQ(array.upTo(keptEnd), sortedUnique(data));
  EXPECT_EQ(array.sentinel(), topBit);
  EXPECT_TRUE(array.guardsStand());
}

void expectSorted(const std::vector<unsigned long>& data) {
  SortArray array(data);
  *array.end() = topBit;
  BmQsort(array.first(), array.end() + 1);
  std::vector<unsigned long> expected = data;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(array.data(), expected);
  EXPECT_TRUE(array.guardsStand());

  // the sort without wide vectors, which is what most processors run
  SortArray plain(data);
  *plain.end() = topBit;
  sortWordsPlain(plain.first() + 1, plain.end() - 1);
  EXPECT_EQ(plain.data(), expected);
  EXPECT_TRUE(plain.guardsStand());
}

TEST(SortTest, WithoutDataNothingIsWritten) {
  SortArray array({});
  EXPECT_EQ(BmSortArrayRemoveDups_(array.first(), array.end()), array.end());
  EXPECT_EQ(BmSortRemoveDups_FromTaggedPageIds(array.first(), array.end()), array.end());
  EXPECT_EQ(array.sentinel(), untouched);
  EXPECT_EQ(BmSortArrayRemoveDups_(array.first(), array.first()), array.first());
  EXPECT_EQ(BmSortRemoveDups_FromTaggedPageIds(array.first(), array.first()), array.first());
  EXPECT_TRUE(array.guardsStand());
}

TEST(SortTest, OneElementGetsItsSentinelAndStays) {
  SortArray array({17});
  EXPECT_EQ(BmSortArrayRemoveDups_(array.first(), array.end()), array.end());
  EXPECT_EQ(array.data(), std::vector<unsigned long>{17});
  EXPECT_EQ(array.sentinel(), topBit);
}

TEST(SortTest, TheSortItselfTakesAnEmptyArray) { expectSorted({}); }

TEST(SortTest, EveryOrderOfAFewElementsIsSorted) {
  for (unsigned long count = 1; count <= 7; ++count) {
    std::vector<unsigned long> data(count);
    std::iota(data.begin(), data.end(), 3);
    do expectSorted(data);
    while (std::next_permutation(data.begin(), data.end()));
  }
}

TEST(SortTest, NineAndTenElementsOnBothSidesOfTheCutoffAreSorted) {
  Random random(testSeed());
  for (size_t count = 8; count <= 24; ++count) {
    for (int round = 0; round < 200; ++round) {
      std::vector<unsigned long> data(count);
      for (unsigned long& value : data) value = random.below(count);
      expectSorted(data);
      expectSortedAndStripped(data);
    }
  }
}

TEST(SortTest, EqualElementsComeOutAsOne) {
  for (const size_t count : {2u, 9u, 10u, 11u, 5000u}) {
    expectSortedAndStripped(std::vector<unsigned long>(count, 42));
    expectSortedAndStripped(std::vector<unsigned long>(count, 0));
    expectSortedAndStripped(std::vector<unsigned long>(count, topBit));
  }
}

TEST(SortTest, SortedReversedAndSawtoothInputIsSorted) {
  std::vector<unsigned long> data(10000);
  std::iota(data.begin(), data.end(), 1);
  expectSortedAndStripped(data);
  std::reverse(data.begin(), data.end());
  expectSortedAndStripped(data);
  for (size_t i = 0; i < data.size(); ++i) data[i] = i % 100;
  expectSortedAndStripped(data);
  for (size_t i = 0; i < data.size(); ++i) data[i] = i < 5000 ? i : 10000 - i;
  expectSortedAndStripped(data);
}

TEST(SortTest, ElementsEqualToTheSentinelAreAllowed) {
  std::vector<unsigned long> data;
  for (unsigned long i = 0; i < 40; ++i) data.push_back(i % 3 == 0 ? topBit : i);
  expectSorted(data);
  expectSortedAndStripped(data);
}

TEST(SortTest, RandomInputOfAllSizesIsSorted) {
  Random random(testSeed());
  for (int round = 0; round < 300; ++round) {
    const uint64_t range = uint64_t{1} << (1 + random.below(40));
    std::vector<unsigned long> data(random.below(3000));
    for (unsigned long& value : data) value = random.below(range);
    expectSorted(data);
    if (!data.empty()) expectSortedAndStripped(data);
  }
}

TEST(SortTest, RepeatsAreDroppedAtEveryPlace) {
  expectSortedAndStripped({1, 1, 2, 3});
  expectSortedAndStripped({1, 2, 2, 3});
  expectSortedAndStripped({1, 2, 3, 3});
  expectSortedAndStripped({3, 1, 2, 1, 3, 3, 1, 2});
}

// ---------------------------------------------------------------------------------------------------------
// Tagged page ids

TEST(SortTest, WordsThatDifferInTheTagAloneAreOnePageId) {
  SortArray array({2 * 7 + 1, 2 * 7, 2 * 5, 2 * 9 + 1, 2 * 9 + 1});
  unsigned long* keptEnd = BmSortRemoveDups_FromTaggedPageIds(array.first(), array.end());
  EXPECT_EQ(array.upTo(keptEnd), (std::vector<unsigned long>{5, 7, 9}));
  EXPECT_EQ(array.sentinel(), topBit);
}

TEST(SortTest, OneTaggedWordComesOutStripped) {
  SortArray array({2 * 7 + 1});
  EXPECT_EQ(BmSortRemoveDups_FromTaggedPageIds(array.first(), array.end()), array.end());
  EXPECT_EQ(array.data(), std::vector<unsigned long>{7});
}

TEST(SortTest, RandomTaggedWordsComeOutAsAscendingPageIds) {
  Random random(testSeed());
  for (int round = 0; round < 100; ++round) {
    std::vector<unsigned long> data(1 + random.below(500));
    for (unsigned long& value : data) value = random.below(1000);
    SortArray array(data);
    unsigned long* keptEnd = BmSortRemoveDups_FromTaggedPageIds(array.first(), array.end());
    for (unsigned long& value : data) value >>= 1;
    EXPECT_EQ(array.upTo(keptEnd), sortedUnique(data));
    EXPECT_TRUE(array.guardsStand());
  }
}

// ---------------------------------------------------------------------------------------------------------
// Records

TEST(SortTest, RecordsGoByEitherWordAndStayWhole) {
  Random random(testSeed());
  for (const size_t count : {0u, 1u, 9u, 10u, 2000u}) {
    for (const bool byPageId : {false, true}) {
      std::vector<RepOtDeltaSType> records(count + 2);
      for (RepOtDeltaSType& record : records) {
        record.key = random.below(count + 1);
        record.pageId = record.key * 1000003 % 65537;
      }
      records.front() = {0, 0};
      records.back() = {topBit, topBit};
      RepOtDeltaSType* end = records.data() + records.size();
      byPageId ? BmQsortByPageId(records.data(), end) : BmQsort(records.data(), end);
      for (size_t i = 1; i <= count; ++i) {
        EXPECT_EQ(records[i].pageId, records[i].key * 1000003 % 65537);
        if (byPageId) {
          EXPECT_LE(records[i - 1].pageId, records[i].pageId);
        } else {
          EXPECT_LE(records[i - 1].key, records[i].key);
        }
      }
      EXPECT_EQ(records.back().key, topBit);
    }
  }
}

}  // namespace
