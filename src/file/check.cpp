// What is wrong with a bitmap file, told without a tree. Reads the file once, through a buffer on the stack.
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "file/transfer.h"

namespace {

constexpr unsigned long CHECK_BYTES = 0x8000;  // read at a time

// A file that is being checked, and what has been found.
struct FileCheck {
  int fd = -1;
  long fileSize = 0;
  uint64_t byteOffset = 0;  // of what comes next
  bool swapBytes = false;
  uint32_t itemSize = 0;
  uint64_t items = 0;
  uint64_t itemIndex = 0;
  uint64_t last = 0;  // the item before
  BmCheckResultSType* result;

  explicit FileCheck(BmCheckResultSType* where) : result(where) { *where = {BM_CHECK_SOUND, 0, 0, 0, "sound"}; }
  ~FileCheck() {
    if (fd != -1) close(fd);
  }
  FileCheck(const FileCheck&) = delete;
  FileCheck& operator=(const FileCheck&) = delete;

  bool found(BmCheckFaultEType fault, uint64_t offset, const char* sentence, int sysError = 0) const {
    *result = {fault, sysError, offset, itemIndex, sentence};
    return false;
  }
};

// Reads the next `bytes` bytes.
bool readOn(FileCheck* check, void* buffer, unsigned long bytes) {
  int sysError = 0;
  if (HostReadFile(check->fd, static_cast<char*>(buffer), static_cast<long>(bytes), &sysError) == 0) {
    return check->found(BM_CHECK_UNREADABLE, check->byteOffset, "the file cannot be read", sysError);
  }
  check->byteOffset += bytes;
  return true;
}

bool openFile(FileCheck* check, const char* fileName) {
  char name[BM_FILE_NAME_BYTES];
  HostExpandFileName(fileName, name, sizeof name, 0);
  if (HostFileExistSize(name, &check->fileSize, nullptr, nullptr) == 0) {
    return check->found(BM_CHECK_UNREADABLE, 0, "the file does not exist");
  }
  check->fd = HostOpen(name, 0, 0);
  if (check->fd == -1) return check->found(BM_CHECK_UNREADABLE, 0, "the file cannot be opened", errno);
  return true;
}

bool readHeader(FileCheck* check) {
  uint32_t mark;
  if (!readOn(check, &mark, sizeof mark) || !readOn(check, &check->itemSize, sizeof check->itemSize) ||
      !readOn(check, &check->items, sizeof check->items)) {
    return false;
  }
  check->swapBytes = mark == HostAsmSwapInt(BM_FILE_MARK);
  if (check->swapBytes) {
    check->itemSize = HostAsmSwapInt(check->itemSize);
    check->items = HostAsmSwapUInt64(check->items);
  }
  return mark == BM_FILE_MARK || check->swapBytes || check->found(BM_CHECK_HEADER, 0, "the byte order mark is none");
}

// Whether header and size go together as the reader wants them. A file without items may have any width up to 8.
bool checkHeader(const FileCheck& check) {
  const bool knownWidth = check.itemSize == sizeof(uint32_t) || check.itemSize == sizeof(uint64_t);
  if (check.itemSize > sizeof(uint64_t) || (check.items != 0 && !knownWidth)) {
    return check.found(BM_CHECK_HEADER, 4, "the item size is neither 4 nor 8");
  }
  if (check.items > (~uint64_t{0} - BM_FILE_HEAD_BYTES) / sizeof(uint64_t)) {
    return check.found(BM_CHECK_HEADER, 8, "no file can hold as many items as the header says");
  }
  if (check.items * check.itemSize + BM_FILE_HEAD_BYTES != static_cast<uint64_t>(check.fileSize)) {
    return check.found(BM_CHECK_SIZE, 8, "the file does not have the size that the header says");
  }
  return true;
}

uint64_t itemAt(const FileCheck& check, const char* buffer, unsigned long index) {
  if (check.itemSize == sizeof(uint32_t)) {
    const uint32_t item = reinterpret_cast<const uint32_t*>(buffer)[index];
    return check.swapBytes ? HostAsmSwapInt(item) : item;
  }
  const uint64_t item = reinterpret_cast<const uint64_t*>(buffer)[index];
  return check.swapBytes ? HostAsmSwapUInt64(item) : item;
}

// Looks at the next `count` items, which stand in `buffer` and ended at byteOffset.
bool checkItems(FileCheck* check, const char* buffer, unsigned long count) {
  const uint64_t start = check->byteOffset - count * check->itemSize;
  for (unsigned long i = 0; i < count; ++i, ++check->itemIndex) {
    const uint64_t item = itemAt(*check, buffer, i);
    const uint64_t offset = start + i * check->itemSize;
    if (item >= BM_END_BIT) return check->found(BM_CHECK_RANGE, offset, "an item is 2^40 or above");
    if (check->itemIndex > 0 && item <= check->last) {
      return check->found(BM_CHECK_ORDER, offset, "an item is not above the one before it");
    }
    check->last = item;
  }
  return true;
}

bool checkAllItems(FileCheck* check) {
  alignas(uint64_t) char buffer[CHECK_BYTES];
  while (check->itemIndex < check->items) {
    const auto count = std::min<uint64_t>(check->items - check->itemIndex, CHECK_BYTES / check->itemSize);
    if (!readOn(check, buffer, count * check->itemSize) || !checkItems(check, buffer, count)) return false;
  }
  check->result->byteOffset = check->byteOffset;
  check->result->itemIndex = check->itemIndex;
  return true;
}

}  // namespace

int BmCheckFile(const char* fileName, BmCheckResultSType* result) {
  FileCheck check(result);
  return openFile(&check, fileName) && readHeader(&check) && checkHeader(check) && checkAllItems(&check);
}
