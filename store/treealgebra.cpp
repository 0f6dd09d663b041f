// Trees: set algebra.
#include "treeaccess.h"

namespace bmtree {
namespace {

void requireTogether(const Tree& a, const Tree& b) {
  if (TreeAccess::sessionPointer(a) == TreeAccess::sessionPointer(b)) return;
  throw StoreError(StoreErrorCode::badArgument, "the trees belong to different readers or writers");
}

bool same(const Tree& a, const Tree& b) { return TreeAccess::statePointer(a) == TreeAccess::statePointer(b); }

// Makes `target` a tree of what `fill(root)` puts in an empty tree; what `fill` reads may be `target` itself.
template <class Fill>
void replace(StoreContext& context, RepTreeRootSType& target, const Fill& fill) {
  ScratchTree result(context);
  fill(result.root());
  if (context.failed()) return;
  BmDisposeTree(&context, &target);
  BmCopyTree(&context, result.root(), &target);
}

// Runs `fill(context, rootOfA, rootOfB, result)` to make what `target` is to hold.
template <class Fill>
void assignResult(Tree& target, const Tree& a, const Tree& b, const Fill& fill) {
  requireTogether(target, a);
  requireTogether(target, b);
  auto& rootOfA = TreeAccess::state(a).root;
  auto& rootOfB = TreeAccess::state(b).root;
  TreeAccess::read(a, [](auto&, auto&) {});
  TreeAccess::read(b, [](auto&, auto&) {});
  TreeAccess::change(target, [&](auto& context, auto& root) {
    const auto fillResult = [&](RepTreeRootSType* result) { fill(&context, &rootOfA, &rootOfB, result); };
    if (same(target, a) || same(target, b)) {
      replace(context, root, fillResult);
    } else {
      BmDisposeTree(&context, &root);
      fillResult(&root);
    }
  });
}

bool holdsMore(StoreContext& context, const RepTreeRootSType& a, const RepTreeRootSType& b) {
  unsigned long bit = 0;
  return BmDifference_(&context, &a, &b, 1, &bit) > 0;
}

uint64_t removeAll(StoreContext& context, RepTreeRootSType& root) {
  const uint64_t count = BmFindNumBitsSet_(&context, &root);
  BmDisposeTree(&context, &root);
  return count;
}

}  // namespace

// A taller source is first cut down to what it shares with the target, in a tree that can be spilled.
uint64_t clearBits(StoreContext& context, RepTreeRootSType* source, RepTreeRootSType* target) {
  if (source->level <= target->level || target->level == 0) return BmClearBits_(&context, source, target);
  ScratchTree shared(context);
  BmIntersectSize_(&context, source, target, shared.root(), BM_END_BIT, 0);
  return BmClearBits_(&context, shared.root(), target);
}

uint64_t Tree::unite(const Tree& other) {
  requireTogether(*this, other);
  if (same(*this, other)) return 0;
  return TreeAccess::read(other, [&](auto&, auto& source) {
    return TreeAccess::change(*this, [&](auto& context, auto& root) { return BmSetBits_(&context, &source, &root); });
  });
}

uint64_t Tree::subtract(const Tree& other) {
  requireTogether(*this, other);
  return TreeAccess::read(other, [&](auto&, auto& source) {
    return TreeAccess::change(*this, [&](auto& context, auto& root) {
      return same(*this, other) ? removeAll(context, root) : clearBits(context, &source, &root);
    });
  });
}

uint64_t Tree::intersect(const Tree& other) {
  const uint64_t before = count();
  assignIntersection(*this, other);
  return before - count();
}

void Tree::assign(const Tree& source) {
  requireTogether(*this, source);
  if (same(*this, source)) return;
  TreeAccess::read(source, [&](auto&, auto& sourceRoot) {
    TreeAccess::change(*this, [&](auto& context, auto& root) {
      BmDisposeTree(&context, &root);
      BmCopyTree(&context, &sourceRoot, &root);
    });
  });
}

void Tree::assignUnion(const Tree& a, const Tree& b) {
  if (same(*this, a) || same(*this, b)) {
    unite(same(*this, a) ? b : a);
    return;
  }
  assignResult(*this, a, b, [](auto* context, auto* rootOfA, auto* rootOfB, auto* result) {
    BmCopyTree(context, rootOfA, result);
    BmSetBits_(context, rootOfB, result);
  });
}

void Tree::assignIntersection(const Tree& a, const Tree& b) {
  assignResult(*this, a, b, [](auto* context, auto* rootOfA, auto* rootOfB, auto* result) {
    BmIntersectSize_(context, rootOfA, rootOfB, result, BM_END_BIT, 0);
  });
}

void Tree::assignDifference(const Tree& a, const Tree& b) {
  if (same(*this, a)) {
    subtract(b);
    return;
  }
  assignResult(*this, a, b, [](auto* context, auto* rootOfA, auto* rootOfB, auto* result) {
    BmDiff(context, rootOfA, rootOfB, result);
  });
}

void Tree::assignSymmetricDifference(const Tree& a, const Tree& b) {
  assignResult(*this, a, b, [](auto* context, auto* rootOfA, auto* rootOfB, auto* result) {
    ScratchTree onlyInB(*context);
    BmDiff(context, rootOfA, rootOfB, result);
    BmDiff(context, rootOfB, rootOfA, onlyInB.root());
    BmSetBits_(context, onlyInB.root(), result);
  });
}

uint64_t Tree::intersectionCount(const Tree& other) const {
  requireTogether(*this, other);
  if (same(*this, other)) return count();
  return TreeAccess::read(other, [&](auto&, auto& otherRoot) {
    return TreeAccess::read(*this, [&](auto& context, auto& root) {
      ScratchTree shared(context);
      return BmIntersectSize_(&context, &root, &otherRoot, shared.root(), BM_END_BIT, 0);
    });
  });
}

bool Tree::equals(const Tree& other) const {
  requireTogether(*this, other);
  if (same(*this, other)) return true;
  return TreeAccess::read(other, [&](auto&, auto& otherRoot) {
    return TreeAccess::read(*this, [&](auto& context, auto& root) {
      return !holdsMore(context, root, otherRoot) && !holdsMore(context, otherRoot, root);
    });
  });
}

}  // namespace bmtree
