// One competitor on one workload, and its part in one operation.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "answer.h"
#include "operations.h"

// A competitor and its sets, by the limit of numbers they were cut at; they are built when first asked for.
class Contender {
 public:
  Contender(Competitor competitor, std::string directory)
      : competitor_(std::move(competitor)), directory_(std::move(directory)) {}

  const Competitor& competitor() const { return competitor_; }

  // The state for one operation. `limit` is that of `input`, which outlives the result.
  Trial makeTrial(const Operation& operation, const Input& input, uint64_t limit);

 private:
  Competitor competitor_;
  std::string directory_;  // its own
  std::map<uint64_t, Sets> sets_;
};

// A competitor's part in one operation.
class Case {
 public:
  Case(const Operation& operation, Trial trial) : operation_(operation), trial_(std::move(trial)) {}

  const Trial& trial() const { return trial_; }
  uint64_t count() const { return operation_.count(trial_.input); }
  uint64_t repeats() const { return repeats_; }
  const std::vector<double>& runs() const { return runs_; }

  // Runs once and returns all of the answer. Later runs must give the same one, and repeat the operation until they
  // take about `leastSeconds`.
  Answer firstAnswer(double leastSeconds);

  // Bytes per unit, once.
  void measureSize();

  // One timed run. False if its answer was another than the first one.
  bool runTimed();

 private:
  double timeOnce(uint64_t* result);
  bool timeRepeats(double* seconds);

  const Operation& operation_;
  Trial trial_;
  uint64_t expected_ = 0;
  uint64_t repeats_ = 1;
  std::vector<double> runs_;
};
