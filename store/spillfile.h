// A temporary file of page-sized slots that has no name and goes with the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <utility>

#include "store_error.h"

namespace bmtree {

// The file is made at the first write. Slots may be written in any order; those never written take no room.
class SpillFile {
 public:
  // `directory` is where the file goes; with `orElsewhere` it goes where temporary files belong if that fails.
  SpillFile(std::filesystem::path directory, bool orElsewhere)
      : directory_(std::move(directory)), orElsewhere_(orElsewhere) {}
  SpillFile(SpillFile&& other) noexcept
      : directory_(std::move(other.directory_)),
        orElsewhere_(other.orElsewhere_),
        fd_(std::exchange(other.fd_, -1)) {}
  SpillFile& operator=(SpillFile&&) = delete;
  ~SpillFile();

  // Move the 16,384 bytes of a slot. Throw `full` or `io`.
  void write(uint64_t slot, const std::byte* page);
  void read(uint64_t slot, std::byte* page) const;

  // Gives the room of a slot back, where the file system can.
  void discard(uint64_t slot) noexcept;

 private:
  void open();

  std::filesystem::path directory_;
  bool orElsewhere_;
  int fd_ = -1;
};

}  // namespace bmtree
