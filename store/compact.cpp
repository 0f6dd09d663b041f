// Writes the trees of a snapshot to a fresh page store, page by page, children before parents, under new ids.
#include <cstring>

#include "checksum.h"
#include "maintenance.h"

namespace bmtree {
namespace {

constexpr size_t batchPages = 256;

class Compaction {
 public:
  Compaction(PageStore& target, Session& session, const Progress& progress)
      : context_(session.context()),
        trees_(session.base().trees),
        progress_(progress),
        writer_(target.beginWrite()),
        batch_(batchPages * pageBytes) {}

  void run() {
    for (const auto& [name, root] : trees_) total_ += pagesOf(root);
    Catalogue catalogue;
    for (const auto& [name, root] : trees_) {
      RepTreeRootSType copy = root;
      if (root.root != 0) copy.root = copyPages(root.root, root.level);
      catalogue.trees.emplace(name, copy);
    }
    flush();
    catalogue.nextPageId = nextId_;
    writer_->swapCatalogue(0, {catalogue.stamp, encodeCatalogue(catalogue)}, {});
  }

 private:
  uint64_t pagesOf(const RepTreeRootSType& tree) {
    RepTreeRootSType root = tree;
    const uint64_t count = BmCountPagesInTree(&context_, &root);
    context_.throwFailure();
    return count;
  }

  // Copies the page `id` and all below it. Returns the new id of the page.
  uint64_t copyPages(uint64_t id, int level) {
    if (level == 0) return copyPage(*located(id, REP_ANY_PAGE));
    auto page = std::make_unique<RepBmInternalPageSType>();
    std::memcpy(page.get(), located(id, REP_BM_INTERNAL_PAGE), sizeof *page);
    uint64_t* children = page->children + page->keyArea.firstOffset;
    for (int i = 0; i < page->keyArea.count; ++i) children[i] = copyPages(children[i], level - 1);
    return copyPage(page->hdr);
  }

  const RepPageHdrSType* located(uint64_t id, int kind) {
    const RepPageHdrSType* page = context_.locate(id, kind);
    context_.throwFailure();
    return page;
  }

  uint64_t copyPage(const RepPageHdrSType& page) {
    std::byte* slot = batch_.data() + waiting_.size() * pageBytes;
    std::memcpy(slot, &page, pageBytes);
    auto* copy = reinterpret_cast<RepPageHdrSType*>(slot);
    copy->pageId = nextId_++;
    setCarefulStamp(*copy, Catalogue{}.stamp);
    setStoredChecksum(*copy);
    const uint64_t id = copy->pageId;
    waiting_.push_back({id, slot});
    if (waiting_.size() == batchPages) flush();
    return id;
  }

  void flush() {
    writer_->put(waiting_);
    waiting_.clear();
    const uint64_t done = nextId_ - firstPageId;
    if (progress_) progress_(done, std::max(done, total_));
  }

  StoreContext& context_;
  const std::map<std::string, RepTreeRootSType, std::less<>>& trees_;
  const Progress& progress_;
  const std::unique_ptr<PageWriter> writer_;
  std::vector<std::byte> batch_;
  std::vector<PageImage> waiting_;
  uint64_t nextId_ = firstPageId;
  uint64_t total_ = 0;
};

}  // namespace

void compactInto(PageStore& target, Session& session, const Progress& progress) {
  Compaction(target, session, progress).run();
}

}  // namespace bmtree
