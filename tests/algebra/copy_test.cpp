#include "algebra/copy.h"

#include "algebra/algebrafixture.h"
#include "tree/pageaccess.h"

namespace {

// The kind under test is that of the copy.
class CopyTest : public AlgebraTest {
 protected:
  long copy(const RepTreeRootSType& source, RepTreeRootSType& destination, int* entries) {
    TreeSnapshot snapshot(host, source);
    const long bits = BmDoCopyTree(&host, &source, &destination, entries);
    snapshot.expectUnchanged();
    return bits;
  }

  // A copy in the kind under test.
  RepTreeRootSType& copyOf(const RepTreeRootSType& source) {
    RepTreeRootSType& destination = newTree();
    int entries;
    EXPECT_GE(copy(source, destination, &entries), 0);
    return destination;
  }

  bool flushes() const { return kind() == BM_SHARED_PAGE_TREE; }
};
BMTREE_FOR_ALL_KINDS(CopyTest);

TEST_P(CopyTest, AnEmptySourceGivesAnEmptyDestination) {
  for (const BmTreeKindEType sourceKind : {BM_HEAP_TREE, BM_PAGE_TREE, BM_CAREFUL_TREE, BM_INLINE_LIST_TREE}) {
    const RepTreeRootSType source(0, sourceKind);
    RepTreeRootSType& destination = newTree();
    destination.level = 2;
    int entries = 7;
    EXPECT_EQ(BmDoCopyTree(&host, &source, &destination, &entries), 0);
    EXPECT_EQ(entries, 0);
    EXPECT_EQ(destination.root, 0u);
    EXPECT_EQ(destination.level, 0);
  }
}

TEST_P(CopyTest, AnEmptyInlineListGivesAnEmptyDestination) {
  InlineTree source;
  RepTreeRootSType& destination = newTree();
  int entries = 7;
  EXPECT_EQ(BmDoCopyTree(&host, source.root(), &destination, &entries), 0);
  EXPECT_EQ(entries, 0);
  EXPECT_EQ(destination.root, 0u);
}

TEST_P(CopyTest, AnInlineListBecomesARootLeaf) {
  InlineTree source({5, 6, topBit}, 40);
  RepTreeRootSType& destination = newTree();
  int entries;
  EXPECT_EQ(BmDoCopyTree(&host, source.root(), &destination, &entries), 3);
  EXPECT_EQ(entries, 1);
  EXPECT_EQ(shapeOf(destination), "list 3@255");
  expectSound(destination, {5, 6, topBit});
}

TEST_P(CopyTest, ALevelZeroListIsLaidOutAnew) {
  const RepTreeRootSType& source = built(BM_PAGE_TREE, listLeaf(0, {1, 2, 3}, 700));
  RepTreeRootSType& destination = newTree();
  int entries;
  EXPECT_EQ(copy(source, destination, &entries), 3);
  EXPECT_EQ(entries, 1);
  EXPECT_EQ(shapeOf(destination), "list 3@255");
  EXPECT_EQ(rawU16(bytesOf(destination, destination.root), at::bytesUsed), (3 + 255) * 8 + 40);
}

TEST_P(CopyTest, FrontGapsFollowTheCountAlone) {
  const std::pair<uint64_t, int> gaps[] = {{1, 255}, {255, 255}, {256, 595}, {1843, 66}, {1844, 0}, {2043, 0}};
  for (const auto& [count, gap] : gaps) {
    const RepTreeRootSType& source = built(BM_HEAP_TREE, Leaves{listLeaf(0, runOfBits(0, count))});
    EXPECT_EQ(shapeOf(copyOf(source)), "[0 list " + std::to_string(count) + "@" + std::to_string(gap) + "]");
  }
}

TEST_P(CopyTest, ATreeOfEmptyKeptLeavesCopiesToNothing) {
  const size_t pagesBefore = host.livePages().size();
  const size_t heapBefore = host.heapPages();
  for (const Groups& groups : {Groups{{denseLeaf(0, {}, 1), denseLeaf(span(3), {}, 1)}},
                               Groups{{denseLeaf(0, {}, 1)}, {denseLeaf(span(3), {}, 1)}}}) {
    RepTreeRootSType source =
        groups.size() == 1 ? buildTree(host, BM_PAGE_TREE, groups.front()) : buildTree(host, BM_PAGE_TREE, groups);
    RepTreeRootSType& destination = newTree();
    int entries = 7;
    EXPECT_EQ(copy(source, destination, &entries), 0);
    EXPECT_EQ(entries, 0);
    EXPECT_EQ(destination.root, 0u);
    EXPECT_EQ(destination.level, 0);
    BmDisposeTree(&host, &source);
  }
  EXPECT_EQ(host.livePages().size(), pagesBefore);
  EXPECT_EQ(host.heapPages(), heapBefore);
}

TEST_P(CopyTest, ARootThatIsAnEmptyKeptLeafFailsUnlikeTheSameLeafInALargerTree) {
  const RepTreeRootSType& source = built(denseLeaf(0, {}, 1));
  RepTreeRootSType& destination = newTree();
  int entries = 7;
  EXPECT_EQ(copy(source, destination, &entries), -1);
  EXPECT_EQ(entries, 0);
  EXPECT_EQ(destination.root, 0u);
}

TEST_P(CopyTest, AnEmptyKeptLeafIsLeftOutAndTheListBeforeItCoversItsGap) {
  const RepTreeRootSType& source =
      built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(3), {}, 1), denseLeaf(span(5), {span(5) + 1}, 1)});
  RepTreeRootSType& destination = newTree();
  int entries;
  EXPECT_EQ(copy(source, destination, &entries), 3);
  EXPECT_EQ(entries, 2);
  EXPECT_EQ(shapeOf(destination), "[0 list 2@255, 5 dense 1]");
  EXPECT_EQ(BmSetBit(&host, &destination, span(3) + 9), 0);
  EXPECT_EQ(shapeOf(destination), "[0 list 3@255, 5 dense 1]");
  expectSound(destination, {1, 2, span(3) + 9, span(5) + 1});
}

