#include "lmdbenv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "systemerror.h"

namespace bmtree {
namespace {

constexpr size_t oneMapPage = 4096;
constexpr size_t smallestMap = size_t{64} << 20;

// LMDB may leave the last few pages of a file unwritten when they were freed in the commit that added them.
constexpr uint64_t unwrittenTail = uint64_t{16} * oneMapPage;

StoreErrorCode codeOf(int rc) {
  switch (rc) {
    case MDB_INVALID:
    case MDB_VERSION_MISMATCH:
    case MDB_INCOMPATIBLE: return StoreErrorCode::foreignFile;
    case MDB_MAP_FULL: return StoreErrorCode::full;
    case MDB_READERS_FULL: return StoreErrorCode::tooManyReaders;
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
    case MDB_PANIC: return StoreErrorCode::damaged;
    default: return rc > 0 ? codeOfSystemError(rc) : StoreErrorCode::io;
  }
}

// Throws unless the file is one that LMDB wrote, is empty, or is missing and to be made. Looks before LMDB does,
// which would leave a lock file beside whatever it is.
void requireLmdbFile(const std::filesystem::path& path, bool create) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    const int error = errno;
    if (error == ENOENT && create) return;
    throwSystemError(error == 0 ? EIO : error, "opening " + path.string());
  }
  if (!std::filesystem::is_regular_file(path)) {
    throw StoreError(StoreErrorCode::foreignFile, path.string() + " is not a regular file");
  }
  std::array<char, 24> head{};
  file.read(head.data(), head.size());
  if (file.gcount() == 0 && create) return;
  uint32_t magic = 0;
  std::memcpy(&magic, head.data() + 16, sizeof magic);
  if (file.gcount() < static_cast<std::streamsize>(head.size()) || magic != 0xBEEFC0DE) {
    throw StoreError(StoreErrorCode::foreignFile, path.string() + " is not a store");
  }
}

// Makes the file `bytes` longer, at most unwrittenTail. Another process may be making it longer as well: what is
// appended goes behind whatever is there by then, so that nothing written is changed or cut off.
void growFile(const std::filesystem::path& path, uint64_t bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  if (fd < 0) throwSystemError(errno, "opening " + path.string());
  const std::vector<std::byte> zeros(bytes);
  for (size_t done = 0; done < zeros.size();) {
    const ssize_t moved = ::write(fd, zeros.data() + done, zeros.size() - done);
    if (moved > 0) {
      done += static_cast<size_t>(moved);
    } else if (moved == 0 || errno != EINTR) {
      const int error = moved == 0 ? ENOSPC : errno;
      ::close(fd);
      throwSystemError(error, "growing " + path.string());
    }
  }
  ::close(fd);
}

}  // namespace

uint64_t LmdbKey::read(const MDB_val& key) {
  if (key.mv_size != sizeof(uint64_t)) return 0;
  uint64_t id = 0;
  const auto* bytes = static_cast<const unsigned char*>(key.mv_data);
  for (size_t i = 0; i < key.mv_size; ++i) id = id << 8 | bytes[i];
  return id;
}

LmdbEnv::LmdbEnv(const std::filesystem::path& path, const StoreOptions& options)
    : path_(path), readOnly_(options.mode == OpenMode::readOnly) {
  requireLmdbFile(path, options.mode == OpenMode::create);
  try {
    claimForThisProcess();
    openEnv(options);
    requireWholeFile();
    openPages(options.mode == OpenMode::create);
  } catch (...) {
    close();
    throw;
  }
}

LmdbEnv::~LmdbEnv() { close(); }

void LmdbEnv::close() noexcept {
  if (env_ != nullptr) mdb_env_close(env_);
  if (claimFd_ >= 0) ::close(claimFd_);
}

// LMDB must not have a file open twice in a process. A lock on the byte that belongs to this process, far behind
// the end of the file, tells. A file that cannot be opened for writing is not claimed.
void LmdbEnv::claimForThisProcess() {
  const int flags = readOnly_ ? O_RDWR : O_RDWR | O_CREAT;
  claimFd_ = ::open(path_.c_str(), flags | O_CLOEXEC, 0644);
  if (claimFd_ < 0) {
    if (readOnly_) return;
    throwSystemError(errno, "opening " + path_.string());
  }
  struct flock byte {};
  byte.l_type = F_WRLCK;
  byte.l_whence = SEEK_SET;
  byte.l_start = (off_t{1} << 62) + ::getpid();
  byte.l_len = 1;
  if (::fcntl(claimFd_, F_OFD_SETLK, &byte) == 0) return;
  if (errno == EAGAIN || errno == EACCES) {
    throw StoreError(StoreErrorCode::alreadyOpen, path_.string() + " is open in this process already");
  }
}

