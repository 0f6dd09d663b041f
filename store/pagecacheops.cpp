// The operations that the module imports from its page cache, over the context of a reader or writer. None of
// them throws.
#include "context.h"

using bmtree::StoreContext;
using bmtree::StoreErrorCode;

namespace {

StoreContext& contextOf(PageCacheSType* pc) { return *static_cast<StoreContext*>(pc); }

}  // namespace

RepPageHdrSType* PageLocate(PageCacheSType* pc, unsigned long pageId, int kind, int /*mode*/) {
  return contextOf(pc).locate(pageId, kind);
}

RepPageHdrSType* PageLocateNewIn(PageCacheSType* pc, RepPageKindEType kind, int /*shared*/) {
  return contextOf(pc).makePage(kind);
}

int RepDisposeTempPage_(PageCacheSType* pc, unsigned long pageId) {
  return contextOf(pc).disposePage(pageId) ? 1 : 0;
}

void PagePin(PageCacheSType* pc, RepPageHdrSType* page) { contextOf(pc).pin(page); }

void PageUnpin(PageCacheSType* pc, RepPageHdrSType* page) { contextOf(pc).unpin(page); }

void ShrSetDirtyNoCheck(ShrPcStateSType* state, RepPageHdrSType* page, unsigned char /*mode*/) {
  static_cast<StoreContext*>(state->hostState)->markChanged(page);
}

void PageReportHeaderFault(PageCacheSType* pc, RepPageKindEType kind, RepPageHdrSType* page, const char* /*file*/,
                           int /*line*/) {
  contextOf(pc).fail(StoreErrorCode::damaged, "it should be of kind " + std::to_string(kind),
                     page == nullptr ? 0 : page->pageId);
}

void PageReportCacheFault(PageCacheSType* pc, unsigned long pageId, const char* text, RepPageHdrSType* /*page*/,
                          const char* /*file*/, int /*line*/, ShrPcStateSType* /*state*/) {
  contextOf(pc).fail(StoreErrorCode::damaged, text, pageId);
}

// A page leaves memory when room is needed or its reader or writer ends, not when it is told to.
void PageFlushRemotePage_(PageCacheSType* /*pc*/, unsigned long /*pageId*/, PageRemoveEType /*mode*/) {}
void PageFlushRemotePagePtr(PageCacheSType* /*pc*/, RepPageHdrSType* /*page*/) {}
void PageRemoveFromPrivateCache(PageCacheSType* /*pc*/, unsigned long /*pageId*/, int /*mode*/) {}
void ShrPcClearLockedPage(ShrPcStateSType* /*state*/) {}
