#include "words/densewords.h"

#include "words/processor.h"

// Each loop is compiled for the plain machine, for wide vectors, and for wider ones that count bits by themselves. It
// is chosen anew for every span: two tests against 2043 words. (Functions resolved at load time would run before a
// sanitizer is ready for them.)
#if BM_WIDE_VECTORS
#include <immintrin.h>
#define WITH_AVX2 [[gnu::target("avx2")]]
#define WITH_AVX512 [[gnu::target("avx512f,avx512vpopcntdq")]]
#endif

namespace {

struct Or {
  static uint64_t result(uint64_t a, uint64_t b) { return a | b; }
  static uint64_t changed(uint64_t a, uint64_t b) { return b & ~a; }
#if BM_WIDE_VECTORS
  WITH_AVX512 static __m512i result(__m512i a, __m512i b) { return a | b; }
  WITH_AVX512 static __m512i changed(__m512i a, __m512i b) { return b & ~a; }
#endif
};

struct AndNot {
  static uint64_t result(uint64_t a, uint64_t b) { return a & ~b; }
  static uint64_t changed(uint64_t a, uint64_t b) { return a & b; }
#if BM_WIDE_VECTORS
  WITH_AVX512 static __m512i result(__m512i a, __m512i b) { return a & ~b; }
  WITH_AVX512 static __m512i changed(__m512i a, __m512i b) { return a & b; }
#endif
};

struct And {
  static uint64_t result(uint64_t a, uint64_t b) { return a & b; }
#if BM_WIDE_VECTORS
  WITH_AVX512 static __m512i result(__m512i a, __m512i b) { return a & b; }
#endif
};

constexpr uint64_t EVEN_BITS = 0x5555555555555555;
constexpr uint64_t EVEN_PAIRS = 0x3333333333333333;
constexpr uint64_t EVEN_NIBBLES = 0x0F0F0F0F0F0F0F0F;
constexpr uint64_t EVEN_BYTES = 0x00FF00FF00FF00FF;

// Set bits of each nibble of `word`, in that nibble.
[[gnu::always_inline]] inline uint64_t nibbleCounts(uint64_t word) {
  word -= word >> 1 & EVEN_BITS;
  return (word & EVEN_PAIRS) + (word >> 2 & EVEN_PAIRS);
}

// Set bits of three words, as counts in the four 16-bit fields of the result. A span's words add up to 2043 * 16 in a
// field at most, so such counts can be summed over a span without a carry from field to field. Three words are folded
// into one of ones and one of carries first: the steps that cost most are paid for two words instead of three.
[[gnu::always_inline]] inline uint64_t fieldCounts(uint64_t a, uint64_t b, uint64_t c) {
  const uint64_t half = a ^ b;
  const uint64_t carries = nibbleCounts((a & b) | (half & c));
  uint64_t counts = nibbleCounts(half ^ c) + carries + carries;  // at most 12 in a nibble
  counts = (counts & EVEN_NIBBLES) + (counts >> 4 & EVEN_NIBBLES);
  return (counts & EVEN_BYTES) + (counts >> 8 & EVEN_BYTES);
}

[[gnu::always_inline]] inline int sumOfFields(uint64_t counts) {
  return static_cast<int>((counts & 0xFFFF) + (counts >> 16 & 0xFFFF) + (counts >> 32 & 0xFFFF) + (counts >> 48));
}

// The words of a span are walked as three runs side by side, one word of each at a time.
constexpr int RUN_WORDS = BM_SPAN_WORDS / 3;
static_assert(RUN_WORDS * 3 == BM_SPAN_WORDS);

// target = result(target, source); returns how many bits `changed` tells.
template <class Operation>
[[gnu::always_inline]] inline int changeSpan(uint64_t* __restrict target, const uint64_t* __restrict source) {
  uint64_t counts = 0;
  for (int i = 0, j = RUN_WORDS, k = 2 * RUN_WORDS; i < RUN_WORDS; ++i, ++j, ++k) {
    counts += fieldCounts(Operation::changed(target[i], source[i]), Operation::changed(target[j], source[j]),
                          Operation::changed(target[k], source[k]));
    target[i] = Operation::result(target[i], source[i]);
    target[j] = Operation::result(target[j], source[j]);
    target[k] = Operation::result(target[k], source[k]);
  }
  return sumOfFields(counts);
}

// out = result(a, b); returns how many bits of `out` are set.
template <class Operation>
[[gnu::always_inline]] inline int combineSpans(uint64_t* __restrict out, const uint64_t* __restrict a,
                                               const uint64_t* __restrict b) {
  uint64_t counts = 0;
  for (int i = 0, j = RUN_WORDS, k = 2 * RUN_WORDS; i < RUN_WORDS; ++i, ++j, ++k) {
    out[i] = Operation::result(a[i], b[i]);
    out[j] = Operation::result(a[j], b[j]);
    out[k] = Operation::result(a[k], b[k]);
    counts += fieldCounts(out[i], out[j], out[k]);
  }
  return sumOfFields(counts);
}

#if BM_WIDE_VECTORS

template <class Operation>
WITH_AVX2 int changeSpanWide(uint64_t* __restrict target, const uint64_t* __restrict source) {
  return changeSpan<Operation>(target, source);
}

template <class Operation>
WITH_AVX2 int combineSpansWide(uint64_t* __restrict out, const uint64_t* __restrict a, const uint64_t* __restrict b) {
  return combineSpans<Operation>(out, a, b);
}

constexpr int LANES = 8;

// The words that the first vector takes. Behind them the words of a page, which begin at byte 40, are aligned.
constexpr int FIRST_LANES = BM_SPAN_WORDS % LANES;
static_assert((offsetof(RepBmLeafPageSType, words) + FIRST_LANES * sizeof(uint64_t)) % 64 == 0);
constexpr __mmask8 ALL_LANES = 0xFF;
constexpr __mmask8 FIRST_MASK = (1U << FIRST_LANES) - 1;

WITH_AVX512 inline int sumOfLanes(__m512i counts) {
  alignas(64) uint64_t lanes[LANES];
  _mm512_store_si512(lanes, counts);
  uint64_t sum = 0;
  for (const uint64_t lane : lanes) sum += lane;
  return static_cast<int>(sum);
}

// One vector of a span; returns the counts of its lanes.
template <class Operation>
WITH_AVX512 inline __m512i changeVector(uint64_t* target, const uint64_t* source, __mmask8 lanes) {
  const __m512i a = _mm512_maskz_loadu_epi64(lanes, target);
  const __m512i b = _mm512_maskz_loadu_epi64(lanes, source);
  _mm512_mask_storeu_epi64(target, lanes, Operation::result(a, b));
  return _mm512_popcnt_epi64(Operation::changed(a, b));
}

template <class Operation>
WITH_AVX512 inline __m512i combineVectors(uint64_t* out, const uint64_t* a, const uint64_t* b, __mmask8 lanes) {
  const __m512i result = Operation::result(_mm512_maskz_loadu_epi64(lanes, a), _mm512_maskz_loadu_epi64(lanes, b));
  _mm512_mask_storeu_epi64(out, lanes, result);
  return _mm512_popcnt_epi64(result);
}

template <class Operation>
WITH_AVX512 int changeSpanWider(uint64_t* target, const uint64_t* source) {
  __m512i counts = changeVector<Operation>(target, source, FIRST_MASK);
  for (int i = FIRST_LANES; i < BM_SPAN_WORDS; i += LANES) {
    counts = _mm512_add_epi64(counts, changeVector<Operation>(target + i, source + i, ALL_LANES));
  }
  return sumOfLanes(counts);
}

template <class Operation>
WITH_AVX512 int combineSpansWider(uint64_t* out, const uint64_t* a, const uint64_t* b) {
  __m512i counts = combineVectors<Operation>(out, a, b, FIRST_MASK);
  for (int i = FIRST_LANES; i < BM_SPAN_WORDS; i += LANES) {
    counts = _mm512_add_epi64(counts, combineVectors<Operation>(out + i, a + i, b + i, ALL_LANES));
  }
  return sumOfLanes(counts);
}

constexpr DenseWordLoops WIDE_LOOPS{changeSpanWide<Or>, changeSpanWide<AndNot>, combineSpansWide<And>,
                                    combineSpansWide<AndNot>};
constexpr DenseWordLoops WIDER_LOOPS{changeSpanWider<Or>, changeSpanWider<AndNot>, combineSpansWider<And>,
                                     combineSpansWider<AndNot>};

#endif

constexpr DenseWordLoops PLAIN_LOOPS{changeSpan<Or>, changeSpan<AndNot>, combineSpans<And>, combineSpans<AndNot>};

const DenseWordLoops& bestLoops() {
  const DenseWordLoops* loops = denseWordLoops(WordVectors::wider);
  if (loops == nullptr) loops = denseWordLoops(WordVectors::wide);
  return loops == nullptr ? PLAIN_LOOPS : *loops;
}

}  // namespace

const DenseWordLoops* denseWordLoops(WordVectors vectors) {
#if BM_WIDE_VECTORS
  if (vectors == WordVectors::wider) return processorHasAvx512Counts() ? &WIDER_LOOPS : nullptr;
  if (vectors == WordVectors::wide) return processorHasAvx2() ? &WIDE_LOOPS : nullptr;
#endif
  return vectors == WordVectors::none ? &PLAIN_LOOPS : nullptr;
}

int orWords(uint64_t* target, const uint64_t* source) { return bestLoops().orWords(target, source); }
int clearWords(uint64_t* target, const uint64_t* source) { return bestLoops().clearWords(target, source); }

int andWords(uint64_t* out, const uint64_t* a, const uint64_t* b) { return bestLoops().andWords(out, a, b); }
int andNotWords(uint64_t* out, const uint64_t* a, const uint64_t* b) { return bestLoops().andNotWords(out, a, b); }
