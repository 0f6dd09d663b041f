#include "algebra/difference.h"

#include <numeric>

#include "algebra/algebrafixture.h"

namespace {

using Bits = std::vector<uint64_t>;

// The kind under test is that of tree A and of a result tree.
class DifferenceTest : public AlgebraTest {
 protected:
  Bits difference(const RepTreeRootSType& a, const RepTreeRootSType& b, unsigned long limit,
                  unsigned long start = 0) {
    Bits bits(limit + 1, 0xDEAD);
    TreeSnapshot snapshotA(host, a);
    TreeSnapshot snapshotB(host, b);
    const unsigned long count = BmDifferenceStartingAt_(&host, &a, &b, limit, bits.data(), start);
    snapshotA.expectUnchanged();
    snapshotB.expectUnchanged();
    EXPECT_EQ(host.pinsHeld(), 0);
    EXPECT_EQ(bits[limit], 0xDEADu) << "a slot behind the limit was written";
    bits.resize(count);
    return bits;
  }

  // The difference as a tree.
  RepTreeRootSType& differenceTree(const RepTreeRootSType& a, const RepTreeRootSType& b) {
    TreeSnapshot snapshotA(host, a);
    TreeSnapshot snapshotB(host, b);
    RepTreeRootSType& result = newTree();
    BmDiff(&host, &a, &b, &result);
    snapshotA.expectUnchanged();
    snapshotB.expectUnchanged();
    EXPECT_EQ(host.pinsHeld(), 0);
    return result;
  }

  void expectWholeDifference(const RepTreeRootSType& a, const RepTreeRootSType& b, const Bits& expected) {
    EXPECT_EQ(difference(a, b, expected.size() + 1), expected);
    expectSound(differenceTree(a, b), asSet(expected));
  }

  // The difference in every form, whole and in pages of any limit up to its size.
  void expectDifference(const RepTreeRootSType& a, const RepTreeRootSType& b, const Bits& expected) {
    expectWholeDifference(a, b, expected);
    for (unsigned long limit = 1; limit <= expected.size(); ++limit) expectPages(a, b, limit, expected);
  }

  void expectPages(const RepTreeRootSType& a, const RepTreeRootSType& b, unsigned long limit, const Bits& expected) {
    Bits all;
    unsigned long start = 0;
    for (Bits page = difference(a, b, limit, start);; page = difference(a, b, limit, start)) {
      all.insert(all.end(), page.begin(), page.end());
      if (page.size() < limit) break;
      start = page.back() + 1;
    }
    EXPECT_EQ(all, expected) << "in pages of " << limit;
  }

  RepTreeRootSType& emptyTree() { return newTree(BM_PAGE_TREE); }
};
BMTREE_FOR_ALL_KINDS(DifferenceTest);

TEST_P(DifferenceTest, ListAgainstList) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2, 5, 8, 9, span(1), span(5)})});
  expectDifference(a, built(BM_PAGE_TREE, Leaves{listLeaf(0, {2, 3, 8}), listLeaf(span(1), {span(1), span(2)})}),
                   {1, 5, 9, span(5)});
  expectDifference(a, built(BM_HEAP_TREE, listLeaf(0, {1, 9, span(5)})), {2, 5, 8, span(1)});
  expectDifference(a, built(BM_PAGE_TREE, listLeaf(0, {topBit})), {1, 2, 5, 8, 9, span(1), span(5)});
}

TEST_P(DifferenceTest, ListAgainstDense) {
  const RepTreeRootSType& a =
      built(Leaves{listLeaf(0, {1, span(1), span(1) + 9, span(2) - 1, span(2), span(3) + 1})});
  expectDifference(
      a, built(BM_PAGE_TREE, Leaves{denseLeaf(span(1), {span(1), span(2) - 1}), denseLeaf(span(3), {span(3)}, 1)}),
      {1, span(1) + 9, span(2), span(3) + 1});
}

TEST_P(DifferenceTest, DenseAgainstList) {
  const RepTreeRootSType& a = built(
      Leaves{denseLeaf(span(1), {span(1), span(1) + 64, span(2) - 1}), denseLeaf(span(2), {span(2), span(2) + 5})});
  expectDifference(a, built(BM_PAGE_TREE, Leaves{listLeaf(0, {1, span(1) + 64, span(2), span(4)})}),
                   {span(1), span(2) - 1, span(2) + 5});
}

