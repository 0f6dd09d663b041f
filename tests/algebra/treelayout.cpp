#include "algebra/treelayout.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr size_t listCapacity = 2043;

// Cuts ascending bits into leaves.
class LeafCutter {
 public:
  LeafCutter(const BitSet& bits, Random& random) : bits_(bits.begin(), bits.end()), random_(random) {}

  std::vector<LeafSpec> cut() {
    while (next_ < bits_.size()) {
      addEmptyLeaf();
      const size_t spanCount = countBelow(span(bits_[next_] / 130752 + 1));
      if (spanCount > listCapacity || random_.oneIn(2)) {
        addDense(spanCount);
      } else {
        addList();
      }
    }
    addEmptyLeaf();
    return std::move(leaves_);
  }

 private:
  size_t countBelow(uint64_t end) const {
    return static_cast<size_t>(std::lower_bound(bits_.begin(), bits_.end(), end) - bits_.begin()) - next_;
  }

  std::vector<uint64_t> take(size_t count) {
    const auto from = bits_.begin() + static_cast<long>(next_);
    next_ += count;
    return {from, from + static_cast<long>(count)};
  }

  // Sometimes, where a span is free: a kept dense leaf without bits.
  void addEmptyLeaf() {
    const uint64_t limit = next_ < bits_.size() ? bits_[next_] / 130752 : freeSpan_ + 3;
    if (limit <= freeSpan_ || limit > lastSpan || !random_.oneIn(4)) return;
    leaves_.push_back(denseLeaf(span(freeSpan_), {}, 1));
    freeSpan_ += 1 + random_.below(2);
    freeSpan_ = std::min(freeSpan_, limit);
  }

  void addDense(size_t count) {
    const uint64_t spanIndex = bits_[next_] / 130752;
    leaves_.push_back(denseLeaf(span(spanIndex), take(count), static_cast<int>(random_.below(2))));
    freeSpan_ = spanIndex + 1;
  }

  // A list of one or more whole spans, whose key is the bits' span or one below it.
  void addList() {
    const uint64_t first = bits_[next_] / 130752;
    const uint64_t key = random_.oneIn(3) ? freeSpan_ + random_.below(first - freeSpan_ + 1) : first;
    uint64_t endSpan = first + 1;
    while (endSpan <= lastSpan && random_.below(3) != 0 && countBelow(span(endSpan + 1)) <= listCapacity) ++endSpan;
    const size_t count = countBelow(span(endSpan));
    const int front = static_cast<int>(random_.below(listCapacity + 1 - count));
    leaves_.push_back(listLeaf(span(key), take(count), front));
    freeSpan_ = endSpan;
  }

  std::vector<uint64_t> bits_;
  Random& random_;
  size_t next_ = 0;
  uint64_t freeSpan_ = 0;  // the first span that no leaf owns for certain
  std::vector<LeafSpec> leaves_;
};

Groups cutIntoPages(const Leaves& leaves, Random& random) {
  Groups groups(1);
  for (const LeafSpec& leaf : leaves) {
    if (!groups.back().empty() && random.oneIn(3)) groups.emplace_back();
    groups.back().push_back(leaf);
  }
  return groups;
}

void addStretch(Random& random, uint64_t spanIndex, BitSet* bits) {
  const uint64_t base = span(spanIndex);
  switch (random.below(4)) {
    case 0: {  // a run, perhaps across the end of the span
      const uint64_t start = base + random.below(130752);
      for (uint64_t i = 0; i < 1 + random.below(400); ++i) bits->insert(start + i);
      break;
    }
    case 1:  // a cluster
      for (uint64_t i = 0; i < 150; ++i) bits->insert(base + 1000 + random.below(900));
      break;
    case 2:  // the ends of the span
      for (const uint64_t place : {uint64_t{0}, uint64_t{63}, uint64_t{64}, uint64_t{130751}})
        bits->insert(base + place);
      break;
    default:
      for (uint64_t i = 0; i < 20; ++i) bits->insert(base + random.below(130752));
  }
}

}  // namespace

RepTreeRootSType layOutTree(TestHost& host, BmTreeKindEType kind, int level, const BitSet& bits, Random& random) {
  BuildOptions options;
  options.internalFirstOffset = static_cast<int>(random.below(9));
  if (level == 0) {
    const int front = static_cast<int>(random.below(listCapacity + 1 - bits.size()));
    return buildTree(host, kind, listLeaf(0, asVector(bits), front), options);
  }
  const Leaves leaves = LeafCutter(bits, random).cut();
  return level == 1 ? buildTree(host, kind, leaves, options)
                    : buildTree(host, kind, cutIntoPages(leaves, random), options);
}

BitSet randomBitSet(Random& random, size_t size) {
  BitSet bits;
  const uint64_t spans = 2 + random.below(14);
  while (bits.size() < size) addStretch(random, random.below(spans), &bits);
  if (random.oneIn(4)) bits.insert({topBit, topBit - 1, span(lastSpan)});
  return bits;
}

BitSet relatedBitSet(Random& random, const BitSet& bits, size_t size) {
  BitSet related = thinned(random, bits, bits.size() / (1 + random.below(4)));
  if (random.oneIn(3)) return related;
  const BitSet others = randomBitSet(random, size);
  related.insert(others.begin(), others.end());
  return related;
}

BitSet thinned(Random& random, const BitSet& bits, size_t count) {
  if (count == 0) return {};
  const uint64_t step = (bits.size() + count - 1) / count;
  BitSet kept;
  uint64_t skip = random.below(step);
  for (const uint64_t bit : bits) {
    if (skip-- != 0) continue;
    kept.insert(bit);
    skip = step - 1;
  }
  return kept;
}

BitSet unionOf(const BitSet& a, const BitSet& b) {
  BitSet both = a;
  both.insert(b.begin(), b.end());
  return both;
}

BitSet differenceOf(const BitSet& a, const BitSet& b) {
  BitSet left;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(left, left.end()));
  return left;
}

BitSet intersectionOf(const BitSet& a, const BitSet& b) {
  BitSet shared;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(shared, shared.end()));
  return shared;
}

BitSet asSet(const std::vector<uint64_t>& bits) { return {bits.begin(), bits.end()}; }

std::vector<uint64_t> asVector(const BitSet& bits) { return {bits.begin(), bits.end()}; }

TreeSnapshot::TreeSnapshot(TestHost& host, const RepTreeRootSType& root) : host_(host), root_(root), rootThen_(root) {
  for (const TreePage& page : pagesOf(host, root)) {
    pages_.emplace_back(page.ref, PageBytes{});
    std::memcpy(pages_.back().second.data(), host.bytes(root, page.ref), BM_PAGE_SIZE);
  }
}

void TreeSnapshot::expectUnchanged() {
  EXPECT_EQ(std::memcmp(&root_, &rootThen_, sizeof root_), 0) << "the root has changed";
  for (const auto& [ref, bytes] : pages_) {
    EXPECT_EQ(std::memcmp(host_.bytes(root_, ref), bytes.data(), bytes.size()), 0)
        << "page " << ref << " has changed";
  }
}
