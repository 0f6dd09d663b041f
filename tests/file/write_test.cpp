// Trees into bitmap files.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "file/files.h"

namespace {

constexpr uint64_t CHUNK = 262144;
constexpr uint64_t SPAN = BM_LEAF_BITS;
using Leaves = std::vector<LeafSpec>;

class WriteTest : public FileTreeTest {
 protected:
  // A tree of the first `count` bits from `first` on.
  RepTreeRootSType& treeOf(const std::vector<uint64_t>& bits) {
    RepTreeRootSType& root = newTree();
    BmSetBitsFromSortedArray_(&host, &root, bits.data(), bits.data() + bits.size());
    return root;
  }
};

TEST_P(WriteTest, AnEmptyTreeGivesAHeaderAndTakesNoBuffer) {
  RepTreeRootSType& root = newTree();
  EXPECT_EQ(write(root), 1);
  EXPECT_EQ(getFile(name), headerBytes(8, 0));
  EXPECT_EQ(messages, Messages{});
  name = host.tempFileName();
  EXPECT_EQ(writeKeeping(root), 1);
  EXPECT_EQ(getFile(name), headerBytes(8, 0));
  name = host.tempFileName();
  EXPECT_EQ(watched([&] { return BmWriteToFileIn6xFormat(&host, fileName(), &root, &err); }), 1);
  EXPECT_EQ(getFile(name), headerBytes(4, 0));
  EXPECT_EQ(host.bufferHistory().size(), 0U);
  EXPECT_EQ(err, -99);
}

TEST_P(WriteTest, TheFileHoldsTheBitsInOrder) {
  const std::vector<uint64_t> bits{0, 5, 130751, 130752, 1UL << 32, BM_HIGHEST_BIT};
  RepTreeRootSType& root = treeOf(bits);
  EXPECT_EQ(write(root), 1);
  EXPECT_EQ(getFile(name), fileOf(bits));
  EXPECT_EQ(root.root, 0U);
  EXPECT_EQ(root.level, 0);
}

TEST_P(WriteTest, TheFileBelongsToItsOwnerAlone) {
  EXPECT_EQ(write(treeOf({1})), 1);
  struct stat info;
  ASSERT_EQ(stat(name.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_P(WriteTest, TheKeepingFormLeavesTheTreeAndRepeatsItsBytes) {
  RepTreeRootSType& root = adopt(
      buildTree(host, kind(), Leaves{listLeaf(0, {1, 2}), denseLeaf(SPAN, {SPAN + 9}), denseLeaf(SPAN * 2, {}, 1)}));
  const std::string shape = shapeOf(root);
  host.clearEvents();
  EXPECT_EQ(writeKeeping(root), 1);
  EXPECT_EQ(host.takeEvents({EventKind::dirty, EventKind::dispose, EventKind::heapFree}), Messages{});
  const FileBytes first = getFile(name);
  EXPECT_EQ(first, fileOf({1, 2, SPAN + 9}));
  name = host.tempFileName();
  EXPECT_EQ(writeKeeping(root), 1);
  EXPECT_EQ(getFile(name), first);
  EXPECT_EQ(shapeOf(root), shape);
}

TEST_P(WriteTest, ATreeOfEmptyLeavesGivesAHeaderAndStays) {
  RepTreeRootSType& root = adopt(buildTree(host, kind(), Leaves{denseLeaf(0, {}, 1)}));
  EXPECT_EQ(write(root), 1);
  EXPECT_EQ(getFile(name), headerBytes(8, 0));
  EXPECT_EQ(shapeOf(root), "[0 dense 0+]");
}

TEST_P(WriteTest, TheDestructiveFormGivesBackEveryPage) {
  RepTreeRootSType& root = treeOf(ascendingBits(0, 30000, 1000));
  EXPECT_EQ(write(root), 1);
  EXPECT_EQ(getFile(name).size(), 16 + 30000 * 8U);
  EXPECT_EQ(root.root, 0U);
  EXPECT_EQ(host.livePages().size() + host.heapPages(), 0U);
}

TEST_P(WriteTest, ChunksAreOfTheItemCountButNoLargerThanOneChunk) {
  const std::vector<std::pair<uint64_t, int>> cases{{CHUNK - 1, 1}, {CHUNK, 1}, {CHUNK + 1, 2}};
  for (const auto& [count, writes] : cases) {
    for (const bool keeping : {false, true}) {
      RepTreeRootSType& root = treeOf(ascendingBits(9, count, 1));
      name = host.tempFileName();
      host.fileFaults.failWrite = 3 + writes + 1;  // one more than there are
      EXPECT_EQ(keeping ? writeKeeping(root) : write(root), 1);
      EXPECT_EQ(host.fileFaults.failWrite, 1);
      host.fileFaults = {};
      EXPECT_EQ(getFile(name), fileOf(ascendingBits(9, count, 1)));
      EXPECT_EQ(host.bufferHistory().back().label, "doWriteBmToFile() file buffer");
      EXPECT_EQ(host.bufferHistory().back().bytes, std::min(count, CHUNK) * 8);
      BmDisposeTree(&host, &root);
    }
  }
}

TEST_P(WriteTest, The6xFormatHasFourByteItemsAndDropsTheUpperBits) {
  const std::vector<uint64_t> bits{1, 0xFFFFFFFF, 0x100000000, 0x123456789A};
  RepTreeRootSType& root = treeOf(bits);
  EXPECT_EQ(watched([&] { return BmWriteToFileIn6xFormat(&host, fileName(), &root, &err); }), 1);
  EXPECT_EQ(messages, Messages{});
  EXPECT_EQ(getFile(name), fileOf({1, 0xFFFFFFFF, 0, 0x3456789A}, {4, false}));
  EXPECT_EQ(root.root, 0U);
  ASSERT_EQ(host.bufferHistory().size(), 2U);
  EXPECT_EQ(host.bufferHistory()[0].label, "doWriteBmToFile() file buffer");
  EXPECT_EQ(host.bufferHistory()[0].bytes, 32U);
  EXPECT_EQ(host.bufferHistory()[1].label, "doWriteBmToFile() 61 conversion buffer");
  EXPECT_EQ(host.bufferHistory()[1].bytes, 16U);
}

TEST_P(WriteTest, A6xFileOfSeveralChunksReadsBack) {
  const std::vector<uint64_t> bits = ascendingBits(1000, CHUNK + 77, 5);
  RepTreeRootSType& root = treeOf(bits);
  EXPECT_EQ(watched([&] { return BmWriteToFileIn6xFormat(&host, fileName(), &root, &err); }), 1);
  EXPECT_EQ(getFile(name).size(), 16 + bits.size() * 4);
  RepTreeRootSType& back = newTree();
  EXPECT_EQ(read(back), 1);
  EXPECT_EQ(bitsOf(back), bits);
}

TEST_P(WriteTest, AnExistingFileIsLeftAsItWas) {
  const FileBytes old{1, 2, 3};
  putFile(name, old);
  RepTreeRootSType& root = treeOf({7});
  const std::vector<std::function<int()>> writers{
      [&] { return BmWriteToFile(&host, fileName(), &root, &err); },
      [&] { return BmWriteToFile(&host, fileName(), &root, 0, &err); },
      [&] { return BmWriteToFileIn6xFormat(&host, fileName(), &root, &err); },
      [&] { return BmWriteToFileNonDestructive(&host, fileName(), &root, &err); },
      [&] { return BmWriteToFileNonDestructive(&host, fileName(), &root, 0, &err); }};
  for (const auto& writer : writers) {
    EXPECT_EQ(watched(writer), 0);
    EXPECT_EQ(messages, Messages{"file already exists"});
    EXPECT_EQ(err, -99);
    EXPECT_EQ(getFile(name), old);
    EXPECT_EQ(bitsOf(root), std::vector<uint64_t>{7});
  }
  EXPECT_EQ(host.openedFiles().size(), 0U);
}

TEST_P(WriteTest, AnExistingFileIsReplacedIfThatIsAskedFor) {
  putFile(name, FileBytes(1000, 'x'));
  RepTreeRootSType& root = treeOf({7});
  EXPECT_EQ(watched([&] { return BmWriteToFileNonDestructive(&host, fileName(), &root, 1, &err); }), 1);
  EXPECT_EQ(getFile(name), fileOf({7}));
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), &root, 5, &err); }), 1);
  EXPECT_EQ(getFile(name), fileOf({7}));
  EXPECT_EQ(root.root, 0U);
}

