#include "algebra/pageset.h"

#include "algebra/algebrafixture.h"

namespace {

// The kind under test is that of the tree whose pages are named.
class PageSetTest : public AlgebraTest {
 protected:
  BitSet refsOf(const RepTreeRootSType& root) {
    BitSet refs;
    for (const TreePage& page : pagesOf(host, root)) refs.insert(page.ref);
    return refs;
  }

  RepTreeRootSType& ids() { return newTree(BM_HEAP_TREE); }

  std::vector<RepTreeRootSType*> treesOfAllLevels() {
    return {&newTree(), &built(listLeaf(0, {1})), &built(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})}),
            &built(Groups{{listLeaf(0, {1}), denseLeaf(span(1), {}, 1)}, {listLeaf(span(4), {span(4)})}})};
  }

  // Addresses of heap pages are no bits: a tree of ids can be asked about those of the other kinds only.
  BitSet expectedIds(const RepTreeRootSType& root) { return isHeap() ? BitSet{} : refsOf(root); }
};
BMTREE_FOR_ALL_KINDS(PageSetTest);

TEST_P(PageSetTest, AddNamesEveryPageOfATreeOfIds) {
  for (const RepTreeRootSType* tree : treesOfAllLevels()) {
    TreeSnapshot unchanged(host, *tree);
    RepTreeRootSType& pages = ids();
    BmAdd(&host, tree, &pages);
    expectSound(pages, expectedIds(*tree));
    unchanged.expectUnchanged();
  }
}

TEST_P(PageSetTest, RemoveClearsWhatAddSetAndNothingElse) {
  for (const RepTreeRootSType* tree : treesOfAllLevels()) {
    RepTreeRootSType& pages = ids();
    BmSetBit(&host, &pages, 3);
    BmAdd(&host, tree, &pages);
    BmRemove(&host, tree, &pages);
    expectSound(pages, {3});
    BmRemove(&host, tree, &pages);  // bits that are not there are no error
    expectSound(pages, {3});
  }
}

TEST_P(PageSetTest, DoAddSetsAndClearsOneBitForEveryPage) {
  if (isHeap()) return;
  for (const RepTreeRootSType* tree : treesOfAllLevels()) {
    RepTreeRootSType& pages = ids();
    EXPECT_EQ(BmDoAdd(&host, tree, &pages, 1), 1);
    expectSound(pages, refsOf(*tree));
    EXPECT_EQ(BmDoAdd(&host, tree, &pages, 0), 1);
    EXPECT_EQ(pages.root, 0u);
    EXPECT_EQ(BmDoAdd(&host, tree, &pages, 0), 1);
  }
}

