// Making the leaf that a bit belongs in: where it lands, what the path says, what is shadowed and marked in which
// order.
#include "tree/leafcreation.h"

#include "tree/writetest.h"

namespace {

constexpr uint64_t allOnes = ~uint64_t{0};

// `count` dense leaves, one per span, from span `first` on, each with its first bit.
Leaves denseRow(uint64_t first, size_t count) {
  Leaves leaves;
  for (uint64_t i = first; i < first + count; ++i) leaves.push_back(denseLeaf(span(i), {span(i)}));
  return leaves;
}

class LeafCreationTest : public WriteTest {
 protected:
  RepPageHdrSType* locate(RepTreeRootSType& tree, BmPathSType* path, uint64_t bit) {
    *path = {};
    host.clearEvents();
    return locateOrCreateLeaf(&host, &tree, path, bit);
  }

  uint64_t refOf(const RepPageHdrSType* page) const { return page->pageId; }

  void expectLevel(const BmPathLevelSType& level, int64_t numEntries, uint64_t firstBit, uint64_t limitBit,
                   int index) {
    EXPECT_EQ(level.numEntries, numEntries);
    EXPECT_EQ(level.firstBit, firstBit);
    EXPECT_EQ(level.limitBit, limitBit);
    EXPECT_EQ(level.index, index);
  }

  std::vector<std::string> newAndDirty() { return host.takeEvents({EventKind::newPage, EventKind::dirty}); }
};
BMTREE_FOR_ALL_KINDS(LeafCreationTest);

// ---------------------------------------------------------------------------------------------------------
// locateOrCreateLeaf

TEST_P(LeafCreationTest, AnEmptyTreeGetsAListThatOwnsEveryBit) {
  RepTreeRootSType& tree = newTree();
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(9));
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(tree.root, refOf(leaf));
  EXPECT_EQ(tree.level, 0);
  EXPECT_EQ(path.depth, 0);
  EXPECT_EQ(path.levels[0].pageId, tree.root);
  EXPECT_EQ(path.levels[0].firstBit, 0u);
  EXPECT_EQ(path.levels[0].limitBit, BM_END_BIT);
  EXPECT_EQ(path.levels[1].pageId, 0u);
  EXPECT_EQ(path.levels[1].firstBit, 0u);
  EXPECT_EQ(path.levels[1].limitBit, BM_END_BIT);
  expectTree(tree, "list 0@0", {});
}

TEST_P(LeafCreationTest, ARootListIsShadowedInACarefulTreeAndLocatedInOthers) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {7}));
  const uint64_t old = tree.root;
  BmPathSType path;
  EXPECT_EQ(refOf(locate(tree, &path, 3)), tree.root);
  EXPECT_EQ(path.levels[0].pageId, tree.root);
  EXPECT_EQ(tree.root == old, !isCareful());
  expectTree(tree, "list 1@0", {7});
  expectCarefulSets();
}

TEST_P(LeafCreationTest, ARootOfAnotherKindIsReportedAndUsed) {
  RepTreeRootSType& tree = adoptTree(denseLeaf(0, {7}), {.currentStamp = true});
  BmPathSType path;
  EXPECT_EQ(refOf(locate(tree, &path, 3)), tree.root);
  const std::string page = std::to_string(tree.root) + " is not of kind 12";
  host.expectReports({isHeap() ? "header fault: page " + page + ", null:0" : "locate fault: page " + page});
}

TEST_P(LeafCreationTest, ABitInAListOfManySpansIsAHit) {
  RepTreeRootSType& tree = adoptTree(
      Leaves{listLeaf(span(1), {span(1), span(90)}), denseLeaf(span(100), {span(100)})}, {.internalFirstOffset = 3});
  const uint64_t old = leafRef(tree, 0);
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(77) + 5);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 0));
  EXPECT_EQ(refOf(leaf) == old, !isCareful());
  EXPECT_EQ(path.depth, 1);
  EXPECT_EQ(path.levels[1].pageId, tree.root);
  expectLevel(path.levels[1], 2, span(1), span(100) | 1, 0);
  EXPECT_EQ(path.levels[0].pageId, refOf(leaf));
  expectLevel(path.levels[0], 0, span(1), allOnes, 0);
  EXPECT_EQ(host.count(EventKind::newPage), isCareful() ? 2u : 0u);
  expectSound(tree);
}

