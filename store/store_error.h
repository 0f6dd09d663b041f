// The one exception type of the store layer.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace bmtree {

enum class StoreErrorCode {
  missingFile,     // there is no file at the path
  foreignFile,     // the file is not a store
  newerFormat,     // the file was written by a newer version of the store
  readOnly,        // the file, or the way it was opened, does not allow writing
  writerActive,    // another writer, of this process or another, is at work
  alreadyOpen,     // this process has the file open through another Store
  fileExists,      // a new file was asked for and the path is taken
  noSuchTree,      // no tree of that name
  treeExists,      // a tree of that name exists
  badName,         // a tree name that is empty, longer than 255 bytes or holds control characters
  badArgument,     // a number of 2^40 or above, bounds out of order, trees of different readers or writers, ...
  badFile,         // an imported file or record is damaged or of another kind
  closed,          // the reader or writer has ended, or the tree was removed
  damaged,         // a stored page or the catalogue is not what was written; see pageId()
  full,            // no room: the disk, the map of the store or the page ids are used up
  io,              // reading or writing failed
  outOfMemory,     // memory or address space ran out
  tooManyReaders,  // StoreOptions::maxReaders snapshots are open
  conflict,        // the catalogue changed under a writer
};

// Thrown by every operation of the store that fails. A failed operation of a reader changes nothing. A failed
// operation of a writer may leave its own uncommitted changes half done where it says so; what is committed is
// never touched.
class StoreError : public std::runtime_error {
 public:
  StoreError(StoreErrorCode errorCode, const std::string& message, uint64_t page = 0)
      : std::runtime_error(message), code_(errorCode), pageId_(page) {}

  StoreErrorCode code() const noexcept { return code_; }

  // With `damaged`: the id of the page; 0 when the damage is not in a page.
  uint64_t pageId() const noexcept { return pageId_; }

 private:
  StoreErrorCode code_;
  uint64_t pageId_;
};

}  // namespace bmtree
