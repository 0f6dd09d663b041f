// The gate to a page that is about to be written, and the shadowing of careful pages behind it.
#include "tree/writeaccess.h"

#include <cstring>

#include "support/treemodel.h"
#include "tree/findleaf.h"
#include "tree/pageaccess.h"

namespace {

constexpr uint64_t span = 130752;
using Lines = std::vector<std::string>;
using Ids = std::vector<uint64_t>;

std::string id(uint64_t page) { return std::to_string(page); }

std::vector<std::vector<LeafSpec>> twoByTwoLeaves() {
  return {{listLeaf(0, {1, 2}, 3), denseLeaf(4 * span, {4 * span + 9})},
          {denseLeaf(7 * span, {7 * span}), listLeaf(9 * span, {9 * span, 20 * span})}};
}

RepTreeRootSType treeOfLevel(TestHost& host, BmTreeKindEType kind, int level, const BuildOptions& options = {}) {
  const auto groups = twoByTwoLeaves();
  if (level == 0) return buildTree(host, kind, listLeaf(0, {1, 2}, 3), options);
  return level == 1 ? buildTree(host, kind, groups[0], options) : buildTree(host, kind, groups, options);
}

BmPathSType pathTo(TestHost& host, const RepTreeRootSType& root, uint64_t bit) {
  BmPathSType path{};
  EXPECT_EQ(findLeafPageForBit(&host, &root, bit, &path), 1);
  host.clearEvents();
  return path;
}

bool samePath(const BmPathSType& a, const BmPathSType& b) {
  const auto sameLevel = [](const BmPathLevelSType& x, const BmPathLevelSType& y) {
    return x.pageId == y.pageId && x.numEntries == y.numEntries && x.firstBit == y.firstBit &&
           x.limitBit == y.limitBit && x.index == y.index;
  };
  return a.valid == b.valid && a.atEnd == b.atEnd && a.exact == b.exact && a.allowNext == b.allowNext &&
         a.depth == b.depth && a.bit == b.bit && std::equal(a.levels, a.levels + 3, b.levels, sameLevel);
}

bool sameRoot(const RepTreeRootSType& a, const RepTreeRootSType& b) {
  return a.root == b.root && a.allocTag == b.allocTag && a.treeKind == b.treeKind && a.level == b.level &&
         a.denseLeaves == b.denseLeaves;
}

// ---------------------------------------------------------------------------------------------------------
// Trees of every kind

class WriteAccessTest : public TreeTest {};
BMTREE_FOR_ALL_KINDS(WriteAccessTest);

TEST_P(WriteAccessTest, APageThatMayBeWrittenIsReturnedAndNothingChanges) {
  for (int treeLevel = 0; treeLevel <= 2; ++treeLevel) {
    RepTreeRootSType& tree = adopt(treeOfLevel(host, kind(), treeLevel, {.currentStamp = true}));
    const RepTreeRootSType treeBefore = tree;
    for (int level = 0; level <= treeLevel; ++level) {
      BmPathSType path = pathTo(host, tree, 1);
      const BmPathSType before = path;
      const uint64_t ref = path.levels[level].pageId;
      RepPageHdrSType* page = locateForWrite(&host, &tree, level, &path);
      EXPECT_EQ(reinterpret_cast<unsigned char*>(page), bytesOf(tree, ref));
      EXPECT_TRUE(samePath(path, before));
      EXPECT_TRUE(sameRoot(tree, treeBefore));
      const std::string how = level == 0 ? " kind 0 mode 0" : " kind 7 mode -1";
      EXPECT_EQ(host.takeEvents(), isHeap() ? Lines{} : Lines{"locate " + id(ref) + how});
    }
  }
}

TEST_P(WriteAccessTest, OlderPagesAreShadowedInCarefulTreesOnly) {
  for (int treeLevel = 0; treeLevel <= 2; ++treeLevel) {
    RepTreeRootSType& tree = adopt(treeOfLevel(host, kind(), treeLevel));
    BmPathSType path = pathTo(host, tree, 1);
    const BmPathSType before = path;
    const RepTreeRootSType treeBefore = tree;
    locateForWrite(&host, &tree, 0, &path);
    EXPECT_EQ(samePath(path, before), !isCareful());
    EXPECT_EQ(sameRoot(tree, treeBefore), !isCareful());
    EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), isCareful() ? treeLevel + 1u : 0u);
    expectSound(tree);
  }
}

