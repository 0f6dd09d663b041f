// A tree taken as a set of page ids: every page that a bit names is released, and the tree is emptied on the way.
#include "bitmap.h"
#include "tree/pageaccess.h"

namespace {

constexpr int CAREFUL_TREE_LINE = 6789;
constexpr int NO_PAGE_TREE_LINE = 6790;
constexpr int NO_HEAP_TREE_LINE = 6812;
constexpr int PAGE_ID_LINE = 1931;
constexpr unsigned long LOWEST_PAGE_ID = 4;
constexpr unsigned long BATCH_IDS = 2048;

// Takes all bits out of `tree` in batches and hands each to `release`, until it returns false.
template <class Release>
void drain(PageCacheSType* pc, RepTreeRootSType* tree, Release release) {
  BmPathSType path{};
  unsigned long ids[BATCH_IDS];
  while (tree->root != 0) {
    const unsigned long count = BmFindSetBits_(pc, BATCH_IDS, tree, &path, ids);
    if (count == 0) return;
    for (unsigned long i = 0; i < count; ++i) {
      if (!release(ids[i])) return;
    }
  }
}

}  // namespace

void BmDisposePages(PageCacheSType* pc, RepTreeRootSType* tree) {
  if (!UTL_GUARANTEE(tree->treeKind != BM_CAREFUL_TREE, CAREFUL_TREE_LINE)) return;
  if (!UTL_GUARANTEE(tree->treeKind >= BM_PAGE_TREE, NO_PAGE_TREE_LINE)) return;
  const TreeAccess pages(pc, *tree);
  drain(pc, tree, [&](unsigned long id) {
    pages.dispose(id);
    return true;
  });
}

void BmDisposePagesHeapTree(PageCacheSType* pc, RepTreeRootSType* tree) {
  if (!UTL_GUARANTEE(tree->treeKind == BM_HEAP_TREE, NO_HEAP_TREE_LINE)) return;
  if (pc != nullptr) ShrPcClearLockedPage(&pc->shrPcState);
  drain(pc, tree, [&](unsigned long id) {
    UTL_GUARANTEE(id >= LOWEST_PAGE_ID, PAGE_ID_LINE);
    return RepDisposeTempPage_(pc, id) != 0;
  });
}
