#include <gtest/gtest.h>

#include <algorithm>

#include "query/randomtree.h"

namespace {

using Bits = std::vector<uint64_t>;

Bits take(TestHost& host, RepTreeRootSType& root, BmPathSType& path, unsigned long maxBits) {
  Bits out(maxBits + 1, 0xEEEE);
  const unsigned long got = BmFindSetBits_(&host, maxBits, &root, &path, out.data());
  EXPECT_LE(got, maxBits);
  EXPECT_EQ(out[maxBits], 0xEEEEu) << "written behind the end";
  out.resize(got);
  return out;
}

class ExtractTest : public TreeTest {
 protected:
  BmPathSType path{};
  Bits take(RepTreeRootSType& root, unsigned long maxBits) { return ::take(host, root, path, maxBits); }
};
BMTREE_FOR_ALL_KINDS(ExtractTest);

TEST_P(ExtractTest, AnEmptyTreeGivesNothing) { EXPECT_EQ(take(newTree(), 5), Bits{}); }

TEST_P(ExtractTest, MaxBitsOfZeroTouchesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2})));
  EXPECT_EQ(take(root, 0), Bits{});
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
  EXPECT_EQ(path.valid, 0);
}

TEST_P(ExtractTest, AListGivesUpItsFrontAndKeepsTheRestInPlace) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})));
  EXPECT_EQ(take(root, 4), (Bits{1, 2, 3, 4}));
  EXPECT_EQ(shapeOf(root), "list 6@4");
  EXPECT_EQ(rawU16(bytesOf(root, root.root), at::bytesUsed), (6 + 4) * 8 + 40);
  EXPECT_EQ(take(root, 1), Bits{5});
  expectSound(root, {6, 7, 8, 9, 10});
}

TEST_P(ExtractTest, TakingExactlyALeafsBitsDisposesOfItInThatCall) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1), span(1) + 130751}), denseLeaf(span(2), {span(2)})}));
  EXPECT_EQ(take(root, 2), (Bits{1, 2}));
  EXPECT_EQ(shapeOf(root), "[1 dense 2, 2 dense 1]");
  EXPECT_EQ(take(root, 2), (Bits{span(1), span(1) + 130751}));
  EXPECT_EQ(shapeOf(root), "[2 dense 1]");
  EXPECT_EQ(take(root, 1), Bits{span(2)});
  EXPECT_EQ(shapeOf(root), "empty");
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(take(root, 1), Bits{});
}

TEST_P(ExtractTest, TheKeyOfALevelOnePageFollowsItsFirstLeaf) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Groups{{denseLeaf(span(1), {span(1)}), denseLeaf(span(4), {span(4)})}, {denseLeaf(span(6), {span(6)})}}));
  EXPECT_EQ(take(root, 1), Bits{span(1)});
  EXPECT_EQ(shapeOf(root), "[4 [4 dense 1], 6 [6 dense 1]]");
  expectSound(root);
}

TEST_P(ExtractTest, AnEmptiedLevelOnePageLeavesTheRootAndTheLastOneTakesItAlong) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Groups{{denseLeaf(0, {1})}, {denseLeaf(span(6), {span(6)})}}));
  EXPECT_EQ(take(root, 1), Bits{1});
  EXPECT_EQ(shapeOf(root), "[6 [6 dense 1]]");
  EXPECT_EQ(take(root, 1), Bits{span(6)});
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(root.level, 0);
}

TEST_P(ExtractTest, ADenseLeafWithoutBitsIsDisposedOfAtTheFirstVisitThoughItIsKept) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Leaves{denseLeaf(0, {}, 1), denseLeaf(span(1), {}, 1), denseLeaf(span(2), {span(2), span(2) + 1}, 1)}));
  EXPECT_EQ(take(root, 1), Bits{span(2)});
  EXPECT_EQ(shapeOf(root), "[2 dense 1+]");
}

TEST_P(ExtractTest, ATreeOfEmptyLeavesEndsAsAnEmptyRoot) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Groups{{denseLeaf(0, {}, 1)}, {denseLeaf(span(3), {}, 1)}}));
  EXPECT_EQ(take(root, 1), Bits{});
  EXPECT_EQ(root.root, 0u);
}

TEST_P(ExtractTest, ATreeWithoutALeafDoesNotStayAsAShell) {
  RepTreeRootSType& flat = adopt(buildTree(host, kind(), Leaves{}));
  EXPECT_EQ(take(flat, 1), Bits{});
  EXPECT_EQ(flat.root, 0u);
  RepTreeRootSType& tall = adopt(buildTree(host, kind(), Groups{}));
  path = {};
  EXPECT_EQ(take(tall, 1), Bits{});
  EXPECT_EQ(tall.root, 0u);
}

