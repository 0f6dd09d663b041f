// Moving pages out of the caches: those that a tree is made of, and those that its bits name.
#include "lifetime/flush.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "algebra/copy.h"
#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int FLUSH_TAG = 8070;
constexpr int SHADOW_TAG = 8771;
constexpr int COPIED_LEAF_LINE = 8787;
constexpr int SHADOW_LEAF_FAULT_LINE = 8813;
constexpr auto MODE_OF_CONTENTS = static_cast<PageRemoveEType>(0);
constexpr int BATCH_BITS = 2048;

// The live slots of an internal page, copied out so that the page need not stay held while its children move.
struct InternalSlots {
  int count;
  uint64_t keys[BM_INT_CAPACITY];
  uint64_t children[BM_INT_CAPACITY];

  InternalSlots(const TreeAccess& pages, unsigned long ref) {
    const RepBmInternalPageSType* page = pages.internal(ref);
    const int first = page->keyArea.firstOffset;
    count = page->keyArea.count;
    const size_t bytes = static_cast<size_t>(count) * sizeof *keys;
    std::memcpy(keys, page->keyArea.keys + first, bytes);
    std::memcpy(children, page->children + first, bytes);
  }
};

// The tree of `child`, a child of the root page of `tree`.
RepTreeRootSType subtree(const RepTreeRootSType& tree, unsigned long child, int allocTag) {
  RepTreeRootSType root(child, static_cast<BmTreeKindEType>(tree.treeKind));
  root.allocTag = allocTag;
  root.level = static_cast<uint8_t>(tree.level - 1);
  return root;
}

// Turns a heap tree into a page tree of flushed pages. The pages are made shared ones, since the copy sends those out
// as it fills them. Without enough pages the heap tree stays.
void convertToFlushedPages(PageCacheSType* pc, RepTreeRootSType* tree) {
  RepTreeRootSType copy = *pc->invalidPageTreeRoot;
  copy.treeKind = BM_SHARED_PAGE_TREE;
  int entryCount;
  if (BmDoCopyTree(pc, tree, &copy, &entryCount) < 0) return;
  copy.treeKind = BM_PAGE_TREE;
  BmDisposeTree(pc, tree);
  *tree = copy;
}

void flushChildren(PageCacheSType* pc, const RepTreeRootSType& tree, PageRemoveEType mode) {
  const InternalSlots slots(TreeAccess(pc, tree), tree.root);
  for (int i = 0; i < slots.count; ++i) {
    if (tree.level == 1) {
      PageFlushRemotePage_(pc, slots.children[i], mode);
    } else {
      RepTreeRootSType child = subtree(tree, slots.children[i], FLUSH_TAG);
      BmFlushTree_(pc, &child, mode);
    }
  }
}

// Takes the pages out of the private cache whose ids stand in `list`. Never reads behind its last slot.
void removeNamedByList(PageCacheSType* pc, const RepBitListContentsSType& list) {
  const int first = std::clamp(list.firstOffset, 0, BM_BIT_LIST_CAPACITY);
  const int count = std::min(list.count, BM_BIT_LIST_CAPACITY - first);
  for (int i = 0; i < count; ++i) PageRemoveFromPrivateCache(pc, list.entries[first + i], 0);
}

// The same for the bits of a dense leaf whose first bit is `baseBit`.
void removeNamedByDenseLeaf(PageCacheSType* pc, const RepBmLeafPageSType& leaf, unsigned long baseBit) {
  if (leaf.bitsSet <= 0) return;
  for (int i = 0; i < BM_BIT_LIST_CAPACITY; ++i) {
    for (uint64_t word = leaf.words[i]; word != 0; word &= word - 1) {
      const int position = i * 64 + HostAsmFFS8(word);
      PageRemoveFromPrivateCache(pc, baseBit + static_cast<unsigned long>(position), 0);
    }
  }
}

// Copies the significant bytes of `page` to `copy` and zeroes the rest.
void copySignificant(const RepPageHdrSType& page, RepPageHdrSType* copy) {
  requireLegalBytesUsed(page, COPIED_LEAF_LINE);
  const size_t bytes = sizeof page + static_cast<size_t>(significantBodyBytes(page));
  std::memcpy(copy, &page, bytes);
  std::memset(reinterpret_cast<char*>(copy) + bytes, 0, BM_PAGE_SIZE - bytes);
}

