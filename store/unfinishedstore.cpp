#include "unfinishedstore.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "systemerror.h"

namespace bmtree {
namespace {

constexpr unsigned namesAtMost = 1000;  // that are tried for the unfinished file

[[noreturn]] void throwExists(const std::filesystem::path& path) {
  throw StoreError(StoreErrorCode::fileExists, path.string() + " exists");
}

// Makes an empty file of a name that was free and returns the name.
std::filesystem::path makeFileBeside(const std::filesystem::path& path) {
  const std::string stem = path.string() + ".part-" + std::to_string(::getpid()) + "-";
  for (unsigned suffix = 0;; ++suffix) {
    const std::string name = stem + std::to_string(suffix);
    const int fd = ::open(name.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, 0644);
    if (fd >= 0) return ::close(fd), name;
    if (errno != EEXIST || suffix == namesAtMost) throwSystemError(errno, "making " + path.string());
  }
}

// Writes the content of a file, or the names in a folder, to the disk. False with errno set if that failed.
bool sync(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool done = ::fsync(fd) == 0;
  const int error = errno;
  ::close(fd);
  errno = error;
  return done;
}

// Renames a file and replaces nothing. False with errno set if that failed.
bool renameToFree(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (::link(from.c_str(), to.c_str()) != 0) return false;  // the file system knows no such renaming
  ::unlink(from.c_str());
  return true;
}

void removeLockFile(const std::filesystem::path& file) noexcept { ::unlink((file.string() + "-lock").c_str()); }

}  // namespace

UnfinishedStore::UnfinishedStore(const std::filesystem::path& path) : path_(path) {
  if (std::filesystem::exists(std::filesystem::symlink_status(path))) throwExists(path);
  file_ = makeFileBeside(path);
}

UnfinishedStore::~UnfinishedStore() {
  if (file_.empty()) return;
  ::unlink(file_.c_str());
  removeLockFile(file_);
}

void UnfinishedStore::publish() {
  if (!sync(file_)) throwSystemError(errno, "writing " + path_.string());
  if (!renameToFree(file_, path_)) {
    if (errno == EEXIST) throwExists(path_);
    throwSystemError(errno, "writing " + path_.string());
  }
  removeLockFile(file_);
  file_.clear();
  syncFolderOf(path_);
}

// A folder that may be written but not read cannot be synced, and some file systems know no syncing of folders.
void syncFolderOf(const std::filesystem::path& path) {
  const auto folder = path.has_parent_path() ? path.parent_path() : ".";
  if (!sync(folder) && errno == EIO) throwSystemError(errno, "writing " + folder.string());
}

}  // namespace bmtree
