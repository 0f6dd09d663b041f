#include "lmdbpagestore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "lmdbenv.h"
#include "systemerror.h"

namespace bmtree {
namespace {

constexpr size_t deletedAtOnce = 100000;

CatalogueImage readCatalogue(const LmdbEnv& env, MDB_txn* txn) {
  LmdbKey key(catalogueKey);
  MDB_val keyValue = key.value();
  MDB_val value{};
  const int rc = mdb_get(txn, env.pages(), &keyValue, &value);
  if (rc == MDB_NOTFOUND) return {};
  env.check(rc, "reading the catalogue of");
  CatalogueImage image;
  if (value.mv_size < sizeof image.version) {
    throw StoreError(StoreErrorCode::damaged, "the catalogue of " + env.path().string() + " is too short");
  }
  const auto* bytes = static_cast<const std::byte*>(value.mv_data);
  std::memcpy(&image.version, bytes, sizeof image.version);
  image.bytes.assign(bytes + sizeof image.version, bytes + value.mv_size);
  return image;
}

class LmdbSnapshot final : public PageSnapshot {
 public:
  explicit LmdbSnapshot(std::shared_ptr<LmdbEnv> env) : env_(std::move(env)), txn_(env_->begin(false)) {
    try {
      catalogue_ = readCatalogue(*env_, txn_);
    } catch (...) {
      env_->abort(txn_);
      throw;
    }
  }
  LmdbSnapshot(const LmdbSnapshot&) = delete;
  LmdbSnapshot& operator=(const LmdbSnapshot&) = delete;
  ~LmdbSnapshot() override { env_->abort(txn_); }

  const CatalogueImage& catalogue() const override { return catalogue_; }

  const std::byte* view(uint64_t id, StoreErrorCode& failure) noexcept override {
    Seen& seen = recent_[id % recent_.size()];
    if (seen.id != id) [[unlikely]] {
      const std::byte* bytes = find(id, failure);
      if (bytes == nullptr) return nullptr;
      seen = {id, bytes};
    }
    return seen.bytes;
  }

  // The map stays in place for the life of the snapshot.
  void hold(uint64_t /*id*/) noexcept override {}
  void release(uint64_t /*id*/) noexcept override {}

  uint64_t pageCount() const override {
    MDB_stat stat{};
    env_->check(mdb_stat(txn_, env_->pages(), &stat), "counting the pages of");
    return stat.ms_entries - (catalogue_.bytes.empty() ? 0 : 1);
  }

  void listPages(const std::function<void(std::span<const uint64_t>)>& visit) override;

 private:
  struct Seen {
    uint64_t id = 0;
    const std::byte* bytes = nullptr;
  };

  const std::byte* find(uint64_t id, StoreErrorCode& failure) noexcept {
    LmdbKey key(id);
    MDB_val keyValue = key.value();
    MDB_val value{};
    const int rc = mdb_get(txn_, env_->pages(), &keyValue, &value);
    failure = rc == 0 || rc == MDB_NOTFOUND || rc == MDB_CORRUPTED || rc == MDB_PAGE_NOTFOUND
                  ? StoreErrorCode::damaged
                  : StoreErrorCode::io;
    return rc == 0 && value.mv_size == pageBytes ? static_cast<const std::byte*>(value.mv_data) : nullptr;
  }

