// Numbers in any order into a tree, in batches that suit it.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "store.h"

namespace bmtree::tools {

// Blocks that ascend go to the tree as they are. Others are collected, at most 32 MiB of them, and sorted before
// they go, so that the tree is walked once for each collection and not once for each number.
class TreeFeeder {
 public:
  explicit TreeFeeder(Tree& tree) : tree_(tree) {}

  void take(std::span<const uint64_t> numbers);

  // Hands on what is still collected. Returns how many numbers were not in the tree before.
  uint64_t finish();

 private:
  void handOn();

  Tree& tree_;
  uint64_t added_ = 0;
  std::vector<uint64_t> collected_;
  std::vector<uint64_t> scratch_;
};

// Sorts numbers below 2^40 in ascending order. `scratch` is resized and holds nothing of use afterwards.
void sortNumbers(std::vector<uint64_t>& numbers, std::vector<uint64_t>& scratch);

}  // namespace bmtree::tools
