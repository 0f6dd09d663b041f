// Changes of form: a tree that is one list becomes a tree of leaves, a list leaf becomes a dense leaf.
#pragma once

#include "bitmap.h"

// Lifts a level-0 tree, empty or one list page, to a level-1 root with that list at key 0. Returns 1, or 0 when no
// page is to be had: the tree is then a sound level-0 tree.
int convertBitListToBmTree(PageCacheSType* pc, RepTreeRootSType* root);

// Turns the list leaf at `path` (levels[1] included) into the dense leaf of the span at `base`, on the same page.
// Entries of other spans go in again through the bulk path. `spare` is not read. Returns 1; or 0 when there was no
// page for that, and the leaf is the list that it was. `path` is out of date afterwards.
int convertBitListLeafToBmLeaf(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long base,
                               unsigned long spare);
