// LMDB.
#include <lmdb.h>

#include <filesystem>

#include "competitors.h"
#include "keyvalue.h"

namespace {

constexpr size_t mapBytes = size_t{16} << 30;

void check(int code) {
  if (code != MDB_SUCCESS) giveUp(std::string("LMDB: ") + mdb_strerror(code));
}

class LmdbStore final : public KeyValueStore {
 public:
  explicit LmdbStore(std::string path) : path_(std::move(path)) {
    check(mdb_env_create(&environment_));
    check(mdb_env_set_mapsize(environment_, mapBytes));
    check(mdb_env_open(environment_, path_.c_str(), MDB_NOSUBDIR, 0600));
    begin();
    check(mdb_dbi_open(transaction_, nullptr, MDB_INTEGERKEY, &database_));
    commit();
  }

  ~LmdbStore() override {
    endTransaction();
    mdb_env_close(environment_);
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + "-lock");
  }

  void beginLoad() override {
    begin();
    check(mdb_cursor_open(transaction_, database_, &loader_));
  }

  void append(uint64_t key, Value value) override {
    MDB_val keyBytes = bytesOf(key);
    MDB_val valueBytes = bytesOf(value);
    check(mdb_cursor_put(loader_, &keyBytes, &valueBytes, MDB_APPEND));
  }

  void endLoad() override {
    mdb_cursor_close(loader_);
    commit();
  }

  void begin() override {
    endTransaction();
    check(mdb_txn_begin(environment_, nullptr, 0, &transaction_));
  }

  void put(uint64_t key, Value value) override {
    MDB_val keyBytes = bytesOf(key);
    MDB_val valueBytes = bytesOf(value);
    check(mdb_put(transaction_, database_, &keyBytes, &valueBytes, 0));
  }

  bool insert(uint64_t key) override {
    MDB_val keyBytes = bytesOf(key);
    MDB_val nothing{};
    const int code = mdb_put(transaction_, database_, &keyBytes, &nothing, MDB_NOOVERWRITE);
    if (code != MDB_KEYEXIST) check(code);
    return code == MDB_SUCCESS;
  }

  bool erase(uint64_t key) override {
    MDB_val keyBytes = bytesOf(key);
    const int code = mdb_del(transaction_, database_, &keyBytes, nullptr);
    if (code != MDB_NOTFOUND) check(code);
    return code == MDB_SUCCESS;
  }

  void commit() override {
    check(mdb_txn_commit(transaction_));
    transaction_ = nullptr;
  }

  std::optional<Value> get(uint64_t key) override {
    MDB_val keyBytes = bytesOf(key);
    MDB_val value;
    const int code = mdb_get(reading(), database_, &keyBytes, &value);
    if (code == MDB_NOTFOUND) return std::nullopt;
    check(code);
    return Value(static_cast<const char*>(value.mv_data), value.mv_size);
  }

  uint64_t entries() override {
    MDB_stat stat;
    check(mdb_stat(reading(), database_, &stat));
    return stat.ms_entries;
  }

  void scan(const std::function<void(uint64_t, Value)>& visit) override {
    MDB_cursor* cursor = nullptr;
    check(mdb_cursor_open(reading(), database_, &cursor));
    MDB_val key;
    MDB_val value;
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
      visit(*static_cast<const uint64_t*>(key.mv_data), {static_cast<const char*>(value.mv_data), value.mv_size});
    }
    mdb_cursor_close(cursor);
  }

  uint64_t bytesOnDisk() override { return bytesBelow(path_); }

 private:
  static MDB_val bytesOf(uint64_t& key) { return {sizeof key, &key}; }
  static MDB_val bytesOf(Value value) { return {value.size(), const_cast<char*>(value.data())}; }

  // The transaction at hand, or a snapshot that is kept until the next change.
  MDB_txn* reading() {
    if (transaction_ == nullptr) check(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction_));
    return transaction_;
  }

  void endTransaction() {
    if (transaction_ != nullptr) mdb_txn_abort(transaction_);
    transaction_ = nullptr;
  }

  std::string path_;
  MDB_env* environment_ = nullptr;
  MDB_dbi database_ = 0;
  MDB_txn* transaction_ = nullptr;
  MDB_cursor* loader_ = nullptr;
};

}  // namespace

std::vector<Competitor> lmdbCompetitors(const std::string& directory) {
  const MakeStore make = [directory] { return std::make_unique<LmdbStore>(newStoreName(directory)); };
  const std::string version = std::to_string(MDB_VERSION_MAJOR) + "." + std::to_string(MDB_VERSION_MINOR) + "." +
                              std::to_string(MDB_VERSION_PATCH);
  return {
      {"LMDB keys", version, "a key for each number, loaded with MDB_APPEND; commits are synchronous", true,
       [make] { return makeKeySet(make); }},
      {"LMDB blobs", version, "a bitmap for each 65,536 numbers, without its empty ends; commits are synchronous",
       true, [make] { return makeBlobSet(make); }},
  };
}
