#include "words/widescan.h"

#include <algorithm>

#include "words/processor.h"

#if BM_WIDE_VECTORS

#include <immintrin.h>

#define WITH_AVX512_BYTES [[gnu::target("avx512f,avx512bw,avx512vbmi,avx512vbmi2,popcnt,bmi,bmi2")]]

namespace {

constexpr int LANES = 8;
constexpr int BLOCK_WORDS = 64;

// The bytes 0 to 63 in order.
WITH_AVX512_BYTES inline __m512i byteNumbers() {
  return _mm512_set_epi64(0x3F3E3D3C3B3A3938, 0x3736353433323130, 0x2F2E2D2C2B2A2928, 0x2726252423222120,
                          0x1F1E1D1C1B1A1918, 0x1716151413121110, 0x0F0E0D0C0B0A0908, 0x0706050403020100);
}

// Writes base + position for 8 of the bit positions in `positions`, from the one at `byte` on, as far as `lanes` go.
WITH_AVX512_BYTES inline void writeLanes(__m512i positions, int byte, __m512i base, uint64_t lanes, uint64_t* out) {
  constexpr __mmask64 lowBytes = 0x0101010101010101;
  const __m512i chosen = _mm512_add_epi64(_mm512_set_epi64(7, 6, 5, 4, 3, 2, 1, 0), _mm512_set1_epi64(byte));
  const __m512i widened = _mm512_maskz_permutexvar_epi8(lowBytes, chosen, positions);
  _mm512_mask_storeu_epi64(out + byte, static_cast<__mmask8>(lanes >> byte), _mm512_add_epi64(widened, base));
}

// Writes base + position for each of the `count` bits of `word`, and nothing behind them. Words are alike for a while
// mostly, in that they have few bits, many, or nearly all.
WITH_AVX512_BYTES inline void writeWord(uint64_t word, int count, uint64_t base, uint64_t* out) {
  const __m512i positions = _mm512_maskz_compress_epi8(word, byteNumbers());
  const __m512i bases = _mm512_set1_epi64(static_cast<long long>(base));
  const uint64_t lanes = _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(count));
  writeLanes(positions, 0, bases, lanes, out);
  if (count <= LANES) return;
  writeLanes(positions, LANES, bases, lanes, out);
  writeLanes(positions, 2 * LANES, bases, lanes, out);
  writeLanes(positions, 3 * LANES, bases, lanes, out);
  if (count <= 4 * LANES) return;
  for (int byte = 4 * LANES; byte < 64; byte += LANES) writeLanes(positions, byte, bases, lanes, out);
}

// One bit for each of up to 64 words, set where the word is not `empty`.
WITH_AVX512_BYTES inline uint64_t otherWords(const uint64_t* words, int count, uint64_t empty) {
  const __m512i empties = _mm512_set1_epi64(static_cast<long long>(empty));
  uint64_t others = 0;
  for (int i = 0; i < count; i += LANES) {
    const auto lanes = static_cast<__mmask8>(_bzhi_u32(0xFF, static_cast<unsigned>(std::min(count - i, LANES))));
    const __m512i loaded = _mm512_maskz_loadu_epi64(lanes, words + i);
    others |= static_cast<uint64_t>(_mm512_mask_cmpneq_epu64_mask(lanes, loaded, empties)) << i;
  }
  return others;
}

// Writes the bits of a leaf as long as there is room.
struct Collection {
  uint64_t base;
  uint64_t* out;
  uint64_t* outEnd;
  uint64_t* outStart;

  // Takes the bits of word `index`. False when the room has been used up.
  WITH_AVX512_BYTES bool take(uint64_t word, unsigned index) {
    const uint64_t wordBase = base + (static_cast<uint64_t>(index) << 6);
    const auto room = outEnd - out;
    const int count = static_cast<int>(_mm_popcnt_u64(word));
    if (count < room) {
      writeWord(word, count, wordBase, out);
      out += count;
      return true;
    }
    for (; out != outEnd; word &= word - 1) *out++ = wordBase + static_cast<uint64_t>(HostAsmFFS8(word));
    return false;
  }

  DenseStretch full() const { return {count(), static_cast<unsigned>(out[-1] - base) + 1}; }
  DenseStretch atEnd() const { return {count(), BM_LEAF_BITS}; }

 private:
  unsigned long count() const { return static_cast<unsigned long>(out - outStart); }
};

// `empty` is a word without a bit that is looked for: 0, or all ones when clear bits are.
template <uint64_t empty>
WITH_AVX512_BYTES DenseStretch collect(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                       uint64_t* out) {
  if (start >= BM_LEAF_BITS) return {0, BM_LEAF_BITS};
  Collection run{base, out, out + room, out};
  unsigned index = start >> 6;
  if (!run.take((words[index] ^ empty) & ~uint64_t{0} << (start & 63), index)) return run.full();
  for (++index; index < BM_BIT_LIST_CAPACITY; index += BLOCK_WORDS) {
    const int blockWords = std::min<int>(BM_BIT_LIST_CAPACITY - static_cast<int>(index), BLOCK_WORDS);
    for (uint64_t left = otherWords(words + index, blockWords, empty); left != 0; left &= left - 1) {
      const unsigned at = index + static_cast<unsigned>(HostAsmFFS8(left));
      if (!run.take(words[at] ^ empty, at)) return run.full();
    }
  }
  return run.atEnd();
}

}  // namespace

bool canScanWide() { return processorHasAvx512Bytes(); }

DenseStretch collectSetBitsWide(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                uint64_t* out) {
  return collect<0>(words, start, base, room, out);
}

DenseStretch collectClearBitsWide(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                  uint64_t* out) {
  return collect<~uint64_t{0}>(words, start, base, room, out);
}

#else

bool canScanWide() { return false; }

DenseStretch collectSetBitsWide(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                uint64_t* out) {
  return collectSetBitsPlain(words, start, base, room, out);
}

DenseStretch collectClearBitsWide(const uint64_t* words, unsigned start, unsigned long base, unsigned long room,
                                  uint64_t* out) {
  return collectClearBitsPlain(words, start, base, room, out);
}

#endif
