#include "bulk/bulkset.h"

#include <algorithm>
#include <bit>

#include "bulk/listmerge.h"
#include "bulk/sort.h"
#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/splitlist.h"
#include "tree/treeroots.h"
#include "words/densewords.h"
#include "words/gatherwords.h"

namespace {

// The walk of an ascending array along a tree's leaves.
struct BulkSet {
  PageCacheSType* pc;
  RepTreeRootSType* root;
  const uint64_t* cur;
  const uint64_t* end;
  unsigned long newlySet = 0;
  BmPathSType path{};
};

// An inline list is reached bit by bit. One that is full takes no more, since nothing but the record that holds it
// would be there to write to.
BulkSetResult setInInlineList(const BulkSet& walk) {
  const RepBitListContentsSType* list = inlineListContents(*walk.root);
  if (list == nullptr) return {0, BulkSetEnd::noLeaf};
  unsigned long newlySet = 0;
  for (const uint64_t* bit = walk.cur; bit != walk.end; ++bit) {
    if (*bit >= BM_END_BIT) return {newlySet, BulkSetEnd::noLeaf};
    const bool full = list->count >= BM_BIT_LIST_CAPACITY;
    if (full && !UTL_GUARANTEE(BmTestBit(walk.pc, walk.root, *bit) == 1)) return {newlySet, BulkSetEnd::noLeaf};
    newlySet += BmSetBit(walk.pc, walk.root, *bit) == 0;
  }
  return {newlySet, BulkSetEnd::complete};
}

// Elements of `cur` to `end` that ascend and lie below `stop`, as the first one does. An array that breaks its
// promise to ascend ends the run there, so that every leaf stays sorted.
int runLength(const uint64_t* cur, long most, unsigned long stop) {
  const long below = firstNotBelow(cur, most, stop);
  long ascending = 1;
  while (ascending < below && cur[ascending - 1] <= cur[ascending]) ++ascending;
  return static_cast<int>(ascending == below ? below : firstNotBelow(cur, ascending, stop));
}

// Numbers and entries for each number that make a merge cheaper than a gap for each run.
constexpr long MERGED_NUMBERS = 8;
constexpr long MERGED_ENTRIES = 32;

// How many of the elements from `cur` on are to be merged into `list` at `pos`; 0 if a gap for each run of them is
// cheaper. The first one is below `limit`, which the list does not own. A repeat, which no array should have, ends
// the merge. So does the last entry before the room might be used up: how much of the run behind it is stored depends
// on how many elements turn out to be there already.
long mergeLength(const RepBitListContentsSType& list, const uint64_t* pos, const uint64_t* cur, const uint64_t* end,
                 unsigned long limit) {
  const long room = BM_BIT_LIST_CAPACITY - list.count;
  const long most = std::min<long>(room, end - cur);
  if (most < MERGED_NUMBERS || pos == list.end() || cur[MERGED_NUMBERS - 1] < *pos) return 0;
  long count = ascendingRun(cur, firstNotBelow(cur, most, limit));
  if (cur[count - 1] >= limit) return 0;
  const long entriesBetween = firstNotBelow(pos, list.end() - pos, cur[count - 1] + 1);
  if (count == room && count != end - cur) {
    count = entriesBetween == 0 ? 0 : firstNotBelow(cur, count, pos[entriesBetween - 1] + 1);
  }
  return count >= MERGED_NUMBERS && entriesBetween <= MERGED_ENTRIES * count ? count : 0;
}

// Stores the array elements from `cur` on that belong to this list: merged with its entries where they fall between
// many of them, otherwise each run between two entries with one gap and one copy. Returns false when the list is full
// and a further element belongs to it.
bool setInList(BulkSet* walk, RepBitListPageSType* page) {
  RepBitListContentsSType& list = page->contents;
  const unsigned long leafKey = walk->path.levels[0].firstBit;
  const unsigned long limit = listLeafLimit(*walk->root, walk->path);
  uint64_t* pos = list.begin();
  while (walk->cur != walk->end && *walk->cur >= leafKey && *walk->cur < limit) {
    if (pos != list.begin() && *walk->cur <= pos[-1]) return true;  // not ascending: find its place afresh
    pos += firstNotBelow(pos, list.end() - pos, *walk->cur);
    while (pos != list.end() && walk->cur != walk->end && *pos == *walk->cur) {
      ++pos;
      ++walk->cur;
    }
    const unsigned long stop = pos == list.end() ? limit : *pos;
    if (walk->cur == walk->end || *walk->cur >= stop || *walk->cur < leafKey) continue;
    const long room = BM_BIT_LIST_CAPACITY - list.count;
    if (room <= 0) return false;
    if (const long merged = mergeLength(list, pos, walk->cur, walk->end, limit); merged > 0) {
      walk->newlySet += static_cast<unsigned long>(mergeIntoList(&list, pos, walk->cur, merged, &pos));
      setBlCount_SET_DIRTY(walk->pc, walk->root, page, list.count);
      walk->cur += merged;
      continue;
    }
    const int take = runLength(walk->cur, std::min(room, walk->end - walk->cur), stop);
    uint64_t* gap = openListGap(&list, pos, take);
    HostAsmMemcpySmallWords(gap, walk->cur, static_cast<unsigned long>(take));
    setBlCount_SET_DIRTY(walk->pc, walk->root, page, list.count + take);
    walk->cur += take;
    walk->newlySet += static_cast<unsigned long>(take);
    pos = gap + take;
  }
  return true;
}

// Sets the bits from `cur` on that lie in the span at `base`, a word of them at a time. Returns the first that does
// not.
const uint64_t* setDenseBits(uint64_t* words, unsigned long base, const uint64_t* cur, const uint64_t* end,
                             int* newlySet) {
  int added = 0;
  while (cur != end && *cur - base < BM_LEAF_BITS) {
    const unsigned long wordBase = *cur & ~63UL;  // a span base is a multiple of 64
    uint64_t bits = 0;
    do bits |= uint64_t{1} << (*cur & 63);
    while (++cur != end && *cur - wordBase < 64);
    uint64_t& word = words[(wordBase - base) >> 6];
    added += std::popcount(bits & ~word);
    word |= bits;
  }
  *newlySet = added;
  return cur;
}

// Numbers of one span from which on they are gathered as words before they meet the leaf.
constexpr long GATHERED_NUMBERS = 1024;

// Whether the next `count` elements lie in the span at `base`, which holds the first one.
bool stayInSpan(const BulkSet& walk, long count, unsigned long base) {
  return walk.end - walk.cur >= count && walk.cur[count - 1] - base < BM_LEAF_BITS;
}

// Sets the elements from `cur` on that lie in the dense leaf at `base`.
void setInDenseLeaf(BulkSet* walk, RepBmLeafPageSType* leaf, unsigned long base) {
  int added;
  if (stayInSpan(*walk, GATHERED_NUMBERS, base)) {
    uint64_t gathered[BM_SPAN_WORDS] = {};
    walk->cur = gatherWords(walk->cur, walk->end, base, gathered);
    added = orWords(leaf->words, gathered);
  } else {
    walk->cur = setDenseBits(leaf->words, base, walk->cur, walk->end, &added);
  }
  leaf->bitsSet += added;
  walk->newlySet += static_cast<unsigned long>(added);
  TreeAccess(walk->pc, *walk->root).markDirty(&leaf->hdr);
}

// Whether the next elements would go into a new list and make it dense: more of one span than a list can hold, where
// no leaf owns them.
bool willBeDense(const BulkSet& walk) {
  return walk.root->level > 0 && stayInSpan(walk, BM_BIT_LIST_CAPACITY + 1, spanBase(*walk.cur)) &&
         walk.cur[BM_BIT_LIST_CAPACITY] < BM_END_BIT && findLeaf(walk.pc, *walk.root, *walk.cur).ref == 0;
}

// The writable leaf for the next element; null when there is no page for it.
RepPageHdrSType* leafForNext(BulkSet* walk) {
  if (!willBeDense(*walk)) return locateOrCreateLeaf(walk->pc, walk->root, &walk->path, *walk->cur);
  walk->path.levels[1].firstBit = spanBase(*walk->cur);
  return locateOrCreateBmLeaf(walk->pc, walk->root, spanBase(*walk->cur));
}

}  // namespace

