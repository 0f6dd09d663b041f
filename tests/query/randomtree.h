// Random trees of every kind and shape, built by hand: lists and dense leaves, gaps that no leaf owns, kept dense
// leaves without bits in front, in the middle and at the end, leaves at the end of the number space.
#pragma once

#include "support/treemodel.h"

// The first bit of the span with this index.
constexpr uint64_t span(uint64_t index) { return index * 130752; }
constexpr uint64_t lastSpan = 0xFFFFFFFFFF / 130752;
constexpr uint64_t topBit = 0xFFFFFFFFFF;

// The leaves of a level-1 page; the level-1 pages of a level-2 tree.
using Leaves = std::vector<LeafSpec>;
using Groups = std::vector<Leaves>;

// `count` different bits of [first, end), ascending.
std::vector<uint64_t> randomBits(Random& random, size_t count, uint64_t first, uint64_t end);

// Every bit of [first, end).
std::vector<uint64_t> runOfBits(uint64_t first, uint64_t end);

// A tree of `level` 0 to 2; its bits are added to `model`. Always has a leaf; may have no bit above level 0.
RepTreeRootSType randomTree(TestHost& host, BmTreeKindEType kind, int level, Random& random, BitSet* model);
