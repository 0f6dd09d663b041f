// Every exported operation, by address and with its exact type: one that went missing does not link, one whose type
// changed does not compile, and one that bitmap.h gained without a line here is found by the last test.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "bitmap.h"
#include "bminvalidroots.h"
#include "support/testhost.h"

namespace {

struct Exported {
  const char* name;
  const void* address;
};

// The overload of the operation that has the type `Operation`.
template <class Operation>
Exported address(const char* name, Operation* operation) {
  return {name, reinterpret_cast<const void*>(operation)};
}

const std::vector<Exported>& exportedOperations() {
  static const std::vector<Exported> operations{
      address<void(PageCacheSType*)>("BmInitTreeRoots", BmInitTreeRoots),
      address<void()>("BmCheckTreeRoots", BmCheckTreeRoots),
      address<void(RepTreeRootSType*, int, const char*)>("BmInitHeapTree", BmInitHeapTree),
      address<const RepTreeRootSType*()>("BmInvalidHeapTreeRoot", BmInvalidHeapTreeRoot),
      address<const DiskTreeRootSType*()>("BmInvalidOtTreeRoot", BmInvalidOtTreeRoot),
      address<void(RepPageHdrSType*)>("BmPageCopyCheckBytesUsed", BmPageCopyCheckBytesUsed),
      address<int(PageCacheSType*, const RepTreeRootSType*, unsigned long)>("BmTestBit", BmTestBit),
      address<int(PageCacheSType*, const DiskTreeRootSType*, unsigned long)>("BmTestBit", BmTestBit),
      address<void(PageCacheSType*, const RepTreeRootSType*, const unsigned long*, unsigned long, uint64_t*)>(
          "BmTestBits", BmTestBits),
      address<int(PageCacheSType*, const RepTreeRootSType*, unsigned long)>("bmTestOop", bmTestOop),
      address<int(PageCacheSType*, RepTreeRootSType*, unsigned long)>("BmSetBit", BmSetBit),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long, unsigned long)>("BmSetBitRange_",
                                                                                               BmSetBitRange_),
      address<unsigned long(PageCacheSType*, DiskTreeRootSType*, unsigned long, unsigned long)>("BmSetBitRange_",
                                                                                                BmSetBitRange_),
      address<int(PageCacheSType*, RepTreeRootSType*, unsigned long)>("BmClearBit", BmClearBit),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, const unsigned long*, const unsigned long*)>(
          "BmSetBitsFromSortedArray_", BmSetBitsFromSortedArray_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long*, unsigned long*)>(
          "BmSetBitsFromArray_", BmSetBitsFromArray_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long*, unsigned long*)>(
          "BmSetOopsFromArray_", BmSetOopsFromArray_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long*, unsigned long*)>(
          "BmSetBitsFromTaggedPageIds", BmSetBitsFromTaggedPageIds),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, const unsigned long*, const unsigned long*)>(
          "BmClearBitsFromSortedArray_", BmClearBitsFromSortedArray_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long*, unsigned long*)>(
          "BmClearBitsFromArray_", BmClearBitsFromArray_),
      address<unsigned long*(unsigned long*, unsigned long*)>("BmSortArrayRemoveDups_", BmSortArrayRemoveDups_),
      address<unsigned long*(unsigned long*, unsigned long*)>("BmSortRemoveDups_FromTaggedPageIds",
                                                              BmSortRemoveDups_FromTaggedPageIds),
      address<void(unsigned long*, unsigned long*)>("BmQsort", BmQsort),
      address<void(RepOtDeltaSType*, RepOtDeltaSType*)>("BmQsort", BmQsort),
      address<void(RepOtDeltaSType*, RepOtDeltaSType*)>("BmQsortByPageId", BmQsortByPageId),
      address<void(PageCacheSType*, const RepTreeRootSType*, RepTreeRootSType*)>("BmCopyTree", BmCopyTree),
      address<void(PageCacheSType*, const DiskTreeRootSType*, RepTreeRootSType*)>("BmCopyTree", BmCopyTree),
      address<void(PageCacheSType*, const RepTreeRootSType*, DiskTreeRootSType*)>("BmCopyTree", BmCopyTree),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, RepTreeRootSType*)>("BmSetBits_", BmSetBits_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*, RepTreeRootSType*)>("BmSetBits_", BmSetBits_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*, DiskTreeRootSType*)>("BmSetBits_", BmSetBits_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, DiskTreeRootSType*)>("BmSetBits_", BmSetBits_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, RepTreeRootSType*)>("BmClearBits_", BmClearBits_),
      address<unsigned long(PageCacheSType*, DiskTreeRootSType*, RepTreeRootSType*)>("BmClearBits_", BmClearBits_),
      address<unsigned long(PageCacheSType*, DiskTreeRootSType*, DiskTreeRootSType*)>("BmClearBits_", BmClearBits_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, DiskTreeRootSType*)>("BmClearBits_", BmClearBits_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, RepTreeRootSType*)>("BmClearBitsLargeFirst",
                                                                                    BmClearBitsLargeFirst),
      address<unsigned long(PageCacheSType*, DiskTreeRootSType*, RepTreeRootSType*)>("BmClearBitsLargeFirst",
                                                                                     BmClearBitsLargeFirst),
      address<unsigned long(PageCacheSType*, DiskTreeRootSType*, DiskTreeRootSType*)>("BmClearBitsLargeFirst",
                                                                                      BmClearBitsLargeFirst),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, const RepTreeRootSType*, unsigned long,
                            unsigned long*, unsigned long)>("BmDifferenceStartingAt_", BmDifferenceStartingAt_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, const RepTreeRootSType*, unsigned long,
                            unsigned long*)>("BmDifference_", BmDifference_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, const DiskTreeRootSType*, unsigned long,
                            unsigned long*)>("BmDifference_", BmDifference_),
      address<void(PageCacheSType*, const RepTreeRootSType*, const RepTreeRootSType*, RepTreeRootSType*)>("BmDiff",
                                                                                                          BmDiff),
      address<void(PageCacheSType*, const DiskTreeRootSType*, const DiskTreeRootSType*, RepTreeRootSType*)>("BmDiff",
                                                                                                            BmDiff),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, const RepTreeRootSType*, RepTreeRootSType*,
                            unsigned long, int)>("BmIntersectSize_", BmIntersectSize_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*, const RepTreeRootSType*, RepTreeRootSType*,
                            unsigned long)>("BmIntersectSize_", BmIntersectSize_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, const DiskTreeRootSType*, RepTreeRootSType*,
                            unsigned long)>("BmIntersectSize_", BmIntersectSize_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*, const DiskTreeRootSType*, RepTreeRootSType*,
                            unsigned long)>("BmIntersectSize_", BmIntersectSize_),
      address<void(PageCacheSType*, const RepTreeRootSType*, RepTreeRootSType*)>("BmAdd", BmAdd),
      address<void(PageCacheSType*, const DiskTreeRootSType*, RepTreeRootSType*)>("BmAdd", BmAdd),
      address<void(PageCacheSType*, const RepTreeRootSType*, RepTreeRootSType*)>("BmRemove", BmRemove),
      address<void(PageCacheSType*, const DiskTreeRootSType*, RepTreeRootSType*)>("BmRemove", BmRemove),
      address<void(PageCacheSType*, RepTreeRootSType*, RepTreeRootSType*)>("BmConvertToPagesAndAdd",
                                                                           BmConvertToPagesAndAdd),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*)>("BmFindNumBitsSet_", BmFindNumBitsSet_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*)>("BmFindNumBitsSet_", BmFindNumBitsSet_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, unsigned long)>("BmFindNumBitsSetMax_",
                                                                                      BmFindNumBitsSetMax_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*)>("BmFindApproxNumBitsSet_",
                                                                       BmFindApproxNumBitsSet_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*)>("BmFindApproxNumBitsSet_",
                                                                        BmFindApproxNumBitsSet_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*)>("BmFindHighWaterMark_", BmFindHighWaterMark_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*)>("BmFindHighWaterMark_", BmFindHighWaterMark_),
      address<int(PageCacheSType*, RepTreeRootSType*)>("BmLevel1NumLeaves", BmLevel1NumLeaves),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*)>("BmCountPagesInTree", BmCountPagesInTree),
      address<int(PageCacheSType*, RepTreeRootSType*)>("BmIsEmpty", BmIsEmpty),
      address<int(PageCacheSType*, DiskTreeRootSType*)>("BmIsEmpty", BmIsEmpty),
      address<unsigned long(PageCacheSType*, unsigned long, RepTreeRootSType*, BmPathSType*, unsigned long*)>(
          "BmFindSetBits_", BmFindSetBits_),
      address<unsigned long(PageCacheSType*, unsigned long, DiskTreeRootSType*, BmPathSType*, unsigned long*)>(
          "BmFindSetBits_", BmFindSetBits_),
      address<unsigned long(PageCacheSType*, unsigned long, RepTreeRootSType*, BmPathSType*, unsigned long*)>(
          "BmFindSetOops_", BmFindSetOops_),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long)>("BmClearNumBits", BmClearNumBits),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, unsigned long)>("BmTruncate", BmTruncate),
      address<unsigned long(PageCacheSType*, long, const RepTreeRootSType*, BmPathSType*, unsigned long*)>(
          "BmFindSetBitsNonDestructive_", BmFindSetBitsNonDestructive_),
      address<unsigned long(PageCacheSType*, long, const DiskTreeRootSType*, BmPathSType*, unsigned long*)>(
          "BmFindSetBitsNonDestructive_", BmFindSetBitsNonDestructive_),
      address<unsigned long(PageCacheSType*, unsigned long, long, const RepTreeRootSType*, BmPathSType*,
                            unsigned long*)>("BmFindSetBitsNonDestructiveStartingAt_",
                                             BmFindSetBitsNonDestructiveStartingAt_),
      address<unsigned long(PageCacheSType*, unsigned long, RepTreeRootSType*, BmPathSType*, unsigned long*)>(
          "BmFindSetOopsNonDestructive_", BmFindSetOopsNonDestructive_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, RepTreeRootSType*, unsigned long,
                            unsigned long)>("BmFindSetBitsNonDestructiveInRange_",
                                            BmFindSetBitsNonDestructiveInRange_),
      address<unsigned long(PageCacheSType*, unsigned long, const RepTreeRootSType*, BmFindClearPathSType*,
                            unsigned long*)>("BmFindClearBits_", BmFindClearBits_),
      address<void(PageCacheSType*, RepTreeRootSType*)>("BmDisposeTree", BmDisposeTree),
      address<void(PageCacheSType*, DiskTreeRootSType*)>("BmDisposeTree", BmDisposeTree),
      address<void(PageCacheSType*, RepTreeRootSType*)>("BmDisposePages", BmDisposePages),
      address<void(PageCacheSType*, RepTreeRootSType*)>("BmDisposePagesHeapTree", BmDisposePagesHeapTree),
      address<void(PageCacheSType*, RepTreeRootSType*, PageRemoveEType)>("BmFlushTree_", BmFlushTree_),
      address<void(PageCacheSType*, DiskTreeRootSType*, PageRemoveEType)>("BmFlushTree_", BmFlushTree_),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*)>("BmFlushTreeContents_", BmFlushTreeContents_),
      address<unsigned long(PageCacheSType*, const DiskTreeRootSType*)>("BmFlushTreeContents_", BmFlushTreeContents_),
      address<void(PageCacheSType*, RepTreeRootSType*, int)>("BmRemoveFromPrivateCache", BmRemoveFromPrivateCache),
      address<void(PageCacheSType*, RepTreeRootSType*, unsigned long, int)>("BmRemoveShadowPagesFromCache",
                                                                            BmRemoveShadowPagesFromCache),
      address<void(PageCacheSType*, RepTreeRootSType*, unsigned long)>("BmGrowToHighWaterBit", BmGrowToHighWaterBit),
      address<void(PageCacheSType*, RepTreeRootSType*, unsigned long)>("BmGrowToHighWaterOop", BmGrowToHighWaterOop),
      address<int(PageCacheSType*, char*, RepTreeRootSType*, int*)>("BmReadFromFile", BmReadFromFile),
      address<int(PageCacheSType*, char*, DiskTreeRootSType*, int*)>("BmReadFromFile", BmReadFromFile),
      address<int(PageCacheSType*, char*, RepTreeRootSType*, int*)>("BmWriteToFile", BmWriteToFile),
      address<int(PageCacheSType*, char*, RepTreeRootSType*, int, int*)>("BmWriteToFile", BmWriteToFile),
      address<int(PageCacheSType*, char*, DiskTreeRootSType*, int*)>("BmWriteToFile", BmWriteToFile),
      address<int(PageCacheSType*, char*, RepTreeRootSType*, int*)>("BmWriteToFileIn6xFormat",
                                                                    BmWriteToFileIn6xFormat),
      address<int(PageCacheSType*, char*, const RepTreeRootSType*, int*)>("BmWriteToFileNonDestructive",
                                                                          BmWriteToFileNonDestructive),
      address<int(PageCacheSType*, char*, const RepTreeRootSType*, int, int*)>("BmWriteToFileNonDestructive",
                                                                               BmWriteToFileNonDestructive),
      address<int(PageCacheSType*, char*, const DiskTreeRootSType*, int*)>("BmWriteToFileNonDestructive",
                                                                           BmWriteToFileNonDestructive),
      address<void(PageCacheSType*)>("BmTestBitmapToFileCode", BmTestBitmapToFileCode),
      address<int(PageCacheSType*, const RepTreeRootSType*, BmPathSType*, LogComprResourcePackerType*)>(
          "BmFindSetBitsNonDestructive", BmFindSetBitsNonDestructive),
      address<unsigned long(PageCacheSType*, RepTreeRootSType*, LogComprResourceIdRecHdrType*)>("BmSetBitsFromLogRec",
                                                                                                BmSetBitsFromLogRec),
      address<unsigned long(PageCacheSType*, const RepTreeRootSType*, BmVerifyReportFn, void*)>("BmVerifyTree",
                                                                                                BmVerifyTree),
      address<int(const char*, BmCheckResultSType*)>("BmCheckFile", BmCheckFile),
      address<int(const void*, unsigned long, BmCheckResultSType*)>("BmCheckLogRec", BmCheckLogRec),
  };
  return operations;
}

