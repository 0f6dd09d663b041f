#include "filedescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "exitcode.h"

namespace bmtree::tools {

FileDescriptor FileDescriptor::forReading(const std::string& path) {
  if (path == "-") return FileDescriptor(::dup(STDIN_FILENO));
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) throwSystemFailure(errno, path);
  struct stat status {};
  if (::fstat(file.get(), &status) == 0 && S_ISDIR(status.st_mode)) {
    throw ProgramError(exitBadInput, path + " is a directory");
  }
  return file;
}

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) ::close(fd_);
}

size_t FileDescriptor::readFully(std::span<std::byte> buffer, const std::string& path) const {
  size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t got = ::read(fd_, buffer.data() + filled, buffer.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throwSystemFailure(errno, path == "-" ? "standard input" : path);
    if (got == 0) break;
    filled += static_cast<size_t>(got);
  }
  return filled;
}

void FileDescriptor::writeAll(std::span<const std::byte> bytes, const std::string& path) const {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throwSystemFailure(errno, path == "-" ? "standard output" : path);
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
}

}  // namespace bmtree::tools
