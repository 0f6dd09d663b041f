// Making room for a bit whose list is full: which way is taken, what moves where, and which keys change.
#include "tree/splitlist.h"

#include "tree/copyentries.h"
#include "tree/writetest.h"

namespace {

// `count` entries from the start of the span `index`.
struct Part {
  uint64_t index;
  size_t count;
};

std::vector<uint64_t> entries(const std::vector<Part>& parts) {
  std::vector<uint64_t> bits;
  for (const Part& part : parts) bits = bits + steps(span(part.index), part.count, 3);
  return bits;
}

class SplitListTest : public WriteTest {
 protected:
  static LeafSpec list(uint64_t key, const std::vector<Part>& parts, int firstOffset = 0) {
    return listLeaf(span(key), entries(parts), firstOffset);
  }

  // A dense leaf of one bit.
  static LeafSpec dense(uint64_t key) { return denseLeaf(span(key), {span(key)}); }

  // Splits for `bit`, expects that nothing was lost, and returns the answer.
  int split(RepTreeRootSType& tree, uint64_t bit) {
    const std::vector<uint64_t> bits = bitsOf(tree);
    host.clearEvents();
    testing::internal::CaptureStdout();
    const int answer = splitBitList(&host, &tree, bit, 0);
    printed = testing::internal::GetCapturedStdout();
    expectSound(tree, {bits.begin(), bits.end()});
    expectCarefulSets();
    EXPECT_EQ(host.pinsHeld(), 0);
    return answer;
  }

  void expectSplit(RepTreeRootSType& tree, uint64_t bit, const std::string& shape) {
    EXPECT_EQ(split(tree, bit), 1);
    EXPECT_EQ(shapeOf(tree), shape);
    EXPECT_EQ(printed, "");
  }

  // Takes one report, a guarantee of the bitmap subsystem at a line that carries no promise.
  void expectOneGuarantee() {
    const std::vector<Report> reports = host.takeReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].toString().substr(0, 17), "guarantee bitmap:");
  }

  std::string printed;
};
BMTREE_FOR_ALL_KINDS(SplitListTest);

// ---------------------------------------------------------------------------------------------------------
// Nothing to split

TEST_P(SplitListTest, ALevel0TreeWhoseListIsNotFullIsLiftedWithoutAWord) {
  RepTreeRootSType& tree = adoptTree(list(0, {{3, 2042}}));
  expectSplit(tree, span(1), "[0 list 2042@0]");
  EXPECT_EQ(tree.level, 1);
}

TEST_P(SplitListTest, AListThatIsNotFullIsPrintedAndReported) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(0, {{3, 2042}})});
  EXPECT_EQ(split(tree, span(1)), 1);
  EXPECT_EQ(printed, "premature split of bitlist\n");
  expectOneGuarantee();
  EXPECT_EQ(shapeOf(tree), "[0 list 2042@0]");
}

TEST_P(SplitListTest, ABitInNoLeafIsPrintedAndReported) {
  RepTreeRootSType& tree = adoptTree(Leaves{dense(0), list(4, {{4, 2043}})});
  EXPECT_EQ(split(tree, span(2)), 1);
  EXPECT_EQ(printed, "leaf not found for bit in splitBitList\n");
  expectOneGuarantee();
}

// ---------------------------------------------------------------------------------------------------------
// Below all entries: a leaf in front

TEST_P(SplitListTest, ABitBelowAllEntriesGetsALeafInFrontUnderTheOldKey) {
  RepTreeRootSType& tree = adoptTree(Leaves{dense(0), list(2, {{5, 1000}, {6, 1043}}), dense(9)},
                                     {.internalFirstOffset = 4, .currentStamp = true});
  const uint64_t full = leafRef(tree, 1);
  expectSplit(tree, span(3) + 7, "[0 dense 1, 2 list 0@0, 5 list 2043@0, 9 dense 1]");
  EXPECT_EQ(leafRef(tree, 2), full);
  EXPECT_EQ(frontOf(tree, tree.root), 4u);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{1, span(2), span(5), span(9) | 1}));
}

TEST_P(SplitListTest, ALeafInFrontMovesNoEntryAndMarksTheParentTwice) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(2, {{5, 2043}})}, {.currentStamp = true});
  const uint64_t full = leafRef(tree, 0);
  EXPECT_EQ(split(tree, span(3)), 1);
  EXPECT_EQ(marks(full), 0);
  EXPECT_EQ(marks(tree.root), cached(2));
}

