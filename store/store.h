// Named sets of numbers, durable in one file: an embedded store over the bitmap module.
//
//   auto store = bmtree::Store::open("numbers.bmt", {.mode = bmtree::OpenMode::create});
//   auto writer = store.beginWrite();
//   auto primes = writer.create("primes");
//   primes.set(std::array<uint64_t, 3>{2, 3, 5});
//   writer.commit();
//   auto reader = store.beginRead();
//   bool found = reader.tree("primes").test(3);
//
// A number is below 2^40. A Reader sees the trees as the last commit before it left them, for as long as it
// lives; a Writer, of which a file has one at a time over all processes, sees them with its own changes, which a
// commit makes durable and visible in one step. Readers and the writer never wait for each other.
//
// Failures are exceptions of the one type StoreError. A Store may be used by several threads at once; a Reader,
// a Writer and the trees and cursors that come from one are used by one thread at a time, not always the same
// one. Trees and cursors may outlive the reader or writer they came from; they then only throw `closed`. None of
// it may be used after a fork in the child process. Handles are moved, not copied; a handle that was moved from
// may only be assigned to or destroyed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "store_error.h"

namespace bmtree {

class PageStore;
class Session;
struct TreeState;

// One more than the highest number.
constexpr uint64_t numberEnd = uint64_t{1} << 40;

enum class OpenMode {
  readOnly,   // the file must exist; beginWrite is refused
  readWrite,  // the file must exist
  create,     // the file is made if it is missing or empty
};

struct StoreOptions {
  OpenMode mode = OpenMode::readWrite;

  // Bytes of changed and temporary pages that one reader or writer keeps in memory, at least 16 MiB; more go to
  // an unlinked temporary file.
  uint64_t memoryLimit = uint64_t{256} << 20;

  // Where that temporary file is made. Empty: beside the store, or where temporary files belong if that fails.
  std::filesystem::path spillDirectory{};

  // True: a commit returns when it would survive a loss of power. False: such a loss may undo the last commit,
  // never more, and damages nothing.
  bool syncCommits = true;

  // Bytes of pages after which a commit hands on what it has put so far, so that one of any size takes little memory.
  // At least a page.
  uint64_t stagedBytes = uint64_t{48} << 20;

  // Address space to reserve, in bytes, which is also the most the file may grow to. If so much is not to be had,
  // half is tried, and so on down to 64 MiB, or to the size of the file if that is more, which leaves a file that
  // cannot grow.
  uint64_t mapBytes = uint64_t{1} << 40;

  // Snapshots that may be open at a time, over all processes. Set by whoever opens the file first.
  unsigned maxReaders = 1022;
};

// What a long operation calls now and then: `done` of `total` units of work.
using Progress = std::function<void(uint64_t done, uint64_t total)>;

enum class LeafKind { list, dense };

// A leaf of a tree and the numbers it is responsible for: firstNumber to endNumber - 1. Numbers between two
// leaves are in no set.
struct LeafInfo {
  LeafKind kind;
  uint64_t pageId;
  uint64_t firstNumber;
  uint64_t endNumber;
  uint64_t count;  // numbers that it holds
};

struct TreeStats {
  uint64_t count = 0;  // numbers in the set
  int level = 0;       // 0: one list, or nothing; 1: leaves below one page; 2: below two levels of pages
  uint64_t listPages = 0;
  uint64_t densePages = 0;
  uint64_t internalPages = 0;
  uint64_t listNumbers = 0;       // numbers in list pages
  uint64_t denseNumbers = 0;      // numbers in dense pages
  uint64_t internalEntries = 0;   // children of internal pages
  std::optional<uint64_t> first;  // lowest and highest number
  std::optional<uint64_t> last;

