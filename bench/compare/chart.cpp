// The chart: a strip for each operation and workload, a dot in it for each other competitor, placed by how many times
// as long as ours it took. Right of the middle line ours is the faster one.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include "operations.h"
#include "results.h"

namespace {

constexpr double labelWidth = 215;
constexpr double columnWidth = 150;
constexpr double columnGap = 14;
constexpr double rowHeight = 21;
constexpr double headHeight = 46;
constexpr double margin = 16;
constexpr double decades = 2;  // to either side of the middle; what lies beyond is drawn at the edge

constexpr const char* colors[] = {"#0b6fb8", "#d1495b", "#7a5195", "#e08e0b", "#2a9d8f", "#6b705c", "#b5179e"};

std::string escaped(const std::string& text) {
  std::string result;
  for (char c : text) {
    switch (c) {
      case '&': result += "&amp;"; break;
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      default: result += c;
    }
  }
  return result;
}

// One block of strips: the competitors in memory, or the durable ones.
struct Block {
  std::string title;
  std::vector<const Competitor*> others;
  std::vector<const WorkloadName*> columns;
  std::vector<const Operation*> rows;
  std::string ours;

  double width() const {
    return margin * 2 + labelWidth + static_cast<double>(columns.size()) * (columnWidth + columnGap);
  }
  double height() const { return headHeight * 2 + static_cast<double>(rows.size()) * rowHeight + margin * 2; }
};

Block makeBlock(const Report& report, bool durable, const std::string& title) {
  Block block{title, {}, {}, {}, ""};
  for (const Competitor& competitor : report.competitors) {
    if (competitor.durable != durable) continue;
    if (block.ours.empty() && competitor.name.starts_with(ourName)) {
      block.ours = competitor.name;
    } else {
      block.others.push_back(&competitor);
    }
  }
  for (const WorkloadName& workload : report.workloads) {
    const bool has = std::any_of(report.results.begin(), report.results.end(), [&](const Result& result) {
      return result.workload == workload.id && result.competitor == block.ours;
    });
    if (has) block.columns.push_back(&workload);
  }
  for (const Operation& operation : allOperations()) {
    const bool has = std::any_of(report.results.begin(), report.results.end(), [&](const Result& result) {
      return result.operation == operation.id && result.competitor == block.ours;
    });
    if (has) block.rows.push_back(&operation);
  }
  return block;
}

void text(std::ostream& out, double x, double y, const char* style, const std::string& words) {
  out << "<text x=\"" << x << "\" y=\"" << y << "\" class=\"" << style << "\">" << escaped(words) << "</text>\n";
}

double columnAt(size_t column) {
  return margin + labelWidth + static_cast<double>(column) * (columnWidth + columnGap);
}
double middleOf(size_t column) { return columnAt(column) + columnWidth / 2; }

// Where a ratio stands, from the middle of its column.
double offsetOf(double ratio) { return std::clamp(std::log10(ratio) / decades, -1.0, 1.0) * (columnWidth / 2 - 6); }

void drawLegend(std::ostream& out, const Block& block, double top) {
  text(out, margin, top + 18, "title", block.title);
  double x = margin + labelWidth;
  for (size_t i = 0; i < block.others.size(); ++i) {
    out << "<circle cx=\"" << x + 5 << "\" cy=\"" << top + 30 << "\" r=\"4.5\" fill=\"" << colors[i] << "\"/>\n";
    text(out, x + 14, top + 34, "label", block.others[i]->name);
    x += 34 + 7.0 * static_cast<double>(block.others[i]->name.size());
  }
}

void drawColumn(std::ostream& out, const Block& block, size_t column, double top) {
  const double bodyHeight = static_cast<double>(block.rows.size()) * rowHeight;
  out << "<rect x=\"" << columnAt(column) << "\" y=\"" << top << "\" width=\"" << columnWidth / 2 << "\" height=\""
      << bodyHeight << "\" fill=\"#fdf1ee\"/>\n<rect x=\"" << middleOf(column) << "\" y=\"" << top << "\" width=\""
      << columnWidth / 2 << "\" height=\"" << bodyHeight << "\" fill=\"#eef6f0\"/>\n";
  text(out, middleOf(column), top - 18, "head", block.columns[column]->id);
  for (const auto& [ratio, label] :
       {std::pair{0.01, "1/100"}, {0.1, "1/10"}, {1.0, "1"}, {10.0, "10"}, {100.0, "100"}}) {
    const double x = middleOf(column) + offsetOf(ratio);
    out << "<line x1=\"" << x << "\" y1=\"" << top << "\" x2=\"" << x << "\" y2=\"" << top + bodyHeight
        << "\" stroke=\"" << (ratio == 1.0 ? "#333" : "#d5d5d5") << "\"/>\n";
    text(out, x, top - 4, "tick", label);
  }
}

std::string tip(const Operation& operation, const Result& other, const Result& ours, double ratio) {
  const std::string unit = other.isSize ? " bytes" : " ns";
  return other.competitor + ", " + other.workload + ", " + operation.title + ": " + threeDigits(ratio) + " times (" +
         threeDigits(other.median()) + unit + " to " + threeDigits(ours.median()) + ")";
}

void drawStrip(std::ostream& out, const Report& report, const Block& block, size_t column, size_t row, double y) {
  const std::string& workload = block.columns[column]->id;
  const Operation& operation = *block.rows[row];
  const Result* ours = findResult(report, workload, operation.id, block.ours);
  if (ours == nullptr || ours->median() <= 0) return;
  for (size_t i = 0; i < block.others.size(); ++i) {
    const Result* other = findResult(report, workload, operation.id, block.others[i]->name);
    if (other == nullptr || other->median() <= 0) continue;
    const double ratio = other->median() / ours->median();
    out << "<circle cx=\"" << middleOf(column) + offsetOf(ratio) << "\" cy=\"" << y << "\" r=\"4.5\" fill=\""
        << colors[i] << "\" fill-opacity=\"0.85\"><title>" << escaped(tip(operation, *other, *ours, ratio))
        << "</title></circle>\n";
  }
}

void drawBlock(std::ostream& out, const Report& report, const Block& block, double top) {
  drawLegend(out, block, top);
  const double bodyTop = top + headHeight * 2;
  for (size_t column = 0; column < block.columns.size(); ++column) drawColumn(out, block, column, bodyTop);
  for (size_t row = 0; row < block.rows.size(); ++row) {
    const double y = bodyTop + (static_cast<double>(row) + 0.5) * rowHeight;
    text(out, margin, y + 4, "label", block.rows[row]->title);
    for (size_t column = 0; column < block.columns.size(); ++column) drawStrip(out, report, block, column, row, y);
  }
}

}  // namespace

void writeChart(const Report& report, const std::string& path) {
  const Block blocks[] = {
      makeBlock(report, false,
                "In memory: how many times as long as " + std::string(ourName) +
                    " the others take (bytes: how many times as large); right of 1, " + ourName + " is ahead"),
      makeBlock(report, true, "Durable: the same for sets in files"),
  };
  double width = 0;
  double height = 0;
  std::ostringstream body;
  for (const Block& block : blocks) {
    if (block.rows.empty()) continue;
    drawBlock(body, report, block, height);
    width = std::max(width, block.width());
    height += block.height();
  }
  std::ofstream file(path);
  file << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
       << "\" viewBox=\"0 0 " << width << " " << height
       << "\" font-family=\"Helvetica, Arial, sans-serif\">\n<style>.title{font-size:14px;font-weight:bold}"
          ".label{font-size:12px}.head{font-size:13px;font-weight:bold;text-anchor:middle}"
          ".tick{font-size:9px;fill:#666;text-anchor:middle}</style>\n<rect width=\"100%\" height=\"100%\" "
          "fill=\"white\"/>\n"
       << body.str() << "</svg>\n";
  if (!file.flush()) giveUp("cannot write " + path);
}
