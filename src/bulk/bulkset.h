// The bulk set with its outcome told in full.
#pragma once

#include "bitmap.h"

enum class BulkSetEnd { complete, noLeaf, noSplit };

struct BulkSetResult {
  unsigned long newlySet;  // bits that were clear before, also when the run ended early
  BulkSetEnd end;          // complete, or which page was not to be had
};

// BmSetBitsFromSortedArray_ with an unmistakable result.
BulkSetResult setSortedBits(PageCacheSType* pc, RepTreeRootSType* root, const unsigned long* first,
                            const unsigned long* end);