TEST_P(WriteAccessTest, ALeafReferenceOfZeroGivesNoPage) {
  RepTreeRootSType& tree = newTree();
  BmPathSType path{};
  EXPECT_EQ(locateForWrite(&host, &tree, 0, &path), nullptr);
}

using HeapWriteAccessTest = TreeFixture;

TEST_F(HeapWriteAccessTest, AnInternalPageOfAnotherKindIsReportedAndReturned) {
  RepTreeRootSType& tree = adopt(buildTree(host, BM_HEAP_TREE, listLeaf(0, {1})));
  BmPathSType path{};
  path.levels[1].pageId = tree.root;
  EXPECT_EQ(locateForWrite(&host, &tree, 1, &path), reinterpret_cast<RepPageHdrSType*>(tree.root));
  host.expectReports({"header fault: page " + id(tree.root) + " is not of kind 7, null:0"});
  path.levels[0].pageId = tree.root;
  locateForWrite(&host, &tree, 0, &path);
  host.expectReports({});
}

// ---------------------------------------------------------------------------------------------------------
// One shadow

class ShadowTest : public TreeFixture {
 protected:
  Ids dirtyIds() { return bitsOf(*host.dirtyCarefulBm); }
  Ids obsoleteIds() { return bitsOf(host.obsoleteCarefulBm); }

  // Brings the page of `level` on the way to `bit`, and those above it, to the current stamp.
  void makeCurrent(RepTreeRootSType& tree, int level, uint64_t bit) {
    BmPathSType path = pathTo(host, tree, bit);
    locateForWrite(&host, &tree, level, &path);
    host.clearEvents();
  }
  PageBytes copyOf(uint64_t page) {
    PageBytes copy;
    std::memcpy(copy.data(), host.bytes(page), copy.size());
    return copy;
  }
};

TEST_F(ShadowTest, APageOfTheCurrentStampIsReturnedAsItIs) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0, {.currentStamp = true}));
  host.clearEvents();
  EXPECT_EQ(shadowCarefulBmPage(&host, host.page(tree.root), &tree), host.page(tree.root));
  EXPECT_EQ(host.takeEvents(), Lines{});
}

TEST_F(ShadowTest, TheStepsOfAShadowComeInTheirOrder) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
  const uint64_t old = tree.root;
  const uint64_t next = host.nextPageId();
  host.clearEvents();
  RepPageHdrSType* shadow = shadowCarefulBmPage(&host, host.page(old), &tree);
  const std::string dirty = "dirty " + id(next) + " mode 3";
  EXPECT_EQ(host.takeEvents(),
            (Lines{"pin " + id(old), "new " + id(next) + " kind 12 shared 1", dirty, dirty, "heap alloc tag 1889",
                   "locate " + id(next) + " kind 0 mode 0", dirty, "unpin " + id(old), "heap alloc tag 1887",
                   "locate " + id(next) + " kind 12 mode -1"}));
  EXPECT_EQ(shadow, host.page(next));
  EXPECT_EQ(tree.root, old) << "the parent, here the root, is not touched";
  EXPECT_EQ(dirtyIds(), Ids{next});
  EXPECT_EQ(obsoleteIds(), Ids{old});
  tree.root = next;
}

TEST_F(ShadowTest, TheCopyHasAHeaderOfItsOwnAndTheBodyUpToBytesUsed) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
  const uint64_t old = tree.root;
  putU64(host.bytes(old), at::entry(5), 0x1111111111111111);  // behind bytesUsed
  const PageBytes before = copyOf(old);
  const auto* shadow = reinterpret_cast<unsigned char*>(shadowCarefulBmPage(&host, host.page(old), &tree));
  EXPECT_EQ(std::memcmp(host.bytes(old), before.data(), before.size()), 0) << "the old page stays as it is";
  EXPECT_EQ(rawU8(shadow, at::pageKind), 12);
  EXPECT_EQ(rawStamp(shadow), *host.carefulStamp);
  EXPECT_NE(rawU64(shadow, at::pageId), old);
  EXPECT_EQ(rawU16(shadow, at::bytesUsed), (2 + 3) * 8 + 40);
  EXPECT_EQ(std::memcmp(shadow + 32, before.data() + 32, 80 - 32), 0);
  for (size_t byte = 80; byte < 16384; ++byte) ASSERT_EQ(shadow[byte], 0xA5) << "byte " << byte;
  tree.root = rawU64(shadow, at::pageId);
}

