// Cutting a tree down to its lowest bits. The high end of a tree has no cheap removal, so the bits that are to go are
// gathered in a temporary tree and taken out by set removal.
#include "algebra/copy.h"
#include "bitmap.h"

unsigned long BmTruncate(PageCacheSType* pc, RepTreeRootSType* root, unsigned long numBits) {
  const unsigned long count = BmFindNumBitsSetMax_(pc, root, BM_HIGHEST_BIT);
  if (count == 0 || numBits >= count) return 0;
  if (numBits == 0) {
    BmDisposeTree(pc, root);
    return count;
  }
  RepTreeRootSType surplus = pc->invalidHeapTreeRoot;
  int entryCount;
  if (BmDoCopyTree(pc, root, &surplus, &entryCount) < 0) return 0;
  BmClearNumBits(pc, &surplus, numBits);
  BmClearBits_(pc, &surplus, root);
  BmDisposeTree(pc, &surplus);
  return count - numBits;
}
