// Trees and the pages they name on their way out of the caches.
#include "lifetime/flush.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/treemodel.h"

namespace {

constexpr uint64_t SPAN = BM_LEAF_BITS;
constexpr auto MODE = static_cast<PageRemoveEType>(5);
using Leaves = std::vector<LeafSpec>;
using Groups = std::vector<Leaves>;
using Lines = std::vector<std::string>;

std::string id(uint64_t page) { return std::to_string(page); }

class FlushTest : public TreeTest {
 protected:
  // A tree of level 2: two level-1 pages of two leaves and one.
  RepTreeRootSType& tallTree() {
    return adopt(buildTree(host, kind(),
                           Groups{{listLeaf(0, {1}), denseLeaf(SPAN, {SPAN})}, {listLeaf(9 * SPAN, {9 * SPAN})}}));
  }

  // The pages of a tree, each behind those below it.
  std::vector<uint64_t> childrenFirst(const RepTreeRootSType& root) {
    std::vector<uint64_t> order;
    std::vector<TreePage> pages = pagesOf(host, root);
    std::vector<TreePage> open;
    for (const TreePage& page : pages) {
      while (!open.empty() && open.back().level <= page.level) {
        order.push_back(open.back().ref);
        open.pop_back();
      }
      open.push_back(page);
    }
    while (!open.empty()) {
      order.push_back(open.back().ref);
      open.pop_back();
    }
    return order;
  }
};

// ---------------------------------------------------------------------------------------------------------
// The pages of a tree

TEST_P(FlushTest, AHeapTreeBecomesAPageTreeOfFlushedPages) {
  if (!isHeap()) return;
  for (const RepTreeRootSType& built :
       {buildTree(host, kind(), listLeaf(0, {1, 2})),
        buildTree(host, kind(), Leaves{listLeaf(0, {1}), denseLeaf(SPAN, {SPAN})}),
        buildTree(host, kind(), Groups{{listLeaf(0, {1})}, {listLeaf(9 * SPAN, {9 * SPAN})}})}) {
    RepTreeRootSType& root = adopt(built);
    const std::vector<uint64_t> bits = bitsOf(root);
    const int level = root.level;
    host.clearEvents();
    BmFlushTree_(&host, &root, MODE);
    EXPECT_EQ(root.treeKind, BM_PAGE_TREE);
    EXPECT_EQ(root.level, level);
    EXPECT_EQ(root.allocTag, -1);
    EXPECT_EQ(bitsOf(root), bits);
    EXPECT_EQ(host.takeEvents({EventKind::flush}), Lines{});  // the mode plays no part
    for (const TreePage& page : pagesOf(host, root)) EXPECT_TRUE(host.pageIsLive(page.ref));
    EXPECT_EQ(host.count(EventKind::flushPage) > 0, true);
    expectSound(root);
  }
  EXPECT_EQ(host.heapPages(), 0U);
}

TEST_P(FlushTest, EveryPageOfAConvertedTreeIsSharedAndFlushedOnce) {
  if (!isHeap()) return;
  RepTreeRootSType& root = tallTree();
  host.clearEvents();
  BmFlushTree_(&host, &root, MODE);
  for (const TreePage& page : pagesOf(host, root)) {
    EXPECT_EQ(host.countLogged(EventKind::flushPage, page.ref), 1) << "level " << page.level;
  }
  EXPECT_EQ(host.takeEvents({EventKind::newPage}),
            (Lines{"new 4 kind 7 shared 1", "new 5 kind 7 shared 1", "new 6 kind 12 shared 1",
                   "new 7 kind 8 shared 1", "new 8 kind 7 shared 1", "new 9 kind 12 shared 1"}));
}

TEST_P(FlushTest, AnEmptyHeapTreeBecomesAnEmptyPageTree) {
  if (!isHeap()) return;
  RepTreeRootSType& root = newTree();
  BmFlushTree_(&host, &root, MODE);
  EXPECT_EQ(root.root, 0U);
  EXPECT_EQ(root.treeKind, BM_PAGE_TREE);
}

TEST_P(FlushTest, AHeapTreeForWhichThereAreNoPagesStaysAsItIs) {
  if (!isHeap()) return;
  RepTreeRootSType& root = tallTree();
  const RepTreeRootSType before = root;
  host.setPageBudget(0);
  BmFlushTree_(&host, &root, MODE);
  host.setPageBudget(-1);
  EXPECT_EQ(std::memcmp(&root, &before, sizeof root), 0);
  EXPECT_EQ(bitsOf(root), (std::vector<uint64_t>{1, SPAN, 9 * SPAN}));
}

TEST_P(FlushTest, AHeapRootThatIsAnEmptyKeptLeafStaysAsItIs) {
  if (!isHeap()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), denseLeaf(0, {}, 1)));
  BmFlushTree_(&host, &root, MODE);
  EXPECT_EQ(root.treeKind, BM_HEAP_TREE);
  EXPECT_NE(root.root, 0U);
}

