#include <gtest/gtest.h>

#include "query/randomtree.h"

namespace {

// Silences the two streams that fault reports go to, and keeps what came on standard error.
class CapturedStreams {
 public:
  CapturedStreams() {
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
  }
  std::string errors() {
    ::testing::internal::GetCapturedStdout();
    return ::testing::internal::GetCapturedStderr();
  }
};

class CountTest : public TreeTest {
 protected:
  unsigned long count(const RepTreeRootSType& root) { return BmFindNumBitsSet_(&host, &root); }
  unsigned long countUpTo(const RepTreeRootSType& root, unsigned long max) {
    return BmFindNumBitsSetMax_(&host, &root, max);
  }
  unsigned long estimate(const RepTreeRootSType& root) { return BmFindApproxNumBitsSet_(&host, &root); }
  unsigned long highest(const RepTreeRootSType& root) { return BmFindHighWaterMark_(&host, &root); }
};
BMTREE_FOR_ALL_KINDS(CountTest);

TEST_P(CountTest, AnEmptyTreeCountsNothing) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(count(root), 0u);
  EXPECT_EQ(estimate(root), 0u);
  EXPECT_EQ(highest(root), 0u);
  EXPECT_EQ(BmCountPagesInTree(&host, &root), 0u);
  EXPECT_EQ(BmIsEmpty(&host, &root), 1);
  EXPECT_EQ(BmLevel1NumLeaves(&host, &root), -1);
}

TEST_P(CountTest, ALevelZeroTreeIsCountedAndEstimatedExactly) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {4, 7, topBit}, 99)));
  EXPECT_EQ(count(root), 3u);
  EXPECT_EQ(countUpTo(root, 2), 2u);
  EXPECT_EQ(countUpTo(root, 0), 0u);
  EXPECT_EQ(estimate(root), 3u);
  EXPECT_EQ(highest(root), topBit);
  EXPECT_EQ(BmCountPagesInTree(&host, &root), 1u);
  EXPECT_EQ(BmIsEmpty(&host, &root), 0);
  EXPECT_EQ(BmLevel1NumLeaves(&host, &root), -1);
}

TEST_P(CountTest, TheEstimateOfALevelOneTreeTakesEveryLeafForFull) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{listLeaf(0, {1}), denseLeaf(span(1), {}, 1), denseLeaf(span(2), {span(2)})}));
  EXPECT_EQ(estimate(root), 392256u);
  EXPECT_EQ(BmLevel1NumLeaves(&host, &root), 3);
  EXPECT_EQ(BmCountPagesInTree(&host, &root), 4u);
}

TEST_P(CountTest, TheEstimateOfALevelTwoTreeDoesNotGrowWithItsLaterPages) {
  Leaves ten;
  Leaves twenty;
  for (uint64_t i = 0; i < 10; ++i) ten.push_back(denseLeaf(span(i), {span(i)}));
  for (uint64_t i = 10; i < 30; ++i) twenty.push_back(denseLeaf(span(i), {span(i)}));
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Groups{ten, twenty}));
  EXPECT_EQ(estimate(root), 10u * 130752);
  EXPECT_EQ(BmCountPagesInTree(&host, &root), 33u);
  EXPECT_EQ(BmLevel1NumLeaves(&host, &root), -1);
  EXPECT_EQ(count(root), 30u);
}

TEST_P(CountTest, ARootPageWithoutChildrenIsOnePageAndNoEstimate) {
  RepTreeRootSType& flat = adopt(buildTree(host, kind(), Leaves{}));
  EXPECT_EQ(BmCountPagesInTree(&host, &flat), 1u);
  EXPECT_EQ(estimate(flat), 0u);
  RepTreeRootSType& tall = adopt(buildTree(host, kind(), Groups{}));
  EXPECT_EQ(BmCountPagesInTree(&host, &tall), 1u);
  EXPECT_EQ(highest(tall), 0u);
  EXPECT_EQ(BmIsEmpty(&host, &tall), 1);
}

TEST_P(CountTest, TheExactCountReadsEachLeafOnceAndNothingOfItsBits) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(),
                                           Groups{{denseLeaf(0, {1, 2}), listLeaf(span(1), {span(1)})},
                                                  {denseLeaf(span(3), {}, 1), denseLeaf(span(4), {span(4)})}}));
  // The bits disagree with the counter on purpose: only the counter may be read.
  const std::vector<uint64_t> leaves = refsAtLevel(host, root, 0);
  putU32(host.bytes(root, leaves[0]), at::bitsSet, 130000);
  host.clearEvents();
  EXPECT_EQ(count(root), 130002u);
  if (!isHeap()) {
    for (const uint64_t leaf : leaves) EXPECT_EQ(host.countLogged(EventKind::locate, leaf), 1);
    EXPECT_EQ(host.takeEvents().size(), leaves.size() + 3);  // the leaves, the root and two level-1 pages
  }
}

