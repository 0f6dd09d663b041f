#include "svgmap.h"

#include <algorithm>
#include <cmath>

#include "readable.h"

namespace bmtree::tools {
namespace {

// The picture is 1200 wide; all plots share the stretch from plotLeft to plotLeft + plotWidth. In pixels.
constexpr double pictureWidth = 1200;
constexpr double plotLeft = 148;
constexpr double plotWidth = 1000;
constexpr double margin = 44;

// Colours of light pages and, within the media query, of dark ones. Shades s1 to s9 go from the emptiest to the
// fullest cell; l is for list leaves, d for dense ones.
constexpr const char* style = R"(<style>
  svg { font-family: system-ui, -apple-system, "Segoe UI", "DejaVu Sans", sans-serif; }
  .page { fill: #ffffff; stroke: #d9dde4; }
  .title { font-size: 26px; font-weight: 700; fill: #171b26; }
  .head { font-size: 15px; font-weight: 600; fill: #171b26; }
  .note { font-size: 13px; fill: #5b6474; }
  .axis { font-size: 12px; fill: #5b6474; }
  .big { font-size: 22px; font-weight: 600; fill: #171b26; }
  .rule { stroke: #e3e6ec; stroke-width: 1; }
  .base { stroke: #aab1be; stroke-width: 1; }
  .s0 { fill: #f1f3f6; }
  .s1 { fill: #cfeab6; } .s2 { fill: #aadfb4; } .s3 { fill: #7fcdba; }
  .s4 { fill: #52bac2; } .s5 { fill: #2b9cc0; } .s6 { fill: #207bb3; }
  .s7 { fill: #24579f; } .s8 { fill: #233789; } .s9 { fill: #0e1b55; }
  .l { fill: #e8963a; } .d { fill: #6554c8; }
  @media (prefers-color-scheme: dark) {
    .page { fill: #12161f; stroke: #2a3040; }
    .title, .head, .big { fill: #eef1f6; }
    .note, .axis { fill: #98a2b5; }
    .rule { stroke: #262c3a; }
    .base { stroke: #566075; }
    .s0 { fill: #1b202c; }
    .s1 { fill: #1d3266; } .s2 { fill: #1d4c88; } .s3 { fill: #1f6aa3; }
    .s4 { fill: #2689b3; } .s5 { fill: #3ba7b5; } .s6 { fill: #63c2ac; }
    .s7 { fill: #98d89b; } .s8 { fill: #cfea8f; } .s9 { fill: #fff6a3; }
    .l { fill: #f0a650; } .d { fill: #9686f2; }
  }
</style>
)";

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : printable(text)) {
    if (c == '&') {
      result += "&amp;";
    } else if (c == '<') {
      result += "&lt;";
    } else {
      result += c;
    }
  }
  return result;
}

// A coordinate without needless digits.
std::string px(double value) {
  std::string text = fixed(value, 1);
  if (text.ends_with(".0")) text.resize(text.size() - 2);
  return text;
}

// The elements of a picture, drawn from top to bottom: `y` is where the next part begins.
class Picture {
 public:
  double y = 0;

  void rect(std::string_view kind, double x, double top, double width, double height,
            const std::string& tooltip = {}) {
    body_ += "<path class=\"" + std::string(kind) + "\" d=\"M" + px(x) + " " + px(top) + "h" + px(width) + "v" +
             px(height) + "h-" + px(width) + "z\"";
    body_ += tooltip.empty() ? "/>\n" : "><title>" + escaped(tooltip) + "</title></path>\n";
  }

  void text(std::string_view kind, double x, double baseline, std::string_view words, const char* anchor = "start") {
    body_ += "<text class=\"" + std::string(kind) + "\" x=\"" + px(x) + "\" y=\"" + px(baseline) + "\"";
    if (std::string_view(anchor) != "start") body_ += " text-anchor=\"" + std::string(anchor) + "\"";
    body_ += ">" + escaped(words) + "</text>\n";
  }

  void line(std::string_view kind, double x1, double y1, double x2, double y2) {
    body_ += "<line class=\"" + std::string(kind) + "\" x1=\"" + px(x1) + "\" y1=\"" + px(y1) + "\" x2=\"" + px(x2) +
             "\" y2=\"" + px(y2) + "\"/>\n";
  }

  // The whole picture, as high as it has become, with a title for those who cannot see it.
  std::string finish(const std::string& title) const {
    const std::string size = "width=\"" + px(pictureWidth) + "\" height=\"" + px(y) + "\"";
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" " + size + " viewBox=\"0 0 " + px(pictureWidth) + " " + px(y) +
           "\" role=\"img\">\n<title>" + escaped(title) + "</title>\n" + style +
           "<rect class=\"page\" x=\"0.5\" y=\"0.5\" width=\"" + px(pictureWidth - 1) + "\" height=\"" + px(y - 1) +
           "\" rx=\"10\"/>\n" + body_ + "</svg>\n";
  }

 private:
  std::string body_;
};

void drawTitle(Picture& picture, const std::string& title, const std::string& subtitle) {
  picture.text("title", margin, 58, title);
  picture.text("note", margin, 84, subtitle);
  picture.y = 84;
}

// A heading with an explanation behind it, and room for what follows.
void drawHeading(Picture& picture, const std::string& heading, const std::string& note) {
  picture.y += 46;
  picture.text("head", margin, picture.y, heading);
  picture.text("note", pictureWidth - 52, picture.y, note, "end");
  picture.y += 14;
}

void drawLegend(Picture& picture, const DensityGrid& grid) {
  constexpr double box = 22;
  constexpr double height = 12;
  picture.y += 20;
  const double baseline = picture.y + height - 1.5;
  double x = plotLeft;
  picture.rect("s0", x, picture.y, box, height);
  picture.text("axis", x + box + 8, baseline, "none");
  x += box + 60;
  if (grid.high != 0) {
    const bool even = grid.low == grid.high;
    if (!even) picture.text("axis", x + 140, baseline, "up to " + densityText(grid.density(grid.low)), "end");
    x += even ? 20 : 148;
    for (int shade = even ? shades : 1; shade <= shades; ++shade) {
      picture.rect("s" + std::to_string(shade), x, picture.y, box - 1, height);
      x += box;
    }
    picture.text(
        "axis", x + 7, baseline,
        densityText(grid.density(grid.high)) + (even ? "" : " and more") + " of a cell's numbers are in the set");
  }
  picture.y += height;
}

// Empty cells are left out: the ground below them has their colour.
void drawRow(Picture& picture, const DensityGrid& grid, const DensityRow& row, double cellWidth, double height,
             double gap) {
  for (size_t i = 0; i < row.counts.size(); ++i) {
    const uint64_t count = row.counts[i];
    if (count == 0) continue;
    const uint64_t first = row.first + i * grid.cellSpan;
    picture.rect("s" + std::to_string(grid.shadeOf(count)), plotLeft + static_cast<double>(i) * cellWidth, picture.y,
                 cellWidth - gap, height - gap,
                 grouped(first) + ": " + grouped(count) + ", " + densityText(grid.density(count)));
  }
}

// How far the columns lie from the start of a row.
void drawColumnAxis(Picture& picture, const DensityGrid& grid, uint64_t start, const char* sign) {
  constexpr int ticks = 5;
  picture.y += 12;
  for (int i = 0; i <= ticks; ++i) {
    const char* anchor = i == 0 ? "start" : i == ticks ? "end" : "middle";
    picture.text("axis", plotLeft + plotWidth * i / ticks, picture.y,
                 sign + grouped(start + grid.rowSpan() / ticks * static_cast<uint64_t>(i)), anchor);
  }
  picture.y += 8;
}

void drawTreeGrid(Picture& picture, const DensityGrid& grid) {
  const double cell = plotWidth / static_cast<double>(grid.columns);
  drawHeading(picture, "Where the numbers lie",
              "a cell is " + counted(grid.cellSpan, "number") + " wide; read it like text, a row after the other");
  drawColumnAxis(picture, grid, 0, "+");
  picture.rect("s0", plotLeft, picture.y, plotWidth - 1, cell * static_cast<double>(grid.rows.size()) - 1);
  const size_t labelEvery = grid.rows.size() <= 12 ? 1 : 2;
  for (size_t i = 0; i < grid.rows.size(); ++i) {
    const DensityRow& row = grid.rows[i];
    if (i % labelEvery == 0) picture.text("axis", plotLeft - 12, picture.y + cell - 1, row.label, "end");
    drawRow(picture, grid, row, cell, cell, 1);
    picture.y += cell;
  }
  drawLegend(picture, grid);
}

// The lines of an axis at 0, 50 and 100 %.
void drawFillAxis(Picture& picture, double height) {
  for (const int share : {0, 50, 100}) {
    const double y = picture.y + height * (100 - share) / 100;
    picture.line(share == 0 ? "base" : "rule", plotLeft, y, plotLeft + plotWidth, y);
    picture.text("axis", plotLeft - 12, y + 4, std::to_string(share) + " %", "end");
  }
}

// The width of an axis from 0 to `end` in steps of 1, 2 or 5 times a power of ten, at most ten of them.
double axisStep(double end) {
  const double power = std::pow(10, std::floor(std::log10(std::max(end, 1.0))) - 1);
  for (const double factor : {1.0, 2.0, 5.0, 10.0, 20.0, 50.0}) {
    if (end / (factor * power) <= 10) return std::max(1.0, factor * power);
  }
  return end;
}

void drawNumberAxis(Picture& picture, NumberSpan span) {
  const double width = static_cast<double>(span.to - span.from) + 1;
  const double step = axisStep(width);
  const double start = std::ceil(static_cast<double>(span.from) / step) * step;
  picture.y += 18;
  // the counter steps by a chart scale, which need not be whole.
  // NOLINTNEXTLINE(clang-analyzer-security.FloatLoopCounter)
  for (double number = start; number <= static_cast<double>(span.to); number += step) {
    const double x = plotLeft + (number - static_cast<double>(span.from)) / width * plotWidth;
    picture.line("base", x, picture.y - 18, x, picture.y - 13);
    picture.text("axis", x, picture.y, grouped(static_cast<uint64_t>(number)),
                 x > plotLeft + plotWidth - 40 ? "end" : "middle");
  }
}

void drawKindKey(Picture& picture, double x, double baseline) {
  picture.rect("l", x, baseline - 10, 12, 12);
  picture.text("note", x + 19, baseline, "list leaves");
  picture.rect("d", x + 110, baseline - 10, 12, 12);
  picture.text("note", x + 129, baseline, "dense leaves");
}

void drawProfile(Picture& picture, const LeafProfile& profile) {
  constexpr double height = 110;
  drawHeading(picture, "How full the leaves are, along the number space", "");
  drawKindKey(picture, pictureWidth - 52 - 212, picture.y - 14);
  picture.y += 8;
  drawFillAxis(picture, height);
  const double width = plotWidth / static_cast<double>(profile.columns.size());
  for (size_t i = 0; i < profile.columns.size(); ++i) {
    const LeafColumn& column = profile.columns[i];
    const double owned = column.list + column.dense;
    if (owned == 0) continue;
    // Even a nearly empty leaf shows.
    const double bar = std::max(1.5, column.fill * height);
    const double densePart = bar * column.dense / owned;
    const double x = plotLeft + static_cast<double>(i) * width;
    if (densePart > 0) picture.rect("d", x, picture.y + height - densePart, width - 0.5, densePart);
    if (bar > densePart) picture.rect("l", x, picture.y + height - bar, width - 0.5, bar - densePart);
  }
  picture.y += height;
  drawNumberAxis(picture, profile.span);
}

void drawHistogram(Picture& picture, const LeafProfile& profile) {
  constexpr double width = 440;
  constexpr double height = 100;
  uint64_t most = 1;
  for (size_t i = 0; i < fillClasses; ++i) most = std::max(most, profile.lists[i] + profile.denses[i]);
  const double step = axisStep(static_cast<double>(most) * 2.5);
  const double top = std::ceil(static_cast<double>(most) / step) * step;
  // the counter steps by a chart scale, which need not be whole.
  // NOLINTNEXTLINE(clang-analyzer-security.FloatLoopCounter)
  for (double count = 0; count <= top; count += step) {
    const double y = picture.y + height * (1 - count / top);
    picture.line(count == 0 ? "base" : "rule", plotLeft, y, plotLeft + width, y);
    picture.text("axis", plotLeft - 12, y + 4, grouped(static_cast<uint64_t>(count)), "end");
  }
  const double bar = width / static_cast<double>(fillClasses);
  for (size_t i = 0; i < fillClasses; ++i) {
    const double x = plotLeft + static_cast<double>(i) * bar;
    const double dense = height * static_cast<double>(profile.denses[i]) / top;
    const double list = height * static_cast<double>(profile.lists[i]) / top;
    const std::string fill = std::to_string(i * 5) + " to " + std::to_string(i * 5 + 5) + " % full: ";
    if (dense > 0) {
      picture.rect("d", x + 1, picture.y + height - dense, bar - 2, dense,
                   fill + grouped(profile.denses[i]) + " dense");
    }
    if (list > 0) {
      picture.rect("l", x + 1, picture.y + height - dense - list, bar - 2, list,
                   fill + grouped(profile.lists[i]) + " list");
    }
  }
  for (const int share : {0, 25, 50, 75, 100}) {
    picture.text("axis", plotLeft + width * share / 100, picture.y + height + 18, std::to_string(share) + " %",
                 "middle");
  }
}

// One figure: what it is, the figure, and a remark below.
void drawTile(Picture& picture, double x, double top, const std::string& label, const std::string& figure,
              const std::string& remark) {
  picture.text("note", x, top + 12, label);
  picture.text("big", x, top + 40, figure);
  picture.text("axis", x, top + 60, remark);
}

std::string fillRemark(uint64_t pages, double fill, uint64_t used, const char* what) {
  if (pages == 0) return "";
  return percent(fill) + " full, " + shortened(static_cast<double>(used)) + " " + what;
}

void drawTiles(Picture& picture, const TreeStats& stats) {
  const double x = plotLeft + 540;
  constexpr double step = 240;
  const double each =
      stats.count == 0 ? 0 : 8 * static_cast<double>(stats.bytes()) / static_cast<double>(stats.count);
  drawTile(picture, x, picture.y - 12, "List leaves", grouped(stats.listPages),
           fillRemark(stats.listPages, stats.listFill(), stats.listNumbers, "numbers"));
  drawTile(picture, x + step, picture.y - 12, "Dense leaves", grouped(stats.densePages),
           fillRemark(stats.densePages, stats.denseFill(), stats.denseNumbers, "numbers"));
  drawTile(picture, x, picture.y + 66, "Internal pages", grouped(stats.internalPages),
           fillRemark(stats.internalPages, stats.internalFill(), stats.internalEntries, "keys"));
  drawTile(picture, x + step, picture.y + 66, "Size", readableBytes(stats.bytes()),
           stats.count == 0 ? "" : fixed(each, 2) + " bits for each number");
}

void drawLeaves(Picture& picture, const LeafProfile& profile, const TreeStats& stats) {
  drawHeading(picture, "How many leaves are how full", "");
  picture.y += 10;
  drawHistogram(picture, profile);
  drawTiles(picture, stats);
  picture.y += 100 + 18;
}

}  // namespace

std::string svgOfTree(const TreeCaption& caption, const DensityGrid& grid, const LeafProfile& profile) {
  const TreeStats& stats = caption.stats;
  std::string subtitle = counted(stats.count, "number");
  if (stats.first) subtitle += " from " + grouped(*stats.first) + " to " + grouped(*stats.last);
  subtitle += ", in " + counted(stats.pages(), "page") + " of 16 KiB, a tree of level " + std::to_string(stats.level);
  Picture picture;
  drawTitle(picture, caption.name, subtitle);
  drawTreeGrid(picture, grid);
  drawProfile(picture, profile);
  drawLeaves(picture, profile, stats);
  picture.y += 36;
  return picture.finish("Map of " + caption.name + ": " + subtitle);
}

std::string svgOfTrees(const std::string& title, uint64_t numbers, const DensityGrid& grid) {
  constexpr double gridHeight = 700;
  const double cell = plotWidth / static_cast<double>(grid.columns);
  const auto rows = static_cast<double>(std::max<size_t>(grid.rows.size(), 1));
  const double height = std::clamp(std::floor(gridHeight / rows * 2) / 2, 2.0, 14.0);
  const double gap = height >= 6 ? 1 : 0.5;
  const size_t labelEvery = std::max<size_t>(1, static_cast<size_t>(std::ceil(14 / height)));
  const std::string subtitle = counted(grid.rows.size(), "tree") + ", " + counted(numbers, "number") + " in all";
  Picture picture;
  drawTitle(picture, title, subtitle);
  drawHeading(picture, "Where the numbers lie",
              "a row is a tree, a cell " + counted(grid.cellSpan, "number") + " wide");
  drawColumnAxis(picture, grid, grid.rows.empty() ? 0 : grid.rows[0].first, "");
  picture.rect("s0", plotLeft, picture.y, plotWidth - gap, height * static_cast<double>(grid.rows.size()) - gap);
  for (size_t i = 0; i < grid.rows.size(); ++i) {
    if (i % labelEvery == 0) {
      picture.text("axis", plotLeft - 12, picture.y + height / 2 + 4, printable(grid.rows[i].label, 18), "end");
    }
    drawRow(picture, grid, grid.rows[i], cell, height, gap);
    picture.y += height;
  }
  drawLegend(picture, grid);
  picture.y += 40;
  return picture.finish("Map of " + title + ": " + subtitle);
}

}  // namespace bmtree::tools
