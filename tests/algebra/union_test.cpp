#include "algebra/algebrafixture.h"

namespace {

// The kind under test is that of the destination.
class UnionTest : public AlgebraTest {
 protected:
  unsigned long unite(const RepTreeRootSType& source, RepTreeRootSType& destination) {
    TreeSnapshot snapshot(host, source);
    const unsigned long count = BmSetBits_(&host, &source, &destination);
    snapshot.expectUnchanged();
    return count;
  }
};
BMTREE_FOR_ALL_KINDS(UnionTest);

TEST_P(UnionTest, ASourceWithoutBitsChangesNothing) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(3), {span(3)})});
  TreeSnapshot unchanged(host, destination);
  InlineTree inlined;
  EXPECT_EQ(unite(RepTreeRootSType(0, BM_PAGE_TREE), destination), 0u);
  EXPECT_EQ(unite(*inlined.root(), destination), 0u);
  EXPECT_EQ(unite(built(BM_PAGE_TREE, listLeaf(0, {})), destination), 0u);
  EXPECT_EQ(unite(built(BM_PAGE_TREE, Leaves{denseLeaf(span(1), {}, 1), listLeaf(span(2), {}, 9)}), destination), 0u);
  unchanged.expectUnchanged();
}

TEST_P(UnionTest, AnEmptyDestinationTakesACopyInItsOwnKind) {
  RepTreeRootSType& destination = newTree();
  EXPECT_EQ(unite(built(BM_HEAP_TREE, Leaves{listLeaf(0, {1, 2}, 900), denseLeaf(span(3), {}, 1)}), destination), 2u);
  EXPECT_EQ(shapeOf(destination), "[0 list 2@255]");
  EXPECT_EQ(destination.treeKind, kind());
  expectSound(destination, {1, 2});
}

TEST_P(UnionTest, ACopyThatFailsGivesAllOnes) {
  if (isHeap()) return;
  RepTreeRootSType& destination = newTree();
  host.setPageBudget(0);
  EXPECT_EQ(unite(built(BM_HEAP_TREE, Leaves{listLeaf(0, {1})}), destination), ~0UL);
  EXPECT_EQ(destination.root, 0u);
}

TEST_P(UnionTest, ABitInBothTreesCountsNotAtAll) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(3), {span(3), span(3) + 1})});
  const RepTreeRootSType& source = built(Leaves{listLeaf(0, {2, 3}), denseLeaf(span(3), {span(3) + 1, span(3) + 2})});
  EXPECT_EQ(unite(source, destination), 2u);
  expectSound(destination, {1, 2, 3, span(3), span(3) + 1, span(3) + 2});
}

TEST_P(UnionTest, AKeptEmptyDenseLeafTakesTheWordsAndTheCountOfTheSource) {
  RepTreeRootSType& destination = built(Leaves{denseLeaf(span(2), {}, 1)});
  EXPECT_EQ(unite(built(Leaves{denseLeaf(span(2), {span(2), span(3) - 1})}), destination), 2u);
  EXPECT_EQ(shapeOf(destination), "[2 dense 2+]");
  expectSound(destination, {span(2), span(3) - 1});
}

TEST_P(UnionTest, ADenseLeafMakesTheListOfItsSpanDense) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {1, span(1) + 1, span(2)})});
  EXPECT_EQ(unite(built(Leaves{denseLeaf(span(1), {span(1)})}), destination), 1u);
  EXPECT_EQ(shapeOf(destination), "[0 list 1@0, 1 dense 2, 2 list 1@0]");
  expectSound(destination, {1, span(1), span(1) + 1, span(2)});
}

TEST_P(UnionTest, ADenseLeafGivesALevelZeroDestinationItsFirstLevel) {
  RepTreeRootSType& destination = built(listLeaf(0, {7}));
  EXPECT_EQ(unite(built(Leaves{denseLeaf(0, {8})}), destination), 1u);
  EXPECT_EQ(shapeOf(destination), "[0 dense 2]");
  expectSound(destination, {7, 8});
}