BulkSetResult setSortedBits(PageCacheSType* pc, RepTreeRootSType* root, const unsigned long* first,
                            const unsigned long* end) {
  BulkSet walk{pc, root, first, end};
  if (first >= end) return {0, BulkSetEnd::complete};
  if (root->treeKind < 0) return setInInlineList(walk);
  while (walk.cur != end) {
    const uint64_t* before = walk.cur;
    if (*walk.cur >= BM_END_BIT) return {walk.newlySet, BulkSetEnd::noLeaf};  // no leaf can own it
    RepPageHdrSType* page = leafForNext(&walk);
    if (page == nullptr) return {walk.newlySet, BulkSetEnd::noLeaf};
    if (page->pageKind == REP_BIT_LIST_PAGE) {
      const bool stored = setInList(&walk, asListPage(page));
      if (!stored && splitBitList(pc, root, *walk.cur, 0) == 0) return {walk.newlySet, BulkSetEnd::noSplit};
    } else if (page->pageKind == REP_BM_LEAF_PAGE) {
      setInDenseLeaf(&walk, asDensePage(page), walk.path.levels[1].firstBit);
      if (walk.cur == before) return {walk.newlySet, BulkSetEnd::noLeaf};  // a dense root, which owns one span only
    } else {
      ReportLeafFault(pc, walk.path.levels[0].pageId, page, root->treeKind, __LINE__);
      return {walk.newlySet, BulkSetEnd::noLeaf};
    }
  }
  return {walk.newlySet, BulkSetEnd::complete};
}

unsigned long BmSetBitsFromSortedArray_(PageCacheSType* pc, RepTreeRootSType* root, const unsigned long* first,
                                        const unsigned long* end) {
  const BulkSetResult result = setSortedBits(pc, root, first, end);
  return result.end == BulkSetEnd::noSplit ? 1 : result.newlySet;
}

unsigned long BmSetBitsFromArray_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                  unsigned long* end) {
  if (end - first < 2) return 0;
  if (end - first == 2) return BmSetBit(pc, root, first[1]) == 0;  // not worth a sort
  return BmSetBitsFromSortedArray_(pc, root, first + 1, sortAndStrip(first, end));
}

unsigned long BmSetBitsFromTaggedPageIds(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                         unsigned long* end) {
  if (end - first < 2) return 0;
  if (end - first == 2) return BmSetBit(pc, root, first[1] >> 1) == 0;
  return BmSetBitsFromSortedArray_(pc, root, first + 1, BmSortRemoveDups_FromTaggedPageIds(first, end));
}

unsigned long BmSetOopsFromArray_(PageCacheSType* pc, RepTreeRootSType* root, unsigned long* first,
                                  unsigned long* end) {
  for (unsigned long* oop = first + 1; oop < end; ++oop) *oop = bitOfOop(*oop);
  return BmSetBitsFromArray_(pc, root, first, end);
}
