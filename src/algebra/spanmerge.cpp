#include "algebra/spanmerge.h"

#include <cstring>

#include "algebra/densewords.h"
#include "query/densescan.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

// `bits` is at most a list's capacity.
unsigned long addAsEntries(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base,
                           const uint64_t* words) {
  uint64_t entries[BM_BIT_LIST_CAPACITY];
  const DenseStretch found = collectSetBits(words, 0, base, BM_BIT_LIST_CAPACITY, entries);
  return BmSetBitsFromSortedArray_(pc, destination, entries, entries + found.count);
}

unsigned long mergeIntoInlineList(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base,
                                  const uint64_t* words, int bits) {
  const RepBitListContentsSType* list = inlineListContents(*destination);
  if (list == nullptr || bits > BM_BIT_LIST_CAPACITY - list->count) return 0;
  return addAsEntries(pc, destination, base, words);
}

}  // namespace

unsigned long mergeSpan(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base, const uint64_t* words,
                        int bits) {
  if (destination->treeKind < 0) return mergeIntoInlineList(pc, destination, base, words, bits);
  RepPageHdrSType* page = locateOrCreateBmLeaf(pc, destination, base);
  if (page == nullptr || page->pageKind != REP_BM_LEAF_PAGE) return 0;
  RepBmLeafPageSType* leaf = asDensePage(page);
  int newlySet = bits;
  if (leaf->bitsSet == 0) {
    std::memcpy(leaf->words, words, sizeof leaf->words);
  } else {
    newlySet = orWords(leaf->words, words);
  }
  leaf->bitsSet += newlySet;
  TreeAccess(pc, *destination).markDirty(page);
  return static_cast<unsigned long>(newlySet);
}

unsigned long addSpan(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base, const uint64_t* words,
                      int bits) {
  if (bits > BM_BIT_LIST_CAPACITY) return mergeSpan(pc, destination, base, words, bits);
  return addAsEntries(pc, destination, base, words);
}