// Removes the pages named by the leaf `tree.root`. A cached leaf can leave the cache with them, so a copy is read.
void removeNamedByLeaf(PageCacheSType* pc, const RepTreeRootSType& tree, unsigned long baseBit) {
  const TreeAccess pages(pc, tree);
  RepPageHdrSType* page = pages.leaf(tree.root);
  alignas(RepBmLeafPageSType) unsigned char copy[BM_PAGE_SIZE];
  if (pages.cached()) {
    copySignificant(*page, reinterpret_cast<RepPageHdrSType*>(copy));
    page = reinterpret_cast<RepPageHdrSType*>(copy);
  }
  if (page->pageKind == REP_BIT_LIST_PAGE) {
    removeNamedByList(pc, asListPage(page)->contents);
  } else if (page->pageKind == REP_BM_LEAF_PAGE) {
    removeNamedByDenseLeaf(pc, *asDensePage(page), baseBit);
  } else {
    ReportLeafFault(pc, tree.root, page, tree.treeKind, SHADOW_LEAF_FAULT_LINE);
  }
}

}  // namespace

void BmFlushTree_(PageCacheSType* pc, RepTreeRootSType* tree, PageRemoveEType mode) {
  if (tree->treeKind == BM_HEAP_TREE) {
    convertToFlushedPages(pc, tree);
    return;
  }
  if (tree->root == 0 || (tree->level == 0 && tree->treeKind < 0)) return;
  if (tree->level >= 1) flushChildren(pc, *tree, mode);
  PageFlushRemotePage_(pc, tree->root, mode);
}

void BmFlushTree_(PageCacheSType* pc, DiskTreeRootSType* tree, PageRemoveEType mode) {
  BmFlushTree_(pc, DiskRootUpdate(tree).root(), mode);
}

unsigned long BmFlushTreeContents_(PageCacheSType* pc, const RepTreeRootSType* tree) {
  if (tree->root == 0) return 0;
  unsigned long ids[BATCH_BITS];
  unsigned long flushed = 0;
  BmPathSType path{};
  while (const unsigned long got = BmFindSetBitsNonDestructive_(pc, BATCH_BITS, tree, &path, ids)) {
    for (unsigned long i = 0; i < got; ++i) PageFlushRemotePage_(pc, ids[i], MODE_OF_CONTENTS);
    flushed += got;
  }
  return flushed;
}

unsigned long BmFlushTreeContents_(PageCacheSType* pc, const DiskTreeRootSType* tree) {
  return BmFlushTreeContents_(pc, DiskRootView(tree).root());
}

void removeFromPrivateCache(PageCacheSType* pc, unsigned long pageRef, int level, int mode, BmTreeKindEType kind) {
  if (pageRef == 0) return;
  if (level > 0) {
    const InternalSlots slots(TreeAccess(pc, kind), pageRef);
    for (int i = 0; i < slots.count; ++i) removeFromPrivateCache(pc, slots.children[i], level - 1, mode, kind);
  }
  PageRemoveFromPrivateCache(pc, pageRef, mode);
  ShrPcClearLockedPage(&pc->shrPcState);
}

void BmRemoveFromPrivateCache(PageCacheSType* pc, RepTreeRootSType* tree, int mode) {
  removeFromPrivateCache(pc, tree->root, tree->level, mode, static_cast<BmTreeKindEType>(tree->treeKind));
}

void BmRemoveShadowPagesFromCache(PageCacheSType* pc, RepTreeRootSType* tree, unsigned long baseBit,
                                  int keepTreePages) {
  if (tree->root == 0) return;
  if (tree->treeKind < 0) {
    if (const RepBitListContentsSType* list = inlineListContents(*tree)) removeNamedByList(pc, *list);
    ShrPcClearLockedPage(&pc->shrPcState);
    return;
  }
  if (keepTreePages == 0) PageRemoveFromPrivateCache(pc, tree->root, 0);  // the page's own bits are read afterwards
  if (tree->level > 0) {
    const InternalSlots slots(TreeAccess(pc, *tree), tree->root);
    for (int i = 0; i < slots.count; ++i) {
      RepTreeRootSType child = subtree(*tree, slots.children[i], SHADOW_TAG);
      BmRemoveShadowPagesFromCache(pc, &child, keyBit(slots.keys[i]), keepTreePages);
    }
  } else {
    removeNamedByLeaf(pc, *tree, baseBit);
  }
  ShrPcClearLockedPage(&pc->shrPcState);
}
