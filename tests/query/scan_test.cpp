#include <gtest/gtest.h>

#include <algorithm>

#include "query/randomtree.h"

namespace {

using Bits = std::vector<uint64_t>;

class ScanTest : public TreeTest {
 protected:
  BmPathSType path{};

  static Bits resized(Bits out, unsigned long got, size_t room) {
    EXPECT_LE(got, room);
    EXPECT_EQ(out[room], 0xEEEEu) << "written behind the end";
    out.resize(got);
    return out;
  }
  Bits read(const RepTreeRootSType& root, long maxBits) {
    Bits out(static_cast<size_t>(maxBits) + 1, 0xEEEE);
    const unsigned long got = BmFindSetBitsNonDestructive_(&host, maxBits, &root, &path, out.data());
    return resized(out, got, static_cast<size_t>(maxBits));
  }
  Bits readFrom(const RepTreeRootSType& root, uint64_t startBit, long maxBits) {
    Bits out(static_cast<size_t>(maxBits) + 1, 0xEEEE);
    const unsigned long got =
        BmFindSetBitsNonDestructiveStartingAt_(&host, startBit, maxBits, &root, &path, out.data());
    return resized(out, got, static_cast<size_t>(maxBits));
  }
  // The same from a fresh path.
  Bits firstFrom(const RepTreeRootSType& root, uint64_t startBit, long maxBits = 1) {
    path = {};
    return readFrom(root, startBit, maxBits);
  }
  unsigned long copyRange(const RepTreeRootSType& root, RepTreeRootSType& target, uint64_t first, uint64_t last) {
    return BmFindSetBitsNonDestructiveInRange_(&host, &root, &target, first, last);
  }
};
BMTREE_FOR_ALL_KINDS(ScanTest);

TEST_P(ScanTest, AnEmptyTreeGivesNothingAndLeavesThePath) {
  EXPECT_EQ(read(newTree(), 5), Bits{});
  EXPECT_EQ(path.valid, 0);
  EXPECT_EQ(path.atEnd, 0);
}

TEST_P(ScanTest, MaxBitsOfZeroSetsThePathUpAndGivesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2})}));
  EXPECT_EQ(read(root, 0), Bits{});
  EXPECT_EQ(path.valid, 1);
  unsigned long none;
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, -4, &root, &path, &none), 0u);
  EXPECT_EQ(read(root, 9), (Bits{1, 2}));
}

TEST_P(ScanTest, FiveBitsInChunksOfTwo) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 3, 8, topBit}, 4)));
  EXPECT_EQ(read(root, 2), (Bits{1, 2}));
  EXPECT_EQ(read(root, 2), (Bits{3, 8}));
  EXPECT_EQ(read(root, 2), (Bits{topBit}));
  EXPECT_EQ(read(root, 2), Bits{});
  EXPECT_EQ(path.atEnd, 1);
}

TEST_P(ScanTest, AChunkThatEndsAtTheLastBitHasSteppedPastItAndTouchesNoLeafAgain) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(2) - 1})}));
  EXPECT_EQ(read(root, 2), (Bits{1, span(2) - 1}));
  EXPECT_EQ(path.atEnd, 1);
  host.clearEvents();
  EXPECT_EQ(read(root, 2), Bits{});
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_P(ScanTest, EmptyLeavesInTheMiddleDoNotBreakTheWalk) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(),
                      Groups{{listLeaf(0, {1}), denseLeaf(span(1), {}, 1)},
                             {denseLeaf(span(2), {}, 1), listLeaf(span(3), {}, 7)},
                             {denseLeaf(span(5), {}, 1), denseLeaf(span(6), {span(6), span(6) + 3})}}));
  EXPECT_EQ(read(root, 9), (Bits{1, span(6), span(6) + 3}));
}

TEST_P(ScanTest, ALevelOnePageWithoutEntriesEndsTheWalk) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{}));
  EXPECT_EQ(read(root, 9), Bits{});
  EXPECT_EQ(path.atEnd, 1);
}

TEST_P(ScanTest, NothingIsChangedOrMarked) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})}));
  host.clearEvents();
  EXPECT_EQ(read(root, 9).size(), 3u);
  EXPECT_EQ(host.takeEvents({EventKind::dirty, EventKind::newPage, EventKind::dispose, EventKind::pin,
                             EventKind::heapAlloc, EventKind::bufferAlloc}),
            std::vector<std::string>{});
}

