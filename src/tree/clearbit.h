// Taking an emptied leaf out of a tree, with the keys and pages above it and a scan that is walking the tree.
#pragma once

#include "bitmap.h"

// Removes the leaf that holds `bit`.
void disposeLeafForBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit);

// Removes the leaf at `path`, whose page is `pageKind`, or 0 if the caller does not know. If path->valid is set, the
// path moves on to the next leaf, or valid is cleared when the page above has emptied. A tree never loses a level but
// as a whole.
void disposeLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned char pageKind);

// Clears those of the bits first[0] to end[-1] that a change which could not be completed has set, and removes the
// leaves made for them. No other bit lies in the spans of those leaves.
void takeBackBits(PageCacheSType* pc, RepTreeRootSType* root, const uint64_t* first, const uint64_t* end);

// Removes the dense leaf that owns `bit` if it holds no bit, whatever its keepWhenEmpty says.
void disposeEmptyDenseLeaf(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit);
