// Setting and clearing bits one by one, in the orders that trees meet. "s/bit" is the time for one bit, shown with
// its prefix (90n is 90 ns); "bytes/bit" is the memory of the finished tree, pages whole.
#include <benchmark/benchmark.h>

#include "support/bitpatterns.h"

namespace {

constexpr unsigned long bitCount = 1000000;

constexpr Order orders[] = {Order::ascending, Order::descending, Order::random, Order::clustered};

const Bits& bitsOf(const benchmark::State& state) {
  static const std::vector<Bits> all = [] {
    std::vector<Bits> made;
    for (const Order order : orders) made.push_back(bitsInOrder(order, bitCount));
    return made;
  }();
  return all[static_cast<size_t>(state.range(0))];
}

unsigned long setAll(BenchHost& host, BenchTree& tree, const Bits& bits) {
  unsigned long added = 0;
  for (const unsigned long bit : bits) added += BmSetBit(&host, tree.root(), bit) == 0 ? 1 : 0;
  return added;
}

void setBits(benchmark::State& state) {
  BenchHost host;
  const Bits& bits = bitsOf(state);
  double bytes = 0;
  for ([[maybe_unused]] auto _ : state) {
    BenchTree tree(host, static_cast<BmTreeKindEType>(state.range(1)));
    if (setAll(host, tree, bits) != bits.size()) state.SkipWithError("wrong number of bits");
    state.PauseTiming();
    bytes = bytesOf(host, tree);
    tree.clear();
    state.ResumeTiming();
  }
  reportPerBit(state, bits.size());
  state.counters["bytes/bit"] = bytes / static_cast<double>(bits.size());
}

// Bits that are set already.
void setBitsAgain(benchmark::State& state) {
  BenchHost host;
  const Bits& bits = bitsOf(state);
  BenchTree tree(host, static_cast<BmTreeKindEType>(state.range(1)));
  setAll(host, tree, bits);
  for ([[maybe_unused]] auto _ : state) {
    if (setAll(host, tree, bits) != 0) state.SkipWithError("a bit was lost");
  }
  reportPerBit(state, bits.size());
}

// All bits, in the order in which they were set.
void clearBits(benchmark::State& state) {
  BenchHost host;
  const Bits& bits = bitsOf(state);
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    BenchTree tree(host, static_cast<BmTreeKindEType>(state.range(1)));
    setAll(host, tree, bits);
    state.ResumeTiming();
    unsigned long cleared = 0;
    for (const unsigned long bit : bits) cleared += static_cast<unsigned long>(BmClearBit(&host, tree.root(), bit));
    if (cleared != bits.size() || tree.root()->root != 0) state.SkipWithError("wrong number of bits");
  }
  reportPerBit(state, bits.size());
}

void ordersAndKinds(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"order", "kind"});
  for (const int kind : {BM_HEAP_TREE, BM_PAGE_TREE, BM_CAREFUL_TREE}) {
    for (size_t order = 0; order < std::size(orders); ++order) bench->Args({static_cast<long>(order), kind});
  }
  bench->Unit(benchmark::kMillisecond);
}
BENCHMARK(setBits)->Apply(ordersAndKinds);
BENCHMARK(setBitsAgain)->Apply(ordersAndKinds);
BENCHMARK(clearBits)->Apply(ordersAndKinds);

}  // namespace
