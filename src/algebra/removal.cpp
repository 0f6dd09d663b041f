// Removal: the bits of one tree leave another. Which tree drives the work depends on their shapes: a destination that
// is one list is scanned against a taller source, and any other is changed leaf by leaf as the source's leaves
// stream past.
#include "algebra/removal.h"

#include <cstring>

#include "algebra/leafstream.h"
#include "bulk/bulkclear.h"
#include "tree/bitlist.h"
#include "tree/clearbit.h"
#include "tree/findleaf.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"
#include "tree/writeaccess.h"
#include "words/densewords.h"

namespace {

constexpr int CAREFUL_LIST_BYTES_LINE = 9474;
constexpr int TARGET_FAULT_LINE = 9619;
constexpr int SOURCE_FAULT_LINE = 9625;

// ---------------------------------------------------------------------------------------------------------
// A dense leaf of the source, at the span `base`, against the destination's leaf of that span

unsigned long clearDenseFromDense(PageCacheSType* pc, const RepBmLeafPageSType& source, unsigned long base,
                                  RepTreeRootSType* destination, RepBmLeafPageSType* leaf) {
  const int cleared = clearWords(leaf->words, source.words);
  leaf->bitsSet -= cleared;
  if (cleared > 0) TreeAccess(pc, *destination).markDirty(&leaf->hdr);
  if (leaf->bitsSet < 1 && leaf->keepWhenEmpty == 0) disposeLeafForBit(pc, destination, base);
  return static_cast<unsigned long>(cleared);
}

unsigned long clearDenseFromList(PageCacheSType* pc, RepBmLeafPageSType* source, unsigned long base,
                                 RepTreeRootSType* destination, RepBitListPageSType* page) {
  RepBitListContentsSType& list = page->contents;
  const int before = list.count;
  int index = -1;
  if (ClearBitsFromBmLeafBitListLeaf(source, base, &list, &index) == 0) return 0;
  const int cleared = before - list.count;
  setBlCount_SET_DIRTY(pc, destination, page, list.count);
  if (list.count < 1) disposeLeafForBit(pc, destination, base);
  return static_cast<unsigned long>(cleared);
}

// A leaf that cannot be made writable keeps its bits.
unsigned long clearDense(PageCacheSType* pc, RepBmLeafPageSType* source, unsigned long base,
                         RepTreeRootSType* destination) {
  BmPathSType path{};
  if (findLeafPageForBit(pc, destination, base, &path) == 0) return 0;
  RepPageHdrSType* page = locateForWrite(pc, destination, 0, &path);
  if (page == nullptr) return 0;
  switch (page->pageKind) {
    case REP_BIT_LIST_PAGE: return clearDenseFromList(pc, source, base, destination, asListPage(page));
    case REP_BM_LEAF_PAGE: return clearDenseFromDense(pc, *source, base, destination, asDensePage(page));
    default: ReportLeafFault(pc, path.levels[0].pageId, page, destination->treeKind, TARGET_FAULT_LINE); return 0;
  }
}

// ---------------------------------------------------------------------------------------------------------
// The source's leaves stream past

unsigned long clearLeaf(const TreeAccess& pages, const RepTreeRootSType& source, const BmChildRefSType& leaf,
                        RepTreeRootSType* destination) {
  RepPageHdrSType* page = pages.leaf(leaf.pageRef);
  if (page->pageKind == REP_BM_LEAF_PAGE && asDensePage(page)->bitsSet < 1) return 0;
  const PinnedPage pinned(pages, page);  // the work on the destination makes further page accesses
  switch (page->pageKind) {
    case REP_BIT_LIST_PAGE:
      return ClearBitsFromBitList_(pages.pc(), destination, asListPage(page),
                                   static_cast<BmTreeKindEType>(source.treeKind));
    case REP_BM_LEAF_PAGE: return clearDense(pages.pc(), asDensePage(page), keyBit(leaf.key), destination);
    default: ReportLeafFault(pages.pc(), leaf.pageRef, page, source.treeKind, SOURCE_FAULT_LINE); return 0;
  }
}

// Ends early when the destination has emptied: there is nothing left to find.
unsigned long clearByLeaves(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination) {
  const TreeAccess pages(pc, source);
  BmLeavesSType leaves(&source);
  unsigned long total = 0;
  while (getLeaves(pc, &leaves) > 0) {
    for (int i = 0; i < leaves.leafCount; ++i) {
      if (destination->root == 0) return total;
      total += clearLeaf(pages, source, leaves.leafRefs[i], destination);
    }
  }
  return total;
}

// ---------------------------------------------------------------------------------------------------------
// A destination that is one list is scanned against the source

unsigned long scanInlineList(PageCacheSType* pc, const RepTreeRootSType& source,
                             const RepTreeRootSType& destination) {
  RepBitListContentsSType* list = inlineListContents(destination);
  if (list == nullptr || list->count < 1) return 0;
  const int before = list->count;
  BmClearBitsInBitList(pc, &source, list, list->end()[-1]);
  return static_cast<unsigned long>(before - list->count);
}

void disposeRootLeaf(const TreeAccess& pages, RepTreeRootSType* destination) {
  pages.dispose(destination->root);
  destination->root = 0;
  destination->level = 0;
}

unsigned long scanListInPlace(const TreeAccess& pages, const RepTreeRootSType& source, RepTreeRootSType* destination,
                              RepBitListPageSType* page) {
  RepBitListContentsSType& list = page->contents;
  const int before = list.count;
  int left;
  {
    const PinnedPage pinned(pages, &page->hdr);
    if (BmClearBitsInBitList(pages.pc(), &source, &list, BM_HIGHEST_BIT) == 0) return 0;
    left = list.count;
    page->hdr.bytesUsed = listBytesUsed(left, list.firstOffset);
    if (left > 0) pages.markDirty(&page->hdr);
  }
  if (left == 0) disposeRootLeaf(pages, destination);
  return static_cast<unsigned long>(before - left);
}

// Lays `list` out anew on the root page, writable. False when no page is to be had: the tree is then as it was.
bool replaceRootList(const TreeAccess& pages, RepTreeRootSType* destination, const RepBitListContentsSType& list) {
  RepPageHdrSType* page = shadowCarefulBmPage(pages.pc(), pages.list(destination->root), destination);
  if (page == nullptr) return false;
  destination->root = page->pageId;
  fillBitList(&asListPage(page)->contents, list.begin(), list.count);
  setBlCount_SET_DIRTY(pages.pc(), destination, asListPage(page), list.count);
  return true;
}

// Scans a copy, so that the page is shadowed only when the clearing turns out to change it.
unsigned long scanCarefulList(const TreeAccess& pages, const RepTreeRootSType& source, RepTreeRootSType* destination,
                              const RepBitListPageSType& page) {
  RepBitListPageSType copy;
  requireLegalBytesUsed(page.hdr, CAREFUL_LIST_BYTES_LINE);
  std::memcpy(&copy, &page, sizeof page.hdr + static_cast<size_t>(significantBodyBytes(page.hdr)));
  const int before = copy.contents.count;
  if (BmClearBitsInBitList(pages.pc(), &source, &copy.contents, BM_HIGHEST_BIT) == 0) return 0;
  if (copy.contents.count == 0) {
    disposeRootLeaf(pages, destination);
  } else if (!replaceRootList(pages, destination, copy.contents)) {
    return 0;
  }
  return static_cast<unsigned long>(before - copy.contents.count);
}

unsigned long scanRootList(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination) {
  if (destination->treeKind < 0) return scanInlineList(pc, source, *destination);
  const TreeAccess pages(pc, *destination);
  RepPageHdrSType* page = pages.list(destination->root);
  if (page->pageKind != REP_BIT_LIST_PAGE) {
    ReportLeafFault(pc, destination->root, page, destination->treeKind, TARGET_FAULT_LINE);
    return 0;
  }
  if (destination->treeKind == BM_CAREFUL_TREE) return scanCarefulList(pages, source, destination, *asListPage(page));
  return scanListInPlace(pages, source, destination, asListPage(page));
}

// ---------------------------------------------------------------------------------------------------------
// A source that is one leaf

// `leaf` is the root of its tree and holds bits of the first span.
unsigned long clearDenseRoot(PageCacheSType* pc, RepBmLeafPageSType* leaf, RepTreeRootSType* destination) {
  if (destination->treeKind >= 0) return clearDense(pc, leaf, 0, destination);
  RepBitListContentsSType* list = inlineListContents(*destination);
  if (list == nullptr) return 0;
  const int before = list->count;
  int index = -1;
  ClearBitsFromBmLeafBitListLeaf(leaf, 0, list, &index);
  return static_cast<unsigned long>(before - list->count);
}

unsigned long clearRootLeaf(PageCacheSType* pc, const RepTreeRootSType& source, RepTreeRootSType* destination) {
  if (source.treeKind < 0) {
    const RepBitListContentsSType* list = inlineListContents(source);
    return list == nullptr ? 0 : BmClearBitsFromSortedArray_(pc, destination, list->begin(), list->end());
  }
  const TreeAccess pages(pc, source);
  RepPageHdrSType* page = pages.list(source.root);
  const PinnedPage pinned(pages, page);
  switch (page->pageKind) {
    case REP_BIT_LIST_PAGE:
      return ClearBitsFromBitList_(pc, destination, asListPage(page), static_cast<BmTreeKindEType>(source.treeKind));
    case REP_BM_LEAF_PAGE: return clearDenseRoot(pc, asDensePage(page), destination);
    default: ReportLeafFault(pc, source.root, page, source.treeKind, SOURCE_FAULT_LINE); return 0;
  }
}

}  // namespace