TEST_P(WriteTest, AskingForReplacementWithoutAFileIsNoTrouble) {
  RepTreeRootSType& root = treeOf({7});
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), &root, 1, &err); }), 1);
  EXPECT_EQ(getFile(name), fileOf({7}));
}

TEST_P(WriteTest, AnOldFileThatCannotBeDeletedIsReported) {
  ASSERT_EQ(mkdir(name.c_str(), 0700), 0);  // unlink takes no directories
  RepTreeRootSType& root = treeOf({7});
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), &root, 1, &err); }), 0);
  EXPECT_EQ(messages, Messages{"file already exists and unable to delete old file."});
  EXPECT_EQ(err, -99);
  EXPECT_EQ(bitsOf(root), std::vector<uint64_t>{7});
  rmdir(name.c_str());
}

TEST_P(WriteTest, AFileThatCannotBeMadeGivesItsCode) {
  RepTreeRootSType& root = treeOf({7});
  name = host.tempDirectory() + "missing/file";
  EXPECT_EQ(write(root), 0);
  EXPECT_EQ(messages, Messages{"Unable to open file"});
  EXPECT_EQ(err, ENOENT);
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), &root, nullptr); }), 0);
  EXPECT_EQ(bitsOf(root), std::vector<uint64_t>{7});
}