TEST_P(LeafCreationTest, AHitInALevel2TreeRecordsBothLevels) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(0, 3), denseRow(10, 3), denseRow(20, 1)});
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(12) + 5);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 5));
  EXPECT_EQ(path.levels[2].pageId, tree.root);
  EXPECT_EQ(path.levels[1].pageId, nodeRef(tree, 1));
  expectLevel(path.levels[2], 3, span(10), span(20), 1);
  expectLevel(path.levels[1], 3, span(12), allOnes, 2);
  locate(tree, &path, span(20));
  expectLevel(path.levels[2], 3, span(20), BM_END_BIT, 2);
  expectLevel(path.levels[1], 1, span(20), allOnes, 0);
  expectCarefulSets();
}

TEST_P(LeafCreationTest, ABitJustPastADenseLeafGetsALeafOfItsSpanInTheSlotBehind) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(span(2), {span(2)}), denseLeaf(span(7), {span(7)})});
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(3) + 11);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 1));
  expectLevel(path.levels[1], 3, span(3), span(7) | 1, 1);
  EXPECT_EQ(path.levels[0].pageId, refOf(leaf));
  expectLevel(path.levels[0], 0, span(3), allOnes, 0);
  expectTree(tree, "[2 dense 1, 3 list 0@0, 7 dense 1]", {span(2), span(7)});
}

TEST_P(LeafCreationTest, ABitPastTheLastLeafGetsOneAtTheEnd) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(2, 1), denseRow(9, 1)});
  BmPathSType path;
  locate(tree, &path, span(5) + 1);
  expectLevel(path.levels[1], 2, span(5), allOnes, 1);
  expectLevel(path.levels[2], 2, span(2), span(9), 0);
  EXPECT_EQ(shapeOf(tree), "[2 [2 dense 1, 5 list 0@0], 9 [9 dense 1]]");
  locate(tree, &path, 0xFFFFFFFFFF);
  expectLevel(path.levels[1], 2, span(lastSpan), allOnes, 1);
  expectSound(tree);
}

TEST_P(LeafCreationTest, ABitBelowALevelOneRootGetsTheFirstSlotAndNothingAboveChanges) {
  RepTreeRootSType& tree = adoptTree(denseRow(4, 2), {.currentStamp = true});
  BmPathSType path;
  locate(tree, &path, span(1) + 6);
  EXPECT_EQ(marks(tree.root), cached(1));
  expectLevel(path.levels[1], 3, span(1), span(4) | 1, 0);
  expectTree(tree, "[1 list 0@0, 4 dense 1, 5 dense 1]", {span(4), span(5)});
}

TEST_P(LeafCreationTest, ABitBelowALevel2TreeGetsALeafOnTheLeftAndTheLevel2KeyFollows) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 2), denseRow(9, 1)});
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(1) + 6);
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 0));
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(1), span(9)}));
  expectLevel(path.levels[1], 3, span(1), span(4) | 1, 0);
  expectTree(tree, "[1 [1 list 0@0, 4 dense 1, 5 dense 1], 9 [9 dense 1]]", {span(4), span(5), span(9)});
  expectCarefulSets();
}

TEST_P(LeafCreationTest, ABitBelowAFullFirstPageSplitsThatPageFirst) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 1021), denseRow(2000, 1)});
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(1) + 6);
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 0));
  EXPECT_EQ(pairsOf(tree, nodeRef(tree, 0)), 512u);
  EXPECT_EQ(pairsOf(tree, nodeRef(tree, 1)), 511u);  // half of the room of the right sibling
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(1), span(515)}));
  expectSound(tree);
  expectCarefulSets();
}

