// The test host and the fixture themselves: what they promise to notice, they notice.
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include "support/treemodel.h"
#include "utl.h"

namespace {

constexpr uint64_t span = 130752;

class TestHostTest : public ::testing::Test {
 protected:
  TestHost host;
};

TEST_F(TestHostTest, PageIdsCountUpFromFourAndAreNotReused) {
  EXPECT_EQ(PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0)->pageId, 4u);
  EXPECT_EQ(RepDisposeTempPage_(&host, 4), 1);
  EXPECT_EQ(PageLocateNewIn(&host, REP_BM_LEAF_PAGE, 1)->pageId, 5u);
  EXPECT_EQ(host.takeEvents(),
            (std::vector<std::string>{"new 4 kind 12 shared 0", "dispose 4", "new 5 kind 8 shared 1"}));
}

TEST_F(TestHostTest, TheBudgetCountsSuccessfulCalls) {
  host.setPageBudget(2);
  EXPECT_NE(PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0), nullptr);
  EXPECT_NE(PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0), nullptr);
  EXPECT_EQ(PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0), nullptr);
  host.setPageBudget(-1);
  EXPECT_NE(PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0), nullptr);
}

TEST_F(TestHostTest, ADirtyMarkOnAHeapPageFails) {
  auto* page = reinterpret_cast<RepPageHdrSType*>(host.placeHeapPage(listImage({1}), 7));
  EXPECT_NONFATAL_FAILURE(ShrSetDirtyNoCheck(&host.shrPcState, page, 3), "heap page");
}

TEST_F(TestHostTest, ADirtyMarkOnAReleasedPageFails) {
  RepPageHdrSType* page = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  RepDisposeTempPage_(&host, page->pageId);
  EXPECT_NONFATAL_FAILURE(ShrSetDirtyNoCheck(&host.shrPcState, page, 3), "no page of the cache");
}

TEST_F(TestHostTest, AReleasedPageIsUnreadable) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  RepPageHdrSType* page = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  RepDisposeTempPage_(&host, page->pageId);
  EXPECT_DEATH({ EXPECT_EQ(static_cast<volatile RepPageHdrSType*>(page)->pageKind, 12); }, "");
}

TEST_F(TestHostTest, AnUnpinWithoutAPinFails) {
  RepPageHdrSType* page = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  EXPECT_NONFATAL_FAILURE(PageUnpin(&host, page), "not pinned");
}

TEST_F(TestHostTest, AChangedCacheByteFailsAtTheNextDirtyMark) {
  RepPageHdrSType* page = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  page->pageState ^= 1;
  EXPECT_NONFATAL_FAILURE(ShrSetDirtyNoCheck(&host.shrPcState, page, 3), "belongs to the cache");
}

TEST_F(TestHostTest, AChangeWithoutADirtyMarkIsFound) {
  host.watchDirtyMarks();
  RepPageHdrSType* page = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  page->bytesUsed = 40;
  ShrSetDirtyNoCheck(&host.shrPcState, page, 3);
  host.expectChangesMarked();
  page->bytesUsed = 48;
  EXPECT_NONFATAL_FAILURE(host.expectChangesMarked(), "without a dirty mark");
}

TEST_F(TestHostTest, APageMovesUnlessItIsPinnedOrRecentlyUsed) {
  host.moveUnpinnedPages(2);
  RepPageHdrSType* loose = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  RepPageHdrSType* pinned = PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  loose->bytesUsed = 40;
  PagePin(&host, pinned);
  EXPECT_EQ(PageLocate(&host, 4, REP_BIT_LIST_PAGE, -1), loose);
  for (int i = 0; i < 2; ++i) PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  EXPECT_NONFATAL_FAILURE(ShrSetDirtyNoCheck(&host.shrPcState, loose, 3), "no page of the cache");
  RepPageHdrSType* moved = PageLocate(&host, 4, REP_BIT_LIST_PAGE, -1);
  EXPECT_NE(moved, loose);
  EXPECT_EQ(moved->bytesUsed, 40);
  EXPECT_EQ(PageLocate(&host, 5, REP_BIT_LIST_PAGE, -1), pinned);
  PageUnpin(&host, pinned);
}

TEST_F(TestHostTest, ALocateOfAnotherKindIsReported) {
  PageLocateNewIn(&host, REP_BIT_LIST_PAGE, 0);
  PageLocate(&host, 4, REP_BM_INTERNAL_PAGE, -1);
  host.expectReports({"locate fault: page 4 is not of kind 7"});
}

TEST_F(TestHostTest, ReportsThatNobodyTakesFail) {
  UTL_GUARANTEE(false, 1904);
  EXPECT_NONFATAL_FAILURE(host.expectNothingLeft(), "guarantee bitmap:1904");
}

