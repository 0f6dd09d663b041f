// A bitmap for each range of 65,536 numbers.
#include <array>
#include <bit>
#include <cstring>
#include <utility>
#include <vector>

#include "keyvalue.h"

namespace {

constexpr uint64_t rangeBits = 16;
constexpr size_t rangeWords = 1024;

uint64_t rangeOf(uint64_t number) { return number >> rangeBits; }
size_t wordOf(uint64_t number) { return number >> 6 & (rangeWords - 1); }
uint64_t maskOf(uint64_t number) { return uint64_t{1} << (number & 63); }

// A stored bitmap: the index of its first word, and the words from there to the last one that is not 0. In the store
// they may stand at any address.
class Blob {
 public:
  explicit Blob(KeyValueStore::Value value) : value_(value) { std::memcpy(&firstWord_, value.data(), 2); }

  size_t begin() const { return firstWord_; }
  size_t end() const { return firstWord_ + (value_.size() - 2) / 8; }

  uint64_t word(size_t index) const {
    uint64_t word = 0;
    std::memcpy(&word, value_.data() + 2 + (index - firstWord_) * 8, 8);
    return word;
  }

  bool holds(uint64_t number) const {
    const size_t index = wordOf(number);
    return index >= begin() && index < end() && (word(index) & maskOf(number)) != 0;
  }

  uint64_t count() const {
    uint64_t count = 0;
    for (size_t i = begin(); i < end(); ++i) count += static_cast<uint64_t>(std::popcount(word(i)));
    return count;
  }

 private:
  KeyValueStore::Value value_;
  uint16_t firstWord_;
};

// A whole range in memory.
class Bitmap {
 public:
  void clear() { words_.fill(0); }
  uint64_t& word(uint64_t number) { return words_[wordOf(number)]; }

  void add(const Blob& blob) {
    for (size_t i = blob.begin(); i < blob.end(); ++i) words_[i] |= blob.word(i);
  }

  // Its stored form, valid until the next call; empty if the range is.
  KeyValueStore::Value stored() {
    size_t first = 0;
    size_t end = rangeWords;
    while (first < end && words_[first] == 0) ++first;
    while (end > first && words_[end - 1] == 0) --end;
    if (first == end) return {};
    const auto firstWord = static_cast<uint16_t>(first);
    std::memcpy(bytes_.data(), &firstWord, 2);
    std::memcpy(bytes_.data() + 2, words_.data() + first, (end - first) * 8);
    return {bytes_.data(), 2 + (end - first) * 8};
  }

 private:
  std::array<uint64_t, rangeWords> words_{};
  std::array<char, 2 + rangeWords * 8> bytes_;
};

class BlobSet final : public NumberSet {
 public:
  explicit BlobSet(std::unique_ptr<KeyValueStore> store) : store_(std::move(store)) {}

  void loadSorted(std::span<const uint64_t> numbers) override {
    store_->beginLoad();
    Bitmap bitmap;
    for (size_t i = 0; i < numbers.size();) {
      const uint64_t range = rangeOf(numbers[i]);
      bitmap.clear();
      for (; i < numbers.size() && rangeOf(numbers[i]) == range; ++i) bitmap.word(numbers[i]) |= maskOf(numbers[i]);
      store_->append(range, bitmap.stored());
    }
    store_->endLoad();
  }

  uint64_t countPresent(std::span<const uint64_t> probes) const override {
    uint64_t present = 0;
    for (uint64_t probe : probes) {
      const auto value = store_->get(rangeOf(probe));
      present += value && Blob(*value).holds(probe) ? 1 : 0;
    }
    return present;
  }

  uint64_t insertEach(std::span<const uint64_t> numbers) override {
    return changeEach(numbers, [](uint64_t& word, uint64_t mask) { return word |= mask; });
  }

  uint64_t eraseEach(std::span<const uint64_t> numbers) override {
    return changeEach(numbers, [](uint64_t& word, uint64_t mask) { return word &= ~mask; });
  }

  uint64_t size() const override {
    uint64_t count = 0;
    store_->scan([&](uint64_t, KeyValueStore::Value value) { count += Blob(value).count(); });
    return count;
  }

  uint64_t toArray(uint64_t* out) const override {
    const uint64_t* const begin = out;
    store_->scan([&out](uint64_t range, KeyValueStore::Value value) {
      const Blob blob(value);
      for (size_t i = blob.begin(); i < blob.end(); ++i) {
        const uint64_t base = (range << rangeBits) + i * 64;
        for (uint64_t word = blob.word(i); word != 0; word &= word - 1) {
          *out++ = base + static_cast<uint64_t>(std::countr_zero(word));
        }
      }
    });
    return static_cast<uint64_t>(out - begin);
  }

  void assignUnion(const NumberSet& a, const NumberSet& b) override {
    const std::vector<Entry> left = entriesOf(a);
    const std::vector<Entry> right = entriesOf(b);
    store_->beginLoad();
    Bitmap bitmap;
    for (auto x = left.begin(), y = right.begin(); x != left.end() || y != right.end();) {
      const bool takeX = x != left.end() && (y == right.end() || x->first <= y->first);
      const bool takeY = y != right.end() && (x == left.end() || y->first <= x->first);
      const uint64_t range = takeX ? x->first : y->first;
      bitmap.clear();
      if (takeX) bitmap.add(Blob((x++)->second));
      if (takeY) bitmap.add(Blob((y++)->second));
      store_->append(range, bitmap.stored());
    }
    store_->endLoad();
  }

  uint64_t intersectionSize(const NumberSet& other) const override {
    const std::vector<Entry> those = entriesOf(other);
    auto position = those.begin();
    uint64_t common = 0;
    store_->scan([&](uint64_t range, KeyValueStore::Value value) {
      while (position != those.end() && position->first < range) ++position;
      if (position == those.end() || position->first != range) return;
      const Blob a(value);
      const Blob b(position->second);
      for (size_t i = std::max(a.begin(), b.begin()); i < std::min(a.end(), b.end()); ++i) {
        common += static_cast<uint64_t>(std::popcount(a.word(i) & b.word(i)));
      }
    });
    return common;
  }

  uint64_t bytesOnDisk() const override { return store_->bytesOnDisk(); }

 private:
  using Entry = std::pair<uint64_t, std::vector<char>>;

  static std::vector<Entry> entriesOf(const NumberSet& set) {
    std::vector<Entry> entries;
    static_cast<const BlobSet&>(set).store_->scan([&](uint64_t range, KeyValueStore::Value value) {
      entries.emplace_back(range, std::vector<char>(value.begin(), value.end()));
    });
    return entries;
  }

  // Reads the range of each number, changes its word and writes it back. Returns how many words changed.
  template <class Change>
  uint64_t changeEach(std::span<const uint64_t> numbers, Change change) {
    uint64_t changed = 0;
    Bitmap bitmap;
    store_->begin();
    for (uint64_t number : numbers) {
      bitmap.clear();
      if (const auto value = store_->get(rangeOf(number))) bitmap.add(Blob(*value));
      uint64_t& word = bitmap.word(number);
      const uint64_t before = word;
      if (change(word, maskOf(number)) == before) continue;
      ++changed;
      const KeyValueStore::Value stored = bitmap.stored();
      if (stored.empty()) {
        store_->erase(rangeOf(number));
      } else {
        store_->put(rangeOf(number), stored);
      }
    }
    store_->commit();
    return changed;
  }

  std::unique_ptr<KeyValueStore> store_;
};

}  // namespace

std::unique_ptr<NumberSet> makeBlobSet(const MakeStore& makeStore) { return std::make_unique<BlobSet>(makeStore()); }
