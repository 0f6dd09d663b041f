#include "words/densewords.h"

#include "words/processor.h"

// Each loop is compiled twice, for the plain machine and for wide vectors, and chosen anew for every span: one test
// against 2043 words. (Functions resolved at load time would run before a sanitizer is ready for them.)
#if BM_WIDE_VECTORS
#define WIDE_VECTORS [[gnu::target("avx2")]]
#else
#define WIDE_VECTORS
#endif

namespace {

inline bool hasWideVectors() {
#if BM_WIDE_VECTORS
  return processorHasAvx2();
#else
  return false;
#endif
}

struct Or {
  static uint64_t result(uint64_t a, uint64_t b) { return a | b; }
  static uint64_t changed(uint64_t a, uint64_t b) { return b & ~a; }
};

struct AndNot {
  static uint64_t result(uint64_t a, uint64_t b) { return a & ~b; }
  static uint64_t changed(uint64_t a, uint64_t b) { return a & b; }
};

struct And {
  static uint64_t result(uint64_t a, uint64_t b) { return a & b; }
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

template <class Operation>
WIDE_VECTORS int changeSpanWide(uint64_t* __restrict target, const uint64_t* __restrict source) {
  return changeSpan<Operation>(target, source);
}

template <class Operation>
WIDE_VECTORS int combineSpansWide(uint64_t* __restrict out, const uint64_t* __restrict a,
                                  const uint64_t* __restrict b) {
  return combineSpans<Operation>(out, a, b);
}

}  // namespace

int orWords(uint64_t* __restrict target, const uint64_t* __restrict source) {
  return hasWideVectors() ? changeSpanWide<Or>(target, source) : changeSpan<Or>(target, source);
}

int clearWords(uint64_t* __restrict target, const uint64_t* __restrict source) {
  return hasWideVectors() ? changeSpanWide<AndNot>(target, source) : changeSpan<AndNot>(target, source);
}

int andWords(uint64_t* __restrict out, const uint64_t* __restrict a, const uint64_t* __restrict b) {
  return hasWideVectors() ? combineSpansWide<And>(out, a, b) : combineSpans<And>(out, a, b);
}

int andNotWords(uint64_t* __restrict out, const uint64_t* __restrict a, const uint64_t* __restrict b) {
  return hasWideVectors() ? combineSpansWide<AndNot>(out, a, b) : combineSpans<AndNot>(out, a, b);
}
