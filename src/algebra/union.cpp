// Union: the bits of one tree are set in another. A list goes in as an array, entry by entry where the destination
// wants them; a dense leaf goes in whole, word by word. Into an empty destination the tree is copied page by page.
#include "algebra/copy.h"
#include "algebra/leafstream.h"
#include "algebra/spanmerge.h"
#include "bitmap.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int UNION_FAULT_LINE = 9773;

unsigned long addList(PageCacheSType* pc, const RepBitListContentsSType& list, RepTreeRootSType* destination) {
  if (list.count < 1) return 0;
  return BmSetBitsFromSortedArray_(pc, destination, list.begin(), list.end());
}

unsigned long addInlineList(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination) {
  const RepBitListContentsSType* list = inlineListContents(source);
  return list == nullptr ? 0 : addList(pc, *list, destination);
}

// A leaf that the destination has no page for is left out.
unsigned long addLeaf(const TreeAccess& pages, int sourceKind, const BmChildRefSType& leaf,
                      RepTreeRootSType* destination) {
  RepPageHdrSType* page = pages.leaf(leaf.pageRef);
  const PinnedPage pinned(pages, page);  // setting bits makes further page accesses
  switch (page->pageKind) {
    case REP_BIT_LIST_PAGE: return addList(pages.pc(), asListPage(page)->contents, destination);
    case REP_BM_LEAF_PAGE: {
      const RepBmLeafPageSType& dense = *asDensePage(page);
      if (dense.bitsSet < 1) return 0;
      return mergeSpan(pages.pc(), destination, keyBit(leaf.key), dense.words, dense.bitsSet);
    }
    default: ReportLeafFault(pages.pc(), leaf.pageRef, page, sourceKind, UNION_FAULT_LINE); return 0;
  }
}

}  // namespace

unsigned long BmSetBits_(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination) {
  if (source->root == 0) return 0;
  if (destination->root == 0) {
    int entryCount;
    return static_cast<unsigned long>(BmDoCopyTree(pc, source, destination, &entryCount));
  }
  if (source->level == 0 && source->treeKind < 0) return addInlineList(pc, *source, destination);
  const TreeAccess pages(pc, *source);
  BmLeavesSType leaves(source);
  unsigned long total = 0;
  while (getLeaves(pc, &leaves) > 0) {
    for (int i = 0; i < leaves.leafCount; ++i)
      total += addLeaf(pages, source->treeKind, leaves.leafRefs[i], destination);
  }
  return total;
}

unsigned long BmSetBits_(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination) {
  return BmSetBits_(pc, DiskRootView(source).root(), destination);
}

unsigned long BmSetBits_(PageCacheSType* pc, const DiskTreeRootSType* source, DiskTreeRootSType* destination) {
  return BmSetBits_(pc, DiskRootView(source).root(), DiskRootUpdate(destination).root());
}

unsigned long BmSetBits_(PageCacheSType* pc, const RepTreeRootSType* source, DiskTreeRootSType* destination) {
  return BmSetBits_(pc, source, DiskRootUpdate(destination).root());
}
