// Stores against a model, over commits, aborts and reopenings.
#include "memorypagestore.h"
#include "storefixture.h"

namespace bmtree::test {
namespace {

class ModelTest : public StoreTest {};

TEST_F(ModelTest, CommitsSurviveReopeningAndAbortsLeaveNoTrace) {
  Store store = make({.memoryLimit = 0});
  RandomChanges changes(testSeed());
  Model committed;
  for (int i = 0; i < 60 && !HasFailure(); ++i) {
    Model model = committed;
    {
      Writer writer = store.beginWrite();
      for (uint64_t steps = changes.below(12); steps > 0; --steps) changes.step(writer, model);
      expectEqual(writer, model);
      if (changes.below(4) != 0) {
        writer.commit();
        committed = std::move(model);
      }
    }
    if (changes.below(4) == 0) {
      { const Store closed = std::move(store); }
      store = reopen();
    }
    Reader reader = store.beginRead();
    expectEqual(reader, committed);
  }
  expectSound(store);
}

TEST_F(ModelTest, APageStoreThatKeepsPagesOnlyAsLongAsItMustServesAsWell) {
  MemoryPageStore::State state;
  Store store = Store::over(std::make_unique<MemoryPageStore>(state));
  RandomChanges changes(testSeed());
  Model committed;
  for (int i = 0; i < 30 && !HasFailure(); ++i) {
    Model model = committed;
    Writer writer = store.beginWrite();
    for (uint64_t steps = changes.below(12); steps > 0; --steps) changes.step(writer, model);
    writer.commit();
    committed = std::move(model);
    Reader reader = store.beginRead();
    expectEqual(reader, committed);
  }
  expectSound(store);
}

TEST_F(ModelTest, ACompactedStoreHoldsTheSameAndNothingElse) {
  Store store = make();
  RandomChanges changes(testSeed());
  Model model;
  for (int i = 0; i < 10; ++i) {
    Writer writer = store.beginWrite();
    for (int step = 0; step < 10; ++step) changes.step(writer, model);
    writer.commit();
  }
  store.compactTo(path("compact"));
  Store compact = Store::open(path("compact"));
  Reader reader = compact.beginRead();
  expectEqual(reader, model);
  expectSound(compact);
  EXPECT_LE(compact.info().nextPageId, store.info().nextPageId);
  expectError(StoreErrorCode::fileExists, [&] { store.compactTo(path("compact")); });
}

}  // namespace
}  // namespace bmtree::test
