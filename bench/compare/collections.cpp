// Real collections of sets, read from folders of text files.
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "numberset.h"
#include "rawfile.h"
#include "workload.h"

namespace fs = std::filesystem;

namespace {

std::vector<uint64_t> parseSet(const std::string& path) {
  const std::vector<char> text = readBytes(path);
  std::vector<uint64_t> numbers;
  const char* const end = text.data() + text.size();
  for (const char* position = text.data(); position != end;) {
    uint64_t number = 0;
    const auto [rest, error] = std::from_chars(position, end, number);
    if (error != std::errc() || (!numbers.empty() && number <= numbers.back())) {
      giveUp(path + " does not hold ascending numbers between commas");
    }
    numbers.push_back(number);
    position = std::find_if(rest, end, [](char c) { return c >= '0' && c <= '9'; });
  }
  return numbers;
}

// The files of a collection in the order of the numbers in their names, which is the published one.
std::vector<std::string> filesOf(const fs::path& folder) {
  std::vector<std::string> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".txt") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  });
  return files;
}

Workload readCollection(const fs::path& folder, uint64_t mostSets) {
  Workload workload;
  for (const std::string& file : filesOf(folder)) {
    if (workload.sets.size() == mostSets) break;
    workload.sets.push_back(parseSet(file));
    const size_t index = workload.sets.size() - 1;
    workload.subjects.push_back(index);
    if (index > 0) workload.pairs.emplace_back(index - 1, index);
  }
  if (workload.pairs.empty()) giveUp(folder.string() + " holds no two sets");
  return workload;
}

// Unpacks an archive, which holds one folder of its own name, unless that was done before.
fs::path unpack(const fs::path& archive, const std::string& scratch) {
  const fs::path folder = fs::path(scratch) / archive.stem().stem();
  if (fs::exists(folder)) return folder;
  const std::string command = "tar -C '" + scratch + "' -xf '" + archive.string() + "'";
  if (std::system(command.c_str()) != 0 || !fs::exists(folder)) giveUp("cannot unpack " + archive.string());
  return folder;
}

bool isArchive(const fs::path& path) { return path.string().ends_with(".tar.xz"); }

}  // namespace

std::vector<WorkloadSource> collectionWorkloads(const Scale& scale, const std::string& folder,
                                                const std::string& scratch) {
  std::vector<WorkloadSource> sources;
  if (folder.empty()) return sources;
  if (!fs::is_directory(folder)) giveUp("there is no folder " + folder);
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const fs::path path = entry.path();
    if (!entry.is_directory() && !isArchive(path)) continue;
    const std::string name = (entry.is_directory() ? path.filename() : path.stem().stem()).string();
    sources.push_back({"E:" + name, "the sets of " + name, false, [=, most = scale.collectionSets] {
                         return readCollection(isArchive(path) ? unpack(path, scratch) : path, most);
                       }});
  }
  std::sort(sources.begin(), sources.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
  return sources;
}
