// The search of ascending words: list entries and the keys of internal pages. Inlined whole, so that a descent makes
// no call, whatever the compiler thinks of its size.
#pragma once

#include <algorithm>
#include <cstdint>

// The words from this number on are searched by interpolation.
constexpr long INTERPOLATED_WORDS = 64;

// An ascending array of words, of which the bits of `mask` count, cut into those that come before a bound and the
// others. With `inclusive` a word equal to the bound comes before it.
template <uint64_t mask, bool inclusive>
class WordSearch {
 public:
  WordSearch(const uint64_t* words, long count, uint64_t bound) : words_(words), count_(count), bound_(bound) {}

  // Index of the first word that does not come before the bound; `count` if there is none. Stays inside the array
  // whatever its order.
  [[gnu::always_inline]] long firstNotBefore() const {
    if (count_ <= 0 || !before(0)) return 0;
    if (before(count_ - 1)) return count_;
    Bracket place{0, count_ - 1};
    if (count_ >= INTERPOLATED_WORDS) {
      place = bracket(guess(words_[0] & mask, words_[count_ - 1] & mask), place);
    }
    return bisect(place);
  }

  // The same for words that are known to be spread between `from` and `to`, so that the ends of the array, a cache
  // miss each, need not be read.
  [[gnu::always_inline]] long firstNotBefore(uint64_t from, uint64_t to) const {
    Bracket place{-1, count_};
    if (count_ >= INTERPOLATED_WORDS) place = bracket(guess(from, to), place);
    return bisect(place);
  }

  // Where the bound is likely to stand among at least one word spread between `from` and `to`.
  [[gnu::always_inline]] long guess(uint64_t from, uint64_t to) const {
    const double share = static_cast<double>(bound_ - from) / static_cast<double>(to - from);
    return static_cast<long>((share < 1.0 ? share : 1.0) * static_cast<double>(count_ - 1));
  }

 private:
  // The index looked for is above `low` and not above `high`.
  struct Bracket {
    long low, high;
  };

  [[gnu::always_inline]] bool before(long index) const {
    const uint64_t word = words_[index] & mask;
    return inclusive ? word <= bound_ : word < bound_;
  }

  // Halves without a branch on what is compared.
  [[gnu::always_inline]] long bisect(Bracket place) const {
    const uint64_t* base = words_ + place.low + 1;
    for (long count = place.high - place.low; count > 1;) {
      const long half = count / 2;
      const uint64_t word = base[half - 1] & mask;
      base += half & -static_cast<long>(inclusive ? word <= bound_ : word < bound_);  // a choice may become a branch
      count -= half;
    }
    return base - words_;
  }

  // Words tend to be spread evenly, so the guess, any index of the array, is bracketed by steps that double. That
  // reads two or three cache lines of a long array where halving reads eight.
  [[gnu::always_inline]] Bracket bracket(long guess, Bracket place) const {
    if (before(guess)) {
      place.low = guess;
      for (long step = 8; place.low + step < place.high; step *= 2) {
        if (!before(place.low + step)) return {place.low, place.low + step};
        place.low += step;
      }
    } else {
      place.high = guess;
      for (long step = 8; place.high - step > place.low; step *= 2) {
        if (before(place.high - step)) return {place.high - step, place.high};
        place.high -= step;
      }
    }
    return place;
  }

  const uint64_t* words_;
  long count_;
  uint64_t bound_;
};
