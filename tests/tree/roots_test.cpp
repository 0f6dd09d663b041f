// Tree roots: the two forms, the constant invalid roots, set-up of a context, and how a disk root becomes an
// in-memory root and is written back.
#include <cstring>

#include "bminvalidroots.h"
#include "support/treemodel.h"
#include "tree/treeroots.h"

namespace {

using Bytes = std::vector<unsigned>;

template <class Value>
Bytes rawBytes(const Value& value) {
  unsigned char raw[sizeof value];
  std::memcpy(raw, &value, sizeof raw);
  return {raw, raw + sizeof raw};
}

// The constants are built once; to damage one, a test writes through the constness of the reference.
template <class Root>
Root& writable(const Root& constant) {
  return const_cast<Root&>(constant);
}

// ---------------------------------------------------------------------------------------------------------
// Before static construction

struct EarlyObservation {
  int flagBefore = 0;
  int flagAfter = 0;
  DiskTreeRootSType otRoot{77, 3};
  RepTreeRootSType careful{77, BM_PAGE_TREE};

  EarlyObservation() {
    flagBefore = BmInvalidRoots::flag;
    otRoot = *BmInvalidOtTreeRoot();
    careful = BmInvalidRoots::BmInvalidCarefulTreeRoot;
    flagAfter = BmInvalidRoots::flag;
  }
};

// Constructed before every object of ordinary priority, those of the library included.
__attribute__((init_priority(101))) EarlyObservation early;

TEST(InvalidRootsTest, AnAccessorThatRunsBeforeStaticConstructionFindsTheConstantsBuilt) {
  EXPECT_EQ(early.flagBefore, 1);
  EXPECT_EQ(early.flagAfter, 2);
  EXPECT_EQ(rawBytes(early.otRoot), (Bytes{0, 0, 0, 0, 0, 1, 0, 0}));
  EXPECT_EQ(rawBytes(early.careful), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 3, 0, 0, 0}));
}

// ---------------------------------------------------------------------------------------------------------
// The constants

void expectInvalid(const RepTreeRootSType& root, int kind) {
  const unsigned kindByte = static_cast<unsigned>(kind);
  EXPECT_EQ(rawBytes(root), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, kindByte, 0, 0, 0}));
}

void expectInvalid(const DiskTreeRootSType& root, int kind) {
  EXPECT_EQ(rawBytes(root), (Bytes{0, 0, 0, 0, 0, static_cast<unsigned>(kind), 0, 0}));
}

void expectAllInvalid() {
  expectInvalid(BmInvalidRoots::BmInvalidHeapTreeRoot, 0);
  expectInvalid(BmInvalidRoots::BmInvalidPageTreeRoot, 1);
  expectInvalid(BmInvalidRoots::BmInvalidSharedPageTreeRoot, 2);
  expectInvalid(BmInvalidRoots::BmInvalidCarefulTreeRoot, 3);
  expectInvalid(BmInvalidRoots::DiskInvalidPageTreeRoot, 1);
  expectInvalid(BmInvalidRoots::DiskInvalidSharedPageTreeRoot, 2);
  expectInvalid(BmInvalidRoots::DiskInvalidCarefulTreeRoot, 3);
  expectInvalid(BmInvalidRoots::DiskInvalidOtTreeRoot, 1);
}

void damageAll() {
  writable(BmInvalidRoots::BmInvalidHeapTreeRoot) = {9, BM_PAGE_TREE};
  writable(BmInvalidRoots::BmInvalidPageTreeRoot) = {9, BM_HEAP_TREE};
  writable(BmInvalidRoots::BmInvalidSharedPageTreeRoot) = {9, BM_HEAP_TREE};
  writable(BmInvalidRoots::BmInvalidCarefulTreeRoot) = {9, BM_HEAP_TREE};
  writable(BmInvalidRoots::DiskInvalidPageTreeRoot) = {9, 0};
  writable(BmInvalidRoots::DiskInvalidSharedPageTreeRoot) = {9, 0};
  writable(BmInvalidRoots::DiskInvalidCarefulTreeRoot) = {9, 0};
  writable(BmInvalidRoots::DiskInvalidOtTreeRoot) = {9, 0};
}

TEST(InvalidRootsTest, AllEightAreEmptyRootsOfTheirKindAndTheFlagIsTwo) {
  expectAllInvalid();
  EXPECT_EQ(BmInvalidRoots::flag, 2);
}

