// The one-bit removal, and how an emptied leaf leaves the tree.
#include "tree/clearbit.h"

#include "tree/writetest.h"

namespace {

class ClearBitTest : public WriteTest {};
BMTREE_FOR_ALL_KINDS(ClearBitTest);

TEST_P(ClearBitTest, ClearingABitTwiceAnswersOneThenZero) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1, 5, 9}), denseLeaf(span(1), {span(1), span(1) + 1})});
  EXPECT_EQ(clear(tree, 5), 1);
  EXPECT_EQ(clear(tree, 5), 0);
  EXPECT_EQ(clear(tree, span(1)), 1);
  EXPECT_EQ(clear(tree, span(1)), 0);
  expectTree(tree, "[0 list 2@1, 1 dense 1]", {1, 9, span(1) + 1});
  expectCarefulSets();
}

TEST_P(ClearBitTest, AClearedListEntryMarksTheLeafOnceAndKeepsItsByteCount) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {1, 5, 9, 11}, 3), {.currentStamp = true});
  host.clearEvents();
  EXPECT_EQ(clear(tree, 1), 1);
  EXPECT_EQ(marks(tree.root), cached(1));
  expectTree(tree, "list 3@4", {5, 9, 11});
  EXPECT_EQ(rawU16(bytesOf(tree, tree.root), at::bytesUsed), 40 + 7 * 8);
  EXPECT_EQ(clear(tree, 9), 1);
  expectTree(tree, "list 2@5", {5, 11});
  EXPECT_EQ(clear(tree, 11), 1);
  expectTree(tree, "list 1@5", {5});
}

TEST_P(ClearBitTest, AnAbsentBitOfAListMarksNothing) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {1, 5}), {.currentStamp = true});
  host.clearEvents();
  EXPECT_EQ(clear(tree, 4), 0);
  EXPECT_EQ(host.takeEvents({EventKind::dirty}), std::vector<std::string>{});
}

TEST_P(ClearBitTest, ABitInNoLeafAnswersZeroAndShadowsNothing) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(span(2), {span(2)}), denseLeaf(span(5), {span(5)})});
  host.clearEvents();
  EXPECT_EQ(clear(tree, span(2) - 1), 0);
  EXPECT_EQ(clear(tree, span(3)), 0);
  EXPECT_EQ(clear(tree, span(6)), 0);
  EXPECT_EQ(host.takeEvents({EventKind::newPage, EventKind::dirty}), std::vector<std::string>{});
}

TEST_P(ClearBitTest, AnEmptyTreeAnswersZero) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(clear(tree, 3), 0);
}

TEST_P(ClearBitTest, AnAbsentBitOfAnOldCarefulLeafStillShadowsIt) {
  RepTreeRootSType& tree = adoptTree(Groups{{listLeaf(0, {3})}});
  const std::vector<TreePage> before = pagesOf(host, tree);
  EXPECT_EQ(clear(tree, 4), 0);
  const std::vector<TreePage> after = pagesOf(host, tree);
  for (size_t i = 0; i < before.size(); ++i) EXPECT_EQ(before[i].ref != after[i].ref, isCareful()) << i;
  expectCarefulSets();
}

TEST_P(ClearBitTest, ClearingTheLastBitOfAListRootEmptiesTheTree) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {70}));
  EXPECT_EQ(clear(tree, 70), 1);
  EXPECT_EQ(tree.root, 0u);
  EXPECT_EQ(tree.level, 0);
  EXPECT_EQ(tree.treeKind, kind());
  expectCarefulSets();
}

TEST_P(ClearBitTest, ClearingTheLastBitOfADenseLeafThatStaysKeepsTheLeaf) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {70}, 1)});
  EXPECT_EQ(clear(tree, 70), 1);
  expectTree(tree, "[0 dense 0+]", {});
}

TEST_P(ClearBitTest, ClearingTheLastBitOfAnotherDenseLeafRemovesIt) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {70}, 0), denseLeaf(span(1), {span(1)})});
  EXPECT_EQ(clear(tree, 70), 1);
  expectTree(tree, "[1 dense 1]", {span(1)});
}

TEST_P(ClearBitTest, ClearingTheLastBitOfALevelOneTreeEmptiesTheRoot) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {70})});
  EXPECT_EQ(clear(tree, 70), 1);
  EXPECT_EQ(tree.root, 0u);
  EXPECT_EQ(tree.level, 0);
  EXPECT_EQ(shapeOf(tree), "empty");
  expectCarefulSets();
}

TEST_P(ClearBitTest, ALevelOneRootKeepsItsLevelDownToOneLeaf) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {70}), listLeaf(span(3), {span(3)})});
  EXPECT_EQ(clear(tree, 70), 1);
  expectTree(tree, "[3 list 1@0]", {span(3)});
  EXPECT_EQ(frontOf(tree, tree.root), 1u);
}