  const std::shared_ptr<LmdbEnv> env_;
  MDB_txn* const txn_;
  CatalogueImage catalogue_;
  std::array<Seen, 1024> recent_{};
};

// Closes a cursor at the end of a block.
struct CursorCloser {
  void operator()(MDB_cursor* cursor) const { mdb_cursor_close(cursor); }
};
using OpenCursor = std::unique_ptr<MDB_cursor, CursorCloser>;

OpenCursor openCursor(const LmdbEnv& env, MDB_txn* txn) {
  MDB_cursor* cursor = nullptr;
  env.check(mdb_cursor_open(txn, env.pages(), &cursor), "reading");
  return OpenCursor(cursor);
}

void LmdbSnapshot::listPages(const std::function<void(std::span<const uint64_t>)>& visit) {
  constexpr size_t batchSize = 4096;
  const OpenCursor cursor = openCursor(*env_, txn_);
  std::vector<uint64_t> batch;
  MDB_val key{};
  int rc = mdb_cursor_get(cursor.get(), &key, nullptr, MDB_FIRST);
  for (; rc == 0; rc = mdb_cursor_get(cursor.get(), &key, nullptr, MDB_NEXT)) {
    const uint64_t id = LmdbKey::read(key);
    if (id != catalogueKey) batch.push_back(id);
    if (batch.size() == batchSize) {
      visit(batch);
      batch.clear();
    }
  }
  if (rc != MDB_NOTFOUND) env_->check(rc, "listing the pages of");
  if (!batch.empty()) visit(batch);
}

class LmdbWriter final : public PageWriter {
 public:
  // After `stagedBytesLimit` bytes of pages the LMDB transaction is committed and another begun.
  LmdbWriter(std::shared_ptr<LmdbEnv> env, uint64_t stagedBytesLimit)
      : env_(std::move(env)), stagedBytesLimit_(stagedBytesLimit) {
    lock();
  }
  LmdbWriter(const LmdbWriter&) = delete;
  LmdbWriter& operator=(const LmdbWriter&) = delete;
  ~LmdbWriter() override {
    drop();
    ::close(lockFd_);
  }

  void dropPagesFrom(uint64_t firstId) override {
    while (!dropSomePagesFrom(firstId)) {
    }
  }

  void put(std::span<const PageImage> pages) override {
    attempt([&] {
      for (const PageImage& page : pages) putPage(page);
    });
  }

  void cancelPuts() noexcept override { drop(); }

  void swapCatalogue(uint64_t expected, const CatalogueImage& next, std::span<const uint64_t> obsolete) override {
    attempt([&] {
      if (readCatalogue(*env_, transaction()).version != expected) {
        throw StoreError(StoreErrorCode::conflict, "the catalogue of " + env_->path().string() + " has changed");
      }
      for (const uint64_t id : obsolete) deletePage(id);
      putCatalogue(next);
      commitStaged();
    });
  }

 private:
  // Runs a step; when it fails, the LMDB transaction is gone.
  template <class Step>
  void attempt(const Step& step) {
    try {
      step();
    } catch (...) {
      drop();
      throw;
    }
  }

  void lock() {
    lockFd_ = ::open(env_->path().c_str(), O_RDWR | O_CLOEXEC);
    if (lockFd_ < 0) throwSystemError(errno, "opening " + env_->path().string() + " for writing");
    if (::flock(lockFd_, LOCK_EX | LOCK_NB) == 0) return;
    const int error = errno;
    ::close(lockFd_);
    if (error != EWOULDBLOCK) throwSystemError(error, "locking " + env_->path().string());
    throw StoreError(StoreErrorCode::writerActive, env_->path().string() + " has a writer already");
  }

  MDB_txn* transaction() {
    if (txn_ == nullptr) txn_ = env_->begin(true);
    return txn_;
  }

  void drop() noexcept {
    if (txn_ != nullptr) env_->abort(std::exchange(txn_, nullptr));
    stagedBytes_ = 0;
  }

  void commitStaged() {
    stagedBytes_ = 0;
    if (txn_ != nullptr) env_->commit(std::exchange(txn_, nullptr));
  }

  void putPage(const PageImage& page) {
    putValue(page.id, {std::span(page.bytes, pageBytes)});
    stagedBytes_ += pageBytes;
    if (stagedBytes_ >= stagedBytesLimit_) commitStaged();
  }

  void putCatalogue(const CatalogueImage& image) {
    putValue(catalogueKey, {std::as_bytes(std::span(&image.version, 1)), image.bytes});
  }

  // Stores the parts one behind the other.
  void putValue(uint64_t id, std::initializer_list<std::span<const std::byte>> parts) {
    LmdbKey key(id);
    MDB_val keyValue = key.value();
    MDB_val value{};
    for (const auto part : parts) value.mv_size += part.size();
    env_->check(mdb_put(transaction(), env_->pages(), &keyValue, &value, MDB_RESERVE), "writing");
    auto* target = static_cast<std::byte*>(value.mv_data);
    for (const auto part : parts) target = std::copy(part.begin(), part.end(), target);
  }

  void deletePage(uint64_t id) {
    LmdbKey key(id);
    MDB_val keyValue = key.value();
    const int rc = mdb_del(transaction(), env_->pages(), &keyValue, nullptr);
    if (rc != MDB_NOTFOUND) env_->check(rc, "deleting pages of");
  }