TEST_P(CountTest, TheLimitedCountStopsAtTheLeafThatReachesIt) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Leaves{denseLeaf(0, {1, 2}), denseLeaf(span(1), {span(1), span(1) + 1}), denseLeaf(span(2), {span(2)})}));
  for (const auto& [max, leavesRead] :
       std::map<unsigned long, size_t>{{0, 1}, {1, 1}, {2, 1}, {3, 2}, {4, 2}, {5, 3}, {9, 3}}) {
    host.clearEvents();
    EXPECT_EQ(countUpTo(root, max), std::min(max, 5ul));
    if (!isHeap()) {
      EXPECT_EQ(host.takeEvents().size(), leavesRead + 1) << max;
    }
  }
}

TEST_P(CountTest, TheEstimateTouchesNoLeaf) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Groups{{denseLeaf(0, {1, 2})}, {denseLeaf(span(3), {}, 1)}}));
  host.clearEvents();
  estimate(root);
  if (!isHeap()) {
    EXPECT_EQ(host.takeEvents().size(), 2u);
  }
}

TEST_P(CountTest, ALeafOfAWrongKindIsReportedAndNotCounted) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})}));
  const uint64_t broken = refsAtLevel(host, root, 0)[0];
  putU8(host.bytes(root, broken), at::pageKind, 9);
  CapturedStreams streams;
  EXPECT_EQ(count(root), 1u);
  EXPECT_NE(streams.errors().find("bitmap line 7272 "), std::string::npos);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, broken), at::pageKind, 8);
}

TEST_P(CountTest, TheHighWaterMarkPassesLeavesWithoutBits) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(),
                                           Groups{{listLeaf(0, {1, 9}), denseLeaf(span(1), {}, 1)},
                                                  {denseLeaf(span(3), {}, 1), denseLeaf(span(4), {}, 1)}}));
  EXPECT_EQ(highest(root), 9u);
  RepTreeRootSType& empty = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {}, 1)}));
  EXPECT_EQ(highest(empty), 0u);
  EXPECT_EQ(BmIsEmpty(&host, &empty), 1);
  EXPECT_NE(empty.root, 0u);
}

TEST_P(CountTest, TheHighWaterMarkOfADenseLeafIsFoundInAnyWord) {
  for (const uint64_t position : {0, 63, 64, 70000, 130688, 130751}) {
    RepTreeRootSType& root =
        adopt(buildTree(host, kind(), Leaves{denseLeaf(span(2), {span(2), span(2) + position})}));
    EXPECT_EQ(highest(root), span(2) + position);
  }
}

TEST_P(CountTest, TheHighWaterMarkPassesADenseLeafWhoseCounterOnlyClaimsBits) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {5}), denseLeaf(span(1), {}, 1)}));
  putU32(host.bytes(root, refsAtLevel(host, root, 0)[1]), at::bitsSet, 3);
  EXPECT_EQ(highest(root), 5u);
}

TEST_P(CountTest, TheHighWaterMarkReadsOnePathDownTheRightEdge) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(),
                                           Groups{{denseLeaf(0, {1}), denseLeaf(span(1), {})},
                                                  {denseLeaf(span(3), {}, 1), denseLeaf(span(4), {span(4)})}}));
  const std::vector<uint64_t> leaves = refsAtLevel(host, root, 0);
  host.clearEvents();
  EXPECT_EQ(highest(root), span(4));
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(host.countLogged(EventKind::locate, leaves[i]), 0);
}

TEST_P(CountTest, ALeafOfAWrongKindIsReportedAndPassedByTheHighWaterMark) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})}));
  const uint64_t broken = refsAtLevel(host, root, 0)[1];
  putU8(host.bytes(root, broken), at::pageKind, 9);
  CapturedStreams streams;
  EXPECT_EQ(highest(root), 2u);
  EXPECT_NE(streams.errors().find("bitmap line 7147 "), std::string::npos);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, broken), at::pageKind, 8);
}