TEST_P(FlushTest, ChildrenAreFlushedBeforeTheirParents) {
  if (isHeap()) return;
  for (const RepTreeRootSType& built : {buildTree(host, kind(), listLeaf(0, {1})), tallTree(),
                                        buildTree(host, kind(), Leaves{listLeaf(0, {1}), listLeaf(SPAN, {SPAN})})}) {
    RepTreeRootSType root = built;
    Lines expected;
    for (const uint64_t page : childrenFirst(root)) expected.push_back("flush " + id(page) + " mode 5");
    host.clearEvents();
    BmFlushTree_(&host, &root, MODE);
    EXPECT_EQ(host.takeEvents({EventKind::flush, EventKind::dirty, EventKind::newPage}), expected);
    EXPECT_EQ(std::memcmp(&root, &built, sizeof root), 0);
    if (root.level < 2) adopt(root);
  }
}

TEST_P(FlushTest, AnEmptyTreeFlushesNothing) {
  if (isHeap()) return;
  RepTreeRootSType& root = newTree();
  host.clearEvents();
  BmFlushTree_(&host, &root, MODE);
  EXPECT_EQ(host.takeEvents(), Lines{});
}

TEST_P(FlushTest, ADiskRootIsFlushedAndKept) {
  if (isHeap()) return;
  RepTreeRootSType& root = tallTree();
  DiskTreeRootSType disk = diskRootOf(root);
  const DiskTreeRootSType before = disk;
  host.clearEvents();
  BmFlushTree_(&host, &disk, MODE);
  EXPECT_EQ(host.count(EventKind::flush), 6U);
  EXPECT_EQ(std::memcmp(&disk, &before, sizeof disk), 0);
}

// ---------------------------------------------------------------------------------------------------------
// The pages that a tree names

TEST_P(FlushTest, EveryPageNamedByABitIsFlushedInAscendingOrder) {
  host.tolerateUnknownPages(true);
  host.clearEvents();
  RepTreeRootSType& sorted = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {5, 8}), denseLeaf(SPAN, {SPAN + 3})}));
  EXPECT_EQ(BmFlushTreeContents_(&host, &sorted), 3U);
  EXPECT_EQ(host.takeEvents({EventKind::flush}),
            (Lines{"flush 5 mode 0", "flush 8 mode 0", "flush " + id(SPAN + 3) + " mode 0"}));
  EXPECT_EQ(bitsOf(sorted).size(), 3U);
}

TEST_P(FlushTest, ThreeThousandBitsTakeTwoBatches) {
  std::vector<uint64_t> ids;
  for (uint64_t i = 0; i < 3000; ++i) ids.push_back(100 + 2 * i);
  RepTreeRootSType& root = adopt(buildTree(host, kind(), denseLeaf(0, ids)));
  host.tolerateUnknownPages(true);
  EXPECT_EQ(BmFlushTreeContents_(&host, &root), 3000U);
  EXPECT_EQ(host.count(EventKind::flush), 3000U);
}