void LmdbEnv::openEnv(const StoreOptions& options) {
  size_t mapBytes = std::max<size_t>(options.mapBytes / oneMapPage * oneMapPage, smallestMap);
  while (!tryOpenEnv(mapBytes, options)) {
    if (mapBytes == smallestMap) {
      throw StoreError(StoreErrorCode::outOfMemory, "no address space to map " + path_.string());
    }
    mapBytes = std::max(mapBytes / 2 / oneMapPage * oneMapPage, smallestMap);
  }
}

// False if there was no address space for a map of that size.
bool LmdbEnv::tryOpenEnv(size_t mapBytes, const StoreOptions& options) {
  const unsigned flags =
      MDB_NOSUBDIR | MDB_NOTLS | (readOnly_ ? MDB_RDONLY : 0) | (options.syncCommits ? 0 : MDB_NOMETASYNC);
  check(mdb_env_create(&env_), "opening");
  int rc = mdb_env_set_mapsize(env_, mapBytes);
  if (rc == 0) rc = mdb_env_set_maxreaders(env_, options.maxReaders);
  if (rc == 0) rc = mdb_env_open(env_, path_.c_str(), flags, 0644);
  if (rc == ENOMEM) {
    mdb_env_close(env_);
    env_ = nullptr;
    return false;
  }
  check(rc, "opening");
  return true;
}

// A file that was cut off would end the process at the first look behind its end.
void LmdbEnv::requireWholeFile() const {
  MDB_envinfo info;
  MDB_stat stat;
  check(mdb_env_info(env_, &info), "opening");
  check(mdb_env_stat(env_, &stat), "opening");
  const uint64_t wanted = (uint64_t{info.me_last_pgno} + 1) * stat.ms_psize;
  const uint64_t present = std::filesystem::file_size(path_);
  if (present + unwrittenTail < wanted) {
    throw StoreError(StoreErrorCode::damaged, path_.string() + " is cut off: it has " + std::to_string(present) +
                                                  " of " + std::to_string(wanted) + " bytes");
  }
  if (present < wanted && !readOnly_) growFile(path_, wanted - present);
}

void LmdbEnv::openPages(bool mayBeEmpty) {
  MDB_txn* txn = begin(false);
  MDB_stat stat{};
  LmdbKey key(catalogueKey);
  MDB_val keyValue = key.value();
  MDB_val ignored;
  int rc = mdb_dbi_open(txn, nullptr, 0, &pages_);
  if (rc == 0) rc = mdb_stat(txn, pages_, &stat);
  const bool named = rc == 0 && mdb_get(txn, pages_, &keyValue, &ignored) == 0;
  abort(txn);
  check(rc, "opening");
  if (!named && (stat.ms_entries > 0 || !mayBeEmpty)) {
    throw StoreError(StoreErrorCode::foreignFile, path_.string() + " is not a store: it has no catalogue");
  }
}

MDB_txn* LmdbEnv::begin(bool write) {
  const std::lock_guard lock(mutex_);
  MDB_txn* txn = nullptr;
  const unsigned flags = write ? 0 : MDB_RDONLY;
  int rc = mdb_txn_begin(env_, nullptr, flags, &txn);
  if (rc == MDB_MAP_RESIZED && active_ == 0) {
    check(mdb_env_set_mapsize(env_, 0), "adopting the new size");
    rc = mdb_txn_begin(env_, nullptr, flags, &txn);
  }
  if (rc == MDB_READERS_FULL) {  // processes that died leave their places taken
    int dead = 0;
    mdb_reader_check(env_, &dead);
    rc = mdb_txn_begin(env_, nullptr, flags, &txn);
  }
  check(rc, "beginning a transaction");
  ++active_;
  return txn;
}

void LmdbEnv::commit(MDB_txn* txn) {
  const int rc = mdb_txn_commit(txn);
  {
    const std::lock_guard lock(mutex_);
    --active_;
  }
  check(rc, "committing");
}

void LmdbEnv::abort(MDB_txn* txn) noexcept {
  mdb_txn_abort(txn);
  const std::lock_guard lock(mutex_);
  --active_;
}

void LmdbEnv::check(int rc, const char* what) const {
  if (rc == 0) return;
  throw StoreError(codeOf(rc), std::string(what) + " " + path_.string() + ": " + mdb_strerror(rc));
}

}  // namespace bmtree
