#include "algebra/removal.h"

#include "algebra/algebrafixture.h"

namespace {

// The kind under test is that of the destination.
class RemovalTest : public AlgebraTest {
 protected:
  unsigned long remove(RepTreeRootSType& source, RepTreeRootSType& destination) {
    TreeSnapshot snapshot(host, source);
    const unsigned long count = BmClearBits_(&host, &source, &destination);
    snapshot.expectUnchanged();
    return count;
  }

  static std::string list(size_t count, int front) {
    return "list " + std::to_string(count) + "@" + std::to_string(front);
  }

  // A source of level 1 with a list, a dense leaf, and a gap behind it.
  RepTreeRootSType& tallSource(BmTreeKindEType sourceKind = BM_PAGE_TREE) {
    return built(sourceKind, Leaves{listLeaf(0, {1, 5, span(1) + 1}), denseLeaf(span(3), {span(3), span(4) - 1})});
  }
};
BMTREE_FOR_ALL_KINDS(RemovalTest);

TEST_P(RemovalTest, AnEmptyTreeOnEitherSideClearsNothing) {
  RepTreeRootSType& tree = built(listLeaf(0, {1}));
  RepTreeRootSType& empty = newTree();
  InlineTree inlined;
  EXPECT_EQ(remove(empty, tree), 0u);
  EXPECT_EQ(remove(tree, empty), 0u);
  EXPECT_EQ(remove(*inlined.root(), tree), 0u);
  EXPECT_EQ(remove(tree, *inlined.root()), 0u);
  expectSound(tree, {1});
}

TEST_P(RemovalTest, TreesWithNothingInCommonDirtyNoPageOfALevelZeroList) {
  RepTreeRootSType& destination = built(listLeaf(0, {2, span(2), span(3) + 1, span(5)}, 77));
  moveStampOn();
  TreeSnapshot unchanged(host, destination);
  RepTreeRootSType& source = tallSource();
  EXPECT_EQ(countDuring(EventKind::dirty, [&] { EXPECT_EQ(remove(source, destination), 0u); }), 0u);
  EXPECT_EQ(countDuring(EventKind::newPage, [&] { EXPECT_EQ(remove(source, destination), 0u); }), 0u);
  unchanged.expectUnchanged();
}

TEST_P(RemovalTest, AListThatLosesEntriesGetsItsBytesUsed) {
  RepTreeRootSType& destination = built(listLeaf(0, {1, 2, 5, 9, span(3), span(3) + 1, span(5)}, 77));
  moveStampOn();
  host.watchDirtyMarks();
  EXPECT_EQ(remove(tallSource(), destination), 3u);
  expectSound(destination, {2, 9, span(3) + 1, span(5)});  // the verifier knows the formula
  host.expectChangesMarked();
  expectOldPagesUnchanged();
  expectCarefulSets();
}

TEST_P(RemovalTest, ACarefulListIsShadowedOnlyWhenItChangesAndLaidOutAnew) {
  if (!isCareful()) return;
  RepTreeRootSType& destination = built(listLeaf(0, {1, 2, span(5)}, 77));
  const uint64_t oldRoot = destination.root;
  moveStampOn();
  RepTreeRootSType& source = tallSource();
  EXPECT_EQ(countDuring(EventKind::newPage, [&] { EXPECT_EQ(remove(source, destination), 1u); }), 1u);
  EXPECT_NE(destination.root, oldRoot);
  EXPECT_EQ(shapeOf(destination), list(2, 255));
  EXPECT_EQ(bitsOf(host.obsoleteCarefulBm), std::vector<uint64_t>{oldRoot});
  const uint64_t newRoot = destination.root;
  EXPECT_EQ(BmSetBit(&host, &destination, 5), 0);
  EXPECT_EQ(remove(source, destination), 1u);  // under the same stamp in place
  EXPECT_EQ(destination.root, newRoot);
}

TEST_P(RemovalTest, ACarefulListWithoutAPageForItsShadowKeepsItsBits) {
  if (!isCareful()) return;
  RepTreeRootSType& destination = built(listLeaf(0, {1, 2, span(5)}, 77));
  TreeSnapshot unchanged(host, destination);
  RepTreeRootSType& source = tallSource(BM_HEAP_TREE);
  host.setPageBudget(0);
  EXPECT_EQ(remove(source, destination), 0u);
  host.setPageBudget(-1);
  unchanged.expectUnchanged();
}

TEST_P(RemovalTest, ALevelZeroListThatEmptiesIsDisposedOf) {
  RepTreeRootSType& destination = built(listLeaf(0, {1, 5, span(3)}));
  const uint64_t page = destination.root;
  moveStampOn();
  EXPECT_EQ(remove(tallSource(), destination), 3u);
  EXPECT_EQ(destination.root, 0u);
  EXPECT_EQ(destination.level, 0);
  if (isCareful()) {
    EXPECT_EQ(bitsOf(host.obsoleteCarefulBm), std::vector<uint64_t>{page});
  } else if (!isHeap()) {
    EXPECT_FALSE(host.pageIsLive(page));
  }
}

TEST_P(RemovalTest, AnInlineListThatEmptiesKeepsItsRoot) {
  InlineTree destination({1, 5, span(3)}, 30);
  const RepTreeRootSType before = *destination.root();
  EXPECT_EQ(remove(tallSource(), *destination.root()), 3u);
  EXPECT_EQ(destination.root()->root, before.root);
  EXPECT_EQ(bitsOf(*destination.root()), std::vector<uint64_t>{});
}

TEST_P(RemovalTest, AnInlineListIsScannedUpToItsLastEntry) {
  InlineTree destination({1, 2, span(1), span(1) + 1, span(3), span(3) + 1}, 30);
  EXPECT_EQ(remove(tallSource(), *destination.root()), 3u);
  EXPECT_EQ(bitsOf(*destination.root()), (std::vector<uint64_t>{2, span(1), span(3) + 1}));
}

TEST_P(RemovalTest, AListSourceClearsThroughTheArrayForm) {
  RepTreeRootSType& destination = built(
      Leaves{listLeaf(0, {1, 2}), denseLeaf(span(2), {span(2), span(2) + 1}, 1), denseLeaf(span(4), {span(4)})});
  InlineTree inlined({2, span(2)}, 9);
  EXPECT_EQ(remove(*inlined.root(), destination), 2u);
  EXPECT_EQ(remove(built(BM_PAGE_TREE, listLeaf(0, {1, span(2) + 1, span(3)})), destination), 2u);
  EXPECT_EQ(shapeOf(destination), "[2 dense 0+, 4 dense 1]");
}

TEST_P(RemovalTest, ADenseLeafThatEmptiesStaysOnlyIfItIsKept) {
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1, 2}, 1), denseLeaf(span(1), {span(1)}, 0),
                                               denseLeaf(span(2), {span(2), span(2) + 1}, 0)});
  RepTreeRootSType& source =
      built(Leaves{denseLeaf(0, {1, 2, 3}), denseLeaf(span(1), {span(1)}), denseLeaf(span(2), {span(2)})});
  EXPECT_EQ(remove(source, destination), 4u);
  EXPECT_EQ(shapeOf(destination), "[0 dense 0+, 2 dense 1]");
  expectSound(destination, {span(2) + 1});
}

