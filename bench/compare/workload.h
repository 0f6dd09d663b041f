// The inputs: what sets there are, and which of them meet in operations on two.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

struct Workload {
  std::vector<std::vector<uint64_t>> sets;  // each strictly ascending
  std::vector<size_t> subjects;             // the sets for operations on one; none in a workload of mixed pairs
  std::vector<std::pair<size_t, size_t>> pairs;
};

// How large everything is.
struct Scale {
  std::string name;
  uint64_t divisor;         // of the numbers in the synthetic workloads
  uint64_t probes;          // numbers looked up, inserted and deleted one by one
  uint64_t collectionSets;  // sets taken from a collection, at most
};

// One workload, made when its turn comes: the large ones do not fit into memory together.
struct WorkloadSource {
  std::string id;
  std::string title;
  bool durable;  // the durable competitors take part
  std::function<Workload()> make;
};

// A to D, the mixed pairs, and R, which holds no numbers: the run of consecutive numbers belongs to it.
std::vector<WorkloadSource> syntheticWorkloads(const Scale& scale, uint64_t seed);

// Length of the run of consecutive numbers.
uint64_t runLength(const Scale& scale);

// E: one for each collection in `folder`. A collection is a folder of text files, or its .tar.xz archive, which is
// unpacked below `scratch`; a file is one set, ascending decimal numbers between commas. An empty name gives none.
std::vector<WorkloadSource> collectionWorkloads(const Scale& scale, const std::string& folder,
                                                const std::string& scratch);
