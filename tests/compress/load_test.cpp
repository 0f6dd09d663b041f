// Records into trees.
#include <gtest/gtest.h>

#include "compress/records.h"
#include "support/treemodel.h"

namespace {

constexpr uint64_t SPAN = BM_LEAF_BITS;
using Leaves = std::vector<LeafSpec>;
using Words = std::vector<uint16_t>;

Words joined(std::initializer_list<Words> parts) {
  Words all;
  for (const Words& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class LoadTest : public TreeTest {
 protected:
  unsigned long load(RepTreeRootSType& root, RecordBuffer record) {
    return BmSetBitsFromLogRec(&host, &root, record.rec());
  }
};

TEST_P(LoadTest, ARecordWithoutBitsSetsNothingWhateverElseItSays) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfWords({0x15}, 0)), 0U);
  EXPECT_EQ(load(root, recordOfImage(1, {1}, 0)), 0U);
  EXPECT_EQ(root.root, 0U);
}

TEST_P(LoadTest, ItemsAreSetAndCountedOnce) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfWords({0x15, 0x5, 2, 0x4000}, 3)), 3U);
  expectSound(root, {5, 6, 16390});
  EXPECT_EQ(load(root, recordOfWords({0x15, 0x9}, 2)), 1U);
  expectSound(root, {5, 6, 7, 16390});
}

TEST_P(LoadTest, TheHeadsCountDoesNotLimitTheItems) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfWords({0x15, 0x5}, 1)), 2U);
  EXPECT_EQ(load(root, recordOfWords({0x25, 0x5}, -7)), 2U);
  expectSound(root, {5, 6, 9, 10});
}

TEST_P(LoadTest, RecordsOf4001ValuesAreAppliedInTwoBatches) {
  RepTreeRootSType& root = newTree();
  Words words(4001, 1 << 2 | 1);
  EXPECT_EQ(load(root, recordOfWords(words, 4001)), 4001U);
  BitSet model;
  for (uint64_t bit = 1; bit <= 4001; ++bit) model.insert(bit);
  expectSound(root, model);
}

TEST_P(LoadTest, AValueRepeatedByADeltaOfZeroIsSetOnce) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfWords({0x15, 0x1, 0x1, 0x5, 0x1}, 5)), 2U);
  expectSound(root, {5, 6});
}

TEST_P(LoadTest, AValueRepeatedAcrossTwoBatchesIsSetOnce) {
  RepTreeRootSType& root = newTree();
  Words words(4000, 1 << 2 | 1);
  words.insert(words.end(), {0x1, 0x1, 0x5});
  EXPECT_EQ(load(root, recordOfWords(words, 4003)), 4001U);
  EXPECT_EQ(bitsOf(root).size(), 4001U);
  expectSound(root);
}

TEST_P(LoadTest, AnAbsoluteStepDownLoadsAllBits) {
  RepTreeRootSType& root = newTree();
  const Words words = joined({absoluteItem(1UL << 35), {0x5}, absoluteItem(7), {0x5}, absoluteItem(SPAN * 3)});
  EXPECT_EQ(load(root, recordOfWords(words, 5)), 5U);
  expectSound(root, {7, 8, SPAN * 3, 1UL << 35, (1UL << 35) + 1});
}

TEST_P(LoadTest, ALoneValueBehindAStepDownIsSet) {
  RepTreeRootSType& root = newTree();
  Words words(3999, 1 << 2 | 1);
  words.push_back(0x4005);
  const Words low = absoluteItem(20000);
  words.insert(words.end(), low.begin(), low.end());
  const Words lower = absoluteItem(9000);
  words.insert(words.end(), lower.begin(), lower.end());
  EXPECT_EQ(load(root, recordOfWords(words, 4002)), 4002U);
  EXPECT_EQ(BmTestBit(&host, &root, 9000), 1);
  EXPECT_EQ(BmTestBit(&host, &root, 20000), 1);
  expectSound(root);
}

TEST_P(LoadTest, BatchesAfterAStepDownAreSortedToo) {
  RepTreeRootSType& root = newTree();
  Words words = joined({absoluteItem(100000), absoluteItem(1)});
  for (int i = 0; i < 9000; ++i) words.push_back(2 << 2 | 1);
  EXPECT_EQ(load(root, recordOfWords(words, 9002)), 9002U);
  expectSound(root);
  EXPECT_EQ(bitsOf(root).size(), 9002U);
}

