// Copying trees page by page: every page of the copy is new and lives where the destination's kind says.
//
// The copy keeps the keys of the source but not its front gaps, and leaves out dense leaves that are empty and kept.
// So a level-2 key of a copy can stand below the first key of its child, and a list leaf can cover what was a span of
// its own.
#pragma once

#include "bitmap.h"

// The page kind that copyLeaf tells for a leaf that is left out on purpose. No page has it.
constexpr RepPageKindEType BM_COPY_SKIPPED{20};

// Copies the leaf `pageRef` of a tree of `sourceKind` for `destination` and adds its number of bits to *bitCount.
// Returns the reference of the copy; 0 if the leaf is left out, is no leaf, which is reported, or no page is to be
// had. *pageKindOut is the kind of the leaf, or BM_COPY_SKIPPED. `level` is not read.
unsigned long copyLeaf(PageCacheSType* pc, unsigned long pageRef, int level, BmTreeKindEType sourceKind,
                       RepTreeRootSType* destination, RepPageKindEType* pageKindOut, long* bitCount);

// Makes `destination`, which must be empty and have treeKind and allocTag set, a copy of `source`. Returns the number
// of bits copied, and in *entryCount how many entries the new root holds: 1 for a leaf, the number of children
// otherwise, 0 for an empty result. Returns -1 if no page is to be had, if the destination is an inline list, or if
// the source is broken or a root of level 0 that is an empty kept leaf; pages that were made by then are not given
// back.
long BmDoCopyTree(PageCacheSType* pc, const RepTreeRootSType* source, RepTreeRootSType* destination, int* entryCount);
