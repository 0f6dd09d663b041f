// Density maps as pictures: SVG that looks well on light and dark pages.
#pragma once

#include <string>

#include "densitymap.h"

namespace bmtree::tools {

// What the picture of a tree tells beside its map.
struct TreeCaption {
  std::string name;
  TreeStats stats;
};

// A tree: density over the number space, kinds and fill of the leaves along it, and how many leaves are how full.
std::string svgOfTree(const TreeCaption& caption, const DensityGrid& grid, const LeafProfile& profile);

// Many trees: one row of density for each. `numbers`: how many they hold together.
std::string svgOfTrees(const std::string& title, uint64_t numbers, const DensityGrid& grid);

}  // namespace bmtree::tools
