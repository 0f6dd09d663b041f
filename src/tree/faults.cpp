#include "tree/faults.h"

#include <algorithm>
#include <cstdio>

void BmPageReportHeaderFault(PageCacheSType* pc, RepPageKindEType kind, RepPageHdrSType* page) {
  PageReportHeaderFault(pc, kind, page, nullptr, 0);
}

void ReportLeafFault(PageCacheSType* pc, unsigned long pageRef, RepPageHdrSType* page, int treeKind, int line) {
  std::fprintf(stderr, "Bitmap page fault, pageHdrPtr 0x%p page %lu treeKind %d, bitmap line %d \n",
               static_cast<void*>(page), pageRef, treeKind, line);
  std::fflush(stderr);
  if (page != nullptr) {
    std::fprintf(stderr, "Bitmap page fault, pageHdr: page %ld pageKind %d \n", static_cast<long>(page->pageId),
                 page->pageKind);
    std::fflush(stderr);
  }
  if (treeKind == BM_HEAP_TREE) {
    printDiagnostic("Bitmap page fault in C heap bitmap");
    UTL_GUARANTEE(false, 970);
  } else {
    PageReportCacheFault(pc, pageRef, "Bitmap page fault", page, "bitmap", 920, nullptr);
  }
}

void reportCarefulFault(PageCacheSType* pc, unsigned long pageId, const char* text) {
  PageReportCacheFault(pc, pageId, text, nullptr, "bitmap", 920, nullptr);
}

void printDiagnostic(const char* text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

bool requireLegalBytesUsed(const RepPageHdrSType& page, int line) {
  if (page.bytesUsed >= int{sizeof(RepPageHdrSType)} && page.bytesUsed <= BM_PAGE_SIZE) return true;
  printDiagnostic("illegal bytesUsed in a page\n");
  return UTL_GUARANTEE(false, line);
}

int significantBodyBytes(const RepPageHdrSType& page) {
  constexpr int headBytes = sizeof(RepPageHdrSType);
  return std::clamp(int{page.bytesUsed}, headBytes, BM_PAGE_SIZE) - headBytes;
}
