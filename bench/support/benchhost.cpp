#include "support/benchhost.h"

#include <cstdio>
#include <cstdlib>

#include "hostmemory.h"

namespace {

constexpr unsigned long firstPageId = 4;

BenchHost& hostOf(PageCacheSType* pc) { return *static_cast<BenchHost*>(pc); }

[[noreturn]] void stop(const char* what) {
  std::fprintf(stderr, "benchmark host: %s\n", what);
  std::abort();
}

void* pageMemory() { return std::aligned_alloc(4096, BM_PAGE_SIZE); }

}  // namespace

BenchHost::BenchHost() : PageCacheSType{}, pages_(firstPageId, nullptr) {
  owner = &ownerStorage_;
  BmInitTreeRoots(this);
  initForUnitTest();
  HostKeepIdleMemory(~uint64_t{0});
}

BenchHost::~BenchHost() {
  BmDisposeTree(this, &obsoleteCarefulBm);
  BmDisposeTree(this, dirtyCarefulBm);
  for (RepPageHdrSType* page : pages_) std::free(page);
}

RepPageHdrSType* BenchHost::makePage(RepPageKindEType kind) {
  if (freeIds_.empty()) {
    freeIds_.push_back(pages_.size());
    pages_.push_back(static_cast<RepPageHdrSType*>(pageMemory()));
  }
  const unsigned long id = freeIds_.back();
  freeIds_.pop_back();
  RepPageHdrSType* page = pages_[id];
  *page = {};
  page->pageKind = kind;
  page->pageId = id;
  page->bytesUsed = BM_PAGE_SIZE;
  return page;
}

void BenchHost::releasePage(unsigned long pageId) { freeIds_.push_back(pageId); }

RepPageHdrSType* PageLocate(PageCacheSType* pc, unsigned long pageId, int, int) { return hostOf(pc).locate(pageId); }

RepPageHdrSType* PageLocateNewIn(PageCacheSType* pc, RepPageKindEType kind, int) { return hostOf(pc).makePage(kind); }

int RepDisposeTempPage_(PageCacheSType* pc, unsigned long pageId) {
  hostOf(pc).releasePage(pageId);
  return 1;
}

void PagePin(PageCacheSType*, RepPageHdrSType*) {}
void PageUnpin(PageCacheSType*, RepPageHdrSType*) {}
void ShrSetDirtyNoCheck(ShrPcStateSType*, RepPageHdrSType*, unsigned char) {}
void ShrPcClearLockedPage(ShrPcStateSType*) {}
void PageFlushRemotePage_(PageCacheSType*, unsigned long, PageRemoveEType) {}
void PageFlushRemotePagePtr(PageCacheSType*, RepPageHdrSType*) {}
void PageRemoveFromPrivateCache(PageCacheSType*, unsigned long, int) {}

void PageReportHeaderFault(PageCacheSType*, RepPageKindEType, RepPageHdrSType*, const char*, int) {
  stop("header fault");
}
void PageReportCacheFault(PageCacheSType*, unsigned long, const char* text, RepPageHdrSType*, const char*, int,
                          ShrPcStateSType*) {
  stop(text);
}
int HostCallDebuggerMsg_fl(const char* text, const char*, int) { stop(text); }
