// The bit test: the module's hot read path. The descent keeps no path and is compiled once for heap trees, where it
// makes no call, and once for the page cache.
#include "bitmap.h"
#include "tree/bitlist.h"
#include "tree/path.h"
#include "tree/treeroots.h"

namespace {

constexpr int TEST_BIT_LINE = 10327;

bool listHolds(const RepBitListContentsSType& list, unsigned long bit) {
  const uint64_t* entries = list.begin();
  const long index = firstNotBelow(entries, list.count, bit);
  return index < list.count && entries[index] == bit;
}

bool inlineListHolds(const RepTreeRootSType& root, unsigned long bit) {
  const RepBitListContentsSType* list = inlineListContents(root);
  return list != nullptr && listHolds(*list, bit);
}

[[gnu::cold, gnu::noinline]] bool reportUnknownLeaf(PageCacheSType* pc, unsigned long ref, RepPageHdrSType* page,
                                                    int treeKind) {
  ReportLeafFault(pc, ref, page, treeKind, TEST_BIT_LINE);
  return false;
}

bool leafHolds(PageCacheSType* pc, unsigned long ref, RepPageHdrSType* page, int treeKind, unsigned long bit) {
  if (page->pageKind == REP_BIT_LIST_PAGE) return listHolds(asListPage(page)->contents, bit);
  if (page->pageKind == REP_BM_LEAF_PAGE) {
    return (asDensePage(page)->words[denseWordIndex(bit)] & denseWordMask(bit)) != 0;
  }
  return reportUnknownLeaf(pc, ref, page, treeKind);
}

// The child of `page` whose keys the search of its level leads to; 0 on a miss.
unsigned long childAt(const RepBmInternalPageSType& page, int slot) { return slot < 0 ? 0 : page.children[slot]; }

template <class Access>
bool treeHolds(const Access& pages, PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  unsigned long ref = root.root;
  if (root.level >= 2) {
    const RepBmInternalPageSType* top = pages.internal(ref);
    ref = childAt(*top, searchLevel2(top->keyArea, bit));
    if (ref == 0) return false;
  }
  if (root.level >= 1) {
    const RepBmInternalPageSType* page = pages.internal(ref);
    ref = childAt(*page, searchLevel1(page->keyArea, bit));
  }
  return ref != 0 && leafHolds(pc, ref, pages.leaf(ref), root.treeKind, bit);
}

bool rootHolds(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  if (root.treeKind == BM_HEAP_TREE) return treeHolds(HeapAccess{}, pc, root, bit);
  if (root.treeKind < 0 && root.level == 0) return inlineListHolds(root, bit);
  return treeHolds(CachedAccess{pc}, pc, root, bit);
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
