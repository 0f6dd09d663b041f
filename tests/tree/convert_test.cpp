// The two changes of form: a tree that is one list becomes a tree of leaves, a list becomes a dense leaf.
#include "tree/convert.h"

#include <cctype>

#include "tree/writetest.h"

namespace {

class ConvertTest : public WriteTest {
 protected:
  // Converts the leaf that owns `base`, as a split does.
  int convert(RepTreeRootSType& tree, uint64_t base) {
    BmPathSType path = pathTo(tree, base);
    return convertBitListLeafToBmLeaf(&host, &tree, &path, base, 0);
  }

  std::vector<std::string> newPages() { return host.takeEvents({EventKind::newPage}); }
};
BMTREE_FOR_ALL_KINDS(ConvertTest);

// ---------------------------------------------------------------------------------------------------------
// The tree

TEST_P(ConvertTest, AnEmptyTreeBecomesALevelOneRootWithOneEmptyList) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(convertBitListToBmTree(&host, &tree), 1);
  EXPECT_EQ(tree.level, 1);
  expectTree(tree, "[0 list 0@0]", {});
  EXPECT_EQ(rawU16(bytesOf(tree, tree.root), at::intLevel), 1);
  EXPECT_EQ(marks(tree.root), isCareful() ? 3 : cached(2));
  EXPECT_EQ(marks(leafRef(tree, 0)), isCareful() ? 3 : cached(2));
}

TEST_P(ConvertTest, AListBecomesTheOnlyLeafAtKey0) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {span(9)}, 4));
  const uint64_t list = tree.root;
  EXPECT_EQ(convertBitListToBmTree(&host, &tree), 1);
  EXPECT_EQ(leafRef(tree, 0) == list, !isCareful());
  expectTree(tree, "[0 list 1@4]", {span(9)});
  expectCarefulSets();
}

TEST_P(ConvertTest, WithoutAnInternalPageTheTreeStaysOfLevel0AndKeepsItsEmptyLeaf) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = newTree();
  host.setPageBudget(0);
  EXPECT_EQ(convertBitListToBmTree(&host, &tree), 0);
  EXPECT_EQ(shapeOf(tree), "empty");
  host.setPageBudget(1);
  EXPECT_EQ(convertBitListToBmTree(&host, &tree), 0);
  EXPECT_EQ(tree.level, 0);
  expectTree(tree, "list 0@0", {});
  expectCarefulSets();
}

TEST_P(ConvertTest, ARootThatIsNoListIsReportedAndLifted) {
  RepTreeRootSType& tree = adoptTree(denseLeaf(0, {3}), {.currentStamp = true});
  const uint64_t leaf = tree.root;
  testing::internal::CaptureStderr();
  EXPECT_EQ(convertBitListToBmTree(&host, &tree), 1);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_EQ(text.find("Bitmap page fault") != std::string::npos, isHeap()) << text;
  host.expectReports(
      {isHeap() ? leafFault(leaf) : "locate fault: page " + std::to_string(leaf) + " is not of kind 12"});
  EXPECT_EQ(keysOf(tree, tree.root), std::vector<uint64_t>{0});
}

// ---------------------------------------------------------------------------------------------------------
// The leaf

TEST_P(ConvertTest, AListOfOneSpanBecomesDenseOnItsOwnPage) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {}), listLeaf(span(3), steps(span(3), 2043, 64))},
                                     {.internalFirstOffset = 2, .currentStamp = true});
  const uint64_t leaf = leafRef(tree, 1);
  EXPECT_EQ(convert(tree, span(3)), 1);
  EXPECT_EQ(leafRef(tree, 1), leaf);
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{0, span(3) | 1}));
  const unsigned char* page = bytesOf(tree, leaf);
  EXPECT_EQ(rawU8(page, at::pageKind), 8);
  EXPECT_EQ(rawU16(page, at::bytesUsed), 16384);
  EXPECT_EQ(rawU32(page, at::bitsSet), 2043u);
  EXPECT_EQ(rawU32(page, at::keepWhenEmpty), 0u);
  EXPECT_EQ(marks(leaf), cached(1));
  EXPECT_EQ(marks(tree.root), cached(1));
  EXPECT_EQ(newPages(), std::vector<std::string>{});
  expectSound(tree);
}

TEST_P(ConvertTest, TheKeyRisesToTheSpanAndTheSpansBelowAreOwnedByNoLeaf) {
  const std::vector<uint64_t> bits = steps(span(3) + 5, 40);
  RepTreeRootSType& tree = adoptTree(Groups{{listLeaf(0, bits)}, {listLeaf(span(9), {span(9)})}});
  EXPECT_EQ(convert(tree, span(3)), 1);
  EXPECT_EQ(keysOf(tree, nodeRef(tree, 0)), std::vector<uint64_t>{span(3) | 1});
  EXPECT_EQ(keysOf(tree, tree.root), (std::vector<uint64_t>{span(3), span(9)}));
  expectTree(tree, "[3 [3 dense 40], 9 [9 list 1@0]]", bits + std::vector<uint64_t>{span(9)});
  BmPathSType path{};
  EXPECT_EQ(findLeafPageForBit(&host, &tree, span(3) - 1, &path), 0);
  EXPECT_EQ(findLeafPageForBit(&host, &tree, span(4), &path), 0);
  expectCarefulSets();
}