TEST_P(SplitListTest, AFullListOfOneSpanWithABitBelowItIsNotConverted) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, steps(span(5), 2043)));
  expectSplit(tree, span(4), "[0 list 0@0, 5 list 2043@0]");
}

TEST_P(SplitListTest, InFrontOfTheFirstLeafOfALevelOnePageTheLevel2KeyGoesUpAndComesBack) {
  RepTreeRootSType& tree = adoptTree(Groups{{dense(0)}, {list(2, {{5, 2043}})}, {dense(9)}}, {.currentStamp = true});
  expectSplit(tree, span(3), "[0 [0 dense 1], 2 [2 list 0@0, 5 list 2043@0], 9 [9 dense 1]]");
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(2), span(9)}));
  EXPECT_EQ(marks(tree.root), cached(2));
}

TEST_P(SplitListTest, ALeafInFrontOnAFullPageIsMadeAfterThatPageWasSplit) {
  Leaves leaves;
  for (uint64_t i = 0; i < 1020; ++i) leaves.push_back(dense(i));
  leaves.push_back(list(1020, {{1025, 2043}}));
  RepTreeRootSType& tree = adoptTree(leaves);
  EXPECT_EQ(split(tree, span(1022)), 1);
  EXPECT_EQ(tree.level, 2);
  const std::vector<uint64_t> keys = keysOf(tree, nodeRef(tree, 1));
  EXPECT_EQ(keys.size(), 512u);
  EXPECT_EQ(keys[510], span(1020));
  EXPECT_EQ(keys[511], span(1025));
}

TEST_P(SplitListTest, TheFirstLeafOfACutPageGetsItsLeafInFrontThere) {
  Leaves leaves;
  for (uint64_t i = 0; i < 1021; ++i)
    leaves.push_back(i == 510 ? list(510, {{511, 2043}}) : dense(i < 510 ? i : i + 9));
  RepTreeRootSType& tree = adoptTree(leaves);
  EXPECT_EQ(split(tree, span(510) + 3), 1);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(510)}));
  EXPECT_EQ(pairsOf(tree, nodeRef(tree, 0)), 510u);
  EXPECT_EQ(pairsOf(tree, nodeRef(tree, 1)), 512u);
}

// ---------------------------------------------------------------------------------------------------------
// One span: dense

TEST_P(SplitListTest, AFullListOfOneSpanGoesDenseOnItsOwnPage) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(1, {{3, 2043}})}, {.currentStamp = true});
  const uint64_t leaf = leafRef(tree, 0);
  expectSplit(tree, span(4) - 1, "[3 dense 2043]");
  EXPECT_EQ(leafRef(tree, 0), leaf);
  EXPECT_EQ(keysOf(tree, tree.root), std::vector<uint64_t>{span(3) | 1});
}

TEST_P(SplitListTest, AFullLevel0ListOfOneSpanGoesDenseBelowANewRoot) {
  RepTreeRootSType& tree = adoptTree(list(0, {{0, 2043}}));
  expectSplit(tree, span(1) - 1, "[0 dense 2043]");
  EXPECT_EQ(tree.level, 1);
}

// ---------------------------------------------------------------------------------------------------------
// Above all spans: a leaf behind

TEST_P(SplitListTest, ABitAboveAllSpansGetsAnEmptyLeafBehindAndNothingMoves) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(0, {{1, 1000}, {2, 1043}})}, {.currentStamp = true});
  const uint64_t full = leafRef(tree, 0);
  expectSplit(tree, span(8), "[0 list 2043@0, 3 list 0@0]");
  EXPECT_EQ(marks(full), 0);
  EXPECT_EQ(marks(tree.root), cached(1));
  EXPECT_EQ(marks(leafRef(tree, 1)), isCareful() ? 3 : cached(2));
}

TEST_P(SplitListTest, AFullListOfOneSpanWithABitAboveItIsNotConverted) {
  RepTreeRootSType& tree = adoptTree(list(0, {{0, 2043}}));
  expectSplit(tree, span(1), "[0 list 2043@0, 1 list 0@0]");
}

