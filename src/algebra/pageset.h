// The page-id operations: sets of the ids of the pages that trees are made of. They never look at the bits of a leaf.
#pragma once

#include "bitmap.h"

// Sets, or with setBits 0 clears, in `destination` one bit for the reference of each page of `source`, a page before
// those below it. The pages of a heap tree count by their addresses; an inline list has none. Returns 1, or 0 on
// meeting a level of 3 or above.
int BmDoAdd(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination, int setBits);
