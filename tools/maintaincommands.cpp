// verify, compact, check-file: is all well, and a store without its waste.
#include <bitmap.h>

#include <cerrno>

#include "commands.h"
#include "exitcode.h"
#include "progress.h"
#include "readable.h"
#include "tempfile.h"

namespace bmtree::tools {
namespace {

struct VerifyOptions {
  StoreArguments store;
  ReportOptions report;
};

struct CompactOptions {
  StoreArguments store;
  std::string target;
  ReportOptions report;
};

struct CheckFileOptions {
  std::vector<std::string> files;
  ReportOptions report;
};

const char* kindName(Finding::Kind kind) {
  switch (kind) {
    case Finding::Kind::page: return "page";
    case Finding::Kind::tree: return "tree";
    case Finding::Kind::leaked: return "leaked";
    case Finding::Kind::lost: return "lost";
    case Finding::Kind::shared: return "shared";
  }
  return "unknown";
}

void printVerifyJson(const VerifyReport& found) {
  JsonWriter json;
  json.beginObject();
  json.field("sound", found.sound());
  json.field("pagesChecked", found.pagesChecked);
  json.field("treesChecked", found.treesChecked);
  json.field("uncommittedPages", found.uncommittedPages);
  json.field("faults", found.faults);
  json.key("findings").beginArray();
  for (const Finding& finding : found.findings) {
    json.beginObject();
    json.field("kind", kindName(finding.kind));
    json.field("page", finding.pageId);
    json.field("tree", finding.tree);
    json.field("message", finding.message);
    json.end();
  }
  json.end();
  json.end();
  print(json);
}

std::string verifyText(const VerifyReport& found) {
  std::string text;
  for (const Finding& finding : found.findings) {
    if (!finding.tree.empty()) text += "tree " + printable(finding.tree) + ": ";
    text += finding.message + "\n";
  }
  if (found.faults > found.findings.size()) text += "... and more\n";
  text += counted(found.pagesChecked, "page") + " and " + counted(found.treesChecked, "tree") + " checked, " +
          (found.sound() ? "all is well" : counted(found.faults, "fault") + " found") + "\n";
  if (found.uncommittedPages != 0) {
    text += counted(found.uncommittedPages, "page") + " of unfinished commits, which are no fault\n";
  }
  return text;
}

int runVerify(const VerifyOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  ProgressLine progress("verifying", "pages", 0);
  const VerifyReport found = store.verify([&](uint64_t done, uint64_t total) { progress.update(done, total); });
  progress.finish();
  if (options.report.json) {
    printVerifyJson(found);
  } else if (!options.report.quiet) {
    print(verifyText(found));
  }
  return found.sound() ? exitDone : exitNo;
}

int runCompact(const CompactOptions& options) {
  const Store store = options.store.open(OpenMode::readOnly);
  ProgressLine progress("compacting", "pages", 0);
  store.compactTo(options.target, [&](uint64_t done, uint64_t total) { progress.update(done, total); });
  progress.finish();
  const StoreInfo before = store.info();
  const uint64_t bytesBefore = before.bytesUsed + before.bytesFree;
  const StoreInfo after = StoreArguments{options.target}.open(OpenMode::readOnly).info();
  const uint64_t bytesAfter = after.bytesUsed + after.bytesFree;
  if (options.report.json) {
    JsonWriter json;
    json.beginObject();
    json.field("bytesBefore", bytesBefore);
    json.field("bytesAfter", bytesAfter);
    json.end();
    print(json);
  } else if (!options.report.quiet) {
    print(options.target + ": " + counted(after.trees, "tree") + ", " + readableBytes(bytesAfter) + " instead of " +
          readableBytes(bytesBefore) + "\n");
  }
  return exitDone;
}

// Checks a bitmap file, "-" being standard input.
bool checkFile(const std::string& file, BmCheckResultSType* result) {
  if (file != "-") {
    const FileDescriptor open = FileDescriptor::forReading(file);
    return BmCheckFile(("/proc/self/fd/" + std::to_string(open.get())).c_str(), result) != 0;
  }
  const TempFile copy;
  const FileDescriptor input = FileDescriptor::forReading(file);
  std::vector<std::byte> block(size_t{1} << 20);
  while (const size_t got = input.readFully(block, file)) {
    copy.file().writeAll(std::span(block).first(got), copy.path());
  }
  return BmCheckFile(copy.path().c_str(), result) != 0;
}

void jsonCheck(JsonWriter& json, const std::string& file, bool sound, const BmCheckResultSType& result) {
  json.beginObject();
  json.field("file", file);
  json.field("sound", sound);
  json.field("numbers", result.itemIndex);
  if (!sound) {
    json.field("byte", result.byteOffset);
    json.field("message", result.sentence);
  }
  json.end();
}

std::string checkText(const std::string& file, bool sound, const BmCheckResultSType& result) {
  if (sound) return file + ": sound, " + counted(result.itemIndex, "number") + "\n";
  return file + ": " + result.sentence + " (at byte " + std::to_string(result.byteOffset) + ", number " +
         std::to_string(result.itemIndex) + ")\n";
}

int runCheckFile(const CheckFileOptions& options) {
  bool allSound = true;
  std::string text;
  JsonWriter json;
  json.beginArray();
  for (const std::string& file : options.files) {
    BmCheckResultSType result{};
    const bool sound = checkFile(file, &result);
    // A file that ends within its head is damaged; nothing kept it from being read.
    const bool failed = result.fault == BM_CHECK_UNREADABLE && result.sysError != 0 && result.sysError != ENODATA;
    if (failed) throwSystemFailure(result.sysError, file);
    allSound = allSound && sound;
    jsonCheck(json, file, sound, result);
    text += checkText(file, sound, result);
  }
  json.end();
  if (options.report.json) {
    print(json);
  } else if (!options.report.quiet) {
    print(text);
  }
  return allSound ? exitDone : exitNo;
}

}  // namespace

void addVerify(Program& program) {
  auto [command, options] =
      addCommand(program, "verify", "Check every page, every tree, and that no page is lost or left over",
                 "  bmtree verify numbers.bmt && cp numbers.bmt backup/\n"
                 "\nReaders and writers may go on meanwhile. Ends with 1 if something is wrong.",
                 runVerify);
  command.store(options->store, true);
  command.report(options->report);
}

void addCompact(Program& program) {
  auto [command, options] = addCommand(
      program, "compact", "Write a store anew, without free room, to another file",
      "  bmtree compact numbers.bmt smaller.bmt\n"
      "\nReaders and writers may go on meanwhile; what is committed after the start is not in the new file.",
      runCompact);
  command.store(options->store, true);
  command.required("NEWFILE", options->target, "File of the new store, which must not exist");
  command.report(options->report);
}

void addCheckFile(Program& program) {
  auto [command, options] =
      addCommand(program, "check-file", "Check bitmap files without loading them",
                 "  bmtree check-file primes.bm\n"
                 "\nEnds with 1 if one is damaged. import and load do the same check before they begin.",
                 runCheckFile);
  command.words("FILE", options->files, 1, "Bitmap files; - is standard input");
  command.report(options->report);
}

}  // namespace bmtree::tools