TEST_P(FlushTest, AnEmptySetFlushesNothing) {
  EXPECT_EQ(BmFlushTreeContents_(&host, &newTree()), 0U);
  EXPECT_EQ(host.count(EventKind::flush), 0U);
}

TEST_P(FlushTest, ADiskRootsContentsAreFlushed) {
  if (isHeap()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {5, 8})));
  const DiskTreeRootSType disk = diskRootOf(root);
  host.tolerateUnknownPages(true);
  EXPECT_EQ(BmFlushTreeContents_(&host, &disk), 2U);
}

// ---------------------------------------------------------------------------------------------------------
// The private cache

TEST_P(FlushTest, ChildrenLeaveThePrivateCacheBeforeTheirParents) {
  RepTreeRootSType& root = tallTree();
  host.tolerateUnknownPages(true);
  host.clearEvents();
  BmRemoveFromPrivateCache(&host, &root, 7);
  std::vector<std::pair<EventKind, uint64_t>> events;
  for (const Event& event : host.events()) {
    if (event.kind == EventKind::removeFromCache || event.kind == EventKind::clearLocked) {
      events.emplace_back(event.kind, event.page);
    }
  }
  std::vector<std::pair<EventKind, uint64_t>> wanted;
  for (const uint64_t page : childrenFirst(root)) {
    wanted.emplace_back(EventKind::removeFromCache, page);
    wanted.emplace_back(EventKind::clearLocked, 0);
  }
  EXPECT_EQ(events, wanted);
}

TEST_P(FlushTest, AnEmptyTreeLeavesThePrivateCacheAlone) {
  host.clearEvents();
  BmRemoveFromPrivateCache(&host, &newTree(), 7);
  removeFromPrivateCache(&host, 0, 2, 7, kind());
  EXPECT_EQ(host.takeEvents(), Lines{});
}

class ShadowTest : public FlushTest {
 protected:
  // The pages taken out of the private cache, in order.
  std::vector<uint64_t> removedBy(RepTreeRootSType& root, int keepTreePages) {
    host.tolerateUnknownPages(true);
    host.clearEvents();
    BmRemoveShadowPagesFromCache(&host, &root, 0, keepTreePages);
    std::vector<uint64_t> removed;
    for (const Event& event : host.events()) {
      if (event.kind != EventKind::removeFromCache) continue;
      EXPECT_EQ(event.first, 0);
      removed.push_back(event.page);
    }
    EXPECT_GT(host.count(EventKind::clearLocked), 0U);
    return removed;
  }
};

TEST_P(ShadowTest, NamedPagesLeaveAndTheTreesOwnPagesStay) {
  RepTreeRootSType& root = tallTree();
  EXPECT_EQ(removedBy(root, 1), (std::vector<uint64_t>{1, SPAN, 9 * SPAN}));
}

TEST_P(ShadowTest, WithTheTreesOwnPagesEachGoesBeforeItIsRead) {
  RepTreeRootSType& root = tallTree();
  const std::vector<TreePage> pages = pagesOf(host, root);  // each before those below it
  const std::vector<uint64_t> expected{pages[0].ref, pages[1].ref, pages[2].ref, 1,       pages[3].ref,
                                       SPAN,         pages[4].ref, pages[5].ref, 9 * SPAN};
  EXPECT_EQ(removedBy(root, 0), expected);
}

TEST_P(ShadowTest, BitsOfADenseLeafCountFromItsKey) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(5 * SPAN, {5 * SPAN, 5 * SPAN + 64, 5 * SPAN + 130751})}));
  EXPECT_EQ(removedBy(root, 1), (std::vector<uint64_t>{5 * SPAN, 5 * SPAN + 64, 5 * SPAN + 130751}));
}

TEST_P(ShadowTest, AListBehindItsGapIsReadFromItsFront) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {100, 200}, 300)));
  EXPECT_EQ(removedBy(root, 1), (std::vector<uint64_t>{100, 200}));
}