TEST(ApiTest, EveryOperationHasAnAddressOfItsOwn) {
  std::set<const void*> addresses;
  for (const Exported& operation : exportedOperations()) {
    EXPECT_NE(operation.address, nullptr) << operation.name;
    EXPECT_TRUE(addresses.insert(operation.address).second) << operation.name;
  }
}

TEST(ApiTest, MembersOfTheSmallObjectsAreThere) {
  void (PageCacheSType::*initForUnitTest)() = &PageCacheSType::initForUnitTest;
  void (BmBufferType::*flushImpl)() = &BmBufferType::flushImpl;
  unsigned (LogComprResourcePackerType::*addBits)(const unsigned long*, unsigned) =
      &LogComprResourcePackerType::addBits;
  unsigned (LogComprResourceUnpackerType::*getBits)(unsigned, unsigned long*) =
      &LogComprResourceUnpackerType::getBits;
  unsigned long (LogComprResourceUnpackerType::*getBit)() = &LogComprResourceUnpackerType::getBit;
  EXPECT_NE(initForUnitTest, nullptr);
  EXPECT_NE(flushImpl, nullptr);
  EXPECT_NE(addBits, nullptr);
  EXPECT_NE(getBits, nullptr);
  EXPECT_NE(getBit, nullptr);
}

