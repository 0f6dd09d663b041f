// Checks a store: pages, trees, and that both sides name the same pages.
#include <algorithm>
#include <new>
#include <set>

#include "maintenance.h"
#include "treeaccess.h"

namespace bmtree {
namespace {

constexpr size_t keptFindings = 1000;
constexpr uint64_t stepsBetweenReports = 256;

class Verification {
 public:
  Verification(Session& session, const Progress& progress)
      : session_(session), context_(session.context()), progress_(progress), stored_(context_), named_(context_) {}

  VerifyReport run() {
    checkPages();
    for (const auto& [name, root] : session_.base().trees) checkTree(name, root);
    comparePages();
    context_.throwFailure();
    return std::move(report_);
  }

 private:
  void add(Finding::Kind kind, uint64_t pageId, const std::string& tree, const std::string& message) {
    ++report_.faults;
    if (report_.findings.size() < keptFindings) report_.findings.push_back({kind, pageId, tree, message});
  }

  void checkPages() {
    session_.snapshot().listPages([&](std::span<const uint64_t> ids) {
      const uint64_t end = session_.base().nextPageId;
      const auto committed =
          ids.first(static_cast<size_t>(std::lower_bound(ids.begin(), ids.end(), end) - ids.begin()));
      report_.uncommittedPages += ids.size() - committed.size();
      for (const uint64_t id : committed) checkPage(id);
      BmSetBitsFromSortedArray_(&context_, stored_.root(), committed.data(), committed.data() + committed.size());
      context_.throwFailure();
    });
    if (progress_) progress_(report_.pagesChecked, report_.pagesChecked);
  }

  void checkPage(uint64_t id) {
    StoreErrorCode failure = StoreErrorCode::damaged;
    const std::byte* bytes = session_.snapshot().view(id, failure);
    const char* fault = bytes == nullptr ? "it cannot be read or has another size"
                                         : faultOfStoredPage(*reinterpret_cast<const RepPageHdrSType*>(bytes), id);
    if (fault != nullptr) {
      damagedPages_.insert(id);
      add(Finding::Kind::page, id, {}, "page " + std::to_string(id) + ": " + fault);
    }
    ++report_.pagesChecked;
    if (progress_ && report_.pagesChecked % stepsBetweenReports == 0) {
      progress_(report_.pagesChecked, session_.snapshot().pageCount());
    }
  }

  void checkTree(const std::string& name, const RepTreeRootSType& root) {
    ++report_.treesChecked;
    inTree_ = &name;
    BmVerifyTree(&context_, &root, &Verification::report, this);
    takeFailures(name);
    ScratchTree pages(context_);
    BmAdd(&context_, &root, pages.root());
    readFailed_ = readFailed_ || context_.failed();
    context_.takeFailures();
    const auto count = BmFindNumBitsSet_(&context_, pages.root());
    if (BmSetBits_(&context_, pages.root(), named_.root()) != count) reportShared(name, root);
    context_.throwFailure();
  }

  // Called by the module, through which nothing may be thrown.
  static void report(void* context, unsigned long pageRef, int level, const char* sentence) noexcept {
    auto* self = static_cast<Verification*>(context);
    if (self->damagedPages_.contains(pageRef)) return;
    const uint64_t before = self->report_.faults;
    try {
      self->add(Finding::Kind::tree, pageRef, *self->inTree_,
                "page " + std::to_string(pageRef) + " at level " + std::to_string(level) + ": " + sentence);
    } catch (const std::bad_alloc&) {
      self->report_.faults = before + 1;  // a fault that there is no memory to describe still counts
    }
  }

  // Pages of the tree that could not be used: those that fail by themselves were found before, but not whose they
  // are.
  void takeFailures(const std::string& name) {
    for (const StoreError& failure : context_.takeFailures()) {
      readFailed_ = true;
      add(Finding::Kind::tree, failure.pageId(), name, failure.what());
    }
  }

  // Pages of the tree `name` that stood in an earlier tree: each tree before it has its pages compared.
  void reportShared(const std::string& name, const RepTreeRootSType& root) {
    ScratchTree pages(context_);
    BmAdd(&context_, &root, pages.root());
    for (const auto& [other, otherRoot] : session_.base().trees) {
      if (other == name) break;
      ScratchTree otherPages(context_);
      ScratchTree shared(context_);
      BmAdd(&context_, &otherRoot, otherPages.root());
      BmIntersectSize_(&context_, pages.root(), otherPages.root(), shared.root(), BM_END_BIT, 0);
      reportEach(Finding::Kind::shared, *shared.root(), name, "belongs to \"" + other + "\" as well");
    }
    context_.takeFailures();
  }

  // A page of a tree that could not be read in full may stand below a damaged one, so leaks cannot be told then.
  void comparePages() {
    ScratchTree lost(context_);
    BmDiff(&context_, named_.root(), stored_.root(), lost.root());
    reportEach(Finding::Kind::lost, *lost.root(), {}, "belongs to a tree and is not stored");
    if (readFailed_) return;
    ScratchTree leaked(context_);
    BmDiff(&context_, stored_.root(), named_.root(), leaked.root());
    reportEach(Finding::Kind::leaked, *leaked.root(), {}, "is stored and belongs to no tree");
  }

  void reportEach(Finding::Kind kind, const RepTreeRootSType& ids, const std::string& tree, const std::string& what) {
    std::array<unsigned long, 256> batch;
    BmPathSType path{};
    while (const auto count = BmFindSetBitsNonDestructive_(&context_, batch.size(), &ids, &path, batch.data())) {
      for (size_t i = 0; i < count; ++i) add(kind, batch[i], tree, "page " + std::to_string(batch[i]) + " " + what);
    }
  }

  Session& session_;
  StoreContext& context_;
  const Progress& progress_;
  VerifyReport report_;
  ScratchTree stored_;  // ids of the stored pages
  ScratchTree named_;   // ids of the pages of all trees
  std::set<uint64_t> damagedPages_;
  const std::string* inTree_ = nullptr;
  bool readFailed_ = false;
};

}  // namespace

VerifyReport verifyStore(Session& session, const Progress& progress) { return Verification(session, progress).run(); }

}  // namespace bmtree
