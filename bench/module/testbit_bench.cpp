// BmTestBit on trees of every level and both kinds of leaf, on the heap and in the page cache, for bits that are set
// and bits that are not. Trees are built outside the clock, every answer counts, and the time is that of one test. A
// tree of level 2 takes 40 MB and more, so its times are those of cache misses.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <map>
#include <random>
#include <tuple>

#include "support/benchhost.h"
#include "tree/pageaccess.h"
#include "tree/path.h"

namespace {

using Bits = std::vector<unsigned long>;

constexpr size_t probeCount = 1 << 16;

struct Shape {
  BmTreeKindEType kind;
  int level;
  bool dense;
  friend bool operator<(const Shape& a, const Shape& b) {
    return std::tie(a.kind, a.level, a.dense) < std::tie(b.kind, b.level, b.dense);
  }
};

// All bits are even, so every odd number is a miss in the leaf that owns it.
Bits bitsFor(const Shape& shape, std::mt19937_64& random) {
  const unsigned long leaves[] = {1, 600, 3000};
  const unsigned long leafBits = shape.dense ? 8000 : shape.level == 0 ? 2043 : 1000;
  const unsigned long range = shape.dense ? leaves[shape.level] * BM_LEAF_BITS : BM_END_BIT;
  Bits bits(leaves[shape.level] * leafBits);
  for (unsigned long& bit : bits) bit = random() % range & ~1UL;
  std::sort(bits.begin(), bits.end());
  bits.erase(std::unique(bits.begin(), bits.end()), bits.end());
  return bits;
}

class ProbedTree {
 public:
  explicit ProbedTree(const Shape& shape) : tree_(host_, shape.kind) {
    std::mt19937_64 random(20240731);
    const Bits bits = bitsFor(shape, random);
    shape.level == 0 && shape.dense ? setInDenseRoot(bits) : tree_.set(bits);
    for (size_t i = 0; i < probeCount; ++i) hits_.push_back(bits[random() % bits.size()]);
    for (const unsigned long bit : hits_) misses_.push_back(bit + 1);
  }

  PageCacheSType* host() { return &host_; }
  const RepTreeRootSType* root() { return tree_.root(); }
  const Bits& probes(bool hit) const { return hit ? hits_ : misses_; }
  bool hasShape(const Shape& shape) {
    if (root()->level != shape.level) return false;
    BmPathSType path{};
    return findLeftLeaf(&host_, root(), &path) != 0 &&
           (TreeAccess(&host_, *root()).leaf(path.levels[0].pageId)->pageKind == REP_BM_LEAF_PAGE) == shape.dense;
  }

 private:
  // No write makes a dense root, so the page is made here.
  void setInDenseRoot(const Bits& bits) {
    tree_.root()->root = TreeAccess(&host_, *root()).refOf(newKeptDensePage(&host_, tree_.root()));
    for (const unsigned long bit : bits) BmSetBit(&host_, tree_.root(), bit);
  }

  BenchHost host_;
  BenchTree tree_;
  Bits hits_;
  Bits misses_;
};

// Each tree is built once for all runs.
ProbedTree& treeOf(const Shape& shape) {
  static std::map<Shape, ProbedTree> trees;
  return trees.try_emplace(shape, shape).first->second;
}

Shape shapeOf(const benchmark::State& state) {
  return {static_cast<BmTreeKindEType>(state.range(0)), static_cast<int>(state.range(1)), state.range(2) != 0};
}

// Runs `testAll`, which answers how many of the probes are set, until the time is up.
template <class TestAll>
void run(benchmark::State& state, TestAll testAll) {
  const Shape shape = shapeOf(state);
  const bool hit = state.range(3) != 0;
  ProbedTree& tree = treeOf(shape);
  if (!tree.hasShape(shape)) state.SkipWithError("the tree has another shape");
  const Bits& probes = tree.probes(hit);
  for ([[maybe_unused]] auto _ : state) {
    if (testAll(tree, probes) != (hit ? probeCount : 0)) state.SkipWithError("wrong answers");
  }
  state.counters["s/test"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(probeCount),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void testBitByBit(benchmark::State& state) {
  run(state, [](ProbedTree& tree, const Bits& probes) {
    size_t set = 0;
    for (const unsigned long bit : probes) set += static_cast<size_t>(BmTestBit(tree.host(), tree.root(), bit));
    return set;
  });
}

void testInBatches(benchmark::State& state) {
  run(state, [](ProbedTree& tree, const Bits& probes) {
    static uint64_t answers[probeCount / 64];
    BmTestBits(tree.host(), tree.root(), probes.data(), probes.size(), answers);
    size_t set = 0;
    for (const uint64_t word : answers) set += static_cast<size_t>(std::popcount(word));
    return set;
  });
}

void everyShape(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"kind", "level", "dense", "hit"});
  bench->ArgsProduct({{BM_HEAP_TREE, BM_PAGE_TREE}, {0, 1, 2}, {0, 1}, {0, 1}});
  bench->Unit(benchmark::kMillisecond);
}
BENCHMARK(testBitByBit)->Apply(everyShape);
BENCHMARK(testInBatches)->Apply(everyShape);

}  // namespace
