// Setting arrays of bits: what is counted, what is stored where, and how often a leaf is located and marked.
#include <algorithm>

#include "bulk/runbyrun.h"
#include "tree/writetest.h"

namespace {

class BulkSetTest : public WriteTest {
 protected:
  unsigned long setAll(RepTreeRootSType& tree, const std::vector<uint64_t>& bits) {
    host.clearEvents();
    return BmSetBitsFromSortedArray_(&host, &tree, bits.data(), bits.data() + bits.size());
  }

  // An unsorted array in the form that the front ends take: slot 0 is not data, and the slot behind is theirs.
  static std::vector<unsigned long> asArray(const std::vector<uint64_t>& elements) {
    std::vector<unsigned long> slots{0};
    slots.insert(slots.end(), elements.begin(), elements.end());
    slots.push_back(77);
    return slots;
  }
  unsigned long setUnsorted(RepTreeRootSType& tree, const std::vector<uint64_t>& bits) {
    std::vector<unsigned long> slots = asArray(bits);
    return BmSetBitsFromArray_(&host, &tree, slots.data(), slots.data() + slots.size() - 1);
  }
  unsigned long setOops(RepTreeRootSType& tree, const std::vector<uint64_t>& oops) {
    std::vector<unsigned long> slots = asArray(oops);
    return BmSetOopsFromArray_(&host, &tree, slots.data(), slots.data() + slots.size() - 1);
  }
  unsigned long setPageIds(RepTreeRootSType& tree, const std::vector<uint64_t>& words) {
    std::vector<unsigned long> slots = asArray(words);
    return BmSetBitsFromTaggedPageIds(&host, &tree, slots.data(), slots.data() + slots.size() - 1);
  }

  int locates(uint64_t ref) { return host.countLogged(EventKind::locate, ref); }
};
BMTREE_FOR_ALL_KINDS(BulkSetTest);

// ---------------------------------------------------------------------------------------------------------
// Lists

TEST_P(BulkSetTest, AnEmptyArraySetsNothing) {
  RepTreeRootSType& tree = newTree();
  const std::vector<uint64_t> bits{5};
  EXPECT_EQ(BmSetBitsFromSortedArray_(&host, &tree, bits.data(), bits.data()), 0u);
  EXPECT_EQ(shapeOf(tree), "empty");
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(BulkSetTest, AnEmptyTreeGetsAListWithTheWholeRun) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(setAll(tree, steps(100, 500, 7)), 500u);
  expectTree(tree, "list 500@0", steps(100, 500, 7));
}

TEST_P(BulkSetTest, ARunFillsTheFirstListToTheLastSlotBeforeItSplits) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(setAll(tree, steps(0, 3000, 192)), 3000u);
  expectTree(tree, "[0 list 2043@0, 3 list 957@0]", steps(0, 3000, 192));
}

TEST_P(BulkSetTest, BitsThatAreAllThereWriteAndMarkNothing) {
  const std::vector<uint64_t> bits = steps(100, 50, 9);
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, bits, 3)}, {.currentStamp = true});
  EXPECT_EQ(setAll(tree, bits), 0u);
  EXPECT_EQ(host.takeEvents({EventKind::dirty, EventKind::newPage}), std::vector<std::string>{});
  expectTree(tree, "[0 list 50@3]", bits);
}

TEST_P(BulkSetTest, RepeatsOfBitsThatAreThereAreNotCounted) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {10, 20, 30}));
  EXPECT_EQ(setAll(tree, {5, 10, 15, 20, 30, 35}), 3u);
  expectSound(tree, {5, 10, 15, 20, 30, 35});
}

TEST_P(BulkSetTest, EachRunBetweenTwoEntriesMarksTheLeafOnce) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {100, 200, 300})}, {.currentStamp = true});
  EXPECT_EQ(setAll(tree, steps(1, 20) + steps(101, 30) + steps(301, 40)), 90u);
  EXPECT_EQ(marks(leafRef(tree, 0)), cached(3));
  EXPECT_EQ(marks(tree.root), 0);
  expectSound(tree);
}

TEST_P(BulkSetTest, ARunUpToTheLimitOfALeafGoesOnInTheNextOne) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {3}), listLeaf(span(2), {span(2) + 3})});
  const std::vector<uint64_t> bits{span(2) - 2, span(2) - 1, span(2), span(2) + 1};
  EXPECT_EQ(setAll(tree, bits), 4u);
  EXPECT_EQ(shapeOf(tree), "[0 list 3@0, 2 list 3@255]");
  expectSound(tree, {3, span(2) - 2, span(2) - 1, span(2), span(2) + 1, span(2) + 3});
}