  uint64_t pages() const { return listPages + densePages + internalPages; }
  uint64_t bytes() const { return pages() * 16384; }
  // Share of the slots in use, 0 to 1, for the pages of a kind; 0 without such pages. A full list holds 2043
  // numbers, a full dense page 130,752, a full internal page 1021 children.
  double listFill() const { return fill(listNumbers, listPages, 2043); }
  double denseFill() const { return fill(denseNumbers, densePages, 130752); }
  double internalFill() const { return fill(internalEntries, internalPages, 1021); }

 private:
  static double fill(uint64_t used, uint64_t pageCount, unsigned slots) {
    return pageCount == 0 ? 0 : static_cast<double>(used) / (static_cast<double>(pageCount) * slots);
  }
};

// Reads a tree's numbers in ascending order, a chunk at a time. A change of the tree between two chunks is seen
// from the position of the cursor on.
class Cursor {
 public:
  Cursor(Cursor&&) noexcept;
  Cursor& operator=(Cursor&&) noexcept;
  ~Cursor();

  // Stores the next numbers in `out` and returns how many: less than its size only at the end, 0 behind it.
  size_t next(std::span<uint64_t> out);

  // Goes on at the first number that is not below `from`.
  void seek(uint64_t from);

 private:
  friend class Tree;
  struct Position;
  explicit Cursor(std::unique_ptr<Position> position);
  std::unique_ptr<Position> position_;
};

// Width of the items of a bitmap file, in bytes.
enum class FileWidth { four = 4, eight = 8 };

// One set of numbers. A tree of a reader may be read; a tree of a writer and a temporary tree may be changed too
// (the others throw `readOnly`). Two-tree operations need both from the same reader or writer.
//
// When a changing operation throws anything but `badArgument`, `badFile`, `readOnly` or `closed`, the set may be
// partly changed and its writer can only be aborted.
class Tree {
 public:
  Tree(Tree&&) noexcept;
  Tree& operator=(Tree&&) noexcept;
  ~Tree();  // a temporary tree gives its pages back

  // The name in the catalogue; empty for a temporary tree.
  const std::string& name() const;
  bool isTemporary() const;

  // --- single numbers ---

  // True if `number` is in the set.
  bool test(uint64_t number) const;
  // Adds, or takes out, `number`. True if the set changed.
  bool set(uint64_t number);
  bool clear(uint64_t number);

  // --- many numbers ---

  // Adds, or takes out, `numbers`, in any order and with repeats; ascending ones are faster. Returns how many were
  // not, or were, in the set before. A number of 2^40 or above is refused before anything is changed.
  uint64_t set(std::span<const uint64_t> numbers);
  uint64_t clear(std::span<const uint64_t> numbers);

  // Adds, or takes out, all numbers from `first` to `last`, inclusive. Returns how many were not, or were, there.
  uint64_t setRange(uint64_t first, uint64_t last);
  uint64_t clearRange(uint64_t first, uint64_t last);

  // Keeps the `count` lowest numbers. Returns how many were taken out.
  uint64_t truncate(uint64_t count);

  // Takes out everything.
  void clearAll();

  // --- questions ---

  bool empty() const;
  // Numbers in the set; between `first` and `last`, inclusive. One page visit per leaf, inner leaves are not read
  // beyond their counter.
  uint64_t count() const;
  uint64_t countRange(uint64_t first, uint64_t last) const;
  std::optional<uint64_t> first() const;
  std::optional<uint64_t> last() const;
  // The first number that is not below `number`.
  std::optional<uint64_t> atOrAfter(uint64_t number) const;
  // The number that has `rank` numbers of the set below it: select(0) is the first.
  std::optional<uint64_t> select(uint64_t rank) const;
  // Same numbers as `other`.
  bool equals(const Tree& other) const;

  // The numbers in ascending order, from the first that is not below `from` on.
  Cursor numbers(uint64_t from = 0) const;

  // Stores the lowest numbers of `first` to `last`, inclusive, that are not in the set in `out`, ascending, and
  // returns how many. Go on with one above the last.
  size_t freeNumbers(uint64_t first, uint64_t last, std::span<uint64_t> out) const;

