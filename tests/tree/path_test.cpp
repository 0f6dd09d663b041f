// The search of internal pages, the descent that records a path, and stepping from leaf to leaf.
#include "tree/path.h"

#include <cstring>

#include "support/treemodel.h"

namespace {

constexpr uint64_t span = 130752;
constexpr uint64_t allOnes = ~uint64_t{0};
using Lines = std::vector<std::string>;

// ---------------------------------------------------------------------------------------------------------
// Searching one page

class PageSearchTest : public ::testing::Test {
 protected:
  alignas(8) PageBytes bytes{};
  BmInternalKeyType& area = asInternalPage(reinterpret_cast<RepPageHdrSType*>(bytes.data()))->keyArea;

  void fill(const std::vector<uint64_t>& keys, int firstOffset) {
    std::vector<RawPair> pairs;
    for (const uint64_t key : keys) pairs.push_back({key, 1000 + key});
    bytes = internalImage(1, pairs, firstOffset);
  }
};

TEST_F(PageSearchTest, ABitBelowAllKeysGivesTheComplementOfTheFirstSlot) {
  for (const int firstOffset : {0, 7, 1018}) {
    fill({span, 2 * span, 5 * span}, firstOffset);
    EXPECT_EQ(searchLevel2(area, span - 1), ~firstOffset);
    EXPECT_EQ(searchLevel1(area, span - 1), ~firstOffset);
  }
}

TEST_F(PageSearchTest, ABitAtOrAboveAKeyGivesThatKeysSlot) {
  fill({span, 2 * span, 5 * span}, 7);
  for (const auto search : {searchLevel1, searchLevel2}) {
    EXPECT_EQ(search(area, span), 7);
    EXPECT_EQ(search(area, 2 * span - 1), 7);
    EXPECT_EQ(search(area, 2 * span), 8);
    EXPECT_EQ(search(area, 5 * span - 1), 8);
    EXPECT_EQ(search(area, BM_HIGHEST_BIT), 9);
  }
}

TEST_F(PageSearchTest, AListKeyReachesAnyDistanceUpToTheNextKey) {
  fill({0, 1000000 * span}, 0);
  EXPECT_EQ(searchLevel1(area, 1000000 * span - 1), 0);
}

TEST_F(PageSearchTest, ADenseKeyReachesToTheEndOfItsSpanOnly) {
  fill({span | 1, 9 * span | 1}, 4);
  EXPECT_EQ(searchLevel1(area, span), 4) << "equal to the key without its tag";
  EXPECT_EQ(searchLevel1(area, span + 130751), 4);
  EXPECT_EQ(searchLevel1(area, span + 130752), -2 - 4);
  EXPECT_EQ(searchLevel1(area, 9 * span - 1), -2 - 4);
  EXPECT_EQ(searchLevel1(area, 10 * span), -2 - 5);
}

TEST_F(PageSearchTest, Level2KeysAreComparedWholeAndLevel1KeysWithoutTheirTag) {
  fill({span | 1}, 0);
  EXPECT_EQ(searchLevel2(area, span), ~0);
  EXPECT_EQ(searchLevel2(area, span + 1), 0);
  EXPECT_EQ(searchLevel1(area, span), 0);
}

TEST_F(PageSearchTest, APageWithoutSlotsGivesMinusOneAtLevel1) {
  for (const int firstOffset : {0, 7, 1021}) {
    fill({}, firstOffset);
    EXPECT_EQ(searchLevel1(area, 5), -1);
    EXPECT_EQ(searchLevel2(area, 5), ~firstOffset);
  }
}

// The result of the searches, slot by slot.
int linearSearch(const BmInternalKeyType& area, uint64_t bit, bool level1) {
  if (level1 && area.count == 0) return -1;
  int found = -1;
  for (int slot = area.firstOffset; slot < area.firstOffset + area.count; ++slot) {
    if ((level1 ? area.keys[slot] & ~uint64_t{1} : area.keys[slot]) <= bit) found = slot;
  }
  if (found < 0) return ~int{area.firstOffset};
  const uint64_t key = area.keys[found];
  return level1 && (key & 1) != 0 && bit >= key + 130751 ? -2 - found : found;
}

TEST_F(PageSearchTest, RandomPagesAgreeWithALinearSearch) {
  Random random(testSeed());
  for (int round = 0; round < 400; ++round) {
    const bool level1 = random.oneIn(2);
    const size_t count = random.oneIn(4) ? 1021 : random.below(30);
    std::vector<uint64_t> keys;
    uint64_t key = random.below(3) * span;
    for (size_t i = 0; i < count; ++i, key += (1 + random.below(3)) * span) keys.push_back(key);
    if (level1) {
      for (uint64_t& tagged : keys) tagged |= random.below(2);
    }
    fill(keys, static_cast<int>(random.below(1022 - count)));
    for (int i = 0; i < 100; ++i) {
      uint64_t bit = random.below(key + span);
      if (random.oneIn(3)) bit = spanBase(bit) + (random.oneIn(2) ? span - 1 : 0);
      ASSERT_EQ(level1 ? searchLevel1(area, bit) : searchLevel2(area, bit), linearSearch(area, bit, level1))
          << count << " keys, bit " << bit;
    }
  }
}

// ---------------------------------------------------------------------------------------------------------
// Recording a result

class StorePathTest : public PageSearchTest {
 protected:
  StorePathTest() { std::memset(static_cast<void*>(&path), 0x5A, sizeof path); }
  BmPathSType path;

