// What a Reader or Writer is made of: a snapshot, a context, the named trees, and for a writer the right to write.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "catalogue.h"
#include "context.h"
#include "store.h"

namespace bmtree {

// One tree as a session sees it; shared by the handles and cursors of that tree.
struct TreeState {
  std::string name;  // empty: temporary
  RepTreeRootSType root;
  uint64_t changes = 0;  // of the tree, so that a cursor knows that its position is out of date
  bool removed = false;
};

// The store as its sessions see it.
struct SessionPlace {
  std::shared_ptr<PageStore> pages;
  StoreOptions options;
  std::filesystem::path directory;  // where a spill file goes; empty: where temporary files belong
};

class Session {
 public:
  // A reader; with `writing` a writer, which drops what an earlier one left unfinished.
  Session(const SessionPlace& place, bool writing);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { end(); }

  // Drops everything that was not committed; whatever uses the session afterwards throws `closed`.
  void end() noexcept;

  std::vector<std::string> names() const;
  bool contains(std::string_view name) const;
  std::shared_ptr<TreeState> find(std::string_view name) const;
  std::shared_ptr<TreeState> create(std::string_view name);
  std::shared_ptr<TreeState> temporary() const;
  void remove(std::string_view name);
  void rename(std::string_view from, std::string_view to);
  std::shared_ptr<TreeState> copy(std::string_view from, std::string_view to);
  void commit();

  // What the catalogue of the snapshot says.
  const Catalogue& base() const;
  PageSnapshot& snapshot() const;
  StoreContext& context() const;  // throws `closed`
  bool isOpen() const { return open_ != nullptr; }

  // Runs `body(context)`, which only reads, and throws if it met a failure.
  template <class Body>
  auto read(const TreeState& tree, const Body& body) const {
    requireTree(tree);
    const FailureThrower thrower(context(), calls_);
    return thrower.after([&] { return body(context()); });
  }

  // Runs `body(context)`, which changes `tree`, and throws if it met a failure; a named tree then takes its writer
  // with it.
  template <class Body>
  auto change(TreeState& tree, const Body& body) {
    requireChangeable(tree);
    ++tree.changes;
    const FailureThrower thrower(context(), calls_);
    try {
      return thrower.after([&] { return body(context()); });
    } catch (...) {
      if (writer()) broken_ = true;
      throw;
    }
  }

 private:
  // Everything that ends with the session, in the order in which it is made.
  struct Open {
    std::shared_ptr<PageStore> store;
    std::unique_ptr<PageWriter> writer;  // null for a reader
    std::unique_ptr<PageSnapshot> snapshot;
    Catalogue base;
    std::unique_ptr<StoreContext> context;
    std::map<std::string, std::shared_ptr<TreeState>, std::less<>> trees;
  };

  // Throws the failures of the context behind a call. The outermost of nested calls begins with none.
  class FailureThrower {
   public:
    FailureThrower(StoreContext& context, int& calls) : context_(context), calls_(calls) {
      if (calls_++ == 0) context_.takeFailures();
    }
    FailureThrower(const FailureThrower&) = delete;
    FailureThrower& operator=(const FailureThrower&) = delete;
    ~FailureThrower() { --calls_; }

    template <class Call>
    auto after(const Call& call) const {
      if constexpr (std::is_void_v<decltype(call())>) {
        call();
        context_.throwFailure();
      } else {
        auto result = call();
        context_.throwFailure();
        return result;
      }
    }

   private:
    StoreContext& context_;
    int& calls_;
  };

  bool writer() const { return open_ != nullptr && open_->writer != nullptr; }
  Open& open() const;
  void requireTree(const TreeState& tree) const;
  void requireChangeable(const TreeState& tree) const;
  void requireWriter() const;
  void requireNewName(std::string_view name) const;
  void store(const Catalogue& next);
  void putNewPages();
  Catalogue nextCatalogue() const;
  bool anythingChanged(const Catalogue& next) const;

  std::unique_ptr<Open> open_;
  mutable int calls_ = 0;  // calls of read() and change() that are under way
  bool broken_ = false;    // a failed change left something half done
};

// Throws `badName` unless it is 1 to 255 bytes without control characters.
void requireTreeName(std::string_view name);

}  // namespace bmtree
