// Growing a tree to a high-water mark: a dense leaf for every span from bit 0 to the mark, made in one pass for a
// tree that has no leaves yet, one by one behind the last leaf of a tree that has been grown before.
//
// A growth that cannot be finished is reported, and the tree is left with the bits, the leaves and the level that it
// had. (Leaves without bits in a tree that was not grown before are given back at the start and do not return.)
#include "lifetime/grow.h"

#include <algorithm>

#include "bminvalidroots.h"
#include "tree/clearbit.h"
#include "tree/findleaf.h"
#include "tree/internalpage.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int GROWN_TAG = 8232;
constexpr unsigned long MOST_LEAVES = static_cast<unsigned long>(BM_INT_CAPACITY) * BM_INT_CAPACITY;

// Makes the child of `level` that begins at `firstBit` and holds `leaves` leaves. Returns its reference, or 0.
unsigned long newGrownChild(PageCacheSType* pc, unsigned long firstBit, int leaves, int level, RepTreeRootSType* tree,
                            int ignored) {
  if (level > 0) return growToHighImpl(pc, firstBit, leaves, level, tree, ignored);
  const RepPageHdrSType* leaf = newKeptDensePage(pc, tree);
  return leaf == nullptr ? 0 : TreeAccess(pc, *tree).refOf(leaf);
}

// Fills the empty internal page `page` of `level`. Returns false, with what was made entered in the page, when a page
// was not to be had.
bool fillGrownPage(PageCacheSType* pc, RepPageHdrSType* page, unsigned long firstBit, int leafCount, int level,
                   RepTreeRootSType* tree, int ignored) {
  const TreeAccess pages(pc, *tree);
  const PinnedPage pin(pages, page);
  BmIntPageRefCls slots = BmIntPageRefCls::of(tree->treeKind, page);
  const int leavesPerChild = level == 1 ? 1 : BM_INT_CAPACITY;
  for (unsigned index = 0; leafCount > 0; ++index) {
    const int leaves = std::min(leafCount, leavesPerChild);
    const unsigned long child = newGrownChild(pc, firstBit, leaves, level - 1, tree, ignored);
    if (child == 0) return false;
    slots.set_value(index, child, firstBit, level == 1 ? 1 : 0, 0);
    slots.keyArea->count = static_cast<uint16_t>(index + 1);
    firstBit += static_cast<unsigned long>(leaves) * BM_LEAF_BITS;
    leafCount -= leaves;
  }
  pages.markDirty(page);
  return true;
}

// Gives the tree, which has no pages, its leaves up to leaf number `leafCount` - 1. Returns false if it cannot.
bool growFromNothing(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long leafCount) {
  const int level = leafCount <= BM_INT_CAPACITY ? 1 : 2;
  const unsigned long root = growToHighImpl(pc, 0, static_cast<int>(leafCount), level, tree, -1);
  if (root == 0) return false;
  tree->root = root;
  tree->level = static_cast<uint8_t>(level);
  tree->denseLeaves = 1;
  return true;
}

// Puts the bits of the tree, which is of the ordinary form, into a grown one and that in its place.
bool rebuildGrown(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long leafCount) {
  RepTreeRootSType grown = *BmInvalidHeapTreeRoot();
  grown.treeKind = tree->treeKind;
  grown.allocTag = GROWN_TAG;
  if (!growFromNothing(pc, &grown, leafCount)) return false;
  BmSetBits_(pc, tree, &grown);
  if (BmFindNumBitsSet_(pc, &grown) != BmFindNumBitsSet_(pc, tree)) {
    BmDisposeTree(pc, &grown);
    return false;
  }
  BmDisposeTree(pc, tree);
  *tree = grown;
  return true;
}

// The last level-1 page with entries, or null.
RepBmInternalPageSType* lastLevel1Page(const TreeAccess& pages, const RepTreeRootSType& tree) {
  if (tree.level == 1) {
    RepBmInternalPageSType* page = pages.internal(tree.root);
    return page->keyArea.count > 0 ? page : nullptr;
  }
  for (int index = pages.internal(tree.root)->keyArea.count - 1; index >= 0; --index) {
    const RepBmInternalPageSType* top = pages.internal(tree.root);
    RepBmInternalPageSType* page = pages.internal(top->children[top->keyArea.firstOffset + index]);
    if (page->keyArea.count > 0) return page;
  }
  return nullptr;
}

// The first bit of the last leaf; 0 for a tree without internal pages.
unsigned long lastLeafBit(PageCacheSType* pc, const RepTreeRootSType& tree) {
  if (tree.treeKind < 0) {
    inlineListContents(tree);  // for its report of a kind that is none
    return 0;
  }
  if (tree.root == 0) return 0;
  const TreeAccess pages(pc, tree);
  if (tree.level == 0) {
    RepPageHdrSType* page = pages.list(tree.root);
    if (!pages.cached() && page->pageKind != REP_BIT_LIST_PAGE) {
      ReportLeafFault(pc, tree.root, page, tree.treeKind, __LINE__);
    }
    return 0;
  }
  const RepBmInternalPageSType* page = lastLevel1Page(pages, tree);
  return page == nullptr ? 0 : keyBit(page->keyArea.keys[page->keyArea.firstOffset + page->keyArea.count - 1]);
}

// Number of level-1 pages of a tree of level 1 or 2.
unsigned level1Pages(PageCacheSType* pc, const RepTreeRootSType& tree) {
  return tree.level == 2 ? TreeAccess(pc, tree).internal(tree.root)->keyArea.count : 1;
}

unsigned long leavesOf(PageCacheSType* pc, RepTreeRootSType* tree) {
  if (tree->treeKind < 0 || tree->level == 0) return 1;
  return BmCountPagesInTree(pc, tree) - level1Pages(pc, *tree) - (tree->level == 2 ? 1 : 0);
}

