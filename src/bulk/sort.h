// The in-place sort behind every unsorted array, and the dropping of repeats.
#pragma once

#include "bitmap.h"

// Sorts and strips first[1] to end[-1] in place, with the sentinel at *end; end - first is at least 2. Returns one
// past the last element kept.
unsigned long* sortAndStrip(unsigned long* first, unsigned long* end);

// Sorts the words first to last, inclusive, with sentinels on both sides, without wide vectors.
void sortWordsPlain(uint64_t* first, uint64_t* last);
