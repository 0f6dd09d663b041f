// ls, stat, count, test: what a store holds, and whether a number is there.
#include "commands.h"
#include "exitcode.h"
#include "readable.h"
#include "textparser.h"

namespace bmtree::tools {
namespace {

struct LsOptions {
  StoreArguments store;
  std::vector<std::string> names;
  bool namesOnly = false;
  ReportOptions report;
};

struct StatOptions {
  StoreArguments store;
  std::string name;
  ReportOptions report;
};

struct CountOptions {
  StoreArguments store;
  std::vector<std::string> names;
  NumberRange range;
  ReportOptions report;
};

struct TestOptions {
  StoreArguments store;
  std::string name;
  std::vector<std::string> numbers;
  std::string file;
  InputFormat format = InputFormat::automatic;
  ReportOptions report;
};

// `amount` for each of `count`; 0 of none.
double perUnit(uint64_t amount, uint64_t count) {
  return count == 0 ? 0 : static_cast<double>(amount) / static_cast<double>(count);
}

std::string orDash(std::optional<uint64_t> number) { return number ? grouped(*number) : "-"; }

void jsonNumber(JsonWriter& json, const char* name, std::optional<uint64_t> number) {
  json.key(name);
  number ? json.value(*number) : json.null();
}

void jsonStats(JsonWriter& json, const std::string& name, const TreeStats& stats) {
  json.beginObject();
  json.field("name", name);
  json.field("numbers", stats.count);
  jsonNumber(json, "first", stats.first);
  jsonNumber(json, "last", stats.last);
  json.field("level", stats.level);
  json.field("pages", stats.pages());
  json.field("bytes", stats.bytes());
  json.field("numbersPerByte", perUnit(stats.count, stats.bytes()));
  json.field("listPages", stats.listPages);
  json.field("listNumbers", stats.listNumbers);
  json.field("listFill", stats.listFill());
  json.field("densePages", stats.densePages);
  json.field("denseNumbers", stats.denseNumbers);
  json.field("denseFill", stats.denseFill());
  json.field("internalPages", stats.internalPages);
  json.field("internalEntries", stats.internalEntries);
  json.field("internalFill", stats.internalFill());
  json.end();
}

int listNames(const std::vector<std::string>& names, const ReportOptions& report) {
  JsonWriter json;
  std::string text;
  json.beginArray();
  for (const std::string& name : names) {
    json.value(name);
    text += name + "\n";
  }
  json.end();
  report.json ? print(json) : print(text);
  return exitDone;
}

std::vector<std::string> lsLine(const std::string& name, const TreeStats& stats) {
  return {name,
          grouped(stats.count),
          orDash(stats.first),
          orDash(stats.last),
          grouped(stats.pages()),
          readableBytes(stats.bytes()),
          stats.count == 0 ? "-" : fixed(perUnit(8 * stats.bytes(), stats.count), 1)};
}

int runLs(const LsOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  const std::vector<std::string> names = options.names.empty() ? reader.names() : options.names;
  if (options.namesOnly) return listNames(names, options.report);
  JsonWriter json;
  Table table({"NAME", "NUMBERS", "FIRST", "LAST", "PAGES", "SIZE", "BITS/NUMBER"});
  json.beginArray();
  for (const std::string& name : names) {
    const TreeStats stats = reader.tree(name).stats();
    if (options.report.json) {
      jsonStats(json, name, stats);
    } else {
      table.add(lsLine(name, stats));
    }
  }
  json.end();
  options.report.json ? print(json) : print(table.text());
  return exitDone;
}

std::string pageFacts(uint64_t pages, uint64_t used, std::string_view what, double fill) {
  if (pages == 0) return "0";
  return grouped(pages) + " with " + counted(used, what) + ", " + percent(fill) + " full";
}

std::string statText(const std::string& name, const TreeStats& stats) {
  Facts facts;
  facts.add("tree", name);
  facts.add("numbers", grouped(stats.count));
  if (stats.first) facts.add("lowest", grouped(*stats.first));
  if (stats.last) facts.add("highest", grouped(*stats.last));
  facts.add("level", std::to_string(stats.level));
  facts.add("size", readableBytes(stats.bytes()) + " in " + counted(stats.pages(), "page"));
  if (stats.count != 0 && stats.pages() != 0) {
    facts.add("numbers per byte", significant(perUnit(stats.count, stats.bytes())) + " (" +
                                      fixed(perUnit(8 * stats.bytes(), stats.count), 2) + " bits each)");
  }
  facts.add("list pages", pageFacts(stats.listPages, stats.listNumbers, "number", stats.listFill()));
  facts.add("dense pages", pageFacts(stats.densePages, stats.denseNumbers, "number", stats.denseFill()));
  facts.add("internal pages", pageFacts(stats.internalPages, stats.internalEntries, "key", stats.internalFill()));
  return facts.text();
}

std::string storeText(const std::string& path, const StoreInfo& info) {
  Facts facts;
  facts.add("store", path);
  facts.add("format version", std::to_string(info.formatVersion));
  facts.add("last commit", grouped(info.stamp));
  facts.add("trees", grouped(info.trees));
  facts.add("in use", readableBytes(info.bytesUsed));
  facts.add("free for reuse", readableBytes(info.bytesFree));
  facts.add("page ids used up", grouped(info.nextPageId) + " of " + grouped(numberEnd));
  return facts.text();
}

void printStoreJson(const std::string& path, const StoreInfo& info) {
  JsonWriter json;
  json.beginObject();
  json.field("store", path);
  json.field("formatVersion", info.formatVersion);
  json.field("lastCommit", info.stamp);
  json.field("trees", info.trees);
  json.field("bytesUsed", info.bytesUsed);
  json.field("bytesFree", info.bytesFree);
  json.field("nextPageId", info.nextPageId);
  json.end();
  print(json);
}

int runStat(const StatOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  if (options.name.empty()) {
    options.report.json ? printStoreJson(options.store.store, store.info())
                        : print(storeText(options.store.store, store.info()));
    return exitDone;
  }
  const TreeStats stats = store.beginRead().tree(options.name).stats();
  JsonWriter json;
  jsonStats(json, options.name, stats);
  options.report.json ? print(json) : print(statText(options.name, stats));
  return exitDone;
}

int runCount(const CountOptions& options) {
  requireOrder(options.range);
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  JsonWriter json;
  Table table({"NAME", "NUMBERS"});
  uint64_t total = 0;
  json.beginArray();
  for (const std::string& name : options.names) {
    const uint64_t count = reader.tree(name).countRange(options.range.from, options.range.to);
    total += count;
    table.add({name, grouped(count)});
    json.beginObject();
    json.field("name", name);
    json.field("numbers", count);
    json.end();
  }
  json.end();
  if (options.report.json) return print(json), exitDone;
  if (options.names.size() == 1) return print(std::to_string(total) + "\n"), exitDone;
  table.add({"total", grouped(total)});
  print(table.text());
  return exitDone;
}

// Prints an answer for each number and remembers whether all were there.
class Answers {
 public:
  Answers(const Tree& tree, const ReportOptions& report) : tree_(tree), report_(report) {
    json_.beginObject();
    json_.field("name", tree.name());
    json_.key("answers").beginArray();
  }

