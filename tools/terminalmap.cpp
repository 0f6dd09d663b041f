#include "terminalmap.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "readable.h"

namespace bmtree::tools {
namespace {

// Empty, then from the emptiest to the fullest.
constexpr std::string_view plainShades = " .:-=+*#%@";
// The same in the 256 colours of terminals, from deep purple to pale yellow; empty cells are left alone.
constexpr std::array<int, shades + 1> colours{0, 53, 54, 90, 126, 162, 203, 209, 215, 229};
constexpr int listColour = 214;
constexpr int denseColour = 105;

constexpr size_t labelAtMost = 24;

std::string foreground(int colour) { return "\033[38;5;" + std::to_string(colour) + "m"; }
std::string background(int colour) { return "\033[48;5;" + std::to_string(colour) + "m"; }
constexpr const char* plain = "\033[0m";

// Two cells above each other in one character.
std::string twoCells(int upper, int lower) {
  if (upper == 0 && lower == 0) return " ";
  if (lower == 0) return foreground(colours[upper]) + "▀" + plain;
  if (upper == 0) return foreground(colours[lower]) + "▄" + plain;
  return foreground(colours[upper]) + background(colours[lower]) + "▀" + plain;
}

std::string rowLabel(const DensityGrid& grid, size_t row) {
  std::string label = printable(grid.rows[row].label, labelAtMost);
  return std::string(labelWidth(grid) - 2 - displayWidth(label), ' ') + label + "  ";
}

std::string trimmed(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

std::string colourGrid(const DensityGrid& grid) {
  std::string text;
  for (size_t row = 0; row < grid.rows.size(); row += 2) {
    std::string line = rowLabel(grid, row);
    for (size_t i = 0; i < grid.columns; ++i) {
      const bool last = row + 1 == grid.rows.size();
      line += twoCells(grid.shadeOf(grid.rows[row].counts[i]), last ? 0 : grid.shadeOf(grid.rows[row + 1].counts[i]));
    }
    text += trimmed(line);
  }
  return text;
}

std::string plainGrid(const DensityGrid& grid) {
  std::string text;
  for (size_t row = 0; row < grid.rows.size(); ++row) {
    std::string line = rowLabel(grid, row);
    for (const uint64_t count : grid.rows[row].counts) line += plainShades[static_cast<size_t>(grid.shadeOf(count))];
    text += trimmed(line);
  }
  return text;
}

}  // namespace

size_t labelWidth(const DensityGrid& grid) {
  size_t width = 0;
  for (const DensityRow& row : grid.rows) {
    width = std::max(width, displayWidth(printable(row.label, labelAtMost)));
  }
  return width + 2;
}

std::string terminalGrid(const DensityGrid& grid, bool colour) { return colour ? colourGrid(grid) : plainGrid(grid); }

std::string terminalLegend(const DensityGrid& grid, bool colour) {
  const bool even = grid.low == grid.high;
  std::string scale;
  for (int shade = even ? shades : 1; shade <= shades; ++shade) {
    scale += colour ? foreground(colours[static_cast<size_t>(shade)]) + "██" + plain
                    : std::string(1, plainShades[static_cast<size_t>(shade)]);
  }
  const std::string indent(labelWidth(grid), ' ');
  const std::string text = indent + "a cell is " + counted(grid.cellSpan, "number") + " wide, a row " +
                           grouped(grid.rowSpan()) + "\n" + indent;
  const std::string high = densityText(grid.density(grid.high));
  if (grid.high == 0) return text + "all cells are empty\n";
  if (even) return text + "set: " + scale + "  " + high + "; blank: none\n";
  return text + "set: up to " + densityText(grid.density(grid.low)) + "  " + scale + "  " + high +
         " and more; blank: none\n";
}

static std::string framed(const std::string& before, const std::string& text, const std::string& after) {
  return before + text + after;
}

std::string terminalProfile(const LeafProfile& profile, size_t indent, bool colour) {
  constexpr std::array bars{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::string_view plainBars = "01234567";
  const auto label = [&](const std::string& word) {
    return std::string(indent - word.size() - 2, ' ') + word + "  ";
  };
  std::string kinds = label("leaves");
  std::string fills = label("fill");
  for (const LeafColumn& column : profile.columns) {
    const bool dense = column.dense > column.list;
    const bool none = column.dense + column.list == 0;
    const auto eighth = std::min(static_cast<size_t>(column.fill * 8), size_t{7});
    const std::string paint = colour ? foreground(dense ? denseColour : listColour) : "";
    const std::string end = colour ? plain : "";
    const std::string bar = colour ? std::string(bars[eighth]) : std::string(1, plainBars[eighth]);
    kinds += none ? " " : framed(paint, dense ? "D" : "l", end);
    fills += none ? " " : framed(paint, bar, end);
  }
  return trimmed(kinds) + trimmed(fills) + std::string(indent, ' ') + "leaves: l list, D dense; fill: " +
         (colour ? "how full they are\n" : "0 for less than an eighth, up to 7\n");
}

}  // namespace bmtree::tools
