#include "runner.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "competitors.h"

namespace {

Competitor referenceCompetitor() {
  return {"reference", "", "", false, [] { return makeReferenceSet(); }};
}

bool fits(const Operation& operation, const Workload& workload) {
  switch (operation.scope) {
    case Scope::subjects: return !workload.subjects.empty();
    case Scope::pairs: return !workload.pairs.empty();
    case Scope::run: return workload.sets.empty();
  }
  return false;
}

uint64_t numbersIn(const std::vector<std::vector<uint64_t>>& sets) {
  uint64_t count = 0;
  for (const auto& set : sets) count += set.size();
  return count;
}

uint64_t numbersIn(const Input& input) {
  uint64_t count = 0;
  for (const auto& set : input.sets) count += set.size();
  return input.sets.empty() ? input.runLength : count;
}

// A limit that cuts nothing is the same as none.
Limits effective(Limits limits, const Workload& workload, const Scale& scale) {
  uint64_t largest = workload.sets.empty() ? runLength(scale) : 0;
  for (const auto& set : workload.sets) largest = std::max<uint64_t>(largest, set.size());
  return {std::min(limits.numbers, largest), std::min(limits.calls, scale.probes)};
}

std::unique_ptr<Input> makeInput(const Workload& workload, const Scale& scale, const Limits& limits) {
  auto input = std::make_unique<Input>(Input{scale,
                                             limits.calls,
                                             std::min(runLength(scale), limits.numbers),
                                             {},
                                             workload.subjects,
                                             workload.pairs,
                                             {},
                                             {}});
  for (const auto& set : workload.sets) {
    input->sets.emplace_back(set.data(), std::min<uint64_t>(set.size(), limits.numbers));
  }
  return input;
}

}  // namespace

// The competitors that are measured against each other on one workload.
struct Runner::Group {
  const WorkloadSource& source;
  const Workload& workload;
  Contender reference;
  std::vector<Contender> contenders;
  // What the operation at hand works on and its right answer, by the limits.
  using Key = std::pair<uint64_t, uint64_t>;
  std::map<Key, std::unique_ptr<Input>> inputs = {};
  std::map<Key, Answer> answers = {};
};

// A competitor in the operation at hand.
struct Runner::Entry {
  const Competitor& competitor;
  Limits limits;
  Case part;
};

Runner::Runner(RunnerOptions options, std::vector<Competitor> competitors)
    : options_(std::move(options)), competitors_(std::move(competitors)) {}

bool Runner::isWanted(const WorkloadSource& source, const Operation& operation, const Competitor& competitor) const {
  if (competitor.durable && (!operation.durable || !source.durable)) return false;
  return std::regex_search(source.id + "/" + operation.id + "/" + competitor.name, options_.only);
}

void Runner::measure(const WorkloadSource& source, Report& report) {
  const auto wanted = [&](const Operation& operation) {
    return std::any_of(competitors_.begin(), competitors_.end(),
                       [&](const Competitor& competitor) { return isWanted(source, operation, competitor); });
  };
  if (std::none_of(allOperations().begin(), allOperations().end(), wanted)) return;
  const Workload workload = source.make();
  report.workloads.push_back({source.id, source.title, workload.sets.size(), numbersIn(workload.sets)});
  measureGroup(source, workload, false, report);
  measureGroup(source, workload, true, report);
}

void Runner::measureGroup(const WorkloadSource& source, const Workload& workload, bool durable, Report& report) {
  Group group{source, workload, Contender(referenceCompetitor(), options_.directory), {}};
  for (const Competitor& competitor : competitors_) {
    if (competitor.durable != durable) continue;
    const std::string directory = options_.directory + "/" + competitor.name;
    std::filesystem::create_directories(directory);
    group.contenders.emplace_back(competitor, directory);
  }
  for (const Operation& operation : allOperations()) {
    if (!fits(operation, workload)) continue;
    measureOperation(group, operation, report);
    group.inputs.clear();
    group.answers.clear();
  }
}

