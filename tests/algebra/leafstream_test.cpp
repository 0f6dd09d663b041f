#include "algebra/leafstream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "algebra/leafenumerator.h"
#include "algebra/stepwalk.h"
#include "query/randomtree.h"

namespace {

// What getNextLeaf hands out, without a look at a leaf.
struct SeenLeaf {
  uint64_t firstBit;
  uint64_t endBit;
  friend bool operator==(const SeenLeaf&, const SeenLeaf&) = default;
};

std::ostream& operator<<(std::ostream& out, const SeenLeaf& leaf) {
  return out << leaf.firstBit << ".." << leaf.endBit;
}

std::vector<SeenLeaf> leavesOf(TestHost& host, const RepTreeRootSType& root, uint64_t startBit = 0) {
  BmLeavesSType leaves(&root, startBit);
  BmLeafPinSType pin(&host);
  BmLeafStateSType leaf(&pin);
  std::vector<SeenLeaf> seen;
  while (getNextLeaf(&host, &leaves, &leaf)) seen.push_back({leaf.firstBit, leaf.endBit});
  EXPECT_EQ(getNextLeaf(&host, &leaves, &leaf), 0);
  EXPECT_EQ(getLeaves(&host, &leaves), 0);
  return seen;
}

using Seen = std::vector<SeenLeaf>;

class LeafStreamTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(LeafStreamTest);

TEST_P(LeafStreamTest, AnEmptyTreeYieldsNothing) {
  RepTreeRootSType& root = newTree();
  BmLeavesSType leaves(&root);
  EXPECT_EQ(getLeaves(&host, &leaves), 0);
  EXPECT_EQ(leaves.leafCount, 0);
  EXPECT_EQ(leaves.started, 1);
  EXPECT_EQ(leavesOf(host, root), Seen{});
}

TEST_P(LeafStreamTest, ALevelZeroTreeIsOneLeafThatCoversEverything) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {7, 9})));
  EXPECT_EQ(leavesOf(host, root), (Seen{{0, topBit}}));
}

TEST_P(LeafStreamTest, ALevelZeroTreeWithADenseRootCoversEverythingToo) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), denseLeaf(0, {7})));
  EXPECT_EQ(leavesOf(host, root), (Seen{{0, topBit}}));
}

TEST_P(LeafStreamTest, ALevelZeroTreeWithAStartBitYieldsNothing) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {7, 9})));
  EXPECT_EQ(leavesOf(host, root, 1), Seen{});
}

TEST_P(LeafStreamTest, AListLeafReachesUpToTheNextLeafAndADenseLeafToTheEndOfItsSpan) {
  const RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{listLeaf(0, {1}), denseLeaf(span(5), {span(5)}), listLeaf(span(9), {span(9)})}));
  EXPECT_EQ(leavesOf(host, root), (Seen{{0, span(5) - 1}, {span(5), span(6) - 1}, {span(9), topBit}}));
}

TEST_P(LeafStreamTest, ADenseLeafInTheLastSpanEndsAtTheTopOfTheNumberSpace) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(span(lastSpan), {topBit})}));
  EXPECT_EQ(leavesOf(host, root), (Seen{{span(lastSpan), topBit}}));
}

TEST_P(LeafStreamTest, TheLastListOfALevelOnePageEndsBelowTheNextPage) {
  const RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Groups{{listLeaf(0, {1}), listLeaf(span(2), {span(2)})}, {listLeaf(span(7), {span(7)})}}));
  EXPECT_EQ(leavesOf(host, root), (Seen{{0, span(2) - 1}, {span(2), span(7) - 1}, {span(7), topBit}}));
}

TEST_P(LeafStreamTest, AStartBitBehindAListStartsAtThatList) {
  const RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1}), listLeaf(span(9), {span(9)})}));
  EXPECT_EQ(leavesOf(host, root, span(8)).front(), (SeenLeaf{0, span(9) - 1}));
  EXPECT_EQ(leavesOf(host, root, span(9)).front(), (SeenLeaf{span(9), topBit}));
  EXPECT_EQ(leavesOf(host, root, topBit).front(), (SeenLeaf{span(9), topBit}));
}

