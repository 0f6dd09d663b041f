// From a bit to a filled path: one entry for scans, which may land on the following leaf, and one for writers, which
// want the leaf exactly where the bit belongs.
#pragma once

#include "bitmap.h"
#include "tree/path.h"

// Fills `path` for the first leaf that holds or follows `bit`. Returns 1 when there is one.
int BmFindLeafForBit(PageCacheSType* pc, const RepTreeRootSType* root, BmPathSType* path, unsigned long bit);

// Fills `path` for the leaf of `bit`; the caller has set allowNext. Returns 1 when a leaf was found, which with
// allowNext 0 owns the bit.
int findLeafPageForBit(PageCacheSType* pc, const RepTreeRootSType* root, unsigned long bit, BmPathSType* path);

// The leaf of a heap tree that owns `bit`, found without a path. Null when there is none, or when a page on the way
// is not of its kind: the descents along a path report that.
RepPageHdrSType* heapLeafFor(const RepTreeRootSType& root, unsigned long bit);

// The leaf that owns `bit` in a tree of any kind that has pages, found without a path.
FoundLeaf findLeaf(PageCacheSType* pc, const RepTreeRootSType& root, unsigned long bit);
