// Laying out dense leaves in advance, below the operation on a root.
#pragma once

#include "bitmap.h"

// Builds a subtree of `level` (1 or 2) with `leafCount` empty dense leaves, which stay when empty, for the spans from
// `firstBit` on, in pages of the kind of `tree`. `ignored` has no effect. Returns the reference of its root page; or
// 0 when no page is to be had, and then gives back what it had built. leafCount is at most 1,021, or at level 2 1,021
// x 1,021.
unsigned long growToHighImpl(PageCacheSType* pc, unsigned long firstBit, int leafCount, int level,
                             RepTreeRootSType* tree, int ignored);
