// Trees into records.
#include <gtest/gtest.h>

#include "compress/records.h"
#include "support/treemodel.h"

namespace {

constexpr uint64_t SPAN = BM_LEAF_BITS;
using Leaves = std::vector<LeafSpec>;

std::vector<uint64_t> run(uint64_t first, uint64_t count, uint64_t step = 1) {
  std::vector<uint64_t> bits;
  for (uint64_t i = 0; i < count; ++i) bits.push_back(first + i * step);
  return bits;
}

class ExtractionTest : public TreeTest {
 protected:
  // Packs from `path` into a fresh record of `bytes` bytes.
  int packInto(RecordBuffer& record, const RepTreeRootSType& root, BmPathSType& path) {
    LogComprResourcePackerType packer = record.packer();
    const int result = BmFindSetBitsNonDestructive(&host, &root, &path, &packer);
    EXPECT_EQ(packer.denseBody != 0, record.bodyWords() == -2044);
    return result;
  }

  // Carries `root` through records of `bytes` bytes into `target`. Returns how many records it took.
  int carry(const RepTreeRootSType& root, size_t bytes, RepTreeRootSType& target) {
    BmPathSType path{};
    for (int records = 1; records < 1000000; ++records) {
      RecordBuffer record(bytes);
      const int last = packInto(record, root, path);
      BmCheckResultSType check;
      EXPECT_EQ(BmCheckLogRec(record.raw(), record.bytes(), &check), 1) << check.sentence;
      EXPECT_EQ(BmSetBitsFromLogRec(&host, &target, record.rec()), static_cast<unsigned long>(record.numBits()));
      if (last != 0) return records;
    }
    ADD_FAILURE() << "the walk does not end";
    return 0;
  }

  void expectRoundTrip(const RepTreeRootSType& root, size_t bytes) {
    RepTreeRootSType& target = newTree();
    carry(root, bytes, target);
    EXPECT_EQ(bitsOf(target), bitsOf(root)) << bytes << " bytes";
    expectSound(target);
  }
};

TEST_P(ExtractionTest, AnEmptyTreeLeavesTheRecordUntouched) {
  RecordBuffer record(100);
  LogComprResourcePackerType packer;
  packer.recHdr = record.rec();
  BmPathSType path{};
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, &newTree(), &path, &packer), 1);
  for (size_t i = 0; i < record.bytes(); ++i) EXPECT_EQ(record.raw()[i], 0xA5);
}

TEST_P(ExtractionTest, ATreeThatFitsTakesOneCall) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {5, 6, 20000, BM_HIGHEST_BIT}, 3)));
  RecordBuffer record(200);
  BmPathSType path{};
  EXPECT_NE(packInto(record, root, path), 0);
  EXPECT_EQ(record.numBits(), 4);
  EXPECT_EQ(record.words(), (std::vector<uint16_t>{0x15, 0x5, 2, 19994, 0x3FC, 0xFFFF, 0xFFFF}));
  EXPECT_EQ(record.recSize(), 56);
  EXPECT_EQ(bitsOf(root).size(), 4U);
}

TEST_P(ExtractionTest, AFullRecordGivesZeroAndTheNextOneGoesOn) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 3, 4, 5})));
  RecordBuffer first(40 + 2 * 4);
  RecordBuffer second(40 + 2 * 12);
  BmPathSType path{};
  EXPECT_EQ(packInto(first, root, path), 0);
  EXPECT_EQ(first.numBits(), 2);
  EXPECT_EQ(path.levels[0].index, 2);
  EXPECT_NE(packInto(second, root, path), 0);
  EXPECT_EQ(second.words(), (std::vector<uint16_t>{3 << 2 | 1, 5, 5}));
}

TEST_P(ExtractionTest, ARecordFilledByTheLastBitEndsTheWalk) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {1, 2})));
  RecordBuffer record(40 + 2 * 4);
  BmPathSType path{};
  EXPECT_NE(packInto(record, root, path), 0);
  EXPECT_EQ(record.numBits(), 2);
}

TEST_P(ExtractionTest, AListFilledToItsEndLeavesTheWalkAtTheNextLeaf) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), listLeaf(SPAN, {SPAN})}));
  RecordBuffer record(40 + 2 * 4);
  BmPathSType path{};
  EXPECT_EQ(packInto(record, root, path), 0);
  EXPECT_EQ(path.levels[0].firstBit, SPAN);
  EXPECT_EQ(path.levels[0].index, 0);
}

