// Making room in a full level-1 page: which page receives how many pairs, and what becomes of the keys above.
#include "tree/splitnode.h"

#include <cstring>

#include "tree/writetest.h"

namespace {

// `count` leaves from span `first` on, one per span, lists and dense leaves in turn, so that every other key has a
// tag.
Leaves row(uint64_t first, size_t count) {
  Leaves leaves;
  for (uint64_t i = first; i < first + count; ++i) {
    leaves.push_back(i % 2 == 0 ? listLeaf(span(i), {span(i) + 5}) : denseLeaf(span(i), {span(i)}));
  }
  return leaves;
}

constexpr uint64_t fullFrom = 3000;  // first span of the page that is full

class SplitNodeTest : public WriteTest {
 protected:
  // A full page from fullFrom on, beside a page with `left` leaves before it and one with `right` behind it; 0: none.
  RepTreeRootSType& fullPageBeside(size_t left, size_t right, const BuildOptions& options = {}) {
    Groups groups;
    if (left > 0) groups.push_back(row(1000, left));
    groups.push_back(row(fullFrom, 1021));
    if (right > 0) groups.push_back(row(5000, right));
    return adoptTree(groups, options);
  }

  // Splits the full page of `tree` with slot `pos` wanted, and expects that no leaf was lost.
  int split(RepTreeRootSType& tree, int pos) {
    BmPathSType path = pathTo(tree, span(fullFrom) + 5);
    path.levels[1].index = pos;
    const std::vector<uint64_t> leaves = refsAtLevel(host, tree, 0);
    host.clearEvents();
    const int answer = splitLevel1Node(&host, &tree, &path);
    EXPECT_EQ(refsAtLevel(host, tree, 0), leaves);
    expectSound(tree);
    expectCarefulSets();
    EXPECT_EQ(host.pinsHeld(), 0);
    return answer;
  }

  std::vector<size_t> pageSizes(const RepTreeRootSType& tree) {
    std::vector<size_t> sizes;
    for (const uint64_t ref : refsAtLevel(host, tree, 1)) sizes.push_back(pairsOf(tree, ref));
    return sizes;
  }
  using Sizes = std::vector<size_t>;

  // The keys of the level-2 page, in spans.
  std::vector<uint64_t> topKeys(const RepTreeRootSType& tree) {
    std::vector<uint64_t> keys = keysOf(tree, tree.root);
    for (uint64_t& key : keys) {
      EXPECT_EQ(key % span(1), 0u);
      key /= span(1);
    }
    return keys;
  }

  // Moves the live slots of an internal page up, so that its front stands at `front`.
  void raiseFront(const RepTreeRootSType& tree, uint64_t ref, size_t front) {
    unsigned char* page = host.bytes(tree, ref);
    const size_t bytes = rawU16(page, at::intCount) * 8u;
    std::memmove(page + at::key(front), page + at::key(0), bytes);
    std::memmove(page + at::child(front), page + at::child(0), bytes);
    putU16(page, at::intFirstOffset, static_cast<uint16_t>(front));
  }
};
BMTREE_FOR_ALL_KINDS(SplitNodeTest);

// ---------------------------------------------------------------------------------------------------------
// Growth, and the cut

TEST_P(SplitNodeTest, AFullRootIsCutBelowANewRootOfLevel2) {
  RepTreeRootSType& tree = adoptTree(row(fullFrom, 1021), {.currentStamp = true});
  const uint64_t full = tree.root;
  EXPECT_EQ(split(tree, 7), 1);
  EXPECT_EQ(tree.level, 2);
  EXPECT_EQ(pageSizes(tree), (Sizes{510, 511}));
  EXPECT_EQ(topKeys(tree), (std::vector<uint64_t>{fullFrom, fullFrom + 510}));
  EXPECT_EQ(nodeRef(tree, 0), full);
  EXPECT_EQ(frontOf(tree, full), 0u);
  EXPECT_EQ(rawU16(bytesOf(tree, tree.root), at::intLevel), 2);
  EXPECT_EQ(rawU16(bytesOf(tree, nodeRef(tree, 1)), at::intLevel), 1);
  EXPECT_EQ(marks(full), cached(1));
  EXPECT_EQ(marks(nodeRef(tree, 1)), isCareful() ? 3 : cached(2));
  EXPECT_EQ(marks(tree.root), isCareful() ? 4 : cached(3));
}

TEST_P(SplitNodeTest, ThePathOfAGrownTreeKnowsItsDepth) {
  RepTreeRootSType& tree = adoptTree(row(fullFrom, 1021));
  BmPathSType path = pathTo(tree, span(fullFrom));
  EXPECT_EQ(splitLevel1Node(&host, &tree, &path), 1);
  EXPECT_EQ(path.depth, 2);
  EXPECT_EQ(path.levels[2].pageId, tree.root);
}

TEST_P(SplitNodeTest, APageWithoutSiblingsIsCutAndTheNewPageStandsBehindIt) {
  RepTreeRootSType& tree = fullPageBeside(0, 0, {.currentStamp = true});
  EXPECT_EQ(split(tree, 1000), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{510, 511}));
  EXPECT_EQ(marks(tree.root), cached(1));
}

