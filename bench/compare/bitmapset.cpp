// This library: a heap tree.
#include <algorithm>
#include <array>
#include <bit>

#include "bitmap.h"
#include "competitors.h"

namespace {

constexpr int allocTag = 1;
constexpr unsigned long noLimit = ~0UL;

struct Context : PageCacheSType {
  OwnerStatsSType stats{};
  OwnerSType ownerData{&stats};

  Context() : PageCacheSType{} {
    owner = &ownerData;
    BmInitTreeRoots(this);
  }
};

PageCacheSType* context() {
  static Context theContext;
  return &theContext;
}

class BitmapSet final : public NumberSet {
 public:
  BitmapSet() { BmInitHeapTree(&root_, allocTag, "set"); }
  ~BitmapSet() override { BmDisposeTree(pc_, &root_); }

  void loadSorted(std::span<const uint64_t> numbers) override {
    BmSetBitsFromSortedArray_(pc_, &root_, numbers.data(), numbers.data() + numbers.size());
  }

  void loadUnsorted(std::span<uint64_t> numbers) override {
    numbers.data()[-1] = 0;  // the slot before the data bounds the sort
    BmSetBitsFromArray_(pc_, &root_, numbers.data() - 1, numbers.data() + numbers.size());
  }

  void addRange(uint64_t first, uint64_t last) override { BmSetBitRange_(pc_, &root_, first, last); }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) present += static_cast<uint64_t>(BmTestBit(pc_, &root_, probe));
    return present;
  }

  uint64_t countPresentTogether(std::span<const uint64_t> probes) const override {
    constexpr size_t atOnce = 4096;
    uint64_t present = 0;
    std::array<uint64_t, atOnce / 64> answers;
    for (; !probes.empty(); probes = probes.subspan(std::min(atOnce, probes.size()))) {
      const size_t count = std::min(atOnce, probes.size());
      BmTestBits(pc_, &root_, probes.data(), count, answers.data());
      for (size_t word = 0; word < (count + 63) / 64; ++word) {
        present += static_cast<uint64_t>(std::popcount(answers[word]));
      }
    }
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    uint64_t wereSet = 0;
    for (uint64_t number : numbers) wereSet += static_cast<uint64_t>(BmSetBit(pc_, &root_, number));
    return numbers.size() - wereSet;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    uint64_t erased = 0;
    for (uint64_t number : numbers) erased += static_cast<uint64_t>(BmClearBit(pc_, &root_, number));
    return erased;
  }

  uint64_t size() const override { return BmFindNumBitsSet_(pc_, &root_); }

  uint64_t toArray(uint64_t* out) const override {
    constexpr long atOnce = long{1} << 30;
    uint64_t total = 0;
    BmPathSType path{};
    while (uint64_t count = BmFindSetBitsNonDestructive_(pc_, atOnce, &root_, &path, out + total)) total += count;
    return total;
  }

  uint64_t walkInChunks(std::span<uint64_t> chunk) const override {
    uint64_t sum = 0;
    BmPathSType path{};
    const auto size = static_cast<long>(chunk.size());
    while (uint64_t count = BmFindSetBitsNonDestructive_(pc_, size, &root_, &path, chunk.data())) {
      sum += chunk[count - 1];
    }
    return sum;
  }

  void lowestFree(std::span<uint64_t> out) const override {
    BmFindClearPathSType position{};
    position.limitBit = BM_HIGHEST_BIT;
    for (size_t found = 0; found < out.size();) {
      found += BmFindClearBits_(pc_, out.size() - found, &root_, &position, out.data() + found);
    }
  }

  void assignCopy(const NumberSet& source) override { BmCopyTree(pc_, &rootOf(source), &root_); }

  // The larger set is copied, the smaller one added to it.
  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    const bool isALarger = a.size() >= b.size();
    BmCopyTree(pc_, &rootOf(isALarger ? a : b), &root_);
    BmSetBits_(pc_, &rootOf(isALarger ? b : a), &root_);
  }

  void assignIntersection(const NumberSet& a, const NumberSet& b) override {
    BmIntersectSize_(pc_, &rootOf(a), &rootOf(b), &root_, noLimit, 0);
  }

  void assignDifference(const NumberSet& a, const NumberSet& b) override {
    BmDiff(pc_, &rootOf(a), &rootOf(b), &root_);
  }

  void unite(const NumberSet& other) override { BmSetBits_(pc_, &rootOf(other), &root_); }

  void intersect(const NumberSet& other) override {
    BitmapSet common;
    common.assignIntersection(*this, other);
    std::swap(root_, common.root_);
  }

  void subtract(const NumberSet& other) override {
    RepTreeRootSType source = rootOf(other);
    BmClearBits_(pc_, &source, &root_);
  }

  uint64_t intersectionSize(const NumberSet& other) const override {
    BitmapSet common;
    return BmIntersectSize_(pc_, &root_, &rootOf(other), &common.root_, noLimit, 0);
  }

  bool meets(const NumberSet& other) const override {
    BitmapSet common;
    return BmIntersectSize_(pc_, &root_, &rootOf(other), &common.root_, 1, 0) != 0;
  }

  void writeFile(const std::string& path) const override {
    std::string name = path;
    int error = 0;
    if (BmWriteToFileNonDestructive(pc_, name.data(), &root_, 1, &error) == 0) giveUp("cannot write " + path);
  }

  void readFile(const std::string& path) override {
    std::string name = path;
    int error = 0;
    if (BmReadFromFile(pc_, name.data(), &root_, &error) == 0) giveUp("cannot read " + path);
  }

 private:
  static const RepTreeRootSType& rootOf(const NumberSet& set) { return static_cast<const BitmapSet&>(set).root_; }

  PageCacheSType* pc_ = context();
  RepTreeRootSType root_;
};

}  // namespace

Competitor bitmapCompetitor() {
  return {ourName, BENCH_PROJECT_VERSION,
          "heap trees; pages from recycled memory that is advised for 2 MiB pages; an intersection's size by way of "
          "an intersection that is then dropped",
          false, [] { return std::make_unique<BitmapSet>(); }};
}
