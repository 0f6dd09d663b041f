// Growth to a high-water mark.
#include "lifetime/grow.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/treemodel.h"

namespace {

constexpr uint64_t SPAN = BM_LEAF_BITS;
constexpr uint64_t FULL = BM_INT_CAPACITY;
using Leaves = std::vector<LeafSpec>;

class GrowTest : public TreeTest {
 protected:
  static constexpr const char* REFUSED = "guarantee bitmap:";

  RepTreeRootSType& grownTo(uint64_t bit) {
    RepTreeRootSType& root = newTree();
    BmGrowToHighWaterBit(&host, &root, bit);
    return root;
  }

  // Pages of the kind under test; the id sets of careful trees live on the heap and are no part of them.
  size_t pagesInBeing() { return isHeap() ? host.heapPages() : host.livePages().size(); }

  // Every leaf from span 0 to span `leaves` - 1 is there, empty and kept.
  void expectEmptyLeaves(const RepTreeRootSType& root, uint64_t leaves) {
    const std::vector<TreePage> pages = pagesOf(host, root);
    uint64_t key = 0;
    for (const TreePage& page : pages) {
      if (page.level != 0) continue;
      const unsigned char* bytes = bytesOf(root, page.ref);
      ASSERT_EQ(page.key, key | 1);
      ASSERT_EQ(rawU8(bytes, at::pageKind), 8);
      ASSERT_EQ(rawU32(bytes, at::bitsSet), 0U);
      ASSERT_EQ(rawU32(bytes, at::keepWhenEmpty), 1U);
      ASSERT_EQ(rawU16(bytes, at::bytesUsed), 16384);
      key += SPAN;
    }
    EXPECT_EQ(key, leaves * SPAN);
    EXPECT_EQ(root.denseLeaves, 1);
    expectSound(root, {});
  }

  // The growth was refused with one report, and nothing has changed.
  void expectRefused(const RepTreeRootSType& root, const RepTreeRootSType& before, const std::string& shape) {
    const std::vector<Report> reports = host.takeReports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].toString().rfind(REFUSED, 0), 0U) << reports[0].toString();
    EXPECT_EQ(shapeOf(root), shape);
    EXPECT_EQ(root.level, before.level);
    EXPECT_EQ(root.denseLeaves, before.denseLeaves);
    EXPECT_EQ(root.allocTag, before.allocTag);
    EXPECT_EQ(host.pinsHeld(), 0);
  }
};

TEST_P(GrowTest, GrowthToBitZeroGivesOneEmptyLeaf) {
  RepTreeRootSType& root = grownTo(0);
  EXPECT_EQ(shapeOf(root), "[0 dense 0+]");
  expectEmptyLeaves(root, 1);
}

TEST_P(GrowTest, TheLeafOfTheMarkIsTheLastOne) {
  expectEmptyLeaves(grownTo(SPAN - 1), 1);
  expectEmptyLeaves(grownTo(SPAN), 2);
  expectEmptyLeaves(grownTo(7 * SPAN + 3), 8);
}

TEST_P(GrowTest, A1021stLeafFillsALevel1RootAndOneMoreMakesALevel2Root) {
  RepTreeRootSType& full = grownTo(FULL * SPAN - 1);
  EXPECT_EQ(full.level, 1);
  expectEmptyLeaves(full, FULL);
  BmDisposeTree(&host, &full);
  RepTreeRootSType& more = grownTo(FULL * SPAN);
  EXPECT_EQ(more.level, 2);
  expectEmptyLeaves(more, FULL + 1);
  const std::vector<uint64_t> level1 = refsAtLevel(host, more, 1);
  ASSERT_EQ(level1.size(), 2U);
  EXPECT_EQ(rawU16(bytesOf(more, level1[0]), at::intCount), FULL);
  EXPECT_EQ(rawU16(bytesOf(more, level1[1]), at::intCount), 1);
  EXPECT_EQ(rawU16(bytesOf(more, more.root), at::intCount), 2);
  EXPECT_EQ(rawU64(bytesOf(more, more.root), at::key(0)), 0U);
  EXPECT_EQ(rawU64(bytesOf(more, more.root), at::key(1)), FULL * SPAN);
  EXPECT_EQ(rawU16(bytesOf(more, level1[1]), at::intLevel), 1);
}

TEST_P(GrowTest, PagesAreOfTheTreesTag) {
  if (!isHeap()) return;
  RepTreeRootSType& root = grownTo(3 * SPAN);
  for (const TreePage& page : pagesOf(host, root)) EXPECT_EQ(host.heapTag(page.ref), 777);
}

