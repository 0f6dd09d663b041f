#include "support/bitpatterns.h"

#include <algorithm>
#include <random>
#include <unordered_set>

namespace {

constexpr unsigned long clusters = 1000;

Bits differentBits(std::mt19937_64& random, unsigned long count, unsigned long first, unsigned long range) {
  Bits bits;
  std::unordered_set<unsigned long> seen;
  while (bits.size() < count) {
    const unsigned long bit = first + random() % range;
    if (seen.insert(bit).second) bits.push_back(bit);
  }
  return bits;
}

Bits clusteredBits(std::mt19937_64& random, unsigned long count) {
  const unsigned long inEach = count / clusters;
  Bits bits;
  for (unsigned long i = 0; i < clusters; ++i) {
    const Bits cluster = differentBits(random, inEach, BM_END_BIT / clusters * i, 4 * inEach);
    bits.insert(bits.end(), cluster.begin(), cluster.end());
  }
  return bits;
}

Bits evenBits(unsigned long count, unsigned long step) {
  Bits bits(count);
  for (unsigned long i = 0; i < count; ++i) bits[i] = i * step;
  return bits;
}

}  // namespace

Bits bitsInOrder(Order order, unsigned long count) {
  std::mt19937_64 random(count);
  switch (order) {
    case Order::ascending: return evenBits(count, 97);
    case Order::random: return differentBits(random, count, 0, BM_END_BIT);
    case Order::clustered: return clusteredBits(random, count);
    case Order::dense: return evenBits(count, 1);
    case Order::descending: break;
  }
  Bits bits = evenBits(count, 97);
  std::reverse(bits.begin(), bits.end());
  return bits;
}

void shuffle(Bits::iterator first, Bits::iterator end) {
  std::mt19937_64 random(static_cast<unsigned long>(end - first));
  std::shuffle(first, end, random);
}

double bytesOf(BenchHost& host, BenchTree& tree) {
  return static_cast<double>(BmCountPagesInTree(&host, tree.root()) * BM_PAGE_SIZE);
}

void reportPerBit(benchmark::State& state, unsigned long bitsPerRound) {
  const auto rounds = static_cast<double>(state.iterations());
  state.counters["s/bit"] = benchmark::Counter(static_cast<double>(bitsPerRound) * rounds,
                                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