TEST_P(LeafStreamTest, AStartBitPastADenseLeafStartsAtTheNextLeaf) {
  const RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(span(1), {span(1)}), denseLeaf(span(4), {span(4)})}));
  EXPECT_EQ(leavesOf(host, root, span(2) - 1).size(), 2u);
  EXPECT_EQ(leavesOf(host, root, span(2)), (Seen{{span(4), span(5) - 1}}));
}

TEST_P(LeafStreamTest, AStartBitPastTheLastDenseLeafYieldsNothing) {
  const RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1}), denseLeaf(span(4), {span(4)})}));
  EXPECT_EQ(leavesOf(host, root, span(5)), Seen{});
}

TEST_P(LeafStreamTest, AStartBitBelowAllKeysStartsAtTheFirstLeaf) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(span(3), {span(3)})}));
  EXPECT_EQ(leavesOf(host, root, 5).size(), 1u);
  const RepTreeRootSType& tall =
      adopt(buildTree(host, kind(), Groups{{denseLeaf(span(3), {span(3)})}, {denseLeaf(span(7), {}, 1)}}));
  EXPECT_EQ(leavesOf(host, tall, 5).size(), 2u);
}

TEST_P(LeafStreamTest, AStartBitInALevelTwoTreeStartsAtTheFirstLeafOfItsLevelOnePage) {
  BuildOptions options;
  options.internalFirstOffset = 11;
  const Groups groups = {
      {denseLeaf(0, {1})}, {denseLeaf(span(3), {}, 1), denseLeaf(span(4), {}, 1)}, {denseLeaf(span(6), {}, 1)}};
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), groups, options));
  const Seen fromSecondPage{{span(3), span(4) - 1}, {span(4), span(5) - 1}, {span(6), span(7) - 1}};
  EXPECT_EQ(leavesOf(host, root, span(3)), fromSecondPage);
  EXPECT_EQ(leavesOf(host, root, span(4) + 7), fromSecondPage);
  EXPECT_EQ(leavesOf(host, root, span(5)), fromSecondPage);  // past the page's last dense leaf
  EXPECT_EQ(leavesOf(host, root, span(6)).size(), 1u);
  EXPECT_EQ(leavesOf(host, root, topBit).size(), 1u);

  BmLeavesSType leaves(&root, span(3));
  EXPECT_EQ(getLeaves(&host, &leaves), 2);
  EXPECT_EQ(leaves.nextLevel1, 2);
  EXPECT_EQ(leaves.level1Count, 3);
  EXPECT_EQ(leaves.level1Refs[1].key, span(3));
}

TEST_P(LeafStreamTest, BatchesFollowTheLevelOnePagesAndKeepTheTags) {
  const RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Groups{{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {denseLeaf(span(3), {}, 1)}}));
  BmLeavesSType leaves(&root);
  EXPECT_EQ(getLeaves(&host, &leaves), 2);
  EXPECT_EQ(leaves.leafRefs[0].key, 0u);
  EXPECT_EQ(leaves.leafRefs[1].key, span(1) | 1);
  EXPECT_EQ(endBitForLeaf_(&leaves, 0), span(1) - 1);
  EXPECT_EQ(endBitForLeaf_(&leaves, 1), span(2) - 1);
  EXPECT_EQ(getLeaves(&host, &leaves), 1);
  EXPECT_EQ(leaves.leafRefs[0].key, span(3) | 1);
  EXPECT_EQ(getLeaves(&host, &leaves), 0);
  EXPECT_EQ(getLeaves(&host, &leaves), 0);
}

