// get, first, last, free: numbers of a tree, and numbers that it does not have.
#include <algorithm>

#include "commands.h"
#include "exitcode.h"
#include "readable.h"
#include "textparser.h"

namespace bmtree::tools {
namespace {

constexpr uint64_t noLimit = ~uint64_t{0};
constexpr size_t batchNumbers = 16384;

struct GetOptions {
  StoreArguments store;
  std::string name;
  NumberRange range;
  std::string ranks;
  uint64_t limit = noLimit;
  uint64_t perLine = 1;
  ReportOptions report;
};

struct EndOptions {
  StoreArguments store;
  std::string name;
  uint64_t from = 0;
  uint64_t limit = 1;
  ReportOptions report;
};

struct FreeOptions {
  StoreArguments store;
  std::string name;
  NumberRange range;
  uint64_t limit = 1;
  uint64_t perLine = 1;
  ReportOptions report;
};

// Writes numbers as text, or as the array "numbers" of a JSON object whose other members follow.
class NumberReport {
 public:
  NumberReport(const std::string& tree, bool json, uint64_t perLine)
      : asJson_(json), text_(output_, NumberFormat::text, perLine) {
    json_.beginObject();
    json_.field("name", tree);
    json_.key("numbers").beginArray();
  }

  void write(std::span<const uint64_t> numbers) {
    if (!asJson_) return text_.write(numbers);
    for (const uint64_t number : numbers) json_.value(number);
    output_.write(json_.take());
  }

  // `next`: where to go on, if there is more.
  void finish(std::optional<uint64_t> next) {
    if (asJson_) {
      json_.end();
      json_.key("next");
      next ? json_.value(*next) : json_.null();
      json_.end();
      output_.write(json_.take());
    } else {
      text_.finish();
    }
    output_.finish();
  }

