// The page cache of a program that has heap trees only: nothing may reach it.
#include <cstdio>
#include <cstdlib>

#include "pagecache.h"

namespace {

[[noreturn]] void unexpected(const char* operation) {
  std::fprintf(stderr, "%s was called without a page cache\n", operation);
  std::abort();
}

}  // namespace

RepPageHdrSType* PageLocate(PageCacheSType*, unsigned long, int, int) { unexpected("PageLocate"); }
RepPageHdrSType* PageLocateNewIn(PageCacheSType*, RepPageKindEType, int) { unexpected("PageLocateNewIn"); }
int RepDisposeTempPage_(PageCacheSType*, unsigned long) { unexpected("RepDisposeTempPage_"); }
void PagePin(PageCacheSType*, RepPageHdrSType*) { unexpected("PagePin"); }
void PageUnpin(PageCacheSType*, RepPageHdrSType*) { unexpected("PageUnpin"); }
void PageReportHeaderFault(PageCacheSType*, RepPageKindEType, RepPageHdrSType*, const char*, int) {
  unexpected("PageReportHeaderFault");
}
void PageReportCacheFault(PageCacheSType*, unsigned long, const char*, RepPageHdrSType*, const char*, int,
                          ShrPcStateSType*) {
  unexpected("PageReportCacheFault");
}
void PageFlushRemotePage_(PageCacheSType*, unsigned long, PageRemoveEType) { unexpected("PageFlushRemotePage_"); }
void PageFlushRemotePagePtr(PageCacheSType*, RepPageHdrSType*) { unexpected("PageFlushRemotePagePtr"); }
void PageRemoveFromPrivateCache(PageCacheSType*, unsigned long, int) { unexpected("PageRemoveFromPrivateCache"); }
void ShrSetDirtyNoCheck(ShrPcStateSType*, RepPageHdrSType*, unsigned char) { unexpected("ShrSetDirtyNoCheck"); }
void ShrPcClearLockedPage(ShrPcStateSType*) {}  // given up before the pages of any tree go