TEST_P(LeafStreamTest, AnInternalPageWithoutEntriesEndsTheStream) {
  RepTreeRootSType& flat = adopt(buildTree(host, kind(), Leaves{}));
  EXPECT_EQ(leavesOf(host, flat), Seen{});
  RepTreeRootSType& shell = adopt(buildTree(host, kind(), Groups{}));
  EXPECT_EQ(leavesOf(host, shell), Seen{});
  EXPECT_EQ(leavesOf(host, shell, 5), Seen{});
  RepTreeRootSType& broken =
      adopt(buildTree(host, kind(), Groups{{denseLeaf(0, {1})}, {}, {denseLeaf(span(4), {1})}}));
  EXPECT_EQ(leavesOf(host, broken).size(), 1u);  // pages behind the empty one are not looked at
}

TEST_P(LeafStreamTest, ABatchCostsOnePageAccessPerInternalPageAndNoLeaf) {
  const RepTreeRootSType& root = adopt(buildTree(
      host, kind(), Groups{{listLeaf(0, {1}), listLeaf(span(1), {span(1)})}, {listLeaf(span(3), {span(3)})}}));
  const uint64_t before = host.count(EventKind::locate);
  EXPECT_EQ(leavesOf(host, root).size(), 3u);
  EXPECT_EQ(host.count(EventKind::locate) - before, isHeap() ? 0u : 3u);
}

TEST_P(LeafStreamTest, ALocatedListStartsAtItsFirstLiveEntry) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {30, 40, 50}, 17)}));
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  EXPECT_EQ(walk.leaf.curBit, 0u);
  EXPECT_EQ(walk.leaf.located, 0);
  EXPECT_EQ(walk.leaf.treeKind, kind());
  EXPECT_EQ(walk.leaf.treeLevel, 1);
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  EXPECT_EQ(walk.leaf.pageKind, REP_BIT_LIST_PAGE);
  EXPECT_EQ(walk.leaf.located, 1);
  EXPECT_EQ(walk.leaf.curBit, 30u);
  EXPECT_EQ(walk.leaf.entriesEnd - walk.leaf.cursor, 3);
  EXPECT_EQ(walk.leaf.cursor, walk.leaf.contents->entries + 17);
}

TEST_P(LeafStreamTest, LocatingWithoutCacheDropsProgressAndWithCacheKeepsIt) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {30, 40, 50}, 17)}));
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  locateLeaf(&host, &walk.leaf, BM_LEAF_NO_CACHE);
  EXPECT_EQ(walk.leaf.located, 0);
  EXPECT_EQ(walk.pin.page, nullptr);
  advanceToBit(&walk.leaf, 41);
  EXPECT_EQ(walk.leaf.curBit, 50u);
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  EXPECT_EQ(walk.leaf.curBit, 30u);
  advanceToBit(&walk.leaf, 41);
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  EXPECT_EQ(walk.leaf.curBit, 50u);
}

TEST_P(LeafStreamTest, ThePinOfALeafLivesUntilTheNextLeafIsLocated) {
  const RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {3}), denseLeaf(span(1), {span(1)})}));
  const long onePin = isHeap() ? 0 : 1;
  {
    WalkedTree walk(&host, &root, 0);
    ASSERT_TRUE(walk.nextLeaf());
    locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
    EXPECT_EQ(walk.leaf.denseLeaf->bitsSet, 1);
    EXPECT_EQ(host.pinsHeld(), onePin);
    ASSERT_TRUE(walk.nextLeaf());
    EXPECT_EQ(host.pinsHeld(), onePin);
    locateLeaf(&host, &walk.leaf, BM_LEAF_NO_CACHE);
    EXPECT_EQ(host.pinsHeld(), 0);
    locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
    EXPECT_EQ(host.pinsHeld(), onePin);
  }
  EXPECT_EQ(host.pinsHeld(), 0);
}

TEST_P(LeafStreamTest, AdvancingGoesToTheFirstEntryAtOrAboveTheBit) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {30, 40, 50})}));
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  advanceToBit(&walk.leaf, 29);
  EXPECT_EQ(walk.leaf.curBit, 30u);
  advanceToBit(&walk.leaf, 40);
  EXPECT_EQ(walk.leaf.curBit, 40u);
  advanceToBit(&walk.leaf, 30);  // never back
  EXPECT_EQ(walk.leaf.curBit, 40u);
  EXPECT_EQ(walk.leaf.atEnd, 0);
}