TEST_P(BulkSetTest, TheLimitOfTheLastLeafOfAPageIsTheNextLevel2Key) {
  RepTreeRootSType& tree = adoptTree(Groups{{listLeaf(0, {3})}, {listLeaf(span(2), {span(2) + 3})}});
  EXPECT_EQ(setAll(tree, {span(2) - 1, span(2), span(9)}), 3u);
  EXPECT_EQ(shapeOf(tree), "[0 [0 list 2@0], 2 [2 list 3@255]]");
  expectSound(tree);
}

TEST_P(BulkSetTest, OfAHundredBitsForAListWithRoomFor43TheOthersFollowAfterASplit) {
  const std::vector<uint64_t> old = steps(0, 2000), added = steps(span(3), 100);
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, old)});
  EXPECT_EQ(setAll(tree, added), 100u);
  // with 43 of span 3 the list is full; the others are of the same span, which is cut off from the list
  expectTree(tree, "[0 list 2000@0, 3 list 100@255]", old + added);
}

TEST_P(BulkSetTest, AFullListOfOneSpanGoesDenseOnTheWay) {
  const std::vector<uint64_t> old = steps(0, 2000), added = steps(5000, 1000);
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, old)});
  EXPECT_EQ(setAll(tree, added), 1000u);
  expectTree(tree, "[0 dense 3000]", old + added);
}

// Where the gap for a run opens in a list, by what must move.
TEST_P(BulkSetTest, TheGapOpensWhereTheFewestEntriesMove) {
  struct Case {
    size_t below, above;
    int firstOffset, take, expected;
  };
  const auto newFront = [&](const Case& c) {
    const std::vector<uint64_t> old = steps(0, c.below) + steps(10000, c.above);
    RepTreeRootSType& tree = adoptTree(listLeaf(0, old, c.firstOffset));
    const std::vector<uint64_t> added = steps(5000, static_cast<size_t>(c.take));
    EXPECT_EQ(setAll(tree, added), added.size());
    BitSet all(old.begin(), old.end());
    all.insert(added.begin(), added.end());
    expectSound(tree, all);
    return static_cast<int>(rawU32(bytesOf(tree, tree.root), at::listFirstOffset));
  };
  for (const Case& c : {
           Case{10, 10, 30, 5, 30},        // a tie moves the upper part
           Case{9, 10, 30, 30, 0},         // the lower part into the front gap
           Case{9, 10, 30, 31, 255},       // the gap is too small: the front is placed by rule
           Case{9, 10, 0, 5, 255},         // there is none
           Case{100, 400, 10, 20, 507},    // (2043 - 520) / 3
           Case{100, 500, 700, 701, 247},  // the rule gives less than there was: placed anew
           Case{1000, 1000, 40, 10, 0},    // no room behind: nearly full lists get no front
           Case{500, 500, 900, 200, 281},  // no room behind: (2043 - 1200) / 3
           Case{0, 1843, 0, 200, 0},       // full to the last slot
           Case{1843, 0, 100, 200, 0},
       }) {
    EXPECT_EQ(newFront(c), c.expected) << c.below << " below, " << c.above << " above, front " << c.firstOffset
                                       << ", take " << c.take;
  }
}

// ---------------------------------------------------------------------------------------------------------
// Dense leaves

TEST_P(BulkSetTest, ADenseLeafIsMarkedOncePerVisitAndCountsNewBits) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(span(3), {span(3), span(3) + 64})}, {.currentStamp = true});
  EXPECT_EQ(setAll(tree, {span(3), span(3) + 1, span(3) + 64, span(4) - 1}), 2u);
  EXPECT_EQ(marks(leafRef(tree, 0)), cached(1));
  expectTree(tree, "[3 dense 4]", {span(3), span(3) + 1, span(3) + 64, span(4) - 1});
  EXPECT_EQ(setAll(tree, {span(3)}), 0u);
  EXPECT_EQ(marks(leafRef(tree, 0)), cached(1));
}

TEST_P(BulkSetTest, ABitJustPastADenseLeafGetsANewLeafInTheGap) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {0}), denseLeaf(span(5), {span(5)})});
  EXPECT_EQ(setAll(tree, {span(1) - 1, span(1), span(2), span(5) + 1}), 4u);
  expectTree(tree, "[0 dense 2, 1 list 2@0, 5 dense 2]", {0, span(1) - 1, span(1), span(2), span(5), span(5) + 1});
}

TEST_P(BulkSetTest, TheTopmostSpanTakesBitsUpToTheLastOne) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(span(lastSpan), {span(lastSpan)})});
  EXPECT_EQ(setAll(tree, {topBit - 1, topBit}), 2u);
  expectSound(tree, {span(lastSpan), topBit - 1, topBit});
}

