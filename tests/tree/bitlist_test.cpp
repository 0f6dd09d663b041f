// Sorted lists with a movable front: searches, inserts, deletes, and the gap ahead of the first entry.
#include "tree/bitlist.h"

#include <cstring>

#include "support/treemodel.h"

namespace {

using Bits = std::vector<uint64_t>;
constexpr uint64_t garbage = 0xA5A5A5A5A5A5A5A5;

// A list between two guards, as it stands inside another record.
class ListTest : public ::testing::Test {
 protected:
  ListTest() { fill({}, 0); }
  ~ListTest() override {
    EXPECT_EQ(memory_.before, garbage);
    EXPECT_EQ(memory_.behind, garbage);
  }

  void fill(const Bits& bits, int firstOffset) {
    std::memset(static_cast<void*>(&memory_), 0xA5, sizeof memory_);
    list.count = static_cast<int>(bits.size());
    list.firstOffset = firstOffset;
    std::copy(bits.begin(), bits.end(), list.entries + firstOffset);
  }
  // `count` entries 1000, 1010, ... behind a gap.
  void fillRun(int count, int firstOffset) {
    Bits bits;
    for (int i = 0; i < count; ++i) bits.push_back(1000 + 10 * static_cast<uint64_t>(i));
    fill(bits, firstOffset);
  }
  Bits entries() const { return {list.begin(), list.end()}; }
  void insert(uint64_t bit) {
    uint64_t* slot = BinSearchForModify(list.begin(), list.count, bit);
    ASSERT_FALSE(slotIsHit(slot));
    ADD_BIT_TO_BITLIST(&list, slot, bit);
  }
  void erase(uint64_t bit) {
    uint64_t* slot = BinSearchForModify(list.begin(), list.count, bit);
    ASSERT_TRUE(slotIsHit(slot));
    DELETE_BIT_FROM_BITLIST(&list, slotAddress(slot));
  }

 private:
  struct {
    uint64_t before;
    RepBitListContentsSType list;
    uint64_t behind;
  } memory_;