TEST_P(DifferenceTest, DenseAgainstDense) {
  const RepTreeRootSType& a = built(
      Leaves{denseLeaf(span(1), {span(1), span(1) + 64, span(2) - 1}), denseLeaf(span(3), {span(3), span(3) + 5})});
  expectDifference(a,
                   built(BM_PAGE_TREE, Leaves{denseLeaf(span(1), {span(1) + 64, span(1) + 65}),
                                              denseLeaf(span(2), {span(2)}), denseLeaf(span(3), {span(3)})}),
                   {span(1), span(2) - 1, span(3) + 5});
}

TEST_P(DifferenceTest, AnEmptyBGivesAllOfA) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})});
  expectDifference(a, emptyTree(), {1, 2, span(1)});
}

TEST_P(DifferenceTest, ABWithoutALeafGivesAllOfA) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})});
  expectDifference(a, built(BM_PAGE_TREE, Leaves{}), {1, 2, span(1)});
}

TEST_P(DifferenceTest, AnEmptyAGivesNothing) {
  const RepTreeRootSType& b = built(BM_PAGE_TREE, listLeaf(0, {1}));
  EXPECT_EQ(difference(newTree(), b, 9), Bits{});
  EXPECT_EQ(difference(built(Leaves{}), b, 9), Bits{});
  EXPECT_EQ(differenceTree(newTree(), b).root, 0u);
  EXPECT_EQ(differenceTree(built(Leaves{}), b).root, 0u);
}

TEST_P(DifferenceTest, ABThatCoversAWhollyGivesNothing) {
  const Groups groups{{listLeaf(0, {1, 2})}, {denseLeaf(span(3), {span(3)}), listLeaf(span(4), {span(4)})}};
  const RepTreeRootSType& a = built(groups);
  expectDifference(a, built(BM_PAGE_TREE, groups), {});
  expectDifference(a, a, {});
}

TEST_P(DifferenceTest, LeavesInEachOthersGapsComeOutWholeOrArePassedOver) {
  const RepTreeRootSType& a = built(
      Leaves{denseLeaf(span(1), {span(1)}), denseLeaf(span(5), {span(5)}), listLeaf(span(9), {span(9), span(12)})});
  const RepTreeRootSType& b =
      built(BM_PAGE_TREE, Leaves{denseLeaf(0, {1}), denseLeaf(span(3), {span(3)}), denseLeaf(span(7), {span(7)})});
  expectDifference(a, b, {span(1), span(5), span(9), span(12)});
}

TEST_P(DifferenceTest, LeavesWithoutBitsAreFinishedAtOnce) {
  const RepTreeRootSType& a = built(Leaves{denseLeaf(0, {}, 1), listLeaf(span(1), {}, 9),
                                           denseLeaf(span(2), {span(2)}), listLeaf(span(3), {span(3)})});
  expectDifference(
      a, built(BM_PAGE_TREE, Leaves{listLeaf(0, {}, 2043), denseLeaf(span(2), {}, 1), listLeaf(span(3), {}, 5)}),
      {span(2), span(3)});
  InlineTree inlined;
  expectDifference(a, *inlined.root(), {span(2), span(3)});
}

TEST_P(DifferenceTest, InlineListsStandOnEitherSide) {
  InlineTree inlined({1, 2, span(3)}, 9);
  const RepTreeRootSType& tree = built(Leaves{listLeaf(0, {2, 3}), denseLeaf(span(3), {span(3), span(3) + 1})});
  expectDifference(*inlined.root(), tree, {1});
  expectDifference(tree, *inlined.root(), {3, span(3) + 1});
}

TEST_P(DifferenceTest, ADenseRootHoldsTheFirstSpanOnly) {
  const RepTreeRootSType& root = built(denseLeaf(0, {1, 130751}));
  const RepTreeRootSType& tree = built(BM_PAGE_TREE, Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1) + 1})});
  expectWholeDifference(root, tree, {130751});
  expectDifference(tree, root, {span(1) + 1});
  expectDifference(built(listLeaf(0, {1, 2, 130753})), root, {2, 130753});
  expectWholeDifference(root, built(BM_PAGE_TREE, listLeaf(0, {2, 130751, 130753})), {1});
}