TEST_P(LeafStreamTest, AdvancingAboveTheLastEntryEndsTheLeafAndStaysOnThatEntry) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {30, 40, 50})}));
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  advanceToBit(&walk.leaf, 51);
  EXPECT_EQ(walk.leaf.atEnd, 1);
  EXPECT_EQ(walk.leaf.curBit, 50u);
  EXPECT_EQ(walk.leaf.cursor, walk.leaf.entriesEnd);
  walk.leaf.curBit = 33;
  advanceToBit(&walk.leaf, 60);  // with nothing left curBit is not touched
  EXPECT_EQ(walk.leaf.curBit, 33u);
}

TEST_P(LeafStreamTest, AdvancingADenseLeafIsReported) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {3})}));
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  advanceToBit(&walk.leaf, 2);
  host.expectReports({"guarantee bitmap:5840"});
}

TEST_P(LeafStreamTest, AListWithoutEntriesIsAtItsEnd) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {}, 2043)}));
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  EXPECT_EQ(walk.leaf.atEnd, 1);
  EXPECT_EQ(walk.leaf.cursor, walk.leaf.entriesEnd);
}

TEST_P(LeafStreamTest, APageThatIsNoLeafIsReportedAndAtItsEnd) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {3})}));
  const uint64_t leafRef = refsAtLevel(host, root, 0).front();
  putU8(host.bytes(root, leafRef), at::pageKind, 4);
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  ::testing::internal::GetCapturedStdout();
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("bitmap line 5741 "), std::string::npos);
  EXPECT_EQ(walk.leaf.atEnd, 1);
  EXPECT_EQ(host.takeReports().size(), 1u);
  putU8(host.bytes(root, leafRef), at::pageKind, 8);
}

TEST_P(LeafStreamTest, AChildReferenceOfZeroIsReportedAndAnEndedLeaf) {
  const RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {3})}));
  unsigned char* page = host.bytes(root, root.root);
  const uint64_t child = rawU64(page, at::child(0));
  putU64(page, at::child(0), 0);
  WalkedTree walk(&host, &root, 0);
  ASSERT_TRUE(walk.nextLeaf());
  EXPECT_EQ(walk.leaf.atEnd, 1);
  host.expectReports({"guarantee reposdisk:1196"});
  putU64(host.bytes(root, root.root), at::child(0), child);
}

// Only pinned pages stay readable: a walk of two trees must hold the leaves that it uses.
class InStepTest : public LeafStreamTest {};
BMTREE_FOR_ALL_KINDS(InStepTest);

// Collects the bits of A that are not in B, and what the walk promises on the way.
struct DifferenceModel {
  std::vector<uint64_t> out;
  PageCacheSType* pc;
  unsigned long limit = ~0ul;

  bool done() const { return out.size() >= limit; }

  static std::vector<uint64_t> bitsLeft(const BmLeafStateSType& leaf) {
    if (leaf.pageKind == REP_BIT_LIST_PAGE) return {leaf.cursor, leaf.entriesEnd};
    std::vector<uint64_t> bits;
    BmLeafEnumerator enumerator(leaf.denseLeaf->words);
    for (uint64_t at = enumerator.nextRelativeBit(); at < BM_LEAF_BITS; at = enumerator.nextRelativeBit()) {
      if (leaf.firstBit + at >= leaf.curBit) bits.push_back(leaf.firstBit + at);
    }
    return bits;
  }

  void takeLeaf(BmLeafStateSType* a) {
    EXPECT_EQ(a->atEnd, 0);
    locateLeaf(pc, a, BM_LEAF_CACHE);
    if (a->atEnd) return;
    const std::vector<uint64_t> bits = bitsLeft(*a);
    out.insert(out.end(), bits.begin(), bits.end());
    a->atEnd = 1;
  }

