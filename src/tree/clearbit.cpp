#include "tree/clearbit.h"

#include <cstdio>

#include "tree/bitlist.h"
#include "tree/findleaf.h"
#include "tree/internalpage.h"
#include "tree/leafcreation.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/treeroots.h"
#include "tree/writeaccess.h"

namespace {

constexpr int CLEAR_BIT_LINE = 5568;
constexpr int DISPOSE_LEAF_LINE = 2315;
constexpr int LEAF_FOR_BIT_LINE = 2397;
constexpr int BAD_LEVEL_LINE = 2011;

int clearBitInInlineList(const RepTreeRootSType& root, unsigned long bit) {
  RepBitListContentsSType* list = inlineListContents(root);
  if (list == nullptr) return 0;
  unsigned long* slot = BinSearchForModify(list->begin(), list->count, bit);
  if (!slotIsHit(slot)) return 0;
  DELETE_BIT_FROM_BITLIST(list, slotAddress(slot));
  return 1;
}

// A list leaf goes as soon as it is empty.
int clearBitInList(PageCacheSType* pc, RepTreeRootSType* root, RepBitListPageSType* page, unsigned long bit) {
  RepBitListContentsSType& list = page->contents;
  unsigned long* slot = BinSearchForModify(list.begin(), list.count, bit);
  if (!slotIsHit(slot)) return 0;
  DELETE_BIT_FROM_BITLIST(&list, slotAddress(slot));
  setBlCount_SET_DIRTY(pc, root, page, list.count);
  if (list.count < 1) disposeLeafForBit(pc, root, bit);
  return 1;
}

// A dense leaf stays when empty if it says so.
int clearBitInDenseLeaf(PageCacheSType* pc, RepTreeRootSType* root, RepBmLeafPageSType* leaf, unsigned long bit) {
  uint64_t& word = leaf->words[denseWordIndex(bit)];
  const uint64_t mask = denseWordMask(bit);
  if ((word & mask) == 0) return 0;
  word &= ~mask;
  --leaf->bitsSet;
  TreeAccess(pc, *root).markDirty(&leaf->hdr);
  if (leaf->bitsSet < 1 && leaf->keepWhenEmpty == 0) disposeLeafForBit(pc, root, bit);
  return 1;
}

// Takes the emptied level-1 page at path->levels[2].index out of the level-2 root, and the root with it when that was
// its last child.
void disposeLevel1Page(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  const TreeAccess pages(pc, *root);
  RepPageHdrSType* parent = locateForWrite(pc, root, 2, path);
  if (parent == nullptr) return;
  BmIntPageRefCls parentRef = BmIntPageRefCls::of(root->treeKind, parent);
  const auto index = static_cast<unsigned>(path->levels[2].index);
  const unsigned long emptied = parentRef.child(index);
  parentRef.remove_value(index);
  const bool parentEmptied = parentRef.keyArea->count == 0;
  pages.markDirty(parent);
  pages.dispose(emptied);
  if (parentEmptied) BmDisposeTree(pc, root);
}

// What follows when the page above the removed leaf has emptied, or there was none.
void disposeEmptiedParents(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path) {
  path->valid = 0;
  switch (root->level) {
    case 0: root->root = 0; return;
    case 1: BmDisposeTree(pc, root); return;
    case 2: disposeLevel1Page(pc, root, path); return;
    default:
      std::printf("Bad level %d in disposeInternalNode\n", root->level);
      std::fflush(stdout);
      UTL_GUARANTEE(false, BAD_LEVEL_LINE);
  }
}

// Removes slot levels[1].index from its page and releases the leaf. Returns how many slots are left in the page.
int unlinkLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, RepPageHdrSType* page) {
  const TreeAccess pages(pc, *root);
  BmIntPageRefCls pageRef = BmIntPageRefCls::of(root->treeKind, page);
  const auto slot = static_cast<unsigned>(path->levels[1].index);
  const bool firstKeyGoes = slot == 0 && root->level == 2 && pageRef.keyArea->count >= 2;
  const unsigned long oldFirst = firstKeyGoes ? keyBit(pageRef.key(0)) : 0;
  const unsigned long newFirst = firstKeyGoes ? keyBit(pageRef.key(1)) : 0;
  pageRef.remove_value(slot);
  const int left = pageRef.keyArea->count;
  pages.markDirty(page);
  if (path->valid != 0) {
    --path->levels[1].index;
    --path->levels[1].numEntries;
  }
  pages.dispose(path->levels[0].pageId);
  path->levels[0].pageId = 0;
  if (firstKeyGoes) firstBaseBitChanged(pc, root, oldFirst, newFirst, nullptr);
  return left;
}