TEST_P(ClearBitTest, RemovingALaterLeafClosesTheRowOfSlots) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)}), listLeaf(span(3), {span(3)})},
                {.internalFirstOffset = 9, .currentStamp = true});
  host.clearEvents();
  EXPECT_EQ(clear(tree, span(1)), 1);
  EXPECT_EQ(marks(tree.root), cached(1));
  EXPECT_EQ(frontOf(tree, tree.root), 9u);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(3)}));
  expectSound(tree, {1, span(3)});
}

TEST_P(ClearBitTest, RemovingTheFirstLeafBelowALevel2RootRaisesItsKey) {
  RepTreeRootSType& tree =
      adoptTree(Groups{{listLeaf(0, {1})}, {denseLeaf(span(4), {span(4)}), listLeaf(span(9), {span(9)})}});
  EXPECT_EQ(clear(tree, span(4)), 1);
  expectTree(tree, "[0 [0 list 1@0], 9 [9 list 1@0]]", {1, span(9)});
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(9)}));
  expectCarefulSets();
}

TEST_P(ClearBitTest, RemovingTheFirstLeafOfALevelOneRootChangesNoKeyAbove) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{denseLeaf(span(4), {span(4)}), listLeaf(span(9), {span(9)})}, {.currentStamp = true});
  host.clearEvents();
  EXPECT_EQ(clear(tree, span(4)), 1);
  EXPECT_EQ(marks(tree.root), cached(1));
  expectTree(tree, "[9 list 1@0]", {span(9)});
}

TEST_P(ClearBitTest, TheLastLeafOfALevelOnePageTakesThePageWithIt) {
  RepTreeRootSType& tree =
      adoptTree(Groups{{listLeaf(0, {1})}, {listLeaf(span(4), {span(4)})}, {listLeaf(span(9), {span(9)})}});
  EXPECT_EQ(clear(tree, span(4)), 1);
  expectTree(tree, "[0 [0 list 1@0], 9 [9 list 1@0]]", {1, span(9)});
  EXPECT_EQ(clear(tree, 1), 1);
  expectTree(tree, "[9 [9 list 1@0]]", {span(9)});
  EXPECT_EQ(tree.level, 2);
  EXPECT_EQ(clear(tree, span(9)), 1);
  EXPECT_EQ(shapeOf(tree), "empty");
  EXPECT_EQ(tree.level, 0);
  expectCarefulSets();
}

TEST_P(ClearBitTest, ATreeThatWasEmptiedFillsAgain) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {70})});
  clear(tree, 70);
  EXPECT_EQ(set(tree, 71), 0);
  expectTree(tree, "list 1@0", {71});
}

TEST_P(ClearBitTest, WithoutAPageForAShadowNothingIsCleared) {
  if (!isCareful()) GTEST_SKIP() << "only careful trees shadow";
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {70})});
  for (long budget = 0; budget < 2; ++budget) {
    host.setPageBudget(budget);
    EXPECT_EQ(clear(tree, 70), 0);
    expectTree(tree, "[0 list 1@0]", {70});
    expectCarefulSets();
  }
}

TEST_P(ClearBitTest, ALeafOfAnotherKindIsReportedAtLine5568) {
  PageBytes image = listImage({1});
  putU8(image.data(), at::pageKind, 4);
  const uint64_t leaf = placePage(host, kind(), image, {.currentStamp = true});
  RepTreeRootSType& tree = adopt(RepTreeRootSType(leaf, kind()));
  testing::internal::CaptureStderr();
  EXPECT_EQ(clear(tree, 1), 0);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_NE(text.find("bitmap line 5568 \n"), std::string::npos) << text;
  host.expectReports({leafFault(leaf)});
}

// ---------------------------------------------------------------------------------------------------------
// disposeLeaf

TEST_P(ClearBitTest, ADisposedLeafOfAScanLeavesThePathOnTheEntryAfterIt) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{listLeaf(0, {1}), listLeaf(span(3), {span(3)}), denseLeaf(span(5), {span(5)})});
  BmPathSType path = pathTo(tree, span(3));
  path.valid = 1;
  disposeLeaf(&host, &tree, &path, 12);
  EXPECT_EQ(path.valid, 1);
  EXPECT_EQ(path.levels[1].index, 1);
  EXPECT_EQ(path.levels[1].numEntries, 2);
  EXPECT_EQ(path.levels[1].firstBit, span(5));
  EXPECT_EQ(path.levels[0].pageId, leafRef(tree, 1));
  expectTree(tree, "[0 list 1@0, 5 dense 1]", {1, span(5)});
}

