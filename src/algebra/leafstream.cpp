#include "algebra/leafstream.h"

#include <algorithm>

#include "tree/bitlist.h"
#include "tree/pageaccess.h"
#include "tree/path.h"
#include "tree/treeroots.h"

namespace {

constexpr int LOCATE_FAULT_LINE = 5741;
constexpr int ADVANCE_DENSE_LINE = 5840;

int endStream(BmLeavesSType* leaves) {
  leaves->leafCount = 0;
  leaves->started = 1;
  return 0;
}

// Copies the children from `slot` on to `to`, keeping the bits of `keyMask` of their keys.
void copyChildren(const RepBmInternalPageSType& page, int slot, uint64_t keyMask, BmChildRefSType* to) {
  const int first = page.keyArea.firstOffset;
  for (int i = slot; i < page.keyArea.count; ++i) {
    *to++ = {page.children[first + i], page.keyArea.keys[first + i] & keyMask};
  }
}

// The slot of a level-1 page at which a walk from `bit` starts; `count` when `bit` lies past the last dense leaf.
int startSlot(const BmInternalKeyType& area, unsigned long bit) {
  if (bit == 0) return 0;
  const int found = lastKeyNotAbove<~BM_DENSE_TAG>(area, bit);
  if (found < 0) return 0;
  const uint64_t key = area.keys[area.firstOffset + found];
  return keyIsDense(key) && bit - keyBit(key) >= BM_LEAF_BITS ? found + 1 : found;
}

int takeLevel1Page(PageCacheSType* pc, BmLeavesSType* leaves, unsigned long pageRef, unsigned long bit) {
  const RepBmInternalPageSType& page = *TreeAccess(pc, *leaves->root).internal(pageRef);
  const int slot = startSlot(page.keyArea, bit);
  if (slot >= page.keyArea.count) return endStream(leaves);
  copyChildren(page, slot, ~uint64_t{0}, leaves->leafRefs);
  leaves->leafCount = page.keyArea.count - slot;
  leaves->nextLeaf = 0;
  leaves->started = 1;
  return leaves->leafCount;
}

// A start inside the tree begins at the first leaf of the level-1 page that covers it: the key of that page takes the
// place of the start bit.
int takeLevel2Root(PageCacheSType* pc, BmLeavesSType* leaves) {
  const RepBmInternalPageSType& page = *TreeAccess(pc, *leaves->root).internal(leaves->root->root);
  if (page.keyArea.count == 0) return endStream(leaves);
  const int found = leaves->startBit == 0 ? 0 : lastKeyNotAbove<~uint64_t{0}>(page.keyArea, leaves->startBit);
  const int slot = std::max(0, found);
  copyChildren(page, slot, ~BM_DENSE_TAG, leaves->level1Refs + slot);
  leaves->level1Count = page.keyArea.count;
  leaves->nextLevel1 = slot + 1;
  const BmChildRefSType first = leaves->level1Refs[slot];
  return takeLevel1Page(pc, leaves, first.pageRef, first.key);
}

int takeRootLeaf(BmLeavesSType* leaves) {
  const RepTreeRootSType& root = *leaves->root;
  if (leaves->startBit != 0 || root.root == 0) return endStream(leaves);
  leaves->leafRefs[0] = {root.treeKind < 0 ? 0 : root.root, 0};
  leaves->started = 1;
  return leaves->leafCount = 1;
}

int firstRefill(PageCacheSType* pc, BmLeavesSType* leaves) {
  leaves->nextLeaf = 0;
  if (leaves->root->level == 0) return takeRootLeaf(leaves);
  if (leaves->root->level == 1) return takeLevel1Page(pc, leaves, leaves->root->root, leaves->startBit);
  return takeLevel2Root(pc, leaves);
}

// Puts the cursor on the first entry of `contents`, which may be null.
void startList(BmLeafStateSType* leaf, RepBitListContentsSType* contents) {
  const bool empty = contents == nullptr || contents->count < 1;
  leaf->contents = contents;
  leaf->cursor = contents == nullptr ? nullptr : contents->begin();
  leaf->entriesEnd = empty ? leaf->cursor : contents->end();
  leaf->curBit = empty ? leaf->firstBit : *leaf->cursor;
  if (empty) leaf->atEnd = 1;
}

// The list of an inline tree needs no page and is located from the start.
void startInlineList(const RepTreeRootSType& root, BmLeafStateSType* leaf) {
  UTL_GUARANTEE(root.treeKind < 0, "reposdisk", REPOSDISK_LINE_TREE_KIND);
  leaf->pageKind = REP_BIT_LIST_PAGE;
  leaf->located = 1;
  startList(leaf, root.treeKind < 0 ? inlineListContents(root) : nullptr);
  leaf->endBit = leaf->atEnd ? leaf->firstBit : BM_HIGHEST_BIT;
}

}  // namespace

