// What the subcommands are made of: arguments that many of them take, and the way a subcommand is put on the
// command line. CLI11, a large header, is behind it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input.h"
#include "json.h"
#include "output.h"
#include "store.h"
#include "unfinishedstore.h"

namespace CLI {
class App;
}

namespace bmtree::tools {

// How a command reports.
struct ReportOptions {
  bool json = false;
  bool quiet = false;
};

// The store that a command works on.
struct StoreArguments {
  std::string store;
  uint64_t memoryMiB = 256;

  Store open(OpenMode mode) const;
};

// The store of a command that makes it if it is missing. One that is missing is filled under another name and gets
// its own when the command has succeeded: a failure leaves nothing behind.
class StoreToFill {
 public:
  explicit StoreToFill(const StoreArguments& arguments);

  Store& store() { return *store_; }

  // Called after the commit; closes the store.
  void finish();

 private:
  std::optional<UnfinishedStore> made_;
  std::optional<Store> store_;  // closed before the file goes
};

// Bounds on numbers, inclusive.
struct NumberRange {
  uint64_t from = 0;
  uint64_t to = numberEnd - 1;
};

// Throws a ProgramError if the bounds are the wrong way round.
void requireOrder(const NumberRange& range);

// A subcommand while it is put on the command line. Everything that it is given a reference to must live as long as
// the command line; options are filled in when it is read. Option names are as users write them: "-q,--quiet".
class Command {
 public:
  explicit Command(CLI::App* app) : app_(app) {}

  // --- positional arguments ---

  // STORE. With `memory`, --memory as well, for commands that change or make trees.
  void store(StoreArguments& arguments, bool memory = false);
  void required(const char* name, std::string& value, const char* description);
  void optional(const char* name, std::string& value, const char* description);
  void requiredNumber(const char* name, uint64_t& value, const char* description);
  void requiredCount(const char* name, uint64_t& value, const char* description);
  // `atLeast` or more words; 0: it may be left out.
  void words(const char* name, std::vector<std::string>& values, int atLeast, const char* description);

  // NAME of one tree; TREE... of `atLeast` trees or more.
  void treeName(std::string& name) { required("NAME", name, "Name of the tree"); }
  void treeNames(std::vector<std::string>& names, int atLeast) { words("TREE", names, atLeast, "Names of trees"); }

  // --- options ---

  void flag(const char* name, bool& value, const char* description);
  // A word, called `valueName` in the help.
  void word(const char* name, std::string& value, const char* valueName, const char* description);
  // A number below 2^40, decimal or hexadecimal.
  void number(const char* name, uint64_t& value, const char* description);
  void number(const char* name, std::optional<uint64_t>& value, const char* description);
  // 1 or more.
  void count(const char* name, uint64_t& value, const char* description);
  // One of `choices`; `choose` is called with the index of the one that was chosen.
  void choice(const char* name, const std::vector<std::string>& choices, std::function<void(size_t)> choose,
              const char* description);

  // --from and --to; --format of files to read, and of numbers to write; --json; --json and --quiet.
  void range(NumberRange& range);
  void inputFormat(InputFormat& format);
  void outputFormat(NumberFormat& format);
  void json(ReportOptions& report);
  void report(ReportOptions& report);

  // The option `name` makes sense only with, or only without, the option `other`.
  void needs(const char* name, const char* other);
  void excludes(const char* name, const char* other);

 private:
  CLI::App* app_;
};

// The command line and what came of it.
struct Program {
  CLI::App& app;
  int exitCode = 0;  // of the subcommand that ran to its end

  // Adds a subcommand that does `run`, whose result is the exit code. `examples` follows its help.
  Command add(const char* name, const char* description, const char* examples, std::function<int()> run);
};

// Options of a command, and how they are put on the command line.
template <class Options>
struct NewCommand {
  Command command;
  std::shared_ptr<Options> options;  // lives as long as the command line
};

// Adds the subcommand `name`, which does `run` with the options that the command line fills.
template <class Options>
NewCommand<Options> addCommand(Program& program, const char* name, const char* description, const char* examples,
                               int (*run)(const Options&)) {
  const auto options = std::make_shared<Options>();
  return {program.add(name, description, examples, [options, run] { return run(*options); }), options};
}

// Writes `text` to standard output.
void print(const std::string& text);
void print(const JsonWriter& json);

}  // namespace bmtree::tools