TEST_P(ClearBitTest, ADisposedFirstLeafOfAScanLeavesThePathOnTheNewFirstOne) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1}), listLeaf(span(3), {span(3)})});
  BmPathSType path = pathTo(tree, 0);
  path.valid = 1;
  disposeLeaf(&host, &tree, &path, 0);
  EXPECT_EQ(path.valid, 1);
  EXPECT_EQ(path.levels[1].index, 0);
  EXPECT_EQ(path.levels[1].numEntries, 1);
  EXPECT_EQ(path.levels[0].pageId, leafRef(tree, 0));
}

TEST_P(ClearBitTest, ADisposedLastLeafOfAScanEndsIt) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1}), listLeaf(span(3), {span(3)})});
  BmPathSType path = pathTo(tree, span(3));
  path.valid = 1;
  disposeLeaf(&host, &tree, &path, 0);
  EXPECT_EQ(path.atEnd, 1);
  EXPECT_EQ(path.levels[0].pageId, 0u);
}

TEST_P(ClearBitTest, AScanWhosePageEmptiedIsNoLongerValid) {
  RepTreeRootSType& tree = adoptTree(Groups{{listLeaf(0, {1})}, {listLeaf(span(3), {span(3)})}});
  BmPathSType path = pathTo(tree, 0);
  path.valid = 1;
  disposeLeaf(&host, &tree, &path, 0);
  EXPECT_EQ(path.valid, 0);
  expectTree(tree, "[3 [3 list 1@0]]", {span(3)});
}

TEST_P(ClearBitTest, ADisposedRootLeafEmptiesTheTree) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {1}));
  BmPathSType path = pathTo(tree, 0);
  path.valid = 1;
  disposeLeaf(&host, &tree, &path, 12);
  EXPECT_EQ(path.valid, 0);
  EXPECT_EQ(path.levels[0].pageId, 0u);
  EXPECT_EQ(tree.root, 0u);
}

TEST_P(ClearBitTest, AnUnknownLeafIsNotDisposedOfAndReportedAtLine2315) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1})}, {.currentStamp = true});
  const uint64_t leaf = leafRef(tree, 0);
  putU8(host.bytes(tree, leaf), at::pageKind, 4);
  BmPathSType path = pathTo(tree, 0);
  path.valid = 1;
  testing::internal::CaptureStderr();
  disposeLeaf(&host, &tree, &path, 0);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_NE(text.find("bitmap line 2315 \n"), std::string::npos) << text;
  EXPECT_EQ(path.valid, 0);
  host.expectReports({leafFault(leaf)});
  putU8(host.bytes(tree, leaf), at::pageKind, 12);
  expectTree(tree, "[0 list 1@0]", {1});
}

TEST_P(ClearBitTest, AMissingLeafIsReportedAtLine2397AndNothingGoes) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {1})});
  testing::internal::CaptureStderr();
  disposeLeafForBit(&host, &tree, span(2));
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_NE(text.find("page 0 treeKind " + std::to_string(kind()) + ", bitmap line 2397 \n"), std::string::npos);
  EXPECT_NE(text.find("bitmap line 2315 \n"), std::string::npos) << text;
  host.expectReports({leafFault(0, false), leafFault(0, false)});
  expectTree(tree, "[0 dense 1]", {1});
}

TEST_P(ClearBitTest, ARootOfAnotherLevelIsReportedAtLine2011) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {1})}, {.currentStamp = true});
  BmPathSType path = pathTo(tree, 0);
  tree.level = 3;
  testing::internal::CaptureStdout();
  disposeLeaf(&host, &tree, &path, 12);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Bad level 3 in disposeInternalNode\n");
  host.expectReports({"guarantee bitmap:2011"});
  tree.level = 1;
}

// ---------------------------------------------------------------------------------------------------------
// Inline lists

class ClearInlineBitTest : public TreeFixture {};

TEST_F(ClearInlineBitTest, TheListStaysWhenItEmpties) {
  InlineTree tree({10, 20}, 4);
  EXPECT_EQ(BmClearBit(&host, tree.root(), 15), 0);
  EXPECT_EQ(BmClearBit(&host, tree.root(), 10), 1);
  EXPECT_EQ(BmClearBit(&host, tree.root(), 10), 0);
  EXPECT_EQ(BmClearBit(&host, tree.root(), 20), 1);
  EXPECT_NE(tree.root()->root, 0u);
  EXPECT_EQ(rawU32(tree.contents(), 0), 0u);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_F(ClearInlineBitTest, AnotherNegativeKindIsReportedAndClearsNothing) {
  InlineTree tree({10});
  tree.root()->treeKind = -5;
  EXPECT_EQ(BmClearBit(&host, tree.root(), 10), 0);
  host.expectReports({"guarantee reposdisk:1196"});
  tree.root()->treeKind = -2;
  EXPECT_EQ(bitsOf(*tree.root()), std::vector<uint64_t>{10});
}

}  // namespace
