#include "words/gatherwords.h"

#include <algorithm>

#include "words/processor.h"

#if BM_WIDE_VECTORS
#include <immintrin.h>
#endif

namespace {

constexpr long FULL_RUN = 64;

// Whether the 64 numbers at `numbers` are consecutive.
bool areConsecutive(const uint64_t* numbers) {
  if (numbers[FULL_RUN - 1] - numbers[0] != FULL_RUN - 1) return false;
  uint64_t difference = 0;
  for (uint64_t i = 0; i < FULL_RUN; ++i) difference |= numbers[i] ^ (numbers[0] + i);
  return difference == 0;
}

// Sets the 64 bits from `position` on.
void setFullRun(uint64_t* words, uint64_t position) {
  words[position >> 6] |= ~uint64_t{0} << (position & 63);
  if ((position & 63) != 0) words[(position >> 6) + 1] |= ~(~uint64_t{0} << (position & 63));
}

// Sets the positions base + *cur, ascending from `least` on, up to `stop`. Each is added to the word in hand, which
// is stored every time, so that no branch depends on where words end. Returns the first that is not in order or in
// the span, or `stop`.
const uint64_t* gatherSome(const uint64_t* cur, const uint64_t* stop, unsigned long base, uint64_t least,
                           uint64_t* words) {
  if (cur == stop || *cur - base >= BM_LEAF_BITS) return cur;
  uint64_t index = (*cur - base) >> 6;
  uint64_t word = words[index];
  for (; cur != stop; ++cur) {
    const uint64_t position = *cur - base;
    if (position < least || position >= BM_LEAF_BITS) break;
    word = (position >> 6 == index ? word : 0) | uint64_t{1} << (position & 63);
    index = position >> 6;
    words[index] = word;
    least = position + 1;
  }
  return cur;
}

#if BM_WIDE_VECTORS

constexpr long LANES = 8;

// Sets numbers from `cur` on, the first of which lies in the span, eight at a time, as long as they and the next one
// ascend, lie in the span and fall into two words at most. Returns the first that is left.
[[gnu::target("avx512f")]] const uint64_t* gatherBlocks(const uint64_t* cur, const uint64_t* end, unsigned long base,
                                                        uint64_t* words) {
  const __m512i bases = _mm512_set1_epi64(static_cast<long long>(base));
  const __m512i one = _mm512_set1_epi64(1);
  for (; end - cur > LANES; cur += LANES) {
    const __m512i numbers = _mm512_loadu_si512(cur);
    const __mmask8 ascending = _mm512_cmplt_epu64_mask(numbers, _mm512_loadu_si512(cur + 1));
    const uint64_t first = cur[0] - base;
    const uint64_t last = cur[LANES - 1] - base;
    if (ascending != 0xFF || last >= BM_LEAF_BITS) break;
    const __m512i positions = _mm512_sub_epi64(numbers, bases);
    const __m512i indexes = _mm512_maskz_srli_epi64(0xFF, positions, 6);
    const __m512i bits = _mm512_maskz_sllv_epi64(0xFF, one, _mm512_and_si512(positions, _mm512_set1_epi64(63)));
    const __mmask8 inFirst = _mm512_cmpeq_epi64_mask(indexes, _mm512_set1_epi64(static_cast<long long>(first >> 6)));
    const __mmask8 inLast = _mm512_cmpeq_epi64_mask(indexes, _mm512_set1_epi64(static_cast<long long>(last >> 6)));
    if ((inFirst | inLast) != 0xFF) break;
    const __m512i ofFirst = _mm512_maskz_mov_epi64(inFirst, bits);
    const __m512i ofLast = _mm512_maskz_mov_epi64(inLast, bits);
    const __m512i pairs = _mm512_or_si512(_mm512_maskz_unpacklo_epi64(0xFF, ofFirst, ofLast),
                                          _mm512_maskz_unpackhi_epi64(0xFF, ofFirst, ofLast));
    const __m256i half = _mm256_or_si256(_mm512_maskz_extracti64x4_epi64(0xF, pairs, 0),
                                         _mm512_maskz_extracti64x4_epi64(0xF, pairs, 1));
    const __m128i both = _mm_or_si128(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
    words[first >> 6] |= static_cast<uint64_t>(_mm_cvtsi128_si64(both));
    words[last >> 6] |= static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(both, both)));
  }
  return cur;
}

// What the blocks stop at is taken singly.
const uint64_t* gatherWordsWide(const uint64_t* cur, const uint64_t* end, unsigned long base, uint64_t* words) {
  uint64_t least = 0;
  while (cur != end && *cur - base >= least && *cur - base < BM_LEAF_BITS) {
    const uint64_t* singles = gatherBlocks(cur, end, base, words);
    if (singles != cur) least = singles[-1] - base + 1;
    cur = gatherSome(singles, singles + std::min(LANES, end - singles), base, least, words);
    if (cur == singles) break;
    least = cur[-1] - base + 1;
  }
  return cur;
}

#endif

}  // namespace

const uint64_t* gatherWords(const uint64_t* cur, const uint64_t* end, unsigned long base, uint64_t* words) {
#if BM_WIDE_VECTORS
  if (processorHasAvx512()) return gatherWordsWide(cur, end, base, words);
#endif
  return gatherWordsPlain(cur, end, base, words);
}

const uint64_t* gatherWordsPlain(const uint64_t* cur, const uint64_t* end, unsigned long base, uint64_t* words) {
  uint64_t least = 0;
  while (cur != end) {
    const uint64_t position = *cur - base;
    if (position < least || position >= BM_LEAF_BITS) break;
    const bool isFull = end - cur >= FULL_RUN && position + FULL_RUN <= BM_LEAF_BITS && areConsecutive(cur);
    if (isFull) setFullRun(words, position);
    const uint64_t* stop =
        isFull ? cur + FULL_RUN : gatherSome(cur, cur + std::min(FULL_RUN, end - cur), base, least, words);
    cur = stop;
    least = cur[-1] - base + 1;
  }
  return cur;
}