TEST_P(LeafCreationTest, AFullLevelOneRootIsSplitFirstAndTheSearchStartsOver) {
  Leaves leaves = denseRow(0, 1021);
  for (LeafSpec& leaf : leaves) leaf.key *= 2;
  for (LeafSpec& leaf : leaves) leaf.bits = {leaf.key};
  RepTreeRootSType& tree = adoptTree(leaves);
  BmPathSType path;
  const RepPageHdrSType* leaf = locate(tree, &path, span(1501));
  EXPECT_EQ(tree.level, 2);
  EXPECT_EQ(path.depth, 2);
  EXPECT_EQ(pairsOf(tree, nodeRef(tree, 0)), 510u);
  EXPECT_EQ(pairsOf(tree, nodeRef(tree, 1)), 512u);
  expectLevel(path.levels[2], 2, span(1020), BM_END_BIT, 1);
  expectLevel(path.levels[1], 512, span(1501), span(1502) | 1, 751 - 510);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 751));
  expectSound(tree);
  expectCarefulSets();
}

TEST_P(LeafCreationTest, ATreeOfDenseLeavesGetsADenseLeafThatStays) {
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1));
  tree.denseLeaves = 1;
  BmPathSType path;
  locate(tree, &path, span(8));
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(4) | 1, span(8) | 1}));
  EXPECT_EQ(rawU16(bytesOf(tree, leafRef(tree, 1)), at::bytesUsed), 16384);
  expectTree(tree, "[4 dense 1, 8 dense 0+]", {span(4)});
}

// ---------------------------------------------------------------------------------------------------------
// Order and marks of a new leaf

TEST_P(LeafCreationTest, TheLeafIsCompleteBeforeItsParentNamesIt) {
  if (isHeap()) GTEST_SKIP() << "heap pages are not marked";
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1), {.currentStamp = true});
  BmPathSType path;
  locate(tree, &path, span(8));
  const std::string leaf = std::to_string(leafRef(tree, 1));
  std::vector<std::string> expected{"new " + leaf + " kind 12 shared " + (kind() >= 2 ? "1" : "0")};
  expected.insert(expected.end(), isCareful() ? 3 : 2, "dirty " + leaf + " mode 3");
  expected.push_back("dirty " + std::to_string(tree.root) + " mode 3");
  EXPECT_EQ(newAndDirty(), expected);
}

TEST_P(LeafCreationTest, ADenseLeafIsMarkedOnceItIsFilled) {
  if (isHeap()) GTEST_SKIP() << "heap pages are not marked";
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1), {.currentStamp = true});
  tree.denseLeaves = 1;
  BmPathSType path;
  locate(tree, &path, span(8));
  EXPECT_EQ(marks(leafRef(tree, 1)), isCareful() ? 2 : 1);
}

TEST_P(LeafCreationTest, OldPagesAboveANewLeafAreShadowedAfterItFromBelow) {
  if (!isCareful()) GTEST_SKIP() << "only careful trees shadow";
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 1), denseRow(9, 1)});
  const uint64_t next = host.nextPageId();
  BmPathSType path;
  locate(tree, &path, span(1));
  // a level-2 tree is entered from the left with its root made writable first
  const std::string root = std::to_string(next), leaf = std::to_string(next + 1), page = std::to_string(next + 2);
  EXPECT_EQ(host.takeEvents({EventKind::newPage}),
            (std::vector<std::string>{"new " + root + " kind 7 shared 1", "new " + leaf + " kind 12 shared 1",
                                      "new " + page + " kind 7 shared 1"}));
  EXPECT_EQ(tree.root, next);
  locate(tree, &path, span(12));
  EXPECT_EQ(host.takeEvents({EventKind::newPage}),
            (std::vector<std::string>{"new " + std::to_string(next + 3) + " kind 12 shared 1",
                                      "new " + std::to_string(next + 4) + " kind 7 shared 1"}));
  EXPECT_EQ(path.levels[1].pageId, next + 4);
  EXPECT_EQ(path.levels[2].pageId, next);
  expectCarefulSets();
  expectSound(tree);
}

TEST_P(LeafCreationTest, AnIdThatIsAlreadyAmongTheDirtyOnesIsReported) {
  if (!isCareful()) GTEST_SKIP() << "only careful pages are recorded";
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1), {.currentStamp = true});
  const uint64_t id = host.nextPageId();
  BmSetBit(&host, host.dirtyCarefulBm, id);
  BmPathSType path;
  EXPECT_NE(locate(tree, &path, span(8)), nullptr);
  host.expectReports(
      {"cache fault: page " + std::to_string(id) + " \"duplicate dirty carefulBm pages\\n\" bitmap:920"});
}

