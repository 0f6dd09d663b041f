// What was measured.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "numberset.h"
#include "workload.h"

// One competitor's result in one operation on one workload.
struct Result {
  std::string workload;
  std::string operation;
  std::string competitor;
  bool durable;              // measured among the durable competitors
  bool isSize;               // bytes per unit; otherwise nanoseconds per unit
  uint64_t count;            // operations in a run: units of time or size
  uint64_t repeats;          // runs of that many operations inside the clock
  uint64_t numbers;          // numbers in the sets
  uint64_t numbersInFull;    // and in those of competitors without a limit
  bool isReduced;            // fewer numbers, or
  bool hasFewerCalls;        // fewer single calls in a run
  std::vector<double> runs;  // one value for each run, in the order they were made

  double median() const;
  double spread() const;  // of the runs: (highest - lowest) / median
};

// Where, with what and how it was measured; name and value, to be read by people.
using Facts = std::vector<std::pair<std::string, std::string>>;

struct WorkloadName {
  std::string id;
  std::string title;
  uint64_t sets;
  uint64_t numbers;  // in all of them
};

struct Report {
  Facts facts;
  std::vector<WorkloadName> workloads;
  std::vector<Competitor> competitors;
  std::vector<Result> results;
};

// The machine, the compiler and its flags, versions, and the settings of the memory that all use.
Facts environmentFacts();
// Load of the machine, to be noted before and after.
std::string loadAverage();

// Write one file each, or end the program. The Markdown table and the chart are made of the same results.
void writeJson(const Report& report, const std::string& path);
void writeMarkdown(const Report& report, const std::string& path);
// How many times as long as ours each other competitor took, one dot each, or how many times the bytes.
void writeChart(const Report& report, const std::string& path);

// The result for the three names among those in memory or the durable ones, or null.
const Result* findResult(const Report& report, const std::string& workload, const std::string& operation,
                         const std::string& competitor);

// "1.23", "45.6", "789", "12,300": three significant digits.
std::string threeDigits(double value);
