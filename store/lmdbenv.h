// An LMDB environment in one file: opening with checks, and errors as StoreError.
#pragma once

#include <lmdb.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string>

#include "store.h"

namespace bmtree {

// A key of eight bytes, high byte first, so that keys sort as numbers.
class LmdbKey {
 public:
  explicit LmdbKey(uint64_t id) {
    for (size_t i = bytes_.size(); i-- > 0; id >>= 8) bytes_[i] = static_cast<unsigned char>(id);
  }

  MDB_val value() { return {bytes_.size(), bytes_.data()}; }

  // The number in a key read from the file; 0 if it is not one of these keys.
  static uint64_t read(const MDB_val& key);

 private:
  std::array<unsigned char, 8> bytes_;
};

// Key of the catalogue.
constexpr uint64_t catalogueKey = 0;

class LmdbEnv {
 public:
  LmdbEnv(const std::filesystem::path& path, const StoreOptions& options);
  LmdbEnv(const LmdbEnv&) = delete;
  LmdbEnv& operator=(const LmdbEnv&) = delete;
  ~LmdbEnv();

  // Begins a transaction, adopting a file that another process made larger; ends one.
  MDB_txn* begin(bool write);
  void commit(MDB_txn* txn);
  void abort(MDB_txn* txn) noexcept;

  // Throws what the LMDB result `rc` means unless it is success.
  void check(int rc, const char* what) const;

  MDB_env* env() const { return env_; }
  MDB_dbi pages() const { return pages_; }
  const std::filesystem::path& path() const { return path_; }
  bool readOnly() const { return readOnly_; }

 private:
  void openEnv(const StoreOptions& options);
  bool tryOpenEnv(size_t mapBytes, const StoreOptions& options);
  void openPages(bool mayBeEmpty);
  void claimForThisProcess();
  void requireWholeFile() const;
  void close() noexcept;

  const std::filesystem::path path_;
  const bool readOnly_;
  int claimFd_ = -1;
  MDB_env* env_ = nullptr;
  MDB_dbi pages_ = 0;
  std::mutex mutex_;   // guards the two below
  size_t active_ = 0;  // transactions of this process
};

}  // namespace bmtree
