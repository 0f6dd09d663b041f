#include <fstream>
#include <sstream>

#include "results.h"

namespace {

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    result += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
  }
  return result + "\"";
}

// A list of objects or values, one on a line.
template <class Items, class Print>
void printList(std::ostream& out, const char* name, const Items& items, Print print) {
  out << "  " << quoted(name) << ": [";
  const char* separator = "\n";
  for (const auto& item : items) {
    out << separator << "    ";
    print(item);
    separator = ",\n";
  }
  out << "\n  ]";
}

void printResult(std::ostream& out, const Result& result) {
  out << "{\"workload\": " << quoted(result.workload) << ", \"operation\": " << quoted(result.operation)
      << ", \"competitor\": " << quoted(result.competitor) << ", \"durable\": " << (result.durable ? "true" : "false")
      << ", \"unit\": " << (result.isSize ? "\"bytes\"" : "\"ns\"") << ", \"numbers\": " << result.numbers
      << ", \"numbersInFull\": " << result.numbersInFull << ", \"operations\": " << result.count
      << ", \"reduced\": " << (result.isReduced ? "true" : "false") << ", \"repeats\": " << result.repeats
      << ", \"median\": " << result.median() << ", \"spread\": " << result.spread() << ", \"runs\": [";
  const char* separator = "";
  for (double run : result.runs) {
    out << separator << run;
    separator = ", ";
  }
  out << "]}";
}

}  // namespace

void writeJson(const Report& report, const std::string& path) {
  std::ostringstream out;
  out.precision(6);
  out << "{\n";
  printList(out, "facts", report.facts, [&](const auto& fact) {
    out << "{\"name\": " << quoted(fact.first) << ", \"value\": " << quoted(fact.second) << "}";
  });
  out << ",\n";
  printList(out, "competitors", report.competitors, [&](const Competitor& competitor) {
    out << "{\"name\": " << quoted(competitor.name) << ", \"version\": " << quoted(competitor.version)
        << ", \"use\": " << quoted(competitor.use) << "}";
  });
  out << ",\n";
  printList(out, "workloads", report.workloads, [&](const WorkloadName& workload) {
    out << "{\"id\": " << quoted(workload.id) << ", \"title\": " << quoted(workload.title)
        << ", \"sets\": " << workload.sets << ", \"numbers\": " << workload.numbers << "}";
  });
  out << ",\n";
  printList(out, "results", report.results, [&](const Result& result) { printResult(out, result); });
  out << "\n}\n";
  std::ofstream file(path);
  file << out.str();
  if (!file.flush()) giveUp("cannot write " + path);
}