TEST_P(ConvertTest, EntriesOnBothSidesGoIntoLeavesOfTheirOwnLowOnesFirst) {
  const std::vector<uint64_t> bits = steps(span(1), 300) + steps(span(2) + 9, 1) + steps(span(4), 1000) +
                                     steps(span(6) + 3, 400) + steps(span(8), 7);
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, bits)}, {.currentStamp = true});
  const uint64_t leaf = leafRef(tree, 0);
  const uint64_t next = host.nextPageId();
  EXPECT_EQ(convert(tree, span(4)), 1);
  EXPECT_EQ(leafRef(tree, 1), leaf);
  expectTree(tree, "[1 list 301@0, 4 dense 1000, 6 list 407@0]", bits);
  if (!isHeap()) {
    EXPECT_EQ(leafRef(tree, 0), next);
    EXPECT_EQ(leafRef(tree, 2), next + 1);
  }
  expectCarefulSets();
}

TEST_P(ConvertTest, LowEntriesGoToTheListOnTheLeftThatNowOwnsTheirSpan) {
  const std::vector<uint64_t> left = steps(span(1), 2043);
  const std::vector<uint64_t> bits = steps(span(5), 10) + steps(span(7), 10);
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(span(1), left), listLeaf(span(5), bits)});
  EXPECT_EQ(convert(tree, span(7)), 1);
  // the list on the left is full and gets an empty one behind it
  expectTree(tree, "[1 list 2043@0, 2 list 10@0, 7 dense 10]", left + bits);
  expectCarefulSets();
}

TEST_P(ConvertTest, TheTopmostSpanEndsAtTheLastBitOfAll) {
  const std::vector<uint64_t> bits{span(lastSpan) - 1, span(lastSpan), topBit - 1, topBit};
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, bits)});
  EXPECT_EQ(convert(tree, span(lastSpan)), 1);
  expectTree(tree, "[" + std::to_string(lastSpan - 1) + " list 1@0, " + std::to_string(lastSpan) + " dense 3]", bits);
}

TEST_P(ConvertTest, InATreeOfDenseLeavesTheOtherEntriesGoIntoDenseLeavesThatStay) {
  const std::vector<uint64_t> bits{span(1), span(2), span(2) + 1, span(4), span(6), span(8)};
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, bits)});
  tree.denseLeaves = 1;
  EXPECT_EQ(convert(tree, span(4)), 1);
  expectTree(tree, "[1 dense 1+, 2 dense 2+, 4 dense 1, 6 dense 1+, 8 dense 1+]", bits);
}

TEST_P(ConvertTest, TheLeafIsCompleteBeforeItsKeySaysThatItIsDenseAndTheLevel2KeyIsLast) {
  if (!isCareful()) GTEST_SKIP() << "the order shows in what is shadowed";
  RepTreeRootSType& tree = adoptTree(Groups{{listLeaf(0, {span(3)})}, {listLeaf(span(9), {span(9)})}});
  const uint64_t n = host.nextPageId();
  BmPathSType path = pathTo(tree, span(3));
  EXPECT_EQ(convertBitListLeafToBmLeaf(&host, &tree, &path, span(3), 0), 1);
  const auto dirty = [](uint64_t id) { return "dirty " + std::to_string(id) + " mode 3"; };
  const std::vector<std::string> all = host.takeEvents({EventKind::newPage, EventKind::dirty});
  // each copy: made, stamped, filled; then its parent, up to the root; then leaf, parent and root are changed
  const std::vector<std::string> expected{"new " + std::to_string(n) + " kind 12 shared 1",
                                          dirty(n),
                                          dirty(n),
                                          dirty(n),
                                          "new " + std::to_string(n + 1) + " kind 7 shared 1",
                                          dirty(n + 1),
                                          dirty(n + 1),
                                          dirty(n + 1),
                                          "new " + std::to_string(n + 2) + " kind 7 shared 1",
                                          dirty(n + 2),
                                          dirty(n + 2),
                                          dirty(n + 2),
                                          dirty(n),
                                          dirty(n + 1),
                                          dirty(n + 2)};
  EXPECT_EQ(all, expected);
  expectCarefulSets();
}

TEST_P(ConvertTest, AnIllegalByteCountIsPrintedAndReportedAndTheLeafConvertedAllTheSame) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {5, 6})}, {.currentStamp = true});
  putU16(host.bytes(tree, leafRef(tree, 0)), at::bytesUsed, 20000);
  testing::internal::CaptureStdout();
  EXPECT_EQ(convert(tree, 0), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "illegal bytesUsed in a page\n");
  const std::vector<Report> reports = host.takeReports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].toString().substr(0, 17), "guarantee bitmap:");
  expectTree(tree, "[0 dense 2]", {5, 6});
}

