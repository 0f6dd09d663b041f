// The search for clear bits: the free numbers of a number space whose used numbers a tree holds. It walks the leaves
// from the leftmost on and delivers what lies between their bits; gaps that no leaf owns are clear as well.
#include <algorithm>

#include "bitmap.h"
#include "tree/bitlist.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "words/densescan.h"

namespace {

constexpr int LEAF_FAULT_LINE = 7029;

// One call of the search. `candidate` is the next bit that may be delivered.
struct ClearSearch {
  uint64_t candidate;
  uint64_t limit;  // last bit of the range
  unsigned long room;
  uint64_t* out;

  bool deliverUpTo(uint64_t last);
  bool searchList(const RepBitListContentsSType& list);
  bool searchDenseLeaf(const RepBmLeafPageSType& leaf, uint64_t base);
  bool searchLeaf(PageCacheSType* pc, const RepTreeRootSType& root, const BmPathLevelSType& at);
};

// Delivers the candidates up to `last` that are within the limit, none if the candidate lies above. False when the
// search ends in between.
bool ClearSearch::deliverUpTo(uint64_t last) {
  if (candidate > last) return true;
  if (room == 0 || candidate > limit) return false;
  const uint64_t distance = std::min(last, limit) - candidate;
  const uint64_t n = distance < room ? distance + 1 : room;
  for (uint64_t i = 0; i < n; ++i) *out++ = candidate + i;
  candidate += n;
  room -= n;
  return candidate == last + 1;
}

// The test against the limit is on the entry: clear bits below an entry above the limit are not delivered, and every
// further call ends at the same place. Meant.
bool ClearSearch::searchList(const RepBitListContentsSType& list) {
  const uint64_t* const end = list.end();
  const uint64_t* entry = list.begin() + firstNotBelow(list.begin(), list.count, candidate);
  for (; entry < end; ++entry) {
    if (candidate < *entry && (*entry > limit || !deliverUpTo(*entry - 1))) return false;
    candidate = *entry + 1;
  }
  return true;
}

// A candidate beyond the leaf is pulled back to its end. Meant.
bool ClearSearch::searchDenseLeaf(const RepBmLeafPageSType& leaf, uint64_t base) {
  uint64_t offset = candidate - base;
  if (offset < BM_LEAF_BITS && room > 0 && base + BM_LEAF_BITS - 1 <= limit) {
    const DenseStretch found = collectClearBits(leaf.words, static_cast<unsigned>(offset), base, room, out);
    out += found.count;
    room -= found.count;
    offset = found.next;
  }
  while (offset < BM_LEAF_BITS) {  // up to a limit in this leaf, or to where the next call goes on
    offset = UtlFindFirstBitClear(leaf.words, static_cast<unsigned>(offset), BM_LEAF_BITS);
    if (offset >= BM_LEAF_BITS) break;
    candidate = base + offset;
    if (room == 0 || candidate > limit) return false;
    *out++ = candidate;
    --room;
    ++offset;
  }
  candidate = base + BM_LEAF_BITS;
  return true;
}

bool ClearSearch::searchLeaf(PageCacheSType* pc, const RepTreeRootSType& root, const BmPathLevelSType& at) {
  if (at.firstBit != 0 && !deliverUpTo(at.firstBit - 1)) return false;
  if (candidate > BM_HIGHEST_BIT) return false;
  RepPageHdrSType* page = TreeAccess(pc, root).leaf(at.pageId);
  if (page->pageKind == REP_BIT_LIST_PAGE) return searchList(asListPage(page)->contents);
  if (page->pageKind == REP_BM_LEAF_PAGE) return searchDenseLeaf(*asDensePage(page), at.firstBit);
  ReportLeafFault(pc, at.pageId, page, root.treeKind, LEAF_FAULT_LINE);
  return true;
}

// Searches the leaves from the one at the path on, and then the tail of the number space.
void searchOn(PageCacheSType* pc, const RepTreeRootSType& root, BmFindClearPathSType* at, ClearSearch& run) {
  while (!at->noMoreLeaves) {
    if (!run.searchLeaf(pc, root, at->path.levels[0])) return;
    if (!findNextLeaf(pc, &root, &at->path)) at->noMoreLeaves = 1;
  }
  run.deliverUpTo(run.limit);
}

}  // namespace

unsigned long BmFindClearBits_(PageCacheSType* pc, unsigned long maxBits, const RepTreeRootSType* root,
                               BmFindClearPathSType* clearPath, unsigned long* out) {
  if (!UTL_GUARANTEE(root->treeKind >= 0)) return 0;
  if (!clearPath->path.valid) clearPath->noMoreLeaves = !findLeftLeaf(pc, root, &clearPath->path);
  ClearSearch run{clearPath->nextBit, clearPath->limitBit, maxBits, out};
  searchOn(pc, *root, clearPath, run);
  clearPath->nextBit = run.candidate;
  return maxBits - run.room;
}
