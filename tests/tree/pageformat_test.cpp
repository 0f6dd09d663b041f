// Page layouts, byte for byte, and the numbering of bits.
#include "bitmap.h"
#include "support/treemodel.h"
#include "tree/pageaccess.h"

namespace {

constexpr uint64_t span = 130752;
constexpr uint64_t topBit = 0xFFFFFFFFFF;

// ---------------------------------------------------------------------------------------------------------
// Bits

TEST(BitNumbersTest, TheConstantsFollowFromThePageSize) {
  EXPECT_EQ(BM_PAGE_SIZE, 16384);
  EXPECT_EQ(BM_BIT_LIST_CAPACITY, (16384 - 40) / 8);
  EXPECT_EQ(BM_LEAF_BITS, 2043 * 64);
  EXPECT_EQ(BM_INT_CAPACITY, (16384 - 48) / 16);
  EXPECT_EQ(BM_END_BIT, uint64_t{1} << 40);
}

TEST(BitNumbersTest, TheLastSpanIsCutOffAtItsBit15999) {
  EXPECT_EQ(spanBase(topBit), topBit - topBit % span);
  EXPECT_EQ(topBit - spanBase(topBit), 15999u);
  EXPECT_EQ(denseWordIndex(topBit), 15999u / 64);
  EXPECT_EQ(denseWordMask(topBit), uint64_t{1} << 63);
  EXPECT_GT(spanEnd(topBit), BM_END_BIT);
}

TEST(BitNumbersTest, Bits130751And130752LieInDifferentLeaves) {
  EXPECT_EQ(spanBase(130751), 0u);
  EXPECT_EQ(denseWordIndex(130751), 2042u);
  EXPECT_EQ(denseWordMask(130751), uint64_t{1} << 63);
  EXPECT_EQ(spanBase(130752), 130752u);
  EXPECT_EQ(denseWordIndex(130752), 0u);
  EXPECT_EQ(denseWordMask(130752), 1u);
}

TEST(BitNumbersTest, TheLowSixBitsOfTheBitSelectTheMaskInEverySpan) {
  Random random(testSeed());
  for (int i = 0; i < 10000; ++i) {
    const uint64_t bit = random.below(BM_END_BIT);
    EXPECT_EQ(denseWordIndex(bit), bit % span / 64);
    EXPECT_EQ(denseWordMask(bit), uint64_t{1} << (bit % span % 64));
  }
}

TEST(BitNumbersTest, AnOopGivesItsBitBackForAll40BitBits) {
  EXPECT_EQ(oopOfBit(0), 1u);
  EXPECT_EQ(oopOfBit(topBit), 0xFFFFFFFFFF01u);
  Random random(testSeed());
  for (int i = 0; i < 10000; ++i) {
    const uint64_t bit = random.below(BM_END_BIT);
    EXPECT_EQ(bitOfOop(oopOfBit(bit)), bit);
    EXPECT_EQ(oopOfBit(bit) & 0xFF, 1u);
  }
}

TEST(BitNumbersTest, TheBitCountTableHoldsThePopulationOfEachByte) {
  for (int byte = 0; byte < 256; ++byte) EXPECT_EQ(BitCountTable[byte], __builtin_popcount(unsigned(byte)));
}

// ---------------------------------------------------------------------------------------------------------
// Fields by their bytes

TEST(PageBytesTest, TheHeaderFieldsStandAtTheirBytes) {
  alignas(8) PageBytes bytes{};
  putU8(bytes.data(), 0, 12);
  putU8(bytes.data(), 1, 3);
  putU32(bytes.data(), 4, 0x11121314);
  putU64(bytes.data(), 8, 0x2122232425262728);
  putU16(bytes.data(), 24, static_cast<uint16_t>(-5));
  putU32(bytes.data(), 28, 0x31323334);
  auto* page = reinterpret_cast<RepPageHdrSType*>(bytes.data());
  EXPECT_EQ(page->pageKind, 12);
  EXPECT_EQ(page->pageState, 3);
  EXPECT_EQ(page->pageId, 0x2122232425262728u);
  EXPECT_EQ(page->bytesUsed, -5) << "a signed field";
  EXPECT_EQ(carefulStampOf(*page), 0x1112131431323334u);
  setCarefulStamp(*page, 0xA1A2A3A4B1B2B3B4);
  EXPECT_EQ(rawU32(bytes.data(), 4), 0xA1A2A3A4u);
  EXPECT_EQ(rawU32(bytes.data(), 28), 0xB1B2B3B4u);
}

TEST(PageBytesTest, TheFieldsOfAListStandAtTheirBytes) {
  alignas(8) PageBytes bytes = listImage({7, 9, 11}, 2);
  const RepBitListContentsSType& list = asListPage(reinterpret_cast<RepPageHdrSType*>(bytes.data()))->contents;
  EXPECT_EQ(list.count, 3);
  EXPECT_EQ(list.firstOffset, 2);
  EXPECT_EQ(std::vector<uint64_t>(list.begin(), list.end()), (std::vector<uint64_t>{7, 9, 11}));
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(list.begin()), bytes.data() + 40 + 16);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&list.entries[2042]), bytes.data() + 16376);
}

