// map: a picture of where numbers lie.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "commands.h"
#include "densitymap.h"
#include "exitcode.h"
#include "readable.h"
#include "svgmap.h"
#include "terminalmap.h"

namespace bmtree::tools {
namespace {

enum class ColourMode { automatic, always, never };

struct MapOptions {
  StoreArguments store;
  std::vector<std::string> names;
  std::optional<uint64_t> from;
  std::optional<uint64_t> to;
  std::string svg;
  ColourMode colour = ColourMode::automatic;
  bool force = false;
  ReportOptions report;
};

constexpr size_t svgColumns = 100;
constexpr size_t svgRows = 25;
constexpr size_t svgTreeColumns = 200;
constexpr size_t svgProfileColumns = 250;

// The same order, but numbers within names by their value: "set 2" before "set 10".
bool naturallyBefore(std::string_view a, std::string_view b) {
  const auto digits = [](std::string_view text) {
    return std::min(text.find_first_not_of("0123456789"), text.size());
  };
  while (!a.empty() && !b.empty()) {
    const size_t aDigits = digits(a);
    const size_t bDigits = digits(b);
    if (aDigits != 0 && bDigits != 0) {
      if (aDigits != bDigits) return aDigits < bDigits;
      if (const int order = a.substr(0, aDigits).compare(b.substr(0, bDigits)); order != 0) return order < 0;
    } else if (a[0] != b[0]) {
      return a[0] < b[0];
    }
    a.remove_prefix(std::max<size_t>(aDigits, 1));
    b.remove_prefix(std::max<size_t>(bDigits, 1));
  }
  return a.size() < b.size();
}

NumberSpan wantedSpan(const MapOptions& options, NumberSpan natural) {
  const NumberSpan span{options.from.value_or(options.to ? std::min(natural.from, *options.to) : natural.from),
                        options.to.value_or(options.from ? std::max(natural.to, *options.from) : natural.to)};
  requireOrder({span.from, span.to});
  return span;
}

NumberSpan spanOfAll(const std::vector<Tree>& trees) {
  std::optional<NumberSpan> all;
  for (const Tree& tree : trees) {
    if (tree.empty()) continue;
    const NumberSpan span = spanOf(tree);
    all = all ? NumberSpan{std::min(all->from, span.from), std::max(all->to, span.to)} : span;
  }
  return all.value_or(NumberSpan{0, numberEnd - 1});
}

bool wantsColour(const MapOptions& options) {
  if (options.colour != ColourMode::automatic) return options.colour == ColourMode::always;
  return ::isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

// 100 cells to a row where the terminal has the room, otherwise 50.
size_t terminalColumns() {
  winsize size{};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 120 ? 100 : 50;
}

void jsonGrid(JsonWriter& json, const DensityGrid& grid, const char* labelKey) {
  json.field("cellSpan", grid.cellSpan);
  json.key("rows").beginArray();
  for (const DensityRow& row : grid.rows) {
    json.beginObject();
    if (labelKey != nullptr) json.field(labelKey, row.label);
    json.field("first", row.first);
    json.key("counts").beginArray();
    for (const uint64_t count : row.counts) json.value(count);
    json.end();
    json.end();
  }
  json.end();
}

void printTreeJson(const Tree& tree, NumberSpan span) {
  const TreeStats stats = tree.stats();
  JsonWriter json;
  json.beginObject();
  json.field("name", tree.name());
  json.field("numbers", stats.count);
  json.field("listPages", stats.listPages);
  json.field("densePages", stats.densePages);
  jsonGrid(json, gridOf(tree, span, svgColumns, svgRows), nullptr);
  json.end();
  print(json);
}

std::string treeSummary(const TreeStats& stats) {
  std::string text = counted(stats.count, "number");
  if (stats.first) text += " from " + grouped(*stats.first) + " to " + grouped(*stats.last);
  return text + ", " + readableBytes(stats.bytes()) + " in " + counted(stats.pages(), "page");
}

void writeSvg(const MapOptions& options, const std::string& svg) {
  Output output(options.svg, options.force);
  output.write(svg);
  output.finish();
  if (options.svg != "-" && !options.report.quiet) print(options.svg + "\n");
}

int mapTree(const MapOptions& options, const Tree& tree) {
  const NumberSpan span = wantedSpan(options, spanOf(tree));
  if (options.report.json) return printTreeJson(tree, span), exitDone;
  if (!options.svg.empty()) {
    writeSvg(options, svgOfTree({tree.name(), tree.stats()}, gridOf(tree, span, svgColumns, svgRows),
                                profileOf(tree, span, svgProfileColumns)));
    return exitDone;
  }
  const bool colour = wantsColour(options);
  const size_t columns = terminalColumns();
  const DensityGrid grid = gridOf(tree, span, columns, colour ? 40 : 20);
  const size_t indent = std::max<size_t>(labelWidth(grid), 8);
  print(printable(tree.name()) + "\n" + treeSummary(tree.stats()) + "\n\n" + terminalGrid(grid, colour) +
        terminalLegend(grid, colour) + "\n" + terminalProfile(profileOf(tree, span, columns), indent, colour));
  return exitDone;
}

int mapTrees(const MapOptions& options, const std::vector<Tree>& trees) {
  const NumberSpan span = wantedSpan(options, spanOfAll(trees));
  const size_t columns = !options.svg.empty() || options.report.json ? svgTreeColumns : terminalColumns();
  const DensityGrid grid = gridOf(trees, span, columns);
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    jsonGrid(json, grid, "name");
    json.end();
    return print(json), exitDone;
  }
  if (!options.svg.empty()) {
    uint64_t numbers = 0;
    for (const Tree& tree : trees) numbers += tree.count();
    return writeSvg(options, svgOfTrees(options.store.store, numbers, grid)), exitDone;
  }
  const bool colour = wantsColour(options);
  print(terminalGrid(grid, colour) + terminalLegend(grid, colour));
  return exitDone;
}

int runMap(const MapOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  if (options.names.size() == 1) return mapTree(options, reader.tree(options.names[0]));
  std::vector<std::string> names = options.names;
  if (names.empty()) {
    names = reader.names();
    std::sort(names.begin(), names.end(), naturallyBefore);
  }
  std::vector<Tree> trees;
  trees.reserve(names.size());
  for (const std::string& name : names) trees.push_back(reader.tree(name));
  return mapTrees(options, trees);
}

}  // namespace

void addMap(Program& program) {
  auto [command, options] =
      addCommand(program, "map", "Show where numbers lie, on the terminal or as a picture",
                 "  bmtree map numbers.bmt primes                        one tree: density, leaves and their fill\n"
                 "  bmtree map numbers.bmt                               all trees, one to a row\n"
                 "  bmtree map numbers.bmt primes --svg primes.svg\n"
                 "  bmtree map numbers.bmt primes --from 0 --to 9999     a closer look",
                 runMap);
  command.store(options->store);
  command.words("TREE", options->names, 0, "Names of trees (default all)");
  command.number("--from", options->from, "Lowest number to look at (default about the lowest there is)");
  command.number("--to", options->to, "Highest number to look at (default the highest there is)");
  command.word("--svg", options->svg, "FILE", "Write the picture to a file; - is standard output");
  command.choice(
      "--color", {"auto", "always", "never"},
      [options = options](size_t i) { options->colour = static_cast<ColourMode>(i); }, "Colours on the terminal");
  command.flag("--force", options->force, "Replace an existing file");
  command.report(options->report);
  command.excludes("--json", "--svg");
}

}  // namespace bmtree::tools