// ---------------------------------------------------------------------------------------------------------
// newLeafPage and linkLeaf by themselves

TEST_P(LeafCreationTest, WithoutAPageForTheLeafTheParentStaysAsItIs) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1));
  host.setPageBudget(0);
  BmPathSType path;
  EXPECT_EQ(locate(tree, &path, span(8)), nullptr);
  EXPECT_EQ(newAndDirty(), std::vector<std::string>{});
  expectTree(tree, "[4 dense 1]", {span(4)});
}

TEST_P(LeafCreationTest, ALeafWhoseParentCannotBeShadowedIsGivenBack) {
  if (!isCareful()) GTEST_SKIP() << "only careful trees shadow";
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 1)});
  for (long budget = 1; budget < 3; ++budget) {
    host.setPageBudget(budget);
    BmPathSType path;
    EXPECT_EQ(locate(tree, &path, span(8)), nullptr);
    expectTree(tree, "[4 [4 dense 1]]", {span(4)});
    EXPECT_EQ(host.livePages().size(), 3u);
    expectCarefulSets();
  }
}

TEST_P(LeafCreationTest, AFullParentIsReportedOnceAndTheLeafGivenBack) {
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1021), {.currentStamp = true});
  BmPathSType path = pathTo(tree, span(7));
  path.levels[1].firstBit = span(7);
  EXPECT_EQ(newLeafPage(&host, &tree, &path), 0u);
  host.expectReports({"guarantee bitmap:199"});
  EXPECT_EQ(pagesOf(host, tree).size(), 1022u);
  expectSound(tree);
}

TEST_P(LeafCreationTest, BelowAFirstKeyOf0NoLevel2KeyIsMended) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(0, 1), denseRow(9, 1)}, {.currentStamp = true});
  BmPathSType path = pathTo(tree, 0);
  EXPECT_NE(newLeafPage(&host, &tree, &path), 0u);
  EXPECT_EQ(marks(tree.root), 0);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(9)}));
}

// ---------------------------------------------------------------------------------------------------------
// newLeftLeaf

TEST_P(LeafCreationTest, ATreeBelowLevel2HasNoLeftLeafToAdd) {
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1));
  newLeftLeaf(&host, &tree, span(1), 0);
  expectTree(tree, "[4 dense 1]", {span(4)});
}

TEST_P(LeafCreationTest, ALeftLeafThatIsNotBelowTheFirstKeyIsNotMade) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 1)}, {.currentStamp = true});
  host.clearEvents();
  newLeftLeaf(&host, &tree, span(4), 0);
  EXPECT_EQ(newAndDirty(), std::vector<std::string>{});
  expectTree(tree, "[4 [4 dense 1]]", {span(4)});
}

// ---------------------------------------------------------------------------------------------------------
// firstBaseBitChanged

TEST_P(LeafCreationTest, AKeyThatAlreadyReadsSoLeavesRootAndPathAlone) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 1), denseRow(9, 1)});
  const uint64_t root = tree.root;
  BmPathSType path{};
  path.levels[2].limitBit = 17;
  host.clearEvents();
  firstBaseBitChanged(&host, &tree, span(6), span(4), &path);
  EXPECT_EQ(tree.root, root);
  EXPECT_EQ(path.levels[2].limitBit, 17u);
  EXPECT_EQ(newAndDirty(), std::vector<std::string>{});
}

TEST_P(LeafCreationTest, AChangedFirstKeyGoesIntoTheLevel2PageAndThePathsLimitFollows) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(4, 1), denseRow(9, 1), denseRow(12, 1)});
  BmPathSType path{};
  path.levels[2] = {1, 2, 3, 4, 5};
  host.clearEvents();
  firstBaseBitChanged(&host, &tree, span(9), span(8), &path);
  EXPECT_EQ(marks(tree.root), isCareful() ? 3 : cached(1));
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(4), span(8), span(12)}));
  expectLevel(path.levels[2], 2, 3, span(12), 5);
  firstBaseBitChanged(&host, &tree, span(12), span(11), &path);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(4), span(8), span(11)}));
  EXPECT_EQ(path.levels[2].limitBit, BM_END_BIT);
  firstBaseBitChanged(&host, &tree, span(11), span(12), nullptr);
  firstBaseBitChanged(&host, &tree, span(8), span(9), nullptr);
  expectTree(tree, "[4 [4 dense 1], 9 [9 dense 1], 12 [12 dense 1]]", {span(4), span(9), span(12)});
  expectCarefulSets();
}