TEST(PageBytesTest, TheFieldsOfADenseLeafStandAtTheirBytes) {
  alignas(8) PageBytes bytes = denseImage({0, 64, 130751}, 1);
  const RepBmLeafPageSType& leaf = *asDensePage(reinterpret_cast<RepPageHdrSType*>(bytes.data()));
  EXPECT_EQ(leaf.bitsSet, 3);
  EXPECT_EQ(leaf.keepWhenEmpty, 1);
  EXPECT_EQ(leaf.words[0], 1u);
  EXPECT_EQ(leaf.words[1], 1u);
  EXPECT_EQ(leaf.words[2042], uint64_t{1} << 63);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&leaf.words[2042]), bytes.data() + 16376);
}

TEST(PageBytesTest, TheFieldsOfAnInternalPageStandAtTheirBytes) {
  alignas(8) PageBytes bytes = internalImage(2, {{span, 71}, {2 * span, 72}}, 1019);
  const RepBmInternalPageSType& page = *asInternalPage(reinterpret_cast<RepPageHdrSType*>(bytes.data()));
  EXPECT_EQ(page.keyArea.firstOffset, 1019);
  EXPECT_EQ(page.keyArea.count, 2);
  EXPECT_EQ(page.keyArea.level, 2);
  EXPECT_EQ(page.keyArea.keys[1020], 2 * span);
  EXPECT_EQ(page.children[1020], 72u);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&page.keyArea.keys[1020]), bytes.data() + 8208);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&page.children[1020]), bytes.data() + 16376);
}

// ---------------------------------------------------------------------------------------------------------
// Pages as they are made

class NewPageFormatTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(NewPageFormatTest);

TEST_P(NewPageFormatTest, ANewListHasNoEntriesNoGapAnd40BytesUsed) {
  RepTreeRootSType& tree = newTree();
  const RepPageHdrSType* page = basicNewBitListPage(&host, &tree);
  tree.root = isHeap() ? reinterpret_cast<uint64_t>(page) : page->pageId;
  EXPECT_EQ(rawU8(page, at::pageKind), 12);
  EXPECT_EQ(rawU32(page, at::listCount), 0u);
  EXPECT_EQ(rawU32(page, at::listFirstOffset), 0u);
  EXPECT_EQ(rawU16(page, at::bytesUsed), 40);
}

TEST_P(NewPageFormatTest, ANewInternalPageHasNoSlotsItsLevelAndAllBytesUsed) {
  for (const int level : {1, 2}) {
    RepTreeRootSType& tree = newTree();
    tree.level = static_cast<uint8_t>(level);
    const RepPageHdrSType* page = newBmInternalPage(&host, &tree, level);
    tree.root = isHeap() ? reinterpret_cast<uint64_t>(page) : page->pageId;
    EXPECT_EQ(rawU8(page, at::pageKind), 7);
    EXPECT_EQ(rawU16(page, at::bytesUsed), 16384);
    EXPECT_EQ(rawU16(page, at::intFirstOffset), 0);
    EXPECT_EQ(rawU16(page, at::intCount), 0);
    EXPECT_EQ(rawU16(page, at::intLevel), level);
    EXPECT_EQ(rawU16(page, 38), 0);
    EXPECT_EQ(rawU64(page, 40), 0u);
  }
}

TEST_P(NewPageFormatTest, AFullListHasNoGapAndUsesTheWholePage) {
  RepTreeRootSType& tree = newTree();
  for (uint64_t bit = 0; bit < 2043; ++bit) BmSetBit(&host, &tree, bit * 1000);
  const unsigned char* page = bytesOf(tree, tree.root);
  EXPECT_EQ(rawU8(page, at::pageKind), 12);
  EXPECT_EQ(rawU32(page, at::listCount), 2043u);
  EXPECT_EQ(rawU32(page, at::listFirstOffset), 0u);
  EXPECT_EQ(rawU16(page, at::bytesUsed), 16384);
}