TEST_P(RemovalTest, ADenseLeafAgainstAListTakesTheEntriesOfItsSpan) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {span(1) - 1, span(1), span(2) - 1, span(2)})});
  EXPECT_EQ(remove(built(Leaves{denseLeaf(span(1), {span(1), span(1) + 5, span(2) - 1})}), destination), 2u);
  expectSound(destination, {span(1) - 1, span(2)});
}

TEST_P(RemovalTest, ADenseLeafThatEmptiesAListRemovesItsLeaf) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {span(1)}), denseLeaf(span(3), {span(3)})});
  EXPECT_EQ(remove(built(Leaves{denseLeaf(span(1), {span(1)})}), destination), 1u);
  EXPECT_EQ(shapeOf(destination), "[3 dense 1]");
}

TEST_P(RemovalTest, AListLeafWithoutEntriesIsRemovedWhenADenseLeafMeetsIt) {
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {}, 9), denseLeaf(span(3), {span(3)})});
  EXPECT_EQ(remove(built(Leaves{denseLeaf(span(1), {span(1)})}), destination), 0u);
  EXPECT_EQ(shapeOf(destination), "[3 dense 1]");
}

TEST_P(RemovalTest, TheWalkEndsWhenTheDestinationIsEmpty) {
  RepTreeRootSType& destination = built(Groups{{listLeaf(0, {1})}, {denseLeaf(span(3), {span(3)})}});
  RepTreeRootSType& source = built(Groups{{denseLeaf(0, {1}), denseLeaf(span(3), {span(3)})},
                                          {denseLeaf(span(5), {span(5)}), listLeaf(span(6), {span(6)})}});
  EXPECT_EQ(remove(source, destination), 2u);
  EXPECT_EQ(destination.root, 0u);
  EXPECT_EQ(destination.level, 0);
}

