// The table of operations: what is done, to which sets, in which state, and how many operations one run is.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "numberset.h"
#include "random.h"
#include "workload.h"

// What an operation works on besides the sets of a competitor: the same for all competitors with the same limits.
struct Input {
  Scale scale;
  uint64_t calls;  // single calls in a run, at most
  uint64_t runLength;
  std::vector<std::span<const uint64_t>> sets;
  std::vector<size_t> subjects;
  std::vector<std::pair<size_t, size_t>> pairs;

  // Filled by Operation::prepare, one entry for each subject or pair.
  std::vector<std::vector<uint64_t>> base;     // what fresh sets are loaded with
  std::vector<std::vector<uint64_t>> numbers;  // probes; numbers to add or to take out
};

using Sets = std::vector<std::unique_ptr<NumberSet>>;

// One operation with one competitor: set up as often as needed, then run.
struct Trial {
  const Input& input;
  const Competitor& competitor;
  const Sets& built;      // a set for each of the input's, loaded and then only read
  std::string directory;  // for files

  Sets fresh;                                  // what the operation changes or fills
  std::vector<std::vector<uint64_t>> buffers;  // arrays that it may write over
  std::vector<uint64_t> output;                // what it writes
};

enum class Scope {
  subjects,  // single sets
  pairs,     // two sets
  run,       // no set: the run of consecutive numbers
};

struct Operation {
  std::string id;
  std::string title;
  std::string unit;  // what the result is a time, or a size, of: "number" or "call"
  Scope scope;
  bool durable;    // the durable competitors do it too
  bool freshEach;  // set up anew before each run, otherwise once

  void (*prepare)(Input& input, Random& random);  // may be null
  void (*setUp)(Trial& trial);                    // outside the clock; may be null
  uint64_t (*run)(Trial& trial);                  // inside; the result is part of the answer
  uint64_t (*count)(const Input& input);          // operations in a run
  uint64_t (*measure)(Trial& trial) = nullptr;    // instead of a run: bytes
};

const std::vector<Operation>& allOperations();

// How far a competitor goes in an operation; what would take minutes is done with less, and the tables say so.
struct Limits {
  uint64_t numbers = ~uint64_t{0};  // of each set: its lowest ones
  uint64_t calls = ~uint64_t{0};    // single calls in a run
};
Limits limitsOf(const Competitor& competitor, const std::string& workload, const std::string& operation);
