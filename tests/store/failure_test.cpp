// Disks that are full and reads that fail, by way of a page store that is told to fail.
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "childprocess.h"
#include "memorypagestore.h"
#include "storefixture.h"

namespace bmtree::test {
namespace {

constexpr uint64_t span = 130752;
constexpr uint64_t keptNumbers = 12 * span;

class FailureTest : public StoreTest {
 protected:
  FailureTest() : store_(Store::over(std::make_unique<MemoryPageStore>(state_))) {
    Writer writer = store_.beginWrite();
    writer.create("kept").setRange(0, keptNumbers - 1);
    writer.commit();
  }

  void expectOnlyTheKept() {
    Reader reader = store_.beginRead();
    EXPECT_EQ(reader.names(), (std::vector<std::string>{"kept"}));
    EXPECT_EQ(reader.tree("kept").count(), keptNumbers);
  }

  MemoryPageStore::State state_;
  Store store_;
};

TEST_F(FailureTest, ACommitThatFindsTheDiskFullStoresNothingAndCanBeTriedAgain) {
  for (long puts = 0; puts < 12; puts += 3) {
    Writer writer = store_.beginWrite();
    writer.tree("kept").clear(7 * span);
    writer.create("new").setRange(0, 10 * span);
    state_.putsUntilFailure = puts;
    expectError(StoreErrorCode::full, [&] { writer.commit(); });
    expectOnlyTheKept();
    writer.abort();
  }
  Writer writer = store_.beginWrite();
  writer.create("new").setRange(0, 10 * span);
  state_.putsUntilFailure = 3;
  expectError(StoreErrorCode::full, [&] { writer.commit(); });
  writer.tree("new").set(20 * span);
  state_.putsUntilFailure = -1;
  writer.commit();
  EXPECT_EQ(store_.beginRead().tree("new").count(), 10 * span + 2);
  expectSound(store_);
}

// The only file that this process has open under `directory`, which is one without a name.
std::filesystem::path openFileIn(const std::filesystem::path& directory) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    const std::string target = std::filesystem::read_symlink(entry, ignored).string();
    if (target.starts_with(directory.string() + "/")) return entry.path();
  }
  return {};
}

TEST_F(FailureTest, ACommitThatCannotReadItsSpilledPagesHoldsNothingAndCanBeTriedAgain) {
  const auto directory = path("spill");
  std::filesystem::create_directory(directory);
  Store store =
      Store::over(std::make_unique<MemoryPageStore>(state_), {.memoryLimit = 0, .spillDirectory = directory});
  Writer writer = store.beginWrite();
  writer.create("new").setRange(0, 3000 * span - 1);
  const auto spilled = openFileIn(directory);
  ASSERT_FALSE(spilled.empty());
  const auto whole = path("whole");
  std::filesystem::copy_file(spilled, whole);
  std::filesystem::resize_file(spilled, std::filesystem::file_size(whole) / 2);
  const size_t before = state_.pages.size();
  expectError(StoreErrorCode::io, [&] { writer.commit(); });
  EXPECT_GT(state_.pages.size(), before);  // it failed between pages that were put
  EXPECT_FALSE(state_.putsUnderWay);
  expectOnlyTheKept();
  std::ofstream(spilled, std::ios::binary | std::ios::in) << std::ifstream(whole, std::ios::binary).rdbuf();
  writer.commit();
  EXPECT_EQ(store.beginRead().tree("new").count(), 3000 * span);
  expectSound(store);
}

TEST_F(FailureTest, ASwapThatFailsLeavesTheLastCommitAndGarbageThatTheNextWriterDrops) {
  state_.failure = StoreErrorCode::io;
  state_.swapFails = true;
  {
    Writer writer = store_.beginWrite();
    writer.create("new").setRange(0, 10 * span);
    expectError(StoreErrorCode::io, [&] { writer.commit(); });
  }
  state_.swapFails = false;
  expectOnlyTheKept();
  EXPECT_GT(store_.verify().uncommittedPages, 10u);
  expectSound(store_);
  store_.beginWrite().abort();
  EXPECT_EQ(store_.verify().uncommittedPages, 0u);
}

