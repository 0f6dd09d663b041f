#include "words/widesort.h"

#include <algorithm>
#include <array>

#include "words/processor.h"

#if BM_WIDE_VECTORS

#include <immintrin.h>

#define WITH_AVX512 [[gnu::target("avx512f,popcnt,bmi,bmi2")]]

namespace {

constexpr long LANES = 8;
constexpr __mmask8 ALL_LANES = 0xFF;  // g++ 12 takes the forms without a mask for uses of an undefined register
constexpr long SMALL_PART = 16;       // elements that are sorted by counting
constexpr long LARGE_PART = 64;       // elements from which on four vectors are partitioned in a row
constexpr long SAMPLED_PART = 512;    // elements from which on the pivot is chosen among samples
constexpr long SAMPLES = 15;
constexpr int STACK_PARTS = 64;  // the smaller part goes first, so the depth is a logarithm

struct Part {
  uint64_t* first;
  uint64_t* end;

  long size() const { return end - first; }
};

struct Halves {
  Part below, above;
};

constexpr __mmask8 lowLanes(long count) { return static_cast<__mmask8>((1U << count) - 1); }

// Sorts up to 16 words: the place of each is the number of words below it, and of equal ones before it.
WITH_AVX512 void sortSmall(uint64_t* first, long count) {
  const __mmask8 low = lowLanes(std::min(count, LANES));
  const __mmask8 high = lowLanes(std::max(count - LANES, 0L));
  const __m512i a = _mm512_maskz_loadu_epi64(low, first);
  const __m512i b = _mm512_maskz_loadu_epi64(high, first + LANES);
  alignas(64) uint64_t words[SMALL_PART];
  _mm512_store_si512(words, a);
  _mm512_store_si512(words + LANES, b);
  for (long i = 0; i < count; ++i) {
    const __m512i word = _mm512_set1_epi64(static_cast<long long>(words[i]));
    const unsigned below = _mm512_mask_cmplt_epu64_mask(low, a, word) |
                           static_cast<unsigned>(_mm512_mask_cmplt_epu64_mask(high, b, word)) << LANES;
    const unsigned equal = _mm512_mask_cmpeq_epu64_mask(low, a, word) |
                           static_cast<unsigned>(_mm512_mask_cmpeq_epu64_mask(high, b, word)) << LANES;
    first[_mm_popcnt_u32(below | (equal & ((1U << i) - 1)))] = words[i];
  }
}

// For each set of lanes the order that puts them in front of the others, a byte for each lane.
constexpr std::array<uint64_t, 256> lanesInFront() {
  std::array<uint64_t, 256> orders{};
  for (uint64_t lanes = 0; lanes < orders.size(); ++lanes) {
    int next = 0;
    for (const bool chosen : {true, false}) {
      for (uint64_t lane = 0; lane < LANES; ++lane) {
        if (((lanes >> lane & 1) != 0) == chosen) orders[lanes] |= lane << (8 * next++);
      }
    }
  }
  return orders;
}

constexpr std::array<uint64_t, 256> LANES_IN_FRONT = lanesInFront();

// Where the two ends of a part have been written and read. The slots between what is written and what is read are
// free; there are always as many as words are held in registers.
struct Ends {
  uint64_t* writtenBelow;
  uint64_t* readBelow;
  uint64_t* readAbove;
  uint64_t* writtenAbove;

  long left() const { return readAbove - readBelow; }

