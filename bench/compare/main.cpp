// bench_compare: this library beside what people use today. See usage() for the options.
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "competitors.h"
#include "hostmemory.h"
#include "runner.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* usage =
    R"(usage: bench_compare [--scale smoke|small|full] [--only REGEX] [--data DIR] [--out DIR] [--work DIR]
                     [--runs N] [--seed N] [--commit NAME]

  --scale   size of the workloads: full as described in the tables, small a tenth, smoke for tests (full)
  --only    what to measure, a regular expression searched for in "workload/operation/competitor"
  --data    folder of real collections: folders of text files, or .tar.xz archives (those of this repository)
  --out     folder for compare.json, compare.md and compare.svg (bench-results)
  --work    folder for the files of the measurement, which are removed at the end (the folder of --out)
  --runs    timed runs of everything (5; smoke 1)
  --seed    of the inputs (1)
  --commit  name of what is measured, noted in the results
)";

struct Options {
  Scale scale;
  double leastSeconds = 0;
  std::regex only{""};
  std::string data = BENCH_DATA_DIR;
  fs::path out = "bench-results";
  fs::path work;
  int runs = 0;
  uint64_t seed = 1;
  std::string commit;
};

void chooseScale(const std::string& name, Options* options) {
  if (name == "full") {
    options->scale = {name, 1, 2'000'000, ~uint64_t{0}};
    options->leastSeconds = 0.01;
  } else if (name == "small") {
    options->scale = {name, 10, 200'000, ~uint64_t{0}};
    options->leastSeconds = 0.002;
  } else if (name == "smoke") {
    options->scale = {name, 500, 2'000, 5};
    options->leastSeconds = 0;
  } else {
    giveUp("there is no scale " + name);
  }
}

uint64_t parseNumber(const std::string& name, const std::string& value) {
  char* end = nullptr;
  const uint64_t number = std::strtoull(value.c_str(), &end, 10);
  if (value.empty() || *end != '\0') giveUp(name + " takes a number, not " + value);
  return number;
}

std::regex parseRegex(const std::string& text) {
  try {
    return std::regex(text);
  } catch (const std::regex_error& error) {
    giveUp("--only takes a regular expression: " + std::string(error.what()));
  }
}

void setOption(const std::string& name, const std::string& value, Options* options) {
  if (name == "--scale") {
    chooseScale(value, options);
  } else if (name == "--only") {
    options->only = parseRegex(value);
  } else if (name == "--data") {
    options->data = value;
  } else if (name == "--out") {
    options->out = value;
  } else if (name == "--work") {
    options->work = value;
  } else if (name == "--runs") {
    options->runs = static_cast<int>(parseNumber(name, value));
  } else if (name == "--seed") {
    options->seed = parseNumber(name, value);
  } else if (name == "--commit") {
    options->commit = value;
  } else {
    giveUp("there is no option " + name + "\n" + usage);
  }
}

Options parse(int argc, char** argv) {
  Options options;
  chooseScale("full", &options);
  for (int i = 1; i < argc; i += 2) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::fputs(usage, stdout);
      std::exit(0);
    }
    if (i + 1 == argc) giveUp(std::string(argv[i]) + " needs a value\n" + usage);
    setOption(argv[i], argv[i + 1], &options);
  }
  if (options.runs == 0) options.runs = options.scale.name == "smoke" ? 1 : 5;
  if (options.work.empty()) options.work = options.out;
  options.work /= "work-" + std::to_string(getpid());
  return options;
}

// All memory is advised for 2 MiB pages and, once touched, kept: malloc's, from which the others take theirs, and our
// pages. The C library reads the advice when a program starts, so this one starts itself again with it.
void levelMemory(char** argv) {
  HostKeepIdleMemory(~uint64_t{0});
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
  mallopt(M_TOP_PAD, 64 << 20);
  if (std::getenv("GLIBC_TUNABLES") != nullptr) return;
  setenv("GLIBC_TUNABLES", "glibc.malloc.hugetlb=1", 1);
  execv("/proc/self/exe", argv);
  std::perror("bench_compare: cannot start again with 2 MiB pages");
}

Facts makeFacts(const Options& options) {
  Facts facts = environmentFacts();
  if (!options.commit.empty()) facts.emplace_back("measured", options.commit);
  facts.emplace_back("scale", options.scale.name);
  facts.emplace_back("runs", std::to_string(options.runs) + ", all competitors in turn in one process");
  facts.emplace_back("seed", std::to_string(options.seed));
  facts.emplace_back("load of the machine before", loadAverage());
  std::string missing;
  for (const std::string& name : missingCompetitors()) missing += (missing.empty() ? "" : ", ") + name;
  if (!missing.empty()) facts.emplace_back("not there when this was built", missing);
  return facts;
}

std::vector<WorkloadSource> workloadsOf(const Options& options) {
  std::vector<WorkloadSource> sources = syntheticWorkloads(options.scale, options.seed);
  for (WorkloadSource& source : collectionWorkloads(options.scale, options.data, options.work.string())) {
    sources.push_back(std::move(source));
  }
  return sources;
}

void writeReport(const Report& report, const fs::path& folder) {
  writeJson(report, folder / "compare.json");
  writeMarkdown(report, folder / "compare.md");
  writeChart(report, folder / "compare.svg");
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  levelMemory(argv);
  const auto start = std::chrono::steady_clock::now();
  fs::create_directories(options.out);
  fs::create_directories(options.work);
  Report report;
  report.competitors = allCompetitors(options.work.string());
  report.facts = makeFacts(options);
  Runner runner(
      {options.scale, options.seed, options.runs, options.leastSeconds, options.only, options.work.string()},
      report.competitors);
  for (const WorkloadSource& source : workloadsOf(options)) {
    runner.measure(source, report);
    writeReport(report, options.out);  // a run that is cut off has written what it got
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  report.facts.emplace_back("load of the machine after", loadAverage());
  report.facts.emplace_back("took", threeDigits(seconds.count()) + " s");
  writeReport(report, options.out);
  fs::remove_all(options.work);
  std::printf("%zu results in %s, %d wrong answers\n", report.results.size(), options.out.c_str(),
              runner.wrongAnswers());
  return runner.wrongAnswers() == 0 && !report.results.empty() ? 0 : 1;
}
