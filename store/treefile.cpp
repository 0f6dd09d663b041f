// Trees: bitmap files and compressed records.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "systemerror.h"
#include "treeaccess.h"
#include "unfinishedstore.h"

namespace bmtree {
namespace {

constexpr size_t recordBytes = 65528;  // the most that a record's size field can say, in multiples of 8

// A descriptor that is closed at the end of a block.
class OpenFile {
 public:
  OpenFile(int directory, const std::filesystem::path& path, int flags)
      : fd_(::openat(directory, path.c_str(), flags | O_CLOEXEC)) {
    if (fd_ < 0) throwSystemError(errno, "opening " + path.string());
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { ::close(fd_); }

  int fd() const { return fd_; }

  // A name of the open file in which nothing can be taken for a variable or a home directory, as the module does
  // with the names it is given.
  std::string plainName() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

// A new file beside `path` under a name of its own, until it is given that name.
class FileInTheMaking {
 public:
  explicit FileInTheMaking(const std::filesystem::path& path)
      : path_(path),
        directory_(AT_FDCWD, path.has_parent_path() ? path.parent_path() : ".", O_RDONLY | O_DIRECTORY),
        name_(".bmtree-export-" + std::to_string(::getpid()) + "-" +
              std::to_string(reinterpret_cast<uintptr_t>(this))) {
    ::unlinkat(directory_.fd(), name_.c_str(), 0);
  }
  FileInTheMaking(const FileInTheMaking&) = delete;
  FileInTheMaking& operator=(const FileInTheMaking&) = delete;
  ~FileInTheMaking() { ::unlinkat(directory_.fd(), name_.c_str(), 0); }

  // Where it is to be written.
  std::string plainName() const { return directory_.plainName() + "/" + name_; }

  // Makes it durable and gives it the name.
  void publish(bool overwrite) {
    const OpenFile written(directory_.fd(), name_, O_RDONLY);
    if (::fdatasync(written.fd()) != 0) throwSystemError(errno, "writing " + path_.string());
    const std::string name = path_.filename();
    const int failed = overwrite ? ::renameat(directory_.fd(), name_.c_str(), directory_.fd(), name.c_str())
                                 : ::linkat(directory_.fd(), name_.c_str(), directory_.fd(), name.c_str(), 0);
    if (failed == 0) return syncFolderOf(path_);
    if (errno == EEXIST) throw StoreError(StoreErrorCode::fileExists, path_.string() + " exists");
    throwSystemError(errno, "writing " + path_.string());
  }

 private:
  const std::filesystem::path path_;
  const OpenFile directory_;
  const std::string name_;
};

void requireFour(const Tree& tree) {
  const auto last = tree.last();
  if (last && *last >> 32 != 0) {
    throw StoreError(StoreErrorCode::badArgument,
                     "a file of width four cannot hold " + std::to_string(*last) + ": it is not below 2^32");
  }
}

// Throws unless `result` is that of a check which found nothing.
void requireSound(bool sound, const BmCheckResultSType& result, const std::string& what) {
  if (sound) return;
  if (result.fault == BM_CHECK_UNREADABLE) throwSystemError(result.sysError == 0 ? EIO : result.sysError, what);
  throw StoreError(StoreErrorCode::badFile,
                   what + ": " + result.sentence + " (at byte " + std::to_string(result.byteOffset) + ")");
}

// One record's memory and the packer that fills it.
class RecordBuffer {
 public:
  RecordBuffer() : words_(recordBytes / sizeof(uint64_t)) {}

  // Packs on from `path`. True when nothing remains.
  bool fill(StoreContext& context, const RepTreeRootSType& root, BmPathSType* path) {
    LogComprResourcePackerType packer(record(), recordBytes);
    return BmFindSetBitsNonDestructive(&context, &root, path, &packer) != 0;
  }

  bool empty() { return record()->numBits == 0; }
  std::span<const std::byte> bytes() { return std::as_bytes(std::span(words_)).first(record()->recSize); }

 private:
  LogComprResourceIdRecHdrType* record() { return reinterpret_cast<LogComprResourceIdRecHdrType*>(words_.data()); }

  std::vector<uint64_t> words_;
};

}  // namespace

void Tree::exportFile(const std::filesystem::path& path, FileWidth width, bool overwrite) const {
  if (width == FileWidth::four) requireFour(*this);
  if (!overwrite && std::filesystem::exists(std::filesystem::symlink_status(path))) {
    throw StoreError(StoreErrorCode::fileExists, path.string() + " exists");
  }
  FileInTheMaking file(path);
  std::string name = file.plainName();
  int error = 0;
  const bool written = TreeAccess::read(*this, [&](auto& context, auto& root) {
    if (width == FileWidth::eight) return BmWriteToFileNonDestructive(&context, name.data(), &root, &error) != 0;
    ScratchTree taken(context);  // the narrow form empties what it writes
    BmCopyTree(&context, &root, taken.root());
    return BmWriteToFileIn6xFormat(&context, name.data(), taken.root(), &error) != 0;
  });
  if (!written) throwSystemError(error == 0 ? EIO : error, "writing " + path.string());
  file.publish(overwrite);
}

uint64_t Tree::importFile(const std::filesystem::path& path) {
  const OpenFile file(AT_FDCWD, path, O_RDONLY);
  std::string name = file.plainName();
  BmCheckResultSType result{};
  requireSound(BmCheckFile(name.c_str(), &result) != 0, result, path.string());
  const uint64_t before = count();
  int error = 0;
  TreeAccess::change(*this, [&](auto& context, auto& root) {
    if (BmReadFromFile(&context, name.data(), &root, &error) == 0) {
      context.fail(codeOfSystemError(error), "reading " + path.string() + " failed");
    }
  });
  return count() - before;
}

void Tree::packRecords(const std::function<void(std::span<const std::byte>)>& sink) const {
  TreeAccess::read(*this, [&](auto& context, auto& root) {
    RecordBuffer record;
    BmPathSType path{};
    for (bool done = root.root == 0; !done && !context.failed();) {
      done = record.fill(context, root, &path);
      if (!record.empty()) {
        sink(record.bytes());
      } else if (!done) {
        context.fail(StoreErrorCode::damaged, "a tree cannot be packed");
      }
    }
  });
}

uint64_t Tree::addRecord(std::span<const std::byte> record) {
  std::vector<uint64_t> aligned((record.size() + sizeof(uint64_t) - 1) / sizeof(uint64_t));
  if (!record.empty()) std::memcpy(aligned.data(), record.data(), record.size());
  BmCheckResultSType result{};
  requireSound(BmCheckLogRec(aligned.data(), record.size(), &result) != 0, result, "a compressed record");
  return TreeAccess::change(*this, [&](auto& context, auto& root) {
    return BmSetBitsFromLogRec(&context, &root, reinterpret_cast<LogComprResourceIdRecHdrType*>(aligned.data()));
  });
}

}  // namespace bmtree
