// Facts of the page format that are not plain layout.
#include "bitmap.h"
#include "tree/faults.h"

// clang-format off
const unsigned char BitCountTable[256] = {
    0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4, 1, 2, 2, 3, 2, 3, 3, 4, 2, 3, 3, 4, 3, 4, 4, 5,
    1, 2, 2, 3, 2, 3, 3, 4, 2, 3, 3, 4, 3, 4, 4, 5, 2, 3, 3, 4, 3, 4, 4, 5, 3, 4, 4, 5, 4, 5, 5, 6,
    1, 2, 2, 3, 2, 3, 3, 4, 2, 3, 3, 4, 3, 4, 4, 5, 2, 3, 3, 4, 3, 4, 4, 5, 3, 4, 4, 5, 4, 5, 5, 6,
    2, 3, 3, 4, 3, 4, 4, 5, 3, 4, 4, 5, 4, 5, 5, 6, 3, 4, 4, 5, 4, 5, 5, 6, 4, 5, 5, 6, 5, 6, 6, 7,
    1, 2, 2, 3, 2, 3, 3, 4, 2, 3, 3, 4, 3, 4, 4, 5, 2, 3, 3, 4, 3, 4, 4, 5, 3, 4, 4, 5, 4, 5, 5, 6,
    2, 3, 3, 4, 3, 4, 4, 5, 3, 4, 4, 5, 4, 5, 5, 6, 3, 4, 4, 5, 4, 5, 5, 6, 4, 5, 5, 6, 5, 6, 6, 7,
    2, 3, 3, 4, 3, 4, 4, 5, 3, 4, 4, 5, 4, 5, 5, 6, 3, 4, 4, 5, 4, 5, 5, 6, 4, 5, 5, 6, 5, 6, 6, 7,
    3, 4, 4, 5, 4, 5, 5, 6, 4, 5, 5, 6, 5, 6, 6, 7, 4, 5, 5, 6, 5, 6, 6, 7, 5, 6, 6, 7, 6, 7, 7, 8};
// clang-format on

void BmPageCopyCheckBytesUsed(RepPageHdrSType* page) {
  const int used = page->bytesUsed;
  if (page->pageKind == REP_DATA_PAGE) {
    printDiagnostic("illegal data page in REP_PAGE_CPY_BODY\n");
    UTL_GUARANTEE(false, 11113);
  }
  if (page->pageKind == REP_BIT_LIST_PAGE) {
    const RepBitListContentsSType& list = asListPage(page)->contents;
    UTL_GUARANTEE(int64_t{used} == (int64_t{list.count} + list.firstOffset) * 8 + BM_LIST_HEAD_BYTES, 11118);
    return;
  }
  UTL_GUARANTEE(used >= int{sizeof(RepPageHdrSType)}, 11120);
  UTL_GUARANTEE(used <= BM_PAGE_SIZE, 11121);
}