TEST_P(GrowTest, ASecondGrowthToTheSameMarkChangesNothing) {
  RepTreeRootSType& root = grownTo(5 * SPAN);
  const RepTreeRootSType before = root;
  host.clearEvents();
  BmGrowToHighWaterBit(&host, &root, 5 * SPAN);
  BmGrowToHighWaterBit(&host, &root, 6 * SPAN - 1);
  BmGrowToHighWaterBit(&host, &root, 0);
  EXPECT_EQ(std::memcmp(&root, &before, sizeof root), 0);
  EXPECT_EQ(host.takeEvents({EventKind::newPage, EventKind::heapAlloc, EventKind::dirty}),
            std::vector<std::string>{});
  expectEmptyLeaves(root, 6);
}

TEST_P(GrowTest, ARaiseAddsEmptyLeavesOneByOne) {
  RepTreeRootSType& root = grownTo(2 * SPAN);
  const uint64_t firstPage = root.root;
  BmGrowToHighWaterBit(&host, &root, 6 * SPAN + 5);
  EXPECT_EQ(root.root, firstPage);
  expectEmptyLeaves(root, 7);
}

TEST_P(GrowTest, ARaiseOfATreeThatHoldsBitsKeepsThem) {
  RepTreeRootSType& root = grownTo(2 * SPAN);
  BmSetBit(&host, &root, SPAN + 7);
  BmGrowToHighWaterBit(&host, &root, 4 * SPAN);
  EXPECT_EQ(shapeOf(root), "[0 dense 0+, 1 dense 1+, 2 dense 0+, 3 dense 0+, 4 dense 0+]");
  expectSound(root, {SPAN + 7});
}

TEST_P(GrowTest, ARaisePassesTheFullLevel1Root) {
  RepTreeRootSType& root = grownTo(FULL * SPAN - 1);
  BmGrowToHighWaterBit(&host, &root, (FULL + 2) * SPAN);
  EXPECT_EQ(root.level, 2);
  expectEmptyLeaves(root, FULL + 3);
}

TEST_P(GrowTest, BitsCanBeSetAndClearedWithoutAChangeOfShape) {
  RepTreeRootSType& root = grownTo(3 * SPAN);
  const std::vector<TreePage> before = pagesOf(host, root);
  for (const uint64_t bit : {0UL, SPAN, 3 * SPAN + 99}) EXPECT_EQ(BmSetBit(&host, &root, bit), 0);
  for (const uint64_t bit : {0UL, SPAN, 3 * SPAN + 99}) EXPECT_EQ(BmClearBit(&host, &root, bit), 1);
  const std::vector<TreePage> after = pagesOf(host, root);
  ASSERT_EQ(after.size(), before.size());
  for (size_t i = 0; i < after.size(); ++i) EXPECT_EQ(after[i].ref, before[i].ref);
}

TEST_P(GrowTest, ATreeWithBitsIsRebuiltOfDenseLeaves) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Leaves{listLeaf(0, {1, 2}), denseLeaf(SPAN, {SPAN + 3}), listLeaf(3 * SPAN, {4 * SPAN})},
      {.currentStamp = true}));
  BmGrowToHighWaterBit(&host, &root, 2 * SPAN);
  EXPECT_EQ(shapeOf(root), "[0 dense 2+, 1 dense 1+, 2 dense 0+, 4 dense 1+]");
  EXPECT_EQ(root.allocTag, 8232);
  EXPECT_EQ(root.treeKind, kind());
  EXPECT_EQ(root.denseLeaves, 1);
  expectSound(root, {1, 2, SPAN + 3, 4 * SPAN});
  EXPECT_EQ(pagesInBeing(), pagesOf(host, root).size());
}

TEST_P(GrowTest, AnOneListTreeIsRebuiltToo) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {7}), {.currentStamp = true}));
  BmGrowToHighWaterBit(&host, &root, 7);
  EXPECT_EQ(shapeOf(root), "[0 dense 1+]");
  expectSound(root, {7});
}

TEST_P(GrowTest, AnEmptyRootOfTheOrdinaryFormGivesItsPagesBackFirst) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {}, 1), listLeaf(SPAN, {})}, {.currentStamp = true}));
  BmGrowToHighWaterBit(&host, &root, 2 * SPAN);
  expectEmptyLeaves(root, 3);
  EXPECT_EQ(pagesInBeing(), 4U);
  EXPECT_EQ(root.allocTag, 777);
}

TEST_P(GrowTest, AGrownTreeThatRanDryGrowsFromTheStart) {
  RepTreeRootSType& root = grownTo(2 * SPAN);
  BmDisposeTree(&host, &root);
  EXPECT_EQ(root.denseLeaves, 1);
  BmGrowToHighWaterBit(&host, &root, SPAN);
  expectEmptyLeaves(root, 2);
}