TEST_P(SplitNodeTest, BetweenFullSiblingsAPageIsCut) {
  RepTreeRootSType& tree = fullPageBeside(1021, 1021);
  EXPECT_EQ(split(tree, 500), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1021, 510, 511, 1021}));
  EXPECT_EQ(topKeys(tree), (std::vector<uint64_t>{1000, fullFrom, fullFrom + 510, 5000}));
}

// ---------------------------------------------------------------------------------------------------------
// To the left

TEST_P(SplitNodeTest, PairsUpToTheWantedSlotGoLeft) {
  RepTreeRootSType& tree = fullPageBeside(1011, 5, {.currentStamp = true});  // room for 10
  const uint64_t left = nodeRef(tree, 0), full = nodeRef(tree, 1);
  EXPECT_EQ(split(tree, 5), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1016, 1016, 5}));
  EXPECT_EQ(topKeys(tree), (std::vector<uint64_t>{1000, fullFrom + 5, 5000}));
  EXPECT_EQ(frontOf(tree, full), 5u);
  EXPECT_EQ(keysOf(tree, left)[1011], span(fullFrom));
  EXPECT_EQ(keysOf(tree, left)[1012], span(fullFrom + 1) | 1);
  EXPECT_EQ(marks(full), cached(1));
  EXPECT_EQ(marks(left), cached(1));
  EXPECT_EQ(marks(tree.root), cached(1));
}

TEST_P(SplitNodeTest, AWantedSlotWithinTheRoomLeavesOneSlotFreeOnTheLeft) {
  RepTreeRootSType& tree = fullPageBeside(1011, 0);
  EXPECT_EQ(split(tree, 10), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1020, 1012}));
}

TEST_P(SplitNodeTest, AWantedSlotBeyondTheRoomFillsTheLeftPage) {
  RepTreeRootSType& tree = fullPageBeside(1011, 0);
  EXPECT_EQ(split(tree, 11), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1021, 1011}));
  RepTreeRootSType& end = fullPageBeside(1011, 0);
  EXPECT_EQ(split(end, 1021), 1);
  EXPECT_EQ(pageSizes(end), (Sizes{1021, 1011}));
}

TEST_P(SplitNodeTest, WithRoomForOneOnTheLeftSlot1MovesNothingThereAndSlot2MovesOne) {
  RepTreeRootSType& one = fullPageBeside(1020, 0);
  EXPECT_EQ(split(one, 1), 1);
  EXPECT_EQ(pageSizes(one), (Sizes{1020, 510, 511}));
  RepTreeRootSType& two = fullPageBeside(1020, 0);
  EXPECT_EQ(split(two, 2), 1);
  EXPECT_EQ(pageSizes(two), (Sizes{1021, 1020}));
}