TEST_F(FailureTest, ACatalogueThatChangedUnderAWriterIsAConflict) {
  Writer writer = store_.beginWrite();
  writer.create("new").set(1);
  ++state_.catalogue.version;
  expectError(StoreErrorCode::conflict, [&] { writer.commit(); });
}

TEST_F(FailureTest, APageThatCannotBeReadIsReportedWithItsIdWhateverTheOperation) {
  std::vector<uint64_t> pages;
  for (const auto& [id, page] : state_.pages) pages.push_back(id);
  for (const uint64_t id : pages) {
    state_.unreadable = {id};
    Reader reader = store_.beginRead();
    const Tree tree = reader.tree("kept");
    try {
      numbersOf(tree, 100000);
      ADD_FAILURE() << "page " << id;
    } catch (const StoreError& error) {
      EXPECT_EQ(error.code(), StoreErrorCode::io);
      EXPECT_EQ(error.pageId(), id);
    }
    expectError(StoreErrorCode::io, [&] { tree.count(); });
    expectError(StoreErrorCode::io, [&] { tree.stats(); });
    Writer writer = store_.beginWrite();
    expectError(StoreErrorCode::io, [&] { writer.tree("kept").clearRange(0, keptNumbers); });
    expectError(StoreErrorCode::closed, [&] { writer.commit(); });
    writer.abort();
    Writer second = store_.beginWrite();
    expectError(StoreErrorCode::io, [&] { second.remove("kept"); });
  }
  state_.unreadable.clear();
  expectOnlyTheKept();
  expectSound(store_);
}

TEST_F(FailureTest, ACommitThatChangesNothingWritesNothing) {
  const uint64_t swaps = state_.swaps;
  Writer writer = store_.beginWrite();
  writer.tree("kept").set(5);
  writer.temporary().set(5);
  writer.abort();
  store_.beginWrite().commit();
  EXPECT_EQ(state_.swaps, swaps);
}

TEST_F(FailureTest, AFileThatMayNotGrowFailsAsAFullDiskAndTheLastCommitStands) {
  {
    Store store = make();
    Writer writer = store.beginWrite();
    writer.create("kept").setRange(0, 20 * span);
    writer.commit();
  }
  const int status = inChild([&] {
    const rlimit limit{4 << 20, 4 << 20};
    ::signal(SIGXFSZ, SIG_IGN);
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    Store store = reopen();
    Writer writer = store.beginWrite();
    writer.create("new").setRange(0, 500 * span);
    try {
      writer.commit();
    } catch (const StoreError& error) {
      return error.code() == StoreErrorCode::full || error.code() == StoreErrorCode::io ? 0 : 3;
    }
    return 4;
  });
  EXPECT_EQ(status, 0);
  const Store store = reopen();
  Reader reader = store.beginRead();
  EXPECT_EQ(reader.names(), (std::vector<std::string>{"kept"}));
  EXPECT_EQ(reader.tree("kept").count(), 20 * span + 1);
  expectSound(store);
}

TEST_F(FailureTest, ASpillFileThatCannotGrowFailsTheOperationAndTheLastCommitStands) {
  { make(); }
  const int status = inChild([&] {
    const rlimit limit{8 << 20, 8 << 20};
    ::signal(SIGXFSZ, SIG_IGN);
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    Store store = Store::open(path(), {.memoryLimit = 0});
    Writer writer = store.beginWrite();
    Tree tree = writer.create("new");
    try {
      for (uint64_t i = 0; i < 4000; i += 100) tree.setRange(i * span, (i + 100) * span - 1);
    } catch (const StoreError& error) {
      if (error.code() != StoreErrorCode::full) return 3;
      try {
        writer.commit();
      } catch (const StoreError& second) {
        return second.code() == StoreErrorCode::closed ? 0 : 5;
      }
    }
    return 4;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(reopen().beginRead().names().empty());
}

TEST_F(FailureTest, AMapThatIsTooSmallIsReportedAsFull) {
  Store store = make({.mapBytes = 1});
  Writer writer = store.beginWrite();
  writer.create("large").setRange(0, 5000 * span);
  expectError(StoreErrorCode::full, [&] { writer.commit(); });
  writer.abort();
  EXPECT_TRUE(store.beginRead().names().empty());
  Writer second = store.beginWrite();
  second.create("small").set(1);
  second.commit();
  expectSound(store);
}

}  // namespace
}  // namespace bmtree::test
