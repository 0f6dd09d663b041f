// Setting arrays of bits, sorted and not, of several sizes and densities. A tree takes arrays of the given size until
// it holds a million bits, or the one array. Arrays are made outside the clock.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "support/bitpatterns.h"

namespace {

constexpr unsigned long leastBits = 1000000;
constexpr Order densities[] = {Order::random, Order::clustered, Order::dense};

// The bits of one pattern in arrays of `size`, each between a low sentinel and a slot for the high one.
std::vector<Bits> arraysOf(Order order, unsigned long size, bool sorted) {
  const Bits bits = bitsInOrder(order, std::max(size, leastBits));
  std::vector<Bits> arrays;
  for (unsigned long at = 0; at < bits.size(); at += size) {
    const unsigned long end = std::min<unsigned long>(at + size, bits.size());
    Bits array{0};
    array.insert(array.end(), bits.begin() + static_cast<long>(at), bits.begin() + static_cast<long>(end));
    sorted ? std::sort(array.begin(), array.end()) : shuffle(array.begin() + 1, array.end());
    array.push_back(BM_HIGHEST_BIT);
    arrays.push_back(std::move(array));
  }
  return arrays;
}

template <class SetArray>
void setArrays(benchmark::State& state, bool sorted, SetArray setArray) {
  BenchHost host;
  const auto size = static_cast<unsigned long>(state.range(0));
  const std::vector<Bits> made = arraysOf(densities[state.range(1)], size, sorted);
  const unsigned long total = std::max(size, leastBits);
  double bytes = 0;
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    std::vector<Bits> arrays = made;  // an unsorted array comes back changed
    BenchTree tree(host, BM_HEAP_TREE);
    unsigned long added = 0;
    state.ResumeTiming();
    for (Bits& array : arrays) added += setArray(host, tree, array);
    state.PauseTiming();
    if (added != total) state.SkipWithError("wrong number of bits");
    bytes = bytesOf(host, tree);
    tree.clear();
    arrays.clear();
    state.ResumeTiming();
  }
  reportPerBit(state, total);
  state.counters["bytes/bit"] = bytes / static_cast<double>(total);
}

void setSorted(benchmark::State& state) {
  setArrays(state, true, [](BenchHost& host, BenchTree& tree, const Bits& array) {
    return BmSetBitsFromSortedArray_(&host, tree.root(), array.data() + 1, array.data() + array.size() - 1);
  });
}

void setUnsorted(benchmark::State& state) {
  setArrays(state, false, [](BenchHost& host, BenchTree& tree, Bits& array) {
    return BmSetBitsFromArray_(&host, tree.root(), array.data(), array.data() + array.size() - 1);
  });
}

void sizesAndDensities(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"size", "density"});
  for (const long size : {1L, 100L, 10000L, 10000000L}) {
    for (size_t density = 0; density < std::size(densities); ++density) {
      bench->Args({size, static_cast<long>(density)});
    }
  }
  bench->Unit(benchmark::kMillisecond);
}
BENCHMARK(setSorted)->Apply(sizesAndDensities);
BENCHMARK(setUnsorted)->Apply(sizesAndDensities);

// The sort by itself.
void sortArray(benchmark::State& state) {
  const auto size = static_cast<unsigned long>(state.range(0));
  const Bits made = arraysOf(Order::random, size, false).front();
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    Bits array = made;
    state.ResumeTiming();
    const unsigned long* end = BmSortArrayRemoveDups_(array.data(), array.data() + array.size() - 1);
    benchmark::DoNotOptimize(end);
  }
  reportPerBit(state, size);
}
BENCHMARK(sortArray)->ArgName("size")->Arg(100)->Arg(10000)->Arg(10000000)->Unit(benchmark::kMicrosecond);

}  // namespace
