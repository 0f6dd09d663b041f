// Bulk clear: many bits leave a tree in one pass, a leaf at a time. A list loses a sorted run of bits in one of three
// ways, chosen by the two sizes: a few bits against a long list cost a few searches, a long array against a short
// list costs a few searches of the array, and only like sizes pay a linear walk.
//
// Each way first only reads. The list is compacted, in place and in order, from the first match on: the entries
// before it do not move and no gap is made again. An array that does not ascend clears an unspecified part of its
// bits; every pass still moves the cursor or shortens a list, and writes inside the list only.
#include "bulk/bulkclear.h"

#include <cstring>

#include "bulk/sort.h"
#include "tree/bitlist.h"
#include "tree/clearbit.h"
#include "tree/findleaf.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/treeroots.h"
#include "tree/writeaccess.h"
#include "words/entryruns.h"

namespace {

// What is left of the array, and the last bit of it that the list in hand may own.
struct BitRun {
  const unsigned long* cursor;
  const unsigned long* end;
  unsigned long lastBit;

  bool done() const { return cursor == end || *cursor > lastBit; }
  void skipToEnd() {
    while (!done()) ++cursor;
  }
  // The same for a long array that ascends.
  void jumpToEnd() { cursor = lastBit == ~0UL ? end : cursor + firstNotBelow(cursor, end - cursor, lastBit + 1); }
};

uint64_t* moveDown(uint64_t* to, const uint64_t* from, const uint64_t* fromEnd) {
  const auto count = static_cast<unsigned long>(fromEnd - from);
  std::memmove(to, from, count * sizeof *to);
  return to + count;
}

int keepUpTo(RepBitListContentsSType* list, const uint64_t* keptEnd) {
  list->count = static_cast<int32_t>(keptEnd - list->begin());
  return 1;
}

// Whether `bit` is in the array; the cursor moves to it, and one past a hit.
bool findInArray(BitRun& run, unsigned long bit) {
  run.cursor += firstNotBelow(run.cursor, run.end - run.cursor, bit);
  if (run.cursor == run.end || *run.cursor != bit) return false;
  ++run.cursor;
  return true;
}

// For a list much shorter than the array.
int clearBySearchingArray(RepBitListContentsSType* list, BitRun& run) {
  BitRun unmoved = run;
  uint64_t* entry = list->begin();
  const uint64_t* const listEnd = list->end();
  while (entry != listEnd && !findInArray(run, *entry)) ++entry;
  if (entry == listEnd) {
    unmoved.jumpToEnd();
    run = unmoved;
    return 0;
  }
  uint64_t* kept = entry++;
  for (; entry != listEnd; ++entry) {
    if (!findInArray(run, *entry)) *kept++ = *entry;
  }
  return keepUpTo(list, kept);
}

// The next entry of from .. listEnd that is in the array; listEnd if there is none.
uint64_t* nextEntryInArray(uint64_t* from, uint64_t* listEnd, BitRun& run) {
  for (; !run.done(); ++run.cursor) {
    from += firstNotBelow(from, listEnd - from, *run.cursor);
    if (from != listEnd && *from == *run.cursor) {
      ++run.cursor;
      return from;
    }
  }
  return listEnd;
}

// For an array much shorter than the list: one block move for each entry removed.
int clearBySearchingList(RepBitListContentsSType* list, BitRun& run) {
  uint64_t* const listEnd = list->end();
  uint64_t* hit = nextEntryInArray(list->begin(), listEnd, run);
  if (hit == listEnd) return 0;
  uint64_t* kept = hit;
  while (hit != listEnd) {
    uint64_t* next = nextEntryInArray(hit + 1, listEnd, run);
    kept = moveDown(kept, hit + 1, next);
    hit = next;
  }
  return keepUpTo(list, kept);
}

// For like sizes.
int clearByMerging(RepBitListContentsSType* list, BitRun& run) {
  const BitRun all = run;
  run.jumpToEnd();
  EntryRuns runs{list->begin() + firstNotBelow(list->begin(), list->count, *all.cursor), list->end(), all.cursor,
                 run.cursor};
  if (!skipToShared(runs)) {
    // The element above all entries, if the list owns one, has been looked at and counts as used.
    const unsigned long* above = all.cursor + firstNotBelow(all.cursor, run.cursor - all.cursor, list->end()[-1] + 1);
    if (above != run.cursor) run.cursor = above + 1;
    return 0;
  }
  uint64_t* kept = list->begin() + (runs.a - list->begin());
  kept = subtractEntries(runs, kept, list->end());
  return keepUpTo(list, moveDown(kept, runs.a, list->end()));
}

// How many times longer one side must be for searching it to pay; `longer` is its length.
long searchFactor(long longer) { return longer < 33 ? 4 : longer < 513 ? 8 : 11; }

int clearInList(RepBitListContentsSType* list, BitRun& run) {
  const long entries = list->count;
  const long bits = run.end - run.cursor;
  if (entries < 1) return 1;
  if (bits < 1) return 0;
  if (entries > bits) {
    return searchFactor(entries) * bits < entries ? clearBySearchingList(list, run) : clearByMerging(list, run);
  }
  return searchFactor(bits) * entries < bits ? clearBySearchingArray(list, run) : clearByMerging(list, run);
}

// Clears the bits that lie in the span at `base`, in the words of its leaf. Returns how many were set.
int clearInWords(uint64_t* words, unsigned long base, const unsigned long** cursor, const unsigned long* end) {
  int cleared = 0;
  const unsigned long* bit = *cursor;
  for (; bit != end && *bit - base < BM_LEAF_BITS; ++bit) {
    uint64_t& word = words[(*bit - base) >> 6];
    cleared += static_cast<int>(word >> (*bit & 63) & 1);
    word &= ~denseWordMask(*bit);
  }
  *cursor = bit;
  return cleared;
}

unsigned long clearInInlineList(const RepTreeRootSType& root, const unsigned long* first, const unsigned long* end) {
  RepBitListContentsSType* list = inlineListContents(root);
  if (list == nullptr || list->count < 1) return 0;
  const int before = list->count;
  ClearBitsInBlcFromSortedArray(list, list->end()[-1], &first, end);
  return static_cast<unsigned long>(before - list->count);
}

// One run of a bulk clear over a tree of pages.
struct BulkClear {
  PageCacheSType* pc;
  RepTreeRootSType* root;
  TreeAccess pages;
  const unsigned long* cursor;
  const unsigned long* end;
  unsigned long total;

