// Loading a bitmap file into a tree, chunk by chunk.
#include <algorithm>
#include <cerrno>

#include "file/transfer.h"
#include "tree/treeroots.h"

namespace {

constexpr int ITEM_SIZE_LINE = 11587;

// Takes the buffers for chunks of at most BM_FILE_CHUNK_ITEMS items.
void takeReadBuffers(BmToFileType* file) {
  const auto items = static_cast<uint64_t>(file->itemCount);  // a count of 2^63 or more is still a large one
  const unsigned long chunkItems = std::min<uint64_t>(items, BM_FILE_CHUNK_ITEMS);
  file->chunkItems = static_cast<int32_t>(chunkItems);
  file->fileBuffer = static_cast<uint64_t*>(UtlMalloc(chunkItems * file->itemSize, "doReadBmFromFile() file buffer"));
  file->convBuffer = file->fileBuffer;
  if (file->convert != 0) {
    file->convBuffer =
        static_cast<uint64_t*>(UtlMalloc(chunkItems * sizeof(uint64_t), "doReadBmFromFile() conversion buffer"));
  }
}

// Brings the items of the chunk into this machine's byte order.
void swapChunk(BmToFileType* file) {
  if (file->itemSize == sizeof(uint32_t)) {
    auto* items = reinterpret_cast<uint32_t*>(file->fileBuffer);
    for (int i = 0; i < file->chunkCount; ++i) items[i] = HostAsmSwapInt(items[i]);
  } else {
    uint64_t* items = file->fileBuffer;
    for (int i = 0; i < file->chunkCount; ++i) items[i] = HostAsmSwapUInt64(items[i]);
  }
}

void widenChunk(BmToFileType* file) {
  const auto* items = reinterpret_cast<const uint32_t*>(file->fileBuffer);
  for (int i = 0; i < file->chunkCount; ++i) file->convBuffer[i] = items[i];
}

// Reads the next chunk and sets its bits. Returns false if the file does not hold it.
bool loadChunk(PageCacheSType* pc, BmToFileType* file, int* err) {
  const long bytes = static_cast<long>(file->chunkCount) * file->itemSize;
  if (HostReadFile(file->fd, reinterpret_cast<char*>(file->fileBuffer), bytes, err) == 0) return false;
  if (file->swapBytes != 0) swapChunk(file);
  if (file->convert != 0) widenChunk(file);
  BmSetBitsFromSortedArray_(pc, file->root, file->convBuffer, file->convBuffer + file->chunkCount);
  return true;
}

// Opens the file and checks its header. Returns 0 after a report.
int openForRead(BmToFileType* file, const char* fileName, int* err) {
  HostExpandFileName(fileName, file->fileName, BM_FILE_NAME_BYTES, 0);
  if (HostFileExistSize(file->fileName, &file->fileSize, nullptr, nullptr) == 0) {
    return failBmFile(file, "File does not exist");
  }
  file->fd = HostOpen(file->fileName, 0, 0);
  if (file->fd == -1) return failBmFileOpen(file, "Error opening file", err);
  if (checkBmFileIntegrity(file, err) == 0) return failBmFile(file, "File failed integrity check");
  return 1;
}

// Loads the items behind the header.
int loadItems(PageCacheSType* pc, BmToFileType* file, int* err) {
  const auto items = static_cast<uint64_t>(file->itemCount);
  if (items != 0) {
    if (!UTL_GUARANTEE(file->itemSize == sizeof(uint32_t) || file->itemSize == sizeof(uint64_t), ITEM_SIZE_LINE)) {
      tearDownBmFile(file);
      return 0;
    }
    file->convert = file->itemSize != sizeof(uint64_t);
    takeReadBuffers(file);
  }
  for (uint64_t done = 0; done < items; done += static_cast<uint64_t>(file->chunkCount)) {
    file->chunkCount = static_cast<int32_t>(std::min<uint64_t>(items - done, BM_FILE_CHUNK_ITEMS));
    if (!loadChunk(pc, file, err)) return failBmFile(file, "Error reading file");
  }
  tearDownBmFile(file);
  return 1;
}

}  // namespace

int doReadBmFromFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err) {
  BmToFileType file;
  file.root = root;
  return openForRead(&file, fileName, err) != 0 ? loadItems(pc, &file, err) : 0;
}

int BmReadFromFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err) {
  return doReadBmFromFile(pc, fileName, root, err);
}

int BmReadFromFile(PageCacheSType* pc, char* fileName, DiskTreeRootSType* root, int* err) {
  return doReadBmFromFile(pc, fileName, DiskRootView(root).root(),
                          err);  // where the load moves the root to is dropped
}