TEST(InvalidRootsTest, EveryAccessorBuildsAllEightWhenTheFlagIsNotTwo) {
  TestHost host;
  const std::function<void()> accessors[] = {
      [] { BmCheckTreeRoots(); },
      [&] { BmInitTreeRoots(&host); },
      [] { EXPECT_EQ(BmInvalidHeapTreeRoot(), &BmInvalidRoots::BmInvalidHeapTreeRoot); },
      [] { EXPECT_EQ(BmInvalidOtTreeRoot(), &BmInvalidRoots::DiskInvalidOtTreeRoot); },
  };
  for (const auto& accessor : accessors) {
    damageAll();
    BmInvalidRoots::flag = 1;
    accessor();
    EXPECT_EQ(BmInvalidRoots::flag, 2);
    expectAllInvalid();
  }
}

TEST(InvalidRootsTest, TheConstantsAreNotBuiltAgainOnceTheFlagIsTwo) {
  writable(BmInvalidRoots::BmInvalidPageTreeRoot).root = 9;
  BmInvalidHeapTreeRoot();
  EXPECT_EQ(BmInvalidRoots::BmInvalidPageTreeRoot.root, 9u);
  writable(BmInvalidRoots::BmInvalidPageTreeRoot).root = 0;
}

TEST(InvalidRootsTest, AnObjectTableRootWithAPageIsReported) {
  TestHost host;
  BmCheckTreeRoots();
  host.expectReports({});
  writable(BmInvalidRoots::DiskInvalidOtTreeRoot).pageIdHigh = 1;
  BmCheckTreeRoots();
  host.expectReports({"guarantee bminvalidroots:112"});
  writable(BmInvalidRoots::DiskInvalidOtTreeRoot).pageIdHigh = 0;
}

// ---------------------------------------------------------------------------------------------------------
// The two forms

TEST(RootFormsTest, TheInMemoryConstructorZeroesAllButRootTagAndKind) {
  alignas(RepTreeRootSType) unsigned char memory[sizeof(RepTreeRootSType)];
  std::memset(memory, 0xEE, sizeof memory);
  const auto* root = new (memory) RepTreeRootSType(0x0102030405060708, BM_CAREFUL_TREE);
  EXPECT_EQ(rawU64(root, 0), 0x0102030405060708u);
  EXPECT_EQ(rawU32(root, 8), 0xFFFFFFFFu);
  EXPECT_EQ(rawU8(root, 12), 3);
  for (const size_t zero : {13, 14, 15}) EXPECT_EQ(rawU8(root, zero), 0);
}

TEST(RootFormsTest, ADiskRootOfAPageIdAbove32BitsPacksAndUnpacks) {
  alignas(DiskTreeRootSType) unsigned char memory[sizeof(DiskTreeRootSType)];
  std::memset(memory, 0xEE, sizeof memory);
  const auto* disk = new (memory) DiskTreeRootSType(0x100000004, BM_SHARED_PAGE_TREE);
  EXPECT_EQ(rawU32(disk, 0), 4u);
  EXPECT_EQ(rawU8(disk, 4), 0);
  EXPECT_EQ(rawU8(disk, 5), 2);
  EXPECT_EQ(rawU8(disk, 6), 1);
  EXPECT_EQ(rawU8(disk, 7), 0);
  const RepTreeRootSType root = unpackDiskRoot(disk);
  EXPECT_EQ(root.root, 0x100000004u);
  EXPECT_EQ(root.treeKind, BM_SHARED_PAGE_TREE);
  EXPECT_EQ(root.level, 0);
  EXPECT_EQ(root.denseLeaves, 0);
}

TEST(RootFormsTest, TheHighestPageIdSurvivesTheDiskForm) {
  DiskTreeRootSType disk(0xFFFFFFFFFF, BM_PAGE_TREE);
  disk.level = 2;
  const RepTreeRootSType root = unpackDiskRoot(&disk);
  EXPECT_EQ(root.root, 0xFFFFFFFFFFu);
  EXPECT_EQ(root.level, 2);
  DiskTreeRootSType back;
  writeBackDiskRoot(root, &back);
  EXPECT_EQ(rawBytes(back), rawBytes(disk));
}

