#include "operations.h"

#include <malloc.h>

#include <algorithm>
#include <numeric>

#include "hostmemory.h"
#include "rawfile.h"
#include "reposdisk.h"

namespace {

constexpr size_t chunkNumbers = 1000;
constexpr size_t freeNumbers = 1000;
// Not at the start of a page, of a word or of any competitor's unit.
constexpr uint64_t runFirst = 1'000'003;

// ---------------------------------------------------------------------------------------------------------
// Counts

uint64_t total(const std::vector<std::vector<uint64_t>>& arrays) {
  return std::transform_reduce(arrays.begin(), arrays.end(), uint64_t{0}, std::plus<>(),
                               [](const auto& array) { return array.size(); });
}

uint64_t preparedNumbers(const Input& input) { return total(input.numbers); }
uint64_t subjectCalls(const Input& input) { return input.subjects.size(); }
uint64_t pairCalls(const Input& input) { return input.pairs.size(); }
uint64_t runNumbers(const Input& input) { return input.runLength; }

uint64_t subjectNumbers(const Input& input) {
  uint64_t count = 0;
  for (size_t subject : input.subjects) count += input.sets[subject].size();
  return count;
}

// Numbers read: those of both sets.
uint64_t pairNumbers(const Input& input) {
  uint64_t count = 0;
  for (const auto& [a, b] : input.pairs) count += input.sets[a].size() + input.sets[b].size();
  return count;
}

// ---------------------------------------------------------------------------------------------------------
// Preparation: arrays that every competitor gets

// Single calls for one subject.
uint64_t callsPerSubject(const Input& input) {
  return std::max<uint64_t>(1, std::min(input.scale.probes, input.calls) / input.subjects.size());
}

void prepareHits(Input& input, Random& random) {
  for (size_t subject : input.subjects) {
    const std::span<const uint64_t> set = input.sets[subject];
    std::vector<uint64_t>& probes = input.numbers.emplace_back(set.empty() ? 0 : callsPerSubject(input));
    for (uint64_t& probe : probes) probe = set[random.below(set.size())];
  }
}

// The number that has `rank` numbers below it that are not in `set`.
uint64_t missing(std::span<const uint64_t> set, uint64_t rank) {
  size_t below = 0;
  for (size_t count = set.size(); count > 0;) {
    const size_t half = count / 2;
    const bool goOn = set[below + half] - (below + half) <= rank;
    if (goOn) below += half + 1;
    count = goOn ? count - half - 1 : half;
  }
  return rank + below;
}

// Numbers that are not in the set, uniformly between 0 and a little beyond its end.
void prepareMisses(Input& input, Random& random) {
  for (size_t subject : input.subjects) {
    const std::span<const uint64_t> set = input.sets[subject];
    const uint64_t end = set.empty() ? 1000 : std::min(set.back() + 1000, BM_END_BIT);
    const uint64_t holes = end - set.size();
    std::vector<uint64_t>& probes = input.numbers.emplace_back(callsPerSubject(input));
    for (uint64_t& probe : probes) probe = missing(set, random.below(holes));
  }
}

// Splits each subject: a random part of it in random order, at most half, and the ascending rest.
void prepareSplit(Input& input, Random& random) {
  for (size_t subject : input.subjects) {
    const std::span<const uint64_t> set = input.sets[subject];
    uint64_t wanted = std::min(callsPerSubject(input), (set.size() + 1) / 2);
    std::vector<uint64_t>& part = input.numbers.emplace_back();
    std::vector<uint64_t>& rest = input.base.emplace_back();
    rest.reserve(set.size());
    for (size_t i = 0; i < set.size(); ++i) {
      const bool take = random.below(set.size() - i) < wanted;
      (take ? part : rest).push_back(set[i]);
      wanted -= take ? 1 : 0;
    }
    random.shuffle(part);
  }
}

// A random part in random order, and the whole set.
void preparePart(Input& input, Random& random) {
  prepareSplit(input, random);
  for (size_t i = 0; i < input.subjects.size(); ++i) {
    const std::span<const uint64_t> set = input.sets[input.subjects[i]];
    input.base[i].assign(set.begin(), set.end());
  }
}

// The lowest numbers, ascending, to go into an empty set.
void prepareLowest(Input& input, Random&) {
  for (size_t subject : input.subjects) {
    const std::span<const uint64_t> set = input.sets[subject];
    input.numbers.emplace_back(
        set.begin(), set.begin() + static_cast<ptrdiff_t>(std::min<uint64_t>(set.size(), callsPerSubject(input))));
    input.base.emplace_back();
  }
}

void prepareShuffled(Input& input, Random& random) {
  for (size_t subject : input.subjects) {
    const std::span<const uint64_t> set = input.sets[subject];
    random.shuffle(input.numbers.emplace_back(set.begin(), set.end()));
    input.base.emplace_back();
  }
}

// For each pair a set that the first one does not meet: the second less the first.
void prepareApart(Input& input, Random&) {
  for (const auto& [a, b] : input.pairs) {
    std::set_difference(input.sets[b].begin(), input.sets[b].end(), input.sets[a].begin(), input.sets[a].end(),
                        std::back_inserter(input.base.emplace_back()));
  }
}

// ---------------------------------------------------------------------------------------------------------
// Set-up: the state of the sets, outside the clock

void freshFrom(Trial& trial, size_t index, std::span<const uint64_t> numbers) {
  trial.fresh[index] = nullptr;  // gives its memory back first
  trial.fresh[index] = trial.competitor.makeSet();
  if (!numbers.empty()) trial.fresh[index]->loadSorted(numbers);
}

void emptySets(Trial& trial, size_t count) {
  trial.fresh.resize(count);
  for (size_t i = 0; i < count; ++i) freshFrom(trial, i, {});
}

void emptyForSubjects(Trial& trial) { emptySets(trial, trial.input.subjects.size()); }
void emptyForPairs(Trial& trial) { emptySets(trial, trial.input.pairs.size()); }
void emptyForRun(Trial& trial) { emptySets(trial, 1); }

void loadBase(Trial& trial) {
  trial.fresh.resize(trial.input.base.size());
  for (size_t i = 0; i < trial.fresh.size(); ++i) freshFrom(trial, i, trial.input.base[i]);
}

void copyFirstOfPairs(Trial& trial) {
  emptyForPairs(trial);
  for (size_t i = 0; i < trial.fresh.size(); ++i)
    trial.fresh[i]->assignCopy(*trial.built[trial.input.pairs[i].first]);
}

// Copies of the shuffled arrays, with a spare slot before and behind.
void emptyWithCopies(Trial& trial) {
  emptyForSubjects(trial);
  trial.buffers.resize(trial.input.numbers.size());
  for (size_t i = 0; i < trial.buffers.size(); ++i) {
    const std::vector<uint64_t>& numbers = trial.input.numbers[i];
    trial.buffers[i].resize(numbers.size() + 2);
    std::copy(numbers.begin(), numbers.end(), trial.buffers[i].begin() + 1);
  }
}

void roomForSubjects(Trial& trial) { trial.output.resize(subjectNumbers(trial.input)); }
void roomForChunk(Trial& trial) { trial.buffers.assign(1, std::vector<uint64_t>(chunkNumbers)); }
void roomForFree(Trial& trial) { trial.output.resize(freeNumbers * trial.input.subjects.size()); }

std::string fileOf(const Trial& trial, size_t index) {
  return trial.directory + "/" + std::to_string(index) + ".numbers";
}

uint64_t writeFiles(Trial& trial) {
  for (size_t subject : trial.input.subjects) trial.built[subject]->writeFile(fileOf(trial, subject));
  return 0;
}

void emptyWithFiles(Trial& trial) {
  if (trial.fresh.empty()) writeFiles(trial);
  emptyForSubjects(trial);
}

// ---------------------------------------------------------------------------------------------------------
// Runs, inside the clock

// Calls `work` with the set and the index of each subject; the sum of the results.
template <class Work>
uint64_t overSubjects(Trial& trial, Work work) {
  uint64_t sum = 0;
  for (size_t i = 0; i < trial.input.subjects.size(); ++i) sum += work(*trial.built[trial.input.subjects[i]], i);
  return sum;
}

uint64_t countPresent(Trial& trial) {
  return overSubjects(trial, [&](NumberSet& set, size_t i) { return set.countPresent(trial.input.numbers[i]); });
}

uint64_t countPresentTogether(Trial& trial) {
  return overSubjects(trial,
                      [&](NumberSet& set, size_t i) { return set.countPresentTogether(trial.input.numbers[i]); });
}

uint64_t insertEach(Trial& trial) {
  uint64_t sum = 0;
  for (size_t i = 0; i < trial.fresh.size(); ++i) sum += trial.fresh[i]->insertEach(trial.input.numbers[i]);
  return sum;
}

uint64_t eraseEach(Trial& trial) {
  uint64_t sum = 0;
  for (size_t i = 0; i < trial.fresh.size(); ++i) sum += trial.fresh[i]->eraseEach(trial.input.numbers[i]);
  return sum;
}

uint64_t loadSorted(Trial& trial) {
  for (size_t i = 0; i < trial.fresh.size(); ++i) {
    trial.fresh[i]->loadSorted(trial.input.sets[trial.input.subjects[i]]);
    trial.fresh[i]->finishLoading();
  }
  return 0;
}

uint64_t loadUnsorted(Trial& trial) {
  for (size_t i = 0; i < trial.fresh.size(); ++i) {
    trial.fresh[i]->loadUnsorted({trial.buffers[i].data() + 1, trial.buffers[i].size() - 2});
    trial.fresh[i]->finishLoading();
  }
  return 0;
}

uint64_t addRun(Trial& trial) {
  trial.fresh[0]->addRange(runFirst, runFirst + trial.input.runLength - 1);
  return 0;
}

uint64_t cardinality(Trial& trial) {
  return overSubjects(trial, [](const NumberSet& set, size_t) { return set.size(); });
}

uint64_t toArray(Trial& trial) {
  uint64_t* out = trial.output.data();
  return overSubjects(trial, [&out](const NumberSet& set, size_t) {
    const uint64_t count = set.toArray(out);
    out += count;
    return count;
  });
}

uint64_t walkInChunks(Trial& trial) {
  return overSubjects(trial, [&](const NumberSet& set, size_t) { return set.walkInChunks(trial.buffers[0]); });
}

uint64_t lowestFree(Trial& trial) {
  return overSubjects(trial, [&](const NumberSet& set, size_t i) {
    set.lowestFree({trial.output.data() + i * freeNumbers, freeNumbers});
    return 0;
  });
}

uint64_t readFiles(Trial& trial) {
  for (size_t i = 0; i < trial.fresh.size(); ++i) trial.fresh[i]->readFile(fileOf(trial, trial.input.subjects[i]));
  return 0;
}

// Calls `work` with the two sets and the index of each pair; the sum of the results.
template <class Work>
uint64_t overPairs(Trial& trial, Work work) {
  uint64_t sum = 0;
  for (size_t i = 0; i < trial.input.pairs.size(); ++i) {
    const auto& [a, b] = trial.input.pairs[i];
    sum += work(*trial.built[a], *trial.built[b], i);
  }
  return sum;
}

// The runs that fill, or change, the fresh set of each pair.
using AssignFn = void (NumberSet::*)(const NumberSet&, const NumberSet&);
using ChangeFn = void (NumberSet::*)(const NumberSet&);

template <AssignFn assign>
uint64_t assignPairs(Trial& trial) {
  return overPairs(trial, [&](const NumberSet& a, const NumberSet& b, size_t i) {
    ((*trial.fresh[i]).*assign)(a, b);
    return 0;
  });
}

template <ChangeFn change>
uint64_t changePairs(Trial& trial) {
  return overPairs(trial, [&](const NumberSet&, const NumberSet& b, size_t i) {
    ((*trial.fresh[i]).*change)(b);
    return 0;
  });
}

uint64_t intersectionSize(Trial& trial) {
  return overPairs(trial, [](const NumberSet& a, const NumberSet& b, size_t) { return a.intersectionSize(b); });
}

uint64_t meets(Trial& trial) {
  return overPairs(trial, [](const NumberSet& a, const NumberSet& b, size_t) { return a.meets(b) ? 1 : 0; });
}

uint64_t meetsApart(Trial& trial) {
  return overPairs(trial,
                   [&](const NumberSet& a, const NumberSet&, size_t i) { return a.meets(*trial.fresh[i]) ? 1 : 0; });
}

// ---------------------------------------------------------------------------------------------------------
// Sizes

// Bytes of heap pages; buffers are malloc's.
uint64_t pageBytes() {
  uint64_t bytes = 0;
  for (const HostMemoryUse& use : HostMemoryInUse()) bytes += use.isTag ? use.bytes : 0;
  return bytes;
}

uint64_t memoryInUse() {
  const uint64_t pages = pageBytes();
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd + pages;
}

uint64_t memoryOfSets(Trial& trial) {
  emptyForSubjects(trial);
  const uint64_t before = memoryInUse();
  loadSorted(trial);
  return memoryInUse() - before;
}

uint64_t bytesOfFiles(Trial& trial) {
  uint64_t bytes = 0;
  for (size_t subject : trial.input.subjects) {
    if (trial.competitor.durable) {
      bytes += trial.built[subject]->bytesOnDisk();
    } else {
      trial.built[subject]->writeFile(fileOf(trial, subject));
      bytes += fileBytes(fileOf(trial, subject));
    }
  }
  return bytes;
}

// ---------------------------------------------------------------------------------------------------------
// The table

constexpr bool durable = true;
constexpr bool inMemory = false;  // in memory only
constexpr bool once = false;      // set up once
constexpr bool eachRun = true;    // set up anew before each run

std::vector<Operation> makeOperations() {
  using S = NumberSet;
  using enum Scope;
  return {
      {"memory", "bytes in memory", "number", subjects, inMemory, once, nullptr, nullptr, nullptr, subjectNumbers,
       memoryOfSets},
      {"disk", "bytes on disk", "number", subjects, durable, once, nullptr, nullptr, nullptr, subjectNumbers,
       bytesOfFiles},
      {"contains_hit", "membership, hits in random order", "number", subjects, durable, once, prepareHits, nullptr,
       countPresent, preparedNumbers},
      {"contains_miss", "membership, misses in random order", "number", subjects, durable, once, prepareMisses,
       nullptr, countPresent, preparedNumbers},
      {"contains_batch", "membership of a batch, random order", "number", subjects, inMemory, once, prepareHits,
       nullptr, countPresentTogether, preparedNumbers},
      {"insert_random", "insert in random order", "number", subjects, durable, eachRun, prepareSplit, loadBase,
       insertEach, preparedNumbers},
      {"insert_ascending", "insert in ascending order", "number", subjects, inMemory, eachRun, prepareLowest,
       loadBase, insertEach, preparedNumbers},
      {"delete_random", "delete in random order", "number", subjects, durable, eachRun, preparePart, loadBase,
       eraseEach, preparedNumbers},
      {"load_sorted", "bulk load, sorted", "number", subjects, durable, eachRun, nullptr, emptyForSubjects,
       loadSorted, subjectNumbers},
      {"load_unsorted", "bulk load, unsorted", "number", subjects, inMemory, eachRun, prepareShuffled,
       emptyWithCopies, loadUnsorted, subjectNumbers},
      {"cardinality", "cardinality", "call", subjects, durable, once, nullptr, nullptr, cardinality, subjectCalls},
      {"to_array", "everything into an array", "number", subjects, durable, once, nullptr, roomForSubjects, toArray,
       subjectNumbers},
      {"chunks", "iteration in chunks of 1,000", "number", subjects, inMemory, once, nullptr, roomForChunk,
       walkInChunks, subjectNumbers},
      {"lowest_free", "the 1,000 lowest free numbers", "call", subjects, inMemory, once, nullptr, roomForFree,
       lowestFree, subjectCalls},
      {"write_file", "write to a file", "number", subjects, inMemory, once, nullptr, nullptr, writeFiles,
       subjectNumbers},
      {"read_file", "read from a file", "number", subjects, inMemory, eachRun, nullptr, emptyWithFiles, readFiles,
       subjectNumbers},
      {"union_new", "union, new set", "number", pairs, durable, eachRun, nullptr, emptyForPairs,
       assignPairs<&S::assignUnion>, pairNumbers},
      {"intersection_new", "intersection, new set", "number", pairs, inMemory, eachRun, nullptr, emptyForPairs,
       assignPairs<&S::assignIntersection>, pairNumbers},
      {"difference_new", "difference, new set", "number", pairs, inMemory, eachRun, nullptr, emptyForPairs,
       assignPairs<&S::assignDifference>, pairNumbers},
      {"union_in_place", "union, in place", "number", pairs, inMemory, eachRun, nullptr, copyFirstOfPairs,
       changePairs<&S::unite>, pairNumbers},
      {"intersection_in_place", "intersection, in place", "number", pairs, inMemory, eachRun, nullptr,
       copyFirstOfPairs, changePairs<&S::intersect>, pairNumbers},
      {"difference_in_place", "difference, in place", "number", pairs, inMemory, eachRun, nullptr, copyFirstOfPairs,
       changePairs<&S::subtract>, pairNumbers},
      {"intersection_size", "size of the intersection", "number", pairs, durable, once, nullptr, nullptr,
       intersectionSize, pairNumbers},
      {"meets", "do they meet", "call", pairs, inMemory, once, nullptr, nullptr, meets, pairCalls},
      {"meets_not", "do they meet, disjoint sets", "call", pairs, inMemory, once, prepareApart, loadBase, meetsApart,
       pairCalls},
      {"run", "a run of consecutive numbers", "number", run, inMemory, eachRun, nullptr, emptyForRun, addRun,
       runNumbers},
  };
}

}  // namespace

const std::vector<Operation>& allOperations() {
  static const std::vector<Operation> operations = makeOperations();
  return operations;
}
