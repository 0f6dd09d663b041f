// The bit test: the module's hot read path. The descent keeps no path and is compiled once for heap trees, where it
// is inlined whole and makes no call, and once for the page cache.
#include <algorithm>

#include "bitmap.h"
#include "tree/bitlist.h"
#include "tree/path.h"
#include "tree/treeroots.h"

namespace {

constexpr int TEST_BIT_LINE = 10327;

#define INLINED [[gnu::always_inline]] inline

INLINED bool listHolds(const RepBitListContentsSType& list, unsigned long bit) {
  const uint64_t* entries = list.begin();
  const long index = firstNotBelow(entries, list.count, bit);
  return index < list.count && entries[index] == bit;
}

// The search of a list's entries for `bit`.
INLINED WordSearch<~uint64_t{0}, false> searchOf(const RepBitListContentsSType& list, unsigned long bit) {
  return {list.begin(), list.count, bit};
}

// The same for the list of a leaf that owns what `found` tells.
INLINED bool foundListHolds(const RepBitListContentsSType& list, const FoundLeaf& found, unsigned long bit) {
  if (found.endBit == 0) return listHolds(list, bit);
  const long index = searchOf(list, bit).firstNotBefore(keyBit(found.key), found.endBit);
  return index < list.count && list.begin()[index] == bit;
}

[[gnu::cold, gnu::noinline]] bool reportUnknownLeaf(PageCacheSType* pc, unsigned long ref, RepPageHdrSType* page,
                                                    int treeKind) {
  ReportLeafFault(pc, ref, page, treeKind, TEST_BIT_LINE);
  return false;
}

INLINED bool leafHolds(PageCacheSType* pc, const FoundLeaf& found, RepPageHdrSType* page, int treeKind,
                       unsigned long bit) {
  if (page->pageKind == REP_BM_LEAF_PAGE) {
    const unsigned long word = keyIsDense(found.key) ? (bit - keyBit(found.key)) >> 6 : denseWordIndex(bit);
    return (asDensePage(page)->words[word] & denseWordMask(bit)) != 0;
  }
  if (page->pageKind == REP_BIT_LIST_PAGE) return foundListHolds(asListPage(page)->contents, found, bit);
  return reportUnknownLeaf(pc, found.ref, page, treeKind);
}

template <class Access>
INLINED bool treeHolds(const Access& pages, PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  const FoundLeaf found = leafFor(pages, root, bit);
  return found.ref != 0 && leafHolds(pc, found, pages.leaf(found.ref), root.treeKind, bit);
}

[[gnu::noinline]] bool cachedRootHolds(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  if (root.treeKind > 0 || root.level > 0) return treeHolds(CachedAccess{pc}, pc, root, bit);
  if (root.root == 0) return false;  // before the kind is looked at: an empty root is no fault, whatever its kind
  const RepBitListContentsSType* list = inlineListContents(root);
  return list != nullptr && listHolds(*list, bit);
}

INLINED bool rootHolds(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  if (root.treeKind == BM_HEAP_TREE) return treeHolds(HeapAccess{}, pc, root, bit);
  return cachedRootHolds(pc, root, bit);
}

constexpr unsigned long PROBES_IN_STEP = 32;
constexpr long ENTRIES_IN_LINE = 8;

INLINED void prefetch(const void* memory) { __builtin_prefetch(memory); }

// Fetches the head of the leaf and, of a dense one, the word of `bit`.
INLINED void prefetchLeaf(const FoundLeaf& found, unsigned long bit) {
  const RepPageHdrSType* page = HeapAccess::leaf(found.ref);
  prefetch(page);
  if (found.ref != 0 && keyIsDense(found.key)) prefetch(&asDensePage(page)->words[(bit - keyBit(found.key)) >> 6]);
}

// Fetches the lines of a list, whose head is there, that `bit` is likely to be in.
INLINED void prefetchEntries(const FoundLeaf& found, unsigned long bit) {
  const RepPageHdrSType* page = HeapAccess::leaf(found.ref);
  if (page->pageKind != REP_BIT_LIST_PAGE) return;
  const RepBitListContentsSType& list = asListPage(page)->contents;
  if (found.endBit == 0) {
    prefetch(list.begin());
    prefetch(list.end() - 1);
  } else {
    const uint64_t* place = list.begin() + searchOf(list, bit).guess(keyBit(found.key), found.endBit);
    prefetch(place - ENTRIES_IN_LINE);
    prefetch(place);
    prefetch(place + ENTRIES_IN_LINE);
  }
}

// Tests up to 32 bits in step, so that the misses of one probe overlap with those of the others. Bit i of the result
// is the answer for bits[i].
uint64_t testGroup(PageCacheSType* pc, const RepTreeRootSType& root, const unsigned long* bits, unsigned long count) {
  FoundLeaf found[PROBES_IN_STEP];
  for (unsigned long i = 0; i < count; ++i) {
    found[i] = leafFor(HeapAccess{}, root, bits[i]);
    prefetchLeaf(found[i], bits[i]);
  }
  for (unsigned long i = 0; i < count; ++i) {
    if (found[i].ref != 0 && !keyIsDense(found[i].key)) prefetchEntries(found[i], bits[i]);
  }
  uint64_t answers = 0;
  for (unsigned long i = 0; i < count; ++i) {
    const bool holds =
        found[i].ref != 0 && leafHolds(pc, found[i], HeapAccess::leaf(found[i].ref), BM_HEAP_TREE, bits[i]);
    answers |= uint64_t{holds} << i;
  }
  return answers;
}

}  // namespace

int BmTestBit(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long bit) {
  return rootHolds(pc, *root, bit);
}

int BmTestBit(PageCacheSType* pc, const DiskTreeRootSType* root, unsigned long bit) {
  return rootHolds(pc, *DiskRootView(root).root(), bit);
}

int bmTestOop(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long oop) {
  if ((oop & 1) == 0) {
    printDiagnostic("bmTestOop: argument not a pom oop\n");
    return 0;
  }
  return rootHolds(pc, *root, bitOfOop(oop));
}

void BmTestBits(PageCacheSType* pc, const RepTreeRootSType* root, const unsigned long* bits, unsigned long count,
                uint64_t* answers) {
  const bool inStep = root->treeKind == BM_HEAP_TREE;
  std::fill_n(answers, (count + 63) / 64, 0);
  for (unsigned long i = 0; i < count; i += PROBES_IN_STEP) {
    const unsigned long group = std::min(count - i, PROBES_IN_STEP);
    uint64_t holds = 0;
    if (inStep) {
      holds = testGroup(pc, *root, bits + i, group);
    } else {
      for (unsigned long j = 0; j < group; ++j) holds |= uint64_t{rootHolds(pc, *root, bits[i + j])} << j;
    }
    answers[i / 64] |= holds << (i % 64);
  }
}