TEST_P(SplitNodeTest, ForSlot0TheLeftPageTakesNothing) {
  RepTreeRootSType& cut = fullPageBeside(5, 1021);
  EXPECT_EQ(split(cut, 0), 1);
  EXPECT_EQ(pageSizes(cut), (Sizes{5, 510, 511, 1021}));
  RepTreeRootSType& right = fullPageBeside(5, 1001);
  EXPECT_EQ(split(right, 0), 1);
  EXPECT_EQ(pageSizes(right), (Sizes{5, 1011, 1011}));
}

TEST_P(SplitNodeTest, ALeftPageWithAFrontGapIsSlidDownFirst) {
  RepTreeRootSType& tree = fullPageBeside(1000, 0);
  raiseFront(tree, nodeRef(tree, 0), 21);
  EXPECT_EQ(split(tree, 21), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1020, 1001}));
  EXPECT_EQ(frontOf(tree, nodeRef(tree, 0)), 0u);
}

// ---------------------------------------------------------------------------------------------------------
// To the right

TEST_P(SplitNodeTest, HalfOfWhatFitsGoesRight) {
  RepTreeRootSType& tree = fullPageBeside(0, 1016, {.currentStamp = true});  // room for 5
  const uint64_t full = nodeRef(tree, 0), right = nodeRef(tree, 1);
  EXPECT_EQ(split(tree, 100), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1019, 1018}));
  EXPECT_EQ(topKeys(tree), (std::vector<uint64_t>{fullFrom, fullFrom + 1019}));
  EXPECT_EQ(frontOf(tree, full), 0u);
  EXPECT_EQ(keysOf(tree, right)[0], span(fullFrom + 1019) | 1);
  EXPECT_EQ(keysOf(tree, right)[1], span(fullFrom + 1020));
  EXPECT_EQ(marks(full), cached(1));
  EXPECT_EQ(marks(right), cached(1));
  EXPECT_EQ(marks(tree.root), cached(1));
}

TEST_P(SplitNodeTest, WhatMayGoRightDependsOnTheWantedSlot) {
  struct Case {
    int pos;
    size_t right, moved;
  };
  for (const Case& c :
       {Case{0, 1, 510}, Case{1000, 1, 10}, Case{1017, 1, 1}, Case{1018, 1, 2}, Case{1019, 1, 1}, Case{1020, 1019, 1},
        Case{1021, 1019, 1}, Case{100, 1018, 1}, Case{100, 1019, 2}, Case{100, 1020, 1}}) {
    RepTreeRootSType& tree = fullPageBeside(0, c.right);
    EXPECT_EQ(split(tree, c.pos), 1);
    EXPECT_EQ(pageSizes(tree), (Sizes{1021 - c.moved, c.right + c.moved})) << "slot " << c.pos;
  }
}

TEST_P(SplitNodeTest, WithRoomForOneOnTheRightTheLastSlotsCutThePage) {
  for (const int pos : {1020, 1021}) {
    RepTreeRootSType& tree = fullPageBeside(0, 1020);
    EXPECT_EQ(split(tree, pos), 1);
    EXPECT_EQ(pageSizes(tree), (Sizes{510, 511, 1020}));
  }
}

TEST_P(SplitNodeTest, ARightPageWithAFrontGapIsSlidDownFirst) {
  RepTreeRootSType& tree = fullPageBeside(0, 1000);
  raiseFront(tree, nodeRef(tree, 1), 21);
  EXPECT_EQ(split(tree, 100), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1011, 1010}));
  EXPECT_EQ(frontOf(tree, nodeRef(tree, 1)), 0u);
}

TEST_P(SplitNodeTest, TheLeftPageIsPreferred) {
  RepTreeRootSType& tree = fullPageBeside(1000, 1);
  EXPECT_EQ(split(tree, 1020), 1);
  EXPECT_EQ(pageSizes(tree), (Sizes{1021, 1000, 1}));
}

TEST_P(SplitNodeTest, ALevel2KeyBelowTheFirstKeyOfItsPageFollowsAsWell) {
  RepTreeRootSType& tree = fullPageBeside(0, 1016);
  putU64(host.bytes(tree, tree.root), at::key(1), span(4500));
  expectSound(tree);
  EXPECT_EQ(split(tree, 100), 1);
  EXPECT_EQ(topKeys(tree), (std::vector<uint64_t>{fullFrom, fullFrom + 1019}));
}

