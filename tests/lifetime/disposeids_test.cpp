#include <gtest/gtest.h>

#include "query/randomtree.h"

namespace {

using Bits = std::vector<uint64_t>;

class DisposePagesTest : public TreeFixture {
 protected:
  // Pages of the cache, as a set of their ids in a tree.
  Bits placePages(RepTreeRootSType& tree, size_t count) {
    Bits ids;
    for (size_t i = 0; i < count; ++i) ids.push_back(host.placeCachedPage(listImage({1})));
    host.logEvents(false);
    EXPECT_EQ(BmSetBitsFromSortedArray_(&host, &tree, ids.data(), ids.data() + ids.size()), count);
    host.logEvents(true);
    return ids;
  }
  void expectReleased(const Bits& ids) {
    for (const uint64_t id : ids) EXPECT_FALSE(host.pageIsLive(id)) << id;
  }
};

TEST_F(DisposePagesTest, EveryPageOfAPageTreeIsReleasedInBatches) {
  for (const BmTreeKindEType kind : {BM_PAGE_TREE, BM_SHARED_PAGE_TREE}) {
    RepTreeRootSType& tree = newTree(kind);
    const Bits ids = placePages(tree, 5000);
    BmDisposePages(&host, &tree);
    EXPECT_EQ(tree.root, 0u);
    expectReleased(ids);
    EXPECT_EQ(host.livePages(), Bits{});
  }
}

TEST_F(DisposePagesTest, AnEmptyPageTreeMakesNoCall) {
  BmDisposePages(&host, &newTree(BM_PAGE_TREE));
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_F(DisposePagesTest, OtherKindsAreReportedAndKeepTheirBits) {
  RepTreeRootSType& careful = adopt(buildTree(host, BM_CAREFUL_TREE, listLeaf(0, {1000})));
  BmDisposePages(&host, &careful);
  host.expectReports({"guarantee bitmap:6789"});
  expectSound(careful, {1000});
  RepTreeRootSType& heap = adopt(buildTree(host, BM_HEAP_TREE, listLeaf(0, {1000})));
  BmDisposePages(&host, &heap);
  host.expectReports({"guarantee bitmap:6790"});
  expectSound(heap, {1000});
}

TEST_F(DisposePagesTest, EveryPageNamedByAHeapTreeIsReleasedInBatches) {
  RepTreeRootSType& tree = newTree(BM_HEAP_TREE);
  const Bits ids = placePages(tree, 5000);
  host.clearEvents();
  BmDisposePagesHeapTree(&host, &tree);
  EXPECT_EQ(tree.root, 0u);
  expectReleased(ids);
  EXPECT_EQ(host.events().front().kind, EventKind::clearLocked);
}

TEST_F(DisposePagesTest, TheLockedPageIsGivenUpAlsoForAnEmptyHeapTree) {
  BmDisposePagesHeapTree(&host, &newTree(BM_HEAP_TREE));
  EXPECT_EQ(host.takeEvents().size(), 1u);
  EXPECT_EQ(host.count(EventKind::clearLocked), 1u);
}

TEST_F(DisposePagesTest, ARefusedPageEndsTheOperationAndLosesItsBatch) {
  RepTreeRootSType& tree = newTree(BM_HEAP_TREE);
  const Bits ids = placePages(tree, 3000);
  host.refuseDisposal(ids[100]);
  BmDisposePagesHeapTree(&host, &tree);
  EXPECT_FALSE(host.pageIsLive(ids[99]));
  EXPECT_TRUE(host.pageIsLive(ids[101]));
  expectSound(tree, BitSet(ids.begin() + 2048, ids.end()));
  for (size_t i = 100; i < ids.size(); ++i) host.releasePage(ids[i]);
}

TEST_F(DisposePagesTest, IdsBelowFourAreReported) {
  RepTreeRootSType& heap = adopt(buildTree(host, BM_HEAP_TREE, listLeaf(0, {3})));
  host.refuseDisposal(3);
  BmDisposePagesHeapTree(&host, &heap);
  host.expectReports({"guarantee bitmap:1931"});
  RepTreeRootSType& paged = adopt(buildTree(host, BM_PAGE_TREE, listLeaf(0, {2})));
  host.refuseDisposal(2);
  BmDisposePages(&host, &paged);
  host.expectReports({"guarantee bitmap:1931"});
}

TEST_F(DisposePagesTest, AnotherKindThanTheHeapOneIsReportedAndKeepsItsBits) {
  RepTreeRootSType& tree = adopt(buildTree(host, BM_PAGE_TREE, listLeaf(0, {1000})));
  BmDisposePagesHeapTree(&host, &tree);
  host.expectReports({"guarantee bitmap:6812"});
  expectSound(tree, {1000});
}

}  // namespace
