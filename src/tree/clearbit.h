// Taking an emptied leaf out of a tree, with the keys and pages above it and a scan that is walking the tree.
#pragma once

#include "bitmap.h"

// Removes the leaf that holds `bit`.
void disposeLeafForBit(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit);

// Removes the leaf at `path`, whose page is `pageKind`, or 0 if the caller does not know. If path->valid is set, the path
// moves on to the next leaf, or valid is cleared when the page above has emptied. A tree never loses a level but as a
// whole.
void disposeLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned char pageKind);
