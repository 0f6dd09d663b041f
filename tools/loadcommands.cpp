// load, import, export: whole trees from files and to files.
#include <filesystem>
#include <map>

#include "commands.h"
#include "exitcode.h"
#include "readable.h"

namespace bmtree::tools {
namespace {

struct LoadOptions {
  StoreArguments store;
  std::string name;
  std::vector<std::string> files;
  InputFormat format = InputFormat::automatic;
  bool each = false;
  bool replace = false;
  ReportOptions report;
};

struct ExportOptions {
  StoreArguments store;
  std::string name;
  std::string file = "-";
  NumberFormat format = NumberFormat::text;
  bool force = false;
};

// A tree and the files that go into it.
struct LoadJob {
  std::string tree;
  std::vector<std::string> files;
  InputCounts counts;
};

// The name of a file without its folder and without what stands behind the last dot.
std::string stemOf(const std::string& file) {
  if (file == "-") throw ProgramError(exitUsage, "--each names trees after files, and standard input has no name");
  return std::filesystem::path(file).stem().string();
}

[[noreturn]] void refuseSameTree(const std::string& one, const std::string& other, const std::string& tree) {
  throw ProgramError(exitUsage, one + " and " + other + " would both become the tree " + tree);
}

// One job for each file, whose trees must differ.
std::vector<LoadJob> planEach(const LoadOptions& options) {
  std::vector<LoadJob> jobs;
  std::map<std::string, std::string> fileOf;
  for (const std::string& file : options.files) {
    const std::string tree = options.name + stemOf(file);
    const auto [other, isNew] = fileOf.emplace(tree, file);
    if (!isNew) refuseSameTree(other->second, file, tree);
    jobs.push_back({tree, {file}, {}});
  }
  return jobs;
}

void runJob(Writer& writer, InputReader& reader, bool replace, LoadJob& job) {
  Tree tree = writer.treeOrNew(job.tree);
  if (replace) tree.clearAll();
  for (const std::string& file : job.files) {
    const InputCounts counts = reader.addTo(tree, file);
    job.counts.read += counts.read;
    job.counts.added += counts.added;
  }
}

void reportLoad(const ReportOptions& report, const std::vector<LoadJob>& jobs) {
  if (report.json) {
    JsonWriter json;
    json.beginObject();
    json.key("trees").beginArray();
    for (const LoadJob& job : jobs) {
      json.beginObject();
      json.field("name", job.tree);
      json.field("numbersRead", job.counts.read);
      json.field("numbersAdded", job.counts.added);
      json.end();
    }
    json.end();
    json.end();
    return print(json);
  }
  if (report.quiet) return;
  InputCounts all;
  for (const LoadJob& job : jobs) {
    all.read += job.counts.read;
    all.added += job.counts.added;
  }
  const std::string target = jobs.size() == 1 ? jobs[0].tree : counted(jobs.size(), "tree");
  print(target + ": " + counted(all.read, "number") + " read, " + grouped(all.added) + " added\n");
}

int runLoad(const LoadOptions& options) {
  const std::vector<std::string> files = options.files.empty() ? std::vector<std::string>{"-"} : options.files;
  std::vector<LoadJob> jobs = options.each ? planEach(options) : std::vector{LoadJob{options.name, files, {}}};
  InputReader reader(options.format, files);
  StoreToFill target(options.store);
  Writer writer = target.store().beginWrite();
  for (LoadJob& job : jobs) runJob(writer, reader, options.replace, job);
  writer.commit();
  target.finish();
  reader.finish();
  reportLoad(options.report, jobs);
  return exitDone;
}

int runExport(const ExportOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  const Reader reader = store.beginRead();
  writeTree(reader.tree(options.name), options.file, options.format, options.force);
  return exitDone;
}

}  // namespace

void addLoad(Program& program) {
  auto [command, options] = addCommand(
      program, "load", "Add the numbers of files, or of standard input, to a tree",
      "  bmtree load numbers.bmt primes primes.txt            lines, commas and blanks part numbers\n"
      "  seq 0 7 1000000 | bmtree load numbers.bmt sevens     from a pipe\n"
      "  bmtree load numbers.bmt ids --format raw ids.u64     64-bit little-endian\n"
      "  bmtree load numbers.bmt day/ --each logs/*.txt       trees day/NAME, one for each logs/NAME.txt\n"
      "\nThe store and the tree are made if they are missing. A bad number, named by file, line and column,\n"
      "or any other failure loads nothing.",
      runLoad);
  command.store(options->store, true);
  command.required("NAME", options->name, "Name of the tree; with --each, what the names begin with");
  command.words("FILE", options->files, 0, "Files to read; none or - is standard input");
  command.inputFormat(options->format);
  command.flag("--each", options->each, "Make one tree of each file, called NAME and the file's name");
  command.flag("--replace", options->replace, "Empty the trees first");
  command.report(options->report);
}

void addImport(Program& program) {
  auto [command, options] =
      addCommand(program, "import", "Add the numbers of bitmap files to a tree",
                 "  bmtree import numbers.bmt primes primes.bm\n"
                 "\nA file is checked as a whole before it is used. See also: bmtree check-file.",
                 runLoad);
  options->format = InputFormat::bitmap;
  command.store(options->store, true);
  command.treeName(options->name);
  command.words("FILE", options->files, 0, "Bitmap files to read; none or - is standard input");
  command.flag("--replace", options->replace, "Empty the tree first");
  command.report(options->report);
}

void addExport(Program& program) {
  auto [command, options] =
      addCommand(program, "export", "Write a tree to a file or to standard output",
                 "  bmtree export numbers.bmt primes | head              as text\n"
                 "  bmtree export numbers.bmt primes p.bm --format bitmap\n"
                 "  bmtree export numbers.bmt primes p.bm --format bitmap32 --force    for readers of 32-bit items\n"
                 "\nThe file appears under its name when it is complete.",
                 runExport);
  command.store(options->store);
  command.treeName(options->name);
  command.optional("FILE", options->file, "File to write; none or - is standard output");
  command.outputFormat(options->format);
  command.flag("--force", options->force, "Replace an existing file");
}

}  // namespace bmtree::tools
