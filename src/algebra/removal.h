// Removal's work on one list.
#pragma once

#include "bitmap.h"

// Removes from `list` every entry that is set in `tree`, a tree of pages. Nonzero if anything was removed; otherwise
// nothing is written. `limit` is not below the last entry. bytesUsed is the caller's to set. The list must stay in
// place meanwhile.
int BmClearBitsInBitList(PageCacheSType* pc, const RepTreeRootSType* tree, RepBitListContentsSType* list,
                         unsigned long limit);

// Removes from `list` the entries of the span at baseBit that are set in `leaf`, the leaf of that span. A negative
// *index starts at the first entry of the span, another one at that entry; it is left just behind the span's entries,
// counted from the new front. Nonzero if anything was removed, and for a list that was empty. The side with less to
// move moves: the front can rise.
int ClearBitsFromBmLeafBitListLeaf(RepBmLeafPageSType* leaf, unsigned long baseBit, RepBitListContentsSType* list,
                                   int* index);