TEST_P(ExtractionTest, EmptyLeavesAreSteppedOver) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(),
                      Leaves{denseLeaf(0, {}, 1), listLeaf(SPAN, {}), listLeaf(2 * SPAN, {2 * SPAN}),
                             denseLeaf(3 * SPAN, {}, 1), listLeaf(4 * SPAN, {})}));
  RecordBuffer record(100);
  BmPathSType path{};
  EXPECT_NE(packInto(record, root, path), 0);
  EXPECT_EQ(record.numBits(), 1);
}

TEST_P(ExtractionTest, AListWithNothingLeftAtThePositionIsSteppedOver) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), listLeaf(SPAN, {SPAN})}));
  RecordBuffer record(40 + 2 * 4);
  BmPathSType path{};
  path.valid = 1;
  path.depth = 1;
  EXPECT_EQ(packInto(record, root, path = BmPathSType{}), 0);
  BmPathSType stale{};
  unsigned long bits[2];
  EXPECT_EQ(BmFindSetBitsNonDestructive_(&host, 1, &root, &stale, bits), 1U);
  stale.levels[0].index = 2;
  RecordBuffer second(100);
  EXPECT_NE(packInto(second, root, stale), 0);
  EXPECT_EQ(second.numBits(), 1);
}

TEST_P(ExtractionTest, ALeafOf4086BitsGoesByDeltaAndOneOf4087AsAnImage) {
  for (const uint64_t count : {4086UL, 4087UL}) {
    RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(SPAN, run(SPAN, count))}));
    RecordBuffer record(40 + 16352);
    BmPathSType path{};
    EXPECT_NE(packInto(record, root, path), 0);
    EXPECT_EQ(record.numBits(), static_cast<int>(count));
    EXPECT_EQ(record.bodyWords(), count == 4087 ? -2044 : 2 + 4085);
  }
}

TEST_P(ExtractionTest, AFullDenseLeafIsARecordOfItsOwn) {
  RepTreeRootSType& root =
      adopt(buildTree(host, kind(), Leaves{denseLeaf(SPAN, run(SPAN, SPAN)), listLeaf(2 * SPAN, {3 * SPAN})}));
  RecordBuffer record(40 + 16352);
  BmPathSType path{};
  EXPECT_EQ(packInto(record, root, path), 0);
  EXPECT_EQ(record.recSize(), 16392);
  EXPECT_EQ(record.numBits(), BM_LEAF_BITS);
  EXPECT_EQ(rawU64(record.raw(), 40), SPAN);
  for (size_t i = 0; i < 2043; ++i) ASSERT_EQ(rawU64(record.raw(), 48 + 8 * i), ~uint64_t{0});
  RecordBuffer rest(100);
  EXPECT_NE(packInto(rest, root, path), 0);
  EXPECT_EQ(rest.numBits(), 1);
}

TEST_P(ExtractionTest, ADenseImageLeavesTheCursorWhereItIs) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, run(0, 5000))}));
  RecordBuffer record(40 + 16352);
  LogComprResourcePackerType packer = record.packer();
  BmPathSType path{};
  EXPECT_NE(BmFindSetBitsNonDestructive(&host, &root, &path, &packer), 0);
  EXPECT_EQ(packer.denseBody, 1);
  EXPECT_EQ(reinterpret_cast<unsigned char*>(packer.cursor), record.raw() + 40);
}

TEST_P(ExtractionTest, AFullDenseLeafBehindOtherBitsWaitsForTheNextRecord) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {7}), denseLeaf(SPAN, run(SPAN, SPAN))}));
  RecordBuffer first(40 + 16352);
  BmPathSType path{};
  EXPECT_EQ(packInto(first, root, path), 0);
  EXPECT_EQ(first.words(), std::vector<uint16_t>{7 << 2 | 1});
  EXPECT_EQ(first.numBits(), 1);
  RecordBuffer second(40 + 16352);
  EXPECT_NE(packInto(second, root, path), 0);
  EXPECT_EQ(second.numBits(), BM_LEAF_BITS);
}

TEST_P(ExtractionTest, ARecordWithoutRoomForTheImageGetsTheLeafByDelta) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, run(0, 5000))}));
  RecordBuffer small(40 + 16351);
  BmPathSType path{};
  EXPECT_NE(packInto(small, root, path), 0);
  EXPECT_EQ(small.bodyWords(), 5000);

  RepTreeRootSType& two = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {7}), denseLeaf(SPAN, run(SPAN, 5000))}));
  RecordBuffer shared(40 + 16351);
  path = BmPathSType{};
  EXPECT_NE(packInto(shared, two, path), 0);
  EXPECT_EQ(shared.numBits(), 5001);
}

