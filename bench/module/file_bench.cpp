// Bitmap files: writing a tree, reading one, checking one, and beside them the plain transfer of the same bytes in
// chunks of the same size. Files lie in the directory for temporary files and stay in the system's cache; trees are
// built outside the clock. "bytes_per_second" counts the file's bytes, "items_per_second" its items.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "hostlayer.h"
#include "support/benchhost.h"

namespace {

using Bits = std::vector<unsigned long>;

constexpr unsigned long itemCount = 4000000;
constexpr unsigned long chunkBytes = 0x40000 * 8;

// The argument of every benchmark here: distance of the bits. 1 fills dense leaves, 1000 fills lists.
Bits bitsOf(const benchmark::State& state) {
  Bits bits(itemCount);
  for (unsigned long i = 0; i < itemCount; ++i) bits[i] = i * static_cast<unsigned long>(state.range(0));
  return bits;
}

// A file name of its own, whose file is gone at the end.
class TemporaryFile {
 public:
  TemporaryFile() { HostTempFileSpec(name_, sizeof name_); }
  ~TemporaryFile() { remove(); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  char* name() { return name_; }
  void remove() const { unlink(name_); }
  int create() const { return HostOpen(name_, BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE); }

 private:
  char name_[1024];
};

void report(benchmark::State& state, unsigned long itemSize) {
  const auto items = static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(itemCount);
  state.SetItemsProcessed(items);
  state.SetBytesProcessed(items * static_cast<int64_t>(itemSize) + static_cast<int64_t>(state.iterations()) * 16);
}

void writeKeepingTheTree(benchmark::State& state) {
  BenchHost host;
  BenchTree tree(host, BM_HEAP_TREE);
  tree.set(bitsOf(state));
  TemporaryFile file;
  for (auto _ : state) {
    if (BmWriteToFileNonDestructive(&host, file.name(), tree.root(), 1, nullptr) == 0) state.SkipWithError("no file");
  }
  report(state, 8);
}

void writeEmptyingTheTree(benchmark::State& state, int (*write)(PageCacheSType*, char*, RepTreeRootSType*, int*),
                          unsigned long itemSize) {
  BenchHost host;
  const Bits bits = bitsOf(state);
  TemporaryFile file;
  for (auto _ : state) {
    state.PauseTiming();
    BenchTree tree(host, BM_HEAP_TREE);
    tree.set(bits);
    file.remove();
    state.ResumeTiming();
    if (write(&host, file.name(), tree.root(), nullptr) == 0) state.SkipWithError("no file");
  }
  report(state, itemSize);
}

void plainWrite(benchmark::State& state) {
  Bits bits = bitsOf(state);
  TemporaryFile file;
  char* const bytes = reinterpret_cast<char*>(bits.data());
  const unsigned long size = itemCount * 8;
  for (auto _ : state) {
    file.remove();
    const int fd = file.create();
    for (unsigned long done = 0; done < size; done += chunkBytes) {
      const auto chunk = static_cast<long>(std::min(chunkBytes, size - done));
      if (HostWriteFile(fd, bytes + done, chunk, nullptr) == 0) state.SkipWithError("no file");
    }
    close(fd);
  }
  report(state, 8);
}

void putNumber(std::string* bytes, uint64_t number, size_t width, bool swapped) {
  char raw[8];
  std::memcpy(raw, &number, sizeof raw);
  if (swapped) std::reverse(raw, raw + width);
  bytes->append(raw, width);
}

// Makes the file of these bits by hand.
void makeFile(const TemporaryFile& file, const Bits& bits, unsigned itemSize, bool swapped) {
  std::string bytes;
  putNumber(&bytes, 0x03020100, 4, swapped);
  putNumber(&bytes, itemSize, 4, swapped);
  putNumber(&bytes, bits.size(), 8, swapped);
  for (const unsigned long bit : bits) putNumber(&bytes, bit, itemSize, swapped);
  const int fd = file.create();
  HostWriteFile(fd, bytes.data(), static_cast<long>(bytes.size()), nullptr);
  close(fd);
}

void readIntoEmptyTree(benchmark::State& state, unsigned itemSize, bool swapped) {
  BenchHost host;
  TemporaryFile file;
  makeFile(file, bitsOf(state), itemSize, swapped);
  for (auto _ : state) {
    BenchTree tree(host, BM_HEAP_TREE);
    if (BmReadFromFile(&host, file.name(), tree.root(), nullptr) == 0) state.SkipWithError("not read");
    state.PauseTiming();
    if (BmFindNumBitsSet_(&host, tree.root()) != itemCount) state.SkipWithError("wrong number of bits");
    tree.clear();
    state.ResumeTiming();
  }
  report(state, itemSize);
}

void plainRead(benchmark::State& state) {
  TemporaryFile file;
  makeFile(file, bitsOf(state), 8, false);
  Bits chunk(chunkBytes / 8);
  const unsigned long size = itemCount * 8;
  for (auto _ : state) {
    const int fd = HostOpen(file.name(), 0, 0);
    for (unsigned long done = 0; done < size; done += chunkBytes) {
      const auto bytes = static_cast<long>(std::min(chunkBytes, size - done));
      if (HostReadFile(fd, reinterpret_cast<char*>(chunk.data()), bytes, nullptr) == 0)
        state.SkipWithError("not read");
    }
    benchmark::DoNotOptimize(chunk.data());
    close(fd);
  }
  report(state, 8);
}

void checkFile(benchmark::State& state) {
  TemporaryFile file;
  makeFile(file, bitsOf(state), 8, false);
  for (auto _ : state) {
    BmCheckResultSType result;
    if (BmCheckFile(file.name(), &result) == 0) state.SkipWithError(result.sentence);
  }
  report(state, 8);
}

BENCHMARK(plainWrite)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(writeKeepingTheTree)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeEmptyingTheTree, items8, BmWriteToFile, 8)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeEmptyingTheTree, items4, BmWriteToFileIn6xFormat, 4)
    ->Arg(1)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(plainRead)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(readIntoEmptyTree, items8, 8, false)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(readIntoEmptyTree, items8swapped, 8, true)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(readIntoEmptyTree, items4, 4, false)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(checkFile)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