TEST_P(ScanTest, ALeafOfAWrongKindIsReportedAndGivesNothingEvenAfterBitsWereStored) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})}));
  const uint64_t broken = refsAtLevel(host, root, 0)[1];
  putU8(host.bytes(root, broken), at::pageKind, 4);
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  unsigned long out[9];
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 9, &root, &path, out), 0u);
  ::testing::internal::GetCapturedStdout();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("bitmap line 7697 "), std::string::npos);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, broken), at::pageKind, 8);
}

TEST_P(ScanTest, AStartBitThatIsSetComesFirst) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{listLeaf(0, {1, 7, 9}), denseLeaf(span(2), {span(2) + 4, span(2) + 100})}));
  EXPECT_EQ(firstFrom(root, 0), Bits{1});
  EXPECT_EQ(firstFrom(root, 7), Bits{7});
  EXPECT_EQ(firstFrom(root, 8), Bits{9});
  EXPECT_EQ(firstFrom(root, 10), Bits{span(2) + 4});  // behind the last entry of the list
  EXPECT_EQ(firstFrom(root, span(1)), Bits{span(2) + 4});
  EXPECT_EQ(firstFrom(root, span(2) + 4), Bits{span(2) + 4});
  EXPECT_EQ(firstFrom(root, span(2) + 5, 4), Bits{span(2) + 100});
  EXPECT_EQ(firstFrom(root, span(2) + 101), Bits{});
  EXPECT_EQ(firstFrom(root, span(3)), Bits{});
}

TEST_P(ScanTest, AStartBitInAGapStartsAtTheFirstBitOfTheNextLeaf) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{denseLeaf(span(1), {span(1)}), denseLeaf(span(4), {span(4) + 3, span(4) + 4})}));
  EXPECT_EQ(firstFrom(root, 3), Bits{span(1)});
  EXPECT_EQ(firstFrom(root, span(3)), Bits{span(4) + 3});
  EXPECT_EQ(readFrom(root, 12345, 9), Bits{span(4) + 4});  // the path goes on, whatever the start bit says
}

TEST_P(ScanTest, AStartBitInALevelZeroTreeIsFoundInTheList) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 7, 9}, 5)));
  EXPECT_EQ(firstFrom(root, 2, 9), (Bits{7, 9}));
  EXPECT_EQ(firstFrom(root, 10, 9), Bits{});
}

TEST_P(ScanTest, AStartBitPastTheLastDenseLeafOfALevelOnePageMissesThoughAnotherPageFollows) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Groups{{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {denseLeaf(span(5), {span(5)})}}));
  EXPECT_EQ(firstFrom(root, span(2)), Bits{});
  EXPECT_EQ(firstFrom(root, span(5)), Bits{span(5)});
}

TEST_P(ScanTest, OopsLeaveTheTreeAsItIs) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {5}), denseLeaf(span(1), {span(1)})}));
  unsigned long oops[3];
  EXPECT_EQ(BmFindSetOopsNonDestructive_(&host, 3, &root, &path, oops), 2u);
  EXPECT_EQ(oops[0], 1281u);
  EXPECT_EQ(oops[1], span(1) << 8 | 1);
  EXPECT_EQ(BmFindSetOopsNonDestructive_(&host, 3, &root, &path, oops), 0u);
  expectSound(root, {5, span(1)});
}

TEST_P(ScanTest, DiskRootsGiveTheSameBits) {
  if (isHeap()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {5}), denseLeaf(span(1), {span(1)})}));
  const DiskTreeRootSType disk = diskRootOf(root);
  unsigned long bits[3];
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 3, &disk, &path, bits), 2u);
  EXPECT_EQ(bits[1], span(1));
}

TEST_P(ScanTest, ARangeIsCopiedWithBothItsLimits) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {5, 6, 9}), denseLeaf(span(1), {span(1), span(1) + 2})}));
  RepTreeRootSType& target = newTree(BM_HEAP_TREE);
  EXPECT_EQ(copyRange(root, target, 6, span(1)), 3u);
  expectSound(target, {6, 9, span(1)});
  EXPECT_EQ(copyRange(root, target, 6, 6), 1u);  // counted though it is there
  EXPECT_EQ(copyRange(root, target, 7, 8), 0u);
  EXPECT_EQ(copyRange(root, target, 0, 5), 1u);
  expectSound(target, {5, 6, 9, span(1)});
}

