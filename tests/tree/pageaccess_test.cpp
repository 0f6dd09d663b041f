// Making, reaching and releasing the pages of each kind of tree.
#include "tree/pageaccess.h"

#include <gtest/gtest-spi.h>

#include "bitmap.h"
#include "support/treemodel.h"

namespace {

using Lines = std::vector<std::string>;

std::string id(uint64_t page) { return std::to_string(page); }

// ---------------------------------------------------------------------------------------------------------
// Making pages of any kind of tree

class NewPageTest : public TreeTest {
 protected:
  int sharedFlag() const { return kind() >= BM_SHARED_PAGE_TREE ? 1 : 0; }

  // Gives a page that stands in no tree to a tree of its own, so that it is released at the end.
  void own(RepPageHdrSType* page) {
    RepTreeRootSType& owner = newTree();
    owner.root = isHeap() ? reinterpret_cast<uint64_t>(page) : page->pageId;
  }

  static std::string newLine(uint64_t page, int pageKind, int shared) {
    return "new " + id(page) + " kind " + std::to_string(pageKind) + " shared " + std::to_string(shared);
  }
};
BMTREE_FOR_ALL_KINDS(NewPageTest);

TEST_P(NewPageTest, APageComesFromWhereTheTreeKindSays) {
  RepTreeRootSType& tree = newTree();
  const uint64_t next = host.nextPageId();
  RepPageHdrSType* page = BmLocateNewPage(&host, REP_BM_LEAF_PAGE, &tree);
  own(page);
  Lines expected{newLine(next, 8, sharedFlag())};
  if (isHeap()) expected = {"heap alloc tag 777"};
  if (isCareful()) {
    expected.insert(expected.end(), {"dirty " + id(next) + " mode 3", "heap alloc tag 1889",
                                     "locate " + id(next) + " kind 0 mode 0"});
  }
  EXPECT_EQ(host.takeEvents(), expected);
  EXPECT_EQ(page->pageKind, 8);
  EXPECT_EQ(page->bytesUsed, 16384);
}

TEST_P(NewPageTest, AListPageIsMarkedWhenItsBytesUsedIsSetAndWhenItsFieldsAre) {
  RepTreeRootSType& tree = newTree();
  const uint64_t next = host.nextPageId();
  own(basicNewBitListPage(&host, &tree));
  const std::string dirty = "dirty " + id(next) + " mode 3";
  Lines expected{newLine(next, 12, sharedFlag()), dirty};
  if (isHeap()) expected = {"heap alloc tag 777"};
  if (isCareful()) {
    expected.insert(expected.end(), {dirty, "heap alloc tag 1889", "locate " + id(next) + " kind 0 mode 0"});
  }
  if (!isHeap()) expected.push_back(dirty);
  EXPECT_EQ(host.takeEvents(), expected);
}

TEST_P(NewPageTest, AnInternalPageIsMarkedOnceAfterItsFieldsAreSet) {
  RepTreeRootSType& tree = newTree();
  const uint64_t next = host.nextPageId();
  RepPageHdrSType* page = newBmInternalPage(&host, &tree, 1);
  own(page);
  if (isHeap()) {
    EXPECT_EQ(host.takeEvents(), Lines{"heap alloc tag 777"});
    return;
  }
  EXPECT_EQ(host.countLogged(EventKind::dirty, next), isCareful() ? 2 : 1);
  EXPECT_EQ(host.events().back().toString(), "dirty " + id(next) + " mode 3");
}

TEST_P(NewPageTest, NoMakerMakesAPageWhenThereIsNone) {
  if (isHeap()) GTEST_SKIP() << "heap pages do not run out";
  RepTreeRootSType& tree = newTree();
  host.setPageBudget(0);
  EXPECT_EQ(BmLocateNewPage(&host, REP_BM_LEAF_PAGE, &tree), nullptr);
  EXPECT_EQ(newBmInternalPage(&host, &tree, 1), nullptr);
  EXPECT_EQ(basicNewBitListPage(&host, &tree), nullptr);
  EXPECT_EQ(newKeptDensePage(&host, &tree), nullptr);
  const std::string shared = std::to_string(sharedFlag());
  EXPECT_EQ(host.takeEvents(),
            (Lines{"new refused kind 8 shared " + shared, "new refused kind 7 shared " + shared,
                   "new refused kind 12 shared " + shared, "new refused kind 8 shared " + shared}));
}

TEST_P(NewPageTest, AKeptDensePageHasNoBitsAndStaysWhenEmpty) {
  host.watchDirtyMarks();
  RepTreeRootSType& tree = newTree();
  RepPageHdrSType* page = newKeptDensePage(&host, &tree);
  own(page);
  EXPECT_EQ(rawU32(page, at::bitsSet), 0u);
  EXPECT_EQ(rawU32(page, at::keepWhenEmpty), 1u);
  for (size_t word = 0; word < 2043; ++word) ASSERT_EQ(rawU64(page, at::word(word)), 0u);
  host.expectChangesMarked();
}

TEST_P(NewPageTest, DisposingOfAPageOfTheCurrentStampReleasesIt) {
  RepTreeRootSType& tree = newTree();
  RepPageHdrSType* page = basicNewBitListPage(&host, &tree);
  const uint64_t ref = isHeap() ? reinterpret_cast<uint64_t>(page) : page->pageId;
  host.clearEvents();
  EXPECT_EQ(BmDisposePage(&host, ref, kind()), 1);
  Lines expected{"dispose " + id(ref)};
  if (isHeap()) expected = {"heap free tag 777"};
  if (isCareful()) {
    // its id was the only one in the set, which gives its page back too
    expected = {"locate " + id(ref) + " kind 0 mode 0", "dispose " + id(ref), "heap free tag 1889"};
  }
  EXPECT_EQ(host.takeEvents(), expected);
  EXPECT_EQ(host.numHeapBmPages(), 0);
}

// ---------------------------------------------------------------------------------------------------------
// Heap pages

class HeapPageTest : public TreeFixture {
 protected:
  RepTreeRootSType& tree = newTree(BM_HEAP_TREE, 4242);
};

TEST_F(HeapPageTest, ThePageIdIsTheAddressTheStateIs3AndTheOtherHeaderBytesAreZero) {
  const RepPageHdrSType* page = BmLocateNewPage(&host, REP_BIT_LIST_PAGE, &tree);
  tree.root = reinterpret_cast<uint64_t>(page);
  PageBytes expected{};
  putU8(expected.data(), 0, 12);
  putU8(expected.data(), 1, 3);
  putU64(expected.data(), 8, tree.root);
  putU16(expected.data(), 24, 40);
  EXPECT_EQ(std::memcmp(page, expected.data(), 32), 0);
  EXPECT_EQ(rawU8(page, 32), 0xA5) << "nothing behind the header is touched";
}

TEST_F(HeapPageTest, EachPageCountsOnceForTheOwner) {
  const auto first = reinterpret_cast<uint64_t>(basicNewBitListPage(&host, &tree));
  EXPECT_EQ(host.numHeapBmPages(), 1);
  const auto second = reinterpret_cast<uint64_t>(newBmInternalPage(&host, &tree, 1));
  EXPECT_EQ(host.numHeapBmPages(), 2);
  EXPECT_EQ(BmDisposePage(&host, first, BM_HEAP_TREE), 1);
  EXPECT_EQ(host.numHeapBmPages(), 1);
  EXPECT_EQ(BmDisposePage(&host, second, BM_HEAP_TREE), 1);
  EXPECT_EQ(host.numHeapBmPages(), 0);
}

TEST_F(HeapPageTest, ANullContextWorksAndCountsNothing) {
  RepPageHdrSType* page = BmLocateNewPage(nullptr, REP_BM_INTERNAL_PAGE, &tree);
  ASSERT_NE(page, nullptr);
  EXPECT_EQ(page->bytesUsed, 16384);
  EXPECT_EQ(host.takeEvents(), Lines{"heap alloc tag 4242"});
  EXPECT_EQ(host.numHeapBmPages(), 0);
  EXPECT_EQ(BmDisposePage(nullptr, reinterpret_cast<uint64_t>(page), BM_HEAP_TREE), 1);
  EXPECT_EQ(host.takeEvents(), Lines{"heap free tag 4242"});
  EXPECT_EQ(host.numHeapBmPages(), 0);
}

TEST_F(HeapPageTest, DisposingOfAddressZeroIsReportedAndGoesOn) {
  EXPECT_NONFATAL_FAILURE(EXPECT_EQ(BmDisposePage(nullptr, 0, BM_HEAP_TREE), 1), "not in use");
  host.expectReports({"guarantee bitmap:1904"});
}

// ---------------------------------------------------------------------------------------------------------
// Reaching pages

class LocateTest : public TreeFixture {};

TEST_F(LocateTest, ACachedPageIsLocatedByItsIdAndTheRequiredKind) {
  const uint64_t page = host.placeCachedPage(internalImage(1, {}));
  for (const char treeKind : {1, 2, 3, -2}) {
    EXPECT_EQ(BM_LOCATE_PAGE(&host, page, REP_BM_INTERNAL_PAGE, treeKind), host.page(page));
    EXPECT_EQ(host.takeEvents(), Lines{"locate " + id(page) + " kind 7 mode -1"});
  }
  host.releasePage(page);
}

TEST_F(LocateTest, AHeapPageIsTakenAtItsAddressWithoutACall) {
  const uint64_t page = adopt(buildTree(host, BM_HEAP_TREE, std::vector<LeafSpec>{})).root;
  EXPECT_EQ(BM_LOCATE_PAGE(&host, page, REP_BM_INTERNAL_PAGE, 0), reinterpret_cast<RepPageHdrSType*>(page));
  EXPECT_EQ(host.takeEvents(), Lines{});
}

TEST_F(LocateTest, AHeapPageOfAnotherKindIsReportedAndReturned) {
  const uint64_t page = adopt(buildTree(host, BM_HEAP_TREE, listLeaf(0, {1}))).root;
  EXPECT_EQ(BM_LOCATE_PAGE(&host, page, REP_BM_INTERNAL_PAGE, 0), reinterpret_cast<RepPageHdrSType*>(page));
  host.expectReports({"header fault: page " + id(page) + " is not of kind 7, null:0"});
}

class TreeAccessTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(TreeAccessTest);

TEST_P(TreeAccessTest, EachWayInLocatesOnceWithItsKindAndMode) {
  const RepTreeRootSType& list = adopt(buildTree(host, kind(), listLeaf(0, {1})));
  const RepTreeRootSType& top = adopt(buildTree(host, kind(), std::vector<LeafSpec>{}));
  const TreeAccess pages(&host, list);
  EXPECT_EQ(pages.leaf(list.root)->pageKind, 12);
  EXPECT_EQ(pages.list(list.root)->pageKind, 12);
  EXPECT_EQ(pages.checkedList(list.root)->pageKind, 12);
  EXPECT_EQ(pages.internal(top.root)->hdr.pageKind, 7);
  EXPECT_EQ(pages.checkedInternal(top.root)->hdr.pageKind, 7);
  const std::string asList = "locate " + id(list.root) + " kind 12 mode -1";
  const std::string asInternal = "locate " + id(top.root) + " kind 7 mode -1";
  EXPECT_EQ(host.takeEvents(),
            isHeap() ? Lines{}
                     : (Lines{"locate " + id(list.root) + " kind 0 mode 0", asList, asList, asInternal, asInternal}));
}

TEST_P(TreeAccessTest, OnlyTheCheckedWaysReportAHeapPageOfAnotherKind) {
  if (!isHeap()) GTEST_SKIP() << "the page cache checks its own pages";
  const RepTreeRootSType& list = adopt(buildTree(host, kind(), listLeaf(0, {1})));
  const RepTreeRootSType& top = adopt(buildTree(host, kind(), std::vector<LeafSpec>{}));
  const TreeAccess pages(&host, list);
  pages.internal(list.root);
  pages.list(top.root);
  host.expectReports({});
  pages.checkedInternal(list.root);
  pages.checkedList(top.root);
  host.expectReports({"header fault: page " + id(list.root) + " is not of kind 7, null:0",
                      "header fault: page " + id(top.root) + " is not of kind 12, null:0"});
}

TEST_P(TreeAccessTest, MarksAndPinsReachOnlyTheCache) {
  const RepTreeRootSType& tree = adopt(buildTree(host, kind(), listLeaf(0, {1})));
  const TreeAccess pages(&host, tree);
  RepPageHdrSType* page = pages.leaf(tree.root);
  EXPECT_EQ(pages.refOf(page), tree.root);
  host.clearEvents();
  pages.markDirty(page);
  {
    const PinnedPage pinned(pages, page);
    EXPECT_EQ(host.pinsHeld(), isHeap() ? 0 : 1);
  }
  EXPECT_EQ(host.pinsHeld(), 0);
  EXPECT_EQ(host.takeEvents(), isHeap() ? Lines{}
                                        : (Lines{"dirty " + id(tree.root) + " mode 3", "pin " + id(tree.root),
                                                 "unpin " + id(tree.root)}));
}

// ---------------------------------------------------------------------------------------------------------
// Releasing cached pages

class DisposePageTest : public TreeFixture {};

TEST_F(DisposePageTest, TheAnswerOfThePageCacheIsHandedOn) {
  for (const BmTreeKindEType kind : {BM_PAGE_TREE, BM_SHARED_PAGE_TREE}) {
    const uint64_t page = host.placeCachedPage(listImage({1}));
    host.refuseDisposal(page);
    EXPECT_EQ(BmDisposePage(&host, page, kind), 0);
    EXPECT_EQ(host.takeEvents(), Lines{"dispose refused " + id(page)});
    host.releasePage(page);
  }
}

TEST_F(DisposePageTest, AnIdBelowFourIsReportedAndHandedOn) {
  for (const uint64_t page : {0, 1, 3}) {
    host.refuseDisposal(page);
    for (const BmTreeKindEType kind : {BM_PAGE_TREE, BM_SHARED_PAGE_TREE}) {
      EXPECT_EQ(BmDisposePage(&host, page, kind), 0);
      host.expectReports({"guarantee bitmap:1931"});
      EXPECT_EQ(host.takeEvents({EventKind::disposeRefused}), Lines{"dispose refused " + id(page)});
    }
  }
}

TEST_F(DisposePageTest, TheLowestIdIsFour) {
  EXPECT_EQ(host.placeCachedPage(listImage({1})), 4u);
  EXPECT_EQ(BmDisposePage(&host, 4, BM_PAGE_TREE), 1);
  host.expectReports({});
}

TEST_F(DisposePageTest, ACarefulIdThatNamesNoPageIsReportedAndReleasesNothing) {
  EXPECT_EQ(BmDisposePage(&host, 0, BM_CAREFUL_TREE), 0);
  host.expectReports({"guarantee bitmap:1931"});
  EXPECT_EQ(host.takeEvents({EventKind::dispose, EventKind::heapAlloc}), Lines{});
}

// ---------------------------------------------------------------------------------------------------------
// Careful pages

class CarefulPageTest : public TreeFixture {
 protected:
  RepTreeRootSType& tree = newTree(BM_CAREFUL_TREE);

