// Giving a tree's pages back: all of them, children first, and what a careful tree does with pages of older stamps.
#include <algorithm>

#include "tree/writetest.h"

namespace {

class DisposeTest : public WriteTest {
 protected:
  Groups twoPages() { return {{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {denseLeaf(span(9), {}, 1)}}; }

  void dispose(RepTreeRootSType& tree) {
    host.clearEvents();
    BmDisposeTree(&host, &tree);
    EXPECT_EQ(tree.root, 0u);
    EXPECT_EQ(tree.level, 0);
    EXPECT_EQ(tree.treeKind, kind());
  }
};
BMTREE_FOR_ALL_KINDS(DisposeTest);

TEST_P(DisposeTest, AListTreeGivesItsPageBack) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {1}), {.currentStamp = true});
  dispose(tree);
  EXPECT_EQ(host.numHeapBmPages(), 0);
  EXPECT_EQ(host.livePages(), std::vector<uint64_t>{});
}

TEST_P(DisposeTest, ADisposedTreeKeepsItsKindAndTagAndFillsAgain) {
  RepTreeRootSType& tree = adoptTree(twoPages());
  tree.denseLeaves = 1;
  dispose(tree);
  EXPECT_EQ(tree.allocTag, 777);
  EXPECT_EQ(tree.denseLeaves, 1);
  set(tree, 8);
  expectSound(tree, {8});
}

