#include <gtest/gtest.h>

#include <memory>

#include "query/randomtree.h"

namespace {

using Bits = std::vector<uint64_t>;

class BatchTest : public TreeTest {
 protected:
  std::unique_ptr<BmBufferType> batch(RepTreeRootSType& root, bool set) {
    return std::make_unique<BmBufferType>(&host, &root, set);
  }
};
BMTREE_FOR_ALL_KINDS(BatchTest);

TEST_P(BatchTest, FlushingAnEmptySettingBatchMakesNoTreeCall) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1})));
  batch(root, true)->flushImpl();
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
  expectSound(root, {1});
}

TEST_P(BatchTest, FlushingAnEmptyClearingBatchChangesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1})));
  const auto waiting = batch(root, false);
  waiting->flushImpl();
  EXPECT_EQ(waiting->netChange, 0);
  expectSound(root, {1});
}

TEST_P(BatchTest, ASingleBitIsSetOnce) {
  RepTreeRootSType& root = newTree();
  const auto waiting = batch(root, true);
  waiting->add(5);
  waiting->flushImpl();
  waiting->add(5);
  waiting->flushImpl();
  EXPECT_EQ(waiting->netChange, 1);
  expectSound(root, {5});
}

TEST_P(BatchTest, ASingleBitIsCleared) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {5, 6})));
  const auto waiting = batch(root, false);
  waiting->add(5);
  waiting->flushImpl();
  waiting->add(5);
  waiting->flushImpl();
  EXPECT_EQ(waiting->netChange, -1);
  expectSound(root, {6});
}

TEST_P(BatchTest, RepeatsCountOnce) {
  RepTreeRootSType& root = newTree();
  const auto setting = batch(root, true);
  for (const uint64_t bit : {9, 3, 9, 9, 0, 3, 0}) setting->add(bit);
  setting->flushImpl();
  EXPECT_EQ(setting->netChange, 3);
  expectSound(root, {0, 3, 9});
  const auto clearing = batch(root, false);
  for (const uint64_t bit : {9, 3, 9, 4}) clearing->add(bit);
  clearing->flushImpl();
  EXPECT_EQ(clearing->netChange, -2);
  expectSound(root, {0});
}

TEST_P(BatchTest, AFullBatchFlushesItself) {
  RepTreeRootSType& root = newTree();
  const auto waiting = batch(root, true);
  BitSet model;
  for (uint64_t i = 0; i < BmBufferType::capacity - 1; ++i) {
    waiting->add(span(5) - 40 * i);
    model.insert(span(5) - 40 * i);
  }
  EXPECT_EQ(root.root, 0u);
  waiting->add(7);
  model.insert(7);
  EXPECT_EQ(waiting->next, waiting->slots);
  EXPECT_EQ(waiting->netChange, 4000);
  expectSound(root, model);
}

TEST_P(BatchTest, AModelAgreesOnBitsThatComeAndGo) {
  Random random(testSeed());
  host.logEvents(false);
  RepTreeRootSType& root = newTree();
  BitSet model;
  for (int round = 0; round < 30; ++round) {
    const bool set = !random.oneIn(3);
    const auto waiting = batch(root, set);
    const auto before = static_cast<int64_t>(model.size());
    for (uint64_t i = random.below(9000); i > 0; --i) {
      const uint64_t bit = random.oneIn(3) ? random.below(20000) : random.below(span(6));
      waiting->add(bit);
      if (set) {
        model.insert(bit);
      } else {
        model.erase(bit);
      }
    }
    waiting->flushImpl();
    EXPECT_EQ(waiting->netChange, static_cast<int64_t>(model.size()) - before);
    expectSound(root, model);
  }
}

#ifndef NDEBUG
TEST(BatchDeathTest, ABatchThatEndsWithBitsWaitingStopsADebugBuild) {
  EXPECT_DEATH(
      {
        RepTreeRootSType root(0, BM_HEAP_TREE);
        BmBufferType waiting(nullptr, &root, true);
        waiting.add(5);
      },
      "next == slots");
}
#endif

}  // namespace
