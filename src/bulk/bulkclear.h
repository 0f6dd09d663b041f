// The steps of a bulk clear that serve the operations between trees as well.
#pragma once

#include "bitmap.h"

// Removes from `list` the bits *cursor[0] to end[-1], ascending, that are not above `lastBit`; the others are not for
// this list, which has no entry above it. *cursor moves forward. Returns 1 if the list changed, or was empty on
// entry; 0 if nothing was removed, and nothing written. firstOffset stays; bytesUsed is the caller's to set.
int ClearBitsInBlcFromSortedArray(RepBitListContentsSType* list, unsigned long lastBit, const unsigned long** cursor,
                                  const unsigned long* end);

// Clears in `root` the entries of the list page `source`, which is read in place and must stay there. Returns how
// many were set. `spare` is not read.
unsigned long ClearBitsFromBitList_(PageCacheSType* pc, RepTreeRootSType* root, RepBitListPageSType* source,
                                    BmTreeKindEType spare);
