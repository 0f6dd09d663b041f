// Where the numbers of trees lie: counts over a grid of equal cells, and what the leaves look like.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "store.h"

namespace bmtree::tools {

// A row of cells, each `cellSpan` numbers wide, from number `first` on.
struct DensityRow {
  std::string label;
  uint64_t first;
  std::vector<uint64_t> counts;
};

// Shades from 1, for cells that hold little, to this, for full ones. 0 is an empty cell.
constexpr int shades = 9;

struct DensityGrid {
  uint64_t cellSpan = 1;
  size_t columns = 0;
  std::vector<DensityRow> rows;
  // The scale: cells with fewer numbers than `low`, which is at least 1, and with more than `high` look like these.
  // One in fifty cells lies beyond either, so that a few odd ones do not take the contrast from all others. 0: all
  // empty.
  uint64_t low = 0;
  uint64_t high = 0;

  uint64_t rowSpan() const { return cellSpan * columns; }
  // The shade of a cell that holds `count` numbers. Shades follow the logarithm of the count.
  int shadeOf(uint64_t count) const;
  // Share of a cell that `count` numbers fill.
  double density(uint64_t count) const { return static_cast<double>(count) / static_cast<double>(cellSpan); }
};

// Numbers to look at, both ends included.
struct NumberSpan {
  uint64_t from;
  uint64_t to;
};

// The span of `tree` from its first number to its last, begun at 0 if that adds little; all numbers if it is empty.
NumberSpan spanOf(const Tree& tree);

// A grid over `span` with rows of `columns` cells, at most `rowsAtMost`. Cells are a power of ten, or twice or five
// times one, wide, and a row begins at a multiple of its width, so that the axes have round numbers.
DensityGrid gridOf(const Tree& tree, NumberSpan span, size_t columns, size_t rowsAtMost);

// A grid with one row for each tree.
DensityGrid gridOf(const std::vector<Tree>& trees, NumberSpan span, size_t columns);

// The leaves that own a stretch of numbers.
struct LeafColumn {
  double list = 0;   // share of the stretch that list leaves own, 0 to 1
  double dense = 0;  // share that dense leaves own
  double fill = 0;   // how full those leaves are on average, 0 to 1
};

constexpr size_t fillClasses = 20;

struct LeafProfile {
  NumberSpan span;
  std::vector<LeafColumn> columns;             // equal parts of the span
  std::array<uint64_t, fillClasses> lists{};   // how many list leaves are filled by 0-5 %, 5-10 %, ...
  std::array<uint64_t, fillClasses> denses{};  // the same of dense leaves
};

LeafProfile profileOf(const Tree& tree, NumberSpan span, size_t columns);

// How full a leaf is, 0 to 1.
double fillOf(const LeafInfo& leaf);

}  // namespace bmtree::tools