TEST_P(ExtractTest, ADenseLeafWhoseCounterClaimsTooManyBitsIsDisposedOf) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})}));
  putU32(host.bytes(root, refsAtLevel(host, root, 0)[0]), at::bitsSet, 7);
  EXPECT_EQ(take(root, 9), (Bits{1, span(1)}));
  EXPECT_EQ(root.root, 0u);
}

TEST_P(ExtractTest, APositionOutsideTheLeafEndsTheCallAndLosesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1})}));
  path.valid = 1;
  path.levels[0].index = -1;
  path.levels[0].pageId = refsAtLevel(host, root, 0)[0];
  path.levels[1].pageId = root.root;
  EXPECT_EQ(take(root, 9), Bits{});
  expectSound(root, {1});
}

TEST_P(ExtractTest, EachLeafIsMarkedOncePerVisit) {
  if (isHeap()) return;
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Leaves{denseLeaf(0, runOfBits(3, 900)), denseLeaf(span(1), {span(1)})}, {.currentStamp = true}));
  const uint64_t leaf = refsAtLevel(host, root, 0)[0];
  host.clearEvents();
  EXPECT_EQ(take(root, 400).size(), 400u);
  EXPECT_EQ(host.countLogged(EventKind::dirty, leaf), 1);
  EXPECT_EQ(take(root, 400).size(), 400u);
  EXPECT_EQ(host.countLogged(EventKind::dirty, leaf), 2);
}

TEST_P(ExtractTest, ALeafOfAWrongKindIsReportedAndEndsTheCallWithNothing) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {.currentStamp = true}));
  putU8(host.bytes(root, refsAtLevel(host, root, 0)[1]), at::pageKind, 7);
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(take(root, 9), Bits{});
  ::testing::internal::GetCapturedStdout();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("bitmap line 7509 "), std::string::npos);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, refsAtLevel(host, root, 0)[0]), at::pageKind, 8);
  expectSound(root, {span(1)});  // the bit taken before is gone
}

TEST_P(ExtractTest, OopsCarryTheBitAboveTheirLowByte) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {5}), denseLeaf(span(1), {span(1)})}));
  unsigned long oops[3];
  EXPECT_EQ(BmFindSetOops_(&host, 3, &root, &path, oops), 2u);
  EXPECT_EQ(oops[0], 1281u);
  EXPECT_EQ(oops[1], span(1) << 8 | 1);
  EXPECT_EQ(root.root, 0u);
}

TEST_P(ExtractTest, WithoutAPageForAShadowNothingIsTaken) {
  if (!isCareful()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), listLeaf(span(1), {span(1)})}));
  host.setPageBudget(2);
  EXPECT_EQ(take(root, 9), (Bits{1, 2}));
  expectSound(root, {span(1)});
  EXPECT_EQ(take(root, 9), Bits{});
  host.setPageBudget(-1);
  EXPECT_EQ(take(root, 9), Bits{span(1)});
}

TEST_P(ExtractTest, ClearingAsManyBitsAsTheTreeHoldsEmptiesIt) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(),
      Groups{{denseLeaf(0, runOfBits(0, 5000)), denseLeaf(span(1), {}, 1)}, {listLeaf(span(4), {span(4)})}}));
  EXPECT_EQ(BmClearNumBits(&host, &root, 0), 0u);
  EXPECT_EQ(BmClearNumBits(&host, &root, 5001), 5001u);
  EXPECT_EQ(root.root, 0u);
}

TEST_P(ExtractTest, EmptyLeavesBehindTheLastBitStayUntilACallReachesThem) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1}), denseLeaf(span(1), {}, 1)}));
  EXPECT_EQ(BmClearNumBits(&host, &root, 1), 1u);
  EXPECT_EQ(BmIsEmpty(&host, &root), 1);
  EXPECT_EQ(shapeOf(root), "[1 dense 0+]");
  EXPECT_EQ(take(root, 1), Bits{});
  EXPECT_EQ(root.root, 0u);
}

TEST_P(ExtractTest, ClearingANumberOfBitsTakesTheLowest) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{denseLeaf(0, runOfBits(0, 5000)), listLeaf(span(2), {span(2), span(2) + 1})}));
  EXPECT_EQ(BmClearNumBits(&host, &root, 4999), 4999u);
  expectSound(root, {4999, span(2), span(2) + 1});
}

