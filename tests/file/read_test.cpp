// Bitmap files into trees.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>

#include "file/files.h"
#include "file/transfer.h"

namespace {

constexpr uint64_t CHUNK = 262144;
constexpr uint64_t SPAN = BM_LEAF_BITS;

class ReadTest : public FileTreeTest {
 protected:
  // Reads a file of these bytes into `root`.
  int readBytes(const FileBytes& bytes, RepTreeRootSType& root) {
    putFile(name, bytes);
    return read(root);
  }

  void expectReadsBack(const std::vector<uint64_t>& bits, FileForm form) {
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(readBytes(fileOf(bits, form), root), 1);
    EXPECT_EQ(messages, Messages{});
    EXPECT_EQ(bitsOf(root), bits) << form.itemSize << (form.swapped ? " swapped" : "");
    expectSound(root);
  }
};

TEST_P(ReadTest, FilesOfEveryFormReadBack) {
  for (const bool swapped : {false, true}) {
    expectReadsBack({0, 1, 77, 130751, 130752, 1UL << 31, 0xFFFFFFFF}, {4, swapped});
    expectReadsBack({0, 1, 77, 130751, 130752, 1UL << 31, 0xFFFFFFFF, 1UL << 32, BM_HIGHEST_BIT}, {8, swapped});
    expectReadsBack(ascendingBits(5, 20000, 3), {4, swapped});
    expectReadsBack(ascendingBits(5, 20000, 3000000), {8, swapped});
  }
}

TEST_P(ReadTest, AFileWithoutItemsLeavesTheTreeAndTakesNoBuffer) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {5})));
  for (unsigned itemSize = 0; itemSize <= 8; ++itemSize) {
    EXPECT_EQ(readBytes(headerBytes(itemSize, 0), root), 1) << itemSize;
    EXPECT_EQ(messages, Messages{});
  }
  EXPECT_EQ(host.bufferHistory().size(), 0U);
  EXPECT_EQ(err, -99);
  expectSound(root, {5});
}

TEST_P(ReadTest, ReadingIsAUnionAndTheSecondTimeChangesNothing) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), listLeaf(0, {2, 3, SPAN * 9})));
  EXPECT_EQ(readBytes(fileOf({1, 2, 4}), root), 1);
  expectSound(root, {1, 2, 3, 4, SPAN * 9});
  EXPECT_EQ(read(root), 1);
  expectSound(root, {1, 2, 3, 4, SPAN * 9});
}

TEST_P(ReadTest, AFileOfOneChunkTakesOneReadAndOneItemMoreTakesTwo) {
  for (const uint64_t count : {CHUNK - 1, CHUNK, CHUNK + 1, 2 * CHUNK + 1}) {
    RepTreeRootSType& root = newTree();
    const std::vector<uint64_t> bits = ascendingBits(0, count, 1);
    EXPECT_EQ(readBytes(fileOf(bits), root), 1);
    EXPECT_EQ(BmFindNumBitsSet_(&host, &root), count);
    EXPECT_EQ(BmFindHighWaterMark_(&host, &root), count - 1);
    expectSound(root);
    BmDisposeTree(&host, &root);
    // three reads for the header, then one for each chunk: the one behind the last is not made
    const int reads = 3 + static_cast<int>((count + CHUNK - 1) / CHUNK);
    host.fileFaults.failRead = reads + 1;
    EXPECT_EQ(read(root), 1);
    EXPECT_EQ(host.fileFaults.failRead, 1);
    host.fileFaults.failRead = 0;
    BmDisposeTree(&host, &root);
  }
}

