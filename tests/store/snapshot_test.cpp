// Readers beside a writer, in threads and in processes.
#include <atomic>
#include <thread>

#include "childprocess.h"
#include "storefixture.h"

namespace bmtree::test {
namespace {

constexpr uint64_t span = 130752;

class SnapshotTest : public StoreTest {};

// Commit n leaves, besides other things, exactly n + 1 numbers in the tree "even" and the same in "odd", one above
// each of the others: any mixture of two commits is seen.
void commitStep(Store& store, uint64_t n) {
  Writer writer = store.beginWrite();
  Tree even = writer.treeOrNew("even");
  Tree odd = writer.treeOrNew("odd");
  const uint64_t number = (n * 7919 % 5000) * 2 + n % 3 * 50 * span;
  even.set(number);
  odd.set(number + 1);
  Tree bulk = writer.treeOrNew("bulk");
  bulk.clearAll();
  bulk.setRange(n * 10, n * 10 + 3 * span);
  writer.commit();
}

// True if the snapshot is what one commit left.
bool isWhole(const Store& store) {
  Reader reader = store.beginRead();
  if (!reader.contains("even")) return reader.names().empty();
  const auto even = numbersOf(reader.tree("even"), 97);
  const auto odd = numbersOf(reader.tree("odd"), 61);
  const Tree bulk = reader.tree("bulk");
  if (even.size() != odd.size() || bulk.count() != 3 * span + 1) return false;
  for (size_t i = 0; i < even.size(); ++i) {
    if (odd[i] != even[i] + 1 || !reader.tree("even").test(even[i])) return false;
  }
  return bulk.last().value() - bulk.first().value() == 3 * span;
}

TEST_F(SnapshotTest, AReaderKeepsSeeingTheCommitItBeganWith) {
  Store store = make();
  commitStep(store, 0);
  Reader reader = store.beginRead();
  const Tree bulk = reader.tree("bulk");
  for (uint64_t n = 1; n < 30; ++n) {
    commitStep(store, n);
    EXPECT_EQ(bulk.first(), 0u);
    EXPECT_EQ(numbersOf(reader.tree("even")).size(), 1u);
  }
  EXPECT_EQ(bulk.count(), 3 * span + 1);
  EXPECT_EQ(store.beginRead().tree("even").count(), 30u);
}

TEST_F(SnapshotTest, ThreadsSeeWholeCommitsBesideAWriter) {
  Store store = make();
  std::atomic<bool> stop = false;
  std::atomic<int> broken = 0;
  std::atomic<int> looked = 0;
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        if (!isWhole(store)) ++broken;
        ++looked;
      }
    });
  }
  for (uint64_t n = 0; n < 150; ++n) commitStep(store, n);
  while (looked < 10) std::this_thread::yield();
  stop = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(broken, 0);
  expectSound(store);
}

TEST_F(SnapshotTest, ProcessesSeeWholeCommitsBesideAWriter) {
  { make(); }
  std::vector<std::unique_ptr<ChildProcess>> readers;
  Pipe stop;
  for (int i = 0; i < 2; ++i) {
    readers.push_back(std::make_unique<ChildProcess>([&] {
      const Store store = reopen(OpenMode::readOnly);
      for (int look = 0; look < 40; ++look) {
        if (!isWhole(store)) return 1;
      }
      return 0;
    }));
  }
  Store store = reopen();
  for (uint64_t n = 0; n < 150; ++n) commitStep(store, n);
  for (const auto& reader : readers) EXPECT_EQ(reader->wait(), 0);
}

TEST_F(SnapshotTest, ReadersGoOnWhileTheStoreIsCompacted) {
  Store store = make();
  for (uint64_t n = 0; n < 20; ++n) commitStep(store, n);
  std::atomic<bool> stop = false;
  std::atomic<int> broken = 0;
  std::thread reader([&] {
    while (!stop) {
      if (!isWhole(store)) ++broken;
    }
  });
  std::thread writer([&] {
    for (uint64_t n = 20; n < 40; ++n) commitStep(store, n);
  });
  for (int i = 0; i < 5; ++i) {
    const auto target = path("compact" + std::to_string(i));
    store.compactTo(target);
    const Store compact = Store::open(target, {.mode = OpenMode::readOnly});
    EXPECT_TRUE(isWhole(compact));
  }
  writer.join();
  stop = true;
  reader.join();
  EXPECT_EQ(broken, 0);
}

TEST_F(SnapshotTest, TooManyReadersAreRefusedAndOneFewerIsEnough) {
  Store store = make({.maxReaders = 4});
  std::vector<Reader> readers;
  expectError(StoreErrorCode::tooManyReaders, [&] {
    for (int i = 0; i < 20; ++i) readers.push_back(store.beginRead());
  });
  readers.pop_back();
  readers.push_back(store.beginRead());
}

}  // namespace
}  // namespace bmtree::test
