// Making room for a bit whose list leaf is full.
#pragma once

#include "bitmap.h"

// Changes the tree so that a retry finds room for `bit`, whose leaf is a list of 2043 entries; the bit itself is not
// added. Returns 1 when the caller should retry, 0 when no page was to be had. `spare` is not read.
int splitBitList(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, int spare);

// Makes an empty leaf with key siblingKey right behind the leaf at `path`, whose key is leafKey. Returns 1, with
// `path` describing the new leaf, or 0 when no page was to be had.
int createRightSibling(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long leafKey,
                       unsigned long siblingKey);