TEST_P(ExtractTest, DiskRootsAreWrittenBack) {
  if (isHeap()) return;
  const RepTreeRootSType built = buildTree(host, kind(), Leaves{listLeaf(0, {5}), denseLeaf(span(1), {span(1)})});
  DiskTreeRootSType disk = diskRootOf(built);
  unsigned long bits[3];
  EXPECT_EQ(BmFindSetBits_(&host, 1, &disk, &path, bits), 1u);
  EXPECT_EQ(disk.level, 1);
  EXPECT_EQ(pageIdOf(disk) != built.root, isCareful());
  EXPECT_EQ(BmFindSetBits_(&host, 3, &disk, &path, bits), 1u);
  EXPECT_EQ(pageIdOf(disk), 0u);
  EXPECT_EQ(disk.level, 0);
  EXPECT_EQ(disk.treeKind, kind());
}

// Every bit comes once, ascending, in chunks of any size; the tree is sound in between and every page comes back.
TEST_P(ExtractTest, RandomChunksGiveEveryBitOnceAndEveryPageBack) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 40; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    host.watchDirtyMarks();
    const uint64_t chunk = 1 + random.below(random.oneIn(2) ? 30 : 3000);
    path = {};
    int calls = 0;
    while (!model.empty()) {
      const unsigned long n = 1 + random.below(chunk);
      const Bits bits = take(root, n);
      ASSERT_EQ(bits.size(), std::min<size_t>(n, model.size()));
      ASSERT_TRUE(std::equal(bits.begin(), bits.end(), model.begin()));
      model.erase(model.begin(), std::next(model.begin(), static_cast<long>(bits.size())));
      if (++calls % 16 != 0) continue;
      expectSound(root, model);
      host.expectChangesMarked();
      if (isCareful() && random.oneIn(3)) {
        moveStampOn();
        path = {};
      }
    }
    EXPECT_EQ(take(root, 3), Bits{});
    ASSERT_EQ(root.root, 0u);
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
  if (isCareful()) return;  // older pages of a careful tree stay until its owner releases them
  host.expectNothingLeft();
}

class InlineExtractTest : public TreeFixture {
 protected:
  BmPathSType path{};
};

TEST_F(InlineExtractTest, AnInlineListGivesUpItsFront) {
  InlineTree tree({3, 5, 9}, 4);
  EXPECT_EQ(take(host, *tree.root(), path, 2), (Bits{3, 5}));
  EXPECT_EQ(rawU32(tree.contents(), 0), 1u);
  EXPECT_EQ(rawU32(tree.contents(), 4), 6u);
  EXPECT_NE(tree.root()->root, 0u);
  EXPECT_EQ(take(host, *tree.root(), path, 2), Bits{9});
  EXPECT_EQ(tree.root()->root, 0u);
  EXPECT_EQ(take(host, *tree.root(), path, 2), Bits{});
}

TEST_F(InlineExtractTest, MaxBitsOfZeroEmptiesTheRootOfAnEmptyListOnly) {
  InlineTree tree({3});
  EXPECT_EQ(take(host, *tree.root(), path, 0), Bits{});
  EXPECT_NE(tree.root()->root, 0u);
  InlineTree empty;
  EXPECT_EQ(take(host, *empty.root(), path, 0), Bits{});
  EXPECT_EQ(empty.root()->root, 0u);
}

TEST_F(InlineExtractTest, AnInlineDiskRootThatEmptiesLosesItsOffsetAndKeepsItsKind) {
  InlineTree tree({3, 4});
  unsigned long bits[2];
  EXPECT_EQ(BmFindSetBits_(&host, 1, tree.diskRoot(), &path, bits), 1u);
  EXPECT_EQ(tree.diskRoot()->pageIdLow, 24u);
  EXPECT_EQ(BmFindSetBits_(&host, 2, tree.diskRoot(), &path, bits), 1u);
  EXPECT_EQ(tree.diskRoot()->pageIdLow, 0u);
  EXPECT_EQ(tree.diskRoot()->treeKind, -2);
}

TEST_F(InlineExtractTest, AnotherNegativeKindIsReported) {
  InlineTree tree({3});
  tree.root()->treeKind = -9;
  EXPECT_EQ(take(host, *tree.root(), path, 2), Bits{});
  host.expectReports({"guarantee reposdisk:1196"});
}

}  // namespace
