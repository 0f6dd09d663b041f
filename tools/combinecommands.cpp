// and, or, minus, xor: two or more trees into one, to standard output, or into a number.
#include "commands.h"
#include "exitcode.h"
#include "readable.h"

namespace bmtree::tools {
namespace {

struct CombineOptions {
  StoreArguments store;
  std::vector<std::string> names;
  std::string into;
  bool replace = false;
  bool countOnly = false;
  std::string output = "-";
  NumberFormat format = NumberFormat::text;
  bool force = false;
  ReportOptions report;
};

// Makes `result` what it and `operand` combine to.
using CombineStep = void (*)(Tree& result, const Tree& operand);

void keepShared(Tree& result, const Tree& operand) { result.intersect(operand); }
void addAll(Tree& result, const Tree& operand) { result.unite(operand); }
void takeOut(Tree& result, const Tree& operand) { result.subtract(operand); }
void keepDiffering(Tree& result, const Tree& operand) { result.assignSymmetricDifference(result, operand); }

// The trees of `source`, a reader or a writer, combined from left to right.
template <class Source>
Tree combine(Source& source, const std::vector<std::string>& names, CombineStep step) {
  Tree result = source.temporary();
  result.assign(source.tree(names[0]));
  for (size_t i = 1; i < names.size(); ++i) step(result, source.tree(names[i]));
  return result;
}

void reportCount(const CombineOptions& options, uint64_t count) {
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    if (!options.into.empty()) json.field("name", options.into);
    json.field("numbers", count);
    json.end();
    print(json);
  } else if (options.into.empty()) {
    print(std::to_string(count) + "\n");
  } else if (!options.report.quiet) {
    print(options.into + ": " + counted(count, "number") + "\n");
  }
}

int combineInto(const CombineOptions& options, CombineStep step) {
  Store store = options.store.open(OpenMode::readWrite);
  Writer writer = store.beginWrite();
  if (writer.contains(options.into) && !options.replace) {
    throw ProgramError(exitInTheWay, "there is a tree " + printable(options.into) + " (--replace overwrites it)");
  }
  const Tree result = combine(writer, options.names, step);
  const uint64_t count = result.count();
  writer.treeOrNew(options.into).assign(result);
  writer.commit();
  reportCount(options, count);
  return exitDone;
}

int combineOut(const CombineOptions& options, CombineStep step) {
  const Store store = options.store.open(OpenMode::readOnly);
  Reader reader = store.beginRead();
  const Tree result = combine(reader, options.names, step);
  if (options.countOnly) {
    reportCount(options, result.count());
  } else {
    writeTree(result, options.output, options.format, options.force);
  }
  return exitDone;
}

template <CombineStep step>
int runCombine(const CombineOptions& options) {
  if (options.report.json && options.into.empty() && !options.countOnly) {
    throw ProgramError(exitUsage, "--json reports on --into or --count");
  }
  return options.into.empty() ? combineOut(options, step) : combineInto(options, step);
}

void addCombine(Command& command, CombineOptions& options) {
  command.store(options.store, true);
  command.treeNames(options.names, 2);
  command.word("--into", options.into, "NAME", "Name of the tree that takes the result");
  command.flag("--replace", options.replace, "Overwrite that tree, which may be one of the others");
  command.flag("--count", options.countOnly, "Only count the result");
  command.word("-o,--output", options.output, "FILE", "File that takes the result (default standard output)");
  command.needs("--replace", "--into");
  command.excludes("--count", "--into");
  command.excludes("--output", "--into");
  command.excludes("--output", "--count");
  command.outputFormat(options.format);
  command.flag("--force", options.force, "Replace an existing file");
  command.report(options.report);
}

}  // namespace

void addAnd(Program& program) {
  auto [command, options] = addCommand(program, "and", "Numbers that all of the trees have",
                                       "  bmtree and numbers.bmt primes sevens\n"
                                       "  bmtree and numbers.bmt a b c --count\n"
                                       "  bmtree and numbers.bmt a b --into both",
                                       runCombine<keepShared>);
  addCombine(command, *options);
}

void addOr(Program& program) {
  auto [command, options] = addCommand(program, "or", "Numbers that at least one of the trees has",
                                       "  bmtree or numbers.bmt a b c --into all\n"
                                       "  bmtree or numbers.bmt all new --into all --replace\n"
                                       "  bmtree or numbers.bmt a b --format bitmap --output both.bm",
                                       runCombine<addAll>);
  addCombine(command, *options);
}

void addMinus(Program& program) {
  auto [command, options] = addCommand(program, "minus", "Numbers of the first tree that none of the others has",
                                       "  bmtree minus numbers.bmt all old older --into fresh\n"
                                       "  bmtree minus numbers.bmt a b --count",
                                       runCombine<takeOut>);
  addCombine(command, *options);
}

void addXor(Program& program) {
  auto [command, options] =
      addCommand(program, "xor", "Numbers that an odd number of the trees has",
                 "  bmtree xor numbers.bmt before after     what changed", runCombine<keepDiffering>);
  addCombine(command, *options);
}

}  // namespace bmtree::tools