TEST_P(PageSetTest, DoAddTakesTheAddressesOfAHeapTree) {
  if (!isHeap()) return;
  InlineTree addresses;  // takes any 64-bit value
  const RepTreeRootSType& tree = built(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  EXPECT_EQ(BmDoAdd(&host, &tree, addresses.root(), 1), 1);
  EXPECT_EQ(asSet(bitsOf(*addresses.root())), refsOf(tree));
}

TEST_P(PageSetTest, ALevelTwoRootComesLastInAddAndFirstInDoAdd) {
  if (isHeap()) return;
  const RepTreeRootSType& tree = built(Groups{{listLeaf(0, {1})}, {listLeaf(span(1), {span(1)})}});
  RepTreeRootSType& pages = adopt(buildTree(host, BM_PAGE_TREE, listLeaf(0, {1})));
  const std::string located = "locate " + std::to_string(tree.root) + " kind 7 mode -1";
  const std::string set = "dirty " + std::to_string(pages.root) + " mode 3";
  host.clearEvents();
  BmAdd(&host, &tree, &pages);
  // the root page, then one bulk set for each level-1 page, then the root's own bit
  const std::vector<std::string> added = host.takeEvents({EventKind::locate, EventKind::dirty});
  EXPECT_EQ(added.front(), located);
  EXPECT_EQ(added.back(), set);
  BmDoAdd(&host, &tree, &pages, 0);
  const std::vector<std::string> cleared = host.takeEvents({EventKind::locate, EventKind::dirty});
  const auto rootLocated = std::find(cleared.begin(), cleared.end(), located);
  EXPECT_NE(std::find(cleared.begin(), rootLocated, set), rootLocated)
      << "the root's bit goes before its page is read";
}

TEST_P(PageSetTest, DoAddHoldsInternalPagesAndLetsThemGo) {
  const RepTreeRootSType& tree = built(Groups{{listLeaf(0, {1})}, {listLeaf(span(1), {span(1)})}});
  InlineTree pages;
  host.clearEvents();
  BmDoAdd(&host, &tree, pages.root(), 1);
  EXPECT_EQ(host.takeEvents({EventKind::pin}).size(), isHeap() ? 0u : 3u);
  EXPECT_EQ(host.pinsHeld(), 0);
}

TEST_P(PageSetTest, DoAddRefusesALevelAboveTwo) {
  RepTreeRootSType tree(4, kind());
  tree.level = 3;
  RepTreeRootSType& pages = ids();
  EXPECT_EQ(BmDoAdd(&host, &tree, &pages, 1), 0);
  EXPECT_EQ(pages.root, 0u);
}

TEST_P(PageSetTest, AFullLevelOnePageIsNamedWithItsRoot) {
  if (isHeap()) return;
  Leaves leaves;
  for (uint64_t i = 0; i < 1021; ++i) leaves.push_back(listLeaf(span(i), {span(i)}));
  const RepTreeRootSType& tree = built(leaves);
  RepTreeRootSType& pages = ids();
  BmAdd(&host, &tree, &pages);
  EXPECT_EQ(bitsOf(pages).size(), 1022u);
  BmRemove(&host, &tree, &pages);
  EXPECT_EQ(pages.root, 0u);
}

TEST_P(PageSetTest, ARootPageOfAnotherKindNamesNothingBelowIt) {
  if (isHeap()) return;
  RepTreeRootSType tree = built(listLeaf(0, runOfBits(0, 2000)));
  tree.level = 1;
  RepTreeRootSType& pages = ids();
  BmAdd(&host, &tree, &pages);
  BmRemove(&host, &tree, &pages);
  EXPECT_EQ(BmDoAdd(&host, &tree, &pages, 1), 1);
  EXPECT_EQ(host.takeReports().size(), 3u);
  expectSound(pages, {tree.root});
}

TEST_P(PageSetTest, DiskRootsAreExpanded) {
  if (isHeap()) return;
  const RepTreeRootSType& tree = built(Leaves{listLeaf(0, {1})});
  const DiskTreeRootSType disk = diskRootOf(tree);
  RepTreeRootSType& pages = ids();
  BmAdd(&host, &disk, &pages);
  expectSound(pages, refsOf(tree));
  BmRemove(&host, &disk, &pages);
  EXPECT_EQ(pages.root, 0u);
}

TEST_P(PageSetTest, ConvertingMakesAHeapTreeAPageTreeAndNamesItsPages) {
  RepTreeRootSType& tree = built(Leaves{listLeaf(0, {1}), denseLeaf(span(1), {span(1)})});
  RepTreeRootSType& pages = ids();
  BmConvertToPagesAndAdd(&host, &tree, &pages);
  EXPECT_EQ(tree.treeKind, isHeap() ? BM_PAGE_TREE : kind());
  expectSound(tree, {1, span(1)});
  expectSound(pages, refsOf(tree));
}

TEST_P(PageSetTest, ConvertingAnEmptyTreeDoesNothing) {
  RepTreeRootSType& tree = newTree();
  RepTreeRootSType& pages = ids();
  BmConvertToPagesAndAdd(&host, &tree, &pages);
  EXPECT_EQ(tree.treeKind, kind());
  EXPECT_EQ(pages.root, 0u);
}

TEST_F(TreeFixture, InlineListsHaveNoPagesToName) {
  InlineTree inlined({1, 2});
  RepTreeRootSType& pages = newTree(BM_HEAP_TREE);
  BmAdd(&host, inlined.root(), &pages);
  BmRemove(&host, inlined.root(), &pages);
  EXPECT_EQ(BmDoAdd(&host, inlined.root(), &pages, 1), 1);
  BmConvertToPagesAndAdd(&host, inlined.root(), &pages);
  EXPECT_EQ(pages.root, 0u);
  EXPECT_EQ(bitsOf(*inlined.root()).size(), 2u);
}

}  // namespace