TEST_P(LoadTest, AnIllegalTagIsReportedAndSetsBitZero) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfWords({0x0191, 0x0007, 0x0015}, 3)), 3U);
  host.expectReports({"guarantee logdisk:838"});
  expectSound(root, {0, 5, 100});
}

TEST_P(LoadTest, AnItemCutOffByTheEndIsReportedAndTheOthersAreSet) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfWords({0x15, 0x0002}, 2)), 1U);
  EXPECT_EQ(host.takeReports().size(), 1U);
  EXPECT_EQ(load(root, recordOfWords({0x25, 0x0000, 0x0001}, 2)), 1U);
  EXPECT_EQ(host.takeReports().size(), 1U);
  expectSound(root, {5, 9});
}

TEST_P(LoadTest, AnItemOf2To40OrAboveIsReportedAndNotSet) {
  RepTreeRootSType& root = newTree();
  const Words words =
      joined({{0x15}, absoluteItem(BM_HIGHEST_BIT), {0x5, 0x5}, absoluteItem(1UL << 45), absoluteItem(3)});
  EXPECT_EQ(load(root, recordOfWords(words, 6)), 3U);
  EXPECT_EQ(host.takeReports().size(), 3U);
  expectSound(root, {3, 5, BM_HIGHEST_BIT});
}

TEST_P(LoadTest, AnImageMakesItsLeaf) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfImage(SPAN, {SPAN, SPAN + 64, SPAN + 130751}, 3)), 3U);
  expectSound(root, {SPAN, SPAN + 64, SPAN + 130751});
  EXPECT_EQ(load(root, recordOfImage(SPAN, {SPAN, SPAN + 64, SPAN + 130751}, 3)), 0U);
  expectSound(root, {SPAN, SPAN + 64, SPAN + 130751});
}

TEST_P(LoadTest, AnImageIsMergedWithTheBitsOfItsLeaf) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1, 2, 64})}));
  EXPECT_EQ(load(root, recordOfImage(0, {2, 3, 64, 65, 999}, 5)), 3U);
  expectSound(root, {1, 2, 3, 64, 65, 999});
}

TEST_P(LoadTest, AnImageIsMergedWithAListThatOwnsItsSpan) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, SPAN + 7, 5 * SPAN})));
  EXPECT_EQ(load(root, recordOfImage(SPAN, {SPAN + 7, SPAN + 8}, 2)), 1U);
  expectSound(root, {1, SPAN + 7, SPAN + 8, 5 * SPAN});
}

TEST_P(LoadTest, AnImageIntoAKeptEmptyLeafTakesItsPlace) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {}, 1)}));
  EXPECT_EQ(load(root, recordOfImage(0, {4, 5}, 2)), 2U);
  expectSound(root, {4, 5});
}

TEST_P(LoadTest, TheCountOfAnImageIsTrusted) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfImage(0, {1, 2, 3}, 2)), 2U);
  EXPECT_EQ(BmFindNumBitsSet_(&host, &root), 2U);
  EXPECT_EQ(bitsOf(root).size(), 3U);
}

TEST_P(LoadTest, TheLastSpanTakesAnImageUpToTheHighestBit) {
  const uint64_t lastSpan = spanBase(BM_HIGHEST_BIT);
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfImage(lastSpan, {lastSpan, BM_HIGHEST_BIT}, 2)), 2U);
  expectSound(root, {lastSpan, BM_HIGHEST_BIT});
}

TEST_P(LoadTest, AnImageThatNoLeafCanHoldIsReportedAndSetsNothing) {
  const uint64_t lastSpan = spanBase(BM_HIGHEST_BIT);
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(load(root, recordOfImage(1, {1}, 1)), 0U);
  EXPECT_EQ(load(root, recordOfImage(SPAN + 64, {64}, 1)), 0U);
  EXPECT_EQ(load(root, recordOfImage(lastSpan + SPAN, {1}, 1)), 0U);
  EXPECT_EQ(load(root, recordOfImage(~uint64_t{0} / SPAN * SPAN, {1}, 1)), 0U);
  EXPECT_EQ(load(root, recordOfImage(lastSpan, {BM_HIGHEST_BIT + 1}, 1)), 0U);
  EXPECT_EQ(load(root, recordOfImage(0, {1}, -1)), 0U);
  EXPECT_EQ(load(root, recordOfImage(0, {1}, BM_LEAF_BITS + 1)), 0U);
  EXPECT_EQ(host.takeReports().size(), 7U);
  EXPECT_EQ(root.root, 0U);
}