TEST_P(WriteTest, AnOldFileIsGoneWhenTheNewOneCannotBeOpened) {
  putFile(name, {1});
  RepTreeRootSType& root = treeOf({7});
  host.fileFaults.failOpen = 1;
  host.fileFaults.code = EMFILE;
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), &root, 1, &err); }), 0);
  EXPECT_EQ(messages, Messages{"Unable to open file"});
  EXPECT_EQ(err, EMFILE);
  EXPECT_FALSE(fileExists(name));
}

TEST_P(WriteTest, AFaultAtEveryWriteLeavesAPartialFileAndTheRestOfTheTree) {
  const std::vector<uint64_t> bits = ascendingBits(7, 2 * CHUNK + 100, 1);
  const FileBytes whole = fileOf(bits);
  const size_t writtenBefore[] = {0, 4, 8, 16, 16 + CHUNK * 8, 16 + 2 * CHUNK * 8};
  for (int fault = 1; fault <= 6; ++fault) {
    for (const bool keeping : {false, true}) {
      RepTreeRootSType& root = treeOf(bits);
      err = -99;
      name = host.tempFileName();
      host.fileFaults = {0, fault, 0, ENOSPC, 3};
      EXPECT_EQ(keeping ? writeKeeping(root) : write(root), 0);
      EXPECT_EQ(messages, Messages{"Error writing to file"});
      EXPECT_EQ(err, ENOSPC);
      const size_t size = writtenBefore[fault - 1] + 3;
      EXPECT_EQ(getFile(name), FileBytes(whole.begin(), whole.begin() + static_cast<long>(size)));
      const uint64_t gone = keeping || fault <= 3 ? 0 : static_cast<uint64_t>(fault - 3) * CHUNK;
      const uint64_t left = bits.size() - std::min<uint64_t>(gone, bits.size());
      EXPECT_EQ(BmFindNumBitsSet_(&host, &root), left);
      if (left > 0) expectSound(root);
      EXPECT_EQ(root.root == 0, left == 0);
      BmDisposeTree(&host, &root);
    }
  }
}

TEST_P(WriteTest, APartialFileIsRefusedByWriterAndReader) {
  RepTreeRootSType& root = treeOf({1, 2, 3});
  host.fileFaults = {0, 4, 0, ENOSPC, 8};
  EXPECT_EQ(writeKeeping(root), 0);
  host.fileFaults = {};
  EXPECT_EQ(writeKeeping(root), 0);
  EXPECT_EQ(messages, Messages{"file already exists"});
  RepTreeRootSType& back = newTree();
  EXPECT_EQ(read(back), 0);
  EXPECT_EQ(messages, (Messages{"File size is invalid.", "File failed integrity check"}));
}

