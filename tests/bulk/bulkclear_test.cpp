#include "bulk/bulkclear.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <numeric>

#include "query/randomtree.h"

namespace {

using Bits = std::vector<uint64_t>;

// ---------------------------------------------------------------------------------------------------------
// One list

class ListClearTest : public ::testing::Test {
 protected:
  RepBitListContentsSType list{};

  void fill(const Bits& bits, int firstOffset = 0) {
    list.count = static_cast<int32_t>(bits.size());
    list.firstOffset = firstOffset;
    std::copy(bits.begin(), bits.end(), list.begin());
  }
  Bits left() const { return {list.begin(), list.end()}; }

  struct Outcome {
    int changed;
    long used;  // array elements that the cursor has passed
  };
  Outcome clear(const Bits& bits, uint64_t lastBit = topBit) {
    const unsigned long* cursor = bits.data();
    const int changed = ClearBitsInBlcFromSortedArray(&list, lastBit, &cursor, bits.data() + bits.size());
    return {changed, cursor - bits.data()};
  }
};

TEST_F(ListClearTest, AnEmptyListIsReportedAsChangedAndLeavesTheCursor) {
  fill({}, 40);
  const Outcome outcome = clear({3, 4});
  EXPECT_EQ(outcome.changed, 1);
  EXPECT_EQ(outcome.used, 0);
}

TEST_F(ListClearTest, AnEmptyArrayChangesNothing) {
  fill({3});
  EXPECT_EQ(clear({}).changed, 0);
  EXPECT_EQ(left(), Bits{3});
}

TEST_F(ListClearTest, AnArrayAboveTheLastBitOfALikeSizedListLeavesTheCursor) {
  fill({3, 5});
  const Outcome outcome = clear({11, 12}, 10);
  EXPECT_EQ(outcome.changed, 0);
  EXPECT_EQ(outcome.used, 0);
}

TEST_F(ListClearTest, TheFrontStaysWhenTheFirstEntriesGo) {
  fill({3, 5, 7, 9}, 12);
  EXPECT_EQ(clear({3, 5}).changed, 1);
  EXPECT_EQ(list.firstOffset, 12);
  EXPECT_EQ(left(), (Bits{7, 9}));
}

TEST_F(ListClearTest, BitsAboveTheLastBitStayInTheArray) {
  for (const size_t listLength : {4, 40, 400}) {
    Bits entries(listLength);
    std::iota(entries.begin(), entries.end(), 1);
    fill(entries);
    const Outcome outcome = clear({1, 2, 500, 600}, 500);
    EXPECT_EQ(outcome.changed, 1);
    EXPECT_EQ(outcome.used, 3);
    EXPECT_EQ(left().front(), 3u);
    EXPECT_EQ(left().size(), listLength - 2);
  }
}

// The ways differ in what they have read when nothing matches: a merge stops behind the first element above the list,
// a search passes every element up to the last bit.
class ListClearWayTest : public ListClearTest {
 protected:
  bool searches(int listLength, int arrayLength) {
    Bits entries;
    for (int i = 0; i < listLength; ++i) entries.push_back(10000 + 2 * static_cast<uint64_t>(i));
    Bits bits;
    for (int i = arrayLength; i > 3; --i) bits.push_back(static_cast<uint64_t>(arrayLength - i));
    for (uint64_t i = 0; i < 3; ++i) bits.push_back(1000001 + i);
    fill(entries);
    const Outcome outcome = clear(bits);
    EXPECT_EQ(outcome.changed, 0);
    EXPECT_EQ(left(), entries);
    EXPECT_TRUE(outcome.used == arrayLength || outcome.used == arrayLength - 2) << outcome.used;
    return outcome.used == arrayLength;
  }
};

TEST_F(ListClearWayTest, AShortListTakesFactorFour) {
  EXPECT_FALSE(searches(32, 8));
  EXPECT_TRUE(searches(32, 7));
}

TEST_F(ListClearWayTest, AListOf33TakesFactorEight) {
  EXPECT_TRUE(searches(33, 4));
  EXPECT_FALSE(searches(33, 5));
}

TEST_F(ListClearWayTest, AListOf512TakesFactorEightAnd513Eleven) {
  EXPECT_TRUE(searches(512, 63));
  EXPECT_FALSE(searches(512, 64));
  EXPECT_TRUE(searches(513, 46));
  EXPECT_FALSE(searches(513, 47));
}

TEST_F(ListClearWayTest, ALongListTakesFactorEleven) {
  EXPECT_FALSE(searches(600, 55));
  EXPECT_TRUE(searches(600, 54));
}

TEST_F(ListClearWayTest, TheArrayIsSearchedByTheSameFactors) {
  EXPECT_FALSE(searches(8, 33));
  EXPECT_TRUE(searches(4, 33));
  EXPECT_FALSE(searches(8, 32));
  EXPECT_TRUE(searches(7, 32));
  EXPECT_FALSE(searches(55, 600));
  EXPECT_TRUE(searches(54, 600));
}

TEST_F(ListClearWayTest, LikeSizesAreMerged) { EXPECT_FALSE(searches(100, 100)); }

TEST_F(ListClearTest, AModelAgreesForAllSizes) {
  Random random(testSeed());
  const size_t sizes[] = {1, 3, 8, 32, 33, 60, 512, 513, 900, 2043};
  for (int round = 0; round < 3000; ++round) {
    const size_t listLength = 1 + random.below(sizes[random.below(10)]);
    const size_t arrayLength = 1 + random.below(sizes[random.below(10)]);
    const uint64_t range = std::max(listLength, arrayLength) + random.below(4 * (listLength + arrayLength));
    const Bits entries = randomBits(random, listLength, 1000, 1000 + range);
    const Bits bits = randomBits(random, arrayLength, 1000, 1000 + range + random.below(200));
    const uint64_t lastBit = random.oneIn(2) ? entries.back() + random.below(100) : topBit;
    const int firstOffset = static_cast<int>(random.below(2044 - listLength));
    const Bits owned(bits.begin(), std::upper_bound(bits.begin(), bits.end(), lastBit));
    Bits expected;
    std::set_difference(entries.begin(), entries.end(), owned.begin(), owned.end(), std::back_inserter(expected));

    fill(entries, firstOffset);
    const Outcome outcome = clear(bits, lastBit);
    ASSERT_EQ(outcome.changed, expected != entries);
    ASSERT_EQ(left(), expected);
    ASSERT_EQ(list.firstOffset, firstOffset);
    // Whatever the cursor has passed is dealt with, and nothing above the last bit is passed.
    ASSERT_LE(outcome.used, static_cast<long>(owned.size()));
  }
}

// ---------------------------------------------------------------------------------------------------------
// Trees

unsigned long clearBits(TestHost& host, RepTreeRootSType& root, const Bits& bits) {
  return BmClearBitsFromSortedArray_(&host, &root, bits.data(), bits.data() + bits.size());
}

unsigned long clearUnsorted(TestHost& host, RepTreeRootSType& root, Bits bits) {
  bits.insert(bits.begin(), 0);
  const size_t length = bits.size();
  bits.push_back(0x5A5A);
  return BmClearBitsFromArray_(&host, &root, bits.data(), bits.data() + length);
}

class BulkClearTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(BulkClearTest);

TEST_P(BulkClearTest, AnEmptyTreeLosesNothing) { EXPECT_EQ(clearBits(host, newTree(), {1, 2, topBit}), 0u); }

TEST_P(BulkClearTest, AnEmptyArrayTouchesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2})));
  EXPECT_EQ(clearBits(host, root, {}), 0u);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(BulkClearTest, ClearingEveryBitOfALevelZeroTreeEmptiesTheRoot) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 9})));
  EXPECT_EQ(clearBits(host, root, {1, 2, 3, 9, 10}), 3u);
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(root.level, 0);
}

