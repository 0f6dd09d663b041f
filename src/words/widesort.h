// The quicksort of plain words on processors with 512-bit vectors: eight elements are partitioned at a time, in
// place.
#pragma once

#include <cstdint>

// Whether this processor can.
bool canSortWide();

// Sorts the words first to last, inclusive, ascending. Needs no sentinels. Only where canSortWide.
void sortWide(uint64_t* first, uint64_t* last);