TEST_P(ScanTest, ARangeAboveAllBitsOrOfAnEmptyTreeCopiesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {5, 6, 9})}));
  RepTreeRootSType& target = newTree(BM_HEAP_TREE);
  EXPECT_EQ(copyRange(root, target, 10, topBit), 0u);
  EXPECT_EQ(copyRange(newTree(), target, 0, topBit), 0u);
  EXPECT_EQ(target.root, 0u);
}

TEST_P(ScanTest, ARangeOfSeveralChunksStopsInsideTheLast) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, runOfBits(100, 9000))}));
  RepTreeRootSType& target = newTree();
  EXPECT_EQ(copyRange(root, target, 200, 6000), 5801u);
  const Bits expected = runOfBits(200, 6001);
  expectSound(target, BitSet(expected.begin(), expected.end()));
}

TEST_P(ScanTest, RandomChunksGiveEveryBitOnceAndChangeNothing) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 50; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    host.watchDirtyMarks();
    host.moveUnpinnedPages(1);
    path = {};
    const uint64_t chunk = 1 + random.below(random.oneIn(2) ? 30 : 3000);
    auto expected = model.begin();
    while (expected != model.end()) {
      const Bits bits = read(root, static_cast<long>(1 + random.below(chunk)));
      ASSERT_FALSE(bits.empty());
      for (const uint64_t bit : bits) ASSERT_EQ(bit, *expected++);
    }
    EXPECT_EQ(read(root, 3), Bits{});
    host.moveUnpinnedPages(0);
    host.expectChangesMarked();
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

// A start bit behind the last dense leaf of a level-1 page misses, as told above; every other start is exact.
TEST_P(ScanTest, RandomStartsAndRangesAgreeWithTheModel) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 60; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(2)), random, &model));
    for (int probe = 0; probe < 20; ++probe) {
      const uint64_t some = model.empty() ? 0 : *model.lower_bound(random.below(*model.rbegin() + 1));
      const uint64_t start = random.oneIn(2) ? random.below(span(20)) : some + random.below(3);
      const auto first = model.lower_bound(start);
      const long n = 1 + static_cast<long>(random.below(100));
      const Bits bits = firstFrom(root, start, n);
      auto expected = first;
      for (const uint64_t bit : bits) ASSERT_EQ(bit, *expected++) << "start " << start;
      ASSERT_TRUE(static_cast<long>(bits.size()) == n || expected == model.end()) << "start " << start;

      RepTreeRootSType target(0, BM_HEAP_TREE);
      const uint64_t last = start + random.below(random.oneIn(2) ? 1000 : span(9));
      const BitSet inRange(first, model.upper_bound(last));
      ASSERT_EQ(copyRange(root, target, start, last), inRange.size());
      expectSound(target, inRange);
      BmDisposeTree(&host, &target);
    }
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

class InlineScanTest : public TreeFixture {
 protected:
  BmPathSType path{};
  unsigned long out[8];
};

TEST_F(InlineScanTest, AnInlineListIsReadInChunks) {
  InlineTree tree({3, 5, 9}, 4);
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 2, tree.root(), &path, out), 2u);
  EXPECT_EQ(out[1], 5u);
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 2, tree.root(), &path, out), 1u);
  EXPECT_EQ(out[0], 9u);
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 2, tree.root(), &path, out), 0u);
  EXPECT_EQ(path.valid, 0);
  path = {};
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 8, tree.diskRoot(), &path, out), 3u);
}

TEST_F(InlineScanTest, AStartBitHasNoEffectOnAnInlineList) {
  InlineTree tree({3, 5, 9});
  EXPECT_EQ(BmFindSetBitsNonDestructiveStartingAt_(&host, 6, 8, tree.root(), &path, out), 3u);
  EXPECT_EQ(out[0], 3u);
}

TEST_F(InlineScanTest, ARangeOfAnInlineListIsFiltered) {
  InlineTree tree({3, 5, 9});
  RepTreeRootSType& target = newTree(BM_PAGE_TREE);
  EXPECT_EQ(BmFindSetBitsNonDestructiveInRange_(&host, tree.root(), &target, 4, 9), 2u);
  expectSound(target, {5, 9});
  EXPECT_EQ(BmFindSetBitsNonDestructiveInRange_(&host, tree.root(), &target, 10, 90), 0u);
}

TEST_F(InlineScanTest, AnotherNegativeKindIsReported) {
  InlineTree tree({3});
  tree.root()->treeKind = -9;
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 2, tree.root(), &path, out), 0u);
  host.expectReports({"guarantee reposdisk:1196"});
}

}  // namespace
