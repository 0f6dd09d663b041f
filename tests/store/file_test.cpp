// Files that are not there, not stores, not writable or damaged, and who may have them open.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>

#include "childprocess.h"
#include "storefixture.h"

namespace bmtree::test {
namespace {

class FileTest : public StoreTest {
 protected:
  void writeFile(const std::string& name, const std::string& text) { std::ofstream(path(name)) << text; }

  // A store with one tree of `spans` dense leaves and one of a few numbers.
  void makeFilled(uint64_t spans = 40) {
    Store store = make();
    Writer writer = store.beginWrite();
    writer.create("dense").setRange(0, spans * 130752 - 1);
    writer.create("few").set(std::vector<uint64_t>{1, 1000, 1000000});
    writer.commit();
  }

  // Requires these files, given in ascending order, and no others beside the store.
  void expectFiles(const std::vector<std::string>& wanted) const {
    std::vector<std::string> present;
    for (const auto& entry : std::filesystem::directory_iterator(path().parent_path())) {
      present.push_back(entry.path().filename());
    }
    std::sort(present.begin(), present.end());
    EXPECT_EQ(present, wanted);
  }

  // Writes `value` under `key` in the LMDB file of the store, behind its back; or takes the value away.
  void putRaw(uint64_t key, const std::string* value);

  // Flips one bit of the file.
  void flip(uint64_t byte, int bit) {
    std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(static_cast<std::streamoff>(byte));
    const char flipped = static_cast<char>(file.get() ^ 1 << bit);
    file.seekp(static_cast<std::streamoff>(byte));
    file.put(flipped);
  }

  // Where in the file each page of 16 KiB of the store begins, by id: found by the id in its header.
  std::map<uint64_t, uint64_t> pageOffsets() const;
};

void FileTest::putRaw(uint64_t key, const std::string* value) {
  MDB_env* env = nullptr;
  MDB_txn* txn = nullptr;
  MDB_dbi dbi = 0;
  std::array<unsigned char, 8> keyBytes{};
  for (size_t i = 8; i-- > 0; key >>= 8) keyBytes[i] = static_cast<unsigned char>(key);
  MDB_val keyValue{keyBytes.size(), keyBytes.data()};
  ASSERT_EQ(mdb_env_create(&env), 0);
  ASSERT_EQ(mdb_env_set_mapsize(env, size_t{1} << 30), 0);
  ASSERT_EQ(mdb_env_open(env, path().c_str(), MDB_NOSUBDIR, 0644), 0);
  ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn), 0);
  ASSERT_EQ(mdb_dbi_open(txn, nullptr, 0, &dbi), 0);
  if (value != nullptr) {
    std::string copy = *value;
    MDB_val valueBytes{copy.size(), copy.data()};
    ASSERT_EQ(mdb_put(txn, dbi, &keyValue, &valueBytes, 0), 0);
  } else {
    ASSERT_EQ(mdb_del(txn, dbi, &keyValue, nullptr), 0);
  }
  ASSERT_EQ(mdb_txn_commit(txn), 0);
  mdb_env_close(env);
}

std::map<uint64_t, uint64_t> FileTest::pageOffsets() const {
  std::ifstream file(path(), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::map<uint64_t, uint64_t> offsets;
  for (uint64_t at = 16; at + 16384 <= bytes.size(); at += 4096) {  // values stand behind a head of 16 bytes
    const auto kind = static_cast<unsigned char>(bytes[at]);
    uint64_t id = 0;
    std::memcpy(&id, bytes.data() + at + 8, sizeof id);
    if ((kind == 7 || kind == 8 || kind == 12) && bytes[at + 1] == 0 && id >= 4 && id < 10000) offsets[id] = at;
  }
  return offsets;
}

TEST_F(FileTest, AMissingFileIsMissingUnlessItIsToBeMade) {
  expectError(StoreErrorCode::missingFile, [&] { reopen(); });
  expectError(StoreErrorCode::missingFile, [&] { reopen(OpenMode::readOnly); });
  EXPECT_FALSE(std::filesystem::exists(path()));
  EXPECT_FALSE(std::filesystem::exists(path("store-lock")));
  make();
  EXPECT_TRUE(std::filesystem::exists(path()));
  expectError(StoreErrorCode::missingFile,
              [&] { Store::open(path("no/such/directory"), {.mode = OpenMode::create}); });
}

TEST_F(FileTest, AForeignFileIsRefusedAndLeftAsItIs) {
  const std::string text(5000, 'x');
  writeFile("store", text);
  for (const OpenMode mode : {OpenMode::readOnly, OpenMode::readWrite, OpenMode::create}) {
    expectError(StoreErrorCode::foreignFile, [&] { reopen(mode); });
  }
  std::ifstream file(path());
  EXPECT_EQ(std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>()), text);
  EXPECT_FALSE(std::filesystem::exists(path("store-lock")));
  writeFile("store", "");
  expectError(StoreErrorCode::foreignFile, [&] { reopen(); });
}

