// The two root forms: how a packed disk root becomes an in-memory root and is written back, and how the list
// of an inline root is reached.
#pragma once

#include "reposdisk.h"

// The in-memory form of a disk root. A negative kind gives an inline list whose `root` is the disk root's own
// address; denseLeaves is 0.
RepTreeRootSType unpackDiskRoot(const DiskTreeRootSType* disk);

// Stores the root that an operation left behind. A heap kind must have come back empty and becomes an empty page
// kind; an inline list must not have moved.
void writeBackDiskRoot(const RepTreeRootSType& local, DiskTreeRootSType* disk);

// A disk root that an operation reads only: nothing is written back, whatever happens to the unpacked root.
class DiskRootView {
 public:
  explicit DiskRootView(const DiskTreeRootSType* disk) : local_(unpackDiskRoot(disk)) {}
  RepTreeRootSType* root() { return &local_; }

 private:
  RepTreeRootSType local_;
};

// A disk root that an operation changes: written back when this object ends, after the operation has returned.
class DiskRootUpdate {
 public:
  explicit DiskRootUpdate(DiskTreeRootSType* disk) : disk_(disk), local_(unpackDiskRoot(disk)) {}
  ~DiskRootUpdate() { writeBackDiskRoot(local_, disk_); }
  DiskRootUpdate(const DiskRootUpdate&) = delete;
  DiskRootUpdate& operator=(const DiskRootUpdate&) = delete;
  RepTreeRootSType* root() { return &local_; }

 private:
  DiskTreeRootSType* disk_;
  RepTreeRootSType local_;
};

// The list of an inline root; null if `root` is 0. A negative kind that is not the inline one is reported and
// gives null as well. Not for kinds of 0 and above.
RepBitListContentsSType* inlineListContents(const RepTreeRootSType& root);
