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
    if (count_ >= INTERPOLATED_WORDS) place = interpolate();
    return bisect(place);
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
      base += (inclusive ? word <= bound_ : word < bound_) ? half : 0;
      count -= half;
    }
    return base - words_;
  }

  // Words tend to be spread evenly, so the place is guessed first, and the guess is bracketed by steps that double.
  // That reads two or three cache lines of a long array where halving reads eight.
  [[gnu::always_inline]] Bracket interpolate() const {
    const uint64_t first = words_[0] & mask;
    const double range = static_cast<double>((words_[count_ - 1] & mask) - first);
    const double share = std::min(static_cast<double>(bound_ - first) / range, 1.0);
    long low = static_cast<long>(share * static_cast<double>(count_ - 1));
    long high = low;
    if (before(low)) {
      for (long step = 8; high < count_ - 1 && before(high); step *= 2) {
        low = high;
        high = std::min(high + step, count_ - 1);
      }
    } else {
      for (long step = 8; low > 0 && !before(low); step *= 2) {
        high = low;
        low = std::max(low - step, 0L);
      }
    }
    return {low, high};
  }

  const uint64_t* words_;
  long count_;
  uint64_t bound_;
};
