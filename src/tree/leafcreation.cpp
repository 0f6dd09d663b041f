#include "tree/leafcreation.h"

#include "tree/convert.h"
#include "tree/findleaf.h"
#include "tree/internalpage.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/splitnode.h"
#include "tree/writeaccess.h"

namespace {

// The one leaf of a level-0 tree, writable, made if the tree is empty.
RepPageHdrSType* locateOrCreateRootLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  const TreeAccess pages(pc, *root);
  RepPageHdrSType* page = root->root == 0 ? basicNewBitListPage(pc, root) : pages.checkedList(root->root);
  if (page != nullptr && root->treeKind == BM_CAREFUL_TREE) page = shadowCarefulBmPage(pc, page, root);
  if (page == nullptr) return nullptr;
  root->root = pages.refOf(page);
  root->level = 0;
  path->depth = 0;
  recordRootLeaf(path, root->root);
  return page;
}

// Records the leaf of slot `slot` of `page` and returns it, writable.
RepPageHdrSType* useLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, RepBmInternalPageSType* page,
                         int slot, unsigned long bit) {
  lookupStorePath(&page->keyArea, 1, slot, path, bit);
  recordLeaf(path, page->children[slot], path->levels[1].firstBit);
  if (root->treeKind == BM_CAREFUL_TREE) return locateForWrite(pc, root, 0, path);
  return TreeAccess(pc, *root).leaf(path->levels[0].pageId);
}

// Records in levels[1] the slot where a new leaf at `base` belongs, after the search of `area` has missed with
// `slot`.
void recordInsertion(const BmInternalKeyType& area, int slot, unsigned long base, BmPathSType* path) {
  BmPathLevelSType& at = path->levels[1];
  at.index = area.count == 0 ? 0 : ~slot - area.firstOffset;
  at.numEntries = area.count + 1;
  at.firstBit = base;
  at.limitBit = at.index < area.count ? area.keys[area.firstOffset + at.index] : ~uint64_t{0};
}

// The leaf of `bit`, which lies below every key of the tree.
RepPageHdrSType* createLeftLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long bit) {
  newLeftLeaf(pc, root, spanBase(bit), 0);
  if (findLeafPageForBit(pc, root, bit, path) == 0) return nullptr;
  return TreeAccess(pc, *root).leaf(path->levels[0].pageId);
}

}  // namespace

RepPageHdrSType* locateOrCreateLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path,
                                    unsigned long bit) {
  if (root->level == 0) return locateOrCreateRootLeaf(pc, root, path);
  const TreeAccess pages(pc, *root);
  for (;;) {  // again from the top after a split, which may have raised the root
    path->depth = root->level;
    unsigned long ref = root->root;
    if (root->level == 2) {
      path->levels[2].pageId = ref;
      RepBmInternalPageSType* top = pages.checkedInternal(ref);
      const int slot = searchLevel2(top->keyArea, bit);
      if (slot < 0) return createLeftLeaf(pc, root, path, bit);
      lookupStorePath(&top->keyArea, 2, slot, path, bit);
      ref = top->children[slot];
    }
    path->levels[1].pageId = ref;
    RepBmInternalPageSType* page = pages.checkedInternal(ref);
    const int slot = searchLevel1(page->keyArea, bit);
    if (slot >= 0) return useLeaf(pc, root, path, page, slot, bit);
    recordInsertion(page->keyArea, slot, spanBase(bit), path);
    if (page->keyArea.count < BM_INT_CAPACITY) {
      const unsigned long leaf = newLeafPage(pc, root, path);
      recordLeaf(path, leaf, path->levels[1].firstBit);
      return pages.leaf(leaf);
    }
    if (splitLevel1Node(pc, root, path) == 0) return nullptr;
  }
}

RepPageHdrSType* newEmptyLeaf(PageCacheSType* pc, RepTreeRootSType* root, int* tag) {
  *tag = root->denseLeaves != 0 ? 1 : 0;
  return root->denseLeaves != 0 ? newKeptDensePage(pc, root) : basicNewBitListPage(pc, root);
}

int linkLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, RepPageHdrSType* page,
             unsigned long leafRef, int tag) {
  BmIntPageRefCls pageRef = BmIntPageRefCls::of(root->treeKind, page);
  BmPathLevelSType& at = path->levels[1];
  const bool becomesFirst = at.index == 0 && pageRef.keyArea->count > 0;
  const unsigned long oldKey = becomesFirst ? keyBit(pageRef.key(0)) : 0;
  if (!pageRef.insert_value(static_cast<unsigned>(at.index), leafRef, at.firstBit, tag)) return 0;
  at.numEntries = pageRef.keyArea->count;
  TreeAccess(pc, *root).markDirty(page);
  if (oldKey >= 1 && root->level >= 2) firstBaseBitChanged(pc, root, oldKey, at.firstBit, path);
  return 1;
}

unsigned long newLeafPage(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  const TreeAccess pages(pc, *root);
  int tag;
  const RepPageHdrSType* leaf = newEmptyLeaf(pc, root, &tag);
  if (leaf == nullptr) return 0;
  const unsigned long leafRef = pages.refOf(leaf);
  RepPageHdrSType* page = locateForWrite(pc, root, 1, path);
  if (page == nullptr || linkLeaf(pc, root, path, page, leafRef, tag) == 0) {
    pages.dispose(leafRef);
    return 0;
  }
  return leafRef;
}

void newLeftLeaf(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, int depth) {
  if (root->level < 2) return;
  BmPathSType path{};
  path.depth = root->level;
  path.levels[2].pageId = root->root;
  const RepPageHdrSType* top = locateForWrite(pc, root, 2, &path);
  if (top == nullptr) return;
  const BmInternalKeyType& topKeys = asInternalPage(top)->keyArea;
  const uint64_t* firstKey = topKeys.keys + topKeys.firstOffset;
  if (bit >= keyBit(*firstKey)) return;
  const unsigned long limit = topKeys.count < 2 ? BM_END_BIT : firstKey[1];
  const unsigned long firstChild = asInternalPage(top)->children[topKeys.firstOffset];
  path.levels[2] = {path.levels[2].pageId, topKeys.count, bit, limit, 0};
  const BmInternalKeyType& area = TreeAccess(pc, *root).checkedInternal(firstChild)->keyArea;
  path.levels[1] = {firstChild, area.count, bit, area.count > 1 ? area.keys[area.firstOffset] : limit, 0};
  if (area.count < BM_INT_CAPACITY) {
    newLeafPage(pc, root, &path);
  } else if (splitLevel1Node(pc, root, &path) != 0) {
    newLeftLeaf(pc, root, bit, depth + 1);
  }
}

void firstBaseBitChanged(PageCacheSType* pc, RepTreeRootSType* root, unsigned long oldBase, unsigned long newBase,
                         BmPathSType* path) {
  if (root->level != 2) return;
  const BmInternalKeyType& area = TreeAccess(pc, *root).checkedInternal(root->root)->keyArea;
  const int slot = searchLevel2(area, oldBase);
  // tested before anything is shadowed, so that a change of nothing costs a careful tree nothing
  if (slot < 0 || keyBit(area.keys[slot]) == newBase) return;
  const int index = slot - area.firstOffset;
  BmPathSType rootPath{};
  rootPath.levels[2].pageId = root->root;
  RepPageHdrSType* top = locateForWrite(pc, root, 2, &rootPath);
  if (top == nullptr) return;
  BmIntPageRefCls topRef = BmIntPageRefCls::of(root->treeKind, top);
  const auto at = static_cast<unsigned>(index);
  topRef.set_value(at, topRef.child(at), newBase, 0, 0);
  if (path != nullptr) {
    path->levels[2].limitBit = index + 1 < topRef.keyArea->count ? topRef.key(at + 1) : BM_END_BIT;
  }
  TreeAccess(pc, *root).markDirty(top);
}

RepPageHdrSType* locateOrCreateBmLeaf(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit) {
  if (root->level == 0 && convertBitListToBmTree(pc, root) == 0) return nullptr;
  BmPathSType path{};
  RepPageHdrSType* page = locateOrCreateLeaf(pc, root, &path, bit);
  if (page == nullptr || page->pageKind == REP_BM_LEAF_PAGE) return page;
  if (page->pageKind != REP_BIT_LIST_PAGE) {
    ReportLeafFault(pc, path.levels[0].pageId, page, root->treeKind, __LINE__);
    return page;
  }
  if (convertBitListLeafToBmLeaf(pc, root, &path, bit, 0) == 0) return nullptr;
  path = {};
  if (!UTL_GUARANTEE(findLeafPageForBit(pc, root, bit, &path) != 0)) return nullptr;
  return locateForWrite(pc, root, 0, &path);
}
