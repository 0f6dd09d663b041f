// Non-destructive extraction: bits come out in ascending order, a chunk at a time, and the tree stays as it is. The
// path is the cursor. It holds references and pins nothing, so each call locates its leaf anew; a chunk may end in
// the middle of a leaf. levels[0].index is the next entry of a list, counted from its first, or the next position in
// a dense leaf. `exact` asks the first leaf to begin at path->bit instead.
#include <algorithm>

#include "bitmap.h"
#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/treeroots.h"
#include "words/densescan.h"

namespace {

constexpr int LEAF_FAULT_LINE = 7697;
constexpr int RANGE_CHUNK_BITS = 2048;

// Copies up to `room` entries from index `from` on; returns how many.
long copyEntries(const RepBitListContentsSType& list, long from, long room, uint64_t* out) {
  const long n = std::min(room, list.count - from);
  if (n < 1) return 0;
  HostAsmMemcpySmallWords(out, list.begin() + from, static_cast<unsigned long>(n));
  return n;
}

unsigned long scanInlineList(const RepTreeRootSType& root, long maxBits, BmPathSType* path, uint64_t* out) {
  const RepBitListContentsSType* list = inlineListContents(root);
  if (list == nullptr) return 0;
  const long from = std::max(path->levels[0].index, 0);
  const long n = copyEntries(*list, from, maxBits, out);
  path->levels[0].index = static_cast<int32_t>(from + n);
  return static_cast<unsigned long>(n);
}

// One call of the scan.
struct Scan {
  PageCacheSType* pc;
  const RepTreeRootSType* root;
  BmPathSType* path;
  long maxBits;
  uint64_t* out;
  long got;

  void scanList(const RepBitListContentsSType& list);
  void scanDenseLeaf(const RepBmLeafPageSType& leaf);
  bool scanLeaf();
};

void Scan::scanList(const RepBitListContentsSType& list) {
  BmPathLevelSType& at = path->levels[0];
  const long from = path->exact ? firstNotBelow(list.begin(), list.count, path->bit) : std::max(at.index, 0);
  path->exact = 0;
  const long n = copyEntries(list, from, maxBits - got, out + got);
  got += n;
  at.index = static_cast<int32_t>(from + n);
  if (from + n >= list.count) findNextLeaf(pc, root, path);
}

void Scan::scanDenseLeaf(const RepBmLeafPageSType& leaf) {
  BmPathLevelSType& at = path->levels[0];
  const unsigned long start = path->exact ? path->bit - at.firstBit : static_cast<unsigned long>(long{at.index});
  path->exact = 0;
  DenseStretch taken{0, BM_LEAF_BITS};
  if (leaf.bitsSet >= 1 && start < BM_LEAF_BITS) {
    taken = collectSetBits(leaf.words, static_cast<unsigned>(start), at.firstBit,
                           static_cast<unsigned long>(maxBits - got), out + got);
  }
  got += static_cast<long>(taken.count);
  at.index = static_cast<int32_t>(taken.next);
  if (taken.next >= BM_LEAF_BITS) findNextLeaf(pc, root, path);
}

// Delivers from the leaf at the path and steps on if it is done with. False if it is no leaf.
bool Scan::scanLeaf() {
  const unsigned long ref = path->levels[0].pageId;
  RepPageHdrSType* page = TreeAccess(pc, *root).leaf(ref);
  if (page->pageKind == REP_BIT_LIST_PAGE) {
    scanList(asListPage(page)->contents);
  } else if (page->pageKind == REP_BM_LEAF_PAGE) {
    scanDenseLeaf(*asDensePage(page));
  } else {
    ReportLeafFault(pc, ref, page, root->treeKind, LEAF_FAULT_LINE);
    return false;
  }
  return true;
}

}  // namespace

unsigned long BmFindSetBitsNonDestructive_(PageCacheSType* pc, long maxBits, const RepTreeRootSType* root,
                                           BmPathSType* path, unsigned long* out) {
  if (root->root == 0) return 0;
  if (root->treeKind < 0) return scanInlineList(*root, maxBits, path, out);
  if (!path->valid) findLeftLeaf(pc, root, path);
  if (maxBits < 1 || path->atEnd) return 0;
  Scan run{pc, root, path, maxBits, out, 0};
  do {
    if (!run.scanLeaf()) return 0;
  } while (run.got < maxBits && !path->atEnd);
  return static_cast<unsigned long>(run.got);
}

unsigned long BmFindSetBitsNonDestructive_(PageCacheSType* pc, long maxBits, const DiskTreeRootSType* root,
                                           BmPathSType* path, unsigned long* out) {
  return BmFindSetBitsNonDestructive_(pc, maxBits, DiskRootView(root).root(), path, out);
}

unsigned long BmFindSetBitsNonDestructiveStartingAt_(PageCacheSType* pc, unsigned long startBit, long maxBits,
                                                     const RepTreeRootSType* root, BmPathSType* path,
                                                     unsigned long* out) {
  if (!path->valid && startBit != 0 && !BmFindLeafForBit(pc, root, path, startBit)) return 0;
  return BmFindSetBitsNonDestructive_(pc, maxBits, root, path, out);
}

unsigned long BmFindSetOopsNonDestructive_(PageCacheSType* pc, unsigned long maxBits, RepTreeRootSType* root,
                                           BmPathSType* path, unsigned long* out) {
  const auto got =
      static_cast<int32_t>(BmFindSetBitsNonDestructive_(pc, static_cast<long>(maxBits), root, path, out));
  for (int32_t i = 0; i < got; ++i) out[i] = oopOfBit(out[i]);
  return static_cast<unsigned long>(got);
}

unsigned long BmFindSetBitsNonDestructiveInRange_(PageCacheSType* pc, const RepTreeRootSType* src,
                                                  RepTreeRootSType* dest, unsigned long firstBit,
                                                  unsigned long lastBit) {
  if (src->root == 0) return 0;
  BmPathSType path{};
  unsigned long chunk[RANGE_CHUNK_BITS];
  unsigned long total = 0;
  for (;;) {
    const unsigned long n = BmFindSetBitsNonDestructiveStartingAt_(pc, firstBit, RANGE_CHUNK_BITS, src, &path, chunk);
    const unsigned long* const end = chunk + n;
    const unsigned long* first = chunk;
    while (first != end && *first < firstBit) ++first;
    if (first == end || *first > lastBit) return total;
    const unsigned long* const last = std::upper_bound(first, end, lastBit);
    BmSetBitsFromSortedArray_(pc, dest, first, last);
    total += static_cast<unsigned long>(last - first);
    if (last != end) return total;
  }
}
