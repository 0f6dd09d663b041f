#include "spillfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "pagestore.h"
#include "systemerror.h"

namespace bmtree {
namespace {

off_t offsetOf(uint64_t slot) { return static_cast<off_t>(slot * pageBytes); }

// A new file in `directory` that has no name, or -1 with errno set.
int openUnnamed(const std::filesystem::path& directory) {
  const int fd = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  std::string name = directory / "bmtree-spill-XXXXXX";
  const int named = ::mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) ::unlink(name.c_str());
  return named;
}

}  // namespace

SpillFile::~SpillFile() {
  if (fd_ >= 0) ::close(fd_);
}

void SpillFile::open() {
  fd_ = openUnnamed(directory_);
  if (fd_ < 0 && orElsewhere_) {
    std::error_code ignored;
    fd_ = openUnnamed(std::filesystem::temp_directory_path(ignored));
  }
  if (fd_ < 0) throwSystemError(errno, "making a temporary file in " + directory_.string());
}

void SpillFile::write(uint64_t slot, const std::byte* page) {
  if (fd_ < 0) open();
  for (size_t done = 0; done < pageBytes;) {
    const ssize_t moved = ::pwrite(fd_, page + done, pageBytes - done, offsetOf(slot) + static_cast<off_t>(done));
    if (moved > 0) {
      done += static_cast<size_t>(moved);
    } else if (moved == 0 || errno != EINTR) {
      throwSystemError(moved == 0 ? ENOSPC : errno, "writing a temporary file");
    }
  }
}

void SpillFile::read(uint64_t slot, std::byte* page) const {
  for (size_t done = 0; done < pageBytes;) {
    const ssize_t moved = ::pread(fd_, page + done, pageBytes - done, offsetOf(slot) + static_cast<off_t>(done));
    if (moved > 0) {
      done += static_cast<size_t>(moved);
    } else if (moved == 0 || errno != EINTR) {
      throwSystemError(moved == 0 ? EIO : errno, "reading a temporary file");
    }
  }
}

void SpillFile::discard(uint64_t slot) noexcept {
  if (fd_ < 0) return;
  ::fallocate(fd_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offsetOf(slot), pageBytes);
}

}  // namespace bmtree