  void clearInListLeaf(RepBitListPageSType* page, const BmPathSType& path);
  void passBitsAboveEntries(const RepBitListContentsSType& list, const BmPathSType& path);
  void clearInDenseLeaf(RepBmLeafPageSType* page);
  void passBrokenLeaf(RepPageHdrSType* page, const BmPathSType& path);
  void passUnwritableLeaf(const BmPathSType& path);
  void clearInNextLeaf();
};

void BulkClear::clearInListLeaf(RepBitListPageSType* page, const BmPathSType& path) {
  const unsigned long bit = *cursor;
  BitRun run{cursor, end, listLeafLimit(*root, path) - 1};
  const int before = page->contents.count;
  const int changed = clearInList(&page->contents, run);
  const int cleared = before - page->contents.count;
  if (cleared == 0 && run.cursor == cursor) ++run.cursor;  // a value that no leaf owns: 2^40 or more
  cursor = run.cursor;
  total += static_cast<unsigned long>(cleared);
  if (!changed) return passBitsAboveEntries(page->contents, path);
  setBlCount_SET_DIRTY(pc, root, page, page->contents.count);
  if (page->contents.count > 0) return;
  disposeLeafForBit(pc, root, bit);
  run.skipToEnd();  // their leaf has gone
  cursor = run.cursor;
}

// The elements that the leaf owns but has no entry for, so that they are not looked for one by one.
void BulkClear::passBitsAboveEntries(const RepBitListContentsSType& list, const BmPathSType& path) {
  if (cursor == end || *cursor <= list.end()[-1]) return;
  BitRun run{cursor, end, listLeafLimit(*root, path) - 1};
  run.skipToEnd();
  cursor = run.cursor;
}

void BulkClear::clearInDenseLeaf(RepBmLeafPageSType* page) {
  const unsigned long base = spanBase(*cursor);
  const int cleared = clearInWords(page->words, base, &cursor, end);
  page->bitsSet -= cleared;
  total += static_cast<unsigned long>(cleared);
  pages.markDirty(&page->hdr);
  if (page->bitsSet <= 0 && page->keepWhenEmpty == 0) disposeLeafForBit(pc, root, base);
}

// A page that is no leaf counts as an empty one and is left as it is.
void BulkClear::passBrokenLeaf(RepPageHdrSType* page, const BmPathSType& path) {
  ReportLeafFault(pc, path.levels[0].pageId, page, root->treeKind, __LINE__);
  BitRun run{cursor + 1, end, listLeafLimit(*root, path) - 1};
  run.skipToEnd();
  cursor = run.cursor;
}

// A leaf that cannot be made writable keeps its bits.
void BulkClear::passUnwritableLeaf(const BmPathSType& path) {
  const bool isDense = pages.leaf(path.levels[0].pageId)->pageKind == REP_BM_LEAF_PAGE;
  BitRun run{cursor + 1, end, (isDense ? spanEnd(*cursor) : listLeafLimit(*root, path)) - 1};
  run.skipToEnd();
  cursor = run.cursor;
}

// Clears what lies in the leaf of the element under the cursor.
void BulkClear::clearInNextLeaf() {
  BmPathSType path{};
  if (!findLeafPageForBit(pc, root, *cursor, &path)) {
    ++cursor;
    return;
  }
  RepPageHdrSType* page = locateForWrite(pc, root, 0, &path);
  if (page == nullptr) {
    passUnwritableLeaf(path);
  } else if (page->pageKind == REP_BIT_LIST_PAGE) {
    clearInListLeaf(asListPage(page), path);
  } else if (page->pageKind == REP_BM_LEAF_PAGE) {
    clearInDenseLeaf(asDensePage(page));
  } else {
    passBrokenLeaf(page, path);
  }
}

}  // namespace

int ClearBitsInBlcFromSortedArray(RepBitListContentsSType* list, unsigned long lastBit, const unsigned long** cursor,
                                  const unsigned long* end) {
  BitRun run{*cursor, end, lastBit};
  const int changed = clearInList(list, run);
  *cursor = run.cursor;
  return changed;
}

unsigned long BmClearBitsFromSortedArray_(PageCacheSType* pc, RepTreeRootSType* root, const unsigned long* first,
                                          const unsigned long* end) {
  if (root->treeKind < 0) return clearInInlineList(*root, first, end);
  BulkClear run{pc, root, TreeAccess(pc, *root), first, end, 0};
  while (run.cursor < end) run.clearInNextLeaf();
  return run.total;
}

unsigned long ClearBitsFromBitList_(PageCacheSType* pc, RepTreeRootSType* root, RepBitListPageSType* source,
                                    BmTreeKindEType) {
  if (source->contents.count < 1) return 0;
  return BmClearBitsFromSortedArray_(pc, root, source->contents.begin(), source->contents.end());
}

unsigned long BmClearBitsFromArray_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                    unsigned long* end) {
  if (end - first > 1) end = sortAndStrip(first, end);
  return BmClearBitsFromSortedArray_(pc, root, first + 1, end);
}
