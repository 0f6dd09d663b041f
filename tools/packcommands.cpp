// pack, unpack: a tree as a small file of compressed records, and back.
#include "commands.h"
#include "exitcode.h"
#include "packfile.h"
#include "progress.h"
#include "readable.h"

namespace bmtree::tools {
namespace {

struct PackOptions {
  StoreArguments store;
  std::string name;
  std::string file = "-";
  bool force = false;
  ReportOptions report;
};

struct UnpackOptions {
  StoreArguments store;
  std::string name;
  std::string file = "-";
  bool replace = false;
  ReportOptions report;
};

void reportPack(const PackOptions& options, const PackWriter& pack, uint64_t numbers) {
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    json.field("name", options.name);
    json.field("numbers", numbers);
    json.field("records", pack.frames());
    json.field("bytes", pack.bytes());
    json.end();
    return print(json);
  }
  if (options.report.quiet) return;
  std::string text = options.name + ": " + counted(numbers, "number") + " in " + counted(pack.frames(), "record") +
                     ", " + readableBytes(pack.bytes());
  if (numbers != 0) {
    text += ", " + fixed(8 * static_cast<double>(pack.bytes()) / static_cast<double>(numbers), 2) + " bits each";
  }
  print(text + "\n");
}

int runPack(const PackOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  const Tree tree = reader.tree(options.name);
  Output output(options.file, options.force);
  output.requireBinaryWelcome();
  PackWriter pack(output);
  ProgressLine progress("packing", "bytes", 0);
  tree.packRecords([&](std::span<const std::byte> record) {
    pack.add(record);
    progress.update(pack.bytes());
  });
  const uint64_t numbers = tree.count();
  pack.finish(numbers);
  output.finish();
  progress.finish();
  // A report between the bytes of the pack file would spoil it.
  if (options.file != "-") reportPack(options, pack, numbers);
  return exitDone;
}

// Adds one record, whose checksum was right. What the module's own check finds is told with the record's place.
uint64_t addRecord(Tree& tree, uint64_t index, std::span<const std::byte> record) {
  try {
    return tree.addRecord(record);
  } catch (const StoreError& error) {
    if (error.code() != StoreErrorCode::badFile) throw;
    throw ProgramError(exitBadInput, "record " + grouped(index) + ": " + error.what());
  }
}

int runUnpack(const UnpackOptions& options) {
  StoreToFill target(options.store);
  Writer writer = target.store().beginWrite();
  Tree tree = writer.treeOrNew(options.name);
  if (options.replace) tree.clearAll();
  ProgressLine progress("unpacking", "records", 0);
  uint64_t added = 0;
  const PackContents contents = readPackFile(options.file, [&](uint64_t index, std::span<const std::byte> record) {
    added += addRecord(tree, index, record);
    progress.update(index + 1);
  });
  writer.commit();
  target.finish();
  progress.finish();
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    json.field("name", options.name);
    json.field("numbersRead", contents.numbers);
    json.field("numbersAdded", added);
    json.field("records", contents.frames);
    json.end();
    print(json);
  } else if (!options.report.quiet) {
    print(options.name + ": " + counted(contents.numbers, "number") + " read, " + grouped(added) + " added\n");
  }
  return exitDone;
}

}  // namespace

void addPack(Program& program) {
  auto [command, options] = addCommand(program, "pack", "Write a tree to a small file of compressed records",
                                       "  bmtree pack numbers.bmt primes primes.pack\n"
                                       "  bmtree pack numbers.bmt primes | ssh host bmtree unpack copy.bmt primes\n"
                                       "\nEach record carries a checksum.",
                                       runPack);
  command.store(options->store);
  command.treeName(options->name);
  command.optional("FILE", options->file, "File to write; none or - is standard output");
  command.flag("--force", options->force, "Replace an existing file");
  command.report(options->report);
}

void addUnpack(Program& program) {
  auto [command, options] = addCommand(program, "unpack", "Add the numbers of a packed file to a tree",
                                       "  bmtree unpack numbers.bmt primes primes.pack\n"
                                       "\nThe store and the tree are made if they are missing. A damaged file adds\n"
                                       "nothing.",
                                       runUnpack);
  command.store(options->store, true);
  command.treeName(options->name);
  command.optional("FILE", options->file, "File to read; none or - is standard input");
  command.flag("--replace", options->replace, "Empty the tree first");
  command.report(options->report);
}

}  // namespace bmtree::tools
