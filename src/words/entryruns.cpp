#include "words/entryruns.h"

#include "words/processor.h"

#if BM_WIDE_VECTORS

#include <immintrin.h>

#define WITH_AVX512 [[gnu::target("avx512f,popcnt")]]

namespace {

constexpr long LANES = 8;

// Eight words of either run in hand. The run whose last word is the lower one moves on, both if they are equal.
struct Blocks {
  const uint64_t* a;
  const uint64_t* b;

  static bool fit(const EntryRuns& runs) { return runs.aEnd - runs.a >= LANES && runs.bEnd - runs.b >= LANES; }
  bool aIsDone() const { return a[LANES - 1] <= b[LANES - 1]; }
  bool bIsDone() const { return b[LANES - 1] <= a[LANES - 1]; }
};

// The lanes of `a` that are among the eight words at `b`.
WITH_AVX512 inline __mmask8 lanesAmong(__m512i a, const uint64_t* b) {
  __mmask8 found = 0;
  for (int i = 0; i < LANES; ++i) {
    found |= _mm512_cmpeq_epi64_mask(a, _mm512_set1_epi64(static_cast<long long>(b[i])));
  }
  return found;
}

// Writes the chosen lanes of `words`, and nothing behind them. Returns one past the last.
WITH_AVX512 inline uint64_t* writeLanes(__m512i words, unsigned lanes, uint64_t* out) {
  const auto count = static_cast<unsigned>(_mm_popcnt_u32(lanes));
  _mm512_mask_storeu_epi64(out, static_cast<__mmask8>((1U << count) - 1),
                           _mm512_maskz_compress_epi64(static_cast<__mmask8>(lanes), words));
  return out + count;
}

WITH_AVX512 uint64_t* shareBlocks(EntryRuns& runs, uint64_t* out) {
  while (Blocks::fit(runs)) {
    const Blocks blocks{runs.a, runs.b};
    const __m512i words = _mm512_loadu_si512(blocks.a);
    out = writeLanes(words, lanesAmong(words, blocks.b), out);
    runs.a += blocks.aIsDone() ? LANES : 0;
    runs.b += blocks.bIsDone() ? LANES : 0;
  }
  return out;
}

// Moves the runs on until the blocks in hand share a word, or one has none left.
WITH_AVX512 void skipBlocks(EntryRuns& runs) {
  while (Blocks::fit(runs)) {
    const Blocks blocks{runs.a, runs.b};
    if (lanesAmong(_mm512_loadu_si512(blocks.a), blocks.b) != 0) return;
    runs.a += blocks.aIsDone() ? LANES : 0;
    runs.b += blocks.bIsDone() ? LANES : 0;
  }
}

// Returns the lanes of the block of `a` in hand that earlier blocks of `b` have.
WITH_AVX512 unsigned subtractBlocks(EntryRuns& runs, uint64_t** out, const uint64_t* outEnd) {
  unsigned found = 0;
  while (Blocks::fit(runs) && outEnd - *out >= LANES) {
    const Blocks blocks{runs.a, runs.b};
    const __m512i words = _mm512_loadu_si512(blocks.a);
    const bool aIsDone = blocks.aIsDone();
    const bool bIsDone = blocks.bIsDone();
    found |= lanesAmong(words, blocks.b);
    *out = writeLanes(words, aIsDone ? ~found & 0xFF : 0, *out);
    found = aIsDone ? 0 : found;
    runs.a += aIsDone ? LANES : 0;
    runs.b += bIsDone ? LANES : 0;
  }
  return found;
}

// Deals with the block of `a` in hand of which the lanes `found` are known to be in `b`.
uint64_t* finishBlock(EntryRuns& runs, unsigned found, uint64_t* out, const uint64_t* outEnd) {
  for (; found != 0 && out != outEnd; found >>= 1) {
    const uint64_t word = *runs.a;
    while (runs.b != runs.bEnd && *runs.b < word) ++runs.b;
    const bool isInB = (found & 1) != 0 || (runs.b != runs.bEnd && *runs.b == word);
    if (!isInB) *out++ = word;
    ++runs.a;
  }
  return out;
}

}  // namespace

uint64_t* shareEntries(EntryRuns& runs, uint64_t* out) {
  if (processorHasAvx512()) out = shareBlocks(runs, out);
  return shareEntriesPlain(runs, out);
}

bool skipToShared(EntryRuns& runs) {
  if (processorHasAvx512()) skipBlocks(runs);
  return skipToSharedPlain(runs);
}

uint64_t* subtractEntries(EntryRuns& runs, uint64_t* out, uint64_t* outEnd) {
  if (processorHasAvx512()) {
    const unsigned found = subtractBlocks(runs, &out, outEnd);
    out = finishBlock(runs, found, out, outEnd);
  }
  return subtractEntriesPlain(runs, out, outEnd);
}

#else

uint64_t* shareEntries(EntryRuns& runs, uint64_t* out) { return shareEntriesPlain(runs, out); }
bool skipToShared(EntryRuns& runs) { return skipToSharedPlain(runs); }
uint64_t* subtractEntries(EntryRuns& runs, uint64_t* out, uint64_t* outEnd) {
  return subtractEntriesPlain(runs, out, outEnd);
}

#endif

// In each of these every step writes, and moves on what is to be moved on, so that nothing is guessed.

uint64_t* shareEntriesPlain(EntryRuns& runs, uint64_t* out) {
  const uint64_t* a = runs.a;
  const uint64_t* b = runs.b;
  while (a != runs.aEnd && b != runs.bEnd) {
    const uint64_t ofA = *a;
    const uint64_t ofB = *b;
    *out = ofA;
    out += ofA == ofB;
    a += ofA <= ofB;
    b += ofB <= ofA;
  }
  runs.a = a;
  runs.b = b;
  return out;
}

bool skipToSharedPlain(EntryRuns& runs) {
  const uint64_t* a = runs.a;
  const uint64_t* b = runs.b;
  while (a != runs.aEnd && b != runs.bEnd && *a != *b) {
    const bool aIsLower = *a < *b;
    a += aIsLower;
    b += !aIsLower;
  }
  runs.a = a;
  runs.b = b;
  return runs.bothLeft();
}

uint64_t* subtractEntriesPlain(EntryRuns& runs, uint64_t* out, uint64_t* outEnd) {
  const uint64_t* a = runs.a;
  const uint64_t* b = runs.b;
  while (a != runs.aEnd && b != runs.bEnd && out != outEnd) {
    const uint64_t ofA = *a;
    const uint64_t ofB = *b;
    *out = ofA;
    out += ofA < ofB;
    a += ofA <= ofB;
    b += ofB <= ofA;
  }
  runs.a = a;
  runs.b = b;
  return out;
}
