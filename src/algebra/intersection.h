// Intersection: the bits that two trees share, counted as they are newly set in a result tree.
#pragma once

#include "algebra/leafstream.h"

// Where common bits go, and how many have gone there.
struct IntersectResultStateSType {
  RepTreeRootSType* resultTree;
  uint64_t limit;  // the count at which to stop, at least 1
  uint64_t count;  // bits newly set so far
  int32_t done;    // 1 once the limit has stopped the operation
};

// Moves the two cursors until the ranges of their leaves overlap. Returns 1, or 0 when one stream has ended.
int findMatchingLeafIntersect(PageCacheSType* pc, BmLeavesSType* firstLeaves, BmLeafStateSType* firstLeaf,
                              BmLeavesSType* secondLeaves, BmLeafStateSType* secondLeaf);

// Treats a dense leaf and a list leaf, both located. The limit is tested at every entry, so it is met exactly.
void intersectBmBitList(PageCacheSType* pc, BmLeafStateSType* dense, BmLeafStateSType* list,
                        IntersectResultStateSType* state);
