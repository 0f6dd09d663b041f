// set, clear, range, truncate, rm, cp, rename: changes, each one commit.
#include "commands.h"
#include "exitcode.h"
#include "readable.h"
#include "textparser.h"
#include "treefeeder.h"

namespace bmtree::tools {
namespace {

struct EditOptions {
  StoreArguments store;
  std::string name;
  std::vector<std::string> numbers;
  std::string file;
  InputFormat format = InputFormat::automatic;
  ReportOptions report;
};

struct RangeOptions {
  StoreArguments store;
  std::string name;
  uint64_t first = 0;
  uint64_t last = 0;
  bool clear = false;
  ReportOptions report;
};

struct TruncateOptions {
  StoreArguments store;
  std::string name;
  uint64_t count = 0;
  ReportOptions report;
};

struct RmOptions {
  StoreArguments store;
  std::vector<std::string> names;
  ReportOptions report;
};

struct MoveOptions {
  StoreArguments store;
  std::string from;
  std::string to;
  bool replace = false;
  ReportOptions report;
};

// Reports how many numbers a change put in or took out: "primes: 3 numbers added, 1,003 in all".
void reportChange(const ReportOptions& report, const std::string& name, const char* jsonKey, const char* verb,
                  uint64_t changed, uint64_t count) {
  if (report.json) {
    JsonWriter json;
    json.beginObject();
    json.field("name", name);
    json.field(jsonKey, changed);
    json.field("numbers", count);
    json.end();
    return print(json);
  }
  if (!report.quiet) {
    print(name + ": " + counted(changed, "number") + " " + verb + ", " + grouped(count) + " in all\n");
  }
}

void reportAdded(const ReportOptions& report, const std::string& name, uint64_t changed, uint64_t count) {
  reportChange(report, name, "numbersAdded", "added", changed, count);
}

void reportTakenOut(const ReportOptions& report, const std::string& name, uint64_t changed, uint64_t count) {
  reportChange(report, name, "numbersTakenOut", "taken out", changed, count);
}

uint64_t requireNumber(const std::string& word) {
  uint64_t number;
  if (!parseNumber(word, number)) throw ProgramError(exitUsage, describeBadNumber(word));
  return number;
}

// The numbers and ranges of the command line.
std::vector<NumberRange> parseRanges(const std::vector<std::string>& words) {
  std::vector<NumberRange> ranges;
  for (const std::string& word : words) {
    const size_t dash = word.find('-');
    const uint64_t first = requireNumber(word.substr(0, dash));
    ranges.push_back({first, dash == word.npos ? first : requireNumber(word.substr(dash + 1))});
    requireOrder(ranges.back());
  }
  return ranges;
}

// Adds the ranges and the numbers of the file to `tree`; without either, standard input is the file.
void addGiven(const std::vector<NumberRange>& ranges, const EditOptions& options, Tree& tree) {
  for (const NumberRange& range : ranges) tree.setRange(range.from, range.to);
  const std::string file = options.file.empty() && ranges.empty() ? "-" : options.file;
  if (file.empty()) return;
  InputReader reader(options.format, {file});
  reader.addTo(tree, file);
  reader.finish();
}

int runSet(const EditOptions& options) {
  const std::vector<NumberRange> ranges = parseRanges(options.numbers);
  StoreToFill target(options.store);
  Writer writer = target.store().beginWrite();
  Tree given = writer.temporary();
  addGiven(ranges, options, given);
  Tree tree = writer.treeOrNew(options.name);
  const uint64_t changed = tree.unite(given);
  const uint64_t count = tree.count();
  writer.commit();
  target.finish();
  reportAdded(options.report, options.name, changed, count);
  return exitDone;
}

int runClear(const EditOptions& options) {
  const std::vector<NumberRange> ranges = parseRanges(options.numbers);
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  Tree tree = writer.tree(options.name);
  Tree given = writer.temporary();
  addGiven(ranges, options, given);
  const uint64_t changed = tree.subtract(given);
  const uint64_t count = tree.count();
  writer.commit();
  reportTakenOut(options.report, options.name, changed, count);
  return exitDone;
}

// What a change of a range did: numbers put in or taken out, and numbers there now.
struct RangeResult {
  uint64_t changed;
  uint64_t count;
};

RangeResult putRange(const RangeOptions& options) {
  StoreToFill target(options.store);
  Writer writer = target.store().beginWrite();
  Tree tree = writer.treeOrNew(options.name);
  const uint64_t changed = tree.setRange(options.first, options.last);
  const RangeResult result{changed, tree.count()};
  writer.commit();
  target.finish();
  return result;
}

RangeResult takeRangeOut(const RangeOptions& options) {
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  Tree tree = writer.tree(options.name);
  const uint64_t changed = tree.clearRange(options.first, options.last);
  const RangeResult result{changed, tree.count()};
  writer.commit();
  return result;
}

int runRange(const RangeOptions& options) {
  requireOrder({options.first, options.last});
  const auto [changed, count] = options.clear ? takeRangeOut(options) : putRange(options);
  (options.clear ? reportTakenOut : reportAdded)(options.report, options.name, changed, count);
  return exitDone;
}

int runTruncate(const TruncateOptions& options) {
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  Tree tree = writer.tree(options.name);
  const uint64_t changed = tree.truncate(options.count);
  const uint64_t count = tree.count();
  writer.commit();
  reportTakenOut(options.report, options.name, changed, count);
  return exitDone;
}

int runRm(const RmOptions& options) {
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  for (const std::string& name : options.names) writer.remove(name);
  writer.commit();
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    json.key("removed").beginArray();
    for (const std::string& name : options.names) json.value(name);
    json.end();
    json.end();
    print(json);
  } else if (!options.report.quiet) {
    print(counted(options.names.size(), "tree") + " removed\n");
  }
  return exitDone;
}

void reportMove(const MoveOptions& options, const char* verb) {
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    json.field("from", options.from);
    json.field("to", options.to);
    json.end();
    print(json);
  } else if (!options.report.quiet) {
    print(options.from + " " + verb + " " + options.to + "\n");
  }
}

