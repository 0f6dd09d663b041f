#include "algebra/intersection.h"

#include "algebra/algebrafixture.h"
#include "algebra/stepwalk.h"

namespace {

using Bits = std::vector<uint64_t>;

constexpr unsigned long noLimit = 0xFFFFFFFFFF;

// The kind under test is that of tree `a` and of the result.
class IntersectionTest : public AlgebraTest {
 protected:
  unsigned long intersect(const RepTreeRootSType& a, const RepTreeRootSType& b, RepTreeRootSType& result,
                          unsigned long limit = noLimit, int ignored = 0) {
    TreeSnapshot snapshotA(host, a);
    TreeSnapshot snapshotB(host, b);
    const unsigned long count = BmIntersectSize_(&host, &a, &b, &result, limit, ignored);
    snapshotA.expectUnchanged();
    snapshotB.expectUnchanged();
    EXPECT_EQ(host.pinsHeld(), 0);
    return count;
  }

  void expectShared(const RepTreeRootSType& a, const RepTreeRootSType& b, const BitSet& expected) {
    for (const bool swapped : {false, true}) {
      RepTreeRootSType& result = newTree();
      EXPECT_EQ(swapped ? intersect(b, a, result) : intersect(a, b, result), expected.size());
      expectSound(result, expected);
    }
  }

  RepTreeRootSType& other(const Leaves& leaves) { return built(BM_PAGE_TREE, leaves); }
};
BMTREE_FOR_ALL_KINDS(IntersectionTest);

TEST_P(IntersectionTest, EveryPairOfLeafKindsMeets) {
  const Leaves lists{listLeaf(0, {1, 5, span(1), span(1) + 9, span(2) - 1}), listLeaf(span(4), {span(4), span(6)})};
  const Leaves denses{denseLeaf(0, {5, 6}), denseLeaf(span(1), {span(1) + 9, span(2) - 1}),
                      denseLeaf(span(6), {span(6)})};
  expectShared(built(lists), other(lists), {1, 5, span(1), span(1) + 9, span(2) - 1, span(4), span(6)});
  expectShared(built(lists), other(denses), {5, span(1) + 9, span(2) - 1, span(6)});
  expectShared(built(denses), other(denses), {5, 6, span(1) + 9, span(2) - 1, span(6)});
}

TEST_P(IntersectionTest, AnEmptyTreeOnEitherSideLeavesTheResultAlone) {
  RepTreeRootSType& result = built(listLeaf(0, {7}));
  TreeSnapshot unchanged(host, result);
  const RepTreeRootSType& tree = built(listLeaf(0, {1}));
  EXPECT_EQ(intersect(tree, newTree(), result), 0u);
  EXPECT_EQ(intersect(newTree(), tree, result), 0u);
  EXPECT_EQ(intersect(tree, other(Leaves{}), result), 0u);
  InlineTree inlined;
  EXPECT_EQ(intersect(*inlined.root(), tree, result), 0u);
  unchanged.expectUnchanged();
}

TEST_P(IntersectionTest, DisjointRangesLeaveTheResultAlone) {
  RepTreeRootSType& result = built(listLeaf(0, {7}));
  TreeSnapshot unchanged(host, result);
  EXPECT_EQ(intersect(built(Leaves{denseLeaf(span(1), {span(1)})}), other({denseLeaf(span(2), {span(2)})}), result),
            0u);
  EXPECT_EQ(intersect(built(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}),
                      other({listLeaf(span(2), {span(2)})}), result),
            0u);
  EXPECT_EQ(intersect(built(listLeaf(0, {1, 3})), built(listLeaf(0, {2, 4})), result), 0u);
  unchanged.expectUnchanged();
}

TEST_P(IntersectionTest, TheSameTreeTwiceGivesACopyOfItsBits) {
  const RepTreeRootSType& tree = built(Groups{{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})},
                                              {denseLeaf(span(4), {}, 1), listLeaf(span(5), {span(9), topBit})}});
  expectShared(tree, tree, {1, 2, span(1), span(9), topBit});
}

TEST_P(IntersectionTest, ABitThatTheResultHadCountsNothing) {
  RepTreeRootSType& result = built(listLeaf(0, {2, span(1)}));
  EXPECT_EQ(intersect(built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1), span(1) + 1})}),
                      other({denseLeaf(0, {1, 2}), denseLeaf(span(1), {span(1), span(1) + 1})}), result),
            2u);
  expectSound(result, {1, 2, span(1), span(1) + 1});
}

TEST_P(IntersectionTest, LeavesWithoutBitsAreFinishedAtOnce) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {}, 2043), denseLeaf(span(1), {}, 1),
                                           listLeaf(span(2), {span(2)}), denseLeaf(span(5), {span(5)})});
  expectShared(a, other({listLeaf(0, {1, span(1), span(2)}), listLeaf(span(5), {}, 3), denseLeaf(span(6), {}, 1)}),
               {span(2)});
}