TEST_P(DifferenceTest, ADenseRootBelowTheStartGivesItsUpperPart) {
  const RepTreeRootSType& root = built(denseLeaf(0, {1, 20, 130751}));
  EXPECT_EQ(difference(root, built(BM_PAGE_TREE, listLeaf(0, {20})), 9, span(4) + 10), (Bits{20, 130751}));
}

TEST_P(DifferenceTest, ALimitOfZeroWritesNothing) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})});
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, listLeaf(0, {5})), 0), Bits{});
  EXPECT_EQ(difference(a, emptyTree(), 0), Bits{});
}

TEST_P(DifferenceTest, AHugeLimitIsNoLimit) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2})});
  uint64_t bits[8];
  const RepTreeRootSType& b = built(BM_PAGE_TREE, listLeaf(0, {2}));
  EXPECT_EQ(BmDifference_(&host, &a, &b, ~0UL, bits), 1u);
  EXPECT_EQ(BmDifference_(&host, &a, &emptyTree(), ~0UL, bits), 2u);
}

TEST_P(DifferenceTest, ALimitMetAtTheEndOfALeafResumesWithoutGapOrRepeat) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1), span(2) - 1}),
                                           denseLeaf(span(2), {span(2)}), listLeaf(span(3), {span(3)})});
  const RepTreeRootSType& b = built(BM_PAGE_TREE, listLeaf(0, {7}));
  EXPECT_EQ(difference(a, b, 2), (Bits{1, 2}));
  EXPECT_EQ(difference(a, b, 2, 3), (Bits{span(1), span(2) - 1}));
  EXPECT_EQ(difference(a, b, 2, span(2)), (Bits{span(2), span(3)}));
  EXPECT_EQ(difference(a, b, 2, span(3) + 1), Bits{});
}

TEST_P(DifferenceTest, AStartAboveEveryBitGivesNothing) {
  const RepTreeRootSType& a = built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})});
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, listLeaf(0, {7})), 9, span(1) + 1), Bits{});
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, listLeaf(0, {7})), 9, topBit), Bits{});
  EXPECT_EQ(difference(a, emptyTree(), 9, span(2)), Bits{});
}

TEST_P(DifferenceTest, AStartInsideALeafGuardsEveryPair) {
  const RepTreeRootSType& lists = built(Leaves{listLeaf(0, {1, 5, 9})});
  const RepTreeRootSType& denses = built(Leaves{denseLeaf(0, {1, 5, 9})});
  for (const RepTreeRootSType* a : {&lists, &denses}) {
    for (const RepTreeRootSType* b :
         {&built(BM_PAGE_TREE, Leaves{listLeaf(0, {1, 3, 5})}), &built(BM_PAGE_TREE, Leaves{denseLeaf(0, {5})})}) {
      EXPECT_EQ(difference(*a, *b, 9, 5), Bits{9});
      EXPECT_EQ(difference(*a, *b, 9, 10), Bits{});
    }
    EXPECT_EQ(difference(*a, built(BM_PAGE_TREE, Leaves{listLeaf(span(4), {span(4)})}), 9, 5), (Bits{5, 9}));
  }
}

TEST_P(DifferenceTest, ADenseLeafBelowTheStartOfALevelTwoTreeGivesItsUpperPart) {
  const RepTreeRootSType& a = built(Groups{{denseLeaf(span(1), {span(1) + 3, span(1) + 40, span(1) + 50}),
                                            denseLeaf(span(2), {span(2) + 10, span(2) + 40})}});
  const unsigned long start = span(2) + 20;  // 20 within the leaf below, too
  const Bits upperParts{span(1) + 40, span(1) + 50, span(2) + 40};
  // taken whole; then against a list, whose entries below the start are out of sight
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, listLeaf(0, {span(5)})), 9, start), upperParts);
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, Leaves{listLeaf(0, {span(1) + 40, span(5)})}), 9, start), upperParts);
  // against a dense leaf each bit is tested, and so is every list
  const RepTreeRootSType& denseB =
      built(BM_PAGE_TREE, Groups{{denseLeaf(span(1), {span(1)}), denseLeaf(span(2), {span(2)})}});
  EXPECT_EQ(difference(a, denseB, 9, start), Bits{span(2) + 40});
  const RepTreeRootSType& listA = built(Groups{{listLeaf(0, {3, 40}), denseLeaf(span(2), {span(2) + 40})}});
  EXPECT_EQ(difference(listA, denseB, 9, start), Bits{span(2) + 40});
  EXPECT_EQ(difference(listA, built(BM_PAGE_TREE, listLeaf(0, {span(5)})), 9, start), Bits{span(2) + 40});
}

