// The bits of a dense leaf as an array on processors that can compress bytes by a mask: the positions of a whole
// word's bits at once.
#pragma once

#include "words/densescan.h"

// Whether this processor can.
bool canScanWide();

// collectSetBits and collectClearBits; `room` is at most BM_LEAF_BITS. Only where canScanWide.
DenseStretch collectSetBitsWide(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                uint64_t* out);
DenseStretch collectClearBitsWide(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                  uint64_t* out);
