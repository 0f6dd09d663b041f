// Setting a run of consecutive bits. A long run is first built as a heap tree of full dense leaves and then united
// with the target, which takes it a leaf at a time instead of bit by bit.
#include <algorithm>
#include <cstring>
#include <numeric>

#include "bitmap.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int RANGE_FAULT_LINE = 9137;
constexpr int RANGE_TREE_TAG = 9117;
constexpr unsigned long LONG_RANGE_BITS = 2UL * BM_LEAF_BITS;

// Sets first .. last, not above each other, through arrays of consecutive bits.
unsigned long setByArrays(PageCacheSType* pc, RepTreeRootSType* root, unsigned long first, unsigned long last) {
  uint64_t bits[BM_BIT_LIST_CAPACITY];
  unsigned long total = 0;
  while (first <= last) {
    const unsigned long count = std::min<unsigned long>(last - first + 1, BM_BIT_LIST_CAPACITY);
    std::iota(bits, bits + count, first);
    total += BmSetBitsFromSortedArray_(pc, root, bits, bits + count);
    first += count;
  }
  return total;
}

// Adds the full dense leaf of the span at `base`, a gap of the tree of `run`.
void addFullLeaf(PageCacheSType* pc, RepTreeRootSType* run, unsigned long base) {
  BmPathSType path{};
  RepPageHdrSType* page = locateOrCreateLeaf(pc, run, &path, base);
  if (page == nullptr) return;
  if (page->pageKind != REP_BM_LEAF_PAGE) {
    ReportLeafFault(pc, path.levels[0].pageId, page, run->treeKind, RANGE_FAULT_LINE);
    return;
  }
  RepBmLeafPageSType* leaf = asDensePage(page);
  std::memset(leaf->words, 0xFF, sizeof leaf->words);
  leaf->bitsSet = BM_LEAF_BITS;
  TreeAccess(pc, *run).markDirty(page);
}

// Sets the spans from `base` up to, not including, `endBase`. The first span makes the first level of the run's tree
// by the ordinary path.
unsigned long setSpans(PageCacheSType* pc, RepTreeRootSType* root, unsigned long base, unsigned long endBase) {
  RepTreeRootSType run = pc->invalidHeapTreeRoot;
  run.allocTag = RANGE_TREE_TAG;
  run.denseLeaves = 1;
  for (; run.level == 0 && base < endBase; base += BM_LEAF_BITS) setByArrays(pc, &run, base, base + BM_LEAF_BITS - 1);
  for (; base < endBase; base += BM_LEAF_BITS) addFullLeaf(pc, &run, base);
  const unsigned long newlySet = BmSetBits_(pc, &run, root);
  BmDisposeTree(pc, &run);
  return newlySet == ~0UL ? 0 : newlySet;  // all ones: no page for the copy of the run
}

}  // namespace

unsigned long BmSetBitRange_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long first, unsigned long last) {
  if (last - first < LONG_RANGE_BITS) return setByArrays(pc, root, first, last);
  unsigned long total = 0;
  unsigned long cursor = first;
  if (first != spanBase(first)) {
    cursor = spanEnd(first);
    total = BmSetBitRange_(pc, root, first, cursor - 1);
  }
  const unsigned long lastBase = spanBase(last);
  total += setSpans(pc, root, cursor, lastBase);
  cursor = std::max(cursor, lastBase);
  if (last > cursor) total += BmSetBitRange_(pc, root, cursor, last);
  return total;
}

unsigned long BmSetBitRange_(PageCacheSType* pc, DiskTreeRootSType* root, unsigned long first, unsigned long last) {
  return BmSetBitRange_(pc, DiskRootUpdate(root).root(), first, last);
}