TEST(RootFormsTest, ANegativeDiskKindUnpacksToAnInlineRootAtTheDiskRootsAddress) {
  InlineTree tree({3, 9});
  const RepTreeRootSType root = unpackDiskRoot(tree.diskRoot());
  EXPECT_EQ(root.root, reinterpret_cast<uint64_t>(tree.diskRoot()));
  EXPECT_EQ(root.level, 0);
  EXPECT_EQ(root.treeKind, BM_INLINE_LIST_TREE);
  EXPECT_EQ(root.denseLeaves, 0);
  const RepBitListContentsSType* list = inlineListContents(root);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(list), tree.contents());
  EXPECT_EQ(list->count, 2);
}

TEST(RootFormsTest, ADiskRootKeepsItsLevelWhenItUnpacksToAnInlineRoot) {
  InlineTree tree;
  tree.diskRoot()->level = 1;
  EXPECT_EQ(unpackDiskRoot(tree.diskRoot()).level, 1);
}

// ---------------------------------------------------------------------------------------------------------
// Writing back

class WriteBackTest : public TreeFixture {
 protected:
  static DiskTreeRootSType garbageRoot(int8_t kind) {
    DiskTreeRootSType disk;
    std::memset(static_cast<void*>(&disk), 0xEE, sizeof disk);
    disk.treeKind = kind;
    return disk;
  }
};

TEST_F(WriteBackTest, ACachedRootIsPackedWithByteSevenZero) {
  for (const BmTreeKindEType kind : {BM_PAGE_TREE, BM_SHARED_PAGE_TREE, BM_CAREFUL_TREE}) {
    RepTreeRootSType local(0x5600000012, kind);
    local.level = 2;
    local.denseLeaves = 1;
    DiskTreeRootSType disk = garbageRoot(1);
    writeBackDiskRoot(local, &disk);
    EXPECT_EQ(rawU32(&disk, 0), 0x12u);
    EXPECT_EQ(rawU8(&disk, 4), 2);
    EXPECT_EQ(rawU8(&disk, 5), kind);
    EXPECT_EQ(rawU8(&disk, 6), 0x56);
    EXPECT_EQ(rawU8(&disk, 7), 0);
  }
}