  // Ids of up to `deletedAtOnce` pages of `firstId` and above, looked for without blocking anyone.
  std::vector<uint64_t> pagesFrom(uint64_t firstId) {
    MDB_txn* txn = env_->begin(false);
    std::vector<uint64_t> ids;
    try {
      const OpenCursor cursor = openCursor(*env_, txn);
      LmdbKey first(firstId);
      MDB_val key = first.value();
      int rc = mdb_cursor_get(cursor.get(), &key, nullptr, MDB_SET_RANGE);
      for (; rc == 0 && ids.size() < deletedAtOnce; rc = mdb_cursor_get(cursor.get(), &key, nullptr, MDB_NEXT)) {
        ids.push_back(LmdbKey::read(key));
      }
      if (rc != MDB_NOTFOUND) env_->check(rc, "listing the pages of");
    } catch (...) {
      env_->abort(txn);
      throw;
    }
    env_->abort(txn);
    return ids;
  }

  // True when none is left.
  bool dropSomePagesFrom(uint64_t firstId) {
    const auto ids = pagesFrom(firstId);
    if (ids.empty()) return true;
    attempt([&] {
      for (const uint64_t id : ids) deletePage(id);
      commitStaged();
    });
    return ids.size() < deletedAtOnce;
  }

  const std::shared_ptr<LmdbEnv> env_;
  int lockFd_ = -1;
  MDB_txn* txn_ = nullptr;
  const uint64_t stagedBytesLimit_;
  uint64_t stagedBytes_ = 0;
};

class LmdbPageStore final : public PageStore {
 public:
  LmdbPageStore(std::shared_ptr<LmdbEnv> env, uint64_t stagedBytesLimit)
      : env_(std::move(env)), stagedBytesLimit_(stagedBytesLimit) {}

  std::unique_ptr<PageSnapshot> snapshot() override { return std::make_unique<LmdbSnapshot>(env_); }

  std::unique_ptr<PageWriter> beginWrite() override {
    if (env_->readOnly()) {
      throw StoreError(StoreErrorCode::readOnly, env_->path().string() + " was opened for reading only");
    }
    auto writer = std::make_unique<LmdbWriter>(env_, stagedBytesLimit_);
    int dead = 0;
    mdb_reader_check(env_->env(), &dead);  // readers that died would keep given-up pages from being used again
    return writer;
  }

  PageStoreFigures figures() override;

 private:
  const std::shared_ptr<LmdbEnv> env_;
  const uint64_t stagedBytesLimit_;
};

// Adds up the free lists: values of the database 0, each a count and that many page numbers.
uint64_t freeMapPages(const LmdbEnv& env, MDB_txn* txn) {
  MDB_cursor* opened = nullptr;
  env.check(mdb_cursor_open(txn, 0, &opened), "reading");
  const OpenCursor cursor(opened);
  uint64_t total = 0;
  MDB_val key{};
  MDB_val value{};
  while (mdb_cursor_get(cursor.get(), &key, &value, MDB_NEXT) == 0) {
    size_t count = 0;
    std::memcpy(&count, value.mv_data, sizeof count);
    total += count;
  }
  return total;
}

PageStoreFigures LmdbPageStore::figures() {
  MDB_envinfo info{};
  MDB_stat stat{};
  env_->check(mdb_env_info(env_->env(), &info), "reading");
  env_->check(mdb_env_stat(env_->env(), &stat), "reading");
  MDB_txn* txn = env_->begin(false);
  uint64_t freePages = 0;
  try {
    freePages = freeMapPages(*env_, txn);
  } catch (...) {
    env_->abort(txn);
    throw;
  }
  env_->abort(txn);
  const uint64_t allPages = uint64_t{info.me_last_pgno} + 1;
  return {(allPages - freePages) * stat.ms_psize, freePages * stat.ms_psize};
}

}  // namespace

std::unique_ptr<PageStore> openLmdbPageStore(const std::filesystem::path& path, const StoreOptions& options) {
  return std::make_unique<LmdbPageStore>(std::make_shared<LmdbEnv>(path, options), options.stagedBytes);
}

}  // namespace bmtree
