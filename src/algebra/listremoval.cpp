#include <algorithm>
#include <cstring>

#include "algebra/removal.h"
#include "bulk/bulkclear.h"
#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/pageaccess.h"
#include "tree/path.h"

namespace {

constexpr int SCAN_FAULT_LINE = 9378;
constexpr int EMPTIED_FRONT = 255;  // where the front of a list that empties towards its high end comes to stand

// A dense leaf that entries of its own span are looked up in.
struct SpanBits {
  const uint64_t* words;

  bool has(unsigned long bit) const { return (words[denseWordIndex(bit)] & denseWordMask(bit)) != 0; }
};

// Drops the entries of first .. end that are set in the leaf, and moves the others together at the high end. Returns
// the first of them. Writes nothing when none is dropped.
uint64_t* keepAtHighEnd(SpanBits leaf, uint64_t* first, uint64_t* end) {
  const uint64_t* read = end;
  while (read != first && !leaf.has(read[-1])) --read;
  uint64_t* kept = end - (end - read);
  while (read != first) {
    *--kept = *--read;
    kept += leaf.has(*kept);
  }
  return kept;
}

// The same at the low end. Returns one past the last of them.
uint64_t* keepAtLowEnd(SpanBits leaf, uint64_t* first, uint64_t* end) {
  uint64_t* kept = first;
  while (kept != end && !leaf.has(*kept)) ++kept;
  for (const uint64_t* read = kept; read != end; ++read) {
    const uint64_t entry = *read;
    *kept = entry;
    kept += !leaf.has(entry);
  }
  return kept;
}

void moveEntries(const uint64_t* from, uint64_t* to, long count) {
  std::memmove(to, from, static_cast<size_t>(count) * sizeof *to);
}

// Both remove the dense leaf's bits from the entries at `start` to `stop` - 1 and close the gap. They return how many
// went; `count` is the caller's to set.
int removeUpwards(SpanBits leaf, RepBitListContentsSType* list, long start, long stop) {
  uint64_t* entries = list->begin();
  const auto removed = static_cast<int>(keepAtHighEnd(leaf, entries + start, entries + stop) - (entries + start));
  if (removed == list->count) {
    list->firstOffset = EMPTIED_FRONT;
  } else if (removed > 0) {
    moveEntries(entries, entries + removed, start);
    list->firstOffset += removed;
  }
  return removed;
}

int removeDownwards(SpanBits leaf, RepBitListContentsSType* list, long start, long stop) {
  uint64_t* entries = list->begin();
  uint64_t* keptEnd = keepAtLowEnd(leaf, entries + start, entries + stop);
  const auto removed = static_cast<int>(entries + stop - keptEnd);
  if (removed > 0) moveEntries(entries + stop, keptEnd, list->count - stop);
  return removed;
}

// The index of the first entry at or above `bit`.
int indexOf(const RepBitListContentsSType& list, unsigned long bit) {
  return static_cast<int>(firstNotBelow(list.begin(), list.count, bit));
}

// Removes from `list` what is set in the leaf of `tree` that covers the entry at `index`. Returns the index to go on
// from: that of the first entry behind the leaf.
int scanCoveringLeaf(PageCacheSType* pc, const RepTreeRootSType& tree, RepBitListContentsSType* list,
                     unsigned long limit, int index) {
  const unsigned long entry = list->begin()[index];
  BmPathSType path{};
  if (findLeafPageForBit(pc, &tree, entry, &path) == 0) return index + 1;
  RepPageHdrSType* page = TreeAccess(pc, tree).leaf(path.levels[0].pageId);
  if (page->pageKind == REP_BIT_LIST_PAGE) {
    const RepBitListContentsSType& leaf = asListPage(page)->contents;
    const unsigned long* cursor = leaf.begin();
    ClearBitsInBlcFromSortedArray(list, limit, &cursor, leaf.end());
    return indexOf(*list, listLeafLimit(tree, path));
  }
  if (page->pageKind == REP_BM_LEAF_PAGE) {
    if (asDensePage(page)->bitsSet < 1) return indexOf(*list, spanEnd(entry));
    ClearBitsFromBmLeafBitListLeaf(asDensePage(page), spanBase(entry), list, &index);
    return index;
  }
  ReportLeafFault(pc, path.levels[0].pageId, page, tree.treeKind, SCAN_FAULT_LINE);
  return index + 1;
}

}  // namespace

int ClearBitsFromBmLeafBitListLeaf(RepBmLeafPageSType* leaf, unsigned long baseBit, RepBitListContentsSType* list,
                                   int* index) {
  const int count = list->count;
  if (count < 1) return 1;
  const long start = *index < 0 ? indexOf(*list, baseBit) : *index;
  const long stop = indexOf(*list, std::min(baseBit + BM_LEAF_BITS, BM_END_BIT));
  const long lastAndAbove = count - stop + 1;
  int removed = 0;
  if (start < stop) {
    removed = lastAndAbove < count / 2 ? removeUpwards({leaf->words}, list, start, stop)
                                       : removeDownwards({leaf->words}, list, start, stop);
  }
  list->count = count - removed;
  *index = static_cast<int>(stop) - removed;
  return removed > 0;
}

int BmClearBitsInBitList(PageCacheSType* pc, const RepTreeRootSType* tree, RepBitListContentsSType* list,
                         unsigned long limit) {
  const int before = list->count;
  int index = 0;
  while (index < list->count) {
    const int left = list->count;
    const int next = scanCoveringLeaf(pc, *tree, list, limit, index);
    // entries of a broken list that do not ascend must not keep the scan where it is
    index = list->count < left || next > index ? next : index + 1;
  }
  return list->count != before;
}
