// Handing the bits of one span to a tree.
#pragma once

#include "bitmap.h"

// Sets the `bits` bits of `words`, the words of the span at `base`, in the dense leaf of that span, which is made if
// need be. Returns how many were clear before. When the leaf cannot be had, or an inline list has no room for all of
// the bits, nothing is set. The words must stay in place; they may be those of a pinned page.
unsigned long mergeSpan(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base, const uint64_t* words,
                        int bits);

// The same, leaving the tree in the shape that the bits as ascending arrays would: a list as long as they fit in one,
// and other entries of that list where a split would leave them. An inline list takes bits until it is full.
unsigned long addSpan(PageCacheSType* pc, RepTreeRootSType* destination, unsigned long base, const uint64_t* words,
                      int bits);
