// The editor of internal pages, on pages of a heap tree and of the page cache.
#include "tree/internalpage.h"

#include <cstring>

#include "bitmap.h"
#include "support/treemodel.h"

namespace {

using Pairs = std::vector<std::pair<uint64_t, uint64_t>>;  // key as stored, child

class InternalPageTest : public ::testing::TestWithParam<BmTreeKindEType> {
 protected:
  TestHost host;
  alignas(8) PageBytes bytes{};
  RepPageHdrSType* page = reinterpret_cast<RepPageHdrSType*>(bytes.data());
  BmIntPageRefCls editor = BmIntPageRefCls::of(GetParam(), page);

  // Fills the page with keys 10, 20, ... and children 1, 2, ...
  void fill(unsigned count, unsigned firstOffset) {
    std::vector<RawPair> pairs;
    for (unsigned i = 1; i <= count; ++i) pairs.push_back({10 * i, i});
    bytes = internalImage(1, pairs, static_cast<int>(firstOffset));
  }
  unsigned count() { return rawU16(bytes.data(), at::intCount); }
  unsigned firstOffset() { return rawU16(bytes.data(), at::intFirstOffset); }
  Pairs live() {
    Pairs pairs;
    for (size_t slot = firstOffset(); slot < firstOffset() + count(); ++slot) {
      pairs.emplace_back(rawU64(bytes.data(), at::key(slot)), rawU64(bytes.data(), at::child(slot)));
    }
    return pairs;
  }
  static Pairs numbered(unsigned count) {
    Pairs pairs;
    for (unsigned i = 1; i <= count; ++i) pairs.emplace_back(10 * i, i);
    return pairs;
  }
};
INSTANTIATE_TEST_SUITE_P(Kinds, InternalPageTest, ::testing::Values(BM_HEAP_TREE, BM_PAGE_TREE, BM_CAREFUL_TREE),
                         treeKindName);

TEST_P(InternalPageTest, ExactlyOnePageMemberIsSet) {
  const bool heap = GetParam() == BM_HEAP_TREE;
  EXPECT_EQ(editor.heapPage, heap ? page : nullptr);
  EXPECT_EQ(editor.cachedPage, heap ? nullptr : page);
  EXPECT_EQ(reinterpret_cast<unsigned char*>(editor.keyArea), bytes.data() + 32);
  EXPECT_EQ(reinterpret_cast<unsigned char*>(editor.children()), bytes.data() + 8216);
  static_assert(offsetof(BmIntPageRefCls, cachedPage) == 0 && offsetof(BmIntPageRefCls, heapPage) == 8);
  static_assert(offsetof(BmIntPageRefCls, keyArea) == 16 && sizeof(BmIntPageRefCls) == 24);
}

TEST_P(InternalPageTest, InitValuesEmptiesThePageSetsTheLevelAndZeroesTheReservedFields) {
  bytes.fill(0xEE);
  editor.init_values(2);
  EXPECT_EQ(rawU16(bytes.data(), 32), 0);
  EXPECT_EQ(rawU16(bytes.data(), 34), 0);
  EXPECT_EQ(rawU16(bytes.data(), 36), 2);
  EXPECT_EQ(rawU16(bytes.data(), 38), 0);
  EXPECT_EQ(rawU64(bytes.data(), 40), 0u);
  EXPECT_EQ(rawU8(bytes.data(), 31), 0xEE) << "the header stays";
  EXPECT_EQ(rawU8(bytes.data(), 48), 0xEE) << "the keys stay";
}

TEST_P(InternalPageTest, SetValueStoresTheLowBitOfTheTagInTheKey) {
  fill(3, 5);
  editor.set_value(1, 77, 130752, 1, 12345);
  EXPECT_EQ(live(), (Pairs{{10, 1}, {130753, 77}, {30, 3}}));
  editor.set_value(1, 78, 130752, 2, 0);
  EXPECT_EQ(live()[1], (std::pair<uint64_t, uint64_t>{130752, 78}));
  editor.set_value(2, 79, 261504, 3, -1);
  EXPECT_EQ(live()[2], (std::pair<uint64_t, uint64_t>{261505, 79}));
}

TEST_P(InternalPageTest, SetRawValueStoresTheKeyAsItIs) {
  fill(3, 5);
  editor.set_raw_value(0, 77, 130753);
  editor.set_raw_value(2, 78, 261504);
  EXPECT_EQ(live(), (Pairs{{130753, 77}, {20, 2}, {261504, 78}}));
}

TEST_P(InternalPageTest, ResetFirstOffsetSlidesTheLiveSlotsToSlotZero) {
  fill(4, 1017);
  editor.resetFirstOffset();
  EXPECT_EQ(firstOffset(), 0u);
  EXPECT_EQ(live(), numbered(4));
}

TEST_P(InternalPageTest, ResetFirstOffsetOfAPageWithoutAGapChangesNothing) {
  fill(4, 0);
  const PageBytes before = bytes;
  editor.resetFirstOffset();
  EXPECT_EQ(bytes, before);
}

// ---------------------------------------------------------------------------------------------------------
// Inserting

TEST_P(InternalPageTest, AnInsertAtTheEndMovesNothing) {
  fill(3, 5);
  PageBytes expected = bytes;
  putU16(expected.data(), at::intCount, 4);
  putU64(expected.data(), at::key(8), 41);
  putU64(expected.data(), at::child(8), 4);
  EXPECT_TRUE(editor.insert_value(3, 4, 40, 1));
  EXPECT_EQ(bytes, expected);
}

TEST_P(InternalPageTest, AnInsertMovesTheTailAndKeepsTheGap) {
  fill(3, 5);
  EXPECT_TRUE(editor.insert_value(0, 9, 4, 0));
  EXPECT_EQ(firstOffset(), 5u);
  EXPECT_EQ(live(), (Pairs{{4, 9}, {10, 1}, {20, 2}, {30, 3}}));
  EXPECT_TRUE(editor.insert_value(2, 8, 14, 1));
  EXPECT_EQ(firstOffset(), 5u);
  EXPECT_EQ(live(), (Pairs{{4, 9}, {10, 1}, {15, 8}, {20, 2}, {30, 3}}));
}

TEST_P(InternalPageTest, AnInsertIntoAnEmptyPageKeepsItsGap) {
  fill(0, 7);
  EXPECT_TRUE(editor.insert_value(0, 9, 4, 1));
  EXPECT_EQ(firstOffset(), 7u);
  EXPECT_EQ(live(), (Pairs{{5, 9}}));
}

TEST_P(InternalPageTest, With1015SlotsBehindAGapOf5TheTailHasRoom) {
  fill(1015, 5);
  EXPECT_TRUE(editor.insert_value(1015, 1016, 10160, 0));
  EXPECT_EQ(firstOffset(), 5u);
  EXPECT_EQ(live(), numbered(1016));
}

TEST_P(InternalPageTest, With1016SlotsBehindAGapOf5AllOfTheGapIsReclaimed) {
  fill(1016, 5);
  EXPECT_TRUE(editor.insert_value(1016, 1017, 10170, 0));
  EXPECT_EQ(firstOffset(), 0u);
  EXPECT_EQ(live(), numbered(1017));
}

TEST_P(InternalPageTest, AnInsertInFrontOfATailWithoutRoomReclaimsTheGapToo) {
  fill(1016, 5);
  EXPECT_TRUE(editor.insert_value(0, 9, 4, 0));
  EXPECT_EQ(firstOffset(), 0u);
  Pairs expected = numbered(1016);
  expected.insert(expected.begin(), {4, 9});
  EXPECT_EQ(live(), expected);
}

TEST_P(InternalPageTest, AnInsertAsThe1021stSlotFillsThePageExactly) {
  fill(1020, 0);
  EXPECT_TRUE(editor.insert_value(500, 9, 5001, 0));
  EXPECT_EQ(count(), 1021u);
  EXPECT_EQ(firstOffset(), 0u);
  Pairs expected = numbered(1020);
  expected.insert(expected.begin() + 500, {5001, 9});
  EXPECT_EQ(live(), expected);
  host.expectReports({});
}

TEST_P(InternalPageTest, AnInsertIntoAFullPageIsReportedAndRefused) {
  fill(1021, 0);
  const PageBytes before = bytes;
  for (const unsigned index : {0u, 500u, 1021u}) {
    EXPECT_FALSE(editor.insert_value(index, 9, 5001, 0));
    host.expectReports({"guarantee bitmap:199"});
    EXPECT_EQ(bytes, before);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Room at the front

TEST_P(InternalPageTest, RoomAtTheFrontIsMadeBySlidingDownAndMovingUp) {
  fill(3, 900);
  EXPECT_TRUE(editor.insert_space_at_front(4));
  EXPECT_EQ(firstOffset(), 0u) << "the gap is not used in place, wide as it is";
  EXPECT_EQ(count(), 7u);
  for (unsigned i = 0; i < 4; ++i) editor.set_raw_value(i, 100 + i, i);
  EXPECT_EQ(live(), (Pairs{{0, 100}, {1, 101}, {2, 102}, {3, 103}, {10, 1}, {20, 2}, {30, 3}}));
}

TEST_P(InternalPageTest, RoomAtTheFrontMayFillThePage) {
  fill(21, 50);
  EXPECT_TRUE(editor.insert_space_at_front(1000));
  EXPECT_EQ(count(), 1021u);
  host.expectReports({});
  Pairs tail = live();
  tail.erase(tail.begin(), tail.begin() + 1000);
  EXPECT_EQ(tail, numbered(21));
}

TEST_P(InternalPageTest, RoomForMoreThanThePageHoldsIsReportedAndRefused) {
  fill(21, 50);
  const PageBytes before = bytes;
  EXPECT_FALSE(editor.insert_space_at_front(1001));
  host.expectReports({"guarantee bitmap:245"});
  EXPECT_EQ(bytes, before);
}

TEST_P(InternalPageTest, NoRoomAtTheFrontOfAFullPageIsAllowed) {
  fill(1021, 0);
  const PageBytes before = bytes;
  EXPECT_TRUE(editor.insert_space_at_front(0));
  EXPECT_EQ(bytes, before);
}

// ---------------------------------------------------------------------------------------------------------
// Removing

TEST_P(InternalPageTest, RemovingTheFirstOfThreeMovesOnlyTheFront) {
  fill(3, 0);
  PageBytes expected = bytes;
  putU16(expected.data(), at::intFirstOffset, 1);
  putU16(expected.data(), at::intCount, 2);
  editor.remove_value(0);
  EXPECT_EQ(bytes, expected);
  EXPECT_EQ(editor.key(0), 20u);
  EXPECT_EQ(editor.child(0), 2u);
}

TEST_P(InternalPageTest, RemovingTheOnlyPairLeavesTheFrontWhereItWas) {
  fill(1, 6);
  editor.remove_value(0);
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(firstOffset(), 6u);
}

TEST_P(InternalPageTest, RemovingAnyOtherPairMovesThePairsBehindItDown) {
  fill(4, 6);
  editor.remove_value(1);
  EXPECT_EQ(live(), (Pairs{{10, 1}, {30, 3}, {40, 4}}));
  editor.remove_value(2);
  EXPECT_EQ(live(), (Pairs{{10, 1}, {30, 3}}));
  EXPECT_EQ(firstOffset(), 6u);
}

TEST_P(InternalPageTest, RemovingTheLastSlotOfAFullPageReadsNothingBehindIt) {
  fill(1021, 0);
  editor.remove_value(1020);
  EXPECT_EQ(live(), numbered(1020));
}

TEST_P(InternalPageTest, APageEmptiedFromTheFrontKeepsTheFrontOfItsLastPair) {
  fill(5, 0);
  for (int i = 0; i < 5; ++i) editor.remove_value(0);
  EXPECT_EQ(count(), 0u);
  EXPECT_EQ(firstOffset(), 4u);
}

// ---------------------------------------------------------------------------------------------------------
// Against a plain vector

TEST_P(InternalPageTest, RandomEditsAgreeWithAPlainVector) {
  Random random(testSeed());
  fill(0, 0);
  Pairs model;
  uint64_t next = 0;
  unsigned target = 0;  // the size that the edits drift to
  for (int step = 0; step < 20000; ++step) {
    if (step % 2000 == 0) target = static_cast<unsigned>(random.below(1022));
    const bool grow = model.size() < target ? !random.oneIn(4) : random.oneIn(4);
    const auto index = static_cast<unsigned>(random.below(model.size() + 1));
    if (grow && model.size() < 1021 && random.oneIn(10)) {
      const auto n = static_cast<unsigned>(random.below(std::min<uint64_t>(6, 1022 - model.size())));
      ASSERT_TRUE(editor.insert_space_at_front(n));
      for (unsigned i = 0; i < n; ++i, next += 2) {
        editor.set_value(i, next, next, 1, 0);
        model.insert(model.begin() + i, {next | 1, next});
      }
    } else if (grow && model.size() < 1021) {
      const uint64_t tag = random.below(2);
      ASSERT_TRUE(editor.insert_value(index, next, next, static_cast<int>(tag)));
      model.insert(model.begin() + index, {next | tag, next});
      next += 2;
    } else if (index < model.size()) {
      const unsigned at = random.oneIn(3) ? 0 : index;
      editor.remove_value(at);
      model.erase(model.begin() + at);
    } else if (random.oneIn(5)) {
      editor.resetFirstOffset();
      ASSERT_EQ(firstOffset(), 0u);
    }
    ASSERT_EQ(live(), model) << "step " << step;
    ASSERT_LE(firstOffset() + count(), 1021u);
  }
  host.expectReports({});
}

}  // namespace