TEST_P(ExtractionTest, ALeafEnteredBehindItsStartNeverGoesAsAnImage) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, run(0, 20000))}));
  RecordBuffer tiny(40 + 2 * 3);
  BmPathSType path{};
  EXPECT_EQ(packInto(tiny, root, path), 0);
  EXPECT_EQ(path.levels[0].index, 1);
  RecordBuffer large(40 + 16352);
  EXPECT_EQ(packInto(large, root, path), 0);
  EXPECT_EQ(large.numBits(), 8176 - 2);
}

TEST_P(ExtractionTest, ADenseLeafIsResumedOnePastTheBitJustPacked) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {0, 63, 64, 130750, 130751})}));
  BmPathSType path{};
  std::vector<int> positions;
  for (int last = 0; last == 0;) {
    RecordBuffer record(40 + 2 * 3);
    last = packInto(record, root, path);
    EXPECT_EQ(record.numBits(), 1);
    positions.push_back(path.levels[0].index);
  }
  EXPECT_EQ(positions, (std::vector<int>{1, 64, 65, 130751, 130752}));
}

TEST_P(ExtractionTest, ARecordThatEndsWithTheLastBitButBeforeTheEndOfTheLeafIsFollowedByAnEmptyOne) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {5})}));
  RecordBuffer record(40 + 2 * 3);
  BmPathSType path{};
  EXPECT_EQ(packInto(record, root, path), 0);
  EXPECT_EQ(path.levels[0].index, 6);
  RecordBuffer empty(40 + 2 * 3);
  EXPECT_NE(packInto(empty, root, path), 0);
  EXPECT_EQ(empty.numBits(), 0);
}

TEST_P(ExtractionTest, ARecordWithoutRoomTakesNothingAndIsNotOverrun) {
  RepTreeRootSType& list = adopt(buildTree(host, kind(), listLeaf(0, {1})));
  RepTreeRootSType& dense = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {1})}));
  for (const RepTreeRootSType* root : {&list, &dense}) {
    RecordBuffer record(40 + 2 * 2);
    BmPathSType path{};
    EXPECT_EQ(packInto(record, *root, path), 0);
    EXPECT_EQ(record.numBits(), 0);
    EXPECT_EQ(record.recSize(), 40);
  }
}

TEST_P(ExtractionTest, ARecordThatHoldsAnImageTakesNoMore) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, run(0, 5000)), listLeaf(SPAN, {SPAN})}));
  RecordBuffer record(40 + 16352);
  LogComprResourcePackerType packer = record.packer();
  BmPathSType path{};
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, &root, &path, &packer), 0);
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, &root, &path, &packer), 0);
  EXPECT_EQ(record.numBits(), 5000);
  EXPECT_EQ(record.bodyWords(), -2044);
}

TEST_P(ExtractionTest, APageOfAnotherKindIsReportedAndGivesZero) {
  RepTreeRootSType root = buildTree(host, kind(), Leaves{listLeaf(0, {1}), listLeaf(SPAN, {SPAN})});
  const uint64_t second = refsAtLevel(host, root, 0)[1];
  putU8(host.bytes(root, second), at::pageKind, 4);
  RecordBuffer record(100);
  BmPathSType path{};
  EXPECT_EQ(packInto(record, root, path), 0);
  const std::string line =
      isHeap() ? "guarantee bitmap:970"
               : "cache fault: page " + std::to_string(second) + " \"Bitmap page fault\" bitmap:920 with page";
  host.expectReports({line});
  putU8(host.bytes(root, second), at::pageKind, 12);
  adopt(root);
}

TEST_P(ExtractionTest, NothingIsDirtiedAndNoPinIsLeft) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{listLeaf(0, {7}), denseLeaf(SPAN, run(SPAN, 100))}));
  host.clearEvents();
  RecordBuffer record(1000);
  BmPathSType path{};
  packInto(record, root, path);
  EXPECT_EQ(host.takeEvents({EventKind::dirty, EventKind::newPage, EventKind::heapAlloc, EventKind::bufferAlloc}),
            std::vector<std::string>{});
  EXPECT_EQ(host.pinsHeld(), 0);
}

