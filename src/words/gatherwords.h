// Many ascending numbers of one span, gathered as the words of a dense leaf.
#pragma once

#include "reposdisk.h"

// Sets the numbers from `cur` on in `words`, the words of the span at `base` and 0 so far, as long as they ascend
// strictly and lie in that span. Returns the first that does not, or `end`. The first number has to lie in the span.
const uint64_t* gatherWords(const uint64_t* cur, const uint64_t* end, unsigned long base, uint64_t* words);

// The same without wide vectors.
const uint64_t* gatherWordsPlain(const uint64_t* cur, const uint64_t* end, unsigned long base, uint64_t* words);
