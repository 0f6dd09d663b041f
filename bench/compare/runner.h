// Measures: has every competitor answer, compares the answers, and times the competitors in turn.
#pragma once

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "contender.h"
#include "results.h"
#include "workload.h"

struct RunnerOptions {
  Scale scale;
  uint64_t seed;
  int runs;
  double leastSeconds;    // inside the clock, for one run; short operations are repeated
  std::regex only;        // searched for in "workload/operation/competitor"
  std::string directory;  // for files; exists
};

class Runner {
 public:
  Runner(RunnerOptions options, std::vector<Competitor> competitors);

  // Measures all operations on one workload, and appends to the report.
  void measure(const WorkloadSource& source, Report& report);

  // Wrong answers so far. They are printed, and the competitor is left out of the operation.
  int wrongAnswers() const { return wrongAnswers_; }

 private:
  struct Entry;
  using Entries = std::vector<std::unique_ptr<Entry>>;
  struct Group;

  bool isWanted(const WorkloadSource& source, const Operation& operation, const Competitor& competitor) const;
  void measureGroup(const WorkloadSource& source, const Workload& workload, bool durable, Report& report);
  void measureOperation(Group& group, const Operation& operation, Report& report);
  Entries enter(Group& group, const Operation& operation);
  Result resultOf(const Group& group, const Operation& operation, const Entry& entry) const;
  bool isRight(Group& group, const Operation& operation, Entry& entry);
  void timeInTurn(Group& group, const Operation& operation, Entries& entries);
  void noteWrongAnswer(const Group& group, const Operation& operation, const Entry& entry);

  RunnerOptions options_;
  std::vector<Competitor> competitors_;
  int wrongAnswers_ = 0;
};
