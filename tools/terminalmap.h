// A density map for a terminal.
#pragma once

#include <string>

#include "densitymap.h"

namespace bmtree::tools {

// The grid with its row labels. In colour two rows share a line, so that cells are about square; without, a cell is
// a character, the darker the fuller.
std::string terminalGrid(const DensityGrid& grid, bool colour);

// What the shades mean.
std::string terminalLegend(const DensityGrid& grid, bool colour);

// One line for the kinds of the leaves, one for their fill, as wide as the columns of the profile. `indent`, at least
// 8, is the room for their labels.
std::string terminalProfile(const LeafProfile& profile, size_t indent, bool colour);

// Width of the row labels with the blanks behind them.
size_t labelWidth(const DensityGrid& grid);

}  // namespace bmtree::tools
