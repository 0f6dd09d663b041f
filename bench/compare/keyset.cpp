// A key for each number.
#include <algorithm>
#include <filesystem>

#include "keyvalue.h"

namespace fs = std::filesystem;

namespace {

class KeySet final : public NumberSet {
 public:
  explicit KeySet(std::unique_ptr<KeyValueStore> store) : store_(std::move(store)) {}

  void loadSorted(std::span<const uint64_t> numbers) override {
    store_->beginLoad();
    for (uint64_t number : numbers) store_->append(number, {});
    store_->endLoad();
  }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) present += store_->get(probe).has_value() ? 1 : 0;
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    uint64_t inserted = 0;
    store_->begin();
    for (uint64_t number : numbers) inserted += store_->insert(number) ? 1 : 0;
    store_->commit();
    return inserted;
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    uint64_t erased = 0;
    store_->begin();
    for (uint64_t number : numbers) erased += store_->erase(number) ? 1 : 0;
    store_->commit();
    return erased;
  }

  uint64_t size() const override { return store_->entries(); }

  uint64_t toArray(uint64_t* out) const override {
    const uint64_t* const begin = out;
    store_->scan([&out](uint64_t key, KeyValueStore::Value) { *out++ = key; });
    return static_cast<uint64_t>(out - begin);
  }

  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    const std::vector<uint64_t> left = arrayOf(a);
    const std::vector<uint64_t> right = arrayOf(b);
    std::vector<uint64_t> both;
    both.reserve(left.size() + right.size());
    std::set_union(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(both));
    loadSorted(both);
  }

  uint64_t intersectionSize(const NumberSet& other) const override {
    const std::vector<uint64_t> that = arrayOf(other);
    auto position = that.begin();
    uint64_t common = 0;
    store_->scan([&](uint64_t key, KeyValueStore::Value) {
      while (position != that.end() && *position < key) ++position;
      common += position != that.end() && *position == key ? 1 : 0;
    });
    return common;
  }

  uint64_t bytesOnDisk() const override { return store_->bytesOnDisk(); }

 private:
  static std::vector<uint64_t> arrayOf(const NumberSet& set) {
    std::vector<uint64_t> numbers;
    static_cast<const KeySet&>(set).store_->scan([&](uint64_t key, KeyValueStore::Value) { numbers.push_back(key); });
    return numbers;
  }

  std::unique_ptr<KeyValueStore> store_;
};

}  // namespace

std::unique_ptr<NumberSet> makeKeySet(const MakeStore& makeStore) { return std::make_unique<KeySet>(makeStore()); }

std::string newStoreName(const std::string& directory) {
  static int made = 0;
  return directory + "/store" + std::to_string(made++);
}

uint64_t bytesBelow(const std::string& path) {
  if (!fs::is_directory(path)) return fs::file_size(path);
  uint64_t bytes = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
    if (entry.is_regular_file()) bytes += entry.file_size();
  }
  return bytes;
}