TEST_P(RemovalTest, DenseAgainstDenseMarksThePageOnlyIfABitWent) {
  RepTreeRootSType& destination =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 2}, 1)}, {.currentStamp = true}));
  RepTreeRootSType& apart = built(BM_HEAP_TREE, Leaves{denseLeaf(0, {3})});
  RepTreeRootSType& meeting = built(BM_HEAP_TREE, Leaves{denseLeaf(0, {2})});
  EXPECT_EQ(countDuring(EventKind::dirty, [&] { EXPECT_EQ(remove(apart, destination), 0u); }), 0u);
  EXPECT_EQ(countDuring(EventKind::dirty, [&] { EXPECT_EQ(remove(meeting, destination), 1u); }), isHeap() ? 0u : 1u);
}

TEST_P(RemovalTest, ACarefulLeafIsShadowedBeforeAnyoneLooks) {
  if (!isCareful()) return;
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1}), listLeaf(span(1), {span(1)})});
  const std::vector<uint64_t> oldLeaves = refsAtLevel(host, destination, 0);
  moveStampOn();
  EXPECT_EQ(remove(built(BM_HEAP_TREE, Leaves{denseLeaf(0, {2})}), destination), 0u);
  const std::vector<uint64_t> leaves = refsAtLevel(host, destination, 0);
  EXPECT_NE(leaves[0], oldLeaves[0]);
  EXPECT_EQ(leaves[1], oldLeaves[1]);
  EXPECT_EQ(remove(built(BM_HEAP_TREE, Leaves{denseLeaf(span(2), {span(2)})}), destination), 0u);
  EXPECT_NE(refsAtLevel(host, destination, 0)[1], oldLeaves[1]);
  expectOldPagesUnchanged();
}

TEST_P(RemovalTest, ADenseSourceInAGapShadowsNothing) {
  RepTreeRootSType& destination = built(Leaves{denseLeaf(0, {1}), denseLeaf(span(5), {span(5)})});
  TreeSnapshot unchanged(host, destination);
  EXPECT_EQ(
      remove(built(BM_HEAP_TREE, Leaves{denseLeaf(span(1), {span(1)}), denseLeaf(span(5), {}, 1)}), destination), 0u);
  unchanged.expectUnchanged();
}

TEST_P(RemovalTest, OutOfPagesForShadowsNothingIsLost) {
  if (!isCareful()) return;
  RepTreeRootSType& source =
      built(BM_HEAP_TREE, Leaves{denseLeaf(0, {1, 7}), listLeaf(span(1), {span(1)}), denseLeaf(span(3), {span(3)})});
  for (long budget = 0; budget < 8; ++budget) {
    const BitSet bits{1, 2, span(1), span(1) + 1, span(3), span(3) + 1};
    RepTreeRootSType& destination =
        built(Groups{{denseLeaf(0, {1, 2})},
                     {listLeaf(span(1), {span(1), span(1) + 1}), denseLeaf(span(3), {span(3), span(3) + 1})}});
    host.setPageBudget(budget);
    const unsigned long count = remove(source, destination);
    host.setPageBudget(-1);
    const BitSet left = asSet(bitsOf(destination));
    expectSound(destination, left);
    EXPECT_EQ(left.size(), bits.size() - count);
    EXPECT_EQ(differenceOf({2, span(1) + 1, span(3) + 1}, left), BitSet{});
    expectOldPagesUnchanged();
  }
}