TEST_P(BulkClearTest, AClearedListKeepsItsFrontAndFollowsWithBytesUsed) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 9, 11}, 7)));
  EXPECT_EQ(clearBits(host, root, {1, 2}), 2u);
  EXPECT_EQ(shapeOf(root), "list 2@7");
  EXPECT_EQ(rawU16(bytesOf(root, root.root), at::bytesUsed), (2 + 7) * 8 + 40);
}

TEST_P(BulkClearTest, AListThatLosesNothingIsNotMarked) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2}), {.currentStamp = true}));
  EXPECT_EQ(clearBits(host, root, {3, 4, 5}), 0u);
  EXPECT_EQ(host.takeEvents({EventKind::dirty}), std::vector<std::string>{});
}

TEST_P(BulkClearTest, ACarefulListIsShadowedEvenIfItLosesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2})));
  const uint64_t before = root.root;
  EXPECT_EQ(clearBits(host, root, {3}), 0u);
  EXPECT_EQ(root.root != before, isCareful());
  expectSound(root, {1, 2});
}

TEST_P(BulkClearTest, BitsInGapsAreAbsentAndShadowNothing) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(span(1), {span(1)}), denseLeaf(span(3), {span(3)})}));
  EXPECT_EQ(clearBits(host, root, {0, 5, span(2), span(4), topBit}), 0u);
  EXPECT_EQ(host.takeEvents({EventKind::newPage, EventKind::dirty}), std::vector<std::string>{});
}

