// Extraction, counting, the search for clear bits and bulk clear. Trees are built outside the clock and every answer
// is checked. "s/bit" is the time for one bit, shown with its prefix (1.5n is 1.5 ns); bytes are those of the
// array that the bits come out in.
#include <benchmark/benchmark.h>

#include <numeric>

#include "bulk/bulkclear.h"
#include "support/benchhost.h"

namespace {

using Bits = std::vector<unsigned long>;

constexpr unsigned long chunkBits = 4096;

// `count` bits, `step` apart. Up to 63 apart they fill dense leaves, from 64 on lists.
Bits evenBits(unsigned long count, unsigned long step) {
  Bits bits(count);
  for (unsigned long i = 0; i < count; ++i) bits[i] = i * step;
  return bits;
}

void reportBits(benchmark::State& state, unsigned long bitsPerRound, unsigned long bitsSeen) {
  const auto rounds = static_cast<unsigned long>(state.iterations());
  if (bitsSeen != bitsPerRound * rounds) state.SkipWithError("wrong number of bits");
  state.counters["s/bit"] = benchmark::Counter(static_cast<double>(bitsPerRound * rounds),
                                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.SetBytesProcessed(static_cast<int64_t>(bitsSeen * sizeof(unsigned long)));
}

// Arguments: distance of the bits, kind of the tree.
void extractDestructively(benchmark::State& state) {
  BenchHost host;
  const Bits bits = evenBits(1000000, static_cast<unsigned long>(state.range(0)));
  Bits out(chunkBits);
  unsigned long seen = 0;
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    BenchTree tree(host, static_cast<BmTreeKindEType>(state.range(1)));
    tree.set(bits);
    BmPathSType path{};
    state.ResumeTiming();
    while (const unsigned long got = BmFindSetBits_(&host, chunkBits, tree.root(), &path, out.data())) seen += got;
  }
  reportBits(state, bits.size(), seen);
}

void extractNonDestructively(benchmark::State& state) {
  BenchHost host;
  const Bits bits = evenBits(1000000, static_cast<unsigned long>(state.range(0)));
  BenchTree tree(host, static_cast<BmTreeKindEType>(state.range(1)));
  tree.set(bits);
  Bits out(chunkBits);
  unsigned long seen = 0;
  for ([[maybe_unused]] auto _ : state) {
    BmPathSType path{};
    while (const unsigned long got = BmFindSetBitsNonDestructive_(&host, chunkBits, tree.root(), &path, out.data())) {
      seen += got;
    }
    benchmark::ClobberMemory();
  }
  reportBits(state, bits.size(), seen);
}

void distancesAndKinds(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"step", "kind"});
  for (const int kind : {BM_HEAP_TREE, BM_PAGE_TREE}) {
    for (const int step : {1, 8, 60, 64}) bench->Args({step, kind});
  }
  bench->Unit(benchmark::kMillisecond);
}
BENCHMARK(extractDestructively)->Apply(distancesAndKinds);
BENCHMARK(extractNonDestructively)->Apply(distancesAndKinds);

// A dense tree of 100 million numbers, of which one in 100,003 is clear.
class NearlyFullTree {
 public:
  static constexpr unsigned long size = 100000000;
  static constexpr unsigned long hole = 100003;

  explicit NearlyFullTree(BenchHost& host) : tree(host, BM_HEAP_TREE) {
    Bits run(1000000);
    for (unsigned long first = 0; first < size; first += run.size()) {
      std::iota(run.begin(), run.end(), first);
      tree.set(run);
    }
    for (unsigned long bit = hole; bit < size; bit += hole) BmClearBit(&host, tree.root(), bit);
  }

  BenchTree tree;
  unsigned long holes = (size - 1) / hole;
};

void countAllBits(benchmark::State& state) {
  BenchHost host;
  NearlyFullTree full(host);
  for ([[maybe_unused]] auto _ : state) {
    const unsigned long count = BmFindNumBitsSet_(&host, full.tree.root());
    if (count != NearlyFullTree::size - full.holes) state.SkipWithError("wrong count");
  }
  state.counters["leaves"] = BmLevel1NumLeaves(&host, full.tree.root());
}
BENCHMARK(countAllBits)->Unit(benchmark::kMicrosecond);