  static std::string describe(const BmPathLevelSType& level) {
    return "index " + std::to_string(level.index) + " of " + std::to_string(level.numEntries) + ", " +
           std::to_string(level.firstBit) + " to " + std::to_string(level.limitBit);
  }
  bool untouched() const {
    BmPathSType fresh;
    std::memset(static_cast<void*>(&fresh), 0x5A, sizeof fresh);
    fresh.allowNext = path.allowNext;
    return std::memcmp(static_cast<const void*>(&fresh), static_cast<const void*>(&path), sizeof path) == 0;
  }
};

TEST_F(StorePathTest, AHitRecordsIndexKeyLimitAndCount) {
  fill({span | 1, 4 * span | 1, 6 * span}, 10);
  path.allowNext = 0;
  EXPECT_EQ(lookupStorePath(&area, 1, 10, &path, 0), 0);
  EXPECT_EQ(describe(path.levels[1]), "index 0 of 3, 130752 to 523009") << "the limit keeps its tag";
  EXPECT_EQ(path.exact, 0x5A);
  EXPECT_EQ(lookupStorePath(&area, 1, 12, &path, 0), 2);
  EXPECT_EQ(describe(path.levels[1]), "index 2 of 3, 784512 to 18446744073709551615");
  EXPECT_EQ(path.levels[1].pageId, 0x5A5A5A5A5A5A5A5Au) << "the page is recorded by the caller";
}

TEST_F(StorePathTest, TheLastSlotOfALevel2PageIsLimitedByTheEndOfTheNumberSpace) {
  fill({0, 4 * span}, 10);
  EXPECT_EQ(lookupStorePath(&area, 2, 11, &path, 0), 1);
  EXPECT_EQ(describe(path.levels[2]), "index 1 of 2, 523008 to 1099511627776");
}

TEST_F(StorePathTest, AMissWithoutLeaveToMoveOnWritesNothing) {
  fill({span | 1, 4 * span}, 10);
  path.allowNext = 0;
  EXPECT_EQ(lookupStorePath(&area, 1, ~10, &path, 0), -1);
  EXPECT_EQ(lookupStorePath(&area, 1, -2 - 10, &path, 0), -1);
  EXPECT_TRUE(untouched());
}

TEST_F(StorePathTest, AMissThatMayMoveOnRecordsTheNextEntryAndClearsExact) {
  fill({span | 1, 4 * span}, 10);
  path.allowNext = 1;
  EXPECT_EQ(lookupStorePath(&area, 1, ~10, &path, 0), 0);
  EXPECT_EQ(path.exact, 0);
  EXPECT_EQ(describe(path.levels[1]), "index 0 of 2, 130752 to 523008");
  path.exact = 1;
  EXPECT_EQ(lookupStorePath(&area, 1, -2 - 10, &path, 0), 1);
  EXPECT_EQ(path.exact, 0);
  EXPECT_EQ(path.levels[1].index, 1);
}

TEST_F(StorePathTest, AMissBehindTheLastEntryWritesNothing) {
  fill({span, 4 * span | 1}, 10);
  path.allowNext = 1;
  EXPECT_EQ(lookupStorePath(&area, 1, -2 - 11, &path, 0), -1);
  EXPECT_TRUE(untouched());
}

TEST_F(StorePathTest, APageWithoutSlotsIsAMissWhereverItsFrontStands) {
  for (const int firstOffset : {0, 1, 7, 1021}) {
    for (const uint8_t allowNext : {0, 1}) {
      fill({}, firstOffset);
      path.allowNext = allowNext;
      EXPECT_EQ(lookupStorePath(&area, 1, searchLevel1(area, 5), &path, 5), -1);
      EXPECT_EQ(lookupStorePath(&area, 2, searchLevel2(area, 5), &path, 5), -1);
      EXPECT_TRUE(untouched());
    }
  }
}

// ---------------------------------------------------------------------------------------------------------
// Descending and stepping

class PathTest : public TreeTest {
 protected:
  BmPathSType path{};