TEST_F(ShadowTest, ADenseLeafAndAnInternalPageAreCopiedWhole) {
  for (const bool dense : {true, false}) {
    PageBytes image = dense ? denseImage({1, 99, 130751}) : internalImage(1, {{0, 4}, {span, 5}}, 900);
    putStamp(image.data(), *host.carefulStamp - 1);
    const uint64_t old = host.placeCachedPage(image, *host.carefulStamp - 1);
    RepTreeRootSType tree(old, BM_CAREFUL_TREE);
    const RepPageHdrSType* shadow = shadowCarefulBmPage(&host, host.page(old), &tree);
    EXPECT_EQ(shadow->pageKind, dense ? 8 : 7);
    EXPECT_EQ(rawU16(shadow, at::bytesUsed), 16384);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(shadow) + 32, image.data() + 32, 16352), 0);
    BmDisposePage(&host, shadow->pageId, BM_CAREFUL_TREE);
  }
}

TEST_F(ShadowTest, APageOfALaterStampIsShadowedToo) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
  const uint64_t old = tree.root;
  putStamp(host.bytes(old), *host.carefulStamp + 1);
  BmPathSType path = pathTo(host, tree, 1);
  locateForWrite(&host, &tree, 0, &path);
  EXPECT_NE(tree.root, old);
  EXPECT_EQ(obsoleteIds(), Ids{old});
  putStamp(host.bytes(old), *host.carefulStamp - 1);
}

TEST_F(ShadowTest, BothHalvesOfTheStampAreCompared) {
  for (const uint64_t stamp : {TestHost::firstStamp + (uint64_t{1} << 32), TestHost::firstStamp ^ 1}) {
    RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
    const uint64_t old = tree.root;
    putStamp(host.bytes(old), stamp);
    BmPathSType path = pathTo(host, tree, 1);
    locateForWrite(&host, &tree, 0, &path);
    EXPECT_NE(tree.root, old);
  }
}

TEST_F(ShadowTest, WithoutAPageNothingChangesAndThePinIsGivenBack) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
  const uint64_t old = tree.root;
  host.clearEvents();
  host.setPageBudget(0);
  EXPECT_EQ(shadowCarefulBmPage(&host, host.page(old), &tree), nullptr);
  EXPECT_EQ(host.takeEvents(), (Lines{"pin " + id(old), "new refused kind 12 shared 1", "unpin " + id(old)}));
  EXPECT_EQ(dirtyIds(), Ids{});
  EXPECT_EQ(obsoleteIds(), Ids{});
}

TEST_F(ShadowTest, IllegalBytesUsedArePrintedReportedAndKept) {
  for (const int used : {31, 0, -1, 16385, 32767}) {
    RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
    const uint64_t old = tree.root;
    putU16(host.bytes(old), at::bytesUsed, static_cast<uint16_t>(used));
    testing::internal::CaptureStdout();
    const RepPageHdrSType* shadow = shadowCarefulBmPage(&host, host.page(old), &tree);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "illegal bytesUsed in a page\n");
    host.expectReports({"guarantee bitmap:2164"});
    EXPECT_EQ(shadow->bytesUsed, used);
    EXPECT_EQ(rawU64(shadow, at::entry(2042)), used > 16384 ? 0xA5A5A5A5A5A5A5A5u : rawU64(shadow, at::entry(2042)));
    tree.root = shadow->pageId;
  }
}

TEST_F(ShadowTest, TheSmallestAndTheLargestLegalBytesUsedAreNotReported) {
  for (const int used : {32, 16384}) {
    RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
    putU16(host.bytes(tree.root), at::bytesUsed, static_cast<uint16_t>(used));
    const RepPageHdrSType* shadow = shadowCarefulBmPage(&host, host.page(tree.root), &tree);
    host.expectReports({});
    EXPECT_EQ(shadow->bytesUsed, used);
    tree.root = shadow->pageId;
  }
}

TEST_F(ShadowTest, AShadowWhileTrackingIsOffIsReportedAndGoesOn) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
  const uint64_t old = tree.root;
  host.carefulActive = 0;
  tree.root = shadowCarefulBmPage(&host, host.page(old), &tree)->pageId;
  host.expectReports({"guarantee bitmap:2173"});
  EXPECT_EQ(obsoleteIds(), Ids{old});
  host.carefulActive = 1;
}

