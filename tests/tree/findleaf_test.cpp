// From a bit to a filled path: the entry for scans and the entry for writers.
#include "tree/findleaf.h"

#include <cstring>

#include "query/randomtree.h"

namespace {

constexpr uint64_t allOnes = ~uint64_t{0};

class FindLeafTest : public TreeTest {
 protected:
  FindLeafTest() { reset(); }
  BmPathSType path;

  void reset(uint8_t allowNext = 0x5A) {
    std::memset(static_cast<void*>(&path), 0x5A, sizeof path);
    path.allowNext = allowNext;
  }
  void expectFlags(int valid, int atEnd, int exact, int allowNext) {
    EXPECT_EQ(path.valid, valid);
    EXPECT_EQ(path.atEnd, atEnd);
    EXPECT_EQ(path.exact, exact);
    EXPECT_EQ(path.allowNext, allowNext);
  }
  // [2 dense, 4 list, 7 dense]
  const RepTreeRootSType& level1Tree() {
    return adopt(buildTree(host, kind(),
                           {denseLeaf(span(2), {span(2)}), listLeaf(span(4), {span(4)}), denseLeaf(span(7), {})}));
  }
  // [2 [2 list, 3 dense], 6 [6 dense, 9 list]]
  const RepTreeRootSType& level2Tree() {
    return adopt(buildTree(host, kind(),
                           {{listLeaf(span(2), {span(2)}), denseLeaf(span(3), {})},
                            {denseLeaf(span(6), {}), listLeaf(span(9), {span(9)})}}));
  }
  uint64_t leafAt(const RepTreeRootSType& tree, size_t index) { return refsAtLevel(host, tree, 0)[index]; }
};
BMTREE_FOR_ALL_KINDS(FindLeafTest);

// ---- For scans

TEST_P(FindLeafTest, AnEmptyTreeIsAtItsEnd) {
  EXPECT_EQ(BmFindLeafForBit(&host, &newTree(), &path, 5), 0);
  expectFlags(0x5A, 1, 0x5A, 0x5A);
  EXPECT_EQ(path.bit, 0x5A5A5A5A5A5A5A5Au) << "nothing else is written";
}

TEST_P(FindLeafTest, ALevel0TreeAcceptsEveryBitAndLeavesAllowNext) {
  const auto& tree = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  for (const uint64_t bit : {uint64_t{0}, uint64_t{5}, topBit}) {
    reset();
    EXPECT_EQ(BmFindLeafForBit(&host, &tree, &path, bit), 1);
    expectFlags(1, 0, 1, 0x5A);
    EXPECT_EQ(path.depth, 0);
    EXPECT_EQ(path.bit, bit);
    EXPECT_EQ(path.levels[0].pageId, tree.root);
    EXPECT_EQ(path.levels[0].firstBit, 0u);
    EXPECT_EQ(path.levels[0].limitBit, BM_END_BIT);
    EXPECT_EQ(path.levels[0].index, 0);
    EXPECT_EQ(path.levels[0].numEntries, 0);
    EXPECT_EQ(path.levels[1].pageId, 0u) << "all levels are zeroed";
    EXPECT_EQ(path.levels[2].limitBit, 0u);
  }
}

TEST_P(FindLeafTest, AScanFindsTheLeafWhoseRangeHoldsTheBit) {
  const auto& tree = level2Tree();
  EXPECT_EQ(BmFindLeafForBit(&host, &tree, &path, span(12)), 1);
  expectFlags(1, 0, 1, 1);
  EXPECT_EQ(path.depth, 2);
  EXPECT_EQ(path.bit, span(12));
  EXPECT_EQ(path.levels[2].pageId, tree.root);
  EXPECT_EQ(path.levels[2].index, 1);
  EXPECT_EQ(path.levels[1].pageId, refsAtLevel(host, tree, 1)[1]);
  EXPECT_EQ(path.levels[1].index, 1);
  EXPECT_EQ(path.levels[0].pageId, leafAt(tree, 3));
  EXPECT_EQ(path.levels[0].firstBit, span(9));
  EXPECT_EQ(path.levels[0].limitBit, allOnes);
}

TEST_P(FindLeafTest, AScanFromBetweenTwoLeavesStartsAtTheUpperOnesFirstBit) {
  const auto& tree = level1Tree();
  EXPECT_EQ(BmFindLeafForBit(&host, &tree, &path, span(3)), 1);
  expectFlags(1, 0, 0, 1);
  EXPECT_EQ(path.levels[0].pageId, leafAt(tree, 1));
  EXPECT_EQ(path.levels[0].firstBit, span(4));
}

TEST_P(FindLeafTest, AScanFromBelowTheFirstKeyStartsAtTheFirstLeaf) {
  for (const auto* tree : {&level1Tree(), &level2Tree()}) {
    EXPECT_EQ(BmFindLeafForBit(&host, tree, &path, 0), 1);
    expectFlags(1, 0, 0, 1);
    EXPECT_EQ(path.levels[0].pageId, leafAt(*tree, 0));
  }
}

TEST_P(FindLeafTest, AScanFromBehindADenseLeafAtTheEndFindsNothingAndIsNotAtTheEnd) {
  const auto& tree = level1Tree();
  EXPECT_EQ(BmFindLeafForBit(&host, &tree, &path, span(8)), 0);
  expectFlags(0, 0, 0, 1);
}

TEST_P(FindLeafTest, AScanFromBehindTheLastDenseLeafOfALevel1PageFindsNothing) {
  const auto& tree = level2Tree();
  EXPECT_EQ(BmFindLeafForBit(&host, &tree, &path, span(4)), 0);
  expectFlags(0, 0, 0, 1);
}

TEST_P(FindLeafTest, AScanThatMeetsAChildOfZeroFindsNothing) {
  const auto& tree = level1Tree();
  const uint64_t child = leafAt(tree, 1);
  putU64(host.bytes(tree, tree.root), at::child(1), 0);
  EXPECT_EQ(BmFindLeafForBit(&host, &tree, &path, span(4)), 0);
  expectFlags(0, 0, 0, 1);
  EXPECT_EQ(path.levels[0].firstBit, span(4)) << "the level is filled";
  putU64(host.bytes(tree, tree.root), at::child(1), child);
}

// ---- For writers

TEST_P(FindLeafTest, AnEmptyTreeHasNoLeafForAnyBit) {
  path.depth = 9;
  EXPECT_EQ(findLeafPageForBit(&host, &newTree(), 5, &path), 0);
  EXPECT_EQ(path.depth, 0);
  expectFlags(0x5A, 0x5A, 0x5A, 0x5A);
}

TEST_P(FindLeafTest, TheRootLeafOwnsEveryBit) {
  const auto& tree = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  for (const uint64_t bit : {uint64_t{0}, topBit}) {
    reset();
    EXPECT_EQ(findLeafPageForBit(&host, &tree, bit, &path), 1);
    expectFlags(0x5A, 0x5A, 0x5A, 0x5A);
    EXPECT_EQ(path.depth, 0);
    EXPECT_EQ(path.levels[0].pageId, tree.root);
    EXPECT_EQ(path.levels[0].firstBit, 0u);
    EXPECT_EQ(path.levels[0].limitBit, BM_END_BIT);
    EXPECT_EQ(path.levels[1].pageId, 0u);
    EXPECT_EQ(path.levels[1].firstBit, 0u);
    EXPECT_EQ(path.levels[1].limitBit, BM_END_BIT);
    EXPECT_EQ(path.levels[0].index, 0x5A5A5A5A) << "the caller's";
  }
}

TEST_P(FindLeafTest, AWriterFindsTheLeafOfItsBitAndNoOther) {
  const auto& tree = level1Tree();
  reset(0);
  EXPECT_EQ(findLeafPageForBit(&host, &tree, span(5), &path), 1);
  EXPECT_EQ(path.levels[0].pageId, leafAt(tree, 1));
  expectFlags(0x5A, 0x5A, 0x5A, 0);
  EXPECT_EQ(path.depth, 1);
  for (const uint64_t bit : {uint64_t{0}, span(3), span(8)}) {
    EXPECT_EQ(findLeafPageForBit(&host, &tree, bit, &path), 0) << "bit " << bit;
  }
}

TEST_P(FindLeafTest, AWriterThatMayMoveOnFindsTheNextLeaf) {
  const auto& tree = level1Tree();
  reset(1);
  EXPECT_EQ(findLeafPageForBit(&host, &tree, span(3), &path), 1);
  expectFlags(0x5A, 0x5A, 0, 1);
  EXPECT_EQ(path.levels[0].pageId, leafAt(tree, 1));
}

TEST_P(FindLeafTest, AChildOfZeroIsNoLeafForAWriter) {
  const auto& tree = level1Tree();
  const uint64_t child = leafAt(tree, 1);
  putU64(host.bytes(tree, tree.root), at::child(1), 0);
  reset(0);
  EXPECT_EQ(findLeafPageForBit(&host, &tree, span(4), &path), 0);
  putU64(host.bytes(tree, tree.root), at::child(1), child);
}

TEST_P(FindLeafTest, NoSearchLocatesALeafMarksOrPins) {
  const auto& tree = level2Tree();
  host.clearEvents();
  BmFindLeafForBit(&host, &tree, &path, span(9));
  findLeafPageForBit(&host, &tree, span(9), &path);
  const uint64_t pages = isHeap() ? 0 : 4;
  EXPECT_EQ(host.events().size(), pages);
  EXPECT_EQ(host.takeEvents({EventKind::locate}).size(), pages);
}

// ---- Against a list of all leaves

struct LeafRange {
  uint64_t first, end;  // end exclusive
  uint64_t ref, page;
};

// The ranges of all leaves, read from the bytes of the internal pages.
std::vector<LeafRange> rangesOf(TestHost& host, const RepTreeRootSType& root) {
  std::vector<LeafRange> ranges;
  uint64_t page = 0;
  for (const TreePage& at : pagesOf(host, root)) {
    if (at.level == 1) page = at.ref;
    if (at.level != 0) continue;
    const uint64_t first = at.key & ~uint64_t{1};
    if (!ranges.empty() && ranges.back().end == 0) ranges.back().end = first;
    ranges.push_back({first, (at.key & 1) != 0 ? first + 130752 : 0, at.ref, page});
  }
  if (!ranges.empty() && ranges.back().end == 0) ranges.back().end = BM_END_BIT;
  return ranges;
}

TEST_P(FindLeafTest, RandomTreesAgreeWithALinearSearchOfTheirLeaves) {
  Random random(testSeed());
  for (int round = 0; round < 24; ++round) {
    BitSet bits;
    const int level = 1 + round % 2;
    const auto& tree = adopt(randomTree(host, kind(), level, random, &bits));
    const std::vector<LeafRange> ranges = rangesOf(host, tree);
    for (int i = 0; i < 300; ++i) {
      const uint64_t bit = random.oneIn(9) ? random.below(BM_END_BIT) : random.below(ranges.back().first + span(2));
      const LeafRange* own = nullptr;
      for (const LeafRange& range : ranges) own = bit >= range.first && bit < range.end ? &range : own;
      reset(0);
      ASSERT_EQ(findLeafPageForBit(&host, &tree, bit, &path), own != nullptr);
      ASSERT_TRUE(own == nullptr || path.levels[0].pageId == own->ref);
      // a scan moves on to the next leaf, but not out of a level-1 page that begins at or below the bit
      const LeafRange* next = nullptr;
      for (auto range = ranges.rbegin(); range != ranges.rend(); ++range) {
        if (bit < range->end) next = &*range;
      }
      bool crosses = false;
      for (const LeafRange& range : ranges) {
        if (next != nullptr && range.first <= bit && range.page != next->page && next->first > bit) crosses = true;
        if (next != nullptr && range.first <= bit && range.page == next->page) crosses = false;
      }
      reset();
      const int found = BmFindLeafForBit(&host, &tree, &path, bit);
      ASSERT_EQ(found, next != nullptr && !crosses) << "bit " << bit << " of " << shapeOf(tree);
      if (found == 0) continue;
      ASSERT_EQ(path.levels[0].pageId, next->ref);
      ASSERT_EQ(path.exact, own != nullptr);
    }
  }
}

}  // namespace
