// SQLite.
#include <sqlite3.h>

#include <filesystem>

#include "competitors.h"
#include "keyvalue.h"

namespace {

// A prepared statement.
class Statement {
 public:
  Statement(sqlite3* database, const char* text) : database_(database) {
    if (sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr) != SQLITE_OK) fail();
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(statement_); }

  void bind(uint64_t key) { sqlite3_bind_int64(statement_, 1, static_cast<int64_t>(key)); }
  void bind(KeyValueStore::Value value) {
    sqlite3_bind_blob64(statement_, 2, value.data(), value.size(), SQLITE_STATIC);
  }

  // True if there is a row to be read.
  bool step() {
    const int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) fail();
    return code == SQLITE_ROW;
  }

  void reset() { sqlite3_reset(statement_); }
  uint64_t number() { return static_cast<uint64_t>(sqlite3_column_int64(statement_, 0)); }
  KeyValueStore::Value value(int column) {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    return {bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
  }

 private:
  [[noreturn]] void fail() { giveUp(std::string("SQLite: ") + sqlite3_errmsg(database_)); }

  sqlite3* database_;
  sqlite3_stmt* statement_ = nullptr;
};

constexpr const char* settings =
    "PRAGMA page_size = 16384; PRAGMA journal_mode = OFF; PRAGMA synchronous = FULL; PRAGMA cache_size = -262144;"
    "PRAGMA locking_mode = EXCLUSIVE; CREATE TABLE numbers (key INTEGER PRIMARY KEY, value BLOB);";

class SqliteStore final : public KeyValueStore {
 public:
  explicit SqliteStore(std::string path) : path_(std::move(path)) {
    if (sqlite3_open(path_.c_str(), &database_) != SQLITE_OK) giveUp("SQLite cannot make " + path_);
    run(settings);
    statements_ = std::make_unique<Statements>(database_);
  }

  ~SqliteStore() override {
    statements_.reset();
    sqlite3_close(database_);
    for (const char* ending : {"", "-wal", "-shm", "-journal"}) std::filesystem::remove(path_ + ending);
  }

  // The file is new, so its journal begins with the end of the load.
  void beginLoad() override { run("BEGIN"); }
  void append(uint64_t key, Value value) override { put(key, value); }
  void endLoad() override { run("COMMIT; PRAGMA journal_mode = WAL"); }

  void begin() override {
    statements_->find.reset();
    run("PRAGMA journal_mode = WAL; BEGIN");
  }

  void put(uint64_t key, Value value) override {
    statements_->find.reset();
    statements_->put.bind(key);
    statements_->put.bind(value);
    statements_->put.step();
    statements_->put.reset();
  }

  bool insert(uint64_t key) override { return change(statements_->insert, key); }
  bool erase(uint64_t key) override { return change(statements_->erase, key); }
  void commit() override {
    statements_->find.reset();
    run("COMMIT");
  }

  std::optional<Value> get(uint64_t key) override {
    Statement& find = statements_->find;
    find.reset();
    find.bind(key);
    if (!find.step()) return std::nullopt;
    return find.value(0);
  }

  uint64_t entries() override {
    statements_->find.reset();
    Statement count(database_, "SELECT count(*) FROM numbers");
    count.step();
    return count.number();
  }

  void scan(const std::function<void(uint64_t, Value)>& visit) override {
    Statement all(database_, "SELECT key, value FROM numbers ORDER BY key");
    while (all.step()) visit(all.number(), all.value(1));
  }

  uint64_t bytesOnDisk() override {
    statements_->find.reset();
    run("PRAGMA wal_checkpoint(TRUNCATE)");
    return bytesBelow(path_);
  }

 private:
  struct Statements {
    explicit Statements(sqlite3* database)
        : put(database, "REPLACE INTO numbers VALUES (?1, ?2)"),
          insert(database, "INSERT OR IGNORE INTO numbers VALUES (?1, NULL)"),
          erase(database, "DELETE FROM numbers WHERE key = ?1"),
          find(database, "SELECT value FROM numbers WHERE key = ?1") {}
    Statement put;
    Statement insert;
    Statement erase;
    Statement find;
  };

  void run(const char* text) {
    if (sqlite3_exec(database_, text, nullptr, nullptr, nullptr) != SQLITE_OK) {
      giveUp(std::string("SQLite: ") + sqlite3_errmsg(database_));
    }
  }

  bool change(Statement& statement, uint64_t key) {
    statements_->find.reset();
    statement.bind(key);
    statement.step();
    statement.reset();
    return sqlite3_changes(database_) != 0;
  }

  std::string path_;
  sqlite3* database_ = nullptr;
  std::unique_ptr<Statements> statements_;
};

}  // namespace

std::vector<Competitor> sqliteCompetitors(const std::string& directory) {
  const MakeStore make = [directory] { return std::make_unique<SqliteStore>(newStoreName(directory)); };
  return {
      {"SQLite keys", sqlite3_libversion(),
       "a row for each number, its integer key, loaded in order in one transaction without a journal; then a "
       "write-ahead log, synchronous",
       true, [make] { return makeKeySet(make); }},
      {"SQLite blobs", sqlite3_libversion(),
       "a bitmap for each 65,536 numbers, without its empty ends; otherwise the same", true,
       [make] { return makeBlobSet(make); }},
  };
}