// ---------------------------------------------------------------------------------------------------------
// Order and failure

TEST_P(SplitNodeTest, ParentFullPageAndReceiverAreShadowedInThisOrderAndTheParentsKeyIsLast) {
  if (!isCareful()) GTEST_SKIP() << "only careful trees shadow";
  RepTreeRootSType& tree = fullPageBeside(1000, 0);
  const uint64_t n = host.nextPageId();
  EXPECT_EQ(split(tree, 5), 1);
  EXPECT_EQ(tree.root, n);
  EXPECT_EQ(nodeRef(tree, 1), n + 1);
  EXPECT_EQ(nodeRef(tree, 0), n + 2);
  const std::vector<std::string> dirty = host.takeEvents({EventKind::dirty});
  const auto mark = [](uint64_t id) { return "dirty " + std::to_string(id) + " mode 3"; };
  ASSERT_GE(dirty.size(), 3u);
  EXPECT_EQ(std::vector<std::string>(dirty.end() - 3, dirty.end()),
            (std::vector<std::string>{mark(n + 1), mark(n + 2), mark(n)}));
}

TEST_P(SplitNodeTest, AFullParentIsReportedOnceAndNothingMoves) {
  Groups groups{row(0, 1), row(fullFrom, 1021)};
  for (uint64_t i = 2; i < 1021; ++i) groups.push_back(row(10000 + 10 * i, 1));
  groups[2] = row(5000, 1021);
  RepTreeRootSType& tree = adoptTree(groups);
  const Sizes before = pageSizes(tree);
  EXPECT_EQ(split(tree, 0), 0);
  host.expectReports({"guarantee bitmap:199"});
  EXPECT_EQ(pageSizes(tree), before);
}

TEST_P(SplitNodeTest, ASiblingOfAnotherKindIsReported) {
  RepTreeRootSType& tree = fullPageBeside(1000, 0, {.currentStamp = true});
  const uint64_t left = nodeRef(tree, 0);
  putU8(host.bytes(tree, left), at::pageKind, 9);
  BmPathSType path = pathTo(tree, span(fullFrom));
  path.levels[1].index = 10;
  EXPECT_EQ(splitLevel1Node(&host, &tree, &path), 1);
  const std::string page = std::to_string(left) + " is not of kind 7";
  const std::string report = isHeap() ? "header fault: page " + page + ", null:0" : "locate fault: page " + page;
  EXPECT_EQ(host.reports().front().toString(), report);
  host.takeReports();
  putU8(host.bytes(tree, left), at::pageKind, 7);
  expectSound(tree);
}

TEST_P(SplitNodeTest, WithoutPagesAFullRootStaysARootOfLevel1) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = adoptTree(row(fullFrom, 1021));
  long budget = 0;
  for (;; ++budget) {
    ASSERT_LT(budget, 5);
    host.setPageBudget(budget);
    if (split(tree, 7) != 0) break;
    EXPECT_EQ(tree.level, 1);
    EXPECT_EQ(pageSizes(tree), Sizes{1021});
  }
  EXPECT_EQ(budget, isCareful() ? 3 : 2);
  EXPECT_EQ(pageSizes(tree), (Sizes{510, 511}));
}

TEST_P(SplitNodeTest, WithoutPagesAFullPageBelowARootKeepsItsPairs) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  struct Case {
    size_t left, right;
    int pos;
  };
  for (const Case& c : {Case{1000, 0, 5}, Case{0, 1000, 5}, Case{1021, 1021, 5}}) {
    RepTreeRootSType& tree = fullPageBeside(c.left, c.right);
    const Sizes before = pageSizes(tree);
    long budget = 0;
    for (;; ++budget) {
      ASSERT_LT(budget, 5);
      host.setPageBudget(budget);
      if (split(tree, c.pos) != 0) break;
      EXPECT_EQ(pageSizes(tree), before);
    }
    host.setPageBudget(-1);
    EXPECT_NE(pageSizes(tree), before);
  }
}

}  // namespace
