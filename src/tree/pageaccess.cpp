#include "tree/pageaccess.h"

#include <cstring>

#include "bitmap.h"
#include "tree/internalpage.h"

namespace {

void countHeapPages(PageCacheSType* pc, int change) {
  if (pc != nullptr) pc->owner->ownerStats->numHeapBmPages += change;
}

RepPageHdrSType* newHeapPage(PageCacheSType* pc, RepPageKindEType kind, int allocTag) {
  auto* page = static_cast<RepPageHdrSType*>(UtlMallocF(BM_PAGE_SIZE, allocTag, 0));
  countHeapPages(pc, 1);
  std::memset(page, 0, sizeof *page);
  page->pageKind = kind;
  page->pageState = 3;
  page->pageId = reinterpret_cast<uint64_t>(page);
  page->bytesUsed = kind == REP_BIT_LIST_PAGE ? BM_LIST_HEAD_BYTES : BM_PAGE_SIZE;
  return page;
}

// Stamps a new careful page and records its id. Recording can move pages in the cache, so the page is located anew.
RepPageHdrSType* enterCarefulPage(PageCacheSType* pc, RepPageHdrSType* page, const TreeAccess& pages) {
  const unsigned long pageId = page->pageId;
  setCarefulStamp(*page, *pc->carefulStamp);
  pages.markDirty(page);
  if (BmSetBit(pc, pc->dirtyCarefulBm, pageId) == 1) {
    reportCarefulFault(pc, pageId, "duplicate dirty carefulBm pages\n");
  }
  return pages.leaf(pageId);
}

int disposeCarefulPage(PageCacheSType* pc, unsigned long pageId) {
  const RepPageHdrSType* page = CachedAccess{pc}.leaf(pageId);
  if (page == nullptr) return 0;  // an id that names no page, reported by the caller
  const uint64_t stamp = carefulStampOf(*page);
  const bool madeUnderThisStamp = static_cast<int64_t>(stamp) >= static_cast<int64_t>(*pc->carefulStamp);
  if (madeUnderThisStamp) {
    RepDisposeTempPage_(pc, pageId);
    if (BmClearBit(pc, pc->dirtyCarefulBm, pageId) == 0) {
      reportCarefulFault(pc, pageId, "illegal dispose of carefulBm page\n");
    }
  } else if (pc->carefulActive != 0) {
    // an older page belongs to a state that must survive until the stamp has moved on
    if (BmSetBit(pc, &pc->obsoleteCarefulBm, pageId) == 1) reportCarefulFault(pc, pageId, "illegal dispose");
  }
  return 1;
}

}  // namespace

RepPageHdrSType* BM_LOCATE_PAGE(PageCacheSType* pc, unsigned long ref, RepPageKindEType kind, char cached) {
  if (cached != 0) return PageLocate(pc, ref, kind, -1);
  RepPageHdrSType* page = HeapAccess::leaf(ref);
  if (page->pageKind != kind) BmPageReportHeaderFault(pc, kind, page);
  return page;
}

RepPageHdrSType* BmLocateNewPage(PageCacheSType* pc, RepPageKindEType kind, RepTreeRootSType* root) {
  if (root->treeKind == BM_HEAP_TREE) return newHeapPage(pc, kind, root->allocTag);
  const TreeAccess pages(pc, *root);
  RepPageHdrSType* page = PageLocateNewIn(pc, kind, root->treeKind >= BM_SHARED_PAGE_TREE ? 1 : 0);
  if (page == nullptr) return nullptr;
  if (kind == REP_BIT_LIST_PAGE) {
    page->bytesUsed = BM_LIST_HEAD_BYTES;
    pages.markDirty(page);
  }
  return root->treeKind == BM_CAREFUL_TREE ? enterCarefulPage(pc, page, pages) : page;
}

RepPageHdrSType* newBmInternalPage(PageCacheSType* pc, RepTreeRootSType* root, int level) {
  RepPageHdrSType* page = BmLocateNewPage(pc, REP_BM_INTERNAL_PAGE, root);
  if (page == nullptr) return nullptr;
  BmIntPageRefCls::of(root->treeKind, page).init_values(level);
  TreeAccess(pc, *root).markDirty(page);
  return page;
}

RepPageHdrSType* basicNewBitListPage(PageCacheSType* pc, RepTreeRootSType* root) {
  RepPageHdrSType* page = BmLocateNewPage(pc, REP_BIT_LIST_PAGE, root);
  if (page == nullptr) return nullptr;
  RepBitListContentsSType& list = asListPage(page)->contents;
  list.count = 0;
  list.firstOffset = 0;
  page->bytesUsed = listBytesUsed(0, 0);
  TreeAccess(pc, *root).markDirty(page);
  return page;
}

RepPageHdrSType* newKeptDensePage(PageCacheSType* pc, RepTreeRootSType* root) {
  RepPageHdrSType* page = BmLocateNewPage(pc, REP_BM_LEAF_PAGE, root);
  if (page == nullptr) return nullptr;
  RepBmLeafPageSType* leaf = asDensePage(page);
  page->bytesUsed = BM_PAGE_SIZE;
  leaf->bitsSet = 0;
  leaf->keepWhenEmpty = 1;
  std::memset(leaf->words, 0, sizeof leaf->words);
  TreeAccess(pc, *root).markDirty(page);
  return page;
}

int BmDisposePage(PageCacheSType* pc, unsigned long page, BmTreeKindEType kind) {
  if (kind == BM_HEAP_TREE) {
    UTL_GUARANTEE(page != 0, 1904);
    UtlFree(reinterpret_cast<void*>(page));
    countHeapPages(pc, -1);
    return 1;
  }
  UTL_GUARANTEE(page >= 4, 1931);
  return kind == BM_CAREFUL_TREE ? disposeCarefulPage(pc, page) : RepDisposeTempPage_(pc, page);
}

void PageCacheSType::initForUnitTest() {
  carefulActive = 1;
  unitTestStamp = 1;
  obsoleteCarefulBm = invalidHeapTreeRoot;
  obsoleteCarefulBm.allocTag = 1887;
  unitTestDirtyCarefulBm = invalidHeapTreeRoot;
  unitTestDirtyCarefulBm.allocTag = 1889;
  dirtyCarefulBm = &unitTestDirtyCarefulBm;
  carefulStamp = &unitTestStamp;
}