TEST_P(BulkSetTest, InATreeOfDenseLeavesEveryNewSpanGetsOne) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {}, 1)});
  tree.denseLeaves = 1;
  EXPECT_EQ(setAll(tree, {5, span(2), span(2) + 1, span(7)}), 4u);
  expectTree(tree, "[0 dense 1+, 2 dense 2+, 7 dense 1+]", {5, span(2), span(2) + 1, span(7)});
}

// ---------------------------------------------------------------------------------------------------------
// Each leaf is located once

TEST_P(BulkSetTest, ALoadLocatesEachLeafOnce) {
  if (isHeap()) GTEST_SKIP() << "heap pages are not located";
  Leaves leaves;
  std::vector<uint64_t> bits;
  for (uint64_t i = 0; i < 40; ++i) {
    leaves.push_back(i % 3 == 0 ? denseLeaf(span(2 * i), {span(2 * i)}) : listLeaf(span(2 * i), {span(2 * i) + 7}));
    bits = bits + steps(span(2 * i) + 100, 300, 5);
  }
  RepTreeRootSType& tree = adoptTree(
      Groups{{leaves.begin(), leaves.begin() + 20}, {leaves.begin() + 20, leaves.end()}}, {.currentStamp = true});
  EXPECT_EQ(setAll(tree, bits), bits.size());
  for (const uint64_t ref : refsAtLevel(host, tree, 0)) EXPECT_EQ(locates(ref), 1);
  EXPECT_EQ(locates(tree.root), 40);
}

TEST_P(BulkSetTest, ALoadIntoAnEmptyTreeWalksToEachLeafOnceHoweverManyBitsItTakes) {
  if (isHeap()) GTEST_SKIP() << "heap pages are not located";
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(setAll(tree, steps(0, 100 * 2043, 192)), 100u * 2043);
  const std::vector<uint64_t> leaves = refsAtLevel(host, tree, 0);
  EXPECT_EQ(leaves.size(), 100u);
  // beside the walk, a leaf is opened when it is made and when the split behind it looks at it, and the parent for
  // each of these steps
  for (size_t i = 1; i < leaves.size(); ++i) EXPECT_LE(locates(leaves[i]), isCareful() ? 3 : 2) << i;
  EXPECT_LE(locates(tree.root), 5 * 100);
}

// ---------------------------------------------------------------------------------------------------------
// Failure

TEST_P(BulkSetTest, WithoutAPageForALeafTheCountSoFarIsReturned) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {0})}, {.currentStamp = true});
  host.setPageBudget(0);
  EXPECT_EQ(setAll(tree, {1, 2, 3, span(1), span(2)}), 3u);
  expectTree(tree, "[0 dense 4]", {0, 1, 2, 3});
  RepTreeRootSType& empty = newTree();
  EXPECT_EQ(setAll(empty, {1, 2}), 0u);
  EXPECT_EQ(shapeOf(empty), "empty");
}

TEST_P(BulkSetTest, WithoutAPageForASplitTheResultIs1WhateverWasSet) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, steps(0, 2000))}, {.currentStamp = true});
  host.setPageBudget(0);
  EXPECT_EQ(setAll(tree, steps(span(4), 100)), 1u);
  EXPECT_EQ(host.takeReports().size(), 1u);
  expectTree(tree, "[0 list 2043@0]", steps(0, 2000) + steps(span(4), 43));
}

TEST_P(BulkSetTest, ALeafOfUnknownKindIsReportedOnceAndEndsTheWalk) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1}), listLeaf(span(3), {span(3)})}, {.currentStamp = true});
  const uint64_t leaf = leafRef(tree, 1);
  putU8(host.bytes(tree, leaf), at::pageKind, 4);
  testing::internal::CaptureStderr();
  EXPECT_EQ(setAll(tree, {2, 3, span(3) + 1, span(4)}), 2u);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Bitmap page fault"), std::string::npos);
  host.expectReports({leafFault(leaf)});
  putU8(host.bytes(tree, leaf), at::pageKind, 12);
  expectSound(tree, {1, 2, 3, span(3)});
}

// ---------------------------------------------------------------------------------------------------------
// Unsorted arrays

TEST_P(BulkSetTest, AnUnsortedArrayWithRepeatsSetsEachBitOnce) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {20}));
  EXPECT_EQ(setUnsorted(tree, {50, 10, 20, 10, topBit, 50, 0}), 4u);
  expectSound(tree, {0, 10, 20, 50, topBit});
}

