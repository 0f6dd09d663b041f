// bmtree: very large sets of numbers, kept in a store, from the command line.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <exception>
#include <new>

#include "commands.h"
#include "exitcode.h"
#include "readable.h"

namespace bmtree::tools {
namespace {

struct Group {
  const char* title;
  std::initializer_list<void (*)(Program&)> commands;
};

void addCommands(Program& program) {
  const Group groups[] = {
      {"In and out", {addLoad, addImport, addExport, addPack, addUnpack}},
      {"Look", {addLs, addStat, addCount, addTest, addGet, addFirst, addLast, addFree, addMap}},
      {"Change", {addSet, addClear, addRangeCommand, addTruncate, addRm, addCp, addRename}},
      {"Combine", {addAnd, addOr, addMinus, addXor}},
      {"Maintain", {addVerify, addCompact, addCheckFile, addCompletion}},
  };
  for (const Group& group : groups) {
    for (const auto add : group.commands) {
      add(program);
      program.app.get_subcommands({}).back()->group(group.title);
    }
  }
}

void describe(CLI::App& app) {
  app.name("bmtree");
  app.description("Very large sets of 40-bit numbers, kept as named trees in a store of one file.");
  app.set_version_flag("-V,--version", "bmtree " BMTREE_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(34);
  app.get_formatter()->label("REQUIRED", "");
  app.footer(
      "Examples:\n"
      "  bmtree load numbers.bmt primes primes.txt   fill a tree, and make the store if there is none\n"
      "  bmtree ls numbers.bmt                       what the store holds\n"
      "  bmtree COMMAND --help                       options and examples of a command");
}

// The message may quote names and files, and so hold anything.
void complain(const std::exception& error) {
  std::fprintf(stderr, "bmtree: %s\n", printable(error.what(), 4000).c_str());
}

int run(int argc, char** argv) {
  CLI::App app;
  Program program{app};
  describe(app);
  addCommands(program);
  try {
    app.parse(argc, argv);
    return program.exitCode;
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "bmtree: %s\nTry 'bmtree --help'.\n", error.what());
    return exitUsage;
  } catch (const ProgramError& error) {
    complain(error);
    return error.exitCode();
  } catch (const StoreError& error) {
    complain(error);
    return exitCodeOf(error.code());
  } catch (const std::bad_alloc&) {
    std::fputs("bmtree: out of memory\n", stderr);
    return exitSystem;
  } catch (const std::exception& error) {
    complain(error);
    return exitSystem;
  }
}

}  // namespace
}  // namespace bmtree::tools

int main(int argc, char** argv) {
  try {
    return bmtree::tools::run(argc, argv);
  } catch (...) {  // nothing is left to say it with
    return bmtree::tools::exitSystem;
  }
}
