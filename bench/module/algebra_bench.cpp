// Operations between two trees, and the word loops below them. Trees are built and results are thrown away outside
// the clock, and every result is compared with that of plain set arithmetic before it is timed.
//
// "s/pair" is the time for one pair of trees, "s/bit" that for one bit of the two. Bytes of a word loop are those
// that it touches, read or written, so that they compare with those of a plain copy. The pairs of a real collection
// are its first and second set, second and third, and so on.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "support/benchhost.h"
#include "support/bitsets.h"
#include "words/densewords.h"

namespace {

// ---------------------------------------------------------------------------------------------------------
// The word loops

constexpr size_t spanBytes = sizeof(uint64_t) * BM_SPAN_WORDS;

// Pairs of spans with a third one for results, a page apart; half of the bits are set.
class Spans {
 public:
  explicit Spans(size_t pairs) : words_(pairs * 3 * strideWords) {
    uint64_t state = 1;
    for (uint64_t& word : words_) word = state = state * 6364136223846793005 + 1442695040888963407;
  }
  uint64_t* a(size_t pair) { return words_.data() + pair * 3 * strideWords; }
  uint64_t* b(size_t pair) { return a(pair) + strideWords; }
  uint64_t* out(size_t pair) { return b(pair) + strideWords; }

 private:
  static constexpr size_t strideWords = 2048;
  std::vector<uint64_t> words_;
};

// `loop` works on a, b and out; `spansTouched` of the three are read or written.
template <class Loop>
void runWordLoop(benchmark::State& state, int spansTouched, Loop loop) {
  const auto pairs = static_cast<size_t>(state.range(0));
  Spans spans(pairs);
  for ([[maybe_unused]] auto _ : state) {
    for (size_t pair = 0; pair < pairs; ++pair) {
      benchmark::DoNotOptimize(loop(spans.a(pair), spans.b(pair), spans.out(pair)));
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0) * spansTouched * static_cast<int64_t>(spanBytes));
}

void wordsCopied(benchmark::State& state) {
  runWordLoop(state, 2, [](uint64_t* a, const uint64_t* b, uint64_t*) { return std::memcpy(a, b, spanBytes); });
}
void wordsUnited(benchmark::State& state) {
  runWordLoop(state, 2, [](uint64_t* a, const uint64_t* b, uint64_t*) { return orWords(a, b); });
}
void wordsRemoved(benchmark::State& state) {
  runWordLoop(state, 2, [](uint64_t* a, const uint64_t* b, uint64_t*) { return clearWords(a, b); });
}
void wordsIntersected(benchmark::State& state) {
  runWordLoop(state, 3, [](uint64_t* a, const uint64_t* b, uint64_t* out) { return andWords(out, a, b); });
}
void wordsSubtracted(benchmark::State& state) {
  runWordLoop(state, 3, [](uint64_t* a, const uint64_t* b, uint64_t* out) { return andNotWords(out, a, b); });
}

// In the first-level cache, and far beyond every cache.
constexpr int64_t spanPairs[] = {1, 4000};
BENCHMARK(wordsCopied)->ArgName("pairs")->Arg(spanPairs[0])->Arg(spanPairs[1]);
BENCHMARK(wordsUnited)->ArgName("pairs")->Arg(spanPairs[0])->Arg(spanPairs[1]);
BENCHMARK(wordsRemoved)->ArgName("pairs")->Arg(spanPairs[0])->Arg(spanPairs[1]);
BENCHMARK(wordsIntersected)->ArgName("pairs")->Arg(spanPairs[0])->Arg(spanPairs[1]);
BENCHMARK(wordsSubtracted)->ArgName("pairs")->Arg(spanPairs[0])->Arg(spanPairs[1]);

// ---------------------------------------------------------------------------------------------------------
// Pairs of trees

Bits bitsOf(BenchHost& host, const RepTreeRootSType* root) {
  Bits bits(BmFindNumBitsSet_(&host, root));
  BmPathSType path{};
  if (!bits.empty()) BmFindSetBitsNonDestructive_(&host, static_cast<long>(bits.size()), root, &path, bits.data());
  return bits;
}

// The sets of a collection as heap trees.
struct Trees {
  BenchHost host;
  Sets sets;
  std::vector<std::unique_ptr<BenchTree>> trees;

  explicit Trees(Sets bits) : sets(std::move(bits)) {
    for (const Bits& set : sets) {
      trees.push_back(std::make_unique<BenchTree>(host, BM_HEAP_TREE));
      trees.back()->set(set);
    }
  }