  // A page of the tree, stamped as told; not in dirtyCarefulBm.
  uint64_t placeStamped(uint64_t stamp) {
    PageBytes image = listImage({1});
    putStamp(image.data(), stamp);
    return host.placeCachedPage(image, stamp);
  }
  std::vector<uint64_t> dirtyIds() { return bitsOf(*host.dirtyCarefulBm); }
  std::vector<uint64_t> obsoleteIds() { return bitsOf(host.obsoleteCarefulBm); }
};

TEST_F(CarefulPageTest, ANewPageCarriesTheCurrentStampInTwoHalvesAndIsRecordedAsDirty) {
  for (const uint64_t stamp : {uint64_t{1}, uint64_t{0xFFFFFFFF}, uint64_t{0x100000002}}) {
    *host.carefulStamp = stamp;
    const RepPageHdrSType* page = BmLocateNewPage(&host, REP_BM_LEAF_PAGE, &tree);
    EXPECT_EQ(rawU32(page, 4), static_cast<uint32_t>(stamp >> 32));
    EXPECT_EQ(rawU32(page, 28), static_cast<uint32_t>(stamp));
    EXPECT_EQ(dirtyIds(), std::vector<uint64_t>{page->pageId});
    BmDisposePage(&host, page->pageId, BM_CAREFUL_TREE);
  }
}

TEST_F(CarefulPageTest, TheOtherCachedKindsLeaveTheStampBytesAlone) {
  for (const BmTreeKindEType kind : {BM_PAGE_TREE, BM_SHARED_PAGE_TREE}) {
    RepTreeRootSType& other = newTree(kind);
    const RepPageHdrSType* page = basicNewBitListPage(&host, &other);
    other.root = page->pageId;
    EXPECT_EQ(rawStamp(page), 0xA5A5A5A5A5A5A5A5u);
  }
  EXPECT_EQ(dirtyIds(), std::vector<uint64_t>{});
}

TEST_F(CarefulPageTest, ANewPageThatIsRecordedAlreadyIsReportedAndUsed) {
  const uint64_t next = host.nextPageId();
  BmSetBit(&host, host.dirtyCarefulBm, next);
  const RepPageHdrSType* page = basicNewBitListPage(&host, &tree);
  host.expectReports({"cache fault: page " + id(next) + " \"duplicate dirty carefulBm pages\\n\" bitmap:920"});
  EXPECT_EQ(page->pageId, next);
  tree.root = next;
}

TEST_F(CarefulPageTest, ANewPageIsFoundAgainWhenItMovedWhileItWasRecorded) {
  host.moveUnpinnedPages(1);
  RepTreeRootSType dirtySet(0, BM_PAGE_TREE);  // whose own pages push the new page out
  host.dirtyCarefulBm = &dirtySet;
  RepPageHdrSType* page = basicNewBitListPage(&host, &tree);
  EXPECT_EQ(page->bytesUsed, 40);
  EXPECT_EQ(host.pageIsLive(page->pageId), true);
  tree.root = page->pageId;
  EXPECT_EQ(bitsOf(dirtySet), std::vector<uint64_t>{tree.root});
  BmDisposeTree(&host, &tree);
  BmDisposeTree(&host, &dirtySet);
  host.dirtyCarefulBm = &host.unitTestDirtyCarefulBm;
}

TEST_F(CarefulPageTest, DisposingOfAPageOfTheCurrentStampTakesItOutOfTheDirtySet) {
  RepTreeRootSType& other = newTree(BM_CAREFUL_TREE);
  other.root = basicNewBitListPage(&host, &other)->pageId;
  const uint64_t page = basicNewBitListPage(&host, &tree)->pageId;
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  EXPECT_FALSE(host.pageIsLive(page));
  EXPECT_EQ(dirtyIds(), std::vector<uint64_t>{other.root});
  EXPECT_EQ(obsoleteIds(), std::vector<uint64_t>{});
}

TEST_F(CarefulPageTest, DisposingOfAnUnrecordedPageOfTheCurrentStampIsReported) {
  const uint64_t page = placeStamped(*host.carefulStamp);
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  host.expectReports({"cache fault: page " + id(page) + " \"illegal dispose of carefulBm page\\n\" bitmap:920"});
  EXPECT_FALSE(host.pageIsLive(page));
}

TEST_F(CarefulPageTest, DisposingOfAnOlderPageRecordsItAsObsoleteAndReleasesNothing) {
  const uint64_t page = placeStamped(*host.carefulStamp - 1);
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  EXPECT_TRUE(host.pageIsLive(page));
  EXPECT_EQ(obsoleteIds(), std::vector<uint64_t>{page});
  EXPECT_EQ(host.takeEvents({EventKind::dispose, EventKind::dirty}), Lines{});
}

TEST_F(CarefulPageTest, DisposingOfAnOlderPageTwiceIsReported) {
  const uint64_t page = placeStamped(*host.carefulStamp - 1);
  BmDisposePage(&host, page, BM_CAREFUL_TREE);
  host.expectReports({});
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  host.expectReports({"cache fault: page " + id(page) + " \"illegal dispose\" bitmap:920"});
  EXPECT_EQ(obsoleteIds(), std::vector<uint64_t>{page});
}

TEST_F(CarefulPageTest, AnOlderPageIsNotRecordedWhileTrackingIsOff) {
  const uint64_t page = placeStamped(*host.carefulStamp - 1);
  host.carefulActive = 0;
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  host.expectReports({});
  EXPECT_EQ(obsoleteIds(), std::vector<uint64_t>{});
  EXPECT_TRUE(host.pageIsLive(page));
  host.carefulActive = 1;
  host.releasePage(page);
}

TEST_F(CarefulPageTest, APageOfALaterStampIsReleasedLikeOneOfTheCurrentStamp) {
  const uint64_t page = placeStamped(*host.carefulStamp + 1);
  BmSetBit(&host, host.dirtyCarefulBm, page);
  EXPECT_EQ(BmDisposePage(&host, page, BM_CAREFUL_TREE), 1);
  EXPECT_FALSE(host.pageIsLive(page));
  EXPECT_EQ(dirtyIds(), std::vector<uint64_t>{});
}

TEST_F(CarefulPageTest, StampsAreComparedAsSignedValues) {
  const uint64_t negative = placeStamped(0x8000000000000000);
  EXPECT_EQ(BmDisposePage(&host, negative, BM_CAREFUL_TREE), 1);
  EXPECT_TRUE(host.pageIsLive(negative)) << "below every positive stamp";
  EXPECT_EQ(obsoleteIds(), std::vector<uint64_t>{negative});
}

TEST_F(CarefulPageTest, BothHalvesOfTheStampDecide) {
  *host.carefulStamp = 0x200000001;
  const uint64_t older = placeStamped(0x1FFFFFFFF);  // its low half is above the current one's
  BmDisposePage(&host, older, BM_CAREFUL_TREE);
  EXPECT_EQ(obsoleteIds(), std::vector<uint64_t>{older});
}

}  // namespace