TEST_P(IntersectionTest, InlineListsAndDenseRootsTakePart) {
  InlineTree inlined({1, 130751, 130753, span(3)}, 9);
  expectShared(built(Leaves{denseLeaf(0, {1, 2}), listLeaf(span(1), {130753, span(2)})}), *inlined.root(),
               {1, 130753});
  const RepTreeRootSType& denseRoot = built(denseLeaf(0, {1, 130751}));
  expectShared(denseRoot, *inlined.root(), {1, 130751});
  expectShared(denseRoot, other({denseLeaf(0, {1}), denseLeaf(span(1), {130753})}), {1});
  expectShared(built(Leaves{denseLeaf(span(1), {span(1) + 1})}), denseRoot, {});
}

TEST_P(IntersectionTest, AnInlineListIsAResult) {
  InlineTree result({5});
  EXPECT_EQ(intersect(built(Leaves{denseLeaf(0, {1, 5})}), other({denseLeaf(0, {1, 5, 6})}), *result.root()), 1u);
  EXPECT_EQ(bitsOf(*result.root()), (Bits{1, 5}));
}

TEST_P(IntersectionTest, AnInlineListTakesSharedBitsOfDenseLeavesUntilItIsFull) {
  InlineTree result(runOfBits(span(1), span(1) + 2000));
  const Leaves shared{denseLeaf(0, runOfBits(0, 500))};
  intersect(built(shared), other(shared), *result.root());
  EXPECT_EQ(host.takeReports().size(), 1u);  // of the bit that found no room
  Bits expected = runOfBits(0, 43);
  const Bits before = runOfBits(span(1), span(1) + 2000);
  expected.insert(expected.end(), before.begin(), before.end());
  EXPECT_EQ(bitsOf(*result.root()), expected);
}

// ---------------------------------------------------------------------------------------------------------
// Limits

TEST_P(IntersectionTest, DenseLeavesOvershootTheLimitByUpTo319Bits) {
  const Bits run = runOfBits(0, 3000);
  const RepTreeRootSType& a = built(Leaves{denseLeaf(0, run)});
  const RepTreeRootSType& b = other({denseLeaf(0, run)});
  for (const auto& [limit, count] : {std::pair{0u, 256u}, {1u, 256u}, {256u, 256u}, {257u, 512u}, {2999u, 3000u}}) {
    RepTreeRootSType& result = newTree();
    EXPECT_EQ(intersect(a, b, result, limit), count);
    expectSound(result, asSet(runOfBits(0, count)));
  }
  // 255 bits are not handed over yet, and the next word brings 64
  Bits gap = runOfBits(0, 3000);
  gap.erase(gap.begin() + 10);
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(intersect(built(Leaves{denseLeaf(0, gap)}), b, result, 1), 319u);
}

TEST_P(IntersectionTest, FewBitsOfDenseLeavesAreHandedOverAtTheEndOfTheLeaf) {
  const Leaves leaves{denseLeaf(0, {1, 2, 3}), denseLeaf(span(1), {span(1)})};
  for (const unsigned long limit : {0, 1, 3}) {
    RepTreeRootSType& result = newTree();
    EXPECT_EQ(intersect(built(leaves), other(leaves), result, limit), 3u);
  }
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(intersect(built(leaves), other(leaves), result, 4), 4u);
}

TEST_P(IntersectionTest, ListsOvershootTheLimitByThePairAndByOneBitOfTheNext) {
  const Leaves leaves{listLeaf(0, {1, 2, 3, 4, 5}), listLeaf(span(1), {span(1), span(1) + 1})};
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(intersect(built(leaves), other(leaves), result, 1), 6u);
  expectSound(result, {1, 2, 3, 4, 5, span(1)});
  RepTreeRootSType& alone = newTree();
  EXPECT_EQ(
      intersect(built(leaves), other({listLeaf(0, {1, 2, 3, 4, 5}), listLeaf(span(1), {span(1) + 7})}), alone, 1),
      5u);
}

TEST_P(IntersectionTest, AListAgainstADenseLeafMeetsTheLimitExactly) {
  const RepTreeRootSType& list = built(Leaves{listLeaf(0, {1, 2, 3, 4, 5})});
  const RepTreeRootSType& dense = other({denseLeaf(0, {2, 3, 5})});
  for (unsigned long limit = 0; limit < 5; ++limit) {
    const unsigned long count = std::clamp(limit, 1UL, 3UL);
    for (const bool swapped : {false, true}) {
      RepTreeRootSType& result = newTree();
      EXPECT_EQ(swapped ? intersect(dense, list, result, limit) : intersect(list, dense, result, limit), count);
      EXPECT_EQ(bitsOf(result).size(), count);
    }
  }
}

