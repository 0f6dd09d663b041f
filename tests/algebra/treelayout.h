// Trees of given bits in random shapes, for operations between two trees: the same bits can stand in lists or dense
// leaves, behind any keys that own them, with gaps and with kept dense leaves without bits between them.
#pragma once

#include "query/randomtree.h"

// A tree of `level` that holds exactly `bits`: at level 0 a list, so at most 2043 of them, and at least one.
RepTreeRootSType layOutTree(TestHost& host, BmTreeKindEType kind, int level, const BitSet& bits, Random& random);

// Bits in runs, clusters and singles over some spans of a short stretch, about `size` of them.
BitSet randomBitSet(Random& random, size_t size);

// Bits that share many with `bits`: some of them, and some others.
BitSet relatedBitSet(Random& random, const BitSet& bits, size_t size);

// At most `count` of the bits, some at every place.
BitSet thinned(Random& random, const BitSet& bits, size_t count);

BitSet unionOf(const BitSet& a, const BitSet& b);
BitSet differenceOf(const BitSet& a, const BitSet& b);
BitSet intersectionOf(const BitSet& a, const BitSet& b);
BitSet asSet(const std::vector<uint64_t>& bits);
std::vector<uint64_t> asVector(const BitSet& bits);

// The root and the bytes of every page of a tree, to be compared with a later state.
class TreeSnapshot {
 public:
  TreeSnapshot(TestHost& host, const RepTreeRootSType& root);
  // The tree is as it was, byte for byte.
  void expectUnchanged();

 private:
  TestHost& host_;
  const RepTreeRootSType& root_;
  RepTreeRootSType rootThen_;
  std::vector<std::pair<uint64_t, PageBytes>> pages_;
};
