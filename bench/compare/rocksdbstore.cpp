// RocksDB.
#include <rocksdb/cache.h>
#include <rocksdb/db.h>
#include <rocksdb/filter_policy.h>
#include <rocksdb/sst_file_writer.h>
#include <rocksdb/table.h>
#include <rocksdb/utilities/write_batch_with_index.h>
#include <rocksdb/version.h>

#include <array>
#include <bit>
#include <cstring>
#include <filesystem>

#include "competitors.h"
#include "keyvalue.h"

namespace {

constexpr size_t blockCacheBytes = size_t{512} << 20;
constexpr double filterBitsPerKey = 10;

void check(const rocksdb::Status& status) {
  if (!status.ok()) giveUp("RocksDB: " + status.ToString());
}

// A number as a key: big-endian, so that keys compare as numbers.
class Key {
 public:
  explicit Key(uint64_t number) : bytes_(std::bit_cast<std::array<char, 8>>(__builtin_bswap64(number))) {}
  rocksdb::Slice slice() const { return {bytes_.data(), bytes_.size()}; }

  static uint64_t numberOf(const rocksdb::Slice& slice) {
    uint64_t number = 0;
    std::memcpy(&number, slice.data(), sizeof number);
    return __builtin_bswap64(number);
  }

 private:
  std::array<char, 8> bytes_;
};

rocksdb::Slice sliceOf(KeyValueStore::Value value) { return {value.data(), value.size()}; }

rocksdb::Options makeOptions() {
  static const std::shared_ptr<rocksdb::Cache> cache = rocksdb::NewLRUCache(blockCacheBytes);
  rocksdb::BlockBasedTableOptions table;
  table.block_cache = cache;
  table.filter_policy.reset(rocksdb::NewBloomFilterPolicy(filterBitsPerKey));
  rocksdb::Options options;
  options.create_if_missing = true;
  options.table_factory.reset(rocksdb::NewBlockBasedTableFactory(table));
  return options;
}

class RocksDbStore final : public KeyValueStore {
 public:
  explicit RocksDbStore(std::string path) : path_(std::move(path)) {
    rocksdb::DB* database = nullptr;
    check(rocksdb::DB::Open(options_, path_, &database));
    database_.reset(database);
  }

  ~RocksDbStore() override {
    database_.reset();
    std::filesystem::remove_all(path_);
    std::filesystem::remove(tableName());
  }

  void beginLoad() override {
    loader_ = std::make_unique<rocksdb::SstFileWriter>(rocksdb::EnvOptions(), options_);
    check(loader_->Open(tableName()));
  }

  void append(uint64_t key, Value value) override { check(loader_->Put(Key(key).slice(), sliceOf(value))); }

  void endLoad() override {
    const bool isEmpty = loader_->FileSize() == 0;
    if (!isEmpty) {
      check(loader_->Finish());
      rocksdb::IngestExternalFileOptions ingestion;
      ingestion.move_files = true;
      check(database_->IngestExternalFile({tableName()}, ingestion));
    }
    loader_.reset();
  }

  void begin() override { batch_ = std::make_unique<Batch>(rocksdb::BytewiseComparator(), 0, true); }

  void put(uint64_t key, Value value) override { check(batch_->Put(Key(key).slice(), sliceOf(value))); }

  bool insert(uint64_t key) override {
    if (get(key)) return false;
    put(key, {});
    return true;
  }

  bool erase(uint64_t key) override {
    if (!get(key)) return false;
    check(batch_->Delete(Key(key).slice()));
    return true;
  }

  void commit() override {
    rocksdb::WriteOptions options;
    options.sync = true;
    check(database_->Write(options, batch_->GetWriteBatch()));
    batch_.reset();
  }

  std::optional<Value> get(uint64_t key) override {
    value_.Reset();
    const rocksdb::Status status =
        batch_ != nullptr ? batch_->GetFromBatchAndDB(database_.get(), {}, database_->DefaultColumnFamily(),
                                                      Key(key).slice(), &value_)
                          : database_->Get({}, database_->DefaultColumnFamily(), Key(key).slice(), &value_);
    if (status.IsNotFound()) return std::nullopt;
    check(status);
    return Value(value_.data(), value_.size());
  }

  uint64_t entries() override {
    uint64_t count = 0;
    scan([&](uint64_t, Value) { ++count; });
    return count;
  }

  void scan(const std::function<void(uint64_t, Value)>& visit) override {
    const std::unique_ptr<rocksdb::Iterator> position(database_->NewIterator({}));
    for (position->SeekToFirst(); position->Valid(); position->Next()) {
      visit(Key::numberOf(position->key()), {position->value().data(), position->value().size()});
    }
    check(position->status());
  }

  uint64_t bytesOnDisk() override {
    uint64_t bytes = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      const std::string extension = entry.path().extension();
      if (extension == ".sst" || extension == ".log") bytes += entry.file_size();
    }
    return bytes;
  }

 private:
  using Batch = rocksdb::WriteBatchWithIndex;

  std::string tableName() const { return path_ + ".load"; }

  std::string path_;
  rocksdb::Options options_ = makeOptions();
  std::unique_ptr<rocksdb::DB> database_;
  std::unique_ptr<rocksdb::SstFileWriter> loader_;
  std::unique_ptr<Batch> batch_;
  rocksdb::PinnableSlice value_;
};

}  // namespace

std::vector<Competitor> rocksDbCompetitors(const std::string& directory) {
  const MakeStore make = [directory] { return std::make_unique<RocksDbStore>(newStoreName(directory)); };
  const std::string version = rocksdb::GetRocksVersionAsString(false);
  return {
      {"RocksDB keys", version,
       "a key for each number; a table file written in order and ingested; a filter of 10 bits a key; synchronous "
       "writes",
       true, [make] { return makeKeySet(make); }},
      {"RocksDB blobs", version, "a bitmap for each 65,536 numbers, without its empty ends; otherwise the same", true,
       [make] { return makeBlobSet(make); }},
  };
}