TEST_P(CountTest, AHeapRootThatIsNoListIsReportedByTheHighWaterMark) {
  if (!isHeap()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), denseLeaf(0, {7})));
  CapturedStreams streams;
  EXPECT_EQ(highest(root), 0u);
  EXPECT_NE(streams.errors().find("bitmap line 7086 "), std::string::npos);
  host.expectReports({"guarantee bitmap:970"});
}

TEST_P(CountTest, AHeapRootOfAWrongKindIsReportedByThePageCount) {
  if (!isHeap()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {7})}));
  putU8(host.bytes(root, root.root), at::pageKind, 8);
  EXPECT_EQ(BmCountPagesInTree(&host, &root), 2u);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, root.root), at::pageKind, 7);
}

TEST_P(CountTest, DiskRootsGiveTheSameAnswers) {
  if (isHeap()) return;
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Groups{{denseLeaf(0, {1, 2})}, {denseLeaf(span(3), {span(3)})}}));
  DiskTreeRootSType disk = diskRootOf(root);
  EXPECT_EQ(BmFindNumBitsSet_(&host, &disk), 3u);
  EXPECT_EQ(BmFindApproxNumBitsSet_(&host, &disk), 130752u);
  EXPECT_EQ(BmFindHighWaterMark_(&host, &disk), span(3));
  EXPECT_EQ(BmIsEmpty(&host, &disk), 0);
}

TEST_P(CountTest, ADiskRootWithOnlyTheHighHalfOfAPageIdCountsAsEmptyUnseen) {
  if (isHeap()) return;
  DiskTreeRootSType disk(uint64_t{1} << 32, kind());
  EXPECT_EQ(BmIsEmpty(&host, &disk), 1);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(CountTest, AModelAgreesOverTreesOfAllShapes) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 60; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    ASSERT_EQ(count(root), model.size());
    const unsigned long max = random.below(2 * model.size() + 2);
    ASSERT_EQ(countUpTo(root, max), std::min(max, model.size()));
    ASSERT_EQ(highest(root), model.empty() ? 0 : *model.rbegin());
    ASSERT_EQ(BmIsEmpty(&host, &root), model.empty());
    ASSERT_EQ(BmCountPagesInTree(&host, &root), pagesOf(host, root).size());
  }
}

class InlineCountTest : public TreeFixture {};

TEST_F(InlineCountTest, AnInlineListIsCountedInPlace) {
  InlineTree tree({3, 5, 9}, 4);
  EXPECT_EQ(BmFindNumBitsSet_(&host, tree.root()), 3u);
  EXPECT_EQ(BmFindNumBitsSetMax_(&host, tree.root(), 2), 2u);
  EXPECT_EQ(BmFindApproxNumBitsSet_(&host, tree.root()), 3u);
  EXPECT_EQ(BmFindHighWaterMark_(&host, tree.root()), 9u);
  EXPECT_EQ(BmIsEmpty(&host, tree.root()), 0);
  EXPECT_EQ(BmFindNumBitsSet_(&host, tree.diskRoot()), 3u);
  EXPECT_EQ(BmFindHighWaterMark_(&host, tree.diskRoot()), 9u);
  EXPECT_EQ(BmIsEmpty(&host, tree.diskRoot()), 0);
}

TEST_F(InlineCountTest, AnEmptyInlineListCountsNothing) {
  InlineTree tree({}, 4);
  EXPECT_EQ(BmFindNumBitsSet_(&host, tree.root()), 0u);
  EXPECT_EQ(BmFindHighWaterMark_(&host, tree.root()), 0u);
  EXPECT_EQ(BmIsEmpty(&host, tree.root()), 1);
}

TEST_F(InlineCountTest, AnInlineRootOfZeroIsAnEmptyTree) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(BmFindNumBitsSet_(&host, &root), 0u);
  EXPECT_EQ(BmFindApproxNumBitsSet_(&host, &root), 0u);
  EXPECT_EQ(BmFindHighWaterMark_(&host, &root), 0u);
  EXPECT_EQ(BmIsEmpty(&host, &root), 1);
}

TEST_F(InlineCountTest, AnotherNegativeKindIsReportedAndCountsNothing) {
  InlineTree tree({3});
  tree.root()->treeKind = -5;
  EXPECT_EQ(BmFindNumBitsSet_(&host, tree.root()), 0u);
  EXPECT_EQ(BmFindHighWaterMark_(&host, tree.root()), 0u);
  EXPECT_EQ(BmIsEmpty(&host, tree.root()), 1);
  host.expectReports({"guarantee reposdisk:1196", "guarantee reposdisk:1196", "guarantee reposdisk:1196"});
}

}  // namespace