TEST_P(LoadTest, AnyNegativeWordCountMeansAnImage) {
  RepTreeRootSType& root = newTree();
  RecordBuffer record = recordOfImage(0, {9}, 1);
  putU16(record.raw(), 22, 0xFFFF);
  EXPECT_EQ(BmSetBitsFromLogRec(&host, &root, record.rec()), 1U);
  expectSound(root, {9});
}

TEST_P(LoadTest, AnImageForWhichThereIsNoPageSetsNothing) {
  if (isHeap()) return;
  RepTreeRootSType& root = newTree();
  host.setPageBudget(0);
  EXPECT_EQ(load(root, recordOfImage(SPAN, {SPAN}, 1)), 0U);
  host.setPageBudget(-1);
  expectSound(root, {});
}

TEST_P(LoadTest, ALoadedLeafIsMarkedDirty) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1})}));
  host.watchDirtyMarks();
  load(root, recordOfImage(0, {2}, 1));
  host.expectChangesMarked();
  EXPECT_EQ(host.count(EventKind::dirty) > 0, !isHeap());
}

TEST_P(LoadTest, AnImageInACarefulTreeIsLoadedIntoAShadow) {
  if (!isCareful()) return;
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1})}));
  moveStampOn();
  EXPECT_EQ(load(root, recordOfImage(0, {2}, 1)), 1U);
  expectSound(root, {1, 2});
  expectOldPagesUnchanged();
  expectCarefulSets();
}

TEST_P(LoadTest, MutatedRecordsNeverHarmTheTree) {
  Random random(testSeed());
  host.logEvents(false);
  for (int round = 0; round < 1000; ++round) {
    RepTreeRootSType root(0, kind());
    RecordBuffer record(40 + 65536);  // room for whatever the head says
    LogComprResourcePackerType packer(record.rec(), 400);
    for (unsigned long bit = random.below(1000); packer.cursor < packer.limit - 2;
         bit += random.next() >> (30 + random.below(33))) {
      const unsigned long value = bit % BM_END_BIT;
      packer.addBits(&value, 1);
    }
    for (int i = 0; i < 4; ++i) {
      const size_t at = random.oneIn(3) ? 12 + random.below(12) : 40 + random.below(360);
      record.raw()[at] = static_cast<unsigned char>(random.next());
    }
    BmCheckResultSType check;
    const bool sound = BmCheckLogRec(record.raw(), record.bytes(), &check) == 1;
    BmSetBitsFromLogRec(&host, &root, record.rec());
    EXPECT_TRUE(!sound || host.reports().empty()) << host.reports().front().toString();
    const bool image = record.bodyWords() < 0;
    host.takeReports();
    if (!image) expectSound(root);
    BmDisposeTree(&host, &root);
  }
}

BMTREE_FOR_ALL_KINDS(LoadTest);

class InlineLoadTest : public TreeFixture {};

TEST_F(InlineLoadTest, ItemsGoIntoAnInlineList) {
  InlineTree tree({4}, 3);
  RecordBuffer record = recordOfWords({0x15, 0x5}, 2);
  EXPECT_EQ(BmSetBitsFromLogRec(&host, tree.root(), record.rec()), 2U);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{4, 5, 6}));
}

TEST_F(InlineLoadTest, AnImageForAnInlineListIsReportedAndSetsNothing) {
  InlineTree tree({4}, 3);
  RecordBuffer record = recordOfImage(0, {9}, 1);
  EXPECT_EQ(BmSetBitsFromLogRec(&host, tree.root(), record.rec()), 0U);
  EXPECT_EQ(host.takeReports().size(), 1U);
  EXPECT_EQ(bitsOf(*tree.root()), std::vector<uint64_t>{4});
}

}  // namespace