TEST_F(WriteBackTest, AnEmptyHeapRootComesBackAsAnEmptyPageRoot) {
  DiskTreeRootSType disk = garbageRoot(0);
  writeBackDiskRoot(RepTreeRootSType(0, BM_HEAP_TREE), &disk);
  EXPECT_EQ(rawBytes(disk), (Bytes{0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST_F(WriteBackTest, AHeapRootWithAPageOrALevelIsReportedAndWrittenAsEmpty) {
  RepTreeRootSType local(0x1234, BM_HEAP_TREE);
  DiskTreeRootSType disk = garbageRoot(0);
  writeBackDiskRoot(local, &disk);
  host.expectReports({"guarantee bitmap:1506"});
  EXPECT_EQ(rawBytes(disk), (Bytes{0, 0, 0, 0, 0, 1, 0, 0}));
  local.root = 0;
  local.level = 1;
  disk = garbageRoot(0);
  writeBackDiskRoot(local, &disk);
  host.expectReports({"guarantee bitmap:1507"});
  EXPECT_EQ(rawBytes(disk), (Bytes{0, 0, 0, 0, 0, 1, 0, 0}));
  local.root = 0x1234;
  writeBackDiskRoot(local, &disk);
  host.expectReports({"guarantee bitmap:1506", "guarantee bitmap:1507"});
}

TEST_F(WriteBackTest, AnInlineTreeThatEmptiedToRootZeroKeepsItsKindAndLosesItsOffset) {
  InlineTree tree({1});
  DiskTreeRootSType* disk = tree.diskRoot();
  disk->level = 1;
  disk->pageIdHigh = 5;
  disk->reserved = 6;
  writeBackDiskRoot(RepTreeRootSType(0, BM_INLINE_LIST_TREE), disk);
  EXPECT_EQ(rawBytes(*disk), (Bytes{0, 0, 0, 0, 0, 254, 0, 6}));
}

TEST_F(WriteBackTest, AnInlineTreeThatStayedWhereItWasIsNotWritten) {
  InlineTree tree({1});
  const Bytes before = rawBytes(*tree.diskRoot());
  RepTreeRootSType local = *tree.root();
  local.level = 2;
  writeBackDiskRoot(local, tree.diskRoot());
  EXPECT_EQ(rawBytes(*tree.diskRoot()), before);
}

TEST_F(WriteBackTest, AnInlineTreeThatMovedIsReportedAndNotWritten) {
  InlineTree tree({1});
  const Bytes before = rawBytes(*tree.diskRoot());
  RepTreeRootSType local = *tree.root();
  local.root += 8;
  writeBackDiskRoot(local, tree.diskRoot());
  host.expectReports({"guarantee bitmap:1519"});
  EXPECT_EQ(rawBytes(*tree.diskRoot()), before);
}

TEST_F(WriteBackTest, AnUpdateIsWrittenBackWhenItEndsAndAViewNever) {
  DiskTreeRootSType disk(4, BM_PAGE_TREE);
  DiskRootView(&disk).root()->root = 99;
  EXPECT_EQ(pageIdOf(disk), 4u);
  {
    DiskRootUpdate update(&disk);
    update.root()->root = 99;
    update.root()->level = 1;
    EXPECT_EQ(pageIdOf(disk), 4u);
  }
  EXPECT_EQ(pageIdOf(disk), 99u);
  EXPECT_EQ(disk.level, 1);
}

TEST_F(WriteBackTest, DisposingOfADiskRootOfKindZeroMakesItAnEmptyPageRoot) {
  DiskTreeRootSType disk(0, BM_HEAP_TREE);
  BmDisposeTree(&host, &disk);
  EXPECT_EQ(rawBytes(disk), (Bytes{0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST_F(WriteBackTest, DisposingOfADiskRootGivesItsPagesBackAndKeepsItsKind) {
  const RepTreeRootSType tree = buildTree(host, BM_SHARED_PAGE_TREE, std::vector<LeafSpec>{listLeaf(0, {1})});
  DiskTreeRootSType disk = diskRootOf(tree);
  BmDisposeTree(&host, &disk);
  EXPECT_EQ(rawBytes(disk), (Bytes{0, 0, 0, 0, 0, 2, 0, 0}));
  EXPECT_EQ(host.livePages(), std::vector<uint64_t>{});
}

// ---------------------------------------------------------------------------------------------------------
// Inline lists and set-up

class RootsTest : public TreeFixture {};

TEST_F(RootsTest, ANegativeKindThatIsNotTheInlineOneIsReportedAndHasNoList) {
  InlineTree tree({1});
  tree.root()->treeKind = -3;
  EXPECT_EQ(inlineListContents(*tree.root()), nullptr);
  host.expectReports({"guarantee reposdisk:1196"});
}

TEST_F(RootsTest, AnInlineRootOfZeroHasNoListAndIsNotReported) {
  EXPECT_EQ(inlineListContents(RepTreeRootSType(0, BM_INLINE_LIST_TREE)), nullptr);
}

TEST_F(RootsTest, TheOffsetOfAnInlineListCountsFromTheRootsOwnAddress) {
  for (const uint32_t offset : {8u, 16u, 4096u, 70000u}) {
    InlineTree tree({5}, 0, offset);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(inlineListContents(*tree.root())), tree.memory() + offset);
  }
}

TEST_F(RootsTest, InitHeapTreeWithTag1887AllocatesTheFirstPageUnderThatTag) {
  RepTreeRootSType& root = newTree(BM_PAGE_TREE);
  root.root = 55;
  root.level = 2;
  BmInitHeapTree(&root, 1887, nullptr);
  EXPECT_EQ(rawBytes(root), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0x5F, 0x07, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(BmSetBit(&host, &root, 7), 0);
  EXPECT_EQ(host.takeEvents({EventKind::heapAlloc}), std::vector<std::string>{"heap alloc tag 1887"});
  EXPECT_EQ(host.heapTag(root.root), 1887);
}

TEST_F(RootsTest, InitTreeRootsFillsEveryMemberBetweenTheOwnerAndTheSharedCacheState) {
  static_assert(offsetof(PageCacheSType, owner) < offsetof(PageCacheSType, bitCountTable));
  alignas(PageCacheSType) unsigned char memory[sizeof(PageCacheSType)];
  PageCacheSType& pc = *new (memory) PageCacheSType{};
  std::memset(static_cast<void*>(memory), 0xEE, sizeof memory);
  BmInitTreeRoots(&pc);
  EXPECT_EQ(rawU64(&pc.owner, 0), 0xEEEEEEEEEEEEEEEEu);
  EXPECT_EQ(rawU64(&pc.shrPcState, 0), 0xEEEEEEEEEEEEEEEEu);
  EXPECT_EQ(pc.bitCountTable, BitCountTable);
  expectInvalid(pc.invalidHeapTreeRoot, 0);
  EXPECT_EQ(pc.invalidPageTreeRoot, &BmInvalidRoots::BmInvalidPageTreeRoot);
  EXPECT_EQ(pc.invalidSharedPageTreeRoot, &BmInvalidRoots::BmInvalidSharedPageTreeRoot);
  EXPECT_EQ(pc.invalidCarefulTreeRoot, &BmInvalidRoots::BmInvalidCarefulTreeRoot);
  EXPECT_EQ(pc.diskInvalidPageTreeRoot, &BmInvalidRoots::DiskInvalidPageTreeRoot);
  EXPECT_EQ(pc.diskInvalidSharedPageTreeRoot, &BmInvalidRoots::DiskInvalidSharedPageTreeRoot);
  EXPECT_EQ(pc.diskInvalidCarefulTreeRoot, &BmInvalidRoots::DiskInvalidCarefulTreeRoot);
  EXPECT_EQ(pc.diskInvalidOtTreeRoot, &BmInvalidRoots::DiskInvalidOtTreeRoot);
  EXPECT_EQ(pc.carefulStamp, nullptr);
  EXPECT_EQ(pc.reservedCarefulSlot, nullptr);
  EXPECT_EQ(pc.dirtyCarefulBm, nullptr);
  EXPECT_EQ(pc.unitTestStamp, 0u);
  EXPECT_EQ(pc.carefulActive, 0);
  expectInvalid(pc.obsoleteCarefulBm, 0);
  expectInvalid(pc.unitTestDirtyCarefulBm, 0);
}

TEST_F(RootsTest, TheMembersOfAContextStandInTheirFixedOrder) {
  PageCacheSType pc{};
  const void* const members[] = {&pc.owner,
                                 &pc.bitCountTable,
                                 &pc.invalidHeapTreeRoot,
                                 &pc.invalidPageTreeRoot,
                                 &pc.invalidSharedPageTreeRoot,
                                 &pc.invalidCarefulTreeRoot,
                                 &pc.diskInvalidPageTreeRoot,
                                 &pc.diskInvalidSharedPageTreeRoot,
                                 &pc.diskInvalidCarefulTreeRoot,
                                 &pc.diskInvalidOtTreeRoot,
                                 &pc.carefulStamp,
                                 &pc.reservedCarefulSlot,
                                 &pc.dirtyCarefulBm,
                                 &pc.unitTestStamp,
                                 &pc.obsoleteCarefulBm,
                                 &pc.unitTestDirtyCarefulBm,
                                 &pc.carefulActive,
                                 &pc.shrPcState};
  EXPECT_TRUE(std::is_sorted(std::begin(members), std::end(members)));
}

TEST_F(RootsTest, TheSetUpForUnitTestsTracksOnTheContextsOwnMembers) {
  OwnerStatsSType stats{};
  OwnerSType owner{&stats};
  PageCacheSType pc{};
  pc.owner = &owner;
  BmInitTreeRoots(&pc);
  pc.initForUnitTest();
  EXPECT_EQ(pc.carefulActive, 1);
  EXPECT_EQ(pc.unitTestStamp, 1u);
  EXPECT_EQ(pc.carefulStamp, &pc.unitTestStamp);
  EXPECT_EQ(pc.dirtyCarefulBm, &pc.unitTestDirtyCarefulBm);
  EXPECT_EQ(pc.obsoleteCarefulBm.root, 0u);
  EXPECT_EQ(pc.obsoleteCarefulBm.treeKind, BM_HEAP_TREE);
  EXPECT_EQ(pc.obsoleteCarefulBm.allocTag, 1887);
  EXPECT_EQ(pc.unitTestDirtyCarefulBm.root, 0u);
  EXPECT_EQ(pc.unitTestDirtyCarefulBm.treeKind, BM_HEAP_TREE);
  EXPECT_EQ(pc.unitTestDirtyCarefulBm.allocTag, 1889);
}

}  // namespace
