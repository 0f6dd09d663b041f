// Judy1: a Judy array of bits. It has no operations on two sets; the loops are what a user would write.
#include <Judy.h>

#include <algorithm>
#include <utility>

#include "competitors.h"
#include "rawfile.h"

namespace {

class JudySet final : public NumberSet {
 public:
  ~JudySet() override { Judy1FreeArray(&array_, nullptr); }

  // Not Judy1SetArray: it writes outside its memory with some sets.
  void loadSorted(std::span<const uint64_t> numbers) override { insertEach(numbers); }

  void loadUnsorted(std::span<uint64_t> numbers) override { insertEach(numbers); }

  void addRange(uint64_t first, uint64_t last) override {
    for (uint64_t number = first; number <= last; ++number) Judy1Set(&array_, number, nullptr);
  }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) present += Judy1Test(array_, probe, nullptr) == 1 ? 1 : 0;
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    uint64_t inserted = 0;
    for (uint64_t number : numbers) inserted += Judy1Set(&array_, number, nullptr) == 1 ? 1 : 0;
    return inserted;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    uint64_t erased = 0;
    for (uint64_t number : numbers) erased += Judy1Unset(&array_, number, nullptr) == 1 ? 1 : 0;
    return erased;
  }

  uint64_t size() const override { return Judy1Count(array_, 0, ~Word_t{0}, nullptr); }

  uint64_t toArray(uint64_t* out) const override {
    uint64_t* target = out;
    forEach([&](uint64_t number) { *target++ = number; });
    return static_cast<uint64_t>(target - out);
  }

  uint64_t walkInChunks(std::span<uint64_t> chunk) const override {
    uint64_t sum = 0;
    Word_t number = 0;
    for (int found = Judy1First(array_, &number, nullptr); found == 1;) {
      size_t count = 0;
      for (; count < chunk.size() && found == 1; found = Judy1Next(array_, &number, nullptr)) chunk[count++] = number;
      sum += chunk[count - 1];
    }
    return sum;
  }

  void lowestFree(std::span<uint64_t> out) const override {
    Word_t number = 0;
    Judy1FirstEmpty(array_, &number, nullptr);
    for (uint64_t& slot : out) {
      slot = number;
      Judy1NextEmpty(array_, &number, nullptr);
    }
  }

  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    const std::vector<uint64_t> left = arrayOf(a);
    const std::vector<uint64_t> right = arrayOf(b);
    std::vector<uint64_t> both(left.size() + right.size());
    both.erase(std::set_union(left.begin(), left.end(), right.begin(), right.end(), both.begin()), both.end());
    loadSorted(both);
  }

  void assignIntersection(const NumberSet& a, const NumberSet& b) override {
    const JudySet& other = judyOf(b);
    std::vector<uint64_t> common;
    judyOf(a).forEach([&](uint64_t number) {
      if (other.holds(number)) common.push_back(number);
    });
    loadSorted(common);
  }

  void assignDifference(const NumberSet& a, const NumberSet& b) override {
    const JudySet& other = judyOf(b);
    std::vector<uint64_t> rest;
    judyOf(a).forEach([&](uint64_t number) {
      if (!other.holds(number)) rest.push_back(number);
    });
    loadSorted(rest);
  }

  void unite(const NumberSet& other) override {
    judyOf(other).forEach([&](uint64_t number) { Judy1Set(&array_, number, nullptr); });
  }

  void intersect(const NumberSet& other) override {
    forEach([&](uint64_t number) {
      if (!judyOf(other).holds(number)) Judy1Unset(&array_, number, nullptr);
    });
  }

  void subtract(const NumberSet& other) override {
    judyOf(other).forEach([&](uint64_t number) { Judy1Unset(&array_, number, nullptr); });
  }

  uint64_t intersectionSize(const NumberSet& other) const override {
    const auto [small, large] = bySize(other);
    uint64_t common = 0;
    small->forEach([&](uint64_t number) { common += large->holds(number) ? 1 : 0; });
    return common;
  }

  bool meets(const NumberSet& other) const override {
    const auto [small, large] = bySize(other);
    Word_t number = 0;
    for (int found = Judy1First(small->array_, &number, nullptr); found == 1;
         found = Judy1Next(small->array_, &number, nullptr)) {
      if (large->holds(number)) return true;
    }
    return false;
  }

  void writeFile(const std::string& path) const override { writeNumbers(path, arrayOf(*this)); }
  void readFile(const std::string& path) override { loadSorted(readNumbers(path)); }

 private:
  static const JudySet& judyOf(const NumberSet& set) { return static_cast<const JudySet&>(set); }

  static std::vector<uint64_t> arrayOf(const NumberSet& set) {
    std::vector<uint64_t> numbers(set.size());
    set.toArray(numbers.data());
    return numbers;
  }

  bool holds(uint64_t number) const { return Judy1Test(array_, number, nullptr) == 1; }

  std::pair<const JudySet*, const JudySet*> bySize(const NumberSet& other) const {
    const JudySet* that = &judyOf(other);
    return size() <= that->size() ? std::pair{this, that} : std::pair{that, this};
  }

  // `visit` may take out the number it is given.
  template <class Visit>
  void forEach(Visit visit) const {
    Word_t number = 0;
    for (int found = Judy1First(array_, &number, nullptr); found == 1; found = Judy1Next(array_, &number, nullptr)) {
      visit(number);
    }
  }

  void* array_ = nullptr;
};

}  // namespace

Competitor judyCompetitor() {
  return {
      "Judy1", BENCH_JUDY_VERSION,
      "number by number, as Judy1SetArray of this version damages some sets; it has no operations on two sets, so "
      "loops over one that test or change the other; files of plain 8-byte numbers",
      false, [] { return std::make_unique<JudySet>(); }};
}