TEST_P(DisposeTest, DisposingTwiceDoesNothingTheSecondTime) {
  RepTreeRootSType& tree = adoptTree(twoPages());
  dispose(tree);
  dispose(tree);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(DisposeTest, EveryPageGoesAfterThePagesBelowItInOrder) {
  RepTreeRootSType& tree = adoptTree(twoPages(), {.currentStamp = true});
  const std::vector<uint64_t> leaves = refsAtLevel(host, tree, 0), nodes = refsAtLevel(host, tree, 1);
  const std::vector<uint64_t> expected{leaves[0], leaves[1], nodes[0], leaves[2], nodes[1], tree.root};
  dispose(tree);
  std::vector<uint64_t> released;
  for (const Event& event : host.events()) {
    const bool fromTree = std::find(expected.begin(), expected.end(), event.page) != expected.end();
    if (fromTree && (event.kind == EventKind::dispose || event.kind == EventKind::heapFree)) {
      released.push_back(event.page);
    }
  }
  EXPECT_EQ(released, expected);
}

TEST_P(DisposeTest, TheLockedPageIsClearedBeforeEachInternalPageGoes) {
  RepTreeRootSType& tree = adoptTree(twoPages(), {.currentStamp = true});
  dispose(tree);
  EXPECT_EQ(host.takeEvents({EventKind::clearLocked}).size(), isHeap() ? 0u : 3u);
}

TEST_P(DisposeTest, AnEmptyTreeTouchesNothing) {
  RepTreeRootSType& tree = newTree();
  dispose(tree);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(DisposeTest, ATreeBuiltByTheModuleLeavesNothing) {
  RepTreeRootSType& tree = newTree();
  Random random(testSeed());
  for (int i = 0; i < 20000; ++i) set(tree, random.below(span(3000)));
  dispose(tree);
  EXPECT_EQ(host.numHeapBmPages(), isCareful() ? 0 : host.numHeapBmPages());
  EXPECT_EQ(host.livePages(), std::vector<uint64_t>{});
}

TEST_P(DisposeTest, ADiskRootComesBackEmptyWithItsKind) {
  if (isHeap()) GTEST_SKIP() << "disk roots hold no heap pages";
  RepTreeRootSType& tree = adoptTree(twoPages());
  DiskTreeRootSType disk = diskRootOf(tree);
  forget(tree);
  BmDisposeTree(&host, &disk);
  EXPECT_EQ(disk.pageIdLow, 0u);
  EXPECT_EQ(disk.pageIdHigh, 0);
  EXPECT_EQ(disk.level, 0);
  EXPECT_EQ(disk.treeKind, kind());
}

class DisposeOneKindTest : public TreeFixture {
 protected:
  RepTreeRootSType& careful(bool currentStamp) {
    return adopt(buildTree(host, BM_CAREFUL_TREE, Leaves{listLeaf(0, {1}), denseLeaf(span(3), {span(3)})},
                           {.currentStamp = currentStamp}));
  }
};

TEST_F(DisposeOneKindTest, AHeapTreeNeedsNoContext) {
  RepTreeRootSType tree(0, BM_HEAP_TREE);
  tree.allocTag = 3;
  for (uint64_t i = 0; i < 5000; ++i) BmSetBit(nullptr, &tree, i * 777);
  BmDisposeTree(nullptr, &tree);
  EXPECT_EQ(tree.root, 0u);
  EXPECT_EQ(host.heapPages(), 0u);
  EXPECT_EQ(host.takeEvents({EventKind::clearLocked}), std::vector<std::string>{});
}

TEST_F(DisposeOneKindTest, AnInlineListIsLeftAsItIs) {
  InlineTree tree({10, 20});
  const uint64_t root = tree.root()->root;
  BmDisposeTree(&host, tree.root());
  EXPECT_EQ(tree.root()->root, root);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{10, 20}));
  const DiskTreeRootSType before = *tree.diskRoot();
  BmDisposeTree(&host, tree.diskRoot());
  EXPECT_EQ(tree.diskRoot()->pageIdLow, before.pageIdLow);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_F(DisposeOneKindTest, AnEmptyDiskRootOfTheHeapKindBecomesOneOfThePageKind) {
  DiskTreeRootSType disk(0, BM_HEAP_TREE);
  BmDisposeTree(&host, &disk);
  EXPECT_EQ(disk.treeKind, BM_PAGE_TREE);
  EXPECT_EQ(disk.pageIdLow, 0u);
}

TEST_F(DisposeOneKindTest, CarefulPagesOfAnOlderStampStayAndBecomeObsolete) {
  RepTreeRootSType& tree = careful(false);
  const std::vector<uint64_t> pages = host.livePages();
  BmDisposeTree(&host, &tree);
  EXPECT_EQ(host.livePages(), pages);
  EXPECT_EQ(bitsOf(host.obsoleteCarefulBm), pages);
}

TEST_F(DisposeOneKindTest, CarefulPagesOfTheCurrentStampAreReleasedAndLeaveTheDirtySet) {
  RepTreeRootSType& tree = careful(true);
  BmDisposeTree(&host, &tree);
  EXPECT_EQ(host.livePages(), std::vector<uint64_t>{});
  EXPECT_EQ(host.dirtyCarefulBm->root, 0u);
  EXPECT_EQ(host.obsoleteCarefulBm.root, 0u);
}

TEST_F(DisposeOneKindTest, WithoutCarefulTrackingOlderPagesAreNotRecorded) {
  RepTreeRootSType& tree = careful(false);
  const std::vector<uint64_t> pages = host.livePages();
  host.carefulActive = 0;
  BmDisposeTree(&host, &tree);
  host.carefulActive = 1;
  EXPECT_EQ(host.livePages(), pages);
  EXPECT_EQ(host.obsoleteCarefulBm.root, 0u);
  for (const uint64_t page : pages) host.releasePage(page);
}

TEST_F(DisposeOneKindTest, ACurrentPageThatIsMissingInTheDirtySetIsReportedAfterItWasReleased) {
  RepTreeRootSType& tree = careful(true);
  const uint64_t leaf = refsAtLevel(host, tree, 0)[0];
  BmClearBit(&host, host.dirtyCarefulBm, leaf);
  BmDisposeTree(&host, &tree);
  host.expectReports(
      {"cache fault: page " + std::to_string(leaf) + " \"illegal dispose of carefulBm page\\n\" bitmap:920"});
  EXPECT_EQ(host.livePages(), std::vector<uint64_t>{});
}

TEST_F(DisposeOneKindTest, AnOlderPageDisposedOfTwiceIsReported) {
  RepTreeRootSType& tree = careful(false);
  RepTreeRootSType copy = tree;
  const std::vector<uint64_t> pages = host.livePages();
  BmDisposeTree(&host, &tree);
  BmDisposeTree(&host, &copy);
  std::vector<std::string> expected;
  for (const uint64_t page : pages) {
    expected.push_back("cache fault: page " + std::to_string(page) + " \"illegal dispose\" bitmap:920");
  }
  host.expectReports(expected);
}

TEST_F(DisposeOneKindTest, IdsBelow4AreReportedAtLine1931) {
  host.tolerateUnknownPages(true);
  host.refuseDisposal(3);
  RepTreeRootSType tree(3, BM_PAGE_TREE);
  BmDisposeTree(&host, &tree);
  host.expectReports({"guarantee bitmap:1931"});
  EXPECT_EQ(tree.root, 0u);
}

}  // namespace
