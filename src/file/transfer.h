// The state of one transfer between a tree and a bitmap file, and what reading and writing share: the header check,
// the failure report and the teardown.
#pragma once

#include <cstdint>

#include "bitmap.h"
#include "utl.h"

constexpr uint32_t BM_FILE_MARK = 0x03020100;           // first word of a file, in its writer's byte order
constexpr unsigned long BM_FILE_HEAD_BYTES = 16;        // mark, item size, item count
constexpr unsigned long BM_FILE_CHUNK_ITEMS = 0x40000;  // items moved at a time, at most
constexpr unsigned long BM_FILE_NAME_BYTES = 1024;      // room for a name after expansion

// Lives on the stack of one operation, which tears it down on every way out.
struct BmToFileType {
  int32_t fd = -1;                   // -1: none
  uint64_t* fileBuffer = nullptr;    // read: items as the file has them; write: bits as the tree gives them
  uint64_t* convBuffer = nullptr;    // read: bits for the tree; fileBuffer itself when items need no widening
  uint32_t* narrowBuffer = nullptr;  // write: 4-byte items
  char* writePtr = nullptr;          // write: what goes to the file, one of the buffers; not owned
  int64_t itemCount = 0;             // read: items that the header promises, an unsigned number
  int64_t fileSize = 0;              // read: bytes of the file
  int32_t chunkItems = 0;            // items per transfer
  RepTreeRootSType* root = nullptr;  // the tree; the caller's
  int32_t swapBytes = 0;             // read: 1 when the file has the other byte order
  int32_t convert = 0;               // 1 when items change width on the way
  uint32_t itemSize = 0;             // bytes of an item
  int32_t chunkCount = 0;            // read: items of the chunk in hand
  char fileName[BM_FILE_NAME_BYTES] = {};

  // Writes the low halves of the first `n` words of fileBuffer to narrowBuffer.
  void convertTo6xFormatForWrite(unsigned long n);
};

// Reads and checks the header of the open file `file->fd`; fileSize is known. Returns 1 with swapBytes, itemSize and
// itemCount filled and the file at its first item; or 0 after a report, with `file` torn down. `err` may be null.
int checkBmFileIntegrity(BmToFileType* file, int* err);

// Reports `message` on standard error and keeps the process's log, then tears `file` down. Returns 0.
int failBmFile(BmToFileType* file, const char* message);

// Stores the errno of a failed open in *err unless `err` is null, then fails as above.
int failBmFileOpen(BmToFileType* file, const char* message, int* err);

// Closes the file and frees the buffers. May be repeated.
void tearDownBmFile(BmToFileType* file);

// Loads a bitmap file into `root`: what BmReadFromFile does.
int doReadBmFromFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err);