TEST(ApiTest, TheConstantsAreThere) {
  EXPECT_EQ(BitCountTable[255], 8);
  EXPECT_EQ(BmInvalidRoots::flag, 2);
  EXPECT_EQ(&BmInvalidRoots::BmInvalidHeapTreeRoot, BmInvalidHeapTreeRoot());
  EXPECT_EQ(BmInvalidRoots::BmInvalidPageTreeRoot.treeKind, BM_PAGE_TREE);
  EXPECT_EQ(BmInvalidRoots::BmInvalidSharedPageTreeRoot.treeKind, BM_SHARED_PAGE_TREE);
  EXPECT_EQ(BmInvalidRoots::BmInvalidCarefulTreeRoot.treeKind, BM_CAREFUL_TREE);
  EXPECT_EQ(BmInvalidRoots::DiskInvalidPageTreeRoot.treeKind, BM_PAGE_TREE);
  EXPECT_EQ(BmInvalidRoots::DiskInvalidSharedPageTreeRoot.treeKind, BM_SHARED_PAGE_TREE);
  EXPECT_EQ(BmInvalidRoots::DiskInvalidCarefulTreeRoot.treeKind, BM_CAREFUL_TREE);
  EXPECT_EQ(&BmInvalidRoots::DiskInvalidOtTreeRoot, BmInvalidOtTreeRoot());
}

