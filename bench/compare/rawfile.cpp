#include "rawfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "numberset.h"

namespace {

// Moves `size` bytes by `transfer`, a read or write that moves up to the count it is given.
template <class Transfer>
void moveAll(const std::string& path, size_t size, Transfer transfer) {
  constexpr size_t atMost = size_t{1} << 30;
  for (size_t done = 0; done < size;) {
    const ssize_t moved = transfer(done, std::min(atMost, size - done));
    if (moved <= 0) giveUp("cannot read or write " + path);
    done += static_cast<size_t>(moved);
  }
}

int openFile(const std::string& path, int flags) {
  const int file = open(path.c_str(), flags, 0600);
  if (file < 0) giveUp("cannot open " + path);
  return file;
}

}  // namespace

void writeBytes(const std::string& path, std::span<const char> bytes) {
  const int file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC);
  moveAll(path, bytes.size(), [&](size_t at, size_t count) { return write(file, bytes.data() + at, count); });
  close(file);
}

std::vector<char> readBytes(const std::string& path) {
  std::vector<char> bytes(fileBytes(path));
  const int file = openFile(path, O_RDONLY);
  moveAll(path, bytes.size(), [&](size_t at, size_t count) { return read(file, bytes.data() + at, count); });
  close(file);
  return bytes;
}

void writeNumbers(const std::string& path, std::span<const uint64_t> numbers) {
  writeBytes(path, {reinterpret_cast<const char*>(numbers.data()), numbers.size_bytes()});
}

std::vector<uint64_t> readNumbers(const std::string& path) {
  std::vector<uint64_t> numbers(fileBytes(path) / sizeof(uint64_t));
  const int file = openFile(path, O_RDONLY);
  char* target = reinterpret_cast<char*>(numbers.data());
  moveAll(path, numbers.size() * sizeof(uint64_t),
          [&](size_t at, size_t count) { return read(file, target + at, count); });
  close(file);
  return numbers;
}

uint64_t fileBytes(const std::string& path) { return std::filesystem::file_size(path); }