void Runner::measureOperation(Group& group, const Operation& operation, Report& report) {
  Entries entries = enter(group, operation);
  if (entries.empty()) return;
  if (operation.measure != nullptr) {
    for (const auto& entry : entries) entry->part.measureSize();
  } else {
    std::erase_if(entries, [&](const auto& entry) { return !isRight(group, operation, *entry); });
    timeInTurn(group, operation, entries);
  }
  std::fprintf(stderr, "%-12s %-22s", group.source.id.c_str(), operation.id.c_str());
  for (const auto& entry : entries) {
    report.results.push_back(resultOf(group, operation, *entry));
    std::fprintf(stderr, "  %s %s", entry->competitor.name.c_str(),
                 threeDigits(report.results.back().median()).c_str());
  }
  std::fprintf(stderr, "\n");
}

Result Runner::resultOf(const Group& group, const Operation& operation, const Entry& entry) const {
  const uint64_t numbers = numbersIn(entry.part.trial().input);
  const uint64_t all = group.workload.sets.empty() ? runLength(options_.scale) : numbersIn(group.workload.sets);
  const bool hasFewerCalls = entry.limits.calls < options_.scale.probes;
  return {.workload = group.source.id,
          .operation = operation.id,
          .competitor = entry.competitor.name,
          .durable = entry.competitor.durable,
          .isSize = operation.measure != nullptr,
          .count = entry.part.count(),
          .repeats = entry.part.repeats(),
          .numbers = numbers,
          .numbersInFull = all,
          .isReduced = numbers < all || hasFewerCalls,
          .hasFewerCalls = hasFewerCalls,
          .runs = entry.part.runs()};
}

Runner::Entries Runner::enter(Group& group, const Operation& operation) {
  Entries entries;
  for (Contender& contender : group.contenders) {
    const Competitor& competitor = contender.competitor();
    if (!isWanted(group.source, operation, competitor)) continue;
    const Limits limits =
        effective(limitsOf(competitor, group.source.id, operation.id), group.workload, options_.scale);
    std::unique_ptr<Input>& input = group.inputs[{limits.numbers, limits.calls}];
    if (input == nullptr) {
      input = makeInput(group.workload, options_.scale, limits);
      Random random(options_.seed);
      if (operation.prepare != nullptr) operation.prepare(*input, random);
    }
    entries.push_back(std::make_unique<Entry>(
        Entry{competitor, limits, Case(operation, contender.makeTrial(operation, *input, limits.numbers))}));
  }
  return entries;
}

// Has the competitor answer for the first time.
bool Runner::isRight(Group& group, const Operation& operation, Entry& entry) {
  const auto [place, isNew] = group.answers.try_emplace({entry.limits.numbers, entry.limits.calls});
  if (isNew) {
    Case reference(operation, group.reference.makeTrial(operation, entry.part.trial().input, entry.limits.numbers));
    place->second = reference.firstAnswer(0);
  }
  if (entry.part.firstAnswer(options_.leastSeconds) == place->second) return true;
  noteWrongAnswer(group, operation, entry);
  return false;
}

// Run by run all competitors, each time another one first.
void Runner::timeInTurn(Group& group, const Operation& operation, Entries& entries) {
  for (int run = 0; run < options_.runs; ++run) {
    for (size_t i = 0; i < entries.size(); ++i) {
      Entry& entry = *entries[(i + static_cast<size_t>(run)) % entries.size()];
      if (!entry.part.runTimed()) noteWrongAnswer(group, operation, entry);
    }
  }
}

void Runner::noteWrongAnswer(const Group& group, const Operation& operation, const Entry& entry) {
  ++wrongAnswers_;
  std::fprintf(stderr, "WRONG ANSWER: %s in %s on %s\n", entry.competitor.name.c_str(), operation.id.c_str(),
               group.source.id.c_str());
}
