// The one-bit write.
#include "bitmap.h"
#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/splitlist.h"
#include "tree/treeroots.h"
#include "tree/writeaccess.h"

namespace {

constexpr int INLINE_FULL_LINE = 8992;
constexpr int SET_BIT_LINE = 9055;

int setBitInInlineList(const RepTreeRootSType& root, unsigned long bit) {
  RepBitListContentsSType* list = inlineListContents(root);
  if (list == nullptr) return 0;
  unsigned long* slot = BinSearchForModify(list->begin(), list->count, bit);
  if (slotIsHit(slot)) return 1;
  UTL_GUARANTEE(list->count < BM_BIT_LIST_CAPACITY, INLINE_FULL_LINE);
  ADD_BIT_TO_BITLIST(list, slot, bit);
  return 0;
}

// The answer of the second attempt does not matter: the bit was not set when the first one began.
int setBitBySplitting(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit) {
  if (splitBitList(pc, root, bit, 0) != 0) BmSetBit(pc, root, bit);
  return 0;
}

int setBitInList(PageCacheSType* pc, RepTreeRootSType* root, RepBitListPageSType* page, unsigned long bit) {
  RepBitListContentsSType& list = page->contents;
  unsigned long* slot = BinSearchForModify(list.begin(), list.count, bit);
  if (slotIsHit(slot)) return 1;
  if (list.count >= BM_BIT_LIST_CAPACITY) return setBitBySplitting(pc, root, bit);
  ADD_BIT_TO_BITLIST(&list, slot, bit);
  setBlCount_SET_DIRTY(pc, root, page, list.count);
  return 0;
}

int setBitInDenseLeaf(PageCacheSType* pc, RepTreeRootSType* root, RepBmLeafPageSType* leaf, unsigned long bit) {
  uint64_t& word = leaf->words[denseWordIndex(bit)];
  const uint64_t mask = denseWordMask(bit);
  if ((word & mask) != 0) return 1;
  word |= mask;
  ++leaf->bitsSet;
  TreeAccess(pc, *root).markDirty(&leaf->hdr);
  return 0;
}

RepPageHdrSType* writableLeafFor(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long bit) {
  if (root->level > 0 || root->root == 0) return locateOrCreateLeaf(pc, root, path, bit);
  path->levels[0].pageId = root->root;
  return locateForWrite(pc, root, 0, path);
}

// The leaf of a heap tree that `bit` can be set in as things are; null when something must be made first.
RepPageHdrSType* heapLeafWithRoom(const RepTreeRootSType& root, unsigned long bit) {
  RepPageHdrSType* page = heapLeafFor(root, bit);
  if (page == nullptr || page->pageKind == REP_BM_LEAF_PAGE) return page;
  return asListPage(page)->contents.count < BM_BIT_LIST_CAPACITY ? page : nullptr;
}

}  // namespace

int BmSetBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit) {
  if (root->treeKind < 0) return setBitInInlineList(*root, bit);
  RepPageHdrSType* page = root->treeKind == BM_HEAP_TREE ? heapLeafWithRoom(*root, bit) : nullptr;
  BmPathSType path;
  if (page == nullptr) {
    path.valid = path.atEnd = path.exact = path.allowNext = 0;
    path.levels[0].index = 0;
    page = writableLeafFor(pc, root, &path, bit);
    if (page == nullptr) return 0;
  }
  if (page->pageKind == REP_BIT_LIST_PAGE) return setBitInList(pc, root, asListPage(page), bit);
  if (page->pageKind == REP_BM_LEAF_PAGE) return setBitInDenseLeaf(pc, root, asDensePage(page), bit);
  ReportLeafFault(pc, path.levels[0].pageId, page, root->treeKind, SET_BIT_LINE);
  return 0;
}
