// Giving a tree's pages back.
#include <cstring>

#include "bitmap.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int DISPOSE_TAG = 6880;

// Releases the pages below `tree`, whose children are copied out first so that its own page need not stay held.
void disposeChildren(PageCacheSType* pc, const RepTreeRootSType& tree) {
  const TreeAccess pages(pc, tree);
  const RepBmInternalPageSType* page = pages.internal(tree.root);
  uint64_t children[BM_INT_CAPACITY];
  const int count = page->keyArea.count;
  std::memcpy(children, page->children + page->keyArea.firstOffset, static_cast<size_t>(count) * sizeof *children);
  for (int i = 0; i < count; ++i) {
    if (tree.level == 1) {
      pages.dispose(children[i]);
    } else {
      RepTreeRootSType child(children[i], static_cast<BmTreeKindEType>(tree.treeKind));
      child.allocTag = DISPOSE_TAG;
      child.level = static_cast<uint8_t>(tree.level - 1);
      BmDisposeTree(pc, &child);
    }
  }
}

}  // namespace

void BmDisposeTree(PageCacheSType* pc, RepTreeRootSType* tree) {
  if (tree->root == 0 || (tree->level == 0 && tree->treeKind < 0)) return;
  if (tree->level >= 1) disposeChildren(pc, *tree);
  if (pc != nullptr && tree->treeKind > 0) ShrPcClearLockedPage(&pc->shrPcState);
  TreeAccess(pc, *tree).dispose(tree->root);
  tree->root = 0;
  tree->level = 0;
}

void BmDisposeTree(PageCacheSType* pc, DiskTreeRootSType* tree) { BmDisposeTree(pc, DiskRootUpdate(tree).root()); }
