// What BmCheckFile says about files.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "file/files.h"

namespace {

class FileCheckTest : public FileTest {
 protected:
  BmCheckResultSType found{};

  BmCheckFaultEType check() {
    const int open = openDescriptors();
    const int sound = BmCheckFile(name.c_str(), &found);
    EXPECT_EQ(sound == 1, found.fault == BM_CHECK_SOUND);
    EXPECT_GT(std::strlen(found.sentence), 0U);
    EXPECT_EQ(openDescriptors(), open);
    EXPECT_EQ(host.removeLogCalls().size(), 0U);
    EXPECT_EQ(host.bufferHistory().size(), 0U);
    return found.fault;
  }
  BmCheckFaultEType check(const FileBytes& bytes) {
    putFile(name, bytes);
    return check();
  }
  void expectAt(uint64_t byteOffset, uint64_t itemIndex) {
    EXPECT_EQ(found.byteOffset, byteOffset);
    EXPECT_EQ(found.itemIndex, itemIndex);
  }
};

TEST_F(FileCheckTest, SoundFilesOfEveryFormAreSound) {
  for (const unsigned itemSize : {4U, 8U}) {
    for (const bool swapped : {false, true}) {
      EXPECT_EQ(check(fileOf(ascendingBits(0, 20000, 7), {itemSize, swapped})), BM_CHECK_SOUND);
      expectAt(16 + 20000 * itemSize, 20000);
    }
  }
  EXPECT_EQ(check(fileOf({0, BM_HIGHEST_BIT})), BM_CHECK_SOUND);
}

TEST_F(FileCheckTest, AFileWithoutItemsIsSoundInAnyWidthUpToEight) {
  for (unsigned itemSize = 0; itemSize <= 8; ++itemSize) {
    EXPECT_EQ(check(headerBytes(itemSize, 0)), BM_CHECK_SOUND);
    expectAt(16, 0);
  }
  EXPECT_EQ(check(headerBytes(9, 0)), BM_CHECK_HEADER);
  expectAt(4, 0);
}

TEST_F(FileCheckTest, AMissingFileHasNoCode) {
  EXPECT_EQ(check(), BM_CHECK_UNREADABLE);
  EXPECT_EQ(found.sysError, 0);
  expectAt(0, 0);
}

TEST_F(FileCheckTest, AFileThatCannotBeOpenedOrReadHasItsCode) {
  putFile(name, fileOf({1}));
  host.fileFaults.failOpen = 1;
  host.fileFaults.code = EACCES;
  EXPECT_EQ(check(), BM_CHECK_UNREADABLE);
  EXPECT_EQ(found.sysError, EACCES);
  const uint64_t offsets[] = {0, 4, 8, 16};
  for (int fault = 1; fault <= 4; ++fault) {
    host.fileFaults.failRead = fault;
    host.fileFaults.code = EIO;
    EXPECT_EQ(check(), BM_CHECK_UNREADABLE);
    EXPECT_EQ(found.sysError, EIO);
    expectAt(offsets[fault - 1], 0);
  }
}

TEST_F(FileCheckTest, ADirectoryIsUnreadable) {
  ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
  EXPECT_EQ(check(), BM_CHECK_UNREADABLE);
  EXPECT_NE(found.sysError, 0);
  rmdir(name.c_str());
}

TEST_F(FileCheckTest, AHeaderThatIsCutOffIsUnreadable) {
  const FileBytes header = headerBytes(8, 0);
  for (long length = 0; length < 16; ++length) {
    EXPECT_EQ(check(FileBytes(header.begin(), header.begin() + length)), BM_CHECK_UNREADABLE);
    expectAt(length < 4 ? 0 : length < 8 ? 4 : 8, 0);
  }
}

TEST_F(FileCheckTest, AMarkOfNoOrderIsFound) {
  EXPECT_EQ(check(headerBytes(8, 0, false, 0x03020101)), BM_CHECK_HEADER);
  expectAt(0, 0);
}

TEST_F(FileCheckTest, AnotherWidthThanFourOrEightIsFound) {
  for (unsigned itemSize = 0; itemSize < 12; ++itemSize) {
    if (itemSize == 4 || itemSize == 8) continue;
    EXPECT_EQ(check(headerBytes(itemSize, 1)), BM_CHECK_HEADER) << itemSize;
    expectAt(4, 0);
  }
}

TEST_F(FileCheckTest, ACountThatWrapsIsFound) {
  EXPECT_EQ(check(headerBytes(8, 1UL << 61)), BM_CHECK_HEADER);
  expectAt(8, 0);
  EXPECT_EQ(check(headerBytes(4, 1UL << 62)), BM_CHECK_HEADER);
  EXPECT_EQ(check(headerBytes(4, 1UL << 60)), BM_CHECK_SIZE);
}

TEST_F(FileCheckTest, AFileThatIsTooShortOrTooLongIsFound) {
  FileBytes bytes = fileOf({1, 2, 3});
  bytes.push_back(0);
  EXPECT_EQ(check(bytes), BM_CHECK_SIZE);
  expectAt(8, 0);
  bytes.pop_back();
  bytes.pop_back();
  EXPECT_EQ(check(bytes), BM_CHECK_SIZE);
}

TEST_F(FileCheckTest, TheFirstItemOutOfOrderIsFoundWhereverItStands) {
  for (const uint64_t at : {1UL, 2UL, 4095UL, 4096UL, 4097UL, 8192UL, 19999UL}) {
    for (const unsigned itemSize : {4U, 8U}) {
      std::vector<uint64_t> items = ascendingBits(10, 20000, 3);
      items[at] = items[at - 1];
      EXPECT_EQ(check(fileOf(items, {itemSize, at % 2 == 0})), BM_CHECK_ORDER);
      expectAt(16 + at * itemSize, at);
    }
  }
}

TEST_F(FileCheckTest, AFirstItemOfZeroIsInOrder) {
  EXPECT_EQ(check(fileOf({0, 1})), BM_CHECK_SOUND);
  EXPECT_EQ(check(fileOf({0, 0})), BM_CHECK_ORDER);
}

TEST_F(FileCheckTest, TheFirstItemOf2To40OrAboveIsFound) {
  EXPECT_EQ(check(fileOf({1, BM_END_BIT, 0})), BM_CHECK_RANGE);
  expectAt(24, 1);
  EXPECT_EQ(check(fileOf({~0UL}, {8, true})), BM_CHECK_RANGE);
  expectAt(16, 0);
}

TEST_F(FileCheckTest, TheNameIsExpandedFirst) {
  putFile(host.tempDirectory() + "expanded", fileOf({1}));
  name = "$TMP/expanded";
  EXPECT_EQ(check(), BM_CHECK_SOUND);
}

}  // namespace