  void ask(uint64_t number) {
    const bool there = tree_.test(number);
    allThere_ = allThere_ && there;
    if (report_.json) {
      json_.beginObject();
      json_.field("number", number);
      json_.field("there", there);
      json_.end();
      output_.write(json_.take());
    } else if (!report_.quiet) {
      output_.write(std::to_string(number) + (there ? " yes\n" : " no\n"));
    }
  }

  int finish() {
    json_.end();
    json_.field("all", allThere_);
    json_.end();
    if (report_.json) output_.write(json_.take());
    output_.finish();
    return allThere_ ? exitDone : exitNo;
  }

 private:
  const Tree& tree_;
  const ReportOptions& report_;
  bool allThere_ = true;
  JsonWriter json_;
  Output output_;
};

uint64_t requireNumber(const std::string& word) {
  uint64_t number;
  if (!parseNumber(word, number)) throw ProgramError(exitUsage, describeBadNumber(word));
  return number;
}

int runTest(const TestOptions& options) {
  std::vector<uint64_t> numbers;
  for (const std::string& word : options.numbers) numbers.push_back(requireNumber(word));
  const std::string file = options.file.empty() && numbers.empty() ? "-" : options.file;
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  const Tree tree = reader.tree(options.name);
  Answers answers(tree, options.report);
  for (const uint64_t number : numbers) answers.ask(number);
  if (!file.empty()) {
    InputReader input(options.format, {file});
    input.forEach(file, [&](std::span<const uint64_t> batch) {
      for (const uint64_t number : batch) answers.ask(number);
    });
  }
  return answers.finish();
}

}  // namespace

void addLs(Program& program) {
  auto [command, options] = addCommand(program, "ls", "List the trees of a store",
                                       "  bmtree ls numbers.bmt\n"
                                       "  bmtree ls numbers.bmt --names | xargs -n 1 bmtree count numbers.bmt\n"
                                       "  bmtree ls numbers.bmt --json",
                                       runLs);
  command.store(options->store);
  command.words("TREE", options->names, 0, "Trees to list (default all)");
  command.flag("--names", options->namesOnly, "Names only, at no cost");
  command.json(options->report);
}

void addStat(Program& program) {
  auto [command, options] = addCommand(program, "stat", "Describe a tree, or the store itself",
                                       "  bmtree stat numbers.bmt primes\n"
                                       "  bmtree stat numbers.bmt",
                                       runStat);
  command.store(options->store);
  command.optional("NAME", options->name, "Name of the tree; none: the store");
  command.json(options->report);
}

void addCount(Program& program) {
  auto [command, options] = addCommand(program, "count", "Count the numbers of trees",
                                       "  bmtree count numbers.bmt primes\n"
                                       "  bmtree count numbers.bmt primes sevens --from 1000 --to 1999",
                                       runCount);
  command.store(options->store);
  command.treeNames(options->names, 1);
  command.range(options->range);
  command.json(options->report);
}

void addTest(Program& program) {
  auto [command, options] =
      addCommand(program, "test", "Say whether numbers are in a tree",
                 "  bmtree test numbers.bmt primes 7 8 9\n"
                 "  bmtree test -q numbers.bmt primes 7 && echo prime\n"
                 "  bmtree test numbers.bmt primes --file candidates.txt\n"
                 "\nEnds with 0 if all of them are there, with 1 if one is not. Without numbers and files it reads\n"
                 "standard input.",
                 runTest);
  command.store(options->store);
  command.treeName(options->name);
  command.words("NUMBER", options->numbers, 0, "Numbers to look for");
  command.word("-f,--file", options->file, "FILE", "File of numbers to look for; - is standard input");
  command.inputFormat(options->format);
  command.report(options->report);
}

}  // namespace bmtree::tools
