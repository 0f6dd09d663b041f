#include <gtest/gtest.h>

#include "query/randomtree.h"

namespace {

class TruncateTest : public TreeTest {
 protected:
  unsigned long truncate(RepTreeRootSType& root, unsigned long numBits) { return BmTruncate(&host, &root, numBits); }
};
BMTREE_FOR_ALL_KINDS(TruncateTest);

TEST_P(TruncateTest, AnEmptyTreeLosesNothing) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(truncate(root, 0), 0u);
  EXPECT_EQ(truncate(root, 5), 0u);
}

TEST_P(TruncateTest, KeepingNothingGivesEveryPageBack) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})}));
  EXPECT_EQ(truncate(root, 0), 3u);
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(root.level, 0);
}

TEST_P(TruncateTest, KeepingAsManyAsThereAreOrMoreTouchesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)})}));
  const uint64_t before = root.root;
  EXPECT_EQ(truncate(root, 3), 0u);
  EXPECT_EQ(truncate(root, 4), 0u);
  EXPECT_EQ(root.root, before);
  EXPECT_EQ(host.takeEvents({EventKind::dirty, EventKind::newPage, EventKind::heapAlloc}),
            std::vector<std::string>{});
}

TEST_P(TruncateTest, TheLowestBitsStay) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(),
                                           Groups{{denseLeaf(0, runOfBits(0, 3000)), denseLeaf(span(1), {}, 1)},
                                                  {listLeaf(span(4), {span(4), span(6)})}}));
  EXPECT_EQ(truncate(root, 3001), 1u);
  EXPECT_EQ(truncate(root, 2), 2999u);
  expectSound(root, {0, 1});
}

TEST_P(TruncateTest, AModelAgreesOverTreesOfAllShapes) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 40; ++round) {
    BitSet model;
    RepTreeRootSType& root = adopt(randomTree(host, kind(), static_cast<int>(random.below(3)), random, &model));
    const unsigned long kept = random.below(model.size() + 2);
    const unsigned long excess = model.size() - std::min<unsigned long>(kept, model.size());
    ASSERT_EQ(truncate(root, kept), excess);
    while (model.size() > kept) model.erase(std::prev(model.end()));
    expectSound(root, model);
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

class InlineTruncateTest : public TreeFixture {};

TEST_F(InlineTruncateTest, AnInlineListKeepsItsLowestBits) {
  InlineTree tree({3, 5, 9}, 4);
  EXPECT_EQ(BmTruncate(&host, tree.root(), 1), 2u);
  EXPECT_EQ(bitsOf(*tree.root()), std::vector<uint64_t>{3});
}

// Disposing of an inline list leaves it as it is, and so does this.
TEST_F(InlineTruncateTest, KeepingNothingOfAnInlineListCountsItsBitsAndLeavesThem) {
  InlineTree tree({3, 5, 9});
  EXPECT_EQ(BmTruncate(&host, tree.root(), 0), 3u);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{3, 5, 9}));
}

}  // namespace
