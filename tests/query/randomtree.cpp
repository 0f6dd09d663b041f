#include "query/randomtree.h"

#include <algorithm>

namespace {

// The leaves that fill [firstSpan, ...): each list reaches to the next leaf, each dense leaf is one span.
class LeafMaker {
 public:
  LeafMaker(Random& random, uint64_t firstSpan, BitSet* model) : random_(random), span_(firstSpan), model_(model) {}

  LeafSpec next() {
    const uint64_t key = span(span_);
    if (random_.oneIn(3)) return list(key);
    ++span_;
    LeafSpec leaf = denseLeaf(key, random_.oneIn(3) ? std::vector<uint64_t>{} : denseBits(key), 1);
    if (!leaf.bits.empty()) leaf.keepWhenEmpty = random_.oneIn(2);
    if (random_.oneIn(3)) span_ += random_.below(3);
    model_->insert(leaf.bits.begin(), leaf.bits.end());
    return leaf;
  }

 private:
  LeafSpec list(uint64_t key) {
    span_ += 1 + random_.below(3);
    const size_t count = random_.oneIn(8) ? 2043 : 1 + random_.below(60);
    LeafSpec leaf = listLeaf(key, randomBits(random_, count, key, span(span_)));
    leaf.firstOffset = static_cast<int>(random_.below(2044 - leaf.bits.size()));
    model_->insert(leaf.bits.begin(), leaf.bits.end());
    return leaf;
  }

  std::vector<uint64_t> denseBits(uint64_t key) {
    const uint64_t start = key + random_.below(130752 - 300);
    if (random_.oneIn(2)) return runOfBits(start, start + 1 + random_.below(300));
    return randomBits(random_, 1 + random_.below(200), key, span(key / 130752 + 1));
  }

  Random& random_;
  uint64_t span_;
  BitSet* model_;
};

// A leaf in the last span of the number space, which is cut off.
LeafSpec topLeaf(Random& random, BitSet* model) {
  std::vector<uint64_t> bits = randomBits(random, 20, span(lastSpan), topBit);
  bits.push_back(topBit);
  model->insert(bits.begin(), bits.end());
  return random.oneIn(2) ? listLeaf(span(lastSpan), bits) : denseLeaf(span(lastSpan), bits);
}

}  // namespace

std::vector<uint64_t> randomBits(Random& random, size_t count, uint64_t first, uint64_t end) {
  BitSet bits;
  while (bits.size() < count) bits.insert(first + random.below(end - first));
  return {bits.begin(), bits.end()};
}

std::vector<uint64_t> runOfBits(uint64_t first, uint64_t end) {
  std::vector<uint64_t> bits;
  for (uint64_t bit = first; bit < end; ++bit) bits.push_back(bit);
  return bits;
}

RepTreeRootSType randomTree(TestHost& host, BmTreeKindEType kind, int level, Random& random, BitSet* model) {
  BuildOptions options;
  options.internalFirstOffset = static_cast<int>(random.below(20));
  LeafMaker maker(random, random.oneIn(2) ? 0 : random.below(5), model);
  if (level == 0) {
    const size_t count = random.oneIn(4) ? 2043 : 1 + random.below(100);
    const std::vector<uint64_t> bits = randomBits(random, count, 0, topBit);
    model->insert(bits.begin(), bits.end());
    return buildTree(host, kind, listLeaf(0, bits, static_cast<int>(random.below(2044 - count))), options);
  }
  Groups groups(level == 1 ? 1 : 1 + random.below(4));
  for (Leaves& leaves : groups) {
    const uint64_t count = 1 + random.below(8);
    for (uint64_t i = 0; i < count; ++i) leaves.push_back(maker.next());
  }
  if (random.oneIn(3)) groups.back().push_back(topLeaf(random, model));
  return level == 1 ? buildTree(host, kind, groups.front(), options) : buildTree(host, kind, groups, options);
}