int getLeaves(PageCacheSType* pc, BmLeavesSType* leaves) {
  if (!leaves->started) return firstRefill(pc, leaves);
  const bool pagesLeft = leaves->root->level >= 2 && leaves->nextLevel1 < leaves->level1Count;
  if (leaves->leafCount == 0 || !pagesLeft) return endStream(leaves);
  return takeLevel1Page(pc, leaves, leaves->level1Refs[leaves->nextLevel1++].pageRef, 0);
}

int getNextLeaf(PageCacheSType* pc, BmLeavesSType* leaves, BmLeafStateSType* leaf) {
  if (leaves->nextLeaf >= leaves->leafCount && getLeaves(pc, leaves) == 0) return 0;
  const int index = leaves->nextLeaf++;
  const BmChildRefSType& ref = leaves->leafRefs[index];
  leaf->located = 0;
  leaf->atEnd = 0;
  leaf->pageRef = ref.pageRef;
  leaf->treeKind = static_cast<BmTreeKindEType>(leaves->root->treeKind);
  leaf->treeLevel = leaves->root->level;
  leaf->firstBit = keyBit(ref.key);
  if (ref.pageRef == 0) {
    startInlineList(*leaves->root, leaf);
  } else {
    leaf->curBit = leaf->firstBit;
    leaf->endBit = endBitForLeaf_(leaves, index);
  }
  return 1;
}

unsigned long endBitForLeaf_(const BmLeavesSType* leaves, int index) {
  const uint64_t key = leaves->leafRefs[index].key;
  if (keyIsDense(key)) return std::min(keyBit(key) + BM_LEAF_BITS - 1, BM_HIGHEST_BIT);
  if (index + 1 < leaves->leafCount) return keyBit(leaves->leafRefs[index + 1].key) - 1;
  if (leaves->nextLevel1 < leaves->level1Count) return leaves->level1Refs[leaves->nextLevel1].key - 1;
  return BM_HIGHEST_BIT;
}

void locateLeaf(PageCacheSType* pc, BmLeafStateSType* leaf, CacheLeafArgType cache) {
  if (leaf->located) return;
  RepPageHdrSType* page = TreeAccess(pc, leaf->treeKind).leaf(leaf->pageRef);
  leaf->pageKind = page->pageKind;
  leaf->pin->release();  // only now: the page held before may be the one that was asked for
  if (cache == BM_LEAF_CACHE) {
    if (leaf->treeKind != BM_HEAP_TREE) PagePin(pc, leaf->pin->page = page);
    leaf->located = 1;
  }
  if (leaf->pageKind == REP_BIT_LIST_PAGE) {
    startList(leaf, &asListPage(page)->contents);
  } else if (leaf->pageKind == REP_BM_LEAF_PAGE) {
    leaf->denseLeaf = asDensePage(page);
  } else {
    leaf->atEnd = 1;
    ReportLeafFault(pc, leaf->pageRef, page, leaf->treeKind, LOCATE_FAULT_LINE);
  }
}

void advanceToBit(BmLeafStateSType* leaf, unsigned long bit) {
  if (!UTL_GUARANTEE(leaf->pageKind != REP_BM_LEAF_PAGE, ADVANCE_DENSE_LINE)) return;
  const long left = leaf->entriesEnd - leaf->cursor;
  leaf->cursor += firstNotBelow(leaf->cursor, left, bit);
  if (leaf->cursor < leaf->entriesEnd) {
    leaf->curBit = *leaf->cursor;
  } else {
    leaf->atEnd = 1;
    if (left >= 1) leaf->curBit = leaf->entriesEnd[-1];
  }
}
