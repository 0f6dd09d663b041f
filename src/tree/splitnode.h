// Making room in a level-1 page that holds its full 1021 children.
#pragma once

#include "bitmap.h"

// Makes room near slot levels[1].index of the full page at levels[1] (levels[2] describes its parent, if any):
// entries go to a sibling, the left one first, or half of them to a new page; a level-1 root gets a level-2 root
// above it. Inserts nothing. Returns 1, with `path` out of date from level 1 down; or 0 when there is no page, or no
// room in the level-2 page (which is reported): then the tree holds what it held, in the same leaves.
int splitLevel1Node(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path);
