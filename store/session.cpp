#include "session.h"

#include <algorithm>

#include "checksum.h"

namespace bmtree {
namespace {

constexpr size_t longestName = 255;

[[noreturn]] void throwNoSuchTree(std::string_view name) {
  throw StoreError(StoreErrorCode::noSuchTree, "there is no tree \"" + std::string(name) + "\"");
}

PrivatePages privatePages(const SessionPlace& place, uint64_t firstId) {
  const bool told = !place.options.spillDirectory.empty();
  auto directory = told ? place.options.spillDirectory : place.directory;
  if (directory.empty()) directory = std::filesystem::temp_directory_path();
  return PrivatePages(firstId, place.options.memoryLimit, SpillFile(std::move(directory), !told));
}

// Calls `take` with all bits of `tree`, a heap tree, in ascending batches.
template <class Take>
void forEachBatch(StoreContext& context, const RepTreeRootSType& tree, const Take& take) {
  std::vector<unsigned long> batch(256);
  BmPathSType path{};
  while (const auto count =
             BmFindSetBitsNonDestructive_(&context, static_cast<long>(batch.size()), &tree, &path, batch.data())) {
    take(std::span<const unsigned long>(batch.data(), count));
  }
}

}  // namespace

void requireTreeName(std::string_view name) {
  const bool control =
      std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
  if (name.empty() || name.size() > longestName || control) {
    throw StoreError(
        StoreErrorCode::badName,
        "the name of a tree has 1 to 255 bytes and no control characters, not \"" + std::string(name) + "\"");
  }
}

Session::Session(const SessionPlace& place, bool writing) : open_(std::make_unique<Open>()) {
  open_->store = place.pages;
  if (writing) open_->writer = place.pages->beginWrite();
  open_->snapshot = place.pages->snapshot();
  open_->base = decodeCatalogue(open_->snapshot->catalogue().bytes);
  const Catalogue& base = open_->base;
  if (writing) open_->writer->dropPagesFrom(base.nextPageId);
  open_->context = std::make_unique<StoreContext>(*open_->snapshot, base.nextPageId, base.stamp + 1,
                                                  privatePages(place, base.nextPageId));
  for (const auto& [name, root] : base.trees) {
    auto state = std::make_shared<TreeState>();
    state->name = name;
    state->root = root;
    open_->trees.emplace(name, std::move(state));
  }
}

void Session::end() noexcept {
  if (open_ == nullptr) return;
  open_->context.reset();  // before the snapshot that it reads
  open_->snapshot.reset();
  open_.reset();
}

Session::Open& Session::open() const {
  if (open_ == nullptr) throw StoreError(StoreErrorCode::closed, "the reader or writer has ended");
  return *open_;
}

const Catalogue& Session::base() const { return open().base; }
PageSnapshot& Session::snapshot() const { return *open().snapshot; }
StoreContext& Session::context() const { return *open().context; }

void Session::requireTree(const TreeState& tree) const {
  open();
  if (tree.removed) throw StoreError(StoreErrorCode::closed, "the tree \"" + tree.name + "\" was removed");
}

void Session::requireChangeable(const TreeState& tree) const {
  requireTree(tree);
  if (!tree.name.empty()) requireWriter();
}

void Session::requireWriter() const {
  open();
  if (!writer()) throw StoreError(StoreErrorCode::readOnly, "a reader cannot change the store");
  if (broken_) throw StoreError(StoreErrorCode::closed, "an operation of this writer failed; it can only be aborted");
}

void Session::requireNewName(std::string_view name) const {
  requireWriter();
  requireTreeName(name);
  if (contains(name)) {
    throw StoreError(StoreErrorCode::treeExists, "there is a tree \"" + std::string(name) + "\" already");
  }
}

std::vector<std::string> Session::names() const {
  std::vector<std::string> names;
  for (const auto& [name, state] : open().trees) names.push_back(name);
  return names;
}

bool Session::contains(std::string_view name) const { return open().trees.contains(name); }

std::shared_ptr<TreeState> Session::find(std::string_view name) const {
  const auto found = open().trees.find(name);
  if (found == open().trees.end()) throwNoSuchTree(name);
  return found->second;
}

std::shared_ptr<TreeState> Session::create(std::string_view name) {
  requireNewName(name);
  auto state = std::make_shared<TreeState>();
  state->name = name;
  state->root = RepTreeRootSType(0, BM_CAREFUL_TREE);
  open().trees.emplace(state->name, state);
  return state;
}

std::shared_ptr<TreeState> Session::temporary() const {
  open();
  auto state = std::make_shared<TreeState>();
  state->root = RepTreeRootSType(0, BM_PAGE_TREE);
  return state;
}

void Session::remove(std::string_view name) {
  requireWriter();
  const auto state = find(name);
  change(*state, [&](StoreContext& context) {
    BmDisposeTree(&context, &state->root);
    context.forgiveDamage();  // what stands below a damaged page cannot be found and is left over
  });
  state->removed = true;
  open().trees.erase(state->name);
}

void Session::rename(std::string_view from, std::string_view to) {
  requireNewName(to);
  const auto found = open().trees.find(from);
  if (found == open().trees.end()) throwNoSuchTree(from);
  auto entry = open().trees.extract(found);
  entry.key() = to;
  entry.mapped()->name = to;
  open().trees.insert(std::move(entry));
}

std::shared_ptr<TreeState> Session::copy(std::string_view from, std::string_view to) {
  const auto source = find(from);
  auto target = create(to);
  change(*target, [&](StoreContext& context) { BmCopyTree(&context, &source->root, &target->root); });
  return target;
}

void Session::commit() {
  requireWriter();
  const Catalogue next = nextCatalogue();
  if (anythingChanged(next)) {
    try {
      store(next);
    } catch (...) {
      open().writer->cancelPuts();
      throw;
    }
  }
  end();
}

void Session::store(const Catalogue& next) {
  context().takeFailures();
  putNewPages();
  std::vector<uint64_t> obsolete;
  forEachBatch(context(), context().obsoletePageIds(),
               [&](auto ids) { obsolete.insert(obsolete.end(), ids.begin(), ids.end()); });
  context().throwFailure();
  open().writer->swapCatalogue(snapshot().catalogue().version, {next.stamp, encodeCatalogue(next)}, obsolete);
}

Catalogue Session::nextCatalogue() const {
  Catalogue next;
  next.stamp = context().stamp();
  next.nextPageId = context().privatePages().nextId();
  for (const auto& [name, state] : open().trees) next.trees.emplace(name, state->root);
  return next;
}

bool Session::anythingChanged(const Catalogue& next) const {
  const auto sameRoot = [](const auto& a, const auto& b) {
    return a.first == b.first && a.second.root == b.second.root && a.second.level == b.second.level;
  };
  return context().newPageIds().root != 0 || context().obsoletePageIds().root != 0 ||
         !std::equal(next.trees.begin(), next.trees.end(), base().trees.begin(), base().trees.end(), sameRoot);
}

// The pages of durable trees that were made under the current stamp, and no others: those of temporary trees
// stand among them but are not recorded.
void Session::putNewPages() {
  PrivatePages& pages = context().privatePages();
  std::vector<std::byte> scratch;
  std::vector<PageImage> images;
  forEachBatch(context(), context().newPageIds(), [&](std::span<const unsigned long> ids) {
    scratch.resize(ids.size() * pageBytes);
    images.clear();
    for (size_t i = 0; i < ids.size(); ++i) {
      std::byte* bytes = pages.peek(ids[i], scratch.data() + i * pageBytes);
      setStoredChecksum(*reinterpret_cast<RepPageHdrSType*>(bytes));
      images.push_back({ids[i], bytes});
    }
    open().writer->put(images);
  });
}

}  // namespace bmtree