TEST_P(BulkClearTest, AListLeafThatEmptiesGoesAndTheRestOfTheArrayFindsItsLeaf) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(),
                Leaves{listLeaf(0, {1, 5}), listLeaf(span(1), {span(1)}), listLeaf(span(4), {span(4), span(5)})}));
  EXPECT_EQ(clearBits(host, root, {1, 4, 5, 6, 100, span(1), span(2), span(4)}), 4u);
  expectSound(root, {span(5)});
  EXPECT_EQ(shapeOf(root), "[4 list 1@0]");
}

TEST_P(BulkClearTest, ADenseLeafClearedToZeroGoes) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 5}), listLeaf(span(1), {span(1)})}));
  EXPECT_EQ(clearBits(host, root, {1, 4, 5, 6}), 2u);
  EXPECT_EQ(shapeOf(root), "[1 list 1@0]");
}

TEST_P(BulkClearTest, AKeptDenseLeafClearedToZeroStaysEmpty) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 5}, 1), listLeaf(span(1), {span(1)})}));
  EXPECT_EQ(clearBits(host, root, {1, 4, 5, 6, span(1)}), 3u);
  expectSound(root, {});
  EXPECT_EQ(shapeOf(root), "[0 dense 0+]");
}

TEST_P(BulkClearTest, TheLastLeafTakesTheWholeTreeWithIt) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Groups{{denseLeaf(0, {1}), listLeaf(span(1), {span(1)})}, {denseLeaf(span(3), {span(3)})}}));
  EXPECT_EQ(clearBits(host, root, {1, span(1), span(3)}), 3u);
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(root.level, 0);
}

TEST_P(BulkClearTest, RepeatsOfAnUnsortedArrayCountOnce) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 9, 11})));
  EXPECT_EQ(clearUnsorted(host, root, {9, 1, 9, 1, 7, 9}), 2u);
  expectSound(root, {2, 11});
  EXPECT_EQ(clearUnsorted(host, root, {2}), 1u);
  EXPECT_EQ(clearUnsorted(host, root, {}), 0u);
  unsigned long none = 0;
  EXPECT_EQ(BmClearBitsFromArray_(&host, &root, &none, &none), 0u);
}

TEST_P(BulkClearTest, AListPageAsSourceIsClearedFromTheTree) {
  RepTreeRootSType& source = adopt(buildTree(host, BM_PAGE_TREE, listLeaf(0, {1, 9, span(3)}, 5)));
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2, 9}), denseLeaf(span(3), {span(3), span(3) + 1})}));
  EXPECT_EQ(ClearBitsFromBitList_(&host, &root, asListPage(host.page(source.root)), BM_PAGE_TREE), 3u);
  expectSound(root, {2, span(3) + 1});
  expectSound(source, {1, 9, span(3)});
}

TEST_P(BulkClearTest, AnEmptyListPageAsSourceDoesNothing) {
  RepTreeRootSType& source = adopt(buildTree(host, BM_PAGE_TREE, listLeaf(0, {}, 5)));
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 9})));
  host.clearEvents();
  EXPECT_EQ(ClearBitsFromBitList_(&host, &root, asListPage(host.page(source.root)), BM_HEAP_TREE), 0u);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(BulkClearTest, WithoutAPageForAShadowTheCountSoFarIsReturned) {
  if (!isCareful()) return;
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), listLeaf(span(1), {span(1), span(1) + 1})}));
  host.setPageBudget(2);  // the first leaf and its parent
  EXPECT_EQ(clearBits(host, root, {1, span(1)}), 1u);
  expectSound(root, {2, span(1), span(1) + 1});
}

TEST_P(BulkClearTest, ALeafThatCannotBeMadeWritableIsPassedOverWhole) {
  if (!isCareful()) return;
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Leaves{listLeaf(0, {1, 2}), denseLeaf(span(2), {span(2), span(2) + 9}), listLeaf(span(5), {span(5)})}));
  moveStampOn();
  EXPECT_EQ(BmSetBit(&host, &root, span(5) + 1), 0);  // the last leaf and the root are of this stamp
  host.setPageBudget(0);
  EXPECT_EQ(clearBits(host, root, {1, 2, span(1), span(2), span(2) + 9, span(5)}), 1u);
  host.setPageBudget(-1);
  expectSound(root, {1, 2, span(2), span(2) + 9, span(5) + 1});
}

