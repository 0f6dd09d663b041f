#include "algebra/pageset.h"

#include <algorithm>

#include "tree/pageaccess.h"
#include "tree/treeroots.h"

namespace {

constexpr int DO_ADD_TAG = 4433;
constexpr int ADD_TAG = 5407;
constexpr int REMOVE_TAG = 8637;

// The root of a subtree of `parent`.
RepTreeRootSType childRoot(const RepTreeRootSType& parent, unsigned long child, int allocTag) {
  RepTreeRootSType root(child, static_cast<BmTreeKindEType>(parent.treeKind));
  root.allocTag = allocTag;
  root.level = static_cast<uint8_t>(parent.level - 1);
  return root;
}

// The page ids of one internal page, copied so that the page need not stay: an unsorted array with its unused slot 0
// and room for the page's own id and the slot behind the end. A page of another kind has none.
struct ChildIds {
  uint64_t slots[BM_INT_CAPACITY + 3] = {};
  uint64_t* end = slots + 1;  // one past the last id

  explicit ChildIds(const RepBmInternalPageSType& page) {
    if (page.hdr.pageKind != REP_BM_INTERNAL_PAGE) return;
    const uint64_t* children = page.children + page.keyArea.firstOffset;
    end = std::copy(children, children + page.keyArea.count, end);
  }
  const uint64_t* begin() const { return slots + 1; }
  void append(unsigned long id) { *end++ = id; }
};

// Whether a tree has pages with ids.
bool hasPageIds(const RepTreeRootSType& root) { return root.root != 0 && root.treeKind > 0; }

void setOrClear(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long ref, bool set) {
  if (set) {
    BmSetBit(pc, destination, ref);
  } else {
    BmClearBit(pc, destination, ref);
  }
}

}  // namespace

int BmDoAdd(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination, int setBits) {
  if (source->root == 0) return 1;
  if (source->level == 0 && source->treeKind < 0) return 1;
  if (source->level > 2) return 0;
  setOrClear(pc, destination, source->root, setBits != 0);
  if (source->level == 0) return 1;
  const TreeAccess pages(pc, *source);
  RepBmInternalPageSType* page = pages.checkedInternal(source->root);
  if (page->hdr.pageKind != REP_BM_INTERNAL_PAGE) return 1;
  const PinnedPage pinned(pages, &page->hdr);
  const uint64_t* children = page->children + page->keyArea.firstOffset;
  for (int i = 0; i < page->keyArea.count; ++i) {
    const RepTreeRootSType child = childRoot(*source, children[i], DO_ADD_TAG);
    if (BmDoAdd(pc, &child, destination, setBits) == 0) return 0;
  }
  return 1;
}

void BmAdd(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination) {
  if (!hasPageIds(*source)) return;
  if (source->level == 0) {
    BmSetBit(pc, destination, source->root);
    return;
  }
  ChildIds ids(*TreeAccess(pc, *source).internal(source->root));
  if (source->level == 1) {
    ids.append(source->root);
    BmSetBitsFromArray_(pc, destination, ids.slots, ids.end);
    return;
  }
  for (const uint64_t* id = ids.begin(); id != ids.end; ++id) {
    const RepTreeRootSType child = childRoot(*source, *id, ADD_TAG);
    BmAdd(pc, &child, destination);
  }
  BmSetBit(pc, destination, source->root);
}

void BmAdd(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination) {
  BmAdd(pc, DiskRootView(source).root(), destination);
}

void BmConvertToPagesAndAdd(PageCacheSType* pc, RepTreeRootSType* source, RepTreeRootSType* destination) {
  if (source->root == 0) return;
  if (source->treeKind < BM_PAGE_TREE) BmFlushTree_(pc, source, PageRemoveEType{0});
  BmAdd(pc, source, destination);
}

void BmRemove(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination) {
  if (!hasPageIds(*source)) return;
  if (source->level == 0) {
    BmClearBit(pc, destination, source->root);
    return;
  }
  ChildIds ids(*TreeAccess(pc, *source).internal(source->root));
  if (source->level == 1) {
    ids.append(source->root);
    uint64_t* end = BmSortArrayRemoveDups_(ids.slots, ids.end);
    BmClearBitsFromSortedArray_(pc, destination, ids.begin(), end);
    return;
  }
  for (const uint64_t* id = ids.begin(); id != ids.end; ++id) {
    const RepTreeRootSType child = childRoot(*source, *id, REMOVE_TAG);
    BmRemove(pc, &child, destination);
  }
  BmClearBit(pc, destination, source->root);
}

void BmRemove(PageCacheSType* pc, const DiskTreeRootSType* source, RepTreeRootSType* destination) {
  BmRemove(pc, DiskRootView(source).root(), destination);
}