TEST_P(RemovalTest, PagesAreMarkedAfterTheirLastChange) {
  RepTreeRootSType& destination =
      built(Groups{{denseLeaf(0, {1, 2}), listLeaf(span(1), {span(1)})}, {listLeaf(span(3), {span(3), span(4)})}});
  RepTreeRootSType& source =
      built(BM_HEAP_TREE, Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)}), denseLeaf(span(4), {span(4)})});
  moveStampOn();
  host.watchDirtyMarks();
  EXPECT_EQ(remove(source, destination), 3u);
  host.expectChangesMarked();
  expectSound(destination, {2, span(3)});
  expectCarefulSets();
}

TEST_P(RemovalTest, SourceLeavesOfAnotherKindAreReportedAndTheWalkGoesOn) {
  RepTreeRootSType& source = built(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  RepTreeRootSType& destination = built(Leaves{listLeaf(0, {1, span(1)})});
  putU8(leafBytes(source, 0), at::pageKind, 4);
  expectLeafFault(9625, source, [&] { EXPECT_EQ(BmClearBits_(&host, &source, &destination), 1u); });
  RepTreeRootSType& scanned = built(listLeaf(0, {1, span(1)}));
  expectLeafFault(9378, source, [&] { EXPECT_EQ(BmClearBits_(&host, &source, &scanned), 1u); });
  expectSound(scanned, {1});
  putU8(leafBytes(source, 0), at::pageKind, 12);
}

TEST_P(RemovalTest, ADestinationLeafOfAnotherKindIsReportedAndLeftAlone) {
  RepTreeRootSType& source = built(Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  RepTreeRootSType& destination = adopt(buildTree(
      host, kind(), Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1), span(1) + 1})}, {.currentStamp = true}));
  putU8(leafBytes(destination, 0), at::pageKind, 4);
  expectLeafFault(9619, destination, [&] { EXPECT_EQ(BmClearBits_(&host, &source, &destination), 1u); });
  putU8(leafBytes(destination, 0), at::pageKind, 8);
  expectSound(destination, {1, span(1) + 1});
}

TEST_P(RemovalTest, ABadBytesUsedOfACarefulListIsReportedAndTheScanGoesOn) {
  if (!isCareful()) return;
  RepTreeRootSType& destination = built(listLeaf(0, {}));
  putU16(leafBytes(destination, 0), at::bytesUsed, 16385);
  RepTreeRootSType& source = tallSource();
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(BmClearBits_(&host, &source, &destination), 0u);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "illegal bytesUsed in a page\n");
  host.expectReports({"guarantee bitmap:9474"});
  putU16(leafBytes(destination, 0), at::bytesUsed, 40);
}

TEST_P(RemovalTest, ADenseRootIsASourceForEveryDestination) {
  RepTreeRootSType& source = built(BM_HEAP_TREE, denseLeaf(0, {1, 130751}));
  RepTreeRootSType& flat = built(listLeaf(0, {1, 2, 130751, 130753}));
  EXPECT_EQ(remove(source, flat), 2u);
  expectSound(flat, {2, 130753});
  RepTreeRootSType& tall = built(Leaves{denseLeaf(0, {1, 2})});
  EXPECT_EQ(remove(source, tall), 1u);
  InlineTree inlined({1, 2, 130753});
  EXPECT_EQ(remove(source, *inlined.root()), 1u);
  EXPECT_EQ(bitsOf(*inlined.root()), (std::vector<uint64_t>{2, 130753}));
}

TEST_P(RemovalTest, LargeFirstGoesByTheIntersectionOnlyForATallerSourceAndADestinationWithLevels) {
  const auto heapPagesMade = [this](RepTreeRootSType& source, RepTreeRootSType& destination) {
    return countDuring(EventKind::heapAlloc,
                       [&] { EXPECT_EQ(BmClearBitsLargeFirst(&host, &source, &destination), 1u); });
  };
  const Groups groups{{denseLeaf(0, {1})}, {denseLeaf(span(3), {span(3)})}};
  RepTreeRootSType& source = built(BM_PAGE_TREE, groups);
  RepTreeRootSType& level0 = built(BM_PAGE_TREE, listLeaf(0, {1, 2}));
  RepTreeRootSType& level1 = built(BM_PAGE_TREE, Leaves{listLeaf(0, {1, 2})});
  RepTreeRootSType& level2 = built(BM_PAGE_TREE, Groups{{listLeaf(0, {1, 2})}});
  EXPECT_EQ(heapPagesMade(source, level0), 0u);
  EXPECT_EQ(heapPagesMade(source, level1), 1u);  // the shared bits
  EXPECT_EQ(heapPagesMade(source, level2), 0u);
  for (RepTreeRootSType* tree : {&level0, &level1, &level2}) expectSound(*tree, {2});
}

