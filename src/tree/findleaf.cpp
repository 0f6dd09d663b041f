#include "tree/findleaf.h"

namespace {

// Descends a tree of level 1 or 2 with the access of its kind.
unsigned long leafBelowRoot(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit, BmPathSType* path) {
  return root.treeKind == BM_HEAP_TREE ? lookupInterior(root.root, root.level, bit, path)
                                       : lookupInterior(pc, root.root, root.level, bit, path);
}

}  // namespace

int BmFindLeafForBit(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path, unsigned long bit) {
  if (root->root == 0) {
    path->atEnd = 1;
    return 0;
  }
  for (BmPathLevelSType& level : path->levels) level = {};
  path->atEnd = 0;
  path->depth = root->level;
  path->exact = 1;
  path->bit = bit;
  if (root->level == 0) {
    path->levels[0].pageId = root->root;
    path->levels[0].limitBit = BM_END_BIT;
    path->valid = 1;
    return 1;
  }
  path->allowNext = 1;
  path->valid = leafBelowRoot(pc, *root, bit, path) != 0;
  if (path->valid == 0) path->exact = 0;
  return path->valid;
}

int findLeafPageForBit(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long bit, BmPathSType* path) {
  path->depth = root->level;
  if (root->level == 0) {
    if (root->root == 0) return 0;
    recordRootLeaf(path, root->root);
    return 1;
  }
  return leafBelowRoot(pc, *root, bit, path) != 0;
}

RepPageHdrSType* heapLeafFor(const RepTreeRootSType& root, unsigned long bit) {
  RepPageHdrSType* page = HeapAccess::leaf(leafFor(StrictHeapAccess{}, root, bit).ref);
  const bool isLeaf = page != nullptr && (page->pageKind == REP_BM_LEAF_PAGE || page->pageKind == REP_BIT_LIST_PAGE);
  return isLeaf ? page : nullptr;
}

FoundLeaf findLeaf(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit) {
  return root.treeKind == BM_HEAP_TREE ? leafFor(HeapAccess{}, root, bit) : leafFor(CachedAccess{pc}, root, bit);
}
