// The one-bit write: what it answers, what it changes, and how often it marks a page.
#include <cstring>

#include "tree/writetest.h"

namespace {

class SetBitTest : public WriteTest {};
BMTREE_FOR_ALL_KINDS(SetBitTest);

TEST_P(SetBitTest, TheFirstBitMakesAListThatIsTheTree) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(set(tree, 0xFFFFFFFFFF), 0);
  EXPECT_EQ(tree.level, 0);
  expectTree(tree, "list 1@0", {0xFFFFFFFFFF});
  const unsigned char* page = bytesOf(tree, tree.root);
  EXPECT_EQ(rawU8(page, at::pageKind), 12);
  EXPECT_EQ(rawU16(page, at::bytesUsed), 48);
  if (isHeap()) {
    EXPECT_EQ(host.heapTag(tree.root), 777);
  }
}

TEST_P(SetBitTest, TheFirstPageIsMarkedAsItIsMadeStampedEmptiedAndFilled) {
  RepTreeRootSType& tree = newTree();
  set(tree, 5);
  EXPECT_EQ(marks(tree.root), cached(isCareful() ? 4 : 3));
}

TEST_P(SetBitTest, SettingABitTwiceAnswersZeroThenOneAndChangesNothingMore) {
  RepTreeRootSType& tree = newTree();
  EXPECT_EQ(set(tree, 70), 0);
  EXPECT_EQ(set(tree, 80), 0);
  host.clearEvents();
  EXPECT_EQ(set(tree, 70), 1);
  EXPECT_EQ(set(tree, 80), 1);
  EXPECT_EQ(host.takeEvents({EventKind::dirty}), std::vector<std::string>{});
  expectTree(tree, "list 2@0", {70, 80});
  EXPECT_EQ(rawU16(bytesOf(tree, tree.root), at::bytesUsed), 56);
}

TEST_P(SetBitTest, SettingADenseBitTwiceCountsItOnce) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {3})}, {.currentStamp = true});
  const uint64_t leaf = leafRef(tree, 0);
  host.clearEvents();
  EXPECT_EQ(set(tree, 130751), 0);
  EXPECT_EQ(marks(leaf), cached(1));
  EXPECT_EQ(set(tree, 130751), 1);
  EXPECT_EQ(marks(leaf), cached(1));
  expectTree(tree, "[0 dense 2]", {3, 130751});
}

TEST_P(SetBitTest, ANewListEntryMarksTheLeafOnceAndNothingElse) {
  RepTreeRootSType& tree = adoptTree(Leaves{listLeaf(0, {3, 9})}, {.currentStamp = true});
  host.clearEvents();
  EXPECT_EQ(set(tree, 5), 0);
  EXPECT_EQ(marks(leafRef(tree, 0)), cached(1));
  EXPECT_EQ(host.takeEvents({EventKind::dirty}).size(), isHeap() ? 0u : 1u);
  expectTree(tree, "[0 list 3@0]", {3, 5, 9});
}

TEST_P(SetBitTest, APresentBitOfAnOldCarefulLeafStillShadowsTheWayToIt) {
  RepTreeRootSType& tree = adoptTree(Groups{{denseLeaf(0, {3})}});
  const std::vector<TreePage> before = pagesOf(host, tree);
  EXPECT_EQ(set(tree, 3), 1);
  const std::vector<TreePage> after = pagesOf(host, tree);
  for (size_t i = 0; i < before.size(); ++i) EXPECT_EQ(before[i].ref != after[i].ref, isCareful()) << i;
  expectTree(tree, "[0 [0 dense 1]]", {3});
  expectCarefulSets();
}

TEST_P(SetBitTest, AnOldCarefulRootListIsShadowedBeforeTheBitGoesIn) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, {3}, 17));
  const uint64_t old = tree.root;
  host.clearEvents();
  EXPECT_EQ(set(tree, 4), 0);
  EXPECT_EQ(tree.root != old, isCareful());
  expectTree(tree, "list 2@17", {3, 4});
  if (isCareful()) {
    EXPECT_EQ(rawU32(bytesOf(tree, old), at::listCount), 1u);
  }
  expectCarefulSets();
}