TEST_P(GrowTest, ABitOfTheTreesOwnSurvivesTheRaise) {
  // a list as the last leaf owns the spans of the new leaves, and its own bit stands where a leaf would begin
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {}, 1), listLeaf(SPAN, {SPAN + 1, 2 * SPAN})}));
  root.denseLeaves = 1;
  BmGrowToHighWaterBit(&host, &root, 4 * SPAN);
  EXPECT_EQ(bitsOf(root), (std::vector<uint64_t>{SPAN + 1, 2 * SPAN}));
  expectSound(root);
}

TEST_P(GrowTest, ALevel0RootCountsAsALeafAtZero) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {SPAN, 2 * SPAN + 1})));
  root.denseLeaves = 1;
  BmGrowToHighWaterBit(&host, &root, 3 * SPAN);
  expectSound(root, {SPAN, 2 * SPAN + 1});
}

TEST_P(GrowTest, ALevel0RootOfAnotherKindIsReported) {
  if (!isHeap()) return;
  RepTreeRootSType root = buildTree(host, kind(), denseLeaf(0, {3}));
  root.denseLeaves = 1;
  BmGrowToHighWaterBit(&host, &root, SPAN - 1);
  host.expectReports({"guarantee bitmap:970"});
  adopt(root);
}

TEST_P(GrowTest, EmptyLevel1PagesAtTheEndArePassedOver) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), std::vector<Leaves>{{denseLeaf(0, {1}, 1), denseLeaf(SPAN, {}, 1)}, {}}));
  root.denseLeaves = 1;
  BmGrowToHighWaterBit(&host, &root, SPAN);  // the leaf of the mark is there
  EXPECT_EQ(bitsOf(root), std::vector<uint64_t>{1});
  EXPECT_EQ(refsAtLevel(host, root, 0).size(), 2U);
}

TEST_P(GrowTest, AnOopGrowsToItsBit) {
  RepTreeRootSType& byOop = newTree();
  BmGrowToHighWaterOop(&host, &byOop, 3 * SPAN << 8 | 1);
  expectEmptyLeaves(byOop, 4);
  RepTreeRootSType& tagless = newTree();
  BmGrowToHighWaterOop(&host, &tagless, 3 * SPAN << 8);
  expectEmptyLeaves(tagless, 4);
}

TEST_P(GrowTest, GrowthBeyondWhatATreeCanHoldIsReportedAndRefused) {
  for (const uint64_t bit : {FULL * FULL * SPAN, BM_HIGHEST_BIT}) {
    RepTreeRootSType& root = newTree();
    BmGrowToHighWaterBit(&host, &root, bit);
    expectRefused(root, newTree(), "empty");
    RepTreeRootSType& filled = adopt(buildTree(host, kind(), listLeaf(0, {7})));
    RepTreeRootSType before = filled;
    BmGrowToHighWaterBit(&host, &filled, bit);
    expectRefused(filled, before, "list 1@0");
    RepTreeRootSType& grown = grownTo(SPAN);
    before = grown;
    BmGrowToHighWaterBit(&host, &grown, bit);
    expectRefused(grown, before, "[0 dense 0+, 1 dense 0+]");
  }
}

TEST_P(GrowTest, OutOfPagesOnTheWayUpGivesBackWhatWasBuilt) {
  if (isHeap()) return;
  for (long budget = 0; budget < 5; ++budget) {
    RepTreeRootSType& root = newTree();
    host.setPageBudget(budget);
    BmGrowToHighWaterBit(&host, &root, 3 * SPAN);
    host.setPageBudget(-1);
    expectRefused(root, newTree(), "empty");
    EXPECT_EQ(host.livePages().size(), 0U);
    expectCarefulSets();
  }
  host.setPageBudget(5);
  RepTreeRootSType& root = grownTo(3 * SPAN);
  host.setPageBudget(-1);
  expectEmptyLeaves(root, 4);
}

TEST_P(GrowTest, OutOfPagesInALevel2GrowthGivesBackWhatWasBuilt) {
  if (isHeap()) return;
  for (const long budget : {1L, 2L, 700L, 1022L, 1023L, 1024L}) {
    RepTreeRootSType& root = newTree();
    host.setPageBudget(budget);
    BmGrowToHighWaterBit(&host, &root, FULL * SPAN);
    host.setPageBudget(-1);
    expectRefused(root, newTree(), "empty");
    EXPECT_EQ(host.livePages().size(), 0U);
  }
}

