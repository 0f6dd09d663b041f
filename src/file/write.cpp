// Writing a tree to a new bitmap file, chunk by chunk. Seven entry points, one worker: they choose the kind of root,
// the width of an item, whether the tree is emptied on the way, and what becomes of a file of that name.
#include <unistd.h>

#include <algorithm>

#include "file/transfer.h"
#include "tree/treeroots.h"

namespace {

enum class Extraction { destructive, keepTree };

struct WriteChoices {
  Extraction extraction = Extraction::destructive;
  uint32_t itemSize = sizeof(uint64_t);
  bool deleteExisting = false;
};

// Makes the new file, in place of an old one if that is asked for. Returns 0 after a report.
int createFile(BmToFileType* file, const char* fileName, bool deleteExisting, int* err) {
  HostExpandFileName(fileName, file->fileName, BM_FILE_NAME_BYTES, 0);
  if (HostFileExist(file->fileName, nullptr) != 0) {
    if (!deleteExisting) return failBmFile(file, "file already exists");
    if (unlink(file->fileName) != 0) {
      return failBmFile(file, "file already exists and unable to delete old file.");
    }
  }
  file->fd = HostOpen(file->fileName, BM_HOST_CREATE_FLAGS, BM_HOST_OWNER_MODE);
  if (file->fd == -1) return failBmFileOpen(file, "Unable to open file", err);
  return 1;
}

// Takes the buffers for chunks of a tree of `items` bits; none for an empty one.
void takeWriteBuffers(BmToFileType* file, unsigned long items) {
  const unsigned long chunkItems = std::min(items, BM_FILE_CHUNK_ITEMS);
  file->chunkItems = static_cast<int32_t>(chunkItems);
  if (chunkItems == 0) return;
  file->fileBuffer =
      static_cast<uint64_t*>(UtlMalloc(chunkItems * sizeof(uint64_t), "doWriteBmToFile() file buffer"));
  file->writePtr = reinterpret_cast<char*>(file->fileBuffer);
  if (file->convert != 0) {
    file->narrowBuffer =
        static_cast<uint32_t*>(UtlMalloc(chunkItems * sizeof(uint32_t), "doWriteBmToFile() 61 conversion buffer"));
    file->writePtr = reinterpret_cast<char*>(file->narrowBuffer);
  }
}

template <class Word>
bool writeField(int fd, Word field, int* err) {
  return HostWriteFile(fd, reinterpret_cast<char*>(&field), sizeof field, err) != 0;
}

bool writeHeader(const BmToFileType& file, uint64_t items, int* err) {
  return writeField(file.fd, BM_FILE_MARK, err) && writeField(file.fd, file.itemSize, err) &&
         writeField(file.fd, items, err);
}

// Moves the bits of the tree to the file until there are none left. Returns 0 after a report.
int writeItems(PageCacheSType* pc, BmToFileType* file, Extraction extraction, int* err) {
  const auto chunkItems = static_cast<unsigned long>(file->chunkItems);
  BmPathSType path{};
  for (;;) {
    const unsigned long got =
        extraction == Extraction::destructive
            ? BmFindSetBits_(pc, chunkItems, file->root, &path, file->fileBuffer)
            : BmFindSetBitsNonDestructive_(pc, file->chunkItems, file->root, &path, file->fileBuffer);
    if (got == 0) break;
    if (file->convert != 0) file->convertTo6xFormatForWrite(got);
    const auto bytes = static_cast<long>(got * file->itemSize);
    if (HostWriteFile(file->fd, file->writePtr, bytes, err) == 0) return failBmFile(file, "Error writing to file");
  }
  tearDownBmFile(file);
  return 1;
}

int doWriteBmToFile(PageCacheSType* pc, const char* fileName, RepTreeRootSType* root, int* err,
                    const WriteChoices& choices) {
  BmToFileType file;
  file.root = root;
  if (createFile(&file, fileName, choices.deleteExisting, err) == 0) return 0;
  const unsigned long items = BmFindNumBitsSetMax_(pc, root, BM_HIGHEST_BIT);
  file.itemSize = choices.itemSize;
  file.convert = choices.itemSize != sizeof(uint64_t);
  takeWriteBuffers(&file, items);
  if (!writeHeader(file, items, err)) return failBmFile(&file, "Error writing to file");
  if (items == 0) {
    tearDownBmFile(&file);
    return 1;
  }
  return writeItems(pc, &file, choices.extraction, err);
}

}  // namespace

int BmWriteToFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err) {
  return doWriteBmToFile(pc, fileName, root, err, {});
}

int BmWriteToFile(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int deleteExisting, int* err) {
  return doWriteBmToFile(pc, fileName, root, err, {.deleteExisting = deleteExisting != 0});
}

int BmWriteToFile(PageCacheSType* pc, char* fileName, DiskTreeRootSType* root, int* err) {
  // not written back: the caller clears the root whose pages are gone
  return doWriteBmToFile(pc, fileName, DiskRootView(root).root(), err, {});
}

int BmWriteToFileIn6xFormat(PageCacheSType* pc, char* fileName, RepTreeRootSType* root, int* err) {
  return doWriteBmToFile(pc, fileName, root, err, {.itemSize = sizeof(uint32_t)});
}

int BmWriteToFileNonDestructive(PageCacheSType* pc, char* fileName, const RepTreeRootSType* root, int* err) {
  return BmWriteToFileNonDestructive(pc, fileName, root, 0, err);
}

int BmWriteToFileNonDestructive(PageCacheSType* pc, char* fileName, const RepTreeRootSType* root, int deleteExisting,
                                int* err) {
  RepTreeRootSType tree = *root;
  return doWriteBmToFile(pc, fileName, &tree, err,
                         {.extraction = Extraction::keepTree, .deleteExisting = deleteExisting != 0});
}

int BmWriteToFileNonDestructive(PageCacheSType* pc, char* fileName, const DiskTreeRootSType* root, int* err) {
  return BmWriteToFileNonDestructive(pc, fileName, DiskRootView(root).root(), 0, err);
}