// The kind of the leaf at `path`; 0, after a report, if it is no leaf.
unsigned char leafKindAt(PageCacheSType* pc, const RepTreeRootSType& root, const BmPathSType& path) {
  RepPageHdrSType* page = TreeAccess(pc, root).leaf(path.levels[0].pageId);
  if (page != nullptr && (page->pageKind == REP_BIT_LIST_PAGE || page->pageKind == REP_BM_LEAF_PAGE)) {
    return page->pageKind;
  }
  ReportLeafFault(pc, path.levels[0].pageId, page, root.treeKind, DISPOSE_LEAF_LINE);
  return 0;
}

}  // namespace

int BmClearBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit) {
  if (root->treeKind < 0) return clearBitInInlineList(*root, bit);
  RepPageHdrSType* page = root->treeKind == BM_HEAP_TREE ? heapLeafFor(*root, bit) : nullptr;
  BmPathSType path;
  if (page == nullptr) {
    path.valid = path.atEnd = path.exact = path.allowNext = 0;
    path.levels[0].index = 0;
    if (findLeafPageForBit(pc, root, bit, &path) == 0) return 0;
    page = locateForWrite(pc, root, 0, &path);
    if (page == nullptr) return 0;
  }
  if (page->pageKind == REP_BIT_LIST_PAGE) return clearBitInList(pc, root, asListPage(page), bit);
  if (page->pageKind == REP_BM_LEAF_PAGE) return clearBitInDenseLeaf(pc, root, asDensePage(page), bit);
  ReportLeafFault(pc, path.levels[0].pageId, page, root->treeKind, CLEAR_BIT_LINE);
  return 0;
}

void disposeLeafForBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit) {
  if (root->level == 0) {
    TreeAccess(pc, *root).dispose(root->root);
    root->root = 0;
    return;
  }
  BmPathSType path{};
  if (findLeafPageForBit(pc, root, bit, &path) == 0) {
    ReportLeafFault(pc, path.levels[0].pageId, nullptr, root->treeKind, LEAF_FOR_BIT_LINE);
  }
  disposeLeaf(pc, root, &path, 0);
}

void disposeLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned char pageKind) {
  if (pageKind == 0 && leafKindAt(pc, *root, *path) == 0) {
    path->valid = 0;
    return;
  }
  if (root->level == 0) {
    TreeAccess(pc, *root).dispose(path->levels[0].pageId);
    path->levels[0].pageId = 0;
    disposeEmptiedParents(pc, root, path);
  } else {
    RepPageHdrSType* page = locateForWrite(pc, root, 1, path);
    if (page == nullptr) {
      path->valid = 0;
      return;
    }
    if (unlinkLeaf(pc, root, path, page) == 0) disposeEmptiedParents(pc, root, path);
  }
  if (path->valid != 0) findNextLeaf(pc, root, path);
}

void disposeEmptyDenseLeaf(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit) {
  BmPathSType path{};
  if (findLeafPageForBit(pc, root, bit, &path) == 0) return;
  const RepPageHdrSType* page = TreeAccess(pc, *root).leaf(path.levels[0].pageId);
  if (page->pageKind == REP_BM_LEAF_PAGE && asDensePage(page)->bitsSet == 0) disposeLeafForBit(pc, root, bit);
}

void takeBackBits(PageCacheSType* pc, RepTreeRootSType* root, const uint64_t* first, const uint64_t* end) {
  // From the last bit down: a list that owned the bits before owns them again once the lowest of the leaves made for
  // them has gone, and still holds those that were not reached. Those lie in no leaf until then.
  while (end != first) {
    const unsigned long bit = *--end;
    if (BmTestBit(pc, root, bit) != 0) BmClearBit(pc, root, bit);
    disposeEmptyDenseLeaf(pc, root, bit);
  }
}
