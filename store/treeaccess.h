// What the files that implement Tree share: the way from a handle to its session and state, and reading on from a
// number.
#pragma once

#include <span>

#include "session.h"

namespace bmtree {

// Bits read or written at a time where a buffer is needed.
constexpr size_t chunkNumbers = 4096;

struct TreeAccess {
  static Session& session(const Tree& tree) { return *tree.session_; }
  static TreeState& state(const Tree& tree) { return *tree.state_; }
  static const std::shared_ptr<Session>& sessionPointer(const Tree& tree) { return tree.session_; }
  static const std::shared_ptr<TreeState>& statePointer(const Tree& tree) { return tree.state_; }

  // Runs `body(context, root)` on the tree, as Session::read and Session::change do.
  template <class Body>
  static auto read(const Tree& tree, const Body& body) {
    return session(tree).read(state(tree), [&](StoreContext& context) { return body(context, state(tree).root); });
  }
  template <class Body>
  static auto change(Tree& tree, const Body& body) {
    return session(tree).change(state(tree), [&](StoreContext& context) { return body(context, state(tree).root); });
  }
};

// Throws `badArgument` unless `number` is below 2^40.
void requireNumber(uint64_t number);

// Throws `badArgument` unless `first` is not above `last` and both are below 2^40.
void requireRange(uint64_t first, uint64_t last);

// Reads up to out.size() bits of `root` that are not below `from` and leaves `path` behind the last, for
// BmFindSetBitsNonDestructive_ to go on. Returns how many; 0 if there is none.
size_t readFrom(StoreContext& context, const RepTreeRootSType& root, uint64_t from, BmPathSType* path,
                std::span<uint64_t> out);

// A temporary tree inside one operation.
class ScratchTree {
 public:
  explicit ScratchTree(StoreContext& context) : context_(context), root_(0, BM_PAGE_TREE) {}
  ScratchTree(const ScratchTree&) = delete;
  ScratchTree& operator=(const ScratchTree&) = delete;
  ~ScratchTree() { BmDisposeTree(&context_, &root_); }

  RepTreeRootSType* root() { return &root_; }

 private:
  StoreContext& context_;
  RepTreeRootSType root_;
};

// Clears in `target` the bits of `source`, in as much memory as the context may use.
uint64_t clearBits(StoreContext& context, RepTreeRootSType* source, RepTreeRootSType* target);

}  // namespace bmtree
