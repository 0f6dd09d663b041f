// What two located leaves are to each other: the one dispatch by leaf kinds, checked for completeness where it is
// used (a switch without a default).
#pragma once

#include <algorithm>

#include "algebra/leafstream.h"

// The first word names the leaf looked at, the second the leaf that it is compared with.
enum class LeafPair { listList, listDense, denseList, denseDense };

// Both cursors are located and neither stands on a broken page.
inline LeafPair pairOf(const BmLeafStateSType& a, const BmLeafStateSType& b) {
  if (a.pageKind == REP_BIT_LIST_PAGE) {
    return b.pageKind == REP_BIT_LIST_PAGE ? LeafPair::listList : LeafPair::listDense;
  }
  return b.pageKind == REP_BIT_LIST_PAGE ? LeafPair::denseList : LeafPair::denseDense;
}

// Brings endBit down to the last bit that a located dense leaf can hold. It is there already unless the leaf is the
// root of its tree: before its page has been read, such a root passes for a list that owns every bit.
inline void clipDenseRange(BmLeafStateSType* leaf) {
  if (leaf->pageKind != REP_BM_LEAF_PAGE) return;
  leaf->endBit = std::min(leaf->endBit, leaf->firstBit + BM_LEAF_BITS - 1);
}

// Whether the remaining ranges of two located leaves meet.
inline bool leavesMeet(const BmLeafStateSType& a, const BmLeafStateSType& b) {
  return a.curBit <= b.endBit && b.curBit <= a.endBit;
}

// Puts the cursor of a list on `entry`, or ends it there.
inline void standAt(BmLeafStateSType* list, const uint64_t* entry) {
  list->cursor += entry - list->cursor;
  if (list->cursor < list->entriesEnd) {
    list->curBit = *list->cursor;
  } else {
    list->atEnd = 1;
  }
}