TEST_P(GrowTest, OutOfPagesInARebuildLeavesTheOldTree) {
  if (isHeap()) return;
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1}), listLeaf(5 * SPAN, {5 * SPAN, 9 * SPAN})}));
  const RepTreeRootSType before = root;
  const size_t pages = host.livePages().size();
  for (long budget = 0; budget < 6; ++budget) {  // root, three leaves, and two more for the bits above
    host.setPageBudget(budget);
    BmGrowToHighWaterBit(&host, &root, 2 * SPAN);
    host.setPageBudget(-1);
    expectRefused(root, before, "[0 list 1@0, 5 list 2@0]");
    EXPECT_EQ(host.livePages().size(), pages) << budget;
    expectSound(root, {1, 5 * SPAN, 9 * SPAN});
  }
}

TEST_P(GrowTest, OutOfPagesInARaiseTakesTheNewLeavesAway) {
  if (isHeap()) return;
  RepTreeRootSType& root = grownTo(SPAN);
  BmSetBit(&host, &root, 5);
  const RepTreeRootSType before = root;
  for (long budget = 0; budget < 4; ++budget) {
    host.setPageBudget(budget);
    BmGrowToHighWaterBit(&host, &root, 5 * SPAN);
    host.setPageBudget(-1);
    expectRefused(root, before, "[0 dense 1+, 1 dense 0+]");
    EXPECT_EQ(host.livePages().size(), 3U);
    expectSound(root, {5});
  }
}

TEST_P(GrowTest, OutOfPagesBehindTheRaiseOfTheRootTakesTheLevelAway) {
  if (isHeap()) return;
  RepTreeRootSType& root = grownTo((FULL - 1) * SPAN);
  const RepTreeRootSType before = root;
  const std::string shape = shapeOf(root);
  const size_t pages = host.livePages().size();
  for (long budget = 0; budget < 7; ++budget) {
    host.setPageBudget(budget);
    BmGrowToHighWaterBit(&host, &root, (FULL + 8) * SPAN);
    host.setPageBudget(-1);
    expectRefused(root, before, shape);
    EXPECT_EQ(host.livePages().size(), pages) << budget;
    expectSound(root, {});
  }
}

TEST_P(GrowTest, OutOfPagesBehindASplitInALevel2TreeTakesTheNewPageAway) {
  if (isHeap()) return;
  RepTreeRootSType& root = grownTo((2 * FULL - 1) * SPAN);
  const RepTreeRootSType before = root;
  const size_t pages = host.livePages().size();
  for (long budget = 0; budget < 5; ++budget) {
    host.setPageBudget(budget);
    BmGrowToHighWaterBit(&host, &root, (2 * FULL + 8) * SPAN);
    host.setPageBudget(-1);
    EXPECT_EQ(host.takeReports().size(), 1U);
    EXPECT_EQ(host.livePages().size(), pages) << budget;
    expectEmptyLeaves(root, 2 * FULL);
    EXPECT_EQ(root.level, before.level);
  }
}

TEST_P(GrowTest, ACarefulTreeIsRaisedInShadows) {
  if (!isCareful()) return;
  RepTreeRootSType& root = grownTo(SPAN);
  moveStampOn();
  BmGrowToHighWaterBit(&host, &root, 3 * SPAN);
  expectEmptyLeaves(root, 4);
  expectOldPagesUnchanged();
  expectCarefulSets();
}

TEST_P(GrowTest, PagesAreMarkedAndPinnedAsTheyShould) {
  host.moveUnpinnedPages(1);
  host.watchDirtyMarks();
  RepTreeRootSType& root = grownTo(4 * SPAN);
  host.expectChangesMarked();
  host.moveUnpinnedPages(0);
  EXPECT_EQ(host.pinsHeld(), 0);
  expectEmptyLeaves(root, 5);
}

BMTREE_FOR_ALL_KINDS(GrowTest);

class InlineGrowTest : public TreeFixture {};

TEST_F(InlineGrowTest, AnInlineListCannotGrow) {
  InlineTree tree({5}, 3);
  BmGrowToHighWaterBit(&host, tree.root(), SPAN);
  EXPECT_EQ(host.takeReports().size(), 1U);
  EXPECT_EQ(bitsOf(*tree.root()), std::vector<uint64_t>{5});
}

TEST_F(InlineGrowTest, AGrownInlineListKeepsItsBits) {
  InlineTree tree({5, SPAN}, 3);
  tree.root()->denseLeaves = 1;
  BmGrowToHighWaterBit(&host, tree.root(), 2 * SPAN);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{5, SPAN}));
}

}  // namespace
