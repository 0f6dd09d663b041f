#include "words/gatherwords.h"

#include <algorithm>

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

}  // namespace

const uint64_t* gatherWords(const uint64_t* cur, const uint64_t* end, unsigned long base, uint64_t* words) {
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