TEST_P(BulkClearTest, ALeafOfAWrongKindIsReportedOnceAndPassed) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Leaves{listLeaf(0, {1, 2}), listLeaf(span(1), {span(1), span(1) + 1}), denseLeaf(span(2), {span(2)}, 1)}));
  const uint64_t broken = refsAtLevel(host, root, 0)[1];
  putU8(host.bytes(root, broken), at::pageKind, 4);
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(clearBits(host, root, {1, span(1), span(1) + 1, span(2)}), 2u);
  ::testing::internal::GetCapturedStdout();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("Bitmap page fault"), std::string::npos);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, refsAtLevel(host, root, 0)[1]), at::pageKind, 12);
  expectSound(root, {2, span(1), span(1) + 1});
}

// What an array that breaks its promise clears is not told, but nothing else goes, and the operation ends.
TEST_P(BulkClearTest, AnArrayThatBreaksItsPromiseEndsAndClearsNothingElse) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 60; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    const Bits held(model.begin(), model.end());
    Bits bits;
    for (uint64_t i = random.below(400); i > 0; --i) {
      const bool hit = !held.empty() && !random.oneIn(4);
      bits.push_back(hit ? held[random.below(held.size())] : random.next() >> random.below(40));
    }
    if (random.oneIn(2)) bits.push_back(~uint64_t{0});
    const unsigned long cleared = clearBits(host, root, bits);
    expectSound(root);
    const Bits left = bitsOf(root);
    EXPECT_EQ(left.size() + cleared, model.size());
    const BitSet named(bits.begin(), bits.end());
    for (const uint64_t bit : left) model.erase(bit);
    for (const uint64_t bit : model) EXPECT_EQ(named.count(bit), 1u) << bit;
  }
}

TEST_P(BulkClearTest, AModelAgreesOverTreesOfAllShapes) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 40; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    host.watchDirtyMarks();
    for (int pass = 0; pass < 4; ++pass) {
      const uint64_t every = 1 + random.below(6);
      Bits bits;
      for (const uint64_t bit : model) {
        if (random.oneIn(every)) bits.push_back(bit);
      }
      const size_t hits = bits.size();
      for (uint64_t i = random.below(50); i > 0; --i) {
        const uint64_t absent = random.oneIn(2) ? random.below(topBit) : random.below(span(12));
        if (model.count(absent) == 0) bits.push_back(absent);
      }
      std::sort(bits.begin(), bits.end());
      bits.erase(std::unique(bits.begin(), bits.end()), bits.end());
      EXPECT_EQ(random.oneIn(2) ? clearBits(host, root, bits) : clearUnsorted(host, root, bits), hits);
      for (const uint64_t bit : bits) model.erase(bit);
      expectSound(root, model);
      host.expectChangesMarked();
      if (isCareful() && random.oneIn(2)) moveStampOn();
    }
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

class InlineBulkClearTest : public TreeFixture {};

TEST_F(InlineBulkClearTest, AnInlineListLosesItsBitsInPlace) {
  InlineTree tree({3, 5, 8, topBit}, 9);
  EXPECT_EQ(clearBits(host, *tree.root(), {1, 5, 6, topBit}), 2u);
  EXPECT_EQ(bitsOf(*tree.root()), (Bits{3, 8}));
  EXPECT_EQ(rawU32(tree.contents(), 4), 9u);
}

TEST_F(InlineBulkClearTest, AnInlineListThatEmptiesStays) {
  InlineTree tree({3, 5});
  EXPECT_EQ(clearUnsorted(host, *tree.root(), {5, 3}), 2u);
  EXPECT_EQ(tree.root()->root, reinterpret_cast<uint64_t>(tree.memory()));
  EXPECT_EQ(clearBits(host, *tree.root(), {3}), 0u);
}

TEST_F(InlineBulkClearTest, AnInlineRootOfZeroLosesNothing) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(clearBits(host, root, {3}), 0u);
}

TEST_F(InlineBulkClearTest, AnotherNegativeKindIsReported) {
  InlineTree tree({3, 5});
  tree.root()->treeKind = -1;
  EXPECT_EQ(clearBits(host, *tree.root(), {3}), 0u);
  host.expectReports({"guarantee reposdisk:1196"});
}

}  // namespace