TEST_P(BulkSetTest, OneElementIsSetAsABitAndNoneSetsNothing) {
  RepTreeRootSType& tree = newTree();
  std::vector<unsigned long> slots{0, 9, 77};
  EXPECT_EQ(BmSetBitsFromArray_(&host, &tree, slots.data(), slots.data()), 0u);
  EXPECT_EQ(BmSetBitsFromArray_(&host, &tree, slots.data(), slots.data() + 1), 0u);
  EXPECT_EQ(shapeOf(tree), "empty");
  EXPECT_EQ(BmSetBitsFromArray_(&host, &tree, slots.data(), slots.data() + 2), 1u);
  EXPECT_EQ(BmSetBitsFromArray_(&host, &tree, slots.data(), slots.data() + 2), 0u);
  EXPECT_EQ(slots, (std::vector<unsigned long>{0, 9, 77}));
  expectTree(tree, "list 1@0", {9});
}

TEST_P(BulkSetTest, TwoElementsAreSortedAndTheSentinelIsWritten) {
  RepTreeRootSType& tree = newTree();
  std::vector<unsigned long> slots{0, 9, 4, 77};
  EXPECT_EQ(BmSetBitsFromArray_(&host, &tree, slots.data(), slots.data() + 3), 2u);
  EXPECT_EQ(slots, (std::vector<unsigned long>{0, 4, 9, topBit}));
}

TEST_P(BulkSetTest, OopsOfOneBitCountOnceAndTheirLowBitsAreIgnored) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(setOops(tree, {0x1FF, 0x101, 0x200, 0x3}), 3u);
  expectSound(tree, {0, 1, 2});
  EXPECT_EQ(setOops(tree, {0x501}), 1u);
  EXPECT_EQ(setOops(tree, {}), 0u);
  expectSound(tree, {0, 1, 2, 5});
}

TEST_P(BulkSetTest, TaggedPageIdsThatDifferInTheTagAreOneBit) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(setPageIds(tree, {15, 14, 8, 9}), 2u);
  expectSound(tree, {4, 7});
  EXPECT_EQ(setPageIds(tree, {2 * 9 + 1}), 1u);
  EXPECT_EQ(setPageIds(tree, {}), 0u);
  expectSound(tree, {4, 7, 9});
}

TEST_P(BulkSetTest, ArraysLeaveTheFrontThatAGapForEachRunLeaves) {
  Random random(testSeed());
  for (int round = 0; round < 300; ++round) {
    const uint64_t end = 1 + random.below(6000);
    BitSet entries, bits;
    for (uint64_t left = random.below(1500); left > 0; --left) entries.insert(random.below(end));
    for (uint64_t left = 1 + random.below(1000); left > 0; --left) bits.insert(random.below(end));
    if (random.oneIn(3)) bits.insert(entries.begin(), entries.end());  // many are there already
    if (entries.empty()) continue;
    const int front = static_cast<int>(random.below(BM_BIT_LIST_CAPACITY - entries.size() + 1));
    RepTreeRootSType& tree = adopt(buildTree(host, kind(), listLeaf(0, {entries.begin(), entries.end()}, front)));
    RepBitListContentsSType expected = listOf({entries.begin(), entries.end()}, front);
    const std::vector<uint64_t> toSet(bits.begin(), bits.end());
    storeRunByRun(&expected, toSet);
    bits.insert(entries.begin(), entries.end());
    if (bits.size() > BM_BIT_LIST_CAPACITY) continue;  // it splits
    setAll(tree, toSet);
    EXPECT_EQ(shapeOf(tree), "list " + std::to_string(bits.size()) + "@" + std::to_string(expected.firstOffset));
  }
}

TEST_P(BulkSetTest, OnlyTheLastRunIsCutByTheRoomThatIsLeft) {
  // 900 elements are there already, so that all of the 400 behind them fit
  const std::vector<uint64_t> entries = steps(5000, 900, 1);
  std::vector<uint64_t> all = entries;
  all.push_back(10000);
  RepTreeRootSType& tree = adopt(buildTree(host, kind(), listLeaf(0, all, 1000)));
  std::vector<uint64_t> bits{1};
  bits.insert(bits.end(), entries.begin(), entries.end());
  for (uint64_t bit = 6000; bit < 6400; ++bit) bits.push_back(bit);
  RepBitListContentsSType expected = listOf(all, 1000);
  storeRunByRun(&expected, bits);
  EXPECT_EQ(setAll(tree, bits), 401u);
  EXPECT_EQ(shapeOf(tree), "list 1302@" + std::to_string(expected.firstOffset));
}

