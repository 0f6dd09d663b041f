#include "support/bitsets.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

namespace {

namespace fs = std::filesystem;

constexpr unsigned long universe = 8UL << 20;
constexpr unsigned long endOfBits = 1UL << 40;

using Generator = std::mt19937_64;

unsigned long below(Generator& generator, unsigned long limit) { return generator() % limit; }

Bits sorted(Bits bits) {
  std::sort(bits.begin(), bits.end());
  bits.erase(std::unique(bits.begin(), bits.end()), bits.end());
  return bits;
}

Bits uniform(Generator& generator, unsigned long count, unsigned long limit) {
  Bits bits(count);
  for (unsigned long& bit : bits) bit = below(generator, limit);
  return sorted(std::move(bits));
}

}  // namespace

Bits sparseBits(unsigned seed) {
  Generator generator(seed);
  return uniform(generator, universe / 1000, universe);
}

Bits clusteredBits(unsigned seed) {
  Generator generator(seed);
  Bits bits;
  for (unsigned long cluster = 0; cluster < 64; ++cluster) {
    const unsigned long first = cluster * (universe / 64) + below(generator, 2000);
    for (int i = 0; i < 1500; ++i) bits.push_back(first + below(generator, 3000));
  }
  return sorted(std::move(bits));
}

Bits denseBits(unsigned seed) {
  Generator generator(seed);
  Bits bits;
  for (unsigned long base = 0; base < universe; base += 64) {
    const uint64_t word = generator();
    for (unsigned long i = 0; i < 64; ++i) {
      if ((word >> i & 1) != 0) bits.push_back(base + i);
    }
  }
  return bits;
}

Bits runBits(unsigned seed) {
  Generator generator(seed);
  Bits bits;
  for (unsigned long bit = below(generator, 1000); bit < universe; bit += 500 + below(generator, 1000)) {
    const unsigned long end = std::min(universe, bit + 500 + below(generator, 1000));
    for (; bit < end; ++bit) bits.push_back(bit);
  }
  return bits;
}

Bits wideBits(unsigned seed) {
  Generator generator(seed);
  return uniform(generator, 300000, endOfBits);
}

std::vector<std::string> realCollections() {
  std::vector<std::string> folders;
  const char* directory = std::getenv("BMTREE_DATA");
  if (directory == nullptr) return folders;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    if (entry.is_directory()) folders.push_back(entry.path().string());
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

Sets readSets(const std::string& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  Sets sets;
  for (const fs::path& file : files) {
    std::ifstream in(file);
    Bits& bits = sets.emplace_back();
    for (unsigned long bit; in >> bit; in.ignore()) bits.push_back(bit);
  }
  return sets;
}