TEST_P(ShadowTest, AnEmptyLeafNamesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {}, 1), listLeaf(SPAN, {})}));
  EXPECT_EQ(removedBy(root, 1), std::vector<uint64_t>{});
}

TEST_P(ShadowTest, AnEmptySetRemovesNothing) {
  host.clearEvents();
  BmRemoveShadowPagesFromCache(&host, &newTree(), 0, 0);
  EXPECT_EQ(host.takeEvents(), Lines{});
}

TEST_P(ShadowTest, AWrongBytesUsedIsReportedAndNothingOutsideThePageIsRead) {
  if (isHeap()) return;
  for (const int bytesUsed : {-32768, -1, 0, 31, 16385, 32767}) {
    RepTreeRootSType root = buildTree(host, kind(), listLeaf(0, {100, 200}));
    putU16(host.bytes(root.root), at::bytesUsed, static_cast<uint16_t>(bytesUsed));
    ::testing::internal::CaptureStdout();
    removedBy(root, 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "illegal bytesUsed in a page\n");
    host.expectReports({"guarantee bitmap:8787"});
    BmDisposeTree(&host, &root);
    host.takeReports();
  }
}

TEST_P(ShadowTest, AListThatClaimsMoreEntriesThanFitIsReadToTheEndOfThePage) {
  for (const auto& [count, first] :
       std::vector<std::pair<int, int>>{{5000, 0}, {2043, 2043}, {-5, 3}, {3, -1}, {1, 99999}}) {
    RepTreeRootSType root = buildTree(host, kind(), listLeaf(0, {100, 200}));
    unsigned char* page = host.bytes(root, root.root);
    putU32(page, at::listCount, static_cast<uint32_t>(count));
    putU32(page, at::listFirstOffset, static_cast<uint32_t>(first));
    EXPECT_LE(removedBy(root, 1).size(), 2043U);
    BmDisposeTree(&host, &root);
  }
}

TEST_P(ShadowTest, APageOfAnotherKindIsReported) {
  RepTreeRootSType root = buildTree(host, kind(), listLeaf(0, {100}));
  putU8(host.bytes(root, root.root), at::pageKind, 4);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(removedBy(root, 1), std::vector<uint64_t>{});
  const std::string printed = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(printed.find("bitmap line 8813"), std::string::npos) << printed;
  EXPECT_EQ(host.takeReports().size(), 1U);
  putU8(host.bytes(root, root.root), at::pageKind, 12);
  adopt(root);
}

BMTREE_FOR_ALL_KINDS(FlushTest);
BMTREE_FOR_ALL_KINDS(ShadowTest);

class InlineFlushTest : public TreeFixture {};

TEST_F(InlineFlushTest, AnInlineListHasNoPagesToFlush) {
  InlineTree tree({5, 6}, 1);
  host.clearEvents();
  BmFlushTree_(&host, tree.root(), MODE);
  BmFlushTree_(&host, tree.diskRoot(), MODE);
  EXPECT_EQ(host.takeEvents(), Lines{});
}

TEST_F(InlineFlushTest, ContentsOfAnInlineListAreFlushed) {
  InlineTree tree({5, 6}, 1);
  host.tolerateUnknownPages(true);
  EXPECT_EQ(BmFlushTreeContents_(&host, tree.root()), 2U);
  EXPECT_EQ(BmFlushTreeContents_(&host, tree.diskRoot()), 2U);
  RepTreeRootSType empty(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(BmFlushTreeContents_(&host, &empty), 0U);
}

TEST_F(InlineFlushTest, PagesNamedByAnInlineListLeaveThePrivateCache) {
  InlineTree tree({5, 6}, 1);
  host.tolerateUnknownPages(true);
  BmRemoveShadowPagesFromCache(&host, tree.root(), 0, 0);
  EXPECT_EQ(host.count(EventKind::removeFromCache), 2U);
}

}  // namespace