 protected:
  RepBitListContentsSType& list = memory_.list;
};

// ---------------------------------------------------------------------------------------------------------
// Searching

class ListSearchTest : public ListTest {};

TEST_F(ListSearchTest, AnEmptyListAnswersItsFirstSlotUntagged) {
  for (const int count : {0, -1}) {
    EXPECT_EQ(BinSearchForModify(list.entries, count, 5), list.entries);
    EXPECT_EQ(BinSearchForModify_noTag(list.entries, count, 5), list.entries);
  }
}

TEST_F(ListSearchTest, TheFirstAndTheLastEntryAreFoundTagged) {
  fillRun(2043, 0);
  const auto tagged = [](const uint64_t* slot) { return reinterpret_cast<uint64_t>(slot) | 1; };
  EXPECT_EQ(reinterpret_cast<uint64_t>(BinSearchForModify(list.begin(), 2043, 1000)), tagged(list.entries));
  EXPECT_EQ(reinterpret_cast<uint64_t>(BinSearchForModify(list.begin(), 2043, 1000 + 20420)),
            tagged(list.entries + 2042));
}

TEST_F(ListSearchTest, BitsOutsideTheEntriesBelongBeforeTheFirstAndBehindTheLast) {
  fillRun(100, 7);
  EXPECT_EQ(BinSearchForModify(list.begin(), 100, 999), list.begin());
  EXPECT_EQ(BinSearchForModify(list.begin(), 100, 0), list.begin());
  EXPECT_EQ(BinSearchForModify(list.begin(), 100, 1991), list.end());
  EXPECT_EQ(BinSearchForModify(list.begin(), 100, BM_END_BIT), list.end());
}

TEST_F(ListSearchTest, BothFormsAgreeWithALinearSearchForListsOfEveryLength) {
  Random random(testSeed());
  for (int count = 1; count <= 2043; count += count < 70 ? 1 : 197) {
    BitSet bits;
    while (bits.size() < static_cast<size_t>(count)) bits.insert(1 + random.below(6000));
    fill({bits.begin(), bits.end()}, 0);
    for (int i = 0; i < 300; ++i) {
      const uint64_t bit = random.below(6010);
      const uint64_t* expected = std::find_if(list.begin(), list.end(), [&](uint64_t e) { return e >= bit; });
      uint64_t* slot = BinSearchForModify(list.begin(), count, bit);
      ASSERT_EQ(slotAddress(slot), expected) << count << " entries, bit " << bit;
      ASSERT_EQ(slotIsHit(slot), bits.count(bit) != 0);
      ASSERT_EQ(BinSearchForModify_noTag(list.begin(), count, bit), expected);
    }
  }
}

// ---------------------------------------------------------------------------------------------------------
// Inserting

class ListInsertTest : public ListTest {};

TEST_F(ListInsertTest, TheFrontGapFollowsItsTable) {
  EXPECT_EQ(frontGap(0), 255);
  EXPECT_EQ(frontGap(255), 255);
  EXPECT_EQ(frontGap(256), 595);
  EXPECT_EQ(frontGap(257), 595);
  EXPECT_EQ(frontGap(258), 595);
  EXPECT_EQ(frontGap(259), 594);
  EXPECT_EQ(frontGap(1843), 66);
  EXPECT_EQ(frontGap(1844), 0);
  EXPECT_EQ(frontGap(2043), 0);
  for (int n = 256; n <= 1843; ++n) EXPECT_EQ(frontGap(n), (2043 - n) / 3);
}

TEST_F(ListInsertTest, TheFirstEntryStandsInSlotZero) {
  insert(1000);
  EXPECT_EQ(list.firstOffset, 0);
  EXPECT_EQ(entries(), Bits{1000});
}

TEST_F(ListInsertTest, TheFirstInsertBelowTheOnlyEntryOpensAGapOf255) {
  insert(1000);
  insert(999);
  EXPECT_EQ(list.firstOffset, 255);
  EXPECT_EQ(entries(), (Bits{999, 1000}));
}

TEST_F(ListInsertTest, DescendingInsertsTakeOneGapSlotEach) {
  insert(1000);
  insert(999);
  for (int i = 1; i <= 255; ++i) {
    insert(static_cast<uint64_t>(999 - i));
    EXPECT_EQ(list.firstOffset, 255 - i);
  }
  EXPECT_EQ(list.count, 257);
  insert(743);
  EXPECT_EQ(list.firstOffset, frontGap(258)) << "the gap was spent and is opened anew";
  EXPECT_EQ(entries().front(), 743u);
  EXPECT_EQ(entries().back(), 1000u);
}

TEST_F(ListInsertTest, AscendingInsertsMoveNoEntryAndOpenNoGap) {
  for (uint64_t i = 0; i < 2043; ++i) {
    insert(3 * i);
    ASSERT_EQ(list.firstOffset, 0);
    ASSERT_EQ(list.entries[i], 3 * i);
    ASSERT_TRUE(i == 2042 || list.entries[i + 1] == garbage);
  }
  EXPECT_EQ(list.count, 2043);
}

TEST_F(ListInsertTest, ATieMovesTheTail) {
  fillRun(4, 9);
  insert(1015);
  EXPECT_EQ(list.firstOffset, 9);
  EXPECT_EQ(entries(), (Bits{1000, 1010, 1015, 1020, 1030}));
}

TEST_F(ListInsertTest, AnInsertNearerTheFrontSpendsAGapSlot) {
  fillRun(5, 9);
  insert(1015);
  EXPECT_EQ(list.firstOffset, 8);
  EXPECT_EQ(entries(), (Bits{1000, 1010, 1015, 1020, 1030, 1040}));
}

TEST_F(ListInsertTest, AnInsertNearerTheFrontWithoutAGapOpensOne) {
  fillRun(5, 0);
  insert(1015);
  EXPECT_EQ(list.firstOffset, 255);
  EXPECT_EQ(entries(), (Bits{1000, 1010, 1015, 1020, 1030, 1040}));
}

TEST_F(ListInsertTest, AGapThatIsOpenedFor1843EntriesHas66SlotsAndFor1844None) {
  fillRun(1842, 0);
  insert(1001);
  EXPECT_EQ(list.firstOffset, 66);
  fillRun(1843, 0);
  insert(1001);
  EXPECT_EQ(list.firstOffset, 0);
  EXPECT_EQ(list.entries[1], 1001u);
  EXPECT_EQ(list.count, 1844);
}

TEST_F(ListInsertTest, AnInsertIntoAListOf1900EntriesThatEndsInTheLastSlotSlidesItToTheStart) {
  for (const uint64_t bit : {999, 1005, 10505, 19985, 20000}) {
    fillRun(1900, 143);
    Bits expected = entries();
    expected.insert(std::lower_bound(expected.begin(), expected.end(), bit), bit);
    insert(bit);
    EXPECT_EQ(list.firstOffset, 0) << "bit " << bit;
    EXPECT_EQ(entries(), expected) << "bit " << bit;
  }
}

TEST_F(ListInsertTest, AnInsertWithoutATailMovesOnlyTheLeftEntriesWhenTheFrontMovesByOne) {
  fillRun(2042, 1);
  Bits expected = entries();
  expected.insert(expected.begin() + 700, 7995);
  insert(7995);
  EXPECT_EQ(list.firstOffset, 0);
  EXPECT_EQ(entries(), expected);
}

TEST_F(ListInsertTest, AnInsertWithoutATailKeepsTheGapForTheNewCount) {
  for (const int count : {1, 100, 254, 255, 256, 1000, 1842, 1843, 1844}) {
    fillRun(count, 2043 - count);
    Bits expected = entries();
    expected.push_back(100000);
    insert(100000);
    EXPECT_EQ(list.firstOffset, frontGap(count + 1)) << count << " entries";
    EXPECT_EQ(entries(), expected) << count << " entries";
  }
}

TEST_F(ListInsertTest, TheLastEntryFillsTheList) {
  for (const int firstOffset : {0, 1}) {
    for (const uint64_t bit : {999, 10505, 30000}) {
      fillRun(2042, firstOffset);
      Bits expected = entries();
      expected.insert(std::lower_bound(expected.begin(), expected.end(), bit), bit);
      insert(bit);
      EXPECT_EQ(list.firstOffset, 0);
      EXPECT_EQ(entries(), expected);
    }
  }
}

// ---------------------------------------------------------------------------------------------------------
// Deleting

class ListDeleteTest : public ListTest {};

TEST_F(ListDeleteTest, DeletingTheFirstEntryMovesNothingAndGrowsTheGap) {
  fillRun(3, 4);
  erase(1000);
  EXPECT_EQ(list.firstOffset, 5);
  EXPECT_EQ(entries(), (Bits{1010, 1020}));
  EXPECT_EQ(list.entries[4], 1000u) << "the slot itself is left as it was";
}

TEST_F(ListDeleteTest, DeletingInTheLowerHalfMovesTheEntriesBelowItUp) {
  fillRun(5, 4);
  erase(1010);
  EXPECT_EQ(list.firstOffset, 5);
  EXPECT_EQ(entries(), (Bits{1000, 1020, 1030, 1040}));
}

TEST_F(ListDeleteTest, ATieMovesTheTail) {
  fillRun(4, 4);
  erase(1020);  // two entries before it; itself and one behind it
  EXPECT_EQ(list.firstOffset, 4);
  EXPECT_EQ(entries(), (Bits{1000, 1010, 1030}));
}

TEST_F(ListDeleteTest, DeletingTheLastEntryLeavesTheFront) {
  fillRun(3, 2040);
  erase(1020);
  EXPECT_EQ(list.firstOffset, 2040);
  EXPECT_EQ(entries(), (Bits{1000, 1010}));
}

TEST_F(ListDeleteTest, AListEmptiedFromTheFrontKeepsAFrontOnePastItsLastEntry) {
  fillRun(10, 3);
  for (uint64_t bit = 1000; bit < 1100; bit += 10) erase(bit);
  EXPECT_EQ(list.count, 0);
  EXPECT_EQ(list.firstOffset, 13);
}

TEST_F(ListDeleteTest, AListEmptiedFromTheEndKeepsItsFrontButForTheLastEntry) {
  fillRun(10, 3);
  for (uint64_t bit = 1090; bit >= 1000; bit -= 10) erase(bit);
  EXPECT_EQ(list.count, 0);
  EXPECT_EQ(list.firstOffset, 4) << "the only entry is also the first";
}

// ---------------------------------------------------------------------------------------------------------
// Placing whole lists and opening gaps

class ListPlacingTest : public ListTest {};

TEST_F(ListPlacingTest, FillingPlacesTheEntriesBehindTheGapForTheirCount) {
  for (const int count : {0, 1, 8, 9, 255, 256, 1843, 1844, 2043}) {
    Bits bits;
    for (int i = 0; i < count; ++i) bits.push_back(7 * static_cast<uint64_t>(i));
    fillBitList(&list, bits.data(), count);
    EXPECT_EQ(list.firstOffset, frontGap(count));
    EXPECT_EQ(entries(), bits);
  }
}

TEST_F(ListPlacingTest, AListSlidesToAnyFront) {
  for (const int from : {0, 5, 1943}) {
    for (const int to : {0, 5, 60, 1943}) {
      fillRun(100, from);
      const Bits before = entries();
      placeList(&list, to);
      EXPECT_EQ(list.firstOffset, to);
      EXPECT_EQ(entries(), before);
    }
  }
}

TEST_F(ListPlacingTest, AGapOfManySlotsOpensAnywhereAndMovesNothingElse) {
  Random random(testSeed());
  for (int round = 0; round < 3000; ++round) {
    const int count = static_cast<int>(random.below(2044));
    const int take = static_cast<int>(random.below(static_cast<uint64_t>(2044 - count)));
    const int position = static_cast<int>(random.below(static_cast<uint64_t>(count) + 1));
    fillRun(count, static_cast<int>(random.below(static_cast<uint64_t>(2044 - count))));
    Bits expected = entries();
    uint64_t* gap = openListGap(&list, list.begin() + position, take);
    ASSERT_EQ(gap, list.begin() + position);
    ASSERT_LE(list.firstOffset + count + take, 2043);
    for (int i = 0; i < take; ++i) gap[i] = 5;
    list.count += take;
    expected.insert(expected.begin() + position, static_cast<size_t>(take), 5);
    ASSERT_EQ(entries(), expected) << count << " entries, " << take << " slots at " << position;
  }
}

// ---------------------------------------------------------------------------------------------------------
// Against a plain vector

// Where an insert or delete leaves the front, told from the sizes alone.
int frontAfterInsert(int count, int firstOffset, int left) {
  const int right = count - left;
  if (count + 1 + firstOffset > 2043) return frontGap(count + 1);
  if (left >= right) return firstOffset;
  return firstOffset > 0 ? firstOffset - 1 : frontGap(count + 1);
}

TEST_F(ListTest, RandomInsertsAndDeletesAgreeWithASortedVector) {
  Random random(testSeed());
  Bits model;
  size_t target = 0;
  for (int step = 0; step < 60000; ++step) {
    if (step % 3000 == 0) target = random.below(2044);
    const bool grow = model.size() < target ? !random.oneIn(5) : random.oneIn(5);
    const uint64_t bit = random.oneIn(3) ? random.below(50) : random.below(20000);
    const auto place = std::lower_bound(model.begin(), model.end(), bit);
    const bool present = place != model.end() && *place == bit;
    if (grow && !present && model.size() < 2043) {
      const int front = frontAfterInsert(list.count, list.firstOffset, static_cast<int>(place - model.begin()));
      insert(bit);
      model.insert(place, bit);
      ASSERT_EQ(list.firstOffset, front);
    } else if (!grow && !model.empty()) {
      const size_t index = random.oneIn(3) ? 0 : random.below(model.size());
      const bool fromBelow = index < model.size() - index;
      const int front = list.firstOffset + (fromBelow ? 1 : 0);
      erase(model[index]);
      model.erase(model.begin() + static_cast<ptrdiff_t>(index));
      ASSERT_EQ(list.firstOffset, front);
    }
    ASSERT_EQ(entries(), model) << "step " << step;
    ASSERT_LE(list.firstOffset + list.count, 2043);
  }
}

// ---------------------------------------------------------------------------------------------------------
// On pages

class ListPageTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(ListPageTest);

TEST_P(ListPageTest, SettingTheCountRecomputesBytesUsedAndMarksCachedPagesOnce) {
  RepTreeRootSType& tree = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 3}, 20), {.currentStamp = true}));
  auto* page = reinterpret_cast<RepBitListPageSType*>(host.bytes(tree, tree.root));
  host.clearEvents();
  setBlCount_SET_DIRTY(&host, &tree, page, 2);
  EXPECT_EQ(rawU32(page, at::listCount), 2u);
  EXPECT_EQ(rawU32(page, at::listFirstOffset), 20u);
  EXPECT_EQ(rawU16(page, at::bytesUsed), (2 + 20) * 8 + 40);
  EXPECT_EQ(host.takeEvents().size(), isHeap() ? 0u : 1u);
}