TEST_F(ShadowTest, APageThatIsObsoleteAlreadyIsReportedAndShadowed) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 0));
  const uint64_t old = tree.root;
  BmSetBit(&host, &host.obsoleteCarefulBm, old);
  tree.root = shadowCarefulBmPage(&host, host.page(old), &tree)->pageId;
  host.expectReports({"cache fault: page " + id(old) + " \"illegal shadow\" bitmap:920"});
  EXPECT_NE(tree.root, old);
}

// ---------------------------------------------------------------------------------------------------------
// Shadowing up the path

class ShadowPathTest : public ShadowTest {};

TEST_F(ShadowPathTest, WithAllThreePagesStaleThreeCopiesAreMadeAndTheRootIsRewritten) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2, {.internalFirstOffset = 6}));
  moveStampOn();
  BmPathSType path = pathTo(host, tree, 20 * span);
  const BmPathSType before = path;
  const Ids old{path.levels[0].pageId, path.levels[1].pageId, path.levels[2].pageId};
  const uint64_t next = host.nextPageId();
  RepPageHdrSType* leaf = locateForWrite(&host, &tree, 0, &path);

  EXPECT_EQ(host.takeEvents({EventKind::pin, EventKind::newPage, EventKind::unpin, EventKind::locate}),
            (Lines{"locate " + id(old[0]) + " kind 0 mode 0",  //
                   "pin " + id(old[0]), "new " + id(next) + " kind 12 shared 1",
                   "locate " + id(next) + " kind 0 mode 0", "unpin " + id(old[0]),
                   "locate " + id(next) + " kind 12 mode -1",  //
                   "locate " + id(old[1]) + " kind 7 mode -1", "pin " + id(old[1]),
                   "new " + id(next + 1) + " kind 7 shared 1", "locate " + id(next + 1) + " kind 0 mode 0",
                   "unpin " + id(old[1]), "locate " + id(next + 1) + " kind 7 mode -1",  //
                   "locate " + id(old[2]) + " kind 7 mode -1", "pin " + id(old[2]),
                   "new " + id(next + 2) + " kind 7 shared 1", "locate " + id(next + 2) + " kind 0 mode 0",
                   "unpin " + id(old[2]), "locate " + id(next + 2) + " kind 7 mode -1",  //
                   "locate " + id(next) + " kind 0 mode 0"}));

  EXPECT_EQ(leaf, host.page(next));
  EXPECT_EQ(tree.root, next + 2);
  for (int level = 0; level < 3; ++level) EXPECT_EQ(path.levels[level].pageId, next + static_cast<uint64_t>(level));
  for (BmPathLevelSType& level : path.levels) level.pageId = before.levels[&level - path.levels].pageId;
  EXPECT_TRUE(samePath(path, before)) << "only the page ids of the path change";
  EXPECT_EQ(dirtyIds(), (Ids{next, next + 1, next + 2}));
  EXPECT_EQ(obsoleteIds(), (Ids{old[0] < old[1] ? old[0] : old[1], std::min(old[1], old[2]), old[2]}));
  EXPECT_EQ(shapeOf(tree), "[0 [0 list 2@3, 4 dense 1], 7 [7 dense 1, 9 list 2@0]]");
  expectOldPagesUnchanged();
  expectSound(tree, {1, 2, 4 * span + 9, 7 * span, 9 * span, 20 * span});
}

TEST_F(ShadowPathTest, ALeafWhoseParentsAreCurrentReplacesOneChildSlotAndStops) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  makeCurrent(tree, 1, 4 * span);
  BmPathSType path = pathTo(host, tree, 4 * span);
  const uint64_t old = path.levels[0].pageId;
  const uint64_t root = tree.root;
  const uint64_t parent = path.levels[1].pageId;
  const PageBytes rootBefore = copyOf(root);
  const PageBytes parentBefore = copyOf(parent);
  host.clearEvents();
  locateForWrite(&host, &tree, 0, &path);

  EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), 1u);
  const uint64_t shadow = path.levels[0].pageId;
  EXPECT_NE(shadow, old);
  EXPECT_EQ(path.levels[1].pageId, parent);
  EXPECT_EQ(path.levels[2].pageId, root);
  EXPECT_EQ(tree.root, root);
  EXPECT_EQ(copyOf(root), rootBefore);
  PageBytes expected = parentBefore;
  putU64(expected.data(), at::child(1), shadow);
  EXPECT_EQ(copyOf(parent), expected);
  expectSound(tree);
}