// Makes the leaf of the span that begins at `bit` if no leaf owns it. Returns false if it cannot.
bool addLeafAt(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long bit) {
  if (BmSetBit(pc, tree, bit) == 1) return true;  // a bit of the tree's own: it stays
  return BmClearBit(pc, tree, bit) == 1;
}

// Whether `bit` begins a dense leaf without bits that stays when empty.
bool isEmptyKeptLeaf(PageCacheSType* pc, const RepTreeRootSType& tree, unsigned long bit) {
  BmPathSType path{};
  if (tree.level == 0 || BmFindLeafForBit(pc, &tree, &path, bit) == 0 || path.levels[1].firstBit != bit) return false;
  const RepPageHdrSType* page = TreeAccess(pc, tree).leaf(path.levels[0].pageId);
  return page->pageKind == REP_BM_LEAF_PAGE && asDensePage(page)->bitsSet == 0 &&
         asDensePage(page)->keepWhenEmpty != 0;
}

// Moves the pairs of the last level-1 page behind those of the page before it and gives it back. Both pages and the
// root have been written in this operation, so no shadow is due.
void foldLastLevel1Page(PageCacheSType* pc, RepTreeRootSType* tree) {
  const TreeAccess pages(pc, *tree);
  RepPageHdrSType* root = &pages.internal(tree->root)->hdr;
  const PinnedPage rootPin(pages, root);
  BmIntPageRefCls top = BmIntPageRefCls::of(tree->treeKind, root);
  const unsigned last = top.keyArea->count - 1U;
  RepPageHdrSType* left = &pages.internal(top.child(last - 1))->hdr;
  const PinnedPage leftPin(pages, left);
  BmIntPageRefCls to = BmIntPageRefCls::of(tree->treeKind, left);
  BmIntPageRefCls from = BmIntPageRefCls::of(tree->treeKind, &pages.internal(top.child(last))->hdr);
  to.resetFirstOffset();
  for (unsigned i = 0; i < from.keyArea->count; ++i) {
    to.set_raw_value(to.keyArea->count, from.child(i), from.key(i));
    ++to.keyArea->count;
  }
  pages.markDirty(left);
  pages.dispose(top.child(last));
  top.remove_value(last);
  pages.markDirty(root);
}

// Takes away the level-2 root over a single level-1 page.
void dropLevel2Root(PageCacheSType* pc, RepTreeRootSType* tree) {
  const TreeAccess pages(pc, *tree);
  const unsigned long top = tree->root;
  const RepBmInternalPageSType* page = pages.internal(top);
  tree->root = page->children[page->keyArea.firstOffset];
  tree->level = 1;
  pages.dispose(top);
}

// Makes the leaves behind `lastLeaf` up to that of `bit`, one by one. If one cannot be made, those before it go
// again, with the pages that they had added above them.
bool raiseOneByOne(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long lastLeaf, unsigned long bit) {
  const unsigned levelBefore = tree->level;
  const unsigned pagesBefore = levelBefore == 0 ? 0 : level1Pages(pc, *tree);
  unsigned long next = lastLeaf + BM_LEAF_BITS;
  while (next <= bit && addLeafAt(pc, tree, next)) next += BM_LEAF_BITS;
  if (next > bit) return true;
  for (unsigned long made = next - BM_LEAF_BITS; made > lastLeaf; made -= BM_LEAF_BITS) {
    if (isEmptyKeptLeaf(pc, *tree, made)) disposeLeafForBit(pc, tree, made);
  }
  if (levelBefore == 0) return false;
  while (level1Pages(pc, *tree) > pagesBefore) foldLastLevel1Page(pc, tree);
  if (tree->level > levelBefore) dropLevel2Root(pc, tree);
  return false;
}

// A tree that was grown before: leaves only behind its last one.
bool raiseGrown(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long bit) {
  const unsigned long lastLeaf = lastLeafBit(pc, *tree);
  if (lastLeaf + BM_LEAF_BITS > bit) return true;
  if (leavesOf(pc, tree) + (bit - lastLeaf) / BM_LEAF_BITS > MOST_LEAVES) return false;
  return raiseOneByOne(pc, tree, lastLeaf, bit);
}

bool growTo(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long bit) {
  if (tree->denseLeaves != 0 && tree->root != 0) return raiseGrown(pc, tree, bit);
  const unsigned long leafCount = bit / BM_LEAF_BITS + 1;
  if (tree->treeKind < 0 || leafCount > MOST_LEAVES) return false;
  if (BmIsEmpty(pc, tree) == 0) return rebuildGrown(pc, tree, leafCount);
  BmDisposeTree(pc, tree);  // what pages it has hold no bit
  return growFromNothing(pc, tree, leafCount);
}

}  // namespace

unsigned long growToHighImpl(PageCacheSType* pc, unsigned long firstBit, int leafCount, int level,
                             RepTreeRootSType* tree, int ignored) {
  RepPageHdrSType* page = newBmInternalPage(pc, tree, level);
  if (page == nullptr) return 0;
  RepTreeRootSType grown(TreeAccess(pc, *tree).refOf(page), static_cast<BmTreeKindEType>(tree->treeKind));
  grown.level = static_cast<uint8_t>(level);
  if (!fillGrownPage(pc, page, firstBit, leafCount, level, tree, ignored)) BmDisposeTree(pc, &grown);
  return grown.root;
}

void BmGrowToHighWaterBit(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long bit) {
  UTL_GUARANTEE(growTo(pc, tree, bit));
}

void BmGrowToHighWaterOop(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long oop) {
  BmGrowToHighWaterBit(pc, tree, bitOfOop(oop));
}
