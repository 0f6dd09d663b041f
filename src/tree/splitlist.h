// Making room for a bit whose list leaf is full.
#pragma once

#include "bitmap.h"

// Changes the tree so that a retry finds room for `bit`, whose leaf is a list of 2043 entries; the bit itself is not
// added. Returns 1 when the caller should retry, 0 when no page was to be had. `spare` is not read.
int splitBitList(PageCacheSType* pc, RepTreeRootSType* root, unsigned long bit, int spare);

// Makes an empty leaf with key siblingKey right behind the leaf at `path`, whose key is leafKey. Returns 1, with `path`
// describing the new leaf, or 0 when no page was to be had.
int createRightSibling(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long leafKey,
                       unsigned long siblingKey);

// Copies the entries of `source` below *cut to the list leaf on the left, and raises the key of the source's leaf, which is
// at `path` with key leafKey. The source keeps its entries; the caller drops them. The move may be extended: *cut is the
// first entry that stays. Returns 0 if the neighbour declined, with everything as it was.
int copyEntriesLeft(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long leafKey,
                    RepBitListContentsSType* source, unsigned long** cut);

// Copies the entries of `source` from *cut up to the list leaf that owns rightKey, and lowers its key; or, with makeNew, to
// a new leaf with key rightKey behind the leaf at `path`. Otherwise as above; the move may be shortened.
int copyEntriesRight(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long rightKey,
                     RepBitListContentsSType* source, unsigned long** cut, int makeNew);