TEST_P(BulkSetTest, BitsBehindTheNumberSpaceAreLeftOutHoweverManyTheyAre) {
  RepTreeRootSType& tree = newTree();
  setAll(tree, steps(0, 3000, 40));  // a dense leaf, and nothing behind it
  EXPECT_EQ(setAll(tree, steps(topBit - 9, 2100, 1)), 10u);
  EXPECT_EQ(BmTestBit(&host, &tree, topBit), 1);
  EXPECT_EQ(BmTestBit(&host, &tree, topBit + 5), 0);
}

// Ascending bits of many densities: empty spans, spans of some bits, and spans of more than a list can hold.
std::vector<uint64_t> bitsOfSpans(Random& random, uint64_t firstSpan, uint64_t spans) {
  std::vector<uint64_t> bits;
  for (uint64_t number = firstSpan; number < firstSpan + spans; ++number) {
    const uint64_t oneIn = random.oneIn(3) ? 0 : uint64_t{1} << random.below(13);
    const uint64_t first = random.oneIn(2) ? 0 : random.below(BM_LEAF_BITS);
    for (uint64_t i = first; oneIn > 0 && i < BM_LEAF_BITS; i += 1 + random.below(2 * oneIn)) {
      bits.push_back(span(number) + i);
    }
  }
  return bits;
}

// The same bits in arrays too short to show that a span will be dense.
unsigned long setInPieces(TestHost& host, RepTreeRootSType& tree, const std::vector<uint64_t>& bits) {
  unsigned long newlySet = 0;
  for (size_t i = 0; i < bits.size(); i += 500) {
    const uint64_t* first = bits.data() + i;
    newlySet += BmSetBitsFromSortedArray_(&host, &tree, first, first + std::min<size_t>(500, bits.size() - i));
  }
  return newlySet;
}

TEST_P(BulkSetTest, OneArrayMakesTheLeavesThatItsPiecesMake) {
  Random random(testSeed());
  for (int round = 0; round < 6; ++round) {
    RepTreeRootSType& whole = newTree();
    RepTreeRootSType& pieces = newTree();
    whole.denseLeaves = pieces.denseLeaves = round % 3 == 2;
    // dense leaves to lie between, before and behind; then bits all around them, and a second time over those
    for (const uint64_t number : {4, 7, 8, 12}) {
      const std::vector<uint64_t> dense = steps(span(number), 3000, 40);
      EXPECT_EQ(setAll(whole, dense), setInPieces(host, pieces, dense));
    }
    for (int turn = 0; turn < 2; ++turn) {
      const std::vector<uint64_t> bits = bitsOfSpans(random, turn, 16);
      EXPECT_EQ(setAll(whole, bits), setInPieces(host, pieces, bits));
    }
    EXPECT_EQ(withoutFronts(shapeOf(whole)), withoutFronts(shapeOf(pieces)));
    EXPECT_EQ(bitsOf(whole), bitsOf(pieces));
    expectSound(whole);
    if (round % 2 == 0) moveStampOn();
  }
}

TEST_P(BulkSetTest, RandomArraysAgreeWithASet) {
  Random random(testSeed());
  RepTreeRootSType& tree = newTree();
  BitSet model;
  for (int round = 0; round < 60; ++round) {
    const uint64_t base = random.below(topBit - span(20));
    const uint64_t range = random.oneIn(3) ? 20000 : span(1 + random.below(20));
    std::vector<uint64_t> bits(1 + random.below(5000));
    for (uint64_t& bit : bits) bit = random.oneIn(50) ? random.below(topBit) : base + random.below(range);
    const size_t before = model.size();
    model.insert(bits.begin(), bits.end());
    EXPECT_EQ(setUnsorted(tree, bits), model.size() - before);
    if (round % 10 == 0) moveStampOn();
  }
  expectSound(tree, model);
}

// ---------------------------------------------------------------------------------------------------------
// Inline lists

class BulkSetInlineTest : public TreeFixture {};

TEST_F(BulkSetInlineTest, BitsGoInOneByOne) {
  InlineTree tree({10, 30}, 5);
  const std::vector<unsigned long> bits{5, 10, 20, 40};
  EXPECT_EQ(BmSetBitsFromSortedArray_(&host, tree.root(), bits.data(), bits.data() + bits.size()), 3u);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{5, 10, 20, 30, 40}));
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_F(BulkSetInlineTest, WithoutMemoryNothingIsSet) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  const std::vector<unsigned long> bits{5, 10};
  EXPECT_EQ(BmSetBitsFromSortedArray_(&host, &root, bits.data(), bits.data() + bits.size()), 0u);
  EXPECT_EQ(root.root, 0u);
}

}  // namespace
