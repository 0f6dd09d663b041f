#include "algebra/algebrafixture.h"

namespace {

constexpr uint64_t spanBits = 130752;

class SetRangeTest : public AlgebraTest {
 protected:
  // Whether a call builds the run as a tree of its own first.
  bool takesTheLongForm(uint64_t first, uint64_t last) {
    RepTreeRootSType& root = newTree();
    host.clearEvents();
    BmSetBitRange_(&host, &root, first, last);
    bool runTree = false;
    for (const Event& event : host.events()) {
      runTree = runTree || (event.kind == EventKind::heapAlloc && event.first == 9117);
    }
    return runTree;
  }

  void expectRange(const RepTreeRootSType& root, uint64_t first, uint64_t end) {
    expectSound(root);
    EXPECT_TRUE(bitsOf(root) == runOfBits(first, end));
  }
};
BMTREE_FOR_ALL_KINDS(SetRangeTest);

TEST_P(SetRangeTest, ARangeOfOneBitSetsItOnce) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(BmSetBitRange_(&host, &root, 77, 77), 1u);
  EXPECT_EQ(BmSetBitRange_(&host, &root, 77, 77), 0u);
  expectSound(root, {77});
}

TEST_P(SetRangeTest, TheLastBitOfTheNumberSpaceCanBeSet) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(BmSetBitRange_(&host, &root, topBit - 3000, topBit), 3001u);
  expectRange(root, topBit - 3000, topBit + 1);
}

TEST_P(SetRangeTest, TheLongFormBeginsAtTwoSpans) {
  EXPECT_FALSE(takesTheLongForm(10, 10 + 261503));
  EXPECT_TRUE(takesTheLongForm(10, 10 + 261504));
}

TEST_P(SetRangeTest, BothFormsSetTheSameBits) {
  for (const uint64_t length : {261503u, 261504u}) {
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(BmSetBitRange_(&host, &root, 10, 10 + length), length + 1);
    expectRange(root, 10, 10 + length + 1);
  }
}

TEST_P(SetRangeTest, ALongRunOfWholeSpansBecomesFullLeaves) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(2), span(5) - 1), 3 * spanBits);
  EXPECT_EQ(shapeOf(root), "[2 dense 130752, 3 dense 130752, 4 dense 130752]");
  expectSound(root);
}

TEST_P(SetRangeTest, ALongRunThatEndsOnASpansFirstBitLeavesThatBitClear) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(1), span(3)), 2 * spanBits);
  EXPECT_EQ(BmTestBit(&host, &root, span(3)), 0);
  expectRange(root, span(1), span(3));
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(1) + 1, span(4)), spanBits);
  expectRange(root, span(1), span(4));
}

TEST_P(SetRangeTest, ALongRunThatEndsOneBitLaterSetsBoth) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(1), span(3) + 1), 2 * spanBits + 2);
  expectRange(root, span(1), span(3) + 2);
}

TEST_P(SetRangeTest, ALongRunBetweenSpansHasAHeadAndATail) {
  RepTreeRootSType& root = built(Leaves{listLeaf(0, {1, span(1) + 5}), denseLeaf(span(3), {span(3)}, 1)});
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(1) - 2, span(4) + 7), 3 * spanBits + 10 - 2);
  EXPECT_EQ(BmClearBit(&host, &root, 1), 1);
  expectRange(root, span(1) - 2, span(4) + 8);
}

TEST_P(SetRangeTest, FirstAboveLastSetsTheRestOfTheFirstSpanAndNothingFromASpansBeginning) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(2), span(1)), 0u);
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(BmSetBitRange_(&host, &root, span(3) - 4, 3), 4u);
  expectRange(root, span(3) - 4, span(3));
}

TEST_P(SetRangeTest, TheTreeOfTheRunIsGivenBack) {
  RepTreeRootSType& root = newTree();
  const size_t before = host.heapPages();
  BmSetBitRange_(&host, &root, 5, span(6));
  const size_t ownPages = isHeap() ? pagesOf(host, root).size() : 0;
  const size_t carefulSets = host.heapPages() - before - ownPages;
  EXPECT_LE(carefulSets, isCareful() ? 2u : 0u);
}

TEST_P(SetRangeTest, OutOfPagesNothingIsLostAndTheCountIsTrue) {
  if (isHeap()) return;
  for (long budget = 0; budget < 7; ++budget) {
    RepTreeRootSType& root =
        adopt(buildTree(host, kind(), Leaves{denseLeaf(span(1), {span(1) + 3}), denseLeaf(span(4), {span(4)})},
                        {.currentStamp = true}));
    host.setPageBudget(budget);
    const unsigned long count = BmSetBitRange_(&host, &root, span(1), span(4) - 1);
    host.setPageBudget(-1);
    expectSound(root);
    EXPECT_EQ(bitsOf(root).size(), 2 + count);
    EXPECT_EQ(BmTestBit(&host, &root, span(1) + 3) + BmTestBit(&host, &root, span(4)), 2);
    EXPECT_GE(count, spanBits - 1);
  }
}

TEST_P(SetRangeTest, DiskRootsAreWrittenBack) {
  if (isHeap()) return;
  DiskTreeRootSType disk = diskRootOf(RepTreeRootSType(0, kind()));
  EXPECT_EQ(BmSetBitRange_(&host, &disk, 3, 5), 3u);
  EXPECT_EQ(BmSetBitRange_(&host, &disk, 0, span(3) - 1), 3 * spanBits - 3);
  RepTreeRootSType written(pageIdOf(disk), kind());
  written.level = disk.level;
  expectRange(adopt(written), 0, span(3));
}

TEST_P(SetRangeTest, AnInlineListTakesAShortRange) {
  InlineTree inlined({4});
  EXPECT_EQ(BmSetBitRange_(&host, inlined.diskRoot(), 3, 6), 3u);
  EXPECT_EQ(bitsOf(*inlined.root()), (std::vector<uint64_t>{3, 4, 5, 6}));
}

}  // namespace
