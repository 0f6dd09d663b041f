// The word loops of two dense leaves, one per set operation. Each walks all the words of a span, `BM_SPAN_WORDS`, and
// counts bits as it goes. No argument may overlap another.
#pragma once

#include "reposdisk.h"

constexpr int BM_SPAN_WORDS = BM_LEAF_BITS / 64;
static_assert(BM_SPAN_WORDS == BM_BIT_LIST_CAPACITY);

// Sets in `target` the bits of `source`. Returns how many were clear before.
int orWords(uint64_t* target, const uint64_t* source);

// Clears in `target` the bits of `source`. Returns how many were set.
int clearWords(uint64_t* target, const uint64_t* source);

// Writes to `out` the bits that `a` and `b` share, or those of `a` that are not in `b`. Returns how many.
int andWords(uint64_t* out, const uint64_t* a, const uint64_t* b);
int andNotWords(uint64_t* out, const uint64_t* a, const uint64_t* b);

// The four loops as compiled for one kind of processor.
struct DenseWordLoops {
  int (*orWords)(uint64_t* target, const uint64_t* source);
  int (*clearWords)(uint64_t* target, const uint64_t* source);
  int (*andWords)(uint64_t* out, const uint64_t* a, const uint64_t* b);
  int (*andNotWords)(uint64_t* out, const uint64_t* a, const uint64_t* b);
};

enum class WordVectors {
  none,   // what any processor runs
  wide,   // 256 bits
  wider,  // 512 bits, with population counts
};

// The loops for `vectors`; null if this processor does not have them.
const DenseWordLoops* denseWordLoops(WordVectors vectors);