TEST_P(ReadTest, BuffersHaveTheirLabelsAndSizes) {
  RepTreeRootSType& root = newTree();
  readBytes(fileOf({1, 2, 3}, {8, true}), root);
  readBytes(fileOf({1, 2, 3}, {4, true}), root);
  readBytes(fileOf(ascendingBits(0, CHUNK + 5, 1), {4, false}), root);
  const std::string fileLabel = "doReadBmFromFile() file buffer";
  const std::string convLabel = "doReadBmFromFile() conversion buffer";
  const std::vector<std::pair<std::string, unsigned long>> expected{
      {fileLabel, 24}, {fileLabel, 12}, {convLabel, 24}, {fileLabel, CHUNK * 4}, {convLabel, CHUNK * 8}};
  std::vector<std::pair<std::string, unsigned long>> taken;
  for (const BufferRecord& buffer : host.bufferHistory()) taken.emplace_back(buffer.label, buffer.bytes);
  EXPECT_EQ(taken, expected);
}

TEST_P(ReadTest, AMissingFileLeavesTheCodeUntouched) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(read(root), 0);
  EXPECT_EQ(messages, Messages{"File does not exist"});
  EXPECT_EQ(err, -99);
  EXPECT_EQ(host.openedFiles().size(), 0U);
}

TEST_P(ReadTest, AFileThatCannotBeOpenedGivesItsCode) {
  putFile(name, fileOf({1}));
  host.fileFaults.failOpen = 1;
  host.fileFaults.code = EACCES;
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(read(root), 0);
  EXPECT_EQ(messages, Messages{"Error opening file"});
  EXPECT_EQ(err, EACCES);
  host.fileFaults.failOpen = 1;
  EXPECT_EQ(watched([&] { return BmReadFromFile(&host, fileName(), &root, nullptr); }), 0);
}

TEST_P(ReadTest, AFileShorterThanItsHeaderFailsAtTheFieldThatIsCutOff) {
  const FileBytes whole = headerBytes(8, 0);
  for (size_t length = 0; length < 16; ++length) {
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(readBytes(FileBytes(whole.begin(), whole.begin() + static_cast<long>(length)), root), 0);
    EXPECT_EQ(messages, (Messages{"Error reading file", "File failed integrity check"})) << length;
    EXPECT_NE(err, -99);
  }
}

TEST_P(ReadTest, AnItemSizeAboveEightIsNotForThisProgram) {
  for (const uint64_t itemSize : {9UL, 16UL, 0xFFFFFFFFUL, 0x08000000UL}) {
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(readBytes(headerBytes(itemSize, 0), root), 0);
    EXPECT_EQ(messages, (Messages{"Oop Number type size in file not valid for this executable",
                                  "File failed integrity check"}));
    EXPECT_EQ(err, -99);
  }
}

TEST_P(ReadTest, AMarkOfNoOrderCountsAsSwapped) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(readBytes(headerBytes(8, 0, false, 0x12345678), root), 0);
  EXPECT_EQ(messages,
            (Messages{"Oop Number type size in file not valid for this executable", "File failed integrity check"}));
  EXPECT_EQ(readBytes(headerBytes(8, 5, true, 0x12345678), root), 0);
  EXPECT_EQ(messages, (Messages{"File size is invalid.", "File failed integrity check"}));
  FileBytes swappedButForItsMark = fileOf({6, 7}, {8, true});
  swappedButForItsMark[0] = 0x55;
  EXPECT_EQ(readBytes(swappedButForItsMark, root), 1);
  expectSound(root, {6, 7});
}

TEST_P(ReadTest, AFileOfAnotherSizeThanItsHeaderSaysIsInvalid) {
  for (const long change : {-9L, -8L, -1L, 1L, 8L}) {
    RepTreeRootSType& root = newTree();
    FileBytes bytes = fileOf({1, 2, 3});
    bytes.resize(bytes.size() + static_cast<unsigned long>(change));
    EXPECT_EQ(readBytes(bytes, root), 0);
    EXPECT_EQ(messages, (Messages{"File size is invalid.", "File failed integrity check"}));
    EXPECT_EQ(err, -99);
    EXPECT_EQ(root.root, 0U);
  }
}

TEST_P(ReadTest, WidthsOtherThanFourAndEightAreStoppedByTheGuarantee) {
  for (unsigned itemSize = 0; itemSize < 8; ++itemSize) {
    if (itemSize == 4) continue;
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(readBytes(fileOf({1, 2, 3}, {itemSize, false}), root), 0);
    EXPECT_EQ(messages, Messages{});
    host.expectReports({"guarantee bitmap:11587"});
    EXPECT_EQ(root.root, 0U);
  }
}

