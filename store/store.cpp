#include "store.h"

#include <chrono>
#include <thread>

#include "lmdbpagestore.h"
#include "maintenance.h"
#include "unfinishedstore.h"

namespace bmtree {
namespace {

// Gives a new page store its first catalogue. False if somebody else is at it.
bool writeFirstCatalogue(PageStore& pages) {
  try {
    const Catalogue first;
    pages.beginWrite()->swapCatalogue(0, {first.stamp, encodeCatalogue(first)}, {});
    return true;
  } catch (const StoreError& error) {
    if (error.code() == StoreErrorCode::writerActive || error.code() == StoreErrorCode::conflict) return false;
    throw;
  }
}

// Makes sure that there is a catalogue that can be used, and makes the first one if `mode` allows.
void requireCatalogue(PageStore& pages, OpenMode mode) {
  for (int attempt = 0; attempt < 200; ++attempt) {
    const auto bytes = pages.snapshot()->catalogue().bytes;
    if (!bytes.empty() || mode == OpenMode::readOnly) {
      decodeCatalogue(bytes);
      return;
    }
    if (!writeFirstCatalogue(pages)) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  throw StoreError(StoreErrorCode::writerActive, "another process is making this store and does not finish");
}

bool isWithoutCommit(PageStore& pages) { return pages.snapshot()->catalogue().version == Catalogue{}.stamp; }

}  // namespace

struct Store::Shared {
  SessionPlace place;
};

Store::Store(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
Store::Store(Store&&) noexcept = default;
Store& Store::operator=(Store&&) noexcept = default;
Store::~Store() = default;

Store Store::open(const std::filesystem::path& path, const StoreOptions& options) {
  Store store = over(openLmdbPageStore(path, options), options);
  if (options.mode != OpenMode::readOnly && options.syncCommits && isWithoutCommit(*store.shared_->place.pages)) {
    syncFolderOf(path);  // the name of the file, before the first commit relies on it
  }
  store.shared_->place.directory = path.has_parent_path() ? path.parent_path() : ".";
  return store;
}

Store Store::over(std::unique_ptr<PageStore> pages, const StoreOptions& options) {
  requireCatalogue(*pages, options.mode);
  return Store(std::make_shared<Shared>(Shared{{std::move(pages), options, {}}}));
}

Reader Store::beginRead() const { return Reader(std::make_shared<Session>(shared_->place, false)); }

Writer Store::beginWrite() {
  if (shared_->place.options.mode == OpenMode::readOnly) {
    throw StoreError(StoreErrorCode::readOnly, "the store was opened for reading only");
  }
  return Writer(std::make_shared<Session>(shared_->place, true));
}

VerifyReport Store::verify(const Progress& progress) const {
  Session session(shared_->place, false);
  return verifyStore(session, progress);
}

void Store::compactTo(const std::filesystem::path& path, const Progress& progress) const {
  Session session(shared_->place, false);
  UnfinishedStore target(path);
  StoreOptions options = shared_->place.options;
  options.mode = OpenMode::create;
  compactInto(*openLmdbPageStore(target.file(), options), session, progress);
  target.publish();
}

StoreInfo Store::info() const {
  const auto snapshot = shared_->place.pages->snapshot();
  const Catalogue catalogue = decodeCatalogue(snapshot->catalogue().bytes);
  const PageStoreFigures figures = shared_->place.pages->figures();
  return {storeFormatVersion,    catalogue.stamp,   catalogue.nextPageId, catalogue.trees.size(),
          snapshot->pageCount(), figures.bytesUsed, figures.bytesFree};
}

Reader::Reader(std::shared_ptr<Session> session) : session_(std::move(session)) {}
Reader::Reader(Reader&&) noexcept = default;

Reader& Reader::operator=(Reader&& other) noexcept {
  Reader taken(std::move(other));
  std::swap(session_, taken.session_);
  return *this;
}

Reader::~Reader() {
  if (session_ != nullptr) session_->end();
}

std::vector<std::string> Reader::names() const { return session_->names(); }
bool Reader::contains(std::string_view name) const { return session_->contains(name); }
Tree Reader::tree(std::string_view name) const { return Tree(session_, session_->find(name)); }
Tree Reader::temporary() { return Tree(session_, session_->temporary()); }
uint64_t Reader::stamp() const { return session_->base().stamp; }

Writer::Writer(std::shared_ptr<Session> session) : session_(std::move(session)) {}
Writer::Writer(Writer&&) noexcept = default;

Writer& Writer::operator=(Writer&& other) noexcept {
  Writer taken(std::move(other));
  std::swap(session_, taken.session_);
  return *this;
}

Writer::~Writer() { abort(); }

void Writer::abort() noexcept {
  if (session_ != nullptr) session_->end();
}

std::vector<std::string> Writer::names() const { return session_->names(); }
bool Writer::contains(std::string_view name) const { return session_->contains(name); }
Tree Writer::tree(std::string_view name) { return Tree(session_, session_->find(name)); }
Tree Writer::create(std::string_view name) { return Tree(session_, session_->create(name)); }
Tree Writer::treeOrNew(std::string_view name) { return contains(name) ? tree(name) : create(name); }
Tree Writer::temporary() { return Tree(session_, session_->temporary()); }
void Writer::remove(std::string_view name) { session_->remove(name); }
void Writer::rename(std::string_view from, std::string_view to) { session_->rename(from, to); }
Tree Writer::copy(std::string_view from, std::string_view to) { return Tree(session_, session_->copy(from, to)); }
void Writer::commit() { session_->commit(); }

}  // namespace bmtree