// The header without its comments and without what stands in braces.
std::string declarationsOf(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::string text;
  int depth = 0;
  while (std::getline(file, line)) {
    line.resize(std::min(line.find("//"), line.size()));
    if (!line.empty() && line[0] == '#') continue;
    for (const char c : line) {
      depth += c == '{';
      if (depth == 0) text += c;
      depth -= c == '}';
    }
    text += ' ';
  }
  return text;
}

// How often each operation is declared.
std::map<std::string, int> declaredOperations(const std::string& text) {
  std::map<std::string, int> declared;
  std::istringstream statements(text);
  for (std::string statement; std::getline(statements, statement, ';');) {
    const size_t bracket = statement.find('(');
    if (bracket == std::string::npos || statement.find("using ") != std::string::npos ||
        statement.find("assert") != std::string::npos) {
      continue;
    }
    const size_t start = statement.find_last_of(" *&", bracket - 1) + 1;
    ++declared[statement.substr(start, bracket - start)];
  }
  return declared;
}

TEST(ApiTest, EveryDeclarationOfTheHeaderIsListedHere) {
  std::map<std::string, int> listed;
  for (const Exported& operation : exportedOperations()) ++listed[operation.name];
  EXPECT_EQ(declaredOperations(declarationsOf(BMTREE_SOURCE_DIR "/src/bitmap.h")), listed);
}

}  // namespace
