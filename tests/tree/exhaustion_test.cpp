// Running out of pages: each scenario with 0, 1, 2, ... pages on a fresh tree until none is refused. At every budget
// the tree is sound, holds what it held and what the result claims, and no page has leaked.
#include "tree/leafcreation.h"
#include "tree/writetest.h"

namespace {

struct StampedKind {
  BmTreeKindEType kind;
  bool currentStamp;
};

std::string stampedKindName(const ::testing::TestParamInfo<StampedKind>& info) {
  const std::string name = treeKindName({info.param.kind, 0});
  return info.param.kind == BM_CAREFUL_TREE ? name + (info.param.currentStamp ? "Current" : "Old") : name;
}

// The pages that a scenario needs in a page tree, in a careful tree of the current stamp and in one of an older
// stamp.
struct Needs {
  long pages;
  long carefulOld;
};

class ExhaustionTest : public TreeFixture, public ::testing::WithParamInterface<StampedKind> {
 protected:
  RepTreeRootSType build(const LeafSpec& leaf) { return buildTree(host, GetParam().kind, leaf, options()); }
  RepTreeRootSType build(const Leaves& leaves) { return buildTree(host, GetParam().kind, leaves, options()); }
  RepTreeRootSType build(const Groups& groups) { return buildTree(host, GetParam().kind, groups, options()); }

  // Runs `operate` on a tree from `make` with 0, 1, 2, ... pages. `operate` returns the bits that its result claims
  // to have added, or removed.
  template <class Make, class Operate>
  void exhaust(Make make, const Needs& needs, Operate operate) {
    const bool old = GetParam().kind == BM_CAREFUL_TREE && !GetParam().currentStamp;
    for (long budget = 0;; ++budget) {
      ASSERT_LT(budget, 60);
      if (attempt(make, budget, operate)) {
        EXPECT_EQ(budget, old ? needs.carefulOld : needs.pages);
        return;
      }
      if (HasFailure()) {
        ADD_FAILURE() << "with " << budget << " pages";
        return;
      }
    }
  }

  // The scenario of one bit that is not set yet.
  template <class Make>
  void exhaustSet(Make make, uint64_t bit, const Needs& needs) {
    exhaust(make, needs, [&](RepTreeRootSType& tree, BitSet* model) {
      EXPECT_EQ(BmSetBit(&host, &tree, bit), 0);
      if (BmTestBit(&host, &tree, bit) == 1) model->insert(bit);
    });
    EXPECT_TRUE(lastModel.count(bit) == 1) << "with enough pages the bit is set";
  }

  BitSet lastModel;
  bool mayReport = false;  // a split that finds no page for a sibling reports it

 private:
  BuildOptions options() const { return {.currentStamp = GetParam().currentStamp}; }

  // Whether no page was refused.
  template <class Make, class Operate>
  bool attempt(Make make, long budget, Operate operate) {
    RepTreeRootSType& tree = adopt(make());
    const std::vector<uint64_t> before = bitsOf(tree);
    BitSet model(before.begin(), before.end());
    host.setPageBudget(budget);
    const uint64_t refused = host.count(EventKind::newPageRefused);
    operate(tree, &model);
    host.setPageBudget(-1);
    const bool enough = host.count(EventKind::newPageRefused) == refused;
    expectReportsOfScarcity(enough);
    expectSound(tree, model);
    expectCarefulSets();
    expectNoLeak(tree);
    if (enough) lastModel = model;
    BmDisposeTree(&host, &tree);
    return enough;
  }

  void expectReportsOfScarcity(bool enough) {
    const std::vector<Report> reports = host.takeReports();
    EXPECT_LE(reports.size(), mayReport && !enough ? 1u : 0u);
    for (const Report& report : reports) EXPECT_EQ(report.toString().substr(0, 17), "guarantee bitmap:");
  }