TEST_P(ExtractionTest, LeavesStayReadableWhenTheCacheMovesPages) {
  RepTreeRootSType& root = adopt(buildTree(
      host, kind(), {{listLeaf(0, {7}), denseLeaf(SPAN, run(SPAN, 100, 3))}, {listLeaf(5 * SPAN, {5 * SPAN + 1})}}));
  host.moveUnpinnedPages(1);
  RecordBuffer record(1000);
  BmPathSType path{};
  EXPECT_NE(packInto(record, root, path), 0);
  EXPECT_EQ(record.numBits(), 102);
  host.moveUnpinnedPages(0);
}

TEST_P(ExtractionTest, TreesOfEveryLevelSurviveRecordsOfEveryRoom) {
  const std::vector<RepTreeRootSType> trees{
      buildTree(host, kind(), listLeaf(0, run(3, 300, 40000000))),
      buildTree(host, kind(),
                Leaves{listLeaf(0, {1, 2, 90000}), denseLeaf(SPAN, run(SPAN + 5, 200, 7)),
                       listLeaf(3 * SPAN, run(3 * SPAN, 50, 1UL << 31))}),
      buildTree(host, kind(),
                {{listLeaf(0, {1}), denseLeaf(SPAN, run(SPAN, 100))},
                 {denseLeaf(9 * SPAN, {9 * SPAN + 130751}), listLeaf(20 * SPAN, {BM_HIGHEST_BIT})}})};
  for (const RepTreeRootSType& tree : trees) {
    const RepTreeRootSType& root = adopt(tree);
    for (size_t room = 3; room <= 24; ++room) expectRoundTrip(root, 40 + 2 * room);
    for (const size_t bytes : {100UL, 1000UL, 16391UL, 16392UL, 65535UL}) expectRoundTrip(root, bytes);
  }
}

TEST_P(ExtractionTest, DenseTreesSurviveRecordsAroundTheSizeOfAnImage) {
  const RepTreeRootSType& root = adopt(
      buildTree(host, kind(),
                Leaves{denseLeaf(0, run(0, 4086)), denseLeaf(SPAN, run(SPAN, 4087)), listLeaf(2 * SPAN, {2 * SPAN}),
                       denseLeaf(3 * SPAN, run(3 * SPAN, SPAN)), denseLeaf(4 * SPAN, run(4 * SPAN + 64, 60000, 2))}));
  for (const size_t bytes : {40UL + 6, 400UL, 16391UL, 16392UL, 16393UL, 20000UL, 65535UL})
    expectRoundTrip(root, bytes);
}

TEST_P(ExtractionTest, RandomTreesSurvive) {
  Random random(testSeed());
  for (int round = 0; round < 6; ++round) {
    RepTreeRootSType& root = newTree();
    for (int i = 0; i < 3000; ++i) {
      const uint64_t bit = random.below(BM_END_BIT) >> random.below(30);
      BmSetBit(&host, &root, bit);
    }
    const std::vector<uint64_t> dense = run(SPAN * 40 + 100, random.below(40000));
    BmSetBitsFromSortedArray_(&host, &root, dense.data(), dense.data() + dense.size());
    expectRoundTrip(root, 40 + 6 + random.below(20000));
  }
}

BMTREE_FOR_ALL_KINDS(ExtractionTest);

class InlineExtractionTest : public TreeFixture {};

TEST_F(InlineExtractionTest, AnInlineListIsPackedByPosition) {
  InlineTree tree({1, 2, 3, 4, 5}, 2);
  BmPathSType path{};
  RecordBuffer first(40 + 2 * 5);
  LogComprResourcePackerType packer = first.packer();
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, tree.root(), &path, &packer), 0);
  EXPECT_EQ(first.numBits(), 3);
  EXPECT_EQ(path.levels[0].index, 3);
  RecordBuffer second(40 + 2 * 5);
  packer = second.packer();
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, tree.root(), &path, &packer), 1);
  EXPECT_EQ(second.words(), (std::vector<uint16_t>{4 << 2 | 1, 5}));
}

TEST_F(InlineExtractionTest, AnInlineRootOfZeroIsEmpty) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  RecordBuffer record(100);
  LogComprResourcePackerType packer = record.packer();
  BmPathSType path{};
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, &root, &path, &packer), 1);
}

TEST_F(InlineExtractionTest, AnotherNegativeKindIsReported) {
  InlineTree tree({1});
  tree.root()->treeKind = -3;
  RecordBuffer record(100);
  LogComprResourcePackerType packer = record.packer();
  BmPathSType path{};
  EXPECT_EQ(BmFindSetBitsNonDestructive(&host, tree.root(), &path, &packer), 1);
  EXPECT_EQ(record.numBits(), 0);
  host.expectReports({"guarantee reposdisk:1196"});
}

}  // namespace