// Makes room for the tree `to`, if the user wants that and it is not the source itself.
void makeRoom(Writer& writer, const MoveOptions& options) {
  if (options.from != options.to && options.replace && writer.contains(options.from) && writer.contains(options.to)) {
    writer.remove(options.to);
  }
}

int runCp(const MoveOptions& options) {
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  makeRoom(writer, options);
  writer.copy(options.from, options.to);
  writer.commit();
  reportMove(options, "copied to");
  return exitDone;
}

int runRename(const MoveOptions& options) {
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  makeRoom(writer, options);
  writer.rename(options.from, options.to);
  writer.commit();
  reportMove(options, "is now called");
  return exitDone;
}

void addEdit(Command& command, EditOptions& options) {
  command.store(options.store, true);
  command.treeName(options.name);
  command.words("NUMBER", options.numbers, 0, "Numbers, or ranges A-B of them");
  command.word("-f,--file", options.file, "FILE", "File of numbers; - is standard input");
  command.inputFormat(options.format);
  command.report(options.report);
}

void addMove(Command& command, MoveOptions& options) {
  command.store(options.store, true);
  command.required("FROM", options.from, "Name of the tree");
  command.required("TO", options.to, "Its new name");
  command.flag("--replace", options.replace, "Replace a tree of that name");
  command.report(options.report);
}

}  // namespace

void addSet(Program& program) {
  auto [command, options] = addCommand(
      program, "set", "Put numbers into a tree",
      "  bmtree set numbers.bmt primes 2 3 5 7\n"
      "  bmtree set numbers.bmt ids 100-199 250 0x1ff\n"
      "  bmtree set numbers.bmt ids --file more.txt\n"
      "\nThe store and the tree are made if they are missing. Without numbers and files it reads standard\n"
      "input.",
      runSet);
  addEdit(command, *options);
}

void addClear(Program& program) {
  auto [command, options] = addCommand(program, "clear", "Take numbers out of a tree",
                                       "  bmtree clear numbers.bmt ids 100-199 250\n"
                                       "  bmtree clear numbers.bmt ids --file gone.txt\n"
                                       "\nWithout numbers and files it reads standard input.",
                                       runClear);
  addEdit(command, *options);
}

void addRangeCommand(Program& program) {
  auto [command, options] = addCommand(program, "range", "Put a range of numbers into a tree, or take it out",
                                       "  bmtree range numbers.bmt ids 0 999999\n"
                                       "  bmtree range numbers.bmt ids 5000 5999 --clear\n"
                                       "\nBoth ends belong to the range.",
                                       runRange);
  command.store(options->store, true);
  command.treeName(options->name);
  command.requiredNumber("FIRST", options->first, "Lowest number of the range");
  command.requiredNumber("LAST", options->last, "Highest number of the range");
  command.flag("--clear", options->clear, "Take the range out");
  command.report(options->report);
}

void addTruncate(Program& program) {
  auto [command, options] = addCommand(program, "truncate", "Keep only the lowest numbers of a tree",
                                       "  bmtree truncate numbers.bmt ids 1000    keep the 1000 lowest", runTruncate);
  command.store(options->store, true);
  command.treeName(options->name);
  command.requiredCount("COUNT", options->count, "How many to keep");
  command.report(options->report);
}

void addRm(Program& program) {
  auto [command, options] = addCommand(program, "rm", "Remove trees", "  bmtree rm numbers.bmt old older", runRm);
  command.store(options->store, true);
  command.treeNames(options->names, 1);
  command.report(options->report);
}

void addCp(Program& program) {
  auto [command, options] = addCommand(program, "cp", "Copy a tree", "  bmtree cp numbers.bmt ids ids-before", runCp);
  addMove(command, *options);
}

void addRename(Program& program) {
  auto [command, options] =
      addCommand(program, "rename", "Give a tree another name", "  bmtree rename numbers.bmt ids users", runRename);
  addMove(command, *options);
}

}  // namespace bmtree::tools