TEST_P(ReadTest, ACountThatWrapsTheSizeFailsAtTheFirstRead) {
  const std::vector<std::pair<uint64_t, uint64_t>> headers{
      {8, 1UL << 61}, {4, 1UL << 62}, {8, 7UL << 61}, {4, 3UL << 62}};
  for (const auto& [itemSize, count] : headers) {
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(readBytes(headerBytes(itemSize, count), root), 0);
    EXPECT_EQ(messages, Messages{"Error reading file"});
    EXPECT_EQ(root.root, 0U);
  }
}

TEST_P(ReadTest, UnsortedAndRepeatingFilesSetNothingButTheirItems) {
  const std::vector<std::vector<uint64_t>> files{
      {3, 2, 1}, {5, 5, 5, 5}, {1, 2, 2, 3, 3}, {SPAN * 3, 1, SPAN * 2, 1, 2, 3}, {9, BM_HIGHEST_BIT, 8, 7, 100, 6}};
  for (const auto& items : files) {
    for (const bool swapped : {false, true}) {
      RepTreeRootSType& root = newTree();
      EXPECT_EQ(readBytes(fileOf(items, {8, swapped}), root), 1);
      for (const uint64_t bit : bitsOf(root)) {
        EXPECT_NE(std::find(items.begin(), items.end(), bit), items.end()) << bit;
      }
      BmDisposeTree(&host, &root);
    }
  }
}

TEST_P(ReadTest, LargeUnsortedFilesEndInBoundedTime) {
  Random random(testSeed());
  for (int round = 0; round < 4; ++round) {
    std::vector<uint64_t> items;
    for (int i = 0; i < 20000; ++i) items.push_back(random.below(BM_END_BIT) >> random.below(38));
    RepTreeRootSType& root = newTree();
    EXPECT_EQ(readBytes(fileOf(items), root), 1);
    host.takeReports();
    BmDisposeTree(&host, &root);
  }
}

TEST_P(ReadTest, ItemsOf2To40AndAboveEndTheRun) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(readBytes(fileOf({1, 2, BM_END_BIT, BM_END_BIT + 5, ~0UL}), root), 1);
  expectSound(root, {1, 2});
}

TEST_P(ReadTest, AFaultAtEveryReadLeavesTheChunksBeforeIt) {
  const std::vector<uint64_t> bits = ascendingBits(7, 2 * CHUNK + 100, 1);
  putFile(name, fileOf(bits));
  for (int fault = 1; fault <= 6; ++fault) {
    for (const long partly : {0L, 3L}) {
      RepTreeRootSType& root = newTree();
      err = -99;
      host.fileFaults = {fault, 0, 0, EIO, partly};
      EXPECT_EQ(read(root), 0);
      EXPECT_EQ(err, EIO);
      EXPECT_EQ(messages, fault <= 3 ? (Messages{"Error reading file", "File failed integrity check"})
                                     : Messages{"Error reading file"});
      const uint64_t expected = fault <= 4 ? 0 : static_cast<uint64_t>(fault - 4) * CHUNK;
      EXPECT_EQ(BmFindNumBitsSet_(&host, &root), expected);
      EXPECT_EQ(root.root == 0, expected == 0);
      BmDisposeTree(&host, &root);
    }
  }
  RepTreeRootSType& root = newTree();
  host.fileFaults = {7, 0, 0, EIO, 0};
  EXPECT_EQ(read(root), 1);
  host.fileFaults = {};
  EXPECT_EQ(BmFindNumBitsSet_(&host, &root), bits.size());
}

TEST_P(ReadTest, AFaultWithoutAPlaceForItsCodeIsNoTrouble) {
  putFile(name, fileOf({1}));
  RepTreeRootSType& root = newTree();
  for (int fault = 1; fault <= 4; ++fault) {
    host.fileFaults.failRead = fault;
    EXPECT_EQ(watched([&] { return BmReadFromFile(&host, fileName(), &root, nullptr); }), 0);
  }
}