TEST_P(ListPageTest, BytesUsedFollowsEveryInsertAndDelete) {
  Random random(testSeed());
  RepTreeRootSType& tree = newTree();
  host.logEvents(false);
  BmSetBit(&host, &tree, 1u << 20);
  for (int step = 0; step < 3000; ++step) {
    const uint64_t bit = random.below(1500);
    random.oneIn(2) ? BmSetBit(&host, &tree, bit) : BmClearBit(&host, &tree, bit);
    const unsigned char* page = bytesOf(tree, tree.root);
    ASSERT_EQ(rawU16(page, at::bytesUsed),
              (rawU32(page, at::listCount) + rawU32(page, at::listFirstOffset)) * 8 + 40);
  }
}

TEST_P(ListPageTest, AListEmptiedFromTheFrontKeepsItsBytesUsedInStep) {
  // kept in the tree by an entry far behind; without it the page would go with its last entry
  RepTreeRootSType& tree = adopt(buildTree(host, kind(), listLeaf(0, {1, 2, 3, 4, 90}, 0), {.currentStamp = true}));
  for (const uint64_t bit : {1, 2, 3, 4}) BmClearBit(&host, &tree, bit);
  const unsigned char* page = bytesOf(tree, tree.root);
  EXPECT_EQ(rawU32(page, at::listFirstOffset), 4u);
  EXPECT_EQ(rawU16(page, at::bytesUsed), (1 + 4) * 8 + 40);
}

TEST(InlineListTest, EditsOfAnInlineListMarkNothingAndTouchNothingAroundIt) {
  TestHost host;
  InlineTree tree({10, 20, 30}, 2, 64);
  const std::vector<unsigned char> head(tree.memory(), tree.memory() + 64);
  EXPECT_EQ(BmSetBit(&host, tree.root(), 25), 0);
  EXPECT_EQ(BmSetBit(&host, tree.root(), 5), 0);
  EXPECT_EQ(BmClearBit(&host, tree.root(), 10), 1);
  EXPECT_EQ(bitsOf(host, *tree.root()), (Bits{5, 20, 25, 30}));
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
  EXPECT_EQ(std::vector<unsigned char>(tree.memory(), tree.memory() + 64), head);
}

}  // namespace
