#include "contender.h"

#include <algorithm>
#include <chrono>
#include <numeric>

namespace {

using Clock = std::chrono::steady_clock;

constexpr double mostRepeats = 1e6;
constexpr double mostSecondsOfSetUp = 0.1;  // in one run, unless a single set-up takes longer

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::unique_ptr<NumberSet> buildSet(const Competitor& competitor, std::span<const uint64_t> numbers) {
  std::unique_ptr<NumberSet> set = competitor.makeSet();
  if (!numbers.empty()) set->loadSorted(numbers);
  set->finishLoading();
  return set;
}

// The sets that an operation reads.
std::vector<size_t> setsOf(const Operation& operation, const Input& input) {
  if (operation.scope == Scope::subjects) return input.subjects;
  std::vector<size_t> all(input.sets.size());
  std::iota(all.begin(), all.end(), size_t{0});
  return all;
}

}  // namespace

Trial Contender::makeTrial(const Operation& operation, const Input& input, uint64_t limit) {
  Sets& sets = sets_[limit];
  sets.resize(input.sets.size());
  for (size_t index : setsOf(operation, input)) {
    if (sets[index] == nullptr) sets[index] = buildSet(competitor_, input.sets[index]);
  }
  return {input, competitor_, sets, directory_, {}, {}, {}};
}

Answer Case::firstAnswer(double leastSeconds) {
  const Clock::time_point start = Clock::now();
  if (operation_.setUp != nullptr) operation_.setUp(trial_);
  const double setUpSeconds = operation_.freshEach ? secondsSince(start) : 0;
  uint64_t result = 0;
  const double seconds = timeOnce(&result);
  expected_ = briefAnswerOf(operation_, trial_, result);
  const double most = std::min(mostRepeats, mostSecondsOfSetUp / std::max(setUpSeconds, 1e-9));
  repeats_ = static_cast<uint64_t>(std::max(1.0, std::min(most, leastSeconds / std::max(seconds, 1e-9))));
  return answerOf(operation_, trial_, result);
}

void Case::measureSize() {
  runs_.push_back(static_cast<double>(operation_.measure(trial_)) / static_cast<double>(count()));
}

bool Case::runTimed() {
  double seconds = 0;
  const bool isRight = timeRepeats(&seconds);
  runs_.push_back(seconds * 1e9 / static_cast<double>(count() * repeats_));
  return isRight;
}

double Case::timeOnce(uint64_t* result) {
  const Clock::time_point start = Clock::now();
  *result = operation_.run(trial_);
  return secondsSince(start);
}

bool Case::timeRepeats(double* seconds) {
  bool isRight = true;
  if (!operation_.freshEach) {
    const Clock::time_point start = Clock::now();
    for (uint64_t i = 0; i < repeats_; ++i) isRight = operation_.run(trial_) == expected_ && isRight;
    *seconds = secondsSince(start);
    return isRight;
  }
  for (uint64_t i = 0; i < repeats_; ++i) {
    operation_.setUp(trial_);
    uint64_t result = 0;
    *seconds += timeOnce(&result);
    isRight = briefAnswerOf(operation_, trial_, result) == expected_ && isRight;
  }
  return isRight;
}