TEST_P(UnionTest, AListGoesIntoDenseLeavesBitByBit) {
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1}, 1), denseLeaf(span(1), {span(1)})});
  EXPECT_EQ(unite(built(listLeaf(0, {1, 2, span(1) + 5})), destination), 2u);
  EXPECT_EQ(shapeOf(destination), "[0 dense 2+, 1 dense 2]");
}

TEST_P(UnionTest, ADenseRootIsMergedAsTheLeafOfTheFirstSpan) {
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  EXPECT_EQ(unite(built(BM_PAGE_TREE, denseLeaf(0, {1, 130751})), destination), 1u);
  expectSound(destination, {1, 130751, span(1)});
}

TEST_P(UnionTest, AFullDenseLeafAddsWhatWasMissing) {
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1, 2, 130751})});
  const std::vector<uint64_t> all = runOfBits(0, span(1));
  EXPECT_EQ(unite(built(Leaves{denseLeaf(0, all)}), destination), 130749u);
  expectSound(destination);
  EXPECT_EQ(bitsOf(destination), all);
}

TEST_P(UnionTest, ADenseLeafIsMarkedOnceEvenIfNothingIsNew) {
  RepTreeRootSType& destination =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 2})}, {.currentStamp = true}));
  const RepTreeRootSType& source = built(BM_HEAP_TREE, Leaves{denseLeaf(0, {1})});
  const uint64_t leaf = refsAtLevel(host, destination, 0).front();
  host.clearEvents();
  EXPECT_EQ(unite(source, destination), 0u);
  EXPECT_EQ(host.countLogged(EventKind::dirty, leaf), isHeap() ? 0 : 1);
}

TEST_P(UnionTest, ACarefulLeafIsShadowedBeforeAnyoneLooks) {
  if (!isCareful()) return;
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1, 2})});
  const uint64_t oldRoot = destination.root;
  moveStampOn();
  EXPECT_EQ(unite(built(BM_HEAP_TREE, Leaves{denseLeaf(0, {1})}), destination), 0u);
  EXPECT_NE(destination.root, oldRoot);
  expectOldPagesUnchanged();
  expectCarefulSets();
}

TEST_P(UnionTest, PagesAreMarkedAfterTheirLastChange) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {1}), denseLeaf(span(3), {span(3)})});
  host.watchDirtyMarks();
  unite(built(BM_HEAP_TREE,
              Groups{{listLeaf(0, {2}), denseLeaf(span(1), {span(1)})}, {denseLeaf(span(3), {span(4) - 1})}}),
        destination);
  host.expectChangesMarked();
}

TEST_P(UnionTest, ALeafOfAnotherKindIsReportedAndTheWalkGoesOn) {
  const RepTreeRootSType& source = built(Leaves{listLeaf(0, {1}), listLeaf(span(1), {span(1)})});
  putU8(leafBytes(source, 0), at::pageKind, 4);
  RepTreeRootSType& destination = built(listLeaf(0, {5}));
  expectLeafFault(9773, source, [&] { EXPECT_EQ(BmSetBits_(&host, &source, &destination), 1u); });
  expectSound(destination, {5, span(1)});
  putU8(leafBytes(source, 0), at::pageKind, 12);
}

TEST_P(UnionTest, OutOfPagesADenseLeafIsLeftOutAndTheWalkGoesOn) {
  if (isHeap()) return;
  const BuildOptions current{.currentStamp = true};
  const RepTreeRootSType& source =
      built(BM_HEAP_TREE,
            Leaves{denseLeaf(span(1), {span(1)}), denseLeaf(span(3), {span(3) + 1}), listLeaf(span(5), {span(5)})});
  for (long budget = 0; budget < 6; ++budget) {
    RepTreeRootSType& destination = adopt(
        buildTree(host, kind(), Leaves{denseLeaf(span(3), {span(3)}), listLeaf(span(5), {span(5) + 1})}, current));
    host.setPageBudget(budget);
    const unsigned long count = unite(source, destination);
    host.setPageBudget(-1);
    EXPECT_EQ(count, budget == 0 ? 2u : 3u);  // only the first leaf needs a page
    BitSet expected{span(3), span(3) + 1, span(5), span(5) + 1};
    if (budget > 0) expected.insert(span(1));
    expectSound(destination, expected);
  }
}