TEST_P(RemovalTest, DiskRootsAreExpandedAndDestinationsWrittenBack) {
  if (isHeap()) return;
  DiskTreeRootSType source = diskRootOf(built(Groups{{denseLeaf(0, {1, 2, 3, 4, 5, 6})}}));
  RepTreeRootSType& memory = built(Leaves{listLeaf(0, {1, 2, 3, 9})});
  const auto target = [this](uint64_t bit) { return diskRootOf(buildTree(host, kind(), listLeaf(0, {bit}))); };
  EXPECT_EQ(BmClearBits_(&host, &source, &memory), 3u);
  expectSound(memory, {9});
  DiskTreeRootSType first = target(4);
  EXPECT_EQ(BmClearBits_(&host, &source, &first), 1u);
  EXPECT_EQ(pageIdOf(first), 0u);
  DiskTreeRootSType second = target(9);
  EXPECT_EQ(BmClearBits_(&host, &memory, &second), 1u);
  EXPECT_EQ(pageIdOf(second), 0u);
  RepTreeRootSType& large = built(Leaves{listLeaf(0, {5, 7})});
  EXPECT_EQ(BmClearBitsLargeFirst(&host, &source, &large), 1u);
  expectSound(large, {7});
  DiskTreeRootSType third = diskRootOf(buildTree(host, kind(), Leaves{listLeaf(0, {6})}));
  EXPECT_EQ(BmClearBitsLargeFirst(&host, &source, &third), 1u);
  EXPECT_EQ(pageIdOf(third), 0u);
  EXPECT_EQ(third.level, 0);
}

// ---------------------------------------------------------------------------------------------------------
// Lists in place

class ListRemovalTest : public TreeFixture {
 protected:
  // Removes what is set in the dense leaf at `base` from a list, and tells what became of it.
  struct Outcome {
    int result;
    int index;
    int firstOffset;
    std::vector<uint64_t> bits;
    friend bool operator==(const Outcome&, const Outcome&) = default;
  };

  Outcome removed(const std::vector<uint64_t>& bits, int front, const std::vector<uint64_t>& leafBits, uint64_t base,
                  int index = -1) {
    InlineTree tree(bits, front);
    PageBytes image = denseImage(leafBits);
    auto* list = reinterpret_cast<RepBitListContentsSType*>(tree.contents());
    Outcome outcome{};
    outcome.result =
        ClearBitsFromBmLeafBitListLeaf(reinterpret_cast<RepBmLeafPageSType*>(image.data()), base, list, &index);
    outcome.index = index;
    outcome.firstOffset = list->firstOffset;
    outcome.bits = bitsOf(*tree.root());
    return outcome;
  }
};

using Bits = std::vector<uint64_t>;

TEST_F(ListRemovalTest, AnEmptyListCountsAsChanged) { EXPECT_EQ(removed({}, 9, {1}, 0), (Outcome{1, -1, 9, {}})); }

TEST_F(ListRemovalTest, NothingIsWrittenWhenNothingMatches) {
  EXPECT_EQ(removed({1, 2, span(1), span(2)}, 9, {5}, 0), (Outcome{0, 2, 9, {1, 2, span(1), span(2)}}));
  EXPECT_EQ(removed({1, span(2)}, 9, {5}, span(1)), (Outcome{0, 1, 9, {1, span(2)}}));
}

TEST_F(ListRemovalTest, AListThatEmptiesTowardsItsHighEndStandsAt255) {
  EXPECT_EQ(removed({1, 2, 3, 4}, 9, {1, 2, 3, 4}, 0), (Outcome{1, 0, 255, {}}));
}

TEST_F(ListRemovalTest, AShortListThatEmptiesTowardsItsLowEndKeepsItsFront) {
  EXPECT_EQ(removed({1, 2, 3}, 9, {1, 2, 3}, 0), (Outcome{1, 0, 9, {}}));
}

