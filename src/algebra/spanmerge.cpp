#include "algebra/spanmerge.h"

#include <cstring>

#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"
#include "words/densescan.h"
#include "words/densewords.h"

namespace {

constexpr int MOST_ENTRIES = BM_BIT_LIST_CAPACITY + 1;  // so many bits of one span do not fit in a list

// Sets the lowest bits of the span as entries, MOST_ENTRIES of them at most.
unsigned long addAsEntries(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base,
                           const uint64_t* words) {
  uint64_t entries[MOST_ENTRIES];
  const DenseStretch found = collectSetBits(words, 0, base, MOST_ENTRIES, entries);
  return BmSetBitsFromSortedArray_(pc, destination, entries, entries + found.count);
}

// How many entries of `list` are among the bits of the span at `base`.
int entriesAmong(const RepBitListContentsSType& list, unsigned long base, const uint64_t* words) {
  const uint64_t* entry = list.begin() + firstNotBelow(list.begin(), list.count, base);
  int among = 0;
  for (; entry != list.end() && *entry - base < BM_LEAF_BITS; ++entry) {
    among += static_cast<int>(words[(*entry - base) >> 6] >> (*entry & 63) & 1);
  }
  return among;
}

unsigned long mergeIntoInlineList(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base,
                                  const uint64_t* words, int bits) {
  const RepBitListContentsSType* list = inlineListContents(*destination);
  if (list == nullptr || bits - entriesAmong(*list, base, words) > BM_BIT_LIST_CAPACITY - list->count) return 0;
  return addAsEntries(pc, destination, base, words);
}

// Bits from which on the words of a span cost less than its entries.
constexpr int WORDS_PAY = 128;

// Whether an array of so many bits of the span at `base` would go into a dense leaf of that span, there or new, and
// nothing else would change.
bool goesInWhole(PageCacheSType* pc, const RepTreeRootSType& destination, unsigned long base, int bits) {
  if (destination.level == 0) return false;
  const FoundLeaf found = findLeaf(pc, destination, base);
  return found.ref == 0 ? bits > BM_BIT_LIST_CAPACITY : keyIsDense(found.key) && bits >= WORDS_PAY;
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
  if (destination->treeKind < 0) return addAsEntries(pc, destination, base, words);
  if (goesInWhole(pc, *destination, base, bits)) return mergeSpan(pc, destination, base, words, bits);
  // the entries take the tree through the shapes that it has for arrays; the leaf that they leave behind is dense
  const unsigned long newlySet = addAsEntries(pc, destination, base, words);
  return bits <= MOST_ENTRIES ? newlySet : newlySet + mergeSpan(pc, destination, base, words, bits);
}
