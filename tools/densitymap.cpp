#include "densitymap.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "readable.h"

namespace bmtree::tools {
namespace {

constexpr uint64_t listSlots = 2043;
constexpr uint64_t denseSlots = 130752;

// The smallest round number that is not below `least`: a power of ten times one of `factors`, which ascend from 1.
uint64_t roundUp(uint64_t least, std::initializer_list<double> factors) {
  for (uint64_t power = 1;; power *= 10) {
    for (const double factor : factors) {
      const double candidate = factor * static_cast<double>(power);
      if (candidate >= static_cast<double>(least) && candidate == std::floor(candidate)) {
        return static_cast<uint64_t>(candidate);
      }
    }
  }
}

uint64_t countCell(const Tree& tree, uint64_t first, uint64_t span) {
  if (first >= numberEnd) return 0;
  return tree.countRange(first, std::min(first + span, numberEnd) - 1);
}

std::vector<uint64_t> countCells(const Tree& tree, uint64_t first, uint64_t span, size_t columns) {
  std::vector<uint64_t> counts(columns);
  if (first >= numberEnd || countCell(tree, first, span * columns) == 0) return counts;
  for (size_t i = 0; i < columns; ++i) counts[i] = countCell(tree, first + i * span, span);
  return counts;
}

void findScale(DensityGrid& grid) {
  std::vector<uint64_t> counts;
  for (const DensityRow& row : grid.rows) {
    std::copy_if(row.counts.begin(), row.counts.end(), std::back_inserter(counts), [](uint64_t n) { return n != 0; });
  }
  if (counts.empty()) return;
  std::sort(counts.begin(), counts.end());
  const size_t odd = counts.size() / 50;
  grid.low = counts[odd];
  grid.high = counts[counts.size() - 1 - odd];
}

// Adds a leaf to the columns that it owns parts of.
void addLeaf(LeafProfile& profile, double columnSpan, const LeafInfo& leaf) {
  const double begin = static_cast<double>(std::max(leaf.firstNumber, profile.span.from) - profile.span.from);
  const double end = static_cast<double>(std::min(leaf.endNumber, profile.span.to + 1) - profile.span.from);
  const auto last = std::min(static_cast<size_t>((end - 1) / columnSpan), profile.columns.size() - 1);
  for (auto i = static_cast<size_t>(begin / columnSpan); i <= last; ++i) {
    const double from = std::max(begin, static_cast<double>(i) * columnSpan);
    const double to = std::min(end, static_cast<double>(i + 1) * columnSpan);
    const double share = std::max(0.0, to - from) / columnSpan;
    LeafColumn& column = profile.columns[i];
    (leaf.kind == LeafKind::dense ? column.dense : column.list) += share;
    column.fill += share * fillOf(leaf);
  }
}

}  // namespace

int DensityGrid::shadeOf(uint64_t count) const {
  if (count == 0) return 0;
  // The scale covers a factor of two at least, so that what is nearly even looks so.
  const double top = std::log(static_cast<double>(high));
  const double bottom = std::min(std::log(static_cast<double>(low)), top - std::log(2.0));
  const double place = (std::log(static_cast<double>(count)) - bottom) / (top - bottom);
  return 1 + std::clamp(static_cast<int>(std::floor(place * shades)), 0, shades - 1);
}

NumberSpan spanOf(const Tree& tree) {
  const auto first = tree.first();
  const auto last = tree.last();
  if (!first || !last) return {0, numberEnd - 1};
  return {*first < (*last - *first) / 4 ? 0 : *first, *last};
}

DensityGrid gridOf(const Tree& tree, NumberSpan span, size_t columns, size_t rowsAtMost) {
  DensityGrid grid;
  grid.columns = columns;
  uint64_t start = 0;
  uint64_t rows = 0;
  uint64_t leastSpan = (span.to - span.from) / (columns * rowsAtMost) + 1;
  do {
    grid.cellSpan = roundUp(leastSpan, {1, 2, 5});
    leastSpan = grid.cellSpan + 1;
    start = span.from / grid.rowSpan() * grid.rowSpan();
    rows = (span.to - start) / grid.rowSpan() + 1;
  } while (rows > rowsAtMost);
  for (uint64_t i = 0; i < rows; ++i) {
    const uint64_t first = start + i * grid.rowSpan();
    grid.rows.push_back({grouped(first), first, countCells(tree, first, grid.cellSpan, columns)});
  }
  findScale(grid);
  return grid;
}

DensityGrid gridOf(const std::vector<Tree>& trees, NumberSpan span, size_t columns) {
  DensityGrid grid;
  grid.columns = columns;
  uint64_t start = 0;
  uint64_t leastSpan = (span.to - span.from) / columns + 1;
  do {
    grid.cellSpan = roundUp(leastSpan, {1, 1.2, 1.5, 2, 2.5, 3, 4, 5, 6, 8});
    leastSpan = grid.cellSpan + 1;
    start = span.from / grid.cellSpan * grid.cellSpan;
  } while (start + grid.rowSpan() <= span.to);
  for (const Tree& tree : trees) {
    grid.rows.push_back({tree.name(), start, countCells(tree, start, grid.cellSpan, columns)});
  }
  findScale(grid);
  return grid;
}

LeafProfile profileOf(const Tree& tree, NumberSpan span, size_t columns) {
  LeafProfile profile;
  profile.span = span;
  profile.columns.resize(columns);
  const double columnSpan = static_cast<double>(span.to - span.from + 1) / static_cast<double>(columns);
  tree.forEachLeaf([&](const LeafInfo& leaf) {
    if (leaf.endNumber <= span.from || leaf.firstNumber > span.to) return;
    const auto fillClass = std::min(static_cast<size_t>(fillOf(leaf) * fillClasses), fillClasses - 1);
    ++(leaf.kind == LeafKind::dense ? profile.denses : profile.lists)[fillClass];
    addLeaf(profile, columnSpan, leaf);
  });
  for (LeafColumn& column : profile.columns) {
    const double owned = column.list + column.dense;
    if (owned > 0) column.fill /= owned;
  }
  return profile;
}

double fillOf(const LeafInfo& leaf) {
  return static_cast<double>(leaf.count) / static_cast<double>(leaf.kind == LeafKind::dense ? denseSlots : listSlots);
}

}  // namespace bmtree::tools