TEST_P(LeafCreationTest, ATreeOfAnotherLevelHasNoLevel2KeyToChange) {
  RepTreeRootSType& tree = adoptTree(denseRow(4, 1));
  host.clearEvents();
  firstBaseBitChanged(&host, &tree, span(4), span(2), nullptr);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
  expectSound(tree);
}

// ---------------------------------------------------------------------------------------------------------
// locateOrCreateBmLeaf

TEST_P(LeafCreationTest, AnEmptyTreeGetsALevelOneRootWithTheDenseLeaf) {
  RepTreeRootSType& tree = newTree();
  const RepPageHdrSType* leaf = locateOrCreateBmLeaf(&host, &tree, span(3));
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 0));
  expectTree(tree, "[3 dense 0]", {});
}

TEST_P(LeafCreationTest, ADenseLeafIsReturnedWritable) {
  RepTreeRootSType& tree = adoptTree(Groups{denseRow(3, 2)});
  const uint64_t old = leafRef(tree, 1);
  const RepPageHdrSType* leaf = locateOrCreateBmLeaf(&host, &tree, span(4));
  EXPECT_EQ(refOf(leaf), leafRef(tree, 1));
  EXPECT_EQ(refOf(leaf) == old, !isCareful());
  expectTree(tree, "[3 [3 dense 1, 4 dense 1]]", {span(3), span(4)});
  expectCarefulSets();
}

TEST_P(LeafCreationTest, AListThatOwnsTheSpanIsConvertedAndItsOtherEntriesStayInTheTree) {
  const std::vector<uint64_t> bits{5, span(3) - 1, span(3), span(3) + 64, span(4), span(8)};
  RepTreeRootSType& tree = adoptTree(listLeaf(0, bits));
  const RepPageHdrSType* leaf = locateOrCreateBmLeaf(&host, &tree, span(3));
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(rawU8(leaf, at::pageKind), 8);
  EXPECT_EQ(refOf(leaf), leafRef(tree, 1));
  expectTree(tree, "[0 list 2@0, 3 dense 2, 4 list 2@0]", bits);
  expectCarefulSets();
}

TEST_P(LeafCreationTest, AGapGetsADenseLeafAsWell) {
  RepTreeRootSType& tree = adoptTree(denseRow(3, 1));
  const RepPageHdrSType* leaf = locateOrCreateBmLeaf(&host, &tree, span(6));
  EXPECT_EQ(refOf(leaf), leafRef(tree, 1));
  expectTree(tree, "[3 dense 1, 6 dense 0]", {span(3)});
}

TEST_P(LeafCreationTest, ALeafOfUnknownKindIsReportedAndReturned) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1})}, {.currentStamp = true});
  const uint64_t leaf = leafRef(tree, 0);
  putU8(host.bytes(tree, leaf), at::pageKind, 4);
  testing::internal::CaptureStderr();
  EXPECT_EQ(refOf(locateOrCreateBmLeaf(&host, &tree, 0)), leaf);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Bitmap page fault, pageHdrPtr 0x"), std::string::npos);
  host.expectReports({leafFault(leaf)});
  putU8(host.bytes(tree, leaf), at::pageKind, 12);
}

TEST_P(LeafCreationTest, WithoutPagesThereIsNoDenseLeafAndTheTreeHoldsWhatItHeld) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  const std::vector<uint64_t> bits{5, span(3), span(8)};
  RepTreeRootSType& tree = adoptTree(listLeaf(0, bits));
  long budget = 0;
  for (;; ++budget) {
    host.setPageBudget(budget);
    const bool done = locateOrCreateBmLeaf(&host, &tree, span(3)) != nullptr;
    expectSound(tree, {bits.begin(), bits.end()});
    expectCarefulSets();
    if (done) break;
    ASSERT_LT(budget, 10);
  }
  EXPECT_EQ(shapeOf(tree), "[0 list 1@0, 3 dense 1, 8 list 1@0]");
  EXPECT_GT(budget, 1);
}

}  // namespace