  unsigned long lookup(const RepTreeRootSType& tree, uint64_t bit, uint8_t allowNext) {
    std::memset(static_cast<void*>(&path), 0x5A, sizeof path);
    path.allowNext = allowNext;
    return isHeap() ? lookupInterior(tree.root, tree.level, bit, &path)
                    : lookupInterior(&host, tree.root, tree.level, bit, &path);
  }
  void expectLevel(int level, uint64_t pageId, int index, int64_t numEntries, uint64_t firstBit, uint64_t limitBit) {
    const BmPathLevelSType& at = path.levels[level];
    EXPECT_EQ(at.pageId, pageId) << "level " << level;
    EXPECT_EQ(at.index, index) << "level " << level;
    EXPECT_EQ(at.numEntries, numEntries) << "level " << level;
    EXPECT_EQ(at.firstBit, firstBit) << "level " << level;
    EXPECT_EQ(at.limitBit, limitBit) << "level " << level;
  }
  uint64_t pageAt(const RepTreeRootSType& tree, int level, size_t index) {
    return refsAtLevel(host, tree, level)[index];
  }
  // [2 dense, 4 list, 7 dense]
  const RepTreeRootSType& level1Tree() {
    return adopt(buildTree(host, kind(),
                           {denseLeaf(2 * span, {2 * span}), listLeaf(4 * span, {4 * span}), denseLeaf(7 * span, {})},
                           {.internalFirstOffset = 3}));
  }
  // [2 [2 list, 3 dense], 6 [6 dense], 8 [8 list, 9 dense]]
  const RepTreeRootSType& level2Tree() {
    return adopt(buildTree(host, kind(),
                           {{listLeaf(2 * span, {2 * span}), denseLeaf(3 * span, {})},
                            {denseLeaf(6 * span, {})},
                            {listLeaf(8 * span, {8 * span}), denseLeaf(9 * span, {})}},
                           {.internalFirstOffset = 5}));
  }
};
BMTREE_FOR_ALL_KINDS(PathTest);

TEST_P(PathTest, ADescentOfALevel1TreeRecordsLevelsOneAndZero) {
  const auto& tree = level1Tree();
  EXPECT_EQ(lookup(tree, 5 * span, 0), pageAt(tree, 0, 1));
  expectLevel(1, tree.root, 1, 3, 4 * span, 7 * span | 1);
  expectLevel(0, pageAt(tree, 0, 1), 0, 0, 4 * span, allOnes);
  expectLevel(2, 0x5A5A5A5A5A5A5A5A, 0x5A5A5A5A, 0x5A5A5A5A5A5A5A5A, 0x5A5A5A5A5A5A5A5A, 0x5A5A5A5A5A5A5A5A);
}

TEST_P(PathTest, ADescentOfALevel2TreeRecordsAllLevelsAndLeavesTheFlags) {
  const auto& tree = level2Tree();
  EXPECT_EQ(lookup(tree, 3 * span + 130751, 0), pageAt(tree, 0, 1));
  expectLevel(2, tree.root, 0, 3, 2 * span, 6 * span);
  expectLevel(1, pageAt(tree, 1, 0), 1, 2, 3 * span, allOnes);
  expectLevel(0, pageAt(tree, 0, 1), 0, 0, 3 * span, allOnes);
  EXPECT_EQ(path.valid, 0x5A);
  EXPECT_EQ(path.atEnd, 0x5A);
  EXPECT_EQ(path.exact, 0x5A);
  EXPECT_EQ(path.depth, 0x5A5A5A5A);
}

TEST_P(PathTest, ADescentLocatesOnePagePerLevelAndOnAHeapTreeNone) {
  const auto& tree = level2Tree();
  const uint64_t page = pageAt(tree, 1, 2);
  host.clearEvents();
  lookup(tree, 8 * span, 0);
  EXPECT_EQ(host.takeEvents(), isHeap() ? Lines{}
                                        : (Lines{"locate " + std::to_string(tree.root) + " kind 7 mode -1",
                                                 "locate " + std::to_string(page) + " kind 7 mode -1"}));
}

TEST_P(PathTest, ABitBelowAllKeysIsAMissUnlessTheSearchMayMoveOn) {
  for (const auto* tree : {&level1Tree(), &level2Tree()}) {
    EXPECT_EQ(lookup(*tree, 2 * span - 1, 0), 0u);
    EXPECT_EQ(lookup(*tree, 2 * span - 1, 1), pageAt(*tree, 0, 0));
    EXPECT_EQ(path.exact, 0);
    EXPECT_EQ(path.levels[1].index, 0);
  }
}

TEST_P(PathTest, TheLastBitOfADenseLeafIsFoundAndTheNextOneIsNot) {
  const auto& tree = level1Tree();
  EXPECT_EQ(lookup(tree, 2 * span + 130751, 0), pageAt(tree, 0, 0));
  EXPECT_EQ(lookup(tree, 2 * span + 130752, 0), 0u);
  EXPECT_EQ(lookup(tree, 2 * span + 130752, 1), pageAt(tree, 0, 1));
  EXPECT_EQ(path.exact, 0);
  EXPECT_EQ(path.levels[0].firstBit, 4 * span);
}

TEST_P(PathTest, BehindTheLastDenseLeafEvenASearchThatMayMoveOnMisses) {
  const auto& tree = level1Tree();
  EXPECT_EQ(lookup(tree, 7 * span + 130751, 1), pageAt(tree, 0, 2));
  EXPECT_EQ(lookup(tree, 7 * span + 130752, 1), 0u);
  EXPECT_EQ(path.exact, 0x5A);
}

TEST_P(PathTest, AListLeafIsFoundForEveryBitUpToTheNextKey) {
  const auto& tree = level1Tree();
  EXPECT_EQ(lookup(tree, 7 * span - 1, 0), pageAt(tree, 0, 1));
}

TEST_P(PathTest, AGapBehindTheLastDenseLeafOfALevel1PageIsAMissEvenThoughMorePagesFollow) {
  const auto& tree = level2Tree();
  EXPECT_EQ(lookup(tree, 4 * span, 0), 0u);
  EXPECT_EQ(lookup(tree, 4 * span, 1), 0u);
}

TEST_P(PathTest, AChildOfZeroIsRecordedAndReturned) {
  const auto& tree = level1Tree();
  const uint64_t child = pageAt(tree, 0, 1);
  putU64(host.bytes(tree, tree.root), at::child(4), 0);
  EXPECT_EQ(lookup(tree, 5 * span, 0), 0u);
  expectLevel(0, 0, 0, 0, 4 * span, allOnes);
  putU64(host.bytes(tree, tree.root), at::child(4), child);
}

// ---- The leftmost leaf

TEST_P(PathTest, TheLeftmostLeafOfAnEmptyTreeIsTheEnd) {
  EXPECT_EQ(findLeftLeaf(&host, &newTree(), &path), 0);
  EXPECT_EQ(path.atEnd, 1);
  EXPECT_EQ(path.valid, 0);
}

TEST_P(PathTest, TheLeftmostLeafOfALevel0TreeIsItsRoot) {
  const auto& tree = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  std::memset(static_cast<void*>(&path), 0x5A, sizeof path);
  EXPECT_EQ(findLeftLeaf(&host, &tree, &path), 1);
  expectLevel(0, tree.root, 0, 0, 0, allOnes);
  expectLevel(1, 0, 0, 0, 0, 0);
  expectLevel(2, 0, 0, 0, 0, 0);
  EXPECT_EQ(path.valid, 1);
  EXPECT_EQ(path.atEnd, 0);
  EXPECT_EQ(path.depth, 0);
  EXPECT_EQ(path.exact, 0x5A);
  EXPECT_EQ(path.allowNext, 0x5A);
}

TEST_P(PathTest, TheLeftmostLeafOfALevel1TreeIsItsFirstChild) {
  const auto& tree = level1Tree();
  std::memset(static_cast<void*>(&path), 0x5A, sizeof path);
  EXPECT_EQ(findLeftLeaf(&host, &tree, &path), 1);
  expectLevel(1, tree.root, 0, 3, 2 * span, 4 * span);
  expectLevel(0, pageAt(tree, 0, 0), 0, 0, 2 * span, allOnes);
  expectLevel(2, 0, 0, 0, 0, 0);
  EXPECT_EQ(path.depth, 1);
}

TEST_P(PathTest, TheLeftmostLeafOfALevel2TreeIsTheFirstChildOfTheFirstChild) {
  const auto& tree = level2Tree();
  std::memset(static_cast<void*>(&path), 0x5A, sizeof path);
  EXPECT_EQ(findLeftLeaf(&host, &tree, &path), 1);
  expectLevel(2, tree.root, 0, 3, 2 * span, 6 * span);
  expectLevel(1, pageAt(tree, 1, 0), 0, 2, 2 * span, 3 * span | 1);
  expectLevel(0, pageAt(tree, 0, 0), 0, 0, 2 * span, allOnes);
  EXPECT_EQ(path.depth, 2);
}

TEST_P(PathTest, TheLimitOfAnOnlySlotIsTheEndOfTheSpaceAtLevel2AndAllOnesAtLevel1) {
  const std::vector<std::vector<LeafSpec>> one{{listLeaf(0, {1})}};
  const auto& tree = adopt(buildTree(host, kind(), one));
  EXPECT_EQ(findLeftLeaf(&host, &tree, &path), 1);
  EXPECT_EQ(path.levels[2].limitBit, BM_END_BIT);
  EXPECT_EQ(path.levels[1].limitBit, allOnes);
}

TEST_P(PathTest, AnInternalPageWithoutSlotsHasNoLeftmostLeaf) {
  const std::vector<std::vector<LeafSpec>> noLeaf{{}}, noPage{};
  for (const auto* groups : {&noLeaf, &noPage}) {
    const auto& tree = adopt(buildTree(host, kind(), *groups));
    path = {};
    EXPECT_EQ(findLeftLeaf(&host, &tree, &path), 0);
    EXPECT_EQ(path.atEnd, 1);
    EXPECT_EQ(path.valid, 0);
  }
}

// ---- The next leaf

TEST_P(PathTest, ALevel0TreeHasNoNextLeaf) {
  const auto& tree = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  findLeftLeaf(&host, &tree, &path);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 0);
  EXPECT_EQ(path.atEnd, 1);
  EXPECT_EQ(path.valid, 1);
}