  // Deals with everything up to the lower of the two ends.
  void takePair(BmLeafStateSType* a, BmLeafStateSType* b) {
    EXPECT_LE(a->firstBit, b->endBit);
    EXPECT_LE(b->firstBit, a->endBit);
    const uint64_t end = std::min(a->endBit, b->endBit);
    const std::vector<uint64_t> mine = bitsLeft(*a);
    const std::vector<uint64_t> theirs = bitsLeft(*b);
    const auto mineEnd = std::upper_bound(mine.begin(), mine.end(), end);
    std::set_difference(mine.begin(), mineEnd, theirs.begin(), theirs.end(), std::back_inserter(out));
    passTo(a, end);
    passTo(b, end);
  }

  static void passTo(BmLeafStateSType* leaf, uint64_t end) {
    if (leaf->endBit <= end) {
      leaf->atEnd = 1;
    } else if (leaf->pageKind == REP_BIT_LIST_PAGE) {
      advanceToBit(leaf, end + 1);
    } else {
      leaf->curBit = end + 1;
    }
  }
};

TEST_P(InStepTest, EveryPairOfOverlappingLeavesMeetsOnce) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 40; ++round) {
    BitSet inA;
    BitSet inB;
    const RepTreeRootSType& a = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &inA));
    const RepTreeRootSType& b =
        adopt(randomTree(host, BM_PAGE_TREE, static_cast<int>(random.below(3)), random, &inB));
    host.moveUnpinnedPages(2);
    WalkedTree walkA(&host, &a, 0);
    WalkedTree walkB(&host, &b, 0);
    ASSERT_TRUE(walkA.nextLeaf() && walkB.nextLeaf());
    DifferenceModel model{{}, &host};
    walkInStep(walkA, walkB, BM_LEAF_CACHE, model);
    host.moveUnpinnedPages(0);
    std::vector<uint64_t> expected;
    std::set_difference(inA.begin(), inA.end(), inB.begin(), inB.end(), std::back_inserter(expected));
    ASSERT_EQ(model.out, expected) << "round " << round;
  }
}

TEST_P(InStepTest, AWalkEndsWhenTheTreatmentIsDone) {
  const RepTreeRootSType& a = adopt(buildTree(
      host, kind(), Leaves{denseLeaf(0, {3}), denseLeaf(span(1), {span(1)}), denseLeaf(span(2), {span(2)})}));
  const RepTreeRootSType& b = adopt(buildTree(host, kind(), Leaves{denseLeaf(span(9), {span(9)})}));
  WalkedTree walkA(&host, &a, 0);
  WalkedTree walkB(&host, &b, 0);
  ASSERT_TRUE(walkA.nextLeaf() && walkB.nextLeaf());
  DifferenceModel model{{}, &host, 2};
  walkInStep(walkA, walkB, BM_LEAF_CACHE, model);
  EXPECT_EQ(model.out, (std::vector<uint64_t>{3, span(1)}));
}

TEST_P(InStepTest, AnEmptyInlineListAsSecondTreeIsPassedOver) {
  const RepTreeRootSType& a = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {0, 3})}));
  InlineTree inlineTree;
  WalkedTree walkA(&host, &a, 0);
  WalkedTree walkB(&host, inlineTree.root(), 0);
  ASSERT_TRUE(walkA.nextLeaf() && walkB.nextLeaf());
  DifferenceModel model{{}, &host};
  walkInStep(walkA, walkB, BM_LEAF_CACHE, model);
  EXPECT_EQ(model.out, (std::vector<uint64_t>{0, 3}));
}

TEST_P(InStepTest, AnEmptyInlineListAsFirstTreeEndsTheWalk) {
  const RepTreeRootSType& b = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {0, 3})}));
  InlineTree inlineTree;
  WalkedTree walkA(&host, inlineTree.root(), 0);
  WalkedTree walkB(&host, &b, 0);
  ASSERT_TRUE(walkA.nextLeaf() && walkB.nextLeaf());
  DifferenceModel model{{}, &host};
  walkInStep(walkA, walkB, BM_LEAF_CACHE, model);
  EXPECT_EQ(model.out, std::vector<uint64_t>{});
}