TEST_P(DifferenceTest, AStartPastTheLastDenseLeafOfALevelOnePageMissesWhenBHasNothing) {
  const RepTreeRootSType& a =
      built(Groups{{denseLeaf(0, {1}), denseLeaf(span(1), {span(2) - 1})}, {denseLeaf(span(7), {span(7)})}});
  EXPECT_EQ(difference(a, emptyTree(), 9, span(2)), Bits{});
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, Leaves{denseLeaf(0, {5})}), 9, span(2)), Bits{});
  EXPECT_EQ(difference(a, built(BM_PAGE_TREE, listLeaf(0, {5})), 9, span(2)).back(), span(7));
}

TEST_P(DifferenceTest, AnInlineListComesOutFromItsBeginningWhenBHasNothing) {
  InlineTree inlined({1, 2, 3}, 9);
  EXPECT_EQ(difference(*inlined.root(), emptyTree(), 9, 2), (Bits{1, 2, 3}));
  EXPECT_EQ(difference(*inlined.root(), built(BM_PAGE_TREE, listLeaf(0, {7})), 9, 2), (Bits{2, 3}));
}

TEST_P(DifferenceTest, LongListsAreSearchedAndLikeOnesMerged) {
  Random random(testSeed());
  for (const auto& [ofA, ofB] :
       {std::pair{2043, 3}, {3, 2043}, {2043, 2043}, {100, 2000}, {127, 2043}, {2043, 120}}) {
    const BitSet bitsA = asSet(randomBits(random, static_cast<size_t>(ofA), 0, 4000));
    BitSet bitsB = asSet(randomBits(random, static_cast<size_t>(ofB), 0, 4000));
    const RepTreeRootSType& a = built(Leaves{listLeaf(0, asVector(bitsA))});
    const RepTreeRootSType& b = built(BM_PAGE_TREE, Leaves{listLeaf(0, asVector(bitsB))});
    const Bits expected = asVector(differenceOf(bitsA, bitsB));
    EXPECT_EQ(difference(a, b, 4000), expected);
    for (const unsigned long limit : {1UL, 7UL, 100UL}) expectPages(a, b, limit, expected);
  }
}

TEST_P(DifferenceTest, ADiskBIsExpanded) {
  const DiskTreeRootSType b = diskRootOf(built(BM_PAGE_TREE, Leaves{listLeaf(0, {2})}));
  const RepTreeRootSType& a = built(listLeaf(0, {1, 2}));
  uint64_t bits[4];
  EXPECT_EQ(BmDifference_(&host, &a, &b, 4, bits), 1u);
  EXPECT_EQ(bits[0], 1u);
  if (isHeap()) return;
  const DiskTreeRootSType diskA = diskRootOf(a);
  RepTreeRootSType& result = newTree();
  BmDiff(&host, &diskA, &b, &result);
  expectSound(result, {1});
}

TEST_P(DifferenceTest, AResultThatIsNotEmptyIsOverwrittenByTheCopy) {
  RepTreeRootSType& result = built(listLeaf(0, {7}));
  const RepTreeRootSType& earlier = adopt(result);
  BmDiff(&host, &built(listLeaf(0, {1})), &emptyTree(), &result);
  expectSound(result, {1});
  expectSound(earlier, {7});
  RepTreeRootSType& kept = built(listLeaf(0, {7}));
  BmDiff(&host, &newTree(), &built(BM_PAGE_TREE, listLeaf(0, {1})), &kept);
  expectSound(kept, {7});
}

TEST_P(DifferenceTest, AnEmptyBCopiesAnEmptyA) {
  RepTreeRootSType& result = newTree();
  result.level = 1;
  BmDiff(&host, &newTree(), &emptyTree(), &result);
  EXPECT_EQ(result.root, 0u);
  EXPECT_EQ(result.level, 0);
}

