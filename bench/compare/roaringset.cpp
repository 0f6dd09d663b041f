// CRoaring: the 64-bit map of its C++ interface.
#include <roaring/roaring.hh>
#include <roaring/roaring64map.hh>

#include "competitors.h"
#include "rawfile.h"

namespace {

class RoaringSet final : public NumberSet {
 public:
  void loadSorted(std::span<const uint64_t> numbers) override { set_.addMany(numbers.size(), numbers.data()); }
  void loadUnsorted(std::span<uint64_t> numbers) override { set_.addMany(numbers.size(), numbers.data()); }
  void finishLoading() override { set_.runOptimize(); }

  // In an empty set, flipping a range is adding it; the map has no other operation for ranges.
  void addRange(uint64_t first, uint64_t last) override { set_.flip(first, last + 1); }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) present += set_.contains(probe) ? 1 : 0;
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    uint64_t inserted = 0;
    for (uint64_t number : numbers) inserted += set_.addChecked(number) ? 1 : 0;
    return inserted;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    uint64_t erased = 0;
    for (uint64_t number : numbers) erased += set_.removeChecked(number) ? 1 : 0;
    return erased;
  }

  uint64_t size() const override { return set_.cardinality(); }

  uint64_t toArray(uint64_t* out) const override {
    const uint64_t count = set_.cardinality();
    if (count > 0) set_.toUint64Array(out);
    return count;
  }

  uint64_t walkInChunks(std::span<uint64_t> chunk) const override {
    uint64_t sum = 0;
    const auto end = set_.end();
    for (auto position = set_.begin(); position != end;) {
      size_t count = 0;
      for (; count < chunk.size() && position != end; ++position) chunk[count++] = *position;
      sum += chunk[count - 1];
    }
    return sum;
  }

  void lowestFree(std::span<uint64_t> out) const override {
    size_t found = 0;
    uint64_t candidate = 0;
    const auto end = set_.end();
    for (auto position = set_.begin(); found < out.size() && position != end; ++position, ++candidate) {
      for (const uint64_t number = *position; candidate < number && found < out.size(); ++candidate) {
        out[found++] = candidate;
      }
    }
    while (found < out.size()) out[found++] = candidate++;
  }

  void assignCopy(const NumberSet& source) override { set_ = setOf(source); }
  void assignUnion(const NumberSet& a, const NumberSet& b) override { set_ = setOf(a) | setOf(b); }
  void assignIntersection(const NumberSet& a, const NumberSet& b) override { set_ = setOf(a) & setOf(b); }
  void assignDifference(const NumberSet& a, const NumberSet& b) override { set_ = setOf(a) - setOf(b); }
  void unite(const NumberSet& other) override { set_ |= setOf(other); }
  void intersect(const NumberSet& other) override { set_ &= setOf(other); }
  void subtract(const NumberSet& other) override { set_ -= setOf(other); }

  // The map offers neither without the intersection itself.
  uint64_t intersectionSize(const NumberSet& other) const override { return (set_ & setOf(other)).cardinality(); }
  bool meets(const NumberSet& other) const override { return !(set_ & setOf(other)).isEmpty(); }

  void writeFile(const std::string& path) const override {
    std::vector<char> bytes(set_.getSizeInBytes());
    set_.write(bytes.data());
    writeBytes(path, bytes);
  }

  void readFile(const std::string& path) override { set_ = Roaring64Map::read(readBytes(path).data()); }

 private:
  static const Roaring64Map& setOf(const NumberSet& set) { return static_cast<const RoaringSet&>(set).set_; }

  Roaring64Map set_;
};

}  // namespace

Competitor roaringCompetitor() {
  return {
      "CRoaring", BENCH_ROARING_VERSION,
      "Roaring64Map; runOptimize after a bulk load, except where the set is changed afterwards; the portable file "
      "format",
      false, [] { return std::make_unique<RoaringSet>(); }};
}
