// Questions about a whole tree: how many bits, the highest one, how many pages and leaves, whether it is empty.
// Counts come from the counter that every leaf keeps at the same place, never from the bits. Nothing is changed.
#include <algorithm>
#include <bit>

#include "algebra/leafstream.h"
#include "bitmap.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int ROOT_LEAF_FAULT_LINE = 7086;
constexpr int RIGHT_LEAF_FAULT_LINE = 7147;
constexpr int COUNT_FAULT_LINE = 7272;
constexpr int SUBTREE_TAG = 5649;

bool isLeaf(const RepPageHdrSType& page) {
  return page.pageKind == REP_BIT_LIST_PAGE || page.pageKind == REP_BM_LEAF_PAGE;
}

// Lists and dense leaves keep their counter at the same place.
static_assert(offsetof(RepBitListPageSType, contents.count) == offsetof(RepBmLeafPageSType, bitsSet));
unsigned long leafCounter(const RepPageHdrSType* page) {
  return static_cast<unsigned long>(asDensePage(page)->bitsSet);
}

unsigned long listCount(const RepBitListContentsSType* list) {
  return list == nullptr ? 0 : static_cast<unsigned long>(list->count);
}

unsigned long countInLevel0(PageCacheSType* pc, const RepTreeRootSType& root) {
  if (root.treeKind < 0) return listCount(inlineListContents(root));
  if (root.root == 0) return 0;
  return leafCounter(TreeAccess(pc, root).list(root.root));
}

unsigned long countInLeaf(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long ref) {
  RepPageHdrSType* page = TreeAccess(pc, root).leaf(ref);
  if (isLeaf(*page)) return leafCounter(page);
  ReportLeafFault(pc, ref, page, root.treeKind, COUNT_FAULT_LINE);
  return 0;
}

unsigned long countInLeaves(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long max) {
  BmLeavesSType leaves(&root);
  unsigned long total = 0;
  while (getLeaves(pc, &leaves) > 0) {
    for (int i = 0; i < leaves.leafCount; ++i) {
      total += countInLeaf(pc, root, leaves.leafRefs[i].pageRef);
      if (total >= max) return total;
    }
  }
  return total;
}

// The highest bit found, if any.
struct HighestBit {
  bool found;
  unsigned long bit;
};
constexpr HighestBit NO_BIT{false, 0};

HighestBit highestInList(const RepBitListContentsSType* list) {
  if (list == nullptr || list->count < 1) return NO_BIT;
  return {true, list->end()[-1]};
}

HighestBit highestInDenseLeaf(const RepBmLeafPageSType& leaf, unsigned long base) {
  if (leaf.bitsSet < 1) return NO_BIT;
  int index = BM_BIT_LIST_CAPACITY - 1;
  while (index >= 0 && leaf.words[index] == 0) --index;
  if (index < 0) return NO_BIT;
  const auto top = static_cast<unsigned long>(std::bit_width(leaf.words[index])) - 1;
  return {true, base + (static_cast<unsigned long>(index) << 6) + top};
}

HighestBit highestInRootLeaf(PageCacheSType* pc, const RepTreeRootSType& root) {
  RepPageHdrSType* page = TreeAccess(pc, root).list(root.root);
  if (root.treeKind == BM_HEAP_TREE && page->pageKind != REP_BIT_LIST_PAGE) {
    ReportLeafFault(pc, root.root, page, root.treeKind, ROOT_LEAF_FAULT_LINE);
    return NO_BIT;
  }
  return highestInList(&asListPage(page)->contents);
}

HighestBit highestInLeaf(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long ref, unsigned long base) {
  RepPageHdrSType* page = TreeAccess(pc, root).leaf(ref);
  if (page->pageKind == REP_BIT_LIST_PAGE) return highestInList(&asListPage(page)->contents);
  if (page->pageKind == REP_BM_LEAF_PAGE) return highestInDenseLeaf(*asDensePage(page), base);
  ReportLeafFault(pc, ref, page, root.treeKind, RIGHT_LEAF_FAULT_LINE);
  return NO_BIT;
}