TEST_P(DifferenceTest, ADenseRestOfMoreThanAListHoldsBecomesADenseLeaf) {
  const Bits run = runOfBits(span(1), span(1) + 3000);
  const RepTreeRootSType& a = built(Leaves{denseLeaf(span(1), run)});
  EXPECT_EQ(shapeOf(differenceTree(a, built(BM_PAGE_TREE, Leaves{denseLeaf(span(1), {span(1)})}))), "[1 dense 2999]");
  EXPECT_EQ(shapeOf(differenceTree(a, built(BM_PAGE_TREE, listLeaf(0, {span(1), span(2)})))), "[1 dense 2999]");
  EXPECT_EQ(shapeOf(differenceTree(a, built(BM_PAGE_TREE, listLeaf(0, {span(2)})))), "[1 dense 3000]");
  const RepTreeRootSType& few = built(BM_PAGE_TREE, Leaves{denseLeaf(span(1), runOfBits(span(1), span(1) + 957))});
  EXPECT_EQ(shapeOf(differenceTree(a, few)), "list 2043@0");
}

TEST_P(DifferenceTest, OutOfPagesTheResultHoldsBitsOfTheDifferenceOnly) {
  if (isHeap()) return;
  const RepTreeRootSType& a =
      built(BM_HEAP_TREE,
            Leaves{denseLeaf(0, runOfBits(0, 4000)), listLeaf(span(2), {span(2)}), denseLeaf(span(5), {span(5)})});
  const RepTreeRootSType& b = built(BM_HEAP_TREE, listLeaf(0, {5}));
  const BitSet whole = asSet(difference(a, b, 5000));
  for (long budget = 0; budget < 5; ++budget) {
    RepTreeRootSType& result = newTree();
    host.setPageBudget(budget);
    BmDiff(&host, &a, &b, &result);
    host.setPageBudget(-1);
    const BitSet bits = asSet(bitsOf(result));
    expectSound(result, bits);
    EXPECT_EQ(differenceOf(bits, whole), BitSet{});
    EXPECT_TRUE(budget < 4 || bits == whole);
  }
}

TEST_P(DifferenceTest, ALeafOfAnotherKindIsReportedAndCountsAsEmpty) {
  const RepTreeRootSType& a = built(Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  const RepTreeRootSType& b = built(BM_HEAP_TREE, listLeaf(0, {5}));
  putU8(leafBytes(a, 0), at::pageKind, 4);
  uint64_t bits[4] = {};
  expectLeafFault(5741, a, [&] { EXPECT_EQ(BmDifference_(&host, &a, &b, 4, bits), 1u); });
  EXPECT_EQ(bits[0], span(1));
  RepTreeRootSType& result = newTree();
  expectLeafFault(5741, a, [&] { BmDiff(&host, &a, &b, &result); });
  expectSound(result, {span(1)});
  putU8(leafBytes(a, 0), at::pageKind, 8);
}

TEST_P(DifferenceTest, ABrokenLeafThatIsTakenWholeFailsAGuaranteeToo) {
  const RepTreeRootSType& a = built(Leaves{denseLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  const RepTreeRootSType& b = built(BM_HEAP_TREE, Leaves{denseLeaf(span(1), {span(1)})});
  putU8(leafBytes(a, 0), at::pageKind, 4);
  ::testing::internal::CaptureStderr();
  ::testing::internal::CaptureStdout();
  uint64_t bits[4];
  RepTreeRootSType& result = newTree();
  EXPECT_EQ(BmDifference_(&host, &a, &b, 4, bits), 0u);
  BmDiff(&host, &a, &b, &result);
  ::testing::internal::GetCapturedStdout();
  ::testing::internal::GetCapturedStderr();
  std::vector<int> lines;
  for (const Report& report : host.takeReports()) lines.push_back(report.line);
  const int fault = isHeap() ? 970 : 920;
  EXPECT_EQ(lines, (std::vector<int>{fault, 6502, fault, 6545}));
  EXPECT_EQ(result.root, 0u);
  putU8(leafBytes(a, 0), at::pageKind, 8);
}

}  // namespace
