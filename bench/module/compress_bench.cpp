// Compressed records: packing trees into records of 64,000 bytes and loading them. "s/bit" is the time for one bit,
// "bytes/bit" the size of the records for one bit, heads included.
//
// Beside made-up sets, every folder below the directory that the environment variable BMTREE_DATA names is a
// collection of real ones: text files of ascending numbers between commas, each file one set, all sets of a folder
// timed together.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "support/benchhost.h"

namespace {

namespace fs = std::filesystem;
using Bits = std::vector<unsigned long>;
using Sets = std::vector<Bits>;

constexpr unsigned long recordBytes = 64000;

// The records of all sets, one behind the other.
struct Records {
  std::unique_ptr<unsigned char[]> buffer{new unsigned char[recordBytes]};
  std::vector<unsigned char> bytes;
  std::vector<size_t> starts;

  LogComprResourceIdRecHdrType* fresh() { return reinterpret_cast<LogComprResourceIdRecHdrType*>(buffer.get()); }
  void keep() {
    starts.push_back(bytes.size());
    bytes.insert(bytes.end(), buffer.get(), buffer.get() + fresh()->recSize);
  }
};

// Packs a tree into records one after the other, and keeps them if `records` is to. Returns their bytes.
unsigned long packTree(BenchHost& host, const RepTreeRootSType* root, Records& records, bool keep) {
  unsigned long bytes = 0;
  BmPathSType path{};
  for (int last = 0; last == 0;) {
    LogComprResourcePackerType packer(records.fresh(), recordBytes);
    last = BmFindSetBitsNonDestructive(&host, root, &path, &packer);
    bytes += records.fresh()->recSize;
    if (keep) records.keep();
  }
  return bytes;
}

unsigned long countBits(const Sets& sets) {
  unsigned long count = 0;
  for (const Bits& set : sets) count += set.size();
  return count;
}

void report(benchmark::State& state, unsigned long bits, unsigned long bytes) {
  const auto rounds = static_cast<double>(state.iterations());
  state.counters["s/bit"] = benchmark::Counter(static_cast<double>(bits) * rounds,
                                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["bytes/bit"] = static_cast<double>(bytes) / static_cast<double>(bits);
}

void packRecords(benchmark::State& state, const Sets& sets) {
  BenchHost host;
  std::vector<std::unique_ptr<BenchTree>> trees;
  for (const Bits& set : sets) {
    trees.push_back(std::make_unique<BenchTree>(host, BM_HEAP_TREE));
    trees.back()->set(set);
  }
  Records records;
  unsigned long bytes = 0;
  for (auto _ : state) {
    bytes = 0;
    for (const auto& tree : trees) bytes += packTree(host, tree->root(), records, false);
  }
  report(state, countBits(sets), bytes);
}

void loadRecords(benchmark::State& state, const Sets& sets) {
  BenchHost host;
  std::vector<Records> recordsOfSets(sets.size());
  unsigned long bytes = 0;
  for (size_t i = 0; i < sets.size(); ++i) {
    BenchTree tree(host, BM_HEAP_TREE);
    tree.set(sets[i]);
    bytes += packTree(host, tree.root(), recordsOfSets[i], true);
  }
  const unsigned long bits = countBits(sets);
  for (auto _ : state) {
    unsigned long loaded = 0;
    for (Records& records : recordsOfSets) {
      BenchTree tree(host, BM_HEAP_TREE);
      for (const size_t start : records.starts) {
        auto* record = reinterpret_cast<LogComprResourceIdRecHdrType*>(records.bytes.data() + start);
        loaded += BmSetBitsFromLogRec(&host, tree.root(), record);
      }
    }
    if (loaded != bits) state.SkipWithError("wrong number of bits");
  }
  report(state, bits, bytes);
}

Bits evenBits(unsigned long count, unsigned long step) {
  Bits bits(count);
  for (unsigned long i = 0; i < count; ++i) bits[i] = i * step;
  return bits;
}

Bits readSet(const fs::path& file) {
  std::ifstream text(file);
  Bits bits;
  char comma;
  for (unsigned long bit; text >> bit; text >> comma) bits.push_back(bit);
  return bits;
}

Sets readCollection(const fs::path& folder) {
  Sets sets;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".txt") sets.push_back(readSet(entry.path()));
  }
  return sets;
}

// Both benchmarks over the sets that `make` gives, made when the benchmark runs.
template <class Make>
void registerFor(const std::string& name, Make make) {
  benchmark::RegisterBenchmark(("packRecords/" + name).c_str(),
                               [=](benchmark::State& state) { packRecords(state, make()); });
  benchmark::RegisterBenchmark(("loadRecords/" + name).c_str(),
                               [=](benchmark::State& state) { loadRecords(state, make()); });
}

int registerAll() {
  for (const unsigned long step : {1UL, 30UL, 33UL, 1000UL, 100000UL}) {
    registerFor("step" + std::to_string(step), [=] { return Sets{evenBits(1000000, step)}; });
  }
  const char* const data = std::getenv("BMTREE_DATA");
  if (data == nullptr || !fs::is_directory(data)) return 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(data)) {
    const fs::path folder = entry.path();
    if (entry.is_directory()) registerFor(folder.filename().string(), [=] { return readCollection(folder); });
  }
  return 0;
}

[[maybe_unused]] const int registered = registerAll();

}  // namespace
