// The receiving side of a list split: entries of a full list are copied to a neighbour list or to a new one, and the
// key that the move makes wrong is set right. The source keeps its entries; who called drops them.
#pragma once

#include "bitmap.h"

// Copies the entries of `source` below *cut to the list leaf on the left, and raises the key of the source's leaf,
// which is at `path` with key leafKey. The move may be extended: *cut is the first entry that stays. Returns 0 if the
// neighbour declined, with everything as it was.
int copyEntriesLeft(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long leafKey,
                    RepBitListContentsSType* source, unsigned long** cut);

// Copies the entries of `source` from *cut up to the list leaf that owns rightKey, and lowers its key; or, with
// makeNew, to a new leaf with key rightKey behind the leaf at `path`. The move may be shortened. Returns 0 as above,
// or when no page was to be had.
int copyEntriesRight(PageCacheSType* pc, RepTreeRootSType* root, BmPathSType* path, unsigned long rightKey,
                     RepBitListContentsSType* source, unsigned long** cut, int makeNew);