TEST_P(ReadTest, OutOfPagesKeepsWhatWasStored) {
  if (isHeap()) return;
  RepTreeRootSType& root = newTree();
  host.setPageBudget(3);
  EXPECT_EQ(readBytes(fileOf(ascendingBits(0, 200000, 50)), root), 1);
  host.setPageBudget(-1);
  expectSound(root);
}

TEST_P(ReadTest, RandomMutationsOfFilesAreHarmless) {
  Random random(testSeed());
  const std::vector<uint64_t> bits = ascendingBits(3, 60, 77777);
  for (int round = 0; round < 300; ++round) {
    FileBytes bytes = fileOf(bits, {random.oneIn(2) ? 4U : 8U, random.oneIn(2)});
    for (uint64_t i = 0; i <= random.below(4); ++i) {
      bytes[random.oneIn(3) ? random.below(16) : random.below(bytes.size())] ^=
          static_cast<unsigned char>(1U << random.below(8));
    }
    if (random.oneIn(5)) bytes.resize(random.below(bytes.size() + 20));
    RepTreeRootSType root(0, kind());
    putFile(name, bytes);
    BmCheckResultSType check;
    const int sound = BmCheckFile(name.c_str(), &check);
    const int result = read(root);
    host.takeReports();
    if (sound == 1) {
      EXPECT_EQ(result, 1);
      expectSound(root);
      EXPECT_EQ(BmFindNumBitsSet_(&host, &root), check.itemIndex);
    }
    BmDisposeTree(&host, &root);
  }
}

BMTREE_FOR_ALL_KINDS(ReadTest);

// ---------------------------------------------------------------------------------------------------------

class OddFileTest : public FileTest {};

TEST_F(OddFileTest, ADirectoryFailsOneWayOrAnother) {
  ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
  RepTreeRootSType& root = newTree(BM_HEAP_TREE);
  EXPECT_EQ(read(root), 0);
  EXPECT_NE(err, -99);
  EXPECT_GE(messages.size(), 1U);
  rmdir(name.c_str());
}

TEST_F(OddFileTest, ASocketFailsToOpen) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  RepTreeRootSType& root = newTree(BM_HEAP_TREE);
  EXPECT_EQ(read(root), 0);
  EXPECT_EQ(messages, Messages{"Error opening file"});
  EXPECT_EQ(err, ENXIO);
  close(fd);
}

TEST_F(OddFileTest, AnUnreadableFileFailsToOpen) {
  chmod(host.tempDirectory().c_str(), 0755);
  putFile(name, fileOf({1}));
  chmod(name.c_str(), 0);
  RepTreeRootSType& root = newTree(BM_HEAP_TREE);
  const uid_t user = geteuid();
  ASSERT_EQ(seteuid(user == 0 ? 65534 : user), 0);  // the superuser can read everything
  EXPECT_EQ(read(root), 0);
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_EQ(messages, Messages{"Error opening file"});
  EXPECT_EQ(err, EACCES);
}

TEST_F(OddFileTest, TheNameIsExpandedFirst) {
  putFile(host.tempDirectory() + "expanded", fileOf({1}));
  name = "$TMP/expanded";
  RepTreeRootSType& root = newTree(BM_HEAP_TREE);
  EXPECT_EQ(read(root), 1);
  EXPECT_EQ(host.openedFiles(), std::vector<std::string>{host.tempDirectory() + "expanded"});
}

TEST_F(OddFileTest, AnInlineListTakesTheBitsOfAFile) {
  InlineTree tree({4, 9}, 3);
  putFile(name, fileOf({1, 4, 5}));
  EXPECT_EQ(read(*tree.root()), 1);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{1, 4, 5, 9}));
}

TEST_F(OddFileTest, AFileWithMoreItemsThanAnInlineListHasSlotsStaysInside) {
  InlineTree tree({}, 0);
  putFile(name, fileOf(ascendingBits(0, 5000, 2)));
  EXPECT_EQ(read(*tree.root()), 1);
  EXPECT_EQ(bitsOf(*tree.root()).size(), 2043U);
  EXPECT_GE(host.takeReports().size(), 1U);
}