TEST_P(SplitListTest, ALeafBehindOnAFullPageIsMadeAfterThatPageWasSplit) {
  Leaves leaves;
  for (uint64_t i = 0; i < 1020; ++i) leaves.push_back(dense(i));
  leaves.push_back(list(1020, {{1020, 2043}}));
  RepTreeRootSType& tree = adoptTree(leaves);
  EXPECT_EQ(split(tree, span(2000)), 1);
  const std::vector<uint64_t> keys = keysOf(tree, nodeRef(tree, 1));
  EXPECT_EQ(keys.size(), 512u);
  EXPECT_EQ(keys[511], span(1021));
  EXPECT_EQ(keys[510], span(1020));
}

TEST_P(SplitListTest, InATreeOfDenseLeavesTheLeafBehindIsDense) {
  RepTreeRootSType& tree = adoptTree(list(0, {{0, 2043}}));
  tree.denseLeaves = 1;
  expectSplit(tree, span(3), "[0 list 2043@0, 1 dense 0+]");
}

TEST_P(SplitListTest, ThePathOfANewSiblingDescribesIt) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(0, {{1, 7}}), dense(9)});
  BmPathSType path = pathTo(tree, 0);
  EXPECT_EQ(createRightSibling(&host, &tree, &path, 0, span(2)), 1);
  EXPECT_EQ(path.levels[0].pageId, leafRef(tree, 1));
  EXPECT_EQ(path.levels[0].firstBit, span(2));
  EXPECT_EQ(path.levels[0].limitBit, ~uint64_t{0});
  EXPECT_EQ(path.levels[1].index, 1);
  EXPECT_EQ(path.levels[1].firstBit, span(2));
  EXPECT_EQ(path.levels[1].numEntries, 3);
  EXPECT_EQ(shapeOf(tree), "[0 list 7@0, 2 list 0@0, 9 dense 1]");
}

TEST_P(SplitListTest, WithoutAPageThereIsNoSibling) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = adoptTree(Leaves{list(0, {{1, 2043}})}, {.currentStamp = true});
  host.setPageBudget(0);
  EXPECT_EQ(split(tree, span(5)), 0);
  EXPECT_EQ(shapeOf(tree), "[0 list 2043@0]");
  BmPathSType path = pathTo(tree, 0);
  EXPECT_EQ(createRightSibling(&host, &tree, &path, 0, span(2)), 0);
  EXPECT_EQ(path.levels[0].pageId, 0u);
}

// ---------------------------------------------------------------------------------------------------------
// Among the entries: where the cut falls

TEST_P(SplitListTest, ABitInTheFirstSpanCutsBehindItAndTheLowerPartGoesLeft) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 100}}, 7), list(10, {{10, 500}, {11, 1543}}), dense(20)}, {.currentStamp = true});
  const uint64_t left = leafRef(tree, 0), full = leafRef(tree, 1);
  expectSplit(tree, span(10) + 1, "[5 list 600@0, 11 list 1543@500, 20 dense 1]");
  EXPECT_EQ(leafRef(tree, 0), left);
  EXPECT_EQ(leafRef(tree, 1), full);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(5), span(11), span(20) | 1}));
  EXPECT_EQ(marks(left), cached(1));
  EXPECT_EQ(marks(tree.root), cached(1));
  EXPECT_EQ(marks(full), cached(1));
}

TEST_P(SplitListTest, ABitInTheLastSpanCutsBeforeItAndTheUpperPartGoesRight) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 100}}), list(10, {{10, 1543}, {11, 500}}), list(20, {{20, 100}, {30, 1}}, 3)},
                {.currentStamp = true});
  const uint64_t full = leafRef(tree, 1), right = leafRef(tree, 2);
  expectSplit(tree, span(11) + 1, "[5 list 100@0, 10 list 1543@0, 11 list 601@0]");
  EXPECT_EQ(leafRef(tree, 2), right);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(5), span(10), span(11)}));
  EXPECT_EQ(marks(right), cached(1));
  EXPECT_EQ(marks(tree.root), cached(1));
  EXPECT_EQ(marks(full), cached(1));
}