TEST_P(SetBitTest, The2044thBitOfAListSplitsItAndAnswersZero) {
  const std::vector<uint64_t> bits = steps(0, 2043);
  RepTreeRootSType& tree = adoptTree(listLeaf(0, bits));
  EXPECT_EQ(set(tree, 2043), 0);
  expectTree(tree, "[0 dense 2044]", steps(0, 2044));
}

TEST_P(SetBitTest, A2044thBitInAHigherSpanGoesToANewListBehind) {
  RepTreeRootSType& tree = adoptTree(listLeaf(0, steps(0, 2043)));
  EXPECT_EQ(set(tree, span(7) + 1), 0);
  expectTree(tree, "[0 list 2043@0, 1 list 1@0]", steps(0, 2043) + steps(span(7) + 1, 1));
}

TEST_P(SetBitTest, InATreeOfDenseLeavesEveryNewLeafIsDenseAndStaysWhenEmpty) {
  RepTreeRootSType& tree = adoptTree(Leaves{denseLeaf(0, {}, 1)});
  tree.denseLeaves = 1;
  EXPECT_EQ(set(tree, span(5) + 9), 0);
  EXPECT_EQ(set(tree, span(2)), 0);
  expectTree(tree, "[0 dense 0+, 2 dense 1+, 5 dense 1+]", {span(2), span(5) + 9});
}

TEST_P(SetBitTest, WithoutAPageTheFirstBitIsNotSetAndTheTreeStaysEmpty) {
  if (isHeap()) GTEST_SKIP() << "a heap always has a page";
  RepTreeRootSType& tree = newTree();
  host.setPageBudget(0);
  EXPECT_EQ(set(tree, 4), 0);
  EXPECT_EQ(tree.root, 0u);
  EXPECT_EQ(host.takeEvents({EventKind::newPageRefused}).size(), 1u);
}

TEST_P(SetBitTest, ALeafOfAnotherKindIsReportedAtLine9055) {
  PageBytes image = listImage({1});
  putU8(image.data(), at::pageKind, 4);
  const uint64_t leaf = placePage(host, kind(), image, {.currentStamp = true});
  const uint64_t top = placePage(host, kind(), internalImage(1, {{0, leaf}}), {.currentStamp = true});
  RepTreeRootSType root(top, kind());
  root.level = 1;
  RepTreeRootSType& tree = adopt(root);
  testing::internal::CaptureStderr();
  EXPECT_EQ(set(tree, 1), 0);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_NE(text.find("treeKind " + std::to_string(kind()) + ", bitmap line 9055 \n"), std::string::npos) << text;
  EXPECT_NE(text.find("pageKind 4 \n"), std::string::npos) << text;
  host.expectReports({leafFault(leaf)});
}

// ---------------------------------------------------------------------------------------------------------
// No entry moves that need not

// Watches the slots of list entries: counts those whose entry a later look finds changed.
class SlotWatch {
 public:
  void look(uint64_t ref, const unsigned char* page) {
    if (rawU8(page, at::pageKind) != 12) return;
    Seen& seen = slots_[ref];
    const size_t first = rawU32(page, at::listFirstOffset);
    const size_t count = rawU32(page, at::listCount);
    for (size_t i = 0; i < seen.entries.size(); ++i) {
      const size_t slot = seen.first + i;
      moved += slot < first || slot >= first + count || rawU64(page, at::entry(slot)) != seen.entries[i];
    }
    seen.first = first;
    seen.entries.resize(count);
    std::memcpy(seen.entries.data(), page + at::entry(first), count * 8);
  }

  uint64_t moved = 0;

 private:
  struct Seen {
    size_t first = 0;
    std::vector<uint64_t> entries;
  };
  std::map<uint64_t, Seen> slots_;
};

// At 192 apart a full list ends with a span; at 300 spans apart every bit has a span of its own.
TEST_P(SetBitTest, AscendingBitsMoveNoEntry) {
  for (const uint64_t step : {uint64_t{192}, span(1), span(300)}) {
    RepTreeRootSType& tree = newTree();
    SlotWatch watch;
    for (uint64_t i = 0; i < 4200; ++i) {
      ASSERT_EQ(set(tree, i * step), 0);
      const BmPathSType path = pathTo(tree, i * step);
      watch.look(path.levels[0].pageId, bytesOf(tree, path.levels[0].pageId));
    }
    for (const uint64_t ref : refsAtLevel(host, tree, 0)) watch.look(ref, bytesOf(tree, ref));
    EXPECT_EQ(watch.moved, 0u) << step;
    EXPECT_EQ(shapeOf(tree), "[0 list 2043@0, " + std::to_string((2042 * step) / span(1) + 1) + " list 2043@0, " +
                                 std::to_string((4085 * step) / span(1) + 1) + " list 114@0]");
  }
}