TEST_P(CopyTest, ALevelTwoKeyStaysWhereItWasWhenTheFirstLeafBelowIsLeftOut) {
  const RepTreeRootSType& source =
      built(Groups{{denseLeaf(0, {1})}, {denseLeaf(span(3), {}, 1), denseLeaf(span(5), {span(5)})}});
  RepTreeRootSType& destination = copyOf(source);
  EXPECT_EQ(shapeOf(destination), "[0 [0 dense 1], 3 [5 dense 1]]");
  BitSet bits{1, span(5)};
  expectSound(destination, bits);
  for (const uint64_t bit : {span(3) + 1, span(4), span(5) + 1, span(2)}) {
    EXPECT_EQ(BmTestBit(&host, &destination, bit), 0);
    EXPECT_EQ(BmSetBit(&host, &destination, bit), 0);
    EXPECT_EQ(BmTestBit(&host, &destination, bit), 1);
    bits.insert(bit);
    expectSound(destination, bits);
  }
  for (const uint64_t bit : BitSet(bits)) {
    EXPECT_EQ(BmClearBit(&host, &destination, bit), 1);
    bits.erase(bit);
    expectSound(destination, bits);
  }
}

TEST_P(CopyTest, ALevelOnePageOfEmptyKeptLeavesIsLeftOutToo) {
  const RepTreeRootSType& source =
      built(Groups{{denseLeaf(0, {}, 1)}, {denseLeaf(span(3), {span(3)})}, {denseLeaf(span(7), {}, 1)}});
  RepTreeRootSType& destination = newTree();
  int entries;
  EXPECT_EQ(copy(source, destination, &entries), 1);
  EXPECT_EQ(entries, 1);
  EXPECT_EQ(shapeOf(destination), "[3 [3 dense 1]]");
}