TEST_F(ListRemovalTest, FewEntriesFromTheLastInRangeOnMoveTheFrontUp) {
  // five entries, the last in range and those above are 1, which is below 5 / 2
  EXPECT_EQ(removed({1, 2, span(1), span(1) + 1, span(1) + 2}, 9, {span(1), span(1) + 2}, span(1)),
            (Outcome{1, 3, 11, {1, 2, span(1) + 1}}));
}

TEST_F(ListRemovalTest, ManyEntriesFromTheLastInRangeOnMoveTheTailDown) {
  EXPECT_EQ(removed({1, 2, 3, span(1), span(1) + 1}, 9, {1, 3}, 0), (Outcome{1, 1, 9, {2, span(1), span(1) + 1}}));
}

TEST_F(ListRemovalTest, TheDirectionTurnsAtHalfTheList) {
  // four entries: 1 is below 4 / 2, 2 is not
  EXPECT_EQ(removed({1, 2, 3, 4}, 9, {2}, 0), (Outcome{1, 3, 10, {1, 3, 4}}));
  EXPECT_EQ(removed({1, 2, 3, span(1)}, 9, {2}, 0), (Outcome{1, 2, 9, {1, 3, span(1)}}));
}

TEST_F(ListRemovalTest, AnIndexStartsAtThatEntry) {
  EXPECT_EQ(removed({1, 2, span(1), span(1) + 1, span(2)}, 9, {span(1), span(1) + 1}, span(1), 2),
            (Outcome{1, 2, 9, {1, 2, span(2)}}));
}

TEST_F(ListRemovalTest, TheLastSpanEndsAtTheTopOfTheNumberSpace) {
  EXPECT_EQ(removed({topBit - 1, topBit}, 9, {topBit}, span(lastSpan)), (Outcome{1, 1, 9, {topBit - 1}}));
}

TEST_F(ListRemovalTest, RandomListsLoseExactlyTheLeafsBits) {
  Random random(testSeed());
  for (int i = 0; i < 500 && !HasFailure(); ++i) {
    const BitSet bits = asSet(randomBits(random, 1 + random.below(120), span(1) - 60, span(2) + 60));
    const BitSet leafBits = asSet(randomBits(random, 1 + random.below(200), span(1), span(1) + 400));
    BitSet some = leafBits;
    for (const uint64_t bit : bits) {
      if (random.oneIn(2) && bit >= span(1) && bit < span(2)) some.insert(bit);
    }
    const Outcome outcome = removed(asVector(bits), static_cast<int>(random.below(1900)), asVector(some), span(1));
    const BitSet expected = differenceOf(bits, some);
    EXPECT_EQ(outcome.bits, asVector(expected));
    EXPECT_EQ(outcome.result, expected.size() != bits.size());
    const auto below = static_cast<int>(std::distance(expected.begin(), expected.lower_bound(span(2))));
    EXPECT_EQ(outcome.index, below);
  }
}

TEST_F(ListRemovalTest, EntriesOutsideEveryLeafArePassedOver) {
  const RepTreeRootSType& tree =
      adopt(buildTree(host, BM_PAGE_TREE,
                      Groups{{denseLeaf(span(1), {span(1) + 1}, 1), denseLeaf(span(2), {}, 1)},
                             {listLeaf(span(6), {span(7)}), listLeaf(span(8), {span(8)})}}));
  InlineTree list({1, span(1) + 1, span(2), span(4), span(7), span(8), span(9)}, 5);
  auto* contents = reinterpret_cast<RepBitListContentsSType*>(list.contents());
  EXPECT_NE(BmClearBitsInBitList(&host, &tree, contents, span(9)), 0);
  EXPECT_EQ(bitsOf(*list.root()), (Bits{1, span(2), span(4), span(9)}));
  EXPECT_EQ(BmClearBitsInBitList(&host, &tree, contents, span(9)), 0);
}

TEST_F(ListRemovalTest, AListThatDoesNotAscendIsScannedInBoundedTime) {
  const RepTreeRootSType& tree =
      adopt(buildTree(host, BM_PAGE_TREE, Leaves{denseLeaf(0, {1}), listLeaf(span(2), {span(2)})}));
  InlineTree list({span(3), 1, span(2), 5, 1, span(9), 0}, 5);
  BmClearBitsInBitList(&host, &tree, reinterpret_cast<RepBitListContentsSType*>(list.contents()), topBit);
  EXPECT_LE(bitsOf(*list.root()).size(), 7u);
}

}  // namespace
