// The facts about the machine and the build that belong beside every figure.
#include <sys/utsname.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "results.h"

namespace {

std::string firstLine(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// The value behind the colon of the first line of `path` that begins with `name`.
std::string field(const std::string& path, const std::string& name) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const size_t colon = line.find(':');
    if (!line.starts_with(name) || colon == std::string::npos) continue;
    const size_t begin = line.find_first_not_of(" \t", colon + 1);
    return begin == std::string::npos ? "" : line.substr(begin);
  }
  return "unknown";
}

int processors() {
  std::ifstream file("/proc/cpuinfo");
  int count = 0;
  for (std::string line; std::getline(file, line);) count += line.starts_with("processor") ? 1 : 0;
  return count;
}

std::string caches() {
  std::string text;
  for (int index = 0; index < 4; ++index) {
    const std::string folder = "/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(index) + "/";
    const std::string size = firstLine(folder + "size");
    if (size.empty() || firstLine(folder + "type") == "Instruction") continue;
    text += (text.empty() ? "L" : ", L") + firstLine(folder + "level") + " " + size;
  }
  return text;
}

// The word in brackets: the setting that holds.
std::string chosen(const std::string& line) {
  const size_t begin = line.find('[');
  const size_t end = line.find(']');
  return begin == std::string::npos || end == std::string::npos ? line : line.substr(begin + 1, end - begin - 1);
}

std::string kernel() {
  utsname names{};
  uname(&names);
  return std::string(names.sysname) + " " + names.release;
}

std::string system() {
  std::ifstream file("/etc/os-release");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("PRETTY_NAME=\"")) return line.substr(13, line.size() - 14);
  }
  return "unknown";
}

std::string compiler() {
#ifdef __clang__
  return "clang " __clang_version__;
#else
  return "g++ " __VERSION__;
#endif
}

}  // namespace

std::string loadAverage() {
  std::istringstream words(firstLine("/proc/loadavg"));
  std::string lastMinute;
  words >> lastMinute;
  return lastMinute;
}

Facts environmentFacts() {
  const char* tunables = std::getenv("GLIBC_TUNABLES");
  return {
      {"processor", field("/proc/cpuinfo", "model name")},
      {"processors", std::to_string(processors())},
      {"caches", caches()},
      {"memory", field("/proc/meminfo", "MemTotal")},
      {"2 MiB pages", chosen(firstLine("/sys/kernel/mm/transparent_hugepage/enabled"))},
      {"system", system() + ", " + kernel()},
      {"compiler", compiler()},
      {"flags", BENCH_FLAGS},
      {"malloc", std::string("glibc, memory is kept and used again, ") + (tunables == nullptr ? "" : tunables)},
  };
}
