// Difference: the bits of a tree A that are not in a tree B, written to an array up to a limit, or built as a tree.
#pragma once

#include "algebra/leafstream.h"

// Where the array form writes, and how far it has come.
struct DifferenceResultStateSType {
  uint64_t startBit;  // lowest bit that may be written
  uint64_t* nextOut;  // next free slot
  uint64_t* outEnd;   // one past the last slot; never written
  uint64_t bitsWritten;
  int32_t full;  // 1 once nextOut has reached outEnd
};

// Writes what is left of the leaf of `leaf`, from startBit on, and sets its atEnd. Of a dense leaf wholly below
// startBit the upper part comes out: startBit is taken within the leaf's own span.
void addLeafToResult(PageCacheSType* pc, BmLeafStateSType* leaf, DifferenceResultStateSType* state);

// Sets what is left of the leaf of `leaf` in `result`, and sets its atEnd.
void addLeafToTree(PageCacheSType* pc, BmLeafStateSType* leaf, RepTreeRootSType* result);

// Write the bits of A's list that are not in B's leaf, up to the end of B's leaf; both are located and not at their
// end, and the array is not full. They leave the cursors on the first entries not dealt with, and set atEnd of a leaf
// that is finished.
void differenceListList(BmLeafStateSType* a, BmLeafStateSType* b, DifferenceResultStateSType* state);
void differenceListDense(BmLeafStateSType* a, BmLeafStateSType* b, DifferenceResultStateSType* state);

// Clears in `words`, a copy of those of the span at `base`, the entries of the list from its cursor on that lie in
// the span, and moves the list behind it. Returns how many were set.
int clearEntries(uint64_t* words, unsigned long base, BmLeafStateSType* list);