unsigned long BmClearBits_(PageCacheSType* pc, RepTreeRootSType* source, RepTreeRootSType* destination) {
  if (destination->root == 0 || source->root == 0) return 0;
  if (source->level == 0) return clearRootLeaf(pc, *source, destination);
  if (destination->level == 0) return scanRootList(pc, *source, destination);
  return clearByLeaves(pc, *source, destination);
}

unsigned long BmClearBits_(PageCacheSType* pc, DiskTreeRootSType* source, RepTreeRootSType* destination) {
  return BmClearBits_(pc, DiskRootView(source).root(), destination);
}

unsigned long BmClearBits_(PageCacheSType* pc, DiskTreeRootSType* source, DiskTreeRootSType* destination) {
  return BmClearBits_(pc, DiskRootView(source).root(), DiskRootUpdate(destination).root());
}

unsigned long BmClearBits_(PageCacheSType* pc, RepTreeRootSType* source, DiskTreeRootSType* destination) {
  return BmClearBits_(pc, source, DiskRootUpdate(destination).root());
}

unsigned long BmClearBitsLargeFirst(PageCacheSType* pc, RepTreeRootSType* source, RepTreeRootSType* destination) {
  if (source->level <= destination->level || destination->level == 0) return BmClearBits_(pc, source, destination);
  RepTreeRootSType shared = pc->invalidHeapTreeRoot;
  BmIntersectSize_(pc, source, destination, &shared, BM_HIGHEST_BIT, 0);
  const unsigned long cleared = BmClearBits_(pc, &shared, destination);
  BmDisposeTree(pc, &shared);
  return cleared;
}

unsigned long BmClearBitsLargeFirst(PageCacheSType* pc, DiskTreeRootSType* source, RepTreeRootSType* destination) {
  return BmClearBitsLargeFirst(pc, DiskRootView(source).root(), destination);
}

unsigned long BmClearBitsLargeFirst(PageCacheSType* pc, DiskTreeRootSType* source, DiskTreeRootSType* destination) {
  return BmClearBitsLargeFirst(pc, DiskRootView(source).root(), DiskRootUpdate(destination).root());
}