TEST_P(SplitListTest, OfTwoCutsTheOneWhoseSmallerPartIsSmallerWins) {
  // the low cut scores 1543 and the high one 1343: the upper part goes right, shortened by a span
  RepTreeRootSType& low =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 500}, {11, 200}, {12, 1343}}), list(20, {{20, 1}})});
  expectSplit(low, span(11) + 1, "[5 list 1@0, 10 list 700@0, 12 list 1344@0]");
  // the other way round: the lower part is too long for the left neighbour with a span more
  RepTreeRootSType& high =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 1343}, {11, 200}, {12, 500}}), list(20, {{20, 1}})});
  expectSplit(high, span(11) + 1, "[5 list 1@0, 10 list 1543@0, 12 list 500@514, 20 list 1@0]");
}

TEST_P(SplitListTest, EqualCutsTakeTheHighOneAndTheLeftNeighbour) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 900}, {11, 243}, {12, 900}}), list(20, {{20, 1}})});
  expectSplit(tree, span(11) + 1, "[5 list 1144@0, 12 list 900@1143, 20 list 1@0]");
}

TEST_P(SplitListTest, WithDenseNeighboursANewSiblingTakesTheUpperPart) {
  RepTreeRootSType& tree = adoptTree(Leaves{dense(5), list(10, {{10, 500}, {11, 1543}}), dense(20)});
  expectSplit(tree, span(10) + 1, "[5 dense 1, 10 list 500@0, 11 list 1543@166, 20 dense 1]");
  RepTreeRootSType& other = adoptTree(Leaves{dense(5), list(10, {{10, 1543}, {11, 300}, {14, 200}}), dense(20)});
  expectSplit(other, span(14) + 1, "[5 dense 1, 10 list 1843@0, 14 list 200@255, 20 dense 1]");
}

TEST_P(SplitListTest, ACutInAnEmptySpanGivesTheSiblingThatSpansKey) {
  RepTreeRootSType& tree = adoptTree(Leaves{dense(5), list(10, {{10, 500}, {15, 1543}})});
  expectSplit(tree, span(10) + 1, "[5 dense 1, 10 list 500@0, 11 list 1543@166]");
}

TEST_P(SplitListTest, ASiblingOnAFullPageIsMadeAfterThatPageWasSplit) {
  Leaves leaves;
  for (uint64_t i = 0; i < 1020; ++i) leaves.push_back(dense(i));
  leaves.insert(leaves.begin() + 300, list(300, {{300, 500}, {301, 1543}}));
  for (size_t i = 301; i < leaves.size(); ++i) leaves[i] = dense(i + 100);
  RepTreeRootSType& tree = adoptTree(leaves);
  EXPECT_EQ(split(tree, span(300) + 1), 1);
  EXPECT_EQ(tree.level, 2);
  const std::vector<uint64_t> keys = keysOf(tree, nodeRef(tree, 0));
  EXPECT_EQ(keys.size(), 511u);
  EXPECT_EQ(keys[300], span(300));
  EXPECT_EQ(keys[301], span(301));
}

// ---------------------------------------------------------------------------------------------------------
// The left neighbour

TEST_P(SplitListTest, ALeafWithinTheFirstSpanHasNoLeftNeighbour) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(0, {{0, 500}, {1, 1543}})}, {.currentStamp = true});
  expectSplit(tree, 1, "[0 list 500@0, 1 list 1543@166]");
}

TEST_P(SplitListTest, AnEmptyLeftNeighbourGetsTheFrontGap) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(5, {}, 9), list(10, {{10, 500}, {11, 1543}})});
  expectSplit(tree, span(10) + 1, "[5 list 500@514, 11 list 1543@500]");
}

TEST_P(SplitListTest, TheLeftNeighbourOfALevelOnePageMayBeInThePageBefore) {
  RepTreeRootSType& tree = adoptTree(Groups{{dense(0), list(5, {{5, 100}})}, {list(10, {{10, 500}, {11, 1543}})}});
  expectSplit(tree, span(10) + 1, "[0 [0 dense 1, 5 list 600@0], 11 [11 list 1543@500]]");
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(11)}));
}

TEST_P(SplitListTest, ALeftMoveThatFillsTheNeighbourTo1943GoesThrough) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(5, {{5, 1443}}), list(10, {{10, 500}, {11, 1543}})});
  expectSplit(tree, span(10) + 1, "[5 list 1943@0, 11 list 1543@500]");
}