 private:
  const bool asJson_;
  Output output_;
  NumberWriter text_;
  JsonWriter json_;
};

// "A" or "A-B", ranks from 0 on.
std::pair<uint64_t, uint64_t> parseRanks(const std::string& text) {
  const size_t dash = text.find('-');
  uint64_t first = 0;
  uint64_t last = 0;
  if (!parseNumber(text.substr(0, dash), first) ||
      !parseNumber(dash == text.npos ? text : text.substr(dash + 1), last) || first > last) {
    throw ProgramError(exitUsage, "--rank: \"" + printable(text, 40) +
                                      "\" is neither a rank, counted from 0, nor two with a - between");
  }
  return {first, last};
}

// Turns ranks into a start and a limit. False if the tree has no such rank.
bool applyRanks(const Tree& tree, GetOptions& options) {
  const auto [first, last] = parseRanks(options.ranks);
  const std::optional<uint64_t> start = tree.select(first);
  options.range.from = start.value_or(0);
  options.limit = std::min(options.limit, last - first + 1);
  return start.has_value();
}

// Writes the numbers of `range` and returns the first that the limit kept back.
std::optional<uint64_t> writeNumbers(const Tree& tree, const NumberRange& range, uint64_t limit,
                                     NumberReport& report) {
  std::vector<uint64_t> batch(batchNumbers);
  Cursor cursor = tree.numbers(range.from);
  while (const size_t got = cursor.next(batch)) {
    const auto end = std::upper_bound(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(got), range.to);
    const auto inside = static_cast<size_t>(end - batch.begin());
    const size_t taken = std::min<uint64_t>(inside, limit);
    report.write(std::span(batch).first(taken));
    limit -= taken;
    if (taken < inside) return batch[taken];
    if (inside < got) break;
  }
  return std::nullopt;
}

int runGet(const GetOptions& given) {
  GetOptions options = given;
  requireOrder(options.range);
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  const Tree tree = reader.tree(options.name);
  const bool some = options.ranks.empty() || applyRanks(tree, options);
  NumberReport report(options.name, options.report.json, options.perLine);
  report.finish(some ? writeNumbers(tree, options.range, options.limit, report) : std::nullopt);
  return exitDone;
}

// Prints one number, or that there is none, which is the answer no.
int answer(const std::string& name, std::optional<uint64_t> number, const ReportOptions& report) {
  if (report.json) {
    JsonWriter json;
    json.beginObject();
    json.field("name", name);
    json.key("number");
    number ? json.value(*number) : json.null();
    json.end();
    print(json);
  } else if (number) {
    print(std::to_string(*number) + "\n");
  }
  return number ? exitDone : exitNo;
}

int runFirst(const EndOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  return answer(options.name, store.beginRead().tree(options.name).atOrAfter(options.from), options.report);
}

int runLast(const EndOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  return answer(options.name, store.beginRead().tree(options.name).last(), options.report);
}

int runFree(const FreeOptions& options) {
  requireOrder(options.range);
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  const Tree tree = reader.tree(options.name);
  NumberReport report(options.name, options.report.json, options.perLine);
  std::vector<uint64_t> batch(std::min<uint64_t>(batchNumbers, options.limit));
  NumberRange rest = options.range;
  uint64_t wanted = options.limit;
  size_t found = batch.size();
  while (wanted != 0 && found == batch.size() && rest.from <= rest.to) {
    batch.resize(std::min<uint64_t>(batch.size(), wanted));
    found = tree.freeNumbers(rest.from, rest.to, batch);
    report.write(std::span(batch).first(found));
    wanted -= found;
    if (found != 0) rest.from = batch[found - 1] + 1;
  }
  const bool more = wanted == 0 && rest.from <= rest.to;
  report.finish(more ? std::optional(rest.from) : std::nullopt);
  return wanted == options.limit ? exitNo : exitDone;
}

void addPerLine(Command& command, uint64_t& perLine) {
  command.count("--chunk", perLine, "Numbers to a line, with commas between them (default 1)");
}

}  // namespace

void addGet(Program& program) {
  auto [command, options] =
      addCommand(program, "get", "Print numbers of a tree in ascending order",
                 "  bmtree get numbers.bmt primes --rank 0-9             the ten lowest\n"
                 "  bmtree get numbers.bmt primes --from 1000 --limit 5  the first five from 1000 on\n"
                 "  bmtree get numbers.bmt primes --chunk 20             20 to a line\n"
                 "\nWith --json, \"next\" is the number at which --from continues what --limit cut off.",
                 runGet);
  command.store(options->store);
  command.treeName(options->name);
  command.range(options->range);
  command.word("--rank", options->ranks, "A[-B]", "Only the numbers of these ranks, 0 being the lowest number's");
  command.excludes("--rank", "--from");
  command.count("--limit", options->limit, "Numbers to print at most");
  addPerLine(command, options->perLine);
  command.json(options->report);
}

void addFirst(Program& program) {
  auto [command, options] = addCommand(program, "first", "Print the lowest number, also from a start on",
                                       "  bmtree first numbers.bmt primes\n"
                                       "  bmtree first numbers.bmt primes --from 1000\n"
                                       "\nEnds with 1 if there is none.",
                                       runFirst);
  command.store(options->store);
  command.treeName(options->name);
  command.number("--from", options->from, "Lowest number to look at (default 0)");
  command.json(options->report);
}

void addLast(Program& program) {
  auto [command, options] = addCommand(program, "last", "Print the highest number",
                                       "  bmtree last numbers.bmt primes\n"
                                       "\nEnds with 1 if there is none.",
                                       runLast);
  command.store(options->store);
  command.treeName(options->name);
  command.json(options->report);
}

void addFree(Program& program) {
  auto [command, options] =
      addCommand(program, "free", "Print numbers that are not in a tree",
                 "  bmtree free numbers.bmt ids                          the lowest that is free\n"
                 "  bmtree free numbers.bmt ids --from 1000 --limit 100\n"
                 "\nEnds with 1 if there is none. With --json, \"next\" is where --from goes on.",
                 runFree);
  command.store(options->store);
  command.treeName(options->name);
  command.range(options->range);
  command.count("--limit", options->limit, "Numbers to print at most (default 1)");
  addPerLine(command, options->perLine);
  command.json(options->report);
}

}  // namespace bmtree::tools