TEST_F(ShadowPathTest, TheParentIsMarkedOnceAndTheCurrentGrandparentIsNotLocated) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  makeCurrent(tree, 1, 1);
  BmPathSType path = pathTo(host, tree, 1);
  locateForWrite(&host, &tree, 0, &path);
  EXPECT_EQ(host.countLogged(EventKind::dirty, path.levels[1].pageId), 1);
  EXPECT_EQ(host.countLogged(EventKind::dirty, path.levels[2].pageId), 0);
  EXPECT_EQ(host.countLogged(EventKind::locate, path.levels[2].pageId), 0);
}

TEST_F(ShadowPathTest, AStaleLeafAndParentBelowACurrentRootMakeTwoCopies) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  makeCurrent(tree, 2, 7 * span);
  BmPathSType path = pathTo(host, tree, 7 * span);
  const uint64_t root = tree.root;
  locateForWrite(&host, &tree, 0, &path);
  EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), 2u);
  EXPECT_EQ(tree.root, root);
  EXPECT_EQ(rawU64(host.bytes(root), at::child(1)), path.levels[1].pageId);
  EXPECT_EQ(rawU64(host.bytes(root), at::key(1)), 7 * span) << "a level-2 key gets no tag";
  expectSound(tree);
}

TEST_F(ShadowPathTest, AWriteToAnInternalPageLeavesTheLeavesAlone) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  BmPathSType path = pathTo(host, tree, 1);
  const uint64_t leaf = path.levels[0].pageId;
  const RepPageHdrSType* page = locateForWrite(&host, &tree, 1, &path);
  EXPECT_EQ(page->pageId, path.levels[1].pageId);
  EXPECT_EQ(path.levels[0].pageId, leaf);
  EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), 2u);
  EXPECT_EQ(rawU64(host.bytes(tree.root), at::key(0)), 0u);
  expectSound(tree);
}

TEST_F(ShadowPathTest, AWriteToTheTopPageMakesOneCopy) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  BmPathSType path = pathTo(host, tree, 1);
  const uint64_t old = tree.root;
  locateForWrite(&host, &tree, 2, &path);
  EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), 1u);
  EXPECT_NE(tree.root, old);
  EXPECT_EQ(path.levels[2].pageId, tree.root);
  expectSound(tree);
}

TEST_F(ShadowPathTest, ASecondWriteUnderTheSameStampShadowsNothing) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  BmPathSType path = pathTo(host, tree, 1);
  locateForWrite(&host, &tree, 0, &path);
  host.clearEvents();
  for (int level = 0; level < 3; ++level) locateForWrite(&host, &tree, level, &path);
  EXPECT_EQ(host.takeEvents({EventKind::newPage, EventKind::pin, EventKind::dirty}), Lines{});
  BmPathSType sibling = pathTo(host, tree, 4 * span);
  locateForWrite(&host, &tree, 0, &sibling);
  EXPECT_EQ(host.takeEvents({EventKind::newPage}).size(), 1u) << "the leaf only: the pages above it are current";
}

TEST_F(ShadowPathTest, ShadowingALeafWritesItsTagIntoTheParentsKey) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 1, {.internalFirstOffset = 2}));
  // keys whose tags do not fit the leaves
  putU64(host.bytes(tree.root), at::key(2), 0 | 1);
  putU64(host.bytes(tree.root), at::key(3), 4 * span);
  BmPathSType toList = pathTo(host, tree, 1);
  locateForWrite(&host, &tree, 0, &toList);
  BmPathSType toDense = pathTo(host, tree, 4 * span);
  locateForWrite(&host, &tree, 0, &toDense);
  EXPECT_EQ(rawU64(host.bytes(tree.root), at::key(2)), 0u);
  EXPECT_EQ(rawU64(host.bytes(tree.root), at::key(3)), 4 * span | 1);
  expectSound(tree);
}

