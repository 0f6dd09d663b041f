#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

#include "operations.h"
#include "results.h"

namespace {

constexpr const char* reducedMark = "†";

// The results in the row of one operation, in the order of the competitors; null where there is none.
using Row = std::vector<const Result*>;

Row rowOf(const Report& report, const std::vector<Competitor>& columns, const std::string& workload,
          const std::string& operation) {
  Row row;
  for (const Competitor& competitor : columns) {
    row.push_back(findResult(report, workload, operation, competitor.name));
  }
  return row;
}

bool isEmpty(const Row& row) {
  for (const Result* result : row) {
    if (result != nullptr) return false;
  }
  return true;
}

const Result* bestOf(const Row& row) {
  const Result* best = nullptr;
  for (const Result* result : row) {
    if (result != nullptr && (best == nullptr || result->median() < best->median())) best = result;
  }
  return best;
}

// "12.3 ±4 %", in bold for the best; times of calls in microseconds.
std::string cell(const Result* result, bool isBest, bool perCall) {
  if (result == nullptr) return "";
  std::string text = threeDigits(perCall ? result->median() / 1000 : result->median());
  if (isBest) text = "**" + text + "**";
  if (result->isReduced) text += reducedMark;
  if (result->isSize) return text;
  return text + " ±" + std::to_string(std::lround(result->spread() * 50)) + " %";
}

std::string unitOf(const Operation& operation) {
  if (operation.measure != nullptr) return "bytes";
  return operation.unit == "call" ? "µs a call" : "ns";
}

void printRow(std::ostream& out, const Operation& operation, const Row& row) {
  const Result* best = bestOf(row);
  out << "| " << operation.title << " (" << unitOf(operation) << ") |";
  for (const Result* result : row) {
    out << " " << cell(result, result == best, operation.unit == "call") << " |";
  }
  out << "\n";
}

void printTable(std::ostream& out, const Report& report, const WorkloadName& workload, bool durable) {
  std::vector<Competitor> columns;
  for (const Competitor& competitor : report.competitors) {
    if (competitor.durable == durable) columns.push_back(competitor);
  }
  std::ostringstream rows;
  for (const Operation& operation : allOperations()) {
    const Row row = rowOf(report, columns, workload.id, operation.id);
    if (!isEmpty(row)) printRow(rows, operation, row);
  }
  if (rows.str().empty()) return;
  out << "\n### " << workload.id << (durable ? ", durable" : "") << ": " << workload.title << "\n\n| |";
  for (const Competitor& competitor : columns) out << " " << competitor.name << " |";
  out << "\n|---|";
  for (size_t i = 0; i < columns.size(); ++i) out << "--:|";
  out << "\n" << rows.str();
}

// The cells marked as reduced: one line for all operations of a competitor on a workload that are alike in it.
void printReduced(std::ostream& out, const Report& report) {
  std::map<std::string, std::string> operations;
  for (const Result& result : report.results) {
    if (!result.isReduced) continue;
    std::ostringstream line;
    line << "| " << result.competitor << " | " << result.workload << " | " << result.numbers << " of "
         << result.numbersInFull << " | " << (result.hasFewerCalls ? std::to_string(result.count) : "") << " | ";
    std::string& names = operations[line.str()];
    names += (names.empty() ? "" : ", ") + result.operation;
  }
  if (operations.empty()) return;
  out << "\n## Reduced sizes (" << reducedMark << ")\n\n"
      << "Where a competitor would take minutes, or does so with a size that proves nothing new, it was given only "
         "the lowest numbers of each set, or fewer single calls.\n\n"
      << "| competitor | workload | numbers in the sets | single calls in a run | operations "
         "|\n|---|---|--:|--:|---|\n";
  for (const auto& [line, names] : operations) out << line << names << " |\n";
}

void printFacts(std::ostream& out, const Report& report) {
  out << "| | |\n|---|---|\n";
  for (const auto& [name, value] : report.facts) out << "| " << name << " | " << value << " |\n";
  out << "\n| competitor | version | how it is used |\n|---|---|---|\n";
  for (const Competitor& competitor : report.competitors) {
    out << "| " << competitor.name << " | " << competitor.version << " | " << competitor.use << " |\n";
  }
}

}  // namespace

void writeMarkdown(const Report& report, const std::string& path) {
  std::ostringstream out;
  out << "# Measured against others\n\n"
      << "Time of one operation, or bytes for one number, medians of all runs; behind ± half the distance between "
         "the fastest and the slowest run. Operations on two sets are counted by the numbers in both. The best of "
         "each "
         "row is bold. Every answer was compared in full before it was timed, its result and size again in every "
         "run. "
      << reducedMark << " marks reduced sizes, which are listed at the end.\n\n";
  printFacts(out, report);
  for (const WorkloadName& workload : report.workloads) {
    printTable(out, report, workload, false);
    printTable(out, report, workload, true);
  }
  printReduced(out, report);
  std::ofstream file(path);
  file << out.str();
  if (!file.flush()) giveUp("cannot write " + path);
}
