// Page access: a page reference in, a page out. A reference is a page id, or in a heap tree the page's address;
// nothing above this file asks which.
#pragma once

#include "pagecache.h"
#include "reposdisk.h"
#include "tree/faults.h"

// The page `ref` of the required `kind` (an internal page in this module). `cached` is the treeKind: 0 takes `ref`
// for an address and reports a page of another kind. The page is returned either way.
RepPageHdrSType* BM_LOCATE_PAGE(PageCacheSType* pc, unsigned long ref, RepPageKindEType kind, char cached);

// A new empty page for the tree of `root`, or null. `pc` may be null for a heap tree. A careful page is stamped
// and entered in dirtyCarefulBm.
RepPageHdrSType* BmLocateNewPage(PageCacheSType* pc, RepPageKindEType kind, RepTreeRootSType* root);

// A new internal page of `level` without slots, or null.
RepPageHdrSType* newBmInternalPage(PageCacheSType* pc, RepTreeRootSType* root, int level);

// A new bit-list page without entries, or null.
RepPageHdrSType* basicNewBitListPage(PageCacheSType* pc, RepTreeRootSType* root);

// A new dense leaf without bits that stays when empty, or null.
RepPageHdrSType* newKeptDensePage(PageCacheSType* pc, RepTreeRootSType* root);

// Releases one page of a tree of `kind`. A careful page of an older stamp is not released but entered in
// obsoleteCarefulBm. Returns 0 if the page cache refused.
int BmDisposePage(PageCacheSType* pc, unsigned long page, BmTreeKindEType kind);

// The pages of a heap tree, for descents that make no call.
struct HeapAccess {
  static RepPageHdrSType* leaf(unsigned long ref) { return reinterpret_cast<RepPageHdrSType*>(ref); }
  static RepBmInternalPageSType* internal(unsigned long ref) {
    return reinterpret_cast<RepBmInternalPageSType*>(ref);
  }
};

// The same, where an internal page must be one: null stands for a page of another kind.
struct StrictHeapAccess {
  static RepBmInternalPageSType* internal(unsigned long ref) {
    RepPageHdrSType* page = HeapAccess::leaf(ref);
    return page->pageKind == REP_BM_INTERNAL_PAGE ? asInternalPage(page) : nullptr;
  }
};

// The pages of a tree in the page cache.
struct CachedAccess {
  PageCacheSType* pc;

  RepPageHdrSType* leaf(unsigned long ref) const { return PageLocate(pc, ref, REP_ANY_PAGE, 0); }
  RepBmInternalPageSType* internal(unsigned long ref) const {
    return asInternalPage(PageLocate(pc, ref, REP_BM_INTERNAL_PAGE, -1));
  }
};

// The pages of a tree of any kind that has pages.
class TreeAccess {
 public:
  TreeAccess(PageCacheSType* pc, int treeKind) : pc_(pc), treeKind_(treeKind) {}
  TreeAccess(PageCacheSType* pc, const RepTreeRootSType& root) : TreeAccess(pc, root.treeKind) {}

  bool cached() const { return treeKind_ != BM_HEAP_TREE; }

  // A leaf of either kind.
  RepPageHdrSType* leaf(unsigned long ref) const {
    return cached() ? CachedAccess{pc_}.leaf(ref) : HeapAccess::leaf(ref);
  }

  // An internal page; a heap page is taken as it is.
  RepBmInternalPageSType* internal(unsigned long ref) const {
    return cached() ? CachedAccess{pc_}.internal(ref) : HeapAccess::internal(ref);
  }

  // An internal page; a heap page of another kind is reported and returned.
  RepBmInternalPageSType* checkedInternal(unsigned long ref) const {
    return cached() ? CachedAccess{pc_}.internal(ref) : asInternalPage(checkedHeapPage(ref, REP_BM_INTERNAL_PAGE));
  }

  // A leaf that must be a bit list; a heap page is taken as it is.
  RepPageHdrSType* list(unsigned long ref) const {
    return cached() ? PageLocate(pc_, ref, REP_BIT_LIST_PAGE, -1) : HeapAccess::leaf(ref);
  }

  // A leaf that must be a bit list; a heap page of another kind is reported and returned.
  RepPageHdrSType* checkedList(unsigned long ref) const {
    return cached() ? list(ref) : checkedHeapPage(ref, REP_BIT_LIST_PAGE);
  }

  // What a child slot or root holds for `page`.
  unsigned long refOf(const RepPageHdrSType* page) const {
    return cached() ? page->pageId : reinterpret_cast<unsigned long>(page);
  }

  // Marks a page changed. Heap pages need no mark.
  void markDirty(RepPageHdrSType* page) const {
    if (cached()) ShrSetDirtyNoCheck(&pc_->shrPcState, page, 3);
  }

  // Releases one page of the tree.
  int dispose(unsigned long ref) const { return BmDisposePage(pc_, ref, static_cast<BmTreeKindEType>(treeKind_)); }

  PageCacheSType* pc() const { return pc_; }

 private:
  RepPageHdrSType* checkedHeapPage(unsigned long ref, RepPageKindEType kind) const {
    RepPageHdrSType* page = HeapAccess::leaf(ref);
    if (page->pageKind != kind) [[unlikely]]
      BmPageReportHeaderFault(pc_, kind, page);
    return page;
  }

  PageCacheSType* pc_;
  int treeKind_;
};

// Holds a page in memory from here to the end of the scope. Heap pages need no pin.
class PinnedPage {
 public:
  PinnedPage(const TreeAccess& pages, RepPageHdrSType* page)
      : pc_(pages.pc()), page_(pages.cached() ? page : nullptr) {
    if (page_ != nullptr) PagePin(pc_, page_);
  }
  ~PinnedPage() {
    if (page_ != nullptr) PageUnpin(pc_, page_);
  }
  PinnedPage(const PinnedPage&) = delete;
  PinnedPage& operator=(const PinnedPage&) = delete;

 private:
  PageCacheSType* pc_;
  RepPageHdrSType* page_;
};