TEST_F(ShadowPathTest, PagesMayMoveInTheCacheWhileTheyAreNotPinned) {
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  moveStampOn();
  host.watchDirtyMarks();
  host.moveUnpinnedPages(1);
  BmPathSType path = pathTo(host, tree, 20 * span);
  RepPageHdrSType* leaf = locateForWrite(&host, &tree, 0, &path);
  EXPECT_EQ(leaf->pageId, path.levels[0].pageId);
  host.expectChangesMarked();
  expectSound(tree, {1, 2, 4 * span + 9, 7 * span, 9 * span, 20 * span});
}

// ---------------------------------------------------------------------------------------------------------
// All or nothing

struct Budget {
  int treeLevel;
  int level;
};

class ExhaustedShadowTest : public ShadowTest, public ::testing::WithParamInterface<Budget> {
 protected:
  std::map<uint64_t, PageBytes> copyAll() {
    std::map<uint64_t, PageBytes> copies;
    for (const uint64_t page : host.livePages()) copies[page] = copyOf(page);
    return copies;
  }
};

std::string budgetName(const ::testing::TestParamInfo<Budget>& info) {
  return "Tree" + std::to_string(info.param.treeLevel) + "Page" + std::to_string(info.param.level);
}

INSTANTIATE_TEST_SUITE_P(Levels, ExhaustedShadowTest,
                         ::testing::Values(Budget{0, 0}, Budget{1, 0}, Budget{1, 1}, Budget{2, 0}, Budget{2, 1},
                                           Budget{2, 2}),
                         budgetName);

TEST_P(ExhaustedShadowTest, EveryBudgetThatIsTooSmallLeavesTreePathAndSetsAsTheyWere) {
  const auto [treeLevel, level] = GetParam();
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, treeLevel, {.internalFirstOffset = 1}));
  // ids of other trees in both sets
  RepTreeRootSType& current = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 1, {.currentStamp = true}));
  RepTreeRootSType& gone = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 1));
  BmDisposeTree(&host, &gone);
  BmPathSType path = pathTo(host, tree, 1);
  const BmPathSType pathBefore = path;
  const RepTreeRootSType treeBefore = tree;
  const auto pagesBefore = copyAll();
  const Ids dirtyBefore = dirtyIds();
  const Ids obsoleteBefore = obsoleteIds();
  const int needed = treeLevel - level + 1;
  for (int budget = 0; budget < needed; ++budget) {
    host.setPageBudget(budget);
    EXPECT_EQ(locateForWrite(&host, &tree, level, &path), nullptr) << "budget " << budget;
    EXPECT_TRUE(samePath(path, pathBefore));
    EXPECT_TRUE(sameRoot(tree, treeBefore));
    EXPECT_EQ(copyAll(), pagesBefore) << "no page more, no page less, none changed";
    EXPECT_EQ(dirtyIds(), dirtyBefore);
    EXPECT_EQ(obsoleteIds(), obsoleteBefore);
    EXPECT_EQ(host.pinsHeld(), 0);
    host.expectReports({});
  }
  host.setPageBudget(needed);
  EXPECT_NE(locateForWrite(&host, &tree, level, &path), nullptr);
  EXPECT_EQ(dirtyIds().size(), dirtyBefore.size() + static_cast<size_t>(needed));
  EXPECT_EQ(obsoleteIds().size(), obsoleteBefore.size() + static_cast<size_t>(needed));
  expectSound(tree);
  expectSound(current);
}

TEST_P(ExhaustedShadowTest, ACurrentAncestorIsNotChangedByAShadowThatFailsBelowIt) {
  const auto [treeLevel, level] = GetParam();
  if (treeLevel != 2 || level != 0) GTEST_SKIP() << "needs two pages to copy below a current one";
  RepTreeRootSType& tree = adopt(treeOfLevel(host, BM_CAREFUL_TREE, 2));
  makeCurrent(tree, 2, 1);
  BmPathSType path = pathTo(host, tree, 1);
  const PageBytes rootBefore = copyOf(tree.root);
  for (int budget = 0; budget < 2; ++budget) {
    host.setPageBudget(budget);
    EXPECT_EQ(locateForWrite(&host, &tree, 0, &path), nullptr);
    EXPECT_EQ(copyOf(tree.root), rootBefore);
  }
  expectSound(tree);
  host.setPageBudget(2);
  EXPECT_NE(locateForWrite(&host, &tree, 0, &path), nullptr);
}

}  // namespace