class InlineStreamTest : public TreeFixture {};

TEST_F(InlineStreamTest, AnInlineListIsOneLeafThatNeedsNoPage) {
  InlineTree tree({30, 40}, 5);
  WalkedTree walk(&host, tree.root(), 0);
  ASSERT_TRUE(walk.nextLeaf());
  EXPECT_EQ(walk.leaf.pageRef, 0u);
  EXPECT_EQ(walk.leaf.firstBit, 0u);
  EXPECT_EQ(walk.leaf.endBit, topBit);
  EXPECT_EQ(walk.leaf.located, 1);
  EXPECT_EQ(walk.leaf.curBit, 30u);
  EXPECT_EQ(walk.leaf.entriesEnd - walk.leaf.cursor, 2);
  locateLeaf(&host, &walk.leaf, BM_LEAF_CACHE);
  advanceToBit(&walk.leaf, 31);
  EXPECT_EQ(walk.leaf.curBit, 40u);
  EXPECT_FALSE(walk.nextLeaf());
  EXPECT_EQ(host.count(EventKind::locate), 0u);
}

TEST_F(InlineStreamTest, AnEmptyInlineListIsOneLeafAtItsEnd) {
  InlineTree tree;
  WalkedTree walk(&host, tree.root(), 0);
  ASSERT_TRUE(walk.nextLeaf());
  EXPECT_EQ(walk.leaf.atEnd, 1);
  EXPECT_EQ(walk.leaf.curBit, 0u);
  EXPECT_EQ(walk.leaf.endBit, 0u);
  EXPECT_FALSE(walk.nextLeaf());
}

TEST_F(InlineStreamTest, AnInlineRootOfZeroIsAnEmptyTree) {
  const RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(leavesOf(host, root), Seen{});
}

TEST_F(InlineStreamTest, ANegativeKindThatIsNotTheInlineOneIsReported) {
  InlineTree tree({30});
  tree.root()->treeKind = -3;
  WalkedTree walk(&host, tree.root(), 0);
  ASSERT_TRUE(walk.nextLeaf());
  EXPECT_EQ(walk.leaf.atEnd, 1);
  host.expectReports({"guarantee reposdisk:1196"});
}

class LeafEnumeratorTest : public ::testing::Test {
 protected:
  std::vector<uint64_t> words = std::vector<uint64_t>(2043);
};

TEST_F(LeafEnumeratorTest, AnAllZeroLeafEndsAtOnceAndStaysAtItsEnd) {
  BmLeafEnumerator enumerator(words.data());
  EXPECT_EQ(enumerator.nextRelativeBit(), 130752u);
  EXPECT_EQ(enumerator.nextRelativeBit(), 130752u);
}

TEST_F(LeafEnumeratorTest, OnlyTheLastBitIsFound) {
  words[2042] = uint64_t{1} << 63;
  BmLeafEnumerator enumerator(words.data());
  EXPECT_EQ(enumerator.nextRelativeBit(), 130751u);
  EXPECT_EQ(enumerator.nextRelativeBit(), 130752u);
  EXPECT_EQ(BmLeafEnumerator(words.data(), 130751).nextRelativeBit(), 130751u);
}

TEST_F(LeafEnumeratorTest, BitsComeInOrderFromAnyStart) {
  words[0] = 0x8000000000000003;
  words[1] = ~uint64_t{0};
  words[7] = 4;
  std::vector<uint64_t> all = {0, 1, 63};
  for (uint64_t position = 64; position < 128; ++position) all.push_back(position);
  all.push_back(7 * 64 + 2);
  for (uint64_t start = 0; start < 600; ++start) {
    BmLeafEnumerator enumerator(words.data(), start);
    for (auto expected = std::lower_bound(all.begin(), all.end(), start); expected != all.end(); ++expected) {
      ASSERT_EQ(enumerator.nextRelativeBit(), *expected) << "start " << start;
    }
    ASSERT_EQ(enumerator.nextRelativeBit(), 130752u);
  }
}

}  // namespace
