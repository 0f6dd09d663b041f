// The synthetic workloads.
#include <algorithm>
#include <cmath>

#include "random.h"
#include "reposdisk.h"
#include "workload.h"

namespace {

using Numbers = std::vector<uint64_t>;

constexpr double meanRun = 50;
constexpr double meanGap = 2000;

// `count` different values below `end`.
Numbers uniform(Random& random, uint64_t count, uint64_t end) {
  Numbers numbers;
  while (numbers.size() < count) {
    while (numbers.size() < count) numbers.push_back(random.below(end));
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  }
  return numbers;
}

// A length of at least 1, geometrically distributed around `mean`.
uint64_t geometric(Random& random, double mean) {
  return 1 + static_cast<uint64_t>(std::log1p(-random.unit()) / std::log1p(-1 / mean));
}

// `count` values in runs, with gaps between them.
Numbers runs(Random& random, uint64_t count) {
  Numbers numbers;
  numbers.reserve(count);
  for (uint64_t next = geometric(random, meanGap); numbers.size() < count; next += geometric(random, meanGap)) {
    const uint64_t length = std::min(geometric(random, meanRun), count - numbers.size());
    for (uint64_t i = 0; i < length; ++i) numbers.push_back(next++);
  }
  return numbers;
}

// Each value below `end` with the given probability.
Numbers each(Random& random, uint64_t end, double probability) {
  Numbers numbers;
  numbers.reserve(static_cast<uint64_t>(static_cast<double>(end) * probability * 1.01) + 100);
  for (uint64_t number = 0; number < end; ++number) {
    if (random.unit() < probability) numbers.push_back(number);
  }
  return numbers;
}

Numbers makeA(const Scale& scale, Random random) { return uniform(random, 10'000'000 / scale.divisor, BM_END_BIT); }
Numbers makeB(const Scale& scale, Random random) { return runs(random, 10'000'000 / scale.divisor); }
Numbers makeC(const Scale& scale, Random random) { return each(random, 50'000'000 / scale.divisor, 0.3); }
Numbers makeD(const Scale& scale, Random random) { return each(random, 100'000'000 / scale.divisor, 0.99); }

using MakeNumbers = Numbers (*)(const Scale&, Random);

// Two sets of the same make; the first one is the subject of operations on one set.
WorkloadSource alike(const char* id, const char* title, MakeNumbers make, const Scale& scale, uint64_t seed) {
  return {id, title, true, [=] {
            return Workload{{make(scale, Random(seed)), make(scale, Random(seed + 1))}, {0}, {{0, 1}}};
          }};
}

WorkloadSource mixed(const char* id, const char* title, MakeNumbers first, MakeNumbers second, const Scale& scale,
                     uint64_t seed) {
  return {id, title, false, [=] {
            return Workload{{first(scale, Random(seed)), second(scale, Random(seed + 1))}, {}, {{0, 1}}};
          }};
}

}  // namespace

std::vector<WorkloadSource> syntheticWorkloads(const Scale& scale, uint64_t seed) {
  return {
      alike("A", "10 million uniform values below 2^40", makeA, scale, seed),
      alike("B", "10 million values in runs (mean 50, gaps mean 2,000)", makeB, scale, seed),
      alike("C", "each value below 50 million with probability 0.3", makeC, scale, seed),
      alike("D", "0 to 100 million with 1 % random holes", makeD, scale, seed),
      mixed("A-D", "A with D", makeA, makeD, scale, seed),
      mixed("B-C", "B with C", makeB, makeC, scale, seed),
      {"R", "a run of 100 million consecutive numbers", false, [] { return Workload{}; }},
  };
}

uint64_t runLength(const Scale& scale) { return 100'000'000 / scale.divisor; }
