// The embedded store over this library: one file, a tree for each set.
#include <filesystem>

#include "competitors.h"
#include "store.h"

namespace {

using bmtree::Store;

// The store of all sets; the file is removed with it.
class SharedStore {
 public:
  explicit SharedStore(const std::string& directory)
      : path_(directory + "/sets.bmt"), store_(Store::open(path_, {.mode = bmtree::OpenMode::create})) {}
  SharedStore(const SharedStore&) = delete;
  SharedStore& operator=(const SharedStore&) = delete;

  Store& store() { return store_; }
  std::string newName() { return "set" + std::to_string(made_++); }

 private:
  std::string path_;
  Store store_;
  int made_ = 0;
};

class StoreSet final : public NumberSet {
 public:
  explicit StoreSet(std::shared_ptr<SharedStore> shared)
      : shared_(std::move(shared)), name_(shared_->newName()), bytesBefore_(bytesUsed()) {
    change([this](bmtree::Writer& writer) { writer.create(name_); });
  }

  ~StoreSet() override {
    change([this](bmtree::Writer& writer) { writer.remove(name_); });
  }

  void loadSorted(std::span<const uint64_t> numbers) override {
    change([&](bmtree::Writer& writer) { writer.tree(name_).set(numbers); });
  }

  void finishLoading() override { bytes_ = bytesUsed() - bytesBefore_; }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    const bmtree::Reader reader = shared_->store().beginRead();
    const bmtree::Tree tree = reader.tree(name_);
    uint64_t present = 0;
    for (uint64_t probe : probes) present += tree.test(probe) ? 1 : 0;
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    uint64_t inserted = 0;
    change([&](bmtree::Writer& writer) {
      bmtree::Tree tree = writer.tree(name_);
      for (uint64_t number : numbers) inserted += tree.set(number) ? 1 : 0;
    });
    return inserted;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    uint64_t erased = 0;
    change([&](bmtree::Writer& writer) {
      bmtree::Tree tree = writer.tree(name_);
      for (uint64_t number : numbers) erased += tree.clear(number) ? 1 : 0;
    });
    return erased;
  }

  uint64_t size() const override { return shared_->store().beginRead().tree(name_).count(); }

  uint64_t toArray(uint64_t* out) const override {
    constexpr size_t atOnce = 1 << 20;
    const bmtree::Reader reader = shared_->store().beginRead();
    bmtree::Cursor cursor = reader.tree(name_).numbers();
    const uint64_t* const begin = out;
    while (const size_t count = cursor.next({out, atOnce})) out += count;
    return static_cast<uint64_t>(out - begin);
  }

  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    change([&](bmtree::Writer& writer) {
      writer.tree(name_).assignUnion(writer.tree(nameOf(a)), writer.tree(nameOf(b)));
    });
  }

  uint64_t intersectionSize(const NumberSet& other) const override {
    const bmtree::Reader reader = shared_->store().beginRead();
    return reader.tree(name_).intersectionCount(reader.tree(nameOf(other)));
  }

  uint64_t bytesOnDisk() const override { return bytes_; }

 private:
  static const std::string& nameOf(const NumberSet& set) { return static_cast<const StoreSet&>(set).name_; }

  uint64_t bytesUsed() const { return shared_->store().info().bytesUsed; }

  // Does `work` in a writer and commits.
  template <class Work>
  void change(Work work) {
    bmtree::Writer writer = shared_->store().beginWrite();
    work(writer);
    writer.commit();
  }

  std::shared_ptr<SharedStore> shared_;
  std::string name_;
  uint64_t bytesBefore_;
  uint64_t bytes_ = 0;
};

}  // namespace

Competitor storeCompetitor(const std::string& directory) {
  const auto shared = std::make_shared<SharedStore>(directory);
  return {std::string(ourName) + " store", BENCH_PROJECT_VERSION,
          "a tree for each set, all in one file; commits are synchronous", true,
          [shared] { return std::make_unique<StoreSet>(shared); }};
}
