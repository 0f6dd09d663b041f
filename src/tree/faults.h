// Reports of broken pages and broken invariants, and the line numbers that are part of them. The numbers name
// places of fault to whoever reads a store's logs, and stay the same from release to release.
#pragma once

#include "pagecache.h"
#include "utl.h"

constexpr int REPOSDISK_LINE_TREE_KIND = 1196;  // a negative kind that is not the inline list

// Reports a heap page whose kind is not `kind`.
void BmPageReportHeaderFault(PageCacheSType* pc, RepPageKindEType kind, RepPageHdrSType* page);

// Reports a page that should be a leaf and is not, or, with `page` null, a leaf that is missing. `line` names the
// place of the fault.
void ReportLeafFault(PageCacheSType* pc, unsigned long pageRef, RepPageHdrSType* page, int treeKind, int line);

// Reports a careful page id that one of the two id sets and the page's stamp disagree about.
void reportCarefulFault(PageCacheSType* pc, unsigned long pageId, const char* text);

// Prints `text` to standard output at once.
void printDiagnostic(const char* text);

// Whether `bytesUsed` of `page` lies in 32 to 16384; otherwise it is printed and reported at `line`.
bool requireLegalBytesUsed(const RepPageHdrSType& page, int line = __builtin_LINE());

// Bytes of `page` behind its header that are significant, 0 to 16352 whatever `bytesUsed` says.
int significantBodyBytes(const RepPageHdrSType& page);