TEST_P(PathTest, ALevel1TreeStepsThroughItsLeavesAndEndsBeforeTheFirst) {
  const auto& tree = level1Tree();
  findLeftLeaf(&host, &tree, &path);
  path.levels[0].index = 17;
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 1);
  expectLevel(1, tree.root, 1, 3, 4 * span, 7 * span | 1);
  expectLevel(0, pageAt(tree, 0, 1), 0, 0, 4 * span, allOnes);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 1);
  expectLevel(1, tree.root, 2, 3, 7 * span, allOnes);
  expectLevel(0, pageAt(tree, 0, 2), 0, 0, 7 * span, allOnes);
  EXPECT_EQ(path.atEnd, 0);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 0);
  EXPECT_EQ(path.atEnd, 1);
  EXPECT_EQ(path.levels[1].index, -1);
  EXPECT_EQ(path.levels[2].index, -1);
  EXPECT_EQ(path.valid, 1) << "left as it is";
}

TEST_P(PathTest, ALevel2TreeCrossesItsLevel1PagesAndRefreshesTheCount) {
  const auto& tree = level2Tree();
  findLeftLeaf(&host, &tree, &path);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 1);
  expectLevel(0, pageAt(tree, 0, 1), 0, 0, 3 * span, allOnes);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 1);
  expectLevel(2, tree.root, 1, 3, 6 * span, 8 * span);
  expectLevel(1, pageAt(tree, 1, 1), 0, 1, 6 * span, allOnes);
  expectLevel(0, pageAt(tree, 0, 2), 0, 0, 6 * span, allOnes);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 1);
  expectLevel(2, tree.root, 2, 3, 8 * span, BM_END_BIT);
  expectLevel(1, pageAt(tree, 1, 2), 0, 2, 8 * span, 9 * span | 1);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 1);
  EXPECT_EQ(findNextLeaf(&host, &tree, &path), 0);
  EXPECT_EQ(path.atEnd, 1);
  EXPECT_EQ(path.levels[1].index, -1);
  EXPECT_EQ(path.levels[2].index, -1);
}

