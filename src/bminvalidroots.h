// The constant roots that stand for an empty tree of each kind.
#pragma once

#include "reposdisk.h"

namespace BmInvalidRoots {

extern int flag;  // 1 before the constants are built, 2 afterwards

extern const RepTreeRootSType& BmInvalidHeapTreeRoot;
extern const RepTreeRootSType& BmInvalidPageTreeRoot;
extern const RepTreeRootSType& BmInvalidSharedPageTreeRoot;
extern const RepTreeRootSType& BmInvalidCarefulTreeRoot;
extern const DiskTreeRootSType& DiskInvalidPageTreeRoot;
extern const DiskTreeRootSType& DiskInvalidSharedPageTreeRoot;
extern const DiskTreeRootSType& DiskInvalidCarefulTreeRoot;
extern const DiskTreeRootSType& DiskInvalidOtTreeRoot;

}  // namespace BmInvalidRoots