TEST_P(SplitListTest, ALeftMoveThatOverfillsTheNeighbourIsDeclined) {
  for (const size_t have : {size_t{1444}, size_t{1632}, size_t{1633}, size_t{2043}}) {
    RepTreeRootSType& tree =
        adoptTree(Leaves{list(5, {{5, have}}), list(10, {{10, 500}, {11, 543}, {12, 1000}}), dense(20)});
    expectSplit(tree, span(10) + 1,
                "[5 list " + std::to_string(have) + "@0, 10 list 500@0, 11 list 1543@166, 20 dense 1]");
  }
}

TEST_P(SplitListTest, ALeftMoveOf1224GoesThroughAsItIs) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 1024}, {11, 200}, {12, 500}, {13, 319}})});
  expectSplit(tree, span(11) + 1, "[5 list 1225@0, 12 list 819@1224]");
}

TEST_P(SplitListTest, ALeftMoveOf1225CarriesOneSpanMore) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 1024}, {11, 201}, {12, 500}, {13, 318}})});
  expectSplit(tree, span(11) + 1, "[5 list 1726@0, 13 list 318@1725]");
}

TEST_P(SplitListTest, ALongLeftMoveThatWouldEmptyTheSourceIsDeclined) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 1024}, {11, 201}, {12, 818}})});
  expectSplit(tree, span(11) + 1, "[5 list 1@0, 10 list 1225@0, 12 list 818@408]");
}

TEST_P(SplitListTest, ALongLeftMoveThatNoLongerFitsIsDeclined) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 219}}), list(10, {{10, 1024}, {11, 201}, {12, 500}, {13, 318}})});
  expectSplit(tree, span(11) + 1, "[5 list 219@0, 10 list 1225@0, 12 list 818@408]");
}

TEST_P(SplitListTest, ALeftNeighbourOfUnknownKindIsReportedAndPassedOver) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 500}, {11, 1543}})}, {.currentStamp = true});
  const uint64_t left = leafRef(tree, 0);
  putU8(host.bytes(tree, left), at::pageKind, 4);
  testing::internal::CaptureStderr();
  EXPECT_EQ(splitBitList(&host, &tree, span(10) + 1, 0), 1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Bitmap page fault"), std::string::npos);
  host.expectReports({leafFault(left)});
  putU8(host.bytes(tree, left), at::pageKind, 12);
  expectTree(tree, "[5 list 1@0, 10 list 500@0, 11 list 1543@166]", entries({{5, 1}, {10, 500}, {11, 1543}}));
}

// ---------------------------------------------------------------------------------------------------------
// The right neighbour

TEST_P(SplitListTest, AnEmptyRightNeighbourGetsTheFrontGap) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(10, {{10, 1543}, {11, 500}}), list(20, {}, 9)});
  expectSplit(tree, span(11) + 1, "[10 list 1543@0, 11 list 500@514]");
}

TEST_P(SplitListTest, ARightNeighbourWhoseFrontIsJustAsWideMovesNoEntryOfItsOwn) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(10, {{10, 1543}, {11, 500}}), list(20, {{20, 50}}, 500)});
  expectSplit(tree, span(11) + 1, "[10 list 1543@0, 11 list 550@0]");
}

TEST_P(SplitListTest, ARightMoveOf1224GoesThroughAsItIs) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(10, {{10, 319}, {11, 500}, {12, 200}, {13, 1024}}), list(20, {{20, 719}})});
  expectSplit(tree, span(12) + 1, "[10 list 819@0, 12 list 1943@0]");
}

TEST_P(SplitListTest, ALongRightMoveIsShortenedToHalfTheSourceAndThenToTheStartOfItsSpan) {
  // the low cut would move 1343; half of the source begins at entry 1022, in a span that begins at entry 900
  RepTreeRootSType& tree = adoptTree(Leaves{list(10, {{10, 700}, {11, 200}, {13, 1143}}), list(20, {{20, 600}})});
  expectSplit(tree, span(11) + 1, "[10 list 900@0, 13 list 1743@0]");
}

TEST_P(SplitListTest, ARightNeighbourWith1633EntriesDeclinesAnOverfillingMove) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(10, {{10, 700}, {11, 300}, {12, 800}, {13, 243}}), list(20, {{20, 1633}})});
  expectSplit(tree, span(11) + 1, "[10 list 700@0, 11 list 1343@233, 20 list 1633@0]");
}