// At 200 apart the list is full in the middle of its fourth span: only what it holds of that span leaves.
TEST_P(SetBitTest, AscendingBitsThatFillAListInTheMiddleOfASpanMoveOnlyThatSpan) {
  RepTreeRootSType& tree = newTree();
  for (uint64_t i = 0; i < 2043; ++i) set(tree, i * 200);
  const PageBytes before = *reinterpret_cast<const PageBytes*>(bytesOf(tree, tree.root));
  const uint64_t list = tree.root;
  set(tree, 2043 * 200);
  EXPECT_EQ(shapeOf(tree), "[0 list 1962@0, 3 list 82@255]");
  const PageBytes& after = *reinterpret_cast<const PageBytes*>(bytesOf(tree, leafRef(tree, 0)));
  EXPECT_TRUE(std::equal(before.begin() + 40, before.end(), after.begin() + 40));
  EXPECT_EQ(leafRef(tree, 0), list);
  expectSound(tree);
}

TEST_P(SetBitTest, DescendingBitsSpendTheFrontGapOneSlotAtATime) {
  RepTreeRootSType& tree = newTree();
  set(tree, 1000);
  set(tree, 999);
  EXPECT_EQ(shapeOf(tree), "list 2@255");
  for (uint64_t bit = 998; bit >= 744; --bit) {
    set(tree, bit);
    ASSERT_EQ(rawU32(bytesOf(tree, tree.root), at::listFirstOffset), bit - 744);
  }
  set(tree, 743);
  EXPECT_EQ(shapeOf(tree), "list 258@595");
  expectSound(tree);
}

// ---------------------------------------------------------------------------------------------------------
// Inline lists

class SetInlineBitTest : public TreeFixture {};

TEST_F(SetInlineBitTest, ABitGoesIntoTheListAndNothingIsMarked) {
  InlineTree tree({10, 30}, 5);
  EXPECT_EQ(BmSetBit(&host, tree.root(), 20), 0);
  EXPECT_EQ(BmSetBit(&host, tree.root(), 20), 1);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{10, 20, 30}));
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_F(SetInlineBitTest, WithoutMemoryNothingIsSet) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(BmSetBit(&host, &root, 20), 0);
  EXPECT_EQ(root.root, 0u);
  EXPECT_EQ(host.takeEvents(), std::vector<std::string>{});
}

TEST_F(SetInlineBitTest, AFullListIsReportedAndTheBitStillGoesIn) {
  std::vector<uint64_t> record(2 + 1 + 2044, 0);  // root, head of the list, and one slot more than it may use
  putU32(record.data(), 0, 16);
  putU32(record.data(), 16, 2043);
  for (uint64_t i = 0; i < 2043; ++i) record[3 + i] = i * 2;
  RepTreeRootSType root(reinterpret_cast<uint64_t>(record.data()), BM_INLINE_LIST_TREE);
  EXPECT_EQ(BmSetBit(&host, &root, 4084), 1);
  host.expectReports({});
  EXPECT_EQ(BmSetBit(&host, &root, 9999), 0);
  host.expectReports({"guarantee bitmap:8992"});
  EXPECT_EQ(rawU32(record.data(), 16), 2044u);
  EXPECT_EQ(record.back(), 9999u);
}

TEST_F(SetInlineBitTest, AnotherNegativeKindIsReportedAndSetsNothing) {
  InlineTree tree({10});
  tree.root()->treeKind = -1;
  EXPECT_EQ(BmSetBit(&host, tree.root(), 20), 0);
  host.expectReports({"guarantee reposdisk:1196"});
  tree.root()->treeKind = -2;
  EXPECT_EQ(bitsOf(*tree.root()), std::vector<uint64_t>{10});
}

}  // namespace
