// std::set.
#include <set>

#include <algorithm>
#include <iterator>

#include "competitors.h"
#include "rawfile.h"

namespace {

class StdSet final : public NumberSet {
 public:
  void loadSorted(std::span<const uint64_t> numbers) override { set_ = Set(numbers.begin(), numbers.end()); }
  void loadUnsorted(std::span<uint64_t> numbers) override { set_ = Set(numbers.begin(), numbers.end()); }

  void addRange(uint64_t first, uint64_t last) override {
    for (uint64_t number = first; number <= last; ++number) set_.insert(set_.end(), number);
  }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) present += set_.count(probe);
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    uint64_t inserted = 0;
    for (uint64_t number : numbers) inserted += set_.insert(number).second ? 1 : 0;
    return inserted;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    uint64_t erased = 0;
    for (uint64_t number : numbers) erased += set_.erase(number);
    return erased;
  }

  uint64_t size() const override { return set_.size(); }

  uint64_t toArray(uint64_t* out) const override {
    return static_cast<uint64_t>(std::copy(set_.begin(), set_.end(), out) - out);
  }

  uint64_t walkInChunks(std::span<uint64_t> chunk) const override {
    uint64_t sum = 0;
    for (auto position = set_.begin(); position != set_.end();) {
      size_t count = 0;
      for (; count < chunk.size() && position != set_.end(); ++position) chunk[count++] = *position;
      sum += chunk[count - 1];
    }
    return sum;
  }

  void lowestFree(std::span<uint64_t> out) const override {
    auto position = set_.begin();
    uint64_t candidate = 0;
    for (size_t found = 0; found < out.size(); ++candidate) {
      if (position != set_.end() && *position == candidate) {
        ++position;
      } else {
        out[found++] = candidate;
      }
    }
  }

  void assignCopy(const NumberSet& source) override { set_ = setOf(source); }

  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    std::set_union(setOf(a).begin(), setOf(a).end(), setOf(b).begin(), setOf(b).end(), appender());
  }

  void assignIntersection(const NumberSet& a, const NumberSet& b) override {
    std::set_intersection(setOf(a).begin(), setOf(a).end(), setOf(b).begin(), setOf(b).end(), appender());
  }

  void assignDifference(const NumberSet& a, const NumberSet& b) override {
    std::set_difference(setOf(a).begin(), setOf(a).end(), setOf(b).begin(), setOf(b).end(), appender());
  }

  void unite(const NumberSet& other) override { set_.insert(setOf(other).begin(), setOf(other).end()); }

  void intersect(const NumberSet& other) override {
    const Set& that = setOf(other);
    auto kept = that.begin();
    for (auto position = set_.begin(); position != set_.end();) {
      while (kept != that.end() && *kept < *position) ++kept;
      position = kept != that.end() && *kept == *position ? std::next(position) : set_.erase(position);
    }
  }

  void subtract(const NumberSet& other) override {
    for (uint64_t number : setOf(other)) set_.erase(number);
  }

  uint64_t intersectionSize(const NumberSet& other) const override {
    uint64_t common = 0;
    forEachCommon(other, [&] { return ++common, true; });
    return common;
  }

  bool meets(const NumberSet& other) const override {
    bool found = false;
    forEachCommon(other, [&] { return found = true, false; });
    return found;
  }

  void writeFile(const std::string& path) const override {
    writeNumbers(path, std::vector<uint64_t>(set_.begin(), set_.end()));
  }

  void readFile(const std::string& path) override { loadSorted(readNumbers(path)); }

 private:
  using Set = std::set<uint64_t>;

  static const Set& setOf(const NumberSet& set) { return static_cast<const StdSet&>(set).set_; }

  std::insert_iterator<Set> appender() { return std::inserter(set_, set_.end()); }

  // Calls `visit` once per common number, until it returns false.
  template <class Visit>
  void forEachCommon(const NumberSet& other, Visit visit) const {
    const Set& that = setOf(other);
    for (auto a = set_.begin(), b = that.begin(); a != set_.end() && b != that.end();) {
      if (*a < *b) {
        ++a;
      } else if (*b < *a) {
        ++b;
      } else {
        if (!visit()) return;
        ++a;
        ++b;
      }
    }
  }

  Set set_;
};

}  // namespace

Competitor stdSetCompetitor() {
  return {
      "std::set", "libstdc++ " BENCH_LIBSTDCXX_VERSION,
      "insertion with a hint where the numbers come in order; the standard algorithms on two sets; files of plain "
      "8-byte numbers",
      false, [] { return std::make_unique<StdSet>(); }};
}
