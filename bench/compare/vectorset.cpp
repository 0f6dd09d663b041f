// A sorted std::vector: the floor for whatever reads or makes a whole set, and plain set arithmetic to compare the
// others' answers with.
#include <algorithm>
#include <numeric>

#include "competitors.h"
#include "rawfile.h"

namespace {

class VectorSet : public NumberSet {
 public:
  void loadSorted(std::span<const uint64_t> numbers) override { numbers_.assign(numbers.begin(), numbers.end()); }

  void loadUnsorted(std::span<uint64_t> numbers) override {
    loadSorted(numbers);
    std::sort(numbers_.begin(), numbers_.end());
    numbers_.erase(std::unique(numbers_.begin(), numbers_.end()), numbers_.end());
  }

  void addRange(uint64_t first, uint64_t last) override {
    numbers_.resize(last - first + 1);
    std::iota(numbers_.begin(), numbers_.end(), first);
  }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) present += std::binary_search(numbers_.begin(), numbers_.end(), probe) ? 1 : 0;
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    const size_t before = numbers_.size();
    for (uint64_t number : numbers) {
      const auto place = std::lower_bound(numbers_.begin(), numbers_.end(), number);
      if (place == numbers_.end() || *place != number) numbers_.insert(place, number);
    }
    return numbers_.size() - before;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    const size_t before = numbers_.size();
    for (uint64_t number : numbers) {
      const auto place = std::lower_bound(numbers_.begin(), numbers_.end(), number);
      if (place != numbers_.end() && *place == number) numbers_.erase(place);
    }
    return before - numbers_.size();
  }

  uint64_t size() const override { return numbers_.size(); }

  uint64_t toArray(uint64_t* out) const override {
    std::copy(numbers_.begin(), numbers_.end(), out);
    return numbers_.size();
  }

  uint64_t walkInChunks(std::span<uint64_t> chunk) const override {
    uint64_t sum = 0;
    for (size_t position = 0; position < numbers_.size();) {
      const size_t count = std::min(chunk.size(), numbers_.size() - position);
      std::copy_n(numbers_.data() + position, count, chunk.data());
      position += count;
      sum += chunk[count - 1];
    }
    return sum;
  }

  void lowestFree(std::span<uint64_t> out) const override {
    size_t position = 0;
    uint64_t candidate = 0;
    for (size_t found = 0; found < out.size(); ++candidate) {
      if (position < numbers_.size() && numbers_[position] == candidate) {
        ++position;
      } else {
        out[found++] = candidate;
      }
    }
  }

  void assignCopy(const NumberSet& source) override { numbers_ = vectorOf(source); }

  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    numbers_.resize(vectorOf(a).size() + vectorOf(b).size());
    cutAt(std::set_union(vectorOf(a).begin(), vectorOf(a).end(), vectorOf(b).begin(), vectorOf(b).end(),
                         numbers_.begin()));
  }

  void assignIntersection(const NumberSet& a, const NumberSet& b) override {
    numbers_.resize(std::min(vectorOf(a).size(), vectorOf(b).size()));
    cutAt(std::set_intersection(vectorOf(a).begin(), vectorOf(a).end(), vectorOf(b).begin(), vectorOf(b).end(),
                                numbers_.begin()));
  }

  void assignDifference(const NumberSet& a, const NumberSet& b) override {
    numbers_.resize(vectorOf(a).size());
    cutAt(std::set_difference(vectorOf(a).begin(), vectorOf(a).end(), vectorOf(b).begin(), vectorOf(b).end(),
                              numbers_.begin()));
  }

  void unite(const NumberSet& other) override {
    VectorSet result;
    result.assignUnion(*this, other);
    numbers_.swap(result.numbers_);
  }

  void intersect(const NumberSet& other) override { keepWhere(vectorOf(other), true); }
  void subtract(const NumberSet& other) override { keepWhere(vectorOf(other), false); }

  uint64_t intersectionSize(const NumberSet& other) const override {
    const std::vector<uint64_t>& that = vectorOf(other);
    uint64_t common = 0;
    for (size_t i = 0, j = 0; i < numbers_.size() && j < that.size();) {
      const uint64_t a = numbers_[i];
      const uint64_t b = that[j];
      common += a == b ? 1 : 0;
      i += a <= b ? 1 : 0;
      j += b <= a ? 1 : 0;
    }
    return common;
  }

  bool meets(const NumberSet& other) const override {
    const std::vector<uint64_t>& that = vectorOf(other);
    for (size_t i = 0, j = 0; i < numbers_.size() && j < that.size();) {
      const uint64_t a = numbers_[i];
      const uint64_t b = that[j];
      if (a == b) return true;
      i += a < b ? 1 : 0;
      j += b < a ? 1 : 0;
    }
    return false;
  }

  void writeFile(const std::string& path) const override { writeNumbers(path, numbers_); }
  void readFile(const std::string& path) override { numbers_ = readNumbers(path); }

 private:
  static const std::vector<uint64_t>& vectorOf(const NumberSet& set) {
    return static_cast<const VectorSet&>(set).numbers_;
  }

  void cutAt(std::vector<uint64_t>::iterator end) { numbers_.erase(end, numbers_.end()); }

  // Keeps the numbers that are (not) in `that`, in one pass.
  void keepWhere(const std::vector<uint64_t>& that, bool inThat) {
    size_t kept = 0;
    size_t j = 0;
    for (uint64_t number : numbers_) {
      while (j < that.size() && that[j] < number) ++j;
      const bool found = j < that.size() && that[j] == number;
      if (found == inThat) numbers_[kept++] = number;
    }
    numbers_.resize(kept);
  }

  std::vector<uint64_t> numbers_;
};

class ReferenceSet final : public VectorSet {
 public:
  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    return changeBy(numbers, [this](const NumberSet& other) { unite(other); });
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    return changeBy(numbers, [this](const NumberSet& other) { subtract(other); });
  }

 private:
  template <class Change>
  uint64_t changeBy(std::span<const uint64_t> numbers, Change change) {
    std::vector<uint64_t> copy(numbers.begin(), numbers.end());
    VectorSet other;
    other.loadUnsorted(copy);
    const uint64_t before = size();
    change(other);
    return before > size() ? before - size() : size() - before;
  }
};

}  // namespace

Competitor sortedVectorCompetitor() {
  return {"sorted vector", "libstdc++ " BENCH_LIBSTDCXX_VERSION,
          "std::sort and the standard algorithms; single insertions move everything behind them; files of plain "
          "8-byte numbers",
          false, [] { return std::make_unique<VectorSet>(); }};
}

std::unique_ptr<NumberSet> makeReferenceSet() { return std::make_unique<ReferenceSet>(); }