TEST_P(WriteTest, AFaultWithoutAPlaceForItsCodeIsNoTrouble) {
  RepTreeRootSType& root = treeOf({1});
  for (int fault = 1; fault <= 4; ++fault) {
    name = host.tempFileName();
    host.fileFaults.failWrite = fault;
    EXPECT_EQ(watched([&] { return BmWriteToFileNonDestructive(&host, fileName(), &root, nullptr); }), 0);
  }
}

TEST_P(WriteTest, RandomTreesComeBackThroughBothForms) {
  Random random(testSeed());
  for (int round = 0; round < 5; ++round) {
    BitSet model;
    for (int i = 0; i < 4000; ++i) model.insert(random.below(BM_END_BIT) >> random.below(36));
    const std::vector<uint64_t> bits(model.begin(), model.end());
    RepTreeRootSType& root = treeOf(bits);
    name = host.tempFileName();
    EXPECT_EQ(writeKeeping(root), 1);
    EXPECT_EQ(getFile(name), fileOf(bits));
    RepTreeRootSType& back = newTree();
    EXPECT_EQ(read(back), 1);
    expectSound(back, model);
    name = host.tempFileName();
    EXPECT_EQ(write(root), 1);
    EXPECT_EQ(getFile(name), fileOf(bits));
    EXPECT_EQ(root.root, 0U);
  }
}

BMTREE_FOR_ALL_KINDS(WriteTest);

// ---------------------------------------------------------------------------------------------------------

class DiskWriteTest : public FileTest, public ::testing::WithParamInterface<BmTreeKindEType> {};

TEST_P(DiskWriteTest, TheDestructiveFormLeavesTheRootNamingPagesThatAreGone) {
  RepTreeRootSType root = buildTree(host, GetParam(), listLeaf(0, {5, 6}), {.currentStamp = true});
  DiskTreeRootSType disk = diskRootOf(root);
  const DiskTreeRootSType before = disk;
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), &disk, &err); }), 1);
  EXPECT_EQ(getFile(name), fileOf({5, 6}));
  EXPECT_EQ(std::memcmp(&disk, &before, sizeof disk), 0);
  EXPECT_EQ(host.livePages().size(), 0U);
}

TEST_P(DiskWriteTest, TheKeepingFormLeavesTheTree) {
  RepTreeRootSType& root = adopt(buildTree(host, GetParam(), Leaves{listLeaf(0, {5, 6}), denseLeaf(SPAN, {SPAN})}));
  const DiskTreeRootSType disk = diskRootOf(root);
  EXPECT_EQ(watched([&] { return BmWriteToFileNonDestructive(&host, fileName(), &disk, &err); }), 1);
  EXPECT_EQ(getFile(name), fileOf({5, 6, SPAN}));
  expectSound(root, {5, 6, SPAN});
}

INSTANTIATE_TEST_SUITE_P(Kinds, DiskWriteTest, ::testing::Values(BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE),
                         treeKindName);

using InlineWriteTest = FileTest;

TEST_F(InlineWriteTest, AnInlineListIsWrittenAndKept) {
  InlineTree tree({4, 5}, 3);
  EXPECT_EQ(writeKeeping(*tree.root()), 1);
  EXPECT_EQ(getFile(name), fileOf({4, 5}));
  EXPECT_EQ(bitsOf(*tree.root()), (std::vector<uint64_t>{4, 5}));
}

TEST_F(InlineWriteTest, AnInlineListInADiskRootIsConsumedInPlace) {
  InlineTree tree({4, 5}, 3);
  EXPECT_EQ(watched([&] { return BmWriteToFile(&host, fileName(), tree.diskRoot(), &err); }), 1);
  EXPECT_EQ(getFile(name), fileOf({4, 5}));
  EXPECT_EQ(rawU32(tree.contents(), 0), 0U);
}

TEST_F(InlineWriteTest, AnEmptyInlineRootGivesAHeader) {
  RepTreeRootSType root(0, BM_INLINE_LIST_TREE);
  EXPECT_EQ(write(root), 1);
  EXPECT_EQ(getFile(name), headerBytes(8, 0));
}

TEST_F(InlineWriteTest, TheNameIsExpandedFirst) {
  name = "$TMP/expanded";
  EXPECT_EQ(write(newTree(BM_HEAP_TREE)), 1);
  EXPECT_TRUE(fileExists(host.tempDirectory() + "expanded"));
}

}  // namespace
