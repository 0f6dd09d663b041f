// The bits of a dense leaf as an array, a stretch at a time.
#pragma once

#include "hostlayer.h"
#include "reposdisk.h"

struct DenseStretch {
  unsigned long count;  // bits written
  unsigned next;        // position to go on from; BM_LEAF_BITS when the leaf has no further bit
};

// Writes base + position for up to `room` (at least 1) set bits of `words` at or above position `start` (at most
// BM_LEAF_BITS) to `out`, ascending. Nothing is written behind them.
DenseStretch collectSetBits(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                            uint64_t* out);

// The same, and clears the bits that it wrote.
DenseStretch takeSetBits(uint64_t* words, unsigned start, unsigned long base, unsigned long room, uint64_t* out);

// collectSetBits for the bits that are clear.
DenseStretch collectClearBits(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                              uint64_t* out);

// The two without wide vectors; `room` is at most BM_LEAF_BITS.
DenseStretch collectSetBitsPlain(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                 uint64_t* out);
DenseStretch collectClearBitsPlain(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                   uint64_t* out);