TEST_P(CopyTest, TheCopyOfAKeptLeafIsNotKeptWhenEmpty) {
  const RepTreeRootSType& source = built(Leaves{denseLeaf(0, {1}, 1), denseLeaf(span(1), {span(1)}, 1)});
  RepTreeRootSType& destination = copyOf(source);
  EXPECT_EQ(shapeOf(destination), "[0 dense 1, 1 dense 1]");
  EXPECT_EQ(BmClearBit(&host, &destination, 1), 1);
  EXPECT_EQ(shapeOf(destination), "[1 dense 1]");
}

TEST_P(CopyTest, AnEmptyDenseLeafThatIsNotKeptIsCopied) {
  const RepTreeRootSType& source = built(Leaves{denseLeaf(0, {}, 0)});
  EXPECT_EQ(shapeOf(copyOf(source)), "[0 dense 0]");
}

TEST_P(CopyTest, SourcesWithoutARootPageOrAboveLevelTwoFailAndChangeNothing) {
  RepTreeRootSType& destination = newTree();
  destination.root = 0;
  destination.level = 0;
  int entries = 7;
  RepTreeRootSType source(0, BM_PAGE_TREE);
  source.level = 1;
  EXPECT_EQ(BmDoCopyTree(&host, &source, &destination, &entries), -1);
  EXPECT_EQ(entries, 0);
  source.root = 4;
  source.level = 3;
  EXPECT_EQ(BmDoCopyTree(&host, &source, &destination, &entries), -1);
  EXPECT_EQ(destination.root, 0u);
}

TEST_P(CopyTest, TheEarlierRootIsOverwrittenAndNotDisposedOf) {
  RepTreeRootSType& destination = built(listLeaf(0, {7}));
  const RepTreeRootSType& earlier = adopt(destination);
  BmCopyTree(&host, &built(BM_HEAP_TREE, listLeaf(0, {8})), &destination);
  expectSound(destination, {8});
  expectSound(earlier, {7});
}

