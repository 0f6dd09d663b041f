// The module's own check of its file code, for a running system: heap trees and one temporary file.
#include "file/selfcheck.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "file/transfer.h"

namespace {

constexpr int EMPTY_TRIP_LINE = 11859;
constexpr int SMALL_TRIP_LINE = 11860;
constexpr int LARGE_TRIP_LINE = 11861;
constexpr int FIRST_MORE_LINE = 11807;
constexpr int SECOND_MORE_LINE = 11815;

void setRandomBits(PageCacheSType* pc, RepTreeRootSType* tree, int numBits) {
  if (numBits == 0) return;
  srand48(std::time(nullptr));
  while (numBits > 0) {
    if (BmSetBit(pc, tree, static_cast<unsigned long>(lrand48())) == 0) --numBits;
  }
}

// Requires that `a` holds no bit that `b` lacks.
void requireNoMore(PageCacheSType* pc, const RepTreeRootSType& a, const RepTreeRootSType& b, const char* names,
                   int line) {
  RepTreeRootSType more = pc->invalidHeapTreeRoot;
  BmDiff(pc, &a, &b, &more);
  if (BmIsEmpty(pc, &more) != 0) return;
  std::printf("checkTreesAreIdentical: %s yields tree with %lu bits set\n", names,
              BmFindNumBitsSetMax_(pc, &more, BM_HIGHEST_BIT));
  std::fflush(stdout);
  UTL_GUARANTEE(false, line);
  BmDisposeTree(pc, &more);
}

// Carries `first` through the file `name` into `second`. Returns 0 after a message.
int carryThroughFile(PageCacheSType* pc, char* name, const RepTreeRootSType& first, RepTreeRootSType* second) {
  int code = 0;
  if (BmWriteToFileNonDestructive(pc, name, &first, &code) == 0) {
    std::printf("Failure in BmWriteToFileNonDestructive()\n");
    std::fflush(stdout);
    return 0;
  }
  if (doReadBmFromFile(pc, name, second, &code) == 0) {
    std::printf("Failure in BmReadFromFile(), errno=%d\n", code);
    std::fflush(stdout);
    return 0;
  }
  return 1;
}

}  // namespace

int doBmTestBitmapToFileCode(PageCacheSType* pc, int numBits) {
  RepTreeRootSType first = pc->invalidHeapTreeRoot;
  RepTreeRootSType second = pc->invalidHeapTreeRoot;
  char name[BM_FILE_NAME_BYTES];
  HostTempFileSpec(name, sizeof name);
  setRandomBits(pc, &first, numBits);
  const int carried = carryThroughFile(pc, name, first, &second);
  if (carried != 0) {
    requireNoMore(pc, first, second, "first - second", FIRST_MORE_LINE);
    requireNoMore(pc, second, first, "second - first", SECOND_MORE_LINE);
  }
  BmDisposeTree(pc, &first);
  BmDisposeTree(pc, &second);
  if (carried != 0) std::remove(name);
  return carried;
}

void BmTestBitmapToFileCode(PageCacheSType* pc) {
  UTL_GUARANTEE(doBmTestBitmapToFileCode(pc, 0) != 0, EMPTY_TRIP_LINE);
  UTL_GUARANTEE(doBmTestBitmapToFileCode(pc, 10) != 0, SMALL_TRIP_LINE);
  UTL_GUARANTEE(doBmTestBitmapToFileCode(pc, 2000) != 0, LARGE_TRIP_LINE);
}
