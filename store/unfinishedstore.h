// A store in the making, and names that survive a loss of power.
#pragma once

#include <filesystem>

namespace bmtree {

// The file of a store that stands under a name of its own, beside the name it is to have, until it is complete. Goes
// with the object unless it was published.
class UnfinishedStore {
 public:
  // Makes an empty file. Throws `fileExists` if there is something at `path`, and what the system says.
  explicit UnfinishedStore(const std::filesystem::path& path);
  UnfinishedStore(const UnfinishedStore&) = delete;
  UnfinishedStore& operator=(const UnfinishedStore&) = delete;
  ~UnfinishedStore();

  // Where the store is to be written.
  const std::filesystem::path& file() const { return file_; }

  // Makes the store durable and gives it its name; it must be closed. Throws `fileExists` if the name was taken
  // meanwhile, and what the system says.
  void publish();

 private:
  const std::filesystem::path path_;
  std::filesystem::path file_;
};

// Makes new names in the folder of `path` durable, where the system can. Throws `io`.
void syncFolderOf(const std::filesystem::path& path);

}  // namespace bmtree
