// An open file, closed with its owner.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <utility>

namespace bmtree::tools {

class FileDescriptor {
 public:
  // Takes `fd` over.
  explicit FileDescriptor(int fd) : fd_(fd) {}
  // Opens `path` for reading; "-" is standard input. Throws ProgramError.
  static FileDescriptor forReading(const std::string& path);

  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor& operator=(FileDescriptor&&) = delete;
  ~FileDescriptor();

  int get() const { return fd_; }

  // Fills `buffer` as far as there is something to read; less means the end. Throws ProgramError, naming `path`.
  size_t readFully(std::span<std::byte> buffer, const std::string& path) const;

  // Writes all of `bytes`. Throws ProgramError, naming `path`.
  void writeAll(std::span<const std::byte> bytes, const std::string& path) const;

 private:
  int fd_;
};

}  // namespace bmtree::tools