TEST_P(SplitListTest, ARightNeighbourWith1632EntriesTakesHalfOfItsRoomBackToTheStartOfASpan) {
  // half of the room is 155: entry 1888, in the span that begins at entry 1800
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(10, {{10, 700}, {11, 300}, {12, 800}, {13, 243}}), list(20, {{20, 1632}})});
  expectSplit(tree, span(11) + 1, "[10 list 1800@0, 13 list 1875@0]");
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(10), span(13)}));
}

TEST_P(SplitListTest, AShortenedMoveThatStillOverfillsIsDeclinedAndTheCutStaysWhereItWas) {
  RepTreeRootSType& tree = adoptTree(Leaves{list(10, {{10, 700}, {11, 300}, {12, 1043}}), list(20, {{20, 1632}})});
  expectSplit(tree, span(11) + 1, "[10 list 700@0, 11 list 1343@233, 20 list 1632@0]");
}

TEST_P(SplitListTest, AShortenedMoveOfTheWholeSourceIsDeclined) {
  const std::vector<uint64_t> source = entries({{10, 2000}});
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(span(10), source), list(20, {{20, 1}})});
  auto* page = reinterpret_cast<RepBitListPageSType*>(host.bytes(tree, leafRef(tree, 0)));
  BmPathSType path = pathTo(tree, span(10));
  unsigned long* cut = page->contents.begin() + 700;
  EXPECT_EQ(copyEntriesRight(&host, &tree, &path, span(20), &page->contents, &cut, 0), 0);
  EXPECT_EQ(cut, page->contents.begin() + 700);
  expectTree(tree, "[10 list 2000@0, 20 list 1@0]", source + entries({{20, 1}}));
}

TEST_P(SplitListTest, TheRightNeighbourMayBeInTheNextLevelOnePage) {
  RepTreeRootSType& tree = adoptTree(Groups{{dense(0), list(10, {{10, 1543}, {11, 500}})}, {list(20, {{20, 5}})}});
  expectSplit(tree, span(11) + 1, "[0 [0 dense 1, 10 list 1543@0], 11 [11 list 505@0]]");
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(11)}));
}

TEST_P(SplitListTest, ADenseNeighbourInTheNextLevelOnePageDeclines) {
  RepTreeRootSType& tree = adoptTree(Groups{{list(10, {{10, 1543}, {11, 500}})}, {dense(20)}});
  expectSplit(tree, span(11) + 1, "[10 [10 list 1543@0, 11 list 500@514], 20 [20 dense 1]]");
}

TEST_P(SplitListTest, AtTheEndOfALevel2TreeANewSiblingTakesTheUpperPart) {
  RepTreeRootSType& tree = adoptTree(Groups{{dense(0)}, {list(10, {{10, 1543}, {11, 500}})}});
  expectSplit(tree, span(11) + 1, "[0 [0 dense 1], 10 [10 list 1543@0, 11 list 500@514]]");
}

// ---------------------------------------------------------------------------------------------------------
// Order, pins, and what fails

TEST_P(SplitListTest, TheSourceIsPinnedWhileItsNeighboursAreLocatedAndCutLast) {
  if (isHeap()) GTEST_SKIP() << "heap pages are neither pinned nor marked";
  RepTreeRootSType& tree =
      adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 500}, {11, 1543}})}, {.currentStamp = true});
  const std::string left = std::to_string(leafRef(tree, 0)), full = std::to_string(leafRef(tree, 1));
  split(tree, span(10) + 1);
  EXPECT_EQ(host.takeEvents({EventKind::pin, EventKind::unpin, EventKind::dirty}),
            (std::vector<std::string>{"pin " + full, "dirty " + left + " mode 3",
                                      "dirty " + std::to_string(tree.root) + " mode 3", "dirty " + full + " mode 3",
                                      "unpin " + full}));
}

TEST_P(SplitListTest, SourceAndItsParentsAreShadowedBeforeTheReceiver) {
  if (!isCareful()) GTEST_SKIP() << "only careful trees shadow";
  RepTreeRootSType& tree = adoptTree(Groups{{list(5, {{5, 1}})}, {list(10, {{10, 500}, {11, 1543}})}});
  const uint64_t n = host.nextPageId();
  split(tree, span(10) + 1);
  EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), 5u);
  EXPECT_EQ(leafRef(tree, 1), n);      // the source
  EXPECT_EQ(nodeRef(tree, 1), n + 1);  // its parent
  EXPECT_EQ(tree.root, n + 2);
  EXPECT_EQ(leafRef(tree, 0), n + 3);  // the receiver
  EXPECT_EQ(nodeRef(tree, 0), n + 4);
  EXPECT_EQ(shapeOf(tree), "[5 [5 list 501@0], 11 [11 list 1543@500]]");
}