  TreeStats stats() const;

  // Calls `visit` with every leaf in ascending order. It must not change the tree.
  void forEachLeaf(const std::function<void(const LeafInfo&)>& visit) const;

  // --- set algebra ---

  // Adds the numbers of `other`; takes them out; keeps only them. Returns how many numbers were added, or were
  // taken out.
  uint64_t unite(const Tree& other);
  uint64_t subtract(const Tree& other);
  uint64_t intersect(const Tree& other);

  // Makes this tree a copy of `source`; what `a` and `b` hold together; what both hold; what `a` holds and `b`
  // does not; what exactly one of them holds. This tree may be one of them; other content is lost.
  void assign(const Tree& source);
  void assignUnion(const Tree& a, const Tree& b);
  void assignIntersection(const Tree& a, const Tree& b);
  void assignDifference(const Tree& a, const Tree& b);
  void assignSymmetricDifference(const Tree& a, const Tree& b);

  // How many numbers this tree shares with `other`, counted by way of a temporary tree.
  uint64_t intersectionCount(const Tree& other) const;

  // --- bitmap files and compressed records ---

  // Writes the numbers to a bitmap file. The file appears under `path` when it is complete. An existing one is
  // replaced only with `overwrite` (else `fileExists`). Width four takes no number of 2^32 or above
  // (`badArgument`).
  void exportFile(const std::filesystem::path& path, FileWidth width = FileWidth::eight,
                  bool overwrite = false) const;

  // Adds the numbers of a bitmap file of either width and byte order; it is checked as a whole first (`badFile`).
  // Returns how many were not in the set before.
  uint64_t importFile(const std::filesystem::path& path);

  // Hands the set to `sink` as compressed records of at most 64 KiB, each complete in itself; the bytes are valid
  // during the call.
  void packRecords(const std::function<void(std::span<const std::byte>)>& sink) const;

  // Adds the numbers of one such record; it is checked first (`badFile`). Returns how many were not in the set.
  uint64_t addRecord(std::span<const std::byte> record);

 private:
  friend class Reader;
  friend class Writer;
  friend struct TreeAccess;
  Tree(std::shared_ptr<Session> session, std::shared_ptr<TreeState> state);
  std::shared_ptr<Session> session_;
  std::shared_ptr<TreeState> state_;
};

// A snapshot: the trees as of the last commit before it began. Keep it short-lived where there are writers: the
// room of pages that were given up after it began is not used again before it ends.
//
// The checksum of each page is verified when a reader meets the page for the first time. A page that fails is not
// used: the operation throws `damaged` with its id.
class Reader {
 public:
  Reader(Reader&&) noexcept;
  Reader& operator=(Reader&&) noexcept;
  ~Reader();

  std::vector<std::string> names() const;  // ascending
  bool contains(std::string_view name) const;

  // The tree `name`; throws `noSuchTree`.
  Tree tree(std::string_view name) const;

  // A new empty tree of this reader alone, in memory or spilled, for results.
  Tree temporary();

  // Which commit this is a snapshot of; grows with every commit.
  uint64_t stamp() const;

 private:
  friend class Store;
  explicit Reader(std::shared_ptr<Session> session);
  std::shared_ptr<Session> session_;
};

// The one who changes a store. Nothing of it is visible to others, or survives, before commit(). Dropping a
// writer aborts it.
class Writer {
 public:
  Writer(Writer&&) noexcept;
  Writer& operator=(Writer&&) noexcept;
  ~Writer();

  std::vector<std::string> names() const;  // ascending
  bool contains(std::string_view name) const;

  // The tree `name`; throws `noSuchTree`.
  Tree tree(std::string_view name);
  // A new empty tree; throws `treeExists` or `badName`.
  Tree create(std::string_view name);
  // The tree `name`, which is made if there is none.
  Tree treeOrNew(std::string_view name);
  // A new empty tree that no commit stores.
  Tree temporary();