TEST_P(NewPageFormatTest, AnEmptyDenseLeafThatIsKeptStaysAndItsBitsTestClear) {
  RepTreeRootSType& tree =
      adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(span, {span + 5}, 1)}, {.currentStamp = true}));
  EXPECT_EQ(BmClearBit(&host, &tree, span + 5), 1);
  EXPECT_EQ(shapeOf(tree), "[1 dense 0+]");
  for (const uint64_t bit : {span, span + 5, 2 * span - 1}) EXPECT_EQ(BmTestBit(&host, &tree, bit), 0);
}

TEST_P(NewPageFormatTest, TheHighestBitLiesInADenseLeafOfTheLastSpan) {
  const uint64_t base = topBit - topBit % span;
  const RepTreeRootSType& tree =
      adopt(buildTree(host, kind(), std::vector<LeafSpec>{denseLeaf(base, {topBit - 1, topBit})}));
  EXPECT_EQ(BmTestBit(&host, &tree, topBit), 1);
  EXPECT_EQ(BmTestBit(&host, &tree, topBit - 1), 1);
  EXPECT_EQ(BmTestBit(&host, &tree, topBit - 2), 0);
  EXPECT_EQ(rawU64(bytesOf(tree, refsAtLevel(host, tree, 0)[0]), at::word(249)), uint64_t{3} << 62);
}

// ---------------------------------------------------------------------------------------------------------
// The check of bytesUsed before a copy

class CopyCheckTest : public ::testing::Test {
 protected:
  // Checks a page and returns what it printed; the reports stay with the host.
  std::string check(uint8_t kind, int bytesUsed, int count = 0, int firstOffset = 0) {
    alignas(8) PageBytes bytes{};
    putU8(bytes.data(), at::pageKind, kind);
    putU16(bytes.data(), at::bytesUsed, static_cast<uint16_t>(bytesUsed));
    putU32(bytes.data(), at::listCount, static_cast<uint32_t>(count));
    putU32(bytes.data(), at::listFirstOffset, static_cast<uint32_t>(firstOffset));
    testing::internal::CaptureStdout();
    BmPageCopyCheckBytesUsed(reinterpret_cast<RepPageHdrSType*>(bytes.data()));
    return testing::internal::GetCapturedStdout();
  }

  TestHost host;
};

TEST_F(CopyCheckTest, APageWhoseBytesUsedIsInRangeIsNotReported) {
  for (const int used : {32, 33, 16384}) {
    for (const uint8_t kind : {7, 8}) EXPECT_EQ(check(kind, used), "");
  }
  host.expectReports({});
}

TEST_F(CopyCheckTest, BytesUsedBelow32AreReportedAtTheirLine) {
  for (const int used : {31, 0, -1, -32768}) {
    EXPECT_EQ(check(8, used), "");
    host.expectReports({"guarantee bitmap:11120"});
  }
}

TEST_F(CopyCheckTest, BytesUsedAbove16384AreReportedAtTheirLine) {
  for (const int used : {16385, 32767}) {
    EXPECT_EQ(check(7, used), "");
    host.expectReports({"guarantee bitmap:11121"});
  }
}

TEST_F(CopyCheckTest, ADataPageIsPrintedAndReportedAndCheckedLikeAnyOther) {
  EXPECT_EQ(check(4, 100), "illegal data page in REP_PAGE_CPY_BODY\n");
  host.expectReports({"guarantee bitmap:11113"});
  EXPECT_EQ(check(4, 31), "illegal data page in REP_PAGE_CPY_BODY\n");
  host.expectReports({"guarantee bitmap:11113", "guarantee bitmap:11120"});
  EXPECT_EQ(check(4, 16385), "illegal data page in REP_PAGE_CPY_BODY\n");
  host.expectReports({"guarantee bitmap:11113", "guarantee bitmap:11121"});
}

TEST_F(CopyCheckTest, AListMustUseItsHeadItsGapAndItsEntries) {
  check(12, 40);
  check(12, 40 + 8 * 300, 45, 255);
  check(12, 16384, 2043, 0);
  check(12, 16384, 1, 2042);
  host.expectReports({});
  for (const int used : {39, 41, 48, 32, 16384}) {
    EXPECT_EQ(check(12, used), "");
    host.expectReports({"guarantee bitmap:11118"});
  }
}

TEST_F(CopyCheckTest, AListIsNeverCheckedAgainstTheRange) {
  check(12, 24, -2, 0);
  host.expectReports({});
  check(12, 31, 0, 0);
  host.expectReports({"guarantee bitmap:11118"});
}

TEST_F(CopyCheckTest, AListWithAnImpossibleCountIsReportedOnce) {
  check(12, 40, 0x7FFFFFFF, 0x7FFFFFFF);
  host.expectReports({"guarantee bitmap:11118"});
}

}  // namespace