// ---------------------------------------------------------------------------------------------------------
// Out of pages

class ConvertWithoutPagesTest : public ConvertTest {
 protected:
  // Converts with 0, 1, 2, ... pages until it succeeds; before that the leaf stays the list that it was. Returns the
  // pages of the attempt that succeeded; what an earlier one shadowed stays shadowed.
  long convertWithEnoughPages(RepTreeRootSType& tree, uint64_t base) {
    const std::string shape = shapeWithoutFronts(tree);
    const std::vector<unsigned char> list = bodyOfLeaf(tree, base);
    const std::vector<uint64_t> bits = bitsOf(tree);
    const size_t pages = host.livePages().size();
    for (long budget = 0; budget < 20; ++budget) {
      host.setPageBudget(budget);
      const int done = convert(tree, base);
      expectSound(tree, {bits.begin(), bits.end()});
      expectCarefulSets();
      if (done != 0) return budget;
      EXPECT_EQ(shapeWithoutFronts(tree), shape) << "with " << budget << " pages";
      EXPECT_EQ(bodyOfLeaf(tree, base), list) << "with " << budget << " pages";
      EXPECT_EQ(host.livePages().size() - bitsOf(host.obsoleteCarefulBm).size(), pages) << budget;
    }
    ADD_FAILURE() << "never";
    return -1;
  }

 private:
  // Another leaf that took entries and gave them back may have moved its front.
  std::string shapeWithoutFronts(const RepTreeRootSType& tree) {
    std::string shape = shapeOf(tree);
    for (size_t at = shape.find('@'); at != std::string::npos; at = shape.find('@', at + 1)) {
      while (at + 1 < shape.size() && std::isdigit(shape[at + 1]) != 0) shape.erase(at + 1, 1);
    }
    return shape;
  }

  std::vector<unsigned char> bodyOfLeaf(const RepTreeRootSType& tree, uint64_t bit) {
    const unsigned char* page = bytesOf(tree, pathTo(tree, bit).levels[0].pageId);
    return {page + 32, page + rawU16(page, at::bytesUsed)};
  }
};
INSTANTIATE_TEST_SUITE_P(Kinds, ConvertWithoutPagesTest,
                         ::testing::Values(BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE), treeKindName);

TEST_P(ConvertWithoutPagesTest, ALeafWhoseHighEntriesFindNoPageIsTheListThatItWas) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {span(3), span(3) + 1, span(7)}, 9)});
  EXPECT_EQ(convertWithEnoughPages(tree, span(3)), isCareful() ? 3 : 1);
  EXPECT_EQ(shapeOf(tree), "[3 dense 2, 7 list 1@0]");
}

TEST_P(ConvertWithoutPagesTest, ALeafWhoseLowEntriesFindNoPageIsTheListThatItWas) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {span(1), span(3), span(7)}), denseLeaf(span(9), {span(9)})});
  EXPECT_EQ(convertWithEnoughPages(tree, span(3)), isCareful() ? 3 : 2);
  EXPECT_EQ(shapeOf(tree), "[1 list 1@0, 3 dense 1, 7 list 1@0, 9 dense 1]");
}

TEST_P(ConvertWithoutPagesTest, BelowALevel2RootTheOldKeyComesBackThereToo) {
  RepTreeRootSType& tree = adoptTree(Groups{{denseLeaf(0, {1})}, {listLeaf(span(2), {span(4), span(5), span(6)})}});
  EXPECT_EQ(convertWithEnoughPages(tree, span(5)), isCareful() ? 4 : 2);
  EXPECT_EQ(shapeOf(tree), "[0 [0 dense 1, 4 list 1@0], 5 [5 dense 1, 6 list 1@0]]");
}

TEST_P(ConvertWithoutPagesTest, LowEntriesThatTheListOnTheLeftTookComeOutAgain) {
  const std::vector<uint64_t> low = steps(span(5), 10);
  RepTreeRootSType& tree = adoptTree(
      Leaves{listLeaf(span(1), {span(1)}), listLeaf(span(5), low + std::vector<uint64_t>{span(7), span(8)})});
  EXPECT_EQ(convertWithEnoughPages(tree, span(7)), isCareful() ? 3 : 1);
  EXPECT_EQ(shapeOf(tree), "[1 list 11@0, 7 dense 1, 8 list 1@0]");
}

TEST_P(ConvertWithoutPagesTest, InATreeOfDenseLeavesTheLeavesMadeForTheOthersAreGivenBack) {
  RepTreeRootSType& tree =
      adoptTree(Leaves{listLeaf(0, {span(1), span(2), span(4), span(6), span(6) + 1, span(8), span(9)})});
  tree.denseLeaves = 1;
  EXPECT_EQ(convertWithEnoughPages(tree, span(4)), 5);
  EXPECT_EQ(shapeOf(tree), "[1 dense 1+, 2 dense 1+, 4 dense 1, 6 dense 2+, 8 dense 1+, 9 dense 1+]");
}

}  // namespace