TEST_F(TestHostTest, WritesAndReadsAFileAndFailsWhenTold) {
  const std::string name = host.tempFileName();
  int fd = HostOpen(name.c_str(), BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE);
  ASSERT_GE(fd, 0);
  char text[] = "abcdefgh";
  int err = 0;
  EXPECT_EQ(HostWriteFile(fd, text, 8, &err), 1);
  host.fileFaults = {.failWrite = 1, .code = 28, .bytesBeforeFault = 3};
  EXPECT_EQ(HostWriteFile(fd, text, 8, &err), 0);
  EXPECT_EQ(err, 28);
  close(fd);
  long size = 0;
  EXPECT_NE(HostFileExistSize(name.c_str(), &size, nullptr, nullptr), 0);
  EXPECT_EQ(size, 11);
  EXPECT_EQ(HostOpen(name.c_str(), BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE), -1) << "the file exists";
  fd = HostOpen(name.c_str(), 0, 0);
  char back[8] = {};
  host.fileFaults = {.failRead = 2};
  EXPECT_EQ(HostReadFile(fd, back, 8, &err), 1);
  EXPECT_EQ(std::string(back, 8), "abcdefgh");
  EXPECT_EQ(HostReadFile(fd, back, 3, nullptr), 0);
  close(fd);
}

class FixtureTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(FixtureTest);

TEST_P(FixtureTest, HandBuiltTreesAreSoundAndReadBack) {
  const auto& level0 = adopt(buildTree(host, kind(), listLeaf(0, {3, 5 * span, 0xFFFFFFFFFF}, 7)));
  expectSound(level0, {3, 5 * span, 0xFFFFFFFFFF});
  EXPECT_EQ(shapeOf(level0), "list 3@7");
  const std::vector<LeafSpec> leaves{listLeaf(0, {1, span}), denseLeaf(2 * span, {2 * span + 9}, 1)};
  const auto& level1 = adopt(buildTree(host, kind(), leaves, {.internalFirstOffset = 4}));
  expectSound(level1, {1, span, 2 * span + 9});
  EXPECT_EQ(shapeOf(level1), "[0 list 2@0, 2 dense 1+]");
  const std::vector<std::vector<LeafSpec>> groups{leaves, {denseLeaf(4 * span, {4 * span}), listLeaf(9 * span, {})}};
  const auto& level2 = adopt(buildTree(host, kind(), groups, {.currentStamp = true}));
  expectSound(level2, {1, span, 2 * span + 9, 4 * span});
  EXPECT_EQ(shapeOf(level2), "[0 [0 list 2@0, 2 dense 1+], 4 [4 dense 1, 9 list 0@0]]");
}

TEST_P(FixtureTest, ARandomRunAgreesWithAPlainSet) {
  Random random(testSeed());
  RepTreeRootSType& tree = newTree();
  host.logEvents(false);
  host.watchDirtyMarks();
  host.moveUnpinnedPages(3);
  BitSet model;
  for (int i = 0; i < 20000; ++i) {
    const uint64_t bit = random.oneIn(3) ? random.below(BM_END_BIT) : random.below(40) * span + random.below(3000);
    if (random.oneIn(4)) {
      ASSERT_EQ(BmClearBit(&host, &tree, bit), static_cast<int>(model.erase(bit)));
    } else {
      ASSERT_EQ(BmSetBit(&host, &tree, bit), model.insert(bit).second ? 0 : 1);
    }
    if (i % 2000 == 0) {
      expectSound(tree, model);
      moveStampOn();
      host.expectChangesMarked();
    }
  }
  expectSound(tree, model);
}

TEST(InlineTreeTest, ReadsBackAndIsSound) {
  TestHost host;
  InlineTree tree({1, 5, 0xFFFFFFFFFF}, 2);
  EXPECT_EQ(bitsOf(host, *tree.root()), (std::vector<uint64_t>{1, 5, 0xFFFFFFFFFF}));
  EXPECT_EQ(faultsOf(host, *tree.root()), std::vector<std::string>{});
}

class CarefulFixtureTest : public TreeFixture {};

TEST_F(CarefulFixtureTest, AChangedOldPageIsFound) {
  const auto& tree = adopt(buildTree(host, BM_CAREFUL_TREE, listLeaf(0, {1, 2})));
  moveStampOn();
  putU64(host.bytes(tree.root), at::entry(1), 3);
  EXPECT_NONFATAL_FAILURE(expectOldPagesUnchanged(), "was changed");
  putU64(host.bytes(tree.root), at::entry(1), 2);
}

TEST_F(CarefulFixtureTest, AMissingDirtyIdIsFound) {
  auto& tree = newTree(BM_CAREFUL_TREE);
  BmSetBit(&host, &tree, 77);
  expectCarefulSets();
  BmClearBit(&host, host.dirtyCarefulBm, tree.root);
  EXPECT_NONFATAL_FAILURE(expectCarefulSets(), "dirtyCarefulBm");
  BmSetBit(&host, host.dirtyCarefulBm, tree.root);
}

TEST_F(CarefulFixtureTest, ADisplacedPageIsObsoleteUntilTheStampMovesOn) {
  auto& tree = newTree(BM_CAREFUL_TREE);
  BmSetBit(&host, &tree, 77);
  const uint64_t old = tree.root;
  moveStampOn();
  BmSetBit(&host, &tree, 78);
  EXPECT_NE(tree.root, old);
  EXPECT_EQ(bitsOf(host.obsoleteCarefulBm), std::vector<uint64_t>{old});
  moveStampOn();
  EXPECT_FALSE(host.pageIsLive(old));
}

}  // namespace