TEST_P(IntersectionTest, AnOvershotLimitIsNoticedByTheNextPairOfADenseLeaf) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2, 3}), listLeaf(span(1), {span(1), span(1) + 1})});
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(intersect(a, other({listLeaf(0, {1, 2, 3}), denseLeaf(span(1), {span(1), span(1) + 1})}), result, 1), 4u);
}

TEST_P(IntersectionTest, BitsThatTheResultHadDoNotCountTowardsTheLimit) {
  RepTreeRootSType& result = built(listLeaf(0, {1, 2}));
  EXPECT_EQ(intersect(built(Leaves{listLeaf(0, {1, 2, 3, 4})}), other({denseLeaf(0, {1, 2, 3, 4})}), result, 1), 1u);
  expectSound(result, {1, 2, 3});
}

TEST_P(IntersectionTest, TheLastArgumentHasNoEffect) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2, 3})});
  for (const int ignored : {0, 1, -1}) {
    RepTreeRootSType& result = newTree();
    EXPECT_EQ(intersect(a, a, result, 5, ignored), 3u);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Forms, pages, faults

TEST_P(IntersectionTest, DiskRootsAreExpandedOnEitherSide) {
  const RepTreeRootSType& a = built(BM_PAGE_TREE, Leaves{listLeaf(0, {1, 2})});
  const RepTreeRootSType& b = built(BM_PAGE_TREE, Leaves{denseLeaf(0, {2, 3})});
  const DiskTreeRootSType diskA = diskRootOf(a);
  const DiskTreeRootSType diskB = diskRootOf(b);
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(BmIntersectSize_(&host, &diskA, &b, &result, 9), 1u);
  EXPECT_EQ(BmIntersectSize_(&host, &a, &diskB, &result, 9), 0u);
  EXPECT_EQ(BmIntersectSize_(&host, &diskA, &diskB, &result, 9), 0u);
  expectSound(result, {2});
}

TEST_P(IntersectionTest, ManySharedBitsOfASpanBecomeADenseLeaf) {
  const Leaves leaves{denseLeaf(span(1), runOfBits(span(1), span(1) + 2044))};
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(intersect(built(leaves), other(leaves), result), 2044u);
  EXPECT_EQ(shapeOf(result), "[1 dense 2044]");
}

TEST_P(IntersectionTest, TheResultHasTheShapeThatItsBitsHaveAsAnArray) {
  Random random(testSeed());
  for (int round = 0; round < 12; ++round) {
    Bits ofA, ofB;
    for (uint64_t number = 0; number < 8; ++number) {
      const uint64_t oneIn = uint64_t{1} << random.below(10);
      for (uint64_t i = 0; i < BM_LEAF_BITS; i += 1 + random.below(oneIn)) {
        if (!random.oneIn(3)) ofA.push_back(span(number) + i);
        if (!random.oneIn(3)) ofB.push_back(span(number) + i);
      }
    }
    RepTreeRootSType& a = newTree();
    RepTreeRootSType& b = newTree(BM_HEAP_TREE);
    BmSetBitsFromSortedArray_(&host, &a, ofA.data(), ofA.data() + ofA.size());
    BmSetBitsFromSortedArray_(&host, &b, ofB.data(), ofB.data() + ofB.size());
    Bits shared;
    std::set_intersection(ofA.begin(), ofA.end(), ofB.begin(), ofB.end(), std::back_inserter(shared));
    RepTreeRootSType& result = newTree();
    RepTreeRootSType& expected = newTree();
    if (round % 2 == 1) {  // a result that has a leaf already
      BmSetBitRange_(&host, &result, span(3), span(3) + 5000);
      BmSetBitRange_(&host, &expected, span(3), span(3) + 5000);
    }
    intersect(a, b, result);
    for (size_t i = 0; i < shared.size(); i += 256) {
      const uint64_t* first = shared.data() + i;
      BmSetBitsFromSortedArray_(&host, &expected, first, first + std::min<size_t>(256, shared.size() - i));
    }
    EXPECT_EQ(withoutFronts(shapeOf(result)), withoutFronts(shapeOf(expected)));
    EXPECT_EQ(bitsOf(result), bitsOf(expected));
  }
}

TEST_P(IntersectionTest, LongListsAreSearchedAndLikeOnesMerged) {
  Random random(testSeed());
  for (const auto& [ofA, ofB] : {std::pair{2043, 3}, {3, 2043}, {2043, 2043}, {100, 2000}, {127, 2043}}) {
    const BitSet bitsA = asSet(randomBits(random, static_cast<size_t>(ofA), 0, 4000));
    const BitSet bitsB = asSet(randomBits(random, static_cast<size_t>(ofB), 0, 4000));
    expectShared(built(Leaves{listLeaf(0, asVector(bitsA))}), other({listLeaf(0, asVector(bitsB))}),
                 intersectionOf(bitsA, bitsB));
  }
}

TEST_P(IntersectionTest, MatchingMovesTheStreamThatLags) {
  const RepTreeRootSType& a =
      built(Leaves{denseLeaf(0, {1}), denseLeaf(span(4), {span(4)}), denseLeaf(span(8), {span(8)})});
  const RepTreeRootSType& b =
      other({denseLeaf(span(2), {span(2)}), denseLeaf(span(4), {span(4)}), denseLeaf(span(9), {span(9)})});
  WalkedTree first(&host, &a, 0);
  WalkedTree second(&host, &b, 0);
  ASSERT_TRUE(first.nextLeaf() && second.nextLeaf());
  EXPECT_EQ(findMatchingLeafIntersect(&host, &first.leaves, &first.leaf, &second.leaves, &second.leaf), 1);
  EXPECT_EQ(first.leaf.firstBit, span(4));
  EXPECT_EQ(second.leaf.firstBit, span(4));
  ASSERT_TRUE(first.nextLeaf());
  EXPECT_EQ(findMatchingLeafIntersect(&host, &first.leaves, &first.leaf, &second.leaves, &second.leaf), 0);
}

TEST_P(IntersectionTest, ADenseLeafAndAListLeaveTheirCursorsWhereTheyStopped) {
  const RepTreeRootSType& denseTree = built(Leaves{denseLeaf(span(1), {span(1), span(1) + 2})});
  const RepTreeRootSType& listTree = other({listLeaf(0, {1, span(1), span(1) + 1, span(1) + 2, span(3)})});
  RepTreeRootSType& result = newTree();
  const auto run = [&](unsigned long limit, auto check) {
    WalkedTree dense(&host, &denseTree, 0);
    WalkedTree list(&host, &listTree, 0);
    ASSERT_TRUE(dense.nextLeaf() && list.nextLeaf());
    locateLeaf(&host, &dense.leaf, BM_LEAF_CACHE);
    locateLeaf(&host, &list.leaf, BM_LEAF_CACHE);
    IntersectResultStateSType state{&result, limit, 0, 0};
    intersectBmBitList(&host, &dense.leaf, &list.leaf, &state);
    EXPECT_EQ(dense.leaf.atEnd, 1);
    check(list.leaf, state);
  };
  run(1, [](const BmLeafStateSType& list, const IntersectResultStateSType& state) {
    EXPECT_EQ(list.curBit, span(1) + 1);
    EXPECT_EQ(state.done, 1);
    EXPECT_EQ(state.count, 1u);
  });
  run(100, [](const BmLeafStateSType& list, const IntersectResultStateSType& state) {
    EXPECT_EQ(list.curBit, span(3));
    EXPECT_EQ(list.atEnd, 0);
    EXPECT_EQ(state.done, 0);
    EXPECT_EQ(state.count, 1u);
  });
}

TEST_P(IntersectionTest, ALeafOfAnotherKindIsReportedAndCountsAsEmpty) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1}), listLeaf(span(1), {span(1)})});
  putU8(leafBytes(a, 0), at::pageKind, 4);
  RepTreeRootSType& result = newTree();
  const RepTreeRootSType& b = built(BM_HEAP_TREE, listLeaf(0, {1, span(1)}));
  expectLeafFault(5741, a, [&] { EXPECT_EQ(BmIntersectSize_(&host, &a, &b, &result, 9, 0), 1u); });
  expectSound(result, {span(1)});
  putU8(leafBytes(a, 0), at::pageKind, 12);
}

TEST_P(IntersectionTest, OutOfPagesTheResultHoldsSharedBitsOnly) {
  if (isHeap()) return;
  const Leaves leaves{denseLeaf(0, runOfBits(0, 4000)), listLeaf(span(2), {span(2)}), denseLeaf(span(5), {span(5)})};
  const RepTreeRootSType& a = built(BM_HEAP_TREE, leaves);
  BitSet whole = asSet(runOfBits(0, 4000));
  whole.insert({span(2), span(5)});
  for (long budget = 0; budget < 5; ++budget) {
    RepTreeRootSType& result = newTree();
    host.setPageBudget(budget);
    BmIntersectSize_(&host, &a, &a, &result, noLimit, 0);
    host.setPageBudget(-1);
    const BitSet bits = asSet(bitsOf(result));
    expectSound(result, bits);
    EXPECT_EQ(differenceOf(bits, whole), BitSet{});
    EXPECT_TRUE(budget < 4 || bits == whole);
  }
}

}  // namespace