TEST_P(PathTest, AStepLocatesThePagesThatItReadsAndNoLeaf) {
  const auto& tree = level2Tree();
  const std::vector<uint64_t> pages = refsAtLevel(host, tree, 1);
  findLeftLeaf(&host, &tree, &path);
  const auto locate = [](uint64_t page) { return "locate " + std::to_string(page) + " kind 7 mode -1"; };
  host.clearEvents();
  findNextLeaf(&host, &tree, &path);
  EXPECT_EQ(host.takeEvents(), isHeap() ? Lines{} : Lines{locate(pages[0])});
  findNextLeaf(&host, &tree, &path);
  EXPECT_EQ(host.takeEvents(), isHeap() ? Lines{} : (Lines{locate(tree.root), locate(pages[1])}));
}

TEST_P(PathTest, SteppingVisitsEveryLeafOfRandomTreesInOrder) {
  Random random(testSeed());
  for (int round = 0; round < 30; ++round) {
    std::vector<std::vector<LeafSpec>> groups(1 + random.below(5));
    uint64_t key = random.below(3) * span;
    for (auto& leaves : groups) {
      leaves.resize(1 + random.below(6));
      for (LeafSpec& leaf : leaves) {
        leaf = random.oneIn(2) ? denseLeaf(key, {}) : listLeaf(key, {});
        key += (1 + random.below(3)) * span;
      }
    }
    const auto& tree = adopt(random.oneIn(2) ? buildTree(host, kind(), groups) : buildTree(host, kind(), groups[0]));
    std::vector<uint64_t> visited;
    for (int more = findLeftLeaf(&host, &tree, &path); more != 0; more = findNextLeaf(&host, &tree, &path)) {
      visited.push_back(path.levels[0].pageId);
    }
    EXPECT_EQ(visited, refsAtLevel(host, tree, 0));
  }
}