TEST_P(UnionTest, OutOfPagesForShadowsNothingIsLost) {
  if (!isCareful()) return;
  const RepTreeRootSType& source =
      built(BM_HEAP_TREE, Leaves{denseLeaf(0, {1}), listLeaf(span(1), {span(1)}), denseLeaf(span(9), {span(9)})});
  for (long budget = 0; budget < 8; ++budget) {
    RepTreeRootSType& destination = built(Groups{{denseLeaf(0, {2})}, {listLeaf(span(1), {span(1) + 1})}});
    host.setPageBudget(budget);
    const unsigned long count = unite(source, destination);
    host.setPageBudget(-1);
    const std::vector<uint64_t> bits = bitsOf(destination);
    expectSound(destination, asSet(bits));
    EXPECT_EQ(bits.size(), 2 + count);
    EXPECT_EQ(differenceOf({2, span(1) + 1}, asSet(bits)), BitSet{});
    expectOldPagesUnchanged();
  }
}

TEST_P(UnionTest, AnInlineListIsASource) {
  InlineTree source({1, 5, span(4)}, 100);
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1}), listLeaf(span(1), {span(2)})});
  EXPECT_EQ(unite(*source.root(), destination), 2u);
  expectSound(destination, {1, 5, span(2), span(4)});
}

TEST_P(UnionTest, AnInlineListIsADestination) {
  InlineTree destination({5}, 100);
  EXPECT_EQ(unite(built(listLeaf(0, {4, 5, 6})), *destination.root()), 2u);
  EXPECT_EQ(unite(built(Leaves{denseLeaf(span(1), {span(1), span(1) + 9})}), *destination.root()), 2u);
  EXPECT_EQ(bitsOf(*destination.root()), (std::vector<uint64_t>{4, 5, 6, span(1), span(1) + 9}));
}

TEST_P(UnionTest, ADenseLeafThatAnInlineListHasNoRoomForIsLeftOut) {
  InlineTree destination(runOfBits(0, 2000));
  const std::vector<uint64_t> before = bitsOf(*destination.root());
  EXPECT_EQ(unite(built(Leaves{denseLeaf(span(1), runOfBits(span(1), span(1) + 44))}), *destination.root()), 0u);
  EXPECT_EQ(bitsOf(*destination.root()), before);
  EXPECT_EQ(unite(built(Leaves{denseLeaf(span(1), runOfBits(span(1), span(1) + 43))}), *destination.root()), 43u);
}

TEST_P(UnionTest, BitsThatAnInlineListHasAlreadyNeedNoRoom) {
  InlineTree destination(runOfBits(0, 2001));
  EXPECT_EQ(unite(built(Leaves{denseLeaf(0, runOfBits(0, 2021))}), *destination.root()), 20u);
  EXPECT_EQ(bitsOf(*destination.root()), runOfBits(0, 2021));
}

TEST_P(UnionTest, DiskRootsAreExpandedAndDestinationsWrittenBack) {
  if (isHeap()) return;
  const DiskTreeRootSType source = diskRootOf(built(Leaves{denseLeaf(span(1), {span(1)})}));
  RepTreeRootSType& memory = built(listLeaf(0, {7}));
  EXPECT_EQ(BmSetBits_(&host, &source, &memory), 1u);
  expectSound(memory, {7, span(1)});
  DiskTreeRootSType target = diskRootOf(RepTreeRootSType(0, kind()));
  EXPECT_EQ(BmSetBits_(&host, &source, &target), 1u);
  EXPECT_EQ(BmSetBits_(&host, &memory, &target), 1u);
  RepTreeRootSType written(pageIdOf(target), kind());
  written.level = target.level;
  expectSound(adopt(written), {7, span(1)});
}

TEST_P(UnionTest, AnInlineDiskRootIsADestination) {
  InlineTree destination({5});
  const RepTreeRootSType& source = built(listLeaf(0, {6}));
  EXPECT_EQ(BmSetBits_(&host, &source, destination.diskRoot()), 1u);
  EXPECT_EQ(bitsOf(*destination.root()), (std::vector<uint64_t>{5, 6}));
}

}  // namespace