  // Removes the tree; its handles then throw `closed`. A tree with damaged pages can be removed as well: pages below
  // one of them are then left over, which verify tells and a compaction ends.
  void remove(std::string_view name);
  // Gives the tree another name, its handles stay good; throws `treeExists`.
  void rename(std::string_view from, std::string_view to);
  // Makes `to` a copy of `from`; throws `treeExists`.
  Tree copy(std::string_view from, std::string_view to);

  // Makes all changes durable and visible in one step, and ends the writer. If it throws `full` or `io`, nothing is
  // stored, the last commit stands, and the writer may commit again or abort.
  void commit();

  // Ends the writer; everything is as after the last commit.
  void abort() noexcept;

 private:
  friend class Store;
  explicit Writer(std::shared_ptr<Session> session);
  std::shared_ptr<Session> session_;
};

// Something wrong with a store.
struct Finding {
  enum class Kind {
    page,    // a stored page fails its checksum, is missing or cannot be read
    tree,    // a tree breaks an invariant
    leaked,  // a stored page belongs to no tree
    lost,    // a page of a tree is not stored
    shared,  // a page belongs to two trees
  };
  Kind kind;
  uint64_t pageId;      // 0 where it does not apply
  std::string tree;     // name of the tree; empty where it does not apply
  std::string message;  // a plain sentence
};

struct VerifyReport {
  uint64_t pagesChecked = 0;
  uint64_t treesChecked = 0;
  uint64_t uncommittedPages = 0;  // pages of a commit in progress, or of one that was cut off; not a fault
  uint64_t faults = 0;            // all that is wrong
  std::vector<Finding> findings;  // the first 1000 of the faults
  bool sound() const { return faults == 0; }
};

struct StoreInfo {
  unsigned formatVersion;
  uint64_t stamp;       // of the last commit
  uint64_t nextPageId;  // no commit has used an id from here on
  uint64_t trees;
  uint64_t pages;      // stored pages
  uint64_t bytesUsed;  // bytes of the file in use
  uint64_t bytesFree;  // bytes inside the file that are free for reuse
};

class Store {
 public:
  // Opens the store in the file `path`; beside it stands `path`-lock, which the processes that use it share. Throws
  // missingFile, foreignFile, newerFormat, readOnly, alreadyOpen, damaged, io.
  static Store open(const std::filesystem::path& path, const StoreOptions& options = {});

  // A store over a page store of the caller's own, which is made a store if it has no catalogue yet. Of the options,
  // memoryLimit and spillDirectory apply, and mode: readOnly refuses writers.
  static Store over(std::unique_ptr<PageStore> pages, const StoreOptions& options = {});

  Store(Store&&) noexcept;
  Store& operator=(Store&&) noexcept;
  ~Store();  // readers and writers that still live keep the file open until they end

  // A snapshot of the last commit. Throws tooManyReaders, damaged, io.
  Reader beginRead() const;

  // Becomes the writer. Throws writerActive at once if there is another one, readOnly if writing is not possible.
  Writer beginWrite();

  // Checks, in a snapshot: every stored page's checksum, every tree's invariants, and that the pages of the trees
  // and the stored pages are the same. Damage is what the report is for; throws only what a reader would.
  VerifyReport verify(const Progress& progress = nullptr) const;

  // Writes the trees of a snapshot to a new store in the file `path`, with only the pages in use, renumbered.
  // Readers and the writer go on meanwhile. The file appears under `path` when it is complete; any failure removes
  // what was written. Throws fileExists.
  void compactTo(const std::filesystem::path& path, const Progress& progress = nullptr) const;

  StoreInfo info() const;

 private:
  struct Shared;
  explicit Store(std::shared_ptr<Shared> shared);
  std::shared_ptr<Shared> shared_;
};

}  // namespace bmtree
