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

INLINED bool denseHolds(const RepBmLeafPageSType& leaf, unsigned long bit) {
  return (leaf.words[denseWordIndex(bit)] & denseWordMask(bit)) != 0;
}

[[gnu::cold, gnu::noinline]] bool reportUnknownLeaf(PageCacheSType* pc, unsigned long ref, RepPageHdrSType* page,
                                                    int treeKind) {
  ReportLeafFault(pc, ref, page, treeKind, TEST_BIT_LINE);
  return false;
}

INLINED bool leafHolds(PageCacheSType* pc, unsigned long ref, RepPageHdrSType* page, int treeKind,
                       unsigned long bit) {
  if (page->pageKind == REP_BIT_LIST_PAGE) return listHolds(asListPage(page)->contents, bit);
  if (page->pageKind == REP_BM_LEAF_PAGE) return denseHolds(*asDensePage(page), bit);
  return reportUnknownLeaf(pc, ref, page, treeKind);
}

// The child of `page` whose keys the search of its level leads to; 0 on a miss.
INLINED unsigned long childAt(const RepBmInternalPageSType& page, int slot) {
  return slot < 0 ? 0 : page.children[slot];
}

// The reference of the leaf that owns `bit`, 0 if there is none.
template <class Access>
INLINED unsigned long leafRefFor(const Access& pages, const RepTreeRootSType& root, unsigned long bit) {
  unsigned long ref = root.root;
  if (root.level >= 2) {
    const RepBmInternalPageSType* top = pages.internal(ref);
    ref = childAt(*top, searchLevel2(top->keyArea, bit));
    if (ref == 0) return 0;
  }
  if (root.level >= 1) {
    const RepBmInternalPageSType* page = pages.internal(ref);
    ref = childAt(*page, searchLevel1(page->keyArea, bit));
  }
  return ref;
}

template <class Access>
INLINED bool treeHolds(const Access& pages, PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  const unsigned long ref = leafRefFor(pages, root, bit);
  return ref != 0 && leafHolds(pc, ref, pages.leaf(ref), root.treeKind, bit);
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

// A probe of a heap tree on its way to its leaf.
struct Probe {
  unsigned long bit;
  RepPageHdrSType* leaf;  // null: no leaf owns the bit
};

constexpr unsigned long PROBES_IN_STEP = 16;

INLINED void prefetch(const void* memory) { __builtin_prefetch(memory); }

// Fetches the line of `leaf` that `bit` is likely to be in. The head of the page has been fetched before.
INLINED void prefetchPlace(const RepPageHdrSType* page, unsigned long bit) {
  if (page->pageKind == REP_BM_LEAF_PAGE) return prefetch(&asDensePage(page)->words[denseWordIndex(bit)]);
  const RepBitListContentsSType& list = asListPage(page)->contents;
  prefetch(list.begin());
  prefetch(list.end() - 1);
}

// Tests up to 16 bits in step, so that the misses of one probe overlap with those of the others. Bit i of the result
// is the answer for bits[i].
uint64_t testGroup(PageCacheSType* pc, const RepTreeRootSType& root, const unsigned long* bits, unsigned long count) {
  Probe probes[PROBES_IN_STEP];
  for (unsigned long i = 0; i < count; ++i) {
    probes[i] = {bits[i], HeapAccess::leaf(leafRefFor(HeapAccess{}, root, bits[i]))};
    prefetch(probes[i].leaf);
  }
  for (unsigned long i = 0; i < count; ++i) {
    if (probes[i].leaf != nullptr) prefetchPlace(probes[i].leaf, probes[i].bit);
  }
  uint64_t answers = 0;
  for (unsigned long i = 0; i < count; ++i) {
    RepPageHdrSType* leaf = probes[i].leaf;
    const auto ref = reinterpret_cast<unsigned long>(leaf);
    const bool holds = leaf != nullptr && leafHolds(pc, ref, leaf, BM_HEAP_TREE, probes[i].bit);
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
