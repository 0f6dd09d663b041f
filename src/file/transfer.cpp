#include "file/transfer.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

// Reads one field of the header. Returns false, with *err filled, if the file ends in it.
template <class Word>
bool readField(int fd, Word* field, int* err) {
  return HostReadFile(fd, reinterpret_cast<char*>(field), sizeof *field, err) != 0;
}

}  // namespace

void BmToFileType::convertTo6xFormatForWrite(unsigned long n) {
  for (unsigned long i = 0; i < n; ++i) narrowBuffer[i] = static_cast<uint32_t>(fileBuffer[i]);
}

int checkBmFileIntegrity(BmToFileType* file, int* err) {
  uint32_t mark;
  if (!readField(file->fd, &mark, err)) return failBmFile(file, "Error reading file");
  file->swapBytes = mark != BM_FILE_MARK;  // any other mark counts as the other order and fails below if it is none
  if (!readField(file->fd, &file->itemSize, err)) return failBmFile(file, "Error reading file");
  if (file->swapBytes != 0) file->itemSize = HostAsmSwapInt(file->itemSize);
  if (file->itemSize > sizeof(uint64_t)) {
    return failBmFile(file, "Oop Number type size in file not valid for this executable");
  }
  uint64_t items;
  if (!readField(file->fd, &items, err)) return failBmFile(file, "Error reading file");
  if (file->swapBytes != 0) items = HostAsmSwapUInt64(items);
  file->itemCount = static_cast<int64_t>(items);
  // the product may wrap: a count that promises too much is found out by the first read
  if (file->itemSize * items + BM_FILE_HEAD_BYTES != static_cast<uint64_t>(file->fileSize)) {
    return failBmFile(file, "File size is invalid.");
  }
  return 1;
}

int failBmFile(BmToFileType* file, const char* message) {
  std::fprintf(stderr, "\n%s\n", message);
  std::fflush(stderr);
  UtlRemoveLogOnExit(0);
  tearDownBmFile(file);
  return 0;
}

int failBmFileOpen(BmToFileType* file, const char* message, int* err) {
  if (err != nullptr) *err = errno;
  return failBmFile(file, message);
}

void tearDownBmFile(BmToFileType* file) {
  if (file->fd != -1) close(file->fd);
  file->fd = -1;
  if (file->convBuffer != nullptr) {
    if (file->convBuffer == file->fileBuffer) file->fileBuffer = nullptr;
    UtlFree(file->convBuffer);
    file->convBuffer = nullptr;
  }
  if (file->narrowBuffer != nullptr) UtlFree(file->narrowBuffer);
  file->narrowBuffer = nullptr;
  if (file->fileBuffer != nullptr) UtlFree(file->fileBuffer);
  file->fileBuffer = nullptr;
}