TEST_P(SplitListTest, EveryPageThatASplitChangesIsMarkedAfterItsLastChange) {
  if (isHeap()) GTEST_SKIP() << "heap pages are not marked";
  host.watchDirtyMarks();
  const std::vector<Part> full{{10, 500}, {11, 1043}, {12, 500}};
  for (const uint64_t bit : {span(9), span(10) + 1, span(11) + 1, span(12) + 1, span(15)}) {
    RepTreeRootSType& tree = adoptTree(Groups{{list(5, {{5, 1}})}, {list(8, full)}, {list(20, {{20, 1}})}});
    EXPECT_EQ(split(tree, bit), 1);
    host.expectChangesMarked();
  }
}

TEST_P(SplitListTest, WithoutAPageForASiblingTheGuaranteeIsReportedAndTheSourceKeepsItsEntries) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree =
      adoptTree(Leaves{dense(5), list(10, {{10, 500}, {11, 1543}}), dense(20)}, {.currentStamp = true});
  host.setPageBudget(0);
  EXPECT_EQ(split(tree, span(10) + 1), 0);
  expectOneGuarantee();
  EXPECT_EQ(shapeOf(tree), "[5 dense 1, 10 list 2043@0, 20 dense 1]");
}

TEST_P(SplitListTest, ANeighbourThatCannotBeShadowedHasDeclined) {
  if (!isCareful()) GTEST_SKIP() << "only careful trees shadow";
  RepTreeRootSType& tree = adoptTree(Leaves{list(5, {{5, 1}}), list(10, {{10, 500}, {11, 1543}})});
  host.setPageBudget(2);  // for the source and the root
  EXPECT_EQ(split(tree, span(10) + 1), 0);
  expectOneGuarantee();
  EXPECT_EQ(shapeOf(tree), "[5 list 1@0, 10 list 2043@0]");
  host.setPageBudget(1);
  expectSplit(tree, span(10) + 1, "[5 list 501@0, 11 list 1543@500]");
}

// ---------------------------------------------------------------------------------------------------------
// Lists in trees of dense leaves

TEST_P(SplitListTest, InATreeOfDenseLeavesTheUpperPartGoesIntoTheDenseLeavesOfItsSpans) {
  RepTreeRootSType& tree = adoptTree(list(0, {{10, 500}, {11, 1000}, {12, 40}, {15, 503}}));
  tree.denseLeaves = 1;
  expectSplit(tree, span(10) + 1, "[0 list 500@0, 11 dense 1000+, 12 dense 40+, 15 dense 503+]");
}

TEST_P(SplitListTest, InATreeOfDenseLeavesASiblingForAnEmptySpanStaysEmpty) {
  RepTreeRootSType& tree = adoptTree(list(0, {{10, 500}, {12, 1000}, {15, 543}}));
  tree.denseLeaves = 1;
  expectSplit(tree, span(10) + 1, "[0 list 500@0, 11 dense 0+, 12 dense 1000+, 15 dense 543+]");
}

TEST_P(SplitListTest, InATreeOfDenseLeavesASplitWithoutPagesLosesNothing) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  for (const uint64_t second : {11u, 12u}) {
    RepTreeRootSType& tree = adoptTree(Leaves{list(0, {{10, 500}, {second, 1000}, {15, 503}, {16, 40}})});
    tree.denseLeaves = 1;
    long budget = 0;
    for (;; ++budget) {
      ASSERT_LT(budget, 20);
      host.setPageBudget(budget);
      if (split(tree, span(10) + 1) != 0) break;
      EXPECT_LE(host.takeReports().size(), 1u);
      EXPECT_EQ(shapeOf(tree), "[0 list 2043@0]") << "with " << budget << " pages";
    }
    EXPECT_GT(budget, 1);
    host.setPageBudget(-1);
  }
}

}  // namespace
