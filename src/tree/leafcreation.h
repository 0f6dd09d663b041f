// Making the leaf that a bit belongs in: found, or made in a gap, with the level-1 page above it split when full.
//
// Throughout: a new leaf is complete and dirty before a parent names it, the parent is writable before it is
// changed, and the level-2 key is brought up to date last.
#pragma once

#include "bitmap.h"

// The leaf that owns `bit`, writable, made if need be; `path` describes it. Null when no page is to be had. The
// caller passes a path whose flags and levels[0].index are zero.
RepPageHdrSType* locateOrCreateLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long bit);

// The dense leaf of the span that begins at `bit`, writable; a list that owns the span is converted. Null when no
// page is to be had.
RepPageHdrSType* locateOrCreateBmLeaf(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit);

// Makes a leaf with key levels[1].firstBit before slot levels[1].index of the page levels[1].pageId, which is not
// full. Returns its reference, or 0 when no page is to be had: the tree is then unchanged.
unsigned long newLeafPage(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path);

// Makes a leaf at the span base `bit` below the first key of a two-level tree. `depth` counts the recursion.
void newLeftLeaf(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, int depth);

// Brings the level-2 key of a level-1 page up to date whose first key went from oldBase to newBase. `path` may be
// null; otherwise its levels[2].limitBit follows.
void firstBaseBitChanged(PageCacheSType* pc, RepTreeRootSType* root, unsigned long oldBase, unsigned long newBase,
                         BmPathSType* path);

// Makes an empty leaf of the form that the tree wants, with the tag for its key in *tag. Null: no page.
RepPageHdrSType* newEmptyLeaf(PageCacheSType* pc, RepTreeRootSType* root, int* tag);

// Enters the complete leaf `leafRef` with key levels[1].firstBit before slot levels[1].index of the writable page
// `page`, and mends the level-2 key. Returns 0, after a report, if the page is full.
int linkLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, RepPageHdrSType* page,
             unsigned long leafRef, int tag);
