#include "words/densescan.h"

#include <algorithm>

#include "words/widescan.h"

namespace {

uint64_t* writeBits(uint64_t word, unsigned long base, uint64_t* out) {
  for (; word != 0; word &= word - 1) *out++ = base + static_cast<unsigned long>(HostAsmFFS8(word));
  return out;
}

uint64_t* writeFullWord(unsigned long base, uint64_t* out) {
  for (unsigned long i = 0; i < 64; ++i) out[i] = base + i;
  return out + 64;
}

constexpr uint64_t bitsFrom(unsigned position) { return ~uint64_t{0} << (position & 63); }

// Clears the bits of positions start to next - 1.
void clearPositions(uint64_t* words, unsigned start, unsigned next) {
  const unsigned firstWord = start >> 6;
  const unsigned lastWord = next >> 6;
  if (firstWord == lastWord) {
    words[firstWord] &= ~(bitsFrom(start) & ~bitsFrom(next));
    return;
  }
  words[firstWord] &= ~bitsFrom(start);
  std::fill(words + firstWord + 1, words + lastWord, 0);
  if (lastWord < BM_BIT_LIST_CAPACITY) words[lastWord] &= bitsFrom(next);
}

// `empty` is a word without a bit that is looked for: 0, or all ones when clear bits are.
template <uint64_t empty>
DenseStretch collectPlain(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                          uint64_t* out) {
  const uint64_t* const outStart = out;
  const uint64_t* const outEnd = out + room;
  if (start >= BM_LEAF_BITS) return {0, BM_LEAF_BITS};
  unsigned index = start >> 6;
  uint64_t word = (words[index] ^ empty) & bitsFrom(start);
  for (;;) {
    const unsigned long wordBase = base + (static_cast<unsigned long>(index) << 6);
    if (outEnd - out < 64) {
      for (; word != 0 && out != outEnd; word &= word - 1) {
        *out++ = wordBase + static_cast<unsigned long>(HostAsmFFS8(word));
      }
      if (out == outEnd) break;
    } else {
      out = word == ~uint64_t{0} ? writeFullWord(wordBase, out) : writeBits(word, wordBase, out);
    }
    if (++index == BM_BIT_LIST_CAPACITY) return {static_cast<unsigned long>(out - outStart), BM_LEAF_BITS};
    word = words[index] ^ empty;
  }
  return {room, static_cast<unsigned>(out[-1] - base) + 1};
}

}  // namespace

DenseStretch collectSetBitsPlain(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                 uint64_t* out) {
  return collectPlain<0>(words, start, base, room, out);
}

DenseStretch collectClearBitsPlain(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                   uint64_t* out) {
  return collectPlain<~uint64_t{0}>(words, start, base, room, out);
}

DenseStretch collectSetBits(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                            uint64_t* out) {
  room = std::min<unsigned long>(room, BM_LEAF_BITS);
  return canScanWide() ? collectSetBitsWide(words, start, base, room, out)
                       : collectSetBitsPlain(words, start, base, room, out);
}

DenseStretch collectClearBits(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                              uint64_t* out) {
  room = std::min<unsigned long>(room, BM_LEAF_BITS);
  return canScanWide() ? collectClearBitsWide(words, start, base, room, out)
                       : collectClearBitsPlain(words, start, base, room, out);
}

DenseStretch takeSetBits(uint64_t* words, unsigned start, unsigned long base, unsigned long room, uint64_t* out) {
  const DenseStretch taken = collectSetBits(words, start, base, room, out);
  if (taken.count > 0) clearPositions(words, start, taken.next);
  return taken;
}