  // The next `count` words of the end that has less room, so that it gets more.
  const uint64_t* take(long count) {
    if (readBelow - writtenBelow <= writtenAbove - readAbove) {
      readBelow += count;
      return readBelow - count;
    }
    readAbove -= count;
    return readAbove;
  }
};

// Writes `words` to the end that each belongs to. Both ends are written whole, what does not belong there to free
// slots: each has room for a vector, or they share the only one left and write the same.
WITH_AVX512 inline void deal(Ends& ends, __m512i words, __m512i pivot) {
  const __mmask8 below = _mm512_cmplt_epu64_mask(words, pivot);
  const __m128i order = _mm_cvtsi64_si128(static_cast<long long>(LANES_IN_FRONT[below]));
  const __m512i ordered =
      _mm512_maskz_permutexvar_epi64(ALL_LANES, _mm512_maskz_cvtepu8_epi64(ALL_LANES, order), words);
  const long belowCount = _mm_popcnt_u32(below);
  _mm512_storeu_si512(ends.writtenBelow, ordered);
  _mm512_storeu_si512(ends.writtenAbove - LANES, ordered);
  ends.writtenBelow += belowCount;
  ends.writtenAbove -= LANES - belowCount;
}

// The same for the first `count` lanes, less than all.
WITH_AVX512 inline void dealSome(Ends& ends, __m512i words, __m512i pivot, long count) {
  const __mmask8 lanes = lowLanes(count);
  const __mmask8 below = _mm512_mask_cmplt_epu64_mask(lanes, words, pivot);
  const auto above = static_cast<__mmask8>(lanes & ~below);
  const long belowCount = _mm_popcnt_u32(below);
  const long aboveCount = count - belowCount;
  _mm512_mask_storeu_epi64(ends.writtenBelow, lowLanes(belowCount), _mm512_maskz_compress_epi64(below, words));
  ends.writtenBelow += belowCount;
  ends.writtenAbove -= aboveCount;
  _mm512_mask_storeu_epi64(ends.writtenAbove, lowLanes(aboveCount), _mm512_maskz_compress_epi64(above, words));
}

// Moves the words below `pivot` before the others, `VECTORS` vectors between two choices of the end to read from. A
// part has at least 2 * VECTORS vectors.
template <int VECTORS>
WITH_AVX512 Halves splitByVectors(const Part& part, uint64_t pivotWord) {
  constexpr long BLOCK = VECTORS * LANES;
  const __m512i pivot = _mm512_set1_epi64(static_cast<long long>(pivotWord));
  __m512i held[2 * VECTORS];
  for (int i = 0; i < VECTORS; ++i) {
    held[i] = _mm512_loadu_si512(part.first + i * LANES);
    held[VECTORS + i] = _mm512_loadu_si512(part.end - BLOCK + i * LANES);
  }
  Ends ends{part.first, part.first + BLOCK, part.end - BLOCK, part.end};
  while (ends.left() >= BLOCK) {
    const uint64_t* from = ends.take(BLOCK);
    __m512i words[VECTORS];
    for (int i = 0; i < VECTORS; ++i) words[i] = _mm512_loadu_si512(from + i * LANES);
    for (int i = 0; i < VECTORS; ++i) deal(ends, words[i], pivot);
  }
  while (ends.left() >= LANES) deal(ends, _mm512_loadu_si512(ends.take(LANES)), pivot);
  const long rest = ends.left();
  dealSome(ends, _mm512_maskz_loadu_epi64(lowLanes(rest), ends.readBelow), pivot, rest);
  for (const __m512i words : held) deal(ends, words, pivot);
  return {{part.first, ends.writtenBelow}, {ends.writtenBelow, part.end}};
}

WITH_AVX512 Halves splitAround(const Part& part, uint64_t pivot) {
  return part.size() >= LARGE_PART ? splitByVectors<4>(part, pivot) : splitByVectors<1>(part, pivot);
}

// A word near the middle of a large part, the middle one of evenly spread samples, or that in the middle of a small
// one.
uint64_t choosePivot(const Part& part) {
  if (part.size() < SAMPLED_PART) return part.first[part.size() / 2];
  uint64_t samples[SAMPLES];
  for (long i = 0; i < SAMPLES; ++i) samples[i] = part.first[part.size() / SAMPLES * i];
  sortSmall(samples, SAMPLES);
  return samples[SAMPLES / 2];
}

// Splits a part; the two halves hold what is still to be sorted. Words equal to the pivot are done with when nothing
// lies below them, so repeats cost no more than one further pass.
Halves split(const Part& part) {
  const uint64_t pivot = choosePivot(part);
  const Halves halves = splitAround(part, pivot);
  if (halves.below.size() > 0) return halves;
  if (pivot == ~uint64_t{0}) return {{part.end, part.end}, {part.end, part.end}};
  return {{part.first, part.first}, splitAround(part, pivot + 1).above};
}

}  // namespace

bool canSortWide() { return processorHasAvx512(); }

void sortWide(uint64_t* first, uint64_t* last) {
  Part waiting[STACK_PARTS];
  int depth = 0;
  Part part{first, last + 1};
  for (;;) {
    while (part.size() > SMALL_PART) {
      const Halves halves = split(part);
      const bool belowIsSmaller = halves.below.size() <= halves.above.size();
      waiting[depth++] = belowIsSmaller ? halves.above : halves.below;
      part = belowIsSmaller ? halves.below : halves.above;
    }
    if (part.size() > 1) sortSmall(part.first, part.size());
    if (depth == 0) return;
    part = waiting[--depth];
  }
}

#else

bool canSortWide() { return false; }

void sortWide(uint64_t* first, uint64_t* last) { std::sort(first, last + 1); }

#endif