void findHighWaterMark(benchmark::State& state) {
  BenchHost host;
  NearlyFullTree full(host);
  for ([[maybe_unused]] auto _ : state) {
    if (BmFindHighWaterMark_(&host, full.tree.root()) != NearlyFullTree::size - 1) state.SkipWithError("wrong bit");
  }
}
BENCHMARK(findHighWaterMark);

void findClearBitsInNearlyFullTree(benchmark::State& state) {
  BenchHost host;
  NearlyFullTree full(host);
  Bits out(full.holes);
  for ([[maybe_unused]] auto _ : state) {
    BmFindClearPathSType at{};
    at.limitBit = NearlyFullTree::size - 1;
    const unsigned long got = BmFindClearBits_(&host, out.size(), full.tree.root(), &at, out.data());
    if (got != full.holes || out.back() != full.holes * NearlyFullTree::hole) state.SkipWithError("wrong bits");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (NearlyFullTree::size / 8));
  state.counters["s/found"] = benchmark::Counter(
      static_cast<double>(full.holes), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(findClearBitsInNearlyFullTree)->Unit(benchmark::kMicrosecond);

// One of the three ways of clearing a list, chosen by the two sizes: entries of the list, bits of the array.
void clearInLists(benchmark::State& state) {
  const auto entries = static_cast<unsigned long>(state.range(0));
  const auto bits = static_cast<unsigned long>(state.range(1));
  const unsigned long range = 8UL * 2043;
  RepBitListContentsSType full{};
  full.count = static_cast<int32_t>(entries);
  for (unsigned long i = 0; i < entries; ++i) full.entries[i] = i * range / entries / 4 * 4;
  Bits array(bits);
  for (unsigned long i = 0; i < bits; ++i) array[i] = i * range / bits / 4 * 4;
  std::vector<RepBitListContentsSType> lists(64);
  int left = 0;
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    std::fill(lists.begin(), lists.end(), full);
    state.ResumeTiming();
    for (RepBitListContentsSType& list : lists) {
      const unsigned long* cursor = array.data();
      ClearBitsInBlcFromSortedArray(&list, BM_HIGHEST_BIT, &cursor, array.data() + bits);
    }
    left = lists.back().count;
  }
  const auto cleared = static_cast<double>(entries) - left;
  if (cleared <= 0) state.SkipWithError("nothing was cleared");
  state.counters["cleared"] = cleared;
  state.counters["s/list"] = benchmark::Counter(
      static_cast<double>(lists.size()), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(clearInLists)
    ->Name("clearBySearchingTheList")
    ->ArgNames({"entries", "bits"})
    ->Args({2043, 20})
    ->Args({2043, 180});
BENCHMARK(clearInLists)->Name("clearByMerging")->ArgNames({"entries", "bits"})->Args({2043, 190})->Args({2043, 2043});
BENCHMARK(clearInLists)
    ->Name("clearBySearchingTheArray")
    ->ArgNames({"entries", "bits"})
    ->Args({20, 2043})
    ->Args({180, 2043});

// A third of a tree's bits leave it by one sorted array.
void clearFromTree(benchmark::State& state) {
  BenchHost host;
  const auto step = static_cast<unsigned long>(state.range(0));
  const Bits bits = evenBits(1000000, step);
  const Bits third = evenBits(333333, 3 * step);
  unsigned long cleared = 0;
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    BenchTree tree(host, BM_HEAP_TREE);
    tree.set(bits);
    state.ResumeTiming();
    cleared += BmClearBitsFromSortedArray_(&host, tree.root(), third.data(), third.data() + third.size());
    state.PauseTiming();
    tree.clear();
    state.ResumeTiming();
  }
  reportBits(state, third.size(), cleared);
}
BENCHMARK(clearFromTree)->ArgName("step")->Arg(1)->Arg(8)->Arg(64)->Unit(benchmark::kMillisecond);

}  // namespace