  size_t pairs() const { return sets.size() - 1; }
  unsigned long bitsOfPairs() const {
    unsigned long count = 0;
    for (size_t i = 0; i < pairs(); ++i) count += sets[i].size() + sets[i + 1].size();
    return count;
  }
};

// What an operation does with trees a and b, and the tree that it changes; returns its own count, if it has one, of
// the bits that it set or cleared.
struct TreeOperation {
  bool changesB;  // the tree is a copy of b; otherwise it is empty
  bool counts;
  unsigned long (*run)(BenchHost& host, RepTreeRootSType* a, RepTreeRootSType* b, RepTreeRootSType* tree);
  Bits (*expected)(const Bits& a, const Bits& b);
};

template <class Algorithm>
Bits merged(Algorithm algorithm, const Bits& a, const Bits& b) {
  Bits result;
  algorithm(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(result));
  return result;
}

const TreeOperation unite{
    true, true,
    [](BenchHost& host, RepTreeRootSType* a, RepTreeRootSType*, RepTreeRootSType* tree) {
      return BmSetBits_(&host, a, tree);
    },
    [](const Bits& a, const Bits& b) { return merged([](auto... args) { std::set_union(args...); }, a, b); }};

const TreeOperation removeBits{
    true, true,
    [](BenchHost& host, RepTreeRootSType* a, RepTreeRootSType*, RepTreeRootSType* tree) {
      return BmClearBits_(&host, a, tree);
    },
    [](const Bits& a, const Bits& b) { return merged([](auto... args) { std::set_difference(args...); }, b, a); }};

const TreeOperation intersect{
    false, true,
    [](BenchHost& host, RepTreeRootSType* a, RepTreeRootSType* b, RepTreeRootSType* tree) {
      return BmIntersectSize_(&host, a, b, tree, BM_HIGHEST_BIT, 0);
    },
    [](const Bits& a, const Bits& b) { return merged([](auto... args) { std::set_intersection(args...); }, a, b); }};

const TreeOperation subtract{
    false, false,
    [](BenchHost& host, RepTreeRootSType* a, RepTreeRootSType* b, RepTreeRootSType* tree) {
      BmDiff(&host, a, b, tree);
      return 0UL;
    },
    [](const Bits& a, const Bits& b) { return merged([](auto... args) { std::set_difference(args...); }, a, b); }};

// The trees that one round works on.
std::vector<std::unique_ptr<BenchTree>> freshTrees(Trees& trees, bool copiesOfB) {
  std::vector<std::unique_ptr<BenchTree>> fresh;
  for (size_t i = 0; i < trees.pairs(); ++i) {
    fresh.push_back(std::make_unique<BenchTree>(trees.host, BM_HEAP_TREE));
    if (copiesOfB) BmCopyTree(&trees.host, trees.trees[i + 1]->root(), fresh.back()->root());
  }
  return fresh;
}

unsigned long runPair(Trees& trees, const TreeOperation& operation, BenchTree& result, size_t i) {
  return operation.run(trees.host, trees.trees[i]->root(), trees.trees[i + 1]->root(), result.root());
}

void runAllPairs(Trees& trees, const TreeOperation& operation, std::vector<std::unique_ptr<BenchTree>>& results) {
  for (size_t i = 0; i < trees.pairs(); ++i) {
    benchmark::DoNotOptimize(runPair(trees, operation, *results[i], i));
  }
}

bool resultsAreRight(Trees& trees, const TreeOperation& operation) {
  std::vector<std::unique_ptr<BenchTree>> results = freshTrees(trees, operation.changesB);
  for (size_t i = 0; i < trees.pairs(); ++i) {
    const size_t before = operation.changesB ? trees.sets[i + 1].size() : 0;
    const unsigned long count = runPair(trees, operation, *results[i], i);
    const Bits expected = operation.expected(trees.sets[i], trees.sets[i + 1]);
    const size_t changed = std::max(before, expected.size()) - std::min(before, expected.size());
    if (bitsOf(trees.host, results[i]->root()) != expected || (operation.counts && count != changed)) return false;
  }
  return true;
}

void reportPairs(benchmark::State& state, const Trees& trees) {
  const auto inverse = benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert;
  state.counters["s/pair"] = benchmark::Counter(static_cast<double>(trees.pairs()), inverse);
  state.counters["s/bit"] = benchmark::Counter(static_cast<double>(trees.bitsOfPairs()), inverse);
}

void timeTreeOperation(benchmark::State& state, const Sets& sets, const TreeOperation& operation) {
  Trees trees(sets);
  if (!resultsAreRight(trees, operation)) state.SkipWithError("wrong bits");
  for ([[maybe_unused]] auto _ : state) {
    state.PauseTiming();
    std::vector<std::unique_ptr<BenchTree>> results = freshTrees(trees, operation.changesB);
    state.ResumeTiming();
    runAllPairs(trees, operation, results);
    state.PauseTiming();
    results.clear();
    state.ResumeTiming();
  }
  reportPairs(state, trees);
}

void timeDifferenceArray(benchmark::State& state, const Sets& sets) {
  Trees trees(sets);
  Bits out;
  for (const Bits& set : sets) out.resize(std::max(out.size(), set.size()));
  const auto difference = [&](size_t i) {
    return BmDifference_(&trees.host, trees.trees[i]->root(), trees.trees[i + 1]->root(), out.size(), out.data());
  };
  for (size_t i = 0; i < trees.pairs(); ++i) {
    const Bits expected = subtract.expected(sets[i], sets[i + 1]);
    const unsigned long count = difference(i);
    const bool right = count == expected.size() && std::equal(expected.begin(), expected.end(), out.begin());
    if (!right) state.SkipWithError("wrong bits");
  }
  for ([[maybe_unused]] auto _ : state) {
    for (size_t i = 0; i < trees.pairs(); ++i) benchmark::DoNotOptimize(difference(i));
  }
  reportPairs(state, trees);
}

// Whether two trees meet at all.
void timeMeeting(benchmark::State& state, const Sets& sets) {
  Trees trees(sets);
  BenchTree found(trees.host, BM_HEAP_TREE);
  const auto meet = [&](size_t i) {
    const unsigned long count =
        BmIntersectSize_(&trees.host, trees.trees[i]->root(), trees.trees[i + 1]->root(), found.root(), 1, 0);
    found.clear();
    return count > 0;
  };
  for (size_t i = 0; i < trees.pairs(); ++i) {
    if (meet(i) == intersect.expected(sets[i], sets[i + 1]).empty()) state.SkipWithError("wrong answer");
  }
  for ([[maybe_unused]] auto _ : state) {
    for (size_t i = 0; i < trees.pairs(); ++i) benchmark::DoNotOptimize(meet(i));
  }
  reportPairs(state, trees);
}

// Registers every operation for a collection; `load` is called when its turn comes.
template <class Load>
void registerCollection(const std::string& name, Load load) {
  const auto add = [&](const char* operation, auto time) {
    benchmark::RegisterBenchmark((std::string(operation) + "/" + name).c_str(), [load,
                                                                                 time](benchmark::State& state) {
      time(state, load());
    })->Unit(benchmark::kMicrosecond);
  };
  add("union", [](benchmark::State& state, const Sets& sets) { timeTreeOperation(state, sets, unite); });
  add("removal", [](benchmark::State& state, const Sets& sets) { timeTreeOperation(state, sets, removeBits); });
  add("intersection", [](benchmark::State& state, const Sets& sets) { timeTreeOperation(state, sets, intersect); });
  add("difference", [](benchmark::State& state, const Sets& sets) { timeTreeOperation(state, sets, subtract); });
  add("differenceArray", timeDifferenceArray);
  add("meeting", timeMeeting);
}

struct SetMaker {
  const char* name;
  Bits (*make)(unsigned seed);
};

const SetMaker makers[] = {
    {"sparse", sparseBits}, {"clustered", clusteredBits}, {"dense", denseBits}, {"runs", runBits}};

void registerPair(const SetMaker& a, const SetMaker& b) {
  const auto load = [makeA = a.make, makeB = b.make] { return Sets{makeA(1), makeB(2)}; };
  registerCollection(std::string(a.name) + "_" + b.name, load);
}

[[maybe_unused]] const bool registered = [] {
  for (const SetMaker& a : makers) {
    for (const SetMaker& b : makers) registerPair(a, b);
  }
  registerPair({"wide", wideBits}, {"wide", wideBits});
  for (const std::string& folder : realCollections()) {
    registerCollection(folder.substr(folder.rfind('/') + 1), [folder] { return readSets(folder); });
  }
  return true;
}();

}  // namespace