// ---- Recording a leaf

TEST(RecordTest, ARootLeafOwnsTheWholeNumberSpace) {
  BmPathSType path;
  std::memset(static_cast<void*>(&path), 0x5A, sizeof path);
  recordRootLeaf(&path, 99);
  EXPECT_EQ(path.levels[0].pageId, 99u);
  EXPECT_EQ(path.levels[0].firstBit, 0u);
  EXPECT_EQ(path.levels[0].limitBit, BM_END_BIT);
  EXPECT_EQ(path.levels[1].pageId, 0u);
  EXPECT_EQ(path.levels[1].firstBit, 0u);
  EXPECT_EQ(path.levels[1].limitBit, BM_END_BIT);
  EXPECT_EQ(path.levels[0].index, 0x5A5A5A5A);
}

TEST(PathLayoutTest, ThePathsFieldsStandInTheirFixedOrder) {
  EXPECT_EQ(offsetof(BmPathSType, valid), 0u);
  EXPECT_EQ(offsetof(BmPathSType, atEnd), 1u);
  EXPECT_EQ(offsetof(BmPathSType, exact), 2u);
  EXPECT_EQ(offsetof(BmPathSType, allowNext), 3u);
  EXPECT_EQ(offsetof(BmPathSType, depth), 4u);
  EXPECT_EQ(offsetof(BmPathSType, bit), 8u);
  EXPECT_EQ(offsetof(BmPathSType, levels), 16u);
  EXPECT_EQ(offsetof(BmPathLevelSType, pageId), 0u);
  EXPECT_EQ(offsetof(BmPathLevelSType, numEntries), 8u);
  EXPECT_EQ(offsetof(BmPathLevelSType, firstBit), 16u);
  EXPECT_EQ(offsetof(BmPathLevelSType, limitBit), 24u);
  EXPECT_EQ(offsetof(BmPathLevelSType, index), 32u);
}

}  // namespace
