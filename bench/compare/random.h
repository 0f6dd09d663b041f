// A small fast generator of random words (splitmix64): all inputs come from it and one seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t word = state_ += 0x9E3779B97F4A7C15;
    word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
    word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
    return word ^ (word >> 31);
  }

  // Below `end`, which is not 0; the bias is below end / 2^64.
  uint64_t below(uint64_t end) { return static_cast<uint64_t>(Wide{next()} * end >> 64); }

  // In [0, 1).
  double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

  void shuffle(std::span<uint64_t> words) {
    for (size_t i = words.size(); i > 1; --i) std::swap(words[i - 1], words[below(i)]);
  }

 private:
  __extension__ typedef unsigned __int128 Wide;

  uint64_t state_;
};