class DiskReadTest : public FileTest, public ::testing::WithParamInterface<BmTreeKindEType> {};

TEST_P(DiskReadTest, TheRootIsNotWrittenBack) {
  putFile(name, fileOf({7, 8}));
  DiskTreeRootSType empty(0, GetParam());
  DiskTreeRootSType disk = empty;
  EXPECT_EQ(watched([&] { return BmReadFromFile(&host, fileName(), &disk, &err); }), 1);
  EXPECT_EQ(std::memcmp(&disk, &empty, sizeof disk), 0);
  // the load made one page, which no root names now
  ASSERT_EQ(host.livePages().size(), 1U);
  RepTreeRootSType lost(host.livePages()[0], GetParam());
  expectSound(lost, {7, 8});
  BmDisposeTree(&host, &lost);
}

TEST_P(DiskReadTest, ATreeWhoseRootStaysInPlaceGetsTheBits) {
  if (GetParam() == BM_CAREFUL_TREE) return;  // a shadow moves the root
  RepTreeRootSType& root = adopt(buildTree(host, GetParam(), listLeaf(0, {1, 9})));
  DiskTreeRootSType disk = diskRootOf(root);
  putFile(name, fileOf({7, 8}));
  EXPECT_EQ(watched([&] { return BmReadFromFile(&host, fileName(), &disk, &err); }), 1);
  expectSound(root, {1, 7, 8, 9});
}

INSTANTIATE_TEST_SUITE_P(Kinds, DiskReadTest, ::testing::Values(BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE),
                         treeKindName);

TEST_F(OddFileTest, AnInlineListInADiskRootTakesTheBitsInPlace) {
  InlineTree tree({4}, 3);
  putFile(name, fileOf({1, 5}));
  EXPECT_EQ(watched([&] { return BmReadFromFile(&host, fileName(), tree.diskRoot(), &err); }), 1);
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{1, 4, 5}));
}

// ---------------------------------------------------------------------------------------------------------

TEST_F(OddFileTest, NarrowingKeepsTheLowHalvesAndNothingForNoItems) {
  uint64_t wide[] = {1, 0x1234567890, 0xFFFFFFFFFF};
  uint32_t narrow[] = {7, 7, 7};
  BmToFileType file;
  file.fileBuffer = wide;
  file.narrowBuffer = narrow;
  file.convertTo6xFormatForWrite(0);
  EXPECT_EQ(narrow[0], 7U);
  file.convertTo6xFormatForWrite(2);
  EXPECT_EQ(narrow[0], 1U);
  EXPECT_EQ(narrow[1], 0x34567890U);
  EXPECT_EQ(narrow[2], 7U);
}

TEST_F(OddFileTest, TheTeardownMayRunTwice) {
  BmToFileType file;
  file.fileBuffer = static_cast<uint64_t*>(UtlMalloc(8, "shared"));
  file.convBuffer = file.fileBuffer;
  file.narrowBuffer = static_cast<uint32_t*>(UtlMalloc(8, "narrow"));
  putFile(name, {});
  file.fd = HostOpen(name.c_str(), 0, 0);
  tearDownBmFile(&file);
  EXPECT_EQ(host.buffersOutstanding(), 0U);
  EXPECT_EQ(file.fd, -1);
  tearDownBmFile(&file);
}

TEST_F(OddFileTest, TheIntegrityCheckFillsInWhatItRead) {
  putFile(name, fileOf({1, 2}, {4, true}));
  BmToFileType file;
  file.fileSize = 24;
  file.fd = HostOpen(name.c_str(), 0, 0);
  EXPECT_EQ(checkBmFileIntegrity(&file, nullptr), 1);
  EXPECT_EQ(file.swapBytes, 1);
  EXPECT_EQ(file.itemSize, 4U);
  EXPECT_EQ(file.itemCount, 2);
  EXPECT_EQ(lseek(file.fd, 0, SEEK_CUR), 16);
  tearDownBmFile(&file);
}

}  // namespace