  // Every page is the tree's, or an older one that was displaced, by this attempt or one before.
  void expectNoLeak(const RepTreeRootSType& tree) {
    EXPECT_EQ(host.livePages().size(), pagesOf(host, tree).size() + bitsOf(host.obsoleteCarefulBm).size());
  }
};
INSTANTIATE_TEST_SUITE_P(Kinds, ExhaustionTest,
                         ::testing::Values(StampedKind{BM_PAGE_TREE, true}, StampedKind{BM_SHARED_PAGE_TREE, true},
                                           StampedKind{BM_CAREFUL_TREE, true}, StampedKind{BM_CAREFUL_TREE, false}),
                         stampedKindName);

// Dense leaves of one bit, one per `stride` spans from span `first` on.
Leaves denseRow(uint64_t first, size_t count, uint64_t stride = 1) {
  Leaves leaves;
  for (uint64_t i = 0; i < count; ++i) {
    leaves.push_back(denseLeaf(span(first + i * stride), {span(first + i * stride)}));
  }
  return leaves;
}

std::vector<uint64_t> fullOf(uint64_t firstSpan, size_t inFirst, uint64_t secondSpan) {
  return steps(span(firstSpan), inFirst) + steps(span(secondSpan), 2043 - inFirst);
}

// ---------------------------------------------------------------------------------------------------------
// First pages and new leaves

TEST_P(ExhaustionTest, TheFirstPage) {
  exhaustSet([&] { return RepTreeRootSType(0, GetParam().kind); }, 7, {1, 1});
}

TEST_P(ExhaustionTest, ANewLeaf) {
  exhaustSet([&] { return build(denseRow(4, 2, 9)); }, span(6), {1, 2});
}

TEST_P(ExhaustionTest, ANewLeafBelowALevel2Root) {
  exhaustSet([&] { return build(Groups{denseRow(4, 2, 9), denseRow(90, 1)}); }, span(6), {1, 3});
}

TEST_P(ExhaustionTest, ANewFirstLeaf) {
  exhaustSet([&] { return build(denseRow(4, 2)); }, span(2), {1, 2});
}

TEST_P(ExhaustionTest, ANewFirstLeafBelowALevel2Root) {
  exhaustSet([&] { return build(Groups{denseRow(4, 2), denseRow(90, 1)}); }, span(2), {1, 3});
}

TEST_P(ExhaustionTest, ANewDenseLeafThatStays) {
  const auto make = [&] {
    RepTreeRootSType tree = build(denseRow(4, 2));
    tree.denseLeaves = 1;
    return tree;
  };
  exhaustSet(make, span(9), {1, 2});
}

// ---------------------------------------------------------------------------------------------------------
// Shadows

TEST_P(ExhaustionTest, EachLevelOfAShadow) {
  exhaustSet([&] { return build(listLeaf(0, {5})); }, 6, {0, 1});
  exhaustSet([&] { return build(Leaves{listLeaf(0, {5})}); }, 6, {0, 2});
  exhaustSet([&] { return build(Groups{{listLeaf(0, {5})}}); }, 6, {0, 3});
  exhaustSet([&] { return build(Groups{denseRow(0, 2), denseRow(9, 2)}); }, span(10) + 1, {0, 3});
}

TEST_P(ExhaustionTest, EachLevelOfAShadowForARemoval) {
  const auto removeBit = [&](RepTreeRootSType& tree, BitSet* model) {
    if (BmClearBit(&host, &tree, span(9)) == 1) model->erase(span(9));
  };
  exhaust([&] { return build(listLeaf(0, {span(9)})); }, {0, 1}, removeBit);
  exhaust([&] { return build(Leaves{listLeaf(0, {span(9)})}); }, {0, 2}, removeBit);
  exhaust([&] { return build(Groups{denseRow(0, 2), denseRow(9, 2)}); }, {0, 3}, removeBit);
  exhaust([&] { return build(Groups{denseRow(0, 2), denseRow(9, 1)}); }, {0, 3}, removeBit);
  exhaust([&] { return build(Groups{denseRow(9, 1)}); }, {0, 3}, removeBit);
}

// ---------------------------------------------------------------------------------------------------------
// Conversions

TEST_P(ExhaustionTest, AFullRootListThatGoesDense) {
  exhaustSet([&] { return build(listLeaf(0, steps(span(3), 2043))); }, span(3) + 5000, {1, 2});
}

TEST_P(ExhaustionTest, AConversionWithEntriesOnBothSides) {
  const auto toDense = [&](RepTreeRootSType& tree, BitSet*) { locateOrCreateBmLeaf(&host, &tree, span(5)); };
  const std::vector<uint64_t> bits{span(1), span(3), span(5), span(5) + 1, span(7), span(9)};
  exhaust([&] { return build(listLeaf(0, bits)); }, {3, 4}, toDense);
  exhaust([&] { return build(Leaves{listLeaf(0, bits), denseLeaf(span(20), {})}); }, {2, 4}, toDense);
  exhaust([&] { return build(Groups{{denseLeaf(0, {0})}, {listLeaf(span(1), bits)}}); }, {2, 6}, toDense);
}

TEST_P(ExhaustionTest, AConversionWithLowEntriesForAFullListOnTheLeft) {
  const auto toDense = [&](RepTreeRootSType& tree, BitSet*) { locateOrCreateBmLeaf(&host, &tree, span(5)); };
  const Leaves leaves{listLeaf(0, steps(0, 2043)), listLeaf(span(2), {span(3), span(5), span(7)})};
  exhaust([&] { return build(leaves); }, {2, 5}, toDense);
}

TEST_P(ExhaustionTest, AConversionOnAFullLevel1Page) {
  const auto toDense = [&](RepTreeRootSType& tree, BitSet*) { locateOrCreateBmLeaf(&host, &tree, span(505)); };
  const auto make = [&] {
    Leaves leaves = denseRow(0, 500);
    leaves.push_back(listLeaf(span(500), {span(501), span(505), span(507)}));
    for (LeafSpec& leaf : denseRow(600, 520)) leaves.push_back(leaf);
    return build(leaves);
  };
  exhaust(make, {4, 6}, toDense);
}

TEST_P(ExhaustionTest, AConversionInATreeOfDenseLeaves) {
  const auto toDense = [&](RepTreeRootSType& tree, BitSet*) { locateOrCreateBmLeaf(&host, &tree, span(5)); };
  const auto make = [&] {
    RepTreeRootSType tree = build(Leaves{listLeaf(0, {span(1), span(3), span(5), span(7), span(9)})});
    tree.denseLeaves = 1;
    return tree;
  };
  exhaust(make, {4, 6}, toDense);
}

// ---------------------------------------------------------------------------------------------------------
// Splits of lists

TEST_P(ExhaustionTest, ALeafInFront) {
  exhaustSet([&] { return build(listLeaf(0, fullOf(5, 900, 6))); }, span(2), {2, 3});
  exhaustSet([&] { return build(Groups{denseRow(0, 1), {listLeaf(span(1), fullOf(5, 900, 6))}}); }, span(2), {1, 4});
}

TEST_P(ExhaustionTest, ALeafBehind) {
  exhaustSet([&] { return build(listLeaf(0, fullOf(5, 900, 6))); }, span(9), {2, 3});
  exhaustSet([&] { return build(Groups{denseRow(0, 1), {listLeaf(span(1), fullOf(5, 900, 6))}}); }, span(9), {1, 4});
}

TEST_P(ExhaustionTest, EntriesThatMoveToTheLeftNeighbour) {
  mayReport = true;
  exhaustSet(
      [&] {
        return build(Leaves{listLeaf(span(1), {span(1)}), listLeaf(span(5), fullOf(5, 900, 6))});
      },
      span(5) + 950, {0, 3});
}

TEST_P(ExhaustionTest, EntriesThatMoveToTheRightNeighbourInTheNextPage) {
  mayReport = true;
  exhaustSet(
      [&] {
        return build(Groups{{listLeaf(span(1), fullOf(5, 1143, 6))}, {listLeaf(span(9), {span(9)})}});
      },
      span(6) + 950, {0, 5});
}

TEST_P(ExhaustionTest, EntriesThatMoveToANewSibling) {
  mayReport = true;
  exhaustSet([&] { return build(Leaves{listLeaf(0, fullOf(5, 900, 6))}); }, span(5) + 950, {1, 3});
}

TEST_P(ExhaustionTest, EntriesThatMoveToDenseLeaves) {
  mayReport = true;
  const auto make = [&] {
    const std::vector<uint64_t> upper = steps(span(6), 500) + steps(span(8), 500) + steps(span(11), 143);
    RepTreeRootSType tree = build(Leaves{listLeaf(0, steps(span(5), 900) + upper)});
    tree.denseLeaves = 1;
    return tree;
  };
  exhaustSet(make, span(5) + 950, {3, 5});
}

// ---------------------------------------------------------------------------------------------------------
// Splits of level-1 pages

TEST_P(ExhaustionTest, GrowthToLevel2) {
  exhaustSet([&] { return build(denseRow(4, 1021, 2)); }, span(505), {3, 4});
}

TEST_P(ExhaustionTest, GrowthToLevel2ForALeafInFront) {
  const auto make = [&] {
    Leaves leaves = denseRow(0, 1020);
    leaves.push_back(listLeaf(span(1020), steps(span(1030), 2043)));
    return build(leaves);
  };
  exhaustSet(make, span(1025), {3, 5});
}

TEST_P(ExhaustionTest, GrowthToLevel2ForASibling) {
  mayReport = true;
  const auto make = [&] {
    Leaves leaves = denseRow(0, 1020);
    leaves.push_back(listLeaf(span(1020), fullOf(1020, 900, 1021)));
    return build(leaves);
  };
  exhaustSet(make, span(1020) + 950, {3, 5});
}

TEST_P(ExhaustionTest, ACutBelowALevel2Root) {
  exhaustSet([&] { return build(Groups{denseRow(4, 1021, 2)}); }, span(505), {2, 4});
}

TEST_P(ExhaustionTest, PairsThatGoToTheLeftPage) {
  exhaustSet([&] { return build(Groups{denseRow(0, 2), denseRow(4, 1021, 2)}); }, span(505), {1, 4});
}

TEST_P(ExhaustionTest, PairsThatGoToTheRightPage) {
  exhaustSet([&] { return build(Groups{denseRow(4, 1021, 2), denseRow(9000, 2)}); }, span(505), {1, 4});
}

TEST_P(ExhaustionTest, AFullFirstPageBelowANewFirstLeaf) {
  exhaustSet([&] { return build(Groups{denseRow(4, 1021, 2), denseRow(9000, 2)}); }, span(1), {1, 4});
}

// ---------------------------------------------------------------------------------------------------------
// A bulk set over all of it

TEST_P(ExhaustionTest, ABulkSetStoresTheBeginningOfItsArray) {
  mayReport = true;
  std::vector<uint64_t> bits =
      steps(3, 3000, 50) + steps(span(4), 2100, 2) + steps(span(9), 5) + steps(span(12), 900);
  const auto setAll = [&](RepTreeRootSType& tree, BitSet* model) {
    const size_t before = model->size();
    const unsigned long result = BmSetBitsFromSortedArray_(&host, &tree, bits.data(), bits.data() + bits.size());
    bool reached = true;
    for (const uint64_t bit : bits) {
      if (model->count(bit) == 1) continue;
      const bool is = BmTestBit(&host, &tree, bit) == 1;
      EXPECT_TRUE(!is || reached) << bit;
      reached = is;
      if (is) model->insert(bit);
    }
    EXPECT_TRUE(result == model->size() - before || result == 1) << result;
  };
  exhaust([&] { return RepTreeRootSType(0, GetParam().kind); }, {5, 5}, setAll);
  EXPECT_EQ(lastModel.size(), bits.size());
  exhaust([&] { return build(Leaves{listLeaf(0, {1}), denseLeaf(span(9), {span(9)})}); }, {3, 6}, setAll);
}

}  // namespace
