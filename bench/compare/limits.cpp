// How far each competitor goes, so that a full measurement takes minutes.
#include <algorithm>

#include "operations.h"

namespace {

constexpr uint64_t all = ~uint64_t{0};
constexpr uint64_t million = 1'000'000;

using Names = std::vector<std::string>;  // empty: any

struct Row {
  Names competitors;
  Names workloads;
  Names operations;
  uint64_t numbers;
  uint64_t calls;
};

std::vector<Row> makeRows() {
  const Names singleChanges{"insert_random", "delete_random"};
  const Names lookups{"contains_hit", "contains_miss", "contains_batch"};
  const Names loads{"insert_random", "insert_ascending", "delete_random", "load_sorted", "load_unsorted"};
  const Names walks{"to_array", "chunks", "lowest_free"};
  const Names files{"write_file", "read_file"};
  const Names pairOperations{"union_new",      "intersection_new",      "difference_new",
                             "union_in_place", "intersection_in_place", "difference_in_place",
                             "meets",          "intersection_size",     "meets_not"};
  const Names keys{"LMDB keys", "RocksDB keys", "SQLite keys"};
  const Names blobs{"LMDB blobs", "RocksDB blobs", "SQLite blobs"};
  Names durable{"bmtree store"};
  durable.insert(durable.end(), keys.begin(), keys.end());
  durable.insert(durable.end(), blobs.begin(), blobs.end());
  return {
      // a node of 48 bytes and a cache miss for each number
      {{"std::set"}, {}, {}, million / 4, all},
      {{"std::set", "sorted vector"}, {}, lookups, all, million / 2},
      // half the array is moved for each number
      {{"sorted vector"}, {}, singleChanges, all, 100},
      // nearly a container for each number; the list of containers is moved for each new one
      {{"CRoaring"}, {"A"}, lookups, all, million / 2},
      {{"CRoaring"}, {"A"}, singleChanges, all, 10'000},
      {{"CRoaring"}, {"A"}, loads, million, all},
      {{"CRoaring"}, {"A"}, walks, million, all},
      {{"CRoaring"}, {"A"}, files, million, all},
      {{"CRoaring"}, {"A", "A-D"}, pairOperations, million / 4, all},
      // number by number through a hundred million
      {{"CRoaring"}, {"D"}, loads, 20 * million, all},
      {{"Judy1"}, {"D"}, loads, 20 * million, all},
      {{"Judy1"}, {"D"}, walks, 20 * million, all},
      {{"Judy1"}, {}, {"load_unsorted"}, 4 * million, all},
      {{"Judy1"}, {}, pairOperations, million, all},
      {{"Judy1"}, {"R"}, {}, 20 * million, all},
      // sorting, and files of hundreds of megabytes
      {{}, {"D"}, {"load_unsorted", "write_file", "read_file", "disk"}, 16 * million, all},
      // a key for each number
      {keys, {}, {}, million / 4, all},
      {durable, {}, lookups, all, 100'000},
      {durable, {}, singleChanges, all, 20'000},
      // nearly a blob for each number
      {blobs, {"A"}, {}, million / 10, all},
  };
}

bool matches(const Names& names, const std::string& name) {
  return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

Limits limitsOf(const Competitor& competitor, const std::string& workload, const std::string& operation) {
  static const std::vector<Row> rows = makeRows();
  Limits limits;
  for (const Row& row : rows) {
    if (!matches(row.competitors, competitor.name) || !matches(row.workloads, workload)) continue;
    if (!matches(row.operations, operation)) continue;
    limits.numbers = std::min(limits.numbers, row.numbers);
    limits.calls = std::min(limits.calls, row.calls);
  }
  return limits;
}
