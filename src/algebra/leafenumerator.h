// The set bits of one dense leaf in ascending order, one call each.
#pragma once

#include "hostlayer.h"
#include "reposdisk.h"

// A position among the bits of a leaf; the leaf stays in place and unchanged meanwhile. Owns nothing.
struct BmLeafEnumerator {
  const uint64_t* words;  // of the leaf
  uint64_t nextPos;       // position in the leaf of bit 0 of curWord
  uint64_t reserved = 0;
  uint64_t wordIndex;  // the word in hand
  uint64_t curWord;    // what remains of it, shifted down to nextPos

  // Starts at position `start` (below BM_LEAF_BITS) of the leaf that holds `leafWords`.
  explicit BmLeafEnumerator(const uint64_t* leafWords, unsigned long start = 0)
      : words(leafWords), nextPos(start), wordIndex(start >> 6), curWord(words[wordIndex] >> (start & 63)) {}

  // The position in the leaf of the next set bit; BM_LEAF_BITS, again and again, at the end.
  unsigned long nextRelativeBit() {
    if (curWord == 0 && !nextWord()) return BM_LEAF_BITS;
    const int zeros = HostAsmFFS8(curWord);
    curWord = curWord >> zeros >> 1;  // in two steps, since zeros + 1 can be 64
    const unsigned long position = nextPos + static_cast<unsigned long>(zeros);
    nextPos = position + 1;
    return position;
  }

 private:
  bool nextWord() {
    while (wordIndex < BM_BIT_LIST_CAPACITY && ++wordIndex < BM_BIT_LIST_CAPACITY) {
      if (words[wordIndex] == 0) continue;
      curWord = words[wordIndex];
      nextPos = wordIndex << 6;
      return true;
    }
    return false;
  }
};