TEST_P(CopyTest, TheKeyTagFollowsThePageThatWasFound) {
  const RepTreeRootSType& source = built(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  unsigned char* rootPage = host.bytes(source, source.root);
  putU64(rootPage, at::key(0), 1);
  putU64(rootPage, at::key(1), span(1));
  RepTreeRootSType& destination = copyOf(source);
  expectSound(destination);
  EXPECT_EQ(shapeOf(destination), "[0 list 1@255, 1 dense 1]");
}

TEST_P(CopyTest, PagesBelowALevelTwoRootBearTheirOwnTag) {
  if (!isHeap()) return;
  RepTreeRootSType& destination = newTree(BM_HEAP_TREE, 31);
  BmCopyTree(&host, &built(Groups{{listLeaf(0, {1})}, {denseLeaf(span(2), {span(2)})}}), &destination);
  for (const TreePage& page : pagesOf(host, destination))
    EXPECT_EQ(host.heapTag(page.ref), page.level == 2 ? 31 : 4325);
  RepTreeRootSType& flat = newTree(BM_HEAP_TREE, 32);
  BmCopyTree(&host, &built(Leaves{listLeaf(0, {1})}), &flat);
  for (const TreePage& page : pagesOf(host, flat)) EXPECT_EQ(host.heapTag(page.ref), 32);
}

TEST_P(CopyTest, SharedPagesAreSentOutAndOthersAreNot) {
  const RepTreeRootSType& source = built(BM_HEAP_TREE, Groups{{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}});
  host.clearEvents();
  RepTreeRootSType& destination = copyOf(source);
  std::vector<std::string> expected;
  if (flushes()) {
    for (const int level : {0, 1, 2}) {
      for (const uint64_t ref : refsAtLevel(host, destination, level)) {
        expected.push_back("flush page " + std::to_string(ref));
      }
    }
  }
  EXPECT_EQ(host.takeEvents({EventKind::flushPage}), expected);
}

TEST_P(CopyTest, ASharedRootWithoutChildrenIsNotSentOut) {
  const RepTreeRootSType& source = built(BM_HEAP_TREE, Leaves{denseLeaf(0, {}, 1)});
  host.clearEvents();
  copyOf(source);
  EXPECT_EQ(host.takeEvents({EventKind::flushPage}), std::vector<std::string>{});
}

TEST_P(CopyTest, EveryPageOfTheCopyIsMarkedAfterItsLastChange) {
  host.watchDirtyMarks();
  copyOf(
      built(BM_HEAP_TREE, Groups{{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {listLeaf(span(9), {span(9)})}}));
  copyOf(built(BM_HEAP_TREE, listLeaf(0, {1})));
  host.expectChangesMarked();
}

TEST_P(CopyTest, SourcePagesArePinnedWhilePagesAreMade) {
  const Groups groups{{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {listLeaf(span(9), {span(9)})}};
  for (const BmTreeKindEType sourceKind : {BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE}) {
    const RepTreeRootSType& source = built(sourceKind, groups);
    RepTreeRootSType& destination = newTree();
    host.moveUnpinnedPages(1);
    int entries;
    EXPECT_EQ(BmDoCopyTree(&host, &source, &destination, &entries), 3);
    host.moveUnpinnedPages(0);
    EXPECT_EQ(host.pinsHeld(), 0);
    expectSound(destination, {1, span(1), span(9)});
  }
}

TEST_P(CopyTest, OutOfPagesTheCopyFailsAndThePagesMadeAreNotFreed) {
  if (isHeap()) return;
  const RepTreeRootSType& source =
      built(BM_HEAP_TREE, Groups{{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}, {listLeaf(span(9), {span(9)})}});
  for (long budget = 0; budget < 6; ++budget) {
    RepTreeRootSType& destination = newTree();
    LeftOverPages leftOver(host, kind());
    host.setPageBudget(budget);
    int entries = 7;
    EXPECT_EQ(copy(source, destination, &entries), -1);
    host.setPageBudget(-1);
    EXPECT_EQ(entries, 0);
    EXPECT_EQ(destination.root, 0u);
    EXPECT_EQ(destination.level, 0);
    EXPECT_EQ(host.pinsHeld(), 0);
    EXPECT_EQ(leftOver.count(), static_cast<size_t>(budget));
    leftOver.dispose();
  }
  host.setPageBudget(6);
  expectSound(copyOf(source), {1, span(1), span(9)});
}

TEST_P(CopyTest, OutOfPagesARootLeafLeavesAnEmptyDestination) {
  if (isHeap()) return;
  host.setPageBudget(0);
  int entries;
  RepTreeRootSType& destination = newTree();
  destination.root = 99;
  EXPECT_EQ(copy(built(BM_HEAP_TREE, listLeaf(0, {1})), destination, &entries), -1);
  EXPECT_EQ(destination.root, 0u);
  InlineTree inlined({5});
  EXPECT_EQ(BmDoCopyTree(&host, inlined.root(), &destination, &entries), -1);
  EXPECT_EQ(destination.root, 0u);
}

TEST_P(CopyTest, ALeafOfAnotherKindIsReportedAndEndsTheCopy) {
  const RepTreeRootSType& source = built(Leaves{listLeaf(0, {1})});
  putU8(leafBytes(source, 0), at::pageKind, 4);
  RepTreeRootSType& destination = newTree();
  LeftOverPages leftOver(host, kind());
  int entries;
  expectLeafFault(4148, source, [&] { EXPECT_EQ(BmDoCopyTree(&host, &source, &destination, &entries), -1); });
  EXPECT_EQ(destination.root, 0u);
  EXPECT_EQ(leftOver.count(), 1u);
  leftOver.dispose();
  putU8(leafBytes(source, 0), at::pageKind, 12);
}

TEST_P(CopyTest, ABadBytesUsedIsReportedAndTheCopyGoesOn) {
  const RepTreeRootSType& source = built(Leaves{denseLeaf(0, {1})});
  putU16(leafBytes(source, 0), at::bytesUsed, 31);
  ::testing::internal::CaptureStdout();
  RepTreeRootSType& destination = newTree();
  int entries;
  EXPECT_EQ(copy(source, destination, &entries), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "illegal bytesUsed in a page\n");
  host.expectReports({"guarantee bitmap:4168"});
  putU16(leafBytes(source, 0), at::bytesUsed, 16384);
}

TEST_P(CopyTest, CopyLeafTellsTheKindAndAddsTheCount) {
  const RepTreeRootSType& source =
      built(Leaves{listLeaf(0, {1, 2}), denseLeaf(span(1), {span(1)}), denseLeaf(span(2), {}, 1)});
  const std::vector<uint64_t> leaves = refsAtLevel(host, source, 0);
  RepTreeRootSType destination(0, kind());
  destination.allocTag = 5;
  RepPageKindEType pageKind = REP_ANY_PAGE;
  long bits = 100;
  const unsigned long list = copyLeaf(&host, leaves[0], 7, kind(), &destination, &pageKind, &bits);
  EXPECT_EQ(pageKind, REP_BIT_LIST_PAGE);
  EXPECT_EQ(bits, 102);
  const unsigned long dense = copyLeaf(&host, leaves[1], 7, kind(), &destination, &pageKind, &bits);
  EXPECT_EQ(pageKind, REP_BM_LEAF_PAGE);
  EXPECT_EQ(bits, 103);
  EXPECT_EQ(copyLeaf(&host, leaves[2], 7, kind(), &destination, &pageKind, &bits), 0u);
  EXPECT_EQ(pageKind, BM_COPY_SKIPPED);
  EXPECT_EQ(static_cast<int>(BM_COPY_SKIPPED), 20);
  EXPECT_EQ(bits, 103);
  BmDisposePage(&host, list, kind());
  BmDisposePage(&host, dense, kind());
}

TEST_P(CopyTest, AnInlineDestinationTakesNoCopyAndKeepsItsList) {
  InlineTree destination({5});
  int entries;
  for (RepTreeRootSType* source : {&built(listLeaf(0, {1})), &built(Leaves{listLeaf(0, {1})})}) {
    EXPECT_EQ(BmDoCopyTree(&host, source, destination.root(), &entries), -1);
    EXPECT_EQ(bitsOf(*destination.root()), std::vector<uint64_t>{5});
  }
  InlineTree source({6});
  EXPECT_EQ(BmDoCopyTree(&host, source.root(), destination.root(), &entries), -1);
  EXPECT_EQ(bitsOf(*destination.root()), std::vector<uint64_t>{5});
}

TEST_P(CopyTest, DiskRootsAreExpandedAndWrittenBack) {
  if (isHeap()) return;
  const RepTreeRootSType& source = built(Leaves{denseLeaf(span(1), {span(1)})});
  const DiskTreeRootSType disk = diskRootOf(source);
  RepTreeRootSType& fromDisk = newTree(BM_HEAP_TREE);
  BmCopyTree(&host, &disk, &fromDisk);
  expectSound(fromDisk, {span(1)});
  DiskTreeRootSType target(0, kind());
  BmCopyTree(&host, &fromDisk, &target);
  EXPECT_EQ(target.level, 1);
  EXPECT_EQ(target.treeKind, kind());
  RepTreeRootSType written(pageIdOf(target), kind());
  written.level = target.level;
  expectSound(adopt(written), {span(1)});
}

TEST_F(TreeFixture, AHeapKindDiskRootCannotHoldACopyUnlessItIsEmpty) {
  const RepTreeRootSType& source = adopt(buildTree(host, BM_PAGE_TREE, listLeaf(0, {1})));
  DiskTreeRootSType target(0, BM_HEAP_TREE);
  host.clearEvents();
  BmCopyTree(&host, &source, &target);
  host.expectReports({"guarantee bitmap:1506"});
  EXPECT_EQ(target.treeKind, BM_PAGE_TREE);
  EXPECT_EQ(pageIdOf(target), 0u);
  for (const Event& event : std::vector<Event>(host.events())) {
    if (event.kind == EventKind::heapAlloc) BmDisposePage(&host, event.page, BM_HEAP_TREE);
  }
  const RepTreeRootSType empty(0, BM_PAGE_TREE);
  DiskTreeRootSType emptyTarget(0, BM_HEAP_TREE);
  BmCopyTree(&host, &empty, &emptyTarget);
  EXPECT_EQ(emptyTarget.treeKind, BM_PAGE_TREE);
}

}  // namespace