TEST_F(FileTest, AnLmdbFileOfSomethingElseIsForeign) {
  make();
  const std::string value = "something";
  putRaw(99, &value);
  putRaw(0, nullptr);
  for (const OpenMode mode : {OpenMode::readOnly, OpenMode::readWrite, OpenMode::create}) {
    expectError(StoreErrorCode::foreignFile, [&] { reopen(mode); });
  }
}

TEST_F(FileTest, AStoreOfANewerFormatIsToldFromAForeignOne) {
  make();
  std::string catalogue(8, '\0');
  catalogue += "bmtree-s";
  for (const uint32_t word : {2u, 0x01020304u}) catalogue.append(reinterpret_cast<const char*>(&word), sizeof word);
  catalogue += "whatever a later version puts here";
  putRaw(0, &catalogue);
  expectError(StoreErrorCode::newerFormat, [&] { reopen(); });
}

TEST_F(FileTest, ADamagedCatalogueIsReported) {
  makeFilled(1);
  std::ifstream file(path(), std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  file.close();
  size_t found = 0;
  for (size_t at = bytes.find("bmtree-s"); at != std::string::npos; at = bytes.find("bmtree-s", at + 1), ++found) {
    flip(at + 30, 3);
  }
  ASSERT_GT(found, 0u);
  expectError(StoreErrorCode::damaged, [&] { reopen(); });
}

TEST_F(FileTest, AFileThatWasCutOffIsReported) {
  makeFilled();
  std::filesystem::resize_file(path(), std::filesystem::file_size(path()) / 2);
  expectError(StoreErrorCode::damaged, [&] { reopen(); });
  expectError(StoreErrorCode::damaged, [&] { reopen(OpenMode::readOnly); });
}

TEST_F(FileTest, AnUnwrittenTailIsAppendedByWhoMayWriteAndLeftAloneByWhoMayNot) {
  makeFilled();
  constexpr uint64_t cut = uint64_t{3} * 4096;
  const uint64_t whole = std::filesystem::file_size(path());
  std::filesystem::resize_file(path(), whole - cut);
  reopen(OpenMode::readOnly);
  EXPECT_EQ(std::filesystem::file_size(path()), whole - cut);
  reopen();
  EXPECT_EQ(std::filesystem::file_size(path()), whole);
  std::filesystem::resize_file(path(), whole + 4096);  // as another process leaves it that has just made it longer
  reopen();
  EXPECT_EQ(std::filesystem::file_size(path()), whole + 4096);
}

TEST_F(FileTest, AReadOnlyStoreRefusesAWriterAndServesReaders) {
  makeFilled(1);
  Store store = reopen(OpenMode::readOnly);
  expectError(StoreErrorCode::readOnly, [&] { store.beginWrite(); });
  EXPECT_EQ(store.beginRead().tree("few").count(), 3u);
}

TEST_F(FileTest, AFileWithoutWritePermissionIsReadOnly) {
  makeFilled(1);
  ASSERT_EQ(::chmod(path().c_str(), 0444), 0);
  ASSERT_EQ(::chmod(path("store-lock").c_str(), 0666), 0);
  ASSERT_EQ(::chmod(path().parent_path().c_str(), 0755), 0);
  EXPECT_EQ(inChild([&] {
              if (::getuid() == 0 && ::setuid(65534) != 0) return 2;
              try {
                reopen();
              } catch (const StoreError& error) {
                if (error.code() != StoreErrorCode::readOnly) return 3;
                return reopen(OpenMode::readOnly).beginRead().tree("few").count() == 3 ? 0 : 4;
              }
              return 5;
            }),
            0);
}

TEST_F(FileTest, ASecondWriterIsRefusedAtOnceInTheSameAndInAnotherProcess) {
  { make(); }
  Pipe ready;
  Pipe finish;
  const ChildProcess child([&] {
    Store store = reopen();
    Writer writer = store.beginWrite();
    ready.send();
    finish.wait();
    return 0;
  });
  ready.wait();
  Store store = reopen();
  expectError(StoreErrorCode::writerActive, [&] { store.beginWrite(); });
  finish.send();
  EXPECT_EQ(child.wait(), 0);
  Writer writer = store.beginWrite();
  expectError(StoreErrorCode::writerActive, [&] { store.beginWrite(); });
  writer.abort();
  store.beginWrite().commit();
}

TEST_F(FileTest, OneProcessOpensAFileOnce) {
  Store store = make();
  expectError(StoreErrorCode::alreadyOpen, [&] { reopen(); });
  Store other = Store::open(path("another"), {.mode = OpenMode::create});
  other.beginWrite().create("here").set(1);
  EXPECT_TRUE(store.beginRead().names().empty());
}

TEST_F(FileTest, TwoStoresOfOneProcessKeepApart) {
  Store one = make();
  Store two = Store::open(path("another"), {.mode = OpenMode::create});
  Model ofOne, ofTwo;
  for (uint64_t round = 0; round < 20; ++round) {
    Writer writerOfOne = one.beginWrite();
    Writer writerOfTwo = two.beginWrite();
    if (round == 0) {
      writerOfOne.create("tree");
      writerOfTwo.create("tree");
    }
    for (uint64_t i = 0; i < 200; ++i) {  // by turns, so that each meets what the other has just used
      const uint64_t number = round * 100'000 + i * 700;
      writerOfOne.tree("tree").set(number);
      writerOfTwo.tree("tree").set(number + 1);
      ofOne["tree"].insert(number);
      ofTwo["tree"].insert(number + 1);
    }
    const Reader before = one.beginRead();
    writerOfTwo.commit();
    writerOfOne.commit();
    EXPECT_EQ(before.contains("tree"), round > 0);
    Reader readerOfOne = one.beginRead();
    Reader readerOfTwo = two.beginRead();
    expectEqual(readerOfOne, ofOne);
    expectEqual(readerOfTwo, ofTwo);
  }
  expectSound(one);
  expectSound(two);
}

TEST_F(FileTest, EveryFlippedBitOfAStoredPageIsFoundAndItsPageNotUsed) {
  makeFilled();
  const auto offsets = pageOffsets();
  ASSERT_GE(offsets.size(), 42u);
  std::mt19937_64 random(testSeed());
  for (int round = 0; round < 30; ++round) {
    auto page = offsets.begin();
    std::advance(page, random() % offsets.size());
    const uint64_t byte = page->second + (round % 3 == 0 ? random() % 40 : random() % 16384);
    const int bit = static_cast<int>(random() % 8);
    flip(byte, bit);
    {
      const Store store = reopen(OpenMode::readOnly);
      const VerifyReport report = store.verify();
      ASSERT_FALSE(report.sound());
      EXPECT_EQ(report.findings[0].kind, Finding::Kind::page);
      EXPECT_EQ(report.findings[0].pageId, page->first);
      Reader reader = store.beginRead();
      try {
        reader.tree("few").equals(reader.tree("dense"));
        numbersOf(reader.tree("few"));
        numbersOf(reader.tree("dense"));
        ADD_FAILURE() << "page " << page->first << " was used";
      } catch (const StoreError& error) {
        EXPECT_EQ(error.code(), StoreErrorCode::damaged);
        EXPECT_EQ(error.pageId(), page->first);
      }
    }
    flip(byte, bit);
  }
  expectSound(reopen());
}

TEST_F(FileTest, ADamagedPageStopsOnlyWhatNeedsIt) {
  makeFilled();
  const auto offsets = pageOffsets();
  uint64_t fewPage = 0;
  {
    const Store store = reopen(OpenMode::readOnly);
    store.beginRead().tree("few").forEachLeaf([&](const LeafInfo& leaf) { fewPage = leaf.pageId; });
  }
  flip(offsets.at(fewPage) + 100, 0);
  Store store = reopen();
  Writer writer = store.beginWrite();
  expectError(StoreErrorCode::damaged, [&] { writer.tree("few").test(1); });
  writer.tree("dense").clear(5);
  writer.commit();
  Writer second = store.beginWrite();
  expectError(StoreErrorCode::damaged, [&] { second.tree("few").set(2); });
  expectError(StoreErrorCode::closed, [&] { second.commit(); });
  second.abort();
  EXPECT_EQ(store.beginRead().tree("dense").count(), 40 * 130752 - 1);
  expectError(StoreErrorCode::damaged, [&] { store.compactTo(path("compact")); });
  expectFiles({"store", "store-lock"});
}

TEST_F(FileTest, ACompactedStoreAppearsWhenItIsCompleteAndReplacesNothing) {
  makeFilled();
  const Store store = reopen();
  bool early = false;
  store.compactTo(path("compact"),
                  [&](uint64_t, uint64_t) { early = early || std::filesystem::exists(path("compact")); });
  EXPECT_FALSE(early);
  expectFiles({"compact", "store", "store-lock"});
  expectError(StoreErrorCode::fileExists, [&] { store.compactTo(path("compact")); });
  expectError(StoreErrorCode::fileExists, [&] {  // one that somebody else makes meanwhile
    store.compactTo(path("taken"), [&](uint64_t, uint64_t) { writeFile("taken", "something"); });
  });
  EXPECT_EQ(std::filesystem::file_size(path("taken")), 9u);
  expectFiles({"compact", "store", "store-lock", "taken"});
  const Store compact = Store::open(path("compact"));
  EXPECT_EQ(compact.beginRead().tree("dense").count(), 40 * 130752);
  expectSound(compact);
}

TEST_F(FileTest, ATreeWithADamagedPageCanBeRemovedAndOnlyWhatStoodBelowThePageIsLeftOver) {
  makeFilled();
  const auto offsets = pageOffsets();
  std::set<uint64_t> innerPages;
  for (const auto& [id, offset] : offsets) innerPages.insert(id);
  uint64_t fewPage = 0;
  uint64_t denseLeaves = 0;
  {
    const Store store = reopen(OpenMode::readOnly);
    Reader reader = store.beginRead();
    reader.tree("few").forEachLeaf([&](const LeafInfo& leaf) { fewPage = leaf.pageId; });
    reader.tree("dense").forEachLeaf([&](const LeafInfo& leaf) { denseLeaves += innerPages.erase(leaf.pageId); });
  }
  innerPages.erase(fewPage);
  ASSERT_EQ(innerPages.size(), 1u);
  flip(offsets.at(fewPage) + 100, 0);
  flip(offsets.at(*innerPages.begin()) + 100, 0);
  Store store = reopen();
  Writer writer = store.beginWrite();
  writer.remove("few");
  writer.remove("dense");
  writer.create("new").set(5);
  writer.commit();
  const VerifyReport report = store.verify();
  EXPECT_EQ(report.faults, denseLeaves);
  for (const Finding& finding : report.findings) EXPECT_EQ(finding.kind, Finding::Kind::leaked);
  EXPECT_EQ(store.beginRead().names(), (std::vector<std::string>{"new"}));
  store.compactTo(path("compact"));
  expectSound(Store::open(path("compact")));
}

TEST_F(FileTest, LeakedAndLostPagesAreFound) {
  makeFilled(3);
  const std::string page(16384, '\0');
  uint64_t next = 0;
  {
    Store store = reopen();
    next = store.info().nextPageId;
    Writer writer = store.beginWrite();
    writer.tree("few").set(5);
    writer.commit();
  }
  putRaw(next - 1, &page);  // an id that was given up
  {
    const VerifyReport report = reopen().verify();
    ASSERT_EQ(report.faults, 2u);
    EXPECT_EQ(report.findings[0].kind, Finding::Kind::page);
    EXPECT_EQ(report.findings[1].kind, Finding::Kind::leaked);
    EXPECT_EQ(report.findings[1].pageId, next - 1);
  }
  putRaw(next - 1, nullptr);
  putRaw(next, nullptr);  // the page that took its place
  const VerifyReport report = reopen().verify();
  bool lost = false;
  for (const Finding& finding : report.findings) {
    lost = lost || (finding.kind == Finding::Kind::lost && finding.pageId == next);
  }
  EXPECT_TRUE(lost);
}

TEST_F(FileTest, PagesOfACommitThatWasCutOffAreNoFaultAndGoWithTheNextWriter) {
  makeFilled(3);
  const std::string page(16384, '\0');
  const uint64_t next = reopen().info().nextPageId;
  for (uint64_t id = next; id < next + 100; ++id) putRaw(id, &page);
  Store store = reopen();
  EXPECT_EQ(store.verify().uncommittedPages, 100u);
  expectSound(store);
  store.beginWrite().abort();
  EXPECT_EQ(store.verify().uncommittedPages, 0u);
  expectSound(store);
}

}  // namespace
}  // namespace bmtree::test