// Visits the children of an internal page from the last to the first. The page is located anew for each, since
// nothing keeps it while the tree below is read.
HighestBit highestBelow(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long ref, int level) {
  const TreeAccess pages(pc, root);
  for (int i = pages.internal(ref)->keyArea.count - 1; i >= 0; --i) {
    const RepBmInternalPageSType& page = *pages.internal(ref);
    const int slot = page.keyArea.firstOffset + i;
    const unsigned long child = page.children[slot];
    const HighestBit highest = level > 1 ? highestBelow(pc, root, child, level - 1)
                                         : highestInLeaf(pc, root, child, keyBit(page.keyArea.keys[slot]));
    if (highest.found) return highest;
  }
  return NO_BIT;
}

unsigned long countPagesBelowLevel2(PageCacheSType* pc, const RepTreeRootSType& root,
                                    const RepBmInternalPageSType& page) {
  uint64_t children[BM_INT_CAPACITY];
  const int count = page.keyArea.count;
  std::copy_n(page.children + page.keyArea.firstOffset, count, children);
  unsigned long total = 0;
  for (int i = 0; i < count; ++i) {
    RepTreeRootSType child(children[i], static_cast<BmTreeKindEType>(root.treeKind));
    child.allocTag = SUBTREE_TAG;
    child.level = static_cast<uint8_t>(root.level - 1);
    total += BmCountPagesInTree(pc, &child);
  }
  return total;
}

}  // namespace

unsigned long BmFindNumBitsSet_(PageCacheSType* pc, const RepTreeRootSType* root) {
  return BmFindNumBitsSetMax_(pc, root, BM_HIGHEST_BIT);
}

unsigned long BmFindNumBitsSet_(PageCacheSType* pc, const DiskTreeRootSType* root) {
  return BmFindNumBitsSet_(pc, DiskRootView(root).root());
}

unsigned long BmFindNumBitsSetMax_(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long max) {
  const unsigned long total = root->level == 0 ? countInLevel0(pc, *root) : countInLeaves(pc, *root, max);
  return std::min(max, total);
}

unsigned long BmFindApproxNumBitsSet_(PageCacheSType* pc, const RepTreeRootSType* root) {
  if (root->level == 0) return countInLevel0(pc, *root);
  BmLeavesSType leaves(root);
  const int estimate = getLeaves(pc, &leaves) * BM_LEAF_BITS;
  return static_cast<unsigned long>(estimate);
}

unsigned long BmFindApproxNumBitsSet_(PageCacheSType* pc, const DiskTreeRootSType* root) {
  return BmFindApproxNumBitsSet_(pc, DiskRootView(root).root());
}

unsigned long BmFindHighWaterMark_(PageCacheSType* pc, const RepTreeRootSType* root) {
  if (root->treeKind < 0) return highestInList(inlineListContents(*root)).bit;
  if (root->root == 0) return 0;
  if (root->level == 0) return highestInRootLeaf(pc, *root).bit;
  return highestBelow(pc, *root, root->root, root->level).bit;
}

unsigned long BmFindHighWaterMark_(PageCacheSType* pc, const DiskTreeRootSType* root) {
  return BmFindHighWaterMark_(pc, DiskRootView(root).root());
}

int BmLevel1NumLeaves(PageCacheSType* pc, RepTreeRootSType* root) {
  if (root->level != 1) return -1;
  return TreeAccess(pc, *root).internal(root->root)->keyArea.count;
}

unsigned long BmCountPagesInTree(PageCacheSType* pc, RepTreeRootSType* root) {
  if (root->root == 0) return 0;
  if (root->level == 0) return 1;
  const RepBmInternalPageSType& page = *TreeAccess(pc, *root).checkedInternal(root->root);
  if (root->level == 1) return page.keyArea.count + 1UL;
  return countPagesBelowLevel2(pc, *root, page) + 1;
}

// A plain test of `root` would not do: a tree may hold leaves that have run empty.
int BmIsEmpty(PageCacheSType* pc, RepTreeRootSType* root) {
  if (root->root == 0) return 1;
  BmPathSType path{};
  unsigned long bit;
  return BmFindSetBitsNonDestructive_(pc, 1, root, &path, &bit) == 0;
}

// The low half of the page id alone decides: meant, a root with only pageIdHigh set counts as empty unseen.
int BmIsEmpty(PageCacheSType* pc, DiskTreeRootSType* root) {
  if (root->pageIdLow == 0) return 1;
  return BmIsEmpty(pc, DiskRootView(root).root());
}
