#include "treefeeder.h"

#include <algorithm>
#include <array>
#include <utility>

namespace bmtree::tools {
namespace {

constexpr size_t collectAtMost = size_t{4} << 20;
constexpr unsigned digitBits = 10;  // four passes over 40 bits
constexpr size_t digits = size_t{1} << digitBits;

// Moves `from` to `to` in the order of the ten bits from `shift` on, equal ones in the order they had.
void sortByDigit(const std::vector<uint64_t>& from, std::vector<uint64_t>& to, unsigned shift) {
  std::array<size_t, digits> places{};
  for (const uint64_t number : from) ++places[(number >> shift) & (digits - 1)];
  size_t next = 0;
  for (size_t& place : places) next += std::exchange(place, next);
  for (const uint64_t number : from) to[places[(number >> shift) & (digits - 1)]++] = number;
}

}  // namespace

void sortNumbers(std::vector<uint64_t>& numbers, std::vector<uint64_t>& scratch) {
  if (numbers.size() < digits) return std::sort(numbers.begin(), numbers.end());
  scratch.resize(numbers.size());
  for (unsigned shift = 0; shift < 40; shift += 2 * digitBits) {
    sortByDigit(numbers, scratch, shift);
    sortByDigit(scratch, numbers, shift + digitBits);
  }
}

void TreeFeeder::take(std::span<const uint64_t> numbers) {
  if (std::is_sorted(numbers.begin(), numbers.end())) {
    added_ += tree_.set(numbers);
    return;
  }
  collected_.insert(collected_.end(), numbers.begin(), numbers.end());
  if (collected_.size() >= collectAtMost) handOn();
}

uint64_t TreeFeeder::finish() {
  handOn();
  return added_;
}

void TreeFeeder::handOn() {
  if (collected_.empty()) return;
  sortNumbers(collected_, scratch_);
  added_ += tree_.set(collected_);
  collected_.clear();
}

}  // namespace bmtree::tools
